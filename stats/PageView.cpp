#include "PageView.h"

#include <algorithm>
#include <utility>

PageView::PageView(QObject* parent) : QObject(parent) {}

PageView::PageView(QStringList lines, QObject* parent)
    : QObject(parent), m_lines(std::move(lines)) {}

void PageView::setLines(QStringList lines) {
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
        m_lines.last() += text;
    emit linesChanged();
}

void PageView::insertLine(qsizetype index, const QString& line) {
    m_lines.insert(std::clamp<qsizetype>(index, 0, m_lines.size()), line);
    emit linesChanged();
}

void PageView::notifyChanged() {
    emit linesChanged();
}
