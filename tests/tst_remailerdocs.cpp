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
#include <utility>

namespace {

// The page classes by page name, as the tests need them; "generic" is the
// base class.
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

std::unique_ptr<TRemailerDoc> makeDoc(const QString& name, const QStringList& lines,
                                      const QString& origin = QStringLiteral("test origin")) {
    return makeDocWith(name, origin, new PageView(lines));
}

const QStringList AllNames = {"generic",       "mlist.txt",    "rlist.txt",    "pubring.mix",
                              "type2.list",    "pubring.asc",  "advisory.txt", "urls.txt",
                              "nymserver.asc", "mail2news.txt"};

const QStringList KeyPageNames = {"pubring.mix", "pubring.asc", "advisory.txt", "urls.txt",
                                  "nymserver.asc"};

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
    void pageViewDefaults();
    void pageViewEdits_data();
    void pageViewEdits();
    void pageViewEditInPlace();
    void pageViewFlags();

    void docFields_data();
    void docFields();
    void docDeletesItsViewer_data();
    void docDeletesItsViewer();
    void inheritedAnswers_data();
    void inheritedAnswers();

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
    void mail2newsAlwaysValid_data();
    void mail2newsAlwaysValid();

    void realStatsPages_data();
    void realStatsPages();
    void realStatsPagesWithCrLf_data();
    void realStatsPagesWithCrLf();
    void realDatesWithCapitalU_data();
    void realDatesWithCapitalU();
    void realOtherPages_data();
    void realOtherPages();

    void longPagesTakeOnePass_data();
    void longPagesTakeOnePass();
};

void TestRemailerDocs::pageViewDefaults() {
    PageView view;
    QVERIFY(view.lines().isEmpty());
    QVERIFY(!view.isModified());
    QVERIFY(view.isReadOnly());
    QVERIFY(!view.wordWrap());

    const PageView filled(QStringList{"a", "b"});
    QCOMPARE(filled.lines(), QStringList({"a", "b"}));
}

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
    QTest::newRow("append to empty")
        << QStringList() << "append" << 0 << "c" << QStringList{"c"} << 1;
    QTest::newRow("append to last line")
        << ab << "appendToLast" << 0 << " OK" << QStringList{"a", "b OK"} << 0;
    QTest::newRow("append to last line of empty view")
        << QStringList() << "appendToLast" << 0 << "OK" << QStringList{"OK"} << 0;
    QTest::newRow("insert at start")
        << ab << "insert" << 0 << "x" << QStringList{"x", "a", "b"} << 0;
    QTest::newRow("insert in the middle")
        << ab << "insert" << 1 << "x" << QStringList{"a", "x", "b"} << 0;
    QTest::newRow("insert at end") << ab << "insert" << 2 << "x" << QStringList{"a", "b", "x"} << 0;
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
    // Programmatic edits do not make a page "unsaved".
    QVERIFY(!view.isModified());
}

void TestRemailerDocs::pageViewEditInPlace() {
    PageView view(QStringList{"one"});
    QSignalSpy changed(&view, &PageView::linesChanged);
    QStringList& lines = view.lines();
    lines.append(QStringLiteral("two"));
    lines[0] = QStringLiteral("first");
    QCOMPARE(view.lines(), QStringList({"first", "two"}));
    QCOMPARE(changed.count(), 0);
    view.notifyChanged();
    QCOMPARE(changed.count(), 1);
}

void TestRemailerDocs::pageViewFlags() {
    PageView view;
    view.setModified(true);
    view.setReadOnly(false);
    view.setWordWrap(true);
    QVERIFY(view.isModified());
    QVERIFY(!view.isReadOnly());
    QVERIFY(view.wordWrap());
    view.appendLine(QStringLiteral("x"));
    QVERIFY(view.isModified());
    view.setModified(false);
    view.setReadOnly(true);
    view.setWordWrap(false);
    QVERIFY(!view.isModified());
    QVERIFY(view.isReadOnly());
    QVERIFY(!view.wordWrap());
}

void TestRemailerDocs::docFields_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("docName");
    for (const QString& name : AllNames)
        QTest::newRow(qPrintable(name)) << name << name;
}

void TestRemailerDocs::docFields() {
    QFETCH(QString, name);
    QFETCH(QString, docName);
    auto* view = new PageView(QStringList{"some text"});
    auto doc = makeDocWith(name, QStringLiteral("http://example.org/page"), view);
    QCOMPARE(doc->DocName, docName);
    QVERIFY(doc->Active);
    QCOMPARE(doc->Origin, QStringLiteral("http://example.org/page"));
    QVERIFY(doc->Extra.isEmpty());
    QCOMPARE(doc->Viewer, view);
    // Lines is the view's own list, not a copy.
    QCOMPARE(&doc->Lines(), &view->lines());
    doc->Lines().append(QStringLiteral("added"));
    QCOMPARE(view->lines().constLast(), QStringLiteral("added"));
    QCOMPARE(&std::as_const(*doc).Lines(), &view->lines());
}

void TestRemailerDocs::docDeletesItsViewer_data() {
    QTest::addColumn<QString>("name");
    for (const QString& name : AllNames)
        QTest::newRow(qPrintable(name)) << name;
}

void TestRemailerDocs::docDeletesItsViewer() {
    QFETCH(QString, name);
    auto doc = makeDoc(name, {"x"});
    QPointer<PageView> view(doc->Viewer);
    QVERIFY(!view.isNull());
    doc.reset();
    QVERIFY(view.isNull());
}

void TestRemailerDocs::inheritedAnswers_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("valid");
    // Pages that hold a version-2 marker and a stale date; only the two
    // statistics classes look at either.
    QTest::newRow("generic") << "generic" << true;
    QTest::newRow("pubring.mix") << "pubring.mix" << false;
    QTest::newRow("type2.list") << "type2.list" << false;
    QTest::newRow("pubring.asc") << "pubring.asc" << false;
    QTest::newRow("advisory.txt") << "advisory.txt" << false;
    QTest::newRow("urls.txt") << "urls.txt" << false;
    QTest::newRow("nymserver.asc") << "nymserver.asc" << false;
    QTest::newRow("mail2news.txt") << "mail2news.txt" << true;
}

void TestRemailerDocs::inheritedAnswers() {
    QFETCH(QString, name);
    QFETCH(bool, valid);
    const QStringList page = {"", "banner", "Stats-Version: 2.0",
                              "Last Update: Tue 6 Nov 2001 20:36:36 GMT", ""};
    auto doc = makeDoc(name, page);
    QCOMPARE(doc->Lines(), page);
    QVERIFY(!doc->IsStatsVersion2());
    QVERIFY(!doc->IsOutOfDate(QDate(2030, 1, 1)));
    QVERIFY(!doc->IsOutOfDate());
    QCOMPARE(doc->IsValidPage(), valid);
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
    QTest::newRow("no marker, rlist")
        << "rlist.txt" << QStringList{"x", "y"} << QStringList{"x", "y", ""};
    QTest::newRow("empty page") << "mlist.txt" << QStringList() << QStringList{""};
    QTest::newRow("blank page") << "rlist.txt" << QStringList{" ", "\t", ""} << QStringList{""};
    QTest::newRow("marker needs its blank") << "mlist.txt" << QStringList{"a", "Last update:x"}
                                            << QStringList{"a", "Last update:x", ""};

    const QStringList version2 = {"", "Banner", "Stats-Version: 2.0", update, mixHeader, row, " "};
    QTest::newRow("version 2 untouched, mlist") << "mlist.txt" << version2 << version2;
    QTest::newRow("version 2 untouched, rlist") << "rlist.txt" << version2 << version2;
}

void TestRemailerDocs::normalisation() {
    QFETCH(QString, name);
    QFETCH(QStringList, page);
    QFETCH(QStringList, expected);
    auto doc = makeDoc(name, page);
    QCOMPARE(doc->Lines(), expected);
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
    QTest::newRow("no marker") << "mlist.txt" << table << false << true;
    QTest::newRow("version 2 marker")
        << "mlist.txt" << (QStringList{"Stats-Version: 2.0"} + table) << true << false;
    QTest::newRow("marker inside a line")
        << "mlist.txt" << (table + QStringList{"note: Stats-Version: 2.0.1 follows"}) << true
        << false;
    QTest::newRow("marker case matters")
        << "mlist.txt" << (QStringList{"stats-version: 2.0"} + table) << false << true;
    const QStringList rtable = {"Last update: Sat 15 Nov 2026 12:00:00 GMT",
                                "remailer  email address    history  latency  uptime"};
    QTest::newRow("rlist version 2")
        << "rlist.txt" << (rtable + QStringList{"Stats-Version: 2.0"}) << true << false;
    QTest::newRow("rlist version 1") << "rlist.txt" << rtable << false << true;
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

    QTest::newRow("mix plain") << "mlist.txt"
                               << "mixmaster history latency uptime" << true;
    QTest::newRow("mix leading blanks, capitals, doubled blanks")
        << "mlist.txt"
        << "   MIXMASTER  history  latency  uptime" << true;
    QTest::newRow("mix trailing blanks") << "mlist.txt"
                                         << "Mixmaster history latency uptime   " << true;
    QTest::newRow("mix columns in any order") << "mlist.txt"
                                              << "mixmaster latency uptime history extra" << true;
    QTest::newRow("mix colon after first word") << "mlist.txt"
                                                << "mixmaster: history latency uptime" << false;
    QTest::newRow("mix tab after first word") << "mlist.txt"
                                              << "mixmaster\thistory latency uptime" << false;
    QTest::newRow("mix no uptime") << "mlist.txt"
                                   << "mixmaster history latency" << false;
    QTest::newRow("mix no history") << "mlist.txt"
                                    << "mixmaster latency uptime" << false;
    QTest::newRow("mix history without blank after") << "mlist.txt"
                                                     << "mixmaster historylatency uptime" << false;
    QTest::newRow("mix not at the start") << "mlist.txt"
                                          << "the mixmaster history latency uptime" << false;
    QTest::newRow("mix title line") << "mlist.txt"
                                    << "    Mixmaster Remailers" << false;
    QTest::newRow("mix header of the other list")
        << "mlist.txt"
        << "remailer  email address  history  latency  uptime" << false;

    QTest::newRow("cpk plain") << "rlist.txt"
                               << "remailer  email address                        history  "
                                  "latency  uptime"
                               << true;
    QTest::newRow("cpk capitals and blanks")
        << "rlist.txt"
        << "  REMAILER EMAIL ADDRESS HISTORY LATENCY UPTIME" << true;
    QTest::newRow("cpk no email") << "rlist.txt"
                                  << "remailer address history latency uptime" << false;
    QTest::newRow("cpk no address") << "rlist.txt"
                                    << "remailer email history latency uptime" << false;
    QTest::newRow("cpk no latency") << "rlist.txt"
                                    << "remailer email address history uptime" << false;
    QTest::newRow("cpk colon") << "rlist.txt"
                               << "remailer: email address history latency uptime" << false;
    QTest::newRow("cpk header of the other list") << "rlist.txt"
                                                  << "mixmaster history latency uptime" << false;
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
    QCOMPARE(doc->IsValidPage(), valid);
    // The check reads the page without changing it.
    const QStringList after = doc->Lines();
    doc->IsValidPage();
    QCOMPARE(doc->Lines(), after);
}

void TestRemailerDocs::dateRule_data() {
    QTest::addColumn<QStringList>("page");
    QTest::addColumn<QDate>("today");
    QTest::addColumn<bool>("outOfDate");

    const QStringList stamp = {"Last Update: Sun 15 Nov 2026 12:00:00 GMT",
                               "mixmaster history latency uptime"};
    QTest::newRow("same day") << stamp << QDate(2026, 11, 15) << false;
    QTest::newRow("exactly 3 days") << stamp << QDate(2026, 11, 18) << false;
    QTest::newRow("4 days") << stamp << QDate(2026, 11, 19) << true;
    QTest::newRow("a year") << stamp << QDate(2027, 11, 15) << true;
    QTest::newRow("dated in the future") << stamp << QDate(2026, 1, 1) << false;
    QTest::newRow("across a month end")
        << QStringList{"Last Update: Fri 28 Feb 2025"} << QDate(2025, 3, 4) << true;
    QTest::newRow("across a month end, 3 days")
        << QStringList{"Last Update: Fri 28 Feb 2025"} << QDate(2025, 3, 3) << false;
    QTest::newRow("31 Feb is never stale")
        << QStringList{"Last Update: Tue 31 Feb 2026 12:00:00 GMT"} << QDate(2099, 1, 1) << false;
    QTest::newRow("small u is not looked for")
        << QStringList{"Last update: Sun 15 Nov 2026 12:00:00 GMT"} << QDate(2099, 1, 1) << false;
    QTest::newRow("must begin the line")
        << QStringList{" Last Update: Sun 15 Nov 2026 12:00:00 GMT"} << QDate(2099, 1, 1) << false;
    QTest::newRow("no date line") << QStringList{"just text"} << QDate(2099, 1, 1) << false;
    QTest::newRow("comma after the weekday")
        << QStringList{"Last Update: Wed, 19 Sep 2001 01:42:17 GMT"} << QDate(2001, 9, 23) << true;
    QTest::newRow("comma after the weekday, 3 days")
        << QStringList{"Last Update: Wed, 19 Sep 2001 01:42:17 GMT"} << QDate(2001, 9, 22) << false;
    QTest::newRow("one-digit day")
        << QStringList{"Last Update: Tue 6 Nov 2001 20:36:36 GMT"} << QDate(2001, 11, 10) << true;
    QTest::newRow("one-digit day, 3 days")
        << QStringList{"Last Update: Tue 6 Nov 2001 20:36:36 GMT"} << QDate(2001, 11, 9) << false;
    QTest::newRow("month in capitals")
        << QStringList{"Last Update: Tue 6 NOV 2001"} << QDate(2001, 11, 10) << true;
    // A doubled blank shifts the fields: the month field holds "6".
    QTest::newRow("doubled blank before the day")
        << QStringList{"Last Update: Tue  6 Nov 2001"} << QDate(2099, 1, 1) << false;
    QTest::newRow("day not a number counts as the 1st")
        << QStringList{"Last Update: Tue x Nov 2001"} << QDate(2001, 11, 5) << true;
    QTest::newRow("day not a number, 1st plus 3 days")
        << QStringList{"Last Update: Tue x Nov 2001"} << QDate(2001, 11, 4) << false;
    QTest::newRow("year not a number counts as year 1")
        << QStringList{"Last Update: Tue 6 Nov MMI"} << QDate(2001, 11, 6) << true;
    QTest::newRow("unknown month")
        << QStringList{"Last Update: Tue 6 Nvb 2001"} << QDate(2099, 1, 1) << false;
    QTest::newRow("negative year")
        << QStringList{"Last Update: Tue 6 Nov -2001"} << QDate(2099, 1, 1) << false;
    QTest::newRow("nothing after the label")
        << QStringList{"Last Update: "} << QDate(2099, 1, 1) << false;
    QTest::newRow("first date line decides")
        << QStringList{"Last Update: Tue 31 Feb 2001", "Last Update: Tue 6 Nov 2001"}
        << QDate(2099, 1, 1) << false;
}

void TestRemailerDocs::dateRule() {
    QFETCH(QStringList, page);
    QFETCH(QDate, today);
    QFETCH(bool, outOfDate);
    for (const QString& name : {QStringLiteral("mlist.txt"), QStringLiteral("rlist.txt")}) {
        auto doc = makeDoc(name, page);
        QCOMPARE(doc->IsOutOfDate(today), outOfDate);
    }
}

void TestRemailerDocs::dateRuleUsesLocalClock() {
    const auto stamp = [](int daysAgo) {
        const QDate date = QDate::currentDate().addDays(-daysAgo);
        return QStringList{QStringLiteral("Last Update: Mon %1 %2 %3 00:00:00 GMT")
                               .arg(date.day())
                               .arg(QLocale::c().monthName(date.month(), QLocale::ShortFormat))
                               .arg(date.year())};
    };
    QVERIFY(!makeDoc(QStringLiteral("mlist.txt"), stamp(0))->IsOutOfDate());
    QVERIFY(!makeDoc(QStringLiteral("mlist.txt"), stamp(2))->IsOutOfDate());
    QVERIFY(makeDoc(QStringLiteral("rlist.txt"), stamp(10))->IsOutOfDate());
}

void TestRemailerDocs::keyPageRule_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QStringList>("page");
    QTest::addColumn<bool>("valid");

    const QString mix = QStringLiteral("-----Begin Mix Key-----");
    const QString pgp = QStringLiteral("-----BEGIN PGP PUBLIC KEY BLOCK-----");
    const QStringList markers = {mix, pgp, "velkin user advisory", "velkin urls", pgp};
    for (qsizetype i = 0; i < KeyPageNames.size(); ++i) {
        const QString& name = KeyPageNames.at(i);
        const QString& marker = markers.at(i);
        const auto row = [&](const char* what) -> QTestData& {
            return QTest::newRow(qPrintable(name + u' ' + QLatin1String(what)));
        };
        row("marker line") << name << QStringList{"intro", marker, "body"} << true;
        row("marker on the last line") << name << QStringList{"intro", marker} << true;
        row("marker lower case") << name << QStringList{marker.toLower()} << true;
        row("marker upper case") << name << QStringList{marker.toUpper()} << true;
        row("trailing blank") << name << QStringList{marker + u' '} << false;
        row("leading blank") << name << QStringList{u' ' + marker} << false;
        row("inside a longer line") << name << QStringList{u'>' + marker + u'<'} << false;
        row("no marker") << name << QStringList{"intro", "body"} << false;
        row("empty page") << name << QStringList() << false;
    }
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
    QTest::newRow("two remailers") << QStringList{aarg, dizum} << true << QStringList{aarg, dizum};
    QTest::newRow("blank lines around are dropped")
        << QStringList{"", " ", aarg, dizum, "\t", ""} << true << QStringList{aarg, dizum};
    QTest::newRow("only blank lines") << QStringList{"", "  ", ""} << true << QStringList();
    QTest::newRow("empty page") << QStringList() << true << QStringList();
    QTest::newRow("a line without @")
        << QStringList{aarg, "broken remailer.example.org", dizum} << false
        << QStringList{aarg, "broken remailer.example.org", dizum};
    QTest::newRow("@ only in the first word")
        << QStringList{"x@y.org remailer"} << false << QStringList{"x@y.org remailer"};
    QTest::newRow("@ only in a later word")
        << QStringList{"name key x@y.org"} << false << QStringList{"name key x@y.org"};
    QTest::newRow("doubled blank empties the second word")
        << QStringList{"name  x@y.org"} << false << QStringList{"name  x@y.org"};
    QTest::newRow("one word") << QStringList{"name@host"} << false << QStringList{"name@host"};
    QTest::newRow("blank line in the middle")
        << QStringList{aarg, "", dizum} << false << QStringList{aarg, "", dizum};
    QTest::newRow("second word is the last")
        << QStringList{"name x@y"} << true << QStringList{"name x@y"};
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

void TestRemailerDocs::mail2newsAlwaysValid_data() {
    QTest::addColumn<QStringList>("page");
    QTest::newRow("empty") << QStringList();
    QTest::newRow("blank lines") << QStringList{"", " "};
    QTest::newRow("a gateway") << QStringList{"mail2news@dizum.com"};
    QTest::newRow("no gateway at all") << QStringList{"<html>", "Not Found", "</html>"};
}

void TestRemailerDocs::mail2newsAlwaysValid() {
    QFETCH(QStringList, page);
    auto doc = makeDoc(QStringLiteral("mail2news.txt"), page);
    QVERIFY(doc->IsValidPage());
    QCOMPARE(doc->Lines(), page);
}

void TestRemailerDocs::realStatsPages_data() {
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("updateLine");
    QTest::addColumn<int>("movedLines");
    QTest::addColumn<int>("lineCount");
    QTest::addColumn<QString>("bannerStart");

    // Banner of two lines, "Wed, 19 Sep 2001" date form.
    QTest::newRow("2001-10-31 mlist") << "2001-10-31/mlist.txt"
                                      << "mlist.txt"
                                      << "Last update: Wed, 19 Sep 2001 01:42:17 GMT" << 2 << 52
                                      << "                                Mixmaster Remailers";
    QTest::newRow("2001-10-31 rlist")
        << "2001-10-31/rlist.txt"
        << "rlist.txt"
        << "Last update: Wed, 19 Sep 2001 01:42:28 GMT" << 60 << 106 << "RSA Cypherpunk Statistics";
    // A blank line and a long banner above, "Tue 6 Nov 2001" date form.
    QTest::newRow("2001-11-07 mlist") << "2001-11-07/mlist.txt"
                                      << "mlist.txt"
                                      << "Last update: Tue 6 Nov 2001 20:36:36 GMT" << 13 << 53
                                      << "                        Computer Cryptology's Statistics";
    QTest::newRow("2001-11-07 rlist") << "2001-11-07/rlist.txt"
                                      << "rlist.txt"
                                      << "Last update: Tue 6 Nov 2001 20:36:36 GMT" << 148 << 188
                                      << "                        Computer Cryptology's Statistics";
    // Already first: nothing moves.
    QTest::newRow("2002-08-20 mlist")
        << "2002-08-20/mlist.txt"
        << "mlist.txt"
        << "Last update: Tue 20 Aug 2002 18:50:01 GMT" << 0 << 46 << "";
    QTest::newRow("2002-08-20 rlist")
        << "2002-08-20/rlist.txt"
        << "rlist.txt"
        << "Last update: Tue 20 Aug 2002 18:50:02 GMT" << 42 << 87
        << "$remailer{\"aarg\"} = \"<remailer@aarg.net> cpunk mix pgp "
           "pgponly remix latent hash cut test ek ekx esub inflt50 "
           "rhop20 reord klen2048\";";
    QTest::newRow("2012-11-30 mlist") << "2012-11-30/mlist.txt"
                                      << "mlist.txt"
                                      << "Last update: Fri 30 Nov 2012 10:20:00 GMT" << 46 << 77
                                      << "Groups of remailers sharing a machine or operator:";
    QTest::newRow("2012-11-30 rlist")
        << "2012-11-30/rlist.txt"
        << "rlist.txt"
        << "Last update: Fri 30 Nov 2012 10:20:00 GMT" << 66 << 88
        << "$remailer{\"3nails\"} = \"<3nails@peculiar.user32.com> cpunk mix hybrid middle pgp "
           "pgponly latent ek ekx esub cut hash repgp remix reord ext max test inflt75 rhop5 "
           "klen1000\";";
}

void TestRemailerDocs::realStatsPages() {
    QFETCH(QString, file);
    QFETCH(QString, name);
    QFETCH(QString, updateLine);
    QFETCH(int, movedLines);
    QFETCH(int, lineCount);
    QFETCH(QString, bannerStart);

    const QStringList raw = readReal(file);
    auto doc = makeDoc(name, raw, realPath(file));
    const QStringList& lines = doc->Lines();

    QCOMPARE(lines.size(), lineCount);
    QCOMPARE(lines.first(), updateLine);
    // What stood above the date line follows the table after one empty line.
    const qsizetype tableEnd = lineCount - movedLines - 1;
    QCOMPARE(lines.at(tableEnd), QString());
    if (movedLines > 0)
        QCOMPARE(lines.at(tableEnd + 1), bannerStart);
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
}

void TestRemailerDocs::realStatsPagesWithCrLf_data() {
    realStatsPages_data();
}

// None of the pages on file came with CR LF line ends, but pingers on other
// systems send them; the same bytes with CR LF must give the same document.
void TestRemailerDocs::realStatsPagesWithCrLf() {
    QFETCH(QString, file);
    QFETCH(QString, name);

    QFile in(realPath(file));
    QVERIFY(in.open(QIODevice::ReadOnly));
    const QByteArray bytes = in.readAll();
    QVERIFY(!bytes.contains('\r'));
    QByteArray crlf = bytes;
    crlf.replace("\n", "\r\n");
    QVERIFY(crlf.contains("\r\n"));

    const QStringList crlfLines = BytesToLines(crlf);
    for (const QString& line : crlfLines)
        QVERIFY(!line.contains(u'\r'));
    auto fromCrlf = makeDoc(name, crlfLines);
    auto fromLf = makeDoc(name, BytesToLines(bytes));
    QCOMPARE(fromCrlf->Lines(), fromLf->Lines());
    QVERIFY(fromCrlf->Lines().first().startsWith(u"Last update: "));
    QVERIFY(fromCrlf->IsValidPage());
}

void TestRemailerDocs::realDatesWithCapitalU_data() {
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QDate>("pageDate");
    QTest::newRow("Wed, 19 Sep 2001") << "2001-10-31/mlist.txt"
                                      << "mlist.txt" << QDate(2001, 9, 19);
    QTest::newRow("Tue 6 Nov 2001") << "2001-11-07/rlist.txt"
                                    << "rlist.txt" << QDate(2001, 11, 6);
    QTest::newRow("Tue 20 Aug 2002") << "2002-08-20/mlist.txt"
                                     << "mlist.txt" << QDate(2002, 8, 20);
    QTest::newRow("Fri 30 Nov 2012") << "2012-11-30/rlist.txt"
                                     << "rlist.txt" << QDate(2012, 11, 30);
}

// The real date lines, written the way the date rule looks for them.
void TestRemailerDocs::realDatesWithCapitalU() {
    QFETCH(QString, file);
    QFETCH(QString, name);
    QFETCH(QDate, pageDate);

    QStringList page = readReal(file);
    int changed = 0;
    for (QString& line : page) {
        if (line.startsWith(u"Last update: ")) {
            line.replace(0, 13, QStringLiteral("Last Update: "));
            ++changed;
        }
    }
    QCOMPARE(changed, 1);
    auto doc = makeDoc(name, page);
    QVERIFY(doc->IsValidPage());
    QVERIFY(!doc->IsOutOfDate(pageDate));
    QVERIFY(!doc->IsOutOfDate(pageDate.addDays(3)));
    QVERIFY(doc->IsOutOfDate(pageDate.addDays(4)));
    QVERIFY(!doc->IsOutOfDate(pageDate.addDays(-1)));
}

void TestRemailerDocs::realOtherPages_data() {
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("valid");

    QTest::newRow("2001-11-07 pubring.mix") << "2001-11-07/pubring.mix"
                                            << "pubring.mix" << true;
    QTest::newRow("2012-11-30 pubring.mix") << "2012-11-30/pubring.mix"
                                            << "pubring.mix" << true;
    QTest::newRow("2002-08-28 Mixmaster 2.0 pubring.mix") << "2002-08-28/mix2.0-pubring.mix"
                                                          << "pubring.mix" << true;
    QTest::newRow("2001-11-07 pubring.asc") << "2001-11-07/pubring.asc"
                                            << "pubring.asc" << true;
    QTest::newRow("2012-11-30 pubring.asc") << "2012-11-30/pubring.asc"
                                            << "pubring.asc" << true;
    QTest::newRow("2012-11-30 pubring.asc as nymserver.asc") << "2012-11-30/pubring.asc"
                                                             << "nymserver.asc" << true;
    QTest::newRow("2001-11-07 type2.list") << "2001-11-07/type2.list"
                                           << "type2.list" << true;
    QTest::newRow("2002-08-20 type2.list") << "2002-08-20/type2.list"
                                           << "type2.list" << true;
    QTest::newRow("2002-08-28 Mixmaster 2.0 type2.list") << "2002-08-28/mix2.0-type2.list"
                                                         << "type2.list" << true;
    QTest::newRow("2001-11-07 mlist.txt as mail2news.txt") << "2001-11-07/mlist.txt"
                                                           << "mail2news.txt" << true;

    // The wrong page under a name is refused.
    QTest::newRow("pubring.asc as pubring.mix") << "2001-11-07/pubring.asc"
                                                << "pubring.mix" << false;
    QTest::newRow("pubring.mix as pubring.asc") << "2001-11-07/pubring.mix"
                                                << "pubring.asc" << false;
    QTest::newRow("pubring.mix as type2.list") << "2001-11-07/pubring.mix"
                                               << "type2.list" << false;
    QTest::newRow("mlist.txt as type2.list") << "2002-08-20/mlist.txt"
                                             << "type2.list" << false;
    QTest::newRow("type2.list as mlist.txt") << "2001-11-07/type2.list"
                                             << "mlist.txt" << false;
    QTest::newRow("type2.list as pubring.mix") << "2001-11-07/type2.list"
                                               << "pubring.mix" << false;
    QTest::newRow("pubring.asc as urls.txt") << "2012-11-30/pubring.asc"
                                             << "urls.txt" << false;
    QTest::newRow("rlist.txt as advisory.txt") << "2001-11-07/rlist.txt"
                                               << "advisory.txt" << false;
}

void TestRemailerDocs::realOtherPages() {
    QFETCH(QString, file);
    QFETCH(QString, name);
    QFETCH(bool, valid);
    const QStringList raw = readReal(file);
    QVERIFY(!raw.isEmpty());
    auto doc = makeDoc(name, raw, realPath(file));
    QCOMPARE(doc->IsValidPage(), valid);
    if (name != u"type2.list" && name != u"mlist.txt")
        QCOMPARE(doc->Lines(), raw);
    QVERIFY(!doc->IsOutOfDate(QDate(2099, 1, 1)));
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
