#pragma once

#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

// A real proxy from the system's packages, run on a free loopback port for
// the length of a test: tinyproxy for HTTP, microsocks for SOCKS5. It is
// stopped when this object goes.
class ProxyProcess {
public:
    enum class Kind { Tinyproxy, Microsocks };

    explicit ProxyProcess(Kind kind) : m_kind(kind) {}
    ~ProxyProcess() { stop(); }

    // Starts the proxy on 127.0.0.1 and waits until it accepts connections.
    // Microsocks demands user and password when they are given; tinyproxy
    // takes none. False with errorString() when it did not come up.
    bool start(const QString& user = {}, const QString& password = {});
    void stop();
    QString errorString() const { return m_error; }
    quint16 port() const { return m_port; }
    // What the proxy has logged: tinyproxy's log file, microsocks' output.
    QString log() const;

    // Proxy settings as the suite database hands them to the downloads,
    // with the credentials the proxy was started with or with others.
    QStringList settings() const { return settings(m_user, m_password); }
    QStringList settings(const QString& user, const QString& password) const;

private:
    Kind m_kind;
    QTemporaryDir m_dir;
    QProcess m_process;
    quint16 m_port = 0;
    QString m_user;
    QString m_password;
    QString m_error;
};
