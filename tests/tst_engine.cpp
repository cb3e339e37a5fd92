#include "FileSizeLimit.h"
#include "Global2.h"
#include "HeadlessFrontEnd.h"
#include "HttpGet.h"
#include "IniFile.h"
#include "KeyringUpdate.h"
#include "PagePaths.h"
#include "PageSet.h"
#include "ProxyProcess.h"
#include "ProxySelection.h"
#include "SavePages.h"
#include "StatsController.h"
#include "StatsSources.h"
#include "SuiteDatabase.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TestFrontEnd.h"
#include "TestPinger.h"
#include "TextFile.h"
#include "UpdateEngine.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTest>
#include <QTimer>

#include <cstdio>
#include <dirent.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

// Controller, proxy choice, keyring rules, engine, saves, headless front end;
// runs of the built program are the scenario folders' work.

namespace {

const QString Gone = QStringLiteral("The proxy you have been using for stats     \nretrieval--");

QStringList list(const QString& field) {
    return field == u'-' ? QStringList() : field.split(u'|');
}

QList<int> answersOf(const QString& field) {
    static const QHash<QString, int> ids = {
        {"ok", IdOk}, {"yes", IdYes}, {"no", IdNo}, {"cancel", IdCancel}};
    QList<int> answers;
    for (const QString& word : list(field))
        answers << ids.value(word);
    return answers;
}

// The new-source question gets FrontEnd's own answer.
class MessagesOnlyFrontEnd : public FrontEnd {
public:
    int showMessage(const QString&, MsgDlgType, int, MsgStyle) override { return IdOk; }
};

// Run as "child MODE PAGE": saves a large page, printing "saving SIZE SHA1
// FLOOR" first (FLOOR: the largest file the save writes before the page).
int child(const QString& mode, const QString& page) {
    const QStringList real = RealPageLines("2012-11-30", page);
    QStringList lines;
    while (lines.size() < 800000) // over 20 MB: slow enough to catch
        lines << real;
    TestFrontEnd ui;
    PageSet pages(&ui);
    auto doc = pages.makeDocument("pinger", page, true, lines);
    const QByteArray bytes = LinesToBytes(mode == "savepages" ? doc->FileLines() : lines);
    const qint64 floor = mode == "savepages" && page == "pubring.mix"
                             ? LinesToBytes(Type2ListLines(doc->Lines())).size()
                             : 0;
    std::printf("saving %lld %s %lld\n", qint64(bytes.size()),
                QCryptographicHash::hash(bytes, QCryptographicHash::Sha1).toHex().constData(),
                floor);
    std::fflush(stdout);
    QString error;
    bool ok = false;
    if (mode == "plainwrite") {
        QFile file(PagePath(page));
        ok = file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) > 0;
    } else if (mode == "writelines") {
        ok = WriteLines(PagePath(page), lines, &error);
    } else {
        pages.addPage(page, std::move(doc));
        const SaveResult result = SavePages(&ui, pages, {}, false);
        ok = result.ok();
        error = result.errors.join(u' ');
    }
    std::printf(ok ? "saved\n" : "failed: %s\n", qPrintable(error));
    return ok ? 0 : 1;
}

// SIGKILL as soon as a file of the child's below folder holds between above
// and below bytes (plain POSIX: a tight loop). False when it ended first.
bool killWhenHalfWritten(QProcess& process, const QByteArray& folder, qint64 above, qint64 below) {
    const QDeadlineTimer giveUp(120000);
    const QByteArray fdDir = "/proc/" + QByteArray::number(process.processId()) + "/fd";
    for (quint64 look = 0;; ++look) {
        DIR* dir = opendir(fdDir.constData());
        while (dirent* entry = dir ? readdir(dir) : nullptr) {
            const QByteArray path = fdDir + '/' + entry->d_name;
            char link[4096];
            const ssize_t length = readlink(path.constData(), link, sizeof link - 1);
            struct stat info;
            if (length > 0 && QByteArray(link, length).startsWith(folder) &&
                stat(path.constData(), &info) == 0 && S_ISREG(info.st_mode) &&
                info.st_size > above && info.st_size < below) {
                process.kill();
                closedir(dir);
                return true;
            }
        }
        if (dir)
            closedir(dir);
        if (look % 512 == 511 && (process.waitForFinished(0) || giveUp.hasExpired()))
            return false;
    }
}

} // namespace

class TestEngine : public QObject {
    Q_OBJECT
private slots:
    // Sources "[first]" and "[second]" on one pinger, and the suite's pages.
    void init() {
        m_env.reset(); // the old one restores the environment it found
        m_env = std::make_unique<TempEnvironment>();
        m_ui = std::make_unique<TestFrontEnd>();
        m_pinger = std::make_unique<TestPinger>();
        QVERIFY(m_pinger->listen());
        QCOMPARE(CreateDataFile(m_env->programFolder()), QString());
        m_controller = std::make_unique<StatsController>(m_ui.get(), [](int, int) {});
        IniFile ini(IniFileName());
        ini.writeInteger("stats", "timeoutseconds", 2);
        ini.writeString("stats", "pages", ""); // each test ticks its own
        QStringList lines = {"velkin urls"};
        for (const QString source : {"first", "second"}) {
            lines << '[' + source + ']';
            for (const QString& page : StatsPages) {
                lines << page + ' ' + m_pinger->url('/' + source + '/' + page);
                m_pinger->serve('/' + source + '/' + page, RealPage("2012-11-30", page));
            }
            lines << "";
        }
        lines << "[velkin]"
              << "advisory.txt " + m_pinger->url("/velkin/advisory.txt")
              << "../escape.txt " + m_pinger->url("/velkin/x");
        QVERIFY(WriteLines(m_env->programFolder() + "urls.txt", lines));
    }
    void cleanup() {
        m_engine.reset();
        m_pages.reset();
        m_controller.reset();
        m_pinger.reset();
        CloseSuiteDataFile();
    }
    void commandLine_data() { AddTableRows(QStringLiteral("commandline.txt")); }
    void commandLine() { cases(); }
    void controller_data() { AddTableRows(QStringLiteral("controller.txt")); }
    void controller() { cases(); }
    void keyring_data() { AddTableRows(QStringLiteral("keyring.txt")); }
    void keyring() { cases(); }
    void startUpReadsFolder() {
        TempEnvironment::writeFile(m_env->programFolder() + "status.txt", "\n\nold run\n\n");
        IniFile(IniFileName()).writeString("stats", "pages", "rlist.txt,mlist.txt");
        QCOMPARE(m_controller->startUp({}), StartResult::Ready);
        QCOMPARE(m_controller->sources().size(), 2);
        QCOMPARE(m_controller->currentSource(), 0);
        QCOMPARE(m_controller->pages().count(), 1);
        QCOMPARE(m_controller->pages().captionAt(0), QStringLiteral("status"));
        QCOMPARE(m_controller->pages().documentAt(0)->Lines(), QStringList{"old run"});
        for (const QString& page : StatsPages)
            QCOMPARE(m_controller->isTicked(page), page.contains("list.txt"));
        QVERIFY(!m_controller->autoMode());
        // The proxy manager and the nymserver keys belong to the program folder.
        QCOMPARE(ProxySelection::proxyManagerPath(), m_env->programFolder() + "vkproxy");
        QCOMPARE(PagePath("nymserver.asc"), m_env->programFolder() + "nymserver.asc");
    }
    void nothingMarked() {
        ready({});
        m_controller->setLastSource("second");
        m_controller->fileUpdate();
        QCOMPARE(m_ui->messageTexts(), QStringList{"No pages marked for update!     "});
        QCOMPARE(m_ui->messages[0].type, Information);
        QCOMPARE(m_pinger->connectionCount(), 0);
        QCOMPARE(m_controller->lastSource(), QStringLiteral("second"));
    }
    void closeRefusedWhileRunning() {
        route("/first/mlist.txt", {"delay=600"});
        ready("mlist.txt");
        bool closed = true;
        QTimer::singleShot(200, this, [&] { closed = m_controller->closeQuery(QString()); });
        m_controller->fileUpdate();
        QVERIFY(!closed);
        QCOMPARE(m_ui->beeps, 1);
        QCOMPARE(m_ui->messages.size(), 0);
        QCOMPARE(IniFile(IniFileName()).readString("stats", "lastproxy", "unsaved"), "unsaved");
    }
    void proxyRecheck() {
        openDataFile();
        addProxy("tor");
        addProxy("work");
        ProxySelection selection(m_ui.get());
        selection.load("work");
        const QStringList workSettings = selection.settings();
        QVERIFY(workSettings.contains("user=stream-work"));

        addProxy("a first");
        QVERIFY(!selection.recheck());
        QCOMPARE(selection.currentName(), QStringLiteral("work"));
        QCOMPARE(selection.currentIndex(), 3);
        QVERIFY(m_ui->raisedAt.isEmpty());

        QVERIFY(TheSuiteDataFile()->database->deleteProxy("work"));
        QVERIFY(selection.recheck());
        QCOMPARE(selection.currentName(), QStringLiteral("<none>"));
        QCOMPARE(m_ui->messageTexts(), QStringList{Gone + "work--has been delete!"});
        QCOMPARE(m_ui->raisedAt, QList<qsizetype>{0}); // raised before the message
        // Downloads keep the deleted proxy until the user chooses again.
        QCOMPARE(selection.settings(), workSettings);
        selection.choose(0);
        QVERIFY(selection.settings().isEmpty());

        // The suite encrypts its database while this program runs: nothing changes.
        selection.load("tor");
        const QStringList settings = selection.settings();
        QVERIFY(settings.contains("user=stream-tor"));
        m_ui->messages.clear();
        QVERIFY(QFile::rename(m_env->programFolder() + "vk.dbc", m_env->programFolder() + "x.dbc"));
        TempEnvironment::writeFile(EncryptedDataFileName(), "-----BEGIN PGP MESSAGE-----");
        const QString encrypted = QStringLiteral("I find your VK datafile, VK.dbc, is encrypted. "
                                                 "You need   \nto start VK and decrypt the file.");
        selection.choose(0);
        QVERIFY(!selection.recheck());
        QCOMPARE(m_ui->messageTexts(), (QStringList{encrypted, encrypted}));
        QCOMPARE(selection.currentName(), QStringLiteral("tor"));
        QCOMPARE(selection.settings(), settings);
        ProxySelection fresh(m_ui.get());
        fresh.load("tor");
        QCOMPARE(m_ui->messages.size(), 4); // building and choosing each tell the user
        QVERIFY(fresh.names().isEmpty());
    }
    // A format 1 record without host and port stops downloads, never goes direct.
    void proxyUnusableRecordBlocksDownloads() {
        const QString path = m_env->programFolder() + "vk.dbc";
        QVERIFY(QFile::remove(path));
        QString error;
        QVERIFY(TVKDB::create(path, 1, &error));
        {
            QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "raw");
            db.setDatabaseName(path);
            QVERIFY(db.open());
            QVERIFY(
                QSqlQuery(db).exec("INSERT INTO vk_proxies (record) VALUES ('broken,socks5,')"));
        }
        QSqlDatabase::removeDatabase("raw");
        openDataFile();
        ProxySelection selection(m_ui.get());
        selection.load("broken");
        QCOMPARE(selection.currentName(), QStringLiteral("broken"));
        QVERIFY(selection.blocked());
        QCOMPARE(selection.settings(), QStringList{"kind=unusable"});
        QNetworkProxy proxy;
        QVERIFY(!HttpSession::proxyFromSettings(selection.settings(), proxy));
    }
    // Nobody to ask: cancelled, the list keeps only the key pages it had.
    void chkAddKeysDefaultFrontEndCancels() {
        MessagesOnlyFrontEnd ui;
        QStringList pages{"nymserver.asc", "rlist.txt", "advisory.txt"};
        QVERIFY(!ChkAddKeys(&ui, pages, QStringLiteral("A"), QStringLiteral("B")));
        QCOMPARE(pages, QStringList{"rlist.txt"});
    }
    // Four days old a page is stale: on its tab, and the run is worrying.
    void stalePageMarked() {
        engine().today = QDate(2012, 12, 4);
        m_engine->runUpdate("first", {"mlist.txt"}, {});
        QCOMPARE(m_pages->tabTextAt(1), QStringLiteral("mlist.txt (stale)"));
        QVERIFY(m_engine->worrying());
        m_engine->today = QDate(2012, 12, 3);
        m_engine->runUpdate("first", {"mlist.txt"}, {});
        QCOMPARE(m_pages->tabTextAt(1), QStringLiteral("mlist.txt"));
        QVERIFY(!m_engine->worrying());
    }
    // "Do not save stale pages": a hand save keeps the old file and says so.
    void staleNotSavedSaysWhy() {
        ready("mlist.txt");
        m_controller->settings().noStaleSave = true;
        m_controller->engine().today = QDate(2012, 12, 4);
        m_controller->fileUpdate();
        m_ui->messages.clear();
        QCOMPARE(m_controller->savePages().skipped.size(), 1);
        QCOMPARE(m_ui->messages.size(), 1);
        QVERIFY(m_ui->messageTexts().constFirst().startsWith("Stale pages not saved"));
    }
    void failedPageOnceNoFallBackUnsafeNameRefused() {
        route("/first/mlist.txt", {"mode=silent"});
        engine().runUpdate("first", StatsPages, {"../escape.txt"});
        const QStringList status = statusLines();
        QVERIFY(status.contains("../escape.txt...refused: not a plain file name"));
        QCOMPARE(status.count("mlist.txt...timed out"), 1);
        QVERIFY(!status.contains("next source..."));
        QVERIFY(status.contains("pubring.asc...ok"));
        for (const TestPinger::Request& request : m_pinger->requests())
            QVERIFY(request.path.startsWith("/first/"));
        // Side by side, a connection each (one after the other would share one).
        QCOMPARE(m_pinger->connectionCount(), 4);
        QCOMPARE(m_ui->statusTexts.last(), QStringLiteral("Update complete!"));
    }
    void cancelDuringDownload() {
        route("/first/pubring.mix", {"lines=4000", "drip=10/50"});
        QTimer::singleShot(300, this, [this] { m_engine->cancel(); });
        engine().runUpdate("first", StatsPages, {"advisory.txt"});
        const QStringList status = statusLines();
        QVERIFY(status.contains("mlist.txt...ok"));
        QCOMPARE(status.last(), QStringLiteral("operation cancelled by user"));
        QVERIFY(!status.join('\n').contains("rlist.txt"));
        QVERIFY(m_engine->wasCancelled());
        for (const TestPinger::Request& request : m_pinger->requests())
            QVERIFY(!request.path.contains("velkin"));
        QCOMPARE(m_ui->statusTexts.last(), QStringLiteral("Update complete!"));
    }
    void failedAndLocalPagesNeverWritten() {
        add("status.txt", {"Sat Nov 21 10:00:00 2026"});
        QCOMPARE(PagesWorthSaving(*m_pages), 0); // the first tab never counts
        QVERIFY(WriteLines(m_env->mixFolder() + "mlist.txt", {"old page"}));
        const QString advisory = m_env->programFolder() + "advisory.txt";
        QVERIFY(WriteLines(advisory, {"velkin user advisory", "local"}));
        add("mlist.txt", {"<html>not a stats page</html>"});
        QCOMPARE(PagesWorthSaving(*m_pages), 0);
        QVERIFY(m_pages->openLocalFile(advisory));
        QVERIFY(WriteLines(advisory, {"changed on disk"}));
        add("rlist.txt", RealPageLines("2012-11-30", "rlist.txt"));
        QCOMPARE(PagesWorthSaving(*m_pages), 1);

        QCOMPARE(SavePages(m_ui.get(), *m_pages, {}, false).written, 2); // status and rlist.txt
        QCOMPARE(ReadLines(m_env->mixFolder() + "mlist.txt"), QStringList{"old page"});
        QCOMPARE(ReadLines(advisory), QStringList{"changed on disk"});
    }
    // A full disk: the old file stays, the error says why (not "Unknown error").
    void fullDiskKeepsOldFile() {
        add("rlist.txt", RealPageLines("2012-11-30", "rlist.txt"));
        QVERIFY(WriteLines(m_env->mixFolder() + "rlist.txt", {"old"}));
        SaveResult result;
        {
            const FileSizeLimit limit(16);
            result = SavePages(m_ui.get(), *m_pages, {}, false);
        }
        const QString errors = result.errors.join(u'\n');
        QVERIFY2(errors.contains("rlist.org.txt: File too large"), qPrintable(errors));
        QCOMPARE(ReadLines(m_env->mixFolder() + "rlist.txt"), QStringList{"old"});
    }
    // The two pages share one unfiltered copy: rlist.org.txt holds the keyring.
    void rlistThenPubringShareTheUnfilteredCopy() {
        add("status.txt", {"Sat Nov 21 10:00:00 2026"});
        for (const QString name : {"rlist.txt", "pubring.mix"})
            add(name, RealPageLines("2012-11-30", name));
        QVERIFY(SavePages(m_ui.get(), *m_pages, {}, false).ok());
        QCOMPARE(ReadLines(m_env->programFolder() + "rlist.org.txt"),
                 RealPageLines("2012-11-30", "pubring.mix"));
    }
    // An open line is ended before a message. Without a window nothing
    // repaints: a pause handles what is pending and returns at once.
    void headless() {
        const QString outPath = m_env->programFolder() + "out", errPath = outPath + "err";
        std::FILE* out = std::fopen(qPrintable(outPath), "w");
        std::FILE* err = std::fopen(qPrintable(errPath), "w");
        QVERIFY(out && err);
        {
            HeadlessFrontEnd ui(out, err);
            PageSet pages(&ui);
            ui.watch(pages);
            pages.addPage("status", pages.makeDocument("download", "status.txt", true, {}));
            PageView* view = pages.documentAt(0)->Viewer;
            view->appendLine("rlist.txt...");
            ui.showMessage("no URL", Warning, MbOk, MsgStyle::CentredDialog);
            view->appendToLastLine("timed out");
            view->appendLine("next source...");
            ui.finish();
            bool handled = false;
            QTimer::singleShot(0, this, [&] { handled = true; });
            QElapsedTimer clock;
            clock.start();
            WaitTicks(&ui, 60000);
            QVERIFY(handled);
            QVERIFY2(clock.elapsed() < 30000, qPrintable(QString::number(clock.elapsed())));
        }
        std::fclose(out);
        std::fclose(err);
        QCOMPARE(TempEnvironment::readFile(outPath) + "--\n" + TempEnvironment::readFile(errPath),
                 QByteArray("rlist.txt...\ntimed out\nnext source...\n--\nWarning: no URL\n"));
    }

private:
    void cases() {
        QFETCH(QStringList, f);
        if (f[0] == "parse") {
            const CommandLine line = ParseCommandLine(list(f[1].isEmpty() ? "-" : f[1]));
            QCOMPARE(QStringList({QString::number(line.versionQuery),
                                  QString::number(line.autoMode), QString::number(line.hideMode)}),
                     f.mid(2, 3));
            QCOMPARE(line.commandLinePages ? line.commandLinePages->join(u',') : "-", f[5]);
        } else if (f[0] == "close") {
            closeCase(f);
        } else if (f[0] == "barred") {
            closeBarredCase(f[1] == u'1');
        } else if (f[0] == "offered" || f[0] == "restore") {
            proxyCase(f);
        } else if (f[0] == "proxyrun") {
            throughProxy(f[1] == u'1', f[2] == u'1');
        } else if (f[0] == "savekill") {
            saveKilled(f[1], f[2]);
        } else {
            keyringCase(f);
        }
    }
    void closeCase(const QStringList& f) {
        const bool unsaved = f[1] == u'1';
        const bool closes = f[5] == u'1';
        const QList<int> answers = answersOf(f[4]);
        ready(unsaved ? "mlist.txt" : "");
        if (unsaved) {
            m_controller->fileUpdate();
            QVERIFY(m_controller->saveEnabled());
        }
        m_controller->setLastSource(f[2]);
        m_controller->setCurrentSource(f[3].toInt());
        m_ui->messages.clear();
        m_ui->answers = answers;

        QCOMPARE(m_controller->closeQuery("0,0,10,20,600,400"), closes);
        QStringList asked;
        if (unsaved)
            asked << "Your remailer pages are not saved. Save them now?     ";
        if (f[3].toInt() != (f[2] == "second") && (!unsaved || answers[0] != IdCancel))
            asked << "Your stats source has been changed. Do you wish to keep the current source?  "
                     "   ";
        QCOMPARE(m_ui->messageTexts(), asked);
        QCOMPARE(QFileInfo::exists(m_env->mixFolder() + "mlist.txt"), f[6] == u'1');
        QCOMPARE(m_controller->lastSource(), f[7]);
        // Keeping a source records it; urls.txt keeps its order.
        QCOMPARE(StatsSourceList(m_env->programFolder() + "urls.txt", nullptr).defaultSource(),
                 QStringLiteral("first"));
        // Settings are written only when the close goes ahead.
        const IniFile ini(IniFileName());
        QCOMPARE(ini.readString("stats", "window", ""), closes ? "0,0,10,20,600,400" : "");
        QCOMPARE(ini.readString("stats", "pages", ""), closes && unsaved ? "mlist.txt" : "");
        QCOMPARE(ini.readString("stats", "lastproxy", ""), closes ? "<none>" : "");
    }
    void closeBarredCase(bool edited) {
        const QByteArray stored = RealPage("2001-11-07", "mlist.txt");
        TempEnvironment::writeFile(m_env->mixFolder() + "mlist.txt", stored);
        TempEnvironment::writeFile(m_env->programFolder() + "barred.txt", "lcs\n");
        QCOMPARE(m_controller->startUp({}), StartResult::Ready);
        if (edited)
            TempEnvironment::writeFile(m_env->programFolder() + "barred.txt", "lcs\naarg\n");
        QCOMPARE(m_controller->barredChanged(), edited);
        QVERIFY(m_controller->closeQuery(QString()));
        const QByteArray after = TempEnvironment::readFile(m_env->mixFolder() + "mlist.txt");
        QCOMPARE(after == stored, !edited);
        QCOMPARE(after.contains("aarg"), !edited);
    }
    void proxyCase(const QStringList& f) {
        openDataFile();
        ProxySelection selection(m_ui.get());
        if (f[0] == "offered") {
            for (const QString& name : list(f[1]))
                addProxy(name, list(f[2]).contains(name));
            selection.load("<none>");
            QCOMPARE(selection.names(), list(f[3]));
            QCOMPARE(selection.currentIndex(), 0);
            QVERIFY(selection.settings().isEmpty());
            QVERIFY(m_ui->messages.isEmpty());
            // Each record sits beside its name.
            for (int i = 1; i < selection.names().size(); ++i)
                QVERIFY(selection.records().at(i).startsWith(selection.names().at(i) + ','));
            return;
        }
        addProxy("tor");
        addProxy("secret", true);
        const bool unattended = f[2] == u'1';
        const bool blocked = f[6] == u'1';
        m_ui->answers = answersOf(f[3]);
        selection.load(f[1], unattended);
        QCOMPARE(selection.currentName(), f[4]);
        QCOMPARE(selection.blocked(), blocked);
        if (f[5] == u'0') {
            QVERIFY(m_ui->messages.isEmpty());
            QVERIFY(selection.settings().contains("user=stream-tor"));
            return;
        }
        // Warned, then asked only when somebody can answer.
        QCOMPARE(m_ui->messages.size(), unattended ? 1 : 2);
        QCOMPARE(m_ui->messageTexts().constFirst(), Gone + f[1] + "--is no \nlonger present!");
        QCOMPARE(m_ui->messages.first().type, Warning);
        QCOMPARE(m_ui->messages.first().buttons, int(MbOk));
        QCOMPARE(m_ui->messages.last().buttons, int(unattended ? MbOk : MbYesNo));
        QNetworkProxy proxy;
        // Blocked: nothing a download could use, and the reason names the proxy.
        QCOMPARE(HttpSession::proxyFromSettings(selection.settings(), proxy), !blocked);
        QCOMPARE(selection.blockReason().join(u' ').contains(u'"' + f[1] + u'"'), blocked);
        if (blocked) {
            // A held-back run says why on the status page and the status bar.
            engine().refuseRun(selection.blockReason());
            QCOMPARE(engine().lastResult(), UpdateEngine::RefusedResult);
            QCOMPARE(statusLines().mid(1), selection.blockReason());
            QCOMPARE(m_ui->statusTexts.value(m_ui->statusTexts.size() - 1),
                     QStringLiteral("Nothing downloaded: no proxy"));
        }
        // The user's own choice lifts the hold.
        selection.choose(0);
        QVERIFY(!selection.blocked());
        QVERIFY(selection.settings().isEmpty());
    }
    void keyringCase(const QStringList& f) {
        TestFrontEnd ui;
        if (f[0] == "type2") {
            QCOMPARE(Type2ListLines(list(f[1])), list(f[2]));
        } else if (f[0] == "command") {
            QCOMPARE(f[1] == "mixmaster" ? MixmasterKeyringCommand(f[2], f[3])
                     : f[1] == "cypherpunk"
                         ? CypherpunkKeyringCommand(f[2], f[3])
                         : NymserverKeysCommand(f[2], f[3], f[2] + "nymserver.asc"),
                     f[4]);
        } else if (f[0] == "merge") {
            QCOMPARE(MergedNymserverKeys(list(f[1]), list(f[2])), list(f[3]));
        } else if (f[0] == "menu") {
            for (const QString& folder : {m_env->mixFolder(), m_env->programFolder()}) {
                for (const QString& name : list(f[folder == m_env->mixFolder() ? 1 : 2])) {
                    if (name.endsWith(u'/'))
                        QDir().mkpath(folder + name);
                    else
                        TempEnvironment::writeFile(folder + name, "x\n");
                }
            }
            const KeyringMenuState state = KeyringsMenuState();
            QCOMPARE(QString::number(state.mixmaster) + QString::number(state.cypherpunk) +
                         QString::number(state.nymservers),
                     f[3]);
        } else {
            QCOMPARE(f[0], QStringLiteral("addkeys"));
            TestFrontEnd::AddKeysAnswer answer;
            answer.ok = f[4].startsWith(u'1');
            const QString ticks = f[4].section(u' ', 1); // written as "1010"
            if (ticks != u'-')
                answer.ticks = KeyPageTicks{ticks[0] == u'1', ticks[1] == u'1', ticks[2] == u'1',
                                            ticks[3] == u'1'};
            ui.addKeysAnswers = {answer};
            QStringList pages = list(f[1]);
            QCOMPARE(ChkAddKeys(&ui, pages, f[2], f[3]), f[6] == u'1');
            QCOMPARE(pages, list(f[7]));
            QCOMPARE(ui.addKeysQuestions.size(), f[5] == u'-' ? 0 : 1);
            if (f[5] != u'-') {
                QCOMPARE(ui.addKeysQuestions.first().caption,
                         QStringLiteral(" New stats source detected {%1->%2}").arg(f[2], f[3]));
                QString asked;
                for (const bool tick : ui.addKeysQuestions.first().ticks)
                    asked += tick ? u'1' : u'0';
                QCOMPARE(asked, f[5]);
            }
        }
        QVERIFY(ui.messages.isEmpty());
    }
    // Every request of the run goes through the proxy, even when it stops midway.
    void throughProxy(bool socks, bool vanishes) {
        ProxyProcess proxy(socks ? ProxyProcess::Kind::Microsocks : ProxyProcess::Kind::Tinyproxy);
        if (!(socks ? proxy.start("vkstats", "correct horse") : proxy.start()))
            QSKIP(qPrintable("the proxy could not be started: " + proxy.errorString()));
        engine().automaticMode = true;
        m_engine->proxySettings = proxy.settings();
        if (vanishes)
            connect(m_pinger.get(), &TestPinger::requestReceived, m_pinger.get(),
                    [&proxy](const TestPinger::Request& request) {
                        if (request.path == "/first/pubring.mix")
                            proxy.stop();
                    });
        m_engine->runUpdate("first", StatsPages, {});
        const QString status = statusLines().join('\n');
        const QList<TestPinger::Request> requests = m_pinger->requests();
        QVERIFY(!requests.isEmpty());
        for (const TestPinger::Request& request : requests)
            QVERIFY2(request.header("Via").contains("tinyproxy") == !socks,
                     request.path.constData());
        // Which pages it was carrying when it went is timing; at least one fails.
        if (vanishes) {
            QVERIFY2(status.contains("..." + UpdateEngine::resultWord(-5001)), qPrintable(status));
            return;
        }
        for (const QString& page : StatsPages)
            QVERIFY2(status.contains(page + "...ok"), qPrintable(status));
        QCOMPARE(requests.size(), StatsPages.size());
        const QString seen = socks ? QStringLiteral("connected to 127.0.0.1:%1")
                                   : QStringLiteral("GET http://127.0.0.1:%1/first/pubring.mix");
        QVERIFY2(proxy.log().contains(seen.arg(m_pinger->port())),
                 qPrintable(proxy.log().right(2000)));
    }
    // A save killed midway leaves the old page, never half a page.
    void saveKilled(const QString& mode, const QString& page) {
        if (!QFileInfo(QStringLiteral("/proc/self/fd")).isDir())
            QSKIP("needs /proc to see the child's open files");
        const QString target = m_env->mixFolder() + page;
        const QByteArray old = RealPage("2012-11-30", page);
        const QByteArray folder =
            QFileInfo(m_env->mixFolder()).canonicalFilePath().toLocal8Bit() + '/';
        const bool safe = mode != "plainwrite";
        int kills = 0;
        // The first run, left alone, shows that an old page kept is the kill's doing.
        for (int attempt = 0; attempt <= 12 && kills < 3; ++attempt) {
            TempEnvironment::writeFile(target, old);
            QProcess process;
            process.start(QCoreApplication::applicationFilePath(), {"child", mode, page});
            QVERIFY(process.waitForStarted(10000));
            while (!process.canReadLine())
                QVERIFY2(process.waitForReadyRead(60000),
                         process.readAllStandardError().constData());
            const QList<QByteArray> said = process.readLine().trimmed().split(' ');
            QCOMPARE(said.value(0), QByteArray("saving"));
            const qint64 size = said.value(1).toLongLong();
            const qint64 floor = safe ? said.value(3).toLongLong() : 0;
            const bool killed = attempt > 0 && killWhenHalfWritten(process, folder, floor, size);
            QVERIFY(process.state() == QProcess::NotRunning || process.waitForFinished(120000));
            const QByteArray now = TempEnvironment::readFile(target);
            const bool whole =
                QCryptographicHash::hash(now, QCryptographicHash::Sha1).toHex() == said.value(2);
            if (!killed) { // left alone or too late: the whole new page
                QVERIFY2(whole && process.exitCode() == 0, process.readAll().constData());
                continue;
            }
            QCOMPARE(process.exitStatus(), QProcess::CrashExit);
            if (whole) // the kill came after the new page was in place
                continue;
            if (!safe) {
                kills += now != old && now.size() < size;
                continue;
            }
            QVERIFY2(now == old,
                     qPrintable(QStringLiteral("%1 bytes of neither page").arg(now.size())));
            ++kills;
            // Nothing else by the page's name: at most the save file's leftover.
            for (const QString& name : QDir(m_env->mixFolder()).entryList(QDir::Files))
                QVERIFY2(name == page || name == "type2.list" || name.startsWith(page + u'.'),
                         qPrintable(name));
        }
        QVERIFY2(kills >= 3, qPrintable(QStringLiteral("%1 kills landed").arg(kills)));
    }
    void addProxy(const QString& name, bool hidden = false) {
        ProxyEntry entry;
        entry.name = name;
        entry.kind = "socks5";
        entry.hidden = hidden;
        entry.host = "127.0.0.1";
        entry.port = 9050;
        entry.user = "stream-" + name;
        entry.password = "pw";
        QVERIFY(TheSuiteDataFile()->database->addProxy(entry));
    }
    void openDataFile() { QVERIFY(OpenSuiteDataFile(m_ui.get())); }
    // The window started, "first" used last and chosen, page ticked.
    void ready(const QString& page) {
        QCOMPARE(m_controller->startUp({}), StartResult::Ready);
        m_controller->setLastSource("first");
        m_controller->setCurrentSource(0);
        if (!page.isEmpty())
            m_controller->setTicked(page, true);
    }
    // The engine and its pages, made on first use over the open data file.
    UpdateEngine& engine() {
        if (!m_engine) {
            if (!OpenSuiteDataFile(m_ui.get()))
                qFatal("cannot open the data file");
            m_pages = std::make_unique<PageSet>(m_ui.get());
            m_engine = std::make_unique<UpdateEngine>(m_ui.get(), m_pages.get());
            m_engine->today = QDate(2012, 12, 1); // the served pages are current
        }
        return *m_engine;
    }
    QStringList statusLines() const {
        return m_pages->documentAt(m_pages->tabIndexOfPage("status"))->Lines();
    }
    // The served page, sent as words say.
    void route(const QString& path, const QStringList& words) {
        TestPinger::Route route;
        route.body = RealPage("2012-11-30", path.section(u'/', -1));
        QCOMPARE(TestPinger::applyRouteWords(route, words), QString());
        m_pinger->setRoute(path, route);
    }
    void add(const QString& name, const QStringList& lines) {
        engine();
        m_pages->addPage(name, m_pages->makeDocument("pinger", name, true, lines));
    }
    std::unique_ptr<TempEnvironment> m_env;
    std::unique_ptr<TestPinger> m_pinger;
    std::unique_ptr<TestFrontEnd> m_ui;
    std::unique_ptr<StatsController> m_controller;
    std::unique_ptr<PageSet> m_pages;
    std::unique_ptr<UpdateEngine> m_engine;
};

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (argc == 4 && QByteArray(argv[1]) == "child")
        return child(QString::fromLocal8Bit(argv[2]), QString::fromLocal8Bit(argv[3]));
    TestEngine test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_engine.moc"
