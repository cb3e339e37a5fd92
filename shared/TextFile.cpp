#include "TextFile.h"

#include <QFile>
#include <QSaveFile>

namespace {

// One pass over the text, one string per line: a large page is never held
// whole a second time on its way into lines.
template <typename View> QStringList splitLines(View text) {
    QStringList lines;
    qsizetype start = 0;
    const qsizetype n = text.size();
    for (qsizetype i = 0; i < n; ++i) {
        const auto c = text.at(i).unicode();
        if (c != u'\r' && c != u'\n')
            continue;
        lines.append(text.mid(start, i - start).toString());
        if (c == u'\r' && i + 1 < n && text.at(i + 1).unicode() == u'\n')
            ++i;
        start = i + 1;
    }
    if (start < n)
        lines.append(text.mid(start).toString());
    return lines;
}

} // namespace

QStringList SplitLines(const QString& text) {
    return splitLines(QStringView(text));
}

QStringList BytesToLines(const QByteArray& bytes) {
    return splitLines(QLatin1StringView(bytes));
}

QByteArray LinesToBytes(const QStringList& lines) {
    qsizetype size = 0;
    for (const QString& line : lines)
        size += line.size() + 1;
    QByteArray out;
    out.reserve(size);
    for (const QString& line : lines) {
        out += line.toLatin1();
        out += '\n';
    }
    return out;
}

QStringList ReadLines(const QString& path, bool* ok) {
    QFile file(path);
    const bool opened = file.open(QIODevice::ReadOnly);
    if (ok)
        *ok = opened;
    if (!opened)
        return {};
    return BytesToLines(file.readAll());
}

bool WriteBytes(const QString& path, const QByteArray& bytes, QString* error) {
    QSaveFile file(path);
    // The flush is checked before the commit: QSaveFile (Qt 6.4) commits even
    // when the final flush of its buffer failed, which would swap a cut-off
    // file in for the old one.
    const bool done = file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() &&
                      file.flush() && file.commit();
    if (!done && error)
        *error = QStringLiteral("Cannot write %1: %2").arg(path, file.errorString());
    return done;
}

bool WriteLines(const QString& path, const QStringList& lines, QString* error) {
    return WriteBytes(path, LinesToBytes(lines), error);
}
