#include "PageLines.h"

#include <QBuffer>

#include <algorithm>
#include <limits>
#include <utility>

namespace {

// Line places are 32-bit, the top bit of a length a mark: a longer text
// keeps its first 2 GiB, far past the size any page may have.
constexpr qsizetype MaxBytes = std::numeric_limits<quint32>::max() >> 1;

} // namespace

PageLines::PageLines(QByteArray bytes) : m_bytes(std::move(bytes)) {
    if (m_bytes.size() > MaxBytes)
        m_bytes.truncate(MaxBytes);
    const char* data = m_bytes.constData();
    const qsizetype n = m_bytes.size();
    // Counted first, so that the places take one allocation of their size.
    qsizetype breaks = 0;
    for (qsizetype i = 0; i < n; ++i)
        breaks += data[i] == '\n' || data[i] == '\r';
    m_spans.reserve(breaks + 1);
    SplitAtLineEnds(
        n, [data](qsizetype i) { return data[i]; },
        [this](qsizetype start, qsizetype length) {
            m_spans.append({quint32(start), quint32(length)});
        });
}

PageLines::PageLines(const QStringList& lines) {
    qsizetype bytes = 0;
    for (const QString& line : lines)
        bytes += line.size();
    m_bytes.reserve(bytes);
    m_spans.reserve(lines.size());
    for (const QString& line : lines)
        append(line);
}

QString PageLines::decode(const Span& span) const {
    const char* data = m_bytes.constData() + span.start;
    if (span.size & Utf8)
        return QString::fromUtf8(data, span.size & ~Utf8);
    return QString::fromLatin1(data, span.size);
}

QString PageLines::at(qsizetype i) const {
    return decode(m_spans.at(i));
}

QLatin1StringView PageLines::view(qsizetype i) const {
    const Span& span = m_spans.at(i);
    return QLatin1StringView(m_bytes.constData() + span.start, span.size & ~Utf8);
}

QLatin1StringView PageLines::trimmed(QLatin1StringView line) {
    const auto blank = [](QLatin1Char c) {
        return QChar(c).isSpace();
    };
    while (!line.isEmpty() && blank(line.front()))
        line = line.sliced(1);
    while (!line.isEmpty() && blank(line.back()))
        line.chop(1);
    return line;
}

PageLines::Span PageLines::store(const QString& line) {
    const Span span{quint32(m_bytes.size()), 0};
    // An empty line needs no bytes; adding none keeps bytes shared with a
    // copy from being copied.
    if (line.isEmpty())
        return span;
    const bool latin1 =
        std::all_of(line.cbegin(), line.cend(), [](QChar c) { return c.unicode() < 0x100; });
    const QByteArray bytes = latin1 ? line.toLatin1() : line.toUtf8();
    m_bytes.append(bytes.constData(), bytes.size());
    return {span.start, quint32(bytes.size()) | (latin1 ? 0 : Utf8)};
}

void PageLines::append(const QString& line) {
    m_spans.append(store(line));
}

void PageLines::append(QLatin1StringView line) {
    const char* bytes = m_bytes.constData();
    const bool inside = !m_bytes.isEmpty() && line.data() >= bytes &&
                        line.data() + line.size() <= bytes + m_bytes.size();
    if (inside) {
        m_spans.append({quint32(line.data() - bytes), quint32(line.size())});
        return;
    }
    const Span span{quint32(m_bytes.size()), quint32(line.size())};
    m_bytes.append(line.data(), line.size());
    m_spans.append(span);
}

void PageLines::insert(qsizetype index, const QString& line) {
    m_spans.insert(std::clamp<qsizetype>(index, 0, size()), store(line));
}

void PageLines::replace(qsizetype index, const QString& line) {
    m_spans[index] = store(line);
}

void PageLines::remove(qsizetype index, qsizetype count) {
    m_spans.remove(index, count);
}

void PageLines::clear() {
    m_bytes.clear();
    m_spans.clear();
}

PageLines PageLines::withoutLines() const {
    PageLines empty;
    empty.m_bytes = m_bytes;
    return empty;
}

void PageLines::rotate(qsizetype first) {
    std::rotate(m_spans.begin(), m_spans.begin() + first, m_spans.end());
}

void PageLines::sortUniqueIgnoringCase() {
    const auto compare = [this](const Span& a, const Span& b) {
        return QLatin1StringView(m_bytes.constData() + a.start, a.size & ~Utf8)
            .compare(QLatin1StringView(m_bytes.constData() + b.start, b.size & ~Utf8),
                     Qt::CaseInsensitive);
    };
    std::stable_sort(m_spans.begin(), m_spans.end(),
                     [&](const Span& a, const Span& b) { return compare(a, b) < 0; });
    const auto end = std::unique(m_spans.begin(), m_spans.end(),
                                 [&](const Span& a, const Span& b) { return compare(a, b) == 0; });
    m_spans.erase(end, m_spans.end());
}

QStringList PageLines::toStringList() const {
    QStringList lines;
    lines.reserve(size());
    for (const Span& span : m_spans)
        lines.append(decode(span));
    return lines;
}

QString PageLines::text() const {
    QString out;
    for (qsizetype i = 0; i < size(); ++i) {
        if (i > 0)
            out += u'\n';
        out += at(i);
    }
    return out;
}

bool PageLines::writeTo(QIODevice& device) const {
    // The device buffers: a line at a time costs no more than one write.
    for (qsizetype i = 0; i < size(); ++i) {
        // Files hold Latin-1: what it cannot hold is written as '?'.
        const QByteArray converted = m_spans.at(i).size & Utf8 ? at(i).toLatin1() : QByteArray();
        const QLatin1StringView line = converted.isNull() ? view(i) : QLatin1StringView(converted);
        if (device.write(line.data(), line.size()) != line.size() || !device.putChar('\n'))
            return false;
    }
    return true;
}

QByteArray PageLines::toBytes() const {
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    writeTo(buffer);
    return buffer.data();
}

bool PageLines::operator==(const PageLines& other) const {
    if (size() != other.size())
        return false;
    for (qsizetype i = 0; i < size(); ++i) {
        if (at(i) != other.at(i))
            return false;
    }
    return true;
}
