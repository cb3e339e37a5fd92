#include "MixKeyring.h"
#include "PageView.h"
#include "RemailerDocs.h"
#include "TextFile.h"

#include <QDate>
#include <QFile>
#include <QLocale>
#include <QPointer>
#include <QSignalSpy>
#include <QTest>

#include <memory>

namespace {

// The page classes by page name; "generic" is the base class.
std::unique_ptr<TRemailerDoc> makeDocWith(const QString& name, const QString& origin,
                                          PageView* view) {
    if (name == u"mlist.txt")
        return std::make_unique<TMixMListTxt>(origin, view);
    if (name == u"rlist.txt")
        return std::make_unique<TCpkRListTxt>(origin, view);
    if (name == u"pubring.mix")
        return std::make_unique<TMixPubringMix>(origin, view);
    if (name == u"type2.list")
        return std::make_unique<TMixType2List>(origin, view);
    if (name == u"pubring.asc")
        return std::make_unique<TCpkPubringAsc>(origin, view);
    if (name == u"advisory.txt")
        return std::make_unique<TVKAdvisoryTxt>(origin, view);
    if (name == u"urls.txt")
        return std::make_unique<TVKUrlsTxt>(origin, view);
    if (name == u"nymserver.asc")
        return std::make_unique<TVKNymServerAsc>(origin, view);
    if (name == u"mail2news.txt")
        return std::make_unique<TVKMail2newsTxt>(origin, view);
    if (name == u"generic")
        return std::make_unique<TRemailerDoc>(origin, view);
    qFatal("no page class for %s", qPrintable(name));
    return nullptr;
}

std::unique_ptr<TRemailerDoc> makeDoc(const QString& name, const QStringList& lines) {
    return makeDocWith(name, QStringLiteral("test origin"), new PageView(lines));
}

QString realPath(const QString& relative) {
    return QStringLiteral(VK_REALDATA "/") + relative;
}

QStringList readReal(const QString& relative) {
    bool ok = false;
    const QStringList lines = ReadLines(realPath(relative), &ok);
    if (!ok)
        qFatal("cannot read test page %s", qPrintable(relative));
    return lines;
}

QStringList withoutOuterBlankLines(QStringList lines) {
    while (!lines.isEmpty() && lines.first().trimmed().isEmpty())
        lines.removeFirst();
    while (!lines.isEmpty() && lines.last().trimmed().isEmpty())
        lines.removeLast();
    return lines;
}

} // namespace

class TestRemailerDocs : public QObject {
    Q_OBJECT
private slots:
    void pageViewEdits_data();
    void pageViewEdits();
    void pageClasses_data();
    void pageClasses();

    void normalisation_data();
    void normalisation();
    void versionRule_data();
    void versionRule();
    void headerRule_data();
    void headerRule();
    void dateRule_data();
    void dateRule();
    void dateRuleUsesLocalClock();
    void keyPageRule_data();
    void keyPageRule();
    void type2Rule_data();
    void type2Rule();

    void realStatsPages_data();
    void realStatsPages();
    void realOtherPages_data();
    void realOtherPages();
    void mixKeyringCheck_data();
    void mixKeyringCheck();

    void longPagesTakeOnePass_data();
    void longPagesTakeOnePass();
};

void TestRemailerDocs::pageViewEdits_data() {
    QTest::addColumn<QStringList>("start");
    QTest::addColumn<QString>("operation");
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("expected");
    QTest::addColumn<int>("appended");

    const QStringList ab = {"a", "b"};
    QTest::newRow("set lines") << ab << "set" << 0 << "x" << QStringList{"x"} << 0;
    QTest::newRow("append") << ab << "append" << 0 << "c" << QStringList{"a", "b", "c"} << 1;
    QTest::newRow("append to last line")
        << ab << "appendToLast" << 0 << " OK" << QStringList{"a", "b OK"} << 0;
    QTest::newRow("append to last line of empty view")
        << QStringList() << "appendToLast" << 0 << "OK" << QStringList{"OK"} << 0;
    QTest::newRow("insert in the middle")
        << ab << "insert" << 1 << "x" << QStringList{"a", "x", "b"} << 0;
    QTest::newRow("insert past end appends")
        << ab << "insert" << 9 << "x" << QStringList{"a", "b", "x"} << 0;
    QTest::newRow("insert below zero prepends")
        << ab << "insert" << -3 << "x" << QStringList{"x", "a", "b"} << 0;
    QTest::newRow("notify") << ab << "notify" << 0 << "" << ab << 0;
}

void TestRemailerDocs::pageViewEdits() {
    QFETCH(QStringList, start);
    QFETCH(QString, operation);
    QFETCH(int, index);
    QFETCH(QString, text);
    QFETCH(QStringList, expected);
    QFETCH(int, appended);

    PageView view(start);
    QSignalSpy changed(&view, &PageView::linesChanged);
    QSignalSpy appendedSpy(&view, &PageView::lineAppended);
    if (operation == u"set")
        view.setLines({text});
    else if (operation == u"append")
        view.appendLine(text);
    else if (operation == u"appendToLast")
        view.appendToLastLine(text);
    else if (operation == u"insert")
        view.insertLine(index, text);
    else if (operation == u"notify")
        view.notifyChanged();
    else
        QFAIL("unknown operation");

    QCOMPARE(view.lines(), expected);
    QCOMPARE(changed.count(), 1);
    QCOMPARE(appendedSpy.count(), appended);
    if (appended > 0)
        QCOMPARE(appendedSpy.at(0).at(0).toString(), text);
    // Programmatic edits do not make a page "unsaved"; pages are shown
    // read-only and unwrapped.
    QVERIFY(!view.isModified());
    QVERIFY(view.isReadOnly());
    QVERIFY(!view.wordWrap());
}

void TestRemailerDocs::pageClasses_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("statsPage");
    QTest::addColumn<bool>("valid");

    // A page with a version-2 marker and a stale date: only the two
    // statistics classes look at either, and they leave such a page as it is.
    QTest::newRow("generic") << "generic" << false << true;
    QTest::newRow("mlist.txt") << "mlist.txt" << true << false;
    QTest::newRow("rlist.txt") << "rlist.txt" << true << false;
    QTest::newRow("pubring.mix") << "pubring.mix" << false << false;
    QTest::newRow("type2.list") << "type2.list" << false << false;
    QTest::newRow("pubring.asc") << "pubring.asc" << false << false;
    QTest::newRow("advisory.txt") << "advisory.txt" << false << false;
    QTest::newRow("urls.txt") << "urls.txt" << false << false;
    QTest::newRow("nymserver.asc") << "nymserver.asc" << false << false;
    // Mail-to-news lists come in too many shapes to check.
    QTest::newRow("mail2news.txt") << "mail2news.txt" << false << true;
}

void TestRemailerDocs::pageClasses() {
    QFETCH(QString, name);
    QFETCH(bool, statsPage);
    QFETCH(bool, valid);
    const QStringList page = {"", "banner", "Stats-Version: 2.0",
                              "Last Update: Tue 6 Nov 2001 20:36:36 GMT", ""};
    auto* view = new PageView(page);
    const QPointer<PageView> watched(view);
    auto doc = makeDocWith(name, QStringLiteral("http://example.org/page"), view);
    QCOMPARE(doc->DocName, name);
    QCOMPARE(doc->Origin, QStringLiteral("http://example.org/page"));
    QCOMPARE(doc->Viewer, view);
    // Lines is the view's own list, not a copy.
    QCOMPARE(&doc->Lines(), &view->lines());
    QCOMPARE(doc->Lines(), page);
    QCOMPARE(doc->IsStatsVersion2(), statsPage);
    QCOMPARE(doc->IsOutOfDate(QDate(2030, 1, 1)), statsPage);
    QCOMPARE(doc->IsValidPage(), valid);
    // The document owns its view.
    doc.reset();
    QVERIFY(watched.isNull());
}

void TestRemailerDocs::normalisation_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QStringList>("page");
    QTest::addColumn<QStringList>("expected");

    const QString update = QStringLiteral("Last update: Sat 15 Nov 2026 12:00:00 GMT");
    const QString mixHeader = QStringLiteral("mixmaster           history  latency  uptime");
    const QString row = QStringLiteral("dizum          ************  0:04:48 100.00%");

    QTest::newRow("banner moves below the table")
        << "mlist.txt" << QStringList{"Banner", update, mixHeader, row}
        << QStringList{update, mixHeader, row, "", "Banner"};
    QTest::newRow("rlist banner moves too")
        << "rlist.txt" << QStringList{"Banner", update, "remailer  email address", row}
        << QStringList{update, "remailer  email address", row, "", "Banner"};
    QTest::newRow("banner keeps its order and blank lines")
        << "mlist.txt" << QStringList{"", "  ", "Title", "", "Note", "", update, mixHeader, "  "}
        << QStringList{update, mixHeader, "", "Title", "", "Note", ""};
    QTest::newRow("already first gets one empty line")
        << "mlist.txt" << QStringList{update, mixHeader, row}
        << QStringList{update, mixHeader, row, ""};
    QTest::newRow("marker anywhere in the line")
        << "mlist.txt" << QStringList{"a", "  (Last update: today)", "b"}
        << QStringList{"  (Last update: today)", "b", "", "a"};
    QTest::newRow("first of two marker lines")
        << "rlist.txt" << QStringList{"a", "Last update: one", "b", "Last update: two"}
        << QStringList{"Last update: one", "b", "Last update: two", "", "a"};
    QTest::newRow("capital U is not the marker")
        << "mlist.txt" << QStringList{"a", "Last Update: x", "b"}
        << QStringList{"a", "Last Update: x", "b", ""};
    QTest::newRow("no marker keeps the order")
        << "mlist.txt" << QStringList{"", "  ", "Some text", mixHeader, row, "", ""}
        << QStringList{"Some text", mixHeader, row, ""};
    QTest::newRow("blank page") << "rlist.txt" << QStringList{" ", "\t", ""} << QStringList{""};
    QTest::newRow("marker needs its blank") << "mlist.txt" << QStringList{"a", "Last update:x"}
                                            << QStringList{"a", "Last update:x", ""};
}

void TestRemailerDocs::normalisation() {
    QFETCH(QString, name);
    QFETCH(QStringList, page);
    QFETCH(QStringList, expected);
    QCOMPARE(makeDoc(name, page)->Lines(), expected);
}

void TestRemailerDocs::versionRule_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QStringList>("page");
    QTest::addColumn<bool>("version2");
    QTest::addColumn<bool>("valid");

    const QStringList table = {"Last update: Sat 15 Nov 2026 12:00:00 GMT",
                               "mixmaster           history  latency  uptime"};
    QTest::newRow("version 1 marker")
        << "mlist.txt" << (QStringList{"Stats-Version: 1.0"} + table) << false << true;
    QTest::newRow("version 2 marker")
        << "mlist.txt" << (QStringList{"Stats-Version: 2.0"} + table) << true << false;
    QTest::newRow("marker inside a line")
        << "mlist.txt" << (table + QStringList{"note: Stats-Version: 2.0.1 follows"}) << true
        << false;
    QTest::newRow("marker case matters")
        << "mlist.txt" << (QStringList{"stats-version: 2.0"} + table) << false << true;
    QTest::newRow("rlist version 2")
        << "rlist.txt"
        << QStringList{"Last update: Sat 15 Nov 2026 12:00:00 GMT",
                       "remailer  email address    history  latency  uptime", "Stats-Version: 2.0"}
        << true << false;
}

void TestRemailerDocs::versionRule() {
    QFETCH(QString, name);
    QFETCH(QStringList, page);
    QFETCH(bool, version2);
    QFETCH(bool, valid);
    auto doc = makeDoc(name, page);
    QCOMPARE(doc->IsStatsVersion2(), version2);
    QCOMPARE(doc->IsValidPage(), valid);
}

void TestRemailerDocs::headerRule_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("header");
    QTest::addColumn<bool>("valid");

    const auto mix = [](const char* tag, const char* header, bool valid) {
        QTest::addRow("mix %s", tag) << "mlist.txt" << QString::fromLatin1(header) << valid;
    };
    const auto cpk = [](const char* tag, const char* header, bool valid) {
        QTest::addRow("cpk %s", tag) << "rlist.txt" << QString::fromLatin1(header) << valid;
    };
    mix("plain", "mixmaster history latency uptime", true);
    mix("leading blanks, capitals, doubled blanks", "   MIXMASTER  history  latency  uptime", true);
    mix("columns in any order", "mixmaster latency uptime history extra", true);
    mix("colon after first word", "mixmaster: history latency uptime", false);
    mix("tab after first word", "mixmaster\thistory latency uptime", false);
    mix("no uptime", "mixmaster history latency", false);
    mix("history without blank after", "mixmaster historylatency uptime", false);
    mix("not at the start", "the mixmaster history latency uptime", false);
    mix("title line", "    Mixmaster Remailers", false);
    mix("header of the other list", "remailer  email address  history  latency  uptime", false);
    cpk("plain", "remailer  email address                        history  latency  uptime", true);
    cpk("capitals and blanks", "  REMAILER EMAIL ADDRESS HISTORY LATENCY UPTIME", true);
    cpk("no email", "remailer address history latency uptime", false);
    cpk("no latency", "remailer email address history uptime", false);
    cpk("colon", "remailer: email address history latency uptime", false);
    cpk("header of the other list", "mixmaster history latency uptime", false);
}

void TestRemailerDocs::headerRule() {
    QFETCH(QString, name);
    QFETCH(QString, header);
    QFETCH(bool, valid);
    // The header stands among other lines; none of them is looked at.
    const QStringList page = {"Some banner",
                              "",
                              "Last update: Sat 15 Nov 2026 12:00:00 GMT",
                              header,
                              "------------------------",
                              "dizum          ************  0:04:48 100.00%"};
    auto doc = makeDoc(name, page);
    const QStringList before = doc->Lines();
    QCOMPARE(doc->IsValidPage(), valid);
    // The check reads the page without changing it.
    QCOMPARE(doc->Lines(), before);
}

void TestRemailerDocs::dateRule_data() {
    QTest::addColumn<QStringList>("page");
    QTest::addColumn<QDate>("today");
    QTest::addColumn<bool>("outOfDate");

    const QDate never(2099, 1, 1);
    const auto row = [](const char* tag, const char* line, const QDate& today, bool stale) {
        QTest::newRow(tag) << QStringList{QString::fromLatin1(line)} << today << stale;
    };
    const char* stamp = "Last Update: Sun 15 Nov 2026 12:00:00 GMT";
    row("same day", stamp, QDate(2026, 11, 15), false);
    row("exactly 3 days", stamp, QDate(2026, 11, 18), false);
    row("4 days", stamp, QDate(2026, 11, 19), true);
    row("dated in the future", stamp, QDate(2026, 1, 1), false);
    row("across a month end", "Last Update: Fri 28 Feb 2025", QDate(2025, 3, 4), true);
    row("31 Feb is never stale", "Last Update: Tue 31 Feb 2026 12:00:00 GMT", never, false);
    row("small u is not looked for", "Last update: Sun 15 Nov 2026 12:00:00 GMT", never, false);
    row("must begin the line", " Last Update: Sun 15 Nov 2026 12:00:00 GMT", never, false);
    row("no date line", "just text", never, false);
    row("month in capitals", "Last Update: Tue 6 NOV 2001", QDate(2001, 11, 10), true);
    // A doubled blank shifts the fields: the month field holds "6".
    row("doubled blank before the day", "Last Update: Tue  6 Nov 2001", never, false);
    row("day not a number counts as the 1st", "Last Update: Tue x Nov 2001", QDate(2001, 11, 5),
        true);
    row("year not a number counts as year 1", "Last Update: Tue 6 Nov MMI", QDate(2001, 11, 6),
        true);
    row("unknown month", "Last Update: Tue 6 Nvb 2001", never, false);
    row("negative year", "Last Update: Tue 6 Nov -2001", never, false);
    row("nothing after the label", "Last Update: ", never, false);
    QTest::newRow("first date line decides")
        << QStringList{"Last Update: Tue 31 Feb 2001", "Last Update: Tue 6 Nov 2001"} << never
        << false;
}

void TestRemailerDocs::dateRule() {
    QFETCH(QStringList, page);
    QFETCH(QDate, today);
    QFETCH(bool, outOfDate);
    for (const QString& name : {QStringLiteral("mlist.txt"), QStringLiteral("rlist.txt")})
        QCOMPARE(makeDoc(name, page)->IsOutOfDate(today), outOfDate);
}

void TestRemailerDocs::dateRuleUsesLocalClock() {
    const auto stamp = [](int daysAgo) {
        const QDate date = QDate::currentDate().addDays(-daysAgo);
        return QStringList{QStringLiteral("Last Update: Mon %1 %2 %3 00:00:00 GMT")
                               .arg(date.day())
                               .arg(QLocale::c().monthName(date.month(), QLocale::ShortFormat))
                               .arg(date.year())};
    };
    QVERIFY(!makeDoc(QStringLiteral("mlist.txt"), stamp(2))->IsOutOfDate());
    QVERIFY(makeDoc(QStringLiteral("rlist.txt"), stamp(10))->IsOutOfDate());
}

void TestRemailerDocs::keyPageRule_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QStringList>("page");
    QTest::addColumn<bool>("valid");

    const QString mix = QStringLiteral("-----Begin Mix Key-----");
    const QString pgp = QStringLiteral("-----BEGIN PGP PUBLIC KEY BLOCK-----");
    const QList<std::pair<QString, QString>> markers = {{"pubring.asc", pgp},
                                                        {"advisory.txt", "velkin user advisory"},
                                                        {"urls.txt", "velkin urls"},
                                                        {"nymserver.asc", pgp}};
    // Every page name with its own marker and without one.
    for (const auto& [name, marker] : markers) {
        QTest::addRow("%s marker line", qPrintable(name))
            << name << QStringList{"intro", marker, "body"} << true;
        QTest::addRow("%s no marker", qPrintable(name)) << name << QStringList{"intro"} << false;
    }
    // The marker rule itself, shared by all of them.
    const auto rule = [&](const char* tag, const QStringList& page, bool valid) {
        QTest::addRow("pubring.asc %s", tag) << "pubring.asc" << page << valid;
    };
    rule("marker on the last line", {"intro", pgp}, true);
    rule("marker lower case", {pgp.toLower()}, true);
    rule("marker upper case", {pgp.toUpper()}, true);
    rule("trailing blank", {pgp + u' '}, false);
    rule("leading blank", {u' ' + pgp}, false);
    rule("inside a longer line", {u'>' + pgp + u'<'}, false);
    // A Mixmaster keyring needs whole keys, not just a marker line.
    QTest::newRow("pubring.mix marker line alone") << "pubring.mix" << QStringList{mix} << false;
    rule("empty page", {}, false);
    QTest::newRow("pubring.mix does not take a PGP key")
        << "pubring.mix" << QStringList{pgp} << false;
    QTest::newRow("pubring.asc does not take a Mix key")
        << "pubring.asc" << QStringList{mix} << false;
    QTest::newRow("urls.txt does not take an advisory")
        << "urls.txt" << QStringList{"velkin user advisory"} << false;
}

void TestRemailerDocs::keyPageRule() {
    QFETCH(QString, name);
    QFETCH(QStringList, page);
    QFETCH(bool, valid);
    auto doc = makeDoc(name, page);
    QCOMPARE(doc->IsValidPage(), valid);
    QCOMPARE(doc->Lines(), page);
}

void TestRemailerDocs::type2Rule_data() {
    QTest::addColumn<QStringList>("page");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<QStringList>("after");

    const QString aarg =
        QStringLiteral("aarg remailer@aarg.net 475f3f9fe8da22896c10082695a92c2d 2.9beta31 C");
    const QString dizum = QStringLiteral("dizum remailer@dizum.com 1234 2.9b33 C");
    const auto same = [](const char* tag, const QStringList& page, bool valid) {
        QTest::newRow(tag) << page << valid << page;
    };
    same("two remailers", {aarg, dizum}, true);
    QTest::newRow("blank lines around are dropped")
        << QStringList{"", " ", aarg, dizum, "\t", ""} << true << QStringList{aarg, dizum};
    QTest::newRow("only blank lines") << QStringList{"", "  ", ""} << true << QStringList();
    same("a line without @", {aarg, "broken remailer.example.org", dizum}, false);
    same("@ only in the first word", {"x@y.org remailer"}, false);
    same("@ only in a later word", {"name key x@y.org"}, false);
    same("doubled blank empties the second word", {"name  x@y.org"}, false);
    same("blank line in the middle", {aarg, "", dizum}, false);
    same("second word is the last", {"name x@y"}, true);
}

void TestRemailerDocs::type2Rule() {
    QFETCH(QStringList, page);
    QFETCH(bool, valid);
    QFETCH(QStringList, after);
    auto doc = makeDoc(QStringLiteral("type2.list"), page);
    QCOMPARE(doc->Lines(), page);
    QSignalSpy changed(doc->Viewer, &PageView::linesChanged);
    QCOMPARE(doc->IsValidPage(), valid);
    QCOMPARE(doc->Lines(), after);
    // A view showing the page hears of the trim, and only then.
    QCOMPARE(changed.count(), after.size() == page.size() ? 0 : 1);
}

void TestRemailerDocs::realStatsPages_data() {
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("updateLine");
    QTest::addColumn<int>("movedLines");
    QTest::addColumn<int>("lineCount");
    QTest::addColumn<QDate>("pageDate");

    const auto row = [](const char* file, const char* name, const char* updateLine, int moved,
                        int count, const QDate& date) {
        QTest::newRow(file) << file << name << updateLine << moved << count << date;
    };
    // Banners of two and of sixty lines, "Wed, 19 Sep 2001" date form.
    row("2001-10-31/mlist.txt", "mlist.txt", "Last update: Wed, 19 Sep 2001 01:42:17 GMT", 2, 52,
        QDate(2001, 9, 19));
    row("2001-10-31/rlist.txt", "rlist.txt", "Last update: Wed, 19 Sep 2001 01:42:28 GMT", 60, 106,
        QDate(2001, 9, 19));
    // A blank line and a long banner above, "Tue 6 Nov 2001" date form.
    row("2001-11-07/mlist.txt", "mlist.txt", "Last update: Tue 6 Nov 2001 20:36:36 GMT", 13, 53,
        QDate(2001, 11, 6));
    row("2001-11-07/rlist.txt", "rlist.txt", "Last update: Tue 6 Nov 2001 20:36:36 GMT", 148, 188,
        QDate(2001, 11, 6));
    // Already first: nothing moves.
    row("2002-08-20/mlist.txt", "mlist.txt", "Last update: Tue 20 Aug 2002 18:50:01 GMT", 0, 46,
        QDate(2002, 8, 20));
    row("2002-08-20/rlist.txt", "rlist.txt", "Last update: Tue 20 Aug 2002 18:50:02 GMT", 42, 87,
        QDate(2002, 8, 20));
    row("2012-11-30/mlist.txt", "mlist.txt", "Last update: Fri 30 Nov 2012 10:20:00 GMT", 46, 77,
        QDate(2012, 11, 30));
    row("2012-11-30/rlist.txt", "rlist.txt", "Last update: Fri 30 Nov 2012 10:20:00 GMT", 66, 88,
        QDate(2012, 11, 30));
}

void TestRemailerDocs::realStatsPages() {
    QFETCH(QString, file);
    QFETCH(QString, name);
    QFETCH(QString, updateLine);
    QFETCH(int, movedLines);
    QFETCH(int, lineCount);
    QFETCH(QDate, pageDate);

    const QStringList raw = readReal(file);
    auto doc = makeDoc(name, raw);
    const QStringList& lines = doc->Lines();

    QCOMPARE(lines.size(), lineCount);
    QCOMPARE(lines.first(), updateLine);
    // What stood above the date line follows the table after one empty line.
    const QStringList trimmed = withoutOuterBlankLines(raw);
    QCOMPARE(lines, trimmed.mid(movedLines) + QStringList{QString()} + trimmed.first(movedLines));

    QVERIFY(!doc->IsStatsVersion2());
    QVERIFY(doc->IsValidPage());
    // Pingers write "Last update: ", so even these old pages are not stale.
    QVERIFY(!doc->IsOutOfDate(QDate(2099, 1, 1)));
    // Each list is refused under the other list's name.
    const QString other =
        name == u"mlist.txt" ? QStringLiteral("rlist.txt") : QStringLiteral("mlist.txt");
    QVERIFY(!makeDoc(other, raw)->IsValidPage());

    // None of the pages on file came with CR LF line ends, but pingers on
    // other systems send them; the same bytes with CR LF give the same page.
    QFile in(realPath(file));
    QVERIFY(in.open(QIODevice::ReadOnly));
    QByteArray bytes = in.readAll();
    QVERIFY(!bytes.contains('\r'));
    bytes.replace("\n", "\r\n");
    auto fromCrlf = makeDoc(name, BytesToLines(bytes));
    QCOMPARE(fromCrlf->Lines(), lines);
    QVERIFY(fromCrlf->IsValidPage());

    // The real date line, written the way the date rule looks for it.
    QStringList capital = raw;
    QCOMPARE(capital.count(updateLine), 1);
    capital[capital.indexOf(updateLine)].replace(0, 13, QStringLiteral("Last Update: "));
    auto dated = makeDoc(name, capital);
    QVERIFY(dated->IsValidPage());
    QVERIFY(!dated->IsOutOfDate(pageDate.addDays(3)));
    QVERIFY(dated->IsOutOfDate(pageDate.addDays(4)));
}

void TestRemailerDocs::realOtherPages_data() {
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("valid");

    const auto row = [](const char* file, const char* name, bool valid) {
        QTest::addRow("%s as %s", file, name) << file << name << valid;
    };
    row("2001-11-07/pubring.mix", "pubring.mix", true);
    row("2012-11-30/pubring.mix", "pubring.mix", true);
    row("2002-08-28/mix2.0-pubring.mix", "pubring.mix", true);
    row("2001-11-07/pubring.asc", "pubring.asc", true);
    row("2012-11-30/pubring.asc", "pubring.asc", true);
    row("2012-11-30/pubring.asc", "nymserver.asc", true);
    row("2001-11-07/type2.list", "type2.list", true);
    row("2002-08-20/type2.list", "type2.list", true);
    row("2002-08-28/mix2.0-type2.list", "type2.list", true);
    row("2001-11-07/mlist.txt", "mail2news.txt", true);
    // The wrong page under a name is refused.
    row("2001-11-07/pubring.asc", "pubring.mix", false);
    row("2001-11-07/pubring.mix", "pubring.asc", false);
    row("2001-11-07/pubring.mix", "type2.list", false);
    row("2002-08-20/mlist.txt", "type2.list", false);
    row("2001-11-07/type2.list", "mlist.txt", false);
    row("2001-11-07/type2.list", "pubring.mix", false);
    row("2012-11-30/pubring.asc", "urls.txt", false);
    row("2001-11-07/rlist.txt", "advisory.txt", false);
}

void TestRemailerDocs::realOtherPages() {
    QFETCH(QString, file);
    QFETCH(QString, name);
    QFETCH(bool, valid);
    const QStringList raw = readReal(file);
    QVERIFY(!raw.isEmpty());
    auto doc = makeDoc(name, raw);
    QCOMPARE(doc->IsValidPage(), valid);
    if (name != u"type2.list" && name != u"mlist.txt")
        QCOMPARE(doc->Lines(), raw);
    QVERIFY(!doc->IsOutOfDate(QDate(2099, 1, 1)));
}

// The cases are files listed in tests/data/keyrings/cases.txt with what the
// check must make of them.
void TestRemailerDocs::mixKeyringCheck_data() {
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("expected");
    const QString folder = QStringLiteral(VK_TESTDATA "/keyrings/");
    bool ok = false;
    const QStringList cases = ReadLines(folder + QStringLiteral("cases.txt"), &ok);
    QVERIFY(ok);
    for (const QString& line : cases) {
        if (line.startsWith(u'#') || line.trimmed().isEmpty())
            continue;
        const QString file = line.section(QStringLiteral(" | "), 0, 0);
        QTest::newRow(qPrintable(file)) << folder + file << line.section(QStringLiteral(" | "), 1);
    }
}

void TestRemailerDocs::mixKeyringCheck() {
    QFETCH(QString, file);
    QFETCH(QString, expected);
    bool ok = false;
    const QStringList page = ReadLines(file, &ok);
    QVERIFY(ok);
    const MixKeyringCheck check = CheckMixKeyring(page);
    const QString got = check.ok() ? QStringLiteral("ok %1").arg(check.keys.size()) : check.problem;
    QCOMPARE(got, expected);
    QCOMPARE(makeDoc(QStringLiteral("pubring.mix"), page)->IsValidPage(), check.ok());
}

void TestRemailerDocs::longPagesTakeOnePass_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("updateAt");
    // 1,000,000 lines: moving the banner one line at a time through the list
    // would not finish within the test's time limit.
    QTest::newRow("mlist, date line past the middle") << "mlist.txt" << 600000;
    QTest::newRow("rlist, date line near the end") << "rlist.txt" << 999990;
    QTest::newRow("mlist without a date line") << "mlist.txt" << -1;
}

void TestRemailerDocs::longPagesTakeOnePass() {
    QFETCH(QString, name);
    QFETCH(int, updateAt);
    const int count = 1000000;
    const int blanks = 200000;
    QStringList page;
    page.reserve(count);
    for (int i = 0; i < blanks; ++i)
        page.append(QString());
    for (int i = blanks; i < count; ++i)
        page.append(i == updateAt ? QStringLiteral("Last update: Sat 15 Nov 2026")
                                  : QStringLiteral("line %1").arg(i));

    auto doc = makeDoc(name, page);
    const QStringList& lines = doc->Lines();
    QCOMPARE(lines.size(), count - blanks + 1);
    if (updateAt < 0) {
        QCOMPARE(lines.first(), QStringLiteral("line %1").arg(blanks));
        QCOMPARE(lines.at(lines.size() - 2), QStringLiteral("line %1").arg(count - 1));
        QCOMPARE(lines.last(), QString());
    } else {
        QCOMPARE(lines.first(), QStringLiteral("Last update: Sat 15 Nov 2026"));
        QCOMPARE(lines.at(count - updateAt), QString());
        QCOMPARE(lines.at(count - updateAt + 1), QStringLiteral("line %1").arg(blanks));
        QCOMPARE(lines.last(), QStringLiteral("line %1").arg(updateAt - 1));
    }
    QVERIFY(!doc->IsStatsVersion2());
    QVERIFY(!doc->IsValidPage());
    QVERIFY(!doc->IsOutOfDate(QDate(2099, 1, 1)));

    // The type-2 check trims a long page in one pass as well.
    QStringList list(blanks, QString());
    list.reserve(count);
    for (int i = blanks; i < count; ++i)
        list.append(QStringLiteral("r%1 r@example.org").arg(i));
    auto type2 = makeDoc(QStringLiteral("type2.list"), list);
    QVERIFY(type2->IsValidPage());
    QCOMPARE(type2->Lines().size(), count - blanks);
}

QTEST_GUILESS_MAIN(TestRemailerDocs)
#include "tst_remailerdocs.moc"
