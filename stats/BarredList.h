#pragma once

#include <QSet>
#include <QString>
#include <QStringList>

#include "PageLines.h"

// The barred remailers of barred.txt, one per line: "name" bars a remailer
// entirely, "name,last" only as the last hop of a chain (it stays usable in
// the middle). Barred remailers are kept out of the pages Mixmaster and the
// mail suite route by.
class BarredList {
public:
    // Always fully barred, whatever barred.txt says.
    static QString alwaysBarred() { return QStringLiteral("lcs"); }

    // Only the fixed full bar.
    BarredList();
    // The lines of barred.txt.
    explicit BarredList(const QStringList& fileLines);

    // barred.txt by its page path; a missing file bars nothing but the fixed
    // entry.
    static BarredList read();
    static QString path();

    // The lines that bar entirely, each as it stands in the file, in file
    // order, followed by the fixed entry when the file does not bar it.
    const QStringList& fullBars() const { return m_fullBars; }
    // The names barred as last hop only (trimmed), in file order.
    const QStringList& lastOnly() const { return m_lastOnly; }

    // Case-insensitive lookups in constant time, so that a long page costs
    // one pass whatever the length of the list.
    bool isFullyBarred(const QString& name) const;
    bool isLastOnly(const QString& name) const;

    // A line's name: before the first comma, trimmed.
    static QString nameOf(const QString& line);
    // True when the line's second field, trimmed and lower-cased, is "last".
    static bool isLastOnlyLine(const QString& line);

private:
    void addFullBar(const QString& line);

    QStringList m_fullBars;
    QStringList m_lastOnly;
    QSet<QString> m_fullKeys;
    QSet<QString> m_lastKeys;
};

// Deletes the statistics lines (lines holding "%") of fully barred remailers
// from a page, then, for "rlist.txt" and "pubring.mix", marks the last-only
// remailers as middlemen. Returns whether the page changed.
bool ApplyBarredList(PageLines& lines, const QString& pageName, const BarredList& list);

// The same with barred.txt read afresh; the form the page set's filter takes.
void RemoveBarredRemailers(PageLines& lines, const QString& pageName);

// rlist.txt: every "$remailer{" line of a last-only remailer gets " middle"
// after the ">" that closes its address (at the start of the line when there
// is none), unless it holds " middle" already. Returns whether a line changed.
bool MarkLastOnlyCypherpunk(PageLines& lines, const BarredList& list);

// pubring.mix: a last-only remailer's key line gets "M" (middleman) added to
// its capabilities, the fifth blank-separated field, unless it has one
// already; the line is rebuilt from its fields up to the first empty one,
// joined by single blanks. Returns whether a line changed.
bool MarkLastOnlyMixmaster(PageLines& lines, const BarredList& list);

// Applies barred.txt to the stored mlist.txt, pubring.mix (and then a
// type2.list of the keyring's address lines) and rlist.txt, each when it
// exists. A file that cannot be written keeps its old content; the others
// are still done. Returns false and the reasons, one per line, on failure.
bool ApplyBarredListToStoredFiles(QString* error = nullptr);

// Adds newly barred remailers to barred.txt after its lines, each name once:
// names the file already holds (by name, ignoring case) and repeats within
// newbars are skipped. newbars must not be empty. Returns false and the
// reason when the file cannot be written.
bool AppendNewlyBarred(const QStringList& newbars, QString* error = nullptr);
