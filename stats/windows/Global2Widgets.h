#pragma once

#include "Global2.h"

#include <QColor>
#include <QFont>

class QLineEdit;
class QWidget;

// The stored font and colour forms stay as the suite writes them; they
// become a QFont or QColor only where a widget takes them.

// A 0x00BBGGRR colour, or a system colour (high bit set, low byte the index).
QColor ToQColor(qint64 color);
qint64 FromQColor(const QColor& color);

QFont ToQFont(const FontSpec& font);
FontSpec FromQFont(const QFont& font, qint64 color);
QColor FontColor(const FontSpec& font);

// Shows the four fields of a font string: face, size, style letters, and the
// colour as the panel's background.
void ShowFontFields(const QString& fontString, QLineEdit* name, QLineEdit* size, QLineEdit* style,
                    QWidget* colorPanel);

// Paints a plain widget in one colour.
void SetPanelColor(QWidget* panel, const QColor& color);
