#include "HeadlessFrontEnd.h"
#include "Modules.h"
#include "StatsController.h"
#include "SuiteLink.h"

#include <QCoreApplication>
#include <QLibrary>
#include <QTimer>

#include <cstdio>

namespace {

const char Usage[] =
    "Usage: vkstats [auto] [hide] [version] [pubring.asc] [rlist.txt] [--headless]\n"
    "               [--pages PAGE,...] [--source NAME] [--version] [--help]\n"
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
    "  --pages PAGE,...\n"
    "               update these pages in this run instead of those ticked in\n"
    "               the Pages menu (default: mlist.txt,pubring.mix,rlist.txt,\n"
    "               pubring.asc; also nymserver.asc, mail2news.txt,\n"
    "               advisory.txt, urls.txt)\n"
    "  --source NAME\n"
    "               start with this stats source of urls.txt instead of the\n"
    "               one used last\n"
    "  --version    print the program's name and version\n"
    "  --help       show this text\n"
    "\n"
    "Without a window the status page is written to standard output as it\n"
    "grows and messages go to standard error. Questions get the answer that\n"
    "changes least: No, Cancel, or OK for a notice. A missing data file is\n"
    "created empty (the window asks first).\n"
    "\n"
    "Exit status:\n"
    "  0  done: the pages were updated and saved\n"
    "  2  aborted: the update was stopped\n"
    "  3  start-up refused: no Mixmaster folder, no usable data file, no\n"
    "     display for the window, a bad --pages or --source, or another\n"
    "     update running\n"
    "  4  the download failed and no page came; nothing was saved\n"
    "  5  pages were fetched but some could not be saved\n"
    "  6  some pages failed: the pages that came were saved, the failed\n"
    "     ones keep their old files\n"
    "  7  saved, but a statistics page is stale (over 3 days old) or the\n"
    "     keyring leaves fewer than 4 usable Mixmaster remailers\n"
    "  8  nothing was downloaded: the proxy to use is gone or unusable\n"
    "\n"
    "Environment: VKSTATS_HOME (program folder), MIXPATH (Mixmaster folder).\n"
    "Without VKSTATS_HOME the program folder is $XDG_DATA_HOME/vkstats\n"
    "(~/.local/share/vkstats), or the executable's folder when a file named\n"
    "portable stands beside the executable.\n";

bool hasDisplay() {
    return qEnvironmentVariableIsSet("QT_QPA_PLATFORM") ||
           !qEnvironmentVariableIsEmpty("DISPLAY") ||
           !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}

int runHeadless(int& argc, char* argv[], const QStringList& arguments) {
    QCoreApplication app(argc, argv);
    SuiteLink bus;
    HeadlessFrontEnd frontEnd;
    StatsController controller(&frontEnd,
                               [&bus](int code, int value) { bus.broadcast(code, value); });
    // Code 1 needs nothing here: the run closes by itself when it is done.
    bus.setReceiver([&controller](int code, int) {
        if (code == 2)
            QTimer::singleShot(200, &controller, [&controller] { controller.proxies().recheck(); });
    });
    return RunHeadless(controller, frontEnd, arguments);
}

int runDesktop(int& argc, char* argv[], const QStringList& arguments) {
    QLibrary module(ModulePath(QStringLiteral(VKSTATS_WINDOW_MODULE)));
    const auto run = reinterpret_cast<WindowRunFunction>(module.resolve(WindowRunSymbol));
    if (!run) {
        std::fprintf(stderr, "vkstats: the window cannot be opened: %s\n",
                     qPrintable(module.errorString()));
        return ExitRefused;
    }
    return run(&argc, argv, &arguments);
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
    if (arguments.contains(QStringLiteral("--version"))) {
        std::fputs("VKstats " VKSTATS_VERSION "\n", stdout);
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
