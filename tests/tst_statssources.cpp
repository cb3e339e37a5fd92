#include "Global2.h"
#include "StatsSources.h"
#include "TempEnvironment.h"
#include "TestFrontEnd.h"
#include "TextFile.h"
#include "UrlsCases.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QTest>
#include <QUrl>

#include <memory>

namespace {

const QStringList FourPages{"mlist.txt", "pubring.mix", "rlist.txt", "pubring.asc"};

// A small list in the shape the program ships, used where a case only needs
// "some ordinary file".
const QByteArray Ordinary = "velkin urls\n"
                            "[alpha]\n"
                            "mlist.txt http://alpha.example/mlist.txt\n"
                            "rlist.txt http://alpha.example/rlist.txt\n"
                            "\n"
                            "[beta]\n"
                            "mlist.txt https://beta.example/Stats/MLIST.txt\n"
                            "\n"
                            "[velkin]\n"
                            "advisory.txt http://velkin.example/advisory.txt\n";

} // namespace

class TestStatsSources : public QObject {
    Q_OBJECT
private slots:
    void init();

    void sourceNameByIndex_data();
    void sourceNameByIndex();
    void defaultSource_data();
    void defaultSource();
    void pageLines_data();
    void pageLines();
    void markedPages_data();
    void markedPages();
    void urlOfPage_data();
    void urlOfPage();
    void sourceBox_data();
    void sourceBox();
    void velkinFirst();
    void twoReadersDiffer();
    void readsFileAfresh();

    void moveSource_data();
    void moveSource();
    void moveSourceSaveFails_data();
    void moveSourceSaveFails();

    void binaryFile_data();
    void binaryFile();
    void largeFile();

    void defaultFileIsCompiledIn();
    void defaultFileParses();
    void installDefault_data();
    void installDefault();
    void installDefaultTwice();

private:
    QString urlsPath() const { return ProgramFolder() + "urls.txt"; }
    void writeUrls(const QByteArray& bytes) const { TempEnvironment::writeFile(urlsPath(), bytes); }
    StatsSourceList list() { return StatsSourceList(urlsPath(), &m_ui); }

    std::unique_ptr<TempEnvironment> m_env;
    TestFrontEnd m_ui;
};

void TestStatsSources::init() {
    m_env.reset(); // the old one restores the environment it found
    m_env = std::make_unique<TempEnvironment>();
    QVERIFY(m_env->isValid());
    m_ui = TestFrontEnd();
}

// ---------------------------------------------------------------- by index

void TestStatsSources::sourceNameByIndex_data() {
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("exists");
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("name");

    const QByteArray three = "[a]\nmlist.txt http://a/\n\n[b]\n\n[c]\n";
    QTest::newRow("first") << three << true << 0 << "a";
    QTest::newRow("third") << three << true << 2 << "c";
    QTest::newRow("past the end") << three << true << 3 << "";
    QTest::newRow("negative") << three << true << -1 << "";
    QTest::newRow("velkin counted") << QByteArray("[a]\n[velkin]\n[b]\n") << true << 1 << "velkin";
    QTest::newRow("after velkin") << QByteArray("[a]\n[velkin]\n[b]\n") << true << 2 << "b";
    QTest::newRow("indented header counted") << QByteArray("[a]\n   [b]  \n") << true << 1 << "b";
    QTest::newRow("text after bracket keeps all but the last character")
        << QByteArray("[alpha] old\n") << true << 0 << "alpha] ol";
    QTest::newRow("header without bracket loses its last letter")
        << QByteArray("[beta\n") << true << 0 << "bet";
    QTest::newRow("lone bracket") << QByteArray("[\n[x]\n") << true << 0 << "";
    QTest::newRow("lone bracket counted") << QByteArray("[\n[x]\n") << true << 1 << "x";
    QTest::newRow("empty name") << QByteArray("[]\n") << true << 0 << "";
    QTest::newRow("CR LF") << QByteArray("velkin urls\r\n[a]\r\n\r\n[b]\r\n") << true << 1 << "b";
    QTest::newRow("CR only") << QByteArray("[a]\r[b]\r") << true << 1 << "b";
    QTest::newRow("no sections") << QByteArray("velkin urls\nmlist.txt http://a/\n") << true << 0
                                 << "";
    QTest::newRow("empty file") << QByteArray() << true << 0 << "";
    QTest::newRow("missing file") << QByteArray() << false << 0 << "";
}

void TestStatsSources::sourceNameByIndex() {
    QFETCH(QByteArray, content);
    QFETCH(bool, exists);
    QFETCH(int, index);
    QFETCH(QString, name);
    if (exists)
        writeUrls(content);
    QCOMPARE(list().sourceNameByIndex(index), name);
    QVERIFY(m_ui.messages.isEmpty());
}

// ---------------------------------------------------------------- default

void TestStatsSources::defaultSource_data() {
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("exists");
    QTest::addColumn<QString>("name");

    QTest::newRow("ordinary") << Ordinary << true << "alpha";
    QTest::newRow("velkin first") << QByteArray("[velkin]\n[a]\n") << true << "velkin";
    QTest::newRow("lines before the first header")
        << QByteArray("velkin urls\n\nsome note\n  [first]\n[second]\n") << true << "first";
    QTest::newRow("text after bracket") << QByteArray("[alpha] old\n") << true << "alpha] ol";
    QTest::newRow("CR LF") << QByteArray("velkin urls\r\n[a]\r\n") << true << "a";
    QTest::newRow("no sections") << QByteArray("velkin urls\nmlist.txt http://a/\n") << true << "";
    QTest::newRow("missing file") << QByteArray() << false << "";
}

void TestStatsSources::defaultSource() {
    QFETCH(QByteArray, content);
    QFETCH(bool, exists);
    QFETCH(QString, name);
    if (exists)
        writeUrls(content);
    QCOMPARE(list().defaultSource(), name);
    QVERIFY(m_ui.messages.isEmpty());
}

// ---------------------------------------------------------------- page lines

void TestStatsSources::pageLines_data() {
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("source");
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<QStringList>("names");

    QTest::newRow("ordinary") << Ordinary << "alpha"
                              << QStringList{"mlist.txt http://alpha.example/mlist.txt",
                                             "rlist.txt http://alpha.example/rlist.txt"}
                              << QStringList{"mlist.txt", "rlist.txt"};
    QTest::newRow("blank line ends the section")
        << QByteArray("[a]\nmlist.txt http://a/m\n\nrlist.txt http://a/r\n") << "a"
        << QStringList{"mlist.txt http://a/m"} << QStringList{"mlist.txt"};
    QTest::newRow("line of blanks ends the section")
        << QByteArray("[a]\nmlist.txt http://a/m\n  \t \nrlist.txt http://a/r\n") << "a"
        << QStringList{"mlist.txt http://a/m"} << QStringList{"mlist.txt"};
    QTest::newRow("entry without a space skipped, later lines read")
        << QByteArray("[a]\nmlist.txt\nrlist.txt http://a/r\npubring.asc http://a/k\n") << "a"
        << QStringList{"rlist.txt http://a/r", "pubring.asc http://a/k"}
        << QStringList{"rlist.txt", "pubring.asc"};
    QTest::newRow("tab is not a space")
        << QByteArray("[a]\nmlist.txt\thttp://a/m\nrlist.txt http://a/r\n") << "a"
        << QStringList{"rlist.txt http://a/r"} << QStringList{"rlist.txt"};
    QTest::newRow("entries trimmed")
        << QByteArray("[a]\n   mlist.txt   http://a/m   \n") << "a"
        << QStringList{"mlist.txt   http://a/m"} << QStringList{"mlist.txt"};
    QTest::newRow("next header ends the section")
        << QByteArray("[a]\nmlist.txt http://a/m\n[b]\nrlist.txt http://b/r\n") << "a"
        << QStringList{"mlist.txt http://a/m"} << QStringList{"mlist.txt"};
    QTest::newRow("indented header ends the section")
        << QByteArray("[a]\nmlist.txt http://a/m\n   [b]\nrlist.txt http://b/r\n") << "a"
        << QStringList{"mlist.txt http://a/m"} << QStringList{"mlist.txt"};
    QTest::newRow("indented header opens the section")
        << QByteArray("[a]\nmlist.txt http://a/m\n   [b]  \nrlist.txt http://b/r\n") << "b"
        << QStringList{"rlist.txt http://b/r"} << QStringList{"rlist.txt"};
    QTest::newRow("duplicate sections apart")
        << QByteArray("[a]\nmlist.txt http://one/m\n\n[b]\nmlist.txt http://b/m\n\n"
                      "[a]\nmlist.txt http://two/m\nrlist.txt http://two/r\n")
        << "a"
        << QStringList{"mlist.txt http://one/m", "mlist.txt http://two/m", "rlist.txt http://two/r"}
        << QStringList{"mlist.txt", "mlist.txt", "rlist.txt"};
    QTest::newRow("duplicate sections back to back")
        << QByteArray("[a]\nmlist.txt http://one/m\n[a]\nrlist.txt http://two/r\n") << "a"
        << QStringList{"mlist.txt http://one/m", "rlist.txt http://two/r"}
        << QStringList{"mlist.txt", "rlist.txt"};
    QTest::newRow("header with text after bracket")
        << QByteArray("[alpha] old\nmlist.txt http://a/m\n") << "alpha"
        << QStringList{"mlist.txt http://a/m"} << QStringList{"mlist.txt"};
    QTest::newRow("name compared with case") << QByteArray("[Alpha]\nmlist.txt http://a/m\n")
                                             << "alpha" << QStringList{} << QStringList{};
    QTest::newRow("longer name is another source")
        << QByteArray("[alphabet]\nmlist.txt http://a/m\n") << "alpha" << QStringList{}
        << QStringList{};
    QTest::newRow("velkin section")
        << Ordinary << "velkin" << QStringList{"advisory.txt http://velkin.example/advisory.txt"}
        << QStringList{"advisory.txt"};
    QTest::newRow("section at end of file without line end")
        << QByteArray("[a]\nmlist.txt http://a/m") << "a" << QStringList{"mlist.txt http://a/m"}
        << QStringList{"mlist.txt"};
    QTest::newRow("CR LF")
        << QByteArray("velkin urls\r\n[a]\r\nmlist.txt http://a/m\r\nrlist.txt http://a/r\r\n"
                      "\r\n[b]\r\n")
        << "a" << QStringList{"mlist.txt http://a/m", "rlist.txt http://a/r"}
        << QStringList{"mlist.txt", "rlist.txt"};
    QTest::newRow("unknown source") << Ordinary << "gamma" << QStringList{} << QStringList{};
    QTest::newRow("no sections") << QByteArray("mlist.txt http://a/m\n") << "a" << QStringList{}
                                 << QStringList{};
}

void TestStatsSources::pageLines() {
    QFETCH(QByteArray, content);
    QFETCH(QString, source);
    QFETCH(QStringList, lines);
    QFETCH(QStringList, names);
    writeUrls(content);
    const StatsSourceList sources = list();
    QCOMPARE(sources.pageLines(source), lines);
    QCOMPARE(sources.pageNames(source), names);
    QVERIFY(m_ui.messages.isEmpty());
}

// ---------------------------------------------------------------- marked

void TestStatsSources::markedPages_data() {
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QStringList>("checked");
    QTest::addColumn<QStringList>("marked");

    const QByteArray source = "[a]\n"
                              "rlist.txt http://a/r\n"
                              "mlist.txt http://a/m\n"
                              "type2.list http://a/t\n"
                              "pubring.mix http://a/k\n";
    QTest::newRow("file order, not menu order")
        << source << QStringList{"mlist.txt", "rlist.txt"} << QStringList{"rlist.txt", "mlist.txt"};
    QTest::newRow("accelerator removed") << source << QStringList{"&mlist.txt", "type2.&list"}
                                         << QStringList{"mlist.txt", "type2.list"};
    QTest::newRow("only the first ampersand removed")
        << source << QStringList{"&&mlist.txt", "&pubring.mix"} << QStringList{"pubring.mix"};
    QTest::newRow("caption case must match")
        << source << QStringList{"MLIST.TXT", "pubring.mix"} << QStringList{"pubring.mix"};
    QTest::newRow("page written in capitals is not the menu's page")
        << QByteArray("[a]\nMLIST.TXT http://a/m\nrlist.txt http://a/r\n")
        << QStringList{"mlist.txt", "rlist.txt"} << QStringList{"rlist.txt"};
    QTest::newRow("nothing checked") << source << QStringList{} << QStringList{};
    QTest::newRow("checked page the source lacks")
        << source << QStringList{"pubring.asc"} << QStringList{};
    QTest::newRow("missing section")
        << QByteArray("[b]\nmlist.txt http://b/m\n") << QStringList{"mlist.txt"} << QStringList{};
}

void TestStatsSources::markedPages() {
    QFETCH(QByteArray, content);
    QFETCH(QStringList, checked);
    QFETCH(QStringList, marked);
    writeUrls(content);
    QCOMPARE(list().markedPages("a", checked), marked);
    QVERIFY(m_ui.messages.isEmpty());
}

// ---------------------------------------------------------------- URL

void TestStatsSources::urlOfPage_data() {
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("exists");
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("page");
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("message");

    QTest::newRow("ordinary") << Ordinary << true << "alpha"
                              << "rlist.txt"
                              << "http://alpha.example/rlist.txt"
                              << "";
    QTest::newRow("URL keeps its case") << Ordinary << true << "beta"
                                        << "mlist.txt"
                                        << "https://beta.example/Stats/MLIST.txt"
                                        << "";
    QTest::newRow("page name in capitals found")
        << QByteArray("[a]\nMLIST.TXT HTTP://Example.COM/Stats/MList.TXT\n") << true << "a"
        << "mlist.txt"
        << "HTTP://Example.COM/Stats/MList.TXT"
        << "";
    QTest::newRow("page asked in capitals is not found")
        << QByteArray("[a]\nmlist.txt http://a/m\n") << true << "a"
        << "MLIST.TXT"
        << ""
        << "I don't have a URL for MLIST.TXT at a!";
    QTest::newRow("blanks around the URL trimmed")
        << QByteArray("[a]\n  mlist.txt     http://a/m   \n") << true << "a"
        << "mlist.txt"
        << "http://a/m"
        << "";
    QTest::newRow("longer page name does not match")
        << QByteArray("[a]\nmlist.txt.old http://a/old\nmlist.txt http://a/m\n") << true << "a"
        << "mlist.txt"
        << "http://a/m"
        << "";
    QTest::newRow("duplicate sections, first match wins")
        << QByteArray("[a]\nrlist.txt http://one/r\n\n[b]\n\n[a]\nmlist.txt http://two/m\n"
                      "rlist.txt http://two/r\n")
        << true << "a"
        << "rlist.txt"
        << "http://one/r"
        << "";
    QTest::newRow("duplicate sections, entry only in the second")
        << QByteArray("[a]\nrlist.txt http://one/r\n\n[b]\n\n[a]\nmlist.txt http://two/m\n") << true
        << "a"
        << "mlist.txt"
        << "http://two/m"
        << "";
    QTest::newRow("entry after a blank line is missing")
        << QByteArray("[a]\nrlist.txt http://a/r\n\nmlist.txt http://a/m\n") << true << "a"
        << "mlist.txt"
        << ""
        << "I don't have a URL for mlist.txt at a!";
    QTest::newRow("entry without a space is missing")
        << QByteArray("[a]\nmlist.txt\n") << true << "a"
        << "mlist.txt"
        << ""
        << "I don't have a URL for mlist.txt at a!";
    QTest::newRow("velkin page") << Ordinary << true << "velkin"
                                 << "advisory.txt"
                                 << "http://velkin.example/advisory.txt"
                                 << "";
    QTest::newRow("CR LF") << QByteArray("[a]\r\nmlist.txt http://a/m\r\n") << true << "a"
                           << "mlist.txt"
                           << "http://a/m"
                           << "";
    QTest::newRow("unknown source") << Ordinary << true << "Alpha"
                                    << "mlist.txt"
                                    << ""
                                    << "I don't have a URL for mlist.txt at Alpha!";
    QTest::newRow("missing file") << QByteArray() << false << "alpha"
                                  << "pubring.asc"
                                  << ""
                                  << "I don't have a URL for pubring.asc at alpha!";
}

void TestStatsSources::urlOfPage() {
    QFETCH(QByteArray, content);
    QFETCH(bool, exists);
    QFETCH(QString, source);
    QFETCH(QString, page);
    QFETCH(QString, url);
    QFETCH(QString, message);
    if (exists)
        writeUrls(content);
    QCOMPARE(list().urlOfPage(source, page), url);
    if (message.isEmpty()) {
        QVERIFY(m_ui.messages.isEmpty());
        return;
    }
    QCOMPARE(m_ui.messageTexts(), QStringList{message});
    QCOMPARE(m_ui.messages.first().type, Warning);
    QCOMPARE(m_ui.messages.first().buttons, int(MbOk));
    QCOMPARE(m_ui.messages.first().style, MsgStyle::CentredDialog);
}

// ---------------------------------------------------------------- source box

void TestStatsSources::sourceBox_data() {
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("exists");
    QTest::addColumn<QString>("select");
    QTest::addColumn<QStringList>("entries");
    QTest::addColumn<int>("selected");

    QTest::newRow("velkin left out")
        << Ordinary << true << "beta" << QStringList{"alpha", "beta"} << 1;
    QTest::newRow("lookup ignores case")
        << Ordinary << true << "BETA" << QStringList{"alpha", "beta"} << 1;
    QTest::newRow("name not in file selects the first")
        << Ordinary << true << "gamma" << QStringList{"alpha", "beta"} << 0;
    QTest::newRow("empty name selects the first")
        << Ordinary << true << "" << QStringList{"alpha", "beta"} << 0;
    QTest::newRow("velkin in other case is offered")
        << QByteArray("[a]\n[Velkin]\n[VELKIN]\n") << true << "velkin"
        << QStringList{"a", "Velkin", "VELKIN"} << 1;
    QTest::newRow("line beginning with [velkin] left out")
        << QByteArray("[velkin] old\n[velkin]x\n[a]\n") << true << "a" << QStringList{"a"} << 0;
    QTest::newRow("cut at the first bracket")
        << QByteArray("[alpha] old]\n[b]]\n") << true << "b" << QStringList{"alpha", "b"} << 1;
    QTest::newRow("header without bracket gives an empty entry")
        << QByteArray("[a]\n[broken\n[c]\n") << true << "c" << QStringList{"a", "", "c"} << 2;
    QTest::newRow("trailing blanks after the bracket")
        << QByteArray("[a]   \n") << true << "a" << QStringList{"a"} << 0;
    QTest::newRow("indented header not offered")
        << QByteArray("  [a]\n[b]\n") << true << "a" << QStringList{"b"} << 0;
    QTest::newRow("duplicates offered twice")
        << QByteArray("[a]\n[b]\n[a]\n") << true << "a" << QStringList{"a", "b", "a"} << 0;
    QTest::newRow("CR LF") << QByteArray("velkin urls\r\n[a]\r\n\r\n[b]\r\n[velkin]\r\n") << true
                           << "b" << QStringList{"a", "b"} << 1;
    QTest::newRow("no sections") << QByteArray("velkin urls\nmlist.txt http://a/m\n") << true << "a"
                                 << QStringList{} << -1;
    QTest::newRow("only velkin") << QByteArray("[velkin]\n") << true << "velkin" << QStringList{}
                                 << -1;
    QTest::newRow("missing file") << QByteArray() << false << "a" << QStringList{} << -1;
}

void TestStatsSources::sourceBox() {
    QFETCH(QByteArray, content);
    QFETCH(bool, exists);
    QFETCH(QString, select);
    QFETCH(QStringList, entries);
    QFETCH(int, selected);
    if (exists)
        writeUrls(content);
    const SourceBoxContent box = list().sourceBoxContent(select);
    QCOMPARE(box.entries, entries);
    QCOMPARE(box.selected, selected);
    QVERIFY(m_ui.messages.isEmpty());
}

void TestStatsSources::velkinFirst() {
    writeUrls("velkin urls\n[velkin]\nurls.txt http://v/urls.txt\n\n[a]\nmlist.txt http://a/m\n");
    const StatsSourceList sources = list();
    QCOMPARE(sources.defaultSource(), QStringLiteral("velkin"));
    QCOMPARE(sources.sourceNameByIndex(0), QStringLiteral("velkin"));
    QCOMPARE(sources.sourceNameByIndex(1), QStringLiteral("a"));
    // Filled at start-up with the default, the box cannot show it and falls
    // back to its first entry.
    const SourceBoxContent box = sources.sourceBoxContent(sources.sourceNameByIndex(0));
    QCOMPARE(box.entries, QStringList{"a"});
    QCOMPARE(box.selected, 0);
}

void TestStatsSources::twoReadersDiffer() {
    writeUrls("[alpha] old\nmlist.txt http://a/m\n\n[beta]\n\n[gamma] x\nrlist.txt http://g/r\n");
    const StatsSourceList sources = list();
    QCOMPARE(sources.sourceBoxContent("").entries, (QStringList{"alpha", "beta", "gamma"}));
    QCOMPARE(sources.sourceNameByIndex(0), QStringLiteral("alpha] ol"));
    QCOMPARE(sources.defaultSource(), QStringLiteral("alpha] ol"));
    QCOMPARE(sources.sourceNameByIndex(2), QStringLiteral("gamma] "));
    // The box's names still find the sections' pages.
    QCOMPARE(sources.urlOfPage("alpha", "mlist.txt"), QStringLiteral("http://a/m"));
    QCOMPARE(sources.urlOfPage("gamma", "rlist.txt"), QStringLiteral("http://g/r"));
    // The name by index is not one the box knows, so it falls back to the
    // first entry, while the box's own name is found.
    QCOMPARE(sources.sourceBoxContent(sources.sourceNameByIndex(2)).selected, 0);
    QCOMPARE(sources.sourceBoxContent("Gamma").selected, 2);
    QVERIFY(m_ui.messages.isEmpty());
}

void TestStatsSources::readsFileAfresh() {
    const StatsSourceList sources = list();
    QCOMPARE(sources.defaultSource(), QString());
    writeUrls("[a]\nmlist.txt http://a/m\n");
    QCOMPARE(sources.defaultSource(), QStringLiteral("a"));
    QCOMPARE(sources.urlOfPage("a", "mlist.txt"), QStringLiteral("http://a/m"));
    writeUrls("[b]\nmlist.txt http://b/m\n\n[a]\nmlist.txt http://a/new\n");
    QCOMPARE(sources.defaultSource(), QStringLiteral("b"));
    QCOMPARE(sources.urlOfPage("a", "mlist.txt"), QStringLiteral("http://a/new"));
    QVERIFY(QFile::remove(urlsPath()));
    QCOMPARE(sources.sourceBoxContent("a").entries, QStringList{});
}

// ---------------------------------------------------------------- move

void TestStatsSources::moveSource_data() {
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("source");
    QTest::addColumn<int>("position");
    QTest::addColumn<QByteArray>("result");

    const QByteArray four = "velkin urls\n"
                            "[a]\nmlist.txt http://a/m\n\n"
                            "[b]\nmlist.txt http://b/m\n\n"
                            "[c]\nmlist.txt http://c/m\nnote under c\n\n"
                            "[velkin]\nurls.txt http://v/u\n";
    QTest::newRow("last but one to the top")
        << four << "c" << 0
        << QByteArray("velkin urls\n"
                      "[c]\nmlist.txt http://c/m\nnote under c\n\n"
                      "[a]\nmlist.txt http://a/m\n\n"
                      "[b]\nmlist.txt http://b/m\n\n"
                      "[velkin]\nurls.txt http://v/u\n");
    QTest::newRow("to the middle") << four << "velkin" << 1
                                   << QByteArray("velkin urls\n"
                                                 "[a]\nmlist.txt http://a/m\n\n"
                                                 "[velkin]\nurls.txt http://v/u\n"
                                                 "[b]\nmlist.txt http://b/m\n\n"
                                                 "[c]\nmlist.txt http://c/m\nnote under c\n\n");
    QTest::newRow("first to the top stays") << four << "a" << 0 << four;
    QTest::newRow("to the last remaining header")
        << four << "a" << 2
        << QByteArray("velkin urls\n"
                      "[b]\nmlist.txt http://b/m\n\n"
                      "[c]\nmlist.txt http://c/m\nnote under c\n\n"
                      "[a]\nmlist.txt http://a/m\n\n"
                      "[velkin]\nurls.txt http://v/u\n");
    const QByteArray withoutB = "velkin urls\n"
                                "[a]\nmlist.txt http://a/m\n\n"
                                "[c]\nmlist.txt http://c/m\nnote under c\n\n"
                                "[velkin]\nurls.txt http://v/u\n";
    QTest::newRow("position of the header count drops the section") << four << "b" << 3 << withoutB;
    QTest::newRow("far past the end drops the section") << four << "b" << 99 << withoutB;
    QTest::newRow("negative position drops the section") << four << "b" << -1 << withoutB;
    QTest::newRow("unknown source saves unchanged") << four << "d" << 0 << four;
    QTest::newRow("header must be the whole line")
        << QByteArray("[a]\n[b] \nmlist.txt http://b/m\n") << "b" << 0
        << QByteArray("[a]\n[b] \nmlist.txt http://b/m\n");
    QTest::newRow("indented header is not found")
        << QByteArray("[a]\n [b]\n") << "b" << 0 << QByteArray("[a]\n [b]\n");
    QTest::newRow("name compared with case")
        << QByteArray("[a]\n[B]\n") << "b" << 0 << QByteArray("[a]\n[B]\n");
    const QByteArray indented = "[b]\n  [y]\n[a]\nA\n  [x]\nX\n[c]\n";
    QTest::newRow("indented header does not end the block")
        << indented << "a" << 0 << QByteArray("[a]\nA\n  [x]\nX\n[b]\n  [y]\n[c]\n");
    QTest::newRow("indented header is not counted")
        << indented << "a" << 1 << QByteArray("[b]\n  [y]\n[a]\nA\n  [x]\nX\n[c]\n");
    QTest::newRow("only the first of duplicates moves")
        << QByteArray("[a]\nA1\n[b]\nB\n[a]\nA2\n") << "a" << 1
        << QByteArray("[b]\nB\n[a]\nA1\n[a]\nA2\n");
    QTest::newRow("duplicate moved in front of its twin")
        << QByteArray("[x]\n[a]\nA1\n[b]\nB\n[a]\nA2\n") << "a" << 0
        << QByteArray("[a]\nA1\n[x]\n[b]\nB\n[a]\nA2\n");
    QTest::newRow("CR LF read, written with the platform's line ends")
        << QByteArray("[a]\r\nA\r\n\r\n[b]\r\nB\r\n") << "b" << 0
        << QByteArray("[b]\nB\n[a]\nA\n\n");
    QTest::newRow("no sections") << QByteArray("velkin urls\n") << "a" << 0
                                 << QByteArray("velkin urls\n");
}

void TestStatsSources::moveSource() {
    QFETCH(QByteArray, content);
    QFETCH(QString, source);
    QFETCH(int, position);
    QFETCH(QByteArray, result);
    writeUrls(content);
    QVERIFY(list().moveSource(source, position));
    QCOMPARE(TempEnvironment::readFile(urlsPath()), result);
    QVERIFY(m_ui.messages.isEmpty());
}

// The same obstacles as WriteSourceOrder meets in tst_sourceorder.
void TestStatsSources::moveSourceSaveFails_data() {
    AddSaveObstacleRows();
}

void TestStatsSources::moveSourceSaveFails() {
    QFETCH(QString, obstacle);
    CheckSaveRefused(obstacle, urlsPath(), m_ui, [this](const QString& path) {
        return StatsSourceList(path, &m_ui).moveSource("b", 0);
    });
}

// ---------------------------------------------------------------- odd files

void TestStatsSources::binaryFile_data() {
    QTest::addColumn<bool>("withSections");
    QTest::newRow("every byte value in turn") << false;
    QTest::newRow("noise around real sections") << true;
}

void TestStatsSources::binaryFile() {
    QFETCH(bool, withSections);
    static const char tail[] = "\n[velkin]\n\n[be\xe9ta] \xff\x00junk\n\nrlist.txt http://b/r\n";
    QByteArray bytes;
    if (!withSections) {
        // 0..255 over and over: NULs, CR, LF and high bytes, but no line ever
        // starts with "[".
        bytes.reserve(256 * 4096);
        for (int round = 0; round < 4096; ++round) {
            for (int b = 0; b < 256; ++b)
                bytes.append(char(b));
        }
    } else {
        QRandomGenerator random(20260816);
        auto noiseLine = [&random] {
            QByteArray line;
            const int length = 1 + int(random.bounded(300));
            for (int i = 0; i < length; ++i) {
                char c = char(random.bounded(256));
                if (c == '\n' || c == '\r')
                    c = '\0';
                if (i == 0 && (c == '[' || c <= ' '))
                    c = '\x7f'; // keep the noise from opening or closing a section
                line.append(c);
            }
            return line + '\n';
        };
        for (int i = 0; i < 2000; ++i)
            bytes += noiseLine();
        bytes += "\n[alpha]\nmlist.txt http://a/m\x01\xff\nno-space\n\n";
        for (int i = 0; i < 2000; ++i)
            bytes += noiseLine();
        bytes += QByteArray(tail, sizeof tail - 1);
        bytes += QByteArray(1 << 20, '\0') + '\n';
    }
    writeUrls(bytes);
    const StatsSourceList sources = list();
    if (!withSections) {
        QCOMPARE(sources.defaultSource(), QString());
        QCOMPARE(sources.sourceNameByIndex(0), QString());
        QCOMPARE(sources.sourceBoxContent("alpha").entries, QStringList{});
        QCOMPARE(sources.pageLines("alpha"), QStringList{});
        QCOMPARE(sources.urlOfPage("alpha", "mlist.txt"), QString());
        QCOMPARE(m_ui.messageTexts(), QStringList{"I don't have a URL for mlist.txt at alpha!"});
        // An unknown source saves the lines as they were read.
        QVERIFY(sources.moveSource("alpha", 0));
        QCOMPARE(ReadLines(urlsPath()), BytesToLines(bytes));
        return;
    }
    QCOMPARE(sources.defaultSource(), QStringLiteral("alpha"));
    QCOMPARE(sources.sourceNameByIndex(1), QStringLiteral("velkin"));
    const QString beta = QString::fromLatin1("be\xe9ta");
    QCOMPARE(sources.sourceBoxContent(beta.toUpper()).entries, (QStringList{"alpha", beta}));
    QCOMPARE(sources.sourceBoxContent(beta.toUpper()).selected, 1);
    QCOMPARE(sources.pageLines("alpha"),
             QStringList{QString::fromLatin1("mlist.txt http://a/m\x01\xff")});
    QCOMPARE(sources.urlOfPage("alpha", "mlist.txt"), QString::fromLatin1("http://a/m\x01\xff"));
    QCOMPARE(sources.pageLines(beta), QStringList{});
    QVERIFY(m_ui.messages.isEmpty());
    // Moving keeps every other byte: the noise survives the round trip.
    QVERIFY(sources.moveSource("velkin", 0));
    const QByteArray after = TempEnvironment::readFile(urlsPath());
    QCOMPARE(after.size(), bytes.size());
    QVERIFY(after.contains("\n\n[velkin]\n\n[alpha]\n"));
    QVERIFY(after.contains(QByteArray(tail + 11, sizeof tail - 12)));
    QCOMPARE(sources.defaultSource(), QStringLiteral("velkin"));
    QCOMPARE(sources.urlOfPage("alpha", "mlist.txt"), QString::fromLatin1("http://a/m\x01\xff"));
}

void TestStatsSources::largeFile() {
    // About 10 MB: 38,000 sections of five entries each.
    const int count = 38000;
    QByteArray bytes = "velkin urls\r\n";
    bytes.reserve(11 * 1024 * 1024);
    for (int i = 0; i < count; ++i) {
        const QByteArray n = QByteArray::number(i);
        bytes += "[src" + n + "]\r\n";
        for (const char* page : {"mlist.txt", "pubring.mix", "rlist.txt", "pubring.asc"})
            bytes += QByteArray(page) + " https://pinger" + n + ".example/" + page + "\r\n";
        bytes += "type2.list https://pinger" + n + ".example/type2.list\r\n\r\n";
    }
    bytes += "[velkin]\r\n";
    QVERIFY(bytes.size() > 10 * 1000 * 1000);
    writeUrls(bytes);

    const StatsSourceList sources = list();
    QCOMPARE(sources.defaultSource(), QStringLiteral("src0"));
    QCOMPARE(sources.sourceNameByIndex(count - 1), QStringLiteral("src37999"));
    QCOMPARE(sources.sourceNameByIndex(count), QStringLiteral("velkin"));
    QCOMPARE(sources.sourceNameByIndex(count + 1), QString());
    QCOMPARE(sources.pageNames("src19000"),
             (QStringList{"mlist.txt", "pubring.mix", "rlist.txt", "pubring.asc", "type2.list"}));
    QCOMPARE(sources.urlOfPage("src37999", "pubring.asc"),
             QStringLiteral("https://pinger37999.example/pubring.asc"));
    const SourceBoxContent box = sources.sourceBoxContent("SRC27777");
    QCOMPARE(box.entries.size(), count);
    QCOMPARE(box.selected, 27777);
    QVERIFY(m_ui.messages.isEmpty());

    QVERIFY(sources.moveSource("src37998", 0));
    QCOMPARE(sources.sourceNameByIndex(0), QStringLiteral("src37998"));
    QCOMPARE(sources.sourceNameByIndex(1), QStringLiteral("src0"));
    QCOMPARE(sources.sourceNameByIndex(count - 2), QStringLiteral("src37997"));
    QCOMPARE(sources.sourceNameByIndex(count - 1), QStringLiteral("src37999"));
    QCOMPARE(sources.sourceNameByIndex(count), QStringLiteral("velkin"));
    // Rewritten with one-byte line ends: one byte less per line.
    const qsizetype lines = 1 + qsizetype(count) * 7 + 1;
    QCOMPARE(QFileInfo(urlsPath()).size(), bytes.size() - lines);
}

// ---------------------------------------------------------------- shipped list

void TestStatsSources::defaultFileIsCompiledIn() {
    const QByteArray shipped = DefaultUrlsBytes();
    QVERIFY(!shipped.isEmpty());
    QFile source(QStringLiteral(VK_TESTDATA "/../../data/urls.txt"));
    QVERIFY2(source.open(QIODevice::ReadOnly), qPrintable(source.fileName()));
    QCOMPARE(shipped, source.readAll());
}

void TestStatsSources::defaultFileParses() {
    QVERIFY(InstallDefaultUrls(urlsPath()));
    const QStringList lines = ReadLines(urlsPath());
    QVERIFY(!lines.isEmpty());
    QCOMPARE(lines.first(), QStringLiteral("velkin urls"));

    const StatsSourceList sources = list();
    QStringList names;
    for (int i = 0;; ++i) {
        const QString name = sources.sourceNameByIndex(i);
        if (name.isEmpty())
            break;
        names.append(name);
    }
    QVERIFY(names.size() >= 2);
    QCOMPARE(names.last(), QStringLiteral("velkin"));
    QCOMPARE(names.count("velkin"), 1);
    QVERIFY(sources.pageLines("velkin").isEmpty());

    const QStringList pingers = names.mid(0, names.size() - 1);
    QCOMPARE(sources.sourceBoxContent("").entries, pingers);
    QCOMPARE(sources.defaultSource(), pingers.first());
    for (const QString& pinger : pingers) {
        const QStringList pages = sources.pageNames(pinger);
        for (const QString& page : FourPages) {
            QVERIFY2(pages.count(page) == 1, qPrintable(pinger + ": " + page));
            const QUrl url(sources.urlOfPage(pinger, page), QUrl::StrictMode);
            QVERIFY2(url.isValid() && (url.scheme() == "http" || url.scheme() == "https") &&
                         !url.host().isEmpty(),
                     qPrintable(pinger + ": " + url.toString()));
        }
        for (const QString& page : pages)
            QVERIFY2(FourPages.contains(page) || page == "type2.list",
                     qPrintable(pinger + ": " + page));
    }
    QVERIFY(m_ui.messages.isEmpty());

    // Every section but the last is closed by a blank line, so a hand-added
    // entry at the end of one cannot slip into the next.
    for (qsizetype i = 1; i < lines.size(); ++i) {
        if (lines.at(i).startsWith('[') && lines.at(i - 1) != "velkin urls")
            QVERIFY2(lines.at(i - 1).isEmpty(), qPrintable(lines.at(i)));
    }
    QVERIFY(!lines.last().isEmpty());
}

void TestStatsSources::installDefault_data() {
    QTest::addColumn<QString>("before");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<bool>("written");

    QTest::newRow("no urls.txt yet") << "nothing" << true << true;
    QTest::newRow("user's own file kept") << "file" << true << false;
    QTest::newRow("empty file kept") << "empty file" << true << false;
    QTest::newRow("directory left alone") << "directory" << true << false;
    QTest::newRow("dangling link left alone") << "dangling link" << true << false;
    QTest::newRow("folder missing") << "no folder" << false << false;
}

void TestStatsSources::installDefault() {
    QFETCH(QString, before);
    QFETCH(bool, ok);
    QFETCH(bool, written);
    QString path = urlsPath();
    const QByteArray mine = "velkin urls\n[mine]\nmlist.txt http://mine/m\n";
    if (before == "file")
        writeUrls(mine);
    else if (before == "empty file")
        writeUrls("");
    else if (before == "directory")
        QVERIFY(QDir().mkdir(path));
    else if (before == "dangling link")
        QVERIFY(QFile::link(ProgramFolder() + "nowhere/urls.txt", path));
    else if (before == "no folder")
        path = ProgramFolder() + "missing/urls.txt";

    QString error;
    bool didWrite = !written;
    QCOMPARE(InstallDefaultUrls(path, &error, &didWrite), ok);
    QCOMPARE(didWrite, written);
    QCOMPARE(error.isEmpty(), ok);
    if (before == "nothing")
        QCOMPARE(TempEnvironment::readFile(path), DefaultUrlsBytes());
    else if (before == "file")
        QCOMPARE(TempEnvironment::readFile(path), mine);
    else if (before == "empty file")
        QCOMPARE(QFileInfo(path).size(), 0);
    else if (before == "directory")
        QVERIFY(QFileInfo(path).isDir());
    else if (before == "dangling link")
        QVERIFY(QFileInfo(path).isSymLink() && !QFileInfo::exists(ProgramFolder() + "nowhere"));
    else
        QVERIFY(!QFileInfo::exists(path));
}

void TestStatsSources::installDefaultTwice() {
    bool written = false;
    QVERIFY(InstallDefaultUrls(urlsPath(), nullptr, &written));
    QVERIFY(written);
    // The user edits the list; a later start must not bring the default back.
    writeUrls("velkin urls\n[edited]\n");
    QVERIFY(InstallDefaultUrls(urlsPath(), nullptr, &written));
    QVERIFY(!written);
    QCOMPARE(TempEnvironment::readFile(urlsPath()), QByteArray("velkin urls\n[edited]\n"));
    QCOMPARE(list().defaultSource(), QStringLiteral("edited"));
}

QTEST_MAIN(TestStatsSources)
#include "tst_statssources.moc"
