#pragma once

#include "FrontEnd.h"

#include <QList>
#include <QStringList>

// A front end for tests: it records every message and answers each from a
// queue the test fills; with the queue empty it presses the button that
// changes nothing (Cancel, No or OK).
class TestFrontEnd : public FrontEnd {
public:
    struct Message {
        QString text;
        MsgDlgType type;
        int buttons;
        MsgStyle style;
    };

    int showMessage(const QString& text, MsgDlgType type, int buttons, MsgStyle style) override;
    void setStatusText(const QString& text) override { statusTexts.append(text); }
    void setProgress(int percent) override { progress.append(percent); }
    void beep() override { ++beeps; }
    bool canOpenUrls() const override { return urlOpener; }
    bool openUrl(const QUrl& url) override;

    QStringList messageTexts() const;

    QList<Message> messages;
    QList<int> answers;
    QStringList statusTexts;
    QList<int> progress;
    QList<QUrl> openedUrls;
    int beeps = 0;
    bool urlOpener = false;
};
