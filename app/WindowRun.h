#pragma once

#include <QStringList>

// The entry point of the window module: runs the program in its window and
// returns the exit status. argc must outlive the call (QApplication keeps it).
using WindowRunFunction = int (*)(int* argc, char** argv, const QStringList* arguments);
inline constexpr char WindowRunSymbol[] = "vkstatsRunWindow";
