#include "StatsWins4.h"

#include <QApplication>

int main(int argc, char* argv[]) {
    QApplication app(argc, argv);
    TVKStatsWin4 window;
    window.show();
    return app.exec();
}
