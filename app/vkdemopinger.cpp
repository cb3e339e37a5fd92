// A stand-in pinger for trying VKstats without the internet: serves the
// files of one folder over HTTP on the loopback interface, with the
// Last-Modified and If-Modified-Since handling real pingers have.
#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimeZone>

#include <cstdio>

namespace {

QByteArray httpDate(const QDateTime& time) {
    return QLocale::c()
               .toString(time.toUTC(), QStringLiteral("ddd, dd MMM yyyy hh:mm:ss"))
               .toLatin1() +
           " GMT";
}

QDateTime parseHttpDate(const QByteArray& text) {
    QDateTime time = QLocale::c().toDateTime(QString::fromLatin1(text).trimmed().chopped(4),
                                             QStringLiteral("ddd, dd MMM yyyy hh:mm:ss"));
    time.setTimeZone(QTimeZone::utc());
    return time;
}

QByteArray header(const QByteArray& request, const QByteArray& name) {
    for (const QByteArray& line : request.split('\n')) {
        const qsizetype colon = line.indexOf(':');
        if (colon > 0 && line.left(colon).trimmed().compare(name, Qt::CaseInsensitive) == 0)
            return line.mid(colon + 1).trimmed();
    }
    return {};
}

QByteArray respond(const QDir& folder, const QByteArray& request) {
    const QList<QByteArray> words = request.left(request.indexOf('\r')).split(' ');
    const QString name = words.size() >= 2 ? QString::fromLatin1(words[1].mid(1)) : QString();
    // Only plain names of files in the folder itself are served.
    const bool plain = !name.isEmpty() && !name.contains(u'/') && !name.contains(u'\\') &&
                       name != QStringLiteral("..") && name != QStringLiteral(".");
    const QFileInfo info(folder.filePath(name));
    if (words.value(0) != "GET" || !plain || !info.isFile())
        return "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
    const QDateTime modified = info.lastModified().toUTC();
    const QByteArray since = header(request, "If-Modified-Since");
    if (!since.isEmpty() && parseHttpDate(since).isValid() &&
        modified.toSecsSinceEpoch() <= parseHttpDate(since).toSecsSinceEpoch())
        return "HTTP/1.1 304 Not Modified\r\nConnection: close\r\n\r\n";
    QFile file(info.filePath());
    if (!file.open(QIODevice::ReadOnly))
        return "HTTP/1.1 500 Internal Server Error\r\nContent-Length: 0\r\nConnection: "
               "close\r\n\r\n";
    const QByteArray body = file.readAll();
    return "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nLast-Modified: " + httpDate(modified) +
           "\r\nContent-Length: " + QByteArray::number(body.size()) +
           "\r\nConnection: close\r\n\r\n" + body;
}

} // namespace

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() < 2 || args.contains(QStringLiteral("--help"))) {
        std::fputs("Usage: vkdemopinger FOLDER [PORT]\n"
                   "Serves the files of FOLDER on 127.0.0.1 (PORT 0 or none: any free port)\n"
                   "and prints the base URL.\n",
                   args.size() < 2 ? stderr : stdout);
        return args.size() < 2 ? 64 : 0;
    }
    const QDir folder(args[1]);
    QTcpServer server;
    if (!server.listen(QHostAddress::LocalHost, quint16(args.value(2).toUInt()))) {
        std::fprintf(stderr, "vkdemopinger: %s\n", qPrintable(server.errorString()));
        return 1;
    }
    QObject::connect(&server, &QTcpServer::newConnection, [&] {
        while (QTcpSocket* socket = server.nextPendingConnection()) {
            QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            QObject::connect(socket, &QTcpSocket::readyRead, socket, [socket, &folder] {
                if (socket->bytesAvailable() > 65536) {
                    socket->abort();
                    return;
                }
                if (!socket->peek(65536).contains("\r\n\r\n"))
                    return;
                socket->write(respond(folder, socket->readAll()));
                socket->disconnectFromHost();
            });
        }
    });
    std::printf("http://127.0.0.1:%u/\n", unsigned(server.serverPort()));
    std::fflush(stdout);
    return app.exec();
}
