#include "PageFreshness.h"

#include "Global2.h"
#include "MixKeyring.h"
#include "RemailerDocs.h"

#include <QSet>

namespace {

const QLatin1String LastUpdate("last update: ");

int numberField(const QString& line, int index) {
    bool ok = false;
    const int value = GetField(index, line, u' ', QStringLiteral("1")).toInt(&ok);
    return ok ? value : 1;
}

PageFindings statsFindings(TRemailerDoc& doc, const QDate& today) {
    PageFindings findings;
    QString written;
    const QDate date = StatsPageDate(doc.Lines(), &written);
    if (date.isValid() && date.daysTo(today) > StaleAfterDays) {
        findings.stale = true;
        findings.note = QStringLiteral(" (stale: last update %1)").arg(written);
        doc.Viewer->setStale(true);
    }
    return findings;
}

PageFindings keyringFindings(const TRemailerDoc& doc, const QDate& today) {
    PageFindings findings;
    QSet<QString> usable;
    for (const MixKey& key : CheckMixKeyring(doc.Lines()).keys) {
        if (IsKeyExpired(key, today))
            findings.lines.append(QStringLiteral("key of %1 expired on %2")
                                      .arg(key.name, key.expires.toString(Qt::ISODate)));
        else if (!key.created.isValid() || key.created <= today)
            usable.insert(key.name.toLower());
    }
    if (usable.size() < MinUsableRemailers) {
        findings.keyPoor = true;
        findings.lines.append(
            QStringLiteral("Usable Mixmaster remailers (keys not expired): %1. With fewer than "
                           "%2, Mixmaster treats every remailer as reliable.")
                .arg(usable.size())
                .arg(MinUsableRemailers));
    }
    return findings;
}

} // namespace

QDate StatsPageDate(const PageLines& lines, QString* written) {
    for (const QString& line : lines) {
        if (!line.startsWith(LastUpdate, Qt::CaseInsensitive))
            continue;
        const int day = numberField(line, 3);
        const int month = MonthNumber(GetField(4, line, u' '));
        const int year = numberField(line, 5);
        if (year < 1 || !QDate::isValid(year, month, day))
            return {};
        if (written)
            *written = line.mid(LastUpdate.size()).trimmed();
        return QDate(year, month, day);
    }
    return {};
}

PageFindings CheckFreshness(TRemailerDoc& doc, const QDate& today) {
    if (doc.DocName == QStringLiteral("mlist.txt") || doc.DocName == QStringLiteral("rlist.txt"))
        return statsFindings(doc, today);
    if (doc.DocName == QStringLiteral("pubring.mix"))
        return keyringFindings(doc, today);
    return {};
}

QStringList RefusalReasons(const TRemailerDoc& doc) {
    if (doc.DocName != QStringLiteral("pubring.mix"))
        return {};
    const MixKeyringCheck check = CheckMixKeyring(doc.Lines());
    return check.ok() ? QStringList() : QStringList{check.problem};
}
