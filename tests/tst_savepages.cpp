#include "Global2.h"
#include "PageSet.h"
#include "SavePages.h"
#include "SuiteDatabase.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TestFrontEnd.h"
#include "TextFile.h"

#include <QTest>

// What a save leaves alone; what it writes is the scenario folders' work.
class TestSavePages : public QObject {
    Q_OBJECT
private slots:
    void failedAndLocalPagesNeverWritten();
    void rlistThenPubringShareTheUnfilteredCopy();
};

void TestSavePages::failedAndLocalPagesNeverWritten() {
    TempEnvironment env;
    TestFrontEnd ui;
    QCOMPARE(CreateDataFile(env.programFolder()), QString());
    QVERIFY(OpenSuiteDataFile(&ui));
    {
        PageSet pages(&ui);
        const auto add = [&pages](const QString& name, const QStringList& lines) {
            pages.addPage(name, pages.makeDocument("pinger", name, true, lines));
        };
        add("status.txt", {"Sat Nov 21 10:00:00 2026"});
        QCOMPARE(PagesWorthSaving(pages), 0); // the first tab never counts
        QVERIFY(WriteLines(env.mixFolder() + "mlist.txt", {"old page"}));
        QVERIFY(
            WriteLines(env.programFolder() + "advisory.txt", {"velkin user advisory", "local"}));
        add("mlist.txt", {"<html>not a stats page</html>"});
        QCOMPARE(PagesWorthSaving(pages), 0);
        QVERIFY(pages.openLocalFile(env.programFolder() + "advisory.txt"));
        QVERIFY(WriteLines(env.programFolder() + "advisory.txt", {"changed on disk"}));
        add("rlist.txt", RealPageLines("2012-11-30", "rlist.txt"));
        QCOMPARE(PagesWorthSaving(pages), 1);

        const SaveResult result = SavePages(&ui, pages, {}, false);
        QCOMPARE(result.written, 2); // the status page and rlist.txt
        QCOMPARE(ReadLines(env.mixFolder() + "mlist.txt"), QStringList{"old page"});
        QCOMPARE(ReadLines(env.programFolder() + "advisory.txt"), QStringList{"changed on disk"});
    }
    CloseSuiteDataFile();
}

// Loaded in this order the two pages share one unfiltered copy, and
// rlist.org.txt ends up holding the keyring.
void TestSavePages::rlistThenPubringShareTheUnfilteredCopy() {
    TempEnvironment env;
    TestFrontEnd ui;
    QCOMPARE(CreateDataFile(env.programFolder()), QString());
    QVERIFY(OpenSuiteDataFile(&ui));
    {
        PageSet pages(&ui);
        for (const QString name : {"status.txt", "rlist.txt", "pubring.mix"})
            pages.addPage(name, pages.makeDocument("pinger", name, true,
                                                   name == "status.txt"
                                                       ? QStringList{"Sat Nov 21 10:00:00 2026"}
                                                       : RealPageLines("2012-11-30", name)));
        QVERIFY(SavePages(&ui, pages, {}, false).ok());
        QCOMPARE(ReadLines(env.programFolder() + "rlist.org.txt"),
                 RealPageLines("2012-11-30", "pubring.mix"));
    }
    CloseSuiteDataFile();
}

QTEST_GUILESS_MAIN(TestSavePages)
#include "tst_savepages.moc"
