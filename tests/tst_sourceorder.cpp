#include "Global2.h"
#include "SourceOrder.h"
#include "TempEnvironment.h"
#include "TestFrontEnd.h"
#include "TextFile.h"
#include "UrlsCases.h"

#include <QTest>

#include <memory>

namespace {

// A list in the shape the program ships, with a second source and the suite's
// own section filled.
const QByteArray Ordinary = "velkin urls\n"
                            "[alpha]\n"
                            "mlist.txt http://alpha.example/mlist.txt\n"
                            "pubring.mix http://alpha.example/pubring.mix\n"
                            "type2.list http://alpha.example/type2.list\n"
                            "\n"
                            "[beta]\n"
                            "mlist.txt https://beta.example/Stats/MLIST.txt\n"
                            "\n"
                            "[velkin]\n"
                            "advisory.txt http://velkin.example/advisory.txt\n"
                            "urls.txt http://velkin.example/urls.txt\n";

} // namespace

class TestSourceOrder : public QObject {
    Q_OBJECT
private slots:
    void init();

    void sourceNames_data();
    void sourceNames();
    void sectionPageNames_data();
    void sectionPageNames();
    void sectionLinesToWrite_data();
    void sectionLinesToWrite();
    void rewrite_data();
    void rewrite();
    void rewriteKeepsWhatItWrote();
    void rewriteFails_data();
    void rewriteFails();
    void chosenPages_data();
    void chosenPages();

private:
    QString urlsPath() const { return ProgramFolder() + "urls.txt"; }
    // Writes the table's content as urls.txt (or leaves it out) and reads it
    // back the way the dialogs do.
    QStringList urlLines(const QByteArray& content) const;
    static void compareLines(const QStringList& actual, const QStringList& expected);

    std::unique_ptr<TempEnvironment> m_env;
    TestFrontEnd m_ui;
};

void TestSourceOrder::init() {
    m_env.reset(); // the old one restores the environment it found
    m_env = std::make_unique<TempEnvironment>();
    QVERIFY(m_env->isValid());
    m_ui = TestFrontEnd();
}

QStringList TestSourceOrder::urlLines(const QByteArray& content) const {
    PlaceUrls(urlsPath(), content);
    return ReadLines(urlsPath());
}

// Line by line, so a failure names the first line that differs.
void TestSourceOrder::compareLines(const QStringList& actual, const QStringList& expected) {
    const qsizetype common = qMin(actual.size(), expected.size());
    for (qsizetype i = 0; i < common; ++i) {
        QVERIFY2(actual.at(i) == expected.at(i),
                 qPrintable(QStringLiteral("line %1: \"%2\", expected \"%3\"")
                                .arg(i + 1)
                                .arg(actual.at(i), expected.at(i))));
    }
    QVERIFY2(actual.size() == expected.size(),
             qPrintable(QStringLiteral("%1 lines, expected %2:\n%3")
                            .arg(actual.size())
                            .arg(expected.size())
                            .arg(actual.join(u'\n'))));
}

// ---------------------------------------------------------------- names

void TestSourceOrder::sourceNames_data() {
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QStringList>("reorder");
    QTest::addColumn<QStringList>("update");

    QTest::newRow("ordinary") << Ordinary << QStringList{"alpha", "beta"}
                              << QStringList{"alpha", "beta"};
    QTest::newRow("missing file") << MissingUrls << QStringList() << QStringList();
    QTest::newRow("empty file") << QByteArray() << QStringList() << QStringList();
    // The reorder list drops only the last character, here the blank.
    QTest::newRow("blank after the bracket")
        << QByteArray("[alpha] \nmlist.txt http://a/m\n\n[beta]\n") << QStringList{"alpha]", "beta"}
        << QStringList{"alpha", "beta"};
    QTest::newRow("blank before the bracket")
        << QByteArray(" [alpha]\n\n[beta]\n") << QStringList{"beta"}
        << QStringList{"alpha", "beta"};
    QTest::newRow("[VELKIN]") << QByteArray("[alpha]\n\n[VELKIN]\nurls.txt http://v/u\n")
                              << QStringList{"alpha", "VELKIN"} << QStringList{"alpha"};
    QTest::newRow("[Velkin]") << QByteArray("[Velkin]\n\n[alpha]\n")
                              << QStringList{"Velkin", "alpha"} << QStringList{"alpha"};
    QTest::newRow("[velkin] with a blank after")
        << QByteArray("[velkin] \n\n[alpha]\n") << QStringList{"velkin]", "alpha"}
        << QStringList{"alpha"};
    QTest::newRow("duplicate sections")
        << QByteArray("[alpha]\nmlist.txt http://a/1\n\n[beta]\n\n[alpha]\nrlist.txt http://a/2\n")
        << QStringList{"alpha", "beta", "alpha"} << QStringList{"alpha", "beta", "alpha"};
    QTest::newRow("text before the first section")
        << QByteArray("velkin urls\nsome words here\nmlist.txt http://x/m\n[alpha]\n")
        << QStringList{"alpha"} << QStringList{"alpha"};
    QTest::newRow("text after the bracket")
        << QByteArray("[alpha] old pinger\n") << QStringList{"alpha] old pinge"}
        << QStringList{"alpha] old pinge"};
    QTest::newRow("lone bracket and empty name")
        << QByteArray("[\n[]\n[x]\n") << QStringList{"", "", "x"} << QStringList{"", "", "x"};
    QTest::newRow("CR LF") << QByteArray("velkin urls\r\n[alpha]\r\nmlist.txt http://a/m\r\n\r\n"
                                         "[beta] \r\n\r\n[velkin]\r\n")
                           << QStringList{"alpha", "beta]"} << QStringList{"alpha", "beta"};
    QTest::newRow("velkin first") << QByteArray("[velkin]\nurls.txt http://v/u\n\n[alpha]\n")
                                  << QStringList{"alpha"} << QStringList{"alpha"};
}

void TestSourceOrder::sourceNames() {
    QFETCH(QByteArray, content);
    QFETCH(QStringList, reorder);
    QFETCH(QStringList, update);
    const QStringList lines = urlLines(content);
    QCOMPARE(ReorderSourceNames(lines), reorder);
    QCOMPARE(UpdateSourceNames(lines), update);
}

// ---------------------------------------------------------------- pages

void TestSourceOrder::sectionPageNames_data() {
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("section");
    QTest::addColumn<QStringList>("pages");

    QTest::newRow("ordinary") << Ordinary << "alpha"
                              << QStringList{"mlist.txt", "pubring.mix", "type2.list"};
    QTest::newRow("velkin") << Ordinary << "velkin" << QStringList{"advisory.txt", "urls.txt"};
    QTest::newRow("missing file") << MissingUrls << "alpha" << QStringList();
    QTest::newRow("no such section") << Ordinary << "gamma" << QStringList();
    QTest::newRow("line without a blank is skipped")
        << QByteArray("[alpha]\nmlist.txt\npubring.mix http://a/p\nrlist.txt\tx\n") << "alpha"
        << QStringList{"pubring.mix"};
    QTest::newRow("several blanks and indented lines")
        << QByteArray("[alpha]\n   mlist.txt    http://a/m   \n\trlist.txt http://a/r\n") << "alpha"
        << QStringList{"mlist.txt", "rlist.txt"};
    QTest::newRow("blank line ends the section")
        << QByteArray("[alpha]\nmlist.txt http://a/m\n   \nrlist.txt http://a/r\n") << "alpha"
        << QStringList{"mlist.txt"};
    QTest::newRow("next header ends the section")
        << QByteArray("[alpha]\nmlist.txt http://a/m\n[beta]\nrlist.txt http://b/r\n") << "alpha"
        << QStringList{"mlist.txt"};
    QTest::newRow("duplicate sections both count")
        << QByteArray("[alpha]\nmlist.txt http://a/1\n\n[beta]\npubring.mix http://b/p\n\n"
                      "[alpha]\nrlist.txt http://a/2\nmlist.txt http://a/3\n")
        << "alpha" << QStringList{"mlist.txt", "rlist.txt", "mlist.txt"};
    // The line that ends a section is passed over with it, so a second
    // header right below is not read as a header.
    QTest::newRow("duplicate header right below the section")
        << QByteArray("[alpha]\nmlist.txt http://a/1\n[alpha]\nrlist.txt http://a/2\n") << "alpha"
        << QStringList{"mlist.txt"};
    QTest::newRow("header with text after the bracket opens it")
        << QByteArray("[alpha] old\nmlist.txt http://a/m\n") << "alpha" << QStringList{"mlist.txt"};
    QTest::newRow("indented header opens it")
        << QByteArray("  [alpha]\nmlist.txt http://a/m\n") << "alpha" << QStringList{"mlist.txt"};
    QTest::newRow("longer name does not open it")
        << QByteArray("[alphabet]\nmlist.txt http://a/m\n") << "alpha" << QStringList();
    QTest::newRow("names keep their case")
        << QByteArray("[Alpha]\nmlist.txt http://a/m\n\n[alpha]\nMLIST.TXT http://a/M\n") << "alpha"
        << QStringList{"MLIST.TXT"};
    QTest::newRow("CR LF") << QByteArray("[alpha]\r\nmlist.txt http://a/m\r\n"
                                         "type2.list http://a/t\r\n\r\nrlist.txt http://a/r\r\n")
                           << "alpha" << QStringList{"mlist.txt", "type2.list"};
    QTest::newRow("section at the end without a line end")
        << QByteArray("[alpha]\nmlist.txt http://a/m") << "alpha" << QStringList{"mlist.txt"};
}

void TestSourceOrder::sectionPageNames() {
    QFETCH(QByteArray, content);
    QFETCH(QString, section);
    QFETCH(QStringList, pages);
    QCOMPARE(SectionPageNames(urlLines(content), section), pages);
}

// ---------------------------------------------------------------- section lines

void TestSourceOrder::sectionLinesToWrite_data() {
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("section");
    QTest::addColumn<QStringList>("lines");

    QTest::newRow("ordinary") << Ordinary << "beta"
                              << QStringList{"mlist.txt https://beta.example/Stats/MLIST.txt"};
    QTest::newRow("missing file") << MissingUrls << "beta" << QStringList();
    QTest::newRow("trimmed, lines without a blank kept")
        << QByteArray(
               "[alpha]\n  mlist.txt   http://a/m  \njust-a-note\n\tpubring.mix http://a/p\n")
        << "alpha"
        << QStringList{"mlist.txt   http://a/m", "just-a-note", "pubring.mix http://a/p"};
    QTest::newRow("only the first of two sections")
        << QByteArray("[alpha]\nmlist.txt http://a/1\n\n[alpha]\nrlist.txt http://a/2\n") << "alpha"
        << QStringList{"mlist.txt http://a/1"};
    QTest::newRow("header must be the whole trimmed line")
        << QByteArray("[alpha] old\nmlist.txt http://a/1\n\n  [alpha]  \nrlist.txt http://a/2\n")
        << "alpha" << QStringList{"rlist.txt http://a/2"};
    QTest::newRow("exact case") << QByteArray("[ALPHA]\nmlist.txt http://a/1\n") << "alpha"
                                << QStringList();
    QTest::newRow("stops at the next header")
        << QByteArray("[alpha]\nmlist.txt http://a/1\n[beta]\nrlist.txt http://b/r\n") << "alpha"
        << QStringList{"mlist.txt http://a/1"};
    QTest::newRow("empty section")
        << QByteArray("[alpha]\n\nmlist.txt http://a/1\n") << "alpha" << QStringList();
}

void TestSourceOrder::sectionLinesToWrite() {
    QFETCH(QByteArray, content);
    QFETCH(QString, section);
    QFETCH(QStringList, lines);
    QCOMPARE(SectionLinesToWrite(urlLines(content), section), lines);
}

// ---------------------------------------------------------------- rewrite

void TestSourceOrder::rewrite_data() {
    QTest::addColumn<QByteArray>("content");
    // The order to write; empty means the order the reorder dialog lists,
    // reversed.
    QTest::addColumn<QStringList>("order");
    QTest::addColumn<QStringList>("result");

    QTest::newRow("ordinary, reversed")
        << Ordinary << QStringList()
        << QStringList{"[beta]",
                       "mlist.txt https://beta.example/Stats/MLIST.txt",
                       "",
                       "[alpha]",
                       "mlist.txt http://alpha.example/mlist.txt",
                       "pubring.mix http://alpha.example/pubring.mix",
                       "type2.list http://alpha.example/type2.list",
                       "",
                       "[velkin]",
                       "advisory.txt http://velkin.example/advisory.txt",
                       "urls.txt http://velkin.example/urls.txt"};
    QTest::newRow("same order still drops the first line")
        << QByteArray("velkin urls\n[a]\nmlist.txt http://a/m\n\n[velkin]\n") << QStringList{"a"}
        << QStringList{"[a]", "mlist.txt http://a/m", "", "[velkin]"};
    QTest::newRow("missing file, no sources")
        << MissingUrls << QStringList() << QStringList{"[velkin]"};
    QTest::newRow("missing file, a source named")
        << MissingUrls << QStringList{"a"} << QStringList{"[a]", "", "[velkin]"};
    // Listed as "a]", written back as "[a]]" and no longer found.
    QTest::newRow("blank after the bracket")
        << QByteArray("[a] \nmlist.txt http://a/m\n\n[b]\nrlist.txt http://b/r\n\n[velkin]\n")
        << QStringList() << QStringList{"[b]", "rlist.txt http://b/r", "", "[a]]", "", "[velkin]"};
    QTest::newRow("[VELKIN] is a source here")
        << QByteArray("[VELKIN]\nurls.txt http://V/u\n\n[a]\nmlist.txt http://a/m\n\n"
                      "[velkin]\nurls.txt http://v/u\n")
        << QStringList() << QStringList{"[a]",      "mlist.txt http://a/m", "",
                                        "[VELKIN]", "urls.txt http://V/u",  "",
                                        "[velkin]", "urls.txt http://v/u"};
    QTest::newRow("[Velkin] is a source here")
        << QByteArray("[a]\nmlist.txt http://a/m\n\n[Velkin]\nurls.txt http://V/u\n")
        << QStringList{"Velkin", "a"}
        << QStringList{"[Velkin]", "urls.txt http://V/u", "", "[a]", "mlist.txt http://a/m", "",
                       "[velkin]"};
    QTest::newRow("velkin first goes last")
        << QByteArray("[velkin]\nadvisory.txt http://v/a\n\n[a]\nmlist.txt http://a/m\n")
        << QStringList()
        << QStringList{"[a]", "mlist.txt http://a/m", "", "[velkin]", "advisory.txt http://v/a"};
    // Both rows get the first section's lines; the second section is lost.
    QTest::newRow("duplicate sections")
        << QByteArray("[a]\nmlist.txt http://a/1\n\n[b]\nmlist.txt http://b/1\n\n"
                      "[a]\nrlist.txt http://a/2\n")
        << QStringList()
        << QStringList{"[a]", "mlist.txt http://a/1", "", "[b]",     "mlist.txt http://b/1", "",
                       "[a]", "mlist.txt http://a/1", "", "[velkin]"};
    QTest::newRow("text before the first section dropped")
        << QByteArray("velkin urls\n# my pingers\nmlist.txt http://stray/m\n\n[a]\n"
                      "mlist.txt http://a/m\n")
        << QStringList() << QStringList{"[a]", "mlist.txt http://a/m", "", "[velkin]"};
    QTest::newRow("lines without a blank and indented lines kept, trimmed")
        << QByteArray("[a]\n   mlist.txt http://a/m   \nnote\n\ttype2.list http://a/t\n")
        << QStringList()
        << QStringList{"[a]",     "mlist.txt http://a/m", "note", "type2.list http://a/t", "",
                       "[velkin]"};
    QTest::newRow("entries below a blank line dropped")
        << QByteArray("[a]\nmlist.txt http://a/m\n\n\nrlist.txt http://a/r\n[velkin]\n"
                      "urls.txt http://v/u\n\nadvisory.txt http://v/a\n")
        << QStringList()
        << QStringList{"[a]", "mlist.txt http://a/m", "", "[velkin]", "urls.txt http://v/u"};
    QTest::newRow("source left out of the order is dropped")
        << Ordinary << QStringList{"beta"}
        << QStringList{"[beta]",
                       "mlist.txt https://beta.example/Stats/MLIST.txt",
                       "",
                       "[velkin]",
                       "advisory.txt http://velkin.example/advisory.txt",
                       "urls.txt http://velkin.example/urls.txt"};
    QTest::newRow("CR LF") << QByteArray(
                                  "velkin urls\r\n[a]\r\nmlist.txt http://a/m\r\n\r\n[b]\r\n"
                                  "rlist.txt http://b/r\r\n\r\n[velkin]\r\nurls.txt http://v/u\r\n")
                           << QStringList() << QStringList{"[b]",      "rlist.txt http://b/r", "",
                                                           "[a]",      "mlist.txt http://a/m", "",
                                                           "[velkin]", "urls.txt http://v/u"};
}

void TestSourceOrder::rewrite() {
    QFETCH(QByteArray, content);
    QFETCH(QStringList, order);
    QFETCH(QStringList, result);
    const QStringList before = urlLines(content);
    if (order.isEmpty()) {
        const QStringList listed = ReorderSourceNames(before);
        order = QStringList(listed.crbegin(), listed.crend());
    }
    compareLines(ReorderedUrlLines(before, order), result);
    if (QTest::currentTestFailed())
        return;

    QVERIFY(WriteSourceOrder(urlsPath(), order, &m_ui));
    QVERIFY(m_ui.messages.isEmpty());
    compareLines(ReadLines(urlsPath()), result);
    if (QTest::currentTestFailed())
        return;
    // Whole lines with the platform's line end, the last one too.
    QCOMPARE(TempEnvironment::readFile(urlsPath()), (result.join(u'\n') + u'\n').toLatin1());
}

// Written once, the file reads back to the same sources and rewrites to
// itself.
void TestSourceOrder::rewriteKeepsWhatItWrote() {
    TempEnvironment::writeFile(urlsPath(), Ordinary);
    QVERIFY(WriteSourceOrder(urlsPath(), {"beta", "alpha"}, &m_ui));
    const QByteArray first = TempEnvironment::readFile(urlsPath());
    const QStringList lines = ReadLines(urlsPath());
    QCOMPARE(ReorderSourceNames(lines), QStringList({"beta", "alpha"}));
    QCOMPARE(SectionPageNames(lines, "alpha"),
             QStringList({"mlist.txt", "pubring.mix", "type2.list"}));
    QVERIFY(WriteSourceOrder(urlsPath(), ReorderSourceNames(lines), &m_ui));
    QCOMPARE(TempEnvironment::readFile(urlsPath()), first);
    QVERIFY(m_ui.messages.isEmpty());
}

// The same obstacles as StatsSourceList::moveSource meets in tst_statssources.
void TestSourceOrder::rewriteFails_data() {
    AddSaveObstacleRows();
}

void TestSourceOrder::rewriteFails() {
    QFETCH(QString, obstacle);
    CheckSaveRefused(obstacle, urlsPath(), m_ui, [this](const QString& path) {
        return WriteSourceOrder(path, {"b", "a"}, &m_ui);
    });
}

// ---------------------------------------------------------------- chosen pages

void TestSourceOrder::chosenPages_data() {
    QTest::addColumn<QStringList>("ticked");
    QTest::addColumn<QStringList>("chosen");
    QTest::newRow("none") << QStringList() << QStringList();
    QTest::newRow("type2.list left out") << QStringList{"mlist.txt", "type2.list", "pubring.mix"}
                                         << QStringList{"mlist.txt", "pubring.mix"};
    QTest::newRow("only type2.list") << QStringList{"type2.list"} << QStringList();
    QTest::newRow("list order kept") << QStringList{"rlist.txt", "mlist.txt", "pubring.asc"}
                                     << QStringList{"rlist.txt", "mlist.txt", "pubring.asc"};
    QTest::newRow("every copy left out")
        << QStringList{"type2.list", "mlist.txt", "type2.list"} << QStringList{"mlist.txt"};
    // The name is matched as the program writes it; other spellings are
    // fetched like any page.
    QTest::newRow("other spelling kept") << QStringList{"TYPE2.LIST", "type2.list.old"}
                                         << QStringList{"TYPE2.LIST", "type2.list.old"};
}

void TestSourceOrder::chosenPages() {
    QFETCH(QStringList, ticked);
    QFETCH(QStringList, chosen);
    QCOMPARE(ChosenUpdatePages(ticked), chosen);
}

QTEST_GUILESS_MAIN(TestSourceOrder)
#include "tst_sourceorder.moc"
