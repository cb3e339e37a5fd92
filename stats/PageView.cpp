#include "PageView.h"

#include <utility>

PageView::PageView(QObject* parent) : QObject(parent) {}

PageView::PageView(PageLines lines, QObject* parent) : QObject(parent), m_lines(std::move(lines)) {}

void PageView::setLines(PageLines lines) {
    m_lines = std::move(lines);
    emit linesChanged();
}

void PageView::appendLine(const QString& line) {
    m_lines.append(line);
    emit lineAppended(line);
    emit linesChanged();
}

void PageView::appendToLastLine(const QString& text) {
    if (m_lines.isEmpty())
        m_lines.append(text);
    else
        m_lines.replace(m_lines.size() - 1, m_lines.constLast() + text);
    emit linesChanged();
}

void PageView::insertLine(qsizetype index, const QString& line) {
    m_lines.insert(index, line);
    emit linesChanged();
}

void PageView::notifyChanged() {
    emit linesChanged();
}
