#include "ProgramRun.h"

#include <QEventLoop>
#include <QTimer>

QByteArray ProgramRun::describe(const QString& program, const QStringList& arguments) const {
    return QStringLiteral("%1 %2\nfinished: %3, exit %4%5\nstdout:\n%6\nstderr:\n%7")
        .arg(program, arguments.join(u' '))
        .arg(finished ? QStringLiteral("yes") : QStringLiteral("NO (killed)"))
        .arg(code)
        .arg(status == QProcess::CrashExit ? QStringLiteral(" (crashed)") : QString())
        .arg(out, err)
        .toLocal8Bit();
}

bool WaitForEnd(QProcess& process, int timeoutMs) {
    if (process.state() == QProcess::NotRunning)
        return true;
    QEventLoop loop;
    QObject::connect(&process, &QProcess::finished, &loop, &QEventLoop::quit);
    QObject::connect(&process, &QProcess::errorOccurred, &loop, &QEventLoop::quit);
    QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
    // finished is only emitted from the event loop, so it cannot be missed
    // between the test above and exec().
    loop.exec();
    return process.state() == QProcess::NotRunning;
}

ProgramRun RunToEnd(const QString& program, const QStringList& arguments,
                    const QProcessEnvironment& environment, int timeoutMs,
                    const QByteArray& input) {
    QProcess process;
    process.setProgram(program);
    process.setArguments(arguments);
    process.setProcessEnvironment(environment);
    process.start();
    process.write(input);
    process.closeWriteChannel();
    ProgramRun run;
    run.finished = WaitForEnd(process, timeoutMs) && process.error() != QProcess::FailedToStart;
    if (!run.finished && process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished(10000);
    }
    run.status = process.exitStatus();
    run.code = process.exitCode();
    run.out = QString::fromLocal8Bit(process.readAllStandardOutput());
    run.err = QString::fromLocal8Bit(process.readAllStandardError());
    if (process.error() == QProcess::FailedToStart)
        run.err += QStringLiteral("\n[could not start: %1]").arg(process.errorString());
    return run;
}

QProcessEnvironment ChildEnvironment(const QString& programFolder, const QString& mixFolder,
                                     const QString& home, const QString& busAddress) {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM", "XDG_CONFIG_HOME",
                             "XDG_DATA_HOME", "XDG_CACHE_HOME", "XDG_RUNTIME_DIR",
                             "DBUS_SESSION_BUS_ADDRESS", "VKSTATS_HOME", "MIXPATH"})
        environment.remove(QString::fromLatin1(name));
    environment.insert(QStringLiteral("HOME"), home);
    // Qt wants a private runtime folder; the home folder is one (0700).
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), home);
    environment.insert(QStringLiteral("VKSTATS_HOME"), programFolder);
    if (!mixFolder.isEmpty())
        environment.insert(QStringLiteral("MIXPATH"), mixFolder);
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), busAddress);
    return environment;
}
