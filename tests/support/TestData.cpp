#include "TestData.h"

#include "SuiteDatabase.h"
#include "TempEnvironment.h"
#include "TextFile.h"

#include <QRegularExpression>
#include <QTest>

const QStringList StatsPages = {"mlist.txt", "pubring.mix", "rlist.txt", "pubring.asc"};

QByteArray RealPage(const char* day, const QString& name) {
    const QByteArray bytes = TempEnvironment::readFile(
        QStringLiteral(VK_REALDATA "/%1/%2").arg(QLatin1String(day), name));
    if (bytes.isEmpty())
        qFatal("missing test page %s/%s", day, qPrintable(name));
    return bytes;
}

QStringList RealPageLines(const char* day, const QString& name) {
    return PageLines(RealPage(day, name)).toStringList();
}

QString CreateDataFile(const QString& programFolder) {
    QString error;
    if (TVKDB::create(programFolder + QStringLiteral("vk.dbc"), 2, &error))
        return {};
    return error.isEmpty() ? QStringLiteral("cannot make the data file") : error;
}

static QString Unescape(const QString& field) {
    static const QRegularExpression escape(QStringLiteral(R"(\\(x[0-9A-Fa-f]{2}|.))"));
    QString out;
    qsizetype from = 0;
    for (const QRegularExpressionMatch& match : escape.globalMatch(field)) {
        const QString e = match.captured(1);
        out += field.mid(from, match.capturedStart() - from);
        out += e.size() == 3 ? QChar(e.mid(1).toUShort(nullptr, 16))
               : e == u'n'   ? u'\n'
               : e == u'r'   ? u'\r'
               : e == u't'   ? u'\t'
                             : e.at(0);
        from = match.capturedEnd();
    }
    return out + field.mid(from);
}

QList<QStringList> TableRows(const QString& name) {
    const QByteArray bytes = TempEnvironment::readFile(QStringLiteral(VK_TABLES "/") + name);
    if (bytes.isEmpty())
        qFatal("missing case table %s", qPrintable(name));
    QList<QStringList> rows;
    const QStringList lines = QString::fromUtf8(bytes).split(u'\n');
    for (qsizetype n = 0; n < lines.size(); ++n) {
        if (lines[n].trimmed().isEmpty() || lines[n].startsWith(u'#'))
            continue;
        QStringList fields = lines[n].split(u'\t');
        for (QString& field : fields)
            field = Unescape(field);
        rows.append(QStringList{QString::number(n + 1)} + fields);
    }
    return rows;
}

void AddTableRows(const QString& name) {
    QTest::addColumn<QStringList>("f");
    for (QStringList row : TableRows(name)) {
        const QString line = row.takeFirst();
        QTest::newRow(qPrintable(line + u':' + row[0])) << row;
    }
}
