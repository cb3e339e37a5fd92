#include "SuiteDatabase.h"
#include "TempEnvironment.h"
#include "TestData.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <utility>

namespace {

const QChar SlashMark(0x00AD);

// A connection of the test's own beside the one under test, to look at what
// the file really holds and to hold locks on it.
class RawConnection {
public:
    explicit RawConnection(const QString& path)
        : m_name(QStringLiteral("raw-%1").arg(++counter())) {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_name);
        db.setDatabaseName(path);
        m_open = db.open();
    }
    ~RawConnection() {
        {
            QSqlDatabase db = QSqlDatabase::database(m_name, false);
            db.close();
        }
        QSqlDatabase::removeDatabase(m_name);
    }
    RawConnection(const RawConnection&) = delete;
    RawConnection& operator=(const RawConnection&) = delete;

    bool isOpen() const { return m_open; }
    bool exec(const QString& sql) {
        QSqlQuery query(QSqlDatabase::database(m_name, false));
        const bool ok = query.exec(sql);
        if (!ok)
            qWarning("%s: %s", qPrintable(sql), qPrintable(query.lastError().text()));
        return ok;
    }
    QStringList column(const QString& sql) {
        QStringList values;
        QSqlQuery query(QSqlDatabase::database(m_name, false));
        if (!query.exec(sql))
            return {QStringLiteral("<failed: %1>").arg(query.lastError().text())};
        while (query.next())
            values << query.value(0).toString();
        return values;
    }

private:
    static int& counter() {
        static int value = 0;
        return value;
    }
    QString m_name;
    bool m_open = false;
};

std::unique_ptr<TVKDB> openAs(int version, const QString& path) {
    if (version == 1)
        return std::make_unique<TVKDB1>(path);
    return std::make_unique<TVKDB2>(path);
}

ProxyEntry entry(const QString& name, const QString& kind, const QString& host, int port,
                 const QString& user = {}, const QString& password = {}, bool hidden = false) {
    ProxyEntry e;
    e.name = name;
    e.kind = kind;
    e.host = host;
    e.port = port;
    e.user = user;
    e.password = password;
    e.hidden = hidden;
    return e;
}

// An SQLite file made by someone else: any application id, any version,
// any tables.
void makeDatabase(const QString& path, int applicationId, int version, const QStringList& sql) {
    RawConnection raw(path);
    QVERIFY(raw.isOpen());
    QVERIFY(raw.exec(QStringLiteral("PRAGMA application_id = %1").arg(applicationId)));
    QVERIFY(raw.exec(QStringLiteral("PRAGMA user_version = %1").arg(version)));
    for (const QString& statement : sql)
        QVERIFY(raw.exec(statement));
}

QStringList records(TVKDB& db) {
    QStringList found;
    if (!db.getProxyRecords(found))
        return {QStringLiteral("<failed: %1>").arg(db.errorText())};
    return found;
}

} // namespace

class TestSuiteDatabase : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void createAndVersion_data();
    void createAndVersion();
    void createRefuses_data();
    void createRefuses();

    void values_data();
    void values();

    void storedForm_data();
    void storedForm();
    void proxyCases_data() { AddTableRows(QStringLiteral("proxies.txt")); }
    void proxyCases();

    void lockedDatabase_data();
    void lockedDatabase();
    void notDataFiles_data();
    void notDataFiles();
    void damagedPagesFoundOnReading();

private:
    void credentialsCase(int version, const QString& user, const QString& password);
    void deleteCase(int version, const QString& name, const QString& left);
    QString path(const QString& name = QStringLiteral("vk.dbc")) const {
        return m_dir->filePath(name);
    }
    std::unique_ptr<QTemporaryDir> m_dir;
};

void TestSuiteDatabase::init() {
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

void TestSuiteDatabase::cleanup() {
    m_dir.reset();
}

// Most tables run every case on both formats; the version comes first.
static void addFormatColumn() {
    QTest::addColumn<int>("version");
}

void TestSuiteDatabase::createAndVersion_data() {
    addFormatColumn();
    QTest::newRow("format 1") << 1;
    QTest::newRow("format 2") << 2;
}

// A new file of each format: made empty, refused by the other format's
// class, and then holding its proxies in the order they were added.
void TestSuiteDatabase::createAndVersion() {
    QFETCH(int, version);
    QString error;
    QVERIFY2(TVKDB::create(path(), version, &error), qPrintable(error));
    QVERIFY(error.isEmpty());
    QCOMPARE(TempEnvironment::readFile(path()).left(16), QByteArray("SQLite format 3", 16));
    QCOMPARE(GetVKDBVersion(path()), version);
    {
        RawConnection raw(path());
        QCOMPARE(raw.column("PRAGMA application_id"), QStringList{QString::number(0x564B4442)});
        QCOMPARE(raw.column("PRAGMA user_version"), QStringList{QString::number(version)});
    }

    auto other = openAs(3 - version, path());
    QCOMPARE(other->error(), int(TVKDB::ErrorNotDataFile));
    QVERIFY2(other->errorText().contains(QString::number(3 - version)),
             qPrintable(other->errorText()));

    {
        auto db = openAs(version, path());
        QCOMPARE(db->error(), 0);
        QCOMPARE(records(*db), QStringList{});
        QCOMPARE(db->valueNames(), QStringList{});
        QCOMPARE(db->readValue("statslastsource", "none yet"), QString("none yet"));
        for (const ProxyEntry& e : {entry("Zeta", "socks5", "localhost", 1080),
                                    entry("Tor", "socks5", "127.0.0.1", 9050, "alice", "s3cret"),
                                    entry("Hidden", "http", "proxy.example", 3128, {}, {}, true),
                                    entry("Work/Office", "http", "10.0.0.1", 8080, "bob"),
                                    entry("a/b/c", "http", "h", 1)})
            QVERIFY2(db->addProxy(e), qPrintable(db->errorText()));
    }
    // Written out by hand: the layout other suite programs read.
    const QStringList expected = {
        "Zeta,socks5,,localhost,1080,,",
        "Tor,socks5,,127.0.0.1,9050,alice,s3cret",
        "Hidden,http, ,proxy.example,3128,,",
        QStringLiteral("Work") + SlashMark + "Office,http,,10.0.0.1,8080,bob,",
        QStringLiteral("a") + SlashMark + "b" + SlashMark + "c,http,,h,1,,",
    };
    auto db = openAs(version, path());
    QStringList found{"kept"};
    QVERIFY(db->getProxyRecords(found));
    QCOMPARE(found, QStringList{"kept"} + expected);
}

void TestSuiteDatabase::createRefuses_data() {
    QTest::addColumn<QString>("setup");
    QTest::addColumn<int>("version");
    QTest::newRow("existing data file") << "data" << 1;
    QTest::newRow("version 3") << "" << 3;
    QTest::newRow("folder missing") << "nofolder" << 2;
}

void TestSuiteDatabase::createRefuses() {
    QFETCH(QString, setup);
    QFETCH(int, version);
    QString target = path();
    if (setup == "data") {
        QString error;
        QVERIFY(TVKDB::create(target, 2, &error));
    }
    if (setup == "nofolder")
        target = path("not/there/vk.dbc");
    const QByteArray before = TempEnvironment::readFile(target);
    const bool existed = QFileInfo::exists(target);

    QString error;
    QVERIFY(!TVKDB::create(target, version, &error));
    QVERIFY(!error.isEmpty());
    QCOMPARE(QFileInfo::exists(target), existed);
    QCOMPARE(TempEnvironment::readFile(target), before);
    if (setup == "data")
        QCOMPARE(GetVKDBVersion(target), 2);
}

void TestSuiteDatabase::values_data() {
    addFormatColumn();
    QTest::addColumn<QString>("value");
    const QList<std::pair<const char*, QString>> cases = {
        {"plain", QStringLiteral("Pinger A")},
        {"empty", QStringLiteral("")},
        {"unicode and line breaks", QStringLiteral("Pr\u00fcfer \u00AD/ \u4E2D\none\r\ntwo")},
    };
    for (int version : {1, 2}) {
        for (const auto& [tag, value] : cases)
            QTest::addRow("v%d %s", version, tag) << version << value;
    }
}

void TestSuiteDatabase::values() {
    QFETCH(int, version);
    QFETCH(QString, value);
    const QString name = QStringLiteral("statslastsource");
    QString error;
    QVERIFY(TVKDB::create(path(), version, &error));
    {
        auto db = openAs(version, path());
        QVERIFY(db->writeValue(name, value));
        QCOMPARE(db->readValue(name, "default"), value);
        QCOMPARE(db->error(), 0);
    }
    auto db = openAs(version, path());
    QCOMPARE(db->readValue(name, "default"), value);
    QCOMPARE(db->valueNames(), QStringList{name});

    QVERIFY(db->writeValue(name, "second"));
    QCOMPARE(db->readValue(name), QString("second"));
    QCOMPARE(db->valueNames(), QStringList{name});

    QVERIFY(db->deleteValue(name));
    QCOMPARE(db->readValue(name, "default"), QString("default"));
    QCOMPARE(db->valueNames(), QStringList{});
    QCOMPARE(db->error(), 0);

    // Names come back sorted, whatever the order they were written in.
    QVERIFY(db->writeValues({{name, "third"}, {"mlist.txt", "x"}, {"advisory.txt", "y"}}));
    QCOMPARE(db->readValue(name), QString("third"));
    QCOMPARE(db->readValue("mlist.txt"), QString("x"));
    QCOMPARE(db->valueNames(), (QStringList{"advisory.txt", "mlist.txt", name}));
}

void TestSuiteDatabase::storedForm_data() {
    addFormatColumn();
    QTest::addColumn<QString>("query");
    QTest::addColumn<QStringList>("stored");
    const QString mark(SlashMark);
    QTest::newRow("format 1 lines") << 1 << "SELECT record FROM vk_proxies ORDER BY rowid"
                                    << QStringList{"Tor" + mark +
                                                   "1,socks5,,127.0.0.1,9050,"
                                                   "al%2Cice,100%25"};
    QTest::newRow("format 2 name column")
        << 2 << "SELECT name FROM vk_proxies ORDER BY id" << QStringList{"Tor" + mark + "1"};
    QTest::newRow("format 2 credentials as given")
        << 2 << "SELECT user || '|' || password FROM vk_proxies" << QStringList{"al,ice|100%"};
}

void TestSuiteDatabase::storedForm() {
    QFETCH(int, version);
    QFETCH(QString, query);
    QFETCH(QStringList, stored);
    QString error;
    QVERIFY(TVKDB::create(path(), version, &error));
    {
        auto db = openAs(version, path());
        QVERIFY(db->addProxy(entry("Tor/1", "socks5", "127.0.0.1", 9050, "al,ice", "100%")));
    }
    RawConnection raw(path());
    QCOMPARE(raw.column(query), stored);
    // "/" never reaches the file: the suite keeps the mark in its place.
    QVERIFY(!TempEnvironment::readFile(path()).contains("Tor/1"));
    QVERIFY(TempEnvironment::readFile(path()).contains(QStringLiteral("Tor\u00AD1").toUtf8()));
}

void TestSuiteDatabase::proxyCases() {
    QFETCH(QStringList, f);
    if (f[0] == "credentials")
        return credentialsCase(f[1].toInt(), f[2], f[3]);
    if (f[0] == "delete")
        return deleteCase(f[1].toInt(), f[2], f[3]);
    if (f[0] == "settings") {
        QStringList found{"already=there"};
        QCOMPARE(TVKDB::proxyRecordToSettings(f[1], found), f[2] != u'-');
        QCOMPARE(found.mid(1).join(u'|'), f[2] == u'-' ? QString() : f[2]);
        return;
    }
    const int version = f[1].toInt();
    const ProxyEntry refused = entry(f[2], f[3], f[4], f[5].toInt());
    const int code = f[6] == "exists" ? TVKDB::ErrorExists : TVKDB::ErrorBadEntry;
    QString error;
    QVERIFY(TVKDB::create(path(), version, &error));
    auto db = openAs(version, path());
    QVERIFY(db->addProxy(entry("Tor", "socks5", "127.0.0.1", 9050)));
    QVERIFY(db->addProxy(entry("Work/Office", "http", "10.0.0.1", 8080)));
    const QStringList before = records(*db);

    QVERIFY(!db->addProxy(refused));
    QCOMPARE(db->error(), code);
    QVERIFY(!db->errorText().isEmpty());
    QCOMPARE(records(*db), before);
    // An entry that cannot make a record is refused before either format is
    // touched; a clash is looked for in each format's own table.
    if (code == TVKDB::ErrorBadEntry)
        QCOMPARE(TVKDB::checkProxyEntry(refused), db->errorText());
    else
        QVERIFY(TVKDB::checkProxyEntry(refused).isEmpty());

    // The refusal left no transaction open: the next proxy goes in, and
    // another connection sees it.
    QVERIFY2(db->addProxy(entry("Fresh", "http", "h", 1)), qPrintable(db->errorText()));
    auto again = openAs(version, path());
    QCOMPARE(records(*again).size(), 3);
}

// A user and password kept through the record and back into settings.
void TestSuiteDatabase::credentialsCase(int version, const QString& user, const QString& password) {
    QString error;
    QVERIFY(TVKDB::create(path(), version, &error));
    {
        auto db = openAs(version, path());
        QVERIFY(db->addProxy(entry("Tor", "socks5", "127.0.0.1", 9050, user, password)));
    }
    auto db = openAs(version, path());
    const QStringList found = records(*db);
    QCOMPARE(found.size(), 1);
    QCOMPARE(found.first().split(u',').size(), 7);
    QStringList settings;
    QVERIFY(TVKDB::proxyRecordToSettings(found.first(), settings));
    QCOMPARE(settings, (QStringList{"kind=socks5", "host=127.0.0.1", "port=9050", "user=" + user,
                                    "password=" + password}));
}

// Removing a name from Alpha, b/c and Delta (hidden): the records left.
void TestSuiteDatabase::deleteCase(int version, const QString& name, const QString& left) {
    QString error;
    QVERIFY(TVKDB::create(path(), version, &error));
    const bool removed = left.count(u'|') < 2;
    {
        auto db = openAs(version, path());
        QVERIFY(db->addProxy(entry("Alpha", "http", "h1", 1)));
        QVERIFY(db->addProxy(entry("b/c", "socks5", "h2", 2)));
        QVERIFY(db->addProxy(entry("Delta", "http", "h3", 3, {}, {}, true)));
        QCOMPARE(db->deleteProxy(name), removed);
        QCOMPARE(db->error(), removed ? int(TVKDB::NoError) : int(TVKDB::ErrorNotFound));
        if (!removed)
            QVERIFY(db->errorText().contains(name));
    }
    auto db = openAs(version, path());
    QCOMPARE(records(*db), left.split(u'|'));
}

void TestSuiteDatabase::lockedDatabase_data() {
    addFormatColumn();
    QTest::addColumn<QString>("operation");
    // The values and the start of an addition are the same code for both
    // formats; reading and removing proxies are not.
    for (const char* operation : {"open", "records", "delete proxy"})
        QTest::addRow("v1 %s", operation) << 1 << QString(operation);
    for (const char* operation :
         {"open", "records", "add proxy", "delete proxy", "write value", "write values"})
        QTest::addRow("v2 %s", operation) << 2 << QString(operation);
}

void TestSuiteDatabase::lockedDatabase() {
    QFETCH(int, version);
    QFETCH(QString, operation);
    QString error;
    QVERIFY(TVKDB::create(path(), version, &error));
    {
        auto db = openAs(version, path());
        QVERIFY(db->addProxy(entry("Tor", "socks5", "127.0.0.1", 9050)));
        QVERIFY(db->writeValue("statslastsource", "Pinger A"));
    }
    std::unique_ptr<TVKDB> db;
    if (operation != "open")
        db = openAs(version, path());

    QElapsedTimer timer;
    {
        RawConnection holder(path());
        QVERIFY(holder.isOpen());
        QVERIFY(holder.exec("BEGIN EXCLUSIVE"));
        timer.start();
        if (operation == "open") {
            QCOMPARE(TVKDB::probe(path()), TVKDB::ErrorLocked);
            QCOMPARE(GetVKDBVersion(path()), 0);
            db = openAs(version, path());
        } else if (operation == "records") {
            QStringList found;
            QVERIFY(!db->getProxyRecords(found));
            QVERIFY(found.isEmpty());
        } else if (operation == "add proxy") {
            QVERIFY(!db->addProxy(entry("Other", "http", "h", 1)));
        } else if (operation == "delete proxy") {
            QVERIFY(!db->deleteProxy("Tor"));
        } else if (operation == "write value") {
            QVERIFY(!db->writeValue("statslastsource", "Pinger B"));
        } else if (operation == "write values") {
            QVERIFY(!db->writeValues({{"mlist.txt", "2002-08-20"}, {"statslastsource", "B"}}));
        }
        // It gives up after its busy time-out instead of waiting for ever.
        QVERIFY2(timer.elapsed() < 20000, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(db->error(), int(TVKDB::ErrorLocked));
        QVERIFY2(db->errorText().contains("locked"), qPrintable(db->errorText()));
        QVERIFY(holder.exec("ROLLBACK"));
    }

    // Once the lock is gone the file is whole and usable again.
    auto after = openAs(version, path());
    QCOMPARE(after->error(), 0);
    QCOMPARE(records(*after).size(), 1);
    QCOMPARE(after->readValue("statslastsource"), QString("Pinger A"));
    QCOMPARE(after->readValue("mlist.txt", "none"), QString("none"));
    QVERIFY(after->addProxy(entry("Other", "http", "h", 1)));
}

void TestSuiteDatabase::notDataFiles_data() {
    QTest::addColumn<QString>("setup");
    QTest::addColumn<int>("probed");
    QTest::addColumn<int>("opened");
    const auto row = [](const char* tag, const char* setup, int probed, int opened) {
        QTest::newRow(tag) << setup << probed << opened;
    };
    const int notData = TVKDB::ErrorNotDataFile;
    const int damaged = TVKDB::ErrorDamaged;
    row("missing", "missing", TVKDB::ErrorMissing, TVKDB::ErrorMissing);
    row("folder", "folder", notData, notData);
    // SQLite alone would take an empty file for an empty database.
    row("empty file", "empty", notData, notData);
    row("sqlite header alone", "header", damaged, damaged);
    row("another application's database", "foreign", notData, notData);
    row("unknown version 3", "v3", notData, notData);
    row("tables missing", "notables", TVKDB::NoError, notData);
    row("truncated to 1000 bytes", "cut1000", damaged, damaged);
    row("truncated inside the header", "cut50", notData, notData);
}

void TestSuiteDatabase::notDataFiles() {
    QFETCH(QString, setup);
    QFETCH(int, probed);
    QFETCH(int, opened);
    const QString file = path();
    QString error;
    if (setup == "folder") {
        QVERIFY(QDir().mkpath(file));
    } else if (setup == "empty") {
        TempEnvironment::writeFile(file, {});
    } else if (setup == "header") {
        TempEnvironment::writeFile(file, QByteArray("SQLite format 3", 16));
    } else if (setup == "foreign") {
        makeDatabase(file, 0, 0, {"CREATE TABLE vk_values (name TEXT, value TEXT)"});
    } else if (setup == "v3") {
        makeDatabase(file, VkdbApplicationId, 3, {"CREATE TABLE t (x)"});
    } else if (setup == "notables") {
        makeDatabase(file, VkdbApplicationId, 2, {"CREATE TABLE t (x)"});
    } else if (setup.startsWith("cut")) {
        QVERIFY(TVKDB::create(file, 2, &error));
        QVERIFY(QFileInfo(file).size() > 1000);
        QFile cut(file);
        QVERIFY(cut.resize(setup.mid(3).toInt()));
    }
    QVERIFY(!QTest::currentTestFailed());
    const QByteArray before = TempEnvironment::readFile(file);

    QString why;
    int version = -1;
    QCOMPARE(int(TVKDB::probe(file, &version, &why)), probed);
    QCOMPARE(why.isEmpty(), probed == TVKDB::NoError);
    QCOMPARE(version, probed == TVKDB::NoError ? 2 : 0);
    QCOMPARE(GetVKDBVersion(file), version);
    for (int format : {1, 2}) {
        auto db = openAs(format, file);
        QCOMPARE(db->error(), opened);
        QVERIFY(!db->errorText().isEmpty());
        // Using a file that failed to open reports failure, nothing worse.
        QStringList found;
        QVERIFY(!db->getProxyRecords(found));
        QVERIFY(found.isEmpty());
        QCOMPARE(db->readValue("statslastsource", "fallback"), QString("fallback"));
    }
    // Looking never changes or creates a file.
    QCOMPARE(QFileInfo::exists(file), setup != "missing");
    QCOMPARE(TempEnvironment::readFile(file), before);
}

// Damage behind an intact first page (header and schema) shows only when the
// tables are read: the file opens, and reading then fails as damaged.
void TestSuiteDatabase::damagedPagesFoundOnReading() {
    QString error;
    QVERIFY(TVKDB::create(path(), 2, &error));
    int pageSize = 0;
    {
        // Filled in one transaction, which is much quicker than one per proxy.
        RawConnection raw(path());
        QVERIFY(raw.exec("BEGIN"));
        for (int i = 0; i < 300; ++i) {
            QVERIFY(raw.exec(QString("INSERT INTO vk_proxies (name, kind, hidden, host, port, "
                                     "user, password) VALUES ('proxy number %1', 'http', 0, "
                                     "'host.example', %2, 'user', 'password')")
                                 .arg(i)
                                 .arg(i + 1)));
        }
        QVERIFY(raw.exec("COMMIT"));
        pageSize = raw.column("PRAGMA page_size").value(0).toInt();
    }
    QCOMPARE(records(*openAs(2, path())).size(), 300);
    QVERIFY(pageSize >= 512);
    {
        QFile file(path());
        QVERIFY(file.open(QIODevice::ReadWrite));
        QVERIFY(file.size() > 8 * pageSize);
        QVERIFY(file.seek(2 * pageSize));
        const QByteArray noise(file.size() - 2 * pageSize, '\x55');
        QCOMPARE(file.write(noise), noise.size());
    }

    QCOMPARE(TVKDB::probe(path()), TVKDB::NoError);
    auto db = openAs(2, path());
    QCOMPARE(db->error(), 0);
    QStringList found;
    QVERIFY(!db->getProxyRecords(found));
    QCOMPARE(db->error(), int(TVKDB::ErrorDamaged));
    QVERIFY2(db->errorText().contains("malformed"), qPrintable(db->errorText()));
    QVERIFY(found.isEmpty());
}

QTEST_GUILESS_MAIN(TestSuiteDatabase)
#include "tst_suitedatabase.moc"
