#include "ProgramRun.h"
#include "SuiteBus.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TestPinger.h"
#include "TextFile.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusReply>
#include <QDir>
#include <QFile>
#include <QFileInfo>
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

QDBusConnection connection(const QString& name) {
    return QDBusConnection::connectToBus(QDBusConnection::SessionBus, name);
}

// Takes the suite's name on bus without ever answering for it, as a copy
// still starting would hold it.
QDBusConnectionInterface::RegisterServiceReply holdNameSilently(const QDBusConnection& bus) {
    return bus.interface()
        ->registerService(SuiteBus::serviceName(), QDBusConnectionInterface::DontQueueService,
                          QDBusConnectionInterface::DontAllowReplacement)
        .value();
}

QDBusMessage postMessage(int code, int value) {
    QDBusMessage call =
        QDBusMessage::createMethodCall(SuiteBus::serviceName(), SuiteBus::objectPath(),
                                       SuiteBus::interfaceName(), QStringLiteral("PostMessage"));
    call << code << value;
    return call;
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

// A program folder and a Mixmaster folder a copy of vkstats can start in.
class ProgramSetup {
public:
    bool isValid() const { return m_program.isValid() && m_mix.isValid() && m_home.isValid(); }
    QString programFolder() const { return m_program.path() + u'/'; }
    QString mixFolder() const { return m_mix.path() + u'/'; }
    QString home() const { return m_home.path(); }

private:
    QTemporaryDir m_program;
    QTemporaryDir m_mix;
    QTemporaryDir m_home;
};

} // namespace

class TestSuiteBus : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();

    // SuiteBus objects on separate connections.
    void secondClaimActivatesFirst();
    void nameFreedWhenHolderLeaves();
    void silentHolderIsNotActivated();
    void postMessageArrives_data();
    void postMessageArrives();
    void activateOverBus();
    void broadcastSeenByListener_data();
    void broadcastSeenByListener();

    // The built program.
    void secondCopyLeavesAndFirstClosesOnCode1();
    void headlessBroadcasts_data();
    void headlessBroadcasts();
    void headlessSecondCopyRefused();
    void headlessStartsBesideSilentHolder();

private:
    QDBusConnection open(const QString& name);
    void prepareProgram(ProgramSetup& setup, const QString& lastSource = QString());
    QProcessEnvironment environment(const ProgramSetup& setup, bool withMix = true) const;
    void heardUpToMarker(Listener& listener, Messages& heard);
    bool nameOwned();

    QStringList m_connections;
    std::unique_ptr<TestPinger> m_pinger;
    std::unique_ptr<QProcess> m_desktop;
    int m_markers = 0;
};

// What the listener heard, up to a marker sent now, is exactly expected.
#define EXPECT_HEARD(listener, expected)                                                           \
    do {                                                                                           \
        Messages heard;                                                                            \
        heardUpToMarker(listener, heard);                                                          \
        if (QTest::currentTestFailed())                                                            \
            return;                                                                                \
        QCOMPARE(heard, expected);                                                                 \
    } while (false)

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
    // A connection keeps its names until it is closed.
    for (const QString& name : std::as_const(m_connections))
        QDBusConnection::disconnectFromBus(name);
    m_connections.clear();
    QTRY_VERIFY_WITH_TIMEOUT(!nameOwned(), 10000);
}

QDBusConnection TestSuiteBus::open(const QString& name) {
    const QString unique = name + QString::number(m_connections.size());
    m_connections.append(unique);
    return connection(unique);
}

bool TestSuiteBus::nameOwned() {
    return QDBusConnection::sessionBus().interface()->isServiceRegistered(SuiteBus::serviceName());
}

// The program folder with a new data file made by vkdbtool, and
// vkstats.ini ticking the four pages, urls.txt with the one source
// "pinger". With lastSource the data file remembers that source as the one
// last used, so a window closing finds nothing changed to ask about.
void TestSuiteBus::prepareProgram(ProgramSetup& setup, const QString& lastSource) {
    QVERIFY(setup.isValid());
    const QString data = setup.programFolder() + QStringLiteral("vk.dbc");
    const QList<QStringList> commands = {
        {"create", data},
        lastSource.isEmpty() ? QStringList()
                             : QStringList{"set", data, "statslastsource", lastSource}};
    for (const QStringList& arguments : commands) {
        if (!arguments.isEmpty())
            QVERIFY(RunsOk(QStringLiteral(VKDBTOOL), arguments));
    }
    TempEnvironment::writeFile(setup.programFolder() + QStringLiteral("vkstats.ini"),
                               "[stats]\npages=mlist.txt,pubring.mix,rlist.txt,pubring.asc\n"
                               "timeoutseconds=5\n");
    QVERIFY(WritePingerUrls(setup.programFolder(), *m_pinger, StatsPages));
}

QProcessEnvironment TestSuiteBus::environment(const ProgramSetup& setup, bool withMix) const {
    return ChildEnvironment(setup.programFolder(), withMix ? setup.mixFolder() : QString(),
                            setup.home(), qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS"));
}

// What the listener heard up to a marker sent now. A sender's signal is
// on the bus before its program ends (SuiteBus makes sure of that), so a
// marker sent after the end arrives after everything the run sent.
void TestSuiteBus::heardUpToMarker(Listener& listener, Messages& heard) {
    SuiteBus marker(open(QStringLiteral("marker")));
    const int number = ++m_markers;
    marker.broadcast(MarkerCode, number);
    const Message sent{MarkerCode, number};
    QTRY_VERIFY_WITH_TIMEOUT(listener.messages.contains(sent), 20000);
    heard = listener.messages.mid(0, listener.messages.indexOf(sent));
    heard.removeIf([](const Message& m) { return m.first == MarkerCode; });
}

void TestSuiteBus::secondClaimActivatesFirst() {
    QDBusConnection firstBus = open(QStringLiteral("first"));
    QDBusConnection secondBus = open(QStringLiteral("second"));
    SuiteBus first(firstBus);
    SuiteBus second(secondBus);
    QVERIFY(first.isConnected() && second.isConnected());
    QSignalSpy activated(&first, &SuiteBus::activateRequested);
    QSignalSpy secondActivated(&second, &SuiteBus::activateRequested);

    QVERIFY(first.claim());
    QVERIFY(!second.claim());
    QCOMPARE(firstBus.interface()->serviceOwner(SuiteBus::serviceName()).value(),
             firstBus.baseService());

    // The call waits for its answer, which comes from this thread's first
    // object; so it is made from another thread.
    std::atomic<bool> answered = false;
    QThread* caller = QThread::create([&] { answered = second.activateRunning(); });
    caller->start();
    QTRY_VERIFY_WITH_TIMEOUT(caller->isFinished(), 20000);
    delete caller;
    QVERIFY(answered);
    QCOMPARE(activated.count(), 1);
    QCOMPARE(secondActivated.count(), 0);
    // The name stays with the first.
    QCOMPARE(firstBus.interface()->serviceOwner(SuiteBus::serviceName()).value(),
             firstBus.baseService());
}

void TestSuiteBus::nameFreedWhenHolderLeaves() {
    {
        SuiteBus first(open(QStringLiteral("leaving")));
        QVERIFY(first.claim());
    }
    QDBusConnection::disconnectFromBus(m_connections.takeLast());
    QTRY_VERIFY_WITH_TIMEOUT(!nameOwned(), 10000);
    QDBusConnection nextBus = open(QStringLiteral("next"));
    SuiteBus next(nextBus);
    QVERIFY(next.claim());
    QCOMPARE(nextBus.interface()->serviceOwner(SuiteBus::serviceName()).value(),
             nextBus.baseService());
}

// A holder of the name that answers nothing (a copy still starting) counts
// as nobody: activateRunning says so, and a new start goes on.
void TestSuiteBus::silentHolderIsNotActivated() {
    QDBusConnection holder = open(QStringLiteral("holder"));
    QCOMPARE(holdNameSilently(holder), QDBusConnectionInterface::ServiceRegistered);
    SuiteBus second(open(QStringLiteral("second")));
    QVERIFY(!second.claim());
    std::atomic<bool> answered = true;
    QThread* caller = QThread::create([&] { answered = second.activateRunning(); });
    caller->start();
    QTRY_VERIFY_WITH_TIMEOUT(caller->isFinished(), 20000);
    delete caller;
    QVERIFY(!answered);
}

void TestSuiteBus::postMessageArrives_data() {
    QTest::addColumn<int>("code");
    QTest::addColumn<int>("value");
    QTest::newRow("1: close") << 1 << 0;
    QTest::newRow("2: proxies changed") << 2 << 0;
    QTest::newRow("7: unknown, passed on as it came") << 7 << 0;
    QTest::newRow("3 with a value") << 3 << 4;
}

void TestSuiteBus::postMessageArrives() {
    QFETCH(int, code);
    QFETCH(int, value);
    SuiteBus first(open(QStringLiteral("first")));
    QVERIFY(first.claim());
    QSignalSpy received(&first, &SuiteBus::messageReceived);
    QSignalSpy activated(&first, &SuiteBus::activateRequested);

    QDBusConnection poster = open(QStringLiteral("poster"));
    const QDBusPendingCall call = poster.asyncCall(postMessage(code, value));
    QTRY_COMPARE_WITH_TIMEOUT(received.count(), 1, 20000);
    QCOMPARE(received.at(0).at(0).toInt(), code);
    QCOMPARE(received.at(0).at(1).toInt(), value);
    QTRY_VERIFY_WITH_TIMEOUT(call.isFinished(), 20000);
    QVERIFY2(!call.isError(), qPrintable(call.error().message()));
    QCOMPARE(activated.count(), 0);
}

void TestSuiteBus::activateOverBus() {
    SuiteBus first(open(QStringLiteral("first")));
    QVERIFY(first.claim());
    QSignalSpy activated(&first, &SuiteBus::activateRequested);
    QSignalSpy received(&first, &SuiteBus::messageReceived);
    const QDBusPendingCall call = open(QStringLiteral("caller"))
                                      .asyncCall(QDBusMessage::createMethodCall(
                                          SuiteBus::serviceName(), SuiteBus::objectPath(),
                                          SuiteBus::interfaceName(), QStringLiteral("Activate")));
    QTRY_COMPARE_WITH_TIMEOUT(activated.count(), 1, 20000);
    QTRY_VERIFY_WITH_TIMEOUT(call.isFinished(), 20000);
    QVERIFY2(!call.isError(), qPrintable(call.error().message()));
    QCOMPARE(received.count(), 0);
}

void TestSuiteBus::broadcastSeenByListener_data() {
    QTest::addColumn<int>("value");
    for (int value : {1, 2, 3, 4})
        QTest::addRow("3 with %d", value) << value;
}

void TestSuiteBus::broadcastSeenByListener() {
    QFETCH(int, value);
    Listener listener(open(QStringLiteral("listener")));
    QVERIFY(listener.isConnected());
    SuiteBus sender(open(QStringLiteral("sender")));
    QSignalSpy ownSignal(&sender, &SuiteBus::VKAppMessage);
    sender.broadcast(3, value);
    QTRY_COMPARE_WITH_TIMEOUT(listener.messages, Messages{Message(3, value)}, 20000);
    QCOMPARE(ownSignal.count(), 1);
    // Nothing arrives twice.
    EXPECT_HEARD(listener, Messages{Message(3, value)});
}

void TestSuiteBus::secondCopyLeavesAndFirstClosesOnCode1() {
    ProgramSetup firstSetup;
    prepareProgram(firstSetup, QStringLiteral("pinger"));
    QProcessEnvironment firstEnvironment = environment(firstSetup);
    firstEnvironment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));

    m_desktop = std::make_unique<QProcess>();
    m_desktop->setProgram(QStringLiteral(VKSTATS));
    m_desktop->setProcessEnvironment(firstEnvironment);
    m_desktop->start();
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
    const QStringList none;
    const QByteArray iniBefore =
        TempEnvironment::readFile(secondSetup.programFolder() + QStringLiteral("vkstats.ini"));
    const ProgramRun second = RunToEnd(QStringLiteral(VKSTATS), none, secondEnvironment, 60000);
    EXPECT_EXIT(second, none, 0);
    QVERIFY(!QFileInfo::exists(secondSetup.programFolder() + QStringLiteral("urls.txt")));
    QCOMPARE(TempEnvironment::readFile(secondSetup.programFolder() + QStringLiteral("vkstats.ini")),
             iniBefore);
    QCOMPARE(m_desktop->state(), QProcess::Running);
    QVERIFY(nameOwned());

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
    // window's settings.
    poster.asyncCall(postMessage(1, 0));
    QVERIFY2(WaitForEnd(*m_desktop, 60000), "vkstats did not close on message 1");
    QCOMPARE(m_desktop->exitStatus(), QProcess::NormalExit);
    QCOMPARE(m_desktop->exitCode(), 0);
    const QStringList ini = ReadLines(firstSetup.programFolder() + QStringLiteral("vkstats.ini"));
    QVERIFY2(ini.contains(QStringLiteral("lastproxy=<none>")), qPrintable(ini.join(u'\n')));
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
    QTest::newRow("no data file") << unattended << "nodata" << 3 << Messages{{3, 3}};
    QTest::newRow("encrypted data file") << unattended << "encrypted" << 3 << Messages{};
    QTest::newRow("version query") << QStringList{"version", "--headless"} << "" << 0 << Messages{};
}

void TestSuiteBus::headlessBroadcasts() {
    QFETCH(QStringList, arguments);
    QFETCH(QString, situation);
    QFETCH(int, exitCode);
    QFETCH(Messages, expected);

    ProgramSetup setup;
    prepareProgram(setup);
    ServeRealPages(*m_pinger, Served, StatsPages);
    if (situation == QLatin1String("fail"))
        m_pinger->fail(QStringLiteral("/pubring.asc"), 500, "<html>Internal Server Error</html>\n");
    if (situation == QLatin1String("nourl"))
        QVERIFY(WritePingerUrls(setup.programFolder(), *m_pinger, {"mlist.txt", "rlist.txt"}));
    if (situation == QLatin1String("nodata") || situation == QLatin1String("encrypted"))
        QVERIFY(QFile::remove(setup.programFolder() + QStringLiteral("vk.dbc")));
    if (situation == QLatin1String("encrypted"))
        TempEnvironment::writeFile(setup.programFolder() + QStringLiteral("VK.pgp"),
                                   "-----BEGIN PGP MESSAGE-----\n-----END PGP MESSAGE-----\n");

    Listener listener(open(QStringLiteral("listener")));
    QVERIFY(listener.isConnected());
    const ProgramRun run = RunToEnd(QStringLiteral(VKSTATS), arguments,
                                    environment(setup, situation != QLatin1String("nomix")));
    EXPECT_EXIT(run, arguments, exitCode);
    EXPECT_HEARD(listener, expected);
}

// A copy that finds another one running asks it to come forward and leaves
// without doing anything.
void TestSuiteBus::headlessSecondCopyRefused() {
    ProgramSetup setup;
    prepareProgram(setup);
    ServeRealPages(*m_pinger, Served, StatsPages);
    SuiteBus running(open(QStringLiteral("running")));
    QVERIFY(running.claim());
    QSignalSpy activated(&running, &SuiteBus::activateRequested);
    Listener listener(open(QStringLiteral("listener")));

    const QStringList arguments = {"auto", "--headless"};
    const ProgramRun run = RunToEnd(QStringLiteral(VKSTATS), arguments, environment(setup));
    EXPECT_EXIT(run, arguments, 3);
    QVERIFY2(run.err.contains(QStringLiteral("another copy is already running")),
             qPrintable(run.err));
    QCOMPARE(activated.count(), 1);
    QVERIFY(m_pinger->requests().isEmpty());
    QVERIFY(QDir(setup.mixFolder()).isEmpty());
    EXPECT_HEARD(listener, Messages{});
}

void TestSuiteBus::headlessStartsBesideSilentHolder() {
    ProgramSetup setup;
    prepareProgram(setup);
    ServeRealPages(*m_pinger, Served, StatsPages);
    QDBusConnection holder = open(QStringLiteral("holder"));
    QCOMPARE(holdNameSilently(holder), QDBusConnectionInterface::ServiceRegistered);
    Listener listener(open(QStringLiteral("listener")));

    const QStringList arguments = {"auto", "--headless"};
    const ProgramRun run = RunToEnd(QStringLiteral(VKSTATS), arguments, environment(setup));
    EXPECT_EXIT(run, arguments, 7); // saved; the pages of 2001 are stale
    QCOMPARE(TempEnvironment::readFile(setup.mixFolder() + QStringLiteral("pubring.mix")),
             RealPage(Served, QStringLiteral("pubring.mix")));
    EXPECT_HEARD(listener, Messages{Message(3, 1)});
}

QTEST_GUILESS_MAIN(TestSuiteBus)
#include "tst_suitebus.moc"
