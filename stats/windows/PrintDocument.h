#pragma once

#include <QFont>
#include <QPainter>
#include <QString>
#include <QStringList>

class QPrinter;

// One print job of several documents: each begins on a page of its own under
// its title; lines too long for the page wrap, at a blank where there is one.
class PrintJob {
public:
    explicit PrintJob(QPrinter& printer);
    PrintJob(const PrintJob&) = delete;
    PrintJob& operator=(const PrintJob&) = delete;

    // False when the printer could not be used.
    bool add(const QString& title, const QStringList& lines, const QFont& font);
    bool finish();

private:
    bool startPage(const QString& title, const QFont& font);

    QPrinter& m_printer;
    QPainter m_painter;
    bool m_begun = false;
    bool m_failed = false;
    int m_y = 0;
};

// Prints the lines under a title in the font as a job of its own.
bool PrintDocument(QPrinter& printer, const QString& title, const QStringList& lines,
                   const QFont& font);
