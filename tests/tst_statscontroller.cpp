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

} // namespace

class TestStatsController : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void parseCommandLine_data() { AddTableRows(QStringLiteral("commandline.txt")); }
    void parseCommandLine();
    void startUpReadsFolder();
    void nothingMarked();
    void defaultSourceUpdate();
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
};

void TestStatsController::init() {
    m_env.reset();
    m_env = std::make_unique<TempEnvironment>();
    m_ui = std::make_unique<TestFrontEnd>();
    m_pinger = std::make_unique<TestPinger>();
    QVERIFY(m_pinger->listen());
    m_controller = std::make_unique<StatsController>(m_ui.get(), [](int, int) {});
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

void TestStatsController::parseCommandLine() {
    QFETCH(QStringList, f);
    const CommandLine line = ParseCommandLine(f[1].isEmpty() ? QStringList() : f[1].split(u'|'));
    QCOMPARE(line.versionQuery, f[2] == u'1');
    QCOMPARE(line.autoMode, f[3] == u'1');
    QCOMPARE(line.hideMode, f[4] == u'1');
    QCOMPARE(line.commandLinePages ? line.commandLinePages->join(u',') : QStringLiteral("-"), f[5]);
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
