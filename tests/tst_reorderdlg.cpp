#include "DialogTestSupport.h"
#include "Global2.h"
#include "Global2Widgets.h"
#include "RearrangeDlgs.h"
#include "TempEnvironment.h"
#include "TestData.h"
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
    void cases_data() { AddTableRows(QStringLiteral("reorder.txt")); }
    void cases();
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

void TestReorderDlg::cases() {
    QFETCH(QStringList, f);
    const QStringList steps = f[1] == u'-' ? QStringList() : f[1].split(u'|');
    if (f[0] == "arrows") {
        TReorderDlg dialog(nullptr, &m_ui, urlsPath());
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        play(&dialog, steps);
        QCOMPARE(rows(dialog).join(u'|'), f[2]);
        QCOMPARE(selectedRow(dialog), f[3].toInt());
        QCOMPARE(dialog.changed(), f[4] == u'1');
        QCOMPARE(m_ui.beeps, f[5].toInt());
        QVERIFY(m_ui.messages.isEmpty());
        // Nothing is written while the dialog is open.
        QCOMPARE(TempEnvironment::readFile(urlsPath()), Four);
        return;
    }
    QWidget owner;
    QVERIFY(ShowOwner(owner));
    if (f[3] != u'-')
        m_ui.answers = {f[3] == "yes" ? int(IdYes) : int(IdNo)};
    bool closedByAction = false;
    const bool result = runModal(&owner, [&](TReorderDlg* dialog) {
        play(dialog, steps);
        CloseDialogBy(dialog, f[2]);
        closedByAction = !dialog->isVisible();
    });
    QVERIFY(!m_guardFired);
    QVERIFY(closedByAction);
    QCOMPARE(result, f[5] == u'1');
    CheckSaveQuestion(m_ui, f[4] == u'1', SaveQuestion);
    if (QTest::currentTestFailed())
        return;
    QCOMPARE(TempEnvironment::readFile(urlsPath()), f[6] == "as it was" ? Four : fourIn(f[6]));
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
