#include "FileSizeLimit.h"
#include "Global2.h"
#include "HeadlessFrontEnd.h"
#include "HttpGet.h"
#include "IniFile.h"
#include "KeyringUpdate.h"
#include "PagePaths.h"
#include "ProxyProcess.h"
#include "StatsController.h"
#include "StatsSources.h"
#include "SuiteDatabase.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TestFrontEnd.h"
#include "TestPinger.h"
#include "TextFile.h"

#include <QCryptographicHash>
#include <QDir>
#include <QProcess>
#include <QScopeGuard>
#include <QSslKey>
#include <QSslSocket>
#include <QTcpServer>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

// Downloads, controller, proxy choice, keyring rules, engine, saves, headless
// front end; runs of the built program are the scenario folders' work.

namespace {

const QString Gone = QStringLiteral("The proxy you have been using for stats     \nretrieval--");

QStringList list(const QString& field) {
    return field == u'-' ? QStringList() : field.split(u'|');
}

QList<int> answersOf(const QString& field) {
    QList<int> answers;
    for (const QString& word : list(field))
        answers << (word == "ok" ? IdOk : word == "yes" ? IdYes : word == "no" ? IdNo : IdCancel);
    return answers;
}

// Run as "child MODE PAGE": saves a large page, printing "saving SIZE SHA1
// FLOOR" first (FLOOR: the largest file the save writes before the page).
int child(const QString& mode, const QString& page) {
    QStringList lines;
    while (lines.size() < 800000) // over 20 MB: slow enough to catch
        lines << RealPageLines("2012-11-30", page);
    TestFrontEnd ui;
    PageSet pages(&ui);
    pages.addPage(page, pages.makeDocument("pinger", page, true, lines));
    const bool save = mode == "savepages";
    const QByteArray bytes =
        save ? pages.documentAt(0)->FileLines().toBytes() : PageLines(lines).toBytes();
    const qint64 floor =
        save && page == "pubring.mix"
            ? PageLines(Type2ListLines(pages.documentAt(0)->Lines().toStringList()))
                  .toBytes()
                  .size()
            : 0;
    std::printf("saving %lld %s %lld\n", qint64(bytes.size()),
                QCryptographicHash::hash(bytes, QCryptographicHash::Sha1).toHex().constData(),
                floor);
    std::fflush(stdout);
    QFile file(PagePath(page));
    QString error;
    const SaveResult saved = save ? SavePages(&ui, pages, {}, false) : SaveResult();
    const bool ok = mode == "plainwrite" ? file.open(QIODevice::WriteOnly) && file.write(bytes) > 0
                    : mode == "writelines" ? WriteLines(PagePath(page), lines, &error)
                                           : saved.ok();
    std::printf("%s\n", qPrintable(error + saved.errors.join(u' ')));
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

// How long past its time-out a fetch may take (wide: the point is it returns).
constexpr qint64 SlackMs = 3000;
const QDateTime PageDate(QDate(2026, 3, 1), QTime(12, 0, 0), Qt::UTC);
const QString OnionUrl = QStringLiteral(
    "http://vkstatsxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx.onion/mlist.txt");

struct Fetch {
    int code = 0;
    PageLines lines;
    QDateTime lastModified;
    qint64 elapsedMs = 0;
};

Fetch fetch(HttpSession& session, const QString& url, const QStringList& proxy = {},
            int timeout = 2, const QDateTime& since = {}, FrontEnd* ui = nullptr,
            const bool* cancel = nullptr) {
    Fetch result{0, {}, since, 0};
    QElapsedTimer clock;
    clock.start();
    result.code =
        session.HTTPGet(ui, url, result.lines, proxy, cancel, timeout, result.lastModified);
    result.elapsedMs = clock.elapsed();
    return result;
}

// A port on which nothing listens.
quint16 closedPort() {
    QTcpServer probe;
    return probe.listen(QHostAddress::LocalHost, 0) ? probe.serverPort() : 0;
}

QStringList settingsFor(const QString& kind, quint16 port, const QString& user = {},
                        const QString& password = {}) {
    return {"kind=" + kind, "host=127.0.0.1", "port=" + QString::number(port), "user=" + user,
            "password=" + password};
}

// A route from words apart by '|' (see TestPinger::applyRouteWords).
TestPinger::Route routeOf(const QString& words, const QByteArray& body = {}) {
    TestPinger::Route route{.body = body};
    const QString problem =
        TestPinger::applyRouteWords(route, words.split(u'|', Qt::SkipEmptyParts));
    if (!problem.isEmpty())
        qFatal("%s", qPrintable(problem));
    return route;
}

// "=a|b": exactly these lines; "~text": the lines hold text; "#N": the lines make N
// bytes; "-": none.
void checkLines(const PageLines& page, const QString& expected) {
    const QStringList lines = page.toStringList();
    const QString all = lines.join(u'\n'), rest = expected.mid(1);
    if (expected.startsWith(u'='))
        QCOMPARE(lines, rest.split(u'|'));
    else if (expected.startsWith(u'~'))
        QVERIFY2(all.contains(rest), qPrintable(all.left(500)));
    else
        QCOMPARE(page.toBytes().size(), rest.toLongLong());
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
        for (const QString source : {"first", "second"})
            for (const QString& page : StatsPages)
                m_pinger->serve('/' + source + '/' + page, RealPage("2012-11-30", page));
        TempEnvironment::writeFile(m_env->programFolder() + "urls.txt",
                                   TempEnvironment::readFile(VK_TESTDATA "/engine/urls.txt")
                                       .replace("@PINGER@", m_pinger->url({}).toLatin1()));
        // Redirects: up to five are followed, relative or absolute.
        m_pinger->serve(QStringLiteral("/r0"), "arrived\n");
        for (int i = 1; i <= 6; ++i) {
            const QString next = QStringLiteral("/r%1").arg(i - 1);
            m_pinger->redirect(QStringLiteral("/r%1").arg(i), i % 2 ? next : m_pinger->url(next),
                               i % 3 ? 302 : 301);
        }
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
        QCOMPARE(m_controller->currentSource(), 0);
        QCOMPARE(m_controller->pages().count(), 1);
        QCOMPARE(m_controller->pages().captionAt(0), QStringLiteral("status"));
        QCOMPARE(m_controller->pages().documentAt(0)->Lines(), QStringList{"old run"});
        for (const QString& page : StatsPages)
            QCOMPARE(m_controller->isTicked(page), page.contains("list.txt"));
        QVERIFY(!m_controller->autoMode());
        // The proxy manager belongs to the program folder.
        QCOMPARE(ProxySelection::proxyManagerPath(), m_env->programFolder() + "vkproxy");
    }
    void closeRefusedWhileRunning() {
        m_pinger->setRoute("/first/mlist.txt",
                           routeOf("delay=600", RealPage("2012-11-30", "mlist.txt")));
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
        QVERIFY(OpenSuiteDataFile(m_ui.get()));
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
    // Only pages worth saving are written; a full disk keeps the old file and says why
    // (not "Unknown error"); rlist.txt then pubring.mix share one unfiltered copy.
    void saves() {
        const QString mix = m_env->mixFolder(), advisory = m_env->programFolder() + "advisory.txt";
        add("status.txt", {"Sat Nov 21 10:00:00 2026"});
        QCOMPARE(PagesWorthSaving(*m_pages), 0); // the first tab never counts
        QVERIFY(WriteLines(mix + "mlist.txt", {"old page"}) &&
                WriteLines(mix + "rlist.txt", {"old"}));
        QVERIFY(WriteLines(advisory, {"velkin user advisory", "local"}));
        add("mlist.txt", {"<html>not a stats page</html>"});
        QCOMPARE(PagesWorthSaving(*m_pages), 0);
        QVERIFY(m_pages->openLocalFile(advisory));
        QVERIFY(WriteLines(advisory, {"changed on disk"}));
        for (const QString name : {"rlist.txt", "pubring.mix"})
            add(name, RealPageLines("2012-11-30", name));
        QCOMPARE(PagesWorthSaving(*m_pages), 2);
        {
            const FileSizeLimit limit(16);
            const QString errors = SavePages(m_ui.get(), *m_pages, {}, false).errors.join(u'\n');
            QVERIFY2(errors.contains("rlist.org.txt: File too large"), qPrintable(errors));
        }
        QCOMPARE(ReadLines(mix + "rlist.txt"), QStringList{"old"});
        QCOMPARE(SavePages(m_ui.get(), *m_pages, {}, false).written, 3); // status and the two
        QCOMPARE(ReadLines(mix + "mlist.txt"), QStringList{"old page"});
        QCOMPARE(ReadLines(advisory), QStringList{"changed on disk"});
        QCOMPARE(ReadLines(m_env->programFolder() + "rlist.org.txt"),
                 RealPageLines("2012-11-30", "pubring.mix"));
    }
    // An open line is ended before a message. Without a window nothing
    // repaints: a pause handles what is pending and returns at once.
    void headless() {
        const QString path = m_env->programFolder() + "out";
        std::FILE* out = std::fopen(qPrintable(path), "w"); // messages too, to see the order
        QVERIFY(out);
        {
            HeadlessFrontEnd ui(out, out);
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
            const QDeadlineTimer quick(30000);
            WaitTicks(&ui, 60000);
            QVERIFY(handled && !quick.hasExpired());
        }
        std::fclose(out);
        QCOMPARE(TempEnvironment::readFile(path),
                 QByteArray("rlist.txt...\nWarning: no URL\ntimed out\nnext source...\n"));
    }

    // One connection per session; the free HTTPGet (a session each) is the control.
    void oneSessionOneConnection() {
        const QStringList pages = {"/first/mlist.txt", "/first/rlist.txt", "/first/pubring.mix"};
        {
            HttpSession session;
            for (const QString& page : pages)
                QCOMPARE(fetch(session, m_pinger->url(page)).code, HttpCode::Ok);
        }
        QCOMPARE(m_pinger->connectionCount(), 1);
        PageLines lines;
        QDateTime none;
        for (const QString& page : pages)
            QCOMPARE(HTTPGet(nullptr, m_pinger->url(page), lines, {}, nullptr, 2, none), 200);
        QCOMPARE(m_pinger->connectionCount(), 4);
    }
    // A SOCKS5 server notes the credentials and host asked for, answering that the host
    // cannot be reached: what a fetch hands to Tor.
    void socksGetsNamesAndRunCredentials() {
        struct Talk {
            QByteArray user, password, host;
            int stage = 0, type = 0;
        };
        QHash<QTcpSocket*, Talk> talks;
        QList<Talk> asks;
        QTcpServer socks;
        QVERIFY(socks.listen(QHostAddress::LocalHost, 0));
        // Each message comes whole (loopback, and the client awaits every answer):
        // methods, user and password when offered, then the connect.
        const auto step = [&](QTcpSocket* socket) {
            const QByteArray in = socket->readAll();
            const auto at = [&in](qsizetype i) {
                return i < in.size() ? int(quint8(in[i])) : 0;
            };
            Talk& t = talks[socket];
            if (t.stage == 0) {
                t.stage = in.mid(2).contains('\x02') ? 1 : 2;
                socket->write(t.stage == 1 ? "\x05\x02" : "\x05\x00", 2);
            } else if (t.stage == 1) {
                t.user = in.mid(2, at(1));
                t.password = in.mid(3 + at(1), at(2 + at(1)));
                socket->write("\x01\x00", 2);
                t.stage = 2;
            } else {
                t.type = at(3);
                t.host = t.type == 3 ? in.mid(5, at(4)) : QByteArray();
                asks.append(t);
                socket->write("\x05\x04\x00\x01\x00\x00\x00\x00\x00\x00", 10);
                socket->disconnectFromHost();
            }
        };
        connect(&socks, &QTcpServer::newConnection, this, [&] {
            while (QTcpSocket* socket = socks.nextPendingConnection())
                connect(socket, &QTcpSocket::readyRead, this, [&step, socket] { step(socket); });
        });
        const QStringList none = settingsFor("socks5", socks.serverPort()),
                          own = settingsFor("socks5", socks.serverPort(), "alice", "secret");
        const QString invalid = QStringLiteral("http://pinger.invalid/mlist.txt");
        {
            HttpSession run;
            QCOMPARE(fetch(run, invalid, none).code, HttpCode::TimedOut);
            QCOMPARE(fetch(run, OnionUrl, none).code, HttpCode::TimedOut);
        }
        HttpSession nextRun;
        QCOMPARE(fetch(nextRun, invalid, none).code, HttpCode::TimedOut);
        QCOMPARE(fetch(nextRun, invalid, own).code, HttpCode::TimedOut);

        QCOMPARE(asks.size(), 4);
        // Names go as names (address type 3): "pinger.invalid" has no address.
        const QList<QByteArray> hosts = {"pinger.invalid", QUrl(OnionUrl).host().toLatin1(),
                                         "pinger.invalid", "pinger.invalid"};
        for (int i = 0; i < asks.size(); ++i)
            QCOMPARE(QByteArray::number(asks[i].type) + ' ' + asks[i].host, "3 " + hosts[i]);
        // Without credentials of its own each run makes up a pair (a circuit).
        QVERIFY(asks[0].user.size() >= 16 && asks[0].password.size() >= 16);
        QCOMPARE(asks[1].user + ':' + asks[1].password, asks[0].user + ':' + asks[0].password);
        QVERIFY(asks[2].user != asks[0].user && asks[2].password != asks[0].password);
        QCOMPARE(asks[3].user + ':' + asks[3].password, QByteArray("alice:secret"));
    }
    void prefetchedPagesTakenOver() {
        m_pinger->serve(QStringLiteral("/early"), "early page\n", PageDate);
        m_pinger->serve(QStringLiteral("/too-big"), TestPinger::linesOfSize(4096));
        HttpSession session;
        session.setMaxBytes(1024);
        const QString early = urlOf("/early"), tooBig = urlOf("/too-big");
        session.prefetch(early, {}, {});
        session.prefetch(tooBig, {}, {});
        session.prefetch(QStringLiteral("file:///etc/hostname"), {}, {}); // refused, as by HTTPGet
        QTRY_COMPARE(m_pinger->requests().size(), 2);

        // The same request takes the transfer over; the size cap still holds.
        const Fetch got = fetch(session, early);
        QCOMPARE(got.code, HttpCode::Ok);
        QCOMPARE(got.lines, QStringList{QStringLiteral("early page")});
        QCOMPARE(got.lastModified, PageDate);
        QCOMPARE(fetch(session, tooBig).code, HttpCode::TransferError);
        QCOMPARE(m_pinger->requests().size(), 2);
        // Another date is another request.
        session.prefetch(early, {}, PageDate.addDays(-1));
        QCOMPARE(fetch(session, early, {}, 2, PageDate).code, HttpCode::NotModified);
        QTRY_COMPARE(m_pinger->requests().size(), 4); // three of /early
    }
    void fetches_data() { AddTableRows(QStringLiteral("httpget.txt")); }
    // Last: after its last row's quit no event loop runs.
    void fetches() { cases(); }

private:
    void cases() {
        QFETCH(QStringList, f);
        static const QHash<QString, void (TestEngine::*)(const QStringList&)> kinds = {
            {"parse", &TestEngine::parseCase},    {"close", &TestEngine::closeCase},
            {"barred", &TestEngine::barredCase},  {"offered", &TestEngine::proxyCase},
            {"restore", &TestEngine::proxyCase},  {"savekill", &TestEngine::saveKilled},
            {"fetch", &TestEngine::fetchCase},    {"realproxy", &TestEngine::realProxyCase},
            {"https", &TestEngine::httpsCase},    {"interrupt", &TestEngine::interruptCase},
            {"proxy", &TestEngine::settingsCase}, {"run", &TestEngine::runCase}};
        (this->*kinds.value(f[0], &TestEngine::keyringCase))(f);
    }
    void parseCase(const QStringList& f) {
        const CommandLine line = ParseCommandLine(list(f[1].isEmpty() ? "-" : f[1]));
        QCOMPARE(QStringList({QString::number(line.versionQuery), QString::number(line.autoMode),
                              QString::number(line.hideMode)}),
                 f.mid(2, 3));
        QCOMPARE(line.commandLinePages ? line.commandLinePages->join(u',') : "-", f[5]);
    }
    // One fetch (httpget.txt says the fields).
    void fetchCase(const QStringList& f) {
        QString high;
        for (int i = 0x80; i <= 0xff; ++i)
            high += QChar(i);
        if (f[2] != u'-')
            m_pinger->setRoute(f[1],
                               routeOf(f[2], QString(f[3]).replace("@high", high).toLatin1()));
        QStringList proxy;
        if (f[4] != u'-')
            proxy = settingsFor(f[4].section(u':', 0, 0),
                                f[4].endsWith("closed") ? closedPort() : m_pinger->port());
        const int timeout = f[6].toInt(), expected = f[8].toInt();
        HttpSession session;
        if (f[7].toLongLong() > 0)
            session.setMaxBytes(f[7].toLongLong());
        const Fetch got =
            fetch(session, urlOf(f[1]), proxy, timeout, QDateTime::fromString(f[5], Qt::ISODate));
        QVERIFY2(got.code == expected, qPrintable(f[8] + " " + session.lastErrorText()));
        QVERIFY(got.elapsedMs < timeout * 1000 + SlackMs);
        checkLines(got.lines, QString(f[9]).replace("@high", high));
        if (expected == HttpCode::Ok)
            QVERIFY(session.lastErrorText().isEmpty());
        else if (expected != HttpCode::NotModified)
            QVERIFY(!session.lastErrorText().isEmpty() && !got.lastModified.isValid());
        if (f[10] != u'*')
            QCOMPARE(got.lastModified.toUTC(), QDateTime::fromString(f[10], Qt::ISODate).toUTC());
        const QList<TestPinger::Request> requests = m_pinger->requests();
        QVERIFY(f[12] == u'+' ? !requests.isEmpty() : requests.size() == f[12].toInt());
        if (f[11] != u'*')
            QCOMPARE(requests.value(0).header("If-Modified-Since"),
                     f[11] == u'-' ? QByteArray() : f[11].toLatin1());
        // The same fixed headers always: no desktop language, no cookie.
        for (const TestPinger::Request& request : requests) {
            QByteArrayList sent;
            for (const auto& [name, value] : request.headers)
                if (name != "If-Modified-Since")
                    sent << name + ": " + (value.contains("deflate") ? "deflate" : value);
            std::sort(sent.begin(), sent.end());
            QCOMPARE(sent.join('|'), "Accept-Encoding: deflate|Accept-Language: en|Connection: "
                                     "Keep-Alive|Host: 127.0.0.1:" +
                                         QByteArray::number(m_pinger->port()) +
                                         "|User-Agent: VKstats/" VKSTATS_VERSION);
        }
    }
    void settingsCase(const QStringList& f) {
        QNetworkProxy proxy(QNetworkProxy::DefaultProxy);
        QString error;
        const bool ok = HttpSession::proxyFromSettings(list(f[1]), proxy, &error);
        QCOMPARE(error.isEmpty(), ok);
        const bool none = proxy.type() == QNetworkProxy::NoProxy;
        const QString type = proxy.type() == QNetworkProxy::HttpProxy     ? "http"
                             : proxy.type() == QNetworkProxy::Socks5Proxy ? "socks5"
                                                                          : "other";
        QCOMPARE(!ok    ? QStringLiteral("refused")
                 : none ? QStringLiteral("none")
                        : QStringList({type, proxy.hostName(), QString::number(proxy.port()),
                                       proxy.user(), proxy.password()})
                              .join(u' '),
                 f[2]);
        // Names go to the proxy unresolved: no lookups past Tor.
        QVERIFY(!ok || none ||
                proxy.capabilities().testFlag(QNetworkProxy::HostNameLookupCapability));
    }
    void realProxyCase(const QStringList& f) {
        const bool socks = f[1] == "microsocks";
        ProxyProcess proxy(socks ? ProxyProcess::Kind::Microsocks : ProxyProcess::Kind::Tinyproxy);
        if (!proxy.start(socks ? "vkstats" : "", socks ? "correct horse" : ""))
            QSKIP(qPrintable(f[1] + " could not be started: " + proxy.errorString()));
        m_pinger->serve(QStringLiteral("/a"), "page\n");
        HttpSession session;
        if (socks)
            QCOMPARE(fetch(session, urlOf("/a"), proxy.settings(), 5).code, HttpCode::Ok);
        const Fetch got = fetch(session, urlOf(f[4]), proxy.settings(f[2], f[3]), 5);
        QCOMPARE(got.code, f[5].toInt());
        checkLines(got.lines, f[6]);
        // One stream for the session's pages with the same credentials.
        QCOMPARE(m_pinger->connectionCount(), socks ? 1 : 0);
        QCOMPARE(m_pinger->requests().size(), (socks ? 1 : 0) + (got.code == HttpCode::Ok ? 1 : 0));
    }
    void httpsCase(const QStringList& f) {
        if (!QSslSocket::supportsSsl())
            QSKIP("no TLS backend");
        const QString keys = QStringLiteral(VK_TESTDATA "/tls/pinger.");
        const QSslCertificate certificate(TempEnvironment::readFile(keys + "crt"), QSsl::Pem);
        QSslConfiguration server = QSslConfiguration::defaultConfiguration();
        server.setLocalCertificate(certificate);
        server.setPrivateKey(
            QSslKey(TempEnvironment::readFile(keys + "key"), QSsl::Rsa, QSsl::Pem));
        server.setPeerVerifyMode(QSslSocket::VerifyNone);
        TestPinger tlsPinger;
        QVERIFY(tlsPinger.listenTls(server));
        tlsPinger.serve(QStringLiteral("/page"), "secure page\n");
        tlsPinger.redirect(QStringLiteral("/down"), m_pinger->url(QStringLiteral("/page")));

        const QSslConfiguration saved = QSslConfiguration::defaultConfiguration();
        const auto restore =
            qScopeGuard([&] { QSslConfiguration::setDefaultConfiguration(saved); });
        QSslConfiguration trusting = saved;
        if (f[3] == u'1')
            trusting.addCaCertificate(certificate);
        QSslConfiguration::setDefaultConfiguration(trusting);
        const bool tls = f[1] == "tls";
        HttpSession session;
        const QString url = tls ? tlsPinger.url(f[2]) : urlOf(f[2]).replace("http:", "https:");
        const Fetch got = fetch(session, url, {}, 5);
        QCOMPARE(got.code, f[4].toInt());
        checkLines(got.lines, got.code == HttpCode::Ok ? QStringLiteral("=secure page") : "-");
        QVERIFY(m_pinger->requests().isEmpty());
        QCOMPARE(tlsPinger.requests().size(), tls && f[3] == u'1' ? 1 : 0);
    }
    void interruptCase(const QStringList& f) {
        const QString& how = f[1];
        const QByteArray body = TestPinger::linesOfSize(64 * 1024);
        m_pinger->setRoute(QStringLiteral("/drip"), routeOf(QStringLiteral("drip=1024/50"), body));
        bool stop = how == "before";
        if (how == "cancel")
            QTimer::singleShot(300, [&stop] { stop = true; });
        else if (how == "quit")
            QTimer::singleShot(300, [] { QCoreApplication::exit(0); });
        HttpSession session;
        TestFrontEnd ui;
        const Fetch got =
            fetch(session, m_pinger->url(QStringLiteral("/drip")), {}, 30, {}, &ui, &stop);
        QCOMPARE(m_pinger->requests().size(), how == "before" ? 0 : 1);
        if (how != "none") {
            QCOMPARE(got.code, HttpCode::TransferError);
            QVERIFY(got.lines.isEmpty() && got.elapsedMs < 2000);
            return;
        }
        QCOMPARE(got.code, HttpCode::Ok);
        QCOMPARE(got.lines.toBytes(), body);
        // The progress climbs from 0 to 100 with steps between.
        const QList<int>& p = ui.progress;
        QVERIFY(std::is_sorted(p.cbegin(), p.cend()) && p.value(0) == 0 && p.constLast() == 100);
        QVERIFY(std::any_of(p.cbegin(), p.cend(), [](int v) { return v > 0 && v < 100; }));
    }
    void runCase(const QStringList& f) {
        m_pinger->setRoute(f[1], routeOf(f[2], RealPage("2012-11-30", f[1].section(u'/', -1))));
        if (f[3] != u'-')
            QTimer::singleShot(f[3].toInt(), this, [this] { m_engine->cancel(); });
        engine().runUpdate("first", StatsPages, list(f[4]));
        const QStringList status =
            m_pages->documentAt(m_pages->tabIndexOfPage("status"))->Lines().toStringList();
        const QString all = status.join(u'\n');
        for (const QString& line : list(f[5]))
            QVERIFY2(status.count(line) == 1, qPrintable(all));
        QVERIFY2(!all.contains(f[6]), qPrintable(all));
        QCOMPARE(status.last(), f[7]);
        for (const TestPinger::Request& request : m_pinger->requests())
            QVERIFY2(request.path.startsWith(f[8].toLatin1()), request.path.constData());
        if (f[9] != u'*')
            QCOMPARE(m_pinger->connectionCount(), f[9].toInt());
        QCOMPARE(m_engine->wasCancelled(), f[3] != u'-');
        QCOMPARE(m_ui->statusTexts.last(), QStringLiteral("Update complete!"));
    }
    void closeCase(const QStringList& f) {
        const bool unsaved = f[1] == u'1', closes = f[5] == u'1';
        ready(unsaved ? "mlist.txt" : "");
        if (unsaved) {
            m_controller->fileUpdate();
            QVERIFY(m_controller->saveEnabled());
        }
        m_controller->setLastSource(f[2]);
        m_controller->setCurrentSource(f[3].toInt());
        m_ui->messages.clear();
        m_ui->answers = answersOf(f[4]);

        QCOMPARE(m_controller->closeQuery("0,0,10,20,600,400"), closes);
        QStringList asked;
        if (unsaved)
            asked << "Your remailer pages are not saved. Save them now?     ";
        if (f[3].toInt() != (f[2] == "second") && (!unsaved || !f[4].startsWith("cancel")))
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
    void barredCase(const QStringList& f) {
        const bool edited = f[1] == u'1';
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
        QVERIFY(OpenSuiteDataFile(m_ui.get()));
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
        const bool unattended = f[2] == u'1', blocked = f[5] == u'1';
        m_ui->answers = answersOf(f[3]);
        selection.load(f[1], unattended);
        QCOMPARE(selection.currentName(), f[4]);
        QCOMPARE(selection.blocked(), blocked);
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
        if (blocked) { // a held-back run says why on the status bar too
            engine().refuseRun(selection.blockReason());
            QCOMPARE(engine().lastResult(), UpdateEngine::RefusedResult);
            QCOMPARE(m_ui->statusTexts.last(), QStringLiteral("Nothing downloaded: no proxy"));
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
            for (const int i : {1, 2})
                for (const QString& name : list(f[i])) {
                    const QString path =
                        (i == 1 ? m_env->mixFolder() : m_env->programFolder()) + name;
                    QVERIFY(name.endsWith(u'/')
                                ? QDir().mkpath(path)
                                : !TempEnvironment::writeFile(path, "x\n").isEmpty());
                }
            const auto [mixmaster, cypherpunk, nymservers] = KeyringsMenuState();
            QCOMPARE(QStringLiteral("%1%2%3")
                         .arg(int(mixmaster))
                         .arg(int(cypherpunk))
                         .arg(int(nymservers)),
                     f[3]);
        } else {
            QCOMPARE(f[0], QStringLiteral("addkeys"));
            const QString t = f[4].section(u' ', 1); // ticks written as "1010"
            ui.addKeysAnswers = {{f[4].startsWith(u'1'), std::nullopt}};
            if (t != u'-')
                ui.addKeysAnswers[0].ticks = {t[0] == u'1', t[1] == u'1', t[2] == u'1',
                                              t[3] == u'1'};
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
    // A save killed midway leaves the old page, never half a page.
    void saveKilled(const QStringList& f) {
        const QString &mode = f[1], &page = f[2];
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
            while (!process.canReadLine())
                QVERIFY(process.waitForReadyRead(60000));
            const QList<QByteArray> said = process.readLine().trimmed().split(' ');
            QCOMPARE(said.value(0), QByteArray("saving"));
            const qint64 size = said.value(1).toLongLong(),
                         floor = safe ? said.value(3).toLongLong() : 0;
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
            QVERIFY2(now == old, qPrintable(QString::number(now.size()))); // not half a page
            ++kills;
            // Nothing else by the page's name: at most the save file's leftover.
            for (const QString& name : QDir(m_env->mixFolder()).entryList(QDir::Files))
                QVERIFY2(name == page || name == "type2.list" || name.startsWith(page + u'.'),
                         qPrintable(name));
        }
        QVERIFY2(kills >= 3, qPrintable(QString::number(kills)));
    }
    // A pinger path, "closed/path" on a port where nothing listens, "onion", or a URL as it is.
    QString urlOf(const QString& field) const {
        return field.startsWith(u'/') ? m_pinger->url(field)
               : field.startsWith("closed/")
                   ? QStringLiteral("http://127.0.0.1:%1/").arg(closedPort()) + field.mid(7)
               : field == "onion" ? OnionUrl
                                  : field;
    }
    void addProxy(const QString& name, bool hidden = false) {
        const ProxyEntry entry{name, "socks5", hidden, "127.0.0.1", 9050, "stream-" + name, "pw"};
        QVERIFY(TheSuiteDataFile()->database->addProxy(entry));
    }
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
