#include "DialogTestSupport.h"
#include "Global2.h"
#include "Global2Widgets.h"
#include "RearrangeDlgs.h"
#include "TempEnvironment.h"
#include "TestFrontEnd.h"
#include "TextFile.h"
#include "UrlsCases.h"

#include <QApplication>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QTest>

#include <functional>
#include <memory>

namespace {

const QString SaveQuestion = QStringLiteral("The source order is changed. Save your changes?");

const QByteArray Four = "velkin urls\n"
                        "[a]\nmlist.txt http://a/m\n\n"
                        "[b]\nmlist.txt http://b/m\n\n"
                        "[c]\nmlist.txt http://c/m\n\n"
                        "[d]\nmlist.txt http://d/m\n\n"
                        "[velkin]\nurls.txt http://v/u\n";

// Four written back in the given order of "a" to "d".
QByteArray fourIn(const QString& order) {
    QByteArray bytes;
    for (const QChar name : order)
        bytes += "[" + QByteArray(1, char(name.toLatin1())) + "]\nmlist.txt http://" +
                 char(name.toLatin1()) + "/m\n\n";
    return bytes + "[velkin]\nurls.txt http://v/u\n";
}

QStringList rows(const TReorderDlg& dialog) {
    QStringList names;
    for (int row = 0; row < dialog.SourceList->count(); ++row)
        names.append(dialog.SourceList->item(row)->text());
    return names;
}

int selectedRow(const TReorderDlg& dialog) {
    const QList<QListWidgetItem*> selected = dialog.SourceList->selectedItems();
    return selected.isEmpty() ? -1 : dialog.SourceList->row(selected.first());
}

// Clicks a row where a user would.
void clickRow(QListWidget* list, int row) {
    const QRect rect = list->visualItemRect(list->item(row));
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, rect.center());
}

// Plays a list of steps: "select N" clicks row N, "Up" and "Down" click the
// arrow buttons.
void play(TReorderDlg* dialog, const QStringList& steps) {
    for (const QString& step : steps) {
        if (step.startsWith(QLatin1String("select ")))
            clickRow(dialog->SourceList, step.mid(7).toInt());
        else if (step == QLatin1String("Up"))
            QTest::mouseClick(dialog->UpBtn, Qt::LeftButton);
        else if (step == QLatin1String("Down"))
            QTest::mouseClick(dialog->DownBtn, Qt::LeftButton);
        else
            qFatal("unknown step %s", qPrintable(step));
    }
}

} // namespace

class TestReorderDlg : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void listsSources_data();
    void listsSources();
    void choosingRowEnablesArrows();
    void arrows_data();
    void arrows();
    void closing_data();
    void closing();
    void cancelKeepsDialogOpen();
    void failedSaveKeepsDialogOpen();

private:
    QString urlsPath() const { return m_env->programFolder() + "urls.txt"; }
    QString iniPath() const { return m_env->programFolder() + "vkstats.ini"; }
    // Runs ReorderSources and acts on the dialog from inside its modal
    // loop. A guard closes it should the action not.
    bool runModal(QWidget* owner, const std::function<void(TReorderDlg*)>& act);

    std::unique_ptr<TempEnvironment> m_env;
    TestFrontEnd m_ui;
    bool m_guardFired = false;
};

void TestReorderDlg::init() {
    m_env.reset(); // the old one restores the environment it found
    m_env = std::make_unique<TempEnvironment>();
    QVERIFY(m_env->isValid());
    m_ui = TestFrontEnd();
    TempEnvironment::writeFile(urlsPath(), Four);
}

// Every dialog is gone by the end of a test: the entry function frees it.
void TestReorderDlg::cleanup() {
    QVERIFY(NoDialogLeft<TReorderDlg>());
}

bool TestReorderDlg::runModal(QWidget* owner, const std::function<void(TReorderDlg*)>& act) {
    return RunModal<TReorderDlg>([&] { return ReorderSources(owner, &m_ui, urlsPath()); }, act,
                                 &m_guardFired, 10000,
                                 [this](TReorderDlg* dialog) {
                                     m_ui.answers = {IdNo, IdNo};
                                     dialog->reject();
                                 });
}

void TestReorderDlg::listsSources_data() {
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QStringList>("listed");
    QTest::newRow("four and velkin") << Four << QStringList{"a", "b", "c", "d"};
    QTest::newRow("missing file") << MissingUrls << QStringList();
    // What is listed for odd files is the sourceorder table's work.
}

void TestReorderDlg::listsSources() {
    QFETCH(QByteArray, content);
    QFETCH(QStringList, listed);
    QVERIFY(PlaceUrls(urlsPath(), content));
    TReorderDlg dialog(nullptr, &m_ui, urlsPath());
    QCOMPARE(rows(dialog), listed);
    QCOMPARE(dialog.order(), listed);
}

void TestReorderDlg::choosingRowEnablesArrows() {
    {
        TReorderDlg dialog(nullptr, &m_ui, urlsPath());
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        clickRow(dialog.SourceList, 2);
        QCOMPARE(selectedRow(dialog), 2);
        QVERIFY(dialog.UpBtn->isEnabled());
        QVERIFY(dialog.DownBtn->isEnabled());
        QVERIFY(!dialog.changed());
    }
    {
        // The keyboard chooses a row as well as the mouse.
        TReorderDlg dialog(nullptr, &m_ui, urlsPath());
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        dialog.SourceList->setFocus();
        QTest::keyClick(dialog.SourceList, Qt::Key_End);
        QCOMPARE(selectedRow(dialog), 3);
        QVERIFY(dialog.UpBtn->isEnabled());
        QVERIFY(dialog.DownBtn->isEnabled());
    }
}

void TestReorderDlg::arrows_data() {
    QTest::addColumn<QStringList>("steps");
    QTest::addColumn<QStringList>("after");
    QTest::addColumn<int>("selected");
    QTest::addColumn<bool>("changed");
    QTest::addColumn<int>("beeps");

    const QStringList abcd{"a", "b", "c", "d"};
    QTest::newRow("Up in the middle")
        << QStringList{"select 2", "Up"} << QStringList{"a", "c", "b", "d"} << 1 << true << 0;
    QTest::newRow("Up at the top beeps, clears the selection, changes nothing")
        << QStringList{"select 0", "Up"} << abcd << -1 << false << 1;
    QTest::newRow("Down in the middle")
        << QStringList{"select 1", "Down"} << QStringList{"a", "c", "b", "d"} << 2 << true << 0;
    QTest::newRow("Down at the bottom beeps and counts as a change")
        << QStringList{"select 3", "Down"} << abcd << -1 << true << 1;
    QTest::newRow("bottom row to the top") << QStringList{"select 3", "Up", "Up", "Up"}
                                           << QStringList{"d", "a", "b", "c"} << 0 << true << 0;
    QTest::newRow("top row to the bottom") << QStringList{"select 0", "Down", "Down", "Down"}
                                           << QStringList{"b", "c", "d", "a"} << 3 << true << 0;
    QTest::newRow("up and down again")
        << QStringList{"select 1", "Up", "Down"} << abcd << 1 << true << 0;
    QTest::newRow("nothing selected: the buttons do nothing")
        << QStringList{"select 0", "Up", "Up", "Down", "Down"} << abcd << -1 << false << 1;
    QTest::newRow("through the top and on")
        << QStringList{"select 1", "Up", "Up", "select 2", "Down"}
        << QStringList{"b", "a", "d", "c"} << 3 << true << 1;
}

void TestReorderDlg::arrows() {
    QFETCH(QStringList, steps);
    QFETCH(QStringList, after);
    QFETCH(int, selected);
    QFETCH(bool, changed);
    QFETCH(int, beeps);
    TReorderDlg dialog(nullptr, &m_ui, urlsPath());
    dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
    play(&dialog, steps);
    QCOMPARE(rows(dialog), after);
    QCOMPARE(selectedRow(dialog), selected);
    QCOMPARE(dialog.changed(), changed);
    QCOMPARE(m_ui.beeps, beeps);
    QVERIFY(m_ui.messages.isEmpty());
    // Nothing is written while the dialog is open.
    QCOMPARE(TempEnvironment::readFile(urlsPath()), Four);
}

void TestReorderDlg::closing_data() {
    QTest::addColumn<QStringList>("steps");
    QTest::addColumn<QString>("closeBy");
    QTest::addColumn<int>("answer"); // 0: none queued
    QTest::addColumn<bool>("asked");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<QByteArray>("file");

    const QStringList moved{"select 2", "Up"}; // a c b d
    const QStringList upAtTop{"select 0", "Up"};
    const QStringList downAtBottom{"select 3", "Down"};

    QTest::newRow("unchanged, Ok: not rewritten")
        << QStringList() << "OkBtn" << 0 << false << true << Four;
    QTest::newRow("unchanged, Cancel")
        << QStringList() << "CancelBtn" << 0 << false << false << Four;
    QTest::newRow("Up at the top, Cancel: no question")
        << upAtTop << "CancelBtn" << 0 << false << false << Four;
    QTest::newRow("Up at the top, Ok: not rewritten")
        << upAtTop << "OkBtn" << 0 << false << true << Four;
    QTest::newRow("moved, Ok writes without asking")
        << moved << "OkBtn" << 0 << false << true << fourIn("acbd");
    QTest::newRow("moved, Cancel answered Yes writes")
        << moved << "CancelBtn" << int(IdYes) << true << false << fourIn("acbd");
    QTest::newRow("moved, Cancel answered No leaves the file")
        << moved << "CancelBtn" << int(IdNo) << true << false << Four;
    QTest::newRow("moved, close box answered No")
        << moved << "close" << int(IdNo) << true << false << Four;
    QTest::newRow("moved, Escape answered Yes")
        << moved << "escape" << int(IdYes) << true << false << fourIn("acbd");
    QTest::newRow("Down at the bottom, Cancel asks although nothing moved")
        << downAtBottom << "CancelBtn" << int(IdNo) << true << false << Four;
    // The order is the same, but the file is written in the program's form.
    QTest::newRow("Down at the bottom, Ok rewrites")
        << downAtBottom << "OkBtn" << 0 << false << true << fourIn("abcd");
}

void TestReorderDlg::closing() {
    QFETCH(QStringList, steps);
    QFETCH(QString, closeBy);
    QFETCH(int, answer);
    QFETCH(bool, asked);
    QFETCH(bool, ok);
    QFETCH(QByteArray, file);

    QWidget owner;
    QVERIFY(ShowOwner(owner));
    if (answer)
        m_ui.answers = {answer};
    bool closedByAction = false;
    const bool result = runModal(&owner, [&](TReorderDlg* dialog) {
        play(dialog, steps);
        CloseDialogBy(dialog, closeBy);
        closedByAction = !dialog->isVisible();
    });
    QVERIFY(!m_guardFired);
    QVERIFY(closedByAction);
    QCOMPARE(result, ok);
    CheckSaveQuestion(m_ui, asked, SaveQuestion);
    if (QTest::currentTestFailed())
        return;
    QCOMPARE(TempEnvironment::readFile(urlsPath()), file);
}

// Cancel answered Cancel: the dialog stays, with the order as it was, and can
// still be left either way.
void TestReorderDlg::cancelKeepsDialogOpen() {
    QWidget owner;
    QVERIFY(ShowOwner(owner));
    m_ui.answers = {IdCancel, IdCancel};
    bool openAfterCancel = false;
    bool openAfterClose = false;
    QStringList rowsAfter;
    const bool result = runModal(&owner, [&](TReorderDlg* dialog) {
        play(dialog, {"select 3", "Down"}); // nothing moves, yet it counts
        QTest::mouseClick(dialog->CancelBtn, Qt::LeftButton);
        openAfterCancel = dialog->isVisible();
        dialog->close();
        openAfterClose = dialog->isVisible();
        play(dialog, {"select 1", "Down"});
        rowsAfter = rows(*dialog);
        QTest::mouseClick(dialog->OkBtn, Qt::LeftButton);
    });
    QVERIFY(!m_guardFired);
    QVERIFY(openAfterCancel);
    QVERIFY(openAfterClose);
    QVERIFY(result);
    QCOMPARE(m_ui.messageTexts(), QStringList({SaveQuestion, SaveQuestion}));
    QCOMPARE(rowsAfter, QStringList({"a", "c", "b", "d"}));
    QCOMPARE(TempEnvironment::readFile(urlsPath()), fourIn("acbd"));
}

void TestReorderDlg::failedSaveKeepsDialogOpen() {
    QWidget owner;
    QVERIFY(ShowOwner(owner));
    bool openAfterOk = false;
    bool limited = true;
    m_ui.answers = {IdOk, IdNo}; // the failure, then the question at Cancel
    const bool result = runModal(&owner, [&](TReorderDlg* dialog) {
        play(dialog, {"select 1", "Up"});
        limited = ClickUnderFileSizeLimit(dialog->OkBtn);
        openAfterOk = dialog->isVisible();
        QTest::mouseClick(dialog->CancelBtn, Qt::LeftButton); // answered No
    });
    if (!limited)
        QSKIP("cannot lower the file-size limit here");
    QVERIFY(!m_guardFired);
    QVERIFY(openAfterOk);
    QVERIFY(!result);
    QCOMPARE(m_ui.messageTexts(), QStringList({SaveFailedMessage(urlsPath()), SaveQuestion}));
    QCOMPARE(m_ui.messages.first().type, Error);
    QCOMPARE(TempEnvironment::readFile(urlsPath()), Four);
}

QTEST_MAIN(TestReorderDlg)
#include "tst_reorderdlg.moc"
