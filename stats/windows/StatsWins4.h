#pragma once

#include <QMainWindow>

// The main window: the tabbed page viewer and the program's commands.
class TVKStatsWin4 : public QMainWindow {
    Q_OBJECT
public:
    explicit TVKStatsWin4(QWidget* parent = nullptr);
};
