#include "RemailerTracking.h"

#include "PagePaths.h"
#include "TextFile.h"

#include <QFileInfo>

#include <utility>

namespace {

const QLatin1String MixmasterTableRule("----------------");

// Collects the names of a statistics table, one line at a time, so that a
// stored page can be read without holding it. The two page kinds differ
// only in what opens the table: Mixmaster pages have a rule of hyphens above
// it, Cypherpunk pages are recognised by their first "%" row.
class TableNames {
public:
    // Names taken from lines of page share its bytes.
    TableNames(bool opensAtHyphens, const PageLines& page = {})
        : names(page.withoutLines()), m_opensAtHyphens(opensAtHyphens) {}

    // False once the table has ended: the lines after it are not read.
    bool take(QLatin1StringView raw) {
        const QLatin1StringView line = PageLines::trimmed(raw);
        if (line.isEmpty())
            return !m_inTable;
        if (m_opensAtHyphens && line.startsWith(MixmasterTableRule)) {
            m_inTable = true;
            return true;
        }
        if (!m_inTable) {
            if (m_opensAtHyphens || !line.contains(u'%'))
                return true;
            m_inTable = true;
        }
        // A row without a percentage is no longer the table: whatever comes
        // after it is not trusted to be remailers.
        if (!line.contains(u'%'))
            return false;
        const qsizetype blank = line.indexOf(u' ');
        names.append(blank < 0 ? line : line.left(blank));
        return true;
    }

    PageLines names;

private:
    bool m_opensAtHyphens;
    bool m_inTable = false;
};

int extractNames(const PageLines& lines, PageLines& names, bool opensAtHyphens) {
    TableNames table(opensAtHyphens, lines);
    qsizetype i = 0;
    while (i < lines.size() && table.take(lines.view(i)))
        ++i;
    names = std::move(table.names);
    names.sortUniqueIgnoringCase();
    return int(names.size());
}

bool reportChanges(const QString& pageName, const QString& kind, const PageLines& newPage,
                   PageLines& report, bool barnew, QStringList& newbars) {
    const bool mixmaster = pageName == QStringLiteral("mlist.txt");
    // The stored page is read a line at a time: only its names are kept. A
    // missing stored copy reads as no lines, so every remailer is new.
    TableNames stored(mixmaster);
    ForEachLine(PagePath(pageName),
                [&stored](QLatin1StringView line) { return stored.take(line); });
    PageLines oldNames = std::move(stored.names);
    oldNames.sortUniqueIgnoringCase();
    PageLines newNames;
    extractNames(newPage, newNames, mixmaster);
    // Only the names that are new go to newbars, with or without barnew:
    // barring every listed remailer would leave Mixmaster nothing to use.
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

int ExtractMixmasterNames(const PageLines& lines, PageLines& names) {
    return extractNames(lines, names, true);
}

int ExtractCypherpunkNames(const PageLines& lines, PageLines& names) {
    return extractNames(lines, names, false);
}

bool AppendRemailerChanges(const PageLines& oldNames, const PageLines& newNames,
                           const QString& newHeading, const QString& deceasedHeading,
                           PageLines& report, QStringList& newbars) {
    // Both lists are sorted: one walk through them side by side finds what
    // is new and what is gone, however long a hostile page makes them.
    QStringList added;
    QStringList gone;
    qsizetype o = 0;
    qsizetype n = 0;
    while (o < oldNames.size() || n < newNames.size()) {
        const int order = o == oldNames.size() ? 1
                          : n == newNames.size()
                              ? -1
                              : oldNames.view(o).compare(newNames.view(n), Qt::CaseInsensitive);
        if (order < 0)
            gone.append(oldNames.at(o++));
        else if (order > 0)
            added.append(newNames.at(n++));
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
        for (const QString& name : names)
            report.append(name);
    };
    section(newHeading, added);
    section(deceasedHeading, gone);
    return !report.isEmpty();
}

bool ReportMixmasterChanges(const PageLines& newPage, PageLines& report, bool barnew,
                            QStringList& newbars) {
    return reportChanges(QStringLiteral("mlist.txt"), QStringLiteral("Mixmaster"), newPage, report,
                         barnew, newbars);
}

bool ReportCypherpunkChanges(const PageLines& newPage, PageLines& report, bool barnew,
                             QStringList& newbars) {
    return reportChanges(QStringLiteral("rlist.txt"), QStringLiteral("Cypherpunk"), newPage, report,
                         barnew, newbars);
}
