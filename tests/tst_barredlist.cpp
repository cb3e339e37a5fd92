#include "BarredList.h"

#include "PagePaths.h"
#include "RemailerTracking.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TextFile.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QTest>

namespace {

const char EmptyNewbarsChild[] = "TST_BARREDLIST_EMPTY_NEWBARS";

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
const QString MlistXganon2 = QStringLiteral("xganon2        ##-#####        43:16  71.87%");
const QString MlistXganon2Broken =
    QStringLiteral("xganon2  remailer@remailer.xganon.com     ##-#####        43:16  71.87%");
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
    void parse_data();
    void parse();
    void readFromProgramFolder();
    void applyToPage_data();
    void applyToPage();
    void applyToRealPages_data();
    void applyToRealPages();
    void storedFiles_data();
    void storedFiles();
    void storedFilesWriteFailures_data();
    void storedFilesWriteFailures();
    void appendNewlyBarred_data();
    void appendNewlyBarred();
    void newlyBarredAcrossTwoSaves();
    void appendFailureKeepsFile();
    void emptyNewbarsIsAProgrammingError();
    void largePageIsOnePass();
    void sharedCopyStaysUnfiltered_data();
    void sharedCopyStaysUnfiltered();
};

void TestBarredList::parse_data() {
    QTest::addColumn<QStringList>("file");
    QTest::addColumn<QStringList>("fullBars");
    QTest::addColumn<QStringList>("lastOnly");
    QTest::addColumn<QStringList>("fullyBarred");
    QTest::addColumn<QStringList>("notFullyBarred");

    QTest::newRow("empty file: only the fixed entry")
        << QStringList() << lines({"lcs"}) << QStringList() << lines({"lcs", "LCS"})
        << lines({"", "dizum"});
    QTest::newRow("plain name has no comma and is kept")
        << lines({"dizum"}) << lines({"dizum", "lcs"}) << QStringList() << lines({"dizum", "DIZUM"})
        << lines({"dizu", "dizum2"});
    QTest::newRow("last in capitals and with blanks around")
        << lines({"aarg,LAST", "tonga , Last ", " riot,  last"}) << lines({"lcs"})
        << lines({"aarg", "tonga", "riot"}) << QStringList() << lines({"aarg", "tonga", "riot"});
    QTest::newRow("any other flag, even one beginning with last, is a full bar")
        << lines({"aarg,lastly", "tonga,", "riot,middle"})
        << lines({"aarg,lastly", "tonga,", "riot,middle", "lcs"}) << QStringList()
        << lines({"aarg", "Tonga", "riot"}) << QStringList();
    QTest::newRow("a third field does not matter")
        << lines({"aarg,last,since 2002"}) << lines({"lcs"}) << lines({"aarg"}) << QStringList()
        << lines({"aarg"});
    QTest::newRow("file order kept in both lists")
        << lines({"b", "a,last", "c", "d,last"}) << lines({"b", "c", "lcs"}) << lines({"a", "d"})
        << lines({"b", "c"}) << lines({"a", "d"});
    QTest::newRow("fixed entry not repeated") << lines({"LCS", "dizum"}) << lines({"LCS", "dizum"})
                                              << QStringList() << lines({"lcs"}) << QStringList();
    QTest::newRow("fixed entry stays full even when the file says last")
        << lines({"lcs,last"}) << lines({"lcs"}) << lines({"lcs"}) << lines({"lcs"})
        << QStringList();
    QTest::newRow("blank lines bar nobody")
        << lines({"", "  ", "aarg"}) << lines({"", "  ", "aarg", "lcs"}) << QStringList()
        << lines({"aarg"}) << lines({"", " "});
}

void TestBarredList::parse() {
    QFETCH(QStringList, file);
    QFETCH(QStringList, fullBars);
    QFETCH(QStringList, lastOnly);
    QFETCH(QStringList, fullyBarred);
    QFETCH(QStringList, notFullyBarred);

    const BarredList list(file);
    QCOMPARE(list.fullBars(), fullBars);
    QCOMPARE(list.lastOnly(), lastOnly);
    for (const QString& name : fullyBarred)
        QVERIFY2(list.isFullyBarred(name), qPrintable(name));
    for (const QString& name : notFullyBarred)
        QVERIFY2(!list.isFullyBarred(name), qPrintable(name));
    for (const QString& name : lastOnly) {
        QVERIFY2(list.isLastOnly(name), qPrintable(name));
        QVERIFY2(list.isLastOnly(name.toUpper()), qPrintable(name));
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

void TestBarredList::applyToPage_data() {
    QTest::addColumn<QStringList>("barred");
    QTest::addColumn<QString>("pageName");
    QTest::addColumn<QStringList>("page");
    QTest::addColumn<QStringList>("expected");
    QTest::addColumn<bool>("changed");

    const QStringList mlist = lines({"mixmaster           history  latency  uptime",
                                     "--------------------------------------------",
                                     "aarg           ##*#####+#+#    23:09 100.00%",
                                     "Dizum          ..-#*#**+#--  9:36:04 100.00%",
                                     "dizum mentioned without a percentage",
                                     "lcs            +++*+++-+---  3:19:32 100.00%",
                                     "  dizum  indented, 50% cannot name a remailer", ""});
    const QStringList rlist =
        lines({"$remailer{\"aarg\"} = \"<remailer@aarg.net> cpunk mix pgp\";",
               "$remailer{\"dizum\"} = \"<remailer@dizum.com> cpunk mix middle pgp\";",
               "$remailer{\"tonga\"} = \"tonga has no address cpunk\";",
               "aarg     remailer@aarg.net                ########+#+#    18:55 100.00%",
               "dizum    remailer@dizum.com               #    ###+#--  2:14:12  50.00%"});
    const QStringList pubring =
        lines({"aarg remailer@aarg.net 475f3f9fe8da22896c10082695a92c2d 2.9beta31 C", "",
               "-----Begin Mix Key-----", "475f3f9fe8da22896c10082695a92c2d", "aarg",
               "-----End Mix Key-----",
               "cracker remailer@gacracker.org 6da536e3043a8090174821b250931ddc 2.9beta23 CM",
               "cmeclax cmeclax@ixazon.dynip.com d09bdf136832b2c4412c1e5529efbd7c 2.9beta31 CNm",
               "lcs mix@anon.lcs.mit.edu 0a28e8a7bd2133d59cf7db80c773176e 2.0.3",
               "anon anon@anonusa.net 24bdd2c97098167134d8526123f82dde 2:3.0 Nm 2012-01-08 "
               "2013-02-01",
               "tonga remailer@cypherpunks.to 70d5742c277080317d4161f8c41b6592 2.9beta24 C "});

    // Whether the page changed is what the call returns.
    const auto row = [](const char* tag, const QStringList& barred, const char* pageName,
                        const QStringList& page, const QStringList& expected) {
        QTest::newRow(tag) << barred << QString::fromLatin1(pageName) << page << expected
                           << (expected != page);
    };
    const QString dizumRow = mlist.at(3);
    const QString lcsRow = mlist.at(5);
    row("full bar deletes the statistics line, case ignored", {"DIZUM"}, "mlist.txt", mlist,
        removed(mlist, {dizumRow, lcsRow}));
    row("lcs barred without a file", {}, "mlist.txt", mlist, removed(mlist, {lcsRow}));
    row("nothing to remove", {"nobody"}, "mlist.txt", removed(mlist, {lcsRow}),
        removed(mlist, {lcsRow}));
    row("last-only leaves the statistics line on mlist.txt", {"dizum,last"}, "mlist.txt", mlist,
        removed(mlist, {lcsRow}));
    row("last in capitals marks a middleman after the address", {"aarg,LAST"}, "rlist.txt", rlist,
        replaced(rlist, rlist.at(0),
                 "$remailer{\"aarg\"} = \"<remailer@aarg.net> middle cpunk mix pgp\";"));
    row("middle not added twice", {"dizum , last "}, "rlist.txt", rlist, rlist);
    row("no > puts middle at the very beginning", {"Tonga,last"}, "rlist.txt", rlist,
        replaced(rlist, rlist.at(2),
                 " middle$remailer{\"tonga\"} = \"tonga has no address cpunk\";"));
    row("page names compare exactly", {"aarg,last"}, "RLIST.TXT", rlist, rlist);
    row("capability lines only on rlist.txt", {"aarg,last"}, "mlist.txt", rlist, rlist);

    const QStringList aargM =
        replaced(pubring, pubring.at(0),
                 "aarg remailer@aarg.net 475f3f9fe8da22896c10082695a92c2d 2.9beta31 CM");
    row("keyring: M appended to the capabilities", {"aarg,last"}, "pubring.mix", pubring, aargM);
    row("keyring: M not added twice", {"cracker,last"}, "pubring.mix", pubring, pubring);
    row("keyring: lower-case m is not M", {"cmeclax,last"}, "pubring.mix", pubring,
        replaced(
            pubring, pubring.at(7),
            "cmeclax cmeclax@ixazon.dynip.com d09bdf136832b2c4412c1e5529efbd7c 2.9beta31 CNmM"));
    row("keyring: line without capabilities gains them", {"LCS,last"}, "pubring.mix", pubring,
        replaced(pubring, pubring.at(8),
                 "lcs mix@anon.lcs.mit.edu 0a28e8a7bd2133d59cf7db80c773176e 2.0.3 M"));
    row("keyring: dates after the capabilities kept", {"anon,last"}, "pubring.mix", pubring,
        replaced(pubring, pubring.at(9),
                 "anon anon@anonusa.net 24bdd2c97098167134d8526123f82dde 2:3.0 NmM 2012-01-08 "
                 "2013-02-01"));
    row("keyring: rebuilt line ends at the first empty field", {"tonga,last"}, "pubring.mix",
        pubring,
        replaced(pubring, pubring.at(10),
                 "tonga remailer@cypherpunks.to 70d5742c277080317d4161f8c41b6592 2.9beta24 CM"));
    row("keyring: key block lines name no remailer",
        {"aarg,last", "475f3f9fe8da22896c10082695a92c2d,last"}, "pubring.mix", pubring, aargM);
}

void TestBarredList::applyToPage() {
    QFETCH(QStringList, barred);
    QFETCH(QString, pageName);
    QFETCH(QStringList, page);
    QFETCH(QStringList, expected);
    QFETCH(bool, changed);

    QStringList direct = page;
    QCOMPARE(ApplyBarredList(direct, pageName, BarredList(barred)), changed);
    QCOMPARE(direct, expected);

    // The same through barred.txt, as the page set's filter runs it.
    TempEnvironment env;
    QVERIFY(env.isValid());
    if (!barred.isEmpty())
        QVERIFY(WriteLines(BarredList::path(), barred));
    QStringList filtered = page;
    RemoveBarredRemailers(filtered, pageName);
    QCOMPARE(filtered, expected);
}

void TestBarredList::applyToRealPages_data() {
    QTest::addColumn<QStringList>("barred");
    QTest::addColumn<QString>("pageName");
    QTest::addColumn<QStringList>("page");
    QTest::addColumn<QStringList>("expected");

    const QStringList mlist = RealPageLines("2001-11-07", QStringLiteral("mlist.txt"));
    QTest::newRow("mlist 2001-11-07: barred rows and the broken row go")
        << lines({"dizum", "XGANON2", "nobody"}) << QStringLiteral("mlist.txt") << mlist
        << removed(mlist, {MlistDizum, MlistLcs, MlistXganon2, MlistXganon2Broken});

    const QStringList rlist = RealPageLines("2001-10-31", QStringLiteral("rlist.txt"));
    const QStringList rlistExpected = replaced(
        replaced(removed(rlist, lines({"austria  mixmaster@remailer.privacy.at    ************  "
                                       "0:15:52 100.00%"})),
                 QStringLiteral("$remailer{\"dizum\"} = \"<remailer@dizum.com> cpunk mix pgp "
                                "pgponly remix latent hash cut test ek ekx esub inflt50 rhop20 "
                                "reord post klen64\";"),
                 QStringLiteral("$remailer{\"dizum\"} = \"<remailer@dizum.com> middle cpunk mix "
                                "pgp pgponly remix latent hash cut test ek ekx esub inflt50 rhop20 "
                                "reord post klen64\";")),
        QStringLiteral("$remailer{\"tonga\"} = \"<remailer@cypherpunks.to> mix remix esub inflt50 "
                       "rhop20 reord post\";"),
        QStringLiteral("$remailer{\"tonga\"} = \"<remailer@cypherpunks.to> middle mix remix esub "
                       "inflt50 rhop20 reord post\";"));
    QTest::newRow("rlist 2001-10-31: full and last-only bars")
        << lines({"austria", "dizum,last", "Tonga , Last", "passthru2,last"})
        << QStringLiteral("rlist.txt") << rlist << rlistExpected;

    const QStringList pubring = RealPageLines("2012-11-30", QStringLiteral("pubring.mix"));
    QTest::newRow("pubring.mix 2012-11-30: middleman marks")
        << lines({"austria,last", "anon,last", "banana,last"}) << QStringLiteral("pubring.mix")
        << pubring
        << replaced(
               pubring,
               QStringLiteral("austria mixmaster@remailer.privacy.at "
                              "8ed603304ed22f688e8f8afe08a0e57b 2:3.0 C 2012-04-24 2013-05-19"),
               QStringLiteral("austria mixmaster@remailer.privacy.at "
                              "8ed603304ed22f688e8f8afe08a0e57b 2:3.0 CM 2012-04-24 "
                              "2013-05-19"));
}

void TestBarredList::applyToRealPages() {
    QFETCH(QStringList, barred);
    QFETCH(QString, pageName);
    QFETCH(QStringList, page);
    QFETCH(QStringList, expected);

    QVERIFY(expected != page);
    QVERIFY(ApplyBarredList(page, pageName, BarredList(barred)));
    QCOMPARE(page, expected);
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
        << replaced(removed(rlist, {RlistDizumRow}), RlistAargCaps, RlistAargCapsMiddle);
    QTest::newRow("keyring untouched: type2.list not rewritten")
        << lines({"dizum", "cracker,last"}) << all << marker
        << removed(mlist, {MlistDizum, MlistLcs}) << pubring << marker
        << removed(rlist, {RlistDizumRow});
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
        replaced(removed(rlist, {RlistDizumRow}), RlistAargCaps, RlistAargCapsMiddle);

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

void TestBarredList::appendNewlyBarred_data() {
    QTest::addColumn<QStringList>("before");
    QTest::addColumn<QStringList>("newbars");
    QTest::addColumn<QStringList>("after");
    QTest::addColumn<bool>("written");

    QTest::newRow("no file yet: each name once")
        << QStringList() << lines({"aarg", "dizum", "aarg", "AARG"}) << lines({"aarg", "dizum"})
        << true;
    QTest::newRow("names after the file's lines")
        << lines({"tonga", "riot,last"}) << lines({"zed", "aarg"})
        << lines({"tonga", "riot,last", "zed", "aarg"}) << true;
    QTest::newRow("names the file holds are skipped, by name and ignoring case")
        << lines({"Dizum,last", " tonga ", "riot,lastly"})
        << lines({"dizum", "TONGA", "riot", "zed"})
        << lines({"Dizum,last", " tonga ", "riot,lastly", "zed"}) << true;
    QTest::newRow("nothing new: file left as it is")
        << lines({"aarg", "dizum"}) << lines({"DIZUM", "aarg"}) << lines({"aarg", "dizum"})
        << false;
    QTest::newRow("blanks around names dropped, empty names skipped")
        << QStringList() << lines({" zed ", "", "   ", "zed"}) << lines({"zed"}) << true;
}

void TestBarredList::appendNewlyBarred() {
    QFETCH(QStringList, before);
    QFETCH(QStringList, newbars);
    QFETCH(QStringList, after);
    QFETCH(bool, written);

    TempEnvironment env;
    QVERIFY(env.isValid());
    const QString path = env.programFolder() + QStringLiteral("barred.txt");
    // CR LF as a Windows editor leaves it; the lines themselves must survive.
    if (!before.isEmpty())
        TempEnvironment::writeFile(path, before.join(QStringLiteral("\r\n")).toLatin1() + "\r\n");
    const QByteArray bytesBefore = TempEnvironment::readFile(path);

    QString error;
    QVERIFY(AppendNewlyBarred(newbars, &error));
    QVERIFY(error.isEmpty());
    QCOMPARE(ReadLines(path), after);
    if (!written)
        QCOMPARE(TempEnvironment::readFile(path), bytesBefore);
    else
        QVERIFY(TempEnvironment::readFile(path) != bytesBefore);
}

void TestBarredList::newlyBarredAcrossTwoSaves() {
    TempEnvironment env;
    QVERIFY(env.isValid());
    // Updates with bar new on, each saved: the update hands over the names
    // it had not seen before, each once. A first run has nothing to compare
    // with and bars nobody.
    QStringList report;
    QStringList newbars;
    ReportMixmasterChanges(RealPageLines("2001-10-31", QStringLiteral("mlist.txt")), report, true,
                           newbars);
    QVERIFY(newbars.isEmpty());
    QVERIFY(WriteLines(PagePath(QStringLiteral("mlist.txt")),
                       RealPageLines("2001-10-31", QStringLiteral("mlist.txt"))));

    const QStringList week = lines({"aarg", "dismix", "harmless", "lemuria", "w8n"});
    for (int save = 0; save < 2; ++save) {
        newbars.clear();
        report.clear();
        ReportMixmasterChanges(RealPageLines("2001-11-07", QStringLiteral("mlist.txt")), report,
                               true, newbars);
        QVERIFY(AppendNewlyBarred(newbars));
        // The week's five new remailers join once, in sorted order; a
        // second save of the same names repeats none.
        QCOMPARE(ReadLines(BarredList::path()), week);
    }
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

void TestBarredList::emptyNewbarsIsAProgrammingError() {
    TempEnvironment env;
    QVERIFY(env.isValid());
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QString::fromLatin1(EmptyNewbarsChild), QStringLiteral("1"));
    child.setProcessEnvironment(environment);
    child.start(QCoreApplication::applicationFilePath(), {});
    QVERIFY(child.waitForFinished(30000));
    QCOMPARE(child.exitStatus(), QProcess::CrashExit);
    const QByteArray stderrText = child.readAllStandardError();
    QVERIFY2(stderrText.contains(
                 "Assertion failed: newbars != NULL && newbars->Count > 0, file stats\\StatsWins4"),
             stderrText.constData());
    QVERIFY(!QFileInfo::exists(BarredList::path()));
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

void TestBarredList::sharedCopyStaysUnfiltered_data() {
    QTest::addColumn<QString>("pageName");
    QTest::newRow("mlist.txt: a row deleted") << "mlist.txt";
    QTest::newRow("rlist.txt: a row deleted, a remailer made middle") << "rlist.txt";
    QTest::newRow("pubring.mix: a key made middleman") << "pubring.mix";
}

// The page set keeps a page's lines unfiltered beside the filtered page, the
// two lists sharing their data until one changes: the filter must change
// its own list only.
void TestBarredList::sharedCopyStaysUnfiltered() {
    QFETCH(QString, pageName);
    const BarredList list(lines({"dizum", "aarg,last"}));
    QStringList page = RealPageLines("2001-11-07", pageName);
    const QStringList unfiltered = page;
    // Read apart, so that it shares nothing with the two above.
    const QStringList original = RealPageLines("2001-11-07", pageName);
    QVERIFY(ApplyBarredList(page, pageName, list));
    QVERIFY(page != original);
    QCOMPARE(unfiltered, original);
}

int main(int argc, char** argv) {
    // The child of emptyNewbarsIsAProgrammingError: it must stop right here.
    if (qEnvironmentVariableIsSet(EmptyNewbarsChild)) {
        AppendNewlyBarred({});
        return 0;
    }
    QCoreApplication app(argc, argv);
    TestBarredList test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_barredlist.moc"
