#include "BarredList.h"
#include "Global2.h"
#include "IniFile.h"
#include "PageSet.h"
#include "ProxyProcess.h"
#include "SavePages.h"
#include "SuiteDatabase.h"
#include "SyntheticPages.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TestFrontEnd.h"
#include "TestPinger.h"
#include "TextFile.h"
#include "UpdateEngine.h"

#include <QFile>
#include <QRegularExpression>
#include <QTest>

#include <memory>

// Whole unattended runs of the update engine against a loopback pinger
// serving real pages, directly and through real proxies, followed by the
// save into the Mixmaster folder; and runs in which one page of the pinger
// misbehaves.

namespace {

const QDateTime PageDate(QDate(2012, 11, 30), QTime(12, 0), Qt::UTC);
const char* const Served = "2012-11-30";
const char* const Stored = "2001-11-07";

// The lines of a page without the statistics row of one remailer.
QStringList withoutRow(QStringList lines, const QString& name) {
    lines.removeIf(
        [&](const QString& line) { return line.startsWith(name + u' ') && line.contains(u'%'); });
    return lines;
}

// The lines with one remailer's statistics row under another name.
QStringList renamedRow(QStringList lines, const QString& from, const QString& to) {
    for (QString& line : lines) {
        if (line.startsWith(from + u' ') && line.contains(u'%')) {
            line = to + line.mid(from.size());
            return lines;
        }
    }
    qFatal("no row for %s", qPrintable(from));
}

const QStringList NymserverPage = QStringList{"Nymserver keys for the suite", ""} +
                                  SyntheticPages::pgpKeys(1, QStringLiteral("nym.example.net"));

} // namespace

Q_DECLARE_METATYPE(TestPinger::Route)

class TestEngineRun : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void unattendedRunThroughProxy_data();
    void unattendedRunThroughProxy();
    void misbehavingPinger_data();
    void misbehavingPinger();
    void unreadableLastModified();
    void proxyVanishesMidRun();

private:
    void writeUrls(const QStringList& suitePages);
    void serveStatsPages();
    QStringList statusLines() const;
    std::unique_ptr<TempEnvironment> m_env;
    std::unique_ptr<TestPinger> m_pinger;
    std::unique_ptr<TestFrontEnd> m_ui;
    std::unique_ptr<PageSet> m_pages;
    std::unique_ptr<UpdateEngine> m_engine;
};

void TestEngineRun::init() {
    m_env.reset();
    m_env = std::make_unique<TempEnvironment>();
    QVERIFY(m_env->isValid());
    m_ui = std::make_unique<TestFrontEnd>();
    QCOMPARE(CreateDataFile(m_env->programFolder()), QString());
    QVERIFY(OpenSuiteDataFile(m_ui.get()));
    IniFile(IniFileName()).writeInteger("stats", "timeoutseconds", 5);
    m_pinger = std::make_unique<TestPinger>();
    QVERIFY(m_pinger->listen());
    m_pages = std::make_unique<PageSet>(m_ui.get());
    m_engine = std::make_unique<UpdateEngine>(m_ui.get(), m_pages.get());
    m_engine->automaticMode = true;
    m_engine->today = QDate(2012, 12, 1); // the served pages are current
}

void TestEngineRun::cleanup() {
    m_engine.reset();
    m_pages.reset();
    m_pinger.reset();
    CloseSuiteDataFile();
    m_env.reset();
}

// One stats source, so that a page that fails has nowhere to fall back to,
// and the suite's own section.
void TestEngineRun::writeUrls(const QStringList& suitePages) {
    QStringList lines = {"velkin urls", "[pinger]"};
    for (const QString& page : StatsPages)
        lines << page + ' ' + m_pinger->url('/' + page);
    lines << ""
          << "[velkin]";
    for (const QString& page : suitePages)
        lines << page + ' ' + m_pinger->url("/velkin/" + page);
    QVERIFY(WriteLines(m_env->programFolder() + "urls.txt", lines));
}

void TestEngineRun::serveStatsPages() {
    for (const QString& page : StatsPages)
        m_pinger->serve('/' + page, RealPage(Served, page), PageDate);
}

QStringList TestEngineRun::statusLines() const {
    const int index = m_pages->tabIndexOfPage("status");
    return index < 0 ? QStringList() : m_pages->documentAt(index)->Lines();
}

void TestEngineRun::unattendedRunThroughProxy_data() {
    QTest::addColumn<QString>("kind");
    QTest::newRow("direct") << QString();
    QTest::newRow("HTTP proxy (tinyproxy)") << QStringLiteral("HTTP");
    QTest::newRow("SOCKS5 proxy with user and password (microsocks)") << QStringLiteral("SOCKS5");
}

void TestEngineRun::unattendedRunThroughProxy() {
    QFETCH(QString, kind);
    std::unique_ptr<ProxyProcess> proxy;
    const QString user = QStringLiteral("vkstats");
    const QString password = QStringLiteral("correct horse");
    if (kind == QLatin1String("HTTP")) {
        proxy = std::make_unique<ProxyProcess>(ProxyProcess::Kind::Tinyproxy);
        if (!proxy->start())
            QSKIP(qPrintable("tinyproxy could not be started: " + proxy->errorString()));
        m_engine->proxySettings = {"kind=HTTP", "host=127.0.0.1",
                                   "port=" + QString::number(proxy->port())};
    } else if (kind == QLatin1String("SOCKS5")) {
        proxy = std::make_unique<ProxyProcess>(ProxyProcess::Kind::Microsocks);
        if (!proxy->start(user, password))
            QSKIP(qPrintable("microsocks could not be started: " + proxy->errorString()));
        m_engine->proxySettings = {"kind=SOCKS5", "host=127.0.0.1",
                                   "port=" + QString::number(proxy->port()), "user=" + user,
                                   "password=" + password};
    }

    // The pinger: the real pages of one day, and the suite's pages.
    const QStringList suitePages = {"nymserver.asc", "mail2news.txt", "advisory.txt"};
    writeUrls(suitePages);
    serveStatsPages();
    m_pinger->serve("/velkin/nymserver.asc", LinesToBytes(NymserverPage));
    m_pinger->serve("/velkin/mail2news.txt", "mail2news@news.example.org alt.anonymous\n");
    m_pinger->serve("/velkin/advisory.txt",
                    "velkin user advisory\n\nThe pinger list has changed.\n");

    // The stored pages, as the last save left them: dizum already barred,
    // "anon" and "breaka" not yet there, and one remailer of each kind that
    // has gone since.
    const QStringList servedMlist = BytesToLines(RealPage(Served, "mlist.txt"));
    const QStringList servedRlist = BytesToLines(RealPage(Served, "rlist.txt"));
    QVERIFY(WriteLines(m_env->mixFolder() + "mlist.txt",
                       renamedRow(withoutRow(servedMlist, "dizum"), "anon", "zzgone")));
    QVERIFY(WriteLines(m_env->mixFolder() + "rlist.txt",
                       renamedRow(withoutRow(servedRlist, "dizum"), "breaka", "zzoldcpk")));
    QVERIFY(WriteLines(m_env->programFolder() + "barred.txt", {"dizum", "frell,last"}));
    m_pages->barFilter = RemoveBarredRemailers;

    m_engine->runUpdate("pinger", StatsPages, suitePages);
    QVERIFY(!m_engine->isRunning());
    QVERIFY(!m_engine->wasCancelled());
    const QStringList status = statusLines();
    for (const QString& page : StatsPages)
        QVERIFY2(status.contains(page + "...ok"), qPrintable(status.join('\n')));
    for (const QString& page : suitePages)
        QVERIFY2(status.contains(page + "...good"), qPrintable(status.join('\n')));
    QCOMPARE(m_engine->lastResult(), 200);

    // Every request went the chosen way.
    const QList<TestPinger::Request> requests = m_pinger->requests();
    QCOMPARE(requests.size(), StatsPages.size() + suitePages.size());
    for (const TestPinger::Request& request : requests) {
        const QByteArray via = request.header("Via");
        if (kind == QLatin1String("HTTP"))
            QVERIFY2(via.contains("tinyproxy"), request.path.constData());
        else
            QVERIFY2(via.isEmpty(), via.constData());
    }
    if (kind == QLatin1String("HTTP")) {
        QVERIFY2(proxy->log().contains(
                     QStringLiteral("GET http://127.0.0.1:%1/pubring.mix").arg(m_pinger->port())),
                 qPrintable(proxy->log().right(2000)));
    } else if (kind == QLatin1String("SOCKS5")) {
        QVERIFY2(proxy->log().contains(
                     QStringLiteral("connected to 127.0.0.1:%1").arg(m_pinger->port())),
                 qPrintable(proxy->log()));
    }

    // New and deceased remailers right after the statistics pages; the
    // barred one is neither.
    const qsizetype changes = status.indexOf("pubring.asc...ok") + 1;
    QCOMPARE(status.mid(changes, 12), (QStringList{"", "NEW Mixmaster Remailers:", "anon", "",
                                                   "DECEASED Mixmaster Remailers:", "zzgone", "",
                                                   "NEW Cypherpunk Remailers:", "breaka", "",
                                                   "DECEASED Cypherpunk Remailers:", "zzoldcpk"}));
    QVERIFY(!status.join('\n').contains("dizum"));
    QVERIFY(m_engine->advisoryShown());
    QCOMPARE(m_ui->messageTexts().last(), QStringLiteral("The pinger list has changed."));

    const SaveResult saved = SavePages(m_ui.get(), *m_pages, m_engine->newbars, false);
    QVERIFY2(saved.ok(), qPrintable(saved.errors.join('\n')));
    QCOMPARE(saved.written, 1 + StatsPages.size() + suitePages.size());

    // The statistics pages without dizum's rows, in the order served; the
    // copies as they came.
    const QString mix = m_env->mixFolder();
    const QString program = m_env->programFolder();
    const QStringList mlist = ReadLines(mix + "mlist.txt");
    QCOMPARE(mlist, withoutRow(servedMlist, "dizum"));
    QCOMPARE(ReadLines(program + "mlist.org.txt"), servedMlist);
    const QStringList rlist = ReadLines(mix + "rlist.txt");
    QVERIFY(rlist.filter(QRegularExpression("^dizum .*%")).isEmpty());
    // frell may only be the last hop no more: it says "middle" now.
    QVERIFY(rlist.contains(
        "$remailer{\"frell\"} = \"<godot@remailer.frell.eu.org> middle cpunk max mix pgp pgponly "
        "repgp remix latent hash cut test ek ekx esub inflt50 rhop5 reord post klen1024\";"));
    QCOMPARE(ReadLines(program + "rlist.org.txt"), servedRlist);

    // pubring.mix as served, but frell a middleman; no key removed.
    QStringList expectedMix = BytesToLines(RealPage(Served, "pubring.mix"));
    const QString frellKey = "frell godot@remailer.frell.eu.org e169e0ccdc18fdf87fd69d1957b80bce "
                             "2:3.0 CNm 2012-04-23 2013-05-18";
    const qsizetype frellAt = expectedMix.indexOf(frellKey);
    QVERIFY(frellAt >= 0);
    expectedMix[frellAt] = "frell godot@remailer.frell.eu.org e169e0ccdc18fdf87fd69d1957b80bce "
                           "2:3.0 CNmM 2012-04-23 2013-05-18";
    const QStringList pubringMix = ReadLines(mix + "pubring.mix");
    QCOMPARE(pubringMix, expectedMix);

    // type2.list: the header line above each key block, in order.
    QStringList headers;
    for (qsizetype i = 0; i + 2 < pubringMix.size(); ++i) {
        if (pubringMix.at(i + 1).isEmpty() && pubringMix.at(i + 2) == "-----Begin Mix Key-----")
            headers.append(pubringMix.at(i));
    }
    QCOMPARE(headers.size(), 27);
    QCOMPARE(ReadLines(mix + "type2.list"), headers);
    QCOMPARE(TheSuiteDataFile()->database->readValue("type2.list"), PageDate.toString(Qt::ISODate));

    // pubring.asc as served, then the nymserver key without its preamble.
    QCOMPARE(ReadLines(mix + "pubring.asc"),
             BytesToLines(RealPage(Served, "pubring.asc")) + NymserverPage.mid(2));
    QCOMPARE(ReadLines(program + "nymserver.asc"), NymserverPage);
    QCOMPARE(ReadLines(program + "mail2news.txt"),
             QStringList{"mail2news@news.example.org alt.anonymous"});
    QVERIFY(QFile::exists(program + "advisory.txt"));
    QCOMPARE(ReadLines(program + "status.txt"), status);
    for (const QString& page : StatsPages)
        QCOMPARE(TheSuiteDataFile()->database->readValue(page), PageDate.toString(Qt::ISODate));
}

void TestEngineRun::misbehavingPinger_data() {
    QTest::addColumn<QString>("page");
    QTest::addColumn<TestPinger::Route>("route");
    QTest::addColumn<int>("timeout");
    QTest::addColumn<QString>("word");
    // The page was refused and the run had to look for another source.
    QTest::addColumn<bool>("fallsBack");
    // A line the status page shows below the page's line.
    QTest::addColumn<QString>("shown");

    using Mode = TestPinger::Mode;
    const QString exception = UpdateEngine::resultWord(-5001);
    const QString timedOut = UpdateEngine::resultWord(-5003);

    TestPinger::Route endless;
    endless.mode = Mode::Endless;
    QTest::newRow("endless body") << "mlist.txt" << endless << 60 << exception << false
                                  << QString();

    // Announced with its length, so refused before it comes.
    TestPinger::Route huge;
    huge.body = QByteArray(16 * 1024 * 1024 + 1, 'A');
    QTest::newRow("body over the cap")
        << "pubring.mix" << huge << 60 << exception << false << QString();

    TestPinger::Route drip;
    drip.mode = Mode::Drip;
    drip.body = RealPage(Served, "mlist.txt");
    drip.dripBytes = 16;
    drip.dripIntervalMs = 200;
    QTest::newRow("slow drip past the time-out")
        << "mlist.txt" << drip << 2 << timedOut << true << QString();

    TestPinger::Route reset;
    reset.mode = Mode::ResetMidway;
    reset.body = RealPage(Served, "rlist.txt");
    QTest::newRow("reset in the middle")
        << "rlist.txt" << reset << 5 << exception << false << QString();

    TestPinger::Route unavailable;
    unavailable.status = 503;
    unavailable.body = "<html>\n<head><title>503</title></head>\n<body>\n"
                       "<h1>Service Unavailable</h1>\n</body>\n</html>\n";
    unavailable.headers.append(TestPinger::Header{"Content-Type", "text/html"});
    QTest::newRow("5xx with an HTML page") << "mlist.txt" << unavailable << 5 << "http error"
                                           << true << "<h1>Service Unavailable</h1>";

    TestPinger::Route errorPage;
    errorPage.body = "<html><body>Database error, try later</body></html>\n";
    errorPage.headers.append(TestPinger::Header{"Content-Type", "text/html"});
    QTest::newRow("200 with an HTML error page")
        << "pubring.mix" << errorPage << 5 << "failed error checks" << true << QString();

    TestPinger::Route garbage;
    garbage.mode = Mode::Garbage;
    QTest::newRow("binary garbage")
        << "pubring.mix" << garbage << 5 << exception << false << QString();

    TestPinger::Route loop;
    loop.status = 302;
    loop.headers.append(TestPinger::Header{"Location", "/rlist.txt"});
    QTest::newRow("redirect loop") << "rlist.txt" << loop << 5 << exception << false << QString();

    TestPinger::Route silent;
    silent.mode = Mode::Silent;
    QTest::newRow("never answers") << "mlist.txt" << silent << 2 << timedOut << true << QString();
}

void TestEngineRun::misbehavingPinger() {
    QFETCH(QString, page);
    QFETCH(TestPinger::Route, route);
    QFETCH(int, timeout);
    QFETCH(QString, word);
    QFETCH(bool, fallsBack);
    QFETCH(QString, shown);

    IniFile(IniFileName()).writeInteger("stats", "timeoutseconds", timeout);
    writeUrls({"advisory.txt"});
    serveStatsPages();
    m_pinger->setRoute('/' + page, route);
    m_pinger->serve("/velkin/advisory.txt", "velkin user advisory\nAll is well.\n");

    // Good pages of an older day are on disk.
    QHash<QString, QByteArray> old;
    for (const QString& name : StatsPages + QStringList{"type2.list"}) {
        old.insert(name, RealPage(Stored, name));
        QVERIFY(!old.value(name).isEmpty());
        TempEnvironment::writeFile(m_env->mixFolder() + name, old.value(name));
    }

    m_engine->runUpdate("pinger", StatsPages, {"advisory.txt"});
    QVERIFY(!m_engine->isRunning());
    QCOMPARE(m_ui->statusTexts.last(), QStringLiteral("Update complete!"));

    const QStringList status = statusLines();
    const QString statusText = status.join('\n');
    const qsizetype at = status.indexOf(page + "..." + word);
    QVERIFY2(at > 0, qPrintable(statusText));
    if (!shown.isEmpty())
        QVERIFY2(status.indexOf(shown, at) > at, qPrintable(statusText));
    // With one stats source there is nowhere to fall back to.
    const qsizetype sorry = status.indexOf("Sorry, I failed completely!", at);
    QCOMPARE(sorry > at, fallsBack);
    if (fallsBack)
        QCOMPARE(status.at(sorry - 1),
                 QStringLiteral("There is something wrong and it is not your stats source!"));
    QVERIFY(!status.contains("next source..."));

    // The rest of the run came as usual.
    for (const QString& other : StatsPages) {
        if (other != page)
            QVERIFY2(status.contains(other + "...ok"), qPrintable(statusText));
    }
    QVERIFY2(status.contains("advisory.txt...good"), qPrintable(statusText));

    const SaveResult saved = SavePages(m_ui.get(), *m_pages, m_engine->newbars, false);
    QVERIFY2(saved.ok(), qPrintable(saved.errors.join('\n')));
    // The status page, three good pages and the advisory.
    QCOMPARE(saved.written, 5);

    // The good page on disk stays; so does the list derived from it.
    const QString mix = m_env->mixFolder();
    QVERIFY2(TempEnvironment::readFile(mix + page) == old.value(page),
             qPrintable(page + " was replaced"));
    if (page == QLatin1String("pubring.mix"))
        QVERIFY(TempEnvironment::readFile(mix + "type2.list") == old.value("type2.list"));
    else
        QVERIFY(TempEnvironment::readFile(mix + "type2.list") != old.value("type2.list"));
    for (const QString& other : StatsPages) {
        if (other != page)
            QVERIFY2(TempEnvironment::readFile(mix + other) != old.value(other),
                     qPrintable(other + " was not saved"));
    }
    QCOMPARE(ReadLines(mix + "pubring.asc"), BytesToLines(RealPage(Served, "pubring.asc")));
    QVERIFY(TheSuiteDataFile()->database->readValue(page).isEmpty());
}

// A page whose Last-Modified cannot be read is a good page with no date:
// it is saved, its date is stored empty, and the next unattended run asks
// for it whole instead of sending a date the pinger never gave.
void TestEngineRun::unreadableLastModified() {
    writeUrls({});
    serveStatsPages();
    TestPinger::Route route;
    route.body = RealPage(Served, "mlist.txt");
    route.headers.append(TestPinger::Header{"Last-Modified", "last Tuesday, probably"});
    m_pinger->setRoute("/mlist.txt", route);
    const QByteArray old = RealPage(Stored, "mlist.txt");
    TempEnvironment::writeFile(m_env->mixFolder() + "mlist.txt", old);

    m_engine->runUpdate("pinger", StatsPages, {});
    const QStringList status = statusLines();
    for (const QString& page : StatsPages)
        QVERIFY2(status.contains(page + "...ok"), qPrintable(status.join('\n')));
    const SaveResult saved = SavePages(m_ui.get(), *m_pages, m_engine->newbars, false);
    QVERIFY2(saved.ok(), qPrintable(saved.errors.join('\n')));
    QCOMPARE(ReadLines(m_env->mixFolder() + "mlist.txt"),
             BytesToLines(RealPage(Served, "mlist.txt")));
    QVERIFY(TheSuiteDataFile()->database->readValue("mlist.txt").isEmpty());
    QCOMPARE(TheSuiteDataFile()->database->readValue("rlist.txt"), PageDate.toString(Qt::ISODate));

    m_pinger->clearLog();
    m_engine->runUpdate("pinger", StatsPages, {});
    const QStringList again = statusLines();
    QVERIFY2(again.contains("mlist.txt...ok"), qPrintable(again.join('\n')));
    QVERIFY2(again.contains("rlist.txt...good"), qPrintable(again.join('\n')));
    for (const TestPinger::Request& request : m_pinger->requests())
        QCOMPARE(request.hasHeader("If-Modified-Since"), request.path != "/mlist.txt");
}

// Tor stopped in the middle of a run: what it was carrying fails, and not
// one request reaches the pinger without going through the proxy.
void TestEngineRun::proxyVanishesMidRun() {
    ProxyProcess proxy(ProxyProcess::Kind::Tinyproxy);
    if (!proxy.start())
        QSKIP(qPrintable("tinyproxy could not be started: " + proxy.errorString()));
    m_engine->proxySettings = {"kind=HTTP", "host=127.0.0.1",
                               "port=" + QString::number(proxy.port())};
    writeUrls({});
    serveStatsPages();
    connect(m_pinger.get(), &TestPinger::requestReceived, m_pinger.get(),
            [&proxy](const TestPinger::Request& request) {
                if (request.path == "/pubring.mix")
                    proxy.stop();
            });

    m_engine->runUpdate("pinger", StatsPages, {});
    // Pages travel side by side, so which of them the proxy was carrying
    // when it went depends on timing; at least one fails, none goes around.
    const QStringList status = statusLines();
    QVERIFY2(!status.filter("..." + UpdateEngine::resultWord(-5001)).isEmpty(),
             qPrintable(status.join('\n')));
    const QList<TestPinger::Request> requests = m_pinger->requests();
    QVERIFY(!requests.isEmpty());
    for (const TestPinger::Request& request : requests)
        QVERIFY2(request.header("Via").contains("tinyproxy"), request.path.constData());
}

QTEST_GUILESS_MAIN(TestEngineRun)
#include "tst_enginerun.moc"
