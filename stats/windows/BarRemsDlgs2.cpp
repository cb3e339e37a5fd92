#include "BarRemsDlgs2.h"

#include "DialogLook.h"
#include "Global2.h"
#include "StatsSources.h"
#include "TextFile.h"

#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <utility>

namespace {

QString absolute(const QString& path) {
    return QFileInfo(path).absoluteFilePath();
}

QString unreadableMessage(const QString& path) {
    return QStringLiteral("I was unable to read ") + absolute(path) +
           QStringLiteral(". The barred remailers cannot be changed while it is unreadable.");
}

QString barText(const BarredRow& row) {
    switch (row.state) {
    case BarState::None:
        break;
    case BarState::Full:
        return row.fixed ? QStringLiteral("always barred") : QStringLiteral("barred");
    case BarState::LastOnly:
        return QStringLiteral("barred from last");
    }
    return {};
}

} // namespace

TBarRemsDlg2::TBarRemsDlg2(QWidget* owner, FrontEnd* frontEnd, QString barredPath, BarredEdit edit)
    : QDialog(owner), m_frontEnd(frontEnd), m_barredPath(std::move(barredPath)),
      m_edit(std::move(edit)) {
    setObjectName(QStringLiteral("TBarRemsDlg2"));
    setWindowTitle(QStringLiteral("Barred Remailers"));
    resize(440, 480);

    RemailerList = new QTreeWidget(this);
    RemailerList->setObjectName(QStringLiteral("RemailerList"));
    RemailerList->setRootIsDecorated(false);
    RemailerList->setSelectionMode(QAbstractItemView::SingleSelection);
    RemailerList->setHeaderLabels(
        {QStringLiteral("Remailer"), QStringLiteral("Bar"), QStringLiteral("mlist.txt")});
    RemailerList->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(RemailerList, &QWidget::customContextMenuRequested, this,
            &TBarRemsDlg2::RemailerListContextPopup);

    Label1 = new QLabel(QStringLiteral("&Remailers"), this);
    Label1->setObjectName(QStringLiteral("Label1"));
    Label1->setBuddy(RemailerList);
    Label2 = new QLabel(QStringLiteral("Right-click a remailer to bar or unbar it. A remailer "
                                       "barred from last is still used inside a chain."),
                        this);
    Label2->setObjectName(QStringLiteral("Label2"));
    Label2->setWordWrap(true);

    QHBoxLayout* buttons = OkCancelRow(this, QStringLiteral("OK"), OkBtn, CancelBtn);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(Label1);
    layout->addWidget(RemailerList, 1);
    layout->addWidget(Label2);
    layout->addLayout(buttons);

    // The rows take their fonts from the list, so the look comes first.
    ApplyMainWindowLook(this, {RemailerList});
    for (const BarredRow& row : m_edit.rows())
        showRow(new QTreeWidgetItem(RemailerList), row);
    RemailerList->header()->resizeSections(QHeaderView::ResizeToContents);
}

QString TBarRemsDlg2::savedMessage() {
    return QStringLiteral(
        "Newly barred remailers will have their entries removed from the corresponding stats    \n"
        "page when the Stats Window closes. This will occur even if you have downloaded    \n"
        "pages and choose not to save them. Keys are not removed. Stats entries are    \n"
        "sufficient to bar remailers.");
}

void TBarRemsDlg2::showRow(QTreeWidgetItem* item, const BarredRow& row) const {
    item->setText(NameColumn, row.name);
    item->setText(BarColumn, barText(row));
    item->setText(PageColumn, row.listed ? QStringLiteral("listed") : QStringLiteral("not listed"));
    // A bar from last leaves the remailer in use, so it must not look like
    // a full bar at a glance.
    QFont font = RemailerList->font();
    font.setBold(row.state == BarState::Full);
    font.setItalic(row.state == BarState::LastOnly);
    for (int column = NameColumn; column <= PageColumn; ++column)
        item->setFont(column, font);
}

void TBarRemsDlg2::RemailerListContextPopup(const QPoint& pos) {
    QTreeWidgetItem* item = RemailerList->itemAt(pos);
    if (!item)
        return;
    RemailerList->setCurrentItem(item); // shows which remailer the menu is for
    const int row = RemailerList->indexOfTopLevelItem(item);
    const BarredRow& state = m_edit.rows().at(row);

    delete PopupMenu;
    PopupMenu = new QMenu(this);
    PopupMenu->setObjectName(QStringLiteral("PopupMenu"));
    for (const BarAction action : BarredEdit::actionsFor(state.state)) {
        QAction* command = PopupMenu->addAction(BarActionCaption(action, state.name));
        // The fixed entry is barred whatever the file says; offering to
        // change it would be a lie.
        command->setEnabled(!state.fixed);
        connect(command, &QAction::triggered, this,
                [this, row, action] { applyAction(row, action); });
    }
    PopupMenu->popup(RemailerList->viewport()->mapToGlobal(pos));
}

void TBarRemsDlg2::applyAction(int row, BarAction action) {
    if (m_edit.apply(row, action))
        showRow(RemailerList->topLevelItem(row), m_edit.rows().at(row));
}

bool TBarRemsDlg2::FormCloseQuery(int result) {
    if (result != Accepted || !m_edit.changed())
        return true;
    FileSnapshot before;
    if (!before.take(m_barredPath)) {
        MsgDlg(m_frontEnd, unreadableMessage(m_barredPath), Error, MbOk);
        return false;
    }
    // A failed save keeps the dialog open with the bars the user made.
    if (!WriteLines(m_barredPath, m_edit.fileLines())) {
        MsgDlg(m_frontEnd, StatsSourceList::saveFailedMessage(absolute(m_barredPath)), Error, MbOk);
        return false;
    }
    if (MsgBox(m_frontEnd, savedMessage(), Information, MbOkCancel) == IdOk) {
        m_saved = true;
        return true;
    }
    // Cancel backs out of what the message describes: barred.txt is put back
    // exactly as it was and the dialog stays open with the changes shown, to
    // be revised or dropped with Cancel.
    if (before.restore(m_barredPath))
        return false;
    MsgDlg(m_frontEnd,
           QStringLiteral("I was unable to restore ") + absolute(m_barredPath) +
               QStringLiteral(". The new list of barred remailers stays in effect."),
           Error, MbOk);
    m_saved = true;
    return true;
}

void TBarRemsDlg2::done(int result) {
    if (FormCloseQuery(result))
        QDialog::done(result);
}

bool ShowBarRemailers(QWidget* owner, FrontEnd* frontEnd, const QString& barredPath) {
    VK_ASSERT(owner != nullptr, BarRemsDlgs2Unit);
    VK_ASSERT(frontEnd != nullptr, BarRemsDlgs2Unit);
    VK_ASSERT(!barredPath.isEmpty(), BarRemsDlgs2Unit);
    bool readable = false;
    BarredEdit edit = BarredEdit::fromStoredFiles(barredPath, &readable);
    // Its lines would be lost at the first save.
    if (!readable) {
        MsgDlg(frontEnd, unreadableMessage(barredPath), Error, MbOk);
        return false;
    }
    TBarRemsDlg2 dialog(owner, frontEnd, barredPath, std::move(edit));
    dialog.exec();
    return dialog.saved();
}
