#pragma once

#include "BarredEdit.h"

#include <QDialog>
#include <QString>

class FrontEnd;
class QLabel;
class QMenu;
class QPushButton;
class QTreeWidget;
class QTreeWidgetItem;

inline constexpr char BarRemsDlgs2Unit[] = "stats\\BarRemsDlgs2";

// "Barred Remailers": the remailers of the stored Mixmaster stats page and of
// barred.txt, each with its bar, changed through the context menu of a row.
// barred.txt is written only when the dialog closes with OK after a change;
// Cancel on the message that then follows puts it back and keeps the dialog.
class TBarRemsDlg2 : public QDialog {
    Q_OBJECT
public:
    TBarRemsDlg2(QWidget* owner, FrontEnd* frontEnd, QString barredPath, BarredEdit edit);

    // Columns of RemailerList.
    enum Column { NameColumn = 0, BarColumn = 1, PageColumn = 2 };

    const BarredEdit& edit() const { return m_edit; }
    // Whether barred.txt was written and kept.
    bool saved() const { return m_saved; }

    // Every way out passes here: OK, Cancel, Escape and the close box.
    void done(int result) override;

    // The message shown once barred.txt is written.
    static QString savedMessage();

    QLabel* Label1 = nullptr;
    QLabel* Label2 = nullptr;
    QTreeWidget* RemailerList = nullptr;
    // Made afresh for the row under the mouse each time it pops up.
    QMenu* PopupMenu = nullptr;
    QPushButton* OkBtn = nullptr;
    QPushButton* CancelBtn = nullptr;

private slots:
    void RemailerListContextPopup(const QPoint& pos);

private:
    // Whether the dialog may close with this result; writes barred.txt when
    // the changes are to be kept.
    bool FormCloseQuery(int result);
    void applyAction(int row, BarAction action);
    // Text and look of a row from its state.
    void showRow(QTreeWidgetItem* item, const BarredRow& row) const;

    FrontEnd* m_frontEnd;
    QString m_barredPath;
    BarredEdit m_edit;
    bool m_saved = false;
};

// Runs the dialog modally over owner on barred.txt at barredPath. True when
// barred.txt was changed.
bool ShowBarRemailers(QWidget* owner, FrontEnd* frontEnd, const QString& barredPath);
