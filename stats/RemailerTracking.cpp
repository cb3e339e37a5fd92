#include "RemailerTracking.h"

#include "PagePaths.h"
#include "TextFile.h"

#include <QFileInfo>

#include <algorithm>

namespace {

const QString MixmasterTableRule = QStringLiteral("----------------");

bool lessIgnoringCase(const QString& a, const QString& b) {
    return a.compare(b, Qt::CaseInsensitive) < 0;
}

// The text before the first blank; the whole text when there is none.
QString firstWord(const QString& line) {
    const qsizetype blank = line.indexOf(u' ');
    return blank < 0 ? line : line.left(blank);
}

// The two page kinds differ only in what opens the table: Mixmaster pages
// have a rule of hyphens above it, Cypherpunk pages are recognised by their
// first "%" row.
int extractNames(const QStringList& lines, QStringList& names, bool opensAtHyphens) {
    names.clear();
    bool inTable = false;
    for (const QString& raw : lines) {
        const QString line = raw.trimmed();
        if (line.isEmpty()) {
            if (inTable)
                break;
            continue;
        }
        if (opensAtHyphens && line.startsWith(MixmasterTableRule)) {
            inTable = true;
            continue;
        }
        if (!inTable) {
            if (opensAtHyphens || !line.contains(u'%'))
                continue;
            inTable = true;
        }
        // A row without a percentage is no longer the table: whatever comes
        // after it is not trusted to be remailers.
        if (!line.contains(u'%'))
            break;
        names.append(firstWord(line));
    }
    SortRemailerNames(names);
    return int(names.size());
}

bool reportChanges(const QString& pageName, const QString& kind, const QStringList& newPage,
                   QStringList& report, bool barnew, QStringList& newbars) {
    const bool mixmaster = pageName == QStringLiteral("mlist.txt");
    // A missing stored copy reads as no lines, so every remailer is new.
    const QStringList oldPage = ReadLines(PagePath(pageName));
    QStringList oldNames;
    QStringList newNames;
    // Only the names that are new go to newbars, with or without barnew:
    // barring every listed remailer would leave Mixmaster nothing to use.
    if (mixmaster) {
        ExtractMixmasterNames(oldPage, oldNames);
        ExtractMixmasterNames(newPage, newNames);
    } else {
        ExtractCypherpunkNames(oldPage, oldNames);
        ExtractCypherpunkNames(newPage, newNames);
    }
    QString newHeading = QStringLiteral("NEW ") + kind + QStringLiteral(" Remailers:");
    const QString deceasedHeading =
        QStringLiteral("DECEASED ") + kind + QStringLiteral(" Remailers:");
    // With nothing stored there is nothing to compare with: every remailer
    // looks new, and barring them all would leave Mixmaster none.
    if (!QFileInfo::exists(PagePath(pageName))) {
        if (barnew)
            newHeading +=
                QStringLiteral(" (none barred: no stored %1 to compare with)").arg(pageName);
        QStringList notBarred;
        return AppendRemailerChanges(oldNames, newNames, newHeading, deceasedHeading, report,
                                     notBarred);
    }
    if (barnew)
        newHeading += QStringLiteral(" (all barred)");
    return AppendRemailerChanges(oldNames, newNames, newHeading, deceasedHeading, report, newbars);
}

} // namespace

void SortRemailerNames(QStringList& names) {
    // Stable, so that of two spellings of one name the first met survives.
    std::stable_sort(names.begin(), names.end(), lessIgnoringCase);
    const auto end =
        std::unique(names.begin(), names.end(), [](const QString& a, const QString& b) {
            return a.compare(b, Qt::CaseInsensitive) == 0;
        });
    names.erase(end, names.end());
}

int ExtractMixmasterNames(const QStringList& lines, QStringList& names) {
    return extractNames(lines, names, true);
}

int ExtractCypherpunkNames(const QStringList& lines, QStringList& names) {
    return extractNames(lines, names, false);
}

bool AppendRemailerChanges(const QStringList& oldNames, const QStringList& newNames,
                           const QString& newHeading, const QString& deceasedHeading,
                           QStringList& report, QStringList& newbars) {
    // Both lists are sorted: one walk through them side by side finds what
    // is new and what is gone, however long a hostile page makes them.
    QStringList added;
    QStringList gone;
    auto o = oldNames.cbegin();
    auto n = newNames.cbegin();
    while (o != oldNames.cend() || n != newNames.cend()) {
        const int order = o == oldNames.cend()   ? 1
                          : n == newNames.cend() ? -1
                                                 : o->compare(*n, Qt::CaseInsensitive);
        if (order < 0)
            gone.append(*o++);
        else if (order > 0)
            added.append(*n++);
        else
            ++o, ++n;
    }
    // Collected whatever the bar-new option says; whoever bars them decides
    // whether to use the list.
    newbars.append(added);
    const auto section = [&report](const QString& heading, const QStringList& names) {
        if (names.isEmpty())
            return;
        report.append(QString());
        report.append(heading);
        report.append(names);
    };
    section(newHeading, added);
    section(deceasedHeading, gone);
    return !report.isEmpty();
}

bool ReportMixmasterChanges(const QStringList& newPage, QStringList& report, bool barnew,
                            QStringList& newbars) {
    return reportChanges(QStringLiteral("mlist.txt"), QStringLiteral("Mixmaster"), newPage, report,
                         barnew, newbars);
}

bool ReportCypherpunkChanges(const QStringList& newPage, QStringList& report, bool barnew,
                             QStringList& newbars) {
    return reportChanges(QStringLiteral("rlist.txt"), QStringLiteral("Cypherpunk"), newPage, report,
                         barnew, newbars);
}
