#pragma once

#include <QWidget>

class QPlainTextEdit;

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

// The file the History command shows: "vkstats.history.txt" in the program
// folder, else in its "docs/" subfolder; empty when neither exists.
QString HistoryFileName();

// The History command: shows the release history over owner (owner may be
// null). A window already open is reused. No file means no window and no
// message.
void ShowHistory(QWidget* owner);
