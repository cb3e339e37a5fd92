#pragma once

#include <QDate>
#include <QString>
#include <QStringList>

#include "PageLines.h"

class TRemailerDoc;

// Whether what was just downloaded will still route mail: statistics pages
// go stale, keys expire, and with fewer than MinUsableRemailers keys left
// Mixmaster stops choosing remailers by their statistics.
inline constexpr int MinUsableRemailers = 4;
inline constexpr int StaleAfterDays = 3;

struct PageFindings {
    QString note;      // added to the page's status line after its result word
    QStringList lines; // added below that line
    bool stale = false;
    bool keyPoor = false;
    bool worrying() const { return stale || keyPoor; }
};

// The date of a statistics page's "Last update: " line (pingers write a
// small "u", some a capital one), with the date as the page writes it.
// Null when there is no such line or it names no calendar date.
QDate StatsPageDate(const PageLines& lines, QString* written = nullptr);

// Looks at a page that passed its check: a statistics page more than
// StaleAfterDays old is marked stale (on its view too); a keyring lists its
// expired keys and says when too few remailers are left.
PageFindings CheckFreshness(TRemailerDoc& doc, const QDate& today);

// Why a page was refused, where its check can say more than "failed".
QStringList RefusalReasons(const TRemailerDoc& doc);
