// The window run, kept out of the program itself so that a headless start
// never loads Qt Widgets and its graphics libraries; vkstats loads this
// module only when it opens a window.
#include "HeadlessFrontEnd.h"
#include "Modules.h"
#include "StatsWins4.h"
#include "SuiteBus.h"

#include <QApplication>

#include <type_traits>

extern "C" Q_DECL_EXPORT int vkstatsRunWindow(int* argc, char** argv,
                                              const QStringList* arguments) {
    QApplication app(*argc, argv);
    SuiteBus bus;
    if (!bus.claim() && bus.activateRunning())
        return ExitDone;
    TVKStatsWin4 window([&bus](int code, int value) { bus.broadcast(code, value); });
    QObject::connect(&bus, &SuiteBus::activateRequested, &window, &TVKStatsWin4::bringToFront);
    QObject::connect(&bus, &SuiteBus::messageReceived, &window, &TVKStatsWin4::suiteMessage);
    const StartResult started = window.start(*arguments);
    if (started != StartResult::Ready)
        return started == StartResult::Refused ? ExitRefused : ExitDone;
    if (window.showAtStart())
        window.show();
    return app.exec();
}
static_assert(std::is_same_v<decltype(&vkstatsRunWindow), WindowRunFunction>);
