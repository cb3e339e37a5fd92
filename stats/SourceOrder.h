#pragma once

#include "FrontEnd.h"

#include <QString>
#include <QStringList>

// The reading and writing behind the reorder and update-select dialogs. They
// work on urls.txt as a list of lines (as ReadLines gives it) so that each
// dialog reads the file afresh whenever it needs it.
//
// The two dialogs read the source names differently on purpose, and neither
// way is the source box's: the reorder dialog takes each header as it stands
// and leaves out only an exact "[velkin]", while the update-select dialog
// trims the header first and leaves out "[velkin]" in any case. A header
// with a blank after its "]" is therefore "name]" in the one and "name" in
// the other.

// The suite's own section, which is never offered as a stats source.
inline constexpr char VelkinSection[] = "velkin";

// The source names the reorder dialog lists, in file order: every line that
// begins with "[" as it stands, except exactly "[velkin]", without its first
// and last character.
QStringList ReorderSourceNames(const QStringList& urlLines);

// The source names the update-select dialog offers, in file order: every
// trimmed line that begins with "[" and is not "[velkin]" in any case,
// without its first and last character.
QStringList UpdateSourceNames(const QStringList& urlLines);

// The page names of a section for the update-select dialog's check lists:
// the first blank-separated word of each entry line with a blank, in file
// order. Every section whose trimmed header begins with "[name]" adds its
// entries.
QStringList SectionPageNames(const QStringList& urlLines, const QString& section);

// The lines of a section as the reorder dialog writes them back: the trimmed
// lines after the first trimmed line equal to "[name]" (exact case), up to an
// empty line or a line that begins with "[". Only the first such section
// counts; lines without a blank are kept.
QStringList SectionLinesToWrite(const QStringList& urlLines, const QString& section);

// urls.txt rewritten in the given order: each source's header, its section
// lines and one empty line, then "[velkin]" and its lines with no empty line
// after. Anything else in the old file is dropped.
QStringList ReorderedUrlLines(const QStringList& urlLines, const QStringList& order);

// Reads urls.txt, rewrites it in the given order and saves it whole. When the
// save fails the old file stays as it was, the user is told through frontEnd
// and the result is false.
bool WriteSourceOrder(const QString& urlsPath, const QStringList& order, FrontEnd* frontEnd);

// The pages an update from the chosen source fetches: the ticked pages in
// list order without "type2.list", which is always derived locally.
QStringList ChosenUpdatePages(const QStringList& tickedPages);
