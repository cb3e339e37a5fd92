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
    void pageLines_data();
    void pageLines();
    void markedPages_data();
    void markedPages();
    void urlOfPage_data();
    void urlOfPage();
    void sourceBox_data();
    void sourceBox();
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

// ------------------------------------------------- by index, and the default

void TestStatsSources::sourceNameByIndex_data() {
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("name");

    const QByteArray three = "[a]\nmlist.txt http://a/\n\n[b]\n\n[c]\n";
    QTest::newRow("first") << three << 0 << "a";
    QTest::newRow("third") << three << 2 << "c";
    QTest::newRow("past the end") << three << 3 << "";
    QTest::newRow("negative") << three << -1 << "";
    QTest::newRow("lines before the first header")
        << QByteArray("velkin urls\n\nsome note\n  [first]\n[second]\n") << 0 << "first";
    QTest::newRow("velkin counted") << QByteArray("[a]\n[velkin]\n[b]\n") << 1 << "velkin";
    QTest::newRow("velkin first is the default")
        << QByteArray("[velkin]\n\n[a]\n") << 0 << "velkin";
    QTest::newRow("indented header counted") << QByteArray("[a]\n   [b]  \n") << 1 << "b";
    QTest::newRow("header without bracket loses its last letter")
        << QByteArray("[beta\n") << 0 << "bet";
    QTest::newRow("lone bracket") << QByteArray("[\n[x]\n") << 0 << "";
    QTest::newRow("lone bracket counted") << QByteArray("[\n[x]\n") << 1 << "x";
    QTest::newRow("CR LF") << QByteArray("velkin urls\r\n[a]\r\n\r\n[b]\r\n") << 1 << "b";
    QTest::newRow("no sections") << QByteArray("velkin urls\nmlist.txt http://a/\n") << 0 << "";
    QTest::newRow("missing file") << MissingUrls << 0 << "";
}

// The default source is the name of the first header.
void TestStatsSources::sourceNameByIndex() {
    QFETCH(QByteArray, content);
    QFETCH(int, index);
    QFETCH(QString, name);
    QVERIFY(PlaceUrls(urlsPath(), content));
    QCOMPARE(list().sourceNameByIndex(index), name);
    if (index == 0)
        QCOMPARE(list().defaultSource(), name);
    QVERIFY(m_ui.messages.isEmpty());
}

// ---------------------------------------------------------------- page lines

void TestStatsSources::pageLines_data() {
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("source");
    QTest::addColumn<QStringList>("lines");

    const auto row = [](const char* tag, const QByteArray& content, const char* source,
                        const QStringList& lines) {
        QTest::newRow(tag) << content << source << lines;
    };
    row("ordinary", Ordinary, "alpha",
        {"mlist.txt http://alpha.example/mlist.txt", "rlist.txt http://alpha.example/rlist.txt"});
    row("line of blanks ends the section",
        "[a]\nmlist.txt http://a/m\n  \t \nrlist.txt http://a/r\n", "a", {"mlist.txt http://a/m"});
    row("entry without a space skipped, later lines read",
        "[a]\nmlist.txt\nrlist.txt http://a/r\npubring.asc http://a/k\n", "a",
        {"rlist.txt http://a/r", "pubring.asc http://a/k"});
    row("tab is not a space", "[a]\nmlist.txt\thttp://a/m\nrlist.txt http://a/r\n", "a",
        {"rlist.txt http://a/r"});
    row("entries trimmed", "[a]\n   mlist.txt   http://a/m   \n", "a", {"mlist.txt   http://a/m"});
    row("indented header ends the section",
        "[a]\nmlist.txt http://a/m\n   [b]\nrlist.txt http://b/r\n", "a", {"mlist.txt http://a/m"});
    row("indented header opens the section",
        "[a]\nmlist.txt http://a/m\n   [b]  \nrlist.txt http://b/r\n", "b",
        {"rlist.txt http://b/r"});
    row("duplicate sections apart",
        "[a]\nmlist.txt http://one/m\n\n[b]\nmlist.txt http://b/m\n\n"
        "[a]\nmlist.txt http://two/m\nrlist.txt http://two/r\n",
        "a", {"mlist.txt http://one/m", "mlist.txt http://two/m", "rlist.txt http://two/r"});
    row("duplicate sections back to back",
        "[a]\nmlist.txt http://one/m\n[a]\nrlist.txt http://two/r\n", "a",
        {"mlist.txt http://one/m", "rlist.txt http://two/r"});
    row("name compared with case", "[Alpha]\nmlist.txt http://a/m\n", "alpha", {});
    row("longer name is another source", "[alphabet]\nmlist.txt http://a/m\n", "alpha", {});
    row("unknown source", Ordinary, "gamma", {});
}

// pageNames, the same lines cut at their first blank, is checked through
// markedPages and with the large file.
void TestStatsSources::pageLines() {
    QFETCH(QByteArray, content);
    QFETCH(QString, source);
    QFETCH(QStringList, lines);
    writeUrls(content);
    QCOMPARE(list().pageLines(source), lines);
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
    QTest::newRow("caption case must match")
        << source << QStringList{"MLIST.TXT", "pubring.mix"} << QStringList{"pubring.mix"};
    QTest::newRow("page written in capitals is not the menu's page")
        << QByteArray("[a]\nMLIST.TXT http://a/m\nrlist.txt http://a/r\n")
        << QStringList{"mlist.txt", "rlist.txt"} << QStringList{"rlist.txt"};
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
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("page");
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("message");

    const auto row = [](const char* tag, const QByteArray& content, const char* source,
                        const char* page, const char* url, const char* message = "") {
        QTest::newRow(tag) << content << source << page << url << message;
    };
    row("URL keeps its case", Ordinary, "beta", "mlist.txt",
        "https://beta.example/Stats/MLIST.txt");
    row("page name in capitals found", "[a]\nMLIST.TXT HTTP://Example.COM/Stats/MList.TXT\n", "a",
        "mlist.txt", "HTTP://Example.COM/Stats/MList.TXT");
    row("page asked in capitals is not found", "[a]\nmlist.txt http://a/m\n", "a", "MLIST.TXT", "",
        "I don't have a URL for MLIST.TXT at a!");
    row("blanks around the URL trimmed", "[a]\n  mlist.txt     http://a/m   \n", "a", "mlist.txt",
        "http://a/m");
    row("longer page name does not match",
        "[a]\nmlist.txt.old http://a/old\nmlist.txt http://a/m\n", "a", "mlist.txt", "http://a/m");
    row("duplicate sections, first match wins",
        "[a]\nrlist.txt http://one/r\n\n[b]\n\n[a]\nmlist.txt http://two/m\n"
        "rlist.txt http://two/r\n",
        "a", "rlist.txt", "http://one/r");
    row("missing file", MissingUrls, "alpha", "pubring.asc", "",
        "I don't have a URL for pubring.asc at alpha!");
}

void TestStatsSources::urlOfPage() {
    QFETCH(QByteArray, content);
    QFETCH(QString, source);
    QFETCH(QString, page);
    QFETCH(QString, url);
    QFETCH(QString, message);
    QVERIFY(PlaceUrls(urlsPath(), content));
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
    QTest::addColumn<QString>("select");
    QTest::addColumn<QStringList>("entries");
    QTest::addColumn<int>("selected");

    QTest::newRow("velkin left out") << Ordinary << "beta" << QStringList{"alpha", "beta"} << 1;
    QTest::newRow("lookup ignores case") << Ordinary << "BETA" << QStringList{"alpha", "beta"} << 1;
    // Filled at start-up with a default of velkin, the box cannot show it.
    QTest::newRow("velkin first selects the first entry")
        << QByteArray("[velkin]\nurls.txt http://v/u\n\n[a]\n") << "velkin" << QStringList{"a"}
        << 0;
    QTest::newRow("name not in file selects the first")
        << Ordinary << "gamma" << QStringList{"alpha", "beta"} << 0;
    QTest::newRow("velkin in other case is offered")
        << QByteArray("[a]\n[Velkin]\n[VELKIN]\n") << "velkin"
        << QStringList{"a", "Velkin", "VELKIN"} << 1;
    QTest::newRow("line beginning with [velkin] left out")
        << QByteArray("[velkin] old\n[velkin]x\n[a]\n") << "a" << QStringList{"a"} << 0;
    QTest::newRow("cut at the first bracket")
        << QByteArray("[alpha] old]\n[b]]\n") << "b" << QStringList{"alpha", "b"} << 1;
    QTest::newRow("header without bracket gives an empty entry")
        << QByteArray("[a]\n[broken\n[c]\n") << "c" << QStringList{"a", "", "c"} << 2;
    QTest::newRow("indented header not offered")
        << QByteArray("  [a]\n[b]\n") << "a" << QStringList{"b"} << 0;
    QTest::newRow("duplicates offered twice")
        << QByteArray("[a]\n[b]\n[a]\n") << "a" << QStringList{"a", "b", "a"} << 0;
    QTest::newRow("no sections") << QByteArray("velkin urls\nmlist.txt http://a/m\n") << "a"
                                 << QStringList{} << -1;
    QTest::newRow("only velkin") << QByteArray("[velkin]\n") << "velkin" << QStringList{} << -1;
}

void TestStatsSources::sourceBox() {
    QFETCH(QByteArray, content);
    QFETCH(QString, select);
    QFETCH(QStringList, entries);
    QFETCH(int, selected);
    writeUrls(content);
    const SourceBoxContent box = list().sourceBoxContent(select);
    QCOMPARE(box.entries, entries);
    QCOMPARE(box.selected, selected);
    QVERIFY(m_ui.messages.isEmpty());
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
    const QByteArray withoutB = "velkin urls\n"
                                "[a]\nmlist.txt http://a/m\n\n"
                                "[c]\nmlist.txt http://c/m\nnote under c\n\n"
                                "[velkin]\nurls.txt http://v/u\n";
    QTest::newRow("position of the header count drops the section") << four << "b" << 3 << withoutB;
    QTest::newRow("negative position drops the section") << four << "b" << -1 << withoutB;
    QTest::newRow("unknown source saves unchanged") << four << "d" << 0 << four;
    QTest::newRow("header must be the whole line")
        << QByteArray("[a]\n[b] \nmlist.txt http://b/m\n") << "b" << 0
        << QByteArray("[a]\n[b] \nmlist.txt http://b/m\n");
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
    QTest::newRow("CR LF read, written with the platform's line ends")
        << QByteArray("[a]\r\nA\r\n\r\n[b]\r\nB\r\n") << "b" << 0
        << QByteArray("[b]\nB\n[a]\nA\n\n");
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

QTEST_MAIN(TestStatsSources)
#include "tst_statssources.moc"
