#include "RemailerTracking.h"

#include "PagePaths.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TextFile.h"

#include <QElapsedTimer>
#include <QTest>

namespace {

QStringList words(const char* text) {
    return QString::fromLatin1(text).split(u' ', Qt::SkipEmptyParts);
}

// A version-1 mlist.txt around the given table rows.
QStringList mlistPage(const QStringList& rows) {
    QStringList page = {
        QStringLiteral("                              Mixmaster Remailers"),
        QString(),
        QStringLiteral("Last update: Tue 6 Nov 2001 20:36:36 GMT"),
        QStringLiteral("mixmaster           history  latency  uptime"),
        QStringLiteral("--------------------------------------------"),
    };
    page += rows;
    return page;
}

QString mixRow(const QString& name) {
    return name.leftJustified(15) + QStringLiteral("##*#####+#+#    23:09 100.00%");
}

QStringList mixRows(const char* names) {
    QStringList rows;
    for (const QString& name : words(names))
        rows.append(mixRow(name));
    return rows;
}

// An rlist.txt with capability lines above the table, as pingers print it.
QStringList rlistPage(const QStringList& rows) {
    QStringList page = {
        QStringLiteral("                              Cypherpunk Remailers"),
        QString(),
        QStringLiteral("$remailer{\"nym\"} = \"<config@nym.alias.net> newnym pgp klen1000\";"),
        QString(),
        QStringLiteral("Last update: Tue 6 Nov 2001 20:36:36 GMT"),
        QStringLiteral("remailer  email address                        history  latency  uptime"),
        QStringLiteral("-----------------------------------------------------------------------"),
    };
    page += rows;
    return page;
}

QStringList cpkRows(const char* names) {
    QStringList rows;
    for (const QString& name : words(names))
        rows.append(name.leftJustified(9) +
                    QStringLiteral("remailer@example.net    ########+#+#    18:55 100.00%"));
    return rows;
}

QStringList section(const char* heading, const char* names) {
    return QStringList{QString(), QString::fromLatin1(heading)} + words(names);
}

} // namespace

class TestRemailerTracking : public QObject {
    Q_OBJECT

private slots:
    void sortAndLookup_data();
    void sortAndLookup();
    void extractMixmaster_data();
    void extractMixmaster();
    void extractCypherpunk_data();
    void extractCypherpunk();
    void report_data();
    void report();
    void storedCopyIsTheMixmasterFoldersOne();
    void largePagesCompareQuickly();
};

void TestRemailerTracking::sortAndLookup_data() {
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<QStringList>("sorted");
    QTest::addColumn<QStringList>("present");
    QTest::addColumn<QStringList>("absent");

    QTest::newRow("empty") << QStringList() << QStringList() << QStringList() << words("a");
    QTest::newRow("case ignored in order") << words("zeta Alpha beta") << words("Alpha beta zeta")
                                           << words("ALPHA Beta ZETA alpha") << words("alph gamma");
    QTest::newRow("first spelling of a repeat stays")
        << words("Dizum aarg dizum DIZUM aarg") << words("aarg Dizum") << words("dizum AARG")
        << words("dizum2");
    QTest::newRow("prefixes") << words("xganon2 xganon xg") << words("xg xganon xganon2")
                              << words("xg XGANON xganon2") << words("x xganon3 xganon22");
}

void TestRemailerTracking::sortAndLookup() {
    QFETCH(QStringList, names);
    QFETCH(QStringList, sorted);
    QFETCH(QStringList, present);
    QFETCH(QStringList, absent);

    SortRemailerNames(names);
    QCOMPARE(names, sorted);
    for (const QString& name : present)
        QVERIFY2(ContainsRemailerName(names, name), qPrintable(name));
    for (const QString& name : absent)
        QVERIFY2(!ContainsRemailerName(names, name), qPrintable(name));
}

void TestRemailerTracking::extractMixmaster_data() {
    QTest::addColumn<QStringList>("page");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("real 2001-11-07, a row repeated by a broken line")
        << RealPageLines("2001-11-07", QStringLiteral("mlist.txt"))
        << words("aarg austria citrus cmeclax cracker cracow2 dingo disjoint dismix dizum farout "
                 "freaky frog2 harmless havenco italy2 lcs lemuria lsd matrix narnia noisebox "
                 "nullify paranoia passthru2 randseed riot rot26 segfault squirrel tonga w8n "
                 "winter xganon xganon2");
    QTest::newRow("real 2001-10-31, table followed by the latency legend")
        << RealPageLines("2001-10-31", QStringLiteral("mlist.txt"))
        << words("austria citrus cmeclax cracker cracow2 dingo disjoint dizum farout freaky frog2 "
                 "green havenco hell italy2 lcs lefarris lsd marquis matrix narnia narok noisebox "
                 "nullify orange paranoia passthru2 randseed riot rot26 segfault shinn squirrel "
                 "tonga winter xganon xganon2 znar2");
    QTest::newRow("blank line and a footnote with %")
        << mlistPage(mixRows("dizum aarg") +
                     QStringList{
                         QString(),
                         QStringLiteral("footnote 50% of pings lost"),
                         QStringLiteral("austria ######## 10:00 99.00%"),
                     })
        << words("aarg dizum");
    QTest::newRow("row without % cuts the table")
        << mlistPage(mixRows("dizum aarg") +
                     QStringList{QStringLiteral("broken       ##*## 23:09")} + mixRows("austria"))
        << words("aarg dizum");
    QTest::newRow("rows above the hyphen line are not remailers")
        << (QStringList{QStringLiteral("early  ###  1:00 100.00%")} + mlistPage(mixRows("aarg")))
        << words("aarg");
    QTest::newRow("blanks-only line ends the table")
        << mlistPage(mixRows("aarg") + QStringList{QStringLiteral("   \t ")} + mixRows("dizum"))
        << words("aarg");
    QTest::newRow("another hyphen line inside the table is passed over")
        << mlistPage(mixRows("aarg") + QStringList{QStringLiteral("------------------")} +
                     mixRows("dizum"))
        << words("aarg dizum");
    QTest::newRow("fifteen hyphens do not open the table")
        << QStringList{QStringLiteral("---------------"), mixRow(QStringLiteral("aarg"))}
        << QStringList();
    QTest::newRow("indented hyphen line and rows")
        << QStringList{QStringLiteral("   ----------------"),
                       QStringLiteral("  aarg  ###  1:00 100.00%")}
        << words("aarg");
    QTest::newRow("no table") << QStringList{QStringLiteral("Not Found"),
                                             QStringLiteral("the page moved, 100% sure")}
                              << QStringList();
    QTest::newRow("empty page") << QStringList() << QStringList();
    QTest::newRow("case ignored: sorted and each name once")
        << mlistPage(mixRows("Zeta alpha ALPHA beta")) << words("alpha beta Zeta");
}

void TestRemailerTracking::extractMixmaster() {
    QFETCH(QStringList, page);
    QFETCH(QStringList, expected);

    QStringList names = {QStringLiteral("left over")};
    QCOMPARE(ExtractMixmasterNames(page, names), int(expected.size()));
    QCOMPARE(names, expected);
}

void TestRemailerTracking::extractCypherpunk_data() {
    QTest::addColumn<QStringList>("page");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("real 2001-11-07, capability lines are not rows")
        << RealPageLines("2001-11-07", QStringLiteral("rlist.txt"))
        << words("aarg austria citrus cmeclax cracker cracow2 dingo disjoint dismix dizum farout "
                 "firstnaz freaky frog2 harmless haruspex havenco italy2 lemuria lsd matrix narnia "
                 "nitemare noisebox nullify nycrem paranoia randseed riot segfault senshi squirrel "
                 "w8n winter xganon xganon2");
    QTest::newRow("first line with % is the first row")
        << QStringList{QStringLiteral("Cypherpunk Remailers"), QString(),
                       QStringLiteral("dizum remailer@dizum.com ##  1:00 100.00%"),
                       QStringLiteral("aarg remailer@aarg.net ##  1:00 99.00%")}
        << words("aarg dizum");
    QTest::newRow("no hyphen line needed")
        << QStringList{QStringLiteral("zz x 1%"), QStringLiteral("aa y 2%")} << words("aa zz");
    QTest::newRow("blank line and a footnote with %")
        << rlistPage(cpkRows("dizum aarg") +
                     QStringList{QString(), QStringLiteral("note: 10% of chains broken")})
        << words("aarg dizum");
    QTest::newRow("row without % cuts the table")
        << rlistPage(cpkRows("dizum") + QStringList{QStringLiteral("cut here")} + cpkRows("aarg"))
        << words("dizum");
    QTest::newRow("no line with %") << rlistPage({}) << QStringList();
    QTest::newRow("case ignored: sorted and each name once")
        << rlistPage(cpkRows("Zeta alpha ALPHA beta")) << words("alpha beta Zeta");
}

void TestRemailerTracking::extractCypherpunk() {
    QFETCH(QStringList, page);
    QFETCH(QStringList, expected);

    QStringList names = {QStringLiteral("left over")};
    QCOMPARE(ExtractCypherpunkNames(page, names), int(expected.size()));
    QCOMPARE(names, expected);
}

void TestRemailerTracking::report_data() {
    QTest::addColumn<bool>("mixmaster");
    QTest::addColumn<bool>("stored");
    QTest::addColumn<QStringList>("oldPage");
    QTest::addColumn<QStringList>("newPage");
    QTest::addColumn<bool>("barnew");
    QTest::addColumn<QStringList>("reportBefore");
    QTest::addColumn<QStringList>("expectedReport");
    QTest::addColumn<QStringList>("expectedNewbars");
    QTest::addColumn<bool>("expectedResult");

    const QStringList realOldM = RealPageLines("2001-10-31", QStringLiteral("mlist.txt"));
    const QStringList realNewM = RealPageLines("2001-11-07", QStringLiteral("mlist.txt"));
    const QStringList realOldR = RealPageLines("2001-10-31", QStringLiteral("rlist.txt"));
    const QStringList realNewR = RealPageLines("2001-11-07", QStringLiteral("rlist.txt"));
    const QStringList earlier = {QStringLiteral("Update run of today")};

    QTest::newRow("identical pages append nothing")
        << true << true << realNewM << realNewM << false << QStringList() << QStringList()
        << QStringList() << false;
    QTest::newRow("identical pages, earlier report lines still count")
        << false << true << realNewR << realNewR << false << earlier << earlier << QStringList()
        << true;
    QTest::newRow("same names in other case and order are no change")
        << true << true << mlistPage(mixRows("AARG Dizum")) << mlistPage(mixRows("dizum aarg"))
        << false << QStringList() << QStringList() << QStringList() << false;
    QTest::newRow("real mlist, a week later")
        << true << true << realOldM << realNewM << false << earlier
        << earlier + section("NEW Mixmaster Remailers:", "aarg dismix harmless lemuria w8n") +
               section("DECEASED Mixmaster Remailers:",
                       "green hell lefarris marquis narok orange shinn znar2")
        << words("aarg dismix harmless lemuria w8n") << true;
    QTest::newRow("real rlist, a week later")
        << false << true << realOldR << realNewR << false << QStringList()
        << section("NEW Cypherpunk Remailers:",
                   "aarg dismix firstnaz harmless haruspex lemuria randseed senshi w8n") +
               section("DECEASED Cypherpunk Remailers:",
                       "green lefarris marquis narok orange shinn znar2")
        << words("aarg dismix firstnaz harmless haruspex lemuria randseed senshi w8n") << true;
    // With nothing stored every remailer is reported new, but none is
    // collected for barring.
    QTest::newRow("first run: every remailer is new")
        << true << false << QStringList() << mlistPage(mixRows("dizum aarg")) << false
        << QStringList() << section("NEW Mixmaster Remailers:", "aarg dizum") << QStringList()
        << true;
    QTest::newRow("first run, Cypherpunk")
        << false << false << QStringList() << rlistPage(cpkRows("dizum aarg")) << false
        << QStringList() << section("NEW Cypherpunk Remailers:", "aarg dizum") << QStringList()
        << true;
    QTest::newRow("empty new list: every old remailer deceased")
        << true << true << mlistPage(mixRows("dizum aarg")) << QStringList() << false
        << QStringList() << section("DECEASED Mixmaster Remailers:", "aarg dizum") << QStringList()
        << true;
    QTest::newRow("new page without a table, Cypherpunk")
        << false << true << rlistPage(cpkRows("dizum aarg")) << rlistPage({}) << false
        << QStringList() << section("DECEASED Cypherpunk Remailers:", "aarg dizum") << QStringList()
        << true;
    QTest::newRow("both pages empty") << true << false << QStringList() << QStringList() << false
                                      << QStringList() << QStringList() << QStringList() << false;
    // Bar new only changes the heading: just the new names are collected,
    // never the whole page.
    QTest::newRow("bar new: heading says all barred")
        << true << true << mlistPage(mixRows("dizum aarg")) << mlistPage(mixRows("aarg austria"))
        << true << QStringList()
        << QStringList{QString(), QStringLiteral("NEW Mixmaster Remailers: (all barred)"),
                       QStringLiteral("austria")} +
               section("DECEASED Mixmaster Remailers:", "dizum")
        << words("austria") << true;
    QTest::newRow("bar new, Cypherpunk")
        << false << true << rlistPage(cpkRows("aarg")) << rlistPage(cpkRows("aarg zed")) << true
        << QStringList()
        << QStringList{QString(), QStringLiteral("NEW Cypherpunk Remailers: (all barred)"),
                       QStringLiteral("zed")}
        << words("zed") << true;
    QTest::newRow("bar new on a first run bars nobody")
        << true << false << QStringList() << mlistPage(mixRows("zed aarg")) << true << QStringList()
        << section("NEW Mixmaster Remailers: (none barred: no stored mlist.txt to compare with)",
                   "aarg zed")
        << QStringList() << true;
}

void TestRemailerTracking::report() {
    QFETCH(bool, mixmaster);
    QFETCH(bool, stored);
    QFETCH(QStringList, oldPage);
    QFETCH(QStringList, newPage);
    QFETCH(bool, barnew);
    QFETCH(QStringList, reportBefore);
    QFETCH(QStringList, expectedReport);
    QFETCH(QStringList, expectedNewbars);
    QFETCH(bool, expectedResult);

    TempEnvironment env;
    QVERIFY(env.isValid());
    const QString name = mixmaster ? QStringLiteral("mlist.txt") : QStringLiteral("rlist.txt");
    if (stored)
        QVERIFY(WriteLines(env.mixFolder() + name, oldPage));
    const QByteArray storedBytes = TempEnvironment::readFile(env.mixFolder() + name);

    QStringList report = reportBefore;
    QStringList newbars;
    const bool result = mixmaster ? ReportMixmasterChanges(newPage, report, barnew, newbars)
                                  : ReportCypherpunkChanges(newPage, report, barnew, newbars);
    QCOMPARE(report, expectedReport);
    QCOMPARE(newbars, expectedNewbars);
    QCOMPARE(result, expectedResult);
    // The comparison reads the stored copy; writing the new page is the
    // saver's job.
    QCOMPARE(TempEnvironment::readFile(env.mixFolder() + name), storedBytes);
}

void TestRemailerTracking::storedCopyIsTheMixmasterFoldersOne() {
    TempEnvironment env;
    QVERIFY(env.isValid());
    const QStringList page = mlistPage(mixRows("aarg dizum"));
    // Only a copy in the program folder: that is not where pages are kept.
    QVERIFY(WriteLines(env.programFolder() + QStringLiteral("mlist.txt"), page));
    QCOMPARE(PagePath(QStringLiteral("mlist.txt")), env.mixFolder() + QStringLiteral("mlist.txt"));

    QStringList report;
    QStringList newbars;
    QVERIFY(ReportMixmasterChanges(page, report, false, newbars));
    QCOMPARE(report, section("NEW Mixmaster Remailers:", "aarg dizum"));

    QVERIFY(WriteLines(PagePath(QStringLiteral("mlist.txt")), page));
    report.clear();
    newbars.clear();
    QVERIFY(!ReportMixmasterChanges(page, report, false, newbars));
    QVERIFY(report.isEmpty());
    QVERIFY(newbars.isEmpty());
}

void TestRemailerTracking::largePagesCompareQuickly() {
    // Pinger pages are small, but nothing stops a broken or hostile one from
    // being large; the comparison must not grow with the square of it.
    constexpr int count = 200000;
    QStringList oldRows;
    QStringList newRows;
    for (int i = 0; i < count; ++i) {
        oldRows.append(mixRow(QStringLiteral("r%1").arg(i)));
        newRows.append(mixRow(QStringLiteral("R%1").arg(i + count / 2)));
    }
    TempEnvironment env;
    QVERIFY(env.isValid());
    QVERIFY(WriteLines(PagePath(QStringLiteral("mlist.txt")), mlistPage(oldRows)));

    QElapsedTimer timer;
    timer.start();
    QStringList report;
    QStringList newbars;
    QVERIFY(ReportMixmasterChanges(mlistPage(newRows), report, false, newbars));
    const qint64 elapsed = timer.elapsed();

    QCOMPARE(newbars.size(), count / 2);
    QCOMPARE(report.size(), 2 + count / 2 + 2 + count / 2);
    QCOMPARE(report.at(1), QStringLiteral("NEW Mixmaster Remailers:"));
    QCOMPARE(report.at(2 + count / 2 + 1), QStringLiteral("DECEASED Mixmaster Remailers:"));
    QVERIFY2(elapsed < 20000, qPrintable(QStringLiteral("took %1 ms").arg(elapsed)));
}

QTEST_GUILESS_MAIN(TestRemailerTracking)
#include "tst_remailertracking.moc"
