#pragma once

#include <QDialog>
#include <QStringList>

class FrontEnd;
class QLabel;
class QListWidget;
class QPushButton;

inline constexpr char RearrangeDlgsUnit[] = "stats\\RearrangeDlgs";

// "Reorder URL Sources": the stats sources of urls.txt in file order, moved
// up and down with two arrow buttons. The file is rewritten in the new order
// only when the dialog closes: with Ok at once, with Cancel after asking.
class TReorderDlg : public QDialog {
    Q_OBJECT
public:
    TReorderDlg(QWidget* owner, FrontEnd* frontEnd, QString urlsPath);

    // Whether the order counts as changed; Down on the last row sets it too.
    bool changed() const { return m_changed; }
    // The sources as the list shows them now.
    QStringList order() const;

    // Every way out passes here: Ok, Cancel, Escape and the close box.
    void done(int result) override;

    QLabel* Label1 = nullptr;
    QLabel* Label2 = nullptr;
    QListWidget* SourceList = nullptr;
    QPushButton* UpBtn = nullptr;
    QPushButton* DownBtn = nullptr;
    QPushButton* OkBtn = nullptr;
    QPushButton* CancelBtn = nullptr;

private slots:
    void SourceListClick();
    void UpBtnClick();
    void DownBtnClick();

private:
    // Whether the dialog may close with this result; writes urls.txt when
    // the new order is to be kept.
    bool FormCloseQuery(int result);
    // The chosen row, -1 when none; the current row alone does not count.
    int selectedRow() const;
    // Selects that row; a row outside the list clears the selection.
    void selectRow(int row);
    void swapRows(int a, int b);

    FrontEnd* m_frontEnd;
    QString m_urlsPath;
    bool m_changed = false;
};

// Runs the dialog modally over owner. True when it was closed with Ok.
bool ReorderSources(QWidget* owner, FrontEnd* frontEnd, const QString& urlsPath);
