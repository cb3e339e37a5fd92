#pragma once

#include <QString>
#include <QUrl>

#include <array>

// Kinds of message, with their fixed captions and icons. Any other value means
// no icon and the program name as caption.
enum MsgDlgType { Warning = 0, Error = 1, Information = 2, Confirm = 3, NoIcon = -1 };

// Button sets and results keep the Windows message-box numbers, since the
// suite's programs compare against them.
enum MsgButtons { MbOk = 0, MbOkCancel = 1, MbYesNoCancel = 3, MbYesNo = 4 };
enum MsgResult { IdOk = 1, IdCancel = 2, IdYes = 6, IdNo = 7 };

// Which of the two message-box flavours was asked for: the system box
// (MsgBox) or the toolkit's dialog centred on its owner (MsgDlg).
enum class MsgStyle { SystemBox, CentredDialog };

// What the core needs from whoever shows it: the desktop window, the headless
// runner or a test. The core never touches a widget; it asks through this.
class FrontEnd {
public:
    virtual ~FrontEnd() = default;

    // Shows a message and returns the button pressed (a MsgResult).
    virtual int showMessage(const QString& text, MsgDlgType type, int buttons, MsgStyle style) = 0;

    // False when nobody is there to answer: a question that would repeat
    // without end must then stop the work instead.
    virtual bool isInteractive() const { return true; }

    virtual void setStatusText(const QString& text) { Q_UNUSED(text); }
    virtual void setProgress(int percent) { Q_UNUSED(percent); }
    virtual void beep() {}
    // Brings the main window forward (it may have been hidden) before a
    // message that concerns it.
    virtual void bringToFront() {}
    // Shows or hides the main window; an unattended run hides it before it
    // closes.
    virtual void setMainVisible(bool visible) { Q_UNUSED(visible); }

    // Lets pending events run for the given time; the default processes the
    // event loop until the time is up.
    virtual void waitTicks(int ms);

    // The help engine and the web links: a front end that cannot open a URL
    // reports that it has no opener.
    virtual bool canOpenUrls() const { return false; }
    virtual bool openUrl(const QUrl& url) {
        Q_UNUSED(url);
        return false;
    }

    // The new-stats-source question: the caption and the ticks of mlist.txt,
    // pubring.mix, rlist.txt and pubring.asc, which the answer may change.
    // True for Ok. Nobody to ask means Cancel with the ticks as they were.
    virtual bool askAddKeys(const QString& caption, std::array<bool, 4>& ticks) {
        Q_UNUSED(caption);
        Q_UNUSED(ticks);
        return false;
    }
};
