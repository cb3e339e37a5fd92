#pragma once

#include <QFont>
#include <QString>
#include <QStringList>

class QPrinter;

// Prints the lines under a title in the font, as one document of its own on
// the printer, page after page. False when the printer could not be used.
bool PrintDocument(QPrinter& printer, const QString& title, const QStringList& lines,
                   const QFont& font);
