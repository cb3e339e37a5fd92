#pragma once

#include <QString>
#include <QStringList>

#include "PageLines.h"

#include "FrontEnd.h"

// The suite environment: where the program's files live, the suite data file,
// the Mixmaster folder, text helpers, running other programs and the standard
// message boxes. Every other module reaches the environment through these.

// Reports a broken invariant with the condition's text and the unit's name,
// then stops the program.
[[noreturn]] void VkAssertFailed(const char* condition, const char* unit);
#define VK_ASSERT(cond, unit)                                                                      \
    do {                                                                                           \
        if (!(cond))                                                                               \
            VkAssertFailed(#cond, unit);                                                           \
    } while (false)

// The same, with the condition written out as the suite's messages name it.
#define VK_ASSERT_TEXT(cond, text, unit)                                                           \
    do {                                                                                           \
        if (!(cond))                                                                               \
            VkAssertFailed(text, unit);                                                            \
    } while (false)

inline constexpr char Global2Unit[] = "shared\\Global2";
inline constexpr char StatsWins4Unit[] = "stats\\StatsWins4";

// $VKSTATS_HOME; else the executable's folder when a file "portable" stands
// beside the executable; else $XDG_DATA_HOME/vkstats/. Always ends in "/".
QString ProgramFolder();
bool IsPortableInstall();
QString IniFileName();
QString DataFileName();
QString EncryptedDataFileName();
QString HelpFileName();
// A file shipped with the program (the release history): the installed
// documentation folder first, then beside the executable, the program
// folder and its "docs/". Empty when none has it.
QString FindDocFile(const QString& name);
QString ProgramName();

// Whether a file of that name exists in its folder, in any letter case.
bool ExistsIgnoringCase(const QString& path);

bool OpenSuiteDataFile(FrontEnd* owner);
// Creates an empty data file of the current format, readable by the user only.
bool CreateEmptyDataFile(const QString& path, QString* error);
// Offers to create the missing data file at path; true when it now exists.
bool OfferDataFile(FrontEnd* owner, const QString& path);
bool IsDataFileEncrypted(FrontEnd* owner, QString message = {});

QString GetMixmasterDir();
QString AddTrailingBackslash(const QString& path);

QString GetField(int index, const QString& line, QChar separator, const QString& def = {});
int MonthNumber(const QString& name);
QString StripAmpersand(const QString& caption);

void TrimLeadingBlankLines(PageLines& lines);
void TrimTrailingBlankLines(PageLines& lines);

// A font as the suite stores it: face, point size, styles and a 0x00BBGGRR
// colour. Kept as plain data so the core needs no GUI module.
struct FontSpec {
    QString name;
    int size = 0;
    bool bold = false;
    bool italic = false;
    bool underline = false;
    bool strikeOut = false;
    qint64 color = 0;
    bool operator==(const FontSpec&) const = default;
};
QString FontToString(const FontSpec& font);
FontSpec StringToFont(const QString& text);

enum ShowMode { SwHide = 0, SwShowNormal = 1 };
// Starts a program from a command line split as a shell would, without a
// shell, and does not wait. Returns the process id, or 0 when it failed.
qint64 RunProgram(const QString& commandLine, int showMode);

void WaitTicks(FrontEnd* frontEnd, int ms);

// The caption of a message of that kind; any other kind gets the program name.
QString MsgCaption(int type);

int MsgBox(FrontEnd* owner, const QString& text, int type, int buttons);
int MsgDlg(FrontEnd* owner, const QString& text, int type, int buttons);

bool InitHtmlHelp(FrontEnd* frontEnd);
void CloseHtmlHelp();
bool HtmlHelpLoaded();
