#pragma once

#include <QApplication>
#include <QByteArray>
#include <QMessageBox>
#include <QRect>
#include <QString>
#include <QTest>
#include <QWidget>

#include <functional>

class QAbstractButton;
class QDialog;
class TestFrontEnd;

// Inside the offscreen screen, so that a dialog centred on its owner is
// not pushed back in.
inline constexpr QRect OwnerGeometry(20, 30, 740, 520);

// Shows a dialog's owner at geometry; false when it is not on screen.
bool ShowOwner(QWidget& owner, const QRect& geometry = OwnerGeometry);

// Calls open, which runs a modal dialog and returns once it is closed, and
// hands the modal widget to act from inside the dialog's loop; act returns
// false when it is not the dialog. Should nothing close the dialog, a guard
// hands every top-level widget to giveUp after timeoutMs. guardFired tells
// whether the guard went off or act never had the dialog.
bool RunModalWidget(const std::function<bool()>& open, const std::function<bool(QWidget*)>& act,
                    const std::function<void(QWidget*)>& giveUp, int timeoutMs, bool* guardFired);

// RunModalWidget for a Dialog; the guard gives up by rejecting it unless
// giveUp says otherwise.
template <typename Dialog>
bool RunModal(const std::function<bool()>& open, const std::function<void(Dialog*)>& act,
              bool* guardFired, int timeoutMs = 10000,
              const std::function<void(Dialog*)>& giveUp = {}) {
    return RunModalWidget(
        open,
        [&act](QWidget* widget) {
            auto* dialog = qobject_cast<Dialog*>(widget);
            if (!dialog)
                return false;
            act(dialog);
            return true;
        },
        [&giveUp](QWidget* widget) {
            if (auto* dialog = qobject_cast<Dialog*>(widget)) {
                if (giveUp)
                    giveUp(dialog);
                else
                    dialog->reject();
            }
        },
        timeoutMs, guardFired);
}

// True when no top-level widget is a Dialog: the entry functions free theirs.
template <typename Dialog> bool NoDialogLeft() {
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (qobject_cast<Dialog*>(widget))
            return false;
    }
    return true;
}

// Leaves dialog as a table row says: "close" by its close box, "escape" by
// the Escape key, otherwise by a click on the button of that object name.
void CloseDialogBy(QDialog* dialog, const QString& how);

// Clicks button while the disk refuses any file past 16 bytes; false, and
// no click, when the limit cannot be lowered here.
bool ClickUnderFileSizeLimit(QAbstractButton* button);

// Checks that ui put question alone, as a dialog's centred Yes/No/Cancel
// question, when asked; otherwise that it said nothing.
void CheckSaveQuestion(const TestFrontEnd& ui, bool asked, const QString& question);

// Answers the next message box with button, 50 ms from now, and records its
// text; it fails the test when no box is up by then.
void AnswerNextMessage(QMessageBox::StandardButton button, QString* text);
