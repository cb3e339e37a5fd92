#include "Global2.h"
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

#include <QTest>

#include <memory>

// Unattended runs of the engine through real proxies, and pages no scenario
// folder can hold (an endless body, one over the size cap, a redirect loop).
// The pages saved and the reports are the scenario folders' work.

Q_DECLARE_METATYPE(TestPinger::Route)

class TestEngineRun : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup() {
        m_engine.reset();
        m_pages.reset();
        m_pinger.reset();
        CloseSuiteDataFile();
    }
    void throughProxy_data();
    void throughProxy();
    void unservablePage_data();
    void unservablePage();
    void proxyVanishesMidRun();

private:
    std::unique_ptr<TempEnvironment> m_env;
    std::unique_ptr<TestPinger> m_pinger;
    std::unique_ptr<TestFrontEnd> m_ui;
    std::unique_ptr<PageSet> m_pages;
    std::unique_ptr<UpdateEngine> m_engine;
};

// One stats source, so that a page that fails has nowhere to fall back to.
void TestEngineRun::init() {
    m_env.reset(); // the old one restores the environment it found
    m_env = std::make_unique<TempEnvironment>();
    m_ui = std::make_unique<TestFrontEnd>();
    QCOMPARE(CreateDataFile(m_env->programFolder()), QString());
    QVERIFY(OpenSuiteDataFile(m_ui.get()));
    IniFile(IniFileName()).writeInteger("stats", "timeoutseconds", 60);
    m_pinger = std::make_unique<TestPinger>();
    QVERIFY(m_pinger->listen());
    QStringList lines = {"velkin urls", "[pinger]"};
    for (const QString& page : StatsPages) {
        lines << page + ' ' + m_pinger->url('/' + page);
        m_pinger->serve('/' + page, RealPage("2012-11-30", page));
    }
    lines << ""
          << "[velkin]";
    QVERIFY(WriteLines(m_env->programFolder() + "urls.txt", lines));
    m_pages = std::make_unique<PageSet>(m_ui.get());
    m_engine = std::make_unique<UpdateEngine>(m_ui.get(), m_pages.get());
    m_engine->automaticMode = true;
    m_engine->today = QDate(2012, 12, 1); // the served pages are current
}

void TestEngineRun::throughProxy_data() {
    QTest::addColumn<bool>("socks");
    QTest::newRow("HTTP proxy (tinyproxy)") << false;
    QTest::newRow("SOCKS5 proxy with user and password (microsocks)") << true;
}

void TestEngineRun::throughProxy() {
    QFETCH(bool, socks);
    ProxyProcess proxy(socks ? ProxyProcess::Kind::Microsocks : ProxyProcess::Kind::Tinyproxy);
    if (!(socks ? proxy.start("vkstats", "correct horse") : proxy.start()))
        QSKIP(qPrintable("the proxy could not be started: " + proxy.errorString()));
    m_engine->proxySettings = proxy.settings();

    m_engine->runUpdate("pinger", StatsPages, {});
    const QStringList status = m_pages->documentAt(0)->Lines();
    for (const QString& page : StatsPages)
        QVERIFY2(status.contains(page + "...ok"), qPrintable(status.join('\n')));
    QCOMPARE(m_engine->lastResult(), 200);

    // Every request went the chosen way.
    const QList<TestPinger::Request> requests = m_pinger->requests();
    QCOMPARE(requests.size(), StatsPages.size());
    for (const TestPinger::Request& request : requests)
        QCOMPARE(request.header("Via").contains("tinyproxy"), !socks);
    const QString seen = socks ? QStringLiteral("connected to 127.0.0.1:%1")
                               : QStringLiteral("GET http://127.0.0.1:%1/pubring.mix");
    QVERIFY2(proxy.log().contains(seen.arg(m_pinger->port())), qPrintable(proxy.log().right(2000)));

    const SaveResult saved = SavePages(m_ui.get(), *m_pages, m_engine->newbars, false);
    QVERIFY2(saved.ok(), qPrintable(saved.errors.join('\n')));
    QCOMPARE(saved.written, 1 + StatsPages.size());
    QCOMPARE(TempEnvironment::readFile(m_env->mixFolder() + "pubring.asc"),
             RealPage("2012-11-30", "pubring.asc"));
}

void TestEngineRun::unservablePage_data() {
    QTest::addColumn<QString>("page");
    QTest::addColumn<TestPinger::Route>("route");
    TestPinger::Route endless;
    endless.mode = TestPinger::Mode::Endless;
    QTest::newRow("endless body") << "mlist.txt" << endless;
    // Announced with its length, so refused before it comes.
    TestPinger::Route huge;
    huge.body = QByteArray(16 * 1024 * 1024 + 1, 'A');
    QTest::newRow("body over the cap") << "pubring.mix" << huge;
    TestPinger::Route loop;
    loop.status = 302;
    loop.headers.append(TestPinger::Header{"Location", "/rlist.txt"});
    QTest::newRow("redirect loop") << "rlist.txt" << loop;
}

// Such a page fails with an exception, and the run goes on without looking
// for another source; the good page on disk stays.
void TestEngineRun::unservablePage() {
    QFETCH(QString, page);
    QFETCH(TestPinger::Route, route);
    m_pinger->setRoute('/' + page, route);
    TempEnvironment::writeFile(m_env->mixFolder() + page, "old page\n");

    m_engine->runUpdate("pinger", StatsPages, {});
    const QStringList status = m_pages->documentAt(0)->Lines();
    QVERIFY2(status.contains(page + "..." + UpdateEngine::resultWord(-5001)),
             qPrintable(status.join('\n')));
    QVERIFY(!status.contains("Sorry, I failed completely!"));
    for (const QString& other : StatsPages)
        QVERIFY(other == page || status.contains(other + "...ok"));

    const SaveResult saved = SavePages(m_ui.get(), *m_pages, m_engine->newbars, false);
    QVERIFY2(saved.ok(), qPrintable(saved.errors.join('\n')));
    QCOMPARE(TempEnvironment::readFile(m_env->mixFolder() + page), QByteArray("old page\n"));
    QVERIFY(TheSuiteDataFile()->database->readValue(page).isEmpty());
}

// Tor stopped in the middle of a run: what it was carrying fails, and not
// one request reaches the pinger without going through the proxy.
void TestEngineRun::proxyVanishesMidRun() {
    ProxyProcess proxy(ProxyProcess::Kind::Tinyproxy);
    if (!proxy.start())
        QSKIP(qPrintable("tinyproxy could not be started: " + proxy.errorString()));
    m_engine->proxySettings = proxy.settings();
    connect(m_pinger.get(), &TestPinger::requestReceived, m_pinger.get(),
            [&proxy](const TestPinger::Request& request) {
                if (request.path == "/pubring.mix")
                    proxy.stop();
            });

    m_engine->runUpdate("pinger", StatsPages, {});
    // Pages travel side by side, so which of them the proxy was carrying
    // when it went depends on timing; at least one fails, none goes around.
    const QStringList status = m_pages->documentAt(0)->Lines();
    QVERIFY2(!status.filter("..." + UpdateEngine::resultWord(-5001)).isEmpty(),
             qPrintable(status.join('\n')));
    const QList<TestPinger::Request> requests = m_pinger->requests();
    QVERIFY(!requests.isEmpty());
    for (const TestPinger::Request& request : requests)
        QVERIFY2(request.header("Via").contains("tinyproxy"), request.path.constData());
}

QTEST_GUILESS_MAIN(TestEngineRun)
#include "tst_enginerun.moc"
