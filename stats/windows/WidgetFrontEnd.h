#pragma once

#include "FrontEnd.h"

#include <QPointer>
#include <QWidget>

// The desktop front end: message boxes with the suite's captions and button
// sets, centred on their owner window.
class WidgetFrontEnd : public FrontEnd {
public:
    explicit WidgetFrontEnd(QWidget* owner = nullptr) : m_owner(owner) {}
    void setOwner(QWidget* owner) { m_owner = owner; }

    int showMessage(const QString& text, MsgDlgType type, int buttons, MsgStyle style) override;
    void beep() override;
    bool canOpenUrls() const override { return true; }
    bool openUrl(const QUrl& url) override;

private:
    QPointer<QWidget> m_owner;
};
