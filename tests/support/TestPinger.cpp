#include "TestPinger.h"

#include <QLocale>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <QUrl>
#include <QtNetwork/qtnetworkglobal.h>

#if QT_CONFIG(ssl)
#include <QSslConfiguration>
#include <QSslServer>
#endif

#ifdef Q_OS_UNIX
#include <sys/socket.h>
#endif

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

QDateTime parseHttpDate(const QByteArray& text) {
    const QDateTime time = QLocale::c().toDateTime(QString::fromLatin1(text.trimmed()), DateFormat);
    return time.isValid() ? QDateTime(time.date(), time.time(), Qt::UTC) : QDateTime();
}

// Bytes that no HTTP client can take for a status line, with a few line
// ends in between so that a line-based reader gets lines to choke on.
QByteArray garbage() {
    QByteArray bytes;
    bytes.reserve(4096);
    quint32 state = 0x2545F491;
    while (bytes.size() < 4096) {
        state = state * 1664525u + 1013904223u;
        bytes.append(char(state >> 24));
        if (bytes.size() % 200 == 0)
            bytes.append("\r\n");
    }
    bytes[0] = '\x00';
    return bytes;
}

bool wantsKeepAlive(const TestPinger::Request& request) {
    const QByteArray connection = request.header("Connection").toLower();
    if (connection.contains("close"))
        return false;
    if (request.version == "HTTP/1.0")
        return connection.contains("keep-alive");
    return true;
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
    Client(TestPinger* pinger, QTcpSocket* socket, int index)
        : QObject(pinger), m_pinger(pinger), m_socket(socket), m_index(index) {
        socket->setParent(this);
        connect(socket, &QTcpSocket::readyRead, this, &Client::onReadyRead);
        connect(socket, &QTcpSocket::bytesWritten, this, &Client::onBytesWritten);
        connect(socket, &QTcpSocket::disconnected, this, &QObject::deleteLater);
        connect(socket, &QTcpSocket::errorOccurred, this, [this] {
            if (m_socket->state() == QAbstractSocket::UnconnectedState)
                deleteLater();
        });
        connect(&m_drip, &QTimer::timeout, this, &Client::dripMore);
        onReadyRead();
    }

private:
    enum class Writing { Nothing, Endless, ThenReset, HeaderLines };

    void onReadyRead() {
        m_buffer += m_socket->readAll();
        processBuffer();
    }

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
            const char first = m_buffer.at(0);
            if (first < 'A' || first > 'Z')
                return badRequest();
            const qsizetype end = m_buffer.indexOf("\r\n\r\n");
            if (end < 0) {
                if (m_buffer.size() > MaxHeadBytes)
                    badRequest();
                return;
            }
            const QByteArray head = m_buffer.left(end);
            m_buffer.remove(0, end + 4);
            QList<QByteArray> lines = head.split('\n');
            for (QByteArray& line : lines)
                line = line.trimmed();
            const QList<QByteArray> parts = lines.takeFirst().split(' ');
            if (parts.size() != 3)
                return badRequest();
            Request request;
            request.connection = m_index;
            request.method = parts.at(0);
            request.target = parts.at(1);
            request.version = parts.at(2);
            for (const QByteArray& line : std::as_const(lines)) {
                const qsizetype colon = line.indexOf(':');
                if (colon > 0)
                    request.headers.append(
                        {line.left(colon).trimmed(), line.mid(colon + 1).trimmed()});
            }
            if (request.target.startsWith('/')) {
                const qsizetype query = request.target.indexOf('?');
                request.path = query < 0 ? request.target : request.target.left(query);
            } else {
                // The absolute form a client uses towards an HTTP proxy.
                request.path =
                    QUrl::fromEncoded(request.target).path(QUrl::FullyEncoded).toLatin1();
            }
            // GET has no body; anything else announced is skipped.
            const qsizetype bodyLength = request.header("Content-Length").toLongLong();
            m_buffer.remove(0, qMin(bodyLength, m_buffer.size()));

            m_pinger->m_requests.append(request);
            emit m_pinger->requestReceived(request);
            m_busy = true;
            const Route route = m_pinger->routeFor(request.path);
            if (route.delayMs > 0)
                QTimer::singleShot(route.delayMs, this,
                                   [this, request, route] { answer(request, route); });
            else
                answer(request, route);
        }
    }

    void answer(const Request& request, const Route& route) {
        Mode mode = route.mode;
        bool keepAlive = wantsKeepAlive(request);
        int status = route.status;
        QByteArray body = route.body;
        if (status == 200 && route.lastModified.isValid()) {
            const QDateTime since = parseHttpDate(request.header("If-Modified-Since"));
            if (since.isValid() && since >= route.lastModified) {
                status = 304;
                body.clear();
                mode = Mode::Normal;
            }
        }
        if (mode == Mode::Silent)
            return; // stays busy: later requests on this connection wait forever too
        if (mode == Mode::Garbage) {
            m_socket->write(body.isEmpty() ? garbage() : body);
            if (!route.keepOpen)
                m_socket->disconnectFromHost();
            return;
        }

        if (mode == Mode::HeaderFlood || mode == Mode::EndlessHeaderLine) {
            // The endless header line is the endless body written after a
            // header name.
            m_socket->write(mode == Mode::HeaderFlood ? "HTTP/1.1 200 OK\r\n"
                                                      : "HTTP/1.1 200 OK\r\nX-Flood: ");
            m_writing = mode == Mode::HeaderFlood ? Writing::HeaderLines : Writing::Endless;
            onBytesWritten();
            return;
        }

        const bool lengthKnown = mode != Mode::Endless && route.sendLength;
        if (!lengthKnown)
            keepAlive = false;
        QByteArray head = "HTTP/1.1 " + QByteArray::number(status) + ' ' + reasonPhrase(status) +
                          "\r\nDate: " + httpDate(QDateTime::currentDateTimeUtc()) + "\r\n";
        if (route.lastModified.isValid())
            head += "Last-Modified: " + httpDate(route.lastModified) + "\r\n";
        bool typed = false;
        for (const Header& h : route.headers) {
            head += h.first + ": " + h.second + "\r\n";
            typed = typed || h.first.compare("Content-Type", Qt::CaseInsensitive) == 0;
        }
        if (!typed && status != 304)
            head += "Content-Type: text/plain; charset=ISO-8859-1\r\n";
        if (lengthKnown && status != 304)
            head += "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
        head += keepAlive ? "Connection: keep-alive\r\n\r\n" : "Connection: close\r\n\r\n";
        m_socket->write(head);
        m_keepAlive = keepAlive;

        switch (mode) {
        case Mode::Drip:
            m_dripLeft = body;
            m_dripBytes = qMax(1, route.dripBytes);
            m_drip.start(qMax(1, route.dripIntervalMs));
            return;
        case Mode::Endless:
            m_writing = Writing::Endless;
            onBytesWritten();
            return;
        case Mode::ResetMidway:
            m_writing = Writing::ThenReset;
            m_socket->write(body.left(body.size() / 2));
            return;
        default:
            m_socket->write(body);
            answered();
        }
    }

    void answered() {
        if (m_keepAlive) {
            m_busy = false;
            processBuffer();
        } else {
            m_socket->disconnectFromHost();
        }
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
            static const QByteArray body(EndlessBlock, 'x');
            static const QByteArray headerLines = [] {
                QByteArray lines;
                while (lines.size() < EndlessBlock)
                    lines += "X-Flood-" + QByteArray::number(lines.size()) + ": 1\r\n";
                return lines;
            }();
            const QByteArray& block = m_writing == Writing::Endless ? body : headerLines;
            while (m_socket->state() == QAbstractSocket::ConnectedState &&
                   m_socket->bytesToWrite() < 4 * EndlessBlock)
                m_socket->write(block);
        } else if (m_writing == Writing::ThenReset && m_socket->bytesToWrite() == 0) {
            m_writing = Writing::Nothing;
            reset();
        }
    }

    // A reset, not an orderly close: the client sees "connection reset by
    // peer" where the socket layer allows it.
    void reset() {
#ifdef Q_OS_UNIX
        const struct linger hard = {1, 0};
        ::setsockopt(int(m_socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
#endif
        m_socket->abort();
    }

    TestPinger* m_pinger;
    QTcpSocket* m_socket;
    int m_index;
    QByteArray m_buffer;
    bool m_busy = false;
    bool m_keepAlive = false;
    Writing m_writing = Writing::Nothing;
    QTimer m_drip;
    QByteArray m_dripLeft;
    int m_dripBytes = 1;
};

TestPinger::TestPinger(QObject* parent) : QObject(parent) {}

TestPinger::~TestPinger() = default;

bool TestPinger::listen() {
    close();
    m_server = new QTcpServer(this);
    return startListening();
}

bool TestPinger::listenTls(const QSslConfiguration& configuration) {
    close();
#if QT_CONFIG(ssl)
    auto* server = new QSslServer(this);
    server->setSslConfiguration(configuration);
    m_server = server;
    return startListening();
#else
    Q_UNUSED(configuration);
    return false;
#endif
}

bool TestPinger::startListening() {
    connect(m_server, &QTcpServer::pendingConnectionAvailable, this, &TestPinger::acceptAll);
    connect(m_server, &QTcpServer::newConnection, this, &TestPinger::acceptAll);
    return m_server->listen(QHostAddress::LocalHost, 0);
}

void TestPinger::close() {
    if (!m_server)
        return;
    m_server->close();
    delete m_server;
    m_server = nullptr;
}

void TestPinger::acceptAll() {
    while (m_server && m_server->hasPendingConnections()) {
        QTcpSocket* socket = m_server->nextPendingConnection();
        new Client(this, socket, m_connections++);
    }
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

void TestPinger::setRoute(const QString& path, const Route& route) {
    m_routes.insert(path, route);
}

void TestPinger::serve(const QString& path, const QByteArray& body, const QDateTime& lastModified) {
    Route route;
    route.body = body;
    route.lastModified = lastModified;
    setRoute(path, route);
}

void TestPinger::fail(const QString& path, int status, const QByteArray& body) {
    Route route;
    route.status = status;
    route.body = body;
    route.headers.append(TestPinger::Header{"Content-Type", "text/html; charset=ISO-8859-1"});
    setRoute(path, route);
}

void TestPinger::redirect(const QString& path, const QString& location, int status) {
    Route route;
    route.status = status;
    route.headers.append(TestPinger::Header{"Location", location.toLatin1()});
    setRoute(path, route);
}

TestPinger::Route TestPinger::routeFor(const QByteArray& path) const {
    const auto found = m_routes.constFind(QString::fromLatin1(path));
    if (found != m_routes.constEnd())
        return *found;
    Route missing;
    missing.status = 404;
    missing.body = "<html><body><h1>Not Found</h1></body></html>\r\n";
    return missing;
}

void TestPinger::clearLog() {
    m_requests.clear();
}

static void setDrip(TestPinger::Route& route, int bytes, int intervalMs) {
    route.mode = TestPinger::Mode::Drip;
    route.dripBytes = bytes;
    route.dripIntervalMs = intervalMs;
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
        else if (key == QLatin1String("drip"))
            setDrip(route, value.section(u'/', 0, 0).toInt(), value.section(u'/', 1).toInt());
        else if (key == QLatin1String("lines"))
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
    QByteArray line(63, 'v');
    line.append('\n');
    QByteArray body;
    body.reserve(size);
    while (body.size() < size)
        body.append(line);
    body.truncate(size);
    return body;
}
