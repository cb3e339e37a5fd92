#include "RemailerDocs.h"

#include "Global2.h"
#include "MixKeyring.h"

#include <algorithm>
#include <functional>
#include <initializer_list>

namespace {

// The statistics pages name their format version in a header line; only
// version 1 is understood here.
// The checks below look at the lines' bytes where they lie: a long page is
// read many times, and a string made of every line would cost each time.
bool anyLine(const PageLines& lines, const std::function<bool(QLatin1StringView)>& test) {
    for (qsizetype i = 0; i < lines.size(); ++i) {
        if (test(lines.view(i)))
            return true;
    }
    return false;
}

bool isStatsVersion2(const PageLines& lines) {
    // The marker holds no line break, so looking line by line finds exactly
    // what a search of the joined text would, without building that text.
    return anyLine(lines, [](QLatin1StringView line) {
        return line.contains(QLatin1String("Stats-Version: 2.0"));
    });
}

// Puts the "Last update: " line first, moving whatever stood above it (a
// banner, a note) below the table after one empty line, in its order. Done
// as one rotation so that long pages cost a single pass. With no such line
// the lines stay in their order: turning them round fully changes nothing.
// The served order is kept for the page's file.
void normaliseStatsPage(TRemailerDoc& doc) {
    PageView& view = *doc.Viewer;
    PageLines& lines = view.lines();
    doc.Served = lines;
    TrimLeadingBlankLines(lines);
    TrimTrailingBlankLines(lines);
    lines.append(QString());
    for (qsizetype i = 0; i < lines.size(); ++i) {
        if (lines.view(i).contains(QLatin1String("Last update: "))) {
            lines.rotate(i);
            break;
        }
    }
    view.notifyChanged();
}

// A header line starts with the first column's name and carries the others
// further on; blanks around and capitals are forgiven, a colon after the
// first word is not.
bool hasHeaderLine(const PageLines& lines, QLatin1String firstWord,
                   std::initializer_list<QLatin1String> columns) {
    return anyLine(lines, [&](QLatin1StringView line) {
        const QLatin1StringView text = PageLines::trimmed(line);
        return text.startsWith(firstWord, Qt::CaseInsensitive) &&
               std::all_of(columns.begin(), columns.end(), [&](QLatin1String column) {
                   return text.indexOf(column, 0, Qt::CaseInsensitive) > 0;
               });
    });
}

// Stale when the "Last Update: " date lies more than 3 days back. Pingers
// write "Last update: " with a small "u", which this deliberately does not
// match, so such pages never count as stale; anything unreadable counts as
// current too, since a page is refused for its content, not for its date.
bool isStatsPageOutOfDate(const PageLines& lines, const QDate& today) {
    qsizetype found = 0;
    while (found < lines.size() && !lines.view(found).startsWith(QLatin1String("Last Update: ")))
        ++found;
    if (found == lines.size())
        return false;
    const QString line = lines.at(found);
    const auto number = [&line](int index) {
        bool ok = false;
        const int value = GetField(index, line, u' ', QStringLiteral("1")).toInt(&ok);
        return ok ? value : 1;
    };
    const int day = number(3);
    const int month = MonthNumber(GetField(4, line, u' '));
    const int year = number(5);
    // QDate counts years before 1 as valid, but no page was written then.
    if (year < 1 || !QDate::isValid(year, month, day))
        return false;
    return QDate(year, month, day).daysTo(today) > 3;
}

// Key and notice pages carry a marker as a line of its own, in any case.
bool hasMarkerLine(const PageLines& lines, QLatin1String marker) {
    return anyLine(lines, [marker](QLatin1StringView line) {
        return line.compare(marker, Qt::CaseInsensitive) == 0;
    });
}

const QLatin1String PgpKeyMarker("-----BEGIN PGP PUBLIC KEY BLOCK-----");

} // namespace

TRemailerDoc::TRemailerDoc(const QString& origin, PageView* viewer)
    : Viewer(viewer), Origin(origin), DocName(QStringLiteral("generic")) {
    VK_ASSERT(Viewer != nullptr, RemailerDocsUnit);
}

TRemailerDoc::~TRemailerDoc() {
    delete Viewer;
}

bool TRemailerDoc::IsStatsVersion2() const {
    return false;
}

bool TRemailerDoc::IsOutOfDate(const QDate& today) const {
    Q_UNUSED(today);
    return false;
}

bool TRemailerDoc::IsValidPage() {
    return true;
}

TMixMListTxt::TMixMListTxt(const QString& origin, PageView* viewer) : TRemailerDoc(origin, viewer) {
    DocName = QStringLiteral("mlist.txt");
    if (!IsStatsVersion2())
        normaliseStatsPage(*this);
}

bool TMixMListTxt::IsStatsVersion2() const {
    return isStatsVersion2(Lines());
}

bool TMixMListTxt::IsOutOfDate(const QDate& today) const {
    return isStatsPageOutOfDate(Lines(), today);
}

bool TMixMListTxt::IsValidPage() {
    // A version-2 page may look like a table but is not read as one.
    if (IsStatsVersion2())
        return false;
    return hasHeaderLine(
        Lines(), QLatin1String("mixmaster "),
        {QLatin1String(" history "), QLatin1String(" latency "), QLatin1String(" uptime")});
}

TCpkRListTxt::TCpkRListTxt(const QString& origin, PageView* viewer) : TRemailerDoc(origin, viewer) {
    DocName = QStringLiteral("rlist.txt");
    if (!IsStatsVersion2())
        normaliseStatsPage(*this);
}

bool TCpkRListTxt::IsStatsVersion2() const {
    return isStatsVersion2(Lines());
}

bool TCpkRListTxt::IsOutOfDate(const QDate& today) const {
    return isStatsPageOutOfDate(Lines(), today);
}

bool TCpkRListTxt::IsValidPage() {
    if (IsStatsVersion2())
        return false;
    return hasHeaderLine(Lines(), QLatin1String("remailer "),
                         {QLatin1String(" email "), QLatin1String(" address "),
                          QLatin1String(" history "), QLatin1String(" latency "),
                          QLatin1String(" uptime")});
}

TMixPubringMix::TMixPubringMix(const QString& origin, PageView* viewer)
    : TRemailerDoc(origin, viewer) {
    DocName = QStringLiteral("pubring.mix");
}

// Only a keyring whose every key Mixmaster can use may replace its keyring.
bool TMixPubringMix::IsValidPage() {
    return CheckMixKeyring(Lines()).ok();
}

TMixType2List::TMixType2List(const QString& origin, PageView* viewer)
    : TRemailerDoc(origin, viewer) {
    DocName = QStringLiteral("type2.list");
}

// Every line names a remailer and then its address; blank lines around the
// list are dropped from the page first, so they do not spoil it.
bool TMixType2List::IsValidPage() {
    PageLines& lines = Lines();
    const qsizetype before = lines.size();
    TrimLeadingBlankLines(lines);
    TrimTrailingBlankLines(lines);
    if (lines.size() != before)
        Viewer->notifyChanged();
    return std::all_of(lines.begin(), lines.end(),
                       [](const QString& line) { return GetField(1, line, u' ').contains(u'@'); });
}

TCpkPubringAsc::TCpkPubringAsc(const QString& origin, PageView* viewer)
    : TRemailerDoc(origin, viewer) {
    DocName = QStringLiteral("pubring.asc");
}

bool TCpkPubringAsc::IsValidPage() {
    return hasMarkerLine(Lines(), PgpKeyMarker);
}

TVKAdvisoryTxt::TVKAdvisoryTxt(const QString& origin, PageView* viewer)
    : TRemailerDoc(origin, viewer) {
    DocName = QStringLiteral("advisory.txt");
}

bool TVKAdvisoryTxt::IsValidPage() {
    return hasMarkerLine(Lines(), QLatin1String("velkin user advisory"));
}

TVKUrlsTxt::TVKUrlsTxt(const QString& origin, PageView* viewer) : TRemailerDoc(origin, viewer) {
    DocName = QStringLiteral("urls.txt");
}

bool TVKUrlsTxt::IsValidPage() {
    return hasMarkerLine(Lines(), QLatin1String("velkin urls"));
}

TVKNymServerAsc::TVKNymServerAsc(const QString& origin, PageView* viewer)
    : TRemailerDoc(origin, viewer) {
    DocName = QStringLiteral("nymserver.asc");
}

bool TVKNymServerAsc::IsValidPage() {
    return hasMarkerLine(Lines(), PgpKeyMarker);
}

TVKMail2newsTxt::TVKMail2newsTxt(const QString& origin, PageView* viewer)
    : TRemailerDoc(origin, viewer) {
    DocName = QStringLiteral("mail2news.txt");
}

// Mail-to-news lists come in too many shapes to check; they are taken as
// they come, even empty.
bool TVKMail2newsTxt::IsValidPage() {
    return true;
}
