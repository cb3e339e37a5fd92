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

// A table field as lines: "-" is none; "@mixhead", "@cpkhead", "@mix names"
// and "@cpk names" stand for a page's header lines and table rows.
QStringList lines(const QString& field) {
    if (field == u'-')
        return {};
    QStringList out;
    for (const QString& line : field.split(u'|')) {
        const QByteArray rest = line.section(u' ', 1).toLatin1();
        if (line == "@mixhead")
            out += mlistPage({});
        else if (line == "@cpkhead")
            out += rlistPage({});
        else if (line.startsWith("@mix "))
            out += mixRows(rest.constData());
        else if (line.startsWith("@cpk "))
            out += cpkRows(rest.constData());
        else
            out += line;
    }
    return out;
}

} // namespace

class TestRemailerTracking : public QObject {
    Q_OBJECT

private slots:
    void cases_data() { AddTableRows(QStringLiteral("tracking.txt")); }
    void cases();
    void storedCopyIsTheMixmasterFoldersOne();
    void largePagesCompareQuickly();
};

void TestRemailerTracking::cases() {
    QFETCH(QStringList, f);
    TempEnvironment env;
    if (f[0] == "sort") {
        QStringList names = lines(f[1]);
        SortRemailerNames(names);
        QCOMPARE(names, lines(f[2]));
        for (const QString& name : lines(f[3]))
            QVERIFY2(ContainsRemailerName(names, name), qPrintable(name));
        for (const QString& name : lines(f[4]))
            QVERIFY2(!ContainsRemailerName(names, name), qPrintable(name));
    } else if (f[0] == "mix" || f[0] == "cpk") {
        QStringList names = {QStringLiteral("left over")};
        const int count = f[0] == "mix" ? ExtractMixmasterNames(lines(f[1]), names)
                                        : ExtractCypherpunkNames(lines(f[1]), names);
        QCOMPARE(names, lines(f[2]));
        QCOMPARE(count, int(names.size()));
    } else if (f[0] == "report") {
        const bool mixmaster = f[1] == "mix";
        const QString path = env.mixFolder() + (mixmaster ? "mlist.txt" : "rlist.txt");
        if (f[2] != u'-')
            QVERIFY(WriteLines(path, lines(f[2])));
        const QByteArray stored = TempEnvironment::readFile(path);
        QStringList report = lines(f[5]);
        QStringList newbars;
        const bool barnew = f[4] == u'1';
        const bool result = mixmaster
                                ? ReportMixmasterChanges(lines(f[3]), report, barnew, newbars)
                                : ReportCypherpunkChanges(lines(f[3]), report, barnew, newbars);
        QCOMPARE(report, lines(f[6]));
        QCOMPARE(newbars, lines(f[7]));
        QCOMPARE(result, f[8] == u'1');
        // The comparison reads the stored copy; writing the new page is the
        // saver's job.
        QCOMPARE(TempEnvironment::readFile(path), stored);
    } else {
        QFAIL("unknown case kind");
    }
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
