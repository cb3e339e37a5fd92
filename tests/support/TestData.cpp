#include "TestData.h"

#include "SuiteDatabase.h"
#include "TempEnvironment.h"
#include "TextFile.h"

const QStringList StatsPages = {"mlist.txt", "pubring.mix", "rlist.txt", "pubring.asc"};

QByteArray RealPage(const char* day, const QString& name) {
    const QByteArray bytes = TempEnvironment::readFile(
        QStringLiteral(VK_REALDATA "/%1/%2").arg(QLatin1String(day), name));
    if (bytes.isEmpty())
        qFatal("missing test page %s/%s", day, qPrintable(name));
    return bytes;
}

QStringList RealPageLines(const char* day, const QString& name) {
    return BytesToLines(RealPage(day, name));
}

QString CreateDataFile(const QString& programFolder) {
    QString error;
    if (TVKDB::create(programFolder + QStringLiteral("vk.dbc"), 2, &error))
        return {};
    return error.isEmpty() ? QStringLiteral("cannot make the data file") : error;
}
