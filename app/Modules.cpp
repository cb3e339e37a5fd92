#include "Modules.h"

#include <QFileInfo>

QString ModulePath(const QString& fileName) {
    // The program's own file, before any QCoreApplication exists.
    const QString programFolder =
        QFileInfo(QFileInfo(QStringLiteral("/proc/self/exe")).symLinkTarget()).absolutePath();
    const QString beside = programFolder + u'/' + fileName;
    if (QFileInfo(beside).isFile())
        return beside;
    return QFileInfo(programFolder + QStringLiteral("/" VKSTATS_MODULES_FROM_BIN "/") + fileName)
        .absoluteFilePath();
}
