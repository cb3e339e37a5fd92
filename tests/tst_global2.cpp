#include "Global2.h"
#include "IniFile.h"
#include "SuiteDatabase.h"
#include "TempEnvironment.h"
#include "TestFrontEnd.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

class TestGlobal2 : public QObject {
    Q_OBJECT
private slots:
    void getField_data();
    void getField();
    void monthNumber_data();
    void monthNumber();
    void stripAmpersand_data();
    void stripAmpersand();
    void trimBlankLines_data();
    void trimBlankLines();
    void fontStrings_data();
    void fontStrings();
    void addTrailingBackslash_data();
    void addTrailingBackslash();
    void mixmasterDir_data();
    void mixmasterDir();
    void programFolderFromEnvironment();
    void programFolderRule_data();
    void programFolderRule();
    void encryptedDataFile_data();
    void encryptedDataFile();
    void openSuiteDataFile_data();
    void openSuiteDataFile();
    void msgDlgFallsBackToPlainBox();
    void waitTicksDispatchesEvents();
    void runProgramStartsWithoutShell();
    void htmlHelpNeedsUrlOpener();
};

void TestGlobal2::getField_data() {
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("separator");
    QTest::addColumn<QString>("def");
    QTest::addColumn<QString>("expected");
    const auto row = [](const char* tag, int index, const char* line, const char* separator,
                        const char* def, const char* expected) {
        QTest::newRow(tag) << index << line << separator << def << expected;
    };
    row("first", 0, "a,b,,d", ",", "", "a");
    row("second", 1, "a,b,,d", ",", "", "b");
    row("empty field gives default", 2, "a,b,,d", ",", "x", "x");
    row("last", 3, "a,b,,d", ",", "", "d");
    row("past the end gives default", 7, "a,b,,d", ",", "z", "z");
    row("no separator, index 0", 0, "abc", ",", "dflt", "dflt");
    row("blank separated", 3, "Last Update: Sat 15 Nov 2026", " ", "", "15");
    row("nothing trimmed", 1, "a, b ,c", ",", "", " b ");
}

void TestGlobal2::getField() {
    QFETCH(int, index);
    QFETCH(QString, line);
    QFETCH(QString, separator);
    QFETCH(QString, def);
    QFETCH(QString, expected);
    QCOMPARE(GetField(index, line, separator.at(0), def), expected);
}

void TestGlobal2::monthNumber_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("expected");
    QTest::newRow("Jan") << "Jan" << 1;
    QTest::newRow("SEP upper") << "SEP" << 9;
    QTest::newRow("Dec") << "Dec" << 12;
    QTest::newRow("unknown") << "xyz" << 0;
    QTest::newRow("empty") << "" << 0;
}

void TestGlobal2::monthNumber() {
    QFETCH(QString, name);
    QFETCH(int, expected);
    QCOMPARE(MonthNumber(name), expected);
}

void TestGlobal2::stripAmpersand_data() {
    QTest::addColumn<QString>("caption");
    QTest::addColumn<QString>("expected");
    QTest::newRow("accelerator") << "t&ype2.list" << QStringLiteral("type2.list");
    QTest::newRow("only the first") << "&Save && Exit" << QStringLiteral("Save && Exit");
    QTest::newRow("none") << "mlist.txt" << QStringLiteral("mlist.txt");
    QTest::newRow("empty") << "" << QString();
}

void TestGlobal2::stripAmpersand() {
    QFETCH(QString, caption);
    QFETCH(QString, expected);
    QCOMPARE(StripAmpersand(caption), expected);
}

void TestGlobal2::trimBlankLines_data() {
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<QStringList>("leading");
    QTest::addColumn<QStringList>("trailing");
    QTest::newRow("both ends") << QStringList{"", "  ", "a", "", "b", " \t", ""}
                               << QStringList{"a", "", "b", " \t", ""}
                               << QStringList{"", "  ", "a", "", "b"};
    QTest::newRow("all blank") << QStringList{" ", ""} << QStringList{} << QStringList{};
    QTest::newRow("none blank") << QStringList{"x"} << QStringList{"x"} << QStringList{"x"};
    QTest::newRow("empty") << QStringList{} << QStringList{} << QStringList{};
}

void TestGlobal2::trimBlankLines() {
    QFETCH(QStringList, lines);
    QFETCH(QStringList, leading);
    QFETCH(QStringList, trailing);
    QStringList a = lines;
    TrimLeadingBlankLines(a);
    QCOMPARE(a, leading);
    QStringList b = lines;
    TrimTrailingBlankLines(b);
    QCOMPARE(b, trailing);
}

void TestGlobal2::fontStrings_data() {
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("size");
    QTest::addColumn<QString>("styles");
    QTest::addColumn<qint64>("color");
    QTest::addColumn<QString>("written");
    QTest::newRow("bold underline red")
        << "Arial,12,bu,255"
        << "Arial" << 12 << "bu" << qint64(255) << "Arial,12,bu,255";
    QTest::newRow("plain default") << "Courier New,9,,0"
                                   << "Courier New" << 9 << "" << qint64(0) << "Courier New,9,,0";
    QTest::newRow("styles in any order")
        << "Times,10,sui b,1"
        << "Times" << 10 << "bius" << qint64(1) << "Times,10,bius,1";
}

void TestGlobal2::fontStrings() {
    QFETCH(QString, text);
    QFETCH(QString, name);
    QFETCH(int, size);
    QFETCH(QString, styles);
    QFETCH(qint64, color);
    QFETCH(QString, written);
    const FontSpec font = StringToFont(text);
    QCOMPARE(font.name, name);
    QCOMPARE(font.size, size);
    QCOMPARE(font.bold, styles.contains(u'b'));
    QCOMPARE(font.italic, styles.contains(u'i'));
    QCOMPARE(font.underline, styles.contains(u'u'));
    QCOMPARE(font.strikeOut, styles.contains(u's'));
    QCOMPARE(font.color, color);
    QCOMPARE(FontToString(font), written);
}

void TestGlobal2::addTrailingBackslash_data() {
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("expected");
    QTest::newRow("added") << "/opt/mix" << QStringLiteral("/opt/mix/");
    QTest::newRow("kept") << "/opt/mix/" << QStringLiteral("/opt/mix/");
    QTest::newRow("empty stays empty") << "" << QString();
}

void TestGlobal2::addTrailingBackslash() {
    QFETCH(QString, path);
    QFETCH(QString, expected);
    QCOMPARE(AddTrailingBackslash(path), expected);
}

void TestGlobal2::mixmasterDir_data() {
    QTest::addColumn<bool>("setMixpath");
    QTest::addColumn<QString>("mixpath");
    QTest::addColumn<bool>("homeMix");
    QTest::addColumn<QString>("expected");
    QTest::newRow("MIXPATH wins") << true << "/srv/mix" << true << "/srv/mix/";
    QTest::newRow("MIXPATH empty means none") << true << "" << true << "";
    QTest::newRow("~/.Mix") << false << "" << true << "HOME/.Mix/";
    QTest::newRow("nothing") << false << "" << false << "";
}

void TestGlobal2::mixmasterDir() {
    QFETCH(bool, setMixpath);
    QFETCH(QString, mixpath);
    QFETCH(bool, homeMix);
    QFETCH(QString, expected);
    TempEnvironment env;
    QTemporaryDir home;
    const QByteArray oldHome = qgetenv("HOME");
    qputenv("HOME", home.path().toLocal8Bit());
    if (homeMix)
        QVERIFY(QDir(home.path()).mkdir(QStringLiteral(".Mix")));
    if (setMixpath)
        qputenv("MIXPATH", mixpath.toLocal8Bit());
    else
        qunsetenv("MIXPATH");
    expected.replace(QStringLiteral("HOME"), home.path());
    const QString found = GetMixmasterDir();
    qputenv("HOME", oldHome);
    QCOMPARE(found, expected);
}

void TestGlobal2::programFolderFromEnvironment() {
    TempEnvironment env;
    QCOMPARE(ProgramFolder(), env.programFolder());
    QCOMPARE(IniFileName(), env.programFolder() + "vkstats.ini");
    QCOMPARE(DataFileName(), env.programFolder() + "VK.dbc");
    QCOMPARE(EncryptedDataFileName(), env.programFolder() + "VK.pgp");
}

// Where the program keeps its files when VKSTATS_HOME does not say:
// $XDG_DATA_HOME/vkstats made private, or the executable's folder when a
// "portable" file marks it. A relative VKSTATS_HOME is resolved once, so
// making the program folder current does not move it.
void TestGlobal2::programFolderRule_data() {
    QTest::addColumn<QString>("home"); // VKSTATS_HOME, "-" for unset
    QTest::addColumn<bool>("portable");
    QTest::addColumn<QString>("expected"); // below the temporary folder, or "<exe>"
    QTest::newRow("installed") << "-" << false << "data/vkstats/";
    QTest::newRow("portable marker") << "-" << true << "<exe>";
    QTest::newRow("VKSTATS_HOME beats the marker") << "set" << true << "set/";
    QTest::newRow("relative VKSTATS_HOME") << "rel/prog" << false << "rel/prog/";
}

void TestGlobal2::programFolderRule() {
    QFETCH(QString, home);
    QFETCH(bool, portable);
    QFETCH(QString, expected);
    TempEnvironment env;
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
    const QFile::Permissions others =
        QFileInfo(first).permissions() & (QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup |
                                          QFile::ReadOther | QFile::WriteOther | QFile::ExeOther);
    QDir::setCurrent(oldCurrent);
    qunsetenv("XDG_DATA_HOME");
    QFile::remove(marker);
    QCOMPARE(first, expected == "<exe>" ? QCoreApplication::applicationDirPath() + '/'
                                        : QDir(temp.path()).canonicalPath() + '/' + expected);
    QCOMPARE(again, first);
    if (home == "-" && !portable)
        QCOMPARE(others, QFile::Permissions());
}

void TestGlobal2::encryptedDataFile_data() {
    QTest::addColumn<bool>("plain");
    QTest::addColumn<bool>("encrypted");
    QTest::addColumn<bool>("expected");
    QTest::newRow("only VK.pgp") << false << true << true;
    QTest::newRow("both") << true << true << false;
    QTest::newRow("neither") << false << false << false;
    QTest::newRow("only VK.dbc") << true << false << false;
}

void TestGlobal2::encryptedDataFile() {
    QFETCH(bool, plain);
    QFETCH(bool, encrypted);
    QFETCH(bool, expected);
    TempEnvironment env;
    if (plain)
        TempEnvironment::writeFile(DataFileName(), "x");
    if (encrypted)
        TempEnvironment::writeFile(EncryptedDataFileName(), "x");
    TestFrontEnd ui;
    QCOMPARE(IsDataFileEncrypted(&ui), expected);
    QCOMPARE(ui.messages.size(), expected ? 1 : 0);
    if (expected) {
        QCOMPARE(ui.messages.first().text,
                 QStringLiteral("I find your VK datafile, VK.dbc, is encrypted. You need   \n"
                                "to start VK and decrypt the file."));
        QCOMPARE(ui.messages.first().type, Information);
        QCOMPARE(ui.messages.first().style, MsgStyle::CentredDialog);
        QVERIFY(IsDataFileEncrypted(&ui, QStringLiteral("own text")));
        QCOMPARE(ui.messages.last().text, QStringLiteral("own text"));
    }
}

void TestGlobal2::openSuiteDataFile_data() {
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("opens");
    QTest::addColumn<QString>("message");
    QTest::newRow("missing") << "missing" << false
                             << "I was unable to locate VK datafile 'PATH'. I am unable to \n"
                                "continue without it. Quitting!";
    // A missing file is offered first: declined, the old message follows;
    // taken, an empty file readable by the user only.
    QTest::newRow("missing, created") << "created" << true << "";
    QTest::newRow("override") << "override" << true << "";
    QTest::newRow("text file") << "text" << false << "Data file: PATH is not a VK datadase!";
    QTest::newRow("version 1") << "v1" << true << "";
    QTest::newRow("version 2") << "v2" << true << "";
    QTest::newRow("tables gone") << "broken" << false << "Data file: PATH isn't valid!\nQuitting!";
    // Held by the suite: said so, after a few seconds' wait.
    QTest::newRow("locked") << "locked" << false
                            << "Data file: PATH is in use by another program.\n"
                               "Try again when it has finished. Quitting!";
}

static void makeForeignDatabase(const QString& path, int appId, int version) {
    const QString name = QStringLiteral("foreign");
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(path);
        QVERIFY(db.open());
        QSqlQuery q(db);
        QVERIFY(q.exec(QStringLiteral("PRAGMA application_id = %1").arg(appId)));
        QVERIFY(q.exec(QStringLiteral("PRAGMA user_version = %1").arg(version)));
        QVERIFY(q.exec(QStringLiteral("CREATE TABLE t (x)")));
        db.close();
    }
    QSqlDatabase::removeDatabase(name);
}

void TestGlobal2::openSuiteDataFile() {
    QFETCH(QString, kind);
    QFETCH(bool, opens);
    QFETCH(QString, message);
    TempEnvironment env;
    QString path = env.programFolder() + "vk.dbc";
    QString error;
    if (kind == "override") {
        path = env.programFolder() + "elsewhere/suite.dbc";
        IniFile(IniFileName()).writeString("main", "datafile", path);
        QVERIFY(QDir().mkpath(env.programFolder() + "elsewhere"));
        QVERIFY(TVKDB::create(path, 2, &error));
    } else if (kind == "text") {
        TempEnvironment::writeFile(path, "this is not a database\n");
    } else if (kind == "v1" || kind == "v2") {
        QVERIFY2(TVKDB::create(path, kind == "v1" ? 1 : 2, &error), qPrintable(error));
    } else if (kind == "broken") {
        makeForeignDatabase(path, VkdbApplicationId, 2);
    } else if (kind == "locked") {
        QVERIFY(TVKDB::create(path, 2, &error));
    }
    const QString holder = QStringLiteral("holder");
    if (kind == "locked") {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), holder);
        db.setDatabaseName(path);
        QVERIFY(db.open());
        QVERIFY(QSqlQuery(db).exec(QStringLiteral("BEGIN EXCLUSIVE")));
    }
    TestFrontEnd ui;
    if (kind == "created")
        ui.answers = {IdYes};
    QElapsedTimer clock;
    clock.start();
    QCOMPARE(OpenSuiteDataFile(&ui), opens);
    if (kind == "locked") {
        QVERIFY2(clock.elapsed() >= 3000, qPrintable(QString::number(clock.elapsed())));
        QSqlDatabase::database(holder).close();
        QSqlDatabase::removeDatabase(holder);
    }
    QCOMPARE(TheSuiteDataFile() != nullptr, opens);
    const bool offered = kind == "missing" || kind == "created";
    if (offered) {
        QVERIFY(!ui.messages.isEmpty());
        QCOMPARE(ui.messages.takeFirst().text,
                 "There is no VK data file yet:\n" + path + "\nShall I create an empty one?");
    }
    if (kind == "created")
        QCOMPARE(QFileInfo(path).permissions() & 0x0FFF, QFile::ReadUser | QFile::WriteUser);
    if (opens) {
        QVERIFY(ui.messages.isEmpty());
        QCOMPARE(TheSuiteDataFile()->owner, &ui);
        QCOMPARE(TheSuiteDataFile()->database->version(), kind == "v1" ? 1 : 2);
    } else {
        QCOMPARE(ui.messages.size(), 1);
        QCOMPARE(ui.messages.first().type, NoIcon);
        QCOMPARE(ui.messages.first().buttons, int(MbOk));
        QCOMPARE(ui.messages.first().text, message.replace("PATH", path));
    }
    CloseSuiteDataFile();
}

void TestGlobal2::msgDlgFallsBackToPlainBox() {
    TestFrontEnd ui;
    ui.answers = {IdYes};
    QCOMPARE(MsgDlg(&ui, "q", Confirm, MbYesNoCancel), int(IdYes));
    QCOMPARE(ui.messages.last().style, MsgStyle::CentredDialog);
    QCOMPARE(MsgDlg(&ui, "odd", 9, MbOk), int(IdOk));
    QCOMPARE(ui.messages.last().style, MsgStyle::SystemBox);
    QCOMPARE(ui.messages.last().type, NoIcon);
    QCOMPARE(MsgBox(&ui, "w", Warning, MbOkCancel), int(IdCancel));
    QCOMPARE(ui.messages.last().type, Warning);
}

void TestGlobal2::waitTicksDispatchesEvents() {
    bool fired = false;
    QTimer::singleShot(10, [&] { fired = true; });
    QElapsedTimer clock;
    clock.start();
    WaitTicks(nullptr, 60);
    QVERIFY(fired);
    QVERIFY(clock.elapsed() >= 59);
}

void TestGlobal2::runProgramStartsWithoutShell() {
    TempEnvironment env;
    const QString marker = env.programFolder() + "made by touch";
    QVERIFY(QDir::setCurrent(env.programFolder()));
    // The quoted name must reach touch as one argument; a shell would also
    // have expanded the $HOME below, which must stay literal.
    const qint64 pid =
        RunProgram(QStringLiteral("touch \"%1\" \"$HOME\"").arg(marker), SwShowNormal);
    QVERIFY(pid > 0);
    QTRY_VERIFY(QFile::exists(marker));
    QTRY_VERIFY(QFile::exists(env.programFolder() + "$HOME"));
    QCOMPARE(RunProgram(QStringLiteral("/nonexistent/tool arg"), SwShowNormal), qint64(0));
    QCOMPARE(RunProgram(QString(), SwShowNormal), qint64(0));
}

void TestGlobal2::htmlHelpNeedsUrlOpener() {
    TestFrontEnd ui;
    QVERIFY(!InitHtmlHelp(&ui));
    QVERIFY(!HtmlHelpLoaded());
    ui.urlOpener = true;
    QVERIFY(InitHtmlHelp(&ui));
    QVERIFY(HtmlHelpLoaded());
    CloseHtmlHelp();
    QVERIFY(!HtmlHelpLoaded());
}

QTEST_GUILESS_MAIN(TestGlobal2)
#include "tst_global2.moc"
