#include "PrintDocument.h"

#include <QFontMetrics>
#include <QPrinter>

namespace {

// The longest start of text that fits width, cut after a blank when one
// falls inside it; never empty, so every call makes progress.
qsizetype fittingLength(const QString& text, const QFontMetrics& metrics, int width) {
    qsizetype low = 1;
    qsizetype high = text.size();
    while (low < high) {
        const qsizetype middle = (low + high + 1) / 2;
        if (metrics.horizontalAdvance(text.left(middle)) <= width)
            low = middle;
        else
            high = middle - 1;
    }
    if (low == text.size())
        return low;
    const qsizetype blank = text.lastIndexOf(u' ', low - 1);
    return blank > 0 ? blank + 1 : low;
}

QStringList wrapped(QString line, const QFontMetrics& metrics, int width) {
    QStringList parts;
    while (metrics.horizontalAdvance(line) > width && line.size() > 1) {
        const qsizetype length = fittingLength(line, metrics, width);
        parts << line.left(length);
        line = line.mid(length);
    }
    parts << line;
    return parts;
}

} // namespace

PrintJob::PrintJob(QPrinter& printer) : m_printer(printer) {}

bool PrintJob::startPage(const QString& title, const QFont& font) {
    if (!m_begun) {
        m_begun = m_painter.begin(&m_printer);
        if (!m_begun)
            return false;
    } else if (!m_printer.newPage()) {
        return false;
    }
    QFont titleFont = font;
    titleFont.setBold(true);
    m_painter.setFont(titleFont);
    const QFontMetrics titleMetrics(titleFont, &m_printer);
    m_painter.drawText(0, titleMetrics.ascent(), title);
    m_painter.setFont(font);
    m_y = titleMetrics.lineSpacing() * 2;
    return true;
}

bool PrintJob::add(const QString& title, const QStringList& lines, const QFont& font) {
    if (m_failed || !startPage(title, font))
        return !(m_failed = true);
    m_printer.setDocName(title);
    const QFontMetrics metrics(font, &m_printer);
    const QRect page = m_painter.viewport();
    for (const QString& line : lines) {
        for (const QString& part : wrapped(line, metrics, page.width())) {
            if (m_y + metrics.lineSpacing() > page.height() && !startPage(title, font))
                return !(m_failed = true);
            m_painter.drawText(0, m_y + metrics.ascent(), part);
            m_y += metrics.lineSpacing();
        }
    }
    return true;
}

bool PrintJob::finish() {
    const bool ended = !m_begun || m_painter.end();
    return ended && !m_failed;
}

bool PrintDocument(QPrinter& printer, const QString& title, const QStringList& lines,
                   const QFont& font) {
    PrintJob job(printer);
    return job.add(title, lines, font) && job.finish();
}
