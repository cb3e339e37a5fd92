#include "SuiteDatabase.h"

#include <QAtomicInt>
#include <QFile>
#include <QFileInfo>
#include <QSqlError>
#include <QSqlQuery>
#include <QUrl>

#include <memory>

namespace {

constexpr char SlashMark = '\xAD';
const QString ValuesTable = QStringLiteral("vk_values");

QString nextConnectionName() {
    static QAtomicInt counter;
    return QStringLiteral("vkdb-%1").arg(counter.fetchAndAddRelaxed(1));
}

bool hasSqliteHeader(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    return file.read(16) == QByteArray("SQLite format 3", 16);
}

// Opens a connection, runs one pragma and closes again.
int readPragma(const QString& path, const char* pragma) {
    const QString name = nextConnectionName();
    int value = -1;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(path);
        db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY;QSQLITE_BUSY_TIMEOUT=2000"));
        if (db.open()) {
            QSqlQuery query(db);
            if (query.exec(QStringLiteral("PRAGMA %1").arg(QLatin1String(pragma))) && query.next())
                value = query.value(0).toInt();
        }
        db.close();
    }
    QSqlDatabase::removeDatabase(name);
    return value;
}

QString withSlashMarks(QString text) {
    return text.replace(u'/', QChar(uchar(SlashMark)));
}

std::unique_ptr<SuiteDataFile>& holder() {
    static std::unique_ptr<SuiteDataFile> instance;
    return instance;
}

} // namespace

int GetVKDBVersion(const QString& path) {
    if (!QFileInfo(path).isFile() || !hasSqliteHeader(path))
        return 0;
    if (readPragma(path, "application_id") != VkdbApplicationId)
        return 0;
    const int version = readPragma(path, "user_version");
    return version < 0 ? 0 : version;
}

QString ProxyEntryToRecord(const ProxyEntry& entry) {
    const QStringList fields = {
        withSlashMarks(entry.name),
        entry.kind,
        entry.hidden ? QStringLiteral(" ") : QString(),
        entry.host,
        QString::number(entry.port),
        QString::fromLatin1(QUrl::toPercentEncoding(entry.user)),
        QString::fromLatin1(QUrl::toPercentEncoding(entry.password)),
    };
    return fields.join(u',');
}

TVKDB::TVKDB(const QString& path, int expectedVersion)
    : m_path(path), m_connection(nextConnectionName()) {
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_connection);
    db.setDatabaseName(path);
    db.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=2000"));
    if (!QFileInfo(path).isFile())
        fail(QStringLiteral("no such file"));
    else if (!db.open())
        fail(db.lastError().text());
    else if (GetVKDBVersion(path) != expectedVersion)
        fail(QStringLiteral("not a format %1 data file").arg(expectedVersion));
}

void TVKDB::finishConstruction() {
    if (m_error == 0 && !checkSchema() && m_error == 0)
        fail(QStringLiteral("the tables are missing"));
}

TVKDB::~TVKDB() {
    {
        QSqlDatabase connection = db();
        connection.close();
    }
    QSqlDatabase::removeDatabase(m_connection);
}

void TVKDB::fail(const QString& text) {
    m_error = 1;
    m_errorText = text;
}

bool TVKDB::exec(const QString& sql, const QVariantList& values, QStringList* column) {
    QSqlQuery query(db());
    if (!query.prepare(sql)) {
        fail(query.lastError().text());
        return false;
    }
    for (const QVariant& value : values)
        query.addBindValue(value);
    if (!query.exec()) {
        fail(query.lastError().text());
        return false;
    }
    while (column && query.next())
        column->append(query.value(0).toString());
    return true;
}

QString TVKDB::readValue(const QString& name, const QString& def) {
    QStringList found;
    if (!exec(QStringLiteral("SELECT value FROM %1 WHERE name = ?").arg(ValuesTable), {name},
              &found) ||
        found.isEmpty())
        return def;
    return found.first();
}

bool TVKDB::writeValue(const QString& name, const QString& value) {
    return exec(QStringLiteral("INSERT INTO %1 (name, value) VALUES (?, ?) "
                               "ON CONFLICT(name) DO UPDATE SET value = excluded.value")
                    .arg(ValuesTable),
                {name, value});
}

bool TVKDB::deleteValue(const QString& name) {
    return exec(QStringLiteral("DELETE FROM %1 WHERE name = ?").arg(ValuesTable), {name});
}

QStringList TVKDB::valueNames() {
    QStringList names;
    exec(QStringLiteral("SELECT name FROM %1 ORDER BY name").arg(ValuesTable), {}, &names);
    return names;
}

bool TVKDB::getProxyRecords(QStringList& records) {
    const int before = m_error;
    m_error = 0;
    const QStringList found = selectRecords();
    const bool ok = m_error == 0;
    if (ok)
        m_error = before;
    records += found;
    return ok;
}

bool TVKDB::proxyRecordToSettings(const QString& record, QStringList& settings) {
    const QStringList fields = record.split(u',');
    if (fields.size() < 5 || fields.at(3).isEmpty())
        return false;
    bool portOk = false;
    const int port = fields.at(4).toInt(&portOk);
    if (!portOk || port <= 0 || port > 65535)
        return false;
    const auto decoded = [&](int i) {
        return i < fields.size() ? QUrl::fromPercentEncoding(fields.at(i).toLatin1()) : QString();
    };
    settings << QStringLiteral("kind=") + fields.at(1).trimmed().toLower()
             << QStringLiteral("host=") + fields.at(3).trimmed()
             << QStringLiteral("port=") + QString::number(port)
             << QStringLiteral("user=") + decoded(5) << QStringLiteral("password=") + decoded(6);
    return true;
}

bool TVKDB::addProxy(const ProxyEntry& entry) {
    return insertProxy(entry);
}

bool TVKDB::deleteProxy(const QString& name) {
    return removeProxy(name);
}

bool TVKDB::create(const QString& path, int version, QString* error) {
    const auto failWith = [&](const QString& text) {
        if (error)
            *error = text;
        return false;
    };
    if (version != 1 && version != 2)
        return failWith(QStringLiteral("Unknown format version %1").arg(version));
    if (QFileInfo::exists(path))
        return failWith(QStringLiteral("%1 exists already").arg(path));
    const QString proxies = version == 1
                                ? QStringLiteral("CREATE TABLE vk_proxies (record TEXT NOT NULL)")
                                : QStringLiteral("CREATE TABLE vk_proxies (id INTEGER PRIMARY KEY, "
                                                 "name TEXT NOT NULL UNIQUE, kind TEXT NOT NULL, "
                                                 "hidden INTEGER NOT NULL, host TEXT NOT NULL, "
                                                 "port INTEGER NOT NULL, user TEXT NOT NULL, "
                                                 "password TEXT NOT NULL)");
    const QStringList statements = {
        QStringLiteral("PRAGMA application_id = %1").arg(VkdbApplicationId),
        QStringLiteral("PRAGMA user_version = %1").arg(version),
        QStringLiteral("CREATE TABLE vk_values (name TEXT PRIMARY KEY, value TEXT NOT NULL)"),
        proxies,
    };
    const QString name = nextConnectionName();
    QString problem;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(path);
        if (!db.open())
            problem = db.lastError().text();
        for (const QString& sql : statements) {
            QSqlQuery query(db);
            if (problem.isEmpty() && !query.exec(sql))
                problem = query.lastError().text();
        }
        db.close();
    }
    QSqlDatabase::removeDatabase(name);
    if (!problem.isEmpty()) {
        QFile::remove(path);
        return failWith(QStringLiteral("Cannot create %1: %2").arg(path, problem));
    }
    return true;
}

TVKDB1::TVKDB1(const QString& path) : TVKDB(path, 1) {
    finishConstruction();
}

bool TVKDB1::checkSchema() {
    return exec(QStringLiteral("SELECT record FROM vk_proxies LIMIT 0")) &&
           exec(QStringLiteral("SELECT name, value FROM vk_values LIMIT 0"));
}

QStringList TVKDB1::selectRecords() {
    QStringList records;
    exec(QStringLiteral("SELECT record FROM vk_proxies ORDER BY rowid"), {}, &records);
    return records;
}

bool TVKDB1::insertProxy(const ProxyEntry& entry) {
    return exec(QStringLiteral("INSERT INTO vk_proxies (record) VALUES (?)"),
                {ProxyEntryToRecord(entry)});
}

bool TVKDB1::removeProxy(const QString& name) {
    QStringList records;
    exec(QStringLiteral("SELECT record FROM vk_proxies"), {}, &records);
    const QString prefix = withSlashMarks(name) + u',';
    bool found = false;
    for (const QString& record : records) {
        if (!record.startsWith(prefix))
            continue;
        found = true;
        if (!exec(QStringLiteral("DELETE FROM vk_proxies WHERE record = ?"), {record}))
            return false;
    }
    return found;
}

TVKDB2::TVKDB2(const QString& path) : TVKDB(path, 2) {
    finishConstruction();
}

bool TVKDB2::checkSchema() {
    return exec(QStringLiteral(
               "SELECT name, kind, hidden, host, port, user, password FROM vk_proxies LIMIT 0")) &&
           exec(QStringLiteral("SELECT name, value FROM vk_values LIMIT 0"));
}

QStringList TVKDB2::selectRecords() {
    QStringList records;
    QSqlQuery query(db());
    if (!query.exec(QStringLiteral(
            "SELECT name, kind, hidden, host, port, user, password FROM vk_proxies ORDER BY id"))) {
        fail(query.lastError().text());
        return records;
    }
    while (query.next()) {
        ProxyEntry entry;
        entry.name = query.value(0).toString();
        entry.kind = query.value(1).toString();
        entry.hidden = query.value(2).toInt() != 0;
        entry.host = query.value(3).toString();
        entry.port = query.value(4).toInt();
        entry.user = query.value(5).toString();
        entry.password = query.value(6).toString();
        records.append(ProxyEntryToRecord(entry));
    }
    return records;
}

bool TVKDB2::insertProxy(const ProxyEntry& entry) {
    return exec(QStringLiteral("INSERT INTO vk_proxies (name, kind, hidden, host, port, user, "
                               "password) VALUES (?, ?, ?, ?, ?, ?, ?)"),
                {entry.name, entry.kind, entry.hidden ? 1 : 0, entry.host, entry.port, entry.user,
                 entry.password});
}

bool TVKDB2::removeProxy(const QString& name) {
    QStringList found;
    if (!exec(QStringLiteral("SELECT name FROM vk_proxies WHERE name = ?"), {name}, &found))
        return false;
    return !found.isEmpty() &&
           exec(QStringLiteral("DELETE FROM vk_proxies WHERE name = ?"), {name});
}

SuiteDataFile* TheSuiteDataFile() {
    return holder().get();
}

void SetSuiteDataFile(SuiteDataFile* file) {
    holder().reset(file);
}

void CloseSuiteDataFile() {
    holder().reset();
}
