#pragma once

#include <QDialog>
#include <QFont>

#include <functional>

class QListWidget;
class QPlainTextEdit;
class QPrinter;
class QPushButton;
class QRadioButton;
class QLabel;
class QTabBar;

// "Print Pages": ticks the open pages to print, whole or only their
// selected text. Each ticked page is printed as a document of its own.
class TPrntSelPagesDlg : public QDialog {
    Q_OBJECT
public:
    using ViewerOfTab = std::function<QPlainTextEdit*(int index)>;
    // Prints one page: title, lines and the viewer's font.
    using Printer = std::function<void(const QString&, const QStringList&, const QFont&)>;

    TPrntSelPagesDlg(QWidget* owner, QTabBar* tabs, ViewerOfTab viewerOfTab);

    // Prints the ticked pages, half a second apart.
    void printTicked(const Printer& print);

    QLabel* Label1 = nullptr;
    QListWidget* PageList = nullptr;
    QRadioButton* AllText = nullptr;
    QRadioButton* SelectedText = nullptr;
    QPushButton* OkBtn = nullptr;
    QPushButton* CancelBtn = nullptr;

private:
    void fillList(bool selectedOnly);
    QPlainTextEdit* viewerOf(const QString& caption) const;

    QTabBar* m_tabs;
    ViewerOfTab m_viewerOfTab;
};

// Opens the dialog; on Ok asks for the printer (unless one is given, as
// tests do) and prints.
void PrintPages(QWidget* owner, QTabBar* tabs, const TPrntSelPagesDlg::ViewerOfTab& viewerOfTab,
                QPrinter* printer = nullptr);
