#pragma once

#include <QDialog>
#include <QStringList>

class FrontEnd;
class QComboBox;
class QLabel;
class QListWidget;
class QPushButton;

inline constexpr char UpdateSelectDlgsUnit[] = "stats\\UpdateSelectDlgs";

// "Select Source and Tick Items for Update": a stats source and the pages to
// fetch from it for one update only, plus the suite's own pages as the
// quick choice. Nothing here is stored; the Pages menu keeps the lasting
// choice.
class TUpdateSelectDlg : public QDialog {
    Q_OBJECT
public:
    // urlsPath must not be empty and a Mixmaster folder must be known.
    TUpdateSelectDlg(QWidget* owner, FrontEnd* frontEnd, QString urlsPath);

    const QString& mixmasterDir() const { return m_mixDir; }

    // What an update from the dialog takes, as the boxes stand now.
    QString chosenSource() const;
    QStringList chosenPages() const;
    QString quickSource() const;
    QStringList quickPages() const;

    QLabel* Label1 = nullptr;
    QComboBox* SourceBox = nullptr;
    QListWidget* PageListBox = nullptr;
    QComboBox* QuickBox = nullptr;
    QListWidget* QuickListBox = nullptr;
    QPushButton* OkBtn = nullptr;
    QPushButton* CancelBtn = nullptr;

private slots:
    void SourceBoxChange();
    void QuickBoxChange();

private:
    // Clears the check list and lists the section's pages, all unticked.
    void listPages(QListWidget* list, const QString& section) const;

    FrontEnd* m_frontEnd;
    QString m_urlsPath;
    QString m_mixDir;
};

// Runs the dialog modally over owner. The four outputs are cleared first;
// with "Update" they get the chosen source and pages (never "type2.list")
// and the quick source and its ticked pages, and the result is true. With
// Cancel they stay empty.
bool SelectUpdate(QWidget* owner, FrontEnd* frontEnd, const QString& urlsPath, QString& source,
                  QStringList& pages, QString& quickSource, QStringList& quickPages);
