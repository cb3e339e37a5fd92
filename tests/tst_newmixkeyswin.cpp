#include "DialogTestSupport.h"
#include "NewMixKeyWins.h"
#include "StatsWins4.h"
#include "SuiteDatabase.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TextFile.h"

#include <QHeaderView>
#include <QMenu>
#include <QPushButton>
#include <QTabBar>
#include <QToolButton>
#include <QTreeWidget>
#include <QtTest>

namespace {

// The shown cells of every row, the name first.
QList<QStringList> shownRows(const TNewMixKeysWin& window) {
    QList<QStringList> rows;
    for (int i = 0; i < window.KeyList->topLevelItemCount(); ++i) {
        const QTreeWidgetItem* item = window.KeyList->topLevelItem(i);
        QStringList cells;
        for (int column = 0; column < window.KeyList->columnCount(); ++column)
            cells.append(item->text(column));
        rows.append(cells);
    }
    return rows;
}

QList<Qt::CheckState> ticks(const TNewMixKeysWin& window) {
    QList<Qt::CheckState> states;
    for (int i = 0; i < window.KeyList->topLevelItemCount(); ++i)
        states.append(window.KeyList->topLevelItem(i)->checkState(0));
    return states;
}

} // namespace

class TestNewMixKeysWin : public QObject {
    Q_OBJECT
private slots:
    void rows_data();
    void rows();
    void layoutAndTicks();
    void newestKeysOfTheOpenList();
};

void TestNewMixKeysWin::rows_data() {
    QTest::addColumn<QString>("line");
    QTest::addColumn<QStringList>("cells");
    QTest::addColumn<QString>("hidden"); // the field past the last column
    QTest::newRow("full key line")
        << "anon anon@anonusa.net 24bdd2c97098167134d8526123f82dde 2:3.0 MCNm 2012-01-08 "
           "2013-02-01 more"
        << QStringList{"anon",
                       "anon@anonusa.net",
                       "24bdd2c97098167134d8526123f82dde",
                       "2:3.0",
                       "MCNm",
                       "2012-01-08",
                       "2013-02-01"}
        << "more";
    QTest::newRow("fewer fields")
        << "dizum remailer@dizum.com 314d6e1d"
        << QStringList{"dizum", "remailer@dizum.com", "314d6e1d", "", "", "", ""} << "";
    QTest::newRow("no blank") << "lonely" << QStringList(7, QString()) << "";
    QTest::newRow("two blanks") << "frell  godot@frell.eu.org"
                                << QStringList{"frell", "", "godot@frell.eu.org", "", "", "", ""}
                                << "";
}

void TestNewMixKeysWin::rows() {
    QFETCH(QString, line);
    QFETCH(QStringList, cells);
    QFETCH(QString, hidden);
    TNewMixKeysWin window(nullptr, {line});
    QCOMPARE(shownRows(window), QList<QStringList>{cells});
    QCOMPARE(window.KeyList->topLevelItem(0)->data(0, Qt::UserRole).toString(), hidden);
    QCOMPARE(ticks(window), QList<Qt::CheckState>{Qt::Unchecked});
}

void TestNewMixKeysWin::layoutAndTicks() {
    TNewMixKeysWin window(nullptr, {"a a@b 1", "b b@c 2", "c c@d 3"});
    QCOMPARE(window.windowTitle(), QStringLiteral("New Mixmaster Keys"));
    QCOMPARE(window.size(), QSize(789, 400));
    QStringList captions;
    QList<int> widths;
    for (int column = 0; column < window.KeyList->columnCount(); ++column) {
        captions.append(window.KeyList->headerItem()->text(column));
        widths.append(window.KeyList->header()->sectionSize(column));
    }
    QCOMPARE(captions, (QStringList{"||||  Name", "Address", "Key ID", "Version", "Caps",
                                    "Key Created", "Key Expires"}));
    QCOMPARE(widths.mid(0, 4), (QList<int>{75, 210, 210, 80}));
    QCOMPARE(widths.mid(5), (QList<int>{70, 70}));
    QVERIFY(window.OkBtn->isDefault());
    QCOMPARE(window.Button1->text(), QStringLiteral("&Bar All"));
    QCOMPARE(window.Button2->text(), QStringLiteral("&Clear All"));

    window.KeyList->topLevelItem(1)->setCheckState(0, Qt::Checked);
    window.Button1->click();
    QCOMPARE(ticks(window), QList<Qt::CheckState>(3, Qt::Checked));
    window.Button2->click();
    QCOMPARE(ticks(window), QList<Qt::CheckState>(3, Qt::Unchecked));
    QVERIFY(!window.isVisible());
    window.HelpBtn->click();
    QCOMPARE(window.result(), 0);
}

// From the Keyrings menu: the last 10 lines of the open type2.list page;
// and true even when the window is closed by its close box.
void TestNewMixKeysWin::newestKeysOfTheOpenList() {
    TempEnvironment env;
    QCOMPARE(CreateDataFile(env.programFolder()), QString());
    QStringList keys;
    for (int i = 1; i <= 25; ++i)
        keys.append(QStringLiteral("rem%1 rem%1@example.org %1 2:3.0 MC").arg(i));
    QVERIFY(WriteLines(env.mixFolder() + "type2.list", keys));
    TVKStatsWin4 main;
    QCOMPARE(main.start({}), StartResult::Ready);
    for (QAction* item : main.ViewMenu->actions()) {
        if (item->text() == QStringLiteral("t&ype2.list"))
            item->trigger();
    }
    QCOMPARE(main.TabSet->count(), 1);
    QAction* newKeys = main.KeyringsMenu->actions().last();
    QCOMPARE(newKeys->text(), QStringLiteral("New Mixmaster &Keys..."));

    QList<QStringList> shown;
    bool guardFired = false;
    RunModal<TNewMixKeysWin>(
        [newKeys] {
            newKeys->trigger();
            return true;
        },
        [&shown](TNewMixKeysWin* window) {
            shown = shownRows(*window);
            window->Cancel->click();
        },
        &guardFired);
    QVERIFY(!guardFired);
    QCOMPARE(shown.size(), 10);
    QCOMPARE(shown.first().mid(0, 2), (QStringList{"rem16", "rem16@example.org"}));
    QCOMPARE(shown.last().first(), QStringLiteral("rem25"));
    QVERIFY(NoDialogLeft<TNewMixKeysWin>());
    const QStringList none;
    QVERIFY(RunModal<TNewMixKeysWin>([&] { return ShowNewMixKeys(&main, &none); },
                                     [](TNewMixKeysWin* window) { CloseDialogBy(window, "close"); },
                                     &guardFired));
    QVERIFY(!guardFired);
    // The tool bar's key button still offers the three key tools only.
    QCOMPARE(main.KeyringBtn->menu()->actions().size(), 3);
    main.close();
    CloseSuiteDataFile();
}

QTEST_MAIN(TestNewMixKeysWin)
#include "tst_newmixkeyswin.moc"
