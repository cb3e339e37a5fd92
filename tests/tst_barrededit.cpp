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

Q_DECLARE_METATYPE(QList<QStringList>)

class TestBarredEdit : public QObject {
    Q_OBJECT
private slots:
    void rows_data();
    void rows();
    void realPages();
    void captions_data();
    void captions();
    void actionsByState();
    void apply_data();
    void apply();
    void agreesWithBarredList_data();
    void agreesWithBarredList();
    void storedFiles();
    void unreadableFile();
    void snapshot_data();
    void snapshot();
};

void TestBarredEdit::rows_data() {
    QTest::addColumn<QList<QStringList>>("pages");
    QTest::addColumn<QStringList>("file");
    QTest::addColumn<QStringList>("rows");

    const QStringList lcs{"lcs full file fixed"};
    QTest::newRow("nothing: only the fixed entry") << QList<QStringList>() << QStringList() << lcs;
    QTest::newRow("page only, sorted ignoring case")
        << QList<QStringList>{page({"dizum", "Austria", "anon"})} << QStringList()
        << QStringList{"anon none listed", "Austria none listed", "dizum none listed",
                       "lcs full file fixed"};
    QTest::newRow("fully barred: gone from mlist.txt, still in the unfiltered copy")
        << QList<QStringList>{page({"anon", "dizum"}), page({"anon", "dizum", "slug"})}
        << QStringList{"slug"}
        << QStringList{"anon none listed", "dizum none listed", "lcs full file fixed",
                       "slug full listed"};
    QTest::newRow("only in barred.txt: listed so that it can be unbarred")
        << QList<QStringList>{page({"anon"})} << QStringList{"gone", "gone2,last"}
        << QStringList{"anon none listed", "gone full file", "gone2 last file",
                       "lcs full file fixed"};
    QTest::newRow("the flag: any case, blanks around; anything else is a full bar")
        << QList<QStringList>() << QStringList{"a,LAST", " b , last ", "c,lastly", "d,x"}
        << QStringList{"a last file", "b last file", "c full file", "d full file",
                       "lcs full file fixed"};
    QTest::newRow("a full bar anywhere wins over a bar from last")
        << QList<QStringList>() << QStringList{"dizum,last", "DIZUM"}
        << QStringList{"dizum full file", "lcs full file fixed"};
    QTest::newRow("page and file meet ignoring case; the page's spelling shows")
        << QList<QStringList>{page({"Dizum"})} << QStringList{"dizum,last"}
        << QStringList{"Dizum last listed", "lcs full file fixed"};
    QTest::newRow("blank lines and notes name no remailer")
        << QList<QStringList>() << QStringList{"", "   ", "# barred for spam", ",last", "x"}
        << QStringList{"lcs full file fixed", "x full file"};
    QTest::newRow("lcs stays barred entirely whatever the file says")
        << QList<QStringList>{page({"lcs"})} << QStringList{"lcs,last"}
        << QStringList{"lcs full listed fixed"};
}

void TestBarredEdit::rows() {
    QFETCH(QList<QStringList>, pages);
    QFETCH(QStringList, file);
    QFETCH(QStringList, rows);
    const BarredEdit edit(pages, file);
    QCOMPARE(describe(edit.rows()), rows);
    QVERIFY(!edit.changed());
    // Nothing changed, nothing rewritten: notes, spelling and repeats stay.
    QCOMPARE(edit.fileLines(), file);
    for (const BarredRow& row : edit.rows())
        QCOMPARE(row.initial, row.state);
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

void TestBarredEdit::captions_data() {
    QTest::addColumn<QString>("action");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("caption");
    QTest::addColumn<int>("target");
    QTest::newRow("bar") << "Bar"
                         << "dizum"
                         << "&Bar dizum" << int(BarState::Full);
    QTest::newRow("bar from last") << "BarFromLast"
                                   << "dizum"
                                   << "&Bar dizum from last" << int(BarState::LastOnly);
    QTest::newRow("unbar") << "Unbar"
                           << "dizum"
                           << "Un&bar dizum" << int(BarState::None);
    QTest::newRow("unbar from last") << "UnbarFromLast"
                                     << "dizum"
                                     << "Un&bar dizum from last" << int(BarState::None);
    QTest::newRow("an ampersand in the name is shown, not a mnemonic")
        << "Bar"
        << "a&b"
        << "&Bar a&&b" << int(BarState::Full);
}

void TestBarredEdit::captions() {
    QFETCH(QString, action);
    QFETCH(QString, name);
    QFETCH(QString, caption);
    QFETCH(int, target);
    QCOMPARE(BarActionCaption(actionNamed(action), name), caption);
    QCOMPARE(int(BarActionTarget(actionNamed(action))), target);
}

void TestBarredEdit::actionsByState() {
    QCOMPARE(BarredEdit::actionsFor(BarState::None),
             QList<BarAction>({BarAction::Bar, BarAction::BarFromLast}));
    QCOMPARE(BarredEdit::actionsFor(BarState::Full),
             QList<BarAction>({BarAction::Unbar, BarAction::BarFromLast}));
    QCOMPARE(BarredEdit::actionsFor(BarState::LastOnly),
             QList<BarAction>({BarAction::UnbarFromLast, BarAction::Bar}));
}

void TestBarredEdit::apply_data() {
    QTest::addColumn<QStringList>("listed"); // the stats page
    QTest::addColumn<QStringList>("file");
    QTest::addColumn<QStringList>("steps"); // "name Action"
    QTest::addColumn<QList<bool>>("applied");
    QTest::addColumn<bool>("changed");
    QTest::addColumn<QStringList>("lines");

    const QStringList onPage{"anon", "dizum", "slug"};
    QTest::newRow("bar: appended") << onPage << QStringList{"x"} << QStringList{"dizum Bar"}
                                   << QList<bool>{true} << true << QStringList{"x", "dizum"};
    QTest::newRow("bar from last: appended with the flag")
        << onPage << QStringList() << QStringList{"dizum BarFromLast"} << QList<bool>{true} << true
        << QStringList{"dizum,last"};
    QTest::newRow("new bars follow the file in list order")
        << onPage << QStringList{"x"} << QStringList{"slug Bar", "anon BarFromLast"}
        << QList<bool>{true, true} << true << QStringList{"x", "anon,last", "slug"};
    QTest::newRow("unbar: the line goes, the others keep their order")
        << onPage << QStringList{"slug", "dizum", "anon,last"} << QStringList{"dizum Unbar"}
        << QList<bool>{true} << true << QStringList{"slug", "anon,last"};
    QTest::newRow("unbar from last")
        << onPage << QStringList{"slug", "dizum,last"} << QStringList{"dizum UnbarFromLast"}
        << QList<bool>{true} << true << QStringList{"slug"};
    QTest::newRow("full to last: rewritten in place, in the file's spelling")
        << onPage << QStringList{"a", " Dizum ,whatever", "b"} << QStringList{"dizum BarFromLast"}
        << QList<bool>{true} << true << QStringList{"a", "Dizum,last", "b"};
    QTest::newRow("last to full: rewritten in place")
        << onPage << QStringList{"dizum , LAST", "b"} << QStringList{"dizum Bar"}
        << QList<bool>{true} << true << QStringList{"dizum", "b"};
    QTest::newRow("repeated lines of a changed remailer become one")
        << onPage << QStringList{"dizum", "x", "dizum,last", "DIZUM"}
        << QStringList{"dizum BarFromLast"} << QList<bool>{true} << true
        << QStringList{"dizum,last", "x"};
    QTest::newRow("repeated lines all go on unbarring")
        << onPage << QStringList{"dizum", "x", "dizum,last"} << QStringList{"dizum Unbar"}
        << QList<bool>{true} << true << QStringList{"x"};
    QTest::newRow("notes, blanks and remailers off the page are kept")
        << onPage << QStringList{"# spammers", "gone", "", "slug", "old,last", "two words"}
        << QStringList{"slug Unbar", "anon Bar"} << QList<bool>{true, true} << true
        << QStringList{"# spammers", "gone", "", "old,last", "two words", "anon"};
    QTest::newRow("a remailer only in the file can be unbarred")
        << onPage << QStringList{"gone", "x"} << QStringList{"gone Unbar"} << QList<bool>{true}
        << true << QStringList{"x"};
    QTest::newRow("there and back: unchanged, lines exactly as they were")
        << onPage << QStringList{" dizum ,Last", "x"}
        << QStringList{"dizum Bar", "dizum Unbar", "dizum BarFromLast"}
        << QList<bool>{true, true, true} << false << QStringList{" dizum ,Last", "x"};
    QTest::newRow("an action that does not fit the state does nothing")
        << onPage << QStringList{"slug"}
        << QStringList{"anon Unbar", "anon UnbarFromLast", "slug Bar", "slug UnbarFromLast"}
        << QList<bool>{false, false, false, false} << false << QStringList{"slug"};
    // lcs is barred by the program itself: unbarring it in the dialog would
    // promise what the program does not do, so its row does not change.
    QTest::newRow("lcs cannot be unbarred or barred from last")
        << QStringList{"lcs"} << QStringList{"lcs,last"}
        << QStringList{"lcs Unbar", "lcs BarFromLast"} << QList<bool>{false, false} << false
        << QStringList{"lcs,last"};
    QTest::newRow("lcs is not written when the file lacks it")
        << QStringList{"lcs", "anon"} << QStringList() << QStringList{"anon Bar"}
        << QList<bool>{true} << true << QStringList{"anon"};
}

void TestBarredEdit::apply() {
    QFETCH(QStringList, listed);
    QFETCH(QStringList, file);
    QFETCH(QStringList, steps);
    QFETCH(QList<bool>, applied);
    QFETCH(bool, changed);
    QFETCH(QStringList, lines);
    BarredEdit edit({page(listed)}, file);
    QList<bool> results;
    for (const QString& step : steps) {
        const int row = edit.rowOf(step.section(' ', 0, 0));
        QVERIFY2(row >= 0, qPrintable(step));
        const BarAction action = actionNamed(step.section(' ', 1));
        const BarState before = edit.rows().at(row).state;
        const bool done = edit.apply(row, action);
        results.append(done);
        QCOMPARE(edit.rows().at(row).state, done ? BarActionTarget(action) : before);
    }
    QCOMPARE(results, applied);
    QCOMPARE(edit.changed(), changed);
    QCOMPARE(edit.fileLines(), lines);
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
