#include "WidgetFrontEnd.h"

#include "Global2.h"

#include <QApplication>
#include <QDesktopServices>
#include <QMessageBox>

namespace {

QMessageBox::Icon iconOf(MsgDlgType type) {
    switch (type) {
    case Warning:
        return QMessageBox::Warning;
    case Error:
        return QMessageBox::Critical;
    case Information:
        return QMessageBox::Information;
    case Confirm:
        return QMessageBox::Question;
    default:
        return QMessageBox::NoIcon;
    }
}

// The button set of a flags value, as the suite's dialog reads it: both low
// bits give Yes, No, Cancel; else bit 4 gives Yes, No; else bit 1 OK, Cancel.
QMessageBox::StandardButtons buttonsOf(int flags) {
    if ((flags & 3) == 3)
        return QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel;
    if (flags & 4)
        return QMessageBox::Yes | QMessageBox::No;
    if (flags & 1)
        return QMessageBox::Ok | QMessageBox::Cancel;
    return QMessageBox::Ok;
}

int resultOf(int button) {
    switch (button) {
    case QMessageBox::Yes:
        return IdYes;
    case QMessageBox::No:
        return IdNo;
    case QMessageBox::Cancel:
        return IdCancel;
    default:
        return IdOk;
    }
}

} // namespace

int WidgetFrontEnd::showMessage(const QString& text, MsgDlgType type, int buttons, MsgStyle style) {
    QMessageBox box(iconOf(type), MsgCaption(type), text, buttonsOf(buttons), m_owner);
    if (style == MsgStyle::CentredDialog && m_owner) {
        box.adjustSize();
        const QRect owner = m_owner->frameGeometry();
        const QSize size = box.size();
        box.move(owner.left() + (owner.width() - size.width()) / 2,
                 owner.top() + (owner.height() - size.height()) / 2);
    }
    return resultOf(box.exec());
}

void WidgetFrontEnd::beep() {
    QApplication::beep();
}

bool WidgetFrontEnd::openUrl(const QUrl& url) {
    return QDesktopServices::openUrl(url);
}
