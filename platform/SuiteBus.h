#pragma once

#include <QDBusConnection>
#include <QObject>

// The suite's shared window message and the single running copy, carried by
// the session D-Bus. The first copy owns the well-known name; a later one
// asks it to come forward and leaves. Broadcasts are a signal anybody on the
// bus may follow. Without a bus every start is a first start and broadcasts
// go nowhere.
class SuiteBus : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.vkstats.VKstats")
public:
    static QString serviceName() { return QStringLiteral("org.vkstats.VKStatsWin4"); }
    static QString objectPath() { return QStringLiteral("/VKStatsWin4"); }
    static QString interfaceName() { return QStringLiteral("org.vkstats.VKstats"); }

    explicit SuiteBus(QObject* parent = nullptr);
    SuiteBus(const QDBusConnection& connection, QObject* parent = nullptr);

    bool isConnected() const { return m_bus.isConnected(); }
    // Takes the name; false when another copy holds it.
    bool claim();
    // Asks the copy that holds the name to come forward; false when nobody
    // answered (a copy still starting, or one whose window is gone).
    bool activateRunning();
    // The status report to the suite (code 3 and its outcome).
    void broadcast(int code, int value);

public slots:
    Q_SCRIPTABLE void Activate();
    // The suite's message: code 1 asks the window to close, code 2 says the
    // stored proxies changed. Other codes are ignored by the receiver.
    Q_SCRIPTABLE void PostMessage(int code, int value);

signals:
    Q_SCRIPTABLE void VKAppMessage(int code, int value);
    void activateRequested();
    void messageReceived(int code, int value);

private:
    QDBusConnection m_bus;
};
