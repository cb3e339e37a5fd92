#pragma once

#include <QWidget>

class QPlainTextEdit;
class QTextBrowser;

inline constexpr char HistoryWinsUnit[] = "stats\\HistoryWins";

// The release history in a plain read-only viewer, in the page font
// ("windowfont") on the work colour, as the main window shows its pages.
class THistoryWin : public QWidget {
    Q_OBJECT
public:
    explicit THistoryWin(QWidget* owner = nullptr);

    // Shows the file's text; the look is read afresh from the settings.
    void showFile(const QString& path);
    const QString& fileName() const { return m_path; }

    QPlainTextEdit* Viewer = nullptr;

private:
    void applyLook();

    QString m_path;
};

// The file the History command shows: "vkstats.history.txt" in the
// installed documentation folder, beside the executable, in the program
// folder or in its "docs/" subfolder; empty when none has it.
QString HistoryFileName();

// The History command: shows the release history over owner (owner may be
// null). A window already open is reused. No file means no window and no
// message.
void ShowHistory(QWidget* owner);

// The user guide in a window of the program's own, for a desktop where no
// browser can be started. A viewer already open is reused.
void ShowHelpViewer(QWidget* owner, const QString& path);
QTextBrowser* OpenHelpViewer(QWidget* owner);
