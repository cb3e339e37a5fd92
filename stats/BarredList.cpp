#include "BarredList.h"

#include "Global2.h"
#include "PagePaths.h"
#include "TextFile.h"

#include <QFileInfo>

#include <algorithm>
#include <utility>

namespace {

const QString Mlist = QStringLiteral("mlist.txt");
const QString Rlist = QStringLiteral("rlist.txt");
const QString PubringMix = QStringLiteral("pubring.mix");
const QString Type2List = QStringLiteral("type2.list");
const QString CapabilityLine = QStringLiteral("$remailer{");

// Names compare without regard to case; folded once, they can be hashed.
QString key(const QString& name) {
    return name.toCaseFolded();
}

// The text before the first blank; the whole line when there is none.
QString firstWord(const QString& line) {
    const qsizetype blank = line.indexOf(u' ');
    return blank < 0 ? line : line.left(blank);
}

// The n-th field at a separator, counted from 0; empty past the last one.
QString field(const QString& line, QChar separator, int n) {
    return line.section(separator, n, n);
}

// Reads a stored page that exists. An existing file that cannot be read is
// an error: writing it back would replace it with nothing.
bool readExisting(const QString& path, PageLines& lines, QStringList& errors) {
    bool ok = false;
    lines = ReadPage(path, &ok);
    if (!ok)
        errors.append(QStringLiteral("Cannot read %1").arg(path));
    return ok;
}

bool writeBack(const QString& path, const PageLines& lines, QStringList& errors) {
    QString error;
    if (WriteLines(path, lines, &error))
        return true;
    errors.append(error);
    return false;
}

} // namespace

BarredList::BarredList() : BarredList(QStringList()) {}

BarredList::BarredList(const QStringList& fileLines) {
    for (const QString& line : fileLines) {
        if (isLastOnlyLine(line)) {
            const QString name = nameOf(line);
            m_lastOnly.append(name);
            if (!name.isEmpty())
                m_lastKeys.insert(key(name));
        } else {
            addFullBar(line);
        }
    }
    if (!isFullyBarred(alwaysBarred()))
        addFullBar(alwaysBarred());
}

QString BarredList::path() {
    return PagePath(QStringLiteral("barred.txt"));
}

BarredList BarredList::read() {
    return BarredList(ReadLines(path()));
}

void BarredList::addFullBar(const QString& line) {
    m_fullBars.append(line);
    // A blank line names nobody; it must not bar every line that happens to
    // start with a blank.
    const QString name = nameOf(line);
    if (!name.isEmpty())
        m_fullKeys.insert(key(name));
}

bool BarredList::isFullyBarred(const QString& name) const {
    return !name.isEmpty() && m_fullKeys.contains(key(name));
}

bool BarredList::isLastOnly(const QString& name) const {
    return !name.isEmpty() && m_lastKeys.contains(key(name));
}

QString BarredList::nameOf(const QString& line) {
    return field(line, u',', 0).trimmed();
}

bool BarredList::isLastOnlyLine(const QString& line) {
    return field(line, u',', 1).trimmed().toLower() == QStringLiteral("last");
}

bool ApplyBarredList(PageLines& lines, const QString& pageName, const BarredList& list) {
    // One pass, the kept lines closing up behind (removeIf), never a line
    // deleted on its own, which would move the rest of a long page each
    // time. A page with nothing to delete is not copied at all.
    // On the Cypherpunk page a fully barred remailer also loses its
    // capability line: Mixmaster takes its type-I remailers from those lines,
    // with or without statistics.
    const bool cypherpunk = pageName == Rlist;
    bool changed = lines.removeIf([&list, cypherpunk](const QString& line) {
        if (line.contains(u'%') && list.isFullyBarred(firstWord(line)))
            return true;
        return cypherpunk && line.startsWith(CapabilityLine) &&
               list.isFullyBarred(field(line, u'"', 1));
    }) > 0;

    if (pageName == Rlist)
        changed = MarkLastOnlyCypherpunk(lines, list) || changed;
    else if (pageName == PubringMix)
        changed = MarkLastOnlyMixmaster(lines, list) || changed;
    return changed;
}

void RemoveBarredRemailers(PageLines& lines, const QString& pageName) {
    ApplyBarredList(lines, pageName, BarredList::read());
}

bool MarkLastOnlyCypherpunk(PageLines& lines, const BarredList& list) {
    static const QString middle = QStringLiteral(" middle");
    if (list.lastOnly().isEmpty())
        return false;
    bool changed = false;
    for (qsizetype i = 0; i < lines.size(); ++i) {
        if (!lines.view(i).startsWith(CapabilityLine))
            continue;
        QString line = lines.at(i);
        // The name stands between the first two double quotes.
        if (!list.isLastOnly(field(line, u'"', 1)) || line.contains(middle))
            continue;
        // The capability words follow the ">" that ends the address; a line
        // without one gets the word at its start (indexOf gives -1).
        line.insert(line.indexOf(u'>') + 1, middle);
        lines.replace(i, line);
        changed = true;
    }
    return changed;
}

bool MarkLastOnlyMixmaster(PageLines& lines, const BarredList& list) {
    if (list.lastOnly().isEmpty())
        return false;
    bool changed = false;
    // A page shared with its unfiltered copy is only copied when a line
    // really changes.
    for (qsizetype i = 0; i < lines.size(); ++i) {
        // Key block lines hold no blank; only the header lines name a
        // remailer. The name is looked at before the line is made a string,
        // so the many key block lines cost no copies.
        const QLatin1StringView view = lines.view(i);
        const qsizetype blank = view.indexOf(u' ');
        if (blank < 0 || !list.isLastOnly(view.left(blank)))
            continue;
        const QString line = lines.at(i);
        QStringList fields = line.split(u' ');
        while (fields.size() <= 4)
            fields.append(QString());
        if (fields.at(4).contains(u'M'))
            continue;
        fields[4] += u'M';
        const auto firstEmpty = std::find_if(fields.cbegin(), fields.cend(),
                                             [](const QString& f) { return f.isEmpty(); });
        const QString rebuilt = QStringList(fields.cbegin(), firstEmpty).join(u' ');
        if (rebuilt != line) {
            lines.replace(i, rebuilt);
            changed = true;
        }
    }
    return changed;
}

bool ApplyBarredListToStoredFiles(QString* error) {
    const BarredList list = BarredList::read();
    QStringList errors;
    PageLines lines;

    const QString mlistPath = PagePath(Mlist);
    if (QFileInfo::exists(mlistPath) && readExisting(mlistPath, lines, errors)) {
        ApplyBarredList(lines, Mlist, list);
        writeBack(mlistPath, lines, errors);
    }

    // Keys are never removed; last-only remailers are only marked as
    // middlemen. The address lines then make a fresh type2.list, and only
    // once the keyring itself is safely written, so that the two agree.
    const QString pubringPath = PagePath(PubringMix);
    if (QFileInfo::exists(pubringPath) && readExisting(pubringPath, lines, errors) &&
        MarkLastOnlyMixmaster(lines, list) && writeBack(pubringPath, lines, errors)) {
        QStringList type2;
        for (const QString& line : std::as_const(lines)) {
            if (line.contains(u'@'))
                type2.append(line);
        }
        writeBack(PagePath(Type2List), type2, errors);
    }

    const QString rlistPath = PagePath(Rlist);
    if (QFileInfo::exists(rlistPath) && readExisting(rlistPath, lines, errors)) {
        ApplyBarredList(lines, Rlist, list);
        writeBack(rlistPath, lines, errors);
    }

    if (error)
        *error = errors.join(u'\n');
    return errors.isEmpty();
}

bool AppendNewlyBarred(const QStringList& newbars, QString* error) {
    VK_ASSERT_TEXT(!newbars.isEmpty(), "newbars != NULL && newbars->Count > 0", StatsWins4Unit);
    const QString path = BarredList::path();
    PageLines lines;
    QStringList errors;
    if (QFileInfo::exists(path) && !readExisting(path, lines, errors)) {
        if (error)
            *error = errors.join(u'\n');
        return false;
    }

    // The update hands over every name it saw, often more than once and
    // often names barred long ago: each is written only the first time.
    QSet<QString> known;
    for (const QString& line : std::as_const(lines))
        known.insert(key(BarredList::nameOf(line)));
    bool added = false;
    for (const QString& raw : newbars) {
        const QString name = raw.trimmed();
        if (name.isEmpty() || known.contains(key(name)))
            continue;
        known.insert(key(name));
        lines.append(name);
        added = true;
    }
    if (!added)
        return true;
    return WriteLines(path, lines, error);
}
