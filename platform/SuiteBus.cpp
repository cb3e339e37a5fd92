#include "SuiteBus.h"

#include <QDBusConnectionInterface>
#include <QDBusInterface>
#include <QDBusReply>

SuiteBus::SuiteBus(QObject* parent) : SuiteBus(QDBusConnection::sessionBus(), parent) {}

SuiteBus::SuiteBus(const QDBusConnection& connection, QObject* parent)
    : QObject(parent), m_bus(connection) {
    if (m_bus.isConnected())
        m_bus.registerObject(objectPath(), this,
                             QDBusConnection::ExportScriptableSlots |
                                 QDBusConnection::ExportScriptableSignals);
}

bool SuiteBus::claim() {
    if (!m_bus.isConnected())
        return true;
    const QDBusReply<QDBusConnectionInterface::RegisterServiceReply> reply =
        m_bus.interface()->registerService(serviceName(),
                                           QDBusConnectionInterface::DontQueueService,
                                           QDBusConnectionInterface::DontAllowReplacement);
    // A bus that cannot answer must not keep the program from starting.
    return !reply.isValid() || reply.value() == QDBusConnectionInterface::ServiceRegistered;
}

bool SuiteBus::activateRunning() {
    if (!m_bus.isConnected())
        return false;
    QDBusInterface running(serviceName(), objectPath(), interfaceName(), m_bus);
    running.setTimeout(3000);
    const QDBusReply<void> reply = running.call(QStringLiteral("Activate"));
    return reply.isValid();
}

void SuiteBus::broadcast(int code, int value) {
    emit VKAppMessage(code, value);
    // Signals leave on their own schedule; a round trip on the same
    // connection makes sure this one is out before the program ends.
    if (m_bus.isConnected())
        m_bus.interface()->isServiceRegistered(serviceName());
}

void SuiteBus::Activate() {
    emit activateRequested();
}

void SuiteBus::PostMessage(int code, int value) {
    emit messageReceived(code, value);
}
