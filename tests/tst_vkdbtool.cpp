#include "Global2.h"
#include "SuiteDatabase.h"
#include "TempEnvironment.h"
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

const QStringList CommandNames = {"create", "add-proxy", "list-proxies", "delete-proxy",
                                  "set",    "get",       "list",         "delete"};

} // namespace

class TestVkdbTool : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void help_data();
    void help();
    void createFormats_data();
    void createFormats();
    void proxiesEndToEnd_data();
    void proxiesEndToEnd();
    void valuesEndToEnd();
    void errors_data();
    void errors();
    void oddInputs_data();
    void oddInputs();

private:
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

void TestVkdbTool::help_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QStringList>("mentions");
    const QStringList exitCodes = {"Exit codes:", "  2  FILE does not exist",
                                   "  4  FILE is locked by another program"};
    QTest::newRow("--help") << QStringList{"--help"}
                            << QStringList{"Usage: vkdbtool COMMAND"} + CommandNames + exitCodes;
    QTest::newRow("help") << QStringList{"help"}
                          << QStringList{"Usage: vkdbtool COMMAND"} + CommandNames + exitCodes;
    QTest::newRow("create --help")
        << QStringList{"create", "--help"}
        << QStringList{"Usage: vkdbtool create FILE [--format 1|2]", "--format", "FILE"};
    QTest::newRow("add-proxy --help") << QStringList{"add-proxy", "--help"}
                                      << QStringList{"Usage: vkdbtool add-proxy FILE NAME",
                                                     "--kind",
                                                     "--host",
                                                     "--port",
                                                     "--user",
                                                     "--password-file",
                                                     "--hidden",
                                                     "9050"};
    QTest::newRow("help add-proxy")
        << QStringList{"help", "add-proxy"}
        << QStringList{"Usage: vkdbtool add-proxy FILE NAME", "--kind", "--hidden"};
    QTest::newRow("list-proxies -h")
        << QStringList{"list-proxies", "-h"}
        << QStringList{"Usage: vkdbtool list-proxies FILE", "name,kind,hidden,host,port,user,"
                                                            "password"};
    // Each command's own usage line.
    const QList<std::pair<const char*, const char*>> usages = {{"delete-proxy", "FILE NAME"},
                                                               {"set", "FILE NAME VALUE"},
                                                               {"get", "FILE NAME"},
                                                               {"list", "FILE"},
                                                               {"delete", "FILE NAME"}};
    for (const auto& [command, usage] : usages) {
        QTest::addRow("%s --help", command)
            << QStringList{command, "--help"}
            << QStringList{QStringLiteral("Usage: vkdbtool %1 %2").arg(command, usage)};
    }
    QTest::newRow("--version") << QStringList{"--version"}
                               << QStringList{QStringLiteral("vkdbtool " VKSTATS_VERSION)};
}

void TestVkdbTool::help() {
    QFETCH(QStringList, arguments);
    QFETCH(QStringList, mentions);
    VKDBTOOL_EXPECT(run, arguments, 0);
    QVERIFY2(run.err.isEmpty(), qPrintable(run.err));
    for (const QString& text : mentions)
        QVERIFY2(run.out.contains(text), qPrintable(text + " missing from:\n" + run.out));
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

void TestVkdbTool::errors_data() {
    QTest::addColumn<QString>("setup");
    QTest::addColumn<QStringList>("arguments"); // $FILE stands for the data file
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("message"); // $FILE stands for the data file

    // Arguments are written as one line, split at the blanks.
    const auto row = [](const char* tag, const char* setup, const QString& arguments, int code,
                        const char* message) {
        QTest::newRow(tag) << setup << arguments.split(u' ', Qt::SkipEmptyParts) << code << message;
    };
    const QString add = "add-proxy $FILE New --kind http --host h ";

    row("missing file", "none", "list-proxies $FILE", 2, "vkdbtool: $FILE: no such file");
    row("text file", "text", "list-proxies $FILE", 3,
        "vkdbtool: $FILE: not a suite data file (not an SQLite database)");
    row("another SQLite database", "foreign", "list $FILE", 3,
        "vkdbtool: $FILE: not a suite data file (another application's database)");
    row("truncated file", "truncated", "list-proxies $FILE", 3,
        "vkdbtool: $FILE: not a suite data file (damaged");
    row("locked", "locked", "list-proxies $FILE", 4, "vkdbtool: $FILE: the data file is locked");

    row("port not a number", "data", add + "--port abc", 1, "vkdbtool add-proxy: bad port \"abc\"");
    row("port 0", "data", add + "--port 0", 1, "bad port \"0\"");
    row("port 65536", "data", add + "--port 65536", 1, "bad port \"65536\"");
    row("port missing", "data", add, 1, "--port is required");
    row("unknown kind", "data", "add-proxy $FILE New --kind ftp --host h --port 21", 1,
        "vkdbtool add-proxy: unknown proxy kind \"ftp\" (use http or socks5)");
    row("comma in name", "data", "add-proxy $FILE a,b --kind http --host h --port 1", 1,
        "a proxy name cannot hold commas or line breaks");
    row("password without user", "data", add + "--port 1 --password-file $FILE", 1,
        "--password-file needs --user");
    row("password on the command line", "data", add + "--port 1 --user u --password x", 1,
        "vkdbtool add-proxy: --password is not accepted: other users can read the command line");
    row("password file missing", "data", add + "--port 1 --user u --password-file /nonexistent", 7,
        "vkdbtool: /nonexistent: No such file or directory");
    row("duplicate name", "data", "add-proxy $FILE Tor --kind http --host h --port 1", 6,
        "vkdbtool: $FILE: a proxy named \"Tor\" is stored already");
    row("duplicate name in other case, format 1", "data1",
        "add-proxy $FILE tor --kind http --host h --port 1", 6,
        "vkdbtool: $FILE: a proxy named \"Tor\" is stored already");
    row("delete a proxy that is not there", "data", "delete-proxy $FILE Nobody", 5,
        "vkdbtool: $FILE: no proxy named \"Nobody\"");
    row("get a value that is not there", "data", "get $FILE nothing", 5,
        "vkdbtool: $FILE: no value named \"nothing\"");
    row("delete a value that is not there", "data", "delete $FILE nothing", 5,
        "vkdbtool: $FILE: no value named \"nothing\"");
    row("create over a data file", "data", "create $FILE", 6, "vkdbtool: $FILE: exists already");
    row("create where no folder can be made", "text", "create $FILE/inner/vk.dbc", 7,
        "vkdbtool: $FILE/inner: cannot make the folder");
    row("create format 3", "none", "create $FILE --format 3", 1,
        "vkdbtool create: unknown format \"3\" (use 1 or 2)");
    row("unknown command", "data", "frob $FILE", 1, "vkdbtool: unknown command \"frob\"");
    row("no command", "data", "", 1, "vkdbtool: no command given");
    row("too few arguments", "data", "get $FILE", 1,
        "vkdbtool get: too few arguments; it takes FILE NAME");
    row("too many arguments", "data", "list $FILE more", 1,
        "vkdbtool list: too many arguments; it takes FILE");
    row("unknown option", "data", "list $FILE --frob", 1, "vkdbtool list: Unknown option 'frob'");
    QTest::newRow("empty value name") << "data" << QStringList{"set", "$FILE", "", "v"} << 1
                                      << "vkdbtool set: a value needs a name";
}

void TestVkdbTool::errors() {
    QFETCH(QString, setup);
    QFETCH(QStringList, arguments);
    QFETCH(int, code);
    QFETCH(QString, message);
    const QString file = dataFile();
    QString error;
    if (setup == "data" || setup == "data1" || setup == "locked") {
        const int version = setup == "data1" ? 1 : 2;
        QVERIFY(TVKDB::create(file, version, &error));
        auto db = openAs(version, file);
        QVERIFY(db->addProxy([] {
            ProxyEntry e;
            e.name = "Tor";
            e.kind = "socks5";
            e.host = "127.0.0.1";
            e.port = 9050;
            return e;
        }()));
        QVERIFY(db->writeValue("statslastsource", "Pinger A"));
    } else if (setup == "text") {
        TempEnvironment::writeFile(file, "[main]\nnot=a database\n");
    } else if (setup == "foreign") {
        {
            QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "foreign");
            db.setDatabaseName(file);
            QVERIFY(db.open());
            QVERIFY(QSqlQuery(db).exec("CREATE TABLE vk_values (name TEXT, value TEXT)"));
            db.close();
        }
        QSqlDatabase::removeDatabase("foreign");
    } else if (setup == "truncated") {
        QVERIFY(TVKDB::create(file, 2, &error));
        QFile cut(file);
        QVERIFY(cut.resize(1000));
    }
    for (QString& argument : arguments)
        argument.replace("$FILE", file);
    const bool existed = QFileInfo::exists(file);
    const QByteArray before = TempEnvironment::readFile(file);

    std::unique_ptr<LockHolder> lock;
    if (setup == "locked") {
        lock = std::make_unique<LockHolder>(file);
        QVERIFY(lock->isLocked());
    }
    VKDBTOOL_EXPECT(run, arguments, code);
    lock.reset();

    QVERIFY2(run.out.isEmpty(), qPrintable(run.out));
    // One line, naming the tool, saying what is wrong.
    QVERIFY2(run.err.endsWith('\n') && run.err.count('\n') == 1, qPrintable(run.err));
    QVERIFY2(run.err.startsWith("vkdbtool"), qPrintable(run.err));
    QVERIFY2(run.err.contains(message.replace("$FILE", file)), qPrintable(run.err));
    // A refused command leaves the file as it was, or absent.
    QCOMPARE(QFileInfo::exists(file), existed);
    QCOMPARE(TempEnvironment::readFile(file), before);
}

void TestVkdbTool::oddInputs_data() {
    QTest::addColumn<QStringList>("arguments"); // FILE stands for a fresh data file
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("stored"); // the record then stored, if any
    const QStringList add = {"add-proxy", "FILE", "--kind", "http", "--host", "h"};
    QTest::newRow("name after --") << QStringList{"add-proxy", "FILE",   "--kind", "http", "--host",
                                                  "h",         "--port", "1",      "--",   "-dash"}
                                   << 0 << "-dash,http,,h,1,,";
    QTest::newRow("long name") << add + QStringList{"--port", "1", QString(5000, 'n')} << 0
                               << QString(5000, 'n') + ",http,,h,1,,";
    QTest::newRow("port with blanks")
        << add + QStringList{"--port", " 80 ", "P"} << 0 << "P,http,,h,80,,";
    QTest::newRow("hexadecimal port") << add + QStringList{"--port", "0x50", "P"} << 1 << "";
    QTest::newRow("exponent port") << add + QStringList{"--port", "1e3", "P"} << 1 << "";
    QTest::newRow("kind without value")
        << QStringList{"add-proxy", "FILE", "P", "--kind"} << 1 << "";
    QTest::newRow("empty file name") << QStringList{"list-proxies", ""} << 2 << "";
    QTest::newRow("folder as file") << QStringList{"list-proxies", "FOLDER"} << 3 << "";
    QTest::newRow("control characters in a value")
        << QStringList{"set", "FILE", "k", QStringLiteral("\x01\x7f\t end")} << 0 << "";
}

void TestVkdbTool::oddInputs() {
    QFETCH(QStringList, arguments);
    QFETCH(int, code);
    QFETCH(QString, stored);
    const QString file = dataFile();
    QString error;
    QVERIFY(TVKDB::create(file, 1, &error));
    for (QString& argument : arguments) {
        if (argument == "FILE")
            argument = file;
        if (argument == "FOLDER")
            argument = m_env->programFolder();
    }
    VKDBTOOL_EXPECT(run, arguments, code);
    QCOMPARE(run.err.isEmpty(), code == 0);
    TVKDB1 db(file);
    QStringList records;
    QVERIFY(db.getProxyRecords(records));
    QCOMPARE(records, stored.isEmpty() ? QStringList{} : QStringList{stored});
    if (code == 0 && arguments.first() == "set")
        QCOMPARE(db.readValue(arguments.at(2)), arguments.at(3));
}

QTEST_GUILESS_MAIN(TestVkdbTool)
#include "tst_vkdbtool.moc"
