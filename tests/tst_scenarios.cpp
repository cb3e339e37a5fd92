#include "ProgramRun.h"
#include "ProxyProcess.h"
#include "SuiteDatabase.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TestPinger.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

// Runs every folder below tests/scenarios against the built vkstats: what the
// pinger serves, the folders before, the command line, and what must result.
// A changed expectation is a changed file. With VK_SCENARIO_UPDATE=1 the
// actual results are written back into expect/ for review.

namespace {

const QString Root = QStringLiteral(VK_SCENARIOS);
const QString PingerMark = QStringLiteral("@PINGER@");

constexpr auto readBytes = &TempEnvironment::readFile;

// A link in expect/ (to a page under data/real) is replaced, never written through.
bool writeBytes(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    if (QFileInfo(path).isSymLink())
        QFile::remove(path);
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QStringList dataLines(const QString& path) {
    QStringList lines;
    for (const QString& line : QString::fromUtf8(readBytes(path)).split(u'\n')) {
        const QString trimmed = line.trimmed();
        if (!trimmed.isEmpty() && !trimmed.startsWith(u'#'))
            lines << trimmed;
    }
    return lines;
}

// Every file below folder, as paths relative to it.
QStringList filesBelow(const QString& folder) {
    QStringList files;
    QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext())
        files << QDir(folder).relativeFilePath(it.next());
    files.sort();
    return files;
}

bool copyTree(const QString& from, const QString& to, const QByteArray& pinger) {
    for (const QString& name : filesBelow(from)) {
        QByteArray bytes = readBytes(from + u'/' + name);
        bytes.replace(PingerMark.toUtf8(), pinger);
        if (!writeBytes(to + u'/' + name, bytes))
            return false;
    }
    return true;
}

// The run's own variable parts made constant: the pinger's address and the
// start time that opens the status page.
QByteArray normalised(QByteArray bytes, const QByteArray& pinger) {
    static const QRegularExpression startTime(
        QStringLiteral("^(Mon|Tue|Wed|Thu|Fri|Sat|Sun) [A-Z][a-z]{2} \\d\\d \\d\\d:\\d\\d:\\d\\d "
                       "\\d{4}(\\r?)$"),
        QRegularExpression::MultilineOption);
    bytes.replace(pinger, PingerMark.toUtf8());
    return QString::fromUtf8(bytes).replace(startTime, QStringLiteral("<start time>\\2")).toUtf8();
}

QString setUpPinger(TestPinger& pinger, const QString& folder) {
    QHash<QString, TestPinger::Route> routes;
    const QString served = folder + QStringLiteral("/served");
    for (const QString& name : filesBelow(served))
        routes[u'/' + name].body = readBytes(served + u'/' + name);
    for (const QString& line : dataLines(folder + QStringLiteral("/pinger.txt"))) {
        const QStringList words = line.split(u' ', Qt::SkipEmptyParts);
        const QString problem =
            TestPinger::applyRouteWords(routes[u'/' + words.first()], words.mid(1));
        if (!problem.isEmpty())
            return problem;
    }
    for (auto it = routes.cbegin(); it != routes.cend(); ++it)
        pinger.setRoute(it.key(), it.value());
    return {};
}

} // namespace

class TestScenarios : public QObject {
    Q_OBJECT
private slots:
    void run_data();
    void run();

private:
    void readByMixmaster(const QString& expect, const QString& mix, const QString& day);
    void check(const QString& what, const QString& expectPath, QByteArray actual,
               bool required = true);
    bool m_update = qEnvironmentVariableIntValue("VK_SCENARIO_UPDATE") == 1;
    QByteArray m_pinger;
    QList<std::pair<QByteArray, QByteArray>> m_folders; // path, what it reads as
    QStringList m_mismatches;
};

void TestScenarios::run_data() {
    QTest::addColumn<QString>("folder");
    const QStringList names = QDir(Root).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    QVERIFY2(!names.isEmpty(), qPrintable(Root));
    for (const QString& name : names)
        QTest::newRow(qPrintable(name)) << Root + u'/' + name;
}

// Compares one result with its expectation file, or writes it there when
// updating. A missing expectation that is not required is not checked.
void TestScenarios::check(const QString& what, const QString& expectPath, QByteArray actual,
                          bool required) {
    // Messages name files by their path; the fresh folders differ each run.
    for (const auto& [path, mark] : std::as_const(m_folders))
        actual.replace(path, mark);
    const bool exists = QFileInfo::exists(expectPath);
    if (m_update) {
        if (exists || required)
            writeBytes(expectPath, normalised(actual, m_pinger));
        return;
    }
    if (!exists && !required)
        return;
    const QByteArray expected = readBytes(expectPath);
    if (expected != normalised(actual, m_pinger))
        m_mismatches << QStringLiteral("%1 differs.\n--- expected\n%2\n--- actual\n%3")
                            .arg(what, QString::fromUtf8(expected),
                                 QString::fromUtf8(normalised(actual, m_pinger)));
}

void TestScenarios::run() {
    QFETCH(QString, folder);
    m_mismatches.clear();
    TestPinger pinger;
    QVERIFY(pinger.listen());
    m_pinger = pinger.url(QString()).toUtf8();
    const QString problem = setUpPinger(pinger, folder);
    QVERIFY2(problem.isEmpty(), qPrintable(problem));

    QTemporaryDir program, mix, home;
    for (const auto& [name, dir] :
         {std::pair("/program", &program), {"/mix", &mix}, {"/home", &home}})
        QVERIFY(dir->isValid() && copyTree(folder + name, dir->path(), m_pinger));
    const QString programFolder = program.path() + u'/';
    m_folders = {{mix.path().toUtf8() + '/', "@MIXPATH@/"},
                 {programFolder.toUtf8(), "@PROGRAM@/"},
                 {home.path().toUtf8() + '/', "@HOME@/"}};
    if (!QFileInfo::exists(programFolder + QStringLiteral("vk.dbc")) &&
        !QFileInfo::exists(programFolder + QStringLiteral("no-vk.dbc")))
        QCOMPARE(CreateDataFile(programFolder), QString());

    // proxy: "tinyproxy" or "microsocks USER PASSWORD", stored as the proxy "proxy"; a
    // second line "stop PATH" stops it when the pinger is asked for PATH.
    const QStringList proxyLines = dataLines(folder + QStringLiteral("/proxy"));
    const QStringList proxyWords = proxyLines.value(0).split(u' ');
    ProxyProcess proxy(proxyWords[0] == "microsocks" ? ProxyProcess::Kind::Microsocks
                                                     : ProxyProcess::Kind::Tinyproxy);
    if (!proxyLines.isEmpty()) {
        if (!proxy.start(proxyWords.value(1), proxyWords.value(2)))
            QSKIP(qPrintable(proxy.errorString()));
        const QString kind = proxyWords[0] == "microsocks" ? "socks5" : "http";
        QVERIFY(TVKDB2(programFolder + QStringLiteral("vk.dbc"))
                    .addProxy({"proxy", kind, false, "127.0.0.1", proxy.port(), proxyWords.value(1),
                               proxyWords.value(2)}));
        connect(&pinger, &TestPinger::requestReceived, this, [&](const TestPinger::Request& r) {
            if ("stop " + r.path == proxyLines.value(1))
                proxy.stop();
        });
    }
    QProcessEnvironment environment =
        ChildEnvironment(programFolder, mix.path() + u'/', home.path(),
                         QStringLiteral("unix:path=") + home.path() + QStringLiteral("/no-bus"));
    environment.insert(QStringLiteral("TZ"), QStringLiteral("UTC"));
    for (const QString& line : dataLines(folder + QStringLiteral("/env"))) {
        if (line.startsWith(u'-'))
            environment.remove(line.mid(1));
        else
            environment.insert(line.section(u'=', 0, 0), line.section(u'=', 1));
    }

    QString command = QStringLiteral(VKSTATS);
    QStringList arguments = dataLines(folder + QStringLiteral("/args"));
    const QStringList today = dataLines(folder + QStringLiteral("/today"));
    if (!today.isEmpty()) {
        // The clock starts at noon of that day and runs on, so timers still fire.
        arguments.prepend(command);
        arguments =
            QStringList{"-f", u'@' + today.first() + QStringLiteral(" 12:00:00")} + arguments;
        command = QStringLiteral("faketime");
        environment.insert(QStringLiteral("FAKETIME_DONT_FAKE_MONOTONIC"), QStringLiteral("1"));
        environment.insert(QStringLiteral("ASAN_OPTIONS"),
                           environment.value(QStringLiteral("ASAN_OPTIONS")) +
                               QStringLiteral(":verify_asan_link_order=0"));
    }
    const ProgramRun ran = RunToEnd(command, arguments, environment, 60000);
    QVERIFY2(ran.finished, ran.describe(command, arguments).constData());

    const QString expect = folder + QStringLiteral("/expect/");
    check(QStringLiteral("exit status"), expect + QStringLiteral("exit"),
          QByteArray::number(ran.status == QProcess::NormalExit ? ran.code : -1) + '\n');
    check(QStringLiteral("stdout"), expect + QStringLiteral("stdout"), ran.out.toUtf8());
    check(QStringLiteral("stderr"), expect + QStringLiteral("stderr"), ran.err.toUtf8(),
          !ran.err.isEmpty());

    const QString expectMix = expect + QStringLiteral("mix");
    const QStringList mixFiles = filesBelow(mix.path());
    if (m_update)
        QDir(expectMix).removeRecursively();
    else if (filesBelow(expectMix) != mixFiles)
        m_mismatches << QStringLiteral("Mixmaster folder holds %1, expected %2")
                            .arg(mixFiles.join(u' '), filesBelow(expectMix).join(u' '));
    for (const QString& name : mixFiles)
        check(QStringLiteral("mix/") + name, expectMix + u'/' + name,
              readBytes(mix.path() + u'/' + name));

    for (const auto& [part, path] :
         {std::pair(QStringLiteral("program/"), programFolder), {"home/", home.path() + u'/'}})
        for (const QString& name : filesBelow(expect + part))
            check(part + name, expect + part + name, readBytes(path + name));

    for (const QString& name : dataLines(expect + QStringLiteral("absent"))) {
        const QString path = name.startsWith(QLatin1String("mix/")) ? mix.path() + name.mid(3)
                                                                    : programFolder + name;
        if (QFileInfo::exists(path))
            m_mismatches << name + QStringLiteral(" exists but must not");
    }

    if (QFileInfo::exists(expect + QStringLiteral("values"))) {
        const ProgramRun values =
            RunToEnd(QStringLiteral(VKDBTOOL), {"list", programFolder + QStringLiteral("vk.dbc")},
                     QProcessEnvironment::systemEnvironment());
        check(QStringLiteral("data file values"), expect + QStringLiteral("values"),
              values.out.toUtf8());
    }

    QStringList paths;
    for (const TestPinger::Request& request : pinger.requests())
        paths << QString::fromUtf8(request.path) + (request.proxied ? " (proxied)" : "");
    paths.sort();
    check(QStringLiteral("requests"), expect + QStringLiteral("requests"),
          paths.join(u'\n').toUtf8() + '\n', false);

    QVERIFY2(m_mismatches.isEmpty(),
             qPrintable(m_mismatches.join(QStringLiteral("\n\n")) + QStringLiteral("\n\n") +
                        QString::fromUtf8(ran.describe(command, arguments))));
    readByMixmaster(expect, mix.path(), today.value(0));
}

// expect/mixlists and expect/mixkeys: what the real Mixmaster client takes
// from the Mixmaster folder after the run (its remailer lists, the keys it
// offers), on the run's day. Built Mixmaster is named by VK_MIXMASTER_BIN.
void TestScenarios::readByMixmaster(const QString& expect, const QString& mix, const QString& day) {
    const QList<std::pair<QString, QStringList>> tools = {{"mixlists", {"mixlists"}},
                                                          {"mixkeys", {"mixmaster", "-T"}}};
    if (!QFileInfo::exists(expect + tools[0].first) && !QFileInfo::exists(expect + tools[1].first))
        return;
    const QString bin = qEnvironmentVariable("VK_MIXMASTER_BIN");
    if (bin.isEmpty())
        QSKIP("Mixmaster's reading is checked where VK_MIXMASTER_BIN names the built client");
    if (!QFileInfo::exists(bin + QStringLiteral("/mixlists")) &&
        !QFileInfo::exists(QStringLiteral(MIXMASTER_SOURCE "/build-mixmaster.sh")))
        QSKIP("no Mixmaster source beside the repository, so no client to read the folder");
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("MIXPATH"), mix + u'/');
    for (const auto& [file, tool] : tools) {
        const QStringList arguments =
            QStringList{"-f", u'@' + day + QStringLiteral(" 12:00:00"), bin + u'/' + tool[0]} +
            tool.mid(1);
        const ProgramRun run = RunToEnd(QStringLiteral("faketime"), arguments, environment, 60000);
        QVERIFY2(run.endedWith(0), run.describe(QStringLiteral("faketime"), arguments).constData());
        check(file, expect + file, run.out.toUtf8());
    }
    QVERIFY2(m_mismatches.isEmpty(), qPrintable(m_mismatches.join(QStringLiteral("\n\n"))));
}

QTEST_GUILESS_MAIN(TestScenarios)
#include "tst_scenarios.moc"
