#pragma once

#include <QHash>
#include <QSqlDatabase>
#include <QString>
#include <QStringList>

#include <utility>

class FrontEnd;
class QSqlError;

// The suite data file: an SQLite file whose format version (1 or 2) is its
// user_version and whose application id marks it as the suite's. It holds
// named values ("statslastsource", page dates) and proxy records.
//
// A proxy record is one comma-separated line:
//   name,kind,hidden,host,port,user,password
// kind is "http" or "socks5"; hidden is a single blank for a proxy that is
// not offered; user and password are percent-encoded. Like the suite, the
// file keeps the byte 0xAD where a name has a slash.

inline constexpr int VkdbApplicationId = 0x564B4442; // "VKDB"

// The format version of the file at path: 1 or 2 for a suite data file,
// 0 for anything else (no file, not SQLite, another application's database,
// an unknown version, or a file another program holds locked).
int GetVKDBVersion(const QString& path);

struct ProxyEntry {
    QString name;
    QString kind = QStringLiteral("http");
    bool hidden = false;
    QString host;
    int port = 0;
    QString user;
    QString password;
};

QString ProxyEntryToRecord(const ProxyEntry& entry);

class TVKDB {
public:
    // What error() holds. Callers that only ask "did it fail" compare with 0;
    // the others let a tool tell its user why.
    enum ErrorCode {
        NoError = 0,
        ErrorFailed = 1,  // anything not named below
        ErrorMissing,     // no file at the path
        ErrorNotDataFile, // not a suite data file (of this format)
        ErrorDamaged,     // SQLite finds the file corrupt or cut short
        ErrorLocked,      // another connection held a lock past the busy time-out
        ErrorNotFound,    // no proxy of that name
        ErrorExists,      // a proxy of that name is stored already
        ErrorBadEntry,    // the entry would not make a readable record
    };

    virtual ~TVKDB();
    TVKDB(const TVKDB&) = delete;
    TVKDB& operator=(const TVKDB&) = delete;

    // Non-zero (an ErrorCode) after a construction or operation that failed.
    int error() const { return m_error; }
    QString errorText() const { return m_errorText; }
    // Construction could not tell the file for a data file of a known format
    // (missing, foreign, damaged, locked while being looked at): probe()
    // would have said as much.
    bool formatUnknown() const { return m_formatUnknown; }
    // The format the file has when construction refused it for being another
    // one; 0 otherwise.
    int otherFormat() const { return m_otherFormat; }
    QString path() const { return m_path; }
    virtual int version() const = 0;

    QString readValue(const QString& name, const QString& def = {});
    // Every stored value by its name, in one query; empty when none can be read.
    QHash<QString, QString> readValues();
    bool writeValue(const QString& name, const QString& value);
    // Several values in one transaction: all are stored or none, and the
    // disk is synced once instead of once per value.
    bool writeValues(const QList<std::pair<QString, QString>>& values);
    bool deleteValue(const QString& name);
    QStringList valueNames();

    // Appends every stored proxy record to records.
    bool getProxyRecords(QStringList& records);
    // Turns one record into name=value lines (kind, host, port, user,
    // password) appended to settings; false, appending nothing, for a record
    // with a field missing or malformed (unknown kind, no host, bad port).
    static bool proxyRecordToSettings(const QString& record, QStringList& settings);

    // Refuses an entry checkProxyEntry rejects and a name already stored
    // (ignoring case, as VKstats looks names up that way).
    bool addProxy(const ProxyEntry& entry);
    // False with ErrorNotFound when no proxy has exactly that name.
    bool deleteProxy(const QString& name);

    // Why entry cannot be stored as a record; empty when it can.
    static QString checkProxyEntry(const ProxyEntry& entry);

    // Creates a new, empty data file of the given format version.
    static bool create(const QString& path, int version, QString* error);

    // Looks at path without changing it: NoError and the format version for a
    // data file of a known version, otherwise the ErrorCode that says why not
    // and a few words in text.
    static ErrorCode probe(const QString& path, int* version = nullptr, QString* text = nullptr);

protected:
    TVKDB(const QString& path, int expectedVersion);
    virtual QStringList selectRecords() = 0;
    virtual bool insertProxy(const ProxyEntry& entry) = 0;
    virtual bool removeProxy(const QString& name) = 0;
    // Checks that the tables this format needs are there and readable.
    virtual bool checkSchema() = 0;

    QSqlDatabase db() const { return QSqlDatabase::database(m_connection, false); }
    // False (recording why) when construction failed and left no connection.
    bool isOpen();
    bool exec(const QString& sql, const QVariantList& values = {}, QStringList* column = nullptr);
    void fail(const QString& text);
    void fail(ErrorCode code, const QString& text);
    void fail(const QSqlError& error);
    void finishConstruction();

private:
    QString m_path;
    QString m_connection;
    int m_error = 0;
    QString m_errorText;
    bool m_formatUnknown = false;
    int m_otherFormat = 0;
};

// Format 1: proxy records stored as lines, as the suite's first releases had them.
class TVKDB1 : public TVKDB {
public:
    explicit TVKDB1(const QString& path);
    int version() const override { return 1; }

protected:
    QStringList selectRecords() override;
    bool insertProxy(const ProxyEntry& entry) override;
    bool removeProxy(const QString& name) override;
    bool checkSchema() override;
};

// Format 2: one column per proxy field; records are composed on reading.
class TVKDB2 : public TVKDB {
public:
    explicit TVKDB2(const QString& path);
    int version() const override { return 2; }

protected:
    QStringList selectRecords() override;
    bool insertProxy(const ProxyEntry& entry) override;
    bool removeProxy(const QString& name) override;
    bool checkSchema() override;
};

// The single open data file of the process, empty until start-up opened it.
struct SuiteDataFile {
    bool failed = false;
    TVKDB* database = nullptr;
    FrontEnd* owner = nullptr;
    ~SuiteDataFile() { delete database; }
};
SuiteDataFile* TheSuiteDataFile();
void CloseSuiteDataFile();
void SetSuiteDataFile(SuiteDataFile* holder); // takes ownership
