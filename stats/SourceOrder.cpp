#include "SourceOrder.h"

#include "Global2.h"
#include "StatsSources.h"
#include "TextFile.h"

#include <QFileInfo>

namespace {

constexpr QChar Open = u'[';
constexpr QChar Close = u']';
constexpr QChar Blank = u' ';

QString headerOf(const QString& name) {
    return Open + name + Close;
}

// The header without its first and last character, whatever they are.
QString innerText(const QString& header) {
    return header.size() < 2 ? QString() : header.mid(1, header.size() - 2);
}

bool endsSection(const QString& trimmed) {
    return trimmed.isEmpty() || trimmed.startsWith(Open);
}

} // namespace

QStringList ReorderSourceNames(const QStringList& urlLines) {
    const QString velkin = headerOf(QLatin1String(VelkinSection));
    QStringList names;
    for (const QString& line : urlLines) {
        if (line.startsWith(Open) && line != velkin)
            names.append(innerText(line));
    }
    return names;
}

QStringList UpdateSourceNames(const QStringList& urlLines) {
    const QString velkin = headerOf(QLatin1String(VelkinSection));
    QStringList names;
    for (const QString& raw : urlLines) {
        const QString line = raw.trimmed();
        if (line.startsWith(Open) && line.toLower() != velkin)
            names.append(innerText(line));
    }
    return names;
}

QStringList SectionPageNames(const QStringList& urlLines, const QString& section) {
    const QString header = headerOf(section);
    QStringList names;
    const qsizetype n = urlLines.size();
    qsizetype i = 0;
    while (i < n) {
        const QString line = urlLines.at(i++).trimmed();
        if (!line.startsWith(header))
            continue;
        // The line that ends the section is consumed with it: a second
        // section of the same name counts when a blank line stands between.
        while (i < n) {
            const QString entry = urlLines.at(i++).trimmed();
            if (endsSection(entry))
                break;
            if (entry.contains(Blank))
                names.append(GetField(0, entry, Blank));
        }
    }
    return names;
}

QStringList SectionLinesToWrite(const QStringList& urlLines, const QString& section) {
    const QString header = headerOf(section);
    QStringList lines;
    qsizetype i = 0;
    while (i < urlLines.size() && urlLines.at(i).trimmed() != header)
        ++i;
    for (++i; i < urlLines.size(); ++i) {
        const QString line = urlLines.at(i).trimmed();
        if (endsSection(line))
            break;
        lines.append(line);
    }
    return lines;
}

QStringList ReorderedUrlLines(const QStringList& urlLines, const QStringList& order) {
    QStringList result;
    for (const QString& name : order) {
        result.append(headerOf(name));
        result.append(SectionLinesToWrite(urlLines, name));
        result.append(QString());
    }
    const QString velkin = QLatin1String(VelkinSection);
    result.append(headerOf(velkin));
    result.append(SectionLinesToWrite(urlLines, velkin));
    return result;
}

bool WriteSourceOrder(const QString& urlsPath, const QStringList& order, FrontEnd* frontEnd) {
    const QStringList lines = ReorderedUrlLines(ReadLines(urlsPath), order);
    if (WriteLines(urlsPath, lines))
        return true;
    MsgDlg(frontEnd, StatsSourceList::saveFailedMessage(QFileInfo(urlsPath).absoluteFilePath()),
           Error, MbOk);
    return false;
}

QStringList ChosenUpdatePages(const QStringList& tickedPages) {
    QStringList pages;
    for (const QString& page : tickedPages) {
        if (page != QLatin1String("type2.list"))
            pages.append(page);
    }
    return pages;
}
