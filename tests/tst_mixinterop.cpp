#include "ProgramRun.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TestPinger.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

// The Mixmaster folder that an unattended update saves, read by the real
// Mixmaster client: it must see the same remailers as in a folder where the
// same pages were copied by hand, and route around the barred ones.

namespace {

const char* const Day = "2012-11-30";
// Mixmaster checks key dates against its clock, and the pages' freshness is
// judged against today: both run on the pages' day.
const QString Clock = QStringLiteral("@2012-11-30 12:00:00");
const QString PagesSetting = QStringLiteral("mlist.txt,pubring.mix,rlist.txt,pubring.asc");
const QString MixConfig = QStringLiteral("SENDMAIL outfile\nSMTPRELAY\nCLIENTAUTOFLUSH 1\n");
// Reliable remailers of that day: one barred outright, one allowed only as
// a middle hop, which without the bar may end a chain.
const QString FullyBarred = QStringLiteral("austria");
const QString LastBarred = QStringLiteral("breaka");
// Mixmaster cuts the last letter off type-I names, so the lists are looked
// up by address.
const QString FullyBarredAddress = QStringLiteral("<mixmaster@remailer.privacy.at>");
const QString LastBarredAddress = QStringLiteral("<remailer@breaka.net>");

QString mixmasterTool(const char* name) {
    return QStringLiteral(MIXMASTER_BIN "/") + QString::fromLatin1(name);
}

// "type2 breaka <remailer@breaka.net> mix pgp ek post 10000 1320" by type
// and address.
QString entryOf(const QStringList& entries, const QString& type, const QString& address) {
    for (const QString& entry : entries) {
        if (entry.startsWith(type + u' ') && entry.contains(u' ' + address))
            return entry;
    }
    return {};
}

int reliabilityOf(const QString& entry) {
    return entry.section(u' ', -2, -2).toInt();
}

int poolFiles(const QString& folder) {
    return int(QDir(folder + QStringLiteral("pool")).entryList(QDir::Files).size());
}

} // namespace

class TestMixInterop : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void savedFolderReadByMixmaster();

private:
    void updateFromPinger(const QByteArray& barred);
    void copyPagesPlainly(const QString& folder);
    ProgramRun runMixmaster(const QString& program, const QStringList& arguments,
                            const QString& folder);
    QString mixLists(const QString& folder);
    QStringList chainsChosen(const QString& folder, int count);

    QString m_faketime;
    TempEnvironment m_env;
    QTemporaryDir m_home;
    QTemporaryDir m_plain;
    TestPinger m_pinger;
};

void TestMixInterop::initTestCase() {
    const QString buildScript = QStringLiteral(MIXMASTER_SOURCE "/build-mixmaster.sh");
    if (!QFileInfo::exists(buildScript))
        QSKIP(qPrintable(QStringLiteral("the Mixmaster source is not at " MIXMASTER_SOURCE
                                        ", so the real client cannot be built")));
    for (const char* tool : {"mixmaster", "mixlists"})
        QVERIFY2(QFileInfo(mixmasterTool(tool)).isExecutable(),
                 "Mixmaster is not built: the mixmaster_build test builds it");
    m_faketime = QStandardPaths::findExecutable(QStringLiteral("faketime"));
    QVERIFY2(!m_faketime.isEmpty(), "faketime is missing (scripts/install-deps.sh installs it)");
    QVERIFY(m_env.isValid() && m_home.isValid() && m_plain.isValid());
    QVERIFY(m_pinger.listen());
    ServeRealPages(m_pinger, Day, StatsPages);
}

// An unattended update from the loopback pinger into the fresh Mixmaster
// folder, with barred.txt holding barred.
void TestMixInterop::updateFromPinger(const QByteArray& barred) {
    const QString program = m_env.programFolder();
    QCOMPARE(CreateDataFile(program), QString());
    TempEnvironment::writeFile(program + QStringLiteral("vkstats.ini"),
                               "[stats]\npages=" + PagesSetting.toUtf8() + '\n');
    TempEnvironment::writeFile(program + QStringLiteral("barred.txt"), barred);
    QVERIFY(WritePingerUrls(program, m_pinger, StatsPages));
    TempEnvironment::writeFile(m_env.mixFolder() + QStringLiteral("mix.cfg"), MixConfig.toUtf8());

    QProcessEnvironment environment =
        ChildEnvironment(program, m_env.mixFolder(), m_home.path(),
                         QStringLiteral("unix:path=") + m_home.path() + QStringLiteral("/no-bus"));
    // faketime comes in by LD_PRELOAD, ahead of a sanitizer's runtime.
    environment.insert(QStringLiteral("ASAN_OPTIONS"),
                       environment.value(QStringLiteral("ASAN_OPTIONS")) +
                           QStringLiteral(":verify_asan_link_order=0"));
    const QStringList arguments = {QStringLiteral("-f"), Clock, QStringLiteral(VKSTATS),
                                   QStringLiteral("auto"), QStringLiteral("--headless")};
    const ProgramRun run = RunToEnd(m_faketime, arguments, environment);
    QVERIFY2(run.endedWith(0), run.describe(m_faketime, arguments).constData());
}

void TestMixInterop::copyPagesPlainly(const QString& folder) {
    for (const QString& page : StatsPages)
        TempEnvironment::writeFile(folder + page, RealPage(Day, page));
    TempEnvironment::writeFile(folder + QStringLiteral("mix.cfg"), MixConfig.toUtf8());
}

ProgramRun TestMixInterop::runMixmaster(const QString& program, const QStringList& arguments,
                                        const QString& folder) {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("MIXPATH"), folder);
    return RunToEnd(m_faketime, QStringList{QStringLiteral("-f"), Clock, program} + arguments,
                    environment, 60000);
}

// Every remailer Mixmaster's own readers take from the folder.
QString TestMixInterop::mixLists(const QString& folder) {
    const ProgramRun run = runMixmaster(mixmasterTool("mixlists"), {}, folder);
    if (!run.endedWith(0))
        qWarning("%s", run.describe(mixmasterTool("mixlists"), {folder}).constData());
    return run.out;
}

// Mixmaster picks count random three-hop chains for a mail message and
// writes each encrypted message into the pool (now and then with a dummy
// message beside it); the chains, in sending order, of the runs that wrote.
QStringList TestMixInterop::chainsChosen(const QString& folder, int count) {
    const QString message =
        TempEnvironment::writeFile(m_home.path() + QStringLiteral("/message.txt"),
                                   "To: someone@example.org\nSubject: test\n\nhello\n");
    const QStringList arguments = {QStringLiteral("-v"), QStringLiteral("-l"),
                                   QStringLiteral("*,*,*"), message};
    static const QRegularExpression chainLine(QStringLiteral("^Chain: (\\S+)$"),
                                              QRegularExpression::MultilineOption);
    QStringList chains;
    for (int i = 0; i < count; ++i) {
        const int before = poolFiles(folder);
        const ProgramRun run = runMixmaster(mixmasterTool("mixmaster"), arguments, folder);
        const QRegularExpressionMatch match = chainLine.match(run.err);
        if (!run.endedWith(0) || !match.hasMatch() || poolFiles(folder) <= before) {
            qWarning("%s", run.describe(mixmasterTool("mixmaster"), arguments).constData());
            return chains;
        }
        chains.append(match.captured(1));
    }
    return chains;
}

// One update with two bars against the same pages copied by hand.
void TestMixInterop::savedFolderReadByMixmaster() {
    updateFromPinger((FullyBarred + u'\n' + LastBarred + QStringLiteral(",last\n")).toUtf8());
    const QString saved = m_env.mixFolder();
    const QString plain = m_plain.path() + u'/';
    copyPagesPlainly(plain);

    // Type I from rlist.txt, type II from pubring.mix with mlist.txt's
    // statistics, as Mixmaster's own code reads them: the same remailers,
    // but for the two barred.
    const QStringList plainEntries = mixLists(plain).split(u'\n');
    const QStringList savedEntries = mixLists(saved).split(u'\n');
    for (const QString type : {"type1 ", "type2 "}) {
        const auto unbarred = [&](const QStringList& entries) {
            QStringList kept = entries.filter(QRegularExpression(u'^' + type));
            kept.removeIf([](const QString& entry) {
                return entry.contains(FullyBarredAddress) || entry.contains(LastBarredAddress);
            });
            return kept;
        };
        QVERIFY2(unbarred(plainEntries).size() >= (type == "type1 " ? 10 : 20),
                 qPrintable(plainEntries.join(u'\n')));
        QCOMPARE(unbarred(savedEntries), unbarred(plainEntries));
    }

    // Plainly, both barred are reliable final hops; saved, the fully barred
    // one has no statistics (and no type-I entry) left and the other is a
    // middleman.
    for (const QString& address : {FullyBarredAddress, LastBarredAddress}) {
        const QString entry = entryOf(plainEntries, QStringLiteral("type2"), address);
        QVERIFY2(reliabilityOf(entry) >= 9900 && !entry.contains(QStringLiteral(" middle")),
                 qPrintable(entry));
    }
    QCOMPARE(reliabilityOf(entryOf(savedEntries, QStringLiteral("type2"), FullyBarredAddress)), 0);
    QVERIFY(!entryOf(plainEntries, QStringLiteral("type1"), FullyBarredAddress).isEmpty());
    QCOMPARE(entryOf(savedEntries, QStringLiteral("type1"), FullyBarredAddress), QString());
    for (const QString& type : {QStringLiteral("type1"), QStringLiteral("type2")}) {
        const QString entry = entryOf(savedEntries, type, LastBarredAddress);
        QVERIFY2(entry.contains(QStringLiteral(" middle")), qPrintable(type + u':' + entry));
    }

    // The keys Mixmaster offers, expired ones left out; the barred keys are
    // marked otherwise.
    const ProgramRun plainKeys = runMixmaster(mixmasterTool("mixmaster"), {"-T"}, plain);
    const ProgramRun savedKeys = runMixmaster(mixmasterTool("mixmaster"), {"-T"}, saved);
    QVERIFY2(plainKeys.endedWith(0) && plainKeys.out.count(u'\n') >= 20,
             plainKeys.describe(mixmasterTool("mixmaster"), {"-T"}).constData());
    const auto unbarredKeys = [](const ProgramRun& run) {
        QStringList keys = run.out.split(u'\n');
        keys.removeIf([](const QString& key) {
            return key.startsWith(FullyBarred + u' ') || key.startsWith(LastBarred + u' ');
        });
        return keys;
    };
    QCOMPARE(unbarredKeys(savedKeys), unbarredKeys(plainKeys));

    // Messages go out through the saved folder, around the barred.
    const QStringList chains = chainsChosen(saved, 40);
    QCOMPARE(chains.size(), 40);
    for (const QString& chain : chains) {
        const QStringList hops = chain.split(u',');
        QVERIFY2(hops.size() == 3 && !hops.contains(FullyBarred) && hops.last() != LastBarred,
                 qPrintable(chain));
    }
}

QTEST_GUILESS_MAIN(TestMixInterop)
#include "tst_mixinterop.moc"
