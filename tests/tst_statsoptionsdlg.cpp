#include "Global2Widgets.h"
#include "IniFile.h"
#include "StatsOptionsDlgs.h"
#include "TempEnvironment.h"

#include <QCheckBox>
#include <QFrame>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QTabWidget>
#include <QTest>
#include <QTimer>

#include <memory>

class TestStatsOptionsDlg : public QObject {
    Q_OBJECT
private slots:
    void init();
    void opensOnGeneralWithStoredValues();
    void timeoutShown_data();
    void timeoutShown();
    void savesOnEveryClose_data();
    void savesOnEveryClose();
    void hiddenControlsKept();
    void colourChosenOrCancelled();
    void fontChosenRefreshesFields();
    void cascadeEnablesStatsOnly();
    void resultForMainWindow();

private:
    QString ini() const { return m_env->programFolder() + "vkstats.ini"; }
    template <typename T> static T* child(QObject* parent, const char* name) {
        T* found = parent->findChild<T*>(QString::fromLatin1(name));
        if (!found)
            qFatal("no child %s", name);
        return found;
    }
    std::unique_ptr<TempEnvironment> m_env;
};

void TestStatsOptionsDlg::init() {
    m_env.reset(); // the old one restores the environment it found
    m_env = std::make_unique<TempEnvironment>();
}

void TestStatsOptionsDlg::opensOnGeneralWithStoredValues() {
    TempEnvironment::writeFile(ini(), "[stats]\nwindowcolor=255\ndialogfont=Arial,12,bu,16711680\n"
                                      "barnew=1\ncascade=0\nnostalesave=1\n");
    TStatsOptionsDlg dialog(nullptr, ini());
    auto* tabs = child<QTabWidget>(&dialog, "PageControl");
    QCOMPARE(tabs->currentIndex(), 0);
    QCOMPARE(child<QFrame>(&dialog, "ColorPanel")->palette().color(QPalette::Window),
             QColor(255, 0, 0));
    QCOMPARE(child<QLineEdit>(&dialog, "DialogFontName")->text(), QStringLiteral("Arial"));
    QCOMPARE(child<QLineEdit>(&dialog, "DialogFontSize")->text(), QStringLiteral("12"));
    QCOMPARE(child<QLineEdit>(&dialog, "DialogFontStyle")->text(), QStringLiteral("bu"));
    QVERIFY(child<QLineEdit>(&dialog, "DialogFontName")->isReadOnly());
    QCOMPARE(child<QFrame>(&dialog, "DialogFontColor")->palette().color(QPalette::Window),
             QColor(0, 0, 255));
    // The dialog's own default for the window font.
    QCOMPARE(child<QLineEdit>(&dialog, "WindowFontName")->text(), QStringLiteral("MS Sans Serif"));
    QVERIFY(child<QCheckBox>(&dialog, "BarNewBox")->isChecked());
    QVERIFY(child<QCheckBox>(&dialog, "NoStaleSaveBox")->isChecked());
    QVERIFY(!child<QCheckBox>(&dialog, "CascadeBox")->isChecked());
    QCOMPARE(child<QSpinBox>(&dialog, "TimeoutEdit")->minimum(), 0);
    QCOMPARE(child<QSpinBox>(&dialog, "TimeoutEdit")->maximum(), 1000);
}

void TestStatsOptionsDlg::timeoutShown_data() {
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<int>("shown");
    QTest::newRow("zero shows 30") << QByteArray("[stats]\ntimeoutseconds=0\n") << 30;
    QTest::newRow("missing") << QByteArray() << 30;
    QTest::newRow("stored") << QByteArray("[stats]\ntimeoutseconds=120\n") << 120;
}

void TestStatsOptionsDlg::timeoutShown() {
    QFETCH(QByteArray, file);
    QFETCH(int, shown);
    if (!file.isEmpty())
        TempEnvironment::writeFile(ini(), file);
    TStatsOptionsDlg dialog(nullptr, ini());
    QCOMPARE(child<QSpinBox>(&dialog, "TimeoutEdit")->value(), shown);
}

void TestStatsOptionsDlg::savesOnEveryClose_data() {
    QTest::addColumn<QString>("how");
    QTest::newRow("Ok") << "OkBtn";
    QTest::newRow("Cancel") << "CancelBtn";
    QTest::newRow("close box") << "close";
}

void TestStatsOptionsDlg::savesOnEveryClose() {
    QFETCH(QString, how);
    TStatsOptionsDlg dialog(nullptr, ini());
    auto* timeout = child<QSpinBox>(&dialog, "TimeoutEdit");
    QTimer::singleShot(0, &dialog, [&] {
        timeout->selectAll();
        QTest::keyClicks(timeout, "45");
        if (how == "close")
            dialog.close();
        else
            QTest::mouseClick(child<QPushButton>(&dialog, how.toLatin1().constData()),
                              Qt::LeftButton);
    });
    const int result = dialog.exec();
    QCOMPARE(result, how == "OkBtn" ? int(QDialog::Accepted) : int(QDialog::Rejected));
    QCOMPARE(IniFile(ini()).readInteger("stats", "timeoutseconds", 0), 45);
    QCOMPARE(TempEnvironment::readFile(ini()),
             QByteArray("[stats]\nbarnew=0\ncascadestatsonly=1\ncascade=1\nautoload=1\n"
                        "windowcentered=0\nwindowcolor=-2147483643\n"
                        "windowfont=MS Sans Serif,8,,0\ndialogfont=MS Sans Serif,8,,0\n"
                        "editorfont=Courier New,9,,0\ntimeoutseconds=45\nnostalesave=0\n"));
}

void TestStatsOptionsDlg::hiddenControlsKept() {
    TempEnvironment::writeFile(ini(),
                               "[stats]\nautoload=0\nwindowcentered=1\ncascadestatsonly=0\n");
    TStatsOptionsDlg dialog(nullptr, ini());
    QVERIFY(!child<QCheckBox>(&dialog, "AutoLoadBox")->isVisibleTo(&dialog));
    QVERIFY(!child<QCheckBox>(&dialog, "StatsOnlyBox")->isVisibleTo(&dialog));
    QVERIFY(!child<QCheckBox>(&dialog, "DailyPubringBox")->isVisibleTo(&dialog));
    dialog.done(QDialog::Rejected);
    IniFile file(ini());
    QCOMPARE(file.readString("stats", "autoload", {}), QStringLiteral("0"));
    QCOMPARE(file.readString("stats", "windowcentered", {}), QStringLiteral("1"));
    QCOMPARE(file.readString("stats", "cascadestatsonly", {}), QStringLiteral("0"));
    QVERIFY(!file.readSectionKeys("stats").contains("DailyPubring", Qt::CaseInsensitive));
}

void TestStatsOptionsDlg::colourChosenOrCancelled() {
    TStatsOptionsDlg dialog(nullptr, ini());
    QList<std::optional<QColor>> answers = {QColor(0x12, 0x34, 0x56), std::nullopt};
    dialog.chooseColor = [&](const QColor&) {
        return answers.takeFirst();
    };
    auto* button = child<QPushButton>(&dialog, "ColorBtn");
    QTest::mouseClick(button, Qt::LeftButton);
    QCOMPARE(child<QFrame>(&dialog, "ColorPanel")->palette().color(QPalette::Window),
             QColor(0x12, 0x34, 0x56));
    QTest::mouseClick(button, Qt::LeftButton); // cancelled: nothing changes
    dialog.done(QDialog::Accepted);
    QCOMPARE(IniFile(ini()).readString("stats", "windowcolor", {}),
             QString::number(0x563412)); // stored as 0x00BBGGRR
}

void TestStatsOptionsDlg::fontChosenRefreshesFields() {
    TempEnvironment::writeFile(ini(), "[stats]\neditorfont=Courier New,9,,255\n");
    TStatsOptionsDlg dialog(nullptr, ini());
    QFont seen;
    dialog.chooseFont = [&](const QFont& current) -> std::optional<QFont> {
        seen = current;
        QFont chosen(QStringLiteral("DejaVu Sans"), 14);
        chosen.setItalic(true);
        return chosen;
    };
    QTest::mouseClick(child<QPushButton>(&dialog, "EditorFontBtn"), Qt::LeftButton);
    QCOMPARE(seen.pointSize(), 9);
    QCOMPARE(child<QLineEdit>(&dialog, "EditorFontName")->text(), QStringLiteral("DejaVu Sans"));
    QCOMPARE(child<QLineEdit>(&dialog, "EditorFontSize")->text(), QStringLiteral("14"));
    QCOMPARE(child<QLineEdit>(&dialog, "EditorFontStyle")->text(), QStringLiteral("i"));
    dialog.done(QDialog::Accepted);
    // The font dialog has no colour; the stored one stays.
    QCOMPARE(IniFile(ini()).readString("stats", "editorfont", {}),
             QStringLiteral("DejaVu Sans,14,i,255"));
}

void TestStatsOptionsDlg::cascadeEnablesStatsOnly() {
    TStatsOptionsDlg dialog(nullptr, ini());
    dialog.show();
    auto* cascade = child<QCheckBox>(&dialog, "CascadeBox");
    auto* statsOnly = child<QCheckBox>(&dialog, "StatsOnlyBox");
    QVERIFY(cascade->isChecked());
    QVERIFY(statsOnly->isChecked());
    dialog.findChild<QTabWidget*>()->setCurrentIndex(2);
    QTest::mouseClick(cascade, Qt::LeftButton);
    QVERIFY(!cascade->isChecked());
    QVERIFY(!statsOnly->isEnabled());
    QVERIFY(!statsOnly->isChecked());
    QTest::mouseClick(cascade, Qt::LeftButton);
    QVERIFY(statsOnly->isEnabled());
    QVERIFY(!statsOnly->isChecked());
    dialog.done(QDialog::Rejected);
    QCOMPARE(IniFile(ini()).readString("stats", "cascadestatsonly", {}), QStringLiteral("0"));
}

void TestStatsOptionsDlg::resultForMainWindow() {
    TempEnvironment::writeFile(ini(), "[stats]\nbarnew=1\nwindowcolor=65280\n"
                                      "windowfont=Courier New,11,,0\n");
    QTimer::singleShot(0, [] {
        for (QWidget* w : QApplication::topLevelWidgets()) {
            if (auto* dialog = qobject_cast<TStatsOptionsDlg*>(w))
                dialog->reject();
        }
    });
    const StatsOptionsResult result = ShowStatsOptions(nullptr);
    QVERIFY(result.barNew);
    QCOMPARE(result.windowColor, qint64(65280));
    QCOMPARE(result.windowFont, QStringLiteral("Courier New,11,,0"));
    QCOMPARE(result.dialogFont, QStringLiteral("MS Sans Serif,8,,0"));
}

QTEST_MAIN(TestStatsOptionsDlg)
#include "tst_statsoptionsdlg.moc"
