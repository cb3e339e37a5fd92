#include "HeadlessFrontEnd.h"

#include "Global2.h"
#include "PageSet.h"
#include "StatsController.h"

#include <QCoreApplication>

namespace {

int safeAnswer(int buttons) {
    switch (buttons) {
    case MbOkCancel:
        return IdCancel;
    case MbYesNo:
    case MbYesNoCancel:
        return IdNo;
    default:
        return IdOk;
    }
}

} // namespace

HeadlessFrontEnd::HeadlessFrontEnd(std::FILE* out, std::FILE* err) : m_out(out), m_err(err) {}

void HeadlessFrontEnd::write(std::FILE* stream, const QString& text) {
    const QByteArray bytes = text.toLocal8Bit();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    std::fflush(stream);
}

int HeadlessFrontEnd::showMessage(const QString& text, MsgDlgType type, int buttons, MsgStyle) {
    finish();
    write(m_err, MsgCaption(type) + QStringLiteral(": ") + text + u'\n');
    return safeAnswer(buttons);
}

bool HeadlessFrontEnd::askAddKeys(const QString& caption, std::array<bool, 4>&) {
    write(m_err, caption + QStringLiteral(": keeping the ticked pages\n"));
    return true;
}

void HeadlessFrontEnd::waitTicks(int) {
    QCoreApplication::processEvents();
}

void HeadlessFrontEnd::watch(PageSet& pages) {
    connect(&pages, &PageSet::pageAdded, this, [this, &pages](int index) {
        TRemailerDoc* doc = pages.documentAt(index);
        if (pages.captionAt(index) != QStringLiteral("status") ||
            doc->Origin == PageSet::localFile())
            return;
        finish();
        m_line = 0;
        m_printed = 0;
        m_lineEnded = false;
        PageView* view = doc->Viewer;
        follow(view->lines());
        connect(view, &PageView::linesChanged, this, [this, view] { follow(view->lines()); });
    });
}

// Prints what the status page gained since the last call, in one write. The
// last line stays open, since the engine adds each page's result word to it.
void HeadlessFrontEnd::follow(const PageLines& lines) {
    QString gained;
    while (m_line < lines.size()) {
        const QString line = lines.at(m_line);
        if (line.size() > m_printed) {
            gained += QStringView(line).mid(m_printed);
            m_printed = line.size();
            m_lineEnded = false;
        }
        if (m_line == lines.size() - 1)
            break;
        if (!m_lineEnded)
            gained += u'\n';
        ++m_line;
        m_printed = 0;
        m_lineEnded = false;
    }
    if (!gained.isEmpty())
        write(m_out, gained);
}

void HeadlessFrontEnd::finish() {
    if (m_printed > 0 && !m_lineEnded) {
        write(m_out, QStringLiteral("\n"));
        m_lineEnded = true;
    }
}

int RunHeadless(StatsController& controller, HeadlessFrontEnd& frontEnd,
                const QStringList& arguments) {
    frontEnd.watch(controller.pages());
    const StartResult started = controller.startUp(arguments);
    if (started != StartResult::Ready)
        return started == StartResult::Refused ? ExitRefused : ExitDone;
    const RunOutcome outcome = controller.unattendedRun();
    frontEnd.finish();
    // The desktop would now wait for its user; here nobody comes, so close.
    controller.closeQuery(controller.settings().window);
    if (outcome == RunOutcome::Aborted)
        return ExitAborted;
    if (outcome == RunOutcome::Busy)
        return ExitRefused;
    if (outcome == RunOutcome::NoProxy)
        return ExitNoProxy;
    if (outcome == RunOutcome::Failed && !controller.savedDespiteFailures())
        return ExitFailed;
    if (!controller.lastSave().ok())
        return ExitNotSaved;
    if (controller.savedDespiteFailures())
        return ExitPartlySaved;
    return controller.engine().worrying() ? ExitWorrying : ExitDone;
}
