#include "UpdateSelectDlgs.h"

#include "DialogLook.h"
#include "Global2.h"
#include "SourceOrder.h"
#include "TextFile.h"

#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

// How long a box change waits, with events running, before the list is
// filled again.
constexpr int ChangeWaitMs = 200;

QStringList tickedItems(const QListWidget* list) {
    QStringList ticked;
    for (int row = 0; row < list->count(); ++row) {
        const QListWidgetItem* item = list->item(row);
        if (item->checkState() == Qt::Checked)
            ticked.append(item->text());
    }
    return ticked;
}

} // namespace

TUpdateSelectDlg::TUpdateSelectDlg(QWidget* owner, FrontEnd* frontEnd, QString urlsPath)
    : QDialog(owner), m_frontEnd(frontEnd), m_urlsPath(std::move(urlsPath)),
      m_mixDir(GetMixmasterDir()) {
    VK_ASSERT(!m_urlsPath.isEmpty(), UpdateSelectDlgsUnit);
    VK_ASSERT(!m_mixDir.isEmpty(), UpdateSelectDlgsUnit);
    setObjectName(QStringLiteral("TUpdateSelectDlg"));
    setWindowTitle(QStringLiteral("Select Source and Tick Items for Update"));

    Label1 = new QLabel(QStringLiteral("Selections made in this dialog are temporary.  Use the "
                                       "'Pages' menu to make selections persistent from session "
                                       "to session. Auto-update will always use the first source "
                                       "in the URL file."),
                        this);
    Label1->setObjectName(QStringLiteral("Label1"));
    Label1->setWordWrap(true);

    SourceBox = new QComboBox(this);
    SourceBox->setObjectName(QStringLiteral("SourceBox"));
    PageListBox = new QListWidget(this);
    PageListBox->setObjectName(QStringLiteral("PageListBox"));
    QuickBox = new QComboBox(this);
    QuickBox->setObjectName(QStringLiteral("QuickBox"));
    QuickListBox = new QListWidget(this);
    QuickListBox->setObjectName(QStringLiteral("QuickListBox"));

    // The source and its pages on the left, the suite's own on the right.
    auto* grid = new QGridLayout;
    grid->addWidget(SourceBox, 0, 0);
    grid->addWidget(PageListBox, 1, 0);
    grid->addWidget(QuickBox, 0, 1);
    grid->addWidget(QuickListBox, 1, 1);

    QHBoxLayout* buttons = OkCancelRow(this, QStringLiteral("Update"), OkBtn, CancelBtn);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(Label1);
    layout->addLayout(grid);
    layout->addLayout(buttons);
    layout->setSizeConstraint(QLayout::SetFixedSize);

    ApplyMainWindowLook(this, {PageListBox, QuickListBox});
    // A wrapped label has no natural width; give it one that suits the font.
    Label1->setFixedWidth(fontMetrics().averageCharWidth() * 64);

    // Filled before the handlers are connected: the lists are listed once
    // here, without the wait a change makes.
    SourceBox->addItems(UpdateSourceNames(ReadLines(m_urlsPath)));
    SourceBox->setCurrentIndex(SourceBox->count() > 0 ? 0 : -1);
    QuickBox->addItem(QLatin1String(VelkinSection));
    listPages(PageListBox, SourceBox->currentText());
    listPages(QuickListBox, QuickBox->currentText());
    connect(SourceBox, &QComboBox::currentIndexChanged, this, &TUpdateSelectDlg::SourceBoxChange);
    connect(QuickBox, &QComboBox::currentIndexChanged, this, &TUpdateSelectDlg::QuickBoxChange);
}

void TUpdateSelectDlg::listPages(QListWidget* list, const QString& section) const {
    list->clear();
    // Read afresh: the file may have changed while the dialog was open.
    for (const QString& page : SectionPageNames(ReadLines(m_urlsPath), section)) {
        auto* item = new QListWidgetItem(page, list);
        item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
        item->setCheckState(Qt::Unchecked);
    }
}

void TUpdateSelectDlg::SourceBoxChange() {
    PageListBox->clear();
    WaitTicks(m_frontEnd, ChangeWaitMs);
    // The box's text after the wait: another change may have come meanwhile.
    listPages(PageListBox, SourceBox->currentText());
}

void TUpdateSelectDlg::QuickBoxChange() {
    QuickListBox->clear();
    WaitTicks(m_frontEnd, ChangeWaitMs);
    listPages(QuickListBox, QuickBox->currentText());
}

QString TUpdateSelectDlg::chosenSource() const {
    return SourceBox->currentText();
}

QStringList TUpdateSelectDlg::chosenPages() const {
    return ChosenUpdatePages(tickedItems(PageListBox));
}

QString TUpdateSelectDlg::quickSource() const {
    return QuickBox->currentText();
}

QStringList TUpdateSelectDlg::quickPages() const {
    return tickedItems(QuickListBox);
}

bool SelectUpdate(QWidget* owner, FrontEnd* frontEnd, const QString& urlsPath, QString& source,
                  QStringList& pages, QString& quickSource, QStringList& quickPages) {
    source.clear();
    pages.clear();
    quickSource.clear();
    quickPages.clear();
    // The dialog checks the path and the Mixmaster folder.
    // QDialog centres itself on its owner's window when it first shows.
    TUpdateSelectDlg dialog(owner, frontEnd, urlsPath);
    if (dialog.exec() != QDialog::Accepted)
        return false;
    source = dialog.chosenSource();
    pages = dialog.chosenPages();
    quickSource = dialog.quickSource();
    quickPages = dialog.quickPages();
    return true;
}
