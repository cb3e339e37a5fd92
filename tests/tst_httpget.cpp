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
#include <QTimeZone>
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

// size bytes of 64-byte lines ("...\n"), so that a body cut at a multiple of
// 64 still ends in a line end.
QByteArray linesOfSize(qint64 size) {
    QByteArray line(63, 'v');
    line.append('\n');
    QByteArray body;
    body.reserve(size);
    while (body.size() < size)
        body.append(line);
    body.truncate(size);
    return body;
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

int requestsFor(const TestPinger& pinger, const QByteArray& path) {
    const QList<TestPinger::Request> requests = pinger.requests();
    return int(std::count_if(requests.cbegin(), requests.cend(),
                             [&](const TestPinger::Request& r) { return r.path == path; }));
}

TestPinger::Route dripRoute(const QByteArray& body, int bytes, int intervalMs) {
    TestPinger::Route route;
    route.mode = TestPinger::Mode::Drip;
    route.body = body;
    route.dripBytes = bytes;
    route.dripIntervalMs = intervalMs;
    return route;
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

Q_DECLARE_METATYPE(TestPinger::Route)

class TestHttpGet : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void keepsBytesAndLines_data();
    void keepsBytesAndLines();
    void unpacksCompressedPage();
    void lastModifiedOut_data();
    void lastModifiedOut();
    void ifModifiedSince_data();
    void ifModifiedSince();
    void failures_data();
    void failures();
    void sizeCap_data();
    void sizeCap();
    void hostileThenHealthy_data();
    void hostileThenHealthy();
    void requestsSayNothingAboutTheUser();
    void cancel();
    void reportsProgress();
    void oneSessionOneConnection();
    void proxySettings_data() { AddTableRows(QStringLiteral("httpget.txt")); }
    void proxySettings();
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
    TestPinger m_pinger;
    TestPinger m_tlsPinger;
    QSslCertificate m_certificate;
    QString m_tlsProblem;
};

void TestHttpGet::initTestCase() {
    QVERIFY(m_pinger.listen());

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

void TestHttpGet::keepsBytesAndLines_data() {
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QByteArray>("contentType");
    QTest::addColumn<QByteArrayList>("expected");

    QTest::newRow("LF") << QByteArray("one\ntwo\nthree\n") << QByteArray()
                        << QByteArrayList{"one", "two", "three"};
    QTest::newRow("CR LF") << QByteArray("one\r\ntwo\r\n") << QByteArray()
                           << QByteArrayList{"one", "two"};
    QTest::newRow("CR alone") << QByteArray("one\rtwo") << QByteArray()
                              << QByteArrayList{"one", "two"};
    QTest::newRow("blank lines kept")
        << QByteArray("a\r\n\r\nb\n\nc") << QByteArray() << QByteArrayList{"a", "", "b", "", "c"};
    QTest::newRow("bytes 0x80-0xFF") << highBytes() + "\r\n\xff\x80 end\r\n"
                                     << QByteArray() << QByteArrayList{highBytes(), "\xff\x80 end"};
    QTest::newRow("Latin-1 bytes under a UTF-8 label")
        << QByteArray("\xe4\xf6\xfc\r\n") << QByteArray("text/plain; charset=utf-8")
        << QByteArrayList{"\xe4\xf6\xfc"};
    QTest::newRow("NUL byte") << QByteArray("a\0b\n", 4) << QByteArray()
                              << QByteArrayList{QByteArray("a\0b", 3)};
    QTest::newRow("empty body") << QByteArray() << QByteArray() << QByteArrayList{};
}

void TestHttpGet::keepsBytesAndLines() {
    QFETCH(QByteArray, body);
    QFETCH(QByteArray, contentType);
    QFETCH(QByteArrayList, expected);

    TestPinger::Route route;
    route.body = body;
    if (!contentType.isEmpty())
        route.headers.append(TestPinger::Header{"Content-Type", contentType});
    m_pinger.setRoute(QStringLiteral("/bytes"), route);

    HttpSession session;
    const Fetch got = fetch(session, m_pinger.url(QStringLiteral("/bytes")));
    QCOMPARE(got.code, HttpCode::Ok);
    // One character per byte, each the byte's own value.
    QStringList lines;
    for (const QByteArray& line : expected)
        lines.append(QString::fromLatin1(line));
    QCOMPARE(got.lines, lines);
}

void TestHttpGet::unpacksCompressedPage() {
    const QByteArray page = highBytes() + "\r\n" + linesOfSize(64 * 1024);
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
    QCOMPARE(LinesToBytes(got.lines), highBytes() + "\n" + linesOfSize(64 * 1024));
}

void TestHttpGet::lastModifiedOut_data() {
    QTest::addColumn<QByteArray>("header");
    QTest::addColumn<QDateTime>("expected");

    const QDateTime date(QDate(1994, 11, 6), QTime(8, 49, 37), Qt::UTC);
    QTest::newRow("RFC 1123") << QByteArray("Sun, 06 Nov 1994 08:49:37 GMT") << date;
    QTest::newRow("asctime") << QByteArray("Sun Nov  6 08:49:37 1994") << date;
    QTest::newRow("none") << QByteArray() << QDateTime();
    QTest::newRow("unparsable") << QByteArray("yesterday at noon") << QDateTime();
}

void TestHttpGet::lastModifiedOut() {
    QFETCH(QByteArray, header);
    QFETCH(QDateTime, expected);

    TestPinger::Route route;
    route.body = "page\n";
    if (!header.isEmpty())
        route.headers.append(TestPinger::Header{"Last-Modified", header});
    m_pinger.setRoute(QStringLiteral("/dated"), route);

    HttpSession session;
    // The date going in must not survive a page that has none.
    const QDateTime sent(QDate(1990, 1, 1), QTime(0, 0), Qt::UTC);
    const Fetch got = fetch(session, m_pinger.url(QStringLiteral("/dated")), {}, 2, sent);
    QCOMPARE(got.code, HttpCode::Ok);
    QCOMPARE(got.lastModified.isValid(), expected.isValid());
    if (expected.isValid())
        QCOMPARE(got.lastModified.toUTC(), expected);
}

void TestHttpGet::ifModifiedSince_data() {
    QTest::addColumn<QDateTime>("since");
    QTest::addColumn<QByteArray>("header"); // expected If-Modified-Since; empty: none sent
    QTest::addColumn<int>("expected");

    QTest::newRow("no date: no header, page") << QDateTime() << QByteArray() << HttpCode::Ok;
    QTest::newRow("page's own date: 304") << PageDate << PageDateText << HttpCode::NotModified;
    QTest::newRow("earlier date: page")
        << PageDate.addSecs(-1) << QByteArray("Sun, 01 Mar 2026 11:59:59 GMT") << HttpCode::Ok;
    QTest::newRow("date in another zone is sent as GMT")
        << QDateTime(QDate(2026, 3, 1), QTime(14, 0, 0), QTimeZone(2 * 3600)) << PageDateText
        << HttpCode::NotModified;
}

void TestHttpGet::ifModifiedSince() {
    QFETCH(QDateTime, since);
    QFETCH(QByteArray, header);
    QFETCH(int, expected);

    m_pinger.serve(QStringLiteral("/ims"), "mlist body\n", PageDate);
    m_pinger.clearLog();
    HttpSession session;
    const Fetch got = fetch(session, m_pinger.url(QStringLiteral("/ims")), {}, 2, since);
    QCOMPARE(got.code, expected);

    QCOMPARE(m_pinger.requests().size(), 1);
    const TestPinger::Request request = m_pinger.requests().constFirst();
    QCOMPARE(request.hasHeader("If-Modified-Since"), !header.isEmpty());
    QCOMPARE(request.header("If-Modified-Since"), header);
    QCOMPARE(request.header("Host"),
             QByteArray("127.0.0.1:") + QByteArray::number(m_pinger.port()));

    QCOMPARE(got.lastModified.toUTC(), PageDate);
    if (expected == HttpCode::Ok)
        QCOMPARE(got.lines, QStringList{QStringLiteral("mlist body")});
    else
        QVERIFY(got.lines.isEmpty());
}

void TestHttpGet::failures_data() {
    QTest::addColumn<QString>("url");
    QTest::addColumn<QStringList>("proxy");
    QTest::addColumn<int>("timeout");
    QTest::addColumn<qint64>("maxBytes"); // 0: the session's default
    QTest::addColumn<int>("expected");
    QTest::addColumn<QString>("inLines"); // empty: no lines may come back
    QTest::addColumn<bool>("reachesPinger");

    using Mode = TestPinger::Mode;
    const auto url = [this](const char* path) {
        return m_pinger.url(QString::fromLatin1(path));
    };
    const auto row = [](const char* tag, const QString& target, int timeout, int expected,
                        const QString& inLines = {}, bool reaches = true,
                        const QStringList& proxy = {}, qint64 maxBytes = 0) {
        QTest::newRow(tag) << target << proxy << timeout << maxBytes << expected << inLines
                           << reaches;
    };
    const auto route = [this](const char* path, Mode mode) {
        TestPinger::Route r;
        r.mode = mode;
        m_pinger.setRoute(QString::fromLatin1(path), r);
    };

    m_pinger.fail(
        QStringLiteral("/e500"), 500,
        "<html><body><h1>Internal Server Error</h1>mixmaster stats broke</body></html>\n");
    row("500 with an HTML page", url("/e500"), 2, HttpCode::HttpError, "mixmaster stats broke");
    row("404 for an unknown page", url("/no-such-page"), 2, HttpCode::HttpError, "Not Found");
    m_pinger.serve(QStringLiteral("/e200"),
                   "<html><body>Database error, try later</body></html>\n");
    row("200 with an HTML error page is a page", url("/e200"), 2, HttpCode::Ok, "Database error");

    TestPinger::Route delayed;
    delayed.body = "late but fine\n";
    delayed.delayMs = 300;
    m_pinger.setRoute(QStringLiteral("/delay-short"), delayed);
    row("answer delayed within the time-out", url("/delay-short"), 2, HttpCode::Ok,
        "late but fine");
    // Bytes keep coming, but the whole page would take a minute.
    m_pinger.setRoute(QStringLiteral("/drip"), dripRoute(linesOfSize(6400), 16, 150));
    row("slow drip", url("/drip"), 1, HttpCode::TimedOut);
    route("/silent", Mode::Silent);
    row("never answers", url("/silent"), 1, HttpCode::TimedOut);
    route("/endless", Mode::Endless);
    row("endless body", url("/endless"), 10, HttpCode::TransferError, {}, true, {}, 1024 * 1024);

    TestPinger::Route reset;
    reset.mode = Mode::ResetMidway;
    reset.body = linesOfSize(64 * 1024);
    m_pinger.setRoute(QStringLiteral("/reset"), reset);
    row("connection reset in the body", url("/reset"), 2, HttpCode::TransferError);
    // Qt's HTTP client drops a connection that does not answer in HTTP and
    // reports it as closed.
    route("/garbage", Mode::Garbage);
    row("garbage instead of HTTP", url("/garbage"), 2, HttpCode::TransferError);
    TestPinger::Route noise;
    noise.mode = Mode::Garbage;
    noise.keepOpen = true;
    m_pinger.setRoute(QStringLiteral("/garbage-open"), noise);
    row("garbage, connection left open", url("/garbage-open"), 1, HttpCode::TransferError);

    const quint16 closed = closedPort();
    row("connection refused", QStringLiteral("http://127.0.0.1:%1/page").arg(closed), 2,
        HttpCode::TransferError, {}, false);

    // Redirects: up to five are followed, relative or absolute.
    m_pinger.serve(QStringLiteral("/r0"), "arrived\n");
    for (int i = 1; i <= 6; ++i) {
        const QString next = QStringLiteral("/r%1").arg(i - 1);
        m_pinger.redirect(QStringLiteral("/r%1").arg(i), i % 2 ? next : m_pinger.url(next),
                          i % 3 ? 302 : 301);
    }
    row("five redirects followed", url("/r5"), 2, HttpCode::Ok, "arrived");
    row("six redirects refused", url("/r6"), 2, HttpCode::TransferError);

    // Misuse: nothing is sent anywhere.
    m_pinger.serve(QStringLiteral("/page"), "page\n");
    const auto misuse = [&](const char* tag, const QString& target, const QStringList& proxy) {
        row(tag, target, 2, HttpCode::LibraryError, {}, false, proxy);
    };
    misuse("no host", QStringLiteral("http:///page"), {});
    misuse("not a URL", QStringLiteral("::not a url::"), {});
    misuse("file scheme", QStringLiteral("file:///etc/hostname"), {});
    misuse("unusable proxy settings", url("/page"),
           settingsFor(QStringLiteral("gopher"), m_pinger.port()));
    // An onion name must never reach the local resolver.
    misuse("onion address without a proxy", OnionUrl, {});
    misuse("onion address through an HTTP proxy", OnionUrl,
           settingsFor(QStringLiteral("http"), m_pinger.port()));

    row("HTTP proxy unreachable", url("/page"), 2, HttpCode::TransferError, {}, false,
        settingsFor(QStringLiteral("http"), closed));
    row("SOCKS5 proxy unreachable", url("/page"), 2, HttpCode::TimedOut, {}, false,
        settingsFor(QStringLiteral("socks5"), closed));
}

void TestHttpGet::failures() {
    QFETCH(QString, url);
    QFETCH(QStringList, proxy);
    QFETCH(int, timeout);
    QFETCH(qint64, maxBytes);
    QFETCH(int, expected);
    QFETCH(QString, inLines);
    QFETCH(bool, reachesPinger);

    m_pinger.clearLog();
    HttpSession session;
    if (maxBytes > 0)
        session.setMaxBytes(maxBytes);
    const Fetch got = fetch(session, url, proxy, timeout);
    QVERIFY2(got.code == expected,
             qPrintable(QStringLiteral("got %1 (%2)").arg(got.code).arg(session.lastErrorText())));
    QVERIFY2(got.elapsedMs < timeout * 1000 + SlackMs,
             qPrintable(QStringLiteral("took %1 ms").arg(got.elapsedMs)));
    if (inLines.isEmpty())
        QVERIFY2(got.lines.isEmpty(), qPrintable(got.lines.join(u'\n').left(200)));
    else
        QVERIFY2(got.lines.join(u'\n').contains(inLines), qPrintable(got.lines.join(u'\n')));
    QCOMPARE(!m_pinger.requests().isEmpty(), reachesPinger);
    if (expected != HttpCode::Ok)
        QVERIFY(!session.lastErrorText().isEmpty());
    else
        QVERIFY(session.lastErrorText().isEmpty());
    if (expected != HttpCode::Ok && expected != HttpCode::NotModified)
        QVERIFY(!got.lastModified.isValid());
}

// A pinger that misbehaves costs its own page and nothing more: the answer
// comes within the time-out, and the next page, from the same pinger or
// another, comes as if nothing had happened.
void TestHttpGet::hostileThenHealthy_data() {
    QTest::addColumn<TestPinger::Route>("route");
    QTest::addColumn<int>("timeout");
    QTest::addColumn<int>("expected");
    QTest::addColumn<qint64>("withinMs");

    using Mode = TestPinger::Mode;
    const auto row = [](const char* tag, Mode mode, int timeout, int expected, qint64 withinMs) {
        TestPinger::Route route;
        route.mode = mode;
        route.body = linesOfSize(64 * 1024);
        QTest::newRow(tag) << route << timeout << expected << withinMs;
    };
    row("header flood", Mode::HeaderFlood, 3, HttpCode::TimedOut, 3000 + SlackMs);
    row("endless header line", Mode::EndlessHeaderLine, 3, HttpCode::TimedOut, 3000 + SlackMs);
    row("never answers", Mode::Silent, 1, HttpCode::TimedOut, 1000 + SlackMs);
    row("connection reset in the body", Mode::ResetMidway, 30, HttpCode::TransferError, 2000);
}

void TestHttpGet::hostileThenHealthy() {
    QFETCH(TestPinger::Route, route);
    QFETCH(int, timeout);
    QFETCH(int, expected);
    QFETCH(qint64, withinMs);

    TestPinger other;
    QVERIFY(other.listen());
    other.serve(QStringLiteral("/next"), "next page\n");
    m_pinger.serve(QStringLiteral("/next"), "next page\n");
    m_pinger.setRoute(QStringLiteral("/hostile"), route);
    HttpSession session;
    Fetch got = fetch(session, m_pinger.url(QStringLiteral("/hostile")), {}, timeout);
    QVERIFY2(got.code == expected,
             qPrintable(QStringLiteral("got %1 (%2)").arg(got.code).arg(session.lastErrorText())));
    QVERIFY2(got.elapsedMs < withinMs, qPrintable(QStringLiteral("took %1 ms").arg(got.elapsedMs)));
    for (TestPinger* pinger : {&m_pinger, &other}) {
        got = fetch(session, pinger->url(QStringLiteral("/next")), {}, 2);
        QVERIFY2(got.code == HttpCode::Ok,
                 qPrintable(QStringLiteral("%1 (%2)").arg(got.code).arg(session.lastErrorText())));
        QCOMPARE(got.lines, QStringList{QStringLiteral("next page")});
    }
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

void TestHttpGet::sizeCap_data() {
    QTest::addColumn<int>("status");
    QTest::addColumn<qint64>("size");
    QTest::addColumn<bool>("announced");
    QTest::addColumn<qint64>("cap"); // 0: the default
    QTest::addColumn<int>("expected");
    QTest::addColumn<qint64>("returned"); // bytes of the lines that came back

    const qint64 cap = 1024;
    QTest::newRow("exactly the cap, announced") << 200 << cap << true << cap << 200 << cap;
    QTest::newRow("exactly the cap, unannounced") << 200 << cap << false << cap << 200 << cap;
    QTest::newRow("one byte over, announced")
        << 200 << cap + 1 << true << cap << HttpCode::TransferError << qint64(0);
    QTest::newRow("one byte over, unannounced")
        << 200 << cap + 1 << false << cap << HttpCode::TransferError << qint64(0);
    QTest::newRow("error page shortened") << 500 << qint64(200 * 1024) << true << qint64(0)
                                          << HttpCode::HttpError << HttpSession::ErrorPageMaxBytes;
    QTest::newRow("error page never beyond the cap")
        << 503 << qint64(4096) << true << cap << HttpCode::HttpError << cap;
    const qint64 sixteen = 16 * 1024 * 1024;
    QTest::newRow("default cap, at it") << 200 << sixteen << true << qint64(0) << 200 << sixteen;
    QTest::newRow("default cap, past it")
        << 200 << sixteen + 64 << false << qint64(0) << HttpCode::TransferError << qint64(0);
}

void TestHttpGet::sizeCap() {
    QFETCH(int, status);
    QFETCH(qint64, size);
    QFETCH(bool, announced);
    QFETCH(qint64, cap);
    QFETCH(int, expected);
    QFETCH(qint64, returned);

    TestPinger::Route route;
    route.status = status;
    route.body = linesOfSize(size);
    route.sendLength = announced;
    m_pinger.setRoute(QStringLiteral("/sized"), route);

    HttpSession session;
    if (cap > 0)
        session.setMaxBytes(cap);
    const Fetch got = fetch(session, m_pinger.url(QStringLiteral("/sized")), {}, 10);
    QCOMPARE(got.code, expected);
    QCOMPARE(got.lines.isEmpty() ? 0 : LinesToBytes(got.lines).size(), returned);
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
    m_pinger.setRoute(QStringLiteral("/slow"), dripRoute(linesOfSize(6400), 16, 150));
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
    const QByteArray body = linesOfSize(64 * 1024);
    m_pinger.setRoute(QStringLiteral("/progress"), dripRoute(body, 4096, 15));
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

void TestHttpGet::proxySettings() {
    QFETCH(QStringList, f);
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
    m_pinger.serve(QStringLiteral("/too-big"), linesOfSize(4096));
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
    m_pinger.setRoute(QStringLiteral("/quit"), dripRoute(linesOfSize(6400), 16, 150));
    QTimer::singleShot(300, [] { QCoreApplication::exit(0); });
    HttpSession session;
    const Fetch got = fetch(session, m_pinger.url(QStringLiteral("/quit")), {}, 30);
    QCOMPARE(got.code, HttpCode::TransferError);
    QVERIFY(got.lines.isEmpty());
    QVERIFY2(got.elapsedMs < 5000, qPrintable(QStringLiteral("took %1 ms").arg(got.elapsedMs)));
}

QTEST_GUILESS_MAIN(TestHttpGet)
#include "tst_httpget.moc"
