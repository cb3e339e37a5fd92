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

#include <QTest>
#include <QTimer>

#include <memory>

// The engine where the user is there to see it: the unattended runs are the
// scenario folders' work.
class TestUpdateEngine : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup() {
        m_engine.reset();
        m_pages.reset();
        m_pinger.reset();
        CloseSuiteDataFile();
    }
    void stalePageMarked();
    void failedPageReportedOnceWithoutFallBack();
    void cancelDuringDownload();
    void unsafeSuitePageNameRefused();

private:
    QStringList statusLines() const {
        return m_pages->documentAt(m_pages->tabIndexOfPage("status"))->Lines();
    }
    std::unique_ptr<TempEnvironment> m_env;
    std::unique_ptr<TestPinger> m_pinger;
    std::unique_ptr<TestFrontEnd> m_ui;
    std::unique_ptr<PageSet> m_pages;
    std::unique_ptr<UpdateEngine> m_engine;
};

// Two sources on the one pinger: a fall-back from A would land on B.
void TestUpdateEngine::init() {
    m_env.reset(); // the old one restores the environment it found
    m_env = std::make_unique<TempEnvironment>();
    m_ui = std::make_unique<TestFrontEnd>();
    QCOMPARE(CreateDataFile(m_env->programFolder()), QString());
    QVERIFY(OpenSuiteDataFile(m_ui.get()));
    IniFile(IniFileName()).writeInteger("stats", "timeoutseconds", 2);
    m_pinger = std::make_unique<TestPinger>();
    QVERIFY(m_pinger->listen());
    QStringList lines = {"velkin urls"};
    for (const QString source : {"A", "B"}) {
        lines << "[pinger" + source + "]";
        for (const QString& page : StatsPages) {
            const QString path = '/' + source + '/' + page;
            lines << page + ' ' + m_pinger->url(path);
            m_pinger->serve(path, RealPage("2012-11-30", page));
        }
        lines << ""
              << "[velkin]"
              << "advisory.txt " + m_pinger->url("/velkin/advisory.txt") << "";
    }
    QVERIFY(WriteLines(m_env->programFolder() + "urls.txt", lines));
    m_pages = std::make_unique<PageSet>(m_ui.get());
    m_engine = std::make_unique<UpdateEngine>(m_ui.get(), m_pages.get());
    m_engine->today = QDate(2012, 12, 1); // the served pages are current
}

// Four days after its last update a statistics page is stale: said on the
// status page and on its tab, and the run is one to worry about.
void TestUpdateEngine::stalePageMarked() {
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

void TestUpdateEngine::failedPageReportedOnceWithoutFallBack() {
    TestPinger::Route silent;
    silent.mode = TestPinger::Mode::Silent;
    m_pinger->setRoute("/A/mlist.txt", silent);
    m_engine->runUpdate("pingerA", StatsPages, {});
    const QStringList status = statusLines();
    QCOMPARE(status.count("mlist.txt...timed out"), 1);
    QVERIFY(!status.contains("next source..."));
    QVERIFY(status.contains("pubring.asc...ok"));
    for (const TestPinger::Request& request : m_pinger->requests())
        QVERIFY(request.path.startsWith("/A/"));
    // The four pages were asked for side by side, a connection each; one
    // after the other they would have shared one.
    QCOMPARE(m_pinger->connectionCount(), 4);
    QCOMPARE(m_ui->statusTexts.last(), QStringLiteral("Update complete!"));
}

void TestUpdateEngine::cancelDuringDownload() {
    TestPinger::Route drip;
    drip.mode = TestPinger::Mode::Drip;
    drip.body = QByteArray(4000, 'x');
    drip.dripBytes = 10;
    drip.dripIntervalMs = 50;
    m_pinger->setRoute("/A/pubring.mix", drip);
    QTimer::singleShot(300, m_engine.get(), [this] { m_engine->cancel(); });
    m_engine->runUpdate("pingerA", StatsPages, {"advisory.txt"});
    const QStringList status = statusLines();
    QVERIFY(status.contains("mlist.txt...ok"));
    QCOMPARE(status.last(), QStringLiteral("operation cancelled by user"));
    QVERIFY(!status.join('\n').contains("rlist.txt"));
    QVERIFY(m_engine->wasCancelled());
    for (const TestPinger::Request& request : m_pinger->requests())
        QVERIFY(!request.path.contains("velkin"));
    QCOMPARE(m_ui->statusTexts.last(), QStringLiteral("Update complete!"));
}

void TestUpdateEngine::unsafeSuitePageNameRefused() {
    QVERIFY(WriteLines(m_env->programFolder() + "urls.txt",
                       {"[pingerA]", "mlist.txt " + m_pinger->url("/A/mlist.txt"), "", "[velkin]",
                        "../escape.txt " + m_pinger->url("/velkin/x")}));
    m_engine->runUpdate("pingerA", {"mlist.txt"}, {"../escape.txt"});
    QVERIFY(statusLines().contains("../escape.txt...refused: not a plain file name"));
    for (const TestPinger::Request& request : m_pinger->requests())
        QVERIFY(request.path != "/velkin/x");
}

QTEST_GUILESS_MAIN(TestUpdateEngine)
#include "tst_updateengine.moc"
