#include "TextFile.h"

#include <QFile>
#include <QSaveFile>

QStringList SplitLines(const QString& text) {
    QStringList lines;
    SplitAtLineEnds(
        text.size(), [&text](qsizetype i) { return text.at(i).unicode(); },
        [&](qsizetype start, qsizetype length) { lines.append(text.mid(start, length)); });
    return lines;
}

PageLines ReadPage(const QString& path, bool* ok) {
    QFile file(path);
    const bool opened = file.open(QIODevice::ReadOnly);
    if (ok)
        *ok = opened;
    if (!opened)
        return {};
    return PageLines(file.readAll());
}

QStringList ReadLines(const QString& path, bool* ok) {
    return ReadPage(path, ok).toStringList();
}

bool ForEachLine(const QString& path, const std::function<bool(QLatin1StringView)>& each) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    while (!file.atEnd()) {
        QByteArray line = file.readLine();
        if (line.endsWith('\n'))
            line.chop(1);
        if (line.endsWith('\r'))
            line.chop(1);
        // A lone CR ends a line too.
        qsizetype start = 0;
        for (qsizetype cr = line.indexOf('\r'); cr >= 0; cr = line.indexOf('\r', start)) {
            if (!each(QLatin1StringView(line.constData() + start, cr - start)))
                return true;
            start = cr + 1;
        }
        if (!each(QLatin1StringView(line.constData() + start, line.size() - start)))
            return true;
    }
    return true;
}

namespace {

template <typename Write> bool save(const QString& path, QString* error, Write write) {
    QSaveFile file(path);
    // The flush is checked before the commit: QSaveFile (Qt 6.4) commits even
    // when the final flush of its buffer failed, which would swap a cut-off
    // file in for the old one.
    const bool done =
        file.open(QIODevice::WriteOnly) && write(file) && file.flush() && file.commit();
    if (!done && error)
        *error = QStringLiteral("Cannot write %1: %2").arg(path, file.errorString());
    return done;
}

} // namespace

bool WriteBytes(const QString& path, const QByteArray& bytes, QString* error) {
    return save(path, error,
                [&bytes](QSaveFile& file) { return file.write(bytes) == bytes.size(); });
}

bool WriteLines(const QString& path, const PageLines& lines, QString* error) {
    return save(path, error, [&lines](QSaveFile& file) { return lines.writeTo(file); });
}
