#include "ChkAddKeysDlgs.h"

#include "DialogLook.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

QCheckBox* keyBox(QWidget* parent, const QString& name, const QString& caption) {
    auto* box = new QCheckBox(caption, parent);
    box->setObjectName(name);
    return box;
}

} // namespace

TChkAddKeysDlg::TChkAddKeysDlg(QWidget* owner, std::array<bool, 4>& ticks)
    : QDialog(owner), m_ticks(ticks) {
    setObjectName(QStringLiteral("TChkAddKeysDlg"));
    // A dialog is a window of its own and does not take its owner's font
    // unless told to.
    if (owner)
        setFont(owner->font());

    Label1 = new QLabel(QStringLiteral("When you change to a different stats source it is a good "
                                       "idea to update all your pages from that source. Consider "
                                       "doing that now now."),
                        this);
    Label1->setObjectName(QStringLiteral("Label1"));
    Label1->setWordWrap(true);
    // A wrapped label has no natural width; give it one that suits the font.
    Label1->setFixedWidth(fontMetrics().averageCharWidth() * 46);

    MListBox = keyBox(this, QStringLiteral("MListBox"), QStringLiteral("&mlist.txt"));
    PubringMixBox = keyBox(this, QStringLiteral("PubringMixBox"), QStringLiteral("&pubring.mix"));
    RListBox = keyBox(this, QStringLiteral("RListBox"), QStringLiteral("&rlist.txt"));
    PubringAscBox = keyBox(this, QStringLiteral("PubringAscBox"), QStringLiteral("pubring.&asc"));

    // The Mixmaster pages on one row, the Cypherpunk pages on the next.
    auto* grid = new QGridLayout;
    grid->addWidget(MListBox, 0, 0);
    grid->addWidget(PubringMixBox, 0, 1);
    grid->addWidget(RListBox, 1, 0);
    grid->addWidget(PubringAscBox, 1, 1);

    QHBoxLayout* buttons = OkCancelRow(this, QStringLiteral("Ok"), OkBtn, CancelBtn);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(Label1);
    layout->addLayout(grid);
    layout->addLayout(buttons);
    layout->setSizeConstraint(QLayout::SetFixedSize);

    const auto all = boxes();
    for (std::size_t i = 0; i < all.size(); ++i)
        all[i]->setChecked(m_ticks[i]);
    OkBtn->setFocus();
}

std::array<QCheckBox*, 4> TChkAddKeysDlg::boxes() const {
    return {MListBox, PubringMixBox, RListBox, PubringAscBox};
}

// Every way out passes here: Ok, Cancel, Escape and the close box.
void TChkAddKeysDlg::done(int result) {
    const auto all = boxes();
    for (std::size_t i = 0; i < all.size(); ++i)
        m_ticks[i] = all[i]->isChecked();
    QDialog::done(result);
}

bool ShowChkAddKeysDlg(QWidget* owner, const QString& caption, std::array<bool, 4>& ticks) {
    // QDialog centres itself on its owner's window when it first shows.
    TChkAddKeysDlg dialog(owner, ticks);
    dialog.setWindowTitle(caption);
    // The caption names both sources; a dialog narrower than it would hide
    // them behind the window manager's ellipsis.
    dialog.setMinimumWidth(dialog.fontMetrics().horizontalAdvance(caption) + 120);
    return dialog.exec() == QDialog::Accepted;
}
