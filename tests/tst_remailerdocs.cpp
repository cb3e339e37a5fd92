#include "MixKeyring.h"
#include "PageView.h"
#include "RemailerDocs.h"
#include "TestData.h"
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
    void pageViewEdits();
    void pageClasses_data();
    void pageClasses();

    void checks_data() { AddTableRows(QStringLiteral("docs.txt")); }
    void checks();
    void dateRuleUsesLocalClock();

    void mixKeyringCheck_data();
    void mixKeyringCheck();
    void longPagesTakeOnePass_data();
    void longPagesTakeOnePass();

private:
    void realStatsPage(const QStringList& f);
    void realOtherPage(const QStringList& f);
};

void TestRemailerDocs::pageViewEdits() {
    PageView view({"a", "b"});
    QSignalSpy changed(&view, &PageView::linesChanged);
    QSignalSpy appended(&view, &PageView::lineAppended);
    view.appendLine("c");
    view.appendToLastLine(" OK");
    view.insertLine(1, "x");
    view.insertLine(9, "end");
    view.insertLine(-3, "top");
    view.notifyChanged();
    QCOMPARE(view.lines(), (QStringList{"top", "a", "x", "b", "c OK", "end"}));
    QCOMPARE(changed.count(), 6);
    QCOMPARE(appended.count(), 1);
    QCOMPARE(appended.at(0).at(0).toString(), QStringLiteral("c"));
    view.setLines({});
    view.appendToLastLine("OK");
    QCOMPARE(view.lines(), QStringList{"OK"});
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

void TestRemailerDocs::checks() {
    QFETCH(QStringList, f);
    if (f[0] == "real")
        return realStatsPage(f);
    if (f[0] == "realvalid")
        return realOtherPage(f);
    const QStringList page = f[2].split(u'|');
    auto doc = makeDoc(f[1], page);
    const QStringList made = doc->Lines();
    QSignalSpy changed(doc->Viewer, &PageView::linesChanged);
    QCOMPARE(doc->IsValidPage(), f[4] == u'1');
    QCOMPARE(doc->IsStatsVersion2(), f[5] == u'1');
    QCOMPARE(doc->IsOutOfDate(QDate::fromString(f[3], Qt::ISODate)), f[6] == u'1');
    const QString& after = f[7];
    QCOMPARE(doc->Lines(), after == u'='   ? page
                           : after == u'*' ? made
                           : after == u'-' ? QStringList()
                                           : after.split(u'|'));
    // A view showing the page hears of a trim, and only then.
    QCOMPARE(changed.count(), doc->Lines() == made ? 0 : 1);
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

void TestRemailerDocs::realStatsPage(const QStringList& f) {
    const QString& file = f[1];
    const QString& name = f[2];
    const QString& updateLine = f[3];
    const int movedLines = f[4].toInt();
    const int lineCount = f[5].toInt();
    const QDate pageDate = QDate::fromString(f[6], Qt::ISODate);

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

void TestRemailerDocs::realOtherPage(const QStringList& f) {
    const QString& file = f[1];
    const QString& name = f[2];
    const bool valid = f[3] == u'1';
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
