#include "Global2.h"
#include "SuiteDatabase.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TestFrontEnd.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

namespace {

struct Run {
    bool finished = false;
    QProcess::ExitStatus status = QProcess::CrashExit;
    int code = -1;
    QString out;
    QString err;
};

// Runs the built tool with input on its standard input and waits for it; a
// hang shows up as not finished.
Run vkdbtool(const QStringList& arguments, const QByteArray& input = {}) {
    QProcess process;
    process.setProgram(QStringLiteral(VKDBTOOL));
    process.setArguments(arguments);
    process.start();
    process.write(input);
    process.closeWriteChannel();
    Run run;
    run.finished = process.waitForFinished(60000);
    if (!run.finished) {
        process.kill();
        process.waitForFinished();
    }
    run.status = process.exitStatus();
    run.code = process.exitCode();
    run.out = QString::fromUtf8(process.readAllStandardOutput());
    run.err = QString::fromUtf8(process.readAllStandardError());
    return run;
}

QByteArray describe(const QStringList& arguments, const Run& run) {
    return QStringLiteral("vkdbtool %1\nexit %2\nstdout: %3\nstderr: %4")
        .arg(arguments.join(u' '))
        .arg(run.code)
        .arg(run.out, run.err)
        .toUtf8();
}

// Runs the tool and checks that it ended by itself with the given code.
#define VKDBTOOL_EXPECT(result, arguments, expectedCode, ...)                                      \
    const Run result = vkdbtool(arguments __VA_OPT__(, ) __VA_ARGS__);                             \
    QVERIFY2(result.finished&& result.status == QProcess::NormalExit,                              \
             describe(arguments, result).constData());                                             \
    QVERIFY2(result.code == (expectedCode), describe(arguments, result).constData())

// A connection of the test's own, to hold a lock while the tool runs.
class LockHolder {
public:
    explicit LockHolder(const QString& path) {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name());
        db.setDatabaseName(path);
        if (db.open())
            m_locked = QSqlQuery(db).exec(QStringLiteral("BEGIN EXCLUSIVE"));
    }
    ~LockHolder() {
        {
            QSqlDatabase db = QSqlDatabase::database(name(), false);
            QSqlQuery(db).exec(QStringLiteral("ROLLBACK"));
            db.close();
        }
        QSqlDatabase::removeDatabase(name());
    }
    LockHolder(const LockHolder&) = delete;
    LockHolder& operator=(const LockHolder&) = delete;
    bool isLocked() const { return m_locked; }

private:
    static QString name() { return QStringLiteral("lock-holder"); }
    bool m_locked = false;
};

std::unique_ptr<TVKDB> openAs(int version, const QString& path) {
    if (version == 1)
        return std::make_unique<TVKDB1>(path);
    return std::make_unique<TVKDB2>(path);
}

} // namespace

class TestVkdbTool : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void commands_data() { AddTableRows(QStringLiteral("vkdbtool.txt")); }
    void commands();
    void createFormats_data();
    void createFormats();
    void proxiesEndToEnd_data();
    void proxiesEndToEnd();
    void valuesEndToEnd();

private:
    void prepare(const QString& setup, const QString& file);
    QString dataFile() const { return m_env->programFolder() + QStringLiteral("vk.dbc"); }
    std::unique_ptr<TempEnvironment> m_env;
};

void TestVkdbTool::init() {
    m_env.reset(); // the old one restores the environment it found
    m_env = std::make_unique<TempEnvironment>();
    QVERIFY(m_env->isValid());
}

void TestVkdbTool::cleanup() {
    CloseSuiteDataFile();
}

void TestVkdbTool::createFormats_data() {
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<int>("version");
    QTest::newRow("default") << QStringList{} << 2;
    QTest::newRow("format 1") << QStringList{"--format", "1"} << 1;
    QTest::newRow("format=1 before the file") << QStringList{"--format=1"} << 1;
}

void TestVkdbTool::createFormats() {
    QFETCH(QStringList, options);
    QFETCH(int, version);
    QStringList arguments{"create"};
    if (options.value(0).contains('='))
        arguments << options << dataFile();
    else
        arguments << dataFile() << options;
    VKDBTOOL_EXPECT(run, arguments, 0);
    QVERIFY(run.out.isEmpty());
    QVERIFY(run.err.isEmpty());
    QCOMPARE(GetVKDBVersion(dataFile()), version);
    auto db = openAs(version, dataFile());
    QCOMPARE(db->error(), 0);
    QStringList records;
    QVERIFY(db->getProxyRecords(records));
    QVERIFY(records.isEmpty());
    // It will hold passwords: its owner's alone, from the start.
    QCOMPARE(int(QFileInfo(dataFile()).permissions() & 0x0077), 0);

    // Folders on the way are made.
    const QString nested = m_env->programFolder() + "new/folder/vk.dbc";
    VKDBTOOL_EXPECT(again, (QStringList{"create", nested} + options), 0);
    QCOMPARE(GetVKDBVersion(nested), version);
}

void TestVkdbTool::proxiesEndToEnd_data() {
    QTest::addColumn<int>("version");
    QTest::newRow("format 1") << 1;
    QTest::newRow("format 2") << 2;
}

void TestVkdbTool::proxiesEndToEnd() {
    QFETCH(int, version);
    const QString file = dataFile();
    {
        VKDBTOOL_EXPECT(run, (QStringList{"create", file, "--format", QString::number(version)}),
                        0);
    }
    // Passwords come from a file or standard input, never from the command
    // line; only the first line counts.
    const QString bobs = m_env->programFolder() + "bob.pw";
    TempEnvironment::writeFile(bobs, "pa,ss%w\n");
    const QList<std::pair<QStringList, QByteArray>> additions = {
        {{"add-proxy", file, "Office HTTP", "--kind", "http", "--host", "proxy.example", "--port",
          "3128", "--user", "bob", "--password-file", bobs},
         {}},
        {{"add-proxy", file, "Tor/Isolated", "--kind", "socks5", "--host", "127.0.0.1", "--port",
          "9050", "--user", "stream-1", "--password-file", "-"},
         "x=y\r\nsecond line ignored\n"},
        {{"add-proxy", file, "Spare", "--hidden", "--kind", "SOCKS5", "--host", "10.0.0.2",
          "--port", "1080"},
         {}},
    };
    for (const auto& [arguments, input] : additions) {
        VKDBTOOL_EXPECT(run, arguments, 0, input);
        QVERIFY2(run.out.isEmpty() && run.err.isEmpty(), describe(arguments, run).constData());
    }
    // It holds passwords now: nobody but its owner reads it.
    QCOMPARE(int(QFileInfo(file).permissions() & 0x0077), 0);

    // As the tool shows them: "/" back in the name, credentials decoded in
    // the settings.
    const QStringList shown = {
        "Office HTTP,http,,proxy.example,3128,bob,pa%2Css%25w",
        "Tor/Isolated,socks5,,127.0.0.1,9050,stream-1,x%3Dy",
        "Spare,socks5, ,10.0.0.2,1080,,",
    };
    const QList<QStringList> settings = {
        {"kind=http", "host=proxy.example", "port=3128", "user=bob", "password=pa,ss%w"},
        {"kind=socks5", "host=127.0.0.1", "port=9050", "user=stream-1", "password=x=y"},
        {"kind=socks5", "host=10.0.0.2", "port=1080", "user=", "password="},
    };
    QStringList blocks;
    for (int i = 0; i < shown.size(); ++i)
        blocks << shown.at(i) + '\n' + "  " + settings.at(i).join("\n  ") + '\n';
    const QString listing = blocks.join(QString());
    {
        VKDBTOOL_EXPECT(run, (QStringList{"list-proxies", file}), 0);
        QCOMPARE(run.out, listing);
        QVERIFY(run.err.isEmpty());
    }

    // As VKstats reaches it: the data file of the program folder, the slash
    // still marked.
    QStringList stored = shown;
    stored[1].replace(u'/', QChar(0x00AD));
    TestFrontEnd ui;
    QVERIFY(OpenSuiteDataFile(&ui));
    QCOMPARE(ui.messages.size(), 0);
    QCOMPARE(TheSuiteDataFile()->database->version(), version);
    QStringList records;
    QVERIFY(TheSuiteDataFile()->database->getProxyRecords(records));
    QCOMPARE(records, stored);
    CloseSuiteDataFile();

    {
        VKDBTOOL_EXPECT(run, (QStringList{"delete-proxy", file, "Tor/Isolated"}), 0);
        QVERIFY(run.out.isEmpty() && run.err.isEmpty());
    }
    {
        VKDBTOOL_EXPECT(run, (QStringList{"list-proxies", file}), 0);
        QCOMPARE(run.out, blocks.at(0) + blocks.at(2));
    }
}

// The values are kept the same way in both formats.
void TestVkdbTool::valuesEndToEnd() {
    const QString file = dataFile();
    { VKDBTOOL_EXPECT(run, (QStringList{"create", file}), 0); }
    const QList<QStringList> sets = {
        {"set", file, "statslastsource", "Pinger A"},
        {"set", file, "mlist.txt", "Tue 04 Mar 2025 10:00:00 GMT"},
        {"set", file, "statslastsource", "Pinger, B"},
        {"set", file, "empty", ""},
    };
    for (const QStringList& arguments : sets) {
        VKDBTOOL_EXPECT(run, arguments, 0);
        QVERIFY(run.out.isEmpty() && run.err.isEmpty());
    }
    {
        VKDBTOOL_EXPECT(run, (QStringList{"get", file, "statslastsource"}), 0);
        QCOMPARE(run.out, QString("Pinger, B\n"));
    }
    {
        VKDBTOOL_EXPECT(run, (QStringList{"list", file}), 0);
        QCOMPARE(run.out, QString("empty=\nmlist.txt=Tue 04 Mar 2025 10:00:00 GMT\n"
                                  "statslastsource=Pinger, B\n"));
    }
    {
        TVKDB2 db(file);
        QCOMPARE(db.readValue("statslastsource"), QString("Pinger, B"));
        QCOMPARE(db.readValue("empty", "default"), QString(""));
    }
    { VKDBTOOL_EXPECT(run, (QStringList{"delete", file, "statslastsource"}), 0); }
    {
        VKDBTOOL_EXPECT(run, (QStringList{"get", file, "statslastsource"}), 5);
        QVERIFY(run.out.isEmpty());
    }
    {
        VKDBTOOL_EXPECT(run, (QStringList{"list", file}), 0);
        QCOMPARE(run.out, QString("empty=\nmlist.txt=Tue 04 Mar 2025 10:00:00 GMT\n"));
    }
    QCOMPARE(TVKDB2(file).readValue("statslastsource", "gone"), QString("gone"));
}

// The set-up a table row names: "data" and "data1" hold the proxy Tor and one
// value, in format 2 or 1; "none" leaves no file.
void TestVkdbTool::prepare(const QString& setup, const QString& file) {
    QString error;
    if (setup == "data" || setup == "data1" || setup == "locked") {
        const int version = setup == "data1" ? 1 : 2;
        QVERIFY(TVKDB::create(file, version, &error));
        auto db = openAs(version, file);
        ProxyEntry tor;
        tor.name = "Tor";
        tor.kind = "socks5";
        tor.host = "127.0.0.1";
        tor.port = 9050;
        QVERIFY(db->addProxy(tor));
        QVERIFY(db->writeValue("statslastsource", "Pinger A"));
    } else if (setup == "text") {
        TempEnvironment::writeFile(file, "[main]\nnot=a database\n");
    } else if (setup == "foreign") {
        {
            QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "foreign");
            db.setDatabaseName(file);
            QVERIFY(db.open());
            QVERIFY(QSqlQuery(db).exec("CREATE TABLE vk_values (name TEXT, value TEXT)"));
        }
        QSqlDatabase::removeDatabase("foreign");
    } else if (setup == "truncated") {
        QVERIFY(TVKDB::create(file, 2, &error));
        QVERIFY(QFile(file).resize(1000));
    } else if (setup == "odd") {
        QVERIFY(TVKDB::create(file, 1, &error));
    }
}

void TestVkdbTool::commands() {
    QFETCH(QStringList, f);
    const QString file = dataFile();
    const QString& kind = f[0];
    prepare(kind == "odd" ? kind : kind == "error" ? f[1] : QStringLiteral("none"), file);
    if (QTest::currentTestFailed())
        return;
    QStringList arguments = f[kind == "error" ? 2 : 1].split(u'|');
    if (arguments == QStringList{QString()})
        arguments.clear();
    for (QString& argument : arguments)
        argument.replace("$FILE", file).replace("$FOLDER", m_env->programFolder());
    const bool existed = QFileInfo::exists(file);
    const QByteArray before = TempEnvironment::readFile(file);
    std::unique_ptr<LockHolder> lock;
    if (kind == "error" && f[1] == "locked") {
        lock = std::make_unique<LockHolder>(file);
        QVERIFY(lock->isLocked());
    }
    const int code = kind == "help" ? 0 : f[kind == "error" ? 3 : 2].toInt();
    VKDBTOOL_EXPECT(run, arguments, code);
    lock.reset();
    if (kind == "help") {
        QVERIFY2(run.err.isEmpty(), qPrintable(run.err));
        for (QString text : f[2].split(u'|'))
            QVERIFY2(run.out.contains(text.replace("@VERSION@", VKSTATS_VERSION)),
                     qPrintable(text + " missing from:\n" + run.out));
    } else if (kind == "error") {
        QVERIFY2(run.out.isEmpty(), qPrintable(run.out));
        // One line, naming the tool, saying what is wrong.
        QVERIFY2(run.err.endsWith('\n') && run.err.count('\n') == 1, qPrintable(run.err));
        QVERIFY2(run.err.startsWith("vkdbtool"), qPrintable(run.err));
        QVERIFY2(run.err.contains(QString(f[4]).replace("$FILE", file)), qPrintable(run.err));
        // A refused command leaves the file as it was, or absent.
        QCOMPARE(QFileInfo::exists(file), existed);
        QCOMPARE(TempEnvironment::readFile(file), before);
    } else {
        QCOMPARE(run.err.isEmpty(), code == 0);
        TVKDB1 db(file);
        QStringList records;
        QVERIFY(db.getProxyRecords(records));
        QCOMPARE(records, f[3].isEmpty() ? QStringList{} : QStringList{f[3]});
        if (code == 0 && arguments.first() == "set")
            QCOMPARE(db.readValue(arguments.at(2)), arguments.at(3));
    }
}

QTEST_GUILESS_MAIN(TestVkdbTool)
#include "tst_vkdbtool.moc"
