#include "SuiteLink.h"

#include <QFileInfo>
#include <QLibrary>

#include <cstdio>

namespace {

// The places D-Bus looks for a session bus: the address it was given, the
// user bus in the runtime folder, and a bus started for the X display.
bool sessionBusPossible() {
    if (!qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS") ||
        !qEnvironmentVariableIsEmpty("DISPLAY"))
        return true;
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    return !runtime.isEmpty() && QFileInfo::exists(runtime + QStringLiteral("/bus"));
}

} // namespace

SuiteLink::SuiteLink() {
    if (!sessionBusPossible())
        return;
    QLibrary module(ModulePath(QStringLiteral(VKSTATS_BUS_MODULE)));
    const auto open = reinterpret_cast<BusOpenFunction>(module.resolve(BusOpenSymbol));
    m_broadcast = reinterpret_cast<BusBroadcastFunction>(module.resolve(BusBroadcastSymbol));
    m_close = reinterpret_cast<BusCloseFunction>(module.resolve(BusCloseSymbol));
    if (!open || !m_broadcast || !m_close) {
        std::fprintf(stderr, "vkstats: no suite messages on the session bus: %s\n",
                     qPrintable(module.errorString()));
        return;
    }
    m_bus = open(&SuiteLink::receive, this);
}

SuiteLink::~SuiteLink() {
    if (m_bus)
        m_close(m_bus);
}

void SuiteLink::broadcast(int code, int value) {
    if (m_bus)
        m_broadcast(m_bus, code, value);
}

void SuiteLink::receive(void* context, int code, int value) {
    const SuiteLink* link = static_cast<const SuiteLink*>(context);
    if (link->m_receiver)
        link->m_receiver(code, value);
}
