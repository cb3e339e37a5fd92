#include "StatsSources.h"

#include "Global2.h"
#include "TextFile.h"

#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <utility>

namespace {

constexpr QChar Open = u'[';
constexpr QChar Close = u']';
constexpr QChar Space = u' ';

const QString& velkinHeader() {
    static const QString header = QStringLiteral("[velkin]");
    return header;
}

// The lookup by index drops the first and the last character of the trimmed
// header, whatever they are; a header with text after its "]" keeps part of
// it in the name.
QString nameByTrim(const QString& trimmedHeader) {
    return trimmedHeader.size() < 2 ? QString() : trimmedHeader.mid(1, trimmedHeader.size() - 2);
}

// The source box cuts the untrimmed header at its first "]"; without one the
// entry is empty.
QString nameByBracket(const QString& header) {
    const qsizetype close = header.indexOf(Close);
    return close < 0 ? QString() : header.mid(1, close - 1);
}

} // namespace

StatsSourceList::StatsSourceList(QString urlsPath, FrontEnd* frontEnd)
    : m_path(std::move(urlsPath)), m_frontEnd(frontEnd) {}

QStringList StatsSourceList::readLines() const {
    return ReadLines(m_path);
}

QString StatsSourceList::sourceNameByIndex(int index) const {
    if (index < 0)
        return {};
    int count = 0;
    for (const QString& raw : readLines()) {
        const QString line = raw.trimmed();
        if (!line.startsWith(Open))
            continue;
        if (count == index)
            return nameByTrim(line);
        ++count;
    }
    return {};
}

QStringList StatsSourceList::pageLines(const QString& source) const {
    const QStringList lines = readLines();
    const QString header = Open + source + Close;
    QStringList result;
    const qsizetype n = lines.size();
    qsizetype i = 0;
    while (i < n) {
        const QString line = lines.at(i++).trimmed();
        if (!line.startsWith(header))
            continue;
        for (; i < n; ++i) {
            const QString entry = lines.at(i).trimmed();
            // The line that ends the section is left for the outer walk, so
            // a second section of the same name right after it is read too.
            if (entry.isEmpty() || entry.startsWith(Open))
                break;
            if (entry.contains(Space))
                result.append(entry);
        }
    }
    return result;
}

QStringList StatsSourceList::pageNames(const QString& source) const {
    QStringList names = pageLines(source);
    for (QString& line : names)
        line.truncate(line.indexOf(Space));
    return names;
}

QStringList StatsSourceList::markedPages(const QString& source,
                                         const QStringList& checkedCaptions) const {
    QSet<QString> marked;
    for (const QString& caption : checkedCaptions)
        marked.insert(StripAmpersand(caption));
    QStringList result;
    for (const QString& name : pageNames(source)) {
        if (marked.contains(name))
            result.append(name);
    }
    return result;
}

std::optional<QString> StatsSourceList::findUrl(const QString& source,
                                                const QString& pageName) const {
    const QString key = pageName + Space;
    for (const QString& line : pageLines(source)) {
        // Only the entry is lower-cased, never the page name asked for, so
        // "MLIST.TXT" in the file answers "mlist.txt" but not the reverse.
        if (line.size() >= key.size() && line.left(key.size()).toLower() == key)
            return line.mid(key.size()).trimmed();
    }
    return {};
}

QString StatsSourceList::urlOfPage(const QString& source, const QString& pageName) const {
    const std::optional<QString> url = findUrl(source, pageName);
    if (!url)
        MsgDlg(m_frontEnd, missingUrlMessage(pageName, source), Warning, MbOk);
    return url.value_or(QString());
}

QString StatsSourceList::defaultSource() const {
    for (const QString& raw : readLines()) {
        const QString line = raw.trimmed();
        if (line.startsWith(Open))
            return nameByTrim(line);
    }
    return {};
}

bool StatsSourceList::moveSource(const QString& source, int position) const {
    const QStringList lines = readLines();
    const QString header = Open + source + Close;
    QStringList result;
    const qsizetype start = lines.indexOf(header);
    if (start < 0) {
        result = lines;
    } else {
        qsizetype end = start + 1;
        while (end < lines.size() && !lines.at(end).startsWith(Open))
            ++end;
        result.reserve(lines.size());
        int count = 0;
        for (qsizetype i = 0; i < lines.size(); ++i) {
            if (i == start) {
                i = end - 1; // the block goes where its target header is
                continue;
            }
            const QString& line = lines.at(i);
            if (line.startsWith(Open)) {
                if (count == position) {
                    for (qsizetype b = start; b < end; ++b)
                        result.append(lines.at(b));
                }
                ++count;
            }
            result.append(line);
        }
    }
    if (WriteLines(m_path, result))
        return true;
    MsgDlg(m_frontEnd, saveFailedMessage(QFileInfo(m_path).absoluteFilePath()), Error, MbOk);
    return false;
}

SourceBoxContent StatsSourceList::sourceBoxContent(const QString& nameToSelect) const {
    SourceBoxContent box;
    for (const QString& line : readLines()) {
        // Untrimmed and case-sensitive: "[Velkin]" is offered, "[velkin]x" is not.
        if (line.startsWith(Open) && !line.startsWith(velkinHeader()))
            box.entries.append(nameByBracket(line));
    }
    if (box.entries.isEmpty())
        return box;
    box.selected = 0;
    for (qsizetype i = 0; i < box.entries.size(); ++i) {
        if (box.entries.at(i).compare(nameToSelect, Qt::CaseInsensitive) == 0) {
            box.selected = int(i);
            break;
        }
    }
    return box;
}

QString StatsSourceList::missingUrlMessage(const QString& pageName, const QString& source) {
    return QStringLiteral("I don't have a URL for ") + pageName + QStringLiteral(" at ") + source +
           QStringLiteral("!");
}

QString StatsSourceList::saveFailedMessage(const QString& fullPath) {
    return QStringLiteral("I was unable to save ") + fullPath +
           QStringLiteral(". Possibly you don't have file permissions.     ");
}

QByteArray DefaultUrlsBytes() {
    QFile file(QStringLiteral(":/urls.txt"));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool InstallDefaultUrls(const QString& urlsPath, QString* error, bool* written) {
    if (written)
        *written = false;
    const QFileInfo info(urlsPath);
    // Whatever stands there is the user's, even a dangling link.
    if (info.exists() || info.isSymLink())
        return true;
    const QByteArray bytes = DefaultUrlsBytes();
    if (bytes.isEmpty()) {
        if (error)
            *error = QStringLiteral("The program's default urls.txt is missing.");
        return false;
    }
    // NewOnly refuses to replace a file that appeared since the check above.
    QFile file(urlsPath);
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
        if (error)
            *error = QStringLiteral("Cannot create %1: %2").arg(urlsPath, file.errorString());
        return false;
    }
    if (file.write(bytes) != bytes.size() || !file.flush()) {
        if (error)
            *error = QStringLiteral("Cannot write %1: %2").arg(urlsPath, file.errorString());
        file.close();
        file.remove(); // a half-written list would pass for a real one next start
        return false;
    }
    file.close();
    if (written)
        *written = true;
    return true;
}
