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

// How long past its time-out a fetch may take (wide: the point is it returns).
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

QString closedUrl(const QString& path) {
    return QStringLiteral("http://127.0.0.1:%1/").arg(closedPort()) + path;
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

// The same fixed headers always: no desktop language, no cookie.
void checkHeaders(const TestPinger::Request& request, quint16 port) {
    QStringList sent;
    for (const TestPinger::Header& header : request.headers)
        if (header.first != "If-Modified-Since")
            sent << QString::fromLatin1(
                header.first + ": " +
                (header.second.contains("deflate") ? "deflate" : header.second));
    sent.sort();
    QCOMPARE(sent.join(u'|'),
             QStringLiteral("Accept-Encoding: deflate|Accept-Language: en|"
                            "Connection: Keep-Alive|Host: 127.0.0.1:%1|User-Agent: VKstats/")
                     .arg(port) +
                 VKSTATS_VERSION);
}

// A SOCKS5 server noting the credentials and host asked for, answering that
// the host cannot be reached: what a fetch hands to Tor.
class SocksRecorder : public QTcpServer {
public:
    struct Talk {
        QByteArray in, user, password, host;
        int stage = 0, type = 0;
    };
    QList<Talk> asks;

    SocksRecorder() {
        listen(QHostAddress::LocalHost, 0);
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = nextPendingConnection())
                connect(socket, &QTcpSocket::readyRead, this, [this, socket] { step(socket); });
        });
    }

private:
    QHash<QTcpSocket*, Talk> m_talks;

    // One whole message at a time: methods, user and password, connect.
    void step(QTcpSocket* socket) {
        Talk& t = m_talks[socket];
        t.in += socket->readAll();
        const auto at = [&](qsizetype i) {
            return i < t.in.size() ? int(quint8(t.in[i])) : 9999;
        };
        const qsizetype need = t.stage == 0   ? 2 + at(1)
                               : t.stage == 1 ? 3 + at(1) + at(2 + at(1))
                               : at(3) == 3   ? 7 + at(4)
                                              : 10;
        if (t.stage > 2 || t.in.size() < need)
            return;
        if (t.stage == 0) {
            t.stage = t.in.mid(2).contains('\x02') ? 1 : 2;
            socket->write(t.stage == 1 ? "\x05\x02" : "\x05\x00", 2);
        } else if (t.stage == 1) {
            t.user = t.in.mid(2, at(1));
            t.password = t.in.mid(3 + at(1), at(2 + at(1)));
            socket->write("\x01\x00", 2);
            t.stage = 2;
        } else {
            t.type = at(3);
            t.host = t.type == 3 ? t.in.mid(5, at(4)) : QByteArray();
            asks.append(t);
            socket->write("\x05\x04\x00\x01\x00\x00\x00\x00\x00\x00", 10);
            socket->disconnectFromHost();
            t.stage = 3;
        }
        t.in.remove(0, need);
    }
};

} // namespace

class TestHttpGet : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() {
        QVERIFY(m_pinger.listen());
        // Redirects: up to five are followed, relative or absolute.
        m_pinger.serve(QStringLiteral("/r0"), "arrived\n");
        for (int i = 1; i <= 6; ++i) {
            const QString next = QStringLiteral("/r%1").arg(i - 1);
            m_pinger.redirect(QStringLiteral("/r%1").arg(i), i % 2 ? next : m_pinger.url(next),
                              i % 3 ? 302 : 301);
        }
    }
    // One connection per session; the free HTTPGet (a session each) is the control.
    void oneSessionOneConnection() {
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
            QCOMPARE(HTTPGet(nullptr, m_pinger.url(page), lines, {}, nullptr, 2, none),
                     HttpCode::Ok);
        }
        QCOMPARE(m_pinger.connectionCount() - before, 3);
    }
    void socksGetsNamesAndRunCredentials() {
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

        const QList<SocksRecorder::Talk>& asks = socks.asks;
        QCOMPARE(asks.size(), 4);
        // Names go as names (address type 3): "pinger.invalid" has no address.
        const QList<QByteArray> hosts = {"pinger.invalid", QUrl(OnionUrl).host().toLatin1(),
                                         "pinger.invalid", "pinger.invalid"};
        for (int i = 0; i < asks.size(); ++i)
            QCOMPARE(QByteArray::number(asks[i].type) + ' ' + asks[i].host, "3 " + hosts[i]);
        // Without credentials of its own each run makes up a pair (a circuit).
        QVERIFY(asks[0].user.size() >= 16 && asks[0].password.size() >= 16);
        QCOMPARE(asks[1].user + ':' + asks[1].password, asks[0].user + ':' + asks[0].password);
        QVERIFY(asks[2].user != asks[0].user && asks[2].password != asks[0].password);
        QCOMPARE(asks[3].user + ':' + asks[3].password, QByteArray("alice:secret"));
    }
    void prefetchedPagesTakenOver() {
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
        QTRY_COMPARE(m_pinger.requests().size(), 4); // three of /early
    }
    void cases_data() { AddTableRows(QStringLiteral("httpget.txt")); }
    // Last: after its last row's quit no event loop runs.
    void cases() {
        QFETCH(QStringList, f);
        m_pinger.clearLog();
        if (f[0] == "fetch")
            fetchCase(f);
        else if (f[0] == "realproxy")
            realProxyCase(f);
        else if (f[0] == "https")
            httpsCase(f);
        else if (f[0] == "interrupt")
            interruptCase(f[1]);
        else
            proxyCase(f);
    }

private:
    // One fetch: url, route, body, proxy, since, time-out, cap, code, lines,
    // Last-Modified out, If-Modified-Since sent, requests the pinger saw.
    void fetchCase(const QStringList& f) {
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
        const int expected = f[8].toInt();
        HttpSession session;
        if (f[7].toLongLong() > 0)
            session.setMaxBytes(f[7].toLongLong());
        const QString url = f[1].startsWith(u'/')        ? m_pinger.url(f[1])
                            : f[1].startsWith("closed/") ? closedUrl(f[1].mid(7))
                            : f[1] == "onion"            ? OnionUrl
                                                         : f[1];

        const Fetch got =
            fetch(session, url, proxy, timeout, QDateTime::fromString(f[5], Qt::ISODate));
        QVERIFY2(
            got.code == expected,
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
            checkHeaders(request, m_pinger.port());
    }
    void proxyCase(const QStringList& f) {
        QNetworkProxy proxy(QNetworkProxy::DefaultProxy);
        QString error;
        const bool ok = HttpSession::proxyFromSettings(
            f[1] == u'-' ? QStringList() : f[1].split(u'|'), proxy, &error);
        QCOMPARE(ok, f[2] != "refused");
        QCOMPARE(error.isEmpty(), ok);
        if (!ok || proxy.type() == QNetworkProxy::NoProxy) {
            QCOMPARE(ok ? QStringLiteral("none") : QStringLiteral("refused"), f[2]);
            return;
        }
        const QString type = proxy.type() == QNetworkProxy::HttpProxy     ? QStringLiteral("http")
                             : proxy.type() == QNetworkProxy::Socks5Proxy ? QStringLiteral("socks5")
                                                                          : QStringLiteral("other");
        QCOMPARE(QStringList({type, proxy.hostName(), QString::number(proxy.port()), proxy.user(),
                              proxy.password()})
                     .join(u' '),
                 f[2]);
        // Names go to the proxy unresolved: no lookups past Tor.
        QVERIFY(proxy.capabilities().testFlag(QNetworkProxy::HostNameLookupCapability));
    }
    // Each microsocks row first fetches a page with the right credentials.
    void realProxyCase(const QStringList& f) {
        const bool socks = f[1] == "microsocks";
        ProxyProcess proxy(socks ? ProxyProcess::Kind::Microsocks : ProxyProcess::Kind::Tinyproxy);
        if (!(socks ? proxy.start(QStringLiteral("vkstats"), QStringLiteral("correct horse"))
                    : proxy.start()))
            QSKIP(qPrintable(f[1] + " could not be started: " + proxy.errorString()));
        m_pinger.serve(QStringLiteral("/a"), "page\n");
        const int before = m_pinger.connectionCount();
        HttpSession session;
        if (socks)
            QCOMPARE(fetch(session, m_pinger.url(QStringLiteral("/a")), proxy.settings(), 5).code,
                     HttpCode::Ok);
        const QString url = f[4] == "closed" ? closedUrl(QStringLiteral("x")) : m_pinger.url(f[4]);
        const Fetch got = fetch(session, url, proxy.settings(f[2], f[3]), 5);
        QCOMPARE(got.code, f[5].toInt());
        checkLines(got.lines, f[6]);
        // One stream for the session's pages with the same credentials.
        QCOMPARE(m_pinger.connectionCount() - before, socks ? 1 : 0);
        QCOMPARE(m_pinger.requests().size(), (socks ? 1 : 0) + (got.code == HttpCode::Ok ? 1 : 0));
    }
    void httpsCase(const QStringList& f) {
        QFile certFile(QStringLiteral(VK_TESTDATA "/tls/pinger.crt"));
        QFile keyFile(QStringLiteral(VK_TESTDATA "/tls/pinger.key"));
        QVERIFY(certFile.open(QIODevice::ReadOnly) && keyFile.open(QIODevice::ReadOnly));
        const QSslCertificate certificate(certFile.readAll(), QSsl::Pem);
        QSslConfiguration server = QSslConfiguration::defaultConfiguration();
        server.setLocalCertificate(certificate);
        server.setPrivateKey(QSslKey(keyFile.readAll(), QSsl::Rsa, QSsl::Pem));
        server.setPeerVerifyMode(QSslSocket::VerifyNone);
        if (!QSslSocket::supportsSsl())
            QSKIP("no TLS backend");
        TestPinger tlsPinger;
        QVERIFY(tlsPinger.listenTls(server));
        tlsPinger.serve(QStringLiteral("/page"), "secure page\n");
        tlsPinger.redirect(QStringLiteral("/down"), m_pinger.url(QStringLiteral("/page")));
        m_pinger.serve(QStringLiteral("/page"), "page\n");

        const QSslConfiguration saved = QSslConfiguration::defaultConfiguration();
        const auto restore =
            qScopeGuard([&] { QSslConfiguration::setDefaultConfiguration(saved); });
        QSslConfiguration trusting = saved;
        if (f[3] == u'1')
            trusting.addCaCertificate(certificate);
        QSslConfiguration::setDefaultConfiguration(trusting);
        const bool tls = f[1] == "tls";
        HttpSession session;
        const Fetch got =
            fetch(session,
                  tls ? tlsPinger.url(f[2])
                      : QStringLiteral("https://127.0.0.1:%1").arg(m_pinger.port()) + f[2],
                  {}, 5);
        QCOMPARE(got.code, f[4].toInt());
        checkLines(got.lines, got.code == HttpCode::Ok ? QStringLiteral("=secure page") : "-");
        QVERIFY(m_pinger.requests().isEmpty());
        QCOMPARE(tlsPinger.requests().size(), tls && f[3] == u'1' ? 1 : 0);
    }
    // Half a page, cancelled or cut by the quit, never comes back as a page.
    void interruptCase(const QString& how) {
        const QByteArray body = TestPinger::linesOfSize(64 * 1024);
        m_pinger.setRoute(QStringLiteral("/drip"), routeOf(QStringLiteral("drip=1024/50"), body));
        bool stop = how == "before";
        if (how == "cancel")
            QTimer::singleShot(300, [&stop] { stop = true; });
        else if (how == "quit")
            QTimer::singleShot(300, [] { QCoreApplication::exit(0); });
        HttpSession session;
        TestFrontEnd ui;
        const Fetch got =
            fetch(session, m_pinger.url(QStringLiteral("/drip")), {}, 30, {}, &ui, &stop);
        QCOMPARE(m_pinger.requests().size(), how == "before" ? 0 : 1);
        if (how != "none") {
            QCOMPARE(got.code, HttpCode::TransferError);
            QVERIFY(got.lines.isEmpty());
            QVERIFY2(got.elapsedMs < 2000,
                     qPrintable(QStringLiteral("took %1 ms").arg(got.elapsedMs)));
            return;
        }
        QCOMPARE(got.code, HttpCode::Ok);
        QCOMPARE(LinesToBytes(got.lines), body);
        // The progress climbs from 0 to 100 with steps between.
        const QList<int>& p = ui.progress;
        const bool between =
            std::any_of(p.cbegin(), p.cend(), [](int v) { return v > 0 && v < 100; });
        QVERIFY(between && std::is_sorted(p.cbegin(), p.cend()) && p.constFirst() == 0 &&
                p.constLast() == 100);
    }
    TestPinger m_pinger;
};

QTEST_GUILESS_MAIN(TestHttpGet)
#include "tst_httpget.moc"
