#include "DialogLook.h"

#include "Global2Widgets.h"
#include "IniFile.h"
#include "StatsSettings.h"

#include <QDialog>
#include <QHBoxLayout>
#include <QPalette>
#include <QPushButton>

void ApplyMainWindowLook(QDialog* dialog, const QList<QWidget*>& lists) {
    const MainSettings settings = LoadMainSettings(IniFile(IniFileName()));
    dialog->setFont(ToQFont(StringToFont(settings.dialogFont)));
    const QColor work = ToQColor(settings.windowColor);
    for (QWidget* list : lists) {
        QPalette palette = list->palette();
        palette.setColor(QPalette::Base, work);
        list->setPalette(palette);
    }
}

QPushButton* NamedButton(QWidget* parent, const QString& name, const QString& caption) {
    auto* button = new QPushButton(caption, parent);
    button->setObjectName(name);
    return button;
}

QHBoxLayout* OkCancelRow(QDialog* dialog, const QString& okCaption, QPushButton*& ok,
                         QPushButton*& cancel) {
    ok = NamedButton(dialog, QStringLiteral("OkBtn"), okCaption);
    cancel = NamedButton(dialog, QStringLiteral("CancelBtn"), QStringLiteral("Cancel"));
    ok->setDefault(true);
    QObject::connect(ok, &QPushButton::clicked, dialog, &QDialog::accept);
    QObject::connect(cancel, &QPushButton::clicked, dialog, &QDialog::reject);
    auto* row = new QHBoxLayout;
    row->addStretch();
    row->addWidget(ok);
    row->addWidget(cancel);
    return row;
}
