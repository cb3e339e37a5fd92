#include "TestPinger.h"

#include <QLocale>
#include <QSslServer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <QUrl>

#include <sys/socket.h>

namespace {

constexpr qsizetype MaxHeadBytes = 64 * 1024;
constexpr qsizetype EndlessBlock = 64 * 1024;

QByteArray reasonPhrase(int status) {
    static const QHash<int, QByteArray> phrases = {
        {200, "OK"},           {301, "Moved Permanently"},
        {302, "Found"},        {303, "See Other"},
        {304, "Not Modified"}, {307, "Temporary Redirect"},
        {400, "Bad Request"},  {403, "Forbidden"},
        {404, "Not Found"},    {500, "Internal Server Error"},
        {502, "Bad Gateway"},  {503, "Service Unavailable"}};
    return phrases.value(status, "Status");
}

const QString DateFormat = QStringLiteral("ddd, dd MMM yyyy hh:mm:ss 'GMT'");

QByteArray httpDate(const QDateTime& time) {
    return QLocale::c().toString(time.toUTC(), DateFormat).toLatin1();
}

// Bytes that no HTTP client can take for a status line, with a few line
// ends in between so that a line-based reader gets lines to choke on.
QByteArray garbage() {
    QByteArray bytes;
    for (int i = 0; i < 20; ++i)
        bytes += QByteArray(200, char(0x80 + 5 * i)) + "\r\n";
    bytes[0] = '\x00';
    return bytes;
}

// What the endless modes write, block after block: body bytes, or header lines.
const QByteArray& endlessBlock(bool headerLines) {
    static const QByteArray body(EndlessBlock, 'x');
    static const QByteArray lines = [] {
        QByteArray text;
        while (text.size() < EndlessBlock)
            text += "X-Flood-" + QByteArray::number(text.size()) + ": 1\r\n";
        return text;
    }();
    return headerLines ? lines : body;
}

} // namespace

QByteArray TestPinger::Request::header(const QByteArray& name) const {
    for (const Header& h : headers)
        if (h.first.compare(name, Qt::CaseInsensitive) == 0)
            return h.second;
    return {};
}

// One accepted connection: reads requests one after another (HTTP/1.1 keep
// alive) and answers each as its route says.
class TestPinger::Client : public QObject {
public:
    Client(TestPinger* pinger, QTcpSocket* socket)
        : QObject(pinger), m_pinger(pinger), m_socket(socket) {
        socket->setParent(this);
        connect(socket, &QTcpSocket::readyRead, this, [this] {
            m_buffer += m_socket->readAll();
            processBuffer();
        });
        connect(socket, &QTcpSocket::bytesWritten, this, &Client::onBytesWritten);
        connect(socket, &QTcpSocket::disconnected, this, &QObject::deleteLater);
        connect(socket, &QTcpSocket::errorOccurred, this, [this] {
            if (m_socket->state() == QAbstractSocket::UnconnectedState)
                deleteLater();
        });
        connect(&m_drip, &QTimer::timeout, this, &Client::dripMore);
        m_buffer = socket->readAll();
        processBuffer();
    }

private:
    enum class Writing { Nothing, Endless, ThenReset, HeaderLines };

    void badRequest() {
        m_busy = true;
        m_socket->write("HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n"
                        "Connection: close\r\n\r\n");
        m_socket->disconnectFromHost();
    }

    void processBuffer() {
        while (!m_busy && !m_buffer.isEmpty()) {
            // A method starts with a letter; a TLS hello or other noise does
            // not, and gets its answer at once instead of a wait.
            if (m_buffer.at(0) < 'A' || m_buffer.at(0) > 'Z')
                return badRequest();
            const qsizetype end = m_buffer.indexOf("\r\n\r\n");
            if (end < 0)
                return m_buffer.size() > MaxHeadBytes ? badRequest() : void();
            QList<QByteArray> lines = m_buffer.left(end).split('\n');
            m_buffer.remove(0, end + 4);
            const QList<QByteArray> parts = lines.takeFirst().trimmed().split(' ');
            if (parts.size() != 3)
                return badRequest();
            Request request;
            request.proxied = m_socket->peerAddress() != QHostAddress(QHostAddress::LocalHost);
            for (const QByteArray& line : std::as_const(lines)) {
                const qsizetype colon = line.indexOf(':');
                if (colon > 0)
                    request.headers.append(
                        {line.left(colon).trimmed(), line.mid(colon + 1).trimmed()});
            }
            // The origin form, or the absolute form a client uses towards an HTTP proxy.
            request.path = parts[1].startsWith('/')
                               ? parts[1].split('?').constFirst()
                               : QUrl::fromEncoded(parts[1]).path(QUrl::FullyEncoded).toLatin1();
            // GET has no body; anything else announced is skipped.
            m_buffer.remove(0,
                            qMin(request.header("Content-Length").toLongLong(), m_buffer.size()));
            const QByteArray connection = request.header("Connection").toLower();
            m_keepAlive = !connection.contains("close") &&
                          (parts[2] != "HTTP/1.0" || connection.contains("keep-alive"));

            m_pinger->m_requests.append(request);
            emit m_pinger->requestReceived(request);
            m_busy = true;
            const Route route = m_pinger->routeFor(request.path);
            const QDateTime since = QLocale::c().toDateTime(
                QString::fromLatin1(request.header("If-Modified-Since")), DateFormat);
            const bool notModified =
                route.status == 200 && route.lastModified.isValid() && since.isValid() &&
                QDateTime(since.date(), since.time(), Qt::UTC) >= route.lastModified;
            QTimer::singleShot(route.delayMs, this,
                               [this, route, notModified] { answer(route, notModified); });
        }
    }

    void answer(Route route, bool notModified) {
        if (notModified) {
            route.status = 304;
            route.body.clear();
            route.mode = Mode::Normal;
        }
        switch (route.mode) {
        case Mode::Silent:
            return; // stays busy: later requests on this connection wait forever too
        case Mode::Garbage:
            m_socket->write(garbage());
            if (!route.keepOpen)
                m_socket->disconnectFromHost();
            return;
        case Mode::HeaderFlood:
        case Mode::EndlessHeaderLine: {
            // The endless header line is the endless body written after a
            // header name.
            const bool flood = route.mode == Mode::HeaderFlood;
            m_socket->write(flood ? "HTTP/1.1 200 OK\r\n" : "HTTP/1.1 200 OK\r\nX-Flood: ");
            m_writing = flood ? Writing::HeaderLines : Writing::Endless;
            return onBytesWritten();
        }
        default:
            break;
        }
        const bool lengthKnown = route.mode != Mode::Endless && route.sendLength;
        m_keepAlive = m_keepAlive && lengthKnown;
        const int status = route.status;
        QByteArray head = "HTTP/1.1 " + QByteArray::number(status) + ' ' + reasonPhrase(status) +
                          "\r\nDate: " + httpDate(QDateTime::currentDateTimeUtc()) + "\r\n";
        if (route.lastModified.isValid())
            head += "Last-Modified: " + httpDate(route.lastModified) + "\r\n";
        bool typed = false;
        for (const Header& h : std::as_const(route.headers)) {
            head += h.first + ": " + h.second + "\r\n";
            typed = typed || h.first.compare("Content-Type", Qt::CaseInsensitive) == 0;
        }
        if (!typed && status != 304)
            head += "Content-Type: text/plain; charset=ISO-8859-1\r\n";
        if (lengthKnown && status != 304)
            head += "Content-Length: " + QByteArray::number(route.body.size()) + "\r\n";
        head += m_keepAlive ? "Connection: keep-alive\r\n\r\n" : "Connection: close\r\n\r\n";
        m_socket->write(head);

        if (route.mode == Mode::Drip) {
            m_dripLeft = route.body;
            m_dripBytes = qMax(1, route.dripBytes);
            m_drip.start(qMax(1, route.dripIntervalMs));
        } else if (route.mode == Mode::Endless) {
            m_writing = Writing::Endless;
            onBytesWritten();
        } else if (route.mode == Mode::ResetMidway) {
            m_writing = Writing::ThenReset;
            m_socket->write(route.body.left(route.body.size() / 2));
        } else {
            m_socket->write(route.body);
            answered();
        }
    }

    void answered() {
        if (!m_keepAlive)
            return m_socket->disconnectFromHost();
        m_busy = false;
        processBuffer();
    }

    void dripMore() {
        m_socket->write(m_dripLeft.left(m_dripBytes));
        m_dripLeft.remove(0, qMin<qsizetype>(m_dripBytes, m_dripLeft.size()));
        if (m_dripLeft.isEmpty()) {
            m_drip.stop();
            answered();
        }
    }

    void onBytesWritten() {
        if (m_writing == Writing::Endless || m_writing == Writing::HeaderLines) {
            while (m_socket->state() == QAbstractSocket::ConnectedState &&
                   m_socket->bytesToWrite() < 4 * EndlessBlock)
                m_socket->write(endlessBlock(m_writing == Writing::HeaderLines));
        } else if (m_writing == Writing::ThenReset && m_socket->bytesToWrite() == 0) {
            // A reset, not an orderly close: the client sees "connection
            // reset by peer".
            m_writing = Writing::Nothing;
            const struct linger hard = {1, 0};
            ::setsockopt(int(m_socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &hard,
                         sizeof hard);
            m_socket->abort();
        }
    }

    TestPinger* m_pinger;
    QTcpSocket* m_socket;
    QByteArray m_buffer;
    bool m_busy = false;
    bool m_keepAlive = false;
    Writing m_writing = Writing::Nothing;
    QTimer m_drip;
    QByteArray m_dripLeft;
    int m_dripBytes = 1;
};

bool TestPinger::listen() {
    return startListening(new QTcpServer(this));
}

bool TestPinger::listenTls(const QSslConfiguration& configuration) {
    auto* server = new QSslServer(this);
    server->setSslConfiguration(configuration);
    return startListening(server);
}

bool TestPinger::startListening(QTcpServer* server) {
    delete m_server; // a listen again replaces the server
    m_server = server;
    const auto acceptAll = [this] {
        while (m_server && m_server->hasPendingConnections()) {
            new Client(this, m_server->nextPendingConnection());
            ++m_connections;
        }
    };
    connect(m_server, &QTcpServer::pendingConnectionAvailable, this, acceptAll);
    connect(m_server, &QTcpServer::newConnection, this, acceptAll);
    return m_server->listen(QHostAddress::LocalHost, 0);
}

quint16 TestPinger::port() const {
    return m_server ? m_server->serverPort() : 0;
}

QString TestPinger::url(const QString& path, const QString& host) const {
    const bool tls = m_server && m_server->inherits("QSslServer");
    return QStringLiteral("%1://%2:%3%4")
        .arg(tls ? QStringLiteral("https") : QStringLiteral("http"), host)
        .arg(port())
        .arg(path);
}

void TestPinger::serve(const QString& path, const QByteArray& body, const QDateTime& lastModified) {
    setRoute(path, {.body = body, .lastModified = lastModified});
}

void TestPinger::redirect(const QString& path, const QString& location, int status) {
    setRoute(path, {.status = status, .headers = {{"Location", location.toLatin1()}}});
}

TestPinger::Route TestPinger::routeFor(const QByteArray& path) const {
    return m_routes.value(
        QString::fromLatin1(path),
        {.status = 404, .body = "<html><body><h1>Not Found</h1></body></html>\r\n"});
}

QString TestPinger::applyRouteWords(Route& route, const QStringList& words) {
    static const QHash<QString, Mode> modes = {
        {"normal", Mode::Normal},           {"drip", Mode::Drip},
        {"endless", Mode::Endless},         {"reset", Mode::ResetMidway},
        {"garbage", Mode::Garbage},         {"silent", Mode::Silent},
        {"headerflood", Mode::HeaderFlood}, {"endlessheader", Mode::EndlessHeaderLine}};
    for (const QString& word : words) {
        const QString key = word.section(u'=', 0, 0);
        const QString value = word.section(u'=', 1);
        if (key == QLatin1String("status"))
            route.status = value.toInt();
        else if (key == QLatin1String("mode") && modes.contains(value))
            route.mode = modes.value(value);
        else if (key == QLatin1String("delay"))
            route.delayMs = value.toInt();
        else if (key == QLatin1String("lastmodified"))
            route.lastModified = QDateTime::fromString(value, Qt::ISODate);
        else if (key == QLatin1String("header"))
            route.headers.append(
                {value.section(u':', 0, 0).toUtf8(), value.section(u':', 1).toUtf8()});
        else if (key == QLatin1String("drip")) {
            route.mode = Mode::Drip;
            route.dripBytes = value.section(u'/', 0, 0).toInt();
            route.dripIntervalMs = value.section(u'/', 1).toInt();
        } else if (key == QLatin1String("lines"))
            route.body = linesOfSize(value.toLongLong());
        else if (key == QLatin1String("length"))
            route.sendLength = value != u'0';
        else if (key == QLatin1String("keepopen"))
            route.keepOpen = true;
        else
            return QStringLiteral("unknown route word \"%1\"").arg(word);
    }
    return {};
}

QByteArray TestPinger::linesOfSize(qint64 size) {
    QByteArray body;
    body.reserve(size);
    while (body.size() < size)
        body.append(QByteArray(63, 'v') + '\n');
    body.truncate(size);
    return body;
}
