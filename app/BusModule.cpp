// The suite bus for a run without a window, kept out of the program itself
// so that a run with no session bus to reach never loads D-Bus.
#include "Modules.h"
#include "SuiteBus.h"

#include <type_traits>

extern "C" Q_DECL_EXPORT void* vkstatsBusOpen(BusReceiver receive, void* context) {
    // A headless run never takes the window's place on the bus nor brings a
    // window forward; it only reports and listens.
    auto* bus = new SuiteBus;
    QObject::connect(bus, &SuiteBus::messageReceived, bus,
                     [receive, context](int code, int value) { receive(context, code, value); });
    return bus;
}

extern "C" Q_DECL_EXPORT void vkstatsBusBroadcast(void* bus, int code, int value) {
    static_cast<SuiteBus*>(bus)->broadcast(code, value);
}

extern "C" Q_DECL_EXPORT void vkstatsBusClose(void* bus) {
    delete static_cast<SuiteBus*>(bus);
}

static_assert(std::is_same_v<decltype(&vkstatsBusOpen), BusOpenFunction>);
static_assert(std::is_same_v<decltype(&vkstatsBusBroadcast), BusBroadcastFunction>);
static_assert(std::is_same_v<decltype(&vkstatsBusClose), BusCloseFunction>);
