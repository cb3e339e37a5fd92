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

namespace {

// A connection of the test's own beside the one under test, to look at what
// the file really holds and to hold locks on it. A statement that fails
// gives one "<failed: ...>" value, one that returns no rows none.
struct Raw {
    explicit Raw(const QString& path) : name(QStringLiteral("raw%1").arg(++count)) {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(path);
        open = db.open();
    }
    ~Raw() {
        QSqlDatabase::database(name, false).close();
        QSqlDatabase::removeDatabase(name);
    }
    Raw(const Raw&) = delete;
    Raw& operator=(const Raw&) = delete;
    QStringList column(const QString& sql) const {
        QSqlQuery query(QSqlDatabase::database(name, false));
        if (!query.exec(sql))
            return {QStringLiteral("<failed: %1>").arg(query.lastError().text())};
        QStringList values;
        while (query.next())
            values << query.value(0).toString();
        return values;
    }
    static inline int count = 0;
    QString name;
    bool open = false;
};

std::unique_ptr<TVKDB> openAs(int version, const QString& path) {
    if (version == 1)
        return std::make_unique<TVKDB1>(path);
    return std::make_unique<TVKDB2>(path);
}

ProxyEntry entry(const QString& name, const QString& kind, const QString& host, int port,
                 const QString& user = {}, const QString& password = {}, bool hidden = false) {
    return ProxyEntry{name, kind, hidden, host, port, user, password};
}

QStringList records(TVKDB& db) {
    QStringList found;
    if (!db.getProxyRecords(found))
        return {QStringLiteral("<failed: %1>").arg(db.errorText())};
    return found;
}

// An error code by the name the table gives it, in the order of TVKDB::ErrorCode.
int code(const QString& name) {
    const int at = QStringList{"ok",     "failed",   "missing", "notdata", "damaged",
                               "locked", "notfound", "exists",  "bad"}
                       .indexOf(name);
    if (at < 0)
        qFatal("unknown error code %s", qPrintable(name));
    return at;
}

} // namespace

class TestSuiteDatabase : public QObject {
    Q_OBJECT
private slots:
    void init() {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
    }
    void createAndVersion_data();
    void createAndVersion();
    void cases_data() { AddTableRows(QStringLiteral("proxies.txt")); }
    void cases();
    void damagedPagesFoundOnReading();

private:
    void refused(const QStringList& f);
    void credentials(int version, const QString& user, const QString& password);
    void deleted(int version, const QString& name, const QString& left);
    void values(int version, const QString& value);
    void createRefused(const QString& setup, int version);
    void probed(const QString& setup, int probed, int opened);
    void locked(int version, const QString& operation);
    std::unique_ptr<TVKDB> made(int version) {
        QString error;
        if (!TVKDB::create(path(), version, &error))
            qFatal("cannot make a data file: %s", qPrintable(error));
        return openAs(version, path());
    }
    QString path(const QString& name = QStringLiteral("vk.dbc")) const {
        return m_dir->filePath(name);
    }
    std::unique_ptr<QTemporaryDir> m_dir;
};

void TestSuiteDatabase::createAndVersion_data() {
    QTest::addColumn<int>("version");
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
        Raw raw(path());
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
    // Written out by hand: the layout other suite programs read, "/" kept as a soft hyphen.
    const QStringList expected = {
        "Zeta,socks5,,localhost,1080,,", "Tor,socks5,,127.0.0.1,9050,alice,s3cret",
        "Hidden,http, ,proxy.example,3128,,", "Work\u00ADOffice,http,,10.0.0.1,8080,bob,",
        "a\u00ADb\u00ADc,http,,h,1,,"};
    QStringList found{"kept"};
    QVERIFY(openAs(version, path())->getProxyRecords(found));
    QCOMPARE(found, QStringList{"kept"} + expected);
}

void TestSuiteDatabase::cases() {
    QFETCH(QStringList, f);
    const QString& kind = f[0];
    if (kind == "settings") {
        QStringList found{"already=there"};
        QCOMPARE(TVKDB::proxyRecordToSettings(f[1], found), f[2] != u'-');
        QCOMPARE(found.mid(1).join(u'|'), f[2] == u'-' ? QString() : f[2]);
    } else if (kind == "refused") {
        refused(f);
    } else if (kind == "credentials") {
        credentials(f[1].toInt(), f[2], f[3]);
    } else if (kind == "delete") {
        deleted(f[1].toInt(), f[2], f[3]);
    } else if (kind == "value") {
        values(f[1].toInt(), f[2]);
    } else if (kind == "stored") {
        QVERIFY(made(f[1].toInt())
                    ->addProxy(entry("Tor/1", "socks5", "127.0.0.1", 9050, "al,ice", "100%")));
        QCOMPARE(Raw(path()).column(f[2]).join(u'\n'), f[3]);
        // "/" never reaches the file: the suite keeps the mark in its place.
        QVERIFY(!TempEnvironment::readFile(path()).contains("Tor/1"));
    } else if (kind == "create") {
        createRefused(f[1], f[2].toInt());
    } else if (kind == "probe") {
        probed(f[1], code(f[2]), code(f[3]));
    } else if (kind == "locked") {
        locked(f[1].toInt(), f[2]);
    } else {
        QFAIL("unknown case kind");
    }
}

// An entry added beside Tor and Work/Office that is refused, leaving no
// transaction open behind it.
void TestSuiteDatabase::refused(const QStringList& f) {
    const int version = f[1].toInt();
    const ProxyEntry entered = entry(f[2], f[3], f[4], f[5].toInt());
    auto db = made(version);
    QVERIFY(db->addProxy(entry("Tor", "socks5", "127.0.0.1", 9050)));
    QVERIFY(db->addProxy(entry("Work/Office", "http", "10.0.0.1", 8080)));
    const QStringList before = records(*db);
    QVERIFY(!db->addProxy(entered));
    QCOMPARE(db->error(), code(f[6]));
    QVERIFY(!db->errorText().isEmpty());
    QCOMPARE(records(*db), before);
    // A bad entry is refused before either format is touched; a clash is
    // looked for in each format's own table.
    QCOMPARE(TVKDB::checkProxyEntry(entered), f[6] == "bad" ? db->errorText() : QString());
    QVERIFY2(db->addProxy(entry("Fresh", "http", "h", 1)), qPrintable(db->errorText()));
    QCOMPARE(records(*openAs(version, path())).size(), 3);
}

// A user and password kept through the record and back into settings.
void TestSuiteDatabase::credentials(int version, const QString& user, const QString& password) {
    QVERIFY(made(version)->addProxy(entry("Tor", "socks5", "127.0.0.1", 9050, user, password)));
    const QStringList found = records(*openAs(version, path()));
    QCOMPARE(found.size(), 1);
    QCOMPARE(found.first().split(u',').size(), 7);
    QStringList settings;
    QVERIFY(TVKDB::proxyRecordToSettings(found.first(), settings));
    QCOMPARE(settings, (QStringList{"kind=socks5", "host=127.0.0.1", "port=9050", "user=" + user,
                                    "password=" + password}));
}

// Removing a name from Alpha, b/c and Delta (hidden): the records left.
void TestSuiteDatabase::deleted(int version, const QString& name, const QString& left) {
    const bool removed = left.count(u'|') < 2;
    {
        auto db = made(version);
        QVERIFY(db->addProxy(entry("Alpha", "http", "h1", 1)));
        QVERIFY(db->addProxy(entry("b/c", "socks5", "h2", 2)));
        QVERIFY(db->addProxy(entry("Delta", "http", "h3", 3, {}, {}, true)));
        QCOMPARE(db->deleteProxy(name), removed);
        QCOMPARE(db->error(), removed ? int(TVKDB::NoError) : int(TVKDB::ErrorNotFound));
        QCOMPARE(db->errorText().contains(name), !removed);
    }
    QCOMPARE(records(*openAs(version, path())), left.split(u'|'));
}

void TestSuiteDatabase::values(int version, const QString& value) {
    const QString name = QStringLiteral("statslastsource");
    {
        auto db = made(version);
        QVERIFY(db->writeValue(name, value));
        QCOMPARE(db->readValue(name, "default"), value);
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
    // Names come back sorted, whatever the order they were written in.
    QVERIFY(db->writeValues({{name, "third"}, {"mlist.txt", "x"}, {"advisory.txt", "y"}}));
    QCOMPARE(db->readValue(name) + db->readValue("mlist.txt"), QString("thirdx"));
    QCOMPARE(db->valueNames(), (QStringList{"advisory.txt", "mlist.txt", name}));
    QCOMPARE(db->error(), 0);
}

void TestSuiteDatabase::createRefused(const QString& setup, int version) {
    const QString target = setup == "nofolder" ? path("not/there/vk.dbc") : path();
    QString error;
    if (setup == "data")
        QVERIFY(TVKDB::create(target, 2, &error));
    const QByteArray before = TempEnvironment::readFile(target);
    QVERIFY(!TVKDB::create(target, version, &error));
    QVERIFY(!error.isEmpty());
    QCOMPARE(QFileInfo::exists(target), setup == "data");
    QCOMPARE(TempEnvironment::readFile(target), before);
    QCOMPARE(GetVKDBVersion(target), setup == "data" ? 2 : 0);
}

// What probing and opening make of a file that is not a usable data file.
void TestSuiteDatabase::probed(const QString& setup, int probed, int opened) {
    const QString file = path();
    QString error;
    const auto foreign = [&](int id, int version, const char* sql) {
        Raw raw(file);
        for (const QString& s :
             {QStringLiteral("PRAGMA application_id = %1").arg(id),
              QStringLiteral("PRAGMA user_version = %1").arg(version), QString::fromLatin1(sql)})
            QCOMPARE(raw.column(s), QStringList());
    };
    if (setup == "folder")
        QVERIFY(QDir().mkpath(file));
    else if (setup == "empty")
        TempEnvironment::writeFile(file, {});
    else if (setup == "header")
        TempEnvironment::writeFile(file, QByteArray("SQLite format 3", 16));
    else if (setup == "foreign")
        foreign(0, 0, "CREATE TABLE vk_values (name TEXT, value TEXT)");
    else if (setup.startsWith("v"))
        foreign(VkdbApplicationId, setup.mid(1).toInt(), "CREATE TABLE t (x)");
    else if (setup.startsWith("cut"))
        QVERIFY(TVKDB::create(file, 2, &error) && QFile(file).resize(setup.mid(3).toInt()));
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

// Each operation gives up after its busy time-out while another connection
// holds the file, and leaves it whole.
void TestSuiteDatabase::locked(int version, const QString& operation) {
    {
        auto db = made(version);
        QVERIFY(db->addProxy(entry("Tor", "socks5", "127.0.0.1", 9050)));
        QVERIFY(db->writeValue("statslastsource", "Pinger A"));
    }
    std::unique_ptr<TVKDB> db;
    if (operation != "open")
        db = openAs(version, path());
    {
        Raw holder(path());
        QCOMPARE(holder.column("BEGIN EXCLUSIVE"), QStringList());
        QElapsedTimer timer;
        timer.start();
        QStringList found;
        if (operation == "open") {
            QCOMPARE(TVKDB::probe(path()), TVKDB::ErrorLocked);
            QCOMPARE(GetVKDBVersion(path()), 0);
            db = openAs(version, path());
        } else if (operation == "records") {
            QVERIFY(!db->getProxyRecords(found));
        } else if (operation == "add proxy") {
            QVERIFY(!db->addProxy(entry("Other", "http", "h", 1)));
        } else if (operation == "delete proxy") {
            QVERIFY(!db->deleteProxy("Tor"));
        } else if (operation == "write value") {
            QVERIFY(!db->writeValue("statslastsource", "Pinger B"));
        } else {
            QVERIFY(!db->writeValues({{"mlist.txt", "2002-08-20"}, {"statslastsource", "B"}}));
        }
        QVERIFY(found.isEmpty());
        QVERIFY2(timer.elapsed() < 20000, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(db->error(), int(TVKDB::ErrorLocked));
        QVERIFY2(db->errorText().contains("locked"), qPrintable(db->errorText()));
        QCOMPARE(holder.column("ROLLBACK"), QStringList());
    }
    auto after = openAs(version, path());
    QCOMPARE(after->error(), 0);
    QCOMPARE(records(*after).size(), 1);
    QCOMPARE(after->readValue("statslastsource"), QString("Pinger A"));
    QCOMPARE(after->readValue("mlist.txt", "none"), QString("none"));
    QVERIFY(after->addProxy(entry("Other", "http", "h", 1)));
}

// Damage behind an intact first page (header and schema) shows only when the
// tables are read: the file opens, and reading then fails as damaged.
void TestSuiteDatabase::damagedPagesFoundOnReading() {
    made(2).reset();
    int pageSize = 0;
    {
        Raw raw(path());
        QCOMPARE(raw.column("BEGIN"), QStringList());
        for (int i = 0; i < 300; ++i)
            raw.column(QString("INSERT INTO vk_proxies (name, kind, hidden, host, port, user, "
                               "password) VALUES ('proxy %1', 'http', 0, 'host.example', %2, "
                               "'user', 'password')")
                           .arg(i)
                           .arg(i + 1));
        QCOMPARE(raw.column("COMMIT"), QStringList());
        pageSize = raw.column("PRAGMA page_size").value(0).toInt();
    }
    QCOMPARE(records(*openAs(2, path())).size(), 300);
    QVERIFY(pageSize >= 512);
    {
        QFile file(path());
        QVERIFY(file.open(QIODevice::ReadWrite) && file.size() > 8 * pageSize);
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
