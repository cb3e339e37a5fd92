#pragma once

#include <QDialog>
#include <QStringList>

class QPushButton;
class QTreeWidget;

// Mixmaster key header lines as a table with a tick on every row; "Bar All"
// and "Clear All" tick or clear them all. Nothing reads the ticks back yet.
class TNewMixKeysWin : public QDialog {
    Q_OBJECT
public:
    TNewMixKeysWin(QWidget* owner, const QStringList& keys);

    QTreeWidget* KeyList = nullptr;
    QPushButton* OkBtn = nullptr;
    QPushButton* Cancel = nullptr;
    QPushButton* HelpBtn = nullptr;
    QPushButton* Button1 = nullptr;
    QPushButton* Button2 = nullptr;

private:
    void fill(const QStringList& keys);
    void tickAll(bool ticked);
};

// Shows the window modally over owner. keys must not be null. True however
// the window was closed.
bool ShowNewMixKeys(QWidget* owner, const QStringList* keys);
