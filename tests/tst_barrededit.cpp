#include "BarredEdit.h"

#include "BarredList.h"
#include "PagePaths.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TextFile.h"

#include <QDir>
#include <QFileInfo>
#include <QTest>

namespace {

// A small Mixmaster stats page holding the given remailers.
QStringList page(const QStringList& names) {
    QStringList lines{"Last update: Wed 07 Nov 2001 12:00:00 GMT",
                      "mixmaster           history  latency  uptime",
                      "--------------------------------------------"};
    for (const QString& name : names)
        lines.append(name.leftJustified(15) + "************    25:00 100.00%");
    lines.append(QString());
    lines.append("Remailer-Capabilities:");
    return lines;
}

// Rows as "name state listed|file [fixed]", one string each, so that a
// failure shows the whole list.
QString describe(const BarredRow& row) {
    static const char* const states[] = {"none", "full", "last"};
    QString text = row.name + ' ' + states[int(row.state)] + ' ' + (row.listed ? "listed" : "file");
    if (row.fixed)
        text += " fixed";
    return text;
}

QStringList describe(const QList<BarredRow>& rows) {
    QStringList out;
    for (const BarredRow& row : rows)
        out.append(describe(row));
    return out;
}

BarAction actionNamed(const QString& name) {
    if (name == "Bar")
        return BarAction::Bar;
    if (name == "BarFromLast")
        return BarAction::BarFromLast;
    if (name == "Unbar")
        return BarAction::Unbar;
    if (name == "UnbarFromLast")
        return BarAction::UnbarFromLast;
    qFatal("unknown action %s", qPrintable(name));
}

QStringList realMlist() {
    return BytesToLines(RealPage("2001-11-07", "mlist.txt"));
}

} // namespace

class TestBarredEdit : public QObject {
    Q_OBJECT
private slots:
    void cases_data() { AddTableRows(QStringLiteral("baredit.txt")); }
    void cases();
    void realPages();
    void agreesWithBarredList_data();
    void agreesWithBarredList();
    void storedFiles();
    void unreadableFile();
    void snapshot_data();
    void snapshot();
};

QStringList list(const QString& field) {
    return field == u'-' ? QStringList() : field.split(u'|');
}

void TestBarredEdit::cases() {
    QFETCH(QStringList, f);
    if (f[0] == "rows") {
        QList<QStringList> pages;
        for (const QString& names : f[1] == u'-' ? QStringList() : f[1].split(" / "))
            pages.append(page(names.split(u' ')));
        const BarredEdit edit(pages, list(f[2]));
        QCOMPARE(describe(edit.rows()), list(f[3]));
        QVERIFY(!edit.changed());
        // Nothing changed, nothing rewritten: notes, spelling and repeats stay.
        QCOMPARE(edit.fileLines(), list(f[2]));
        for (const BarredRow& row : edit.rows())
            QCOMPARE(row.initial, row.state);
    } else if (f[0] == "apply") {
        BarredEdit edit({page(f[1].split(u' '))}, list(f[2]));
        QString applied;
        for (const QString& step : list(f[3])) {
            // A name not in the list has no row (-1), and nothing applies to it.
            const int row = edit.rowOf(step.section(' ', 0, 0));
            const BarAction action = actionNamed(step.section(' ', 1));
            const QList<BarredRow> before = edit.rows();
            const bool done = edit.apply(row, action);
            applied += done ? u'1' : u'0';
            if (row >= 0)
                QCOMPARE(edit.rows().at(row).state,
                         done ? BarActionTarget(action) : before.at(row).state);
        }
        QCOMPARE(applied, f[4]);
        QCOMPARE(edit.changed(), f[5] == u'1');
        QCOMPARE(edit.fileLines(), list(f[6]));
    } else if (f[0] == "caption") {
        static const char* const states[] = {"none", "full", "last"};
        QCOMPARE(BarActionCaption(actionNamed(f[1]), f[2]), f[3]);
        QCOMPARE(QString::fromLatin1(states[int(BarActionTarget(actionNamed(f[1])))]), f[4]);
    } else {
        QFAIL("unknown case kind");
    }
}

// A real page as the program stores it: mlist.txt with barred remailers
// removed, the unfiltered copy whole.
void TestBarredEdit::realPages() {
    const QStringList file{"dizum", "paranoia,last", "gone"};
    const QStringList unfiltered = realMlist();
    QStringList filtered = unfiltered;
    QVERIFY(ApplyBarredList(filtered, "mlist.txt", BarredList(file)));
    QVERIFY(!filtered.join('\n').contains("dizum "));
    QVERIFY(!filtered.join('\n').contains("lcs "));

    const BarredEdit edit({filtered, unfiltered}, file);
    const QList<BarredRow>& rows = edit.rows();
    // aarg to xganon2 and cmeclax, xganon2 once although it has two lines,
    // and the remailer that is only in the file.
    QCOMPARE(rows.size(), 35 + 1);
    QCOMPARE(describe(rows.first()), "aarg none listed");
    QCOMPARE(describe(rows.at(edit.rowOf("dizum"))), "dizum full listed");
    QCOMPARE(describe(rows.at(edit.rowOf("lcs"))), "lcs full listed fixed");
    QCOMPARE(describe(rows.at(edit.rowOf("PARANOIA"))), "paranoia last listed");
    QCOMPARE(describe(rows.at(edit.rowOf("gone"))), "gone full file");
    QCOMPARE(describe(rows.at(edit.rowOf("xganon2"))), "xganon2 none listed");
    QCOMPARE(describe(rows.last()), "xganon2 none listed");
    QCOMPARE(edit.rowOf("nobody"), -1);
}

// What the dialog writes is what the program then applies: every row's state
// is the one BarredList reads from the new lines.
void TestBarredEdit::agreesWithBarredList_data() {
    QTest::addColumn<QStringList>("file");
    QTest::addColumn<QStringList>("steps");
    QTest::newRow("from nothing") << QStringList()
                                  << QStringList{"dizum Bar", "austria BarFromLast", "aarg Bar",
                                                 "aarg Unbar"};
    QTest::newRow("from a mixed file")
        << QStringList{"# note", "dizum,last", "DIZUM", "paranoia", "gone,last", "lcs,last"}
        << QStringList{"dizum Unbar", "paranoia BarFromLast", "gone UnbarFromLast",
                       "cmeclax BarFromLast", "cmeclax Bar"};
}

void TestBarredEdit::agreesWithBarredList() {
    QFETCH(QStringList, file);
    QFETCH(QStringList, steps);
    BarredEdit edit({realMlist()}, file);
    for (const QString& step : steps)
        QVERIFY2(edit.apply(edit.rowOf(step.section(' ', 0, 0)), actionNamed(step.section(' ', 1))),
                 qPrintable(step));
    QVERIFY(edit.changed());
    const BarredList applied(edit.fileLines());
    for (const BarredRow& row : edit.rows()) {
        const BarState read = applied.isFullyBarred(row.name) ? BarState::Full
                              : applied.isLastOnly(row.name)  ? BarState::LastOnly
                                                              : BarState::None;
        QVERIFY2(read == row.state, qPrintable(describe(row)));
    }
    // And a list made afresh from the new file shows the same states; only a
    // remailer that is neither on the page nor barred any more drops out.
    const BarredEdit again({realMlist()}, edit.fileLines());
    int dropped = 0;
    for (const BarredRow& row : edit.rows()) {
        const int at = again.rowOf(row.name);
        if (at < 0) {
            QVERIFY2(row.state == BarState::None && !row.listed, qPrintable(describe(row)));
            ++dropped;
        } else {
            QCOMPARE(describe(again.rows().at(at)), describe(row));
        }
    }
    QCOMPARE(again.rows().size() + dropped, edit.rows().size());
}

void TestBarredEdit::storedFiles() {
    TempEnvironment env;
    QVERIFY(env.isValid());
    const QString barred = env.programFolder() + "barred.txt";
    TempEnvironment::writeFile(PagePath("mlist.txt"), page({"anon"}).join('\n').toLatin1());
    TempEnvironment::writeFile(PagePath("mlist.org.txt"),
                               page({"anon", "slug"}).join('\n').toLatin1());
    TempEnvironment::writeFile(barred, "slug\r\ngone,last\r\n");
    bool ok = false;
    const BarredEdit edit = BarredEdit::fromStoredFiles(barred, &ok);
    QVERIFY(ok);
    QCOMPARE(describe(edit.rows()), QStringList({"anon none listed", "gone last file",
                                                 "lcs full file fixed", "slug full listed"}));

    // Missing pages and a missing barred.txt are an empty start, not a fault.
    QVERIFY(QFile::remove(PagePath("mlist.txt")));
    QVERIFY(QFile::remove(PagePath("mlist.org.txt")));
    QVERIFY(QFile::remove(barred));
    ok = false;
    const BarredEdit empty = BarredEdit::fromStoredFiles(barred, &ok);
    QVERIFY(ok);
    QCOMPARE(describe(empty.rows()), QStringList{"lcs full file fixed"});
}

// A barred.txt that is there but cannot be read (here a folder of that name)
// must not be taken for an empty one.
void TestBarredEdit::unreadableFile() {
    TempEnvironment env;
    QVERIFY(env.isValid());
    const QString barred = env.programFolder() + "barred.txt";
    QVERIFY(QDir().mkpath(barred));
    bool ok = true;
    BarredEdit::fromStoredFiles(barred, &ok);
    QVERIFY(!ok);
    FileSnapshot snapshot;
    QString error;
    QVERIFY(!snapshot.take(barred, &error));
    QVERIFY(error.contains(barred));
}

void TestBarredEdit::snapshot_data() {
    QTest::addColumn<bool>("existed");
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("CR LF, no final line end, Latin-1")
        << true << QByteArray("dizum\r\nslug,last\r\n\xe9t\xe9");
    QTest::newRow("empty file") << true << QByteArray();
    QTest::newRow("no file") << false << QByteArray();
}

void TestBarredEdit::snapshot() {
    QFETCH(bool, existed);
    QFETCH(QByteArray, bytes);
    TempEnvironment env;
    QVERIFY(env.isValid());
    const QString path = env.programFolder() + "barred.txt";
    if (existed)
        TempEnvironment::writeFile(path, bytes);
    FileSnapshot snapshot;
    QVERIFY(snapshot.take(path));
    QCOMPARE(snapshot.existed(), existed);
    QCOMPARE(snapshot.bytes(), bytes);

    QVERIFY(WriteLines(path, {"something", "else"}));
    QString error;
    QVERIFY2(snapshot.restore(path, &error), qPrintable(error));
    QCOMPARE(QFileInfo::exists(path), existed);
    if (existed)
        QCOMPARE(TempEnvironment::readFile(path), bytes);
}

QTEST_GUILESS_MAIN(TestBarredEdit)

#include "tst_barrededit.moc"
