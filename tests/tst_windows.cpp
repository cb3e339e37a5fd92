// The windows and dialogs, each driven with real files for what only a widget
// test shows; the many small cases are rows of tables/windows.txt.
#include "AboutDlgs2.h"
#include "BarRemsDlgs2.h"
#include "Global2.h"
#include "IniFile.h"
#include "NewMixKeyWins.h"
#include "PagePaths.h"
#include "PrntSelPagesDlgs.h"
#include "RearrangeDlgs.h"
#include "StatsOptionsDlgs.h"
#include "StatsWins4.h"
#include "SuiteDatabase.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TestFrontEnd.h"
#include "TestPinger.h"
#include "URLDlgs.h"
#include "UpdateSelectDlgs.h"

#include <QPrinter>
#include <QtTest>
#include <QtWidgets>

#include <functional>
#include <memory>

namespace {

// In CR LF, which the program never writes: these bytes were not rewritten.
const QByteArray Barred = "dizum\r\nparanoia,last\r\ngone\r\n";

// An input or expected result of tests/data/windows (its README.md says which).
QByteArray data(const char* name) {
    return TempEnvironment::readFile(QStringLiteral(VK_TESTDATA "/windows/") + name);
}

QStringList listOf(const QString& field) {
    return field == u'-' ? QStringList() : field.split(u'|');
}

QString bits(std::initializer_list<bool> flags) {
    QString text;
    for (const bool flag : flags)
        text += flag ? u'1' : u'0';
    return text;
}

QStringList rowsOf(const QListWidget* list, Qt::CheckState only = Qt::PartiallyChecked) {
    QStringList rows;
    for (int i = 0; i < list->count(); ++i) {
        if (only == Qt::PartiallyChecked || list->item(i)->checkState() == only)
            rows << list->item(i)->text();
    }
    return rows;
}

// Each row's cells joined by '|'.
QStringList rowsOf(const QTreeWidget* tree) {
    QStringList rows;
    for (int i = 0; i < tree->topLevelItemCount(); ++i) {
        QStringList cells;
        for (int column = 0; column < tree->columnCount(); ++column)
            cells << tree->topLevelItem(i)->text(column);
        rows << cells.join(u'|');
    }
    return rows;
}

// "close" by the close box, "escape" by the key, "enter" by Return on OK,
// otherwise a click on the named button.
void closeBy(QDialog* dialog, const QString& how) {
    if (how == QLatin1String("enter"))
        QTest::keyClick(dialog->findChild<QPushButton*>("OkBtn"), Qt::Key_Return);
    else if (how == QLatin1String("close"))
        dialog->close();
    else if (how == QLatin1String("escape"))
        QTest::keyClick(dialog, Qt::Key_Escape);
    else
        QTest::mouseClick(dialog->findChild<QPushButton*>(how), Qt::LeftButton);
}

// Answers the next real message box with button and records its text.
void answerNextBox(QMessageBox::StandardButton button, QString* text) {
    QTimer::singleShot(50, [button, text] {
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            *text = box->text();
            box->button(button)->click();
        }
    });
}

// Steps "name|caption": a right click on the row, then the menu entry chosen
// with the keyboard. Returns the captions of the last menu shown.
QStringList playBars(TBarRemsDlg2* dialog, const QStringList& steps) {
    QStringList captions;
    for (const QString& step : steps) {
        QTreeWidget* list = dialog->RemailerList;
        const auto found = list->findItems(step.section(u'|', 0, 0), Qt::MatchExactly);
        if (found.size() != 1)
            return {"no row " + step};
        list->scrollToItem(found.first());
        const QPoint at = list->visualItemRect(found.first()).center();
        QContextMenuEvent event(QContextMenuEvent::Mouse, at, list->viewport()->mapToGlobal(at));
        QApplication::sendEvent(list->viewport(), &event);
        QMenu* menu = dialog->PopupMenu;
        if (!menu || !menu->isVisible())
            return {"no menu " + step};
        captions.clear();
        for (QAction* action : menu->actions()) {
            captions << action->text() + (action->isEnabled() ? "" : " (off)");
            if (action->text() == step.section(u'|', 1) && action->isEnabled()) {
                menu->setActiveAction(action);
                QTest::keyClick(menu, Qt::Key_Return);
            }
        }
        menu->hide();
    }
    return captions;
}

// Ticks entries with the keyboard: to the row, then Space.
void tick(QListWidget* list, const QStringList& names) {
    list->setFocus();
    for (const QString& name : names) {
        list->setCurrentItem(list->findItems(name, Qt::MatchExactly).value(0));
        QTest::keyClick(list, Qt::Key_Space);
    }
}

} // namespace

class TestWindows : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void cases_data() { AddTableRows(QStringLiteral("windows.txt")); }
    void cases();
    void statsWindowRun();
    void printPages();
    void statsOptions();

private:
    void urls(const QStringList& f);
    void reorder(const QStringList& f);
    void barred(const QStringList& f);
    void select(const QStringList& f);
    void start(const QStringList& f);
    void keyrow(const QStringList& f);
    void notice(const QStringList& f);

    // Runs open, which shows a modal D, and act on it inside its loop; after 20 s a
    // guard answers No and closes every dialog. m_acted: act had the dialog, and
    // it was closed before the guard.
    template <typename D>
    bool modal(const std::function<bool()>& open, const std::function<void(D*)>& act);
    QString path(const QString& name) const { return m_env->programFolder() + name; }
    QByteArray file(const QString& name) const;
    void startWindow(const QStringList& arguments, const QByteArray& urls);

    std::unique_ptr<TempEnvironment> m_env;
    std::unique_ptr<TestPinger> m_pinger;
    std::unique_ptr<TVKStatsWin4> m_window;
    QWidget m_owner; // of the modal dialogs
    TestFrontEnd m_ui;
    bool m_acted = false;
};

void TestWindows::init() {
    m_env.reset(); // the old one restores the environment it found
    m_env = std::make_unique<TempEnvironment>();
    QVERIFY(m_env->isValid());
    m_pinger = std::make_unique<TestPinger>();
    QVERIFY(m_pinger->listen());
    m_ui = TestFrontEnd();
    m_owner.setGeometry(20, 30, 740, 520);
    m_owner.show();
}

// Every modal dialog is gone: the entry functions free theirs.
void TestWindows::cleanup() {
    m_window.reset();
    CloseSuiteDataFile();
    for (QWidget* widget : QApplication::topLevelWidgets())
        QVERIFY2(!qobject_cast<QDialog*>(widget) || !widget->isVisible(),
                 widget->metaObject()->className());
}

template <typename D>
bool TestWindows::modal(const std::function<bool()>& open, const std::function<void(D*)>& act) {
    m_acted = false;
    QObject context; // drops the timers should open return at once
    QTimer::singleShot(0, &context, [&] {
        if (auto* dialog = qobject_cast<D*>(QApplication::activeModalWidget())) {
            m_acted = true;
            act(dialog);
        }
    });
    QTimer::singleShot(20000, &context, [this] {
        m_acted = false;
        for (int i = 0; i < 3; ++i) {
            m_ui.answers = {IdNo, IdNo, IdNo};
            for (QWidget* widget : QApplication::topLevelWidgets()) {
                if (auto* dialog = qobject_cast<QDialog*>(widget); dialog && dialog->isVisible())
                    dialog->reject();
            }
        }
    });
    return open();
}

QByteArray TestWindows::file(const QString& name) const {
    return QFileInfo::exists(path(name)) ? TempEnvironment::readFile(path(name)) : "<missing>";
}

void TestWindows::startWindow(const QStringList& arguments, const QByteArray& urls) {
    QCOMPARE(CreateDataFile(m_env->programFolder()), QString());
    TempEnvironment::writeFile(path("urls.txt"), urls);
    m_window = std::make_unique<TVKStatsWin4>();
    QCOMPARE(m_window->start(arguments), StartResult::Ready);
    if (m_window->showAtStart())
        m_window->show();
}

void TestWindows::cases() {
    QFETCH(QStringList, f);
    static const QHash<QString, void (TestWindows::*)(const QStringList&)> kinds = {
        {"urls", &TestWindows::urls},     {"reorder", &TestWindows::reorder},
        {"barred", &TestWindows::barred}, {"select", &TestWindows::select},
        {"start", &TestWindows::start},   {"keyrow", &TestWindows::keyrow},
        {"notice", &TestWindows::notice}};
    QVERIFY2(kinds.contains(f[0]), qPrintable(f[0]));
    (this->*kinds.value(f[0]))(f);
}

// The URL manager on urls.txt: the steps taken in turn, the questions
// answered as the row says.
void TestWindows::urls(const QStringList& f) {
    const auto fill = [this](QString text) {
        return text.replace("@PINGER@", m_pinger->url(""))
            .replace("@DATA@", VK_TESTDATA "/windows");
    };
    const QByteArray before = fill(f[1]).toLatin1();
    TempEnvironment::writeFile(path("urls.txt"), before);
    const QDateTime stamp = QFileInfo(path("urls.txt")).lastModified();
    m_pinger->serve("/allpingers.txt", data("allpingers.txt"));
    if (f[2] != u'-')
        m_pinger->serve("/urls.txt", f[2].toLatin1());
    for (const QString& answer : listOf(f[4]))
        m_ui.answers << (answer == "yes" ? IdYes : IdNo);
    QStringList seen;
    const bool result = modal<TURLDlg>(
        [&] { return ShowURLManager(nullptr, &m_ui, path("urls.txt"), "<none>", {}); },
        [&](TURLDlg* dialog) {
            for (const QString& step : f[3].split(" ; ")) {
                if (step == "type") { // a new last line
                    dialog->Editor->moveCursor(QTextCursor::End);
                    QTest::keyClick(dialog->Editor, Qt::Key_Return);
                    QTest::keyClicks(dialog->Editor, "[c]");
                } else if (step.startsWith("input ")) { // what the next question for a name gets
                    QTimer::singleShot(0, dialog, [answer = fill(step.mid(6))] {
                        auto* ask = qobject_cast<QInputDialog*>(QApplication::activeModalWidget());
                        if (ask) {
                            ask->setTextValue(answer);
                            ask->accept();
                        }
                    });
                } else if (step == "see") {
                    seen << dialog->Editor->toPlainText() + u' ' +
                                bits({dialog->isModified(), dialog->isReviewing(),
                                      dialog->isVisible()});
                } else {
                    closeBy(dialog, step);
                }
            }
        });
    QVERIFY(m_acted);
    QCOMPARE(result, f[5] == u'1');
    QCOMPARE(m_ui.messageTexts(), listOf(fill(f[6])));
    for (const TestFrontEnd::Message& m : m_ui.messages) {
        if (m.text.startsWith("Your URLs")) // centred Yes/No/Cancel
            QVERIFY(m.type == Confirm && m.buttons == MbYesNoCancel &&
                    m.style == MsgStyle::CentredDialog);
        else if (!m.text.startsWith("Shall I")) // a list for review or of no use, or a failure
            QCOMPARE(m.type, m.text.startsWith("I was unable") ? Error : Warning);
    }
    QCOMPARE(file("urls.txt"), f[7] == "as it was" ? before : fill(f[7]).toLatin1());
    if (f[7] == "as it was") // not even rewritten with the same bytes
        QCOMPARE(QFileInfo(path("urls.txt")).lastModified(), stamp);
    QCOMPARE(seen << QString::number(m_pinger->requests().size()), fill(f[8]).split(" / "));
}

// The reorder dialog on the sources a, b, c, d: the steps, then closed,
// maybe asked to save.
void TestWindows::reorder(const QStringList& f) {
    const QByteArray before = data("four-sources.txt");
    TempEnvironment::writeFile(path("urls.txt"), before);
    if (f[3] != u'-')
        m_ui.answers = {f[3] == "yes" ? int(IdYes) : int(IdNo)};
    QString state; // after the steps, the rows and order, the row selected, changed, beeps
    const bool result = modal<TReorderDlg>(
        [&] { return ReorderSources(&m_owner, &m_ui, path("urls.txt")); },
        [&](TReorderDlg* dialog) {
            QListWidget* list = dialog->SourceList;
            for (const QString& step : listOf(f[1])) { // "select N" clicks row N, or an arrow
                if (step.startsWith(QLatin1String("select ")))
                    QTest::mouseClick(
                        list->viewport(), Qt::LeftButton, {},
                        list->visualItemRect(list->item(step.mid(7).toInt())).center());
                else
                    QTest::mouseClick(step == "Up" ? dialog->UpBtn : dialog->DownBtn,
                                      Qt::LeftButton);
            }
            const auto selected = list->selectedItems();
            state = QStringList({rowsOf(list).join(u'|'), dialog->order().join(u'|'),
                                 QString::number(selected.isEmpty() ? -1 : list->row(selected[0])),
                                 QString::number(dialog->changed()), QString::number(m_ui.beeps)})
                        .join(u' ');
            closeBy(dialog, f[2]);
        });
    QVERIFY(m_acted);
    QCOMPARE(state, QStringList({f[7], f[7], f[8], f[9], f[10]}).join(u' '));
    QCOMPARE(result, f[5] == u'1');
    QCOMPARE(m_ui.messageTexts(), listOf(f[4])); // the save question alone, centred Yes/No/Cancel
    if (f[4] != u'-')
        QVERIFY(m_ui.messages[0].type == Confirm && m_ui.messages[0].buttons == MbYesNoCancel &&
                m_ui.messages[0].style == MsgStyle::CentredDialog);
    QByteArray after; // the sources in the order written
    for (const QChar name : f[6])
        after += "[" + QByteArray(1, name.toLatin1()) + "]\nmlist.txt http://" + name.toLatin1() +
                 "/m\n\n";
    QCOMPARE(file("urls.txt"),
             f[6] == "as it was" ? before : after + "[velkin]\nurls.txt http://v/u\n");
}

// The closes are tried in turn, the saved-message answered as the row says;
// the rows and the last menu are those after the steps.
void TestWindows::barred(const QStringList& f) {
    const QByteArray before = f[1] == "barred" ? Barred : f[1].toLatin1();
    // The mlist pages as a save leaves them: dizum, barred entirely, only in
    // the unfiltered copy.
    for (const char* name : {"mlist.txt", "mlist.org.txt"})
        TempEnvironment::writeFile(PagePath(name), data(name));
    if (before == "<folder>")
        QDir().mkpath(path("barred.txt"));
    else if (before != "<missing>")
        TempEnvironment::writeFile(path("barred.txt"), before);
    for (const QString& answer : listOf(f[4]))
        m_ui.answers << (answer == "cancel" ? IdCancel : IdOk);
    QStringList menu, rows;
    const bool result = modal<TBarRemsDlg2>(
        [&] { return ShowBarRemailers(&m_owner, &m_ui, path("barred.txt")); },
        [&](TBarRemsDlg2* dialog) {
            menu = playBars(dialog, f[2] == u'-' ? QStringList() : f[2].split(" ; "));
            rows = rowsOf(dialog->RemailerList);
            for (const QString& how : f[3].split(" ; "))
                closeBy(dialog, how);
        });
    QCOMPARE(m_acted, before != "<folder>"); // a list that cannot be read is not edited
    QVERIFY2(!menu.value(0).startsWith("no "), qPrintable(menu.value(0)));
    QCOMPARE(result, f[5] == u'1');
    QCOMPARE(m_ui.messageTexts(), listOf(f[6]).replaceInStrings("@PROGRAM@/", path("")));
    if (f[6].startsWith("Newly")) // an OK/Cancel system box
        QVERIFY(m_ui.messages[0].buttons == MbOkCancel &&
                m_ui.messages[0].style == MsgStyle::SystemBox);
    QCOMPARE(file("barred.txt"), f[7] == "as it was" ? before : f[7].toLatin1());
    if (f.size() > 8)
        QCOMPARE(rows.join(u';') + " / " + menu.join(u';'), f[8] + " / " + f[9]);
}

void TestWindows::select(const QStringList& f) {
    TempEnvironment::writeFile(path("urls.txt"), data("two-sources.txt"));
    // Left from an earlier run; cleared whatever the outcome.
    QString source = "old", quickSource = "old";
    QStringList pages{"old.txt"}, quickPages{"old.txt"};
    const bool result = modal<TUpdateSelectDlg>(
        [&] {
            return SelectUpdate(&m_owner, &m_ui, path("urls.txt"), source, pages, quickSource,
                                quickPages);
        },
        [&](TUpdateSelectDlg* dialog) {
            dialog->SourceBox->setFocus();
            for (int i = 0; i < f[1].toInt(); ++i)
                QTest::keyClick(dialog->SourceBox, Qt::Key_Down);
            tick(dialog->PageListBox, listOf(f[2]));
            tick(dialog->QuickListBox, listOf(f[3]));
            closeBy(dialog, f[4]);
        });
    QVERIFY(m_acted);
    QCOMPARE(result, f[5] == u'1');
    QCOMPARE(QStringList({source, pages.join(u'|'), quickSource, quickPages.join(u'|')}),
             QStringList({f[6], f[7], f[8], f[9]}).replaceInStrings(QRegularExpression("^-$"), ""));
}

void TestWindows::start(const QStringList& f) {
    startWindow(listOf(f[1]), "velkin urls\n[first]\nmlist.txt http://127.0.0.1:9/m\n\n[velkin]\n");
    QCOMPARE(bits({m_window->showAtStart(), m_window->Timer3.isActive()}), f[2] + f[3]);
    m_window->Timer3.stop();
}

void TestWindows::keyrow(const QStringList& f) {
    TNewMixKeysWin window(nullptr, {f[1]});
    const QTreeWidgetItem* row = window.KeyList->topLevelItem(0);
    QCOMPARE(rowsOf(window.KeyList)
                 << row->data(0, Qt::UserRole).toString() << QString::number(row->checkState(0)),
             QStringList({f[2], f[3], "0"})); // unticked
}

void TestWindows::notice(const QStringList& f) {
    QCOMPARE(CompleteNotice(f[1], QDate(2026, 11, 21)), f[2]);
}

// The main window: choosing a source (asked, answered Cancel), Run fetching
// with the tool bar following, Run again asking about unsaved pages, Save & Exit.
void TestWindows::statsWindowRun() {
    QByteArray urls = "velkin urls\n[first]\n";
    for (const QString& page : StatsPages) {
        m_pinger->serve('/' + page, RealPage("2001-11-07", page));
        urls += page.toLatin1() + ' ' + m_pinger->url('/' + page).toLatin1() + '\n';
    }
    urls += "\n[second]\nmlist.txt http://127.0.0.1:9/mlist.txt\n\n[velkin]\n";
    startWindow({}, urls);
    TVKStatsWin4& w = *m_window;
    QVERIFY(!w.SaveBtn->isEnabled() && w.RunBtn->isEnabled());
    w.FileMenuClick();
    QString asked;
    answerNextBox(QMessageBox::Cancel, &asked);
    w.SourceMenu->actions().at(1)->trigger();
    QCOMPARE(asked, "Update remailer pages now?     ");
    QCOMPARE(w.controller().currentSourceName() + QString::number(w.SourceBox->currentIndex()),
             "second1");
    w.FileMenuClick(); // the menu ticks the source shown
    QVERIFY(w.SourceMenu->actions().at(1)->isChecked() && !w.SourceMenu->actions()[0]->isChecked());
    answerNextBox(QMessageBox::Cancel, &asked);
    w.SourceMenu->actions().at(0)->trigger();
    QVERIFY(m_pinger->requests().isEmpty());

    w.controller().setLastSource("first");         // not a new source: no question about keys
    for (QAction* action : w.PagesMenu->actions()) // rlist unticked: three pages to fetch
        if (action->text() == "&rlist.txt")
            action->trigger();
    int busyPages = 0;
    connect(&w.controller().engine(), &UpdateEngine::pageAccepted, this, [&] {
        busyPages += w.Panel3->isVisible() && w.CancelBtn->isEnabled() && !w.RunBtn->isEnabled() &&
                     w.ProgressBar->isVisible() && w.ProgressBar->value() == 100;
    });
    QTest::mouseClick(w.RunBtn, Qt::LeftButton, {}, QPoint(8, 8));
    QCOMPARE(busyPages, 3);
    QStringList tabs;
    for (int i = 0; i < w.TabSet->count(); ++i)
        tabs << w.TabSet->tabText(i);
    QCOMPARE(tabs.join(u','), "status,mlist.txt (stale),pubring.mix,pubring.asc");
    QCOMPARE(bits({w.SaveBtn->isEnabled(), w.PrintBtn->isEnabled(), w.CancelBtn->isEnabled(),
                   w.Panel3->isVisible()}),
             "1100");
    answerNextBox(QMessageBox::Cancel, &asked);
    w.RunBtnClick();
    QCOMPARE(asked, "Your remailer pages are not saved. Save them now?     ");
    QCOMPARE(m_pinger->requests().size(), 3);

    w.OkBtnClick();
    QVERIFY(!w.isVisible());
    QCOMPARE(QDir(m_env->mixFolder()).entryList(QDir::Files),
             QStringList({"mlist.txt", "pubring.asc", "pubring.mix", "type2.list"}));
    QCOMPARE(IniFile(IniFileName()).readString("stats", "pages", ""),
             "mlist.txt,pubring.mix,pubring.asc");
}

// A selection in one page: only that page, ticked, its selected text
// printed; All text lists every page unticked and prints the ticked ones
// whole, a pause between documents.
void TestWindows::printPages() {
    QWidget owner;
    auto* tabs = new QTabBar(&owner);
    QList<QPlainTextEdit*> views;
    for (const char* name : {"status", "mlist.txt", "rlist.txt"}) {
        tabs->addTab(QString::fromLatin1(name));
        views << new QPlainTextEdit(QStringLiteral("%1 one\n%1 two\n%1 three").arg(name), &owner);
    }
    QTextCursor cursor = views[1]->textCursor();
    cursor.movePosition(QTextCursor::Down);
    cursor.movePosition(QTextCursor::EndOfLine, QTextCursor::KeepAnchor);
    views[1]->setTextCursor(cursor);
    const auto viewAt = [&views](int i) {
        return views.at(i);
    };
    TPrntSelPagesDlg dialog(&owner, tabs, viewAt);
    QVERIFY(dialog.SelectedText->isEnabled() && dialog.SelectedText->isChecked());
    QCOMPARE(rowsOf(dialog.PageList) + rowsOf(dialog.PageList, Qt::Checked),
             QStringList({"mlist.txt", "mlist.txt"}));
    QStringList printed;
    QList<qint64> times;
    QElapsedTimer clock;
    clock.start();
    const auto print = [&](const QString& title, const QStringList& lines, const QFont& font) {
        printed << title + ": " + lines.join(u',') +
                       (font == views[0]->font() ? "" : " other font");
        times << clock.elapsed();
    };
    dialog.printTicked(print);
    dialog.AllText->setChecked(true);
    QCOMPARE(rowsOf(dialog.PageList, Qt::Unchecked),
             QStringList({"status", "mlist.txt", "rlist.txt"}));
    dialog.PageList->item(1)->setCheckState(Qt::Checked);
    dialog.PageList->item(2)->setCheckState(Qt::Checked);
    dialog.printTicked(print);
    QCOMPARE(printed, QStringList({"mlist.txt: mlist.txt two",
                                   "mlist.txt: mlist.txt one,mlist.txt two,mlist.txt three",
                                   "rlist.txt: rlist.txt one,rlist.txt two,rlist.txt three"}));
    QVERIFY2(times[2] - times[1] >= 450, qPrintable(QString::number(times[2] - times[1])));

    // Printed for real, the ticked pages are one job: one PDF, a long line
    // wrapped rather than cut at the paper's edge, a long page over sheets.
    const QString pdftotext = QStandardPaths::findExecutable(QStringLiteral("pdftotext"));
    if (pdftotext.isEmpty())
        QSKIP("pdftotext (poppler-utils) is not installed");
    QStringList words, rows;
    for (int i = 0; i < 300; ++i) {
        rows << QStringLiteral("row %1").arg(i);
        if (i < 40)
            words << QStringLiteral("word%1").arg(i);
    }
    views[1]->appendPlainText(words.join(u' '));
    views[2]->appendPlainText(rows.join(u'\n'));
    QTemporaryDir dir;
    QPrinter printer(QPrinter::HighResolution);
    printer.setOutputFileName(dir.filePath("pages.pdf"));
    QTimer::singleShot(0, [] {
        auto* shown = qobject_cast<TPrntSelPagesDlg*>(QApplication::activeModalWidget());
        QVERIFY(shown);
        shown->AllText->setChecked(true);
        shown->PageList->item(1)->setCheckState(Qt::Checked);
        shown->PageList->item(2)->setCheckState(Qt::Checked);
        shown->accept();
    });
    PrintPages(&owner, tabs, viewAt, &printer);
    QProcess reader;
    reader.start(pdftotext, {"-layout", dir.filePath("pages.pdf"), "-"});
    QVERIFY(reader.waitForFinished(30000));
    const QString text = QString::fromUtf8(reader.readAllStandardOutput());
    for (const char* expected : {"mlist.txt three", "word0", "word39", "rlist.txt one", "row 299"})
        QVERIFY2(text.contains(QLatin1String(expected)), expected);
    QVERIFY2(!text.contains(QStringLiteral("status one")) && text.count(u'\f') >= 3,
             qPrintable(text));
}

// Stored values shown (a zero time-out as 30), colour and font choices,
// Cascade ruling Stats Only, every close saving, hidden settings kept; the
// main window reads the result.
void TestWindows::statsOptions() {
    const QString ini = IniFileName();
    TempEnvironment::writeFile(ini, data("options.ini"));
    TStatsOptionsDlg dialog(nullptr, ini);
    auto* timeout = dialog.findChild<QSpinBox*>("TimeoutEdit");
    QStringList values{QString::number(timeout->value()),
                       bits({dialog.findChild<QCheckBox*>("BarNewBox")->isChecked()})};
    for (const char* name : {"DialogFontName", "DialogFontSize", "DialogFontStyle"})
        values << dialog.findChild<QLineEdit*>(name)->text();
    for (const char* name : {"ColorPanel", "DialogFontColor"})
        values << dialog.findChild<QFrame*>(name)->palette().color(QPalette::Window).name();
    QCOMPARE(values.join(u','), "30,1,Arial,12,bu,#ff0000,#0000ff");
    QList<std::optional<QColor>> colours = {QColor(0x12, 0x34, 0x56), std::nullopt};
    dialog.chooseColor = [&colours](const QColor&) {
        return colours.takeFirst();
    };
    QFont seen;
    dialog.chooseFont = [&seen](const QFont& current) -> std::optional<QFont> {
        seen = current;
        QFont chosen(QStringLiteral("DejaVu Sans"), 14);
        chosen.setItalic(true);
        return chosen;
    };
    dialog.show();
    QTest::mouseClick(dialog.findChild<QPushButton*>("ColorBtn"), Qt::LeftButton);
    QTest::mouseClick(dialog.findChild<QPushButton*>("ColorBtn"), Qt::LeftButton); // cancelled
    QTest::mouseClick(dialog.findChild<QPushButton*>("EditorFontBtn"), Qt::LeftButton);
    QCOMPARE(seen.pointSize(), 9); // the choices show in the saved file
    dialog.findChild<QTabWidget*>()->setCurrentIndex(2);
    auto* cascade = dialog.findChild<QCheckBox*>("CascadeBox");
    auto* statsOnly = dialog.findChild<QCheckBox*>("StatsOnlyBox");
    QString states;
    for (int i = 0; i < 2; ++i) {
        QTest::mouseClick(cascade, Qt::LeftButton);
        states +=
            bits({cascade->isChecked(), statsOnly->isEnabled(), statsOnly->isChecked()}) + ' ';
    }
    QCOMPARE(states, "000 110 ");
    timeout->selectAll();
    QTest::keyClicks(timeout, "45");
    dialog.close(); // saved all the same
    QCOMPARE(dialog.result(), int(QDialog::Rejected));
    QCOMPARE(TempEnvironment::readFile(ini), data("options-saved.ini"));

    QTimer::singleShot(0, [] {
        if (auto* shown = qobject_cast<TStatsOptionsDlg*>(QApplication::activeModalWidget()))
            shown->reject();
    });
    const StatsOptionsResult result = ShowStatsOptions(nullptr);
    QVERIFY(result.barNew);
    QCOMPARE(result.windowColor, qint64(0x563412)); // stored as 0x00BBGGRR
    QCOMPARE(result.dialogFont, "Arial,12,bu,16711680");
}

QTEST_MAIN(TestWindows)
#include "tst_windows.moc"
