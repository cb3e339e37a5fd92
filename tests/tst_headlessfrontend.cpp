#include "Global2.h"
#include "HeadlessFrontEnd.h"
#include "PageSet.h"

#include <QElapsedTimer>
#include <QTest>
#include <QTimer>

#include <cstdio>

namespace {

// Everything written to a stream so far.
QByteArray contents(std::FILE* file) {
    std::fflush(file);
    const long size = std::ftell(file);
    QByteArray bytes(size, '\0');
    std::rewind(file);
    const size_t read = std::fread(bytes.data(), 1, size_t(size), file);
    bytes.truncate(qsizetype(read));
    std::fseek(file, 0, SEEK_END);
    return bytes;
}

} // namespace

class TestHeadlessFrontEnd : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void answers_data();
    void answers();
    void statusPageFollowed();
    void messageBreaksOpenLine();
    void localStatusPageNotPrinted();
    void pausesOnlyHandlePendingEvents();

private:
    std::FILE* m_out = nullptr;
    std::FILE* m_err = nullptr;
};

void TestHeadlessFrontEnd::init() {
    m_out = std::tmpfile();
    m_err = std::tmpfile();
    QVERIFY(m_out && m_err);
}

void TestHeadlessFrontEnd::cleanup() {
    std::fclose(m_out);
    std::fclose(m_err);
}

void TestHeadlessFrontEnd::answers_data() {
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("buttons");
    QTest::addColumn<int>("answer");
    QTest::addColumn<QByteArray>("printed");

    QTest::newRow("notice") << int(Information) << int(MbOk) << int(IdOk)
                            << QByteArray("Information: note\n");
    QTest::newRow("ok or cancel") << int(Confirm) << int(MbOkCancel) << int(IdCancel)
                                  << QByteArray("Confirm: note\n");
    QTest::newRow("yes or no") << int(Warning) << int(MbYesNo) << int(IdNo)
                               << QByteArray("Warning: note\n");
    QTest::newRow("yes, no or cancel")
        << int(Confirm) << int(MbYesNoCancel) << int(IdNo) << QByteArray("Confirm: note\n");
    QTest::newRow("no icon") << int(NoIcon) << int(MbOk) << int(IdOk)
                             << (ProgramName() + QStringLiteral(": note\n")).toLocal8Bit();
}

void TestHeadlessFrontEnd::answers() {
    QFETCH(int, type);
    QFETCH(int, buttons);
    QFETCH(int, answer);
    QFETCH(QByteArray, printed);
    HeadlessFrontEnd ui(m_out, m_err);
    QVERIFY(!ui.isInteractive());
    QCOMPARE(ui.showMessage("note", MsgDlgType(type), buttons, MsgStyle::CentredDialog), answer);
    QCOMPARE(contents(m_err), printed);
    QCOMPARE(contents(m_out), QByteArray());
}

// Lines come out as they are written; the last one stays open for the
// result word that follows it.
void TestHeadlessFrontEnd::statusPageFollowed() {
    HeadlessFrontEnd ui(m_out, m_err);
    PageSet pages(&ui);
    ui.watch(pages);
    auto status = pages.makeDocument("download", "status.txt", true, {});
    PageView* view = status->Viewer;
    view->appendLine("Sat Nov 21 10:00:00 2026");
    pages.addPage("status", std::move(status));
    QCOMPARE(contents(m_out), QByteArray("Sat Nov 21 10:00:00 2026"));
    view->appendLine("mlist.txt...");
    QCOMPARE(contents(m_out), QByteArray("Sat Nov 21 10:00:00 2026\nmlist.txt..."));
    view->appendToLastLine("ok");
    view->appendLine(QString());
    view->appendLine("NEW Mixmaster Remailers:");
    ui.finish();
    QCOMPARE(contents(m_out),
             QByteArray("Sat Nov 21 10:00:00 2026\nmlist.txt...ok\n\nNEW Mixmaster Remailers:\n"));
    ui.finish();
    QCOMPARE(contents(m_out).count('\n'), 4);
}

void TestHeadlessFrontEnd::messageBreaksOpenLine() {
    HeadlessFrontEnd ui(m_out, m_err);
    PageSet pages(&ui);
    ui.watch(pages);
    auto status = pages.makeDocument("download", "status.txt", true, {});
    PageView* view = status->Viewer;
    pages.addPage("status", std::move(status));
    view->appendLine("rlist.txt...");
    ui.showMessage("no URL", Warning, MbOk, MsgStyle::CentredDialog);
    view->appendToLastLine("timed out");
    view->appendLine("next source...");
    ui.finish();
    QCOMPARE(contents(m_out), QByteArray("rlist.txt...\ntimed out\nnext source...\n"));
    QCOMPARE(contents(m_err), QByteArray("Warning: no URL\n"));
}

void TestHeadlessFrontEnd::localStatusPageNotPrinted() {
    HeadlessFrontEnd ui(m_out, m_err);
    PageSet pages(&ui);
    ui.watch(pages);
    auto old = pages.makeDocument(PageSet::localFile(), "status.txt", false, {"last run"});
    pages.addPage("status", std::move(old));
    QCOMPARE(contents(m_out), QByteArray());
}

// Without a window nothing repaints: a pause handles what is pending and
// returns, however long it was asked to be.
void TestHeadlessFrontEnd::pausesOnlyHandlePendingEvents() {
    HeadlessFrontEnd frontEnd(m_out, m_err);
    bool handled = false;
    QTimer::singleShot(0, this, [&] { handled = true; });
    QElapsedTimer clock;
    clock.start();
    WaitTicks(&frontEnd, 60000);
    QVERIFY(handled);
    QVERIFY2(clock.elapsed() < 30000, qPrintable(QString::number(clock.elapsed())));
}

QTEST_MAIN(TestHeadlessFrontEnd)
#include "tst_headlessfrontend.moc"
