#pragma once

#include "Modules.h"

#include <functional>

// The suite bus of a run without a window. Its D-Bus side is a module that
// is loaded only when a session bus can be reached at all: without one every
// broadcast goes nowhere and nothing comes in, and the run is spared loading
// D-Bus.
class SuiteLink {
public:
    using Receiver = std::function<void(int code, int value)>;

    SuiteLink();
    ~SuiteLink();
    SuiteLink(const SuiteLink&) = delete;
    SuiteLink& operator=(const SuiteLink&) = delete;

    // Messages that come in from the suite.
    void setReceiver(Receiver receiver) { m_receiver = std::move(receiver); }
    void broadcast(int code, int value);

private:
    static void receive(void* context, int code, int value);

    Receiver m_receiver;
    void* m_bus = nullptr;
    BusBroadcastFunction m_broadcast = nullptr;
    BusCloseFunction m_close = nullptr;
};
