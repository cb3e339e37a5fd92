#include "Global2.h"
#include "IniFile.h"
#include "StatsController.h"
#include "StatsSources.h"
#include "SuiteDatabase.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TestFrontEnd.h"
#include "TestPinger.h"
#include "TextFile.h"

#include <QDir>
#include <QFileInfo>
#include <QTest>
#include <QTimer>

#include <memory>

namespace {

QByteArray realPage(const QString& name) {
    return RealPage("2001-11-07", name);
}

using Broadcasts = QList<std::pair<int, int>>;

} // namespace

class TestStatsController : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void parseCommandLine_data();
    void parseCommandLine();
    void startUpChecks_data();
    void startUpChecks();
    void versionQueryWritesVersion();
    void startUpReadsFolder();
    void nothingMarked();
    void pagesFetchedInFixedOrder();
    void unattendedRun_data();
    void unattendedRun();
    void defaultSourceUpdate();
    void noDefaultSource();
    void askSavePagesCountsFromSecondTab();
    void closeQuery_data();
    void closeQuery();
    void closeRefusedWhileRunning();
    void closeAppliesEditedBarredList_data();
    void closeAppliesEditedBarredList();

private:
    void makeDataFile();
    void writeUrls(const QStringList& lines);
    void standardUrls();
    StartResult start(const QStringList& arguments = {});
    void tick(const QStringList& pages);

    std::unique_ptr<TempEnvironment> m_env;
    std::unique_ptr<TestPinger> m_pinger;
    std::unique_ptr<TestFrontEnd> m_ui;
    std::unique_ptr<StatsController> m_controller;
    Broadcasts m_broadcasts;
};

void TestStatsController::init() {
    m_env.reset();
    m_env = std::make_unique<TempEnvironment>();
    m_ui = std::make_unique<TestFrontEnd>();
    m_broadcasts.clear();
    m_pinger = std::make_unique<TestPinger>();
    QVERIFY(m_pinger->listen());
    m_controller = std::make_unique<StatsController>(m_ui.get(), [this](int code, int value) {
        m_broadcasts.append({code, value});
    });
    IniFile ini(IniFileName());
    ini.writeInteger("stats", "timeoutseconds", 2);
    ini.writeString("stats", "pages", ""); // each test ticks its own
}

void TestStatsController::cleanup() {
    m_controller.reset();
    m_pinger.reset();
    CloseSuiteDataFile();
}

void TestStatsController::makeDataFile() {
    QCOMPARE(CreateDataFile(m_env->programFolder()), QString());
}

void TestStatsController::writeUrls(const QStringList& lines) {
    QVERIFY(WriteLines(m_env->programFolder() + "urls.txt", lines));
}

// Two pingers in one: "[first]" and "[second]" both point at the test
// pinger, under different paths.
void TestStatsController::standardUrls() {
    QStringList lines = {"velkin urls", "[first]"};
    for (const QString& page : StatsPages)
        lines << page + ' ' + m_pinger->url("/a/" + page);
    lines << ""
          << "[second]";
    for (const QString& page : StatsPages)
        lines << page + ' ' + m_pinger->url("/b/" + page);
    lines << ""
          << "[velkin]";
    writeUrls(lines);
    for (const QString& page : StatsPages) {
        m_pinger->serve("/a/" + page, realPage(page));
        m_pinger->serve("/b/" + page, realPage(page));
    }
}

StartResult TestStatsController::start(const QStringList& arguments) {
    return m_controller->startUp(arguments);
}

void TestStatsController::tick(const QStringList& pages) {
    for (const QString& page : pages)
        m_controller->setTicked(page, true);
}

void TestStatsController::parseCommandLine_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("version");
    QTest::addColumn<bool>("automatic");
    QTest::addColumn<bool>("hide");
    QTest::addColumn<QString>("pages"); // "-" when no list was made

    QTest::newRow("nothing") << QStringList() << false << false << false << "-";
    QTest::newRow("VERSION first") << QStringList{"VERSION"} << true << false << false << "-";
    QTest::newRow("version inside a word")
        << QStringList{"--version"} << true << false << false << "-";
    QTest::newRow("version second")
        << QStringList{"auto", "version"} << false << true << false << "-";
    QTest::newRow("hide without auto") << QStringList{"hide"} << false << false << false << "-";
    QTest::newRow("auto hide") << QStringList{"auto", "hide"} << false << true << true << "-";
    QTest::newRow("hidden AUTO") << QStringList{"Hidden", "AUTO"} << false << true << true << "-";
    QTest::newRow("autohide only hides")
        << QStringList{"autohide"} << false << false << false << "-";
    QTest::newRow("pages") << QStringList{"pubring.asc", "rlist.txt", "mlist.txt"} << false << false
                           << false << "pubring.asc,rlist.txt";
    QTest::newRow("page in capitals")
        << QStringList{"auto", "RLIST.TXT"} << false << true << false << "rlist.txt";
    QTest::newRow("page with a path")
        << QStringList{"/tmp/rlist.txt"} << false << false << false << "-";
}

void TestStatsController::parseCommandLine() {
    QFETCH(QStringList, arguments);
    QFETCH(bool, version);
    QFETCH(bool, automatic);
    QFETCH(bool, hide);
    QFETCH(QString, pages);
    const CommandLine line = ParseCommandLine(arguments);
    QCOMPARE(line.versionQuery, version);
    QCOMPARE(line.autoMode, automatic);
    QCOMPARE(line.hideMode, hide);
    QCOMPARE(line.commandLinePages ? line.commandLinePages->join(u',') : QStringLiteral("-"),
             pages);
}

void TestStatsController::startUpChecks_data() {
    QTest::addColumn<bool>("mixmaster");
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QString>("message"); // start of the one message, empty for none
    QTest::addColumn<bool>("broadcast");

    QTest::newRow("all there") << true << QStringList{"vk.dbc"} << QString() << false;
    QTest::newRow("no Mixmaster, encrypted too")
        << false << QStringList{"VK.pgp"}
        << "Mixmaster is not installed on this computer! Without it, I cannot continue!" << true;
    QTest::newRow("encrypted") << true << QStringList{"VK.pgp"}
                               << "I find your VK database is encrypted. You need    \n"
                                  "to start VK and decrypt the file."
                               << false;
    QTest::newRow("encrypted, lower case")
        << true << QStringList{"vk.pgp"} << "I find your VK database is encrypted." << false;
    QTest::newRow("data file and encrypted copy")
        << true << QStringList{"vk.dbc", "VK.pgp"} << QString() << false;
    // Offered first; the answer No leaves the program without one.
    QTest::newRow("no data file, offer declined")
        << true << QStringList() << "There is no VK data file yet:" << true;
    QTest::newRow("not a data file") << true << QStringList{"junk:vk.dbc"} << "Data file: " << true;
}

void TestStatsController::startUpChecks() {
    QFETCH(bool, mixmaster);
    QFETCH(QStringList, files);
    QFETCH(QString, message);
    QFETCH(bool, broadcast);
    const QByteArray oldHome = qgetenv("HOME");
    if (!mixmaster) {
        qunsetenv("MIXPATH");
        qputenv("HOME", m_env->programFolder().toLocal8Bit()); // no ~/.Mix there
    }
    for (const QString& file : files) {
        if (file == "vk.dbc")
            makeDataFile();
        else if (file.startsWith("junk:"))
            TempEnvironment::writeFile(m_env->programFolder() + file.mid(5), "not a database");
        else
            TempEnvironment::writeFile(m_env->programFolder() + file, "encrypted");
    }
    const StartResult result = start({"auto"});
    qputenv("HOME", oldHome);

    QCOMPARE(result == StartResult::Ready, message.isEmpty());
    if (message.isEmpty()) {
        QCOMPARE(m_ui->messages.size(), 0);
    } else {
        QCOMPARE(m_ui->messages.size(), files.isEmpty() ? 2 : 1);
        QVERIFY2(m_ui->messages[0].text.startsWith(message), qPrintable(m_ui->messages[0].text));
    }
    const Broadcasts expected = broadcast ? Broadcasts{{3, 3}} : Broadcasts{};
    QCOMPARE(m_broadcasts, expected);
    QCOMPARE(QDir::currentPath() + '/', m_env->programFolder());
}

void TestStatsController::versionQueryWritesVersion() {
    makeDataFile();
    QCOMPARE(start({"Version", "auto"}), StartResult::VersionWritten);
    QCOMPARE(IniFile(IniFileName()).readString("stats", "version", ""), QStringLiteral("1.9b12"));
    QVERIFY(!m_controller->autoMode());
    QCOMPARE(m_broadcasts, Broadcasts{});
}

void TestStatsController::startUpReadsFolder() {
    makeDataFile();
    TempEnvironment::writeFile(m_env->programFolder() + "status.txt", "\n\nold run\n\n");
    IniFile(IniFileName()).writeString("stats", "pages", "rlist.txt,mlist.txt");
    QCOMPARE(start(), StartResult::Ready);
    // A new program folder gets the shipped list of sources.
    QCOMPARE(TempEnvironment::readFile(m_env->programFolder() + "urls.txt"), DefaultUrlsBytes());
    QVERIFY(!m_controller->sources().isEmpty());
    QCOMPARE(m_controller->currentSource(), 0);
    QCOMPARE(m_controller->pages().count(), 1);
    QCOMPARE(m_controller->pages().captionAt(0), QStringLiteral("status"));
    QCOMPARE(m_controller->pages().documentAt(0)->Lines(), QStringList{"old run"});
    QVERIFY(m_controller->isTicked("rlist.txt"));
    QVERIFY(m_controller->isTicked("mlist.txt"));
    QVERIFY(!m_controller->isTicked("pubring.mix"));
    QVERIFY(!m_controller->autoMode());
}

void TestStatsController::nothingMarked() {
    makeDataFile();
    standardUrls();
    QCOMPARE(start(), StartResult::Ready);
    m_controller->setLastSource("second");
    m_controller->setCurrentSource(0);
    m_controller->fileUpdate();
    QCOMPARE(m_ui->messageTexts(), QStringList{"No pages marked for update!     "});
    QCOMPARE(m_ui->messages[0].type, Information);
    QCOMPARE(m_pinger->connectionCount(), 0);
    QCOMPARE(m_controller->lastSource(), QStringLiteral("second"));
}

void TestStatsController::pagesFetchedInFixedOrder() {
    makeDataFile();
    writeUrls({"velkin urls", "[first]", "rlist.txt " + m_pinger->url("/rlist.txt"),
               "type2.list " + m_pinger->url("/type2.list"),
               "mlist.txt " + m_pinger->url("/mlist.txt"), "", "[velkin]"});
    m_pinger->serve("/mlist.txt", realPage("mlist.txt"));
    m_pinger->serve("/rlist.txt", realPage("rlist.txt"));
    QCOMPARE(start(), StartResult::Ready);
    m_controller->setLastSource("first");
    tick({"rlist.txt", "type2.list", "mlist.txt"});
    m_controller->fileUpdate();
    QList<QByteArray> paths;
    for (const TestPinger::Request& request : m_pinger->requests())
        paths.append(request.path);
    QCOMPARE(paths, (QList<QByteArray>{"/mlist.txt", "/rlist.txt"}));
    QVERIFY(m_controller->saveEnabled());
}

void TestStatsController::unattendedRun_data() {
    QTest::addColumn<QString>("trouble");
    QTest::addColumn<int>("outcome");

    QTest::newRow("all pages come") << QString() << int(RunOutcome::Done);
    QTest::newRow("last page fails") << "fail" << int(RunOutcome::Failed);
    // rlist.txt named on the command line, but the first source lacks it.
    QTest::newRow("no URL for a page") << "no url" << int(RunOutcome::Aborted);
}

void TestStatsController::unattendedRun() {
    QFETCH(QString, trouble);
    QFETCH(int, outcome);
    makeDataFile();
    standardUrls();
    if (trouble == "fail") {
        for (const char* path : {"/a/pubring.asc", "/b/pubring.asc"})
            m_pinger->fail(path, 500, "<html>broken</html>");
    } else if (trouble == "no url") {
        writeUrls({"velkin urls", "[first]", "mlist.txt " + m_pinger->url("/a/mlist.txt"), "",
                   "[velkin]"});
    }
    const QByteArray oldKeys = "old keys\n";
    TempEnvironment::writeFile(m_env->mixFolder() + "pubring.asc", oldKeys);
    IniFile(IniFileName())
        .writeString("stats", "pages", "mlist.txt,pubring.mix,rlist.txt,pubring.asc");
    m_ui->interactive = false;
    const QStringList arguments =
        trouble == "no url" ? QStringList{"auto", "rlist.txt"} : QStringList{"auto"};
    QCOMPARE(start(arguments), StartResult::Ready);
    QVERIFY(m_controller->autoMode());
    m_controller->setLastSource("first");

    QCOMPARE(int(m_controller->unattendedRun()), outcome);

    QCOMPARE(m_broadcasts, (Broadcasts{{3, outcome}}));
    const bool done = outcome == int(RunOutcome::Done);
    QCOMPARE(m_ui->visibility, QList<bool>{!done});
    QCOMPARE(m_controller->autoMode(), done);
    // A failed last page keeps its old file, but the pages taken are saved.
    const bool saved = trouble != "no url";
    QCOMPARE(m_controller->savedDespiteFailures(), trouble == "fail");
    QCOMPARE(QFileInfo::exists(m_env->mixFolder() + "type2.list"), saved);
    QCOMPARE(TempEnvironment::readFile(m_env->mixFolder() + "pubring.asc") == oldKeys, !done);
    QCOMPARE(QFileInfo::exists(m_env->programFolder() + "status.txt"), saved);
}

void TestStatsController::defaultSourceUpdate() {
    makeDataFile();
    standardUrls();
    QCOMPARE(start({"auto", "rlist.txt"}), StartResult::Ready);
    // The last source differs, but a command-line run still asks about keys.
    m_ui->addKeysAnswers.append(TestFrontEnd::AddKeysAnswer{true, {}});
    m_controller->setLastSource("second");
    m_controller->setCurrentSource(1);
    QCOMPARE(m_controller->unattendedRun(), RunOutcome::Done);
    QCOMPARE(m_ui->addKeysQuestions.size(), 1);
    QList<QByteArray> paths;
    for (const TestPinger::Request& request : m_pinger->requests())
        paths.append(request.path);
    QCOMPARE(paths, QList<QByteArray>{"/a/rlist.txt"});
    QCOMPARE(m_controller->lastSource(), QStringLiteral("first"));
    QVERIFY(QFileInfo::exists(m_env->mixFolder() + "rlist.txt"));
    QVERIFY(!QFileInfo::exists(m_env->mixFolder() + "mlist.txt"));
}

void TestStatsController::noDefaultSource() {
    makeDataFile();
    writeUrls({"velkin urls", "no sections here"});
    QCOMPARE(start({"auto", "pubring.asc"}), StartResult::Ready);
    QCOMPARE(m_controller->unattendedRun(), RunOutcome::Failed);
    QCOMPARE(m_ui->messageTexts(),
             QStringList{"Sorry, I can't locate the default stats source in URLs.txt.   \n"
                         "I can't continue with the update!"});
    // The flag was cleared by the update, so nothing is broadcast.
    QCOMPARE(m_broadcasts, Broadcasts{});
    QVERIFY(!m_controller->autoMode());
}

void TestStatsController::askSavePagesCountsFromSecondTab() {
    makeDataFile();
    QCOMPARE(start(), StartResult::Ready);
    PageSet& pages = m_controller->pages();
    pages.addPage("mlist.txt", pages.makeDocument("first", "mlist.txt", true,
                                                  BytesToLines(realPage("mlist.txt"))));
    // Only the first tab holds a new page: nothing is worth saving.
    m_ui->answers = {IdCancel};
    QVERIFY(m_controller->askSavePages());
    QCOMPARE(m_ui->messages.size(), 0);
}

void TestStatsController::closeQuery_data() {
    QTest::addColumn<bool>("unsaved");
    QTest::addColumn<QString>("used"); // the source used last
    QTest::addColumn<int>("shown");    // the source box's entry at closing
    QTest::addColumn<QList<int>>("answers");
    QTest::addColumn<bool>("closes");
    QTest::addColumn<bool>("saved");
    QTest::addColumn<QString>("usedAfter");

    QTest::newRow("nothing to ask")
        << false << "first" << 0 << QList<int>{} << true << false << "first";
    QTest::newRow("save: cancel") << true << "first" << 0 << QList<int>{IdCancel} << false << false
                                  << "first";
    QTest::newRow("save: no") << true << "first" << 0 << QList<int>{IdNo} << true << false
                              << "first";
    QTest::newRow("save: yes") << true << "first" << 0 << QList<int>{IdYes} << true << true
                               << "first";
    QTest::newRow("source: cancel")
        << false << "first" << 1 << QList<int>{IdCancel} << false << false << "first";
    QTest::newRow("source: yes") << false << "first" << 1 << QList<int>{IdYes} << true << false
                                 << "second";
    QTest::newRow("source: no") << false << "first" << 1 << QList<int>{IdNo} << true << false
                                << "first";
    QTest::newRow("save yes, source yes")
        << true << "first" << 1 << QList<int>{IdYes, IdYes} << true << true << "second";
    // The question is about the source used last, not the first in urls.txt.
    QTest::newRow("second used and shown: no question")
        << false << "second" << 1 << QList<int>{} << true << false << "second";
    QTest::newRow("back to the first: asked")
        << false << "second" << 0 << QList<int>{IdYes} << true << false << "first";
}

void TestStatsController::closeQuery() {
    QFETCH(bool, unsaved);
    QFETCH(QString, used);
    QFETCH(int, shown);
    QFETCH(QList<int>, answers);
    QFETCH(bool, closes);
    QFETCH(bool, saved);
    QFETCH(QString, usedAfter);
    makeDataFile();
    standardUrls();
    QCOMPARE(start(), StartResult::Ready);
    m_controller->setLastSource("first");
    m_controller->setCurrentSource(0);
    if (unsaved) {
        tick({"mlist.txt"});
        m_controller->fileUpdate();
        QVERIFY(m_controller->saveEnabled());
    }
    m_controller->setLastSource(used);
    m_controller->setCurrentSource(shown);
    m_ui->messages.clear();
    m_ui->answers = answers;

    QCOMPARE(m_controller->closeQuery("0,0,10,20,600,400"), closes);

    QCOMPARE(m_ui->messages.size(), answers.size());
    if (unsaved)
        QCOMPARE(m_ui->messages[0].text,
                 QStringLiteral("Your remailer pages are not saved. Save them now?     "));
    const bool sourceChanged = shown != (used == QLatin1String("second") ? 1 : 0);
    if (sourceChanged && (!unsaved || answers[0] != IdCancel))
        QCOMPARE(m_ui->messages.last().text,
                 QStringLiteral("Your stats source has been changed. Do you wish to keep the "
                                "current source?     "));
    QCOMPARE(QFileInfo::exists(m_env->mixFolder() + "mlist.txt"), saved);
    QCOMPARE(m_controller->lastSource(), usedAfter);
    // Keeping a source records it; urls.txt keeps its order.
    QCOMPARE(StatsSourceList(m_env->programFolder() + "urls.txt", nullptr).defaultSource(),
             QStringLiteral("first"));
    // Settings are written only when the close goes ahead.
    const IniFile ini(IniFileName());
    QCOMPARE(ini.readString("stats", "window", ""),
             closes ? QStringLiteral("0,0,10,20,600,400") : QString());
    QCOMPARE(ini.readString("stats", "pages", ""),
             closes && unsaved ? QStringLiteral("mlist.txt") : QString());
    QCOMPARE(ini.readString("stats", "lastproxy", ""),
             closes ? QStringLiteral("<none>") : QString());
}

void TestStatsController::closeRefusedWhileRunning() {
    makeDataFile();
    standardUrls();
    TestPinger::Route slow;
    slow.body = realPage("mlist.txt");
    slow.delayMs = 600;
    m_pinger->setRoute("/a/mlist.txt", slow);
    QCOMPARE(start(), StartResult::Ready);
    m_controller->setLastSource("first");
    m_controller->setCurrentSource(0);
    tick({"mlist.txt"});
    bool closed = true;
    QTimer::singleShot(200, this, [&] { closed = m_controller->closeQuery(QString()); });
    m_controller->fileUpdate();
    QVERIFY(!closed);
    QCOMPARE(m_ui->beeps, 1);
    QCOMPARE(m_ui->messages.size(), 0);
    QCOMPARE(IniFile(IniFileName()).readString("stats", "lastproxy", "unsaved"),
             QStringLiteral("unsaved"));
}

void TestStatsController::closeAppliesEditedBarredList_data() {
    QTest::addColumn<bool>("edited");
    QTest::newRow("edited during the session") << true;
    QTest::newRow("untouched") << false;
}

void TestStatsController::closeAppliesEditedBarredList() {
    QFETCH(bool, edited);
    makeDataFile();
    const QByteArray stored = realPage("mlist.txt");
    TempEnvironment::writeFile(m_env->mixFolder() + "mlist.txt", stored);
    TempEnvironment::writeFile(m_env->programFolder() + "barred.txt", "lcs\n");
    QCOMPARE(start(), StartResult::Ready);
    if (edited)
        TempEnvironment::writeFile(m_env->programFolder() + "barred.txt", "lcs\naarg\n");
    QCOMPARE(m_controller->barredChanged(), edited);
    QVERIFY(m_controller->closeQuery(QString()));
    const QByteArray after = TempEnvironment::readFile(m_env->mixFolder() + "mlist.txt");
    QCOMPARE(after == stored, !edited);
    QCOMPARE(after.contains("aarg"), !edited);
}

QTEST_MAIN(TestStatsController)
#include "tst_statscontroller.moc"
