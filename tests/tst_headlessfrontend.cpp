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
    void messageBreaksOpenLine();
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
