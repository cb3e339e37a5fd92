#include "Global2.h"
#include "StatsSources.h"
#include "TempEnvironment.h"
#include "TestData.h"
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

class TestStatsSources : public QObject {
    Q_OBJECT
private slots:
    void init();

    void readings_data() { AddTableRows(QStringLiteral("urls.txt")); }
    void readings();
    void twoReadersDiffer();
    void readsFileAfresh();

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

void TestStatsSources::readings() {
    QFETCH(QStringList, f);
    QVERIFY(PlaceUrls(urlsPath(), f[1] == u'-' ? MissingUrls : f[1].toLatin1()));
    const StatsSourceList sources = list();
    const QString& kind = f[0];
    if (kind == "name") {
        QCOMPARE(sources.sourceNameByIndex(f[2].toInt()), f[3]);
        if (f[2] == u'0')
            QCOMPARE(sources.defaultSource(), f[3]);
    } else if (kind == "lines") {
        QCOMPARE(sources.pageLines(f[2]).join(u'|'), f[3]);
    } else if (kind == "marked") {
        QCOMPARE(sources.markedPages("a", f[2].split(u'|')).join(u'|'), f[3]);
    } else if (kind == "url") {
        QCOMPARE(sources.urlOfPage(f[2], f[3]), f[4]);
        if (!f[5].isEmpty()) {
            QCOMPARE(m_ui.messageTexts(), QStringList{f[5]});
            QCOMPARE(m_ui.messages.first().type, Warning);
            QCOMPARE(m_ui.messages.first().buttons, int(MbOk));
            QCOMPARE(m_ui.messages.first().style, MsgStyle::CentredDialog);
            return;
        }
    } else if (kind == "box") {
        const SourceBoxContent box = sources.sourceBoxContent(f[2]);
        QCOMPARE(box.entries.join(u'|'), f[3]);
        QCOMPARE(box.selected, f[4].toInt());
    } else if (kind == "move") {
        QVERIFY(sources.moveSource(f[2], f[3].toInt()));
        QCOMPARE(TempEnvironment::readFile(urlsPath()), f[4].toLatin1());
    } else {
        QFAIL("unknown case kind");
    }
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
        for (const QString& page : StatsPages) {
            QVERIFY2(pages.count(page) == 1, qPrintable(pinger + ": " + page));
            const QUrl url(sources.urlOfPage(pinger, page), QUrl::StrictMode);
            QVERIFY2(url.isValid() && (url.scheme() == "http" || url.scheme() == "https") &&
                         !url.host().isEmpty(),
                     qPrintable(pinger + ": " + url.toString()));
        }
        for (const QString& page : pages)
            QVERIFY2(StatsPages.contains(page) || page == "type2.list",
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
