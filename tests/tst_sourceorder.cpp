#include "Global2.h"
#include "SourceOrder.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TestFrontEnd.h"
#include "TextFile.h"
#include "UrlsCases.h"

#include <QTest>

#include <memory>

namespace {

QStringList list(const QString& field) {
    return field == u'-' ? QStringList() : field.split(u'|');
}

} // namespace

class TestSourceOrder : public QObject {
    Q_OBJECT
private slots:
    void init();

    void cases_data() { AddTableRows(QStringLiteral("sourceorder.txt")); }
    void cases();
    void rewriteKeepsWhatItWrote();
    void rewriteFails_data();
    void rewriteFails();

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

void TestSourceOrder::cases() {
    QFETCH(QStringList, f);
    const QString& kind = f[0];
    if (kind == "chosen") {
        QCOMPARE(ChosenUpdatePages(list(f[1])), list(f[2]));
        return;
    }
    const QStringList before = urlLines(f[1] == "<missing>" ? MissingUrls : f[1].toLatin1());
    if (kind == "names") {
        QCOMPARE(ReorderSourceNames(before), list(f[2]));
        QCOMPARE(UpdateSourceNames(before), list(f[3]));
    } else if (kind == "pages") {
        QCOMPARE(SectionPageNames(before, f[2]), list(f[3]));
    } else if (kind == "lines") {
        QCOMPARE(SectionLinesToWrite(before, f[2]), list(f[3]));
    } else if (kind == "rewrite") {
        QStringList order = list(f[2]);
        if (f[2] == "@reversed") {
            const QStringList listed = ReorderSourceNames(before);
            order = QStringList(listed.crbegin(), listed.crend());
        }
        const QStringList result = list(f[3]);
        compareLines(ReorderedUrlLines(before, order), result);
        if (QTest::currentTestFailed())
            return;
        QVERIFY(WriteSourceOrder(urlsPath(), order, &m_ui));
        QVERIFY(m_ui.messages.isEmpty());
        // Whole lines with the platform's line end, the last one too.
        QCOMPARE(TempEnvironment::readFile(urlsPath()), (result.join(u'\n') + u'\n').toLatin1());
    } else {
        QFAIL("unknown case kind");
    }
}

// Written once, the file reads back to the same sources and rewrites to
// itself.
void TestSourceOrder::rewriteKeepsWhatItWrote() {
    TempEnvironment::writeFile(urlsPath(), "velkin urls\n[alpha]\nmlist.txt http://a/m\n"
                                           "pubring.mix http://a/p\ntype2.list http://a/t\n\n"
                                           "[beta]\nmlist.txt http://b/m\n\n[velkin]\n");
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

QTEST_GUILESS_MAIN(TestSourceOrder)
#include "tst_sourceorder.moc"
