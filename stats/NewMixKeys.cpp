#include "NewMixKeys.h"

#include "Global2.h"

QList<QStringList> NewMixKeyRows(const QStringList& keyLines) {
    constexpr int Cells = 8;
    QList<QStringList> rows;
    rows.reserve(keyLines.size());
    for (const QString& line : keyLines) {
        QStringList cells;
        for (int field = 0; field < Cells; ++field)
            cells.append(GetField(field, line, u' '));
        rows.append(cells);
    }
    return rows;
}

QStringList LastKeyLines(const QStringList& lines, qsizetype keep) {
    return lines.mid(qMax<qsizetype>(0, lines.size() - keep));
}
