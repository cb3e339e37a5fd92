// vkbench: figures for the work VKstats does on a page and for a whole
// unattended run. It is no test: it prints what it measured and says, for
// each target, whether it was met.
//
//   vkbench [--pages-only | --run-only] [--min-lines N] [--max-lines N] [--runs N]
//
// Page work: make the document (the unfiltered copy, the barred filter with
// 1,000 barred names, the view, the content check), check the content once
// more on its own, the barred filter and the type2.list derivation on their
// own, and the save (SavePages: the page, its unfiltered copy or
// type2.list, the dates). Made-up pages in the pingers' formats, in pairs of
// sizes so that each doubling is measured. The pauses the page set makes for
// the window (20 ms a document) are left out here: they are no work.
//
// Other large inputs: the change report and a urls.txt of many sections,
// each at two sizes, so that a second pass over the input shows.
//
// Whole run: nine pages (mlist.txt, pubring.mix, rlist.txt, pubring.asc from
// the source; nymserver.asc, mail2news.txt, advisory.txt, advisory.html,
// urls.txt from the suite's section) from a pinger in this process, in
// automatic mode, with the engine's pauses (100 ms after each fetch, 20 ms
// for each document, the status page's included) counted apart.

#include "BarredList.h"
#include "Global2.h"
#include "KeyringUpdate.h"
#include "PagePaths.h"
#include "PageSet.h"
#include "RemailerTracking.h"
#include "SavePages.h"
#include "StatsSources.h"
#include "SuiteDatabase.h"
#include "SyntheticPages.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TestFrontEnd.h"
#include "TestPinger.h"
#include "TextFile.h"
#include "UpdateEngine.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <tuple>
#include <vector>

namespace {

constexpr double TargetMBps = 50.0;
constexpr double TargetDoubling = 2.0;
constexpr double TargetOverheadPercent = 10.0;
constexpr int FetchPauseMs = 100;
constexpr int DocumentPauseMs = 20;
constexpr int BarredNames = 1000;
// Pages go side by side over at most as many connections as Qt opens to one
// server, each kept alive for the next page.
constexpr int MaxConnections = 6;

// A front end that does not pause: the page work is measured without the
// window's pauses.
class NoPauseFrontEnd : public TestFrontEnd {
public:
    void waitTicks(int ms) override { Q_UNUSED(ms); }
};

double mb(qint64 bytes) {
    return double(bytes) / 1e6;
}

double elapsedMs(const QElapsedTimer& clock) {
    return double(clock.nsecsElapsed()) / 1e6;
}

// 1,000 barred names spread over the made-up remailers, one in ten barred
// only as the last hop.
QStringList barredLines() {
    QStringList lines;
    for (int i = 0; i < BarredNames; ++i) {
        const QString name = SyntheticPages::remailerName(i * 10);
        lines.append(i % 10 == 0 ? name + QStringLiteral(",last") : name);
    }
    return lines;
}

struct PageFigures {
    int lines = 0;
    qint64 bytes = 0;
    double make = 0;   // make document, filter and check included
    double check = 0;  // the content check alone
    double filter = 0; // the barred filter alone
    double type2 = 0;  // Type2ListLines alone (pubring.mix)
    double save = 0;   // SavePages
    // What the page costs before the disk: everything but the save, with
    // the type2.list lines made in memory.
    double inMemory() const { return make + type2; }
    double work() const { return make + save; }
};

PageFigures measurePage(const QString& page, int lineCount, int repeats) {
    const PageLines lines = page == QStringLiteral("pubring.mix")
                                ? SyntheticPages::pubringMix(lineCount)
                                : SyntheticPages::mlist(lineCount);
    PageFigures best;
    best.lines = int(lines.size());
    best.bytes = lines.toBytes().size();
    best.make = best.check = best.filter = best.type2 = best.save = 1e300;
    for (int r = 0; r < repeats; ++r) {
        NoPauseFrontEnd ui;
        PageSet pages(&ui);
        pages.barFilter = RemoveBarredRemailers;
        QElapsedTimer clock;

        clock.start();
        auto doc = pages.makeDocument(QStringLiteral("bench"), page, true, lines);
        best.make = std::min(best.make, elapsedMs(clock));
        if (!doc->IsValidPage())
            qFatal("the made-up %s does not pass its check", qPrintable(page));

        clock.restart();
        const bool valid = doc->IsValidPage();
        best.check = std::min(best.check, elapsedMs(clock));
        Q_UNUSED(valid);

        PageLines copy = lines;
        clock.restart();
        RemoveBarredRemailers(copy, page);
        best.filter = std::min(best.filter, elapsedMs(clock));

        if (page == QStringLiteral("pubring.mix")) {
            clock.restart();
            const QStringList kept = Type2ListLines(doc->Lines().toStringList());
            best.type2 = std::min(best.type2, elapsedMs(clock));
            if (kept.isEmpty())
                qFatal("no type2.list lines");
        } else {
            best.type2 = 0;
        }

        doc->Extra = QStringLiteral("2012-11-30T12:00:00Z");
        pages.addPage(page, std::move(doc));
        clock.restart();
        const SaveResult saved = SavePages(&ui, pages, {}, false);
        best.save = std::min(best.save, elapsedMs(clock));
        if (!saved.ok() || saved.written != 1)
            qFatal("saving %s failed: %s", qPrintable(page), qPrintable(saved.errors.join(u' ')));
    }
    return best;
}

// The fixed price of saving on this disk, whatever the page's size: one
// value into the suite data file (its own SQLite transaction) and one file
// replaced through a save file (written, synced, renamed). Best and median
// of a few.
void fixedSaveCosts() {
    std::vector<double> value;
    std::vector<double> file;
    for (int i = 0; i < 9; ++i) {
        QElapsedTimer clock;
        clock.start();
        TheSuiteDataFile()->database->writeValue(QStringLiteral("bench"), QString::number(i));
        value.push_back(elapsedMs(clock));
        clock.restart();
        WriteLines(PagePath(QStringLiteral("bench.txt")), {QString::number(i)});
        file.push_back(elapsedMs(clock));
    }
    std::sort(value.begin(), value.end());
    std::sort(file.begin(), file.end());
    std::printf("Fixed costs of a save on this disk (best / median of 9):\n"
                "  one date into the suite data file  %6.2f / %6.2f ms\n"
                "  one one-line file replaced         %6.2f / %6.2f ms\n"
                "A saved mlist.txt costs one date and two files (the page, mlist.org.txt), a\n"
                "pubring.mix two dates and two files (the page, type2.list).\n\n",
                value.front(), value[value.size() / 2], file.front(), file[file.size() / 2]);
}

struct Verdict {
    bool met = true;
    void rate(const char* what, double mbps) {
        const bool ok = mbps >= TargetMBps;
        met = met && ok;
        std::printf("%s %7.1f MB/s (%s)", what, mbps, ok ? "met" : "MISSED");
    }
    void doubling(const char* what, double ratio) {
        const bool ok = ratio <= TargetDoubling;
        met = met && ok;
        std::printf("%s %.2fx (%s)", what, ratio, ok ? "met" : "MISSED");
    }
};

// Each part of the benchmark works in folders and a data file of its own.
void openDataFile(const TempEnvironment& env, TestFrontEnd& owner) {
    const QString error = env.isValid() ? CreateDataFile(env.programFolder())
                                        : QStringLiteral("no temporary folders");
    if (!error.isEmpty() || !OpenSuiteDataFile(&owner))
        qFatal("no suite data file: %s", qPrintable(error));
}

bool pageWork(int minLines, int maxLines) {
    std::printf("== Page work ==\n");
    // A fresh program folder and Mixmaster folder, gone at the end.
    TempEnvironment env;
    TestFrontEnd dataOwner;
    openDataFile(env, dataOwner);
    WriteLines(BarredList::path(), barredLines());

    std::printf("Made-up pages; %d barred names (1 in 10 last hop only); best of several runs;\n"
                "MB = 10^6 bytes of the page as saved; no window pauses. Times in ms.\n"
                "make   = make document: unfiltered copy, barred filter, view, content check\n"
                "check  = the content check alone;  filter = the barred filter alone\n"
                "type2  = the type2.list lines alone, in memory\n"
                "save   = SavePages (page, mlist.org.txt or type2.list, dates; files synced)\n"
                "memory = make + the type2.list lines in memory: the work before the disk\n"
                "total  = make + save\n\n",
                BarredNames);
    fixedSaveCosts();
    const std::vector<int> sizes = {10000, 20000, 100000, 200000, 1000000, 2000000};
    Verdict verdict;
    for (const QString& page : {QStringLiteral("mlist.txt"), QStringLiteral("pubring.mix")}) {
        std::printf("%s\n", qPrintable(page));
        std::printf("%8s %7s %7s %6s %6s %6s %7s %7s %7s %7s %7s\n", "lines", "MB", "make", "check",
                    "filter", "type2", "save", "memory", "MB/s", "total", "MB/s");
        std::vector<PageFigures> figures;
        for (const int size : sizes) {
            if (size < minLines)
                continue;
            if (size > maxLines)
                break;
            const int repeats = size >= 100000 ? 5 : 9;
            figures.push_back(measurePage(page, size, repeats));
            const PageFigures& f = figures.back();
            std::printf("%8d %7.2f %7.1f %6.1f %6.1f %6.1f %7.1f %7.1f %7.1f %7.1f %7.1f\n",
                        f.lines, mb(f.bytes), f.make, f.check, f.filter, f.type2, f.save,
                        f.inMemory(), mb(f.bytes) / (f.inMemory() / 1000.0), f.work(),
                        mb(f.bytes) / (f.work() / 1000.0));
        }
        std::printf("Targets: >= %.0f MB/s; <= %.0fx the time when the page doubles\n", TargetMBps,
                    TargetDoubling);
        for (size_t i = 0; i < figures.size(); ++i) {
            const PageFigures& f = figures[i];
            std::printf("  %7d lines:", f.lines);
            verdict.rate(" memory", mb(f.bytes) / (f.inMemory() / 1000.0));
            verdict.rate(", total", mb(f.bytes) / (f.work() / 1000.0));
            if (i % 2 == 1) {
                const PageFigures& half = figures[i - 1];
                std::printf("; from %d lines:", half.lines);
                verdict.doubling(" memory", f.inMemory() / half.inMemory());
                verdict.doubling(", total", f.work() / half.work());
            }
            std::printf("\n");
        }
        std::printf("\n");
    }
    CloseSuiteDataFile();
    return verdict.met;
}

// Figures for the other work whose input a hostile pinger can make huge:
// the change report against the stored mlist.txt (half the remailers new,
// half gone) and a urls.txt of many sections (read, looked up, one moved to
// the top). Each must take one pass: doubling the input at most doubles the
// time.
bool largeInputs() {
    std::printf("== Other large inputs ==\n");
    TempEnvironment env;
    if (!env.isValid())
        qFatal("no temporary folders");
    const auto mlist = [](int from, int count, const char* prefix) {
        QStringList page{QStringLiteral("Last update: Tue 6 Nov 2001 20:36:36 GMT"),
                         QStringLiteral("mixmaster           history  latency  uptime"),
                         QStringLiteral("--------------------------------------------")};
        for (int i = from; i < from + count; ++i)
            page.append(QStringLiteral("%1%2").arg(prefix).arg(i).leftJustified(15) +
                        QStringLiteral("##*#####+#+#    23:09 100.00%"));
        return page;
    };
    const auto report = [&](int count) {
        WriteLines(PagePath(QStringLiteral("mlist.txt")), mlist(0, count, "r"));
        const PageLines fresh = mlist(count / 2, count, "R");
        PageLines lines;
        QStringList newbars;
        QElapsedTimer clock;
        clock.start();
        ReportMixmasterChanges(fresh, lines, false, newbars);
        const double ms = elapsedMs(clock);
        if (lines.size() != 2 + count / 2 + 2 + count / 2)
            qFatal("the change report has %d lines", int(lines.size()));
        return ms;
    };
    const auto urls = [&](int count) {
        QByteArray bytes = "velkin urls\r\n";
        for (int i = 0; i < count; ++i) {
            const QByteArray n = QByteArray::number(i);
            bytes += "[src" + n + "]\r\n";
            for (const char* page : {"mlist.txt", "pubring.mix", "rlist.txt", "pubring.asc"})
                bytes += QByteArray(page) + " https://pinger" + n + ".example/" + page + "\r\n";
            bytes += "\r\n";
        }
        const QString path = env.programFolder() + QStringLiteral("urls.txt");
        TempEnvironment::writeFile(path, bytes + "[velkin]\r\n");
        TestFrontEnd ui;
        const StatsSourceList sources(path, &ui);
        QElapsedTimer clock;
        clock.start();
        const int entries = int(sources.sourceBoxContent(QStringLiteral("src1")).entries.size());
        const QString url = sources.urlOfPage(QStringLiteral("src%1").arg(count - 1),
                                              QStringLiteral("pubring.asc"));
        const bool moved = sources.moveSource(QStringLiteral("src%1").arg(count - 2), 0);
        const double ms = elapsedMs(clock);
        if (entries != count || url.isEmpty() || !moved ||
            sources.sourceNameByIndex(0) != QStringLiteral("src%1").arg(count - 2))
            qFatal("the urls.txt of %d sections was not read right", count);
        return ms;
    };
    Verdict verdict;
    std::printf("%-30s %9s %9s %9s %9s\n", "best of 3, ms", "n", "time", "2n", "time");
    for (const auto& [what, run, n] :
         {std::tuple{"change report (n remailers)", std::function<double(int)>(report), 100000},
          std::tuple{"urls.txt (n sections)", std::function<double(int)>(urls), 20000}}) {
        double once = 1e300;
        double twice = 1e300;
        for (int r = 0; r < 3; ++r) {
            once = std::min(once, run(n));
            twice = std::min(twice, run(2 * n));
        }
        std::printf("%-30s %9d %9.1f %9d %9.1f; ", what, n, once, 2 * n, twice);
        verdict.doubling("doubled", twice / once);
        std::printf("\n");
    }
    std::printf("\n");
    return verdict.met;
}

// The pages of the run: the real pages of one day from the source, small
// suite pages from "[velkin]".
struct RunPages {
    QStringList statsPages = {"mlist.txt", "pubring.mix", "rlist.txt", "pubring.asc"};
    QStringList suitePages = {"nymserver.asc", "mail2news.txt", "advisory.txt", "advisory.html",
                              "urls.txt"};
};

QByteArray realPage(const QString& name) {
    return TempEnvironment::readFile(QStringLiteral(VK_REALDATA "/2012-11-30/") + name);
}

bool wholeRun(int runs) {
    std::printf("== Whole unattended run ==\n");
    // Folders and data file of its own: no page dates from the page work,
    // so every page comes whole.
    TempEnvironment env;
    TestFrontEnd dataOwner;
    openDataFile(env, dataOwner);
    const RunPages run;
    TestPinger pinger;
    if (!pinger.listen())
        qFatal("the pinger cannot listen");
    const QDateTime date(QDate(2012, 11, 30), QTime(12, 0), Qt::UTC);

    QStringList urls = {"velkin urls", "[pinger]"};
    for (const QString& page : run.statsPages)
        urls << page + u' ' + pinger.url(u'/' + page);
    urls << QString() << QStringLiteral("[velkin]");
    for (const QString& page : run.suitePages)
        urls << page + u' ' + pinger.url(QStringLiteral("/velkin/") + page);

    QHash<QString, QByteArray> bodies;
    for (const QString& page : run.statsPages)
        bodies.insert(page, realPage(page));
    bodies.insert("nymserver.asc", PageLines(SyntheticPages::pgpKeys(2)).toBytes());
    bodies.insert("mail2news.txt", "mail2news@news.example.org alt.anonymous\n");
    bodies.insert("advisory.txt", "velkin user advisory\n\nNothing new.\n");
    bodies.insert("advisory.html", "<html><body><p>Nothing new.</p></body></html>\n");
    bodies.insert("urls.txt", PageLines(urls).toBytes());
    qint64 total = 0;
    for (const QString& page : run.statsPages)
        pinger.serve(u'/' + page, bodies.value(page), date);
    for (const QString& page : run.suitePages)
        pinger.serve(QStringLiteral("/velkin/") + page, bodies.value(page), date);
    for (const QByteArray& body : std::as_const(bodies))
        total += body.size();
    // What the last run saved is what the pinger serves, barred remailers
    // taken out: no new or deceased remailers, no new advisory, so the run
    // starts no other program.
    WriteLines(BarredList::path(), {"dizum", "frell,last"});
    for (const QString& page : run.statsPages + run.suitePages) {
        PageLines lines(bodies.value(page));
        RemoveBarredRemailers(lines, page);
        WriteLines(PagePath(page), lines);
    }

    const int pages = int(run.statsPages.size() + run.suitePages.size());
    const double pauses = pages * FetchPauseMs + (pages + 1) * DocumentPauseMs;
    std::printf("%d pages, %.1f kB in all, from a pinger in this process; automatic mode.\n", pages,
                double(total) / 1000.0);
    std::printf("Prescribed pauses: %d x %d ms after the fetches + %d x %d ms for the documents "
                "(status page included) = %.0f ms\n\n",
                pages, FetchPauseMs, pages + 1, DocumentPauseMs, pauses);
    std::printf("%5s %10s %12s %11s %12s %s\n", "run", "total ms", "overhead ms", "overhead %",
                "connections", "status");

    std::vector<double> warm;
    bool connectionsMet = true;
    bool allOk = true;
    for (int i = 0; i <= runs; ++i) {
        TestFrontEnd ui;
        PageSet pageSet(&ui);
        pageSet.barFilter = RemoveBarredRemailers;
        UpdateEngine engine(&ui, &pageSet);
        engine.automaticMode = true;
        const int before = pinger.connectionCount();
        QElapsedTimer clock;
        clock.start();
        engine.runUpdate(QStringLiteral("pinger"), run.statsPages, run.suitePages);
        const double ms = elapsedMs(clock);
        const int connections = pinger.connectionCount() - before;
        const PageLines status = pageSet.documentAt(0)->Lines();
        int good = 0;
        for (const QString& line : status)
            good +=
                line.endsWith(QLatin1String("...ok")) || line.endsWith(QLatin1String("...good"));
        const bool ok = good == pages && engine.changeCount() == 0 && !engine.advisoryShown();
        allOk = allOk && ok;
        connectionsMet = connectionsMet && connections <= MaxConnections;
        const double overhead = ms - pauses;
        std::printf("%5s %10.1f %12.1f %10.1f%% %12d %s\n",
                    i == 0 ? "cold" : qPrintable(QString::number(i)), ms, overhead,
                    100.0 * overhead / pauses, connections,
                    ok ? "all pages came"
                       : qPrintable(status.toStringList().join(QStringLiteral(" | "))));
        if (i > 0)
            warm.push_back(overhead);
    }
    CloseSuiteDataFile();
    std::sort(warm.begin(), warm.end());
    const double median = warm.empty() ? 0 : warm[warm.size() / 2];
    const double percent = 100.0 * median / pauses;
    const bool overheadMet = percent < TargetOverheadPercent;
    std::printf("\nMedian overhead of the warm runs: %.1f ms = %.1f%% of the pauses; < %.0f%% %s\n",
                median, percent, TargetOverheadPercent, overheadMet ? "met" : "MISSED");
    std::printf("Connections the pinger accepted per run: <= %d, kept alive %s\n", MaxConnections,
                connectionsMet ? "met" : "MISSED");
    return overheadMet && connectionsMet && allOk;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    int minLines = 0;
    int maxLines = 2000000;
    int runs = 5;
    bool pages = true;
    bool run = true;
    for (qsizetype i = 1; i < args.size(); ++i) {
        const QString& arg = args.at(i);
        if (arg == QStringLiteral("--pages-only")) {
            run = false;
        } else if (arg == QStringLiteral("--run-only")) {
            pages = false;
        } else if (arg == QStringLiteral("--min-lines") && i + 1 < args.size()) {
            minLines = args.at(++i).toInt();
        } else if (arg == QStringLiteral("--max-lines") && i + 1 < args.size()) {
            maxLines = args.at(++i).toInt();
        } else if (arg == QStringLiteral("--runs") && i + 1 < args.size()) {
            runs = qMax(1, args.at(++i).toInt());
        } else {
            std::fprintf(
                stderr,
                "usage: vkbench [--pages-only | --run-only] [--min-lines N] [--max-lines N] "
                "[--runs N]\n");
            return 2;
        }
    }

    bool met = true;
    if (pages) {
        met = pageWork(minLines, maxLines) && met;
        met = largeInputs() && met;
    }
    if (run)
        met = wholeRun(runs) && met;
    std::printf("\nAll targets %s\n", met ? "met" : "NOT met (see above)");
    return 0;
}
