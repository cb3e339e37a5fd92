#include "BarredList.h"
#include "IniFile.h"
#include "ProgramRun.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TestPinger.h"
#include "TextFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

// The built vkstats run as a cron job would run it: no display, its own
// program folder and Mixmaster folder, a loopback pinger serving real pages.
// No session bus either: the address names a socket nobody listens on, so
// no run can see another or any program of the user's.

namespace {

const QStringList MixPages = {"mlist.txt", "pubring.mix", "type2.list", "rlist.txt", "pubring.asc"};
const char* const Served = "2001-11-07";
const char* const Stored = "2012-11-30";
const QString PagesSetting = QStringLiteral("mlist.txt,pubring.mix,rlist.txt,pubring.asc");

const QString MixmasterMissing =
    QStringLiteral("Mixmaster is not installed on this computer! Without it, I cannot continue!");
const QString EncryptedFirst = QStringLiteral("I find your VK database is encrypted. You need    \n"
                                              "to start VK and decrypt the file.");
const QString NoDisplay = QStringLiteral("no display");

// Whether only the owner may use the file or folder at path.
bool ownerOnly(const QString& path) {
    const QFile::Permissions others = QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup |
                                      QFile::ReadOther | QFile::WriteOther | QFile::ExeOther;
    return QFileInfo::exists(path) && (QFileInfo(path).permissions() & others) == 0;
}

QStringList outputLines(const QString& text) {
    return text.split(u'\n');
}

// What a folder holds, file name to bytes.
QMap<QString, QByteArray> folderContents(const QString& folder) {
    QMap<QString, QByteArray> contents;
    const QFileInfoList entries =
        QDir(folder).entryInfoList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden);
    for (const QFileInfo& entry : entries)
        contents.insert(entry.fileName(),
                        entry.isDir() ? QByteArray("<folder>")
                                      : TempEnvironment::readFile(entry.absoluteFilePath()));
    return contents;
}

} // namespace

Q_DECLARE_METATYPE(TestPinger::Route)

class TestVkstats : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void help_data();
    void help();
    void unattendedRun_data();
    void unattendedRun();
    void failedDownload_data();
    void failedDownload();
    void unsavablePage();
    void missingUrl_data();
    void missingUrl();
    void refused_data();
    void refused();
    void versionQuery_data();
    void versionQuery();
    void versionAsLaterArgument_data();
    void versionAsLaterArgument();
    void newSourceQuestionAnswered();
    void firstRunInFreshHome();

private:
    enum class Mix { Folder, HomeFolder, None };
    ProgramRun vkstats(const QStringList& arguments, Mix mix = Mix::Folder);
    static ProgramRun onServedDay(const QStringList& arguments, QProcessEnvironment environment);
    ProgramRun vkdbtool(const QStringList& arguments);
    QString mixFolder(Mix mix) const;
    void writeIni(const QString& pages);
    void storeOldPages();
    QString dataFile() const { return m_env->programFolder() + QStringLiteral("vk.dbc"); }

    std::unique_ptr<TempEnvironment> m_env;
    std::unique_ptr<QTemporaryDir> m_home;
    std::unique_ptr<TestPinger> m_pinger;
};

void TestVkstats::init() {
    m_pinger.reset();
    m_env.reset(); // the old one restores the environment it found
    m_env = std::make_unique<TempEnvironment>();
    QVERIFY(m_env->isValid());
    m_home = std::make_unique<QTemporaryDir>();
    QVERIFY(m_home->isValid());
    m_pinger = std::make_unique<TestPinger>();
    QVERIFY(m_pinger->listen());

    QVERIFY(RunsOk(QStringLiteral(VKDBTOOL), {"create", dataFile()}));
    writeIni(PagesSetting);
    QVERIFY(WritePingerUrls(m_env->programFolder(), *m_pinger, StatsPages));
}

void TestVkstats::cleanup() {
    m_pinger.reset();
    m_home.reset();
    m_env.reset();
}

ProgramRun TestVkstats::vkstats(const QStringList& arguments, Mix mix) {
    const QString home = m_home->path();
    return onServedDay(
        arguments, ChildEnvironment(
                       m_env->programFolder(), mix == Mix::Folder ? m_env->mixFolder() : QString(),
                       home, QStringLiteral("unix:path=") + home + QStringLiteral("/no-bus")));
}

ProgramRun TestVkstats::onServedDay(const QStringList& arguments, QProcessEnvironment environment) {
    // The served pages are of 7 November 2001: run on the day after, when
    // they are still current (the clock runs on from there).
    environment.insert(QStringLiteral("FAKETIME_DONT_FAKE_MONOTONIC"), QStringLiteral("1"));
    environment.insert(QStringLiteral("ASAN_OPTIONS"),
                       environment.value(QStringLiteral("ASAN_OPTIONS")) +
                           QStringLiteral(":verify_asan_link_order=0"));
    return RunToEnd(QStringLiteral("faketime"),
                    QStringList{"-f", "@2001-11-08 12:00:00", QStringLiteral(VKSTATS)} + arguments,
                    environment);
}

ProgramRun TestVkstats::vkdbtool(const QStringList& arguments) {
    return RunToEnd(QStringLiteral(VKDBTOOL), arguments, QProcessEnvironment::systemEnvironment());
}

QString TestVkstats::mixFolder(Mix mix) const {
    switch (mix) {
    case Mix::Folder:
        return m_env->mixFolder();
    case Mix::HomeFolder:
        return m_home->path() + QStringLiteral("/.Mix/");
    case Mix::None:
        break;
    }
    return {};
}

void TestVkstats::writeIni(const QString& pages) {
    // A short download time-out keeps a silent pinger from slowing the run.
    TempEnvironment::writeFile(m_env->programFolder() + QStringLiteral("vkstats.ini"),
                               "[stats]\npages=" + pages.toUtf8() + "\ntimeoutseconds=3\n");
}

// Valid pages of another day, as an earlier save would have left them.
void TestVkstats::storeOldPages() {
    for (const QString& page : StatsPages)
        TempEnvironment::writeFile(m_env->mixFolder() + page, RealPage(Stored, page));
    TempEnvironment::writeFile(m_env->mixFolder() + QStringLiteral("type2.list"),
                               RealPage("2002-08-20", QStringLiteral("type2.list")));
    TempEnvironment::writeFile(m_env->programFolder() + QStringLiteral("status.txt"),
                               "Fri Nov 30 12:00:00 2012\nmlist.txt...ok\n");
}

void TestVkstats::help_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("--help") << QStringList{"--help"};
    QTest::newRow("-h") << QStringList{"-h"};
    QTest::newRow("auto --help") << QStringList{"auto", "--help"};
}

void TestVkstats::help() {
    QFETCH(QStringList, arguments);
    const QMap<QString, QByteArray> before = folderContents(m_env->programFolder());
    const ProgramRun run = vkstats(arguments);
    EXPECT_EXIT(run, arguments, 0);
    const QStringList lines = outputLines(run.out);
    QVERIFY2(run.out.startsWith(QStringLiteral("Usage: vkstats")), qPrintable(run.out));
    for (const char* line : {"Exit status:", "  0  done: the pages were updated and saved",
                             "  2  aborted: the update was stopped",
                             "  3  start-up refused: no Mixmaster folder, no usable data file, no",
                             "  4  the download failed and no page came; nothing was saved",
                             "  5  pages were fetched but some could not be saved",
                             "  6  some pages failed: the pages that came were saved, the failed",
                             "  7  saved, but a statistics page is stale (over 3 days old) or the"})
        QVERIFY2(lines.contains(QLatin1String(line)), line);
    QVERIFY2(run.out.contains(QStringLiteral("--headless")), qPrintable(run.out));
    // Asking for help starts nothing.
    QCOMPARE(folderContents(m_env->programFolder()), before);
    QVERIFY(m_pinger->requests().isEmpty());
}

void TestVkstats::unattendedRun_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("mix");
    QTest::newRow("--headless") << QStringList{"--headless"} << int(Mix::Folder);
    QTest::newRow("auto without a display") << QStringList{"auto"} << int(Mix::Folder);
    QTest::newRow("AUTO --headless") << QStringList{"AUTO", "--headless"} << int(Mix::Folder);
    QTest::newRow("auto hide without a display") << QStringList{"auto", "hide"} << int(Mix::Folder);
    QTest::newRow("Mixmaster folder found as ~/.Mix")
        << QStringList{"auto"} << int(Mix::HomeFolder);
}

void TestVkstats::unattendedRun() {
    QFETCH(QStringList, arguments);
    QFETCH(int, mix);
    const Mix where = Mix(mix);
    if (where == Mix::HomeFolder)
        QVERIFY(QDir().mkpath(mixFolder(where)));
    ServeRealPages(*m_pinger, Served, StatsPages);

    const ProgramRun run = vkstats(arguments, where);
    EXPECT_EXIT(run, arguments, 0);

    // The status page as it grew, each page with its result word.
    const QStringList lines = outputLines(run.out);
    for (const QString& page : StatsPages)
        QVERIFY2(lines.contains(page + QStringLiteral("...ok")), qPrintable(run.out));
    QCOMPARE(m_pinger->requests().size(), StatsPages.size());

    // The pages in the Mixmaster folder, type2.list made from pubring.mix.
    const QString folder = mixFolder(where);
    const QMap<QString, QByteArray> saved = folderContents(folder);
    QCOMPARE(QStringList(saved.keys()), [] {
        QStringList names = MixPages;
        names.sort();
        return names;
    }());
    QCOMPARE(saved.value("pubring.mix"), RealPage(Served, "pubring.mix"));
    QCOMPARE(saved.value("pubring.asc"), RealPage(Served, "pubring.asc"));
    QCOMPARE(saved.value("type2.list"), RealPage(Served, "type2.list"));
    // The statistics pages are stored in the order served, as Mixmaster
    // reads them, with the always barred remailer taken out.
    for (const QString& page : {QStringLiteral("mlist.txt"), QStringLiteral("rlist.txt")}) {
        QStringList served = BytesToLines(RealPage(Served, page));
        ApplyBarredList(served, page, BarredList());
        QCOMPARE(BytesToLines(saved.value(page)), served);
    }
    if (where == Mix::HomeFolder)
        QVERIFY(folderContents(m_env->mixFolder()).isEmpty());

    // The status page saved in the program folder.
    const QStringList status = ReadLines(m_env->programFolder() + QStringLiteral("status.txt"));
    for (const QString& page : StatsPages)
        QVERIFY2(status.contains(page + QStringLiteral("...ok")), qPrintable(status.join(u'\n')));
}

void TestVkstats::failedDownload_data() {
    QTest::addColumn<QString>("page");
    QTest::addColumn<TestPinger::Route>("route");
    QTest::addColumn<QString>("word");

    TestPinger::Route serverError;
    serverError.status = 500;
    serverError.body = "<html>Internal Server Error</html>\n";
    QTest::newRow("500 for the last page") << "pubring.asc" << serverError << "http error";

    TestPinger::Route notFound;
    notFound.status = 404;
    notFound.body = "<html>Not Found</html>\n";
    QTest::newRow("404 for the last page") << "pubring.asc" << notFound << "http error";

    TestPinger::Route junk;
    junk.body = "this is no keyring at all\n";
    QTest::newRow("last page fails the checks") << "pubring.asc" << junk << "failed error checks";

    TestPinger::Route reset;
    reset.mode = TestPinger::Mode::ResetMidway;
    reset.body = RealPage(Served, "pubring.asc");
    // A reset is said at once for what it is.
    QTest::newRow("connection reset during the last page")
        << "pubring.asc" << reset << "encountered HTTP exception";

    TestPinger::Route garbage;
    garbage.mode = TestPinger::Mode::Garbage;
    QTest::newRow("no HTTP for the last page")
        << "pubring.asc" << garbage << "encountered HTTP exception";

    TestPinger::Route silent;
    silent.mode = TestPinger::Mode::Silent;
    QTest::newRow("pinger never answers the last page") << "pubring.asc" << silent << "timed out";
}

void TestVkstats::failedDownload() {
    QFETCH(QString, page);
    QFETCH(TestPinger::Route, route);
    QFETCH(QString, word);
    ServeRealPages(*m_pinger, Served, StatsPages);
    m_pinger->setRoute(u'/' + page, route);
    storeOldPages();
    const QMap<QString, QByteArray> mixBefore = folderContents(m_env->mixFolder());
    const QByteArray statusBefore =
        TempEnvironment::readFile(m_env->programFolder() + QStringLiteral("status.txt"));

    const QStringList arguments = {"auto"};
    const ProgramRun run = vkstats(arguments);
    EXPECT_EXIT(run, arguments, 6);

    const QStringList lines = outputLines(run.out);
    QVERIFY2(lines.contains(QStringLiteral("mlist.txt...ok")), qPrintable(run.out));
    QVERIFY2(!lines.contains(page + QStringLiteral("...ok")), qPrintable(run.out));
    QVERIFY2(lines.contains(page + QStringLiteral("...") + word), qPrintable(run.out));
    // An exception is final; anything else looked for another source.
    QCOMPARE(lines.contains(QStringLiteral("Sorry, I failed completely!")),
             word != QLatin1String("encountered HTTP exception"));
    // The pages that did arrive are saved; the failed one keeps its file.
    const QMap<QString, QByteArray> mixAfter = folderContents(m_env->mixFolder());
    QCOMPARE(mixAfter.value(page), mixBefore.value(page));
    QVERIFY(mixAfter.value(QStringLiteral("mlist.txt")) != mixBefore.value("mlist.txt"));
    QVERIFY(TempEnvironment::readFile(m_env->programFolder() + QStringLiteral("status.txt")) !=
            statusBefore);
}

// A page that arrives but cannot be written keeps the old file and ends
// with its own status.
void TestVkstats::unsavablePage() {
    ServeRealPages(*m_pinger, Served, StatsPages);
    storeOldPages();
    // A folder where the file should go cannot be replaced by a file.
    const QString blocked = m_env->mixFolder() + QStringLiteral("rlist.txt");
    QVERIFY(QFile::remove(blocked));
    QVERIFY(QDir().mkdir(blocked));
    TempEnvironment::writeFile(blocked + QStringLiteral("/keep"), "still here\n");

    const QStringList arguments = {"--headless"};
    const ProgramRun run = vkstats(arguments);
    EXPECT_EXIT(run, arguments, 5);
    QVERIFY2(run.err.contains(QStringLiteral("could not be saved")), qPrintable(run.err));
    QVERIFY(QFileInfo(blocked).isDir());
    QCOMPARE(TempEnvironment::readFile(blocked + QStringLiteral("/keep")),
             QByteArray("still here\n"));
    // The other pages were saved.
    QCOMPARE(TempEnvironment::readFile(m_env->mixFolder() + QStringLiteral("pubring.asc")),
             RealPage(Served, "pubring.asc"));
    QCOMPARE(TempEnvironment::readFile(m_env->mixFolder() + QStringLiteral("type2.list")),
             RealPage(Served, "type2.list"));
}

void TestVkstats::missingUrl_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QStringList>("listed");
    QTest::addColumn<QString>("missing");
    QTest::newRow("auto pubring.asc, no URL for it")
        << QStringList{"auto", "pubring.asc"} << QStringList{"mlist.txt", "rlist.txt"}
        << "pubring.asc";
    QTest::newRow("auto rlist.txt pubring.asc, no URL for the second")
        << QStringList{"auto", "rlist.txt", "pubring.asc"} << QStringList{"rlist.txt"}
        << "pubring.asc";
    QTest::newRow("--headless rlist.txt, no URL for it")
        << QStringList{"--headless", "rlist.txt"} << QStringList{"mlist.txt", "pubring.asc"}
        << "rlist.txt";
}

void TestVkstats::missingUrl() {
    QFETCH(QStringList, arguments);
    QFETCH(QStringList, listed);
    QFETCH(QString, missing);
    ServeRealPages(*m_pinger, Served, StatsPages);
    QVERIFY(WritePingerUrls(m_env->programFolder(), *m_pinger, listed));
    storeOldPages();
    const QMap<QString, QByteArray> mixBefore = folderContents(m_env->mixFolder());

    const ProgramRun run = vkstats(arguments);
    EXPECT_EXIT(run, arguments, 2);
    QVERIFY2(run.err.contains(QStringLiteral("I don't have a URL for ") + missing +
                              QStringLiteral(" at pinger!")),
             qPrintable(run.err));
    // Said once: nobody is there to mend urls.txt, so it is not asked again.
    QCOMPARE(run.err.count(QStringLiteral("I don't have a URL for")), 1);
    QVERIFY2(outputLines(run.out).contains(QStringLiteral("operation cancelled by user")),
             qPrintable(run.out));
    QCOMPARE(folderContents(m_env->mixFolder()), mixBefore);
    for (const TestPinger::Request& request : m_pinger->requests())
        QVERIFY2(!request.path.endsWith(missing.toLatin1()), request.path.constData());
}

void TestVkstats::refused_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("mixFolder");
    QTest::addColumn<bool>("dataFile");
    QTest::addColumn<QString>("encrypted"); // the name of an encrypted data file, if any
    QTest::addColumn<QString>("message");

    QTest::newRow("no Mixmaster folder")
        << QStringList{"auto"} << false << true << QString() << MixmasterMissing;
    QTest::newRow("no Mixmaster folder, headless")
        << QStringList{"--headless"} << false << true << QString() << MixmasterMissing;
    QTest::newRow("no Mixmaster folder comes before an encrypted data file")
        << QStringList{"auto"} << false << false << "VK.pgp" << MixmasterMissing;
    QTest::newRow("encrypted data file VK.pgp")
        << QStringList{"auto"} << true << false << "VK.pgp" << EncryptedFirst;
    QTest::newRow("encrypted data file vk.pgp")
        << QStringList{"--headless"} << true << false << "vk.pgp" << EncryptedFirst;
    QTest::newRow("no display and no auto")
        << QStringList{} << true << true << QString() << NoDisplay;
    QTest::newRow("hide without auto")
        << QStringList{"hide"} << true << true << QString() << NoDisplay;
    QTest::newRow("autohide only hides")
        << QStringList{"autohide"} << true << true << QString() << NoDisplay;
    QTest::newRow("a page named without auto")
        << QStringList{"pubring.asc"} << true << true << QString() << NoDisplay;
}

void TestVkstats::refused() {
    QFETCH(QStringList, arguments);
    QFETCH(bool, mixFolder);
    QFETCH(bool, dataFile);
    QFETCH(QString, encrypted);
    QFETCH(QString, message);
    ServeRealPages(*m_pinger, Served, StatsPages);
    if (!dataFile)
        QVERIFY(QFile::remove(this->dataFile()));
    if (!encrypted.isEmpty())
        TempEnvironment::writeFile(
            m_env->programFolder() + encrypted,
            "-----BEGIN PGP MESSAGE-----\n\nhQEMA\n-----END PGP MESSAGE-----\n");
    QFile::remove(m_env->programFolder() + QStringLiteral("urls.txt"));
    const QMap<QString, QByteArray> before = folderContents(m_env->programFolder());

    const ProgramRun run = vkstats(arguments, mixFolder ? Mix::Folder : Mix::None);
    EXPECT_EXIT(run, arguments, 3);
    QVERIFY2(run.err.contains(message), qPrintable(run.err));
    // Refused before anything was done: no page asked for, no default
    // urls.txt installed, no settings written, nothing saved.
    QVERIFY(m_pinger->requests().isEmpty());
    QCOMPARE(folderContents(m_env->programFolder()), before);
    QVERIFY(folderContents(m_env->mixFolder()).isEmpty());
    QVERIFY2(!run.out.contains(QStringLiteral("...")), qPrintable(run.out));
}

void TestVkstats::versionQuery_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("VERSION") << QStringList{"VERSION"};
    QTest::newRow("version") << QStringList{"version"};
    QTest::newRow("Version auto") << QStringList{"Version", "auto"};
    QTest::newRow("--headless VERSION") << QStringList{"--headless", "VERSION"};
    QTest::newRow("showversion") << QStringList{"showversion"};
}

void TestVkstats::versionQuery() {
    QFETCH(QStringList, arguments);
    ServeRealPages(*m_pinger, Served, StatsPages);
    const ProgramRun run = vkstats(arguments);
    EXPECT_EXIT(run, arguments, 0);
    const IniFile ini(m_env->programFolder() + QStringLiteral("vkstats.ini"));
    QCOMPARE(ini.readString("stats", "version", "<none>"), QStringLiteral("1.9b12"));
    // The rest of the settings file is kept, and nothing else happens.
    QCOMPARE(ini.readString("stats", "pages", "<none>"), PagesSetting);
    QVERIFY(m_pinger->requests().isEmpty());
    QVERIFY(folderContents(m_env->mixFolder()).isEmpty());
}

void TestVkstats::versionAsLaterArgument_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::newRow("auto VERSION: an update") << QStringList{"auto", "VERSION"} << 0;
    QTest::newRow("hide version: no display") << QStringList{"hide", "version"} << 3;
}

void TestVkstats::versionAsLaterArgument() {
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    ServeRealPages(*m_pinger, Served, StatsPages);
    const ProgramRun run = vkstats(arguments);
    EXPECT_EXIT(run, arguments, exitCode);
    const IniFile ini(m_env->programFolder() + QStringLiteral("vkstats.ini"));
    QCOMPARE(ini.readString("stats", "version", "<none>"), QStringLiteral("<none>"));
    if (exitCode == 0) {
        QCOMPARE(m_pinger->requests().size(), StatsPages.size());
        QCOMPARE(TempEnvironment::readFile(m_env->mixFolder() + QStringLiteral("pubring.mix")),
                 RealPage(Served, "pubring.mix"));
    }
}

// A new stats source with fewer than the four pages ticked is a question in
// the window; without one the ticked pages are kept and the run goes on.
void TestVkstats::newSourceQuestionAnswered() {
    ServeRealPages(*m_pinger, Served, StatsPages);
    writeIni(QStringLiteral("mlist.txt,pubring.mix,rlist.txt"));
    QVERIFY(RunsOk(QStringLiteral(VKDBTOOL), {"set", dataFile(), "statslastsource", "elsewhere"}));

    const QStringList arguments = {"auto"};
    const ProgramRun run = vkstats(arguments);
    EXPECT_EXIT(run, arguments, 0);
    QVERIFY2(run.err.contains(QStringLiteral("keeping the ticked pages")), qPrintable(run.err));
    const QStringList lines = outputLines(run.out);
    for (const char* page : {"mlist.txt", "pubring.mix", "rlist.txt"})
        QVERIFY2(lines.contains(QLatin1String(page) + QStringLiteral("...ok")),
                 qPrintable(run.out));
    QVERIFY(!run.out.contains(QStringLiteral("pubring.asc")));
    QCOMPARE(m_pinger->requests().size(), 3);
    QCOMPARE(TempEnvironment::readFile(m_env->mixFolder() + QStringLiteral("type2.list")),
             RealPage(Served, "type2.list"));
    QVERIFY(!QFileInfo::exists(m_env->mixFolder() + QStringLiteral("pubring.asc")));
    // The source used is now the one remembered.
    const QStringList get = {"get", dataFile(), "statslastsource"};
    const ProgramRun remembered = vkdbtool(get);
    QVERIFY2(remembered.endedWith(0),
             remembered.describe(QStringLiteral(VKDBTOOL), get).constData());
    QCOMPARE(remembered.out.trimmed(), QStringLiteral("pinger"));
}

// A new user's account: nothing but Mixmaster's folder in the home folder,
// no VKSTATS_HOME, no settings. The first run makes the program folder
// (private), an empty data file (private, and says so) and the default
// urls.txt; with the user's own list of sources the next run updates the
// four default pages and saves them.
void TestVkstats::firstRunInFreshHome() {
    ServeRealPages(*m_pinger, Served, StatsPages);
    const QString home = m_home->path();
    const QString mix = home + QStringLiteral("/.Mix/");
    QVERIFY(QDir().mkpath(mix));
    QProcessEnvironment environment =
        ChildEnvironment(QString(), QString(), home,
                         QStringLiteral("unix:path=") + home + QStringLiteral("/no-bus"));
    environment.remove(QStringLiteral("VKSTATS_HOME"));
    const QString folder = home + QStringLiteral("/.local/share/vkstats/");

    // No page named: this run stops before going online.
    const QStringList offline = {"--headless", "--pages="};
    ProgramRun run = onServedDay(offline, environment);
    EXPECT_EXIT(run, offline, 4);
    QVERIFY(ownerOnly(folder));
    QVERIFY(ownerOnly(folder + QStringLiteral("vk.dbc")));
    QVERIFY2(run.err.contains(QStringLiteral("Created an empty VK data file ") + folder +
                              QStringLiteral("vk.dbc")),
             qPrintable(run.err));
    const QStringList urls = ReadLines(folder + QStringLiteral("urls.txt"));
    QVERIFY(urls.size() > 2);
    QCOMPARE(urls.first(), QStringLiteral("velkin urls"));
    QCOMPARE(urls.at(1), QStringLiteral("[frell]"));
    QVERIFY(m_pinger->requests().isEmpty());

    QVERIFY(WritePingerUrls(folder, *m_pinger, StatsPages));
    const QStringList arguments = {"--headless"};
    run = onServedDay(arguments, environment);
    EXPECT_EXIT(run, arguments, 0);
    QCOMPARE(m_pinger->requests().size(), StatsPages.size());
    for (const QString& page : StatsPages)
        QVERIFY2(QFileInfo::exists(mix + page), qPrintable(page));
    QCOMPARE(TempEnvironment::readFile(mix + QStringLiteral("pubring.mix")),
             RealPage(Served, "pubring.mix"));
    QVERIFY(!QFileInfo::exists(QFileInfo(QStringLiteral(VKSTATS)).path() + "/vk.dbc"));
}

QTEST_GUILESS_MAIN(TestVkstats)
#include "tst_vkstats.moc"
