#include "PrintDocument.h"

#include <QFontMetrics>
#include <QPainter>
#include <QPrinter>

bool PrintDocument(QPrinter& printer, const QString& title, const QStringList& lines,
                   const QFont& font) {
    printer.setDocName(title);
    QPainter painter;
    if (!painter.begin(&printer))
        return false;
    const QRect page = painter.viewport();
    QFont titleFont = font;
    titleFont.setBold(true);
    const int titleHeight = QFontMetrics(titleFont, &printer).lineSpacing() * 2;
    const int lineHeight = QFontMetrics(font, &printer).lineSpacing();
    int y = page.height(); // forces the first page's heading
    bool first = true;
    for (const QString& line : lines) {
        if (y + lineHeight > page.height()) {
            if (!first && !printer.newPage())
                return false;
            first = false;
            painter.setFont(titleFont);
            painter.drawText(0, QFontMetrics(titleFont, &printer).ascent(), title);
            painter.setFont(font);
            y = titleHeight;
        }
        painter.drawText(0, y + QFontMetrics(font, &printer).ascent(), line);
        y += lineHeight;
    }
    if (first) { // an empty page still prints its title
        painter.setFont(titleFont);
        painter.drawText(0, QFontMetrics(titleFont, &printer).ascent(), title);
    }
    return painter.end();
}
