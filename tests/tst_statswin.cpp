#include "DialogTestSupport.h"
#include "Global2.h"
#include "IniFile.h"
#include "StatsWins4.h"
#include "SuiteDatabase.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TestPinger.h"
#include "TextFile.h"

#include <QAction>
#include <QComboBox>
#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QFrame>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QRegularExpression>
#include <QScreen>
#include <QSet>
#include <QStatusBar>
#include <QStatusTipEvent>
#include <QTabBar>
#include <QTest>
#include <QTextBrowser>
#include <QToolButton>
#include <QUrl>

#include <memory>

namespace {

QByteArray realPage(const char* name) {
    return RealPage("2001-11-07", QLatin1String(name));
}

QAction* findItem(QMenu* menu, const QString& caption) {
    for (QAction* item : menu->actions()) {
        if (item->text() == caption)
            return item;
    }
    return nullptr;
}

} // namespace

class TestStatsWin : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void layoutAtStart();
    void startModes_data();
    void startModes();
    void statusText_data();
    void statusText();
    void viewMenu_data();
    void viewMenu();
    void viewAllPages();
    void tabChangeShowsSource();
    void fileMenuListsSources();
    void sourceChoiceAsks();
    void closeSavesSettings();
    void proxyManagerEnabling();
    void keyringItemsNeedTheirRings();
    void suiteMessages();
    void runButtonUpdatesAndSaveExitSaves();
    void statusTextSurvivesHints();
    void offScreenPlaceClamped();
    void oneAccessKeyPerLetter();
    void pageKeysCycleTabs();
    void helpViewerWithoutBrowser();
    void fontsAndColoursApplied();

private:
    void startWindow(const QStringList& arguments = {});
    std::unique_ptr<TempEnvironment> m_env;
    std::unique_ptr<TVKStatsWin4> m_window;
};

void TestStatsWin::init() {
    m_env.reset();
    m_env = std::make_unique<TempEnvironment>();
    QCOMPARE(CreateDataFile(m_env->programFolder()), QString());
    QVERIFY(WriteLines(m_env->programFolder() + "urls.txt",
                       {"velkin urls", "[first]", "mlist.txt http://127.0.0.1:9/mlist.txt", "",
                        "[second]", "mlist.txt http://127.0.0.1:9/mlist.txt", "", "[velkin]"}));
}

void TestStatsWin::cleanup() {
    m_window.reset();
    CloseSuiteDataFile();
}

void TestStatsWin::startWindow(const QStringList& arguments) {
    m_window = std::make_unique<TVKStatsWin4>();
    QCOMPARE(m_window->start(arguments), StartResult::Ready);
    if (m_window->showAtStart())
        m_window->show();
}

void TestStatsWin::layoutAtStart() {
    startWindow();
    TVKStatsWin4& w = *m_window;
    QVERIFY(!w.SaveBtn->isEnabled());
    QVERIFY(!w.CancelBtn->isEnabled());
    QVERIFY(w.RunBtn->isEnabled());
    QVERIFY(w.Panel3->isHidden());
    QVERIFY(w.ProgressBar->isHidden());
    QVERIFY(w.KeyringsMenu->menuAction()->isVisible());
    QVERIFY(!w.KeyringBtnAction->isVisible());
    QVERIFY(!w.KeyringSep->isVisible());
    // "exitleft" is off by default, so Save & Exit is not on the tool bar.
    QVERIFY(!w.OkBtnAction->isVisible());
    QCOMPARE(w.SourceBox->count(), 2);
    QCOMPARE(w.ProxyBox->itemText(0), QStringLiteral("<none>"));
    QVERIFY(!w.Timer2.isActive());
    QVERIFY(!w.Timer3.isActive());
}

void TestStatsWin::startModes_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("shown");
    QTest::addColumn<bool>("updateArmed");

    QTest::newRow("plain") << QStringList() << true << false;
    QTest::newRow("hide without auto") << QStringList{"hide"} << true << false;
    QTest::newRow("auto") << QStringList{"auto"} << true << true;
    QTest::newRow("auto hide") << QStringList{"auto", "hide"} << false << true;
}

void TestStatsWin::startModes() {
    QFETCH(QStringList, arguments);
    QFETCH(bool, shown);
    QFETCH(bool, updateArmed);
    startWindow(arguments);
    QCOMPARE(m_window->showAtStart(), shown);
    QCOMPARE(m_window->Timer3.isActive(), updateArmed);
    m_window->Timer3.stop();
}

void TestStatsWin::statusText_data() {
    QTest::addColumn<bool>("busy");
    QTest::addColumn<QString>("bar");
    QTest::addColumn<QString>("label");

    QTest::newRow("panel hidden") << false << " hello"
                                  << "Loading...";
    QTest::newRow("panel shown") << true << ""
                                 << "hello";
}

void TestStatsWin::statusText() {
    QFETCH(bool, busy);
    QFETCH(QString, bar);
    QFETCH(QString, label);
    startWindow();
    m_window->statusBar()->clearMessage();
    m_window->Panel3->setVisible(busy);
    m_window->SetStatusText("hello");
    QCOMPARE(m_window->statusBar()->currentMessage(), bar);
    QCOMPARE(m_window->Label1->text(), label);
}

void TestStatsWin::viewMenu_data() {
    QTest::addColumn<QString>("caption");
    QTest::addColumn<QString>("file"); // written into its folder first, or empty
    QTest::addColumn<QString>("page");

    QTest::newRow("access key dropped") << "t&ype2.list"
                                        << "type2.list"
                                        << "type2.list";
    QTest::newRow("program folder page") << "&advisory.txt"
                                         << "advisory.txt"
                                         << "advisory.txt";
    QTest::newRow("missing file") << "&rlist.txt" << QString() << QString();
}

void TestStatsWin::viewMenu() {
    QFETCH(QString, caption);
    QFETCH(QString, file);
    QFETCH(QString, page);
    if (!file.isEmpty()) {
        const bool mixmaster = file == "type2.list";
        const QString folder = mixmaster ? m_env->mixFolder() : m_env->programFolder();
        TempEnvironment::writeFile(folder + file,
                                   mixmaster ? realPage("type2.list") : "Velkin user advisory\n");
    }
    startWindow();
    m_window->SetStatusText("before");
    QAction* item = findItem(m_window->ViewMenu, caption);
    QVERIFY(item);
    item->trigger();
    if (page.isEmpty()) {
        QCOMPARE(m_window->TabSet->count(), 0);
        QCOMPARE(m_window->statusBar()->currentMessage(), QStringLiteral(" before"));
        return;
    }
    QCOMPARE(m_window->TabSet->count(), 1);
    QCOMPARE(m_window->TabSet->tabText(0), page);
    QCOMPARE(m_window->statusBar()->currentMessage(), " local file: " + page);
    // A second choice shows the open tab instead of opening another.
    item->trigger();
    QCOMPARE(m_window->TabSet->count(), 1);
}

void TestStatsWin::viewAllPages() {
    for (const char* name : {"mlist.txt", "pubring.mix", "rlist.txt"})
        TempEnvironment::writeFile(m_env->mixFolder() + name, realPage(name));
    startWindow();
    QAction* all = findItem(m_window->ViewMenu, "&All pages");
    QVERIFY(all);
    QVERIFY(!all->isVisible());
    all->trigger();
    QCOMPARE(m_window->TabSet->count(), 3);
    QCOMPARE(m_window->TabSet->tabText(0), QStringLiteral("mlist.txt"));
    QCOMPARE(m_window->TabSet->tabText(2), QStringLiteral("rlist.txt"));
}

void TestStatsWin::tabChangeShowsSource() {
    for (const char* name : {"mlist.txt", "rlist.txt"})
        TempEnvironment::writeFile(m_env->mixFolder() + name, realPage(name));
    startWindow();
    findItem(m_window->ViewMenu, "&mlist.txt")->trigger();
    findItem(m_window->ViewMenu, "&rlist.txt")->trigger();
    m_window->TabSet->setCurrentIndex(0);
    QCOMPARE(m_window->statusBar()->currentMessage(), QStringLiteral(" local file: mlist.txt"));
    QVERIFY(m_window->ShowPageTab("&rlist.txt"));
    QCOMPARE(m_window->TabSet->currentIndex(), 1);
    QVERIFY(!m_window->ShowPageTab("pubring.mix"));
}

void TestStatsWin::fileMenuListsSources() {
    startWindow();
    m_window->controller().setLastSource("second");
    m_window->controller().reloadSources();
    m_window->SourceBox->setCurrentIndex(1);
    m_window->FileMenuClick();
    const QList<QAction*> items = m_window->SourceMenu->actions();
    QCOMPARE(items.size(), 2);
    QCOMPARE(items[0]->text(), QStringLiteral("first"));
    QCOMPARE(items[1]->text(), QStringLiteral("second"));
    QVERIFY(!items[0]->isChecked());
    QVERIFY(items[1]->isChecked());
    QCOMPARE(m_window->ProxyMenu->actions().size(), 1);
    QVERIFY(m_window->ProxyMenu->actions()[0]->isChecked());
}

void TestStatsWin::sourceChoiceAsks() {
    startWindow();
    m_window->FileMenuClick();
    QString asked;
    AnswerNextMessage(QMessageBox::Cancel, &asked);
    m_window->SourceMenu->actions()[1]->trigger();
    QCOMPARE(asked, QStringLiteral("Update remailer pages now?     "));
    QCOMPARE(m_window->SourceBox->currentIndex(), 1);
    QCOMPARE(m_window->controller().currentSourceName(), QStringLiteral("second"));
}

void TestStatsWin::closeSavesSettings() {
    startWindow();
    m_window->controller().setLastSource("first");
    findItem(m_window->PagesMenu, "&rlist.txt")->trigger();
    findItem(m_window->PagesMenu, "&mlist.txt")->trigger();
    findItem(m_window->ViewMenu, "&Toolbar")->trigger();
    QVERIFY(m_window->close());
    const IniFile ini(IniFileName());
    // The four pages are ticked on a fresh start; two were unticked.
    QCOMPARE(ini.readString("stats", "pages", ""), QStringLiteral("pubring.mix,pubring.asc"));
    QCOMPARE(ini.readString("stats", "showtoolbar", ""), QStringLiteral("0"));
    QVERIFY(ini.readString("stats", "window", "").startsWith("0,0,"));
    QCOMPARE(ini.readString("stats", "lastproxy", ""), QStringLiteral("<none>"));
}

void TestStatsWin::proxyManagerEnabling() {
    startWindow();
    emit m_window->ToolsMenu->aboutToShow();
    QVERIFY(!m_window->ToolsProxyItem->isEnabled());
    TempEnvironment::writeFile(m_env->programFolder() + "vkproxy", "#!/bin/sh\n");
    emit m_window->ToolsMenu->aboutToShow();
    QVERIFY(m_window->ToolsProxyItem->isEnabled());
}

void TestStatsWin::keyringItemsNeedTheirRings() {
    TempEnvironment::writeFile(m_env->mixFolder() + "pubring.mix", realPage("pubring.mix"));
    for (const char* tool : {"vkmixkeys", "vkpgpkeys"})
        TempEnvironment::writeFile(m_env->programFolder() + tool, "#!/bin/sh\n");
    startWindow();
    emit m_window->KeyringsMenu->aboutToShow();
    const QList<QAction*> items = m_window->KeyringsMenu->actions();
    QVERIFY(items[0]->isEnabled());
    QVERIFY(!items[1]->isEnabled());
    QVERIFY(!items[2]->isEnabled());
    TempEnvironment::writeFile(m_env->mixFolder() + "pubring.asc", realPage("pubring.asc"));
    TempEnvironment::writeFile(m_env->programFolder() + "nymserver.asc", "keys\n");
    emit m_window->KeyringsMenu->aboutToShow();
    QVERIFY(items[1]->isEnabled());
    QVERIFY(items[2]->isEnabled());
}

void TestStatsWin::suiteMessages() {
    startWindow();
    m_window->controller().setLastSource("first");
    m_window->suiteMessage(7, 0);
    QVERIFY(m_window->isVisible());
    QVERIFY(!m_window->Timer5.isActive());
    m_window->suiteMessage(2, 0);
    QVERIFY(m_window->Timer5.isActive());
    QTRY_VERIFY(!m_window->Timer5.isActive());
    m_window->suiteMessage(1, 0);
    QVERIFY(!m_window->isVisible());
    QVERIFY(IniFile(IniFileName()).readString("stats", "window", "").startsWith("0,0,"));
}

// The whole road through the window: Run fetches, the tool bar follows the
// run, Run again asks about the unsaved pages, Save & Exit saves and closes.
void TestStatsWin::runButtonUpdatesAndSaveExitSaves() {
    TestPinger pinger;
    QVERIFY(pinger.listen());
    QStringList urls = {"velkin urls", "[first]"};
    for (const QString& page : StatsPages) {
        pinger.serve('/' + page, realPage(page.toLatin1().constData()));
        urls << page + ' ' + pinger.url('/' + page);
    }
    urls << ""
         << "[velkin]";
    QVERIFY(WriteLines(m_env->programFolder() + "urls.txt", urls));
    IniFile(IniFileName()).writeString("stats", "pages", StatsPages.join(u','));
    startWindow();
    m_window->controller().setLastSource("first");

    // At every accepted page the window is busy, and the progress bar shows
    // that page whole.
    int busyPages = 0;
    connect(&m_window->controller().engine(), &UpdateEngine::pageAccepted, this, [&] {
        busyPages += m_window->Panel3->isVisible() && m_window->CancelBtn->isEnabled() &&
                     !m_window->RunBtn->isEnabled() && m_window->ProgressBar->isVisible() &&
                     m_window->ProgressBar->value() == 100;
    });
    QTest::mouseClick(m_window->RunBtn, Qt::LeftButton, {}, QPoint(8, 8));
    QCOMPARE(busyPages, int(StatsPages.size()));
    QCOMPARE(m_window->TabSet->count(), 1 + int(StatsPages.size()));
    QCOMPARE(m_window->TabSet->tabText(0), QStringLiteral("status"));
    QVERIFY(m_window->SaveBtn->isEnabled());
    QVERIFY(m_window->PrintBtn->isEnabled());
    QVERIFY(!m_window->CancelBtn->isEnabled());
    QVERIFY(m_window->Panel3->isHidden());
    const int fetched = int(pinger.requests().size());
    QCOMPARE(fetched, int(StatsPages.size()));

    QString asked;
    AnswerNextMessage(QMessageBox::Cancel, &asked);
    m_window->RunBtnClick();
    QCOMPARE(asked, QStringLiteral("Your remailer pages are not saved. Save them now?     "));
    QCOMPARE(int(pinger.requests().size()), fetched);

    m_window->OkBtnClick();
    QVERIFY(!m_window->isVisible());
    for (const QString& page : StatsPages + QStringList{"type2.list"})
        QVERIFY2(QFileInfo::exists(m_env->mixFolder() + page), qPrintable(page));
    QCOMPARE(IniFile(IniFileName()).readString("stats", "pages", ""), StatsPages.join(u','));
}

// Moving the mouse over a tool button shows its hint; moving off brings the
// status text back rather than leaving the bar empty.
void TestStatsWin::statusTextSurvivesHints() {
    startWindow();
    m_window->SetStatusText("local file: mlist.txt");
    QStatusTipEvent hint(QStringLiteral("Update selected pages"));
    QCoreApplication::sendEvent(m_window.get(), &hint);
    QCOMPARE(m_window->statusBar()->currentMessage(), QStringLiteral("Update selected pages"));
    QStatusTipEvent left{QString()};
    QCoreApplication::sendEvent(m_window.get(), &left);
    QCOMPARE(m_window->statusBar()->currentMessage(), QStringLiteral(" local file: mlist.txt"));
}

// A place saved on a bigger monitor: the window comes back whole on this one.
void TestStatsWin::offScreenPlaceClamped() {
    const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
    IniFile(IniFileName())
        .writeString(
            "stats", "window",
            QStringLiteral("0,0,%1,%2,700,500").arg(area.right() + 1200).arg(area.bottom() + 900));
    startWindow();
    QVERIFY2(area.contains(m_window->geometry()), qPrintable(QStringLiteral("%1,%2 %3x%4")
                                                                 .arg(m_window->x())
                                                                 .arg(m_window->y())
                                                                 .arg(m_window->width())
                                                                 .arg(m_window->height())));
}

// Alt and a letter reaches one thing: among the menu bar's menus and the
// boxes' captions, and within each menu, no letter marks two visible items.
void TestStatsWin::oneAccessKeyPerLetter() {
    startWindow();
    const auto letter = [](const QString& caption) {
        const qsizetype at = caption.indexOf(QRegularExpression(QStringLiteral("&[^&]")));
        return at < 0 ? QChar() : caption.at(at + 1).toLower();
    };
    const auto checkUnique = [&](const QStringList& captions, const QString& where) {
        QSet<QChar> seen;
        for (const QString& caption : captions) {
            const QChar key = letter(caption);
            QVERIFY2(key.isNull() || !seen.contains(key), qPrintable(where + ": " + caption));
            seen.insert(key);
        }
    };
    QStringList top;
    for (QAction* menu : m_window->menuBar()->actions()) {
        if (menu->isVisible())
            top << menu->text();
    }
    for (const QLabel* label : m_window->findChildren<QLabel*>())
        if (label->buddy())
            top << label->text();
    checkUnique(top, QStringLiteral("menu bar"));
    for (const QMenu* menu : m_window->findChildren<QMenu*>()) {
        QStringList items;
        for (QAction* item : menu->actions()) {
            if (item->isVisible() && !item->isSeparator())
                items << item->text();
        }
        checkUnique(items, menu->title());
    }
    QCOMPARE(m_window->OkBtn->text(), QStringLiteral("Save && Exit"));
}

void TestStatsWin::pageKeysCycleTabs() {
    for (const char* name : {"mlist.txt", "rlist.txt"})
        TempEnvironment::writeFile(m_env->mixFolder() + name, realPage(name));
    startWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
    findItem(m_window->ViewMenu, "&mlist.txt")->trigger();
    findItem(m_window->ViewMenu, "&rlist.txt")->trigger();
    m_window->TabSet->setCurrentIndex(0);
    QTest::keyClick(m_window.get(), Qt::Key_PageDown, Qt::ControlModifier);
    QCOMPARE(m_window->TabSet->currentIndex(), 1);
    QTest::keyClick(m_window.get(), Qt::Key_Tab, Qt::ControlModifier);
    QCOMPARE(m_window->TabSet->currentIndex(), 0);
    QTest::keyClick(m_window.get(), Qt::Key_PageUp, Qt::ControlModifier);
    QCOMPARE(m_window->TabSet->currentIndex(), 1);
}

// No browser can be started here (the test platform opens no URLs): Help >
// Topics shows the guide in the program's own viewer instead of nothing.
void TestStatsWin::helpViewerWithoutBrowser() {
    const QString guide = HelpFileName();
    const bool made = !QFileInfo::exists(guide);
    if (made)
        TempEnvironment::writeFile(guide, "<html><body><h1>VKstats guide</h1></body></html>");
    startWindow();
    findItem(m_window->HelpMenu, "Topics")->trigger();
    const QTextBrowser* viewer = m_window->findChild<QTextBrowser*>("HelpViewer");
    if (made)
        QFile::remove(guide);
    QVERIFY(viewer);
    QVERIFY(viewer->isVisible());
    QCOMPARE(viewer->source(), QUrl::fromLocalFile(guide));
    QVERIFY(viewer->toPlainText().contains(QStringLiteral("VKstats")));
    QVERIFY(m_window->findChildren<QMessageBox*>().isEmpty());
}

// The colour of each font string is its text's colour, and the page tabs
// follow the window's font like every other control.
void TestStatsWin::fontsAndColoursApplied() {
    IniFile ini(IniFileName());
    ini.writeString("stats", "statsfont", "Courier New,11,,255");
    ini.writeString("stats", "windowfont", "Courier New,9,,65280");
    ini.writeString("stats", "dialogfont", "DejaVu Sans,12,b,16711680");
    startWindow();
    QCOMPARE(m_window->BlankView->palette().color(QPalette::Text), QColor(255, 0, 0));
    QCOMPARE(m_window->SourceBox->palette().color(QPalette::Text), QColor(0, 255, 0));
    QCOMPARE(m_window->TabSet->font().pointSize(), 12);
    QVERIFY(m_window->TabSet->font().bold());
    for (const QLabel* label : m_window->findChildren<QLabel*>("BoxCaption")) {
        QCOMPARE(label->font().pointSize(), 12);
        QCOMPARE(label->palette().color(QPalette::WindowText), QColor(0, 0, 255));
    }
}

QTEST_MAIN(TestStatsWin)
#include "tst_statswin.moc"
