#include "Global2.h"
#include "HttpGet.h"
#include "ProxySelection.h"
#include "SuiteDatabase.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TestFrontEnd.h"

#include <QFile>
#include <QNetworkProxy>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTest>

#include <memory>

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

} // namespace

class TestProxySelection : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void offeredNames_data();
    void offeredNames();
    void lastProxyRestored_data();
    void lastProxyRestored();
    void chooseFillsSettings();
    void recheckKeepsOrWarns();
    void encryptedDataFileChangesNothing();
    void unusableRecordBlocksDownloads();
    void proxyManagerPath();

private:
    void addProxy(const QString& name, bool hidden = false, const QString& kind = "socks5");
    std::unique_ptr<TempEnvironment> m_env;
    RaisingFrontEnd m_ui;
};

void TestProxySelection::init() {
    m_env.reset(); // the old one restores the environment it found
    m_env = std::make_unique<TempEnvironment>();
    m_ui = RaisingFrontEnd();
    QCOMPARE(CreateDataFile(m_env->programFolder()), QString());
    QVERIFY(OpenSuiteDataFile(&m_ui));
}

void TestProxySelection::cleanup() {
    CloseSuiteDataFile();
}

void TestProxySelection::addProxy(const QString& name, bool hidden, const QString& kind) {
    ProxyEntry entry;
    entry.name = name;
    entry.kind = kind;
    entry.hidden = hidden;
    entry.host = "127.0.0.1";
    entry.port = 9050;
    entry.user = "stream-" + name;
    entry.password = "pw";
    QVERIFY(TheSuiteDataFile()->database->addProxy(entry));
}

void TestProxySelection::offeredNames_data() {
    QTest::addColumn<QStringList>("stored");
    QTest::addColumn<QStringList>("hidden");
    QTest::addColumn<QStringList>("names");
    QTest::newRow("no proxies") << QStringList{} << QStringList{} << QStringList{"<none>"};
    QTest::newRow("sorted after none") << QStringList{"zeta", "Alpha", "tor"} << QStringList{}
                                       << QStringList{"<none>", "Alpha", "tor", "zeta"};
    QTest::newRow("hidden record left out")
        << QStringList{"a", "b"} << QStringList{"b"} << QStringList{"<none>", "a"};
    QTest::newRow("slash stored as 0xAD")
        << QStringList{"tor/9050"} << QStringList{} << QStringList{"<none>", "tor/9050"};
}

void TestProxySelection::offeredNames() {
    QFETCH(QStringList, stored);
    QFETCH(QStringList, hidden);
    QFETCH(QStringList, names);
    for (const QString& name : stored)
        addProxy(name, hidden.contains(name));
    ProxySelection selection(&m_ui);
    selection.load("<none>");
    QCOMPARE(selection.names(), names);
    QCOMPARE(selection.currentIndex(), 0);
    QVERIFY(selection.settings().isEmpty());
    QVERIFY(m_ui.messages.isEmpty());
    // Each record sits beside its name.
    for (int i = 1; i < names.size(); ++i)
        QVERIFY(selection.records().at(i).startsWith(names.at(i) + ','));
}

// A vanished proxy never lets pages go out directly unless a person says
// so: unattended, downloads are held back; in the window the user is asked.
void TestProxySelection::lastProxyRestored_data() {
    QTest::addColumn<QString>("last");
    QTest::addColumn<bool>("unattended");
    QTest::addColumn<QList<int>>("answers");
    QTest::addColumn<QString>("shown");
    QTest::addColumn<QString>("warning");
    QTest::addColumn<bool>("blocked");
    QTest::newRow("present") << "tor" << true << QList<int>() << "tor"
                             << "" << false;
    QTest::newRow("vanished, user goes on without")
        << "old proxy" << false << QList<int>{IdOk, IdYes} << "<none>"
        << Gone + "old proxy--is no \nlonger present!" << false;
    QTest::newRow("vanished, user stops")
        << "old proxy" << false << QList<int>{IdOk, IdNo} << "<none>"
        << Gone + "old proxy--is no \nlonger present!" << true;
    QTest::newRow("vanished, unattended") << "old proxy" << true << QList<int>() << "<none>"
                                          << Gone + "old proxy--is no \nlonger present!" << true;
    QTest::newRow("hidden counts as vanished") << "secret" << true << QList<int>() << "<none>"
                                               << Gone + "secret--is no \nlonger present!" << true;
}

void TestProxySelection::lastProxyRestored() {
    QFETCH(QString, last);
    QFETCH(bool, unattended);
    QFETCH(QList<int>, answers);
    QFETCH(QString, shown);
    QFETCH(QString, warning);
    QFETCH(bool, blocked);
    addProxy("tor");
    addProxy("secret", true);
    m_ui.answers = answers;
    ProxySelection selection(&m_ui);
    selection.load(last, unattended);
    QCOMPARE(selection.currentName(), shown);
    QCOMPARE(selection.blocked(), blocked);
    if (warning.isEmpty()) {
        QVERIFY(m_ui.messages.isEmpty());
        QVERIFY(selection.settings().contains("user=stream-tor"));
        return;
    }
    QCOMPARE(m_ui.messageTexts().constFirst(), warning);
    QCOMPARE(m_ui.messages.first().type, Warning);
    QCOMPARE(m_ui.messages.first().buttons, int(MbOk));
    // Asked only when somebody can answer.
    QCOMPARE(m_ui.messages.size(), unattended ? 1 : 2);
    if (!unattended)
        QCOMPARE(m_ui.messages.last().buttons, int(MbYesNo));
    if (blocked) {
        // Nothing a download could use, and the reason names the proxy.
        QNetworkProxy proxy;
        QVERIFY(!HttpSession::proxyFromSettings(selection.settings(), proxy));
        QVERIFY(selection.blockReason().join(u' ').contains(u'"' + last + u'"'));
    } else {
        QVERIFY(selection.settings().isEmpty());
    }
    // The user's own choice lifts the hold.
    selection.choose(0);
    QVERIFY(!selection.blocked());
    QVERIFY(selection.settings().isEmpty());
}

void TestProxySelection::chooseFillsSettings() {
    addProxy("http one", false, "http");
    addProxy("tor");
    ProxySelection selection(&m_ui);
    selection.load("<none>");
    selection.choose(2);
    QCOMPARE(selection.settings(), (QStringList{"kind=socks5", "host=127.0.0.1", "port=9050",
                                                "user=stream-tor", "password=pw"}));
    selection.choose(1);
    QVERIFY(selection.settings().contains("kind=http"));
    selection.choose(0);
    QVERIFY(selection.settings().isEmpty());
}

void TestProxySelection::recheckKeepsOrWarns() {
    addProxy("tor");
    addProxy("work");
    ProxySelection selection(&m_ui);
    selection.load("work");
    const QStringList workSettings = selection.settings();
    QVERIFY(!workSettings.isEmpty());

    addProxy("a first");
    QVERIFY(!selection.recheck());
    QCOMPARE(selection.currentName(), QStringLiteral("work"));
    QCOMPARE(selection.currentIndex(), 3);
    QCOMPARE(m_ui.raised, 0);

    QVERIFY(TheSuiteDataFile()->database->deleteProxy("work"));
    QVERIFY(selection.recheck());
    QCOMPARE(selection.currentName(), QStringLiteral("<none>"));
    QCOMPARE(m_ui.messageTexts(), QStringList{Gone + "work--has been delete!"});
    QCOMPARE(m_ui.raised, 1);
    QCOMPARE(m_ui.raisedBeforeMessages, 0);
    // Downloads keep the deleted proxy until the user chooses again.
    QCOMPARE(selection.settings(), workSettings);
    selection.choose(0);
    QVERIFY(selection.settings().isEmpty());
}

void TestProxySelection::encryptedDataFileChangesNothing() {
    addProxy("tor");
    ProxySelection selection(&m_ui);
    selection.load("tor");
    const QStringList settings = selection.settings();
    // The suite encrypts its database while this program runs.
    QVERIFY(QFile::rename(m_env->programFolder() + "vk.dbc", m_env->programFolder() + "x.dbc"));
    TempEnvironment::writeFile(EncryptedDataFileName(), "-----BEGIN PGP MESSAGE-----");
    const QString encrypted = QStringLiteral("I find your VK datafile, VK.dbc, is encrypted. "
                                             "You need   \nto start VK and decrypt the file.");
    selection.choose(0);
    QVERIFY(!selection.recheck());
    QCOMPARE(m_ui.messageTexts(), (QStringList{encrypted, encrypted}));
    QCOMPARE(selection.currentName(), QStringLiteral("tor"));
    QCOMPARE(selection.settings(), settings);
    ProxySelection fresh(&m_ui);
    fresh.load("tor");
    QCOMPARE(m_ui.messages.size(), 4); // building and choosing each tell the user
    QVERIFY(fresh.names().isEmpty());
}

void TestProxySelection::unusableRecordBlocksDownloads() {
    // A format 1 file holds whatever the suite wrote, here a record without
    // host and port.
    CloseSuiteDataFile();
    const QString path = m_env->programFolder() + "vk.dbc";
    QVERIFY(QFile::remove(path));
    QString error;
    QVERIFY(TVKDB::create(path, 1, &error));
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "raw");
        db.setDatabaseName(path);
        QVERIFY(db.open());
        QSqlQuery query(db);
        QVERIFY(query.exec("INSERT INTO vk_proxies (record) VALUES ('broken,socks5,')"));
        db.close();
    }
    QSqlDatabase::removeDatabase("raw");
    QVERIFY(OpenSuiteDataFile(&m_ui));
    ProxySelection selection(&m_ui);
    selection.load("broken");
    QCOMPARE(selection.currentName(), QStringLiteral("broken"));
    QCOMPARE(selection.settings(), QStringList{"kind=unusable"});
    QNetworkProxy proxy;
    QVERIFY(!HttpSession::proxyFromSettings(selection.settings(), proxy));
}

void TestProxySelection::proxyManagerPath() {
    QCOMPARE(ProxySelection::proxyManagerPath(), m_env->programFolder() + "vkproxy");
}

QTEST_GUILESS_MAIN(TestProxySelection)
#include "tst_proxyselection.moc"
