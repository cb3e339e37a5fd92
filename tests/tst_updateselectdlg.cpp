#include "DialogTestSupport.h"
#include "Global2.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TestFrontEnd.h"
#include "UpdateSelectDlgs.h"
#include "UrlsCases.h"

#include <QApplication>
#include <QComboBox>
#include <QElapsedTimer>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

#include <functional>
#include <memory>

namespace {

const QByteArray Ordinary = "velkin urls\n"
                            "[alpha]\n"
                            "mlist.txt http://alpha.example/mlist.txt\n"
                            "pubring.mix http://alpha.example/pubring.mix\n"
                            "type2.list http://alpha.example/type2.list\n"
                            "rlist.txt http://alpha.example/rlist.txt\n"
                            "\n"
                            "[beta]\n"
                            "rlist.txt http://beta.example/rlist.txt\n"
                            "pubring.asc http://beta.example/pgp-all.asc\n"
                            "\n"
                            "[velkin]\n"
                            "advisory.txt http://velkin.example/advisory.txt\n"
                            "urls.txt http://velkin.example/urls.txt\n"
                            "nymserver.asc http://velkin.example/nym.asc\n";

QStringList entries(const QComboBox* box) {
    QStringList texts;
    for (int i = 0; i < box->count(); ++i)
        texts.append(box->itemText(i));
    return texts;
}

QStringList items(const QListWidget* list) {
    QStringList texts;
    for (int row = 0; row < list->count(); ++row)
        texts.append(list->item(row)->text());
    return texts;
}

bool allCheckableAndUnticked(const QListWidget* list) {
    for (int row = 0; row < list->count(); ++row) {
        const QListWidgetItem* item = list->item(row);
        if (!(item->flags() & Qt::ItemIsUserCheckable) || item->checkState() != Qt::Unchecked)
            return false;
    }
    return true;
}

// Ticks the named entries with the keyboard, as a user would: move to the
// row, then Space.
void tick(QListWidget* list, const QStringList& names) {
    list->setFocus();
    for (const QString& name : names) {
        const QList<QListWidgetItem*> found = list->findItems(name, Qt::MatchExactly);
        if (found.isEmpty())
            qFatal("no entry %s", qPrintable(name));
        list->setCurrentItem(found.first());
        QTest::keyClick(list, Qt::Key_Space);
    }
}

// Records every wait and what the watched list held when it began.
class WaitingFrontEnd : public TestFrontEnd {
public:
    void waitTicks(int ms) override {
        waits.append(ms);
        listSizes.append(watched ? watched->count() : -1);
        QElapsedTimer timer;
        timer.start();
        FrontEnd::waitTicks(ms);
        waited.append(timer.elapsed());
    }
    QList<int> waits;
    QList<int> listSizes;
    QList<qint64> waited;
    QListWidget* watched = nullptr;
};

} // namespace

class TestUpdateSelectDlg : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void listsAtOpen_data();
    void listsAtOpen();
    void sourceBoxChangeRelists();
    void quickBoxChangeRelists();
    void changeReadsFileAfresh();
    void selectUpdate_data() { AddTableRows(QStringLiteral("updateselect.txt")); }
    void selectUpdate();

private:
    QString urlsPath() const { return m_env->programFolder() + "urls.txt"; }
    // Runs SelectUpdate and acts on the dialog from inside its modal loop.
    // A guard closes it should the action not.
    bool runModal(QWidget* owner, const std::function<void(TUpdateSelectDlg*)>& act,
                  QString& source, QStringList& pages, QString& quickSource,
                  QStringList& quickPages);

    std::unique_ptr<TempEnvironment> m_env;
    WaitingFrontEnd m_ui;
    bool m_guardFired = false;
};

void TestUpdateSelectDlg::init() {
    m_env.reset(); // the old one restores the environment it found
    m_env = std::make_unique<TempEnvironment>();
    QVERIFY(m_env->isValid());
    m_ui = WaitingFrontEnd();
    TempEnvironment::writeFile(urlsPath(), Ordinary);
}

// Every dialog is gone by the end of a test: the entry function frees it.
void TestUpdateSelectDlg::cleanup() {
    QVERIFY(NoDialogLeft<TUpdateSelectDlg>());
}

bool TestUpdateSelectDlg::runModal(QWidget* owner,
                                   const std::function<void(TUpdateSelectDlg*)>& act,
                                   QString& source, QStringList& pages, QString& quickSource,
                                   QStringList& quickPages) {
    return RunModal<TUpdateSelectDlg>(
        [&] {
            return SelectUpdate(owner, &m_ui, urlsPath(), source, pages, quickSource, quickPages);
        },
        act, &m_guardFired);
}

void TestUpdateSelectDlg::listsAtOpen_data() {
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QStringList>("sources");
    QTest::addColumn<QStringList>("pages");
    QTest::addColumn<QStringList>("quick");

    QTest::newRow("ordinary") << Ordinary << QStringList{"alpha", "beta"}
                              << QStringList{"mlist.txt", "pubring.mix", "type2.list", "rlist.txt"}
                              << QStringList{"advisory.txt", "urls.txt", "nymserver.asc"};
    QTest::newRow("missing file") << MissingUrls << QStringList() << QStringList() << QStringList();
    // What the lists hold for odd files is the sourceorder table's work.
}

void TestUpdateSelectDlg::listsAtOpen() {
    QFETCH(QByteArray, content);
    QFETCH(QStringList, sources);
    QFETCH(QStringList, pages);
    QFETCH(QStringList, quick);
    QVERIFY(PlaceUrls(urlsPath(), content));
    TUpdateSelectDlg dialog(nullptr, &m_ui, urlsPath());
    QCOMPARE(entries(dialog.SourceBox), sources);
    QCOMPARE(dialog.SourceBox->currentIndex(), sources.isEmpty() ? -1 : 0);
    QCOMPARE(items(dialog.PageListBox), pages);
    QCOMPARE(dialog.QuickBox->currentText(), QStringLiteral("velkin"));
    QCOMPARE(items(dialog.QuickListBox), quick);
    QVERIFY(allCheckableAndUnticked(dialog.PageListBox));
    QVERIFY(allCheckableAndUnticked(dialog.QuickListBox));
    // Opening lists at once; only a change waits.
    QVERIFY(m_ui.waits.isEmpty());
}

void TestUpdateSelectDlg::sourceBoxChangeRelists() {
    TUpdateSelectDlg dialog(nullptr, &m_ui, urlsPath());
    dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
    m_ui.watched = dialog.PageListBox;
    tick(dialog.PageListBox, {"mlist.txt"});
    QCOMPARE(dialog.PageListBox->item(0)->checkState(), Qt::Checked);

    dialog.SourceBox->setFocus();
    QTest::keyClick(dialog.SourceBox, Qt::Key_Down);
    QCOMPARE(dialog.SourceBox->currentText(), QStringLiteral("beta"));
    // Cleared, then a 200 ms wait through the front end, then the new pages.
    QCOMPARE(m_ui.waits, QList<int>{200});
    QCOMPARE(m_ui.listSizes, QList<int>{0});
    QVERIFY2(m_ui.waited.first() >= 190, qPrintable(QString::number(m_ui.waited.first())));
    QCOMPARE(items(dialog.PageListBox), QStringList({"rlist.txt", "pubring.asc"}));
    QVERIFY(allCheckableAndUnticked(dialog.PageListBox));
    QCOMPARE(items(dialog.QuickListBox),
             QStringList({"advisory.txt", "urls.txt", "nymserver.asc"}));

    // Back again: the ticks of before are gone.
    QTest::keyClick(dialog.SourceBox, Qt::Key_Up);
    QCOMPARE(m_ui.waits, QList<int>({200, 200}));
    QCOMPARE(items(dialog.PageListBox),
             QStringList({"mlist.txt", "pubring.mix", "type2.list", "rlist.txt"}));
    QVERIFY(allCheckableAndUnticked(dialog.PageListBox));
}

void TestUpdateSelectDlg::quickBoxChangeRelists() {
    TUpdateSelectDlg dialog(nullptr, &m_ui, urlsPath());
    m_ui.watched = dialog.QuickListBox;
    tick(dialog.QuickListBox, {"urls.txt"});
    // The box has a single entry; a change can only come from the program.
    dialog.QuickBox->addItem(QStringLiteral("beta"));
    dialog.QuickBox->setCurrentIndex(1);
    QCOMPARE(m_ui.waits, QList<int>{200});
    QCOMPARE(m_ui.listSizes, QList<int>{0});
    QCOMPARE(items(dialog.QuickListBox), QStringList({"rlist.txt", "pubring.asc"}));
    QVERIFY(allCheckableAndUnticked(dialog.QuickListBox));
    QCOMPARE(items(dialog.PageListBox),
             QStringList({"mlist.txt", "pubring.mix", "type2.list", "rlist.txt"}));
}

// A change lists the section as the file holds it then.
void TestUpdateSelectDlg::changeReadsFileAfresh() {
    TUpdateSelectDlg dialog(nullptr, &m_ui, urlsPath());
    TempEnvironment::writeFile(urlsPath(), "[alpha]\nmlist.txt http://a/m\n\n"
                                           "[beta]\nmail2news.txt http://b/m\n");
    dialog.SourceBox->setCurrentIndex(1);
    QCOMPARE(items(dialog.PageListBox), QStringList{"mail2news.txt"});
}

void TestUpdateSelectDlg::selectUpdate() {
    QFETCH(QStringList, f);
    const auto list = [](const QString& field) {
        return field == u'-' ? QStringList() : field.split(u'|');
    };
    const auto text = [](const QString& field) {
        return field == u'-' ? QString() : field;
    };
    QWidget owner;
    QVERIFY(ShowOwner(owner));
    // Left over from an earlier run; cleared whatever the outcome.
    QString outSource = "old";
    QStringList outPages{"old.txt"};
    QString outQuickSource = "old";
    QStringList outQuickPages{"old.txt"};
    const bool result = runModal(
        &owner,
        [&](TUpdateSelectDlg* dialog) {
            dialog->SourceBox->setFocus();
            for (int i = 0; i < f[1].toInt(); ++i)
                QTest::keyClick(dialog->SourceBox, Qt::Key_Down);
            tick(dialog->PageListBox, list(f[2]));
            tick(dialog->QuickListBox, list(f[3]));
            if (f[4] == "enter") {
                dialog->PageListBox->clearFocus();
                dialog->OkBtn->setFocus();
                QTest::keyClick(dialog->OkBtn, Qt::Key_Return);
            } else {
                CloseDialogBy(dialog, f[4]);
            }
        },
        outSource, outPages, outQuickSource, outQuickPages);
    QVERIFY(!m_guardFired);
    QCOMPARE(result, f[5] == u'1');
    QCOMPARE(outSource, text(f[6]));
    QCOMPARE(outPages, list(f[7]));
    QCOMPARE(outQuickSource, text(f[8]));
    QCOMPARE(outQuickPages, list(f[9]));
}

QTEST_MAIN(TestUpdateSelectDlg)
#include "tst_updateselectdlg.moc"
