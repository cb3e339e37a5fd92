#include "DialogTestSupport.h"
#include "Global2.h"
#include "Global2Widgets.h"
#include "HistoryWins.h"
#include "StatsSettings.h"
#include "StatsWins4.h"
#include "SuiteDatabase.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TextFile.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QPlainTextEdit>
#include <QPointer>
#include <QTest>

#include <memory>

namespace {

const QByteArray ProgramCopy =
    "VKstats release history\r\n\r\n1.9b12\r\n- from the program folder\r\n";
const QByteArray DocsCopy = "VKstats release history\n\n1.9b12\n- from docs\n";

QList<THistoryWin*> historyWindows() {
    QList<THistoryWin*> found;
    for (QWidget* widget : QApplication::allWidgets()) {
        if (auto* window = qobject_cast<THistoryWin*>(widget))
            found.append(window);
    }
    return found;
}

QList<QWidget*> visibleTopLevels() {
    QList<QWidget*> shown;
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (widget->isVisible())
            shown.append(widget);
    }
    return shown;
}

} // namespace

class TestHistoryWin : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void fileCases_data();
    void fileCases();
    void reusesOpenWindow();
    void withoutOwner();
    void shippedHistoryNamesThisRelease();
    void mainWindowMenu();

private:
    QString programCopy() const { return m_env->programFolder() + "vkstats.history.txt"; }
    QString docsCopy() const { return m_env->programFolder() + "docs/vkstats.history.txt"; }

    std::unique_ptr<TempEnvironment> m_env;
};

void TestHistoryWin::init() {
    m_env.reset(); // the old one restores the environment it found
    m_env = std::make_unique<TempEnvironment>();
    QVERIFY(m_env->isValid());
    // An empty docs folder is there in every case; only the file differs.
    QVERIFY(QDir().mkpath(m_env->programFolder() + "docs"));
}

void TestHistoryWin::cleanup() {
    for (THistoryWin* window : historyWindows())
        delete window;
}

void TestHistoryWin::fileCases_data() {
    QTest::addColumn<bool>("inProgram");
    QTest::addColumn<bool>("inDocs");
    QTest::addColumn<QString>("shows"); // "program", "docs" or empty
    QTest::newRow("program folder") << true << false << "program";
    QTest::newRow("docs subfolder only") << false << true << "docs";
    QTest::newRow("neither: nothing, and no message") << false << false << "";
    QTest::newRow("both: the program folder first") << true << true << "program";
}

void TestHistoryWin::fileCases() {
    QFETCH(bool, inProgram);
    QFETCH(bool, inDocs);
    QFETCH(QString, shows);
    if (inProgram)
        TempEnvironment::writeFile(programCopy(), ProgramCopy);
    if (inDocs)
        TempEnvironment::writeFile(docsCopy(), DocsCopy);
    // A folder of that name is no history file.
    if (!inProgram)
        QVERIFY(QDir().mkpath(programCopy()));

    QWidget owner;
    QVERIFY(ShowOwner(owner));
    const QList<QWidget*> before = visibleTopLevels();
    ShowHistory(&owner);

    const QList<THistoryWin*> windows = historyWindows();
    if (shows.isEmpty()) {
        QVERIFY(windows.isEmpty());
        QCOMPARE(HistoryFileName(), QString());
        // No message box or other window came up.
        QCOMPARE(visibleTopLevels(), before);
        return;
    }
    QCOMPARE(windows.size(), 1);
    THistoryWin* window = windows.first();
    QVERIFY(window->isVisible());
    QVERIFY(window->isWindow());
    QCOMPARE(window->parentWidget(), &owner);
    QVERIFY(window->Viewer->isReadOnly());
    const QString path = shows == "program" ? programCopy() : docsCopy();
    QCOMPARE(window->fileName(), path);
    QCOMPARE(HistoryFileName(), path);
    const QByteArray& bytes = shows == "program" ? ProgramCopy : DocsCopy;
    QCOMPARE(window->Viewer->toPlainText(), BytesToLines(bytes).join(u'\n'));
}

void TestHistoryWin::reusesOpenWindow() {
    TempEnvironment::writeFile(docsCopy(), DocsCopy);
    QWidget owner;
    owner.show();
    ShowHistory(&owner);
    QCOMPARE(historyWindows().size(), 1);
    QPointer<THistoryWin> first = historyWindows().first();
    // A copy in the program folder appeared meanwhile: the same window shows it.
    TempEnvironment::writeFile(programCopy(), ProgramCopy);
    ShowHistory(&owner);
    QCOMPARE(historyWindows().size(), 1);
    QVERIFY(first);
    QCOMPARE(historyWindows().first(), first.data());
    QCOMPARE(first->fileName(), programCopy());
    QCOMPARE(first->Viewer->toPlainText(), BytesToLines(ProgramCopy).join(u'\n'));
}

void TestHistoryWin::withoutOwner() {
    TempEnvironment::writeFile(programCopy(), ProgramCopy);
    ShowHistory(nullptr);
    QCOMPARE(historyWindows().size(), 1);
    QPointer<THistoryWin> window = historyWindows().first();
    QVERIFY(window->isVisible());
    QVERIFY(!window->parentWidget());
    // Closing frees it.
    window->close();
    QTRY_VERIFY(window.isNull());
}

// The history shipped in data/ has an entry for the release being built.
void TestHistoryWin::shippedHistoryNamesThisRelease() {
    const QString shipped = QStringLiteral(VK_TESTDATA "/../../data/vkstats.history.txt");
    QVERIFY(QFileInfo::exists(shipped));
    TempEnvironment::writeFile(docsCopy(), TempEnvironment::readFile(shipped));
    ShowHistory(nullptr);
    QCOMPARE(historyWindows().size(), 1);
    const QStringList lines = SplitLines(historyWindows().first()->Viewer->toPlainText());
    QVERIFY2(lines.contains(QStringLiteral(VKSTATS_VERSION)), VKSTATS_VERSION);
}

void TestHistoryWin::mainWindowMenu() {
    QCOMPARE(CreateDataFile(m_env->programFolder()), QString());
    QVERIFY(WriteLines(
        m_env->programFolder() + "urls.txt",
        {"velkin urls", "[first]", "mlist.txt http://127.0.0.1:9/mlist.txt", "", "[velkin]"}));
    TempEnvironment::writeFile(docsCopy(), DocsCopy);
    {
        TVKStatsWin4 window;
        QCOMPARE(window.start({}), StartResult::Ready);
        window.show();
        auto* item = window.findChild<QAction*>(QStringLiteral("HelpHistoryItem"));
        QVERIFY(item);
        QVERIFY(item->isEnabled());
        item->trigger();
        QCOMPARE(historyWindows().size(), 1);
        THistoryWin* history = historyWindows().first();
        QCOMPARE(history->parentWidget(), &window);
        QVERIFY(history->isVisible());
        QCOMPARE(history->Viewer->toPlainText(), BytesToLines(DocsCopy).join(u'\n'));
    }
    // It went with the main window.
    QVERIFY(historyWindows().isEmpty());
    CloseSuiteDataFile();
}

QTEST_MAIN(TestHistoryWin)
#include "tst_historywin.moc"
