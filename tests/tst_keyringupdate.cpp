#include "FrontEnd.h"
#include "Global2.h"
#include "KeyringUpdate.h"
#include "PagePaths.h"
#include "SuiteDatabase.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TestFrontEnd.h"
#include "TextFile.h"

#include <QDir>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTest>

#include <memory>

namespace {

// Ticks written as "1010".
KeyPageTicks toTicks(const QString& text) {
    KeyPageTicks ticks{};
    for (std::size_t i = 0; i < ticks.size() && qsizetype(i) < text.size(); ++i)
        ticks[i] = text.at(qsizetype(i)) == u'1';
    return ticks;
}

QString fromTicks(const KeyPageTicks& ticks) {
    QString text;
    for (const bool tick : ticks)
        text += tick ? u'1' : u'0';
    return text;
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

    void cases_data() { AddTableRows(QStringLiteral("keyring.txt")); }
    void cases();
    void encryptedDataFileWritesNothing();
    void withoutDataFileListStillWritten();
    void dateNotRecordedIsReported();
    void writeFailureNamesFile_data();
    void writeFailureNamesFile();

    void mergeTakesNymserverFromProgramFolder();

    void commandLines();

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

QStringList list(const QString& field) {
    return field == u'-' ? QStringList() : field.split(u'|');
}

void TestKeyringUpdate::cases() {
    QFETCH(QStringList, f);
    TestFrontEnd ui;
    if (f[0] == "type2") {
        QCOMPARE(Type2ListLines(list(f[1])), list(f[2]));
        // The file is replaced whole, an empty result by an empty file.
        TempEnvironment::writeFile(mix("type2.list"), "stale line\n");
        QCOMPARE(MakeType2List(&ui, list(f[1]), QStringLiteral("t")).status,
                 KeyringResult::Written);
        QCOMPARE(TempEnvironment::readFile(mix("type2.list")), LinesToBytes(list(f[2])));
    } else if (f[0] == "merge") {
        if (f[1] != "<none>")
            TempEnvironment::writeFile(mix("pubring.asc"), f[1].toLatin1());
        if (f[2] != "<none>")
            TempEnvironment::writeFile(program("nymserver.asc"), f[2].toLatin1());
        for (int run = 0; run < f[3].toInt(); ++run) {
            const KeyringResult result = MergeNymserverKeys();
            QVERIFY2(!result.failed(), qPrintable(result.error));
            QCOMPARE(result.status, KeyringResult::Written);
        }
        QVERIFY(QFileInfo::exists(mix("pubring.asc")));
        QCOMPARE(TempEnvironment::readFile(mix("pubring.asc")), f[4].toLatin1());
        // nymserver.asc itself is left alone.
        if (f[2] != "<none>")
            QCOMPARE(TempEnvironment::readFile(program("nymserver.asc")), f[2].toLatin1());
    } else if (f[0] == "menu") {
        for (const QString& folder : {m_env->mixFolder(), m_env->programFolder()}) {
            for (const QString& name : list(f[folder == m_env->mixFolder() ? 1 : 2])) {
                if (name.endsWith(u'/'))
                    QDir().mkpath(folder + name);
                else
                    TempEnvironment::writeFile(folder + name, "x\n");
            }
        }
        const KeyringMenuState state = KeyringsMenuState();
        QCOMPARE(QString::number(state.mixmaster) + QString::number(state.cypherpunk) +
                     QString::number(state.nymservers),
                 f[3]);
    } else if (f[0] == "addkeys") {
        TestFrontEnd::AddKeysAnswer answer;
        answer.ok = f[4].startsWith(u'1');
        if (f[4].section(u' ', 1) != u'-')
            answer.ticks = toTicks(f[4].section(u' ', 1));
        ui.addKeysAnswers = {answer};
        QStringList pages = list(f[1]);
        QCOMPARE(ChkAddKeys(&ui, pages, f[2], f[3]), f[6] == u'1');
        QCOMPARE(pages, list(f[7]));
        QCOMPARE(ui.addKeysQuestions.size(), f[5] == u'-' ? 0 : 1);
        if (f[5] != u'-') {
            QCOMPARE(ui.addKeysQuestions.first().caption,
                     QStringLiteral(" New stats source detected {%1->%2}").arg(f[2], f[3]));
            QCOMPARE(fromTicks(ui.addKeysQuestions.first().ticks), f[5]);
        }
    } else {
        QFAIL("unknown case kind");
    }
    QVERIFY(ui.messages.isEmpty());
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
