#include "DialogTestSupport.h"

#include "FileSizeLimit.h"
#include "TestFrontEnd.h"

#include <QAbstractButton>
#include <QDialog>
#include <QPushButton>
#include <QTimer>

bool ShowOwner(QWidget& owner, const QRect& geometry) {
    owner.setGeometry(geometry);
    owner.show();
    return QTest::qWaitForWindowExposed(&owner);
}

bool RunModalWidget(const std::function<bool()>& open, const std::function<bool(QWidget*)>& act,
                    const std::function<void(QWidget*)>& giveUp, int timeoutMs, bool* guardFired) {
    *guardFired = false;
    bool acted = false;
    // Drops the timers' calls, should open return without ever waiting.
    QObject context;
    QTimer::singleShot(0, &context, [&] { acted = act(QApplication::activeModalWidget()); });
    QTimer guard;
    guard.setSingleShot(true);
    QObject::connect(&guard, &QTimer::timeout, &context, [&] {
        *guardFired = true;
        for (QWidget* widget : QApplication::topLevelWidgets())
            giveUp(widget);
    });
    guard.start(timeoutMs);
    const bool result = open();
    if (!acted)
        *guardFired = true;
    return result;
}

void CloseDialogBy(QDialog* dialog, const QString& how) {
    if (how == QLatin1String("close"))
        dialog->close();
    else if (how == QLatin1String("escape"))
        QTest::keyClick(dialog, Qt::Key_Escape);
    else
        QTest::mouseClick(dialog->findChild<QPushButton*>(how), Qt::LeftButton);
}

bool ClickUnderFileSizeLimit(QAbstractButton* button) {
    const FileSizeLimit limit(16);
    if (!limit.ok())
        return false;
    QTest::mouseClick(button, Qt::LeftButton);
    return true;
}

void CheckSaveQuestion(const TestFrontEnd& ui, bool asked, const QString& question) {
    if (!asked) {
        QVERIFY(ui.messages.isEmpty());
        return;
    }
    QCOMPARE(ui.messageTexts(), QStringList{question});
    QCOMPARE(ui.messages.first().type, Confirm);
    QCOMPARE(ui.messages.first().buttons, int(MbYesNoCancel));
    QCOMPARE(ui.messages.first().style, MsgStyle::CentredDialog);
}

void AnswerNextMessage(QMessageBox::StandardButton button, QString* text) {
    QTimer::singleShot(50, [button, text] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        QVERIFY(box);
        *text = box->text();
        box->button(button)->click();
    });
}
