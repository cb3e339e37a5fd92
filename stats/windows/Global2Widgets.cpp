#include "Global2Widgets.h"

#include <QApplication>
#include <QLineEdit>
#include <QPalette>

namespace {

// The system colours the suite's settings use, by index.
QColor systemColor(int index) {
    const QPalette palette = QApplication::palette();
    switch (index) {
    case 5: // window background
        return palette.color(QPalette::Base);
    case 8: // window text
        return palette.color(QPalette::Text);
    case 15: // button face
        return palette.color(QPalette::Button);
    default:
        return palette.color(QPalette::Window);
    }
}

} // namespace

QColor ToQColor(qint64 color) {
    if (color < 0)
        return systemColor(int(color & 0xFF));
    return QColor(int(color & 0xFF), int((color >> 8) & 0xFF), int((color >> 16) & 0xFF));
}

qint64 FromQColor(const QColor& color) {
    return qint64(color.red()) | (qint64(color.green()) << 8) | (qint64(color.blue()) << 16);
}

QFont ToQFont(const FontSpec& stored) {
    QFont font(stored.name);
    if (stored.size > 0)
        font.setPointSize(stored.size);
    font.setBold(stored.bold);
    font.setItalic(stored.italic);
    font.setUnderline(stored.underline);
    font.setStrikeOut(stored.strikeOut);
    return font;
}

FontSpec FromQFont(const QFont& font, qint64 color) {
    FontSpec stored;
    stored.name = font.family();
    stored.size = font.pointSize();
    stored.bold = font.bold();
    stored.italic = font.italic();
    stored.underline = font.underline();
    stored.strikeOut = font.strikeOut();
    stored.color = color;
    return stored;
}

QColor FontColor(const FontSpec& font) {
    return ToQColor(font.color);
}

void SetPanelColor(QWidget* panel, const QColor& color) {
    QPalette palette = panel->palette();
    palette.setColor(QPalette::Window, color);
    panel->setPalette(palette);
    panel->setAutoFillBackground(true);
}

void ShowFontFields(const QString& fontString, QLineEdit* name, QLineEdit* size, QLineEdit* style,
                    QWidget* colorPanel) {
    name->setText(GetField(0, fontString, u','));
    size->setText(GetField(1, fontString, u','));
    style->setText(GetField(2, fontString, u','));
    SetPanelColor(colorPanel, ToQColor(StringToFont(fontString).color));
}
