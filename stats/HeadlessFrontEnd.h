#pragma once

#include "FrontEnd.h"
#include "PageLines.h"

#include <QObject>
#include <QStringList>

#include <cstdio>

class PageSet;
class StatsController;

// Exit statuses of a headless run, for cron jobs and timers.
enum ExitStatus {
    ExitDone = 0,
    ExitAborted = 2,
    ExitRefused = 3,
    ExitFailed = 4,
    ExitNotSaved = 5,
    ExitPartlySaved = 6,
    ExitWorrying = 7,
    ExitNoProxy = 8,
};

// The front end of a run without a display: the status page goes to standard
// output as it is written, messages to standard error. Nobody can answer, so
// every question gets the answer that changes least and never blocks: OK for
// a notice, No for a yes/no question, Cancel for an OK/Cancel one, and the
// new-source question keeps the ticked pages.
class HeadlessFrontEnd : public QObject, public FrontEnd {
    Q_OBJECT
public:
    explicit HeadlessFrontEnd(std::FILE* out = stdout, std::FILE* err = stderr);

    int showMessage(const QString& text, MsgDlgType type, int buttons, MsgStyle style) override;
    bool isInteractive() const override { return false; }
    bool askAddKeys(const QString& caption, std::array<bool, 4>& ticks) override;
    // The pauses are there for a window to repaint; without one, only what
    // is already pending is handled.
    void waitTicks(int ms) override;

    // Follows every status page a run opens in pages.
    void watch(PageSet& pages);
    // Ends a status line still open.
    void finish();

private:
    void follow(const PageLines& lines);
    void write(std::FILE* stream, const QString& text);

    std::FILE* m_out;
    std::FILE* m_err;
    qsizetype m_line = 0;     // the line being printed
    qsizetype m_printed = 0;  // its characters printed so far
    bool m_lineEnded = false; // a message already ended it on screen
};

// The unattended run without widgets: start-up checks, update, save, close.
// arguments are the program's, "auto" included. Returns an ExitStatus.
int RunHeadless(StatsController& controller, HeadlessFrontEnd& frontEnd,
                const QStringList& arguments);
