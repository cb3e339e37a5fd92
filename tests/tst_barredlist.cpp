#include "BarredList.h"

#include "PagePaths.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TextFile.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTest>

namespace {

// Edits to a real page, each naming the exact line it expects, so that an
// expectation cannot silently miss its target.
QStringList replaced(QStringList page, const QString& from, const QString& to) {
    if (page.count(from) != 1)
        qFatal("test page does not hold exactly one line \"%s\"", qPrintable(from));
    page[page.indexOf(from)] = to;
    return page;
}

QStringList removed(QStringList page, const QStringList& lines) {
    for (const QString& line : lines) {
        if (page.count(line) != 1)
            qFatal("test page does not hold exactly one line \"%s\"", qPrintable(line));
        page.removeOne(line);
    }
    return page;
}

QStringList lines(std::initializer_list<const char*> texts) {
    QStringList out;
    for (const char* text : texts)
        out.append(QString::fromLatin1(text));
    return out;
}

// Lines of real pages used below.
const QString MlistDizum = QStringLiteral("dizum          ..-#*#**+#--  9:36:04 100.00%");
const QString MlistLcs = QStringLiteral("lcs            +++*+++-+---  3:19:32 100.00%");
// A fully barred remailer loses its capability line too, and so does lcs.
const QString RlistDizumCaps =
    QStringLiteral("$remailer{\"dizum\"} = \"<remailer@dizum.com> cpunk mix pgp pgponly remix "
                   "latent hash cut test ek ekx esub inflt50 rhop20 reord post klen64\";");
const QString RlistLcsCaps =
    QStringLiteral("$remailer{\"lcs\"} = \"<mix@anon.lcs.mit.edu> mix klen1000\";");
const QString RlistDizumRow =
    QStringLiteral("dizum    remailer@dizum.com               #    ###+#--  2:14:12  50.00%");
const QString RlistAargCaps =
    QStringLiteral("$remailer{\"aarg\"} = \"<remailer@aarg.net> cpunk mix pgp pgponly remix latent "
                   "hash cut test ek ekx esub inflt50 rhop20\";");
const QString RlistAargCapsMiddle =
    QStringLiteral("$remailer{\"aarg\"} = \"<remailer@aarg.net> middle cpunk mix pgp pgponly remix "
                   "latent hash cut test ek ekx esub inflt50 rhop20\";");
const QString PubAarg =
    QStringLiteral("aarg remailer@aarg.net 475f3f9fe8da22896c10082695a92c2d 2.9beta31 C");
const QString PubCitrus =
    QStringLiteral("citrus mix@outel.org 713677baeef79ede8089b2e0538127b5 2.9beta23 C");

} // namespace

class TestBarredList : public QObject {
    Q_OBJECT

private slots:
    void cases_data() { AddTableRows(QStringLiteral("barred.txt")); }
    void cases();
    void readFromProgramFolder();
    void storedFiles_data();
    void storedFiles();
    void storedFilesWriteFailures_data();
    void storedFilesWriteFailures();
    void appendFailureKeepsFile();
    void largePageIsOnePass();
};

static QStringList split(const QString& field) {
    return field.isEmpty() ? QStringList() : field.split(u'|');
}

void TestBarredList::cases() {
    QFETCH(QStringList, f);
    TempEnvironment env;
    if (f[0] == "parse") {
        const BarredList list(split(f[1]));
        QCOMPARE(list.fullBars(), split(f[2]));
        QCOMPARE(list.lastOnly(), split(f[3]));
        for (const QString& name : split(f[4]))
            QVERIFY2(list.isFullyBarred(name), qPrintable(name));
        for (const QString& name : split(f[5]))
            QVERIFY2(!list.isFullyBarred(name), qPrintable(name));
        for (const QString& name : split(f[3]))
            QVERIFY(list.isLastOnly(name) && list.isLastOnly(name.toUpper()));
    } else if (f[0] == "apply") {
        const QStringList page{QStringLiteral("first line"), f[3], QStringLiteral("last line")};
        QStringList expected = page;
        if (f[4] == u'-')
            expected.removeAt(1);
        else
            expected[1] = f[4];
        QStringList direct = page;
        // Whether the page changed is what the call returns.
        QCOMPARE(ApplyBarredList(direct, f[2], BarredList(split(f[1]))), expected != page);
        QCOMPARE(direct, expected);
        // The same through barred.txt, as the page set's filter runs it.
        if (!f[1].isEmpty())
            QVERIFY(WriteLines(BarredList::path(), split(f[1])));
        QStringList filtered = page;
        RemoveBarredRemailers(filtered, f[2]);
        QCOMPARE(filtered, expected);
    } else if (f[0] == "append") {
        // CR LF as a Windows editor leaves it; the lines themselves must survive.
        const QString path = BarredList::path();
        if (!f[1].isEmpty())
            TempEnvironment::writeFile(path, split(f[1]).join("\r\n").toLatin1() + "\r\n");
        const QByteArray before = TempEnvironment::readFile(path);
        QString error;
        QVERIFY(AppendNewlyBarred(split(f[2]), &error));
        QVERIFY(error.isEmpty());
        QCOMPARE(ReadLines(path), split(f[3] == u'=' ? f[1] : f[3]));
        QCOMPARE(TempEnvironment::readFile(path) == before, f[3] == u'=');
    } else {
        QFAIL("unknown case kind");
    }
}

void TestBarredList::readFromProgramFolder() {
    {
        TempEnvironment env;
        QVERIFY(env.isValid());
        QCOMPARE(BarredList::path(), env.programFolder() + QStringLiteral("barred.txt"));
        const BarredList missing = BarredList::read();
        QCOMPARE(missing.fullBars(), lines({"lcs"}));
        QVERIFY(missing.lastOnly().isEmpty());

        TempEnvironment::writeFile(BarredList::path(), "dizum\r\naarg,last\r\n");
        const BarredList read = BarredList::read();
        QCOMPARE(read.fullBars(), lines({"dizum", "lcs"}));
        QCOMPARE(read.lastOnly(), lines({"aarg"}));
    }
    // The Mixmaster folder's copy is not the list.
    TempEnvironment env;
    QVERIFY(env.isValid());
    TempEnvironment::writeFile(env.mixFolder() + QStringLiteral("barred.txt"), "dizum\n");
    QCOMPARE(BarredList::read().fullBars(), lines({"lcs"}));
}

void TestBarredList::storedFiles_data() {
    QTest::addColumn<QStringList>("barred");
    QTest::addColumn<QStringList>("present");
    QTest::addColumn<QStringList>("type2Before");
    QTest::addColumn<QStringList>("expectedMlist");
    QTest::addColumn<QStringList>("expectedPubring");
    QTest::addColumn<QStringList>("expectedType2");
    QTest::addColumn<QStringList>("expectedRlist");

    const QStringList mlist = RealPageLines("2001-11-07", QStringLiteral("mlist.txt"));
    const QStringList pubring = RealPageLines("2001-11-07", QStringLiteral("pubring.mix"));
    const QStringList type2 = RealPageLines("2001-11-07", QStringLiteral("type2.list"));
    const QStringList rlist = RealPageLines("2001-11-07", QStringLiteral("rlist.txt"));
    const QStringList all = lines({"mlist.txt", "pubring.mix", "type2.list", "rlist.txt"});
    const QString aargM = PubAarg + u'M';
    const QString citrusM = PubCitrus + u'M';
    const QStringList marker = lines({"type2.list as it was"});

    QTest::newRow("real pages, full and last-only bars")
        << lines({"dizum", "aarg,last", "citrus , LAST"}) << all << type2
        << removed(mlist, {MlistDizum, MlistLcs})
        << replaced(replaced(pubring, PubAarg, aargM), PubCitrus, citrusM)
        << replaced(replaced(type2, PubAarg, aargM), PubCitrus, citrusM)
        << replaced(removed(rlist, {RlistDizumRow, RlistDizumCaps, RlistLcsCaps}), RlistAargCaps,
                    RlistAargCapsMiddle);
    QTest::newRow("keyring untouched: type2.list not rewritten")
        << lines({"dizum", "cracker,last"}) << all << marker
        << removed(mlist, {MlistDizum, MlistLcs}) << pubring << marker
        << removed(rlist, {RlistDizumRow, RlistDizumCaps, RlistLcsCaps});
    QTest::newRow("keyring changed: type2.list made from its address lines")
        << lines({"aarg,last"}) << lines({"pubring.mix"}) << QStringList() << QStringList()
        << replaced(pubring, PubAarg, aargM) << replaced(type2, PubAarg, aargM) << QStringList();
    QTest::newRow("no barred.txt: only the fixed entry")
        << QStringList() << lines({"mlist.txt"}) << QStringList() << removed(mlist, {MlistLcs})
        << QStringList() << QStringList() << QStringList();
    QTest::newRow("nothing stored")
        << lines({"dizum", "aarg,last"}) << QStringList() << QStringList() << QStringList()
        << QStringList() << QStringList() << QStringList();
}

void TestBarredList::storedFiles() {
    QFETCH(QStringList, barred);
    QFETCH(QStringList, present);
    QFETCH(QStringList, type2Before);
    QFETCH(QStringList, expectedMlist);
    QFETCH(QStringList, expectedPubring);
    QFETCH(QStringList, expectedType2);
    QFETCH(QStringList, expectedRlist);

    TempEnvironment env;
    QVERIFY(env.isValid());
    if (!barred.isEmpty())
        QVERIFY(WriteLines(BarredList::path(), barred));
    const QString real = QStringLiteral(VK_REALDATA "/2001-11-07/");
    for (const QString& name : present) {
        if (name == QStringLiteral("type2.list"))
            QVERIFY(WriteLines(PagePath(name), type2Before));
        else
            QVERIFY(QFile::copy(real + name, PagePath(name)));
    }

    QString error = QStringLiteral("not cleared");
    QVERIFY(ApplyBarredListToStoredFiles(&error));
    QVERIFY(error.isEmpty());

    const QList<QPair<QString, QStringList>> expectations = {
        {QStringLiteral("mlist.txt"), expectedMlist},
        {QStringLiteral("pubring.mix"), expectedPubring},
        {QStringLiteral("type2.list"), expectedType2},
        {QStringLiteral("rlist.txt"), expectedRlist},
    };
    for (const auto& [name, expected] : expectations) {
        const QString path = env.mixFolder() + name;
        if (expected.isEmpty()) {
            QVERIFY2(!QFileInfo::exists(path), qPrintable(name));
            continue;
        }
        bool ok = false;
        QCOMPARE(ReadLines(path, &ok), expected);
        QVERIFY(ok);
    }
    // Nothing lands in the program folder but the list itself.
    QCOMPARE(QDir(env.programFolder()).entryList(QDir::Files),
             barred.isEmpty() ? QStringList() : lines({"barred.txt"}));
}

void TestBarredList::storedFilesWriteFailures_data() {
    QTest::addColumn<QString>("blocked");
    QTest::addColumn<QStringList>("expectedMlist");
    QTest::addColumn<QStringList>("expectedPubring");
    QTest::addColumn<QStringList>("expectedRlist");

    const QStringList mlist = RealPageLines("2001-11-07", QStringLiteral("mlist.txt"));
    const QStringList pubring = RealPageLines("2001-11-07", QStringLiteral("pubring.mix"));
    const QStringList rlist = RealPageLines("2001-11-07", QStringLiteral("rlist.txt"));
    const QStringList mlistDone = removed(mlist, {MlistDizum, MlistLcs});
    const QStringList pubringDone = replaced(pubring, PubAarg, PubAarg + u'M');
    const QStringList rlistDone =
        replaced(removed(rlist, {RlistDizumRow, RlistDizumCaps, RlistLcsCaps}), RlistAargCaps,
                 RlistAargCapsMiddle);

    // A folder in a file's place: it cannot be read as a page, nor replaced
    // by one, whoever runs the test.
    QTest::newRow("type2.list cannot be replaced")
        << QStringLiteral("type2.list") << mlistDone << pubringDone << rlistDone;
    QTest::newRow("unreadable mlist.txt is not replaced")
        << QStringLiteral("mlist.txt") << QStringList() << pubringDone << rlistDone;
    QTest::newRow("unreadable pubring.mix is not replaced")
        << QStringLiteral("pubring.mix") << mlistDone << QStringList() << rlistDone;
}

void TestBarredList::storedFilesWriteFailures() {
    QFETCH(QString, blocked);
    QFETCH(QStringList, expectedMlist);
    QFETCH(QStringList, expectedPubring);
    QFETCH(QStringList, expectedRlist);

    TempEnvironment env;
    QVERIFY(env.isValid());
    QVERIFY(WriteLines(BarredList::path(), lines({"dizum", "aarg,last"})));
    const QString real = QStringLiteral(VK_REALDATA "/2001-11-07/");
    for (const QString& name : lines({"mlist.txt", "pubring.mix", "rlist.txt"})) {
        if (name != blocked)
            QVERIFY(QFile::copy(real + name, PagePath(name)));
    }
    QVERIFY(QDir().mkdir(PagePath(blocked)));
    QVERIFY(QFileInfo::exists(PagePath(blocked)));
    QVERIFY(WriteLines(PagePath(blocked) + QStringLiteral("/inside"), lines({"kept"})));

    QString error;
    QVERIFY(!ApplyBarredListToStoredFiles(&error));
    QVERIFY2(error.contains(PagePath(blocked)), qPrintable(error));

    // The blocked one is as it was; the others are done all the same.
    QVERIFY(QFileInfo(PagePath(blocked)).isDir());
    QCOMPARE(ReadLines(PagePath(blocked) + QStringLiteral("/inside")), lines({"kept"}));
    if (blocked != QStringLiteral("mlist.txt"))
        QCOMPARE(ReadLines(PagePath(QStringLiteral("mlist.txt"))), expectedMlist);
    if (blocked != QStringLiteral("pubring.mix"))
        QCOMPARE(ReadLines(PagePath(QStringLiteral("pubring.mix"))), expectedPubring);
    QCOMPARE(ReadLines(PagePath(QStringLiteral("rlist.txt"))), expectedRlist);
    if (blocked == QStringLiteral("pubring.mix"))
        QVERIFY(!QFileInfo::exists(PagePath(QStringLiteral("type2.list"))));
}

void TestBarredList::appendFailureKeepsFile() {
    TempEnvironment env;
    QVERIFY(env.isValid());
    QVERIFY(QDir().mkdir(BarredList::path()));
    QString error;
    QVERIFY(!AppendNewlyBarred(lines({"aarg"}), &error));
    QVERIFY2(error.contains(BarredList::path()), qPrintable(error));
    QVERIFY(QFileInfo(BarredList::path()).isDir());
}

void TestBarredList::largePageIsOnePass() {
    // A thousand barred names against a million-line page: with a lookup
    // per line and the page rebuilt once this takes about a second; with a
    // scan of the list per line or a deletion per line it takes minutes.
    constexpr int names = 1000;
    constexpr int rows = 1000000;
    QStringList barred;
    for (int i = 0; i < names; ++i)
        barred.append(QStringLiteral("Barred%1").arg(i));
    const BarredList list(barred);

    QStringList page;
    page.reserve(rows);
    for (int i = 0; i < rows; ++i) {
        // Every other row is barred; the rest differ from a barred name
        // only by a suffix.
        const QString name = i % 2 ? QStringLiteral("barred%1").arg(i % names)
                                   : QStringLiteral("barred%1x").arg(i % names);
        page.append(name + QStringLiteral("   ##*#####+#+#    23:09 100.00%"));
    }

    QElapsedTimer timer;
    timer.start();
    QVERIFY(ApplyBarredList(page, QStringLiteral("mlist.txt"), list));
    const qint64 elapsed = timer.elapsed();
    QCOMPARE(page.size(), rows / 2);
    QVERIFY(page.first().startsWith(QStringLiteral("barred0x ")));
    QVERIFY(page.last().startsWith(QStringLiteral("barred998x ")));
    QVERIFY2(elapsed < 20000, qPrintable(QStringLiteral("took %1 ms").arg(elapsed)));
}

QTEST_GUILESS_MAIN(TestBarredList)
#include "tst_barredlist.moc"
