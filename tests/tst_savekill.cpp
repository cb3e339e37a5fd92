#include "KeyringUpdate.h"
#include "PagePaths.h"
#include "PageSet.h"
#include "SavePages.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TestFrontEnd.h"
#include "TextFile.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QDir>
#include <QProcess>
#include <QTest>

#include <cstdio>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

// A save cut short must leave the old page as it was: a process killed while
// it writes a page into the Mixmaster folder leaves the file Mixmaster reads
// untouched, never half a page. This program, started again as a child,
// saves a large page through the program's own save path; the test watches
// the child's open files in /proc and kills it (SIGKILL) mid-write.
// "plainwrite" (open, truncate, write in place) is the way the program must
// not save: it shows that the kills do land while the bytes go out.

namespace {

constexpr int KillsWanted = 3;
constexpr int MaxAttempts = 12;
constexpr int PageLines = 480000; // about 20 MB: slow enough to catch

// The child: "child MODE PAGE". It prints "saving SIZE SHA1 FLOOR" before
// it writes (the finished file, and the size of the largest file the same
// save writes before the page: type2.list before pubring.mix), then
// "saved" or "failed: ...".
int child(const QString& mode, const QString& page) {
    const QStringList real = RealPageLines("2012-11-30", page);
    QStringList lines;
    while (lines.size() < PageLines) // the real page, over and over
        lines << real;
    TestFrontEnd ui;
    PageSet pages(&ui);
    auto doc = pages.makeDocument("pinger", page, true, lines);
    const QStringList saved = mode == "savepages" ? doc->FileLines() : lines;
    const QByteArray bytes = LinesToBytes(saved);
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

// Watches the child's open files until one below folder holds more than
// above and less than below bytes, then kills the child at once. Plain
// POSIX calls: this is a tight loop. False when the child ended first.
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

class TestSaveKill : public QObject {
    Q_OBJECT
private slots:
    void kill_data();
    void kill();
};

void TestSaveKill::kill_data() {
    QTest::addColumn<QString>("mode");
    QTest::addColumn<QString>("page");
    for (const auto& [mode, page] : {std::pair("writelines", "mlist.txt"),
                                     {"savepages", "mlist.txt"},
                                     {"savepages", "pubring.mix"},
                                     {"plainwrite", "mlist.txt"}}) // the control
        QTest::newRow(qPrintable(QStringLiteral("%1 %2").arg(mode, page))) << mode << page;
}

void TestSaveKill::kill() {
    QFETCH(QString, mode);
    QFETCH(QString, page);
    if (!QFileInfo(QStringLiteral("/proc/self/fd")).isDir())
        QSKIP("needs /proc to see the child's open files");
    TempEnvironment env;
    const QString target = env.mixFolder() + page;
    const QByteArray old = RealPage("2012-11-30", page);
    const QByteArray folder = QFileInfo(env.mixFolder()).canonicalFilePath().toLocal8Bit() + '/';
    const bool safe = mode != "plainwrite";
    int kills = 0;
    // The first run is left alone: it must put the announced page in place,
    // so an old page kept later is the kill's doing.
    for (int attempt = 0; attempt <= MaxAttempts && kills < KillsWanted; ++attempt) {
        TempEnvironment::writeFile(target, old);
        QProcess process;
        process.start(QCoreApplication::applicationFilePath(), {"child", mode, page});
        QVERIFY(process.waitForStarted(10000));
        while (!process.canReadLine())
            QVERIFY2(process.waitForReadyRead(60000), process.readAllStandardError().constData());
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
        for (const QString& name : QDir(env.mixFolder()).entryList(QDir::Files))
            QVERIFY2(name == page || name == "type2.list" || name.startsWith(page + u'.'),
                     qPrintable(name));
    }
    QVERIFY2(kills >= KillsWanted, qPrintable(QStringLiteral("%1 kills landed").arg(kills)));
}

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (argc == 4 && QByteArray(argv[1]) == "child")
        return child(QString::fromLocal8Bit(argv[2]), QString::fromLocal8Bit(argv[3]));
    TestSaveKill test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_savekill.moc"
