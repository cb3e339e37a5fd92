#include "StatsWins4.h"

TVKStatsWin4::TVKStatsWin4(QWidget* parent) : QMainWindow(parent) {
    setObjectName(QStringLiteral("TVKStatsWin4"));
    setWindowTitle(QStringLiteral("VKstats v" VKSTATS_VERSION));
    resize(686, 516);
}
