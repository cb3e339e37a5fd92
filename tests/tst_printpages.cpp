#include "AboutDlgs2.h"
#include "PrintDocument.h"
#include "PrntSelPagesDlgs.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QLabel>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPrinter>
#include <QProcess>
#include <QRadioButton>
#include <QStandardPaths>
#include <QTabBar>
#include <QTemporaryDir>
#include <QTest>
#include <QTextCursor>
#include <QTimer>

#include <memory>
#include <vector>

namespace {

struct Printed {
    QString title;
    QStringList lines;
    qint64 atMs;
};

} // namespace

class TestPrintPages : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void opening_data();
    void opening();
    void choosingRefills();
    void printsTickedPages_data();
    void printsTickedPages();
    void ticksPrintIntoOnePdf();
    void notice_data();
    void notice();
    void aboutBox();

private:
    // Three pages; the ones named in selected have their second line selected.
    void makePages(const QStringList& selected);
    std::unique_ptr<QWidget> m_owner;
    QTabBar* m_tabs = nullptr;
    std::vector<QPlainTextEdit*> m_views;
};

void TestPrintPages::init() {
    m_owner = std::make_unique<QWidget>();
    m_tabs = new QTabBar(m_owner.get());
    m_views.clear();
}

void TestPrintPages::cleanup() {
    m_owner.reset();
}

void TestPrintPages::makePages(const QStringList& selected) {
    for (const char* name : {"status", "mlist.txt", "rlist.txt"}) {
        m_tabs->addTab(QString::fromLatin1(name));
        auto* view = new QPlainTextEdit(m_owner.get());
        view->setPlainText(QStringLiteral("%1 one\n%1 two\n%1 three").arg(QLatin1String(name)));
        if (selected.contains(QLatin1String(name))) {
            QTextCursor cursor = view->textCursor();
            cursor.movePosition(QTextCursor::Start);
            cursor.movePosition(QTextCursor::Down);
            cursor.movePosition(QTextCursor::EndOfLine, QTextCursor::KeepAnchor);
            view->setTextCursor(cursor);
        }
        m_views.push_back(view);
    }
}

void TestPrintPages::opening_data() {
    QTest::addColumn<QStringList>("selected");
    QTest::addColumn<bool>("selectedText");
    QTest::addColumn<QStringList>("listed");
    QTest::addColumn<QStringList>("ticked");

    QTest::newRow("no selection") << QStringList() << false
                                  << QStringList{"status", "mlist.txt", "rlist.txt"}
                                  << QStringList();
    QTest::newRow("selection in one of three")
        << QStringList{"mlist.txt"} << true << QStringList{"mlist.txt"} << QStringList{"mlist.txt"};
}

void TestPrintPages::opening() {
    QFETCH(QStringList, selected);
    QFETCH(bool, selectedText);
    QFETCH(QStringList, listed);
    QFETCH(QStringList, ticked);
    makePages(selected);
    TPrntSelPagesDlg dialog(m_owner.get(), m_tabs, [this](int i) { return m_views.at(i); });
    QCOMPARE(dialog.windowTitle(), QStringLiteral("Print Pages"));
    QCOMPARE(dialog.SelectedText->isEnabled(), selectedText);
    QCOMPARE(dialog.SelectedText->isChecked(), selectedText);
    QCOMPARE(dialog.AllText->isChecked(), !selectedText);
    QStringList shown;
    QStringList checked;
    for (int row = 0; row < dialog.PageList->count(); ++row) {
        shown << dialog.PageList->item(row)->text();
        if (dialog.PageList->item(row)->checkState() == Qt::Checked)
            checked << dialog.PageList->item(row)->text();
    }
    QCOMPARE(shown, listed);
    QCOMPARE(checked, ticked);
}

void TestPrintPages::choosingRefills() {
    makePages({"rlist.txt"});
    TPrntSelPagesDlg dialog(m_owner.get(), m_tabs, [this](int i) { return m_views.at(i); });
    dialog.AllText->setChecked(true);
    QCOMPARE(dialog.PageList->count(), 3);
    for (int row = 0; row < 3; ++row)
        QCOMPARE(dialog.PageList->item(row)->checkState(), Qt::Unchecked);
    dialog.SelectedText->setChecked(true);
    QCOMPARE(dialog.PageList->count(), 1);
    QCOMPARE(dialog.PageList->item(0)->checkState(), Qt::Unchecked);
}

void TestPrintPages::printsTickedPages_data() {
    QTest::addColumn<bool>("selectedOnly");
    QTest::addColumn<QStringList>("firstLines");

    QTest::newRow("all text") << false
                              << QStringList{"mlist.txt one", "mlist.txt two", "mlist.txt three"};
    QTest::newRow("selected text") << true << QStringList{"mlist.txt two"};
}

void TestPrintPages::printsTickedPages() {
    QFETCH(bool, selectedOnly);
    QFETCH(QStringList, firstLines);
    makePages({"mlist.txt", "rlist.txt"});
    TPrntSelPagesDlg dialog(m_owner.get(), m_tabs, [this](int i) { return m_views.at(i); });
    if (!selectedOnly) {
        dialog.AllText->setChecked(true);
        dialog.PageList->item(1)->setCheckState(Qt::Checked);
        dialog.PageList->item(2)->setCheckState(Qt::Checked);
    }
    QList<Printed> printed;
    QElapsedTimer clock;
    clock.start();
    dialog.printTicked([&](const QString& title, const QStringList& lines, const QFont& font) {
        QCOMPARE(font, m_views.at(0)->font());
        printed.append({title, lines, clock.elapsed()});
    });
    QCOMPARE(printed.size(), 2);
    QCOMPARE(printed[0].title, QStringLiteral("mlist.txt"));
    QCOMPARE(printed[1].title, QStringLiteral("rlist.txt"));
    QCOMPARE(printed[0].lines, firstLines);
    // Two documents, the second after the pause between pages.
    QVERIFY2(printed[1].atMs - printed[0].atMs >= 450,
             qPrintable(QString::number(printed[1].atMs - printed[0].atMs)));
}

// Two ticked pages go out as one job: one PDF holding both, each page's
// text whole, the long line wrapped instead of cut at the paper's edge, and
// a long page going on over several sheets.
void TestPrintPages::ticksPrintIntoOnePdf() {
    const QString pdftotext = QStandardPaths::findExecutable(QStringLiteral("pdftotext"));
    if (pdftotext.isEmpty())
        QSKIP("pdftotext (poppler-utils) is not installed");
    makePages({});
    QString longLine;
    for (int i = 0; i < 40; ++i)
        longLine += QStringLiteral("word%1 ").arg(i);
    QStringList many;
    for (int i = 0; i < 300; ++i)
        many << QStringLiteral("row %1").arg(i);
    m_views.at(1)->appendPlainText(longLine.trimmed());
    m_views.at(2)->appendPlainText(many.join(u'\n'));
    QTemporaryDir dir;
    QPrinter printer(QPrinter::HighResolution);
    printer.setOutputFormat(QPrinter::PdfFormat);
    printer.setOutputFileName(dir.filePath("pages.pdf"));
    QTimer::singleShot(0, this, [] {
        auto* dialog = qobject_cast<TPrntSelPagesDlg*>(QApplication::activeModalWidget());
        QVERIFY(dialog);
        dialog->PageList->item(1)->setCheckState(Qt::Checked);
        dialog->PageList->item(2)->setCheckState(Qt::Checked);
        dialog->accept();
    });
    PrintPages(
        m_owner.get(), m_tabs, [this](int i) { return m_views.at(i); }, &printer);

    QProcess reader;
    reader.start(pdftotext,
                 {QStringLiteral("-layout"), dir.filePath("pages.pdf"), QStringLiteral("-")});
    QVERIFY(reader.waitForFinished(30000));
    const QString text = QString::fromUtf8(reader.readAllStandardOutput());
    for (const char* expected : {"mlist.txt one", "mlist.txt three", "word0", "word39",
                                 "rlist.txt one", "row 0", "row 299"})
        QVERIFY2(text.contains(QLatin1String(expected)), expected);
    QVERIFY2(!text.contains(QStringLiteral("status one")), qPrintable(text));
    QVERIFY2(text.count(u'\f') >= 3, qPrintable(QString::number(text.count(u'\f'))));
}

void TestPrintPages::notice_data() {
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");

    QTest::newRow("range ends this year") << "Copyright 2001-%yyyy% X"
                                          << "Copyright 2001-2026 X";
    QTest::newRow("only the first placeholder") << "2001-%yyyy% and %yyyy%"
                                                << "2001-2026 and %yyyy%";
    QTest::newRow("no placeholder") << "Copyright 2001 X"
                                    << "Copyright 2001 X";
}

void TestPrintPages::notice() {
    QFETCH(QString, text);
    QFETCH(QString, expected);
    QCOMPARE(CompleteNotice(text, QDate(2026, 11, 21)), expected);
}

void TestPrintPages::aboutBox() {
    TAboutDlg dialog(m_owner.get());
    QCOMPARE(dialog.windowTitle(), QStringLiteral("About"));
    QCOMPARE(dialog.Label2->text(),
             CompleteNotice(TAboutDlg::noticeTemplate(), QDate::currentDate()));
    QVERIFY(dialog.Label2->text().contains(QString::number(QDate::currentDate().year())));
    QCOMPARE(dialog.Label3->text(), QStringLiteral("All Rights Reserved"));
    QCOMPARE(dialog.Label1->font().family(), QStringLiteral("Times New Roman"));
}

QTEST_MAIN(TestPrintPages)
#include "tst_printpages.moc"
