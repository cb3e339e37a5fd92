#include "HttpGet.h"
#include "ProxyProcess.h"
#include "SuiteDatabase.h"
#include "TestData.h"
#include "TestFrontEnd.h"
#include "TestPinger.h"
#include "TextFile.h"

#include <QElapsedTimer>
#include <QFile>
#include <QHash>
#include <QHostInfo>
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
const QByteArray PageDateText = "Sun, 01 Mar 2026 12:00:00 GMT";

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

QByteArray highBytes() {
    QByteArray bytes;
    for (int i = 0x80; i <= 0xff; ++i)
        bytes.append(char(i));
    return bytes;
}

// A port on which nothing listens.
quint16 closedPort() {
    QTcpServer probe;
    if (!probe.listen(QHostAddress::LocalHost, 0))
        return 0;
    return probe.serverPort();
}

QStringList settingsFor(const QString& kind, quint16 port) {
    return {QStringLiteral("kind=") + kind, QStringLiteral("host=127.0.0.1"),
            QStringLiteral("port=") + QString::number(port), QStringLiteral("user="),
            QStringLiteral("password=")};
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

const QString OnionUrl = QStringLiteral(
    "http://vkstatsxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx.onion/mlist.txt");

// A SOCKS5 server that notes what it is asked (credentials, address type,
// host name) and answers that the host cannot be reached: it shows what a
// fetch hands to Tor, and that no name was looked up before.
class SocksRecorder : public QTcpServer {
public:
    struct Ask {
        QByteArray user;
        QByteArray password;
        int addressType = 0;
        QByteArray host;
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

    void step(QTcpSocket* socket) {
        Talk& talk = m_talks[socket];
        talk.in += socket->readAll();
        for (qsizetype used = consume(socket, talk); used > 0; used = consume(socket, talk))
            talk.in.remove(0, used);
    }

    // Answers one whole message of the talk's stage and returns its size;
    // 0 while more bytes are needed.
    qsizetype consume(QTcpSocket* socket, Talk& talk) {
        const QByteArray& in = talk.in;
        const auto byte = [&](qsizetype i) {
            return i < in.size() ? int(quint8(in[i])) : -1;
        };
        switch (talk.stage) {
        case 0: { // version, method count, methods: user/password when offered
            const int count = byte(1);
            if (count < 0 || in.size() < 2 + count)
                return 0;
            const bool password = in.mid(2, count).contains('\x02');
            socket->write(password ? "\x05\x02" : "\x05\x00", 2);
            talk.stage = password ? 1 : 2;
            return 2 + count;
        }
        case 1: { // version, length, user, length, password
            const int userLength = byte(1);
            const int passwordLength = userLength < 0 ? -1 : byte(2 + userLength);
            if (passwordLength < 0 || in.size() < 3 + userLength + passwordLength)
                return 0;
            talk.ask.user = in.mid(2, userLength);
            talk.ask.password = in.mid(3 + userLength, passwordLength);
            socket->write("\x01\x00", 2);
            talk.stage = 2;
            return 3 + userLength + passwordLength;
        }
        case 2: { // version, command, reserved, address type, address, port
            const int type = byte(3);
            const int nameLength = byte(4);
            const qsizetype size = type == 3 ? 5 + nameLength + 2 : type == 1 ? 10 : 22;
            if (type < 0 || nameLength < 0 || in.size() < size)
                return 0;
            talk.ask.addressType = type;
            talk.ask.host = type == 3 ? in.mid(5, nameLength) : QByteArray();
            asks.append(talk.ask);
            socket->write("\x05\x04\x00\x01\x00\x00\x00\x00\x00\x00", 10);
            socket->disconnectFromHost();
            talk.stage = 3;
            return 0;
        }
        default:
            return 0;
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
    void unpacksCompressedPage();
    void requestsSayNothingAboutTheUser();
    void cancel();
    void reportsProgress();
    void oneSessionOneConnection();
    void https_data();
    void https();
    void throughTinyproxy();
    void throughMicrosocks();
    void socksGetsNamesAndRunCredentials();
    void prefetchedPagesTakenOver();
    // Last: once the application has been told to quit, no event loop of
    // this process runs again.
    void applicationQuitEndsFetch();

private:
    void fetchCase(const QStringList& f);
    void hostileCase(const QStringList& f);
    void proxyCase(const QStringList& f);
    QString urlFor(const QString& field) const;
    TestPinger m_pinger;
    TestPinger m_tlsPinger;
    QSslCertificate m_certificate;
    QString m_tlsProblem;
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

    if (!QSslSocket::supportsSsl()) {
        m_tlsProblem = QStringLiteral("no TLS backend");
        return;
    }
    QFile certFile(QStringLiteral(VK_TESTDATA "/tls/pinger.crt"));
    QFile keyFile(QStringLiteral(VK_TESTDATA "/tls/pinger.key"));
    QVERIFY(certFile.open(QIODevice::ReadOnly));
    QVERIFY(keyFile.open(QIODevice::ReadOnly));
    m_certificate = QSslCertificate(certFile.readAll(), QSsl::Pem);
    const QSslKey key(keyFile.readAll(), QSsl::Rsa, QSsl::Pem);
    QVERIFY(!m_certificate.isNull());
    QVERIFY(!key.isNull());
    QSslConfiguration server = QSslConfiguration::defaultConfiguration();
    server.setLocalCertificate(m_certificate);
    server.setPrivateKey(key);
    server.setPeerVerifyMode(QSslSocket::VerifyNone);
    if (!m_tlsPinger.listenTls(server))
        m_tlsProblem = QStringLiteral("the https pinger could not listen");
}

void TestHttpGet::cases() {
    QFETCH(QStringList, f);
    if (f[0] == "fetch")
        fetchCase(f);
    else if (f[0] == "hostile")
        hostileCase(f);
    else
        proxyCase(f);
}

QString TestHttpGet::urlFor(const QString& field) const {
    if (field.startsWith(u'/'))
        return m_pinger.url(field);
    if (field.startsWith(QLatin1String("closed/")))
        return QStringLiteral("http://127.0.0.1:%1/").arg(closedPort()) + field.mid(7);
    return field == "onion" ? OnionUrl : field;
}

// One fetch: url, route, body, proxy, since, time-out, cap, code, lines,
// Last-Modified out, If-Modified-Since sent, requests the pinger saw.
void TestHttpGet::fetchCase(const QStringList& f) {
    const QString high = QString::fromLatin1(highBytes());
    if (f[2] != u'-')
        m_pinger.setRoute(f[1], routeOf(f[2], QString(f[3]).replace("@high", high).toLatin1()));
    QStringList proxy;
    if (f[4] != u'-') {
        const quint16 port = f[4].endsWith("closed") ? closedPort() : m_pinger.port();
        proxy = settingsFor(f[4].section(u':', 0, 0), port);
    }
    const QDateTime since = QDateTime::fromString(f[5], Qt::ISODate);
    const int timeout = f[6].toInt();
    const int expected = codeNamed(f[8]);
    m_pinger.clearLog();
    HttpSession session;
    if (f[7].toLongLong() > 0)
        session.setMaxBytes(f[7].toLongLong());

    const Fetch got = fetch(session, urlFor(f[1]), proxy, timeout, since);
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
    if (f[11] != u'*') {
        QCOMPARE(requests.value(0).hasHeader("If-Modified-Since"), f[11] != u'-');
        QCOMPARE(requests.value(0).header("If-Modified-Since"),
                 f[11] == u'-' ? QByteArray() : f[11].toLatin1());
    }
    for (const TestPinger::Request& request : requests)
        QCOMPARE(request.header("Host"),
                 QByteArray("127.0.0.1:") + QByteArray::number(m_pinger.port()));
}

// A pinger that misbehaves costs its own page and nothing more: the answer
// comes within the time-out, and the next page, from the same pinger or
// another, comes as if nothing had happened. Route, time-out, code, within ms.
void TestHttpGet::hostileCase(const QStringList& f) {
    TestPinger other;
    QVERIFY(other.listen());
    other.serve(QStringLiteral("/next"), "next page\n");
    m_pinger.serve(QStringLiteral("/next"), "next page\n");
    m_pinger.setRoute(QStringLiteral("/hostile"), routeOf(f[1]));
    HttpSession session;
    Fetch got = fetch(session, m_pinger.url(QStringLiteral("/hostile")), {}, f[2].toInt());
    QVERIFY2(got.code == codeNamed(f[3]),
             qPrintable(QStringLiteral("got %1 (%2)").arg(got.code).arg(session.lastErrorText())));
    QVERIFY2(got.elapsedMs < f[4].toLongLong(),
             qPrintable(QStringLiteral("took %1 ms").arg(got.elapsedMs)));
    for (TestPinger* pinger : {&m_pinger, &other}) {
        got = fetch(session, pinger->url(QStringLiteral("/next")), {}, 2);
        QVERIFY2(got.code == HttpCode::Ok,
                 qPrintable(QStringLiteral("%1 (%2)").arg(got.code).arg(session.lastErrorText())));
        QCOMPARE(got.lines, QStringList{QStringLiteral("next page")});
    }
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

void TestHttpGet::unpacksCompressedPage() {
    const QByteArray page = highBytes() + "\r\n" + TestPinger::linesOfSize(64 * 1024);
    TestPinger::Route route;
    // An HTTP "deflate" body is a zlib stream: qCompress without its length prefix.
    route.body = qCompress(page).mid(4);
    route.headers.append(TestPinger::Header{"Content-Encoding", "deflate"});
    m_pinger.setRoute(QStringLiteral("/packed"), route);
    m_pinger.clearLog();

    HttpSession session;
    const Fetch got = fetch(session, m_pinger.url(QStringLiteral("/packed")));
    QCOMPARE(got.code, HttpCode::Ok);
    QVERIFY(m_pinger.requests().constFirst().header("Accept-Encoding").contains("deflate"));
    QCOMPARE(got.lines.constFirst().toLatin1(), highBytes());
    QCOMPARE(LinesToBytes(got.lines), highBytes() + "\n" + TestPinger::linesOfSize(64 * 1024));
}

// Every request carries the same fixed headers, whatever the desktop's
// language, and a cookie a pinger sets is never sent back.
void TestHttpGet::requestsSayNothingAboutTheUser() {
    TestPinger::Route cookie;
    cookie.body = "page\n";
    cookie.headers.append(TestPinger::Header{"Set-Cookie", "visitor=42; Path=/"});
    m_pinger.setRoute(QStringLiteral("/cookie"), cookie);
    m_pinger.serve(QStringLiteral("/page"), "page\n");
    m_pinger.clearLog();
    HttpSession session;
    QCOMPARE(fetch(session, m_pinger.url(QStringLiteral("/cookie"))).code, HttpCode::Ok);
    QCOMPARE(fetch(session, m_pinger.url(QStringLiteral("/page")), {}, 2, PageDate).code,
             HttpCode::Ok);
    const QList<TestPinger::Request> requests = m_pinger.requests();
    QCOMPARE(requests.size(), 2);
    for (const TestPinger::Request& request : requests) {
        QStringList names;
        for (const TestPinger::Header& header : request.headers)
            names << QString::fromLatin1(header.first);
        names.removeAll(QStringLiteral("If-Modified-Since"));
        names.sort();
        QCOMPARE(names, (QStringList{"Accept-Encoding", "Accept-Language", "Connection", "Host",
                                     "User-Agent"}));
        QCOMPARE(request.header("User-Agent"), QByteArray("VKstats/" VKSTATS_VERSION));
        QCOMPARE(request.header("Accept-Language"), QByteArray("en"));
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
    QVERIFY(stop);
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

void TestHttpGet::oneSessionOneConnection() {
    m_pinger.serve(QStringLiteral("/mlist.txt"), "mlist\n");
    m_pinger.serve(QStringLiteral("/rlist.txt"), "rlist\n");
    m_pinger.serve(QStringLiteral("/pubring.mix"), "keys\n");
    m_pinger.clearLog();

    int before = m_pinger.connectionCount();
    {
        HttpSession session;
        for (const char* page : {"/mlist.txt", "/rlist.txt", "/pubring.mix"})
            QCOMPARE(fetch(session, m_pinger.url(QString::fromLatin1(page))).code, HttpCode::Ok);
    }
    QCOMPARE(m_pinger.connectionCount() - before, 1);
    const QList<TestPinger::Request> requests = m_pinger.requests();
    QCOMPARE(requests.size(), 3);
    QCOMPARE(requests.at(1).connection, requests.at(0).connection);
    QCOMPARE(requests.at(2).connection, requests.at(0).connection);

    // The counting tells the difference: a session per page is a
    // connection per page.
    before = m_pinger.connectionCount();
    for (const char* page : {"/mlist.txt", "/rlist.txt"}) {
        QStringList lines;
        QDateTime none;
        QCOMPARE(
            HTTPGet(nullptr, m_pinger.url(QString::fromLatin1(page)), lines, {}, nullptr, 2, none),
            HttpCode::Ok);
    }
    QCOMPARE(m_pinger.connectionCount() - before, 2);
}

void TestHttpGet::https_data() {
    QTest::addColumn<bool>("tls"); // the URL names the https pinger
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("trusted"); // its certificate is trusted for this row
    QTest::addColumn<int>("expected");

    QTest::newRow("trusted certificate") << true << "/page" << true << HttpCode::Ok;
    QTest::newRow("self-signed certificate refused")
        << true << "/page" << false << HttpCode::TransferError;
    QTest::newRow("redirect from https to http refused")
        << true << "/down" << true << HttpCode::TransferError;
    QTest::newRow("https to a plain HTTP server")
        << false << "/page" << true << HttpCode::TransferError;
}

void TestHttpGet::https() {
    QFETCH(bool, tls);
    QFETCH(QString, path);
    QFETCH(bool, trusted);
    QFETCH(int, expected);
    if (!m_tlsProblem.isEmpty())
        QSKIP(qPrintable(m_tlsProblem));

    m_tlsPinger.serve(QStringLiteral("/page"), "secure page\n");
    m_tlsPinger.redirect(QStringLiteral("/down"), m_pinger.url(QStringLiteral("/page")));
    m_pinger.serve(QStringLiteral("/page"), "page\n");
    m_pinger.clearLog();
    m_tlsPinger.clearLog();

    const QSslConfiguration saved = QSslConfiguration::defaultConfiguration();
    const auto restore = qScopeGuard([&] { QSslConfiguration::setDefaultConfiguration(saved); });
    if (trusted) {
        QSslConfiguration trusting = saved;
        trusting.addCaCertificate(m_certificate);
        QSslConfiguration::setDefaultConfiguration(trusting);
    }

    const QString url =
        tls ? m_tlsPinger.url(path)
            : QStringLiteral("https://127.0.0.1:%1%2").arg(m_pinger.port()).arg(path);
    HttpSession session;
    const Fetch got = fetch(session, url, {}, 5);
    QCOMPARE(got.code, expected);
    if (expected == HttpCode::Ok) {
        QCOMPARE(got.lines, QStringList{QStringLiteral("secure page")});
    } else {
        QVERIFY(got.lines.isEmpty());
        QCOMPARE(requestsFor(m_pinger, "/page"), 0);
        if (tls && !trusted)
            QVERIFY(m_tlsPinger.requests().isEmpty());
    }
}

void TestHttpGet::throughTinyproxy() {
    ProxyProcess proxy(ProxyProcess::Kind::Tinyproxy);
    if (!proxy.start())
        QSKIP(qPrintable(QStringLiteral("tinyproxy could not be started: ") + proxy.errorString()));

    m_pinger.serve(QStringLiteral("/via-http"), "through the proxy \xe9\r\n");
    m_pinger.clearLog();
    {
        HttpSession session;
        const Fetch got =
            fetch(session, m_pinger.url(QStringLiteral("/via-http")), proxy.settings(), 5);
        QCOMPARE(got.code, HttpCode::Ok);
        QCOMPARE(got.lines, QStringList{QString::fromLatin1("through the proxy \xe9")});
    }
    // The proxy's own marks: its Via header at the pinger, its log line.
    QCOMPARE(m_pinger.requests().size(), 1);
    QVERIFY2(m_pinger.requests().constFirst().header("Via").contains("tinyproxy"),
             m_pinger.requests().constFirst().header("Via").constData());
    const QString logged = QStringLiteral("GET http://127.0.0.1:%1/via-http").arg(m_pinger.port());
    QVERIFY2(proxy.log().contains(logged), qPrintable(proxy.log().right(1500)));

    // An HTTP proxy that cannot reach the pinger says so with an error page.
    {
        HttpSession session;
        const Fetch got = fetch(session, QStringLiteral("http://127.0.0.1:%1/x").arg(closedPort()),
                                proxy.settings(), 5);
        QCOMPARE(got.code, HttpCode::HttpError);
        QVERIFY2(got.lines.join(u'\n').contains(QLatin1String("tinyproxy")),
                 qPrintable(got.lines.join(u'\n')));
    }

    // With the proxy gone the same settings reach nothing, so nothing went
    // around it.
    proxy.stop();
    m_pinger.clearLog();
    HttpSession session;
    const Fetch got =
        fetch(session, m_pinger.url(QStringLiteral("/via-http")), proxy.settings(), 2);
    QCOMPARE(got.code, HttpCode::TransferError);
    QVERIFY(m_pinger.requests().isEmpty());
}

void TestHttpGet::throughMicrosocks() {
    ProxyProcess proxy(ProxyProcess::Kind::Microsocks);
    if (!proxy.start(QStringLiteral("vkstats"), QStringLiteral("correct horse")))
        QSKIP(
            qPrintable(QStringLiteral("microsocks could not be started: ") + proxy.errorString()));

    m_pinger.serve(QStringLiteral("/via-socks"), "socks page\n");
    m_pinger.serve(QStringLiteral("/b"), "b\n");
    m_pinger.clearLog();
    const int before = m_pinger.connectionCount();
    HttpSession session;
    Fetch got = fetch(session, m_pinger.url(QStringLiteral("/via-socks")), proxy.settings(), 5);
    QCOMPARE(got.code, HttpCode::Ok);
    QCOMPARE(got.lines, QStringList{QStringLiteral("socks page")});
    QVERIFY2(proxy.log().contains(QStringLiteral("connected to 127.0.0.1:%1").arg(m_pinger.port())),
             qPrintable(proxy.log()));
    // Same credentials: the open stream is reused.
    QCOMPARE(fetch(session, m_pinger.url(QStringLiteral("/b")), proxy.settings(), 5).code,
             HttpCode::Ok);
    QCOMPARE(m_pinger.connectionCount() - before, 1);

    // Tor keeps streams with other credentials on other circuits, so they
    // get a stream of their own, which this proxy refuses although the
    // first stream is still open.
    const QList<std::pair<QString, QString>> refused = {
        {"bob", "two"}, {"vkstats", "wrong horse"}, {QString(), QString()}};
    for (const auto& [user, password] : refused) {
        got = fetch(session, m_pinger.url(QStringLiteral("/via-socks")),
                    proxy.settings(user, password), 5);
        QVERIFY2(got.code == HttpCode::LibraryError, qPrintable(user + u'/' + password));
        QVERIFY(got.lines.isEmpty());
    }
    QCOMPARE(m_pinger.requests().size(), 2);

    // The host name travels to the proxy unresolved: microsocks logs the
    // name it was asked for. It can only connect if "localhost" is
    // 127.0.0.1 for it, as for us.
    const QHostInfo local = QHostInfo::fromName(QStringLiteral("localhost"));
    if (!local.addresses().isEmpty() && local.addresses().constFirst() == QHostAddress::LocalHost) {
        got =
            fetch(session, m_pinger.url(QStringLiteral("/via-socks"), QStringLiteral("localhost")),
                  proxy.settings(), 5);
        QCOMPARE(got.code, HttpCode::Ok);
        QVERIFY2(
            proxy.log().contains(QStringLiteral("connected to localhost:%1").arg(m_pinger.port())),
            qPrintable(proxy.log()));
        QCOMPARE(m_pinger.requests().constLast().header("Host"),
                 QByteArray("localhost:") + QByteArray::number(m_pinger.port()));
    } else {
        qInfo("localhost is not 127.0.0.1 first here; the host name check is left out");
    }

    // Through the proxy to a port where nothing listens: refused, said at once.
    got = fetch(session, QStringLiteral("http://127.0.0.1:%1/x").arg(closedPort()),
                proxy.settings(), 2);
    QCOMPARE(got.code, HttpCode::TransferError);

    proxy.stop();
    m_pinger.clearLog();
    HttpSession fresh;
    got = fetch(fresh, m_pinger.url(QStringLiteral("/via-socks")), proxy.settings(), 2);
    QCOMPARE(got.code, HttpCode::TimedOut);
    QVERIFY(m_pinger.requests().isEmpty());
}

void TestHttpGet::socksGetsNamesAndRunCredentials() {
    SocksRecorder socks;
    const QStringList noCredentials = settingsFor(QStringLiteral("socks5"), socks.serverPort());
    QStringList own = noCredentials;
    own.replaceInStrings(QStringLiteral("user="), QStringLiteral("user=alice"));
    own.replaceInStrings(QStringLiteral("password="), QStringLiteral("password=secret"));
    const QString invalid = QStringLiteral("http://pinger.invalid/mlist.txt");
    {
        HttpSession run;
        QCOMPARE(fetch(run, invalid, noCredentials).code, HttpCode::TimedOut);
        QCOMPARE(fetch(run, OnionUrl, noCredentials).code, HttpCode::TimedOut);
    }
    HttpSession nextRun;
    QCOMPARE(fetch(nextRun, invalid, noCredentials).code, HttpCode::TimedOut);
    QCOMPARE(fetch(nextRun, invalid, own).code, HttpCode::TimedOut);

    const QList<SocksRecorder::Ask>& asks = socks.asks;
    QCOMPARE(asks.size(), 4);
    // Names go to the proxy as names (address type 3), never as addresses
    // found here: "pinger.invalid" has none.
    const QByteArray onionHost = QUrl(OnionUrl).host().toLatin1();
    const QList<QByteArray> hosts = {"pinger.invalid", onionHost, "pinger.invalid",
                                     "pinger.invalid"};
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
    QCOMPARE(asks[3].user, QByteArray("alice"));
    QCOMPARE(asks[3].password, QByteArray("secret"));
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
    Fetch got = fetch(session, early);
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
