#include "ProxyProcess.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QHostAddress>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>

namespace {

constexpr int StartAttempts = 4;
constexpr int ReadyWithinMs = 5000;

// A port nobody listens on right now. Another program may take it before the
// proxy does; start() then tries again with a new one.
quint16 freeLoopbackPort() {
    QTcpServer probe;
    if (!probe.listen(QHostAddress::LocalHost, 0))
        return 0;
    return probe.serverPort();
}

bool accepts(quint16 port) {
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, port);
    const bool connected = socket.waitForConnected(200);
    socket.abort();
    return connected;
}

} // namespace

ProxyProcess::ProxyProcess(Kind kind) : m_kind(kind) {}

ProxyProcess::~ProxyProcess() {
    stop();
}

QString ProxyProcess::executable(Kind kind) {
    const QString name =
        kind == Kind::Tinyproxy ? QStringLiteral("tinyproxy") : QStringLiteral("microsocks");
    QString found = QStandardPaths::findExecutable(name);
    // Older Debian releases put tinyproxy in sbin, which a user's PATH lacks.
    if (found.isEmpty())
        found = QStandardPaths::findExecutable(
            name, {QStringLiteral("/usr/sbin"), QStringLiteral("/usr/local/sbin")});
    return found;
}

bool ProxyProcess::start(const QString& user, const QString& password) {
    stop();
    m_user = user;
    m_password = password;
    const QString program = executable(m_kind);
    if (program.isEmpty()) {
        m_error = m_kind == Kind::Tinyproxy ? QStringLiteral("tinyproxy is not installed")
                                            : QStringLiteral("microsocks is not installed");
        return false;
    }
    if (!m_dir.isValid()) {
        m_error = QStringLiteral("No temporary folder: %1").arg(m_dir.errorString());
        return false;
    }
    for (int attempt = 0; attempt < StartAttempts; ++attempt) {
        const quint16 port = freeLoopbackPort();
        if (port != 0 && startOnce(program, port))
            return true;
    }
    return false;
}

bool ProxyProcess::startOnce(const QString& program, quint16 port) {
    QStringList arguments;
    if (m_kind == Kind::Tinyproxy) {
        const QString configPath = m_dir.filePath(QStringLiteral("tinyproxy.conf"));
        QFile config(configPath);
        if (!config.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
            m_error = config.errorString();
            return false;
        }
        config.write(QStringLiteral("Port %1\n"
                                    "Listen 127.0.0.1\n"
                                    "Allow 127.0.0.1\n"
                                    "LogFile \"%2\"\n"
                                    "LogLevel Info\n"
                                    "Timeout 30\n"
                                    "MaxClients 20\n")
                         .arg(port)
                         .arg(logPath())
                         .toUtf8());
        config.close();
        // -d: stay in the foreground, so the process is ours to stop.
        arguments << QStringLiteral("-d") << QStringLiteral("-c") << configPath;
    } else {
        arguments << QStringLiteral("-i") << QStringLiteral("127.0.0.1") << QStringLiteral("-p")
                  << QString::number(port);
        if (!m_user.isEmpty() || !m_password.isEmpty())
            arguments << QStringLiteral("-u") << m_user << QStringLiteral("-P") << m_password;
    }

    m_process = std::make_unique<QProcess>();
    m_process->setProcessChannelMode(QProcess::MergedChannels);
    m_process->setStandardOutputFile(outputPath(), QIODevice::Append);
    m_process->start(program, arguments);
    if (!m_process->waitForStarted(3000)) {
        m_error = QStringLiteral("%1 did not start: %2").arg(program, m_process->errorString());
        m_process.reset();
        return false;
    }
    const QDeadlineTimer ready(ReadyWithinMs);
    while (!ready.hasExpired()) {
        if (accepts(port)) {
            m_port = port;
            return true;
        }
        // Waiting for the end doubles as the pause between tries.
        if (m_process->waitForFinished(50))
            break;
    }
    m_error = QStringLiteral("%1 did not accept connections on port %2: %3")
                  .arg(program)
                  .arg(port)
                  .arg(log().right(2000));
    stop();
    return false;
}

void ProxyProcess::stop() {
    if (!m_process)
        return;
    if (m_process->state() != QProcess::NotRunning) {
        m_process->terminate();
        if (!m_process->waitForFinished(3000)) {
            m_process->kill();
            m_process->waitForFinished(3000);
        }
    }
    m_process.reset();
}

bool ProxyProcess::isRunning() const {
    return m_process && m_process->state() == QProcess::Running;
}

QString ProxyProcess::log() const {
    QString text;
    for (const QString& path : {logPath(), outputPath()}) {
        QFile file(path);
        if (file.open(QIODevice::ReadOnly))
            text += QString::fromLocal8Bit(file.readAll());
    }
    return text;
}

QStringList ProxyProcess::settings(const QString& user, const QString& password) const {
    return {QStringLiteral("kind=") +
                (m_kind == Kind::Tinyproxy ? QStringLiteral("http") : QStringLiteral("socks5")),
            QStringLiteral("host=127.0.0.1"), QStringLiteral("port=") + QString::number(m_port),
            QStringLiteral("user=") + user, QStringLiteral("password=") + password};
}

QString ProxyProcess::logPath() const {
    return m_dir.filePath(QStringLiteral("proxy.log"));
}

QString ProxyProcess::outputPath() const {
    return m_dir.filePath(QStringLiteral("output.log"));
}
