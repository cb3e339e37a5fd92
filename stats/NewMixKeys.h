#pragma once

#include <QList>
#include <QStringList>

// What the New Mixmaster Keys window shows of Mixmaster key header lines
// ("name address keyid version caps created expires"), kept apart from the
// widgets.

// One row per line: eight cells, fields 0 to 7 at single blanks. The last
// has no column. A missing field, and every field of a line without a
// blank, is empty.
QList<QStringList> NewMixKeyRows(const QStringList& keyLines);

// The window shows the newest keys only: the last keep lines of lines.
QStringList LastKeyLines(const QStringList& lines, qsizetype keep = 10);
