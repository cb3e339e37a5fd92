#include "HeadlessFrontEnd.h"
#include "StatsController.h"
#include "StatsWins4.h"
#include "SuiteBus.h"

#include <QApplication>
#include <QTimer>

#include <cstdio>

namespace {

const char Usage[] =
    "Usage: vkstats [auto] [hide] [version] [pubring.asc] [rlist.txt] [--headless]\n"
    "\n"
    "Fetches remailer statistics and keyrings from the stats sources in urls.txt,\n"
    "checks them and saves them into the Mixmaster folder.\n"
    "\n"
    "  auto         update from the source shown last, save and close; with\n"
    "               pubring.asc or rlist.txt named, update just those pages\n"
    "               from the first source in urls.txt\n"
    "  hide         with auto: keep the window hidden during the run\n"
    "  version      write the program version into vkstats.ini and end\n"
    "  --headless   run the unattended update without any window (implies\n"
    "               auto); this also happens when auto is given and there is\n"
    "               no display\n"
    "  --help       show this text\n"
    "\n"
    "Without a window the status page is written to standard output as it\n"
    "grows and messages go to standard error. Questions get the answer that\n"
    "changes least: No, Cancel, or OK for a notice.\n"
    "\n"
    "Exit status:\n"
    "  0  done: the pages were updated and saved\n"
    "  2  aborted: the update was stopped\n"
    "  3  start-up refused: no Mixmaster folder, no usable data file, no\n"
    "     display for the window, or another copy already running\n"
    "  4  the download failed and no page came; nothing was saved\n"
    "  5  pages were fetched but some could not be saved\n"
    "  6  some pages failed: the pages that came were saved, the failed\n"
    "     ones keep their old files\n"
    "  7  saved, but a statistics page is stale (over 3 days old) or the\n"
    "     keyring leaves fewer than 4 usable Mixmaster remailers\n"
    "  8  nothing was downloaded: the proxy to use is gone or unusable\n"
    "\n"
    "Environment: VKSTATS_HOME (program folder), MIXPATH (Mixmaster folder).\n";

bool hasDisplay() {
    return qEnvironmentVariableIsSet("QT_QPA_PLATFORM") ||
           !qEnvironmentVariableIsEmpty("DISPLAY") ||
           !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}

StatsController::Broadcast broadcastOn(SuiteBus& bus) {
    return [&bus](int code, int value) {
        bus.broadcast(code, value);
    };
}

int runHeadless(int argc, char* argv[], const QStringList& arguments) {
    QCoreApplication app(argc, argv);
    SuiteBus bus;
    if (!bus.claim() && bus.activateRunning()) {
        std::fputs("vkstats: another copy is already running.\n", stderr);
        return ExitRefused;
    }
    HeadlessFrontEnd frontEnd;
    StatsController controller(&frontEnd, broadcastOn(bus));
    // Code 1 needs nothing here: the run closes by itself when it is done.
    QObject::connect(&bus, &SuiteBus::messageReceived, &controller, [&controller](int code, int) {
        if (code == 2)
            QTimer::singleShot(200, &controller, [&controller] { controller.proxies().recheck(); });
    });
    return RunHeadless(controller, frontEnd, arguments);
}

int runDesktop(int argc, char* argv[], const QStringList& arguments) {
    QApplication app(argc, argv);
    SuiteBus bus;
    if (!bus.claim() && bus.activateRunning())
        return ExitDone;
    TVKStatsWin4 window(broadcastOn(bus));
    QObject::connect(&bus, &SuiteBus::activateRequested, &window, &TVKStatsWin4::bringToFront);
    QObject::connect(&bus, &SuiteBus::messageReceived, &window, &TVKStatsWin4::suiteMessage);
    const StartResult started = window.start(arguments);
    if (started != StartResult::Ready)
        return started == StartResult::Refused ? ExitRefused : ExitDone;
    if (window.showAtStart())
        window.show();
    return app.exec();
}

} // namespace

int main(int argc, char* argv[]) {
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    if (arguments.contains(QStringLiteral("--help")) || arguments.contains(QStringLiteral("-h"))) {
        std::fputs(Usage, stdout);
        return ExitDone;
    }
    bool headless = arguments.removeAll(QStringLiteral("--headless")) > 0;
    const CommandLine line = ParseCommandLine(arguments);
    if (!hasDisplay()) {
        // --headless asks for the unattended run itself, as auto does.
        if (!headless && !line.autoMode && !line.versionQuery) {
            std::fputs("vkstats: no display; give auto (or --headless) to run unattended.\n",
                       stderr);
            return ExitRefused;
        }
        headless = true;
    }
    if (!headless)
        return runDesktop(argc, argv, arguments);
    if (!line.autoMode && !line.versionQuery)
        arguments.append(QStringLiteral("auto"));
    return runHeadless(argc, argv, arguments);
}
