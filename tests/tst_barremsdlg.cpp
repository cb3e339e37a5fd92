#include "BarRemsDlgs2.h"
#include "DialogTestSupport.h"
#include "Global2.h"
#include "PagePaths.h"
#include "StatsWins4.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TestFrontEnd.h"
#include "UrlsCases.h"

#include <QAction>
#include <QApplication>
#include <QContextMenuEvent>
#include <QDialog>
#include <QDir>
#include <QFileInfo>
#include <QMenu>
#include <QPushButton>
#include <QTest>
#include <QTreeWidget>

#include <functional>
#include <memory>

namespace {

const QString SavedMessage =
    "Newly barred remailers will have their entries removed from the corresponding stats    \n"
    "page when the Stats Window closes. This will occur even if you have downloaded    \n"
    "pages and choose not to save them. Keys are not removed. Stats entries are    \n"
    "sufficient to bar remailers.";

// Written in CR LF, which the program never writes: a file that comes out
// with these bytes was not rewritten.
const QByteArray Barred = "dizum\r\nparanoia,last\r\ngone\r\n";
const QByteArray Missing = "<missing>";

QByteArray mixPage(const QStringList& names) {
    QByteArray bytes = "Last update: Wed 07 Nov 2001 12:00:00 GMT\n"
                       "mixmaster           history  latency  uptime\n"
                       "--------------------------------------------\n";
    for (const QString& name : names)
        bytes += name.leftJustified(15).toLatin1() + "************    25:00 100.00%\n";
    return bytes + "\nRemailer-Capabilities:\n";
}

QTreeWidgetItem* itemNamed(QTreeWidget* list, const QString& name) {
    const QList<QTreeWidgetItem*> found =
        list->findItems(name, Qt::MatchExactly, TBarRemsDlg2::NameColumn);
    return found.size() == 1 ? found.first() : nullptr;
}

// A right click where a user makes it: on the row of that name, or at a point
// of the list's viewport.
void rightClickAt(QTreeWidget* list, const QPoint& pos) {
    QContextMenuEvent event(QContextMenuEvent::Mouse, pos, list->viewport()->mapToGlobal(pos));
    QApplication::sendEvent(list->viewport(), &event);
}

QMenu* popupFor(TBarRemsDlg2* dialog, const QString& name) {
    QTreeWidgetItem* item = itemNamed(dialog->RemailerList, name);
    if (!item)
        return nullptr;
    dialog->RemailerList->scrollToItem(item);
    rightClickAt(dialog->RemailerList, dialog->RemailerList->visualItemRect(item).center());
    return dialog->PopupMenu && dialog->PopupMenu->isVisible() ? dialog->PopupMenu : nullptr;
}

QStringList captions(const QMenu* menu) {
    QStringList texts;
    for (const QAction* action : menu->actions())
        texts.append(action->text());
    return texts;
}

// Chooses the menu entry of that caption with the keyboard, as a user would
// after the right click. False when the menu does not offer it.
bool choose(QMenu* menu, const QString& caption) {
    for (QAction* action : menu->actions()) {
        if (action->text() == caption && action->isEnabled()) {
            menu->setActiveAction(action);
            QTest::keyClick(menu, Qt::Key_Return);
            return !menu->isVisible();
        }
    }
    menu->hide();
    return false;
}

// Plays steps "name|caption": a right click on the row, then the entry.
bool play(TBarRemsDlg2* dialog, const QStringList& steps) {
    for (const QString& step : steps) {
        QMenu* menu = popupFor(dialog, step.section(u'|', 0, 0));
        if (!menu || !choose(menu, step.section(u'|', 1))) {
            qWarning("step failed: %s", qPrintable(step));
            return false;
        }
    }
    return true;
}

QString rowText(const QTreeWidgetItem* item) {
    return item->text(0) + " | " + item->text(1) + " | " + item->text(2);
}

QStringList rowTexts(const QTreeWidget* list) {
    QStringList texts;
    for (int i = 0; i < list->topLevelItemCount(); ++i)
        texts.append(rowText(list->topLevelItem(i)));
    return texts;
}

} // namespace

class TestBarRemsDlg : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void rowsMenusAndChoices();
    void closing_data() { AddTableRows(QStringLiteral("barrems.txt")); }
    void closing();
    void messageCancelUndoes_data();
    void messageCancelUndoes();
    void failedSaveKeepsDialogOpen();
    void failedRestoreKeepsTheNewList();
    void unreadableListIsNotEdited();
    void mainWindowOpensIt();

private:
    QString barredPath() const { return m_env->programFolder() + "barred.txt"; }
    void placeBarred(const QByteArray& bytes);
    QByteArray barredBytes() const;
    // Runs ShowBarRemailers and acts on the dialog from inside its loop; a
    // guard cancels it should the action not close it.
    bool runModal(QWidget* owner, const std::function<void(TBarRemsDlg2*)>& act,
                  int timeoutMs = 10000);

    std::unique_ptr<TempEnvironment> m_env;
    TestFrontEnd m_ui;
    bool m_guardFired = false;
};

void TestBarRemsDlg::init() {
    m_env.reset(); // the old one restores the environment it found
    m_env = std::make_unique<TempEnvironment>();
    QVERIFY(m_env->isValid());
    m_ui = TestFrontEnd();
    // As a save leaves them: dizum, barred entirely, is only in the
    // unfiltered copy.
    TempEnvironment::writeFile(PagePath("mlist.txt"), mixPage({"anon", "paranoia", "lcs"}));
    TempEnvironment::writeFile(PagePath("mlist.org.txt"),
                               mixPage({"anon", "dizum", "paranoia", "lcs"}));
    placeBarred(Barred);
}

void TestBarRemsDlg::cleanup() {
    QVERIFY(NoDialogLeft<TBarRemsDlg2>());
}

void TestBarRemsDlg::placeBarred(const QByteArray& bytes) {
    if (bytes == Missing)
        QFile::remove(barredPath());
    else
        TempEnvironment::writeFile(barredPath(), bytes);
}

QByteArray TestBarRemsDlg::barredBytes() const {
    return QFileInfo::exists(barredPath()) ? TempEnvironment::readFile(barredPath()) : Missing;
}

bool TestBarRemsDlg::runModal(QWidget* owner, const std::function<void(TBarRemsDlg2*)>& act,
                              int timeoutMs) {
    return RunModal<TBarRemsDlg2>([&] { return ShowBarRemailers(owner, &m_ui, barredPath()); }, act,
                                  &m_guardFired, timeoutMs);
}

// One drive of the dialog: its rows and their look, the menu of each kind
// of row, none off the rows, and each choice changing its row.
void TestBarRemsDlg::rowsMenusAndChoices() {
    TempEnvironment::writeFile(m_env->programFolder() + "vkstats.ini",
                               "[stats]\nwindowcolor=255\ndialogfont=Courier New,13,,0\n");
    TBarRemsDlg2 dialog(nullptr, &m_ui, barredPath(), BarredEdit::fromStoredFiles(barredPath()));
    dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
    QTreeWidget* list = dialog.RemailerList;
    QCOMPARE(
        rowTexts(list),
        QStringList({"anon |  | listed", "dizum | barred | listed", "gone | barred | not listed",
                     "lcs | always barred | listed", "paranoia | barred from last | listed"}));
    // Bars from last are drawn apart from full bars and from free rows, in
    // the chosen font.
    QCOMPARE(list->palette().color(QPalette::Base), QColor(255, 0, 0));
    for (int i = 0; i < list->topLevelItemCount(); ++i) {
        const QTreeWidgetItem* item = list->topLevelItem(i);
        const bool last = item->text(1) == "barred from last";
        QCOMPARE(item->font(0).italic(), last);
        QCOMPARE(item->font(2).bold(), item->text(1).endsWith("barred") && !last);
        QCOMPARE(item->font(1).pointSize(), 13);
    }

    const QList<QStringList> menus = {{"anon", "&Bar anon", "&Bar anon from last"},
                                      {"dizum", "Un&bar dizum", "&Bar dizum from last"},
                                      {"paranoia", "Un&bar paranoia from last", "&Bar paranoia"},
                                      {"gone", "Un&bar gone", "&Bar gone from last"},
                                      {"lcs", "Un&bar lcs", "&Bar lcs from last"}};
    for (const QStringList& menu : menus) {
        QMenu* popup = popupFor(&dialog, menu[0]);
        QVERIFY(popup);
        QCOMPARE(captions(popup), menu.mid(1));
        // lcs is shown, but always barred.
        for (const QAction* action : popup->actions())
            QCOMPARE(action->isEnabled(), menu[0] != "lcs");
        QCOMPARE(list->currentItem(), itemNamed(list, menu[0]));
        popup->hide();
    }
    const QRect lastRow = list->visualItemRect(list->topLevelItem(list->topLevelItemCount() - 1));
    const QPoint below(lastRow.center().x(), lastRow.bottom() + 20);
    QVERIFY(list->viewport()->rect().contains(below) && !list->itemAt(below));
    rightClickAt(list, below);
    QVERIFY(!dialog.PopupMenu->isVisible());
    QVERIFY(!dialog.edit().changed());

    // Each step: the row after it, and the menu it offers then.
    const QList<QStringList> steps = {
        {"anon|&Bar anon", "anon | barred | listed", "Un&bar anon", "&Bar anon from last"},
        {"anon|&Bar anon from last", "anon | barred from last | listed", "Un&bar anon from last",
         "&Bar anon"},
        {"anon|Un&bar anon from last", "anon |  | listed", "&Bar anon", "&Bar anon from last"},
        {"dizum|Un&bar dizum", "dizum |  | listed", "&Bar dizum", "&Bar dizum from last"},
        {"gone|&Bar gone from last", "gone | barred from last | not listed",
         "Un&bar gone from last", "&Bar gone"},
        {"paranoia|&Bar paranoia", "paranoia | barred | listed", "Un&bar paranoia",
         "&Bar paranoia from last"}};
    for (const QStringList& step : steps) {
        QVERIFY(play(&dialog, {step[0]}));
        const QString name = step[0].section(u'|', 0, 0);
        QCOMPARE(rowText(itemNamed(list, name)), step[1]);
        QCOMPARE(itemNamed(list, name)->font(0).italic(), step[1].contains("from last"));
        QMenu* popup = popupFor(&dialog, name);
        QVERIFY(popup);
        QCOMPARE(captions(popup), step.mid(2));
        popup->hide();
    }
    QVERIFY(dialog.edit().changed());
    // Nothing is written while the dialog is open.
    QCOMPARE(barredBytes(), Barred);
    QVERIFY(m_ui.messages.isEmpty());
}

void TestBarRemsDlg::closing() {
    QFETCH(QStringList, f);
    const QByteArray before = f[1] == "barred" ? Barred : Missing;
    const QStringList steps = f[2] == u'-' ? QStringList() : f[2].split(" ; ");
    const QString& closeBy = f[3];
    const bool result = f[4] == u'1';
    const bool told = f[5] == u'1';
    const QByteArray after = f[6] == "as it was" ? before : f[6].toLatin1();
    placeBarred(before);
    QWidget owner;
    QVERIFY(ShowOwner(owner));
    m_ui.answers = {IdOk};
    bool played = false;
    bool closedByAction = false;
    const bool returned = runModal(&owner, [&](TBarRemsDlg2* dialog) {
        played = play(dialog, steps);
        CloseDialogBy(dialog, closeBy);
        closedByAction = !dialog->isVisible();
    });
    QVERIFY(!m_guardFired);
    QVERIFY(played);
    QVERIFY(closedByAction);
    QCOMPARE(returned, result);
    if (told) {
        QCOMPARE(m_ui.messageTexts(), QStringList{SavedMessage});
        QCOMPARE(m_ui.messages.first().type, Information);
        QCOMPARE(m_ui.messages.first().buttons, int(MbOkCancel));
        QCOMPARE(m_ui.messages.first().style, MsgStyle::SystemBox);
    } else {
        QVERIFY(m_ui.messages.isEmpty());
    }
    QCOMPARE(barredBytes(), after);
}

// Cancel on the message backs out: barred.txt is as it was, byte for byte,
// and the dialog stays with the changes, so they can still be kept with OK
// or dropped with Cancel.
void TestBarRemsDlg::messageCancelUndoes_data() {
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QString>("thenCloseBy");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QByteArray>("after");
    QTest::newRow("then OK, answered OK")
        << Barred << "OkBtn" << true << QByteArray("dizum\nparanoia,last\ngone\nanon\n");
    QTest::newRow("then Cancel") << Barred << "CancelBtn" << false << Barred;
    QTest::newRow("no barred.txt before, then Cancel")
        << Missing << "CancelBtn" << false << Missing;
}

void TestBarRemsDlg::messageCancelUndoes() {
    QFETCH(QByteArray, before);
    QFETCH(QString, thenCloseBy);
    QFETCH(bool, result);
    QFETCH(QByteArray, after);
    placeBarred(before);
    QWidget owner;
    QVERIFY(ShowOwner(owner));
    m_ui.answers = {IdCancel, IdOk};
    bool played = false;
    bool openAfterCancel = false;
    QByteArray fileAfterCancel;
    QString rowAfterCancel;
    const bool returned = runModal(&owner, [&](TBarRemsDlg2* dialog) {
        played = play(dialog, {"anon|&Bar anon"});
        QTest::mouseClick(dialog->OkBtn, Qt::LeftButton);
        openAfterCancel = dialog->isVisible();
        fileAfterCancel = barredBytes();
        rowAfterCancel = rowText(itemNamed(dialog->RemailerList, "anon"));
        CloseDialogBy(dialog, thenCloseBy);
    });
    QVERIFY(!m_guardFired);
    QVERIFY(played);
    QVERIFY(openAfterCancel);
    QCOMPARE(fileAfterCancel, before);
    QCOMPARE(rowAfterCancel, QStringLiteral("anon | barred | listed"));
    QCOMPARE(returned, result);
    QStringList told{SavedMessage};
    if (thenCloseBy == "OkBtn")
        told.append(SavedMessage);
    QCOMPARE(m_ui.messageTexts(), told);
    QCOMPARE(barredBytes(), after);
}

void TestBarRemsDlg::failedSaveKeepsDialogOpen() {
    QWidget owner;
    QVERIFY(ShowOwner(owner));
    bool limited = true;
    bool played = false;
    bool openAfterOk = false;
    const bool returned = runModal(&owner, [&](TBarRemsDlg2* dialog) {
        played = play(dialog, {"anon|&Bar anon"});
        limited = ClickUnderFileSizeLimit(dialog->OkBtn); // the new list is past 16 bytes
        openAfterOk = dialog->isVisible();
        QTest::mouseClick(dialog->CancelBtn, Qt::LeftButton);
    });
    if (!limited)
        QSKIP("cannot lower the file-size limit here");
    QVERIFY(!m_guardFired);
    QVERIFY(played);
    QVERIFY(openAfterOk);
    QVERIFY(!returned);
    QCOMPARE(m_ui.messageTexts(), QStringList{SaveFailedMessage(barredPath())});
    QCOMPARE(m_ui.messages.first().type, Error);
    QCOMPARE(barredBytes(), Barred);
}

// The new list is short enough to be written under the limit, the old one is
// not: after Cancel on the message it cannot be put back, and the user is
// told that the new one stays.
void TestBarRemsDlg::failedRestoreKeepsTheNewList() {
    QWidget owner;
    QVERIFY(ShowOwner(owner));
    m_ui.answers = {IdCancel, IdOk};
    bool limited = true;
    bool played = false;
    const bool returned = runModal(&owner, [&](TBarRemsDlg2* dialog) {
        played = play(dialog, {"dizum|Un&bar dizum", "paranoia|Un&bar paranoia from last"});
        limited = ClickUnderFileSizeLimit(dialog->OkBtn);
        if (dialog->isVisible())
            QTest::mouseClick(dialog->CancelBtn, Qt::LeftButton);
    });
    if (!limited)
        QSKIP("cannot lower the file-size limit here");
    QVERIFY(!m_guardFired);
    QVERIFY(played);
    QVERIFY(returned);
    QCOMPARE(
        m_ui.messageTexts(),
        QStringList({SavedMessage, "I was unable to restore " + barredPath() +
                                       ". The new list of barred remailers stays in effect."}));
    QCOMPARE(m_ui.messages.at(1).type, Error);
    QCOMPARE(barredBytes(), QByteArray("gone\n"));
}

void TestBarRemsDlg::unreadableListIsNotEdited() {
    QVERIFY(QFile::remove(barredPath()));
    QVERIFY(QDir().mkpath(barredPath()));
    QWidget owner;
    QVERIFY(ShowOwner(owner));
    bool shown = false;
    const bool returned = runModal(
        &owner,
        [&](TBarRemsDlg2* dialog) {
            shown = true;
            dialog->reject();
        },
        2000);
    QVERIFY(!shown);
    QVERIFY(m_guardFired); // the action never had a dialog
    QVERIFY(!returned);
    QCOMPARE(m_ui.messageTexts(),
             QStringList{"I was unable to read " + barredPath() +
                         ". The barred remailers cannot be changed while it is unreadable."});
    QCOMPARE(m_ui.messages.first().type, Error);
    QVERIFY(QFileInfo(barredPath()).isDir());
}

// Tools > Barred Remailers opens the dialog over the main window on the
// program folder's barred.txt.
void TestBarRemsDlg::mainWindowOpensIt() {
    TVKStatsWin4 window;
    QVERIFY(ShowOwner(window));
    auto* item = window.findChild<QAction*>("ToolsBarRemailerItem");
    QVERIFY(item);
    QVERIFY(item->isEnabled());
    QCOMPARE(item->text(), QStringLiteral("&Barred Remailers"));
    bool overWindow = false;
    QStringList rows;
    bool guardFired = false;
    // Whatever dialog the item opens, the guard closes it, so that a wrong
    // one fails the test instead of hanging it.
    RunModalWidget(
        [&] {
            item->trigger();
            return true;
        },
        [&](QWidget* widget) {
            auto* dialog = qobject_cast<TBarRemsDlg2*>(widget);
            if (!dialog)
                return false;
            overWindow = dialog->parentWidget() == &window && dialog->isModal();
            rows = rowTexts(dialog->RemailerList);
            dialog->reject();
            return true;
        },
        [](QWidget* widget) {
            if (auto* dialog = qobject_cast<QDialog*>(widget))
                dialog->reject();
        },
        5000, &guardFired);
    QVERIFY(!guardFired);
    QVERIFY(overWindow);
    QVERIFY(rows.contains("gone | barred | not listed"));
    QVERIFY(rows.contains("dizum | barred | listed"));
    QCOMPARE(barredBytes(), Barred);
}

QTEST_MAIN(TestBarRemsDlg)
#include "tst_barremsdlg.moc"
