#include "Global2.h"
#include "HeadlessFrontEnd.h"
#include "IniFile.h"
#include "PageSet.h"
#include "ProxyProcess.h"
#include "SavePages.h"
#include "SuiteDatabase.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TestFrontEnd.h"
#include "TestPinger.h"
#include "TextFile.h"
#include "UpdateEngine.h"

#include <QElapsedTimer>
#include <QTest>
#include <QTimer>

#include <cstdio>
#include <memory>

// The engine where the user is there to see it, runs through real proxies,
// what a save leaves alone, and the headless front end. Unattended runs and
// the pages they save are the scenario folders' work.

namespace {

// Everything written to a stream so far.
QByteArray contents(std::FILE* file) {
    std::fflush(file);
    QByteArray bytes(std::ftell(file), '\0');
    std::rewind(file);
    bytes.truncate(qsizetype(std::fread(bytes.data(), 1, size_t(bytes.size()), file)));
    return bytes;
}

} // namespace

class TestEngine : public QObject {
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
    void throughProxy_data();
    void throughProxy();
    void failedAndLocalPagesNeverWritten();
    void rlistThenPubringShareTheUnfilteredCopy();
    void headlessMessageBreaksOpenLine();
    void headlessPausesOnlyHandlePendingEvents();

private:
    QStringList statusLines() const {
        return m_pages->documentAt(m_pages->tabIndexOfPage("status"))->Lines();
    }
    void route(const QString& path, const QStringList& words) {
        TestPinger::Route route;
        QCOMPARE(TestPinger::applyRouteWords(route, words), QString());
        m_pinger->setRoute(path, route);
    }
    void add(const QString& name, const QStringList& lines) {
        m_pages->addPage(name, m_pages->makeDocument("pinger", name, true, lines));
    }
    std::unique_ptr<TempEnvironment> m_env;
    std::unique_ptr<TestPinger> m_pinger;
    std::unique_ptr<TestFrontEnd> m_ui;
    std::unique_ptr<PageSet> m_pages;
    std::unique_ptr<UpdateEngine> m_engine;
};

// Two sources on the one pinger: a fall-back from A would land on B.
void TestEngine::init() {
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
        lines << "";
    }
    lines << "[velkin]"
          << "advisory.txt " + m_pinger->url("/velkin/advisory.txt")
          << "../escape.txt " + m_pinger->url("/velkin/x");
    QVERIFY(WriteLines(m_env->programFolder() + "urls.txt", lines));
    m_pages = std::make_unique<PageSet>(m_ui.get());
    m_engine = std::make_unique<UpdateEngine>(m_ui.get(), m_pages.get());
    m_engine->today = QDate(2012, 12, 1); // the served pages are current
}

// Four days after its last update a statistics page is stale: said on its
// tab, and the run is one to worry about (the status line is the scenarios').
void TestEngine::stalePageMarked() {
    m_engine->today = QDate(2012, 12, 4);
    m_engine->runUpdate("pingerA", {"mlist.txt"}, {});
    QCOMPARE(m_pages->tabTextAt(1), QStringLiteral("mlist.txt (stale)"));
    QVERIFY(m_engine->worrying());
    m_engine->today = QDate(2012, 12, 3);
    m_engine->runUpdate("pingerA", {"mlist.txt"}, {});
    QCOMPARE(m_pages->tabTextAt(1), QStringLiteral("mlist.txt"));
    QVERIFY(!m_engine->worrying());
}

void TestEngine::failedPageReportedOnceWithoutFallBack() {
    route("/A/mlist.txt", {"mode=silent"});
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

void TestEngine::cancelDuringDownload() {
    route("/A/pubring.mix", {"lines=4000", "drip=10/50"});
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

void TestEngine::unsafeSuitePageNameRefused() {
    m_engine->runUpdate("pingerA", {"mlist.txt"}, {"../escape.txt"});
    QVERIFY(statusLines().contains("../escape.txt...refused: not a plain file name"));
    for (const TestPinger::Request& request : m_pinger->requests())
        QVERIFY(request.path != "/velkin/x");
}

void TestEngine::throughProxy_data() {
    QTest::addColumn<bool>("socks");
    QTest::addColumn<bool>("vanishes");
    QTest::newRow("HTTP proxy (tinyproxy)") << false << false;
    QTest::newRow("SOCKS5 proxy with user and password (microsocks)") << true << false;
    QTest::newRow("HTTP proxy stopped in the middle of the run") << false << true;
}

// An unattended run through a real proxy: every request goes that way. Tor
// stopped in the middle of a run: what it was carrying fails, and not one
// request reaches the pinger without going through the proxy.
void TestEngine::throughProxy() {
    QFETCH(bool, socks);
    QFETCH(bool, vanishes);
    ProxyProcess proxy(socks ? ProxyProcess::Kind::Microsocks : ProxyProcess::Kind::Tinyproxy);
    if (!(socks ? proxy.start("vkstats", "correct horse") : proxy.start()))
        QSKIP(qPrintable("the proxy could not be started: " + proxy.errorString()));
    m_engine->automaticMode = true;
    m_engine->proxySettings = proxy.settings();
    if (vanishes)
        connect(m_pinger.get(), &TestPinger::requestReceived, m_pinger.get(),
                [&proxy](const TestPinger::Request& request) {
                    if (request.path == "/A/pubring.mix")
                        proxy.stop();
                });
    m_engine->runUpdate("pingerA", StatsPages, {});
    const QString status = statusLines().join('\n');
    const QList<TestPinger::Request> requests = m_pinger->requests();
    QVERIFY(!requests.isEmpty());
    for (const TestPinger::Request& request : requests)
        QVERIFY2(request.header("Via").contains("tinyproxy") == !socks, request.path.constData());
    // Pages travel side by side, so which of them the proxy was carrying
    // when it went depends on timing; at least one fails, none goes around.
    if (vanishes) {
        QVERIFY2(status.contains("..." + UpdateEngine::resultWord(-5001)), qPrintable(status));
        return;
    }
    for (const QString& page : StatsPages)
        QVERIFY2(status.contains(page + "...ok"), qPrintable(status));
    QCOMPARE(requests.size(), StatsPages.size());
    const QString seen = socks ? QStringLiteral("connected to 127.0.0.1:%1")
                               : QStringLiteral("GET http://127.0.0.1:%1/A/pubring.mix");
    QVERIFY2(proxy.log().contains(seen.arg(m_pinger->port())), qPrintable(proxy.log().right(2000)));
}

void TestEngine::failedAndLocalPagesNeverWritten() {
    add("status.txt", {"Sat Nov 21 10:00:00 2026"});
    QCOMPARE(PagesWorthSaving(*m_pages), 0); // the first tab never counts
    QVERIFY(WriteLines(m_env->mixFolder() + "mlist.txt", {"old page"}));
    const QString advisory = m_env->programFolder() + "advisory.txt";
    QVERIFY(WriteLines(advisory, {"velkin user advisory", "local"}));
    add("mlist.txt", {"<html>not a stats page</html>"});
    QCOMPARE(PagesWorthSaving(*m_pages), 0);
    QVERIFY(m_pages->openLocalFile(advisory));
    QVERIFY(WriteLines(advisory, {"changed on disk"}));
    add("rlist.txt", RealPageLines("2012-11-30", "rlist.txt"));
    QCOMPARE(PagesWorthSaving(*m_pages), 1);

    QCOMPARE(SavePages(m_ui.get(), *m_pages, {}, false).written, 2); // status and rlist.txt
    QCOMPARE(ReadLines(m_env->mixFolder() + "mlist.txt"), QStringList{"old page"});
    QCOMPARE(ReadLines(advisory), QStringList{"changed on disk"});
}

// Loaded in this order the two pages share one unfiltered copy, and
// rlist.org.txt ends up holding the keyring.
void TestEngine::rlistThenPubringShareTheUnfilteredCopy() {
    add("status.txt", {"Sat Nov 21 10:00:00 2026"});
    for (const QString name : {"rlist.txt", "pubring.mix"})
        add(name, RealPageLines("2012-11-30", name));
    QVERIFY(SavePages(m_ui.get(), *m_pages, {}, false).ok());
    QCOMPARE(ReadLines(m_env->programFolder() + "rlist.org.txt"),
             RealPageLines("2012-11-30", "pubring.mix"));
}

void TestEngine::headlessMessageBreaksOpenLine() {
    std::FILE* out = std::tmpfile();
    std::FILE* err = std::tmpfile();
    QVERIFY(out && err);
    {
        HeadlessFrontEnd ui(out, err);
        PageSet pages(&ui);
        ui.watch(pages);
        pages.addPage("status", pages.makeDocument("download", "status.txt", true, {}));
        PageView* view = pages.documentAt(0)->Viewer;
        view->appendLine("rlist.txt...");
        ui.showMessage("no URL", Warning, MbOk, MsgStyle::CentredDialog);
        view->appendToLastLine("timed out");
        view->appendLine("next source...");
        ui.finish();
    }
    QCOMPARE(contents(out) + "--\n" + contents(err),
             QByteArray("rlist.txt...\ntimed out\nnext source...\n--\nWarning: no URL\n"));
    std::fclose(out);
    std::fclose(err);
}

// Without a window nothing repaints: a pause handles what is pending and
// returns, however long it was asked to be.
void TestEngine::headlessPausesOnlyHandlePendingEvents() {
    HeadlessFrontEnd frontEnd(stdout, stderr);
    bool handled = false;
    QTimer::singleShot(0, this, [&] { handled = true; });
    QElapsedTimer clock;
    clock.start();
    WaitTicks(&frontEnd, 60000);
    QVERIFY(handled);
    QVERIFY2(clock.elapsed() < 30000, qPrintable(QString::number(clock.elapsed())));
}

QTEST_GUILESS_MAIN(TestEngine)
#include "tst_engine.moc"
