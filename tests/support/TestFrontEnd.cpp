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

bool TestFrontEnd::askAddKeys(const QString& caption, std::array<bool, 4>& ticks) {
    addKeysQuestions.append({caption, ticks});
    if (addKeysAnswers.isEmpty())
        return false;
    const AddKeysAnswer answer = addKeysAnswers.takeFirst();
    if (answer.ticks)
        ticks = *answer.ticks;
    return answer.ok;
}

QStringList TestFrontEnd::messageTexts() const {
    QStringList texts;
    for (const Message& message : messages)
        texts.append(message.text);
    return texts;
}
