#include "SuiteDatabase.h"

#include <QAtomicInt>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSqlError>
#include <QSqlQuery>
#include <QUrl>

#include <memory>
#include <utility>

namespace {

constexpr char SlashMark = '\xAD';
const QString ValuesTable = QStringLiteral("vk_values");

QString nextConnectionName() {
    static QAtomicInt counter;
    return QStringLiteral("vkdb-%1").arg(counter.fetchAndAddRelaxed(1));
}

// How long a connection waits for another one's lock before it gives up:
// long enough for the suite to finish a write, short enough not to look hung.
const QString BusyTimeout = QStringLiteral("QSQLITE_BUSY_TIMEOUT=2000");

// Sorts an SQLite failure by its primary result code; the Qt driver reports
// it as the native code.
TVKDB::ErrorCode classify(const QSqlError& error) {
    switch (error.nativeErrorCode().toInt() & 0xff) {
    case 5: // SQLITE_BUSY
    case 6: // SQLITE_LOCKED
        return TVKDB::ErrorLocked;
    case 11: // SQLITE_CORRUPT
    case 26: // SQLITE_NOTADB
        return TVKDB::ErrorDamaged;
    default:
        return TVKDB::ErrorFailed;
    }
}

// The driver's text ends with its own words on a new line at times; the
// callers show one line.
QString oneLine(const QString& text) {
    return text.simplified();
}

// Runs one pragma on an open connection.
TVKDB::ErrorCode readPragma(const QSqlDatabase& db, const char* pragma, int* value, QString* text) {
    QSqlQuery query(db);
    if (query.exec(QStringLiteral("PRAGMA %1").arg(QLatin1String(pragma))) && query.next()) {
        *value = query.value(0).toInt();
        return TVKDB::NoError;
    }
    *text = oneLine(query.lastError().text());
    return classify(query.lastError());
}

// Whether the file is there and starts as an SQLite database. Checked before
// SQLite sees the file, which would create a missing one and takes an empty
// file for an empty database.
TVKDB::ErrorCode checkFile(const QString& path, QString* why) {
    const QFileInfo info(path);
    if (!info.exists()) {
        *why = QStringLiteral("no such file");
        return TVKDB::ErrorMissing;
    }
    if (!info.isFile()) {
        *why = QStringLiteral("not a file");
        return TVKDB::ErrorNotDataFile;
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *why = QStringLiteral("cannot read it: ") + file.errorString();
        return TVKDB::ErrorFailed;
    }
    if (file.read(16) != QByteArray("SQLite format 3", 16)) {
        *why = QStringLiteral("not an SQLite database");
        return TVKDB::ErrorNotDataFile;
    }
    return TVKDB::NoError;
}

// The format version of the database open on db, when it is a suite data
// file at all.
TVKDB::ErrorCode readVersion(const QSqlDatabase& db, int* version, QString* why) {
    int applicationId = 0;
    if (const TVKDB::ErrorCode code = readPragma(db, "application_id", &applicationId, why))
        return code;
    if (applicationId != VkdbApplicationId) {
        *why = QStringLiteral("another application's database");
        return TVKDB::ErrorNotDataFile;
    }
    int found = 0;
    if (const TVKDB::ErrorCode code = readPragma(db, "user_version", &found, why))
        return code;
    if (found != 1 && found != 2) {
        *why = QStringLiteral("format version %1 is not known").arg(found);
        return TVKDB::ErrorNotDataFile;
    }
    *version = found;
    return TVKDB::NoError;
}

QString withSlashMarks(QString text) {
    return text.replace(u'/', QChar(uchar(SlashMark)));
}

QString withSlashes(QString text) {
    return text.replace(QChar(uchar(SlashMark)), u'/');
}

// A null QString binds as SQL NULL, which the NOT NULL columns refuse; an
// entry without a user has an empty one.
QString notNull(const QString& text) {
    return text.isNull() ? QStringLiteral("") : text;
}

bool hasLineBreak(const QString& text) {
    return text.contains(u'\n') || text.contains(u'\r');
}

std::unique_ptr<SuiteDataFile>& holder() {
    static std::unique_ptr<SuiteDataFile> instance;
    return instance;
}

} // namespace

int GetVKDBVersion(const QString& path) {
    int version = 0;
    return TVKDB::probe(path, &version) == TVKDB::NoError ? version : 0;
}

TVKDB::ErrorCode TVKDB::probe(const QString& path, int* version, QString* text) {
    QString ignored;
    QString& why = text ? *text : ignored;
    why.clear();
    if (version)
        *version = 0;
    if (const ErrorCode code = checkFile(path, &why))
        return code;
    // One read-only connection for the look, closed again.
    const QString name = nextConnectionName();
    ErrorCode code = NoError;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(path);
        db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY;") + BusyTimeout);
        int found = 0;
        if (!db.open()) {
            code = classify(db.lastError());
            why = oneLine(db.lastError().text());
        } else {
            code = readVersion(db, &found, &why);
        }
        if (code == NoError && version)
            *version = found;
        db.close();
    }
    QSqlDatabase::removeDatabase(name);
    return code;
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
    db.setConnectOptions(BusyTimeout);
    // Looked at as probe() does, but on this connection rather than one of
    // its own: SQLite would create a missing file on opening, and a locked
    // file must not be taken for a foreign one.
    int version = 0;
    QString why;
    ErrorCode code = checkFile(path, &why);
    if (code == NoError && !db.open()) {
        fail(db.lastError());
        return;
    }
    if (code == NoError)
        code = readVersion(db, &version, &why);
    m_formatUnknown = code != NoError;
    if (code == NoError && version != expectedVersion) {
        m_otherFormat = version;
        code = ErrorNotDataFile;
        why = QStringLiteral("not a format %1 data file (it is format %2)")
                  .arg(expectedVersion)
                  .arg(version);
    }
    if (code != NoError) {
        // Left closed, as a file that is no data file of this format is.
        db.close();
        fail(code, why);
    }
}

void TVKDB::finishConstruction() {
    if (m_error != 0 || checkSchema())
        return;
    // Our application id but not our tables: as foreign as any other file.
    // A lock or damage found on the way says more, so it stays.
    if (m_error == ErrorFailed || m_error == 0)
        fail(ErrorNotDataFile, QStringLiteral("the tables are missing"));
}

TVKDB::~TVKDB() {
    {
        QSqlDatabase connection = db();
        connection.close();
    }
    QSqlDatabase::removeDatabase(m_connection);
}

bool TVKDB::isOpen() {
    if (db().isOpen())
        return true;
    // Only after a failed construction; the reason found then says more.
    if (m_error == 0)
        fail(QStringLiteral("the data file is not open"));
    return false;
}

void TVKDB::fail(const QString& text) {
    fail(ErrorFailed, text);
}

void TVKDB::fail(ErrorCode code, const QString& text) {
    m_error = code;
    m_errorText = text;
}

void TVKDB::fail(const QSqlError& error) {
    fail(classify(error), oneLine(error.text()));
}

bool TVKDB::exec(const QString& sql, const QVariantList& values, QStringList* column) {
    if (!isOpen())
        return false;
    QSqlQuery query(db());
    if (!query.prepare(sql)) {
        fail(query.lastError());
        return false;
    }
    for (const QVariant& value : values)
        query.addBindValue(value);
    if (!query.exec()) {
        fail(query.lastError());
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

QHash<QString, QString> TVKDB::readValues() {
    QHash<QString, QString> values;
    if (!isOpen())
        return values;
    QSqlQuery query(db());
    if (!query.exec(QStringLiteral("SELECT name, value FROM %1").arg(ValuesTable))) {
        fail(query.lastError());
        return values;
    }
    while (query.next())
        values.insert(query.value(0).toString(), query.value(1).toString());
    return values;
}

bool TVKDB::writeValue(const QString& name, const QString& value) {
    return exec(QStringLiteral("INSERT INTO %1 (name, value) VALUES (?, ?) "
                               "ON CONFLICT(name) DO UPDATE SET value = excluded.value")
                    .arg(ValuesTable),
                // A null text would bind as SQL NULL; an unknown date is stored empty.
                {name, value.isNull() ? QStringLiteral("") : value});
}

bool TVKDB::writeValues(const QList<std::pair<QString, QString>>& values) {
    if (!isOpen() || !db().transaction())
        return false;
    for (const auto& [name, value] : values) {
        if (!writeValue(name, value)) {
            db().rollback();
            return false;
        }
    }
    return db().commit();
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
    // User and password may be left off; anything beyond them means the
    // fields have shifted (a comma in a name) and none of them can be trusted.
    const QStringList fields = record.split(u',');
    if (fields.size() < 5 || fields.size() > 7)
        return false;
    const QString kind = fields.at(1).trimmed().toLower();
    if (kind != QLatin1String("http") && kind != QLatin1String("socks5"))
        return false;
    const QString host = fields.at(3).trimmed();
    if (host.isEmpty() || host.contains(QRegularExpression(QStringLiteral("\\s"))))
        return false;
    bool portOk = false;
    const int port = fields.at(4).trimmed().toInt(&portOk);
    if (!portOk || port <= 0 || port > 65535)
        return false;
    const auto decoded = [&](int i) {
        return i < fields.size() ? QUrl::fromPercentEncoding(fields.at(i).toUtf8()) : QString();
    };
    settings << QStringLiteral("kind=") + kind << QStringLiteral("host=") + host
             << QStringLiteral("port=") + QString::number(port)
             << QStringLiteral("user=") + decoded(5) << QStringLiteral("password=") + decoded(6);
    return true;
}

QString TVKDB::checkProxyEntry(const ProxyEntry& entry) {
    if (entry.name.trimmed().isEmpty())
        return QStringLiteral("a proxy needs a name");
    if (entry.name.contains(u',') || hasLineBreak(entry.name))
        return QStringLiteral("a proxy name cannot hold commas or line breaks");
    // The file uses this character for "/", so it would come back as one.
    if (entry.name.contains(QChar(uchar(SlashMark))))
        return QStringLiteral("a proxy name cannot hold the soft hyphen U+00AD");
    if (entry.kind != QLatin1String("http") && entry.kind != QLatin1String("socks5"))
        return QStringLiteral("unknown proxy kind \"%1\" (use http or socks5)").arg(entry.kind);
    if (entry.host.isEmpty() || entry.host.contains(u',') ||
        entry.host.contains(QRegularExpression(QStringLiteral("\\s"))))
        return QStringLiteral("the host must be a name or address without commas or blanks");
    if (entry.port <= 0 || entry.port > 65535)
        return QStringLiteral("port %1 is out of range (1 to 65535)").arg(entry.port);
    return {};
}

bool TVKDB::addProxy(const ProxyEntry& entry) {
    if (const QString problem = checkProxyEntry(entry); !problem.isEmpty()) {
        fail(ErrorBadEntry, problem);
        return false;
    }
    // The look for a clash and the insert are one transaction, so two tools
    // adding the same name at once cannot both succeed.
    if (!exec(QStringLiteral("BEGIN IMMEDIATE")))
        return false;
    QStringList records;
    bool ok = getProxyRecords(records);
    for (const QString& record : std::as_const(records)) {
        const QString stored = withSlashes(record.section(u',', 0, 0));
        if (ok && stored.compare(entry.name, Qt::CaseInsensitive) == 0) {
            fail(ErrorExists, QStringLiteral("a proxy named \"%1\" is stored already").arg(stored));
            ok = false;
        }
    }
    ok = ok && insertProxy(entry) && exec(QStringLiteral("COMMIT"));
    if (!ok) {
        // Keeps the reason already recorded rather than that of the rollback.
        QSqlQuery(db()).exec(QStringLiteral("ROLLBACK"));
    }
    return ok;
}

bool TVKDB::deleteProxy(const QString& name) {
    const int before = m_error;
    m_error = 0;
    const bool removed = removeProxy(name);
    if (removed)
        m_error = before;
    else if (m_error == 0)
        fail(ErrorNotFound, QStringLiteral("no proxy named \"%1\"").arg(name));
    return removed;
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
    if (!exec(QStringLiteral("SELECT record FROM vk_proxies"), {}, &records))
        return false;
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
    if (!isOpen())
        return records;
    QSqlQuery query(db());
    if (!query.exec(QStringLiteral(
            "SELECT name, kind, hidden, host, port, user, password FROM vk_proxies ORDER BY id"))) {
        fail(query.lastError());
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

// The name column keeps the slash mark too, so the file holds names the same
// way in both formats.
bool TVKDB2::insertProxy(const ProxyEntry& entry) {
    return exec(QStringLiteral("INSERT INTO vk_proxies (name, kind, hidden, host, port, user, "
                               "password) VALUES (?, ?, ?, ?, ?, ?, ?)"),
                {withSlashMarks(entry.name), notNull(entry.kind), entry.hidden ? 1 : 0,
                 notNull(entry.host), entry.port, notNull(entry.user), notNull(entry.password)});
}

bool TVKDB2::removeProxy(const QString& name) {
    const QString stored = withSlashMarks(name);
    QStringList found;
    if (!exec(QStringLiteral("SELECT name FROM vk_proxies WHERE name = ?"), {stored}, &found))
        return false;
    return !found.isEmpty() &&
           exec(QStringLiteral("DELETE FROM vk_proxies WHERE name = ?"), {stored});
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
