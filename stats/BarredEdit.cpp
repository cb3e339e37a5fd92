#include "BarredEdit.h"

#include "BarredList.h"
#include "PagePaths.h"
#include "RemailerTracking.h"
#include "TextFile.h"

#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSet>

#include <algorithm>

namespace {

// Names compare without regard to case, as barred.txt is applied.
QString key(const QString& name) {
    return name.toCaseFolded();
}

QString lineFor(const QString& name, BarState state) {
    return state == BarState::LastOnly ? name + QStringLiteral(",last") : name;
}

} // namespace

QString BarActionCaption(BarAction action, const QString& name) {
    QString shown = name;
    shown.replace(u'&', QStringLiteral("&&"));
    switch (action) {
    case BarAction::Bar:
        return QStringLiteral("&Bar ") + shown;
    case BarAction::BarFromLast:
        return QStringLiteral("&Bar ") + shown + QStringLiteral(" from last");
    case BarAction::Unbar:
        return QStringLiteral("Un&bar ") + shown;
    case BarAction::UnbarFromLast:
        return QStringLiteral("Un&bar ") + shown + QStringLiteral(" from last");
    }
    return {};
}

BarState BarActionTarget(BarAction action) {
    switch (action) {
    case BarAction::Bar:
        return BarState::Full;
    case BarAction::BarFromLast:
        return BarState::LastOnly;
    case BarAction::Unbar:
    case BarAction::UnbarFromLast:
        break;
    }
    return BarState::None;
}

bool BarredEdit::namesRemailer(const QString& line) {
    const QString name = BarredList::nameOf(line);
    return !name.isEmpty() && !name.contains(u' ');
}

BarredEdit::BarredEdit(const QList<PageLines>& pages, const QStringList& fileLines)
    : m_fileLines(fileLines) {
    QHash<QString, int> index;
    auto rowFor = [&](const QString& name) -> BarredRow& {
        const QString k = key(name);
        auto it = index.constFind(k);
        if (it == index.constEnd()) {
            it = index.insert(k, int(m_rows.size()));
            BarredRow row;
            row.name = name; // the first spelling met stays
            m_rows.append(row);
        }
        return m_rows[*it];
    };

    for (const PageLines& page : pages) {
        PageLines names;
        ExtractMixmasterNames(page, names);
        for (const QString& name : names)
            rowFor(name).listed = true;
    }
    // A name with a full bar anywhere in the file is barred entirely, as the
    // stats lines are removed for it whatever other lines say.
    for (const QString& line : fileLines) {
        if (!namesRemailer(line))
            continue;
        BarredRow& row = rowFor(BarredList::nameOf(line));
        if (!BarredList::isLastOnlyLine(line))
            row.state = BarState::Full;
        else if (row.state == BarState::None)
            row.state = BarState::LastOnly;
    }
    BarredRow& fixed = rowFor(BarredList::alwaysBarred());
    fixed.fixed = true;
    fixed.state = BarState::Full;

    for (BarredRow& row : m_rows)
        row.initial = row.state;
    std::stable_sort(m_rows.begin(), m_rows.end(), [](const BarredRow& a, const BarredRow& b) {
        return a.name.compare(b.name, Qt::CaseInsensitive) < 0;
    });
}

BarredEdit BarredEdit::fromStoredFiles(const QString& barredPath, bool* ok) {
    bool read = true;
    const QStringList fileLines = ReadLines(barredPath, &read);
    if (ok)
        *ok = read || !QFileInfo::exists(barredPath);
    return BarredEdit({ReadPage(PagePath(QStringLiteral("mlist.txt"))),
                       ReadPage(PagePath(QStringLiteral("mlist.org.txt")))},
                      fileLines);
}

int BarredEdit::rowOf(const QString& name) const {
    const QString k = key(name);
    for (int i = 0; i < m_rows.size(); ++i) {
        if (key(m_rows.at(i).name) == k)
            return i;
    }
    return -1;
}

QList<BarAction> BarredEdit::actionsFor(BarState state) {
    switch (state) {
    case BarState::None:
        return {BarAction::Bar, BarAction::BarFromLast};
    case BarState::Full:
        return {BarAction::Unbar, BarAction::BarFromLast};
    case BarState::LastOnly:
        return {BarAction::UnbarFromLast, BarAction::Bar};
    }
    return {};
}

bool BarredEdit::apply(int row, BarAction action) {
    if (row < 0 || row >= m_rows.size())
        return false;
    BarredRow& target = m_rows[row];
    if (target.fixed || !actionsFor(target.state).contains(action))
        return false;
    target.state = BarActionTarget(action);
    return true;
}

bool BarredEdit::changed() const {
    return std::any_of(m_rows.cbegin(), m_rows.cend(),
                       [](const BarredRow& row) { return row.state != row.initial; });
}

QStringList BarredEdit::fileLines() const {
    QHash<QString, const BarredRow*> byKey;
    for (const BarredRow& row : m_rows)
        byKey.insert(key(row.name), &row);

    QStringList lines;
    QSet<QString> rewritten;
    for (const QString& line : m_fileLines) {
        if (!namesRemailer(line)) {
            lines.append(line);
            continue;
        }
        const QString name = BarredList::nameOf(line);
        const QString k = key(name);
        const BarredRow* row = byKey.value(k);
        // Untouched remailers keep their lines exactly, repeats included.
        if (!row || row->state == row->initial) {
            lines.append(line);
            continue;
        }
        if (row->state == BarState::None || rewritten.contains(k))
            continue;
        rewritten.insert(k);
        lines.append(lineFor(name, row->state)); // in the file's spelling
    }
    for (const BarredRow& row : m_rows) {
        if (row.initial == BarState::None && row.state != BarState::None)
            lines.append(lineFor(row.name, row.state));
    }
    return lines;
}

bool FileSnapshot::take(const QString& path, QString* error) {
    m_existed = QFileInfo::exists(path);
    m_bytes.clear();
    if (!m_existed)
        return true;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (error)
            *error = QStringLiteral("Cannot read %1: %2").arg(path, file.errorString());
        return false;
    }
    m_bytes = file.readAll();
    return true;
}

bool FileSnapshot::restore(const QString& path, QString* error) const {
    if (m_existed)
        return WriteBytes(path, m_bytes, error);
    if (!QFileInfo::exists(path) || QFile::remove(path))
        return true;
    if (error)
        *error = QStringLiteral("Cannot remove %1").arg(path);
    return false;
}
