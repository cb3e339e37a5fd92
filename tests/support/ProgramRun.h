#pragma once

#include <QByteArray>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

// How a built program ended when run by RunToEnd.
struct ProgramRun {
    bool finished = false; // it ended by itself within the time-out
    QProcess::ExitStatus status = QProcess::CrashExit;
    int code = -1;
    QString out;
    QString err;

    bool endedWith(int exitCode) const {
        return finished && status == QProcess::NormalExit && code == exitCode;
    }
    // The command and all it said, for a failure message.
    QByteArray describe(const QString& program, const QStringList& arguments) const;
};

// Runs a program to its end while this process's event loop keeps turning,
// so that a TestPinger or a bus object of the test can answer it. It reads
// input on its standard input, then the end. A program still running after
// timeoutMs is killed and reported as not finished.
ProgramRun RunToEnd(const QString& program, const QStringList& arguments,
                    const QProcessEnvironment& environment, int timeoutMs = 120000,
                    const QByteArray& input = {});

// Turns this process's event loop until process ends or timeoutMs pass;
// false when it is still running.
bool WaitForEnd(QProcess& process, int timeoutMs);

// This process's environment made fit for a program under test: no display
// of any kind, the given home folder (and nothing else of the user's),
// program folder, Mixmaster folder (MIXPATH left unset when empty) and
// session bus address.
QProcessEnvironment ChildEnvironment(const QString& programFolder, const QString& mixFolder,
                                     const QString& home, const QString& busAddress);
