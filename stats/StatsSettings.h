#pragma once

#include "Global2.h"
#include "IniFile.h"

#include <QRect>
#include <QString>
#include <QStringList>

// The system window colour as the suite stores it: the high bit marks a
// system colour and the low byte its index (5 is the window background).
inline constexpr qint64 SystemWindowColor = -2147483643;     // 0x80000005
inline constexpr qint64 SystemButtonFaceColor = -2147483633; // 0x8000000F

// Default font strings: a fixed prefix with the colour appended.
QString DefaultFont(const char* prefix, qint64 color = 0);

// The pages of the Pages menu, in the order "pages" is written.
const QStringList& UpdatePageOrder();

// Comma text as the suite's string lists write it: an item with a blank, a
// comma or a quote is quoted, inner quotes doubled; an empty item is "".
QString ToCommaText(const QStringList& items);

// The "window" record: state (0 normal, 1 minimised, 2 maximised),
// placement mode, then the normal-state rectangle.
struct WindowGeometry {
    int state = 0;
    int placement = 0;
    QRect rect;
};
WindowGeometry ParseWindowRecord(const QString& record, QSize currentSize);
QString MakeWindowRecord(const QString& previous, int state, int placement, const QRect& normal);

// Everything the main window reads at start-up, in its reading order.
struct MainSettings {
    qint64 windowColor = SystemWindowColor;
    QString statsFont;
    bool showToolbar = true;
    bool showStatusBar = true;
    QStringList tickedPages;
    QString windowFont;
    QString editorFont;
    QString dialogFont;
    bool barNew = false;
    // Stale statistics pages are shown but not written over the stored ones.
    bool noStaleSave = false;
    bool exitLeft = false;
    QString window;
};
MainSettings LoadMainSettings(const IniFile& ini);

// What the main window writes at closing, in its writing order.
struct MainSettingsToSave {
    QString window;
    QString lastProxy;
    qint64 windowColor = SystemWindowColor;
    QString windowFont;
    QString editorFont;
    QString dialogFont;
    QStringList tickedPages;
    bool showStatusBar = true;
    bool showToolbar = true;
};
bool SaveMainSettings(IniFile& ini, const MainSettingsToSave& settings);

// The values of the options dialog. Its defaults differ from the main
// window's on purpose ("windowfont" above all).
struct StatsOptions {
    bool autoLoad = true;
    bool windowCentered = false;
    bool barNew = false;
    bool noStaleSave = false;
    bool cascadeStatsOnly = true;
    bool cascade = true;
    qint64 windowColor = SystemWindowColor;
    QString windowFont;
    QString dialogFont;
    QString editorFont;
    int timeoutSeconds = 30;
};
StatsOptions LoadStatsOptions(const IniFile& ini);
bool SaveStatsOptions(IniFile& ini, const StatsOptions& options);
// The time-out box's text as a number: 30 when it is not one.
int TimeoutFromText(const QString& text);

// The download time-out the update engine uses.
int ReadTimeoutSeconds(const IniFile& ini);
