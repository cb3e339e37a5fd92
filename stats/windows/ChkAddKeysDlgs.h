#pragma once

#include <QDialog>

#include <array>

class QCheckBox;
class QLabel;
class QPushButton;

// Asked before an update from a stats source other than the last one: which
// of mlist.txt, pubring.mix, rlist.txt and pubring.asc to fetch as well. The
// ticks go back to the caller on every close, Cancel and the close box
// included; the caller decides what Cancel means.
class TChkAddKeysDlg : public QDialog {
    Q_OBJECT
public:
    // ticks are shown now and written back when the dialog closes.
    TChkAddKeysDlg(QWidget* owner, std::array<bool, 4>& ticks);

    void done(int result) override;

    QLabel* Label1 = nullptr;
    QCheckBox* MListBox = nullptr;
    QCheckBox* PubringMixBox = nullptr;
    QCheckBox* RListBox = nullptr;
    QCheckBox* PubringAscBox = nullptr;
    QPushButton* OkBtn = nullptr;
    QPushButton* CancelBtn = nullptr;

private:
    std::array<QCheckBox*, 4> boxes() const;

    std::array<bool, 4>& m_ticks;
};

// Shows the dialog modally over owner with the given caption and the owner's
// font. True for Ok; ticks hold the boxes as they were left, whichever way
// the dialog was closed.
bool ShowChkAddKeysDlg(QWidget* owner, const QString& caption, std::array<bool, 4>& ticks);
