#pragma once

#include <QString>
#include <QStringList>

// Which remailers appeared and which vanished between the stored statistics
// pages and the ones just downloaded.
//
// A remailer name list is sorted without regard to case and holds each name
// once (the first spelling met wins); every lookup in it ignores case too.

// Sorts names into a remailer name list: case-insensitive order, and of
// names that differ only in case the first one stays.
void SortRemailerNames(QStringList& names);

// Remailer names of a Mixmaster statistics page (mlist.txt): the table starts
// after the line of hyphens and ends at a blank line or at a line without
// "%". Replaces names with the sorted list and returns how many it holds.
int ExtractMixmasterNames(const QStringList& lines, QStringList& names);

// The same for a Cypherpunk statistics page (rlist.txt), whose table has no
// hyphen line above it that could be relied on: the first line holding "%"
// opens the table and is its first row.
int ExtractCypherpunkNames(const QStringList& lines, QStringList& names);

// Compares two name lists and appends the sections to the report: an empty
// line, the heading for new remailers, the new names; an empty line, the
// heading for deceased ones, the vanished names. A section without names is
// left out. Every new name is appended to newbars. Returns whether the report
// holds any line afterwards, including lines that were there before.
bool AppendRemailerChanges(const QStringList& oldNames, const QStringList& newNames,
                           const QString& newHeading, const QString& deceasedHeading,
                           QStringList& report, QStringList& newbars);

// The Mixmaster comparison of an update: the old names come from the stored
// mlist.txt (none when it is missing, so on a first run every remailer is
// new), the new ones from newPage, the mlist.txt page now in the viewer.
// With barnew set the new-remailers heading says they are all barred.
bool ReportMixmasterChanges(const QStringList& newPage, QStringList& report, bool barnew,
                            QStringList& newbars);

// The same for the Cypherpunk page, against the stored rlist.txt.
bool ReportCypherpunkChanges(const QStringList& newPage, QStringList& report, bool barnew,
                             QStringList& newbars);
