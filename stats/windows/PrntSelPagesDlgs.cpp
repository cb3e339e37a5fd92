#include "PrntSelPagesDlgs.h"

#include "DialogLook.h"
#include "Global2.h"
#include "PrintDocument.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPrintDialog>
#include <QPrinter>
#include <QPushButton>
#include <QRadioButton>
#include <QRegularExpression>
#include <QTabBar>
#include <QTextCursor>

namespace {

bool hasSelection(const QPlainTextEdit* viewer) {
    return viewer->textCursor().hasSelection();
}

} // namespace

TPrntSelPagesDlg::TPrntSelPagesDlg(QWidget* owner, QTabBar* tabs, ViewerOfTab viewerOfTab)
    : QDialog(owner), m_tabs(tabs), m_viewerOfTab(std::move(viewerOfTab)) {
    setObjectName(QStringLiteral("TPrntSelPagesDlg"));
    setWindowTitle(QStringLiteral("Print Pages"));
    Label1 = new QLabel(QStringLiteral("&Tick pages to print :"), this);
    PageList = new QListWidget(this);
    PageList->setObjectName(QStringLiteral("PageList"));
    Label1->setBuddy(PageList);
    AllText = new QRadioButton(QStringLiteral("&All text"), this);
    AllText->setObjectName(QStringLiteral("AllText"));
    SelectedText = new QRadioButton(QStringLiteral("&Selected text"), this);
    SelectedText->setObjectName(QStringLiteral("SelectedText"));
    QHBoxLayout* buttons = OkCancelRow(this, QStringLiteral("Ok"), OkBtn, CancelBtn);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(Label1);
    layout->addWidget(PageList);
    layout->addWidget(AllText);
    layout->addWidget(SelectedText);
    layout->addLayout(buttons);
    layout->setSizeConstraint(QLayout::SetFixedSize);
    ApplyMainWindowLook(this, {PageList});

    bool anySelection = false;
    for (int i = 0; i < m_tabs->count(); ++i)
        anySelection = anySelection || hasSelection(m_viewerOfTab(i));
    SelectedText->setEnabled(anySelection);
    (anySelection ? SelectedText : AllText)->setChecked(true);
    fillList(anySelection);
    if (anySelection) {
        for (int row = 0; row < PageList->count(); ++row)
            PageList->item(row)->setCheckState(Qt::Checked);
    }
    connect(AllText, &QRadioButton::toggled, this, [this](bool on) {
        if (on)
            fillList(false);
    });
    connect(SelectedText, &QRadioButton::toggled, this, [this](bool on) {
        if (on)
            fillList(true);
    });
    OkBtn->setFocus();
}

void TPrntSelPagesDlg::fillList(bool selectedOnly) {
    PageList->clear();
    for (int i = 0; i < m_tabs->count(); ++i) {
        if (selectedOnly && !hasSelection(m_viewerOfTab(i)))
            continue;
        auto* item = new QListWidgetItem(m_tabs->tabText(i), PageList);
        item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
        item->setCheckState(Qt::Unchecked);
    }
}

QPlainTextEdit* TPrntSelPagesDlg::viewerOf(const QString& caption) const {
    int index = -1;
    for (int i = 0; i < m_tabs->count() && index < 0; ++i) {
        if (m_tabs->tabText(i) == caption)
            index = i;
    }
    VK_ASSERT_TEXT(index >= 0, "index >= 0", StatsWins4Unit);
    return m_viewerOfTab(index);
}

void TPrntSelPagesDlg::printTicked(const Printer& print) {
    bool first = true;
    for (int row = 0; row < PageList->count(); ++row) {
        const QListWidgetItem* item = PageList->item(row);
        if (item->checkState() != Qt::Checked)
            continue;
        if (!first)
            WaitTicks(nullptr, 500);
        first = false;
        const QPlainTextEdit* viewer = viewerOf(item->text());
        const QString text =
            AllText->isChecked() ? viewer->toPlainText() : viewer->textCursor().selectedText();
        // A selection marks its line ends with the paragraph separator.
        print(item->text(), text.split(QRegularExpression(QStringLiteral("\\n|\\x{2029}"))),
              viewer->font());
    }
}

void PrintPages(QWidget* owner, QTabBar* tabs, const TPrntSelPagesDlg::ViewerOfTab& viewerOfTab,
                QPrinter* printer) {
    TPrntSelPagesDlg dialog(owner, tabs, viewerOfTab);
    if (dialog.exec() != QDialog::Accepted)
        return;
    QPrinter chosen;
    if (!printer) {
        QPrintDialog ask(&chosen, owner);
        if (ask.exec() != QDialog::Accepted)
            return;
        printer = &chosen;
    }
    // All ticked pages go out as one job: one PDF file, one stack of paper.
    PrintJob job(*printer);
    dialog.printTicked([&job](const QString& title, const QStringList& lines, const QFont& font) {
        job.add(title, lines, font);
    });
    job.finish();
}
