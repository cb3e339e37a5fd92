#include "Global2.h"
#include "HttpGet.h"
#include "IniFile.h"
#include "KeyringUpdate.h"
#include "PagePaths.h"
#include "ProxySelection.h"
#include "StatsController.h"
#include "StatsSources.h"
#include "SuiteDatabase.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TestFrontEnd.h"
#include "TestPinger.h"
#include "TextFile.h"

#include <QDir>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTest>
#include <QTimer>

#include <memory>

// What the window's controller decides (the command line, closing, the
// sources), the proxy choice and the keyring rules, each with the user's
// answers played by the test front end. Runs through the built program are
// the scenario folders' work.

namespace {

const QString Gone = QStringLiteral("The proxy you have been using for stats     \nretrieval--");

class RaisingFrontEnd : public TestFrontEnd {
public:
    void bringToFront() override {
        raisedBeforeMessages = messages.size();
        ++raised;
    }
    int raised = 0;
    qsizetype raisedBeforeMessages = -1;
};

QStringList list(const QString& field) {
    return field == u'-' ? QStringList() : field.split(u'|');
}

QList<int> answersOf(const QString& field) {
    static const QHash<QString, int> ids = {
        {"ok", IdOk}, {"yes", IdYes}, {"no", IdNo}, {"cancel", IdCancel}};
    QList<int> answers;
    for (const QString& word : list(field))
        answers << ids.value(word);
    return answers;
}

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

} // namespace

class TestController : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void commandLine_data() { AddTableRows(QStringLiteral("commandline.txt")); }
    void commandLine() { cases(); }
    void controller_data() { AddTableRows(QStringLiteral("controller.txt")); }
    void controller() { cases(); }
    void keyring_data() { AddTableRows(QStringLiteral("keyring.txt")); }
    void keyring() { cases(); }
    void startUpReadsFolder();
    void nothingMarked();
    void defaultSourceUpdate();
    void closeRefusedWhileRunning();
    void closeAppliesEditedBarredList_data();
    void closeAppliesEditedBarredList();
    void proxyRecheckKeepsOrWarns();
    void proxyEncryptedDataFileChangesNothing();
    void proxyUnusableRecordBlocksDownloads();
    void keyToolCommandLines();
    void chkAddKeysDefaultFrontEndCancels();

private:
    void cases();
    void closeCase(const QStringList& f);
    void proxyCase(const QStringList& f);
    void keyringCase(const QStringList& f);
    void standardUrls();
    void addProxy(const QString& name, bool hidden = false);
    void openDataFile() { QVERIFY(OpenSuiteDataFile(m_ui.get())); }
    std::unique_ptr<TempEnvironment> m_env;
    std::unique_ptr<TestPinger> m_pinger;
    std::unique_ptr<RaisingFrontEnd> m_ui;
    std::unique_ptr<StatsController> m_controller;
};

void TestController::init() {
    m_env.reset(); // the old one restores the environment it found
    m_env = std::make_unique<TempEnvironment>();
    m_ui = std::make_unique<RaisingFrontEnd>();
    m_pinger = std::make_unique<TestPinger>();
    QVERIFY(m_pinger->listen());
    QCOMPARE(CreateDataFile(m_env->programFolder()), QString());
    m_controller = std::make_unique<StatsController>(m_ui.get(), [](int, int) {});
    IniFile ini(IniFileName());
    ini.writeInteger("stats", "timeoutseconds", 2);
    ini.writeString("stats", "pages", ""); // each test ticks its own
}

void TestController::cleanup() {
    m_controller.reset();
    m_pinger.reset();
    CloseSuiteDataFile();
}

// Two sources in one: "[first]" and "[second]" both point at the test
// pinger, under different paths.
void TestController::standardUrls() {
    QStringList lines = {"velkin urls"};
    for (const QString source : {"first", "second"}) {
        lines << '[' + source + ']';
        for (const QString& page : StatsPages) {
            lines << page + ' ' + m_pinger->url('/' + source + '/' + page);
            m_pinger->serve('/' + source + '/' + page, RealPage("2001-11-07", page));
        }
        lines << "";
    }
    QVERIFY(WriteLines(m_env->programFolder() + "urls.txt", lines << "[velkin]"));
}

void TestController::addProxy(const QString& name, bool hidden) {
    ProxyEntry entry;
    entry.name = name;
    entry.kind = "socks5";
    entry.hidden = hidden;
    entry.host = "127.0.0.1";
    entry.port = 9050;
    entry.user = "stream-" + name;
    entry.password = "pw";
    QVERIFY(TheSuiteDataFile()->database->addProxy(entry));
}

void TestController::cases() {
    QFETCH(QStringList, f);
    if (f[0] == "parse") {
        const CommandLine line = ParseCommandLine(list(f[1].isEmpty() ? "-" : f[1]));
        QCOMPARE(QStringList({QString::number(line.versionQuery), QString::number(line.autoMode),
                              QString::number(line.hideMode)}),
                 f.mid(2, 3));
        QCOMPARE(line.commandLinePages ? line.commandLinePages->join(u',') : "-", f[5]);
    } else if (f[0] == "close") {
        closeCase(f);
    } else if (f[0] == "offered" || f[0] == "restore") {
        proxyCase(f);
    } else {
        keyringCase(f);
    }
}

void TestController::closeCase(const QStringList& f) {
    const bool unsaved = f[1] == u'1';
    const bool closes = f[5] == u'1';
    const QList<int> answers = answersOf(f[4]);
    standardUrls();
    QCOMPARE(m_controller->startUp({}), StartResult::Ready);
    m_controller->setLastSource("first");
    m_controller->setCurrentSource(0);
    if (unsaved) {
        m_controller->setTicked("mlist.txt", true);
        m_controller->fileUpdate();
        QVERIFY(m_controller->saveEnabled());
    }
    m_controller->setLastSource(f[2]);
    m_controller->setCurrentSource(f[3].toInt());
    m_ui->messages.clear();
    m_ui->answers = answers;

    QCOMPARE(m_controller->closeQuery("0,0,10,20,600,400"), closes);
    QStringList asked;
    if (unsaved)
        asked << "Your remailer pages are not saved. Save them now?     ";
    if (f[3].toInt() != (f[2] == "second") && (!unsaved || answers[0] != IdCancel))
        asked << "Your stats source has been changed. Do you wish to keep the current source?     ";
    QCOMPARE(m_ui->messageTexts(), asked);
    QCOMPARE(QFileInfo::exists(m_env->mixFolder() + "mlist.txt"), f[6] == u'1');
    QCOMPARE(m_controller->lastSource(), f[7]);
    // Keeping a source records it; urls.txt keeps its order.
    QCOMPARE(StatsSourceList(m_env->programFolder() + "urls.txt", nullptr).defaultSource(),
             QStringLiteral("first"));
    // Settings are written only when the close goes ahead.
    const IniFile ini(IniFileName());
    QCOMPARE(ini.readString("stats", "window", ""), closes ? "0,0,10,20,600,400" : "");
    QCOMPARE(ini.readString("stats", "pages", ""), closes && unsaved ? "mlist.txt" : "");
    QCOMPARE(ini.readString("stats", "lastproxy", ""), closes ? "<none>" : "");
}

void TestController::proxyCase(const QStringList& f) {
    openDataFile();
    ProxySelection selection(m_ui.get());
    if (f[0] == "offered") {
        for (const QString& name : list(f[1]))
            addProxy(name, list(f[2]).contains(name));
        selection.load("<none>");
        QCOMPARE(selection.names(), list(f[3]));
        QCOMPARE(selection.currentIndex(), 0);
        QVERIFY(selection.settings().isEmpty());
        QVERIFY(m_ui->messages.isEmpty());
        // Each record sits beside its name.
        for (int i = 1; i < selection.names().size(); ++i)
            QVERIFY(selection.records().at(i).startsWith(selection.names().at(i) + ','));
        return;
    }
    addProxy("tor");
    addProxy("secret", true);
    const bool unattended = f[2] == u'1';
    const bool blocked = f[6] == u'1';
    m_ui->answers = answersOf(f[3]);
    selection.load(f[1], unattended);
    QCOMPARE(selection.currentName(), f[4]);
    QCOMPARE(selection.blocked(), blocked);
    if (f[5] == u'0') {
        QVERIFY(m_ui->messages.isEmpty());
        QVERIFY(selection.settings().contains("user=stream-tor"));
        return;
    }
    // Warned, then asked only when somebody can answer.
    QCOMPARE(m_ui->messages.size(), unattended ? 1 : 2);
    QCOMPARE(m_ui->messageTexts().constFirst(), Gone + f[1] + "--is no \nlonger present!");
    QCOMPARE(m_ui->messages.first().type, Warning);
    QCOMPARE(m_ui->messages.first().buttons, int(MbOk));
    QCOMPARE(m_ui->messages.last().buttons, int(unattended ? MbOk : MbYesNo));
    QNetworkProxy proxy;
    // Blocked: nothing a download could use, and the reason names the proxy.
    QCOMPARE(HttpSession::proxyFromSettings(selection.settings(), proxy), !blocked);
    QCOMPARE(selection.blockReason().join(u' ').contains(u'"' + f[1] + u'"'), blocked);
    // The user's own choice lifts the hold.
    selection.choose(0);
    QVERIFY(!selection.blocked());
    QVERIFY(selection.settings().isEmpty());
}

void TestController::keyringCase(const QStringList& f) {
    TestFrontEnd ui;
    if (f[0] == "type2") {
        QCOMPARE(Type2ListLines(list(f[1])), list(f[2]));
    } else if (f[0] == "merge") {
        QCOMPARE(MergedNymserverKeys(list(f[1]), list(f[2])), list(f[3]));
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
    } else {
        QCOMPARE(f[0], QStringLiteral("addkeys"));
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
    }
    QVERIFY(ui.messages.isEmpty());
}

void TestController::startUpReadsFolder() {
    TempEnvironment::writeFile(m_env->programFolder() + "status.txt", "\n\nold run\n\n");
    IniFile(IniFileName()).writeString("stats", "pages", "rlist.txt,mlist.txt");
    QCOMPARE(m_controller->startUp({}), StartResult::Ready);
    QVERIFY(!m_controller->sources().isEmpty());
    QCOMPARE(m_controller->currentSource(), 0);
    QCOMPARE(m_controller->pages().count(), 1);
    QCOMPARE(m_controller->pages().captionAt(0), QStringLiteral("status"));
    QCOMPARE(m_controller->pages().documentAt(0)->Lines(), QStringList{"old run"});
    for (const QString& page : StatsPages)
        QCOMPARE(m_controller->isTicked(page), page.contains("list.txt"));
    QVERIFY(!m_controller->autoMode());
}

void TestController::nothingMarked() {
    standardUrls();
    QCOMPARE(m_controller->startUp({}), StartResult::Ready);
    m_controller->setLastSource("second");
    m_controller->setCurrentSource(0);
    m_controller->fileUpdate();
    QCOMPARE(m_ui->messageTexts(), QStringList{"No pages marked for update!     "});
    QCOMPARE(m_ui->messages[0].type, Information);
    QCOMPARE(m_pinger->connectionCount(), 0);
    QCOMPARE(m_controller->lastSource(), QStringLiteral("second"));
}

void TestController::defaultSourceUpdate() {
    standardUrls();
    QCOMPARE(m_controller->startUp({"auto", "rlist.txt"}), StartResult::Ready);
    // The last source differs, but a command-line run still asks about keys.
    m_ui->addKeysAnswers.append(TestFrontEnd::AddKeysAnswer{true, {}});
    m_controller->setLastSource("second");
    m_controller->setCurrentSource(1);
    QCOMPARE(m_controller->unattendedRun(), RunOutcome::Done);
    QCOMPARE(m_ui->addKeysQuestions.size(), 1);
    QCOMPARE(m_pinger->requests().size(), 1);
    QCOMPARE(m_pinger->requests().constFirst().path, QByteArray("/first/rlist.txt"));
    QCOMPARE(m_controller->lastSource(), QStringLiteral("first"));
    QVERIFY(QFileInfo::exists(m_env->mixFolder() + "rlist.txt"));
    QVERIFY(!QFileInfo::exists(m_env->mixFolder() + "mlist.txt"));
}

void TestController::closeRefusedWhileRunning() {
    standardUrls();
    TestPinger::Route slow;
    slow.body = RealPage("2001-11-07", "mlist.txt");
    slow.delayMs = 600;
    m_pinger->setRoute("/first/mlist.txt", slow);
    QCOMPARE(m_controller->startUp({}), StartResult::Ready);
    m_controller->setLastSource("first");
    m_controller->setCurrentSource(0);
    m_controller->setTicked("mlist.txt", true);
    bool closed = true;
    QTimer::singleShot(200, this, [&] { closed = m_controller->closeQuery(QString()); });
    m_controller->fileUpdate();
    QVERIFY(!closed);
    QCOMPARE(m_ui->beeps, 1);
    QCOMPARE(m_ui->messages.size(), 0);
    QCOMPARE(IniFile(IniFileName()).readString("stats", "lastproxy", "unsaved"), "unsaved");
}

void TestController::closeAppliesEditedBarredList_data() {
    QTest::addColumn<bool>("edited");
    QTest::newRow("edited during the session") << true;
    QTest::newRow("untouched") << false;
}

void TestController::closeAppliesEditedBarredList() {
    QFETCH(bool, edited);
    const QByteArray stored = RealPage("2001-11-07", "mlist.txt");
    TempEnvironment::writeFile(m_env->mixFolder() + "mlist.txt", stored);
    TempEnvironment::writeFile(m_env->programFolder() + "barred.txt", "lcs\n");
    QCOMPARE(m_controller->startUp({}), StartResult::Ready);
    if (edited)
        TempEnvironment::writeFile(m_env->programFolder() + "barred.txt", "lcs\naarg\n");
    QCOMPARE(m_controller->barredChanged(), edited);
    QVERIFY(m_controller->closeQuery(QString()));
    const QByteArray after = TempEnvironment::readFile(m_env->mixFolder() + "mlist.txt");
    QCOMPARE(after == stored, !edited);
    QCOMPARE(after.contains("aarg"), !edited);
}

void TestController::proxyRecheckKeepsOrWarns() {
    openDataFile();
    addProxy("tor");
    addProxy("work");
    ProxySelection selection(m_ui.get());
    selection.load("work");
    const QStringList workSettings = selection.settings();
    QVERIFY(workSettings.contains("user=stream-work"));

    addProxy("a first");
    QVERIFY(!selection.recheck());
    QCOMPARE(selection.currentName(), QStringLiteral("work"));
    QCOMPARE(selection.currentIndex(), 3);
    QCOMPARE(m_ui->raised, 0);

    QVERIFY(TheSuiteDataFile()->database->deleteProxy("work"));
    QVERIFY(selection.recheck());
    QCOMPARE(selection.currentName(), QStringLiteral("<none>"));
    QCOMPARE(m_ui->messageTexts(), QStringList{Gone + "work--has been delete!"});
    QCOMPARE(m_ui->raised, 1);
    QCOMPARE(m_ui->raisedBeforeMessages, 0);
    // Downloads keep the deleted proxy until the user chooses again.
    QCOMPARE(selection.settings(), workSettings);
    selection.choose(0);
    QVERIFY(selection.settings().isEmpty());
}

void TestController::proxyEncryptedDataFileChangesNothing() {
    openDataFile();
    addProxy("tor");
    ProxySelection selection(m_ui.get());
    selection.load("tor");
    const QStringList settings = selection.settings();
    // The suite encrypts its database while this program runs.
    QVERIFY(QFile::rename(m_env->programFolder() + "vk.dbc", m_env->programFolder() + "x.dbc"));
    TempEnvironment::writeFile(EncryptedDataFileName(), "-----BEGIN PGP MESSAGE-----");
    const QString encrypted = QStringLiteral("I find your VK datafile, VK.dbc, is encrypted. "
                                             "You need   \nto start VK and decrypt the file.");
    selection.choose(0);
    QVERIFY(!selection.recheck());
    QCOMPARE(m_ui->messageTexts(), (QStringList{encrypted, encrypted}));
    QCOMPARE(selection.currentName(), QStringLiteral("tor"));
    QCOMPARE(selection.settings(), settings);
    ProxySelection fresh(m_ui.get());
    fresh.load("tor");
    QCOMPARE(m_ui->messages.size(), 4); // building and choosing each tell the user
    QVERIFY(fresh.names().isEmpty());
}

// A format 1 file holds whatever the suite wrote, here a record without host
// and port: chosen, it stops the downloads instead of going direct.
void TestController::proxyUnusableRecordBlocksDownloads() {
    const QString path = m_env->programFolder() + "vk.dbc";
    QVERIFY(QFile::remove(path));
    QString error;
    QVERIFY(TVKDB::create(path, 1, &error));
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "raw");
        db.setDatabaseName(path);
        QVERIFY(db.open());
        QVERIFY(QSqlQuery(db).exec("INSERT INTO vk_proxies (record) VALUES ('broken,socks5,')"));
    }
    QSqlDatabase::removeDatabase("raw");
    openDataFile();
    ProxySelection selection(m_ui.get());
    selection.load("broken");
    QCOMPARE(selection.currentName(), QStringLiteral("broken"));
    QVERIFY(selection.blocked());
    QCOMPARE(selection.settings(), QStringList{"kind=unusable"});
    QNetworkProxy proxy;
    QVERIFY(!HttpSession::proxyFromSettings(selection.settings(), proxy));
}

void TestController::keyToolCommandLines() {
    QCOMPARE(MixmasterKeyringCommand("/opt/vk/", "/home/u/.Mix/"),
             R"(/opt/vk/vkmixkeys "/home/u/.Mix/pubring.mix")");
    QCOMPARE(
        CypherpunkKeyringCommand("/home/a b/vk/", "/home/a b/Mix dir/"),
        R"(/home/a b/vk/vkpgpkeys "/home/a b/Mix dir/pubring.asc" "/home/a b/Mix dir/rlist.txt")");
    // The nymserver line runs its second part into the first, as the tool
    // has always been given it; the handlers pass the program folder's copy.
    const QString p = m_env->programFolder();
    QCOMPARE(NymserverKeysCommand(ProgramFolder(), GetMixmasterDir(),
                                  PagePath(QStringLiteral("nymserver.asc"))),
             p + "vkpgpkeys \"" + p + "nymserver.asc\"" + m_env->mixFolder() + p +
                 "nymserver.asc\"");
    // The proxy manager lies beside the key tools.
    QCOMPARE(ProxySelection::proxyManagerPath(), p + "vkproxy");
}

// With nobody to ask, the question counts as cancelled: the update stops and
// the list keeps only the key pages it had.
void TestController::chkAddKeysDefaultFrontEndCancels() {
    MessagesOnlyFrontEnd ui;
    QStringList pages{"nymserver.asc", "rlist.txt", "advisory.txt"};
    QVERIFY(!ChkAddKeys(&ui, pages, QStringLiteral("A"), QStringLiteral("B")));
    QCOMPARE(pages, QStringList{"rlist.txt"});
}

QTEST_GUILESS_MAIN(TestController)
#include "tst_controller.moc"
