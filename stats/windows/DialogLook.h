#pragma once

#include <QList>

class QDialog;
class QWidget;

// The dialogs over urls.txt look like the main window: its work colour
// ("windowcolor") behind their lists and its own font ("dialogfont"), both
// read from the settings file in the program folder.
void ApplyMainWindowLook(QDialog* dialog, const QList<QWidget*>& lists);
