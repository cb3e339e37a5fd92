#pragma once

#include "FrontEnd.h"

#include <QList>
#include <QStringList>

#include <optional>

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
    bool isInteractive() const override { return interactive; }
    void setMainVisible(bool visible) override { visibility.append(visible); }
    bool canOpenUrls() const override { return urlOpener; }
    bool openUrl(const QUrl& url) override {
        openedUrls.append(url);
        return urlOpener;
    }
    bool askAddKeys(const QString& caption, std::array<bool, 4>& ticks) override;
    // How many messages had been shown at each raise of the window.
    void bringToFront() override { raisedAt.append(messages.size()); }
    QList<qsizetype> raisedAt;

    QStringList messageTexts() const;

    QList<Message> messages;
    QList<int> answers;
    QStringList statusTexts;
    QList<int> progress;
    QList<QUrl> openedUrls;
    int beeps = 0;
    bool interactive = true;
    QList<bool> visibility;
    bool urlOpener = false;

    // The new-stats-source question: what was asked, and the answers to give
    // in turn (Ok or not, and the ticks the user left, if changed). With no
    // answer queued it is cancelled with the ticks untouched.
    struct AddKeysQuestion {
        QString caption;
        std::array<bool, 4> ticks;
    };
    struct AddKeysAnswer {
        bool ok = false;
        std::optional<std::array<bool, 4>> ticks;
    };
    QList<AddKeysQuestion> addKeysQuestions;
    QList<AddKeysAnswer> addKeysAnswers;
};
