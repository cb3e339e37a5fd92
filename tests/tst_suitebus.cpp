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
using Messages = QList<Message>;

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

// Every VKAppMessage signal on the bus, from whoever sent it.
class Listener : public QObject {
    Q_OBJECT
public:
    explicit Listener(QDBusConnection bus) : m_bus(std::move(bus)) {
        m_connected = m_bus.connect(QString(), SuiteBus::objectPath(), SuiteBus::interfaceName(),
                                    QStringLiteral("VKAppMessage"), this, SLOT(record(int, int)));
    }
    bool isConnected() const { return m_connected; }
    Messages messages;

public slots:
    void record(int code, int value) { messages.append({code, value}); }

private:
    QDBusConnection m_bus;
    bool m_connected = false;
};

// A program folder, Mixmaster folder and home a copy of vkstats can start in.
struct ProgramSetup {
    QTemporaryDir program, mix, home;
    QString programFolder() const { return program.path() + u'/'; }
    QString mixFolder() const { return mix.path() + u'/'; }
};

} // namespace

class TestSuiteBus : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();
    void claimActivateAndPost();
    void silentHolderIsNotActivated();
    void secondCopyLeavesAndFirstClosesOnCode1();
    void headlessBroadcasts_data();
    void headlessBroadcasts();

private:
    QDBusConnection open(const QString& name);
    void prepareProgram(ProgramSetup& setup, const QString& lastSource = QString());
    QProcessEnvironment environment(const ProgramSetup& setup, bool withMix = true) const;
    Messages heardUpToMarker(Listener& listener);
    bool nameOwned() const;
    QDBusConnectionInterface::RegisterServiceReply holdNameSilently();

    QStringList m_connections;
    std::unique_ptr<TestPinger> m_pinger;
    std::unique_ptr<QProcess> m_desktop;
    int m_markers = 0;
};

void TestSuiteBus::initTestCase() {
    if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS") ||
        !QDBusConnection::sessionBus().isConnected())
        QSKIP("needs a session bus of its own: run under dbus-run-session");
    if (nameOwned())
        QSKIP("another program holds the suite's name on this bus");
}

void TestSuiteBus::init() {
    m_pinger = std::make_unique<TestPinger>();
    QVERIFY(m_pinger->listen());
}

void TestSuiteBus::cleanup() {
    if (m_desktop && m_desktop->state() != QProcess::NotRunning) {
        m_desktop->kill();
        m_desktop->waitForFinished(10000);
    }
    m_desktop.reset();
    m_pinger.reset();
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

// Takes the suite's name on a bus connection without ever answering for it,
// as a copy still starting would hold it.
QDBusConnectionInterface::RegisterServiceReply TestSuiteBus::holdNameSilently() {
    return open(QStringLiteral("holder"))
        .interface()
        ->registerService(SuiteBus::serviceName(), QDBusConnectionInterface::DontQueueService,
                          QDBusConnectionInterface::DontAllowReplacement)
        .value();
}

// The program folder with a new data file made by vkdbtool, and
// vkstats.ini ticking the four pages, urls.txt with the one source
// "pinger". With lastSource the data file remembers that source as the one
// last used, so a window closing finds nothing changed to ask about.
void TestSuiteBus::prepareProgram(ProgramSetup& setup, const QString& lastSource) {
    QVERIFY(setup.program.isValid() && setup.mix.isValid() && setup.home.isValid());
    const QString data = setup.programFolder() + QStringLiteral("vk.dbc");
    QVERIFY(RunsOk(QStringLiteral(VKDBTOOL), {"create", data}));
    if (!lastSource.isEmpty())
        QVERIFY(RunsOk(QStringLiteral(VKDBTOOL), {"set", data, "statslastsource", lastSource}));
    TempEnvironment::writeFile(setup.programFolder() + QStringLiteral("vkstats.ini"),
                               "[stats]\npages=mlist.txt,pubring.mix,rlist.txt,pubring.asc\n"
                               "timeoutseconds=5\n");
    QVERIFY(WritePingerUrls(setup.programFolder(), *m_pinger, StatsPages));
}

QProcessEnvironment TestSuiteBus::environment(const ProgramSetup& setup, bool withMix) const {
    return ChildEnvironment(setup.programFolder(), withMix ? setup.mixFolder() : QString(),
                            setup.home.path(), qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS"));
}

// What the listener heard up to a marker sent now. A sender's signal is
// on the bus before its program ends (SuiteBus makes sure of that), so a
// marker sent after the end arrives after everything the run sent; nothing
// may arrive twice.
Messages TestSuiteBus::heardUpToMarker(Listener& listener) {
    SuiteBus marker(open(QStringLiteral("marker")));
    const Message sent{MarkerCode, ++m_markers};
    marker.broadcast(sent.first, sent.second);
    if (!QTest::qWaitFor([&] { return listener.messages.contains(sent); }, 20000))
        return {{MarkerCode, 0}}; // the marker itself never came
    Messages heard = listener.messages.mid(0, listener.messages.indexOf(sent));
    heard.removeIf([](const Message& m) { return m.first == MarkerCode; });
    return heard;
}

// The first to claim the name keeps it; a second is refused, and its
// request to activate reaches the first. A message posted to the name
// arrives whole, unknown codes too, and is no activation.
void TestSuiteBus::claimActivateAndPost() {
    QDBusConnection firstBus = open(QStringLiteral("first"));
    SuiteBus first(firstBus);
    SuiteBus second(open(QStringLiteral("second")));
    QVERIFY(first.isConnected() && second.isConnected());
    QSignalSpy activated(&first, &SuiteBus::activateRequested);
    QSignalSpy secondActivated(&second, &SuiteBus::activateRequested);
    QSignalSpy received(&first, &SuiteBus::messageReceived);
    QVERIFY(first.claim());
    QVERIFY(!second.claim());
    QVERIFY(activateRunning(second));
    QCOMPARE(activated.count(), 1);
    QCOMPARE(secondActivated.count(), 0);
    QCOMPARE(firstBus.interface()->serviceOwner(SuiteBus::serviceName()).value(),
             firstBus.baseService());

    QCOMPARE(received.count(), 0);
    QDBusConnection poster = open(QStringLiteral("poster"));
    for (const Message& message : {Message(1, 0), Message(7, 0), Message(3, 4)}) {
        received.clear();
        const QDBusPendingCall call = poster.asyncCall(postMessage(message.first, message.second));
        QTRY_COMPARE_WITH_TIMEOUT(received.count(), 1, 20000);
        QCOMPARE(Message(received.at(0).at(0).toInt(), received.at(0).at(1).toInt()), message);
        QTRY_VERIFY_WITH_TIMEOUT(call.isFinished(), 20000);
        QVERIFY2(!call.isError(), qPrintable(call.error().message()));
    }
    QCOMPARE(activated.count(), 1);
}

// A holder of the name that answers nothing (a copy still starting) counts
// as nobody: activateRunning says so, and a new start goes on.
void TestSuiteBus::silentHolderIsNotActivated() {
    QCOMPARE(holdNameSilently(), QDBusConnectionInterface::ServiceRegistered);
    SuiteBus second(open(QStringLiteral("second")));
    QVERIFY(!second.claim());
    QVERIFY(!activateRunning(second));
}

void TestSuiteBus::secondCopyLeavesAndFirstClosesOnCode1() {
    ProgramSetup firstSetup;
    prepareProgram(firstSetup, QStringLiteral("pinger"));
    QProcessEnvironment firstEnvironment = environment(firstSetup);
    firstEnvironment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    m_desktop = std::make_unique<QProcess>();
    m_desktop->setProcessEnvironment(firstEnvironment);
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
    QProcessEnvironment secondEnvironment = environment(secondSetup);
    secondEnvironment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    const QString ini = secondSetup.programFolder() + QStringLiteral("vkstats.ini");
    const QByteArray iniBefore = TempEnvironment::readFile(ini);
    const ProgramRun second = RunToEnd(QStringLiteral(VKSTATS), {}, secondEnvironment, 60000);
    EXPECT_EXIT(second, QStringList(), 0);
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
    QCOMPARE(m_desktop->exitStatus(), QProcess::NormalExit);
    QCOMPARE(m_desktop->exitCode(), 0);
    const QStringList lines = ReadLines(firstSetup.programFolder() + QStringLiteral("vkstats.ini"));
    QVERIFY2(lines.contains(QStringLiteral("lastproxy=<none>")), qPrintable(lines.join(u'\n')));
    QTRY_VERIFY_WITH_TIMEOUT(!nameOwned(), 10000);
}

void TestSuiteBus::headlessBroadcasts_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("situation");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<Messages>("expected");
    const QStringList unattended = {"auto", "--headless"};
    // The served pages are of 2001, so a run that saves them ends with the
    // status of stale pages (7); the suite still hears "done".
    QTest::newRow("done") << unattended << "" << 7 << Messages{{3, 1}};
    // The pages that came are saved (6); the suite hears the failure.
    QTest::newRow("last download failed") << unattended << "fail" << 6 << Messages{{3, 4}};
    QTest::newRow("aborted for a missing URL")
        << QStringList{"auto", "--headless", "pubring.asc"} << "nourl" << 2 << Messages{{3, 2}};
    QTest::newRow("no Mixmaster folder") << unattended << "nomix" << 3 << Messages{{3, 3}};
    QTest::newRow("data file unreadable") << unattended << "junk" << 3 << Messages{{3, 3}};
    // A headless run makes the missing data file and goes on.
    QTest::newRow("no data file") << unattended << "nodata" << 7 << Messages{{3, 1}};
    QTest::newRow("encrypted data file") << unattended << "encrypted" << 3 << Messages{};
    QTest::newRow("version query") << QStringList{"version", "--headless"} << "" << 0 << Messages{};
    // Single instance is per role: a run beside an open window, or beside a
    // copy still starting, does its update and leaves the other alone; only
    // another update in the same program folder stops it, with a word on stderr.
    QTest::newRow("beside a window") << unattended << "window" << 7 << Messages{{3, 1}};
    QTest::newRow("beside a silent holder") << unattended << "holder" << 7 << Messages{{3, 1}};
    QTest::newRow("beside an update") << unattended << "update" << 3 << Messages{};
}

void TestSuiteBus::headlessBroadcasts() {
    QFETCH(QStringList, arguments);
    QFETCH(QString, situation);
    QFETCH(int, exitCode);
    QFETCH(Messages, expected);
    ProgramSetup setup;
    prepareProgram(setup);
    ServeRealPages(*m_pinger, Served, StatsPages);
    const QString data = setup.programFolder() + QStringLiteral("vk.dbc");
    if (situation == "fail")
        m_pinger->fail(QStringLiteral("/pubring.asc"), 500, "<html>Internal Server Error</html>\n");
    if (situation == "nourl")
        QVERIFY(WritePingerUrls(setup.programFolder(), *m_pinger, {"mlist.txt", "rlist.txt"}));
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
    if (situation == "holder")
        QCOMPARE(holdNameSilently(), QDBusConnectionInterface::ServiceRegistered);
    QLockFile update(setup.programFolder() + QStringLiteral("vkstats.lock"));
    if (situation == "update")
        QVERIFY(update.tryLock(0));

    Listener listener(open(QStringLiteral("listener")));
    QVERIFY(listener.isConnected());
    const ProgramRun run =
        RunToEnd(QStringLiteral(VKSTATS), arguments, environment(setup, situation != "nomix"));
    EXPECT_EXIT(run, arguments, exitCode);
    QCOMPARE(heardUpToMarker(listener), expected);
    QCOMPARE(activated.count(), 0);
    if (situation == "update" || situation == "holder" || situation == "window") {
        QCOMPARE(run.err.contains(QStringLiteral("Another update is running")), exitCode == 3);
        QCOMPARE(m_pinger->requests().isEmpty(), exitCode == 3);
        QCOMPARE(TempEnvironment::readFile(setup.mixFolder() + QStringLiteral("pubring.mix")),
                 exitCode == 3 ? QByteArray() : RealPage(Served, QStringLiteral("pubring.mix")));
    }
}

QTEST_GUILESS_MAIN(TestSuiteBus)
#include "tst_suitebus.moc"
