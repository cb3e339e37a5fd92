#include "StatsSettings.h"
#include "TempEnvironment.h"

#include <QTest>

#include <memory>

class TestStatsSettings : public QObject {
    Q_OBJECT
private slots:
    void init();
    void emptyFileGivesDefaults();
    void pagesTicks_data();
    void pagesTicks();
    void saveOrderOnEmptyFile();
    void geometryLoad_data();
    void geometryLoad();
    void geometrySave_data();
    void geometrySave();
    void commaText_data();
    void commaText();
    void optionsDefaults();
    void optionsTimeout_data();
    void optionsTimeout();
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

void TestStatsSettings::pagesTicks_data() {
    QTest::addColumn<QString>("stored");
    QTest::addColumn<QStringList>("ticked");
    QTest::addColumn<QString>("saved");
    QTest::newRow("two names") << "urls.txt,mlist.txt" << QStringList{"mlist.txt", "urls.txt"}
                               << "mlist.txt,urls.txt";
    QTest::newRow("substring test") << "xxmlist.txtyy" << QStringList{"mlist.txt"} << "mlist.txt";
    QTest::newRow("all eight, any order")
        << "urls.txt advisory.txt mail2news.txt nymserver.asc pubring.asc rlist.txt pubring.mix "
           "mlist.txt"
        << UpdatePageOrder() << UpdatePageOrder().join(u',');
    QTest::newRow("capitals are not ticked") << "MLIST.TXT" << QStringList{} << "";
    QTest::newRow("empty: none ticked") << "" << QStringList{} << "";
}

void TestStatsSettings::pagesTicks() {
    QFETCH(QString, stored);
    QFETCH(QStringList, ticked);
    QFETCH(QString, saved);
    IniFile ini(path());
    QVERIFY(ini.writeString("stats", "pages", stored));
    const MainSettings loaded = LoadMainSettings(ini);
    QCOMPARE(loaded.tickedPages, ticked);
    MainSettingsToSave out;
    out.tickedPages = loaded.tickedPages;
    QVERIFY(SaveMainSettings(ini, out));
    QCOMPARE(ini.readString("stats", "pages", "DEF"), saved);
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

void TestStatsSettings::geometryLoad_data() {
    QTest::addColumn<QString>("record");
    QTest::addColumn<int>("state");
    QTest::addColumn<QRect>("rect");
    QTest::newRow("full") << "2,5,10,20,640,480" << 2 << QRect(10, 20, 640, 480);
    QTest::newRow("empty") << "" << 0 << QRect(0, 0, 686, 516);
    QTest::newRow("missing size") << "0,0,7,8" << 0 << QRect(7, 8, 686, 516);
    QTest::newRow("garbage") << "x,y,a,b,c,d" << 0 << QRect(0, 0, 686, 516);
    QTest::newRow("negative edges") << "0,0,-8,-8,800,600" << 0 << QRect(-8, -8, 800, 600);
}

void TestStatsSettings::geometryLoad() {
    QFETCH(QString, record);
    QFETCH(int, state);
    QFETCH(QRect, rect);
    const WindowGeometry g = ParseWindowRecord(record, QSize(686, 516));
    QCOMPARE(g.state, state);
    QCOMPARE(g.placement, 0);
    QCOMPARE(g.rect, rect);
}

void TestStatsSettings::geometrySave_data() {
    QTest::addColumn<QString>("previous");
    QTest::addColumn<int>("state");
    QTest::addColumn<QString>("expected");
    QTest::newRow("normal writes its rectangle") << "2,0,1,2,3,4" << 0 << "0,0,50,60,700,500";
    QTest::newRow("maximised keeps earlier rectangle")
        << "0,0,40,30,800,600" << 2 << "2,0,40,30,800,600";
    QTest::newRow("minimised keeps earlier rectangle")
        << "0,0,40,30,800,600" << 1 << "1,0,40,30,800,600";
    QTest::newRow("maximised on first run") << "" << 2 << "2,0,,,,";
}

void TestStatsSettings::geometrySave() {
    QFETCH(QString, previous);
    QFETCH(int, state);
    QFETCH(QString, expected);
    QCOMPARE(MakeWindowRecord(previous, state, 0, QRect(50, 60, 700, 500)), expected);
}

void TestStatsSettings::commaText_data() {
    QTest::addColumn<QStringList>("items");
    QTest::addColumn<QString>("text");
    QTest::newRow("plain") << QStringList{"a", "b"} << "a,b";
    QTest::newRow("blank quoted") << QStringList{"a b", "c"} << "\"a b\",c";
    QTest::newRow("quote doubled") << QStringList{"say \"hi\""} << "\"say \"\"hi\"\"\"";
    QTest::newRow("empty item") << QStringList{"", "x"} << "\"\",x";
    QTest::newRow("none") << QStringList{} << "";
}

void TestStatsSettings::commaText() {
    QFETCH(QStringList, items);
    QFETCH(QString, text);
    QCOMPARE(ToCommaText(items), text);
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
}

void TestStatsSettings::optionsTimeout_data() {
    QTest::addColumn<QString>("stored");
    QTest::addColumn<int>("shown");
    QTest::addColumn<int>("engine");
    QTest::newRow("zero shows 30") << "0" << 30 << 30;
    QTest::newRow("negative shows 30") << "-5" << 30 << 30;
    QTest::newRow("45") << "45" << 45 << 45;
    QTest::newRow("garbage") << "soon" << 30 << 30;
}

void TestStatsSettings::optionsTimeout() {
    QFETCH(QString, stored);
    QFETCH(int, shown);
    QFETCH(int, engine);
    IniFile ini(path());
    QVERIFY(ini.writeString("stats", "timeoutseconds", stored));
    QCOMPARE(LoadStatsOptions(ini).timeoutSeconds, shown);
    QCOMPARE(ReadTimeoutSeconds(ini), engine);
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
