#pragma once

#include "FrontEnd.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>

// What the main window's source box should show after a fill: the entries in
// file order and the one to select (-1 only when there are no entries).
struct SourceBoxContent {
    QStringList entries;
    int selected = -1;
};

// The stats-source list, urls.txt: one "[name]" section per pinger with
// "page-name URL" entry lines, plus the suite's own "[velkin]" section.
//
// Nothing is cached: every call reads the file again, so a copy replaced by
// the URL manager, rewritten by the reorder dialog or edited by hand counts
// at the very next call. A missing file reads as an empty list.
//
// Section names are read two ways on purpose: the lookup by index (and so the
// default source) drops the first and last character of the trimmed header,
// while the source box cuts the untrimmed header at its first "]". A header
// with text after its "]" therefore shows under two different names.
class StatsSourceList {
public:
    // urlsPath is normally ProgramFolder() + "urls.txt"; messages go to
    // frontEnd.
    StatsSourceList(QString urlsPath, FrontEnd* frontEnd);

    const QString& path() const { return m_path; }

    // The index-th section, counting every header ("[velkin]" too); empty when
    // there are not that many.
    QString sourceNameByIndex(int index) const;

    // The source's entry lines, trimmed, in file order; every section of that
    // name contributes.
    QStringList pageLines(const QString& source) const;
    // The same lines cut to the text before their first space.
    QStringList pageNames(const QString& source) const;
    // The page names whose Pages-menu item is checked. checkedCaptions are the
    // captions of the checked items as they stand; their first "&" is ignored.
    QStringList markedPages(const QString& source, const QStringList& checkedCaptions) const;

    // The URL of a page at a source, as written in the file. The page name is
    // matched against the lower-cased entry, so pass it in lower case. With no
    // entry the user is told and the result is empty.
    QString urlOfPage(const QString& source, const QString& pageName) const;
    // The same without telling anybody: nothing when there is no entry.
    std::optional<QString> findUrl(const QString& source, const QString& pageName) const;

    // The name in the first header of the file, "[velkin]" included; empty
    // when the file has no section.
    QString defaultSource() const;

    // Moves the section "[source]" (an exact, whole-line header) with
    // everything up to the next header so that it stands before the
    // position-th of the remaining headers, and saves the file. A position at
    // or past the number of remaining headers drops the section; callers only
    // ever ask for 0. Returns false, after telling the user, when the file
    // could not be saved; the old file is then left as it was.
    bool moveSource(const QString& source, int position) const;

    // The source box's entries and the one to select: nameToSelect found
    // without regard to case, else the first entry. "[velkin]" is left out.
    SourceBoxContent sourceBoxContent(const QString& nameToSelect) const;

    static QString missingUrlMessage(const QString& pageName, const QString& source);
    static QString saveFailedMessage(const QString& fullPath);

private:
    QStringList readLines() const;

    QString m_path;
    FrontEnd* m_frontEnd;
};

// The urls.txt shipped with the program, as bytes.
QByteArray DefaultUrlsBytes();

// First start: writes the shipped urls.txt to urlsPath unless something is
// already there, which is never replaced. Returns false with error set only
// when writing failed; written (when given) tells whether a file was made.
bool InstallDefaultUrls(const QString& urlsPath, QString* error = nullptr, bool* written = nullptr);
