#include "StatsSettings.h"
#include "TempEnvironment.h"
#include "TestData.h"

#include <QTest>

#include <memory>

class TestStatsSettings : public QObject {
    Q_OBJECT
private slots:
    void init();
    void emptyFileGivesDefaults();
    void readings_data() { AddTableRows(QStringLiteral("settings.txt")); }
    void readings();
    void saveOrderOnEmptyFile();
    void optionsDefaults();
    void optionsSaveOrder();
    void garbageValuesGiveDefaults();

private:
    std::unique_ptr<TempEnvironment> m_env;
    QString path() const { return m_env->programFolder() + "vkstats.ini"; }
};

void TestStatsSettings::init() {
    m_env.reset(); // the old one restores the environment it found
    m_env = std::make_unique<TempEnvironment>();
}

void TestStatsSettings::emptyFileGivesDefaults() {
    TempEnvironment::writeFile(path(), "");
    const MainSettings s = LoadMainSettings(IniFile(path()));
    QVERIFY(s.showToolbar);
    QVERIFY(s.showStatusBar);
    // A fresh install updates what Mixmaster needs.
    QCOMPARE(s.tickedPages, QStringList({"mlist.txt", "pubring.mix", "rlist.txt", "pubring.asc"}));
    QCOMPARE(s.windowColor, SystemWindowColor);
    QCOMPARE(s.statsFont, QStringLiteral("Courier New,10,,0"));
    QCOMPARE(s.windowFont, QStringLiteral("Courier New,9,,0"));
    QCOMPARE(s.editorFont, QStringLiteral("Courier New,9,,0"));
    QCOMPARE(s.dialogFont, QStringLiteral("MS Sans Serif,8,,0"));
    QVERIFY(!s.barNew);
    QVERIFY(!s.exitLeft);
    const WindowGeometry g = ParseWindowRecord(s.window, QSize(686, 516));
    QCOMPARE(g.rect, QRect(0, 0, 686, 516));
    QCOMPARE(g.state, 0);
}

void TestStatsSettings::readings() {
    QFETCH(QStringList, f);
    IniFile ini(path());
    const auto rect = [](const QRect& r) {
        return QStringLiteral("%1,%2,%3,%4").arg(r.x()).arg(r.y()).arg(r.width()).arg(r.height());
    };
    if (f[0] == "pages") {
        QVERIFY(ini.writeString("stats", "pages", f[1]));
        const MainSettings loaded = LoadMainSettings(ini);
        const QString all = UpdatePageOrder().join(u',');
        QCOMPARE(loaded.tickedPages.join(u'|'),
                 QString(f[2]).replace("@ALL@", UpdatePageOrder().join(u'|')));
        MainSettingsToSave out;
        out.tickedPages = loaded.tickedPages;
        QVERIFY(SaveMainSettings(ini, out));
        QCOMPARE(ini.readString("stats", "pages", "DEF"), QString(f[3]).replace("@ALL@", all));
    } else if (f[0] == "geometry") {
        const WindowGeometry g = ParseWindowRecord(f[1], QSize(686, 516));
        QCOMPARE(g.state, f[2].toInt());
        QCOMPARE(g.placement, 0);
        QCOMPARE(rect(g.rect), f[3]);
    } else if (f[0] == "record") {
        QCOMPARE(MakeWindowRecord(f[1], f[2].toInt(), 0, QRect(50, 60, 700, 500)), f[3]);
    } else if (f[0] == "comma") {
        QCOMPARE(ToCommaText(f[1] == u'-' ? QStringList() : f[1].split(u'|')), f[2]);
    } else if (f[0] == "timeout") {
        QVERIFY(ini.writeString("stats", "timeoutseconds", f[1]));
        QCOMPARE(LoadStatsOptions(ini).timeoutSeconds, f[2].toInt());
        QCOMPARE(ReadTimeoutSeconds(ini), f[3].toInt());
    } else {
        QFAIL("unknown case kind");
    }
}

void TestStatsSettings::saveOrderOnEmptyFile() {
    IniFile ini(path());
    MainSettingsToSave out;
    out.window = "0,0,10,20,300,200";
    out.lastProxy = "<none>";
    out.windowColor = 16777215;
    out.windowFont = "Courier New,9,,0";
    out.editorFont = "Courier New,9,,0";
    out.dialogFont = "MS Sans Serif,8,,0";
    out.tickedPages = {"rlist.txt", "mlist.txt"};
    out.showStatusBar = false;
    QVERIFY(SaveMainSettings(ini, out));
    QCOMPARE(TempEnvironment::readFile(path()),
             QByteArray("[stats]\nwindow=0,0,10,20,300,200\nlastproxy=<none>\n"
                        "windowcolor=16777215\nwindowfont=Courier New,9,,0\n"
                        "editorfont=Courier New,9,,0\ndialogfont=MS Sans Serif,8,,0\n"
                        "pages=mlist.txt,rlist.txt\nshowstatusbar=0\nshowtoolbar=1\n"));
}

void TestStatsSettings::optionsDefaults() {
    const StatsOptions o = LoadStatsOptions(IniFile(path()));
    QVERIFY(o.autoLoad);
    QVERIFY(!o.windowCentered);
    QVERIFY(!o.barNew);
    QVERIFY(o.cascadeStatsOnly);
    QVERIFY(o.cascade);
    QCOMPARE(o.windowColor, SystemWindowColor);
    // The dialog's own default differs from the main window's on purpose.
    QCOMPARE(o.windowFont, QStringLiteral("MS Sans Serif,8,,0"));
    QCOMPARE(LoadMainSettings(IniFile(path())).windowFont, QStringLiteral("Courier New,9,,0"));
    QCOMPARE(o.dialogFont, QStringLiteral("MS Sans Serif,8,,0"));
    QCOMPARE(o.editorFont, QStringLiteral("Courier New,9,,0"));
    QCOMPARE(o.timeoutSeconds, 30);
    QCOMPARE(TimeoutFromText("12"), 12);
    QCOMPARE(TimeoutFromText("12x"), 30);
    QCOMPARE(TimeoutFromText(""), 30);
}

void TestStatsSettings::optionsSaveOrder() {
    IniFile ini(path());
    StatsOptions o;
    o.windowFont = "A,1,,0";
    o.dialogFont = "B,2,b,0";
    o.editorFont = "C,3,,255";
    o.timeoutSeconds = 45;
    QVERIFY(SaveStatsOptions(ini, o));
    QCOMPARE(TempEnvironment::readFile(path()),
             QByteArray("[stats]\nbarnew=0\ncascadestatsonly=1\ncascade=1\nautoload=1\n"
                        "windowcentered=0\nwindowcolor=-2147483643\nwindowfont=A,1,,0\n"
                        "dialogfont=B,2,b,0\neditorfont=C,3,,255\ntimeoutseconds=45\n"
                        "nostalesave=0\n"));
    const StatsOptions back = LoadStatsOptions(ini);
    QCOMPARE(back.timeoutSeconds, 45);
    QCOMPARE(back.dialogFont, QStringLiteral("B,2,b,0"));
}

void TestStatsSettings::garbageValuesGiveDefaults() {
    TempEnvironment::writeFile(path(), "[stats]\nshowtoolbar=maybe\nshowstatusbar=\n"
                                       "windowcolor=blue\nbarnew=x\ncascade=?\n");
    const MainSettings s = LoadMainSettings(IniFile(path()));
    QVERIFY(s.showToolbar);
    QVERIFY(s.showStatusBar);
    QCOMPARE(s.windowColor, SystemWindowColor);
    QVERIFY(!s.barNew);
    QVERIFY(LoadStatsOptions(IniFile(path())).cascade);
}

QTEST_APPLESS_MAIN(TestStatsSettings)
#include "tst_statssettings.moc"
