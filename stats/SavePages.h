#pragma once

#include "FrontEnd.h"

#include <QStringList>

class PageSet;

// What a save came to: how many pages were written, and every file that
// could not be (the old file then stays as it was).
struct SaveResult {
    int written = 0;
    bool encrypted = false;
    QStringList errors;
    bool ok() const { return errors.isEmpty() && !encrypted; }
};

// Writes every downloaded page that passed its check to its file: the
// statistics pages with their unfiltered copies, pubring.mix with the
// type2.list derived from it, pubring.asc with the nymserver keys merged in.
// Local files and pages that failed their check are never written. With
// barNew set, the newly seen remailers are added to barred.txt.
SaveResult SavePages(FrontEnd* frontEnd, PageSet& pages, const QStringList& newbars, bool barNew);

// Downloaded, accepted pages from the second tab on; the first tab (the
// status page of a run) is never counted.
int PagesWorthSaving(const PageSet& pages);
