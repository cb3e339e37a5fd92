#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include "PageLines.h"

// The editable list behind the Barred Remailers dialog: one row per remailer
// of the Mixmaster stats page or of barred.txt, each with its bar, and the
// barred.txt that the rows make. No widgets, so that it is tested directly.

enum class BarState { None, Full, LastOnly };

// The commands of a row's context menu; each names the state it leads to.
enum class BarAction { Bar, BarFromLast, Unbar, UnbarFromLast };

// The menu caption: "&Bar ", "Un&bar " and " from last" around the name, whose
// own "&" is doubled so that it shows as written.
QString BarActionCaption(BarAction action, const QString& name);
BarState BarActionTarget(BarAction action);

struct BarredRow {
    QString name;
    BarState state = BarState::None;
    // As barred.txt had it when the list was made.
    BarState initial = BarState::None;
    // On the stats page; a remailer barred entirely is only in its unfiltered
    // copy, and one that left the page only in barred.txt.
    bool listed = false;
    // The fixed entry: barred entirely whatever the file says.
    bool fixed = false;
};

class BarredEdit {
public:
    // pages: the stats pages whose remailers are listed (mlist.txt and its
    // unfiltered copy); fileLines: barred.txt.
    BarredEdit(const QList<PageLines>& pages, const QStringList& fileLines);

    // The stored mlist.txt and mlist.org.txt by their page paths, and the
    // barred list at barredPath. ok is false when barred.txt is there but
    // cannot be read: writing the rows back would then lose its lines.
    static BarredEdit fromStoredFiles(const QString& barredPath, bool* ok = nullptr);

    // Sorted by name, ignoring case.
    const QList<BarredRow>& rows() const { return m_rows; }
    // The row of that name, ignoring case; -1 when there is none.
    int rowOf(const QString& name) const;

    // What a row's menu offers: the two states it is not in. A fixed row
    // offers the same, but none of them applies.
    static QList<BarAction> actionsFor(BarState state);
    // Puts the row in the action's state; false when nothing changed.
    bool apply(int row, BarAction action);

    // Whether any row differs from the file.
    bool changed() const;

    // barred.txt as the rows make it. The file's lines keep their order and
    // text; a line of a remailer whose bar changed is rewritten as "name" or
    // "name,last" (further lines of that name go), or dropped on unbarring;
    // lines that name no remailer (blank, or holding blanks, such as a note)
    // stay as they are. Bars new to the file follow in row order.
    QStringList fileLines() const;

    // A line names a remailer when its name holds no blank: stats lines are
    // matched by their first blank-separated word, so any other line can
    // never bar anything.
    static bool namesRemailer(const QString& line);

private:
    QStringList m_fileLines;
    QList<BarredRow> m_rows;
};

// What a file held, to put it back after it was replaced: its bytes, or that
// there was none.
class FileSnapshot {
public:
    // False and the reason when the file is there but cannot be read.
    bool take(const QString& path, QString* error = nullptr);
    bool existed() const { return m_existed; }
    const QByteArray& bytes() const { return m_bytes; }
    // Writes the bytes back whole, or removes the file when there was none.
    // False and the reason when it cannot.
    bool restore(const QString& path, QString* error = nullptr) const;

private:
    bool m_existed = false;
    QByteArray m_bytes;
};
