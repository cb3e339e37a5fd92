#pragma once

#include <QObject>
#include <QString>

#include "PageLines.h"

// The core's stand-in for a page's text view: the page's lines and the three
// flags the page set and the viewer care about. A document owns one; the
// widgets front end shows its lines in a read-only text view and listens to
// the signals to stay in step.
//
// Changes made through the methods never touch the modified flag: it records
// whether the page still needs saving, which only its owner can tell.
class PageView : public QObject {
    Q_OBJECT
public:
    explicit PageView(QObject* parent = nullptr);
    explicit PageView(PageLines lines, QObject* parent = nullptr);

    // The list itself, so that documents check and edit the page in place.
    // Whoever edits it directly calls notifyChanged() afterwards.
    PageLines& lines() { return m_lines; }
    const PageLines& lines() const { return m_lines; }

    void setLines(PageLines lines);
    void appendLine(const QString& line);
    // Adds text to the last line; on an empty view the text becomes the
    // first line.
    void appendToLastLine(const QString& text);
    // Inserts before the line at index; an index outside the list appends
    // (past the end) or prepends (below zero).
    void insertLine(qsizetype index, const QString& line);
    void notifyChanged();

    bool isModified() const { return m_modified; }
    void setModified(bool modified) { m_modified = modified; }
    bool isReadOnly() const { return m_readOnly; }
    void setReadOnly(bool readOnly) { m_readOnly = readOnly; }
    bool wordWrap() const { return m_wordWrap; }
    void setWordWrap(bool wordWrap) { m_wordWrap = wordWrap; }
    // A statistics page older than the pinger's last few days: shown, and
    // marked on its tab, so that nobody takes it for current.
    bool isStale() const { return m_stale; }
    void setStale(bool stale) { m_stale = stale; }

signals:
    void linesChanged();
    void lineAppended(const QString& line);

private:
    PageLines m_lines;
    bool m_modified = false;
    // Pages are shown, not edited, and most are tables that must not wrap.
    bool m_readOnly = true;
    bool m_wordWrap = false;
    bool m_stale = false;
};
