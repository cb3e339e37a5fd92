#include "DialogLook.h"

#include "Global2Widgets.h"
#include "IniFile.h"
#include "StatsSettings.h"

#include <QDialog>
#include <QPalette>

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
