#include "Global2.h"
#include "PageSet.h"
#include "SavePages.h"
#include "SuiteDatabase.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TestFrontEnd.h"
#include "TextFile.h"

#include <QFile>
#include <QTest>

#include <memory>

namespace {} // namespace

class TestSavePages : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void writesAcceptedPagesWhereTheyBelong();
    void rlistThenPubringShareTheUnfilteredCopy();
    void failedAndLocalPagesNeverWritten();
    void newlyBarredAddedOnce();
    void countStartsAtSecondTab();

private:
    void add(const char* name, const QStringList& lines, const QString& date = {});
    std::unique_ptr<TempEnvironment> m_env;
    std::unique_ptr<TestFrontEnd> m_ui;
    std::unique_ptr<PageSet> m_pages;
};

void TestSavePages::init() {
    m_env.reset();
    m_env = std::make_unique<TempEnvironment>();
    m_ui = std::make_unique<TestFrontEnd>();
    QCOMPARE(CreateDataFile(m_env->programFolder()), QString());
    QVERIFY(OpenSuiteDataFile(m_ui.get()));
    m_pages = std::make_unique<PageSet>(m_ui.get());
    add("status.txt", {"Sat Nov 21 10:00:00 2026"});
}

void TestSavePages::cleanup() {
    m_pages.reset();
    CloseSuiteDataFile();
}

void TestSavePages::add(const char* name, const QStringList& lines, const QString& date) {
    auto doc = m_pages->makeDocument("pinger", QString::fromLatin1(name), true, lines);
    doc->Extra = date;
    m_pages->addPage(QString::fromLatin1(name), std::move(doc));
}

void TestSavePages::writesAcceptedPagesWhereTheyBelong() {
    const QStringList mix = RealPageLines("2012-11-30", "pubring.mix");
    add("mlist.txt", RealPageLines("2012-11-30", "mlist.txt"), "2012-11-30T12:00:00Z");
    add("pubring.mix", mix, "2012-11-30T12:00:01Z");
    add("pubring.asc", RealPageLines("2012-11-30", "pubring.asc"));
    add("nymserver.asc", {"preamble", "-----BEGIN PGP PUBLIC KEY BLOCK-----", "nymkey",
                          "-----END PGP PUBLIC KEY BLOCK-----"});
    const SaveResult result = SavePages(m_ui.get(), *m_pages, {}, false);
    QVERIFY2(result.ok(), qPrintable(result.errors.join('\n')));
    QCOMPARE(result.written, 5); // the status page too
    QVERIFY(QFile::exists(m_env->mixFolder() + "mlist.txt"));
    QCOMPARE(ReadLines(m_env->mixFolder() + "pubring.mix"), mix);
    QVERIFY(QFile::exists(m_env->programFolder() + "mlist.org.txt"));
    QVERIFY(QFile::exists(m_env->programFolder() + "nymserver.asc"));
    QVERIFY(QFile::exists(m_env->programFolder() + "status.txt"));
    QVERIFY(!ReadLines(m_env->mixFolder() + "type2.list").isEmpty());
    // The nymserver key lands at the end of the PGP keyring, preamble left out.
    const QStringList asc = ReadLines(m_env->mixFolder() + "pubring.asc");
    QCOMPARE(asc.mid(asc.size() - 3), (QStringList{"-----BEGIN PGP PUBLIC KEY BLOCK-----", "nymkey",
                                                   "-----END PGP PUBLIC KEY BLOCK-----"}));
    QCOMPARE(TheSuiteDataFile()->database->readValue("mlist.txt"),
             QStringLiteral("2012-11-30T12:00:00Z"));
    QCOMPARE(TheSuiteDataFile()->database->readValue("type2.list"),
             QStringLiteral("2012-11-30T12:00:01Z"));
}

void TestSavePages::rlistThenPubringShareTheUnfilteredCopy() {
    const QStringList mix = RealPageLines("2012-11-30", "pubring.mix");
    add("rlist.txt", RealPageLines("2012-11-30", "rlist.txt"));
    add("pubring.mix", mix);
    const SaveResult result = SavePages(m_ui.get(), *m_pages, {}, false);
    QVERIFY2(result.ok(), qPrintable(result.errors.join('\n')));
    QCOMPARE(ReadLines(m_env->programFolder() + "rlist.org.txt"), mix);
}

void TestSavePages::failedAndLocalPagesNeverWritten() {
    QVERIFY(WriteLines(m_env->mixFolder() + "mlist.txt", {"old page"}));
    QVERIFY(WriteLines(m_env->programFolder() + "advisory.txt", {"velkin user advisory", "local"}));
    add("mlist.txt", {"<html>not a stats page</html>"});
    QVERIFY(m_pages->openLocalFile(m_env->programFolder() + "advisory.txt"));
    QVERIFY(WriteLines(m_env->programFolder() + "advisory.txt", {"changed on disk"}));
    const SaveResult result = SavePages(m_ui.get(), *m_pages, {}, false);
    QCOMPARE(result.written, 1); // only the status page
    QCOMPARE(ReadLines(m_env->mixFolder() + "mlist.txt"), QStringList{"old page"});
    QCOMPARE(ReadLines(m_env->programFolder() + "advisory.txt"), QStringList{"changed on disk"});
}

void TestSavePages::newlyBarredAddedOnce() {
    add("mlist.txt", RealPageLines("2012-11-30", "mlist.txt"));
    add("rlist.txt", RealPageLines("2012-11-30", "rlist.txt"));
    QVERIFY(SavePages(m_ui.get(), *m_pages, {"newone", "other"}, true).ok());
    QVERIFY(SavePages(m_ui.get(), *m_pages, {"newone"}, true).ok());
    QCOMPARE(ReadLines(m_env->programFolder() + "barred.txt"), (QStringList{"newone", "other"}));
    QVERIFY(SavePages(m_ui.get(), *m_pages, {"third"}, false).ok());
    QVERIFY(!ReadLines(m_env->programFolder() + "barred.txt").contains("third"));
}

void TestSavePages::countStartsAtSecondTab() {
    QCOMPARE(PagesWorthSaving(*m_pages), 0); // the first tab never counts
    add("mlist.txt", {"<html>failed</html>"});
    QCOMPARE(PagesWorthSaving(*m_pages), 0);
    add("rlist.txt", RealPageLines("2012-11-30", "rlist.txt"));
    QCOMPARE(PagesWorthSaving(*m_pages), 1);
}

QTEST_GUILESS_MAIN(TestSavePages)
#include "tst_savepages.moc"
