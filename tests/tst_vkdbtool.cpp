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
#include <QTest>

#include <memory>

namespace {

struct Run {
    int code = -1; // -2: did not end by itself within a minute
    QString out;
    QString err;
};

// Runs the built tool with input on its standard input and waits for it.
Run vkdbtool(const QStringList& arguments, const QByteArray& input = {}) {
    QProcess process;
    process.start(QStringLiteral(VKDBTOOL), arguments);
    process.write(input);
    process.closeWriteChannel();
    Run run;
    if (!process.waitForFinished(60000)) {
        process.kill();
        process.waitForFinished();
        run.code = -2;
    } else if (process.exitStatus() == QProcess::NormalExit) {
        run.code = process.exitCode();
    }
    run.out = QString::fromUtf8(process.readAllStandardOutput());
    run.err = QString::fromUtf8(process.readAllStandardError());
    return run;
}

// Runs the tool and checks that it ended by itself with the given code.
#define VKDBTOOL_EXPECT(run, arguments, expectedCode, ...)                                         \
    const Run run = vkdbtool(arguments __VA_OPT__(, ) __VA_ARGS__);                                \
    QVERIFY2(run.code == (expectedCode),                                                           \
             qPrintable(QStringLiteral("vkdbtool %1\nexit %2\nstdout: %3\nstderr: %4")             \
                            .arg((arguments).join(u' '))                                           \
                            .arg(run.code)                                                         \
                            .arg(run.out, run.err)))

} // namespace

class TestVkdbTool : public QObject {
    Q_OBJECT
private slots:
    void init() {
        m_env.reset(); // the old one restores the environment it found
        m_env = std::make_unique<TempEnvironment>();
        QVERIFY(m_env->isValid());
    }
    void cleanup() { CloseSuiteDataFile(); }
    void commands_data() { AddTableRows(QStringLiteral("vkdbtool.txt")); }
    void commands();
    void session_data();
    void session();

private:
    void prepare(const QString& setup, const QString& file);
    QString dataFile() const { return m_env->programFolder() + QStringLiteral("vk.dbc"); }
    std::unique_ptr<TempEnvironment> m_env;
};

void TestVkdbTool::session_data() {
    QTest::addColumn<QStringList>("format");
    QTest::addColumn<int>("version");
    QTest::newRow("default") << QStringList{} << 2;
    QTest::newRow("format 1") << QStringList{"--format", "1"} << 1;
    QTest::newRow("format=1") << QStringList{"--format=1"} << 1;
}

// A data file made, filled, listed and emptied through the tool, and read by
// VKstats between: each step its arguments, standard input, exit code and
// standard output ("*": not looked at).
void TestVkdbTool::session() {
    QFETCH(QStringList, format);
    QFETCH(int, version);
    const QString file = dataFile();
    const QString bobs = m_env->programFolder() + "bob.pw";
    TempEnvironment::writeFile(bobs, "pa,ss%w\n");
    const QString office = "Office HTTP,http,,proxy.example,3128,bob,pa%2Css%25w\n  kind=http\n"
                           "  host=proxy.example\n  port=3128\n  user=bob\n  password=pa,ss%w\n";
    const QString tor = "Tor/Isolated,socks5,,127.0.0.1,9050,stream-1,x%3Dy\n  kind=socks5\n"
                        "  host=127.0.0.1\n  port=9050\n  user=stream-1\n  password=x=y\n";
    const QString spare = "Spare,socks5, ,10.0.0.2,1080,,\n  kind=socks5\n  host=10.0.0.2\n"
                          "  port=1080\n  user=\n  password=\n";
    const QString values = "empty=\nmlist.txt=Tue 04 Mar 2025 10:00:00 GMT\n";
    struct Step {
        QStringList arguments;
        QByteArray input;
        int code;
        QString out;
    };
    // Passwords come from a file or standard input, never from the command
    // line; only the first line counts.
    const QList<Step> steps = {
        {QStringList{"create"} + format + QStringList{file}, {}, 0, ""},
        {{"add-proxy", file, "Office HTTP", "--kind", "http", "--host", "proxy.example", "--port",
          "3128", "--user", "bob", "--password-file", bobs},
         {},
         0,
         ""},
        {{"add-proxy", file, "Tor/Isolated", "--kind", "socks5", "--host", "127.0.0.1", "--port",
          "9050", "--user", "stream-1", "--password-file", "-"},
         "x=y\r\nsecond line ignored\n",
         0,
         ""},
        {{"add-proxy", file, "Spare", "--hidden", "--kind", "SOCKS5", "--host", "10.0.0.2",
          "--port", "1080"},
         {},
         0,
         ""},
        {{"list-proxies", file}, {}, 0, office + tor + spare},
        {{"set", file, "statslastsource", "Pinger A"}, {}, 0, ""},
        {{"set", file, "mlist.txt", "Tue 04 Mar 2025 10:00:00 GMT"}, {}, 0, ""},
        {{"set", file, "statslastsource", "Pinger, B"}, {}, 0, ""},
        {{"set", file, "empty", ""}, {}, 0, ""},
        {{"get", file, "statslastsource"}, {}, 0, "Pinger, B\n"},
        {{"list", file}, {}, 0, values + "statslastsource=Pinger, B\n"},
    };
    for (const Step& step : steps) {
        VKDBTOOL_EXPECT(run, step.arguments, step.code, step.input);
        QCOMPARE(run.out, step.out);
        QCOMPARE(run.err, QString());
    }
    // It holds passwords: nobody but its owner reads it, from the start.
    QCOMPARE(int(QFileInfo(file).permissions() & 0x0077), 0);

    // As VKstats reaches it: the data file of the program folder, the slash
    // still marked, the values as set.
    TestFrontEnd ui;
    QVERIFY(OpenSuiteDataFile(&ui));
    QCOMPARE(ui.messages.size(), 0);
    QCOMPARE(TheSuiteDataFile()->database->version(), version);
    QStringList records;
    QVERIFY(TheSuiteDataFile()->database->getProxyRecords(records));
    QCOMPARE(records, (QStringList{office.section(u'\n', 0, 0),
                                   tor.section(u'\n', 0, 0).replace(u'/', QChar(0x00AD)),
                                   spare.section(u'\n', 0, 0)}));
    QCOMPARE(TheSuiteDataFile()->database->readValue("empty", "default"), QString());
    CloseSuiteDataFile();

    const QList<Step> removals = {
        {{"delete-proxy", file, "Tor/Isolated"}, {}, 0, ""},
        {{"list-proxies", file}, {}, 0, office + spare},
        {{"delete", file, "statslastsource"}, {}, 0, ""},
        {{"get", file, "statslastsource"}, {}, 5, ""},
        {{"list", file}, {}, 0, values},
        // Folders on the way are made.
        {QStringList{"create", file + ".d/new/vk.dbc"} + format, {}, 0, ""},
    };
    for (const Step& step : removals) {
        VKDBTOOL_EXPECT(run, step.arguments, step.code, step.input);
        QCOMPARE(run.out, step.out);
    }
    QCOMPARE(GetVKDBVersion(file + ".d/new/vk.dbc"), version);
}

// The set-up a table row names: "data" and "data1" hold the proxy Tor and one
// value, in format 2 or 1; "none" leaves no file.
void TestVkdbTool::prepare(const QString& setup, const QString& file) {
    QString error;
    if (setup == "data" || setup == "data1" || setup == "locked") {
        const int version = setup == "data1" ? 1 : 2;
        QVERIFY(TVKDB::create(file, version, &error));
        std::unique_ptr<TVKDB> db;
        if (version == 1)
            db = std::make_unique<TVKDB1>(file);
        else
            db = std::make_unique<TVKDB2>(file);
        QVERIFY(db->addProxy(ProxyEntry{"Tor", "socks5", false, "127.0.0.1", 9050, {}, {}}));
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
        QVERIFY(TVKDB::create(file, 2, &error) && QFile(file).resize(1000));
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
    const QString lockName = QStringLiteral("lock-holder");
    if (kind == "error" && f[1] == "locked") {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), lockName);
        db.setDatabaseName(file);
        QVERIFY(db.open() && QSqlQuery(db).exec(QStringLiteral("BEGIN EXCLUSIVE")));
    }
    const int code = kind == "help" ? 0 : f[kind == "error" ? 3 : 2].toInt();
    const Run run = vkdbtool(arguments);
    if (QSqlDatabase::contains(lockName)) {
        QSqlDatabase::database(lockName).close();
        QSqlDatabase::removeDatabase(lockName);
    }
    QVERIFY2(run.code == code, qPrintable(QString::number(run.code) + ": " + run.err));
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
