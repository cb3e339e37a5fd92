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
    void encryptedDataFileWritesNothing_data();
    void encryptedDataFileWritesNothing();
    void dateRecordedInDataFile_data();
    void dateRecordedInDataFile();
    void withoutDataFileListStillWritten();
    void dateNotRecordedIsReported();
    void type2ListWriteFailureNamesFile();

    void mergeNymserverKeys_data();
    void mergeNymserverKeys();
    void mergeTakesNymserverFromProgramFolder();
    void mergeWriteFailureNamesFile();

    void commandLines_data();
    void commandLines();
    void commandLinesFromEnvironment();
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

    QTest::newRow("version 2.9b33 kept") << QStringList{Header29} << QStringList{Header29};
    QTest::newRow("version 3 dropped") << QStringList{v3} << QStringList();
    QTest::newRow("no at sign dropped") << QStringList{noAt} << QStringList();
    // Two blanks leave field 1 empty; field 3 is then the key id.
    QTest::newRow("two blanks dropped")
        << QStringList{QStringLiteral(
               "aarg  remailer@aarg.net 475f3f9fe8da22896c10082695a92c2d 2.9b33 C")}
        << QStringList();
    // Even with a version in field 3, an empty field 1 drops the line.
    QTest::newRow("two blanks, version in field 3 dropped")
        << QStringList{QStringLiteral("aarg  remailer@aarg.net 2.9b33 C")} << QStringList();
    QTest::newRow("key block lines dropped")
        << QStringList(std::begin(keyBlock), std::end(keyBlock)) << QStringList();
    QTest::newRow("at sign outside field 1 dropped")
        << QStringList{QStringLiteral("remailer@aarg.net aarg 475f3f9f 2.9b33 C")} << QStringList();
    QTest::newRow("no capabilities, version to the end kept")
        << QStringList{QStringLiteral(
               "duckspit remailer@duck-spit.exic.com 8eb1f6e20c3f47bc9384d5fe193fee91 2.0.3")}
        << QStringList{QStringLiteral(
               "duckspit remailer@duck-spit.exic.com 8eb1f6e20c3f47bc9384d5fe193fee91 2.0.3")};
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
    QTest::newRow("nothing kept") << QStringList(std::begin(keyBlock), std::end(keyBlock))
                                  << QStringList();
    QTest::newRow("empty keyring") << QStringList() << QStringList();
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

void TestKeyringUpdate::encryptedDataFileWritesNothing_data() {
    QTest::addColumn<bool>("listExists");
    QTest::newRow("old list kept") << true;
    QTest::newRow("no list made") << false;
}

void TestKeyringUpdate::encryptedDataFileWritesNothing() {
    QFETCH(bool, listExists);
    TempEnvironment::writeFile(program("VK.pgp"), "-----BEGIN PGP MESSAGE-----\n");
    if (listExists)
        TempEnvironment::writeFile(mix("type2.list"), "old list\r\n");

    TestFrontEnd ui;
    const KeyringResult result = MakeType2List(&ui, {Header29}, QStringLiteral("t"));
    QCOMPARE(result.status, KeyringResult::Encrypted);
    QVERIFY(!result.failed());
    QCOMPARE(ui.messages.size(), 1);
    QCOMPARE(ui.messages.first().type, Information);
    QVERIFY(ui.messages.first().text.contains(QStringLiteral("is encrypted")));
    QCOMPARE(QFileInfo::exists(mix("type2.list")), listExists);
    if (listExists)
        QCOMPARE(TempEnvironment::readFile(mix("type2.list")), QByteArray("old list\r\n"));
}

void TestKeyringUpdate::dateRecordedInDataFile_data() {
    QTest::addColumn<int>("version");
    QTest::newRow("format 1") << 1;
    QTest::newRow("format 2") << 2;
}

void TestKeyringUpdate::dateRecordedInDataFile() {
    QFETCH(int, version);
    const QString path = program("vk.dbc");
    QString error;
    QVERIFY2(TVKDB::create(path, version, &error), qPrintable(error));
    TestFrontEnd ui;
    QVERIFY(OpenSuiteDataFile(&ui));
    TheSuiteDataFile()->database->writeValue(QStringLiteral("type2.list"), QStringLiteral("old"));

    const QString when = QStringLiteral("Tue, 20 Aug 2002 14:05:00");
    QCOMPARE(MakeType2List(&ui, {Header29}, when).status, KeyringResult::Written);
    CloseSuiteDataFile();

    // Read back through a fresh connection: the date is in the file itself.
    std::unique_ptr<TVKDB> reread;
    if (version == 1)
        reread = std::make_unique<TVKDB1>(path);
    else
        reread = std::make_unique<TVKDB2>(path);
    QCOMPARE(reread->error(), 0);
    QCOMPARE(reread->readValue(QStringLiteral("type2.list")), when);
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

void TestKeyringUpdate::type2ListWriteFailureNamesFile() {
    QVERIFY(QDir(m_env->mixFolder()).removeRecursively());
    TestFrontEnd ui;
    const KeyringResult result = MakeType2List(&ui, {Header29}, QStringLiteral("t"));
    QCOMPARE(result.status, KeyringResult::Failed);
    QVERIFY(result.failed());
    QVERIFY2(result.error.contains(mix("type2.list")), qPrintable(result.error));
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
    QTest::newRow("three runs, three copies") << ring << keys << 3 << ring + keys + keys + keys;
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

void TestKeyringUpdate::mergeWriteFailureNamesFile() {
    TempEnvironment::writeFile(program("nymserver.asc"), "-----BEGIN PGP PUBLIC\n");
    QVERIFY(QDir(m_env->mixFolder()).removeRecursively());
    const KeyringResult result = MergeNymserverKeys();
    QCOMPARE(result.status, KeyringResult::Failed);
    QVERIFY2(result.error.contains(mix("pubring.asc")), qPrintable(result.error));
}

void TestKeyringUpdate::commandLines_data() {
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("programFolder");
    QTest::addColumn<QString>("mixDir");
    QTest::addColumn<QString>("nymPath");
    QTest::addColumn<QString>("expected");

    QTest::newRow("Mixmaster") << "mix"
                               << "/opt/vk/"
                               << "/home/u/.Mix/" << QString()
                               << R"(/opt/vk/vkmixkeys "/home/u/.Mix/pubring.mix")";
    QTest::newRow("Cypherpunk")
        << "cpk"
        << "/opt/vk/"
        << "/home/u/.Mix/" << QString()
        << R"(/opt/vk/vkpgpkeys "/home/u/.Mix/pubring.asc" "/home/u/.Mix/rlist.txt")";
    // The nymserver line runs its second part into the first, as the tool
    // has always been given it.
    QTest::newRow("Nymserver")
        << "nym"
        << "/opt/vk/"
        << "/home/u/.Mix/"
        << "/opt/vk/nymserver.asc"
        << R"(/opt/vk/vkpgpkeys "/opt/vk/nymserver.asc"/home/u/.Mix//opt/vk/nymserver.asc")";
    QTest::newRow("Mixmaster, blanks in folders")
        << "mix"
        << "/home/a b/vk/"
        << "/home/a b/Mix dir/" << QString()
        << R"(/home/a b/vk/vkmixkeys "/home/a b/Mix dir/pubring.mix")";
    QTest::newRow("Cypherpunk, blanks in folders")
        << "cpk"
        << "/home/a b/vk/"
        << "/home/a b/Mix dir/" << QString()
        << R"(/home/a b/vk/vkpgpkeys "/home/a b/Mix dir/pubring.asc" "/home/a b/Mix dir/rlist.txt")";
    QTest::newRow("Nymserver, blanks in folders")
        << "nym"
        << "/home/a b/vk/"
        << "/m/"
        << "/home/a b/vk/nymserver.asc"
        << R"(/home/a b/vk/vkpgpkeys "/home/a b/vk/nymserver.asc"/m//home/a b/vk/nymserver.asc")";
}

void TestKeyringUpdate::commandLines() {
    QFETCH(QString, command);
    QFETCH(QString, programFolder);
    QFETCH(QString, mixDir);
    QFETCH(QString, nymPath);
    QFETCH(QString, expected);

    QString line;
    if (command == "mix")
        line = MixmasterKeyringCommand(programFolder, mixDir);
    else if (command == "cpk")
        line = CypherpunkKeyringCommand(programFolder, mixDir);
    else
        line = NymserverKeysCommand(programFolder, mixDir, nymPath);
    QCOMPARE(line, expected);
}

// The handlers pass the program folder, the Mixmaster folder and
// PagePath("nymserver.asc"); with the test's folders that gives these lines.
void TestKeyringUpdate::commandLinesFromEnvironment() {
    const QString p = m_env->programFolder();
    const QString m = m_env->mixFolder();
    QCOMPARE(ProgramFolder(), p);
    QCOMPARE(GetMixmasterDir(), m);
    QCOMPARE(NymserverKeysCommand(ProgramFolder(), GetMixmasterDir(),
                                  PagePath(QStringLiteral("nymserver.asc"))),
             p + "vkpgpkeys \"" + p + "nymserver.asc\"" + m + p + "nymserver.asc\"");
    QCOMPARE(MixmasterKeyringCommand(ProgramFolder(), GetMixmasterDir()),
             p + "vkmixkeys \"" + m + "pubring.mix\"");
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
    QTest::newRow("pubring.asc") << QStringList{"pubring.asc"} << QStringList() << false << true
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

    const QStringList mixNym{"mlist.txt", "nymserver.asc"};
    const QList<bool> none;

    QTest::newRow("four entries pass unasked")
        << QStringList{"nymserver.asc", "advisory.txt", "mlist.txt", "rlist.txt"} << "Frog"
        << "Dizum" << false << none << false << QString() << none << true
        << QStringList{"nymserver.asc", "advisory.txt", "mlist.txt", "rlist.txt"};
    QTest::newRow("same source passes unasked")
        << mixNym << "Frog"
        << "Frog" << false << none << false << QString() << none << true << mixNym;
    QTest::newRow("changed source, Ok")
        << mixNym << "Frog"
        << "Dizum" << true << none << true << " New stats source detected {Frog->Dizum}"
        << QList<bool>{true, false, false, false} << true << QStringList{"mlist.txt"};
    QTest::newRow("changed source, Cancel")
        << mixNym << "Frog"
        << "Dizum" << false << none << true << " New stats source detected {Frog->Dizum}"
        << QList<bool>{true, false, false, false} << false << QStringList{"mlist.txt"};
    QTest::newRow("source names compare with case")
        << mixNym << "frog"
        << "Frog" << true << none << true << " New stats source detected {frog->Frog}"
        << QList<bool>{true, false, false, false} << true << QStringList{"mlist.txt"};
    QTest::newRow("all ticked, Ok")
        << mixNym << "A"
        << "B" << true << QList<bool>{true, true, true, true} << true
        << " New stats source detected {A->B}" << QList<bool>{true, false, false, false} << true
        << QStringList{"mlist.txt", "pubring.mix", "rlist.txt", "pubring.asc"};
    QTest::newRow("ticks changed, Cancel")
        << mixNym << "A"
        << "B" << false << QList<bool>{false, true, false, true} << true
        << " New stats source detected {A->B}" << QList<bool>{true, false, false, false} << false
        << QStringList{"pubring.mix", "pubring.asc"};
    QTest::newRow("refilled in the fixed order")
        << QStringList{"pubring.asc", "rlist.txt", "mlist.txt"} << "A"
        << "B" << true << none << true << " New stats source detected {A->B}"
        << QList<bool>{true, false, true, true} << true
        << QStringList{"mlist.txt", "rlist.txt", "pubring.asc"};
    QTest::newRow("five entries are asked about")
        << QStringList{"mlist.txt", "pubring.mix", "rlist.txt", "pubring.asc", "nymserver.asc"}
        << "A"
        << "B" << true << none << true << " New stats source detected {A->B}"
        << QList<bool>{true, true, true, true} << true
        << QStringList{"mlist.txt", "pubring.mix", "rlist.txt", "pubring.asc"};
    QTest::newRow("empty list") << QStringList() << "A"
                                << "B" << true << none << true
                                << " New stats source detected {A->B}"
                                << QList<bool>{false, false, false, false} << true << QStringList();
    QTest::newRow("page names compare with case")
        << QStringList{"MLIST.TXT", "Pubring.mix"} << "A"
        << "B" << true << none << true << " New stats source detected {A->B}"
        << QList<bool>{false, false, false, false} << true << QStringList();
    QTest::newRow("empty last source")
        << mixNym << QString() << "Dizum" << true << none << true
        << " New stats source detected {->Dizum}" << QList<bool>{true, false, false, false} << true
        << QStringList{"mlist.txt"};
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
        QCOMPARE(ChkAddKeysCaption(lastSource, currentSource), caption);
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
