#pragma once

#include <QDate>
#include <QDialog>

class QLabel;
class QPushButton;

// The notice line: the first "%yyyy%" of the template becomes the year of
// today, so the range always ends this year.
QString CompleteNotice(const QString& noticeTemplate, const QDate& today);

// "About": the program's name and version, the notice and the rights line.
class TAboutDlg : public QDialog {
    Q_OBJECT
public:
    static QString noticeTemplate() { return QStringLiteral("Copyright (c) 2001-%yyyy% VKstats"); }

    explicit TAboutDlg(QWidget* owner);

    QLabel* Label1 = nullptr;
    QLabel* Label2 = nullptr;
    QLabel* Label3 = nullptr;
    QPushButton* Button1 = nullptr;
};

void ShowAbout(QWidget* owner, const QString& text);
