#pragma once

#include <QByteArray>
#include <QLatin1StringView>
#include <QList>
#include <QString>
#include <QStringList>

#include <initializer_list>
#include <iterator>

class QIODevice;

// Hands take(start, length) each line of a text of n characters, split at
// CR LF, LF or CR; a final line end adds no empty line. codeAt(i) gives the
// i-th character's code.
template <typename CodeAt, typename Take>
void SplitAtLineEnds(qsizetype n, CodeAt codeAt, Take take) {
    qsizetype start = 0;
    for (qsizetype i = 0; i < n; ++i) {
        const auto c = codeAt(i);
        if (c != '\r' && c != '\n')
            continue;
        take(start, i - start);
        if (c == '\r' && i + 1 < n && codeAt(i + 1) == '\n')
            ++i;
        start = i + 1;
    }
    if (start < n)
        take(start, n - start);
}

// A page's lines, held as the page's own bytes and where each line lies in
// them. A list of strings costs about three times the page (UTF-16 and one
// allocation a line); this costs the bytes and eight more a line, and copies
// share the bytes. Pages are Latin-1, one character a byte, so a line reads
// back exactly as it was sent. A line the program puts in that Latin-1
// cannot hold (a message naming a file, say) is kept as UTF-8 and marked so.
class PageLines {
public:
    PageLines() = default;
    // Splits at CR LF, LF or CR; a final line end adds no empty line.
    explicit PageLines(QByteArray bytes);
    // Pages made by the program and the tests are small lists of strings.
    PageLines(const QStringList& lines); // NOLINT(google-explicit-constructor)
    PageLines(std::initializer_list<QString> lines) : PageLines(QStringList(lines)) {}

    qsizetype size() const { return m_spans.size(); }
    bool isEmpty() const { return m_spans.isEmpty(); }
    QString at(qsizetype i) const;
    QString constLast() const { return at(size() - 1); }
    // The line's bytes, valid until the page changes; no string is made.
    // A line kept as UTF-8 shows its UTF-8 bytes.
    QLatin1StringView view(qsizetype i) const;

    // A view without the blanks around it, blanks as a string sees them
    // (QLatin1StringView's own trimmed() misses the no-break space).
    static QLatin1StringView trimmed(QLatin1StringView line);

    class const_iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = QString;
        using difference_type = qsizetype;
        using pointer = void;
        using reference = QString;
        const_iterator(const PageLines* lines, qsizetype i) : m_lines(lines), m_i(i) {}
        QString operator*() const { return m_lines->at(m_i); }
        const_iterator& operator++() {
            ++m_i;
            return *this;
        }
        bool operator==(const const_iterator& other) const { return m_i == other.m_i; }
        bool operator!=(const const_iterator& other) const { return m_i != other.m_i; }

    private:
        const PageLines* m_lines;
        qsizetype m_i;
    };
    const_iterator begin() const { return {this, 0}; }
    const_iterator end() const { return {this, size()}; }

    void append(const QString& line);
    // A view into this page's own bytes (see withoutLines) becomes a line
    // without copying them; any other view is copied in.
    void append(QLatin1StringView line);
    // Before the line at index; past the end appends.
    void insert(qsizetype index, const QString& line);
    void replace(qsizetype index, const QString& line);
    void remove(qsizetype index, qsizetype count = 1);
    void removeLast() { m_spans.removeLast(); }
    void clear();
    // No lines, but this page's bytes: parts of its lines, appended as
    // views, then cost no copies.
    PageLines withoutLines() const;
    // Drops the lines the test picks, the rest closing up in one pass; the
    // bytes stay shared. Returns how many went.
    template <typename Test> qsizetype removeIf(Test test) {
        return m_spans.removeIf([&](const Span& span) { return test(decode(span)); });
    }
    // The line at first comes first, the lines above it follow the last.
    void rotate(qsizetype first);
    // Sorts by the lines' bytes, ignoring case, and keeps the first line
    // met of each run of equal ones.
    void sortUniqueIgnoringCase();

    QStringList toStringList() const;
    // The lines joined by line feeds, as a viewer shows them.
    QString text() const;
    // Every line ended by a line feed, as files hold them; written line by
    // line, so that a long page is never copied whole on its way out.
    bool writeTo(QIODevice& device) const;
    QByteArray toBytes() const;

    bool operator==(const PageLines& other) const;
    bool operator!=(const PageLines& other) const { return !(*this == other); }

private:
    struct Span {
        quint32 start;
        quint32 size; // the top bit marks a line kept as UTF-8
    };
    static constexpr quint32 Utf8 = 0x80000000u;
    Span store(const QString& line);
    QString decode(const Span& span) const;

    QByteArray m_bytes;
    QList<Span> m_spans;
};
