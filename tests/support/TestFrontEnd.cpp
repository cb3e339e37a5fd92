#include "TestFrontEnd.h"

int TestFrontEnd::showMessage(const QString& text, MsgDlgType type, int buttons, MsgStyle style) {
    messages.append({text, type, buttons, style});
    if (!answers.isEmpty())
        return answers.takeFirst();
    if ((buttons & 3) == 3 || (buttons & 1))
        return IdCancel;
    if (buttons & 4)
        return IdNo;
    return IdOk;
}

bool TestFrontEnd::openUrl(const QUrl& url) {
    openedUrls.append(url);
    return urlOpener;
}

QStringList TestFrontEnd::messageTexts() const {
    QStringList texts;
    for (const Message& message : messages)
        texts.append(message.text);
    return texts;
}
