#include "HttpGet.h"
#include "ProxyProcess.h"
#include "TestData.h"
#include "TestFrontEnd.h"
#include "TestPinger.h"
#include "TextFile.h"

#include <QElapsedTimer>
#include <QFile>
#include <QScopeGuard>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslSocket>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>
#include <QTimer>

#include <algorithm>

namespace {

// How long past its time-out a fetch may take before it counts as hung. Wide
// on purpose: the point is that it returns, not how exactly.
constexpr qint64 SlackMs = 3000;
const QDateTime PageDate(QDate(2026, 3, 1), QTime(12, 0, 0), Qt::UTC);
const QString OnionUrl = QStringLiteral(
    "http://vkstatsxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx.onion/mlist.txt");

struct Fetch {
    int code = 0;
    QStringList lines;
    QDateTime lastModified;
    qint64 elapsedMs = 0;
};

Fetch fetch(HttpSession& session, const QString& url, const QStringList& proxy = {},
            int timeout = 2, const QDateTime& since = {}, FrontEnd* ui = nullptr,
            const bool* cancel = nullptr) {
    Fetch result;
    result.lastModified = since;
    QElapsedTimer clock;
    clock.start();
    result.code =
        session.HTTPGet(ui, url, result.lines, proxy, cancel, timeout, result.lastModified);
    result.elapsedMs = clock.elapsed();
    return result;
}

// A port on which nothing listens.
quint16 closedPort() {
    QTcpServer probe;
    return probe.listen(QHostAddress::LocalHost, 0) ? probe.serverPort() : 0;
}

QStringList settingsFor(const QString& kind, quint16 port, const QString& user = {},
                        const QString& password = {}) {
    return {"kind=" + kind, "host=127.0.0.1", "port=" + QString::number(port), "user=" + user,
            "password=" + password};
}

// A route from table words apart by '|' (see TestPinger::applyRouteWords).
TestPinger::Route routeOf(const QString& words, const QByteArray& body = {}) {
    TestPinger::Route route;
    route.body = body;
    const QString problem =
        TestPinger::applyRouteWords(route, words.split(u'|', Qt::SkipEmptyParts));
    if (!problem.isEmpty())
        qFatal("%s", qPrintable(problem));
    return route;
}

int codeNamed(const QString& name) {
    static const QHash<QString, int> codes = {{"ok", HttpCode::Ok},
                                              {"notmodified", HttpCode::NotModified},
                                              {"httperror", HttpCode::HttpError},
                                              {"transfer", HttpCode::TransferError},
                                              {"timedout", HttpCode::TimedOut},
                                              {"library", HttpCode::LibraryError}};
    if (!codes.contains(name))
        qFatal("unknown code %s", qPrintable(name));
    return codes.value(name);
}

// "-": no lines; "=a|b": exactly these lines; "~text": the lines hold text;
// "#N": the lines make N bytes.
void checkLines(const QStringList& lines, const QString& expected) {
    const QString all = lines.join(u'\n');
    const QString rest = expected.mid(1);
    if (expected == u'-')
        QVERIFY2(lines.isEmpty(), qPrintable(all.left(200)));
    else if (expected.startsWith(u'='))
        QCOMPARE(lines, rest.split(u'|'));
    else if (expected.startsWith(u'~'))
        QVERIFY2(all.contains(rest), qPrintable(all.left(500)));
    else
        QCOMPARE(lines.isEmpty() ? 0 : LinesToBytes(lines).size(), rest.toLongLong());
}

int requestsFor(const TestPinger& pinger, const QByteArray& path) {
    const QList<TestPinger::Request> requests = pinger.requests();
    return int(std::count_if(requests.cbegin(), requests.cend(),
                             [&](const TestPinger::Request& r) { return r.path == path; }));
}

// A SOCKS5 server that notes what it is asked (credentials, address type,
// host name) and answers that the host cannot be reached: it shows what a
// fetch hands to Tor, and that no name was looked up before.
class SocksRecorder : public QTcpServer {
public:
    struct Ask {
        QByteArray user, password, host;
        int addressType = 0;
    };
    QList<Ask> asks;

    SocksRecorder() {
        listen(QHostAddress::LocalHost, 0);
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = nextPendingConnection())
                connect(socket, &QTcpSocket::readyRead, this, [this, socket] { step(socket); });
        });
    }

private:
    struct Talk {
        QByteArray in;
        int stage = 0;
        Ask ask;
    };
    QHash<QTcpSocket*, Talk> m_talks;

    // Answers each whole message of the talk's stage as it comes.
    void step(QTcpSocket* socket) {
        Talk& t = m_talks[socket];
        t.in += socket->readAll();
        const auto at = [&](qsizetype i) {
            return i < t.in.size() ? int(quint8(t.in[i])) : -1;
        };
        if (t.stage == 0 && at(1) >= 0 && t.in.size() >= 2 + at(1)) { // methods
            const bool password = t.in.mid(2, at(1)).contains('\x02');
            socket->write(password ? "\x05\x02" : "\x05\x00", 2);
            t.in.remove(0, 2 + at(1));
            t.stage = password ? 1 : 2;
        }
        const int userLength = at(1);
        const int passwordLength = userLength < 0 ? -1 : at(2 + userLength);
        if (t.stage == 1 && passwordLength >= 0 &&
            t.in.size() >= 3 + userLength + passwordLength) { // user and password
            t.ask.user = t.in.mid(2, userLength);
            t.ask.password = t.in.mid(3 + userLength, passwordLength);
            socket->write("\x01\x00", 2);
            t.in.remove(0, 3 + userLength + passwordLength);
            t.stage = 2;
        }
        const int type = at(3);
        if (t.stage == 2 && type >= 0 && at(4) >= 0 &&
            t.in.size() >= (type == 3   ? 7 + at(4)
                            : type == 1 ? 10
                                        : 22)) { // the connect
            t.ask.addressType = type;
            t.ask.host = type == 3 ? t.in.mid(5, at(4)) : QByteArray();
            asks.append(t.ask);
            socket->write("\x05\x04\x00\x01\x00\x00\x00\x00\x00\x00", 10);
            socket->disconnectFromHost();
            t.stage = 3;
        }
    }
};

} // namespace

class TestHttpGet : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void cases_data() { AddTableRows(QStringLiteral("httpget.txt")); }
    void cases();
    void requestsSayNothingAboutTheUser();
    void cancel();
    void reportsProgress();
    void oneSessionOneConnection();
    void https_data();
    void https();
    void httpProxyErrorPageShown();
    void socksStreamsKeptApartByCredentials();
    void socksGetsNamesAndRunCredentials();
    void prefetchedPagesTakenOver();
    // Last: once the application has been told to quit, no event loop of
    // this process runs again.
    void applicationQuitEndsFetch();

private:
    void fetchCase(const QStringList& f);
    void proxyCase(const QStringList& f);
    TestPinger m_pinger;
};

void TestHttpGet::initTestCase() {
    QVERIFY(m_pinger.listen());
    // Redirects: up to five are followed, relative or absolute.
    m_pinger.serve(QStringLiteral("/r0"), "arrived\n");
    for (int i = 1; i <= 6; ++i) {
        const QString next = QStringLiteral("/r%1").arg(i - 1);
        m_pinger.redirect(QStringLiteral("/r%1").arg(i), i % 2 ? next : m_pinger.url(next),
                          i % 3 ? 302 : 301);
    }
}

void TestHttpGet::cases() {
    QFETCH(QStringList, f);
    if (f[0] == "fetch")
        fetchCase(f);
    else
        proxyCase(f);
}

// One fetch: url, route, body, proxy, since, time-out, cap, code, lines,
// Last-Modified out, If-Modified-Since sent, requests the pinger saw.
void TestHttpGet::fetchCase(const QStringList& f) {
    QString high;
    for (int i = 0x80; i <= 0xff; ++i)
        high += QChar(i);
    if (f[2] != u'-')
        m_pinger.setRoute(f[1], routeOf(f[2], QString(f[3]).replace("@high", high).toLatin1()));
    QStringList proxy;
    if (f[4] != u'-')
        proxy = settingsFor(f[4].section(u':', 0, 0),
                            f[4].endsWith("closed") ? closedPort() : m_pinger.port());
    const int timeout = f[6].toInt();
    const int expected = codeNamed(f[8]);
    m_pinger.clearLog();
    HttpSession session;
    if (f[7].toLongLong() > 0)
        session.setMaxBytes(f[7].toLongLong());
    const QString url = f[1].startsWith(u'/') ? m_pinger.url(f[1])
                        : f[1].startsWith("closed/")
                            ? QStringLiteral("http://127.0.0.1:%1/").arg(closedPort()) + f[1].mid(7)
                        : f[1] == "onion" ? OnionUrl
                                          : f[1];

    const Fetch got = fetch(session, url, proxy, timeout, QDateTime::fromString(f[5], Qt::ISODate));
    QVERIFY2(got.code == expected,
             qPrintable(QStringLiteral("got %1 (%2)").arg(got.code).arg(session.lastErrorText())));
    QVERIFY2(got.elapsedMs < timeout * 1000 + SlackMs,
             qPrintable(QStringLiteral("took %1 ms").arg(got.elapsedMs)));
    checkLines(got.lines, QString(f[9]).replace("@high", high));
    if (expected == HttpCode::Ok)
        QVERIFY(session.lastErrorText().isEmpty());
    else if (expected != HttpCode::NotModified)
        QVERIFY(!session.lastErrorText().isEmpty() && !got.lastModified.isValid());
    if (f[10] != u'*')
        QCOMPARE(got.lastModified.toUTC(), QDateTime::fromString(f[10], Qt::ISODate).toUTC());

    const QList<TestPinger::Request> requests = m_pinger.requests();
    if (f[12] == u'+')
        QVERIFY(!requests.isEmpty());
    else
        QCOMPARE(requests.size(), f[12].toInt());
    if (f[11] != u'*')
        QCOMPARE(requests.value(0).header("If-Modified-Since"),
                 f[11] == u'-' ? QByteArray() : f[11].toLatin1());
    for (const TestPinger::Request& request : requests)
        QCOMPARE(request.header("Host"), "127.0.0.1:" + QByteArray::number(m_pinger.port()));
}

void TestHttpGet::proxyCase(const QStringList& f) {
    QNetworkProxy proxy(QNetworkProxy::DefaultProxy);
    QString error;
    const bool ok = HttpSession::proxyFromSettings(f[1] == u'-' ? QStringList() : f[1].split(u'|'),
                                                   proxy, &error);
    QCOMPARE(ok, f[2] != "refused");
    QCOMPARE(error.isEmpty(), ok);
    if (!ok)
        return;
    const QString type = proxy.type() == QNetworkProxy::NoProxy       ? QStringLiteral("none")
                         : proxy.type() == QNetworkProxy::HttpProxy   ? QStringLiteral("http")
                         : proxy.type() == QNetworkProxy::Socks5Proxy ? QStringLiteral("socks5")
                                                                      : QStringLiteral("other");
    if (type == "none") {
        QCOMPARE(type, f[2]);
        return;
    }
    QCOMPARE(QStringList({type, proxy.hostName(), QString::number(proxy.port()), proxy.user(),
                          proxy.password()})
                 .join(u' '),
             f[2]);
    // Names go to the proxy unresolved: no lookups past Tor.
    QVERIFY(proxy.capabilities().testFlag(QNetworkProxy::HostNameLookupCapability));
}

// Every request carries the same fixed headers, whatever the desktop's
// language, and a cookie a pinger sets is never sent back.
void TestHttpGet::requestsSayNothingAboutTheUser() {
    m_pinger.setRoute(QStringLiteral("/cookie"),
                      routeOf(QStringLiteral("header=Set-Cookie:visitor=42; Path=/"), "page\n"));
    m_pinger.serve(QStringLiteral("/page"), "page\n");
    m_pinger.clearLog();
    HttpSession session;
    QCOMPARE(fetch(session, m_pinger.url(QStringLiteral("/cookie"))).code, HttpCode::Ok);
    QCOMPARE(fetch(session, m_pinger.url(QStringLiteral("/page")), {}, 2, PageDate).code,
             HttpCode::Ok);
    QCOMPARE(m_pinger.requests().size(), 2);
    for (const TestPinger::Request& request : m_pinger.requests()) {
        QStringList names;
        for (const TestPinger::Header& header : request.headers)
            names << QString::fromLatin1(header.first);
        names.removeAll(QStringLiteral("If-Modified-Since"));
        names.sort();
        QCOMPARE(names, (QStringList{"Accept-Encoding", "Accept-Language", "Connection", "Host",
                                     "User-Agent"}));
        QCOMPARE(request.header("User-Agent"), QByteArray("VKstats/" VKSTATS_VERSION));
        QCOMPARE(request.header("Accept-Language"), QByteArray("en"));
        QVERIFY(request.header("Accept-Encoding").contains("deflate"));
    }
}

void TestHttpGet::cancel() {
    // Cancelled before the start: nothing is sent.
    m_pinger.serve(QStringLiteral("/page"), "page\n");
    m_pinger.clearLog();
    bool stop = true;
    HttpSession session;
    Fetch got = fetch(session, m_pinger.url(QStringLiteral("/page")), {}, 2, {}, nullptr, &stop);
    QCOMPARE(got.code, HttpCode::TransferError);
    QVERIFY(m_pinger.requests().isEmpty());

    // A minute's worth of dripping; only the cancel can end it early.
    m_pinger.setRoute(QStringLiteral("/slow"), routeOf(QStringLiteral("lines=6400|drip=16/150")));
    stop = false;
    QTimer::singleShot(300, [&stop] { stop = true; });
    TestFrontEnd ui;
    got = fetch(session, m_pinger.url(QStringLiteral("/slow")), {}, 30, {}, &ui, &stop);
    QCOMPARE(got.code, HttpCode::TransferError);
    QVERIFY(got.lines.isEmpty());
    QVERIFY2(got.elapsedMs < 5000, qPrintable(QStringLiteral("took %1 ms").arg(got.elapsedMs)));
}

void TestHttpGet::reportsProgress() {
    const QByteArray body = TestPinger::linesOfSize(64 * 1024);
    m_pinger.setRoute(QStringLiteral("/progress"), routeOf(QStringLiteral("drip=4096/15"), body));
    HttpSession session;
    TestFrontEnd ui;
    const Fetch got = fetch(session, m_pinger.url(QStringLiteral("/progress")), {}, 10, {}, &ui);
    QCOMPARE(got.code, HttpCode::Ok);
    QCOMPARE(LinesToBytes(got.lines), body);
    const QList<int>& steps = ui.progress;
    QVERIFY2(steps.size() >= 3, qPrintable(QStringLiteral("%1 steps").arg(steps.size())));
    QCOMPARE(steps.constFirst(), 0);
    QCOMPARE(steps.constLast(), 100);
    QVERIFY(std::is_sorted(steps.cbegin(), steps.cend()));
    QVERIFY(std::any_of(steps.cbegin(), steps.cend(), [](int p) { return p > 0 && p < 100; }));
}

// One session: one connection for all its pages; the free HTTPGet, a
// session per page, shows that the counting can tell.
void TestHttpGet::oneSessionOneConnection() {
    const QStringList pages = {"/mlist.txt", "/rlist.txt", "/pubring.mix"};
    for (const QString& page : pages)
        m_pinger.serve(page, "page\n");
    int before = m_pinger.connectionCount();
    {
        HttpSession session;
        for (const QString& page : pages)
            QCOMPARE(fetch(session, m_pinger.url(page)).code, HttpCode::Ok);
    }
    QCOMPARE(m_pinger.connectionCount() - before, 1);
    before = m_pinger.connectionCount();
    for (const QString& page : pages) {
        QStringList lines;
        QDateTime none;
        QCOMPARE(HTTPGet(nullptr, m_pinger.url(page), lines, {}, nullptr, 2, none), HttpCode::Ok);
    }
    QCOMPARE(m_pinger.connectionCount() - before, 3);
}

void TestHttpGet::https_data() {
    QTest::addColumn<bool>("tls");     // the URL names the https pinger
    QTest::addColumn<QString>("path"); // "/down" redirects to the plain pinger
    QTest::addColumn<bool>("trusted"); // its certificate is trusted for this row
    QTest::addColumn<int>("expected");
    QTest::newRow("trusted") << true << "/page" << true << HttpCode::Ok;
    QTest::newRow("self-signed refused") << true << "/page" << false << HttpCode::TransferError;
    QTest::newRow("to http refused") << true << "/down" << true << HttpCode::TransferError;
    QTest::newRow("plain server") << false << "/page" << true << HttpCode::TransferError;
}

void TestHttpGet::https() {
    QFETCH(bool, tls);
    QFETCH(QString, path);
    QFETCH(bool, trusted);
    QFETCH(int, expected);
    if (!QSslSocket::supportsSsl())
        QSKIP("no TLS backend");
    QFile certFile(QStringLiteral(VK_TESTDATA "/tls/pinger.crt"));
    QFile keyFile(QStringLiteral(VK_TESTDATA "/tls/pinger.key"));
    QVERIFY(certFile.open(QIODevice::ReadOnly) && keyFile.open(QIODevice::ReadOnly));
    const QSslCertificate certificate(certFile.readAll(), QSsl::Pem);
    QSslConfiguration server = QSslConfiguration::defaultConfiguration();
    server.setLocalCertificate(certificate);
    server.setPrivateKey(QSslKey(keyFile.readAll(), QSsl::Rsa, QSsl::Pem));
    server.setPeerVerifyMode(QSslSocket::VerifyNone);
    TestPinger tlsPinger;
    QVERIFY(tlsPinger.listenTls(server));
    tlsPinger.serve(QStringLiteral("/page"), "secure page\n");
    tlsPinger.redirect(QStringLiteral("/down"), m_pinger.url(QStringLiteral("/page")));
    m_pinger.serve(QStringLiteral("/page"), "page\n");
    m_pinger.clearLog();

    const QSslConfiguration saved = QSslConfiguration::defaultConfiguration();
    const auto restore = qScopeGuard([&] { QSslConfiguration::setDefaultConfiguration(saved); });
    if (trusted) {
        QSslConfiguration trusting = saved;
        trusting.addCaCertificate(certificate);
        QSslConfiguration::setDefaultConfiguration(trusting);
    }
    const QString url =
        tls ? tlsPinger.url(path)
            : QStringLiteral("https://127.0.0.1:%1%2").arg(m_pinger.port()).arg(path);
    HttpSession session;
    const Fetch got = fetch(session, url, {}, 5);
    QCOMPARE(got.code, expected);
    QCOMPARE(got.lines, expected == HttpCode::Ok ? QStringList{"secure page"} : QStringList());
    QCOMPARE(requestsFor(m_pinger, "/page"), 0);
    QCOMPARE(tlsPinger.requests().size(), tls && trusted ? 1 : 0);
}

// An HTTP proxy that cannot reach the pinger says so with an error page of
// its own, which comes back as the answer.
void TestHttpGet::httpProxyErrorPageShown() {
    ProxyProcess proxy(ProxyProcess::Kind::Tinyproxy);
    if (!proxy.start())
        QSKIP(qPrintable("tinyproxy could not be started: " + proxy.errorString()));
    HttpSession session;
    const Fetch got = fetch(session, QStringLiteral("http://127.0.0.1:%1/x").arg(closedPort()),
                            proxy.settings(), 5);
    QCOMPARE(got.code, HttpCode::HttpError);
    QVERIFY2(got.lines.join(u'\n').contains("tinyproxy"), qPrintable(got.lines.join(u'\n')));
}

// A real SOCKS5 proxy that wants a password: one stream for a session's
// pages with the same credentials; others get a stream of their own (Tor
// keeps them on other circuits), which this proxy refuses.
void TestHttpGet::socksStreamsKeptApartByCredentials() {
    ProxyProcess proxy(ProxyProcess::Kind::Microsocks);
    if (!proxy.start(QStringLiteral("vkstats"), QStringLiteral("correct horse")))
        QSKIP(qPrintable("microsocks could not be started: " + proxy.errorString()));
    m_pinger.serve(QStringLiteral("/a"), "socks page\n");
    m_pinger.serve(QStringLiteral("/b"), "b\n");
    m_pinger.clearLog();
    const int before = m_pinger.connectionCount();
    HttpSession session;
    Fetch got = fetch(session, m_pinger.url(QStringLiteral("/a")), proxy.settings(), 5);
    QCOMPARE(got.code, HttpCode::Ok);
    QCOMPARE(got.lines, QStringList{QStringLiteral("socks page")});
    QCOMPARE(fetch(session, m_pinger.url(QStringLiteral("/b")), proxy.settings(), 5).code,
             HttpCode::Ok);
    QCOMPARE(m_pinger.connectionCount() - before, 1);
    for (const auto& [user, password] : QList<std::pair<QString, QString>>{
             {"bob", "two"}, {"vkstats", "wrong horse"}, {QString(), QString()}}) {
        got = fetch(session, m_pinger.url(QStringLiteral("/a")), proxy.settings(user, password), 5);
        QVERIFY2(got.code == HttpCode::LibraryError, qPrintable(user + u'/' + password));
        QVERIFY(got.lines.isEmpty());
    }
    QCOMPARE(m_pinger.requests().size(), 2);
    // Through the proxy to a port where nothing listens: refused, said at once.
    const QString closed = QStringLiteral("http://127.0.0.1:%1/x").arg(closedPort());
    QCOMPARE(fetch(session, closed, proxy.settings(), 2).code, HttpCode::TransferError);
}

void TestHttpGet::socksGetsNamesAndRunCredentials() {
    SocksRecorder socks;
    const QStringList none = settingsFor(QStringLiteral("socks5"), socks.serverPort());
    const QStringList own = settingsFor(QStringLiteral("socks5"), socks.serverPort(),
                                        QStringLiteral("alice"), QStringLiteral("secret"));
    const QString invalid = QStringLiteral("http://pinger.invalid/mlist.txt");
    {
        HttpSession run;
        QCOMPARE(fetch(run, invalid, none).code, HttpCode::TimedOut);
        QCOMPARE(fetch(run, OnionUrl, none).code, HttpCode::TimedOut);
    }
    HttpSession nextRun;
    QCOMPARE(fetch(nextRun, invalid, none).code, HttpCode::TimedOut);
    QCOMPARE(fetch(nextRun, invalid, own).code, HttpCode::TimedOut);

    const QList<SocksRecorder::Ask>& asks = socks.asks;
    QCOMPARE(asks.size(), 4);
    // Names go to the proxy as names (address type 3), never as addresses
    // found here: "pinger.invalid" has none.
    const QList<QByteArray> hosts = {"pinger.invalid", QUrl(OnionUrl).host().toLatin1(),
                                     "pinger.invalid", "pinger.invalid"};
    for (int i = 0; i < asks.size(); ++i) {
        QCOMPARE(asks[i].addressType, 3);
        QCOMPARE(asks[i].host, hosts[i]);
    }
    // Without credentials of its own, each run makes up its own pair: one
    // circuit per run, a new one for the next.
    QVERIFY(asks[0].user.size() >= 16 && asks[0].password.size() >= 16);
    QCOMPARE(asks[1].user, asks[0].user);
    QCOMPARE(asks[1].password, asks[0].password);
    QVERIFY(asks[2].user != asks[0].user && asks[2].password != asks[0].password);
    QCOMPARE(asks[3].user + ':' + asks[3].password, QByteArray("alice:secret"));
}

void TestHttpGet::prefetchedPagesTakenOver() {
    m_pinger.serve(QStringLiteral("/early"), "early page\n", PageDate);
    m_pinger.serve(QStringLiteral("/too-big"), TestPinger::linesOfSize(4096));
    m_pinger.clearLog();
    HttpSession session;
    session.setMaxBytes(1024);
    const QString early = m_pinger.url(QStringLiteral("/early"));
    session.prefetch(early, {}, {});
    session.prefetch(m_pinger.url(QStringLiteral("/too-big")), {}, {});
    session.prefetch(QStringLiteral("file:///etc/hostname"), {}, {}); // refused, as by HTTPGet
    QTRY_COMPARE(m_pinger.requests().size(), 2);

    // The same request takes the transfer over; the size cap still holds.
    const Fetch got = fetch(session, early);
    QCOMPARE(got.code, HttpCode::Ok);
    QCOMPARE(got.lines, QStringList{QStringLiteral("early page")});
    QCOMPARE(got.lastModified, PageDate);
    QCOMPARE(fetch(session, m_pinger.url(QStringLiteral("/too-big"))).code,
             HttpCode::TransferError);
    QCOMPARE(m_pinger.requests().size(), 2);
    // Another date is another request.
    session.prefetch(early, {}, PageDate.addDays(-1));
    QCOMPARE(fetch(session, early, {}, 2, PageDate).code, HttpCode::NotModified);
    QTRY_COMPARE(requestsFor(m_pinger, "/early"), 3);
}

void TestHttpGet::applicationQuitEndsFetch() {
    // The window closing during an update quits every event loop, the
    // fetch's own too: half a page must not come back as a page.
    m_pinger.setRoute(QStringLiteral("/quit"), routeOf(QStringLiteral("lines=6400|drip=16/150")));
    QTimer::singleShot(300, [] { QCoreApplication::exit(0); });
    HttpSession session;
    const Fetch got = fetch(session, m_pinger.url(QStringLiteral("/quit")), {}, 30);
    QCOMPARE(got.code, HttpCode::TransferError);
    QVERIFY(got.lines.isEmpty());
    QVERIFY2(got.elapsedMs < 5000, qPrintable(QStringLiteral("took %1 ms").arg(got.elapsedMs)));
}

QTEST_GUILESS_MAIN(TestHttpGet)
#include "tst_httpget.moc"
