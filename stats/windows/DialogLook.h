#pragma once

#include <QList>

class QDialog;
class QHBoxLayout;
class QPushButton;
class QString;
class QWidget;

// The dialogs over urls.txt look like the main window: its work colour
// ("windowcolor") behind their lists and its own font ("dialogfont"), both
// read from the settings file in the program folder.
void ApplyMainWindowLook(QDialog* dialog, const QList<QWidget*>& lists);

// A push button with the object name the tests and the suite look for.
QPushButton* NamedButton(QWidget* parent, const QString& name, const QString& caption);

// The dialog's "OkBtn" (the default, accepting) and "CancelBtn" (rejecting)
// at the right end of a new row, which is returned for the caller to place.
QHBoxLayout* OkCancelRow(QDialog* dialog, const QString& okCaption, QPushButton*& ok,
                         QPushButton*& cancel);
