#include "Global2.h"

#include "IniFile.h"
#include "SuiteDatabase.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {

bool g_helpLoaded = false;

QString executablePath() {
    return QCoreApplication::applicationFilePath();
}

// Without any front end a message can only go to standard error; the answer
// is the one that changes nothing.
int messageWithoutFrontEnd(const QString& text, int buttons) {
    std::fprintf(stderr, "%s\n", qPrintable(text));
    return buttons == MbOk ? IdOk : IdCancel;
}

} // namespace

void VkAssertFailed(const char* condition, const char* unit) {
    std::fprintf(stderr, "Assertion failed: %s, file %s\n", condition, unit);
    std::fflush(stderr);
    std::abort();
}

// Dispatches events until the time is up, sleeping in the event loop rather
// than spinning.
static void processEventsFor(int ms) {
    if (ms <= 0 || !QCoreApplication::instance()) {
        QCoreApplication::processEvents();
        return;
    }
    QEventLoop loop;
    QTimer::singleShot(ms, Qt::PreciseTimer, &loop, &QEventLoop::quit);
    loop.exec();
}

void FrontEnd::waitTicks(int ms) {
    processEventsFor(ms);
}

// A relative VKSTATS_HOME means the folder it named when the program started:
// start-up makes the program folder current, and resolving the name again
// afterwards would find a folder below it.
static QString homeFromEnvironment(const QString& value) {
    static QString lastValue;
    static QString lastFolder;
    if (value != lastValue || lastFolder.isEmpty()) {
        lastValue = value;
        lastFolder = QDir(value).absolutePath();
    }
    return lastFolder;
}

// The folder of a user's own program data, made private on creation since
// the data file may hold proxy passwords.
static QString userDataFolder() {
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                           QStringLiteral("/vkstats");
    if (!QFileInfo::exists(folder) && QDir().mkpath(folder))
        QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return folder;
}

QString ProgramFolder() {
    const QString home = qEnvironmentVariable("VKSTATS_HOME");
    QString folder;
    if (!home.isEmpty())
        folder = homeFromEnvironment(home);
    else if (IsPortableInstall())
        folder = QCoreApplication::applicationDirPath();
    else
        folder = userDataFolder();
    return AddTrailingBackslash(QDir(folder).absolutePath());
}

bool IsPortableInstall() {
    return QFileInfo(QCoreApplication::applicationDirPath() + QStringLiteral("/portable")).isFile();
}

QString IniFileName() {
    return ProgramFolder() + QStringLiteral("vkstats.ini");
}

QString DataFileName() {
    return ProgramFolder() + QStringLiteral("VK.dbc");
}

QString EncryptedDataFileName() {
    return ProgramFolder() + QStringLiteral("VK.pgp");
}

QString HelpFileName() {
    const QString besideExe =
        QCoreApplication::applicationDirPath() + QStringLiteral("/vkstats.html");
#ifdef VKSTATS_DOCDIR
    const QString installed = QStringLiteral(VKSTATS_DOCDIR "/vkstats.html");
    if (!QFileInfo::exists(besideExe) && QFileInfo::exists(installed))
        return installed;
#endif
    return besideExe;
}

QString FindDocFile(const QString& name) {
    QStringList folders;
#ifdef VKSTATS_DOCDIR
    if (!IsPortableInstall())
        folders << QStringLiteral(VKSTATS_DOCDIR "/");
#endif
    const QString program = ProgramFolder();
    folders << QCoreApplication::applicationDirPath() + u'/' << program
            << program + QStringLiteral("docs/");
    for (const QString& folder : folders) {
        if (QFileInfo(folder + name).isFile())
            return folder + name;
    }
    return {};
}

QString ProgramName() {
    return QFileInfo(executablePath()).fileName().section(u'.', 0, 0);
}

bool CreateEmptyDataFile(const QString& path, QString* error) {
    if (!TVKDB::create(path, 2, error))
        return false;
    // It will hold proxy passwords: for the user's eyes only.
    if (!QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner)) {
        QFile::remove(path);
        if (error)
            *error = QStringLiteral("Cannot make %1 private").arg(path);
        return false;
    }
    return true;
}

// On Linux no other program of the suite makes the data file, so a first
// start offers to. Without anyone to ask, an empty file is what the user
// would have made, and it is said on standard error.
bool OfferDataFile(FrontEnd* owner, const QString& path) {
    const bool ask = owner && owner->isInteractive();
    if (ask && MsgDlg(owner,
                      QStringLiteral("There is no VK data file yet:\n") + path +
                          QStringLiteral("\nShall I create an empty one?"),
                      Confirm, MbYesNo) != IdYes)
        return false;
    QString error;
    if (!CreateEmptyDataFile(path, &error)) {
        MsgDlg(owner, error, Error, MbOk);
        return false;
    }
    if (!ask)
        MsgDlg(owner, QStringLiteral("Created an empty VK data file ") + path, Information, MbOk);
    return true;
}

bool OpenSuiteDataFile(FrontEnd* owner) {
    QString path = ProgramFolder() + QStringLiteral("vk.dbc");
    path =
        IniFile(IniFileName()).readString(QStringLiteral("main"), QStringLiteral("datafile"), path);
    if (!QFileInfo::exists(path) && !OfferDataFile(owner, path)) {
        MsgBox(owner,
               QStringLiteral("I was unable to locate VK datafile '") + path +
                   QStringLiteral("'. I am unable to \ncontinue without it. Quitting!"),
               NoIcon, MbOk);
        return false;
    }
    auto* file = new SuiteDataFile;
    if (!QFileInfo::exists(path)) {
        MsgBox(owner,
               QStringLiteral("Data file: ") + path + QStringLiteral(" doesn't exist!\nQuitting!"),
               NoIcon, MbOk);
        file->failed = true;
    }
    // Opened for use straight away, the file tells its format on the way; a
    // format 1 file is opened again as one. The suite may be writing to the
    // file just now: wait a little for it.
    std::unique_ptr<TVKDB> database;
    for (int tries = 0;; ++tries) {
        database = std::make_unique<TVKDB2>(path);
        if (database->otherFormat() == 1)
            database = std::make_unique<TVKDB1>(path);
        if (!database->formatUnknown() || database->error() != TVKDB::ErrorLocked || tries == 2)
            break;
        WaitTicks(owner, 500);
    }
    if (database->formatUnknown() && database->error() == TVKDB::ErrorLocked) {
        MsgBox(owner,
               QStringLiteral("Data file: ") + path +
                   QStringLiteral(" is in use by another program.\n"
                                  "Try again when it has finished. Quitting!"),
               NoIcon, MbOk);
        file->failed = true;
    } else if (database->formatUnknown()) {
        MsgBox(owner,
               QStringLiteral("Data file: ") + path + QStringLiteral(" is not a VK datadase!"),
               NoIcon, MbOk);
        file->failed = true;
    } else {
        file->database = database.release();
    }
    if (file->database && file->database->error() != 0) {
        MsgBox(owner,
               QStringLiteral("Data file: ") + path + QStringLiteral(" isn't valid!\nQuitting!"),
               NoIcon, MbOk);
        file->failed = true;
        delete file->database;
        file->database = nullptr;
    }
    file->owner = owner;
    if (file->failed) {
        delete file;
        SetSuiteDataFile(nullptr);
        return false;
    }
    SetSuiteDataFile(file);
    return true;
}

bool ExistsIgnoringCase(const QString& path) {
    if (QFileInfo::exists(path))
        return true;
    const QFileInfo info(path);
    const QStringList names = info.dir().entryList(QDir::Files | QDir::Hidden | QDir::System);
    return std::any_of(names.cbegin(), names.cend(), [&](const QString& name) {
        return name.compare(info.fileName(), Qt::CaseInsensitive) == 0;
    });
}

bool IsDataFileEncrypted(FrontEnd* owner, QString message) {
    // The suite's file names come from a system that ignores case, so
    // "vk.dbc" answers for "VK.dbc".
    if (ExistsIgnoringCase(DataFileName()) || !ExistsIgnoringCase(EncryptedDataFileName()))
        return false;
    if (message.isEmpty())
        message = QStringLiteral("I find your VK datafile, VK.dbc, is encrypted. You need   \n"
                                 "to start VK and decrypt the file.");
    MsgDlg(owner, message, Information, MbOk);
    return true;
}

QString GetMixmasterDir() {
    if (qEnvironmentVariableIsSet("MIXPATH"))
        return AddTrailingBackslash(qEnvironmentVariable("MIXPATH"));
    const QString home = QDir::homePath() + QStringLiteral("/.Mix");
    return QFileInfo(home).isDir() ? AddTrailingBackslash(home) : QString();
}

QString AddTrailingBackslash(const QString& path) {
    if (path.isEmpty() || path.endsWith(u'/'))
        return path;
    return path + u'/';
}

QString GetField(int index, const QString& line, QChar separator, const QString& def) {
    VK_ASSERT_TEXT(index >= 0, "pos >= 0", Global2Unit);
    if (!line.contains(separator))
        return def;
    qsizetype start = 0;
    for (int n = 0; n < index; ++n) {
        const qsizetype next = line.indexOf(separator, start);
        if (next < 0)
            return def;
        start = next + 1;
    }
    qsizetype end = line.indexOf(separator, start);
    if (end < 0)
        end = line.size();
    const QString field = line.mid(start, end - start);
    return field.isEmpty() ? def : field;
}

int MonthNumber(const QString& name) {
    static const QString months = QStringLiteral("...janfebmaraprmayjunjulaugsepoctnovdec");
    if (name.isEmpty())
        return 0;
    const qsizetype position = months.indexOf(name.toLower()) + 1; // 1-based, 0 when absent
    return int(position / 3);
}

QString MsgCaption(int type) {
    switch (type) {
    case Warning:
        return QStringLiteral("Warning");
    case Error:
        return QStringLiteral("Error");
    case Information:
        return QStringLiteral("Information");
    case Confirm:
        return QStringLiteral("Confirm");
    default:
        return ProgramName();
    }
}

QString StripAmpersand(const QString& caption) {
    QString text = caption;
    const qsizetype at = text.indexOf(u'&');
    if (at >= 0)
        text.remove(at, 1);
    return text;
}

static bool isBlankLine(const QString& line) {
    return line.trimmed().isEmpty();
}

void TrimLeadingBlankLines(PageLines& lines) {
    qsizetype n = 0;
    while (n < lines.size() && isBlankLine(lines.at(n)))
        ++n;
    lines.remove(0, n);
}

void TrimTrailingBlankLines(PageLines& lines) {
    while (!lines.isEmpty() && isBlankLine(lines.constLast()))
        lines.removeLast();
}

QString FontToString(const FontSpec& font) {
    QString styles;
    if (font.bold)
        styles += u'b';
    if (font.italic)
        styles += u'i';
    if (font.underline)
        styles += u'u';
    if (font.strikeOut)
        styles += u's';
    return font.name + u',' + QString::number(font.size) + u',' + styles + u',' +
           QString::number(font.color);
}

FontSpec StringToFont(const QString& text) {
    const QStringList fields = text.split(u',');
    const auto field = [&](int i) {
        return i < fields.size() ? fields.at(i) : QString();
    };
    FontSpec font;
    font.name = field(0);
    font.size = field(1).trimmed().toInt();
    const QString styles = field(2);
    font.bold = styles.contains(u'b');
    font.italic = styles.contains(u'i');
    font.underline = styles.contains(u'u');
    font.strikeOut = styles.contains(u's');
    font.color = field(3).trimmed().toLongLong();
    return font;
}

qint64 RunProgram(const QString& commandLine, int showMode) {
    Q_UNUSED(showMode); // a started program chooses its own window on this platform
    QStringList words = QProcess::splitCommand(commandLine);
    if (words.isEmpty())
        return 0;
    const QString program = words.takeFirst();
    qint64 pid = 0;
    return QProcess::startDetached(program, words, QString(), &pid) ? pid : 0;
}

void WaitTicks(FrontEnd* frontEnd, int ms) {
    if (frontEnd)
        frontEnd->waitTicks(ms);
    else
        processEventsFor(ms);
}

int MsgBox(FrontEnd* owner, const QString& text, int type, int buttons) {
    if (!owner)
        return messageWithoutFrontEnd(text, buttons);
    const auto kind = type >= Warning && type <= Confirm ? MsgDlgType(type) : NoIcon;
    return owner->showMessage(text, kind, buttons, MsgStyle::SystemBox);
}

int MsgDlg(FrontEnd* owner, const QString& text, int type, int buttons) {
    if (type < Warning || type > Confirm)
        return MsgBox(owner, text, NoIcon, buttons);
    if (!owner)
        return messageWithoutFrontEnd(text, buttons);
    return owner->showMessage(text, MsgDlgType(type), buttons, MsgStyle::CentredDialog);
}

bool InitHtmlHelp(FrontEnd* frontEnd) {
    g_helpLoaded = frontEnd && frontEnd->canOpenUrls();
    return g_helpLoaded;
}

void CloseHtmlHelp() {
    g_helpLoaded = false;
}

bool HtmlHelpLoaded() {
    return g_helpLoaded;
}
