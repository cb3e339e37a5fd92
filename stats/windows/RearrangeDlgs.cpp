#include "RearrangeDlgs.h"

#include "DialogLook.h"
#include "Global2.h"
#include "SourceOrder.h"
#include "TextFile.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QStyle>
#include <QVBoxLayout>

namespace {

QPushButton* arrowButton(QWidget* parent, const QString& name, QStyle::StandardPixmap glyph,
                         const QString& accessibleName) {
    auto* btn = NamedButton(parent, name, QString());
    btn->setIcon(parent->style()->standardIcon(glyph, nullptr, btn));
    btn->setAccessibleName(accessibleName);
    btn->setEnabled(false); // nothing to move until a row is chosen
    return btn;
}

} // namespace

TReorderDlg::TReorderDlg(QWidget* owner, FrontEnd* frontEnd, QString urlsPath)
    : QDialog(owner), m_frontEnd(frontEnd), m_urlsPath(std::move(urlsPath)) {
    setObjectName(QStringLiteral("TReorderDlg"));
    setWindowTitle(QStringLiteral("Reorder URL Sources"));

    SourceList = new QListWidget(this);
    SourceList->setObjectName(QStringLiteral("SourceList"));
    SourceList->setSelectionMode(QAbstractItemView::SingleSelection);
    SourceList->addItems(ReorderSourceNames(ReadLines(m_urlsPath)));
    // Mouse and keyboard alike: a row counts as chosen once it is selected.
    connect(SourceList, &QListWidget::itemSelectionChanged, this, &TReorderDlg::SourceListClick);

    Label1 = new QLabel(QStringLiteral("&Sources"), this);
    Label1->setObjectName(QStringLiteral("Label1"));
    Label1->setBuddy(SourceList);
    Label2 = new QLabel(
        QStringLiteral("Changes made in this dialog remain in effect from session to session."),
        this);
    Label2->setObjectName(QStringLiteral("Label2"));
    Label2->setWordWrap(true);

    UpBtn = arrowButton(this, QStringLiteral("UpBtn"), QStyle::SP_ArrowUp, QStringLiteral("Up"));
    DownBtn =
        arrowButton(this, QStringLiteral("DownBtn"), QStyle::SP_ArrowDown, QStringLiteral("Down"));
    connect(UpBtn, &QPushButton::clicked, this, &TReorderDlg::UpBtnClick);
    connect(DownBtn, &QPushButton::clicked, this, &TReorderDlg::DownBtnClick);

    auto* arrows = new QVBoxLayout;
    arrows->addStretch();
    arrows->addWidget(UpBtn);
    arrows->addWidget(DownBtn);
    arrows->addStretch();

    auto* listRow = new QHBoxLayout;
    listRow->addWidget(SourceList, 1);
    listRow->addLayout(arrows);

    QHBoxLayout* buttons = OkCancelRow(this, QStringLiteral("Ok"), OkBtn, CancelBtn);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(Label1);
    layout->addLayout(listRow, 1);
    layout->addWidget(Label2);
    layout->addLayout(buttons);

    ApplyMainWindowLook(this, {SourceList});
}

QStringList TReorderDlg::order() const {
    QStringList names;
    for (int row = 0; row < SourceList->count(); ++row)
        names.append(SourceList->item(row)->text());
    return names;
}

int TReorderDlg::selectedRow() const {
    const QList<QListWidgetItem*> selected = SourceList->selectedItems();
    return selected.isEmpty() ? -1 : SourceList->row(selected.first());
}

void TReorderDlg::SourceListClick() {
    if (selectedRow() < 0)
        return;
    UpBtn->setEnabled(true);
    DownBtn->setEnabled(true);
}

void TReorderDlg::swapRows(int a, int b) {
    const QString text = SourceList->item(a)->text();
    SourceList->item(a)->setText(SourceList->item(b)->text());
    SourceList->item(b)->setText(text);
}

void TReorderDlg::selectRow(int row) {
    if (row >= 0 && row < SourceList->count()) {
        SourceList->setCurrentRow(row);
    } else {
        SourceList->clearSelection();
        SourceList->setCurrentRow(-1);
    }
}

void TReorderDlg::UpBtnClick() {
    const int row = selectedRow();
    if (row < 0)
        return;
    if (row >= 1) {
        swapRows(row, row - 1);
        m_changed = true;
    } else if (m_frontEnd) {
        m_frontEnd->beep();
    }
    selectRow(row - 1); // at the top this clears the selection
}

void TReorderDlg::DownBtnClick() {
    const int row = selectedRow();
    if (row < 0)
        return;
    if (row < SourceList->count() - 1)
        swapRows(row, row + 1);
    else if (m_frontEnd)
        m_frontEnd->beep();
    selectRow(row + 1); // past the bottom this clears the selection
    // Set even when nothing moved at the bottom, unlike Up at the top: the
    // dialog has always behaved so and Cancel then asks.
    m_changed = true;
}

bool TReorderDlg::FormCloseQuery(int result) {
    if (!m_changed)
        return true;
    if (result != Accepted) {
        const int answer =
            MsgDlg(m_frontEnd, QStringLiteral("The source order is changed. Save your changes?"),
                   Confirm, MbYesNoCancel);
        if (answer == IdNo)
            return true;
        if (answer != IdYes)
            return false;
    }
    // A failed save keeps the dialog open with the order the user made, so
    // that nothing is lost without a word; the user was told why.
    return WriteSourceOrder(m_urlsPath, order(), m_frontEnd);
}

void TReorderDlg::done(int result) {
    if (FormCloseQuery(result))
        QDialog::done(result);
}

bool ReorderSources(QWidget* owner, FrontEnd* frontEnd, const QString& urlsPath) {
    VK_ASSERT(owner != nullptr, RearrangeDlgsUnit);
    VK_ASSERT(frontEnd != nullptr, RearrangeDlgsUnit);
    VK_ASSERT(!urlsPath.isEmpty(), RearrangeDlgsUnit);
    // QDialog centres itself on its owner's window when it first shows.
    TReorderDlg dialog(owner, frontEnd, urlsPath);
    return dialog.exec() == QDialog::Accepted;
}
