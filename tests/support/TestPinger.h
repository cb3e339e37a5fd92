#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <utility>

class QSslConfiguration;
class QTcpServer;

// A small HTTP/1.1 server on 127.0.0.1 that plays a pinger site, well
// behaved or not, for the download tests and the demo. Each path is set up
// with a Route; every request is logged. QtCore and QtNetwork only.
class TestPinger : public QObject {
    Q_OBJECT
public:
    using Header = std::pair<QByteArray, QByteArray>;

    enum class Mode {
        Normal,            // the whole answer at once
        Drip,              // the body in small pieces at intervals
        Endless,           // a body that never ends, as fast as the client reads
        ResetMidway,       // half of the announced body, then the connection is reset
        Garbage,           // bytes that are no HTTP at all, then the connection closes
        Silent,            // reads the request and never answers
        HeaderFlood,       // a status line, then header lines that never end
        EndlessHeaderLine, // a status line, then one header line that never ends
    };

    struct Route {
        Mode mode = Mode::Normal;
        int status = 200;
        QByteArray body{};
        // Sent as Last-Modified; a request whose If-Modified-Since is at or
        // after it gets 304.
        QDateTime lastModified{};
        QList<Header> headers{}; // added as they are
        int delayMs = 0;         // before the answer starts
        int dripBytes = 16;
        int dripIntervalMs = 100;
        // Without a length the body ends when the connection closes.
        bool sendLength = true;
        // Garbage (made up here): the connection stays open after the bytes.
        bool keepOpen = false;
    };

    struct Request {
        QByteArray path; // also from the absolute form sent to an HTTP proxy
        QList<Header> headers;
        bool proxied = false; // from 127.0.0.2, where the test proxies connect from
        // Empty when missing; names ignore case.
        QByteArray header(const QByteArray& name) const;
    };

    explicit TestPinger(QObject* parent = nullptr) : QObject(parent) {}

    // Listens on 127.0.0.1 at a free port; listenTls speaks https.
    bool listen();
    bool listenTls(const QSslConfiguration& configuration);
    quint16 port() const;
    QString url(const QString& path, const QString& host = QStringLiteral("127.0.0.1")) const;

    void setRoute(const QString& path, const Route& route) { m_routes.insert(path, route); }
    void serve(const QString& path, const QByteArray& body, const QDateTime& lastModified = {});
    void redirect(const QString& path, const QString& location, int status = 302);

    int connectionCount() const { return m_connections; }
    QList<Request> requests() const { return m_requests; }
    void clearLog() { m_requests.clear(); }

    // Sets route from "key=value" words, those of a scenario's pinger.txt
    // (tests/scenarios/README.md). Returns what was wrong with a word, or nothing.
    static QString applyRouteWords(Route& route, const QStringList& words);
    // size bytes of 64-byte lines, so that a body cut at a multiple of 64
    // still ends in a line end.
    static QByteArray linesOfSize(qint64 size);

signals:
    void requestReceived(const TestPinger::Request& request);

private:
    class Client;
    friend class Client;
    bool startListening(QTcpServer* server);
    Route routeFor(const QByteArray& path) const;

    QTcpServer* m_server = nullptr;
    QHash<QString, Route> m_routes;
    QList<Request> m_requests;
    int m_connections = 0;
};
