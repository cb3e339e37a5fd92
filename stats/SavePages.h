#pragma once

#include "FrontEnd.h"

#include <QStringList>

class PageSet;

// What a save came to: how many files were put in place, every file that
// could not be (it and the files after it keep their old contents), and the
// stale pages left out on the user's word.
struct SaveResult {
    int written = 0;
    bool encrypted = false;
    QStringList errors;
    QStringList skipped;
    bool ok() const { return errors.isEmpty() && !encrypted; }
};

// Writes every downloaded page that passed its check to its file: the
// statistics pages with their unfiltered copies, pubring.mix with the
// type2.list derived from it, pubring.asc with the nymserver keys merged in.
// Local files and pages that failed their check are never written; stale
// pages neither when skipStale is set. With barNew set, the newly seen
// remailers are added to barred.txt.
//
// The files are one set: all are written to temporary files first, and only
// when every one of them was written whole are they put in place, one after
// another, pubring.mix before type2.list. A page's date is recorded once its
// file is in place, so a date never claims a file that is not there.
SaveResult SavePages(FrontEnd* frontEnd, PageSet& pages, const QStringList& newbars, bool barNew,
                     bool skipStale = false);

// Downloaded, accepted pages from the second tab on; the first tab (the
// status page of a run) is never counted.
int PagesWorthSaving(const PageSet& pages);
