#include "PagePaths.h"

#include "Global2.h"

#include <QStringList>

bool IsMixmasterPage(const QString& name) {
    static const QStringList names = {
        QStringLiteral("mlist.txt"), QStringLiteral("pubring.mix"), QStringLiteral("type2.list"),
        QStringLiteral("rlist.txt"), QStringLiteral("pubring.asc"),
    };
    return names.contains(name);
}

QString PagePath(const QString& name) {
    const QString file = StripAmpersand(name);
    return (IsMixmasterPage(file) ? GetMixmasterDir() : ProgramFolder()) + file;
}

bool IsSafePageName(const QString& name) {
    if (name.isEmpty() || name == u'.' || name == QStringLiteral(".."))
        return false;
    for (const QChar c : name) {
        if (c == u'/' || c == u'\\' || c.unicode() < 0x20 || c == QChar(0x7f))
            return false;
    }
    return !name.contains(QStringLiteral(".."));
}
