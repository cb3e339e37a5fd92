#include "AboutDlgs2.h"

#include "DialogLook.h"

#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QVBoxLayout>

QString CompleteNotice(const QString& noticeTemplate, const QDate& today) {
    const QString placeholder = QStringLiteral("%yyyy%");
    const qsizetype at = noticeTemplate.indexOf(placeholder);
    if (at < 0)
        return noticeTemplate;
    QString notice = noticeTemplate;
    return notice.replace(at, placeholder.size(),
                          QLocale::c().toString(today, QStringLiteral("yyyy")));
}

TAboutDlg::TAboutDlg(QWidget* owner) : QDialog(owner) {
    setObjectName(QStringLiteral("TAboutDlg"));
    setWindowTitle(QStringLiteral("About"));
    if (owner)
        setFont(owner->font());
    auto centred = [this](const char* name, const QString& text) {
        auto* label = new QLabel(text, this);
        label->setObjectName(QString::fromLatin1(name));
        label->setAlignment(Qt::AlignCenter);
        return label;
    };
    Label1 = centred("Label1", QString());
    QFont title(QStringLiteral("Times New Roman"));
    title.setPointSize(font().pointSize() + 6);
    Label1->setFont(title);
    Label2 = centred("Label2", CompleteNotice(noticeTemplate(), QDate::currentDate()));
    Label3 = centred("Label3", QStringLiteral("All Rights Reserved"));
    Button1 = NamedButton(this, QStringLiteral("Button1"), QStringLiteral("OK"));
    Button1->setDefault(true);
    connect(Button1, &QPushButton::clicked, this, &QDialog::accept);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(Label1);
    layout->addWidget(Label2);
    layout->addWidget(Label3);
    layout->addWidget(Button1, 0, Qt::AlignHCenter);
    layout->setSizeConstraint(QLayout::SetFixedSize);
}

void ShowAbout(QWidget* owner, const QString& text) {
    TAboutDlg dialog(owner);
    dialog.Label1->setText(text);
    dialog.exec();
}
