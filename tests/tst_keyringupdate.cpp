#include "FrontEnd.h"
#include "Global2.h"
#include "KeyringUpdate.h"
#include "PagePaths.h"
#include "SuiteDatabase.h"
#include "TempEnvironment.h"
#include "TestFrontEnd.h"
#include "TextFile.h"

#include <QDir>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTest>

#include <memory>

namespace {

QString realFile(const QString& relative) {
    return QStringLiteral(VK_REALDATA "/") + relative;
}

KeyPageTicks toTicks(const QList<bool>& list) {
    KeyPageTicks ticks{};
    for (qsizetype i = 0; i < list.size() && i < qsizetype(ticks.size()); ++i)
        ticks[std::size_t(i)] = list.at(i);
    return ticks;
}

QList<bool> fromTicks(const KeyPageTicks& ticks) {
    return QList<bool>(ticks.begin(), ticks.end());
}

// A front end that answers messages and nothing else, so the new-source
// question gets FrontEnd's own answer.
class MessagesOnlyFrontEnd : public FrontEnd {
public:
    int showMessage(const QString&, MsgDlgType, int, MsgStyle) override { return IdOk; }
};

const QString Header29 =
    QStringLiteral("aarg remailer@aarg.net 475f3f9fe8da22896c10082695a92c2d 2.9b33 C");

} // namespace

class TestKeyringUpdate : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void realKeyrings_data();
    void realKeyrings();
    void type2ListLines_data();
    void type2ListLines();
    void encryptedDataFileWritesNothing();
    void dateRecordedInDataFile();
    void withoutDataFileListStillWritten();
    void dateNotRecordedIsReported();
    void writeFailureNamesFile_data();
    void writeFailureNamesFile();

    void mergeNymserverKeys_data();
    void mergeNymserverKeys();
    void mergeTakesNymserverFromProgramFolder();

    void commandLines();
    void keyringsMenu_data();
    void keyringsMenu();

    void chkAddKeys_data();
    void chkAddKeys();
    void chkAddKeysDefaultFrontEndCancels();

private:
    QString mix(const QString& name) const { return m_env->mixFolder() + name; }
    QString program(const QString& name) const { return m_env->programFolder() + name; }

    std::unique_ptr<TempEnvironment> m_env;
};

void TestKeyringUpdate::init() {
    m_env.reset(); // the old one restores the environment it found
    m_env = std::make_unique<TempEnvironment>();
    QVERIFY(m_env->isValid());
}

void TestKeyringUpdate::cleanup() {
    CloseSuiteDataFile();
}

// Keyrings as pingers published them, beside the type2.list they published
// with them. The lists were made by the pingers' own tools, not by this
// filter, so where they differ the difference is spelled out per date.
void TestKeyringUpdate::realKeyrings_data() {
    QTest::addColumn<QString>("pubring");
    QTest::addColumn<QString>("published");
    // The published list lacks this last capability letter on every line.
    QTest::addColumn<QString>("capabilitySuffix");
    // Remailers whose version in the published list is not the keyring's:
    // the list was made from an older copy of the keyring.
    QTest::addColumn<QStringList>("versionDrift");

    QTest::newRow("2001-11-07 identical") << "2001-11-07/pubring.mix"
                                          << "2001-11-07/type2.list" << QString() << QStringList();
    // This pinger's keyring flags every remailer "x", which its type2.list
    // leaves out; and randseed had moved from 2.9b35 to 2.9b37pre1 in the
    // keyring while the list still named the old version.
    QTest::newRow("2002-08-20 pinger's x flag and one newer key")
        << "2002-08-20/pubring.mix"
        << "2002-08-20/type2.list" << QStringLiteral("x")
        << QStringList{QStringLiteral("randseed")};
    // The old Mixmaster 2.0 layout, including a header line with no
    // capabilities at all (duckspit ... 2.0.3); rsn's keyring entry is
    // 2.0.4b32 while the list still says 2.0.4b27.
    QTest::newRow("2002-08-28 Mixmaster 2.0 keyring")
        << "2002-08-28/mix2.0-pubring.mix"
        << "2002-08-28/mix2.0-type2.list" << QString() << QStringList{QStringLiteral("rsn")};
}

void TestKeyringUpdate::realKeyrings() {
    QFETCH(QString, pubring);
    QFETCH(QString, published);
    QFETCH(QString, capabilitySuffix);
    QFETCH(QStringList, versionDrift);

    bool ok = false;
    const QStringList ring = ReadLines(realFile(pubring), &ok);
    QVERIFY2(ok, qPrintable(realFile(pubring)));
    const QStringList list = ReadLines(realFile(published), &ok);
    QVERIFY2(ok, qPrintable(realFile(published)));

    TestFrontEnd ui;
    const KeyringResult result = MakeType2List(&ui, ring, QStringLiteral("now"));
    QCOMPARE(result.status, KeyringResult::Written);
    QVERIFY(ui.messages.isEmpty());
    const QByteArray written = TempEnvironment::readFile(mix("type2.list"));
    const QStringList derived = BytesToLines(written);

    // One header line stands above every key block.
    QCOMPARE(derived.size(), ring.count(QStringLiteral("-----Begin Mix Key-----")));
    QCOMPARE(derived.size(), list.size());

    QStringList drifted;
    for (qsizetype i = 0; i < derived.size(); ++i) {
        const QString& mine = derived.at(i);
        const QString theirs = list.at(i) + capabilitySuffix;
        QVERIFY2(ring.contains(mine), qPrintable(mine)); // kept unchanged
        if (mine == theirs)
            continue;
        // Anything else may differ only in the version, field 3.
        const QStringList a = mine.split(u' ');
        const QStringList b = theirs.split(u' ');
        QCOMPARE(a.size(), b.size());
        for (qsizetype f = 0; f < a.size(); ++f) {
            if (f != 3)
                QCOMPARE(a.at(f), b.at(f));
        }
        QVERIFY(a.at(3) != b.at(3));
        drifted.append(a.at(0));
    }
    QCOMPARE(drifted, versionDrift);

    if (capabilitySuffix.isEmpty() && versionDrift.isEmpty())
        QCOMPARE(written, TempEnvironment::readFile(realFile(published)));
}

void TestKeyringUpdate::type2ListLines_data() {
    QTest::addColumn<QStringList>("input");
    QTest::addColumn<QStringList>("kept");

    const QString v3 =
        QStringLiteral("aarg remailer@aarg.net 475f3f9fe8da22896c10082695a92c2d 3 C");
    const QString noAt =
        QStringLiteral("aarg remailer.aarg.net 475f3f9fe8da22896c10082695a92c2d 2.9b33 C");
    const QString keyBlock[] = {
        QStringLiteral("-----Begin Mix Key-----"),
        QStringLiteral("475f3f9fe8da22896c10082695a92c2d"),
        QStringLiteral("258"),
        QStringLiteral("AAS8E3QcTDH6mePDkqL7FGx0AJSW0UHRyBRsfB5y4n8k0X2NVnqHftnw"),
        QStringLiteral("-----End Mix Key-----"),
        QString(),
    };

    QTest::newRow("version 3 dropped") << QStringList{v3} << QStringList();
    QTest::newRow("no at sign dropped") << QStringList{noAt} << QStringList();
    // Two blanks leave field 1 empty: dropped, even with a version in field 3.
    QTest::newRow("two blanks, version in field 3 dropped")
        << QStringList{QStringLiteral("aarg  remailer@aarg.net 2.9b33 C")} << QStringList();
    QTest::newRow("key block lines dropped")
        << QStringList(std::begin(keyBlock), std::end(keyBlock)) << QStringList();
    QTest::newRow("at sign outside field 1 dropped")
        << QStringList{QStringLiteral("remailer@aarg.net aarg 475f3f9f 2.9b33 C")} << QStringList();
    QTest::newRow("line kept byte for byte")
        << QStringList{QStringLiteral("caf\u00e9 r@x.org id 2.9b33 C  ")}
        << QStringList{QStringLiteral("caf\u00e9 r@x.org id 2.9b33 C  ")};
    QStringList ring{Header29};
    ring += QStringList(std::begin(keyBlock), std::end(keyBlock));
    ring += v3;
    ring += QStringList(std::begin(keyBlock), std::end(keyBlock));
    ring += QStringLiteral("zz a@b.c id 2.0.4b45 MCN");
    QTest::newRow("order kept in a ring")
        << ring << QStringList{Header29, QStringLiteral("zz a@b.c id 2.0.4b45 MCN")};
}

void TestKeyringUpdate::type2ListLines() {
    QFETCH(QStringList, input);
    QFETCH(QStringList, kept);

    QCOMPARE(Type2ListLines(input), kept);

    // The file is replaced whole, an empty result by an empty file.
    TempEnvironment::writeFile(mix("type2.list"), "stale line\n");
    TestFrontEnd ui;
    QCOMPARE(MakeType2List(&ui, input, QStringLiteral("t")).status, KeyringResult::Written);
    QVERIFY(QFileInfo::exists(mix("type2.list")));
    QCOMPARE(TempEnvironment::readFile(mix("type2.list")), LinesToBytes(kept));
}

void TestKeyringUpdate::encryptedDataFileWritesNothing() {
    TempEnvironment::writeFile(program("VK.pgp"), "-----BEGIN PGP MESSAGE-----\n");
    TempEnvironment::writeFile(mix("type2.list"), "old list\r\n");

    TestFrontEnd ui;
    const KeyringResult result = MakeType2List(&ui, {Header29}, QStringLiteral("t"));
    QCOMPARE(result.status, KeyringResult::Encrypted);
    QCOMPARE(ui.messages.size(), 1);
    QCOMPARE(ui.messages.first().type, Information);
    QVERIFY(ui.messages.first().text.contains(QStringLiteral("is encrypted")));
    QCOMPARE(TempEnvironment::readFile(mix("type2.list")), QByteArray("old list\r\n"));
}

void TestKeyringUpdate::dateRecordedInDataFile() {
    const QString path = program("vk.dbc");
    QString error;
    QVERIFY2(TVKDB::create(path, 2, &error), qPrintable(error));
    TestFrontEnd ui;
    QVERIFY(OpenSuiteDataFile(&ui));
    TheSuiteDataFile()->database->writeValue(QStringLiteral("type2.list"), QStringLiteral("old"));

    const QString when = QStringLiteral("Tue, 20 Aug 2002 14:05:00");
    QCOMPARE(MakeType2List(&ui, {Header29}, when).status, KeyringResult::Written);
    CloseSuiteDataFile();

    // Read back through a fresh connection: the date is in the file itself.
    TVKDB2 reread(path);
    QCOMPARE(reread.error(), 0);
    QCOMPARE(reread.readValue(QStringLiteral("type2.list")), when);
    QCOMPARE(TempEnvironment::readFile(mix("type2.list")), LinesToBytes({Header29}));
}

void TestKeyringUpdate::withoutDataFileListStillWritten() {
    CloseSuiteDataFile();
    QCOMPARE(TheSuiteDataFile(), nullptr);
    TestFrontEnd ui;
    const KeyringResult result = MakeType2List(&ui, {Header29}, QStringLiteral("t"));
    QCOMPARE(result.status, KeyringResult::Written);
    QVERIFY(result.error.isEmpty());
    QCOMPARE(TempEnvironment::readFile(mix("type2.list")), LinesToBytes({Header29}));
}

void TestKeyringUpdate::dateNotRecordedIsReported() {
    const QString path = program("vk.dbc");
    QString error;
    QVERIFY2(TVKDB::create(path, 2, &error), qPrintable(error));
    TestFrontEnd ui;
    QVERIFY(OpenSuiteDataFile(&ui));
    {
        // Another program spoils the file under us: the named values'
        // table goes away, so the date has nowhere to go.
        QSqlDatabase other =
            QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("spoiler"));
        other.setDatabaseName(path);
        QVERIFY(other.open());
        QSqlQuery query(other);
        QVERIFY(query.exec(QStringLiteral("DROP TABLE vk_values")));
        other.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("spoiler"));

    const KeyringResult result = MakeType2List(&ui, {Header29}, QStringLiteral("t"));
    QCOMPARE(result.status, KeyringResult::Failed);
    QVERIFY2(result.error.contains(path), qPrintable(result.error));
    QVERIFY(result.error.contains(QStringLiteral("type2.list")));
    // The list itself is still written.
    QCOMPARE(TempEnvironment::readFile(mix("type2.list")), LinesToBytes({Header29}));
}

void TestKeyringUpdate::writeFailureNamesFile_data() {
    QTest::addColumn<bool>("merge");
    QTest::newRow("type2.list") << false;
    QTest::newRow("pubring.asc") << true;
}

// The Mixmaster folder is gone, so neither keyring file can be written.
void TestKeyringUpdate::writeFailureNamesFile() {
    QFETCH(bool, merge);
    TempEnvironment::writeFile(program("nymserver.asc"), "-----BEGIN PGP PUBLIC\n");
    QVERIFY(QDir(m_env->mixFolder()).removeRecursively());
    TestFrontEnd ui;
    const KeyringResult result =
        merge ? MergeNymserverKeys() : MakeType2List(&ui, {Header29}, QStringLiteral("t"));
    QCOMPARE(result.status, KeyringResult::Failed);
    QVERIFY(result.failed());
    const QString file = mix(merge ? "pubring.asc" : "type2.list");
    QVERIFY2(result.error.contains(file), qPrintable(result.error));
}

void TestKeyringUpdate::mergeNymserverKeys_data() {
    QTest::addColumn<QByteArray>("ring"); // null: no pubring.asc
    QTest::addColumn<QByteArray>("nym");  // null: no nymserver.asc
    QTest::addColumn<int>("runs");
    QTest::addColumn<QByteArray>("expected");

    const QByteArray ring = "-----BEGIN PGP PUBLIC KEY BLOCK-----\nremailer key\n"
                            "-----END PGP PUBLIC KEY BLOCK-----\n";
    const QByteArray keys = "-----BEGIN PGP PUBLIC KEY BLOCK-----\nnym key\n"
                            "-----END PGP PUBLIC KEY BLOCK-----\n";
    const QByteArray preamble = "Nymserver keys as of today\r\n\r\n";

    QTest::newRow("keys appended after their preamble")
        << ring << preamble + keys << 1 << ring + keys;
    QTest::newRow("twice gives the keys twice")
        << ring << preamble + keys << 2 << ring + keys + keys;
    // The ring is rewritten all the same: its CR LF and missing last line
    // end come back as the platform's line ends.
    QTest::newRow("no BEGIN line adds nothing, still rewrites")
        << QByteArray("ring line 1\r\nring line 2") << QByteArray("no keys here\r\n") << 1
        << QByteArray("ring line 1\nring line 2\n");
    QTest::newRow("BEGIN is case-sensitive")
        << ring << QByteArray("-----begin pgp public key block-----\nx\n") << 1 << ring;
    QTest::newRow("BEGIN anywhere in the line")
        << ring << QByteArray("intro\n  -----BEGIN PGP PUBLIC KEY BLOCK-----\nk\n") << 1
        << ring + "  -----BEGIN PGP PUBLIC KEY BLOCK-----\nk\n";
    QTest::newRow("text between keys kept")
        << ring << QByteArray("intro\n") + keys + "between\n" + keys << 1
        << ring + keys + "between\n" + keys;
    QTest::newRow("missing pubring.asc") << QByteArray() << preamble + keys << 1 << keys;
    QTest::newRow("missing nymserver.asc")
        << QByteArray("a\r\nb\r\n") << QByteArray() << 1 << QByteArray("a\nb\n");
    QTest::newRow("both missing: an empty pubring.asc")
        << QByteArray() << QByteArray() << 1 << QByteArray("");
}

void TestKeyringUpdate::mergeNymserverKeys() {
    QFETCH(QByteArray, ring);
    QFETCH(QByteArray, nym);
    QFETCH(int, runs);
    QFETCH(QByteArray, expected);

    if (!ring.isNull())
        TempEnvironment::writeFile(mix("pubring.asc"), ring);
    if (!nym.isNull())
        TempEnvironment::writeFile(program("nymserver.asc"), nym);
    for (int run = 0; run < runs; ++run) {
        const KeyringResult result = MergeNymserverKeys();
        QVERIFY2(!result.failed(), qPrintable(result.error));
        QCOMPARE(result.status, KeyringResult::Written);
    }
    QVERIFY(QFileInfo::exists(mix("pubring.asc")));
    QCOMPARE(TempEnvironment::readFile(mix("pubring.asc")), expected);
    // nymserver.asc itself is left alone.
    QCOMPARE(QFileInfo::exists(program("nymserver.asc")), !nym.isNull());
    if (!nym.isNull())
        QCOMPARE(TempEnvironment::readFile(program("nymserver.asc")), nym);
}

void TestKeyringUpdate::mergeTakesNymserverFromProgramFolder() {
    TempEnvironment::writeFile(mix("pubring.asc"), "ring\n");
    TempEnvironment::writeFile(mix("nymserver.asc"), "-----BEGIN PGP PUBLIC wrong folder\n");
    TempEnvironment::writeFile(program("nymserver.asc"), "-----BEGIN PGP PUBLIC right folder\n");
    QVERIFY(!MergeNymserverKeys().failed());
    QCOMPARE(TempEnvironment::readFile(mix("pubring.asc")),
             QByteArray("ring\n-----BEGIN PGP PUBLIC right folder\n"));
}

void TestKeyringUpdate::commandLines() {
    QCOMPARE(MixmasterKeyringCommand("/opt/vk/", "/home/u/.Mix/"),
             R"(/opt/vk/vkmixkeys "/home/u/.Mix/pubring.mix")");
    QCOMPARE(
        CypherpunkKeyringCommand("/home/a b/vk/", "/home/a b/Mix dir/"),
        R"(/home/a b/vk/vkpgpkeys "/home/a b/Mix dir/pubring.asc" "/home/a b/Mix dir/rlist.txt")");
    // The nymserver line runs its second part into the first, as the tool
    // has always been given it.
    QCOMPARE(NymserverKeysCommand("/opt/vk/", "/home/u/.Mix/", "/opt/vk/nymserver.asc"),
             R"(/opt/vk/vkpgpkeys "/opt/vk/nymserver.asc"/home/u/.Mix//opt/vk/nymserver.asc")");
    // The handlers pass PagePath("nymserver.asc"): the program folder's copy.
    const QString p = m_env->programFolder();
    QCOMPARE(NymserverKeysCommand(ProgramFolder(), GetMixmasterDir(),
                                  PagePath(QStringLiteral("nymserver.asc"))),
             p + "vkpgpkeys \"" + p + "nymserver.asc\"" + m_env->mixFolder() + p +
                 "nymserver.asc\"");
}

void TestKeyringUpdate::keyringsMenu_data() {
    QTest::addColumn<QStringList>("mixFiles");
    QTest::addColumn<QStringList>("programFiles");
    QTest::addColumn<bool>("mixmaster");
    QTest::addColumn<bool>("cypherpunk");
    QTest::addColumn<bool>("nymservers");

    QTest::newRow("nothing") << QStringList() << QStringList() << false << false << false;
    QTest::newRow("pubring.mix") << QStringList{"pubring.mix"} << QStringList() << true << false
                                 << false;
    QTest::newRow("nymserver.asc")
        << QStringList() << QStringList{"nymserver.asc"} << false << false << true;
    QTest::newRow("all three") << QStringList{"pubring.mix", "pubring.asc"}
                               << QStringList{"nymserver.asc"} << true << true << true;
    // Each file counts only where its page lives.
    QTest::newRow("wrong folders")
        << QStringList{"nymserver.asc"} << QStringList{"pubring.mix", "pubring.asc"} << false
        << false << false;
    // The names compare exactly.
    QTest::newRow("other case") << QStringList{"PUBRING.MIX", "Pubring.asc"} << QStringList()
                                << false << false << false;
    // A folder of that name is no keyring for the tool to open.
    QTest::newRow("folders, not files")
        << QStringList{"pubring.mix/"} << QStringList{"nymserver.asc/"} << false << false << false;
}

void TestKeyringUpdate::keyringsMenu() {
    QFETCH(QStringList, mixFiles);
    QFETCH(QStringList, programFiles);
    QFETCH(bool, mixmaster);
    QFETCH(bool, cypherpunk);
    QFETCH(bool, nymservers);

    const auto make = [](const QString& folder, const QStringList& names) {
        for (const QString& name : names) {
            if (name.endsWith(u'/'))
                QDir().mkpath(folder + name);
            else
                TempEnvironment::writeFile(folder + name, "x\n");
        }
    };
    make(m_env->mixFolder(), mixFiles);
    make(m_env->programFolder(), programFiles);

    const KeyringMenuState state = KeyringsMenuState();
    QCOMPARE(state.mixmaster, mixmaster);
    QCOMPARE(state.cypherpunk, cypherpunk);
    QCOMPARE(state.nymservers, nymservers);
}

void TestKeyringUpdate::chkAddKeys_data() {
    QTest::addColumn<QStringList>("pages");
    QTest::addColumn<QString>("lastSource");
    QTest::addColumn<QString>("currentSource");
    QTest::addColumn<bool>("answerOk");
    QTest::addColumn<QList<bool>>("answerTicks"); // empty: boxes left as shown
    QTest::addColumn<bool>("asked");
    QTest::addColumn<QString>("caption");
    QTest::addColumn<QList<bool>>("shownTicks");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QStringList>("pagesAfter");

    const auto unasked = [](const char* tag, const QStringList& pages, const char* last,
                            const char* current) {
        QTest::newRow(tag) << pages << last << current << false << QList<bool>() << false
                           << QString() << QList<bool>() << true << pages;
    };
    // The question's answer is also the result.
    const auto asked = [](const char* tag, const QStringList& pages, const QString& last,
                          const QString& current, bool ok, const QList<bool>& answerTicks,
                          const QList<bool>& shownTicks, const QStringList& pagesAfter) {
        QTest::newRow(tag)
            << pages << last << current << ok << answerTicks << true
            << QStringLiteral(" New stats source detected {%1->%2}").arg(last, current)
            << shownTicks << ok << pagesAfter;
    };
    const QStringList mixNym{"mlist.txt", "nymserver.asc"};
    const QStringList four{"mlist.txt", "pubring.mix", "rlist.txt", "pubring.asc"};
    const QList<bool> none;

    unasked("four entries pass unasked",
            {"nymserver.asc", "advisory.txt", "mlist.txt", "rlist.txt"}, "Frog", "Dizum");
    unasked("same source passes unasked", mixNym, "Frog", "Frog");
    asked("changed source, Ok", mixNym, "Frog", "Dizum", true, none, {true, false, false, false},
          {"mlist.txt"});
    asked("source names compare with case", mixNym, "frog", "Frog", true, none,
          {true, false, false, false}, {"mlist.txt"});
    asked("all ticked, Ok", mixNym, "A", "B", true, {true, true, true, true},
          {true, false, false, false}, four);
    asked("ticks changed, Cancel", mixNym, "A", "B", false, {false, true, false, true},
          {true, false, false, false}, {"pubring.mix", "pubring.asc"});
    asked("refilled in the fixed order", {"pubring.asc", "rlist.txt", "mlist.txt"}, "A", "B", true,
          none, {true, false, true, true}, {"mlist.txt", "rlist.txt", "pubring.asc"});
    asked("five entries are asked about", four + QStringList{"nymserver.asc"}, "A", "B", true, none,
          {true, true, true, true}, four);
    asked("page names compare with case", {"MLIST.TXT", "Pubring.mix"}, "A", "B", true, none,
          {false, false, false, false}, {});
}

void TestKeyringUpdate::chkAddKeys() {
    QFETCH(QStringList, pages);
    QFETCH(QString, lastSource);
    QFETCH(QString, currentSource);
    QFETCH(bool, answerOk);
    QFETCH(QList<bool>, answerTicks);
    QFETCH(bool, asked);
    QFETCH(QString, caption);
    QFETCH(QList<bool>, shownTicks);
    QFETCH(bool, result);
    QFETCH(QStringList, pagesAfter);

    TestFrontEnd ui;
    TestFrontEnd::AddKeysAnswer answer;
    answer.ok = answerOk;
    if (!answerTicks.isEmpty())
        answer.ticks = toTicks(answerTicks);
    ui.addKeysAnswers = {answer};

    QCOMPARE(ChkAddKeys(&ui, pages, lastSource, currentSource), result);
    QCOMPARE(pages, pagesAfter);
    QCOMPARE(ui.addKeysQuestions.size(), asked ? 1 : 0);
    if (asked) {
        QCOMPARE(ui.addKeysQuestions.first().caption, caption);
        QCOMPARE(fromTicks(ui.addKeysQuestions.first().ticks), shownTicks);
    }
    QVERIFY(ui.messages.isEmpty());
}

// With nobody to ask, the question counts as cancelled: the update stops and
// the list keeps only the key pages it had.
void TestKeyringUpdate::chkAddKeysDefaultFrontEndCancels() {
    MessagesOnlyFrontEnd ui;
    QStringList pages{"nymserver.asc", "rlist.txt", "advisory.txt"};
    QVERIFY(!ChkAddKeys(&ui, pages, QStringLiteral("A"), QStringLiteral("B")));
    QCOMPARE(pages, QStringList{"rlist.txt"});
}

QTEST_GUILESS_MAIN(TestKeyringUpdate)
#include "tst_keyringupdate.moc"
