#pragma once

#include <QString>
#include <QStringList>

#include "PageLines.h"

// Which remailers appeared and which vanished between the stored statistics
// pages and the ones just downloaded.
//
// A remailer name list is sorted without regard to case and holds each name
// once (the first spelling met wins): see PageLines::sortUniqueIgnoringCase.

// Remailer names of a Mixmaster statistics page (mlist.txt): the table starts
// after the line of hyphens and ends at a blank line or at a line without
// "%". Replaces names with the sorted list and returns how many it holds.
int ExtractMixmasterNames(const PageLines& lines, PageLines& names);

// The same for a Cypherpunk statistics page (rlist.txt), whose table has no
// hyphen line above it that could be relied on: the first line holding "%"
// opens the table and is its first row.
int ExtractCypherpunkNames(const PageLines& lines, PageLines& names);

// Compares two name lists and appends the sections to the report: an empty
// line, the heading for new remailers, the new names; an empty line, the
// heading for deceased ones, the vanished names. A section without names is
// left out. Every new name is appended to newbars. Returns whether the report
// holds any line afterwards, including lines that were there before.
bool AppendRemailerChanges(const PageLines& oldNames, const PageLines& newNames,
                           const QString& newHeading, const QString& deceasedHeading,
                           PageLines& report, QStringList& newbars);

// The Mixmaster comparison of an update: the old names come from the stored
// mlist.txt (none when it is missing, so on a first run every remailer is
// new), the new ones from newPage, the mlist.txt page now in the viewer.
// With barnew set the new-remailers heading says they are all barred.
bool ReportMixmasterChanges(const PageLines& newPage, PageLines& report, bool barnew,
                            QStringList& newbars);

// The same for the Cypherpunk page, against the stored rlist.txt.
bool ReportCypherpunkChanges(const PageLines& newPage, PageLines& report, bool barnew,
                             QStringList& newbars);
