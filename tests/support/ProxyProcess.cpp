#include "ProxyProcess.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>

bool ProxyProcess::start(const QString& user, const QString& password) {
    stop();
    m_user = user;
    m_password = password;
    const QString name = m_kind == Kind::Tinyproxy ? "tinyproxy" : "microsocks";
    // Older Debian releases put tinyproxy in sbin, which a user's PATH lacks.
    QString program = QStandardPaths::findExecutable(name);
    if (program.isEmpty())
        program = QStandardPaths::findExecutable(name, {"/usr/sbin", "/usr/local/sbin"});
    m_error = program.isEmpty() ? name + " is not installed" : m_dir.errorString();
    if (program.isEmpty() || !m_dir.isValid())
        return false;
    // A port free now may be taken before the proxy gets it: try again.
    for (int attempt = 0; attempt < 4; ++attempt) {
        QTcpServer probe;
        if (!probe.listen(QHostAddress::LocalHost, 0))
            return false;
        m_port = probe.serverPort();
        probe.close();
        // Out from 127.0.0.2, so that the pinger tells proxied requests apart.
        QStringList arguments = {"-i", "127.0.0.1", "-p", QString::number(m_port),
                                 "-b", "127.0.0.2"};
        if (m_kind == Kind::Tinyproxy) {
            QFile config(m_dir.filePath("tinyproxy.conf"));
            if (!config.open(QIODevice::WriteOnly | QIODevice::Truncate))
                return false;
            config.write(
                QStringLiteral("Port %1\nListen 127.0.0.1\nAllow 127.0.0.1\nLogFile \"%2\"\n"
                               "LogLevel Info\nTimeout 30\nMaxClients 20\nBind 127.0.0.2\n")
                    .arg(m_port)
                    .arg(m_dir.filePath("proxy.log"))
                    .toUtf8());
            // -d: stay in the foreground, so the process is ours to stop.
            arguments = {"-d", "-c", config.fileName()};
        } else if (!user.isEmpty() || !password.isEmpty()) {
            arguments << "-u" << user << "-P" << password;
        }
        m_process.setProcessChannelMode(QProcess::MergedChannels);
        m_process.setStandardOutputFile(m_dir.filePath("output.log"), QIODevice::Append);
        m_process.start(program, arguments);
        const QDeadlineTimer ready(5000);
        // Waiting for the end doubles as the pause between tries.
        while (m_process.waitForStarted(3000) && !ready.hasExpired() &&
               !m_process.waitForFinished(50)) {
            QTcpSocket socket;
            socket.connectToHost(QHostAddress::LocalHost, m_port);
            if (socket.waitForConnected(200))
                return true;
        }
        m_error = QStringLiteral("%1 did not accept connections on port %2: %3 %4")
                      .arg(program)
                      .arg(m_port)
                      .arg(m_process.errorString(), log().right(2000));
        stop();
    }
    return false;
}

void ProxyProcess::stop() {
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(3000)) {
        m_process.kill();
        m_process.waitForFinished(3000);
    }
}

QString ProxyProcess::log() const {
    QString text;
    for (const char* name : {"proxy.log", "output.log"}) {
        QFile file(m_dir.filePath(name));
        if (file.open(QIODevice::ReadOnly))
            text += QString::fromLocal8Bit(file.readAll());
    }
    return text;
}

QStringList ProxyProcess::settings(const QString& user, const QString& password) const {
    return {m_kind == Kind::Tinyproxy ? "kind=http" : "kind=socks5", "host=127.0.0.1",
            "port=" + QString::number(m_port), "user=" + user, "password=" + password};
}
