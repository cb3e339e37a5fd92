#include "Global2.h"
#include "IniFile.h"
#include "PageSet.h"
#include "SuiteDatabase.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TestFrontEnd.h"
#include "TestPinger.h"
#include "TextFile.h"
#include "UpdateEngine.h"

#include <QFile>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <memory>

class TestUpdateEngine : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void fetchesEveryPage();
    void stalePageMarked();
    void notModifiedMakesNoDocument();
    void fallBackInAutomaticMode();
    void failedPageReportedOnceOutsideAutomaticMode();
    void noSourceLeft();
    void versionTwoPageRefused();
    void httpErrorShowsServerText();
    void cancelDuringDownload();
    void suitePagesFetched();
    void unsafeSuitePageNameRefused();
    void newAndDeceasedReported();
    void missingUrlStopsUnattendedRun();

private:
    void writeUrls(const QStringList& extraSuiteLines = {});
    void serveAll(TestPinger& pinger, const char* date);
    QStringList statusLines() const;
    std::unique_ptr<TempEnvironment> m_env;
    std::unique_ptr<TestPinger> m_a;
    std::unique_ptr<TestPinger> m_b;
    std::unique_ptr<TestFrontEnd> m_ui;
    std::unique_ptr<PageSet> m_pages;
    std::unique_ptr<UpdateEngine> m_engine;
};

void TestUpdateEngine::init() {
    m_env.reset();
    m_env = std::make_unique<TempEnvironment>();
    m_ui = std::make_unique<TestFrontEnd>();
    QCOMPARE(CreateDataFile(m_env->programFolder()), QString());
    QVERIFY(OpenSuiteDataFile(m_ui.get()));
    IniFile(IniFileName()).writeInteger("stats", "timeoutseconds", 2);
    m_a = std::make_unique<TestPinger>();
    m_b = std::make_unique<TestPinger>();
    QVERIFY(m_a->listen());
    QVERIFY(m_b->listen());
    m_pages = std::make_unique<PageSet>(m_ui.get());
    m_engine = std::make_unique<UpdateEngine>(m_ui.get(), m_pages.get());
    m_engine->today = QDate(2012, 12, 1); // the served pages are current
    writeUrls();
}

void TestUpdateEngine::cleanup() {
    m_engine.reset();
    m_pages.reset();
    m_a.reset();
    m_b.reset();
    CloseSuiteDataFile();
}

// Pinger A first, the suite's section between, pinger B last: a fall-back
// from A skips "[velkin]" and lands on B.
void TestUpdateEngine::writeUrls(const QStringList& extraSuiteLines) {
    QStringList lines = {"velkin urls", "[pingerA]"};
    for (const QString& page : StatsPages)
        lines << page + ' ' + m_a->url('/' + page);
    lines << ""
          << "[velkin]"
          << "advisory.txt " + m_a->url("/velkin/advisory.txt");
    lines << extraSuiteLines << ""
          << "[pingerB]";
    for (const QString& page : StatsPages)
        lines << page + ' ' + m_b->url('/' + page);
    QVERIFY(WriteLines(m_env->programFolder() + "urls.txt", lines));
}

void TestUpdateEngine::serveAll(TestPinger& pinger, const char* date) {
    for (const QString& page : StatsPages)
        pinger.serve('/' + page, RealPage(date, page.toLatin1().constData()),
                     QDateTime(QDate(2012, 11, 30), QTime(12, 0), Qt::UTC));
}

QStringList TestUpdateEngine::statusLines() const {
    const int index = m_pages->tabIndexOfPage("status");
    return index < 0 ? QStringList() : m_pages->documentAt(index)->Lines();
}

void TestUpdateEngine::fetchesEveryPage() {
    serveAll(*m_a, "2012-11-30");
    QSignalSpy accepted(m_engine.get(), &UpdateEngine::pageAccepted);
    m_engine->runUpdate("pingerA", StatsPages, {});
    const QStringList status = statusLines();
    QVERIFY(status.contains("mlist.txt...ok"));
    QVERIFY(status.contains("pubring.mix...ok"));
    QVERIFY(status.contains("rlist.txt...ok"));
    QVERIFY(status.contains("pubring.asc...ok"));
    QCOMPARE(m_engine->lastResult(), 200);
    QCOMPARE(accepted.count(), 4);
    QCOMPARE(m_pages->count(), 5);
    QCOMPARE(m_pages->captionAt(0), QStringLiteral("status"));
    QCOMPARE(m_pages->documentAt(1)->Origin, QStringLiteral("pingerA"));
    QCOMPARE(m_pages->documentAt(1)->Extra, QStringLiteral("2012-11-30T12:00:00Z"));
    // The start time heads the status page in the fixed English form.
    QVERIFY(QRegularExpression("^[A-Z][a-z]{2} [A-Z][a-z]{2} \\d\\d \\d\\d:\\d\\d:\\d\\d \\d{4}$")
                .match(status.first())
                .hasMatch());
    // The four pages were asked for side by side, a connection each; one
    // after the other they would have shared one.
    QCOMPARE(m_a->connectionCount(), 4);
    QCOMPARE(m_ui->statusTexts.last(), QStringLiteral("Update complete!"));
}

// Four days after its last update a statistics page is stale: said on the
// status page and on its tab, and the run is one to worry about.
void TestUpdateEngine::stalePageMarked() {
    serveAll(*m_a, "2012-11-30");
    m_engine->today = QDate(2012, 12, 4);
    m_engine->runUpdate("pingerA", {"mlist.txt"}, {});
    QVERIFY(
        statusLines().contains("mlist.txt...ok (stale: last update Fri 30 Nov 2012 10:20:00 GMT)"));
    QCOMPARE(m_pages->tabTextAt(1), QStringLiteral("mlist.txt (stale)"));
    QVERIFY(m_engine->worrying());
    m_engine->today = QDate(2012, 12, 3);
    m_engine->runUpdate("pingerA", {"mlist.txt"}, {});
    QCOMPARE(m_pages->tabTextAt(1), QStringLiteral("mlist.txt"));
    QVERIFY(!m_engine->worrying());
}

void TestUpdateEngine::notModifiedMakesNoDocument() {
    serveAll(*m_a, "2012-11-30");
    TheSuiteDataFile()->database->writeValue("mlist.txt", "2012-11-30T12:00:00Z");
    m_engine->automaticMode = true;
    m_engine->runUpdate("pingerA", {"mlist.txt"}, {});
    QVERIFY(statusLines().contains("mlist.txt...good"));
    QCOMPARE(m_pages->count(), 1); // the status page alone
    QCOMPARE(m_engine->lastResult(), 304);
    QVERIFY(m_a->requests().first().hasHeader("If-Modified-Since"));
    // Pages named on the command line are always fetched whole.
    m_engine->commandLinePages = QStringList{"mlist.txt"};
    m_a->clearLog();
    m_engine->runUpdate("pingerA", {"mlist.txt"}, {});
    QVERIFY(!m_a->requests().first().hasHeader("If-Modified-Since"));
    QCOMPARE(m_engine->lastResult(), 200);
}

void TestUpdateEngine::fallBackInAutomaticMode() {
    serveAll(*m_a, "2012-11-30");
    serveAll(*m_b, "2012-11-30");
    TestPinger::Route silent;
    silent.mode = TestPinger::Mode::Silent;
    m_a->setRoute("/mlist.txt", silent);
    m_engine->automaticMode = true;
    m_engine->runUpdate("pingerA", StatsPages, {});
    const QStringList status = statusLines();
    const int first = int(status.indexOf("mlist.txt...timed out"));
    QVERIFY(first > 0);
    QCOMPARE(status.at(first + 1), QStringLiteral("next source..."));
    QCOMPARE(status.at(first + 2), QStringLiteral("mlist.txt...ok"));
    // Keys are only taken from the source the run began with.
    QVERIFY(!status.join('\n').contains("pubring.mix"));
    QVERIFY(!status.join('\n').contains("pubring.asc"));
    QVERIFY(status.contains("rlist.txt...ok"));
    QCOMPARE(m_pages->documentAt(1)->Origin, QStringLiteral("pingerB"));
    QCOMPARE(m_pages->documentAt(2)->Origin, QStringLiteral("pingerA"));
}

void TestUpdateEngine::failedPageReportedOnceOutsideAutomaticMode() {
    serveAll(*m_a, "2012-11-30");
    serveAll(*m_b, "2012-11-30");
    TestPinger::Route silent;
    silent.mode = TestPinger::Mode::Silent;
    m_a->setRoute("/mlist.txt", silent);
    m_engine->runUpdate("pingerA", StatsPages, {});
    const QStringList status = statusLines();
    QCOMPARE(status.count("mlist.txt...timed out"), 1);
    QVERIFY(!status.contains("next source..."));
    QVERIFY(status.contains("pubring.asc...ok"));
    QVERIFY(m_b->requests().isEmpty());
}

void TestUpdateEngine::noSourceLeft() {
    QStringList lines = {"[only]", "mlist.txt " + m_a->url("/mlist.txt")};
    QVERIFY(WriteLines(m_env->programFolder() + "urls.txt", lines));
    m_a->fail("/mlist.txt", 503, "<html>busy</html>");
    m_engine->automaticMode = true;
    m_engine->runUpdate("only", {"mlist.txt"}, {});
    const QStringList status = statusLines();
    QVERIFY(status.contains("mlist.txt...http error"));
    QCOMPARE(status.mid(status.size() - 2),
             (QStringList{"There is something wrong and it is not your stats source!",
                          "Sorry, I failed completely!"}));
}

void TestUpdateEngine::versionTwoPageRefused() {
    m_a->serve("/mlist.txt",
               "Stats-Version: 2.0\nGenerated: now\nmixmaster history latency uptime\n");
    m_engine->runUpdate("pingerA", {"mlist.txt"}, {});
    const QStringList status = statusLines();
    const int at = int(status.indexOf("mlist.txt...failed error checks"));
    QVERIFY(at > 0);
    QCOMPARE(status.mid(at + 1, 3),
             (QStringList{"Wrong stats version. Got version 2. Needed version 1!",
                          "Click 'Help|Pinger Site|all pingers' for all URLs.", ""}));
    QCOMPARE(m_engine->lastResult(), -6000);
    const QStringList page = m_pages->documentAt(1)->Lines();
    QCOMPARE(page.mid(0, 4),
             (QStringList{"# *****Failed Error Checks*****",
                          "# This is a version 2 stats page. VK requires version 1.", "#",
                          "Stats-Version: 2.0"}));
}

void TestUpdateEngine::httpErrorShowsServerText() {
    m_a->fail("/mlist.txt", 500, "<html>\n<h1>Internal error</h1>\n</html>");
    m_engine->runUpdate("pingerA", {"mlist.txt"}, {});
    const QStringList status = statusLines();
    const int at = int(status.indexOf("mlist.txt...http error"));
    QVERIFY(at > 0);
    QCOMPARE(status.at(at + 2), QStringLiteral("<h1>Internal error</h1>"));
    QCOMPARE(m_pages->count(), 1);
}

void TestUpdateEngine::cancelDuringDownload() {
    serveAll(*m_a, "2012-11-30");
    TestPinger::Route drip;
    drip.mode = TestPinger::Mode::Drip;
    drip.body = QByteArray(4000, 'x');
    drip.dripBytes = 10;
    drip.dripIntervalMs = 50;
    m_a->setRoute("/pubring.mix", drip);
    QTimer::singleShot(300, m_engine.get(), [this] { m_engine->cancel(); });
    m_engine->runUpdate("pingerA", StatsPages, {"advisory.txt"});
    const QStringList status = statusLines();
    QVERIFY(status.contains("mlist.txt...ok"));
    QCOMPARE(status.last(), QStringLiteral("operation cancelled by user"));
    QVERIFY(!status.join('\n').contains("rlist.txt"));
    QVERIFY(m_engine->wasCancelled());
    for (const TestPinger::Request& request : m_a->requests())
        QVERIFY(!request.path.contains("velkin"));
    QCOMPARE(m_ui->statusTexts.last(), QStringLiteral("Update complete!"));
}

void TestUpdateEngine::suitePagesFetched() {
    serveAll(*m_a, "2012-11-30");
    m_a->serve("/velkin/advisory.txt", "velkin user advisory\nUpgrade your Mixmaster.\n");
    m_engine->runUpdate("pingerA", {"mlist.txt"}, {"advisory.txt"});
    QVERIFY(statusLines().contains("advisory.txt...good"));
    const int tab = m_pages->tabIndexOfPage("advisory.txt");
    QVERIFY(tab > 0);
    QCOMPARE(m_pages->documentAt(tab)->Origin, QStringLiteral("velkin"));
    QVERIFY(m_pages->documentAt(tab)->Viewer->wordWrap());
    // A new advisory is shown to the user.
    QVERIFY(m_engine->advisoryShown());
    QCOMPARE(m_ui->messageTexts().last(), QStringLiteral("Upgrade your Mixmaster."));
}

void TestUpdateEngine::unsafeSuitePageNameRefused() {
    writeUrls({"../escape.txt " + m_a->url("/velkin/x")});
    serveAll(*m_a, "2012-11-30");
    m_a->serve("/velkin/x", "payload");
    m_engine->runUpdate("pingerA", {"mlist.txt"}, {"../escape.txt"});
    QVERIFY(statusLines().contains("../escape.txt...refused: not a plain file name"));
    for (const TestPinger::Request& request : m_a->requests())
        QVERIFY(request.path != "/velkin/x");
}

void TestUpdateEngine::newAndDeceasedReported() {
    // The stored page lacks the last remailer of the new one and has one
    // that has gone since.
    QStringList stored = BytesToLines(RealPage("2012-11-30", "mlist.txt"));
    const int hyphens = int(stored.indexOf(QRegularExpression("^-{16}.*")));
    QVERIFY(hyphens > 0);
    const QString firstRow = stored.at(hyphens + 1);
    stored[hyphens + 1] = "zzgone" + firstRow.mid(firstRow.indexOf(' '));
    QVERIFY(WriteLines(m_env->mixFolder() + "mlist.txt", stored));
    serveAll(*m_a, "2012-11-30");
    m_engine->automaticMode = true;
    m_engine->runUpdate("pingerA", {"mlist.txt"}, {});
    const QStringList status = statusLines();
    const QString newName = firstRow.left(firstRow.indexOf(' '));
    const int heading = int(status.indexOf("NEW Mixmaster Remailers:"));
    QVERIFY(heading > 0);
    QCOMPARE(status.at(heading - 1), QString());
    QCOMPARE(status.at(heading + 1), newName);
    const int deceased = int(status.indexOf("DECEASED Mixmaster Remailers:"));
    QCOMPARE(status.at(deceased + 1), QStringLiteral("zzgone"));
    QVERIFY(m_engine->newbars.contains(newName));
    QVERIFY(m_engine->changeCount() > 0);
    // In automatic mode the status page becomes report.txt.
    QCOMPARE(ReadLines(m_env->programFolder() + "report.txt"), status);
}

void TestUpdateEngine::missingUrlStopsUnattendedRun() {
    TestFrontEnd headless;
    headless.interactive = false;
    UpdateEngine engine(&headless, m_pages.get());
    QVERIFY(WriteLines(m_env->programFolder() + "urls.txt", {"[pingerA]", "rlist.txt http://x/"}));
    engine.runUpdate("pingerA", {"mlist.txt"}, {});
    QVERIFY(engine.wasAborted());
    QCOMPARE(headless.messageTexts(), QStringList{"I don't have a URL for mlist.txt at pingerA!"});
}

QTEST_GUILESS_MAIN(TestUpdateEngine)
#include "tst_updateengine.moc"
