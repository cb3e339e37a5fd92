#pragma once

#include <QStringList>

// Where a module of the program is: beside the program in the build (and in
// a copy that keeps its modules beside it), in the library folder once
// installed, found from the program's own place so that a staged or moved
// install still finds its own copy.
QString ModulePath(const QString& fileName);

// The entry point of the window module: runs the program in its window and
// returns the exit status. argc must outlive the call (QApplication keeps it).
using WindowRunFunction = int (*)(int* argc, char** argv, const QStringList* arguments);
inline constexpr char WindowRunSymbol[] = "vkstatsRunWindow";

// The suite bus module: opens the session bus connection, sends the suite's
// status reports on it and hands the suite's messages to receive.
using BusReceiver = void (*)(void* context, int code, int value);
using BusOpenFunction = void* (*)(BusReceiver receive, void* context);
using BusBroadcastFunction = void (*)(void* bus, int code, int value);
using BusCloseFunction = void (*)(void* bus);
inline constexpr char BusOpenSymbol[] = "vkstatsBusOpen";
inline constexpr char BusBroadcastSymbol[] = "vkstatsBusBroadcast";
inline constexpr char BusCloseSymbol[] = "vkstatsBusClose";
