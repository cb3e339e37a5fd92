// The core library's units, each driven by its case table in tests/tables
// (one slot per table) plus the few checks a table cannot hold: the shipped
// urls.txt, files changed between calls, snapshots. How fast large inputs
// go is bench/vkbench's to say.
#include "BarredEdit.h"
#include "BarredList.h"
#include "FileSizeLimit.h"
#include "Global2.h"
#include "IniFile.h"
#include "MixKeyring.h"
#include "PagePaths.h"
#include "PageSet.h"
#include "PageView.h"
#include "ProgramRun.h"
#include "RemailerDocs.h"
#include "RemailerTracking.h"
#include "SourceOrder.h"
#include "StatsSettings.h"
#include "StatsSources.h"
#include "SuiteDatabase.h"
#include "TempEnvironment.h"
#include "TestData.h"
#include "TestFrontEnd.h"
#include "TextFile.h"
#include "UrlsCases.h"

#include <QDate>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QPointer>
#include <QProcess>
#include <QSignalSpy>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QUrl>

#include <memory>
#include <optional>

namespace {

// A connection of the test's own beside the one under test, to look at what
// the file really holds and to hold locks on it. A statement that fails
// gives one "<failed: ...>" value, one that returns no rows none.
struct Raw {
    explicit Raw(const QString& path) : name(QStringLiteral("raw%1").arg(++count)) {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(path);
        db.open(); // a failure shows in every statement's result
    }
    ~Raw() {
        QSqlDatabase::database(name, false).close();
        QSqlDatabase::removeDatabase(name);
    }
    QStringList column(const QString& sql) const {
        QSqlQuery query(QSqlDatabase::database(name, false));
        if (!query.exec(sql))
            return {QStringLiteral("<failed: %1>").arg(query.lastError().text())};
        QStringList values;
        while (query.next())
            values << query.value(0).toString();
        return values;
    }
    static inline int count = 0;
    QString name;
};

std::unique_ptr<TVKDB> openAs(int version, const QString& path) {
    if (version == 1)
        return std::make_unique<TVKDB1>(path);
    return std::make_unique<TVKDB2>(path);
}

QString path(const QString& name = QStringLiteral("vk.dbc")) {
    return ProgramFolder() + name;
}

std::unique_ptr<TVKDB> made(int version) {
    QString error;
    if (!TVKDB::create(path(), version, &error))
        qFatal("cannot make a data file: %s", qPrintable(error));
    return openAs(version, path());
}

ProxyEntry entry(const QString& name, const QString& kind, const QString& host, int port,
                 const QString& user = {}, const QString& password = {}, bool hidden = false) {
    return ProxyEntry{name, kind, hidden, host, port, user, password};
}

QStringList records(TVKDB& db) {
    QStringList found;
    if (!db.getProxyRecords(found))
        return {QStringLiteral("<failed: %1>").arg(db.errorText())};
    return found;
}

// Puts a file in place for a row: "data"/"data1"/"locked" hold the proxy Tor
// and one value in format 2/1; "text" is not SQLite, "foreign" another
// program's database, "vN" ours of format N without our tables, "cutN" a
// data file cut to N bytes, "damaged" one that shows its damage only when
// the proxies are read; "folder", "empty" and "header" (SQLite's alone) are
// what they say; anything else no file.
void prepare(const QString& setup, const QString& file) {
    QString error;
    if (setup == "data" || setup == "data1" || setup == "locked") {
        const int version = setup == "data1" ? 1 : 2;
        QVERIFY(TVKDB::create(file, version, &error));
        auto db = openAs(version, file);
        QVERIFY(db->addProxy(entry("Tor", "socks5", "127.0.0.1", 9050)));
        QVERIFY(db->writeValue("statslastsource", "Pinger A"));
    } else if (setup == "text") {
        TempEnvironment::writeFile(file, "[main]\nnot=a database\n");
    } else if (setup == "foreign") {
        QCOMPARE(Raw(file).column("CREATE TABLE vk_values (name TEXT, value TEXT)"), QStringList());
    } else if (setup.startsWith(u'v')) {
        Raw raw(file);
        for (const QString& sql :
             {QStringLiteral("PRAGMA application_id = %1").arg(VkdbApplicationId),
              "PRAGMA user_version = " + setup.mid(1), QStringLiteral("CREATE TABLE t (x)")})
            QCOMPARE(raw.column(sql), QStringList());
    } else if (setup.startsWith("cut")) {
        QVERIFY(TVKDB::create(file, 2, &error) && QFile(file).resize(setup.mid(3).toInt()));
    } else if (setup == "damaged") { // behind an intact first page: header and schema
        prepare("data", file);
        int pageSize = 0;
        {
            Raw raw(file);
            QCOMPARE(raw.column("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n "
                                "WHERE i < 300) INSERT INTO vk_proxies (name, kind, hidden, host, "
                                "port, user, password) SELECT 'proxy ' || i, 'http', 0, "
                                "'host.example', i, 'user', 'password' FROM n"),
                     QStringList());
            pageSize = raw.column("PRAGMA page_size").value(0).toInt();
        }
        QFile data(file);
        QVERIFY(pageSize >= 512 && data.open(QIODevice::ReadWrite) && data.size() > 8 * pageSize);
        QVERIFY(data.seek(2 * pageSize) && data.write(QByteArray(data.size() - 2 * pageSize, 'U')));
    } else if (setup == "folder") {
        QVERIFY(QDir().mkpath(file));
    } else if (setup == "empty" || setup == "header") {
        TempEnvironment::writeFile(file, setup == "empty" ? QByteArray()
                                                          : QByteArray("SQLite format 3", 16));
    }
}

// An error code by the name the table gives it, in the order of TVKDB::ErrorCode.
int errorCode(const QString& name) {
    const int at = QStringList{"ok",     "failed",   "missing", "notdata", "damaged",
                               "locked", "notfound", "exists",  "bad"}
                       .indexOf(name);
    if (at < 0)
        qFatal("unknown error code %s", qPrintable(name));
    return at;
}

} // namespace

namespace {

// A table's list field: joined by |, "-" (or nothing, where allowed) for none.
QStringList list(const QString& field) {
    return field == u'-' ? QStringList() : field.split(u'|');
}

QStringList split(const QString& field) {
    return field.isEmpty() ? QStringList() : field.split(u'|');
}

// The messages a test front end was shown, each as type letter (W E I C N, ?),
// buttons, style (c: centred dialog, s: system box) and text, the program
// folder written as @P@.
QString shown(const TestFrontEnd& ui) {
    QStringList out;
    for (const TestFrontEnd::Message& m : ui.messages)
        out << QStringLiteral("WEICN?").mid(m.type < 0 ? 4 : qMin(int(m.type), 5), 1) +
                   QString::number(m.buttons) + (m.style == MsgStyle::CentredDialog ? u'c' : u's') +
                   u':' + QString(m.text).replace(ProgramFolder(), QStringLiteral("@P@"));
    return out.join(QStringLiteral(" / "));
}

QString fontText(const QString& text) {
    const FontSpec f = StringToFont(text);
    const QString styles = QString(f.bold ? u'b' : u'-') + (f.italic ? u'i' : u'-') +
                           (f.underline ? u'u' : u'-') + (f.strikeOut ? u's' : u'-');
    return QStringLiteral("%1 %2 %3 %4 = %5")
        .arg(f.name)
        .arg(f.size)
        .arg(styles)
        .arg(f.color)
        .arg(FontToString(f));
}

QString trimBoth(const QString& text) {
    PageLines leading = list(text), trailing = leading;
    TrimLeadingBlankLines(leading);
    TrimTrailingBlankLines(trailing);
    return (leading.isEmpty() ? "-" : leading.toStringList().join(u'|')) + QStringLiteral(" ; ") +
           (trailing.isEmpty() ? "-" : trailing.toStringList().join(u'|'));
}

QString mixmasterDir(const QString& mixpath, bool homeMix) {
    QTemporaryDir home;
    const QByteArray oldHome = qgetenv("HOME");
    qputenv("HOME", home.path().toLocal8Bit());
    if (homeMix)
        QDir(home.path()).mkdir(QStringLiteral(".Mix"));
    if (mixpath == u'-')
        qunsetenv("MIXPATH");
    else
        qputenv("MIXPATH", mixpath.toLocal8Bit());
    const QString found = GetMixmasterDir().replace(home.path(), QStringLiteral("HOME"));
    qputenv("HOME", oldHome);
    return found;
}

// Where the program keeps its files when VKSTATS_HOME ("-": unset) does not
// say: below the temporary folder, or "<exe>"; "again" when it moved once the
// folder was made current, "open" when others may look into it.
QString programFolder(const QString& home, bool portable) {
    QTemporaryDir temp;
    const QString marker = QCoreApplication::applicationDirPath() + "/portable";
    if (portable)
        TempEnvironment::writeFile(marker, "");
    const QString oldCurrent = QDir::currentPath();
    QDir::setCurrent(temp.path());
    qputenv("XDG_DATA_HOME", (temp.path() + "/data").toLocal8Bit());
    if (home == "-")
        qunsetenv("VKSTATS_HOME");
    else
        qputenv("VKSTATS_HOME", home.toLocal8Bit());
    const QString first = ProgramFolder();
    QDir().mkpath(first);
    QDir::setCurrent(first); // as start-up does
    const QString again = ProgramFolder();
    const bool open =
        QFileInfo(first).permissions() & (QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup |
                                          QFile::ReadOther | QFile::WriteOther | QFile::ExeOther);
    QDir::setCurrent(oldCurrent);
    qunsetenv("XDG_DATA_HOME");
    QFile::remove(marker);
    QString got = first == QCoreApplication::applicationDirPath() + '/'
                      ? QStringLiteral("<exe>")
                      : QString(first).remove(QDir(temp.path()).canonicalPath() + '/');
    if (again != first)
        got += " again " + again;
    if (open && home == "-" && !portable)
        got += " open";
    return got;
}

// Only VK.pgp without VK.dbc (files: 1 VK.dbc, 2 VK.pgp) means the data file
// is encrypted: whether it is, then what was said.
QString encrypted(int files, const QString& text) {
    if (files & 1)
        TempEnvironment::writeFile(DataFileName(), "x");
    if (files & 2)
        TempEnvironment::writeFile(EncryptedDataFileName(), "x");
    TestFrontEnd ui;
    const bool is = text.isEmpty() ? IsDataFileEncrypted(&ui) : IsDataFileEncrypted(&ui, text);
    return QString::number(is) + u'|' + shown(ui);
}

// Opens the suite's data file after a set-up: "none" (no file; the offer to
// make one answered yes or no), "v2", "override" (named in the suite's
// settings), "nofolder" (named there, in a folder that is not there) or
// "locked" (held by another connection). Then: opened, format,
// whether it waited three seconds, its permissions, what was said.
QString openDataFile(const QString& setup, const QString& answer) {
    QString path = ProgramFolder() + "vk.dbc";
    if (setup == "override" || setup == "nofolder") {
        path = ProgramFolder() + "elsewhere/suite.dbc";
        IniFile(IniFileName()).writeString("main", "datafile", path);
    }
    QString error;
    if (setup != "none" && setup != "nofolder" && QDir().mkpath(ProgramFolder() + "elsewhere"))
        TVKDB::create(path, 2, &error);
    std::optional<Raw> holder;
    if (setup == "locked") { // the row then shows the wait, or fails
        holder.emplace(path);
        holder->column("BEGIN EXCLUSIVE");
    }
    TestFrontEnd ui;
    ui.answers = {answer == "yes" ? IdYes : IdNo};
    QElapsedTimer clock;
    clock.start();
    const bool opened = OpenSuiteDataFile(&ui);
    error = QStringLiteral("%1|%2|%3|%4|")
                .arg(opened)
                .arg(opened               ? TheSuiteDataFile()->database->version()
                     : TheSuiteDataFile() ? -1
                                          : 0)
                .arg(clock.elapsed() >= 3000 ? "waited" : "")
                .arg(QFileInfo(path).permissions() & 0x0FFF, 0, 16) +
            shown(ui);
    if (opened && TheSuiteDataFile()->owner != &ui)
        error += " (wrong owner)";
    CloseSuiteDataFile();
    return error;
}

// Where a document is found after the entries of made (a folder when it
// ends in "/") are put in the program folder; that folder reads @P@.
QString docFile(const QString& name, const QString& made) {
    for (const QString& entry : split(made)) {
        QDir().mkpath(ProgramFolder() + entry.section(u'/', 0, -2));
        if (!entry.endsWith(u'/'))
            TempEnvironment::writeFile(ProgramFolder() + entry, "x");
    }
    return FindDocFile(name).replace(ProgramFolder(), QStringLiteral("@P@"));
}

// Runs the built tool with input on its standard input and waits for it.
ProgramRun vkdbtool(const QStringList& arguments, const QByteArray& input = {}) {
    return RunToEnd(QStringLiteral(VKDBTOOL), arguments, QProcessEnvironment::systemEnvironment(),
                    60000, input);
}

} // namespace

class TestCore : public QObject {
    Q_OBJECT
private slots:
    void init() {
        m_env.reset(); // the old one restores the environment it found
        m_env = std::make_unique<TempEnvironment>();
        QVERIFY(m_env->isValid());
        m_ui = TestFrontEnd();
    }
    void cleanup() { CloseSuiteDataFile(); }

    void ini_data() { AddTableRows(QStringLiteral("inifile.txt")); }
    void ini();
    void settings_data() { AddTableRows(QStringLiteral("settings.txt")); }
    void settings();
    void global2_data() { AddTableRows(QStringLiteral("global2.txt")); }
    void global2();
    void msgDlgWaitTicksRunProgram();

    void urls_data() { AddTableRows(QStringLiteral("urls.txt")); }
    void urls();
    void urlsReadAfresh();
    void shippedUrls();
    void sourceOrder_data() { AddTableRows(QStringLiteral("sourceorder.txt")); }
    void sourceOrder();
    void sourceOrderRefused_data() { AddSaveObstacleRows(); }
    void sourceOrderRefused();

    void barred_data() { AddTableRows(QStringLiteral("barred.txt")); }
    void barred();
    void barEdit_data() { AddTableRows(QStringLiteral("baredit.txt")); }
    void barEdit();
    void barEditStoredFiles();
    void tracking_data() { AddTableRows(QStringLiteral("tracking.txt")); }
    void tracking();
    void pageLines_data() { AddTableRows(QStringLiteral("pagelines.txt")); }
    void pageLines();
    void pageViewAndClasses();
    void docs_data() { AddTableRows(QStringLiteral("docs.txt")); }
    void docs();

    void dataFile_data() { AddTableRows(QStringLiteral("proxies.txt")); }
    void dataFile();
    void tool_data() { AddTableRows(QStringLiteral("vkdbtool.txt")); }
    void tool();

private:
    QString urlsPath() const { return ProgramFolder() + "urls.txt"; }
    std::unique_ptr<TempEnvironment> m_env;
    TestFrontEnd m_ui;
};

// ---------------------------------------------------------------- settings

void TestCore::ini() {
    QFETCH(QStringList, f);
    const QString path =
        ProgramFolder() + (f[1] == "@nofolder" ? "no/folder/" : "") + "vkstats.ini";
    if (f[1] == "@dir")
        QVERIFY(QDir().mkdir(path));
    else if (f[0] != "trip" && f[1] != u'-' && f[1] != "@nofolder")
        TempEnvironment::writeFile(path, f[1].toLatin1());
    IniFile ini(path);
    if (f[0] == "ops") {
        std::optional<IniFile::Operation> operation;
        QStringList said;
        for (const QString& step : f[2].split(u'|')) {
            const QStringList w = step.split(u' ');
            if (w[0] == "r")
                said << ini.readString(w[1], w[2], "-");
            else if (w[0] == "w" || w[0] == "d")
                said << QString::number(w[0] == "w" ? ini.writeString(w[1], w[2], w[3])
                                                    : ini.deleteKey(w[1], w[2]));
            else if (w[0] == "keys")
                said << ini.readSectionKeys(w[1]).join(u',');
            else if (w[0] == "file")
                TempEnvironment::writeFile(path, step.mid(5).toLatin1());
            else if (w[0] == "show")
                said << TempEnvironment::readFile(path);
            else if (w[0] == "error")
                said << QString(ini.errorString()).replace(path, "@PATH@");
            else if (w[0] == "begin")
                operation.emplace(ini);
            else if (w[0] == "commit")
                said << QString::number(operation->commit());
            else if (w[0] == "drop")
                operation.reset();
            else
                QFAIL("unknown step");
        }
        QCOMPARE(said.join(u'|'), f[3]);
        QCOMPARE(TempEnvironment::readFile(path), f[4].toLatin1());
    } else if (f[0] == "read") {
        QCOMPARE(ini.readString(f[2], f[3], "DEF"), f[4]);
    } else if (f[0] == "write") {
        QVERIFY(ini.writeString(f[2], f[3], f[4]));
        QCOMPARE(TempEnvironment::readFile(path), f[5].toUtf8());
    } else if (f[0] == "trip") {
        QVERIFY(ini.writeString("stats", "key", f[1]));
        QVERIFY(ini.writeString("stats", "other", "x"));
        QCOMPARE(IniFile(path).readString("stats", "key", "DEF"), f[1]);
        QCOMPARE(TempEnvironment::readFile(path),
                 QByteArray("[stats]\nkey=") + f[1].toUtf8() + "\nother=x\n");
    } else if (f[0] == "number") {
        QVERIFY(ini.writeString("stats", "k", f[1]));
        QCOMPARE(ini.readInteger("stats", "k", -7), f[2].toInt());
        // A bool that cannot be read gives its default; both defaults show it.
        QCOMPARE(ini.readBool("stats", "k", true), f[3] == u'1');
        QCOMPARE(ini.readBool("stats", "k", false), f[2] != "-7" && f[3] == u'1');
        QVERIFY(ini.writeBool("stats", "b", false) && ini.writeBool("stats", "c", true));
        QCOMPARE(ini.readString("stats", "b", {}) + ini.readString("stats", "c", {}), "01");
    } else {
        QFAIL("unknown case kind");
    }
}

// What a load made of the settings, as one line a table row can hold.
static QString describe(const MainSettings& s) {
    const auto n = [](auto v) {
        return QString::number(v);
    };
    return QStringLiteral("tb=%1|sb=%2|bar=%3|exit=%4|color=%5|%6|%7|%8|%9|%10")
        .arg(n(s.showToolbar), n(s.showStatusBar), n(s.barNew), n(s.exitLeft), n(s.windowColor),
             s.tickedPages.join(u','), s.statsFont, s.windowFont, s.editorFont, s.dialogFont);
}

static QString describe(const StatsOptions& o) {
    const auto n = [](auto v) {
        return QString::number(v);
    };
    return QStringLiteral("%1%2%3%4%5|color=%6|%7|%8|%9|%10")
        .arg(n(o.autoLoad), n(o.windowCentered), n(o.barNew), n(o.cascadeStatsOnly), n(o.cascade),
             n(o.windowColor), o.windowFont, o.dialogFont, o.editorFont, n(o.timeoutSeconds));
}

void TestCore::settings() {
    QFETCH(QStringList, f);
    const QString path = ProgramFolder() + "vkstats.ini";
    IniFile ini(path);
    const auto rect = [](const QRect& r) {
        return QStringLiteral("%1,%2,%3,%4").arg(r.x()).arg(r.y()).arg(r.width()).arg(r.height());
    };
    if (f[0] == "main" || f[0] == "options") {
        if (f[1] != u'-')
            TempEnvironment::writeFile(path, f[1].toLatin1());
        QCOMPARE(f[0] == "main" ? describe(LoadMainSettings(ini)) : describe(LoadStatsOptions(ini)),
                 f[2]);
    } else if (f[0] == "pages") {
        QVERIFY(ini.writeString("stats", "pages", f[1]));
        const MainSettings loaded = LoadMainSettings(ini);
        QCOMPARE(loaded.tickedPages.join(u'|'),
                 QString(f[2]).replace("@ALL@", UpdatePageOrder().join(u'|')));
        MainSettingsToSave out;
        out.tickedPages = loaded.tickedPages;
        QVERIFY(SaveMainSettings(ini, out));
        QCOMPARE(ini.readString("stats", "pages", "DEF"),
                 QString(f[3]).replace("@ALL@", UpdatePageOrder().join(u',')));
    } else if (f[0] == "geometry") {
        const WindowGeometry g = ParseWindowRecord(f[1], QSize(686, 516));
        QCOMPARE(g.state, f[2].toInt());
        QCOMPARE(g.placement, 0);
        QCOMPARE(rect(g.rect), f[3]);
    } else if (f[0] == "record") {
        QCOMPARE(MakeWindowRecord(f[1], f[2].toInt(), 0, QRect(50, 60, 700, 500)), f[3]);
    } else if (f[0] == "comma") {
        QCOMPARE(ToCommaText(f[1] == u'-' ? QStringList() : f[1].split(u'|')), f[2]);
    } else if (f[0] == "timeout") {
        QVERIFY(ini.writeString("stats", "timeoutseconds", f[1]));
        QCOMPARE(LoadStatsOptions(ini).timeoutSeconds, f[2].toInt());
        QCOMPARE(ReadTimeoutSeconds(ini), f[3].toInt());
    } else if (f[0] == "fromtext") {
        QCOMPARE(TimeoutFromText(f[1]), f[2].toInt());
    } else {
        QFAIL("unknown case kind");
    }
}

void TestCore::global2() {
    QFETCH(QStringList, f);
    const QString& fn = f[0];
    QString got;
    if (fn == "GetField")
        got = GetField(f[1].toInt(), f[2], f[3].at(0), f[4]);
    else if (fn == "MonthNumber")
        got = QString::number(MonthNumber(f[1]));
    else if (fn == "StripAmpersand")
        got = StripAmpersand(f[1]);
    else if (fn == "AddTrailingBackslash")
        got = AddTrailingBackslash(f[1]);
    else if (fn == "TrimBlankLines")
        got = trimBoth(f[1]);
    else if (fn == "Font")
        got = fontText(f[1]);
    else if (fn == "MixmasterDir")
        got = mixmasterDir(f[1], f[2] == u'1');
    else if (fn == "ProgramFolder")
        got = programFolder(f[1], f[2] == u'1');
    else if (fn == "Encrypted")
        got = encrypted(f[1].toInt(), f[2]);
    else if (fn == "DataFileName")
        got = DataFileName().replace(ProgramFolder(), "@P@") + u'|' +
              EncryptedDataFileName().replace(ProgramFolder(), "@P@");
    else if (fn == "OpenDataFile")
        got = openDataFile(f[1], f[2]);
    else if (fn == "DocFile")
        got = docFile(f[1], f[2]);
    else
        QFAIL("unknown function in the table");
    QCOMPARE(got, f.last());
}

void TestCore::msgDlgWaitTicksRunProgram() {
    m_ui.answers = {IdYes};
    QCOMPARE(MsgDlg(&m_ui, "q", Confirm, MbYesNoCancel), int(IdYes));
    QCOMPARE(MsgDlg(&m_ui, "odd", 9, MbOk), int(IdOk));
    QCOMPARE(MsgBox(&m_ui, "w", Warning, MbOkCancel), int(IdCancel));
    QCOMPARE(MsgBox(&m_ui, "c", Confirm, MbYesNo), int(IdNo));
    QCOMPARE(shown(m_ui), "C3c:q / N0s:odd / W1s:w / C4s:c");

    bool fired = false;
    QTimer::singleShot(10, [&] { fired = true; });
    QElapsedTimer clock;
    clock.start();
    WaitTicks(nullptr, 60);
    QVERIFY(fired);
    QVERIFY(clock.elapsed() >= 59);

    // The quoted name must reach touch as one argument; a shell would also
    // have expanded the $HOME, which must stay literal.
    const QString marker = ProgramFolder() + "made by touch";
    QVERIFY(QDir::setCurrent(ProgramFolder()));
    QVERIFY(RunProgram(QStringLiteral("touch \"%1\" \"$HOME\"").arg(marker), SwShowNormal) > 0);
    QTRY_VERIFY(QFile::exists(marker));
    QTRY_VERIFY(QFile::exists(ProgramFolder() + "$HOME"));
    QCOMPARE(RunProgram(QStringLiteral("/nonexistent/tool arg"), SwShowNormal), qint64(0));
    QCOMPARE(RunProgram(QString(), SwShowNormal), qint64(0));
}

// ---------------------------------------------------------------- urls.txt

static void installDefault(const QString& before, bool written) {
    QString path = ProgramFolder() + "urls.txt";
    if (before == "file" || before.isEmpty())
        TempEnvironment::writeFile(path, before.toLatin1());
    else if (before == "directory")
        QVERIFY(QDir().mkdir(path));
    else if (before == "dangling link")
        QVERIFY(QFile::link(ProgramFolder() + "nowhere/urls.txt", path));
    else if (before == "no folder")
        path = ProgramFolder() + "missing/urls.txt";
    const QFileInfo was(path);
    QString error;
    bool didWrite = !written;
    QCOMPARE(InstallDefaultUrls(path, &error, &didWrite), before != "no folder");
    QCOMPARE(didWrite, written);
    QCOMPARE(error.isEmpty(), before != "no folder");
    const QFileInfo is(path);
    QCOMPARE(is.isDir(), was.isDir());
    QCOMPARE(is.isSymLink(), was.isSymLink());
    QCOMPARE(TempEnvironment::readFile(path), written            ? DefaultUrlsBytes()
                                              : before == "file" ? "file"
                                                                 : QByteArray());
    QCOMPARE(QFileInfo::exists(path), before != "no folder" && before != "dangling link");
}

void TestCore::urls() {
    QFETCH(QStringList, f);
    if (f[0] == "install")
        return installDefault(f[1], f[2] == u'1');
    QVERIFY(PlaceUrls(urlsPath(), f[1] == u'-' ? MissingUrls : f[1].toLatin1()));
    const StatsSourceList sources(urlsPath(), &m_ui);
    const QString& kind = f[0];
    if (kind == "name") {
        QCOMPARE(sources.sourceNameByIndex(f[2].toInt()), f[3]);
        if (f[2] == u'0')
            QCOMPARE(sources.defaultSource(), f[3]);
    } else if (kind == "lines") {
        QCOMPARE(sources.pageLines(f[2]).join(u'|'), f[3]);
    } else if (kind == "marked") {
        QCOMPARE(sources.markedPages("a", f[2].split(u'|')).join(u'|'), f[3]);
    } else if (kind == "url") {
        QCOMPARE(sources.urlOfPage(f[2], f[3]), f[4]);
        QCOMPARE(shown(m_ui), f[5].isEmpty() ? QString() : "W0c:" + f[5]);
    } else if (kind == "box") {
        const SourceBoxContent box = sources.sourceBoxContent(f[2]);
        QCOMPARE(box.entries.join(u'|'), f[3]);
        QCOMPARE(box.selected, f[4].toInt());
    } else if (kind == "pingers") {
        QCOMPARE(AllPingersToUrls(f[2].split(u'|'), ReadLines(urlsPath())).join(u'|'), f[3]);
    } else if (kind == "move") {
        QVERIFY(sources.moveSource(f[2], f[3].toInt()));
        QCOMPARE(TempEnvironment::readFile(urlsPath()), f[4].toLatin1());
    } else {
        QFAIL("unknown case kind");
    }
    if (kind != "url")
        QCOMPARE(shown(m_ui), QString());
}

void TestCore::urlsReadAfresh() {
    const StatsSourceList sources(urlsPath(), &m_ui);
    QCOMPARE(sources.defaultSource(), QString());
    TempEnvironment::writeFile(urlsPath(), "[a]\nmlist.txt http://a/m\n");
    QCOMPARE(sources.defaultSource(), QStringLiteral("a"));
    TempEnvironment::writeFile(urlsPath(),
                               "[b]\nmlist.txt http://b/m\n\n[a]\nmlist.txt http://a/n\n");
    QCOMPARE(sources.defaultSource(), QStringLiteral("b"));
    QCOMPARE(sources.urlOfPage("a", "mlist.txt"), QStringLiteral("http://a/n"));
    QVERIFY(QFile::remove(urlsPath()));
    QCOMPARE(sources.sourceBoxContent("a").entries, QStringList{});
}

// The shipped list is compiled in, and every pinger in it offers the four
// pages at a web address; every section but the last is closed by a blank
// line, so a hand-added entry cannot slip into the next.
void TestCore::shippedUrls() {
    QFile source(QStringLiteral(VK_TESTDATA "/../../data/urls.txt"));
    QVERIFY2(source.open(QIODevice::ReadOnly), qPrintable(source.fileName()));
    QCOMPARE(DefaultUrlsBytes(), source.readAll());
    QVERIFY(InstallDefaultUrls(urlsPath()));
    const QStringList lines = ReadLines(urlsPath());
    QCOMPARE(lines.value(0), QStringLiteral("velkin urls"));
    const StatsSourceList sources(urlsPath(), &m_ui);
    QStringList names;
    while (!sources.sourceNameByIndex(int(names.size())).isEmpty())
        names.append(sources.sourceNameByIndex(int(names.size())));
    QVERIFY(names.size() >= 2);
    QCOMPARE(names.takeLast(), QStringLiteral("velkin"));
    QCOMPARE(sources.sourceBoxContent("").entries, names);
    for (const QString& pinger : names) {
        const QStringList pages = sources.pageNames(pinger);
        for (const QString& page : StatsPages) {
            const QUrl url(sources.urlOfPage(pinger, page), QUrl::StrictMode);
            QVERIFY2(pages.count(page) == 1 && url.isValid() && !url.host().isEmpty() &&
                         (url.scheme() == "http" || url.scheme() == "https"),
                     qPrintable(pinger + ": " + page));
        }
        for (const QString& page : pages)
            QVERIFY2(StatsPages.contains(page) || page == "type2.list", qPrintable(page));
    }
    for (qsizetype i = 2; i < lines.size(); ++i) {
        if (lines.at(i).startsWith('['))
            QVERIFY2(lines.at(i - 1).isEmpty(), qPrintable(lines.at(i)));
    }
    QVERIFY(!lines.last().isEmpty());
    QCOMPARE(shown(m_ui), QString());
}

// ---------------------------------------------------------------- source order

void TestCore::sourceOrder() {
    QFETCH(QStringList, f);
    const QString& kind = f[0];
    if (kind == "chosen") {
        QCOMPARE(ChosenUpdatePages(list(f[1])), list(f[2]));
        return;
    }
    QVERIFY(PlaceUrls(urlsPath(), f[1] == "<missing>" ? MissingUrls : f[1].toLatin1()));
    const QStringList before = ReadLines(urlsPath());
    if (kind == "names") {
        QCOMPARE(ReorderSourceNames(before), list(f[2]));
        QCOMPARE(UpdateSourceNames(before), list(f[3]));
    } else if (kind == "pages") {
        QCOMPARE(SectionPageNames(before, f[2]), list(f[3]));
    } else if (kind == "lines") {
        QCOMPARE(SectionLinesToWrite(before, f[2]), list(f[3]));
    } else if (kind == "rewrite") {
        QStringList order = list(f[2]);
        if (f[2] == "@reversed") {
            const QStringList listed = ReorderSourceNames(before);
            order = QStringList(listed.crbegin(), listed.crend());
        }
        const QStringList result = list(f[3]);
        QCOMPARE(ReorderedUrlLines(before, order).join(u'\n'), result.join(u'\n'));
        QVERIFY(WriteSourceOrder(urlsPath(), order, &m_ui));
        // Whole lines with the platform's line end, the last one too.
        QCOMPARE(TempEnvironment::readFile(urlsPath()), (result.join(u'\n') + u'\n').toLatin1());
        // What it wrote reads back in that order and rewrites to itself.
        const QStringList names = ReorderSourceNames(result);
        QCOMPARE(ReorderedUrlLines(result, names).join(u'\n'), result.join(u'\n'));
        QCOMPARE(shown(m_ui), QString());
    } else {
        QFAIL("unknown case kind");
    }
}

// Both ways of reordering the sources, each from a fresh set-up.
void TestCore::sourceOrderRefused() {
    QFETCH(QString, obstacle);
    CheckSaveRefused(obstacle, urlsPath(), m_ui, [this](const QString& path) {
        return StatsSourceList(path, &m_ui).moveSource("b", 0);
    });
    if (QTest::currentTestFailed())
        return;
    init();
    CheckSaveRefused(obstacle, urlsPath(), m_ui, [this](const QString& path) {
        return WriteSourceOrder(path, {"b", "a"}, &m_ui);
    });
}

// ---------------------------------------------------------------- barred remailers

// A row's stored pages after the bars: "-" none, "=" as placed, else the
// real page with the named edits joined by +, in tests/data/barred.
static QStringList storedPage(const QString& name, const QString& edits) {
    if (edits == u'-')
        return {};
    if (edits == u'=')
        return name == "type2.list" ? QStringList{"type2.list as it was"}
                                    : RealPageLines("2001-11-07", name);
    bool ok = false;
    const QStringList lines =
        ReadLines(QStringLiteral(VK_TESTDATA "/barred/%1.%2").arg(name, edits), &ok);
    if (!ok)
        qFatal("no test page %s.%s", qPrintable(name), qPrintable(edits));
    return lines;
}

static void barredStoredFiles(const QStringList& f) {
    const QStringList barred = split(f[1]), present = split(f[2]);
    const QString blocked = f[3] == u'-' ? QString() : f[3];
    if (!barred.isEmpty())
        QVERIFY(WriteLines(BarredList::path(), barred));
    for (const QString& name : present) {
        if (name == "type2.list")
            QVERIFY(WriteLines(PagePath(name), {"type2.list as it was"}));
        else if (name != blocked)
            QVERIFY(QFile::copy(QStringLiteral(VK_REALDATA "/2001-11-07/") + name, PagePath(name)));
    }
    if (!blocked.isEmpty())
        QVERIFY(QDir().mkdir(PagePath(blocked)) &&
                WriteLines(PagePath(blocked) + "/inside", {"kept"}));
    QString error = QStringLiteral("not cleared");
    QCOMPARE(ApplyBarredListToStoredFiles(&error), blocked.isEmpty());
    QVERIFY2(blocked.isEmpty() ? error.isEmpty() : error.contains(PagePath(blocked)),
             qPrintable(error));
    const QStringList names = {"mlist.txt", "pubring.mix", "type2.list", "rlist.txt"};
    QList<QStringList> expected;
    for (int i = 0; i < 4; ++i)
        expected += storedPage(names[i], f[4 + i]);
    for (int i = 0; i < 4; ++i) {
        bool ok = false;
        if (names[i] == blocked)
            QCOMPARE(ReadLines(PagePath(blocked) + "/inside"), QStringList{"kept"});
        else if (expected[i].isEmpty())
            QVERIFY2(!QFileInfo::exists(PagePath(names[i])), qPrintable(names[i]));
        else
            QVERIFY2(ReadLines(PagePath(names[i]), &ok) == expected[i] && ok, qPrintable(names[i]));
    }
    // Nothing lands in the program folder but the list itself.
    QCOMPARE(QDir(ProgramFolder()).entryList(QDir::Files),
             barred.isEmpty() ? QStringList() : QStringList{"barred.txt"});
}

void TestCore::barred() {
    QFETCH(QStringList, f);
    if (f[0] == "parse") {
        const BarredList list(split(f[1]));
        QCOMPARE(list.fullBars(), split(f[2]));
        QCOMPARE(list.lastOnly(), split(f[3]));
        for (const QString& name : split(f[4]))
            QVERIFY2(list.isFullyBarred(name), qPrintable(name));
        for (const QString& name : split(f[5]))
            QVERIFY2(!list.isFullyBarred(name), qPrintable(name));
        for (const QString& name : split(f[3]))
            QVERIFY(list.isLastOnly(name) && list.isLastOnly(name.toUpper()));
    } else if (f[0] == "apply") {
        const QStringList page{QStringLiteral("first line"), f[3], QStringLiteral("last line")};
        QStringList expected = page;
        if (f[4] == u'-')
            expected.removeAt(1);
        else
            expected[1] = f[4];
        PageLines direct = page;
        // Whether the page changed is what the call returns.
        QCOMPARE(ApplyBarredList(direct, f[2], BarredList(split(f[1]))), expected != page);
        QCOMPARE(direct.toStringList(), expected);
        // The same through barred.txt, as the page set's filter runs it.
        if (!f[1].isEmpty())
            QVERIFY(WriteLines(BarredList::path(), split(f[1])));
        PageLines filtered = page;
        RemoveBarredRemailers(filtered, f[2]);
        QCOMPARE(filtered.toStringList(), expected);
    } else if (f[0] == "stored") {
        barredStoredFiles(f);
    } else if (f[0] == "append") {
        // CR LF as a Windows editor leaves it; the lines themselves must survive.
        const QString path = BarredList::path();
        if (!f[1].isEmpty())
            TempEnvironment::writeFile(path, split(f[1]).join("\r\n").toLatin1() + "\r\n");
        const QByteArray before = TempEnvironment::readFile(path);
        QString error;
        QVERIFY(AppendNewlyBarred(split(f[2]), &error));
        QVERIFY(error.isEmpty());
        QCOMPARE(ReadLines(path), split(f[3] == u'=' ? f[1] : f[3]));
        QCOMPARE(TempEnvironment::readFile(path) == before, f[3] == u'=');
    } else {
        QFAIL("unknown case kind");
    }
}

// ---------------------------------------------------------------- bar editor

namespace {

// A small Mixmaster stats page holding the given remailers.
QStringList statsPage(const QStringList& names) {
    QStringList lines{"Last update: Wed 07 Nov 2001 12:00:00 GMT",
                      "mixmaster           history  latency  uptime",
                      "--------------------------------------------"};
    for (const QString& name : names)
        lines.append(name.leftJustified(15) + "************    25:00 100.00%");
    return lines + QStringList{QString(), "Remailer-Capabilities:"};
}

// Rows as "name state listed|file [fixed]", so that a failure shows them all.
QString describe(const BarredRow& row) {
    static const char* const states[] = {"none", "full", "last"};
    return row.name + ' ' + states[int(row.state)] + ' ' + (row.listed ? "listed" : "file") +
           (row.fixed ? " fixed" : "");
}

QStringList describe(const QList<BarredRow>& rows) {
    QStringList out;
    for (const BarredRow& row : rows)
        out.append(describe(row));
    return out;
}

BarAction actionNamed(const QString& name) {
    const int at = QStringList{"Bar", "BarFromLast", "Unbar", "UnbarFromLast"}.indexOf(name);
    if (at < 0)
        qFatal("unknown action %s", qPrintable(name));
    return std::array{BarAction::Bar, BarAction::BarFromLast, BarAction::Unbar,
                      BarAction::UnbarFromLast}[at];
}

} // namespace

void TestCore::barEdit() {
    QFETCH(QStringList, f);
    QList<PageLines> pages;
    for (const QString& names : f[1] == u'-' ? QStringList() : f[1].split(" / "))
        pages.append(names == "@real" ? RealPageLines("2001-11-07", "mlist.txt")
                                      : statsPage(names.split(u' ')));
    if (f[0] == "rows") {
        const BarredEdit edit(pages, list(f[2]));
        QCOMPARE(describe(edit.rows()), list(f[3]));
        QVERIFY(!edit.changed());
        // Nothing changed, nothing rewritten: notes, spelling and repeats stay.
        QCOMPARE(edit.fileLines(), list(f[2]));
        for (const BarredRow& row : edit.rows())
            QCOMPARE(row.initial, row.state);
    } else if (f[0] == "apply") {
        BarredEdit edit(pages, list(f[2]));
        QString applied;
        for (const QString& step : list(f[3])) {
            // A name not in the list has no row (-1), and nothing applies to it.
            const int row = edit.rowOf(step.section(' ', 0, 0));
            const BarAction action = actionNamed(step.section(' ', 1));
            const QList<BarredRow> before = edit.rows();
            const bool done = edit.apply(row, action);
            applied += done ? u'1' : u'0';
            if (row >= 0)
                QCOMPARE(edit.rows().at(row).state,
                         done ? BarActionTarget(action) : before.at(row).state);
        }
        QCOMPARE(applied, f[4]);
        QCOMPARE(edit.changed(), f[5] == u'1');
        QCOMPARE(edit.fileLines(), list(f[6]));
        // The lines written read back to the states the rows show; a list made
        // afresh from them shows the same rows, less those on no page and
        // barred no more.
        const BarredList read(edit.fileLines());
        QStringList kept;
        for (const BarredRow& row : edit.rows()) {
            const BarState state = read.isFullyBarred(row.name) ? BarState::Full
                                   : read.isLastOnly(row.name)  ? BarState::LastOnly
                                                                : BarState::None;
            QVERIFY2(state == row.state, qPrintable(describe(row)));
            if (row.listed || row.state != BarState::None)
                kept << describe(row);
        }
        QCOMPARE(describe(BarredEdit(pages, edit.fileLines()).rows()), kept);
    } else if (f[0] == "caption") {
        static const char* const states[] = {"none", "full", "last"};
        QCOMPARE(BarActionCaption(actionNamed(f[1]), f[2]), f[3]);
        QCOMPARE(QString::fromLatin1(states[int(BarActionTarget(actionNamed(f[1])))]), f[4]);
    } else {
        QFAIL("unknown case kind");
    }
}

// With no stored pages the editor starts from barred.txt alone, or empty
// when that is missing too (pages and an unreadable list: tst_windows'
// barredRemailers). A snapshot of barred.txt puts back exactly what was
// there, or nothing.
void TestCore::barEditStoredFiles() {
    const QString barred = BarredList::path();
    bool ok = false;
    for (const QByteArray& bytes : {QByteArray("dizum\r\nslug,last\r\n\xe9t\xe9"), QByteArray()}) {
        for (const bool existed : {true, false}) {
            QFile::remove(barred);
            if (existed)
                TempEnvironment::writeFile(barred, bytes);
            ok = false;
            const BarredEdit edit = BarredEdit::fromStoredFiles(barred, &ok);
            QVERIFY(ok);
            if (!existed)
                QCOMPARE(describe(edit.rows()), QStringList{"lcs full file fixed"});
            FileSnapshot snapshot;
            QVERIFY(snapshot.take(barred));
            QCOMPARE(snapshot.existed(), existed);
            QCOMPARE(snapshot.bytes(), existed ? bytes : QByteArray());
            QVERIFY(WriteLines(barred, {"something", "else"}));
            QString error;
            QVERIFY2(snapshot.restore(barred, &error), qPrintable(error));
            QCOMPARE(QFileInfo::exists(barred), existed);
            QCOMPARE(TempEnvironment::readFile(barred), existed ? bytes : QByteArray());
        }
    }
    // A folder in its place is not removed to put back "none" or to add a
    // bar, nor taken.
    FileSnapshot none;
    QVERIFY(none.take(barred) && QDir().mkpath(barred + "/inside"));
    QString error;
    QVERIFY(!none.restore(barred, &error) && error.contains(barred));
    error.clear();
    QVERIFY(!AppendNewlyBarred({"aarg"}, &error) && error.contains(barred));
    QVERIFY(QFileInfo(barred).isDir());
    FileSnapshot snapshot;
    error.clear();
    QVERIFY(!snapshot.take(barred, &error));
    QVERIFY(error.contains(barred));
}

// ---------------------------------------------------------------- remailer tracking

namespace {

// A table field as lines: "-" is none; "@mixhead", "@cpkhead", "@mix names"
// and "@cpk names" stand for a page's header lines and table rows; an
// rlist.txt has capability lines above the table, as pingers print it.
QStringList lines(const QString& field) {
    QStringList out;
    for (const QString& line : list(field)) {
        const QString kind = line.section(u' ', 0, 0);
        if (kind == "@mixhead" || kind == "@cpkhead")
            out << (kind == "@mixhead" ? "                              Mixmaster Remailers"
                                       : "                              Cypherpunk Remailers")
                << QString();
        if (kind == "@cpkhead")
            out << "$remailer{\"nym\"} = \"<config@nym.alias.net> newnym pgp klen1000\";"
                << QString();
        if (kind == "@mixhead" || kind == "@cpkhead")
            out << "Last update: Tue 6 Nov 2001 20:36:36 GMT"
                << (kind == "@mixhead"
                        ? "mixmaster           history  latency  uptime"
                        : "remailer  email address                        history  latency  uptime")
                << QString(kind == "@mixhead" ? 44 : 71, u'-');
        for (const QString& name : kind == "@mix" || kind == "@cpk"
                                       ? line.section(u' ', 1).split(u' ', Qt::SkipEmptyParts)
                                       : QStringList())
            out << (kind == "@mix" ? name.leftJustified(15) + "##*#####+#+#    23:09 100.00%"
                                   : name.leftJustified(9) +
                                         "remailer@example.net    ########+#+#    18:55 100.00%");
        if (!kind.startsWith(u'@'))
            out += line;
    }
    return out;
}

} // namespace

namespace {

QString shown(const PageLines& page) {
    return QString::number(page.size()) + u':' + page.toStringList().join(u'|');
}

void edit(PageLines& page, const QString& op) {
    const QString arg = op.mid(1);
    const int at = arg.section(u':', 0, 0).toInt();
    const QString text = arg.section(u':', 1);
    switch (op.at(0).unicode()) {
    case u'+':
        return page.append(arg);
    case u'^':
        return page.insert(at, text);
    case u'=':
        return page.replace(at, text);
    case u'-':
        return page.remove(at);
    case u'@':
        return page.rotate(at);
    case u'!':
        page.removeIf([&arg](const QString& line) { return line.contains(arg); });
        return;
    }
    QFAIL("unknown edit");
}

} // namespace

void TestCore::pageLines() {
    QFETCH(QStringList, f);
    const QByteArray bytes = f[1].toLatin1();
    PageLines page(bytes);
    if (f[0] == "split") {
        QCOMPARE(shown(page), f[2]);
        // A file reads the same whole or a line at a time, and the reader
        // stops when told to.
        const QString path = ProgramFolder() + "page.txt";
        QVERIFY(WriteBytes(path, bytes));
        QCOMPARE(ReadPage(path), page);
        QStringList streamed;
        int calls = 0;
        QVERIFY(ForEachLine(path, [&](QLatin1StringView line) {
            streamed.append(line);
            return ++calls < 1000;
        }));
        QCOMPARE(streamed, page.toStringList());
        QVERIFY(ForEachLine(path, [&](QLatin1StringView) { return --calls, false; }));
        QCOMPARE(calls, int(page.size()) - int(!page.isEmpty()));
        QVERIFY(!ForEachLine(path + ".missing", [](QLatin1StringView) { return true; }));
    } else {
        const PageLines copy = page;
        for (const QString& op : f[2].split(u';'))
            edit(page, op);
        QCOMPARE(shown(page), f[3]);
        // Files hold Latin-1: a line that Latin-1 cannot hold is written as
        // question marks, while the page still shows it.
        QCOMPARE(page.toBytes(), f[4].toLatin1());
        QCOMPARE(copy, PageLines(bytes));
    }
}

void TestCore::tracking() {
    QFETCH(QStringList, f);
    if (f[0] == "sort") {
        PageLines sorted = lines(f[1]);
        sorted.sortUniqueIgnoringCase();
        const QStringList names = sorted.toStringList();
        QCOMPARE(names, lines(f[2]));
        for (const QString& name : lines(f[3]))
            QVERIFY2(names.contains(name, Qt::CaseInsensitive), qPrintable(name));
        for (const QString& name : lines(f[4]))
            QVERIFY2(!names.contains(name, Qt::CaseInsensitive), qPrintable(name));
    } else if (f[0] == "mix" || f[0] == "cpk") {
        PageLines names = {QStringLiteral("left over")};
        const int count = f[0] == "mix" ? ExtractMixmasterNames(lines(f[1]), names)
                                        : ExtractCypherpunkNames(lines(f[1]), names);
        QCOMPARE(names.toStringList(), lines(f[2]));
        QCOMPARE(count, int(names.size()));
    } else if (f[0] == "report") {
        const bool mixmaster = f[1] == "mix";
        const QString path = PagePath(mixmaster ? "mlist.txt" : "rlist.txt");
        if (f[2] != u'-')
            QVERIFY(WriteLines(path, lines(f[2])));
        // A copy in the program folder is not the stored page.
        QVERIFY(WriteLines(m_env->programFolder() + QFileInfo(path).fileName(), lines(f[3])));
        const QByteArray stored = TempEnvironment::readFile(path);
        PageLines report = lines(f[5]);
        QStringList newbars;
        const bool barnew = f[4] == u'1';
        const bool result = mixmaster
                                ? ReportMixmasterChanges(lines(f[3]), report, barnew, newbars)
                                : ReportCypherpunkChanges(lines(f[3]), report, barnew, newbars);
        QCOMPARE(report.toStringList(), lines(f[6]));
        QCOMPARE(newbars, lines(f[7]));
        QCOMPARE(result, f[8] == u'1');
        // The comparison reads the stored copy; writing the new page is the
        // saver's job.
        QCOMPARE(TempEnvironment::readFile(path), stored);
    } else {
        QFAIL("unknown case kind");
    }
}

// ---------------------------------------------------------------- pages

namespace {

// A page of the class the program makes for its name; any other name gets
// the base class.
std::unique_ptr<TRemailerDoc> makeDoc(const QString& name, const QStringList& lines,
                                      PageView* view = nullptr) {
    return PageSet::createDocument(name, QStringLiteral("http://example.org/page"),
                                   view ? view : new PageView(lines));
}

QStringList withoutOuterBlankLines(PageLines lines) {
    TrimLeadingBlankLines(lines);
    TrimTrailingBlankLines(lines);
    return lines.toStringList();
}

} // namespace

void TestCore::pageViewAndClasses() {
    PageView view({"a", "b"});
    QSignalSpy changed(&view, &PageView::linesChanged);
    QSignalSpy appended(&view, &PageView::lineAppended);
    view.appendLine("c");
    view.appendToLastLine(" OK");
    view.insertLine(1, "x");
    view.insertLine(9, "end");
    view.insertLine(-3, "top");
    view.notifyChanged();
    QCOMPARE(view.lines(), (QStringList{"top", "a", "x", "b", "c OK", "end"}));
    QCOMPARE(changed.count(), 6);
    QCOMPARE(appended.count(), 1);
    QCOMPARE(appended.at(0).at(0).toString(), QStringLiteral("c"));
    view.setLines({});
    view.appendToLastLine("OK");
    QCOMPARE(view.lines(), QStringList{"OK"});
    // Programmatic edits do not make a page "unsaved".
    QVERIFY(!view.isModified());
    // A page owns its view, whatever class its name gives it.
    auto* shown = new PageView({"a"});
    const QPointer<PageView> watched(shown);
    auto doc = makeDoc(QStringLiteral("mlist.txt"), {}, shown);
    QCOMPARE(&doc->Lines(), &shown->lines());
    doc.reset();
    QVERIFY(watched.isNull());
}

static void realStatsPage(const QStringList& f) {
    const QString& name = f[2];
    const QString& updateLine = f[3];
    const int movedLines = f[4].toInt();
    const QDate pageDate = QDate::fromString(f[6], Qt::ISODate);
    const QByteArray bytes = TempEnvironment::readFile(QStringLiteral(VK_REALDATA "/") + f[1]);
    const QStringList raw = PageLines(bytes).toStringList();
    auto doc = makeDoc(name, raw);
    const QStringList lines = doc->Lines().toStringList();
    QCOMPARE(lines.size(), f[5].toInt());
    QCOMPARE(lines.first(), updateLine);
    // What stood above the date line follows the table after one empty line.
    const QStringList trimmed = withoutOuterBlankLines(raw);
    QCOMPARE(lines, trimmed.mid(movedLines) + QStringList{QString()} + trimmed.first(movedLines));
    QVERIFY(!doc->IsStatsVersion2());
    QVERIFY(doc->IsValidPage());
    // Pingers write "Last update: ", so even these old pages are not stale.
    QVERIFY(!doc->IsOutOfDate(QDate(2099, 1, 1)));
    // Each list is refused under the other list's name.
    QVERIFY(!makeDoc(name == u"mlist.txt" ? "rlist.txt" : "mlist.txt", raw)->IsValidPage());
    // Pingers on other systems send CR LF: the same page.
    QVERIFY(!bytes.contains('\r'));
    auto crlf = makeDoc(name, PageLines(QByteArray(bytes).replace("\n", "\r\n")).toStringList());
    QCOMPARE(crlf->Lines().toStringList(), lines);
    QVERIFY(crlf->IsValidPage());
    // The real date line, written the way the date rule looks for it.
    QStringList capital = raw;
    QCOMPARE(capital.count(updateLine), 1);
    capital[capital.indexOf(updateLine)].replace(0, 13, QStringLiteral("Last Update: "));
    auto dated = makeDoc(name, capital);
    QVERIFY(dated->IsValidPage());
    QVERIFY(!dated->IsOutOfDate(pageDate.addDays(3)));
    QVERIFY(dated->IsOutOfDate(pageDate.addDays(4)));
}

static void mixKeyring(const QString& file, const QString& expected) {
    bool ok = false;
    const QStringList page = ReadLines(QStringLiteral(VK_TESTDATA "/keyrings/") + file, &ok);
    QVERIFY(ok);
    const MixKeyringCheck check = CheckMixKeyring(page);
    QCOMPARE(check.ok() ? QStringLiteral("ok %1").arg(check.keys.size()) : check.problem, expected);
    QCOMPARE(makeDoc(QStringLiteral("pubring.mix"), page)->IsValidPage(), check.ok());
}

void TestCore::docs() {
    QFETCH(QStringList, f);
    if (f[0] == "real")
        return realStatsPage(f);
    if (f[0] == "keyring")
        return mixKeyring(f[1], f[2]);
    if (f[0] == "realvalid") {
        const QStringList raw = ReadLines(QStringLiteral(VK_REALDATA "/") + f[1]);
        QVERIFY(!raw.isEmpty());
        auto doc = makeDoc(f[2], raw);
        QCOMPARE(doc->IsValidPage(), f[3] == u'1');
        if (f[2] != u"type2.list" && f[2] != u"mlist.txt")
            QCOMPARE(doc->Lines(), raw);
        QVERIFY(!doc->IsOutOfDate(QDate(2099, 1, 1)));
        return;
    }
    if (f[0] == "today") {
        // The date rule counts days on the local clock.
        const QDate date = QDate::currentDate().addDays(-f[2].toInt());
        const QString stamp = QStringLiteral("Last Update: Mon %1 %2 %3 00:00:00 GMT")
                                  .arg(date.day())
                                  .arg(QLocale::c().monthName(date.month(), QLocale::ShortFormat))
                                  .arg(date.year());
        QCOMPARE(makeDoc(f[1], {stamp})->IsOutOfDate(), f[3] == u'1');
        return;
    }
    const QStringList page = f[2].split(u'|');
    auto doc = makeDoc(f[1], page);
    const QStringList made = doc->Lines().toStringList();
    QSignalSpy changed(doc->Viewer, &PageView::linesChanged);
    QCOMPARE(doc->IsValidPage(), f[4] == u'1');
    QCOMPARE(doc->IsStatsVersion2(), f[5] == u'1');
    QCOMPARE(doc->IsOutOfDate(QDate::fromString(f[3], Qt::ISODate)), f[6] == u'1');
    const QString& after = f[7];
    QCOMPARE(doc->Lines(), after == u'='   ? page
                           : after == u'*' ? made
                           : after == u'-' ? QStringList()
                                           : after.split(u'|'));
    // A view showing the page hears of a trim, and only then.
    QCOMPARE(changed.count(), doc->Lines() == made ? 0 : 1);
}

// ---------------------------------------------------------------- suite data file

// An entry added beside Tor and Work/Office that is refused, leaving no
// transaction open behind it.
static void refused(const QStringList& f) {
    const int version = f[1].toInt();
    const ProxyEntry entered = entry(f[2], f[3], f[4], f[5].toInt());
    auto db = made(version);
    QVERIFY(db->addProxy(entry("Tor", "socks5", "127.0.0.1", 9050)));
    QVERIFY(db->addProxy(entry("Work/Office", "http", "10.0.0.1", 8080)));
    const QStringList before = records(*db);
    QVERIFY(!db->addProxy(entered));
    QCOMPARE(db->error(), errorCode(f[6]));
    QVERIFY(!db->errorText().isEmpty());
    QCOMPARE(records(*db), before);
    // A bad entry is refused before either format is touched; a clash is
    // looked for in each format's own table.
    QCOMPARE(TVKDB::checkProxyEntry(entered), f[6] == "bad" ? db->errorText() : QString());
    QVERIFY2(db->addProxy(entry("Fresh", "http", "h", 1)), qPrintable(db->errorText()));
    QCOMPARE(records(*openAs(version, path())).size(), 3);
}

static void createRefused(const QString& setup, int version) {
    const QString target = setup == "nofolder" ? path("not/there/vk.dbc") : path();
    QString error;
    if (setup == "data")
        QVERIFY(TVKDB::create(target, 2, &error));
    const QByteArray before = TempEnvironment::readFile(target);
    // "full": the disk takes no more than 100 bytes; what was begun goes.
    std::optional<FileSizeLimit> limit;
    if (setup == "full" && !limit.emplace(100).ok())
        QSKIP("cannot lower the file-size limit here");
    QVERIFY(!TVKDB::create(target, version, &error));
    limit.reset();
    QVERIFY(!error.isEmpty());
    QCOMPARE(QDir(ProgramFolder()).entryList(QDir::Files),
             setup == "data" ? QStringList{"vk.dbc"} : QStringList());
    QCOMPARE(TempEnvironment::readFile(target), before);
    QCOMPARE(GetVKDBVersion(target), setup == "data" ? 2 : 0);
}

// What probing and opening make of a file that is not a usable data file.
static void probed(const QString& setup, int probed, int opened1, int opened2) {
    const QString file = path();
    prepare(setup, file);
    QVERIFY(!QTest::currentTestFailed());
    const QByteArray before = TempEnvironment::readFile(file);
    QString why;
    int version = -1;
    QCOMPARE(int(TVKDB::probe(file, &version, &why)), probed);
    QCOMPARE(why.isEmpty(), probed == TVKDB::NoError);
    QCOMPARE(version, probed != TVKDB::NoError ? 0 : setup == "data1" ? 1 : 2);
    QCOMPARE(GetVKDBVersion(file), version);
    for (int format : {1, 2}) {
        auto db = openAs(format, file);
        QCOMPARE(db->error(), format == 1 ? opened1 : opened2);
        if (db->error() == 0)
            continue;
        // A data file of the other format is named as one.
        QVERIFY2(!db->errorText().isEmpty() && (probed != 0 || format == version ||
                                                db->errorText().contains(QString::number(version))),
                 qPrintable(db->errorText()));
        // Using a file that failed to open reports failure, nothing worse.
        QStringList found;
        QVERIFY(!db->getProxyRecords(found));
        QVERIFY(found.isEmpty());
        QCOMPARE(db->readValue("statslastsource", "fallback"), QString("fallback"));
    }
    // Looking never changes or creates a file.
    QCOMPARE(QFileInfo::exists(file), setup != "missing");
    QCOMPARE(TempEnvironment::readFile(file), before);
}

// Each operation gives up after its busy time-out while another connection
// holds the file, and leaves it whole.
static void locked(int version, const QString& operation) {
    prepare(version == 1 ? "data1" : "data", path());
    auto db = openAs(version, path());
    {
        Raw holder(path());
        QCOMPARE(holder.column("BEGIN EXCLUSIVE"), QStringList());
        QElapsedTimer timer;
        timer.start();
        QStringList found;
        if (operation == "records") {
            QVERIFY(!db->getProxyRecords(found));
        } else if (operation == "add proxy") {
            QVERIFY(!db->addProxy(entry("Other", "http", "h", 1)));
        } else if (operation == "delete proxy") {
            QVERIFY(!db->deleteProxy("Tor"));
        } else if (operation == "write value") {
            QVERIFY(!db->writeValue("statslastsource", "Pinger B"));
        } else {
            QVERIFY(!db->writeValues({{"mlist.txt", "2002-08-20"}, {"statslastsource", "B"}}));
        }
        QVERIFY(found.isEmpty());
        QVERIFY2(timer.elapsed() < 20000, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(db->error(), int(TVKDB::ErrorLocked));
        QVERIFY2(db->errorText().contains("locked"), qPrintable(db->errorText()));
        QCOMPARE(holder.column("ROLLBACK"), QStringList());
    }
    auto after = openAs(version, path());
    QCOMPARE(after->error(), 0);
    QCOMPARE(records(*after).size(), 1);
    QCOMPARE(after->readValue("statslastsource"), QString("Pinger A"));
    QCOMPARE(after->readValue("mlist.txt", "none"), QString("none"));
    QVERIFY(after->addProxy(entry("Other", "http", "h", 1)));
}

void TestCore::dataFile() {
    QFETCH(QStringList, f);
    const QString& kind = f[0];
    if (kind == "settings") {
        QStringList found{"already=there"};
        QCOMPARE(TVKDB::proxyRecordToSettings(f[1], found), f[2] != u'-');
        QCOMPARE(found.mid(1).join(u'|'), f[2] == u'-' ? QString() : f[2]);
    } else if (kind == "refused") {
        refused(f);
    } else if (kind == "stored") {
        QVERIFY(made(f[1].toInt())
                    ->addProxy(entry("Tor/1", "socks5", "127.0.0.1", 9050, "al,ice", "100%")));
        QCOMPARE(Raw(path()).column(f[2]).join(u'\n'), f[3]);
        // "/" never reaches the file: the suite keeps the mark in its place.
        QVERIFY(!TempEnvironment::readFile(path()).contains("Tor/1"));
    } else if (kind == "create") {
        createRefused(f[1], f[2].toInt());
    } else if (kind == "probe") {
        probed(f[1], errorCode(f[2]), errorCode(f[3]), errorCode(f.value(4, f[3])));
    } else if (kind == "locked") {
        locked(f[1].toInt(), f[2]);
    } else {
        QFAIL("unknown case kind");
    }
}

// ---------------------------------------------------------------- vkdbtool

// A data file made, filled, listed and emptied through the tool (the
// steps of the named session in tables/vkdbsession.txt in turn), and read
// by VKstats between.
static void toolSession(const QString& name, const QStringList& format, int version) {
    const QString file = ProgramFolder() + QStringLiteral("vk.dbc");
    TempEnvironment::writeFile(ProgramFolder() + "bob.pw", "pa,ss%w\n");
    for (const QStringList& row : TableRows(QStringLiteral("vkdbsession.txt"))) {
        if (row[1] != name)
            continue;
        if (row[2] == "@vkstats") {
            TestFrontEnd ui;
            QVERIFY(OpenSuiteDataFile(&ui));
            QCOMPARE(shown(ui), QString());
            QCOMPARE(TheSuiteDataFile()->database->version(), version);
            QStringList stored;
            QVERIFY(TheSuiteDataFile()->database->getProxyRecords(stored));
            QCOMPARE(stored.join(u'\n'), row[3]);
            stored.clear();
            for (const QString& name : TheSuiteDataFile()->database->valueNames())
                stored << name + u'=' + TheSuiteDataFile()->database->readValue(name, "<none>");
            QCOMPARE(stored.join(u'\n'), row[4]);
            CloseSuiteDataFile();
            continue;
        }
        QStringList arguments;
        for (const QString& argument : row[2].split(u'|'))
            arguments += argument == "$FORMAT"
                             ? format
                             : QStringList{QString(argument)
                                               .replace("$FILE", file)
                                               .replace("$FOLDER", ProgramFolder())};
        const ProgramRun run = vkdbtool(arguments, row[3].toUtf8());
        QVERIFY2(
            run.endedWith(row[4].toInt()) && run.out == row[5] &&
                (run.code != 0 || run.err.isEmpty()),
            qPrintable("line " + row[0] + QString(": %1\n").arg(run.code) + run.out + run.err));
        // It will hold passwords: its owner's alone, from the start.
        QCOMPARE(int(QFileInfo(file).permissions() & 0x0077), 0);
    }
    if (name == "main")
        QCOMPARE(GetVKDBVersion(file + ".d/new/vk.dbc"), version);
}

void TestCore::tool() {
    QFETCH(QStringList, f);
    const QString file = (ProgramFolder() + QStringLiteral("vk.dbc"));
    if (f[0] == "session")
        return toolSession(f[1], split(f[2]), f[3].toInt());
    prepare(f[1], file);
    if (QTest::currentTestFailed())
        return;
    QStringList arguments = split(f[2]);
    for (QString& argument : arguments)
        argument.replace("$FILE", file);
    const bool existed = QFileInfo::exists(file);
    const QByteArray before = TempEnvironment::readFile(file);
    std::optional<Raw> holder;
    if (f[1] == "locked") {
        holder.emplace(file);
        QCOMPARE(holder->column("BEGIN EXCLUSIVE"), QStringList());
    }
    const ProgramRun run = vkdbtool(arguments);
    holder.reset();
    QVERIFY2(run.endedWith(f[3].toInt()), qPrintable(QString::number(run.code) + ": " + run.err));
    if (f[0] == "help") {
        QVERIFY2(run.err.isEmpty(), qPrintable(run.err));
        for (QString text : f[4].split(u'|'))
            QVERIFY2(run.out.contains(text.replace("@VERSION@", VKSTATS_VERSION)),
                     qPrintable(text + " missing from:\n" + run.out));
        return;
    }
    QVERIFY2(run.out.isEmpty(), qPrintable(run.out));
    // One line, naming the tool, saying what is wrong.
    QVERIFY2(run.err.endsWith('\n') && run.err.count('\n') == 1, qPrintable(run.err));
    QVERIFY2(run.err.startsWith("vkdbtool"), qPrintable(run.err));
    QVERIFY2(run.err.contains(QString(f[4]).replace("$FILE", file)), qPrintable(run.err));
    // A refused command leaves the file as it was, or absent.
    QCOMPARE(QFileInfo::exists(file), existed);
    QCOMPARE(TempEnvironment::readFile(file), before);
}

QTEST_GUILESS_MAIN(TestCore)
#include "tst_core.moc"
