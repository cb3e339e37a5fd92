#include "ProgramRun.h"
#include "SuiteBus.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TestPinger.h"
#include "TextFile.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QFileInfo>
#include <QLockFile>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <atomic>
#include <memory>

// The suite's messages and the single running copy over a session bus of
// this test's own (CTest starts it under dbus-run-session): first between
// SuiteBus objects on separate connections, then with the built vkstats.

namespace {

using Message = QPair<int, int>;

const char* const Served = "2001-11-07";
// Sent by the test after a run; everything the run broadcast comes before it.
const int MarkerCode = -1;

QDBusMessage postMessage(int code, int value) {
    QDBusMessage call =
        QDBusMessage::createMethodCall(SuiteBus::serviceName(), SuiteBus::objectPath(),
                                       SuiteBus::interfaceName(), QStringLiteral("PostMessage"));
    call << code << value;
    return call;
}

// Whether activateRunning() of bus got an answer; the call waits for it,
// and the answer may come from this thread, so it is made from another.
bool activateRunning(SuiteBus& bus) {
    std::atomic<bool> answered = false;
    std::unique_ptr<QThread> caller(QThread::create([&] { answered = bus.activateRunning(); }));
    caller->start();
    const bool ended = QTest::qWaitFor([&] { return caller->isFinished(); }, 20000);
    caller->wait(); // never leave it running on this frame's variables
    return ended && answered;
}

// The folders a copy of vkstats starts in.
struct ProgramSetup {
    QTemporaryDir program, mix, home;
    QString programFolder() const { return program.path() + u'/'; }
    QString mixFolder() const { return mix.path() + u'/'; }
    // For a copy with a window (offscreen) or without; withMix false leaves MIXPATH unset.
    QProcessEnvironment environment(bool window, bool withMix = true) const {
        QProcessEnvironment environment =
            ChildEnvironment(programFolder(), withMix ? mixFolder() : QString(), home.path(),
                             qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS"));
        if (window)
            environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        return environment;
    }
};

} // namespace

class TestSuiteBus : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanup();
    void claimAndActivate();
    void secondCopyLeavesAndFirstClosesOnCode1();
    void headlessBroadcasts_data() { AddTableRows(QStringLiteral("suitebus.txt")); }
    void headlessBroadcasts();

private:
    QDBusConnection open(const QString& name);
    void prepareProgram(ProgramSetup& setup, const QString& lastSource = {},
                        const QStringList& pages = StatsPages);
    QString heardUpToMarker(const QStringList& heard);
    bool nameOwned() const;

    QStringList m_connections;
    TestPinger m_pinger; // its routes set anew by each run, its log cleared
    std::unique_ptr<QProcess> m_desktop;
    int m_markers = 0;
};

void TestSuiteBus::initTestCase() {
    if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS") ||
        !QDBusConnection::sessionBus().isConnected())
        QSKIP("needs a session bus of its own: run under dbus-run-session");
    if (nameOwned())
        QSKIP("another program holds the suite's name on this bus");
    QVERIFY(m_pinger.listen());
}

void TestSuiteBus::cleanup() {
    if (m_desktop && m_desktop->state() != QProcess::NotRunning) {
        m_desktop->kill();
        m_desktop->waitForFinished(10000);
    }
    m_desktop.reset();
    m_pinger.clearLog();
    // A connection keeps its names until it is closed; then the name is free.
    for (const QString& name : std::as_const(m_connections))
        QDBusConnection::disconnectFromBus(name);
    m_connections.clear();
    QTRY_VERIFY_WITH_TIMEOUT(!nameOwned(), 10000);
}

QDBusConnection TestSuiteBus::open(const QString& name) {
    m_connections.append(name + QString::number(m_connections.size()));
    return QDBusConnection::connectToBus(QDBusConnection::SessionBus, m_connections.last());
}

bool TestSuiteBus::nameOwned() const {
    return QDBusConnection::sessionBus().interface()->isServiceRegistered(SuiteBus::serviceName());
}

// The program folder with a new data file, and vkstats.ini ticking the
// pages, urls.txt with them at the one source "pinger". With lastSource the
// data file remembers that source as the one last used (set by vkdbtool),
// so a window closing finds nothing changed to ask about.
void TestSuiteBus::prepareProgram(ProgramSetup& setup, const QString& lastSource,
                                  const QStringList& pages) {
    QVERIFY(setup.program.isValid() && setup.mix.isValid() && setup.home.isValid());
    QCOMPARE(CreateDataFile(setup.programFolder()), QString());
    if (!lastSource.isEmpty()) {
        const QStringList set{"set", setup.programFolder() + "vk.dbc", "statslastsource",
                              lastSource};
        const ProgramRun tool = RunToEnd(VKDBTOOL, set, QProcessEnvironment::systemEnvironment());
        QVERIFY2(tool.endedWith(0), tool.describe(VKDBTOOL, set).constData());
    }
    TempEnvironment::writeFile(setup.programFolder() + QStringLiteral("vkstats.ini"),
                               "[stats]\npages=mlist.txt,pubring.mix,rlist.txt,pubring.asc\n"
                               "timeoutseconds=5\n");
    QByteArray urls = "velkin urls\n[pinger]\n";
    for (const QString& page : pages)
        urls += page.toLatin1() + ' ' + m_pinger.url(u'/' + page).toLatin1() + '\n';
    TempEnvironment::writeFile(setup.programFolder() + QStringLiteral("urls.txt"),
                               urls + "\n[velkin]\n");
}

// What was heard ("code,value" words) up to a marker sent now. A sender's
// signal is on the bus before its program ends (SuiteBus makes sure of that),
// so a marker sent after the end arrives after everything the run sent;
// nothing may arrive twice.
QString TestSuiteBus::heardUpToMarker(const QStringList& heard) {
    SuiteBus marker(open(QStringLiteral("marker")));
    marker.broadcast(MarkerCode, ++m_markers);
    const QString sent = QStringLiteral("%1,%2").arg(MarkerCode).arg(m_markers);
    if (!QTest::qWaitFor([&] { return heard.contains(sent); }, 20000))
        return QStringLiteral("no marker");
    const QStringList before = heard.mid(0, heard.indexOf(sent)).filter(QRegularExpression("^\\d"));
    return before.isEmpty() ? QStringLiteral("-") : before.join(u' ');
}

// The first to claim the name keeps it; a second is refused, and its
// request to activate reaches the first. (A posted message reaching the
// window is shown by the copy of vkstats below and the heard rows.)
void TestSuiteBus::claimAndActivate() {
    SuiteBus first(open(QStringLiteral("first")));
    SuiteBus second(open(QStringLiteral("second")));
    QSignalSpy activated(&first, &SuiteBus::activateRequested);
    QSignalSpy secondActivated(&second, &SuiteBus::activateRequested);
    QVERIFY(first.isConnected() && first.claim() && !second.claim());
    QVERIFY(activateRunning(second));
    QVERIFY(activated.count() == 1 && secondActivated.isEmpty());
}

void TestSuiteBus::secondCopyLeavesAndFirstClosesOnCode1() {
    ProgramSetup firstSetup;
    prepareProgram(firstSetup, QStringLiteral("pinger"));
    m_desktop = std::make_unique<QProcess>();
    m_desktop->setProcessEnvironment(firstSetup.environment(true));
    m_desktop->start(QStringLiteral(VKSTATS), QStringList());
    QVERIFY2(m_desktop->waitForStarted(30000), qPrintable(m_desktop->errorString()));
    QTRY_VERIFY_WITH_TIMEOUT(nameOwned() || m_desktop->state() == QProcess::NotRunning, 60000);
    QVERIFY2(m_desktop->state() == QProcess::Running,
             m_desktop->readAllStandardError().constData());

    // The second copy has a program folder of its own that start-up would
    // change (it installs urls.txt): it must leave before that.
    ProgramSetup secondSetup;
    prepareProgram(secondSetup);
    QVERIFY(QFile::remove(secondSetup.programFolder() + QStringLiteral("urls.txt")));
    const QString ini = secondSetup.programFolder() + QStringLiteral("vkstats.ini");
    const QByteArray iniBefore = TempEnvironment::readFile(ini);
    const ProgramRun second = RunToEnd(VKSTATS, {}, secondSetup.environment(true), 60000);
    QVERIFY2(second.endedWith(0), second.describe(VKSTATS, {}).constData());
    QVERIFY(!QFileInfo::exists(secondSetup.programFolder() + QStringLiteral("urls.txt")));
    QCOMPARE(TempEnvironment::readFile(ini), iniBefore);
    QCOMPARE(m_desktop->state(), QProcess::Running);

    // Codes it does not act on, and the proxy re-check, leave it running;
    // each call returns once the window has handled it.
    QDBusConnection poster = open(QStringLiteral("poster"));
    for (const Message& message : {Message(7, 0), Message(2, 0), Message(3, 1)}) {
        const QDBusMessage reply =
            poster.call(postMessage(message.first, message.second), QDBus::Block, 20000);
        QVERIFY2(reply.type() == QDBusMessage::ReplyMessage, qPrintable(reply.errorMessage()));
        QCOMPARE(m_desktop->state(), QProcess::Running);
    }
    // Code 1 closes it through the normal close path, which saves the
    // window's settings, and frees the name.
    poster.asyncCall(postMessage(1, 0));
    QVERIFY2(WaitForEnd(*m_desktop, 60000), "vkstats did not close on message 1");
    QVERIFY(m_desktop->exitStatus() == QProcess::NormalExit && m_desktop->exitCode() == 0);
    const QStringList lines = ReadLines(firstSetup.programFolder() + QStringLiteral("vkstats.ini"));
    QVERIFY2(lines.contains(QStringLiteral("lastproxy=<none>")), qPrintable(lines.join(u'\n')));
}

void TestSuiteBus::headlessBroadcasts() {
    QFETCH(QStringList, f);
    const QString situation = f[0];
    const QStringList arguments = f[1].split(u'|');
    const int exitCode = f[2].toInt();
    ProgramSetup setup;
    prepareProgram(setup, {},
                   situation == "nourl" ? QStringList{"mlist.txt", "rlist.txt"} : StatsPages);
    for (const QString& page : StatsPages)
        m_pinger.serve(u'/' + page, RealPage(Served, page));
    const QString data = setup.programFolder() + QStringLiteral("vk.dbc");
    if (situation == "fail")
        m_pinger.setRoute("/pubring.asc", {.status = 500, .body = "<html>Server Error</html>\n"});
    if (situation == "nodata" || situation == "encrypted")
        QVERIFY(QFile::remove(data));
    if (situation == "junk")
        TempEnvironment::writeFile(data, "junk\n");
    if (situation == "encrypted")
        TempEnvironment::writeFile(setup.programFolder() + QStringLiteral("VK.pgp"),
                                   "-----BEGIN PGP MESSAGE-----\n-----END PGP MESSAGE-----\n");
    SuiteBus window(open(QStringLiteral("window")));
    QSignalSpy activated(&window, &SuiteBus::activateRequested);
    if (situation == "window")
        QVERIFY(window.claim());
    if (situation == "holder") // the name taken but never answered for, as by a copy starting
        QCOMPARE(open("holder").interface()->registerService(SuiteBus::serviceName()).value(),
                 QDBusConnectionInterface::ServiceRegistered);
    QLockFile update(setup.programFolder() + QStringLiteral("vkstats.lock"));
    if (situation == "update")
        QVERIFY(update.tryLock(0));

    // A SuiteBus whose PostMessage follows every broadcast on the bus.
    QDBusConnection listenerBus = open(QStringLiteral("listener"));
    SuiteBus listener(listenerBus);
    QStringList heard;
    connect(&listener, &SuiteBus::messageReceived, this, [&heard](int code, int value) {
        heard << QStringLiteral("%1,%2").arg(code).arg(value);
    });
    QVERIFY(listenerBus.connect(QString(), SuiteBus::objectPath(), SuiteBus::interfaceName(),
                                QStringLiteral("VKAppMessage"), &listener,
                                SLOT(PostMessage(int, int))));
    const ProgramRun run = RunToEnd(QStringLiteral(VKSTATS), arguments,
                                    setup.environment(false, situation != "nomix"));
    QVERIFY2(run.endedWith(exitCode), run.describe(VKSTATS, arguments).constData());
    QCOMPARE(heardUpToMarker(heard), f[3]);
    QCOMPARE(activated.count(), 0);
    // A silent holder counts as nobody: asked to come forward, it does not answer.
    if (situation == "holder")
        QVERIFY(!window.claim() && !activateRunning(window));
    if (situation == "update" || situation == "holder" || situation == "window") {
        QCOMPARE(run.err.contains(QStringLiteral("Another update is running")), exitCode == 3);
        QCOMPARE(m_pinger.requests().isEmpty(), exitCode == 3);
        QCOMPARE(TempEnvironment::readFile(setup.mixFolder() + QStringLiteral("pubring.mix")),
                 exitCode == 3 ? QByteArray() : RealPage(Served, QStringLiteral("pubring.mix")));
    }
}

QTEST_GUILESS_MAIN(TestSuiteBus)
#include "tst_suitebus.moc"
