#include "Global2.h"
#include "IniFile.h"
#include "SuiteDatabase.h"
#include "TempEnvironment.h"
#include "TestData.h"
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
    void helpers_data() { AddTableRows(QStringLiteral("global2.txt")); }
    void helpers();
    void programFolderRule_data();
    void programFolderRule();
    void encryptedDataFile();
    void dataFileOffer_data();
    void dataFileOffer();
    void openSuiteDataFile_data();
    void openSuiteDataFile();
    void lockedDataFile();
    void msgDlgWaitTicksRunProgram();
};

static QString joinLines(const QStringList& lines) {
    return lines.isEmpty() ? QStringLiteral("-") : lines.join(u'|');
}

static QString trimBoth(const QString& text) {
    const QStringList lines = text == u'-' ? QStringList() : text.split(u'|');
    QStringList leading = lines, trailing = lines;
    TrimLeadingBlankLines(leading);
    TrimTrailingBlankLines(trailing);
    return joinLines(leading) + QStringLiteral(" ; ") + joinLines(trailing);
}

static QString font(const QString& text) {
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

static QString mixmasterDir(const QString& mixpath, bool homeMix) {
    TempEnvironment env;
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

void TestGlobal2::helpers() {
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
        got = font(f[1]);
    else if (fn == "MixmasterDir")
        got = mixmasterDir(f[1], f[2] == u'1');
    else
        QFAIL("unknown function in the table");
    QCOMPARE(got, f.last());
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

void TestGlobal2::encryptedDataFile() {
    // Only VK.pgp without VK.dbc means the data file is encrypted.
    for (const int files : {0, 1, 2, 3}) {
        TempEnvironment env;
        QCOMPARE(DataFileName(), env.programFolder() + "VK.dbc");
        if (files & 1)
            TempEnvironment::writeFile(DataFileName(), "x");
        if (files & 2)
            TempEnvironment::writeFile(EncryptedDataFileName(), "x");
        TestFrontEnd ui;
        QCOMPARE(IsDataFileEncrypted(&ui), files == 2);
        QCOMPARE(ui.messages.size(), files == 2 ? 1 : 0);
    }
    TempEnvironment env;
    TempEnvironment::writeFile(env.programFolder() + "VK.pgp", "x");
    TestFrontEnd ui;
    QVERIFY(IsDataFileEncrypted(&ui));
    QCOMPARE(ui.messages.first().text,
             QStringLiteral("I find your VK datafile, VK.dbc, is encrypted. You need   \n"
                            "to start VK and decrypt the file."));
    QCOMPARE(ui.messages.first().type, Information);
    QCOMPARE(ui.messages.first().style, MsgStyle::CentredDialog);
    QVERIFY(IsDataFileEncrypted(&ui, QStringLiteral("own text")));
    QCOMPARE(ui.messages.last().text, QStringLiteral("own text"));
}

// A missing data file is offered first: declined, the old message follows;
// taken, an empty file readable by the user only.
void TestGlobal2::dataFileOffer_data() {
    QTest::addColumn<bool>("take");
    QTest::newRow("declined") << false;
    QTest::newRow("taken") << true;
}

void TestGlobal2::dataFileOffer() {
    QFETCH(bool, take);
    TempEnvironment env;
    const QString path = env.programFolder() + "vk.dbc";
    TestFrontEnd ui;
    ui.answers = {take ? IdYes : IdNo};
    QCOMPARE(OpenSuiteDataFile(&ui), take);
    QVERIFY(!ui.messages.isEmpty());
    QCOMPARE(ui.messages.takeFirst().text,
             "There is no VK data file yet:\n" + path + "\nShall I create an empty one?");
    if (take) {
        QVERIFY(ui.messages.isEmpty());
        QCOMPARE(QFileInfo(path).permissions() & 0x0FFF, QFile::ReadUser | QFile::WriteUser);
        QCOMPARE(TheSuiteDataFile()->database->version(), 2);
        CloseSuiteDataFile();
    } else {
        QCOMPARE(ui.messageTexts(),
                 QStringList{"I was unable to locate VK datafile '" + path +
                             "'. I am unable to \ncontinue without it. Quitting!"});
        QVERIFY(!QFileInfo::exists(path));
    }
}

// A data file named in the suite's settings, and the usual one; refusals
// are the scenario folders' (refused-no-data-file, refused-data-file-*).
void TestGlobal2::openSuiteDataFile_data() {
    QTest::addColumn<QString>("kind");
    QTest::newRow("override") << "override";
    QTest::newRow("version 2") << "v2";
}

void TestGlobal2::openSuiteDataFile() {
    QFETCH(QString, kind);
    TempEnvironment env;
    QString path = env.programFolder() + "vk.dbc";
    if (kind == "override") {
        path = env.programFolder() + "elsewhere/suite.dbc";
        IniFile(IniFileName()).writeString("main", "datafile", path);
        QVERIFY(QDir().mkpath(env.programFolder() + "elsewhere"));
    }
    QString error;
    QVERIFY2(TVKDB::create(path, 2, &error), qPrintable(error));
    TestFrontEnd ui;
    QVERIFY(OpenSuiteDataFile(&ui));
    QVERIFY(ui.messages.isEmpty());
    QCOMPARE(TheSuiteDataFile()->owner, &ui);
    QCOMPARE(TheSuiteDataFile()->database->version(), 2);
    CloseSuiteDataFile();
}

// Held by the suite: said so, after a few seconds' wait.
void TestGlobal2::lockedDataFile() {
    TempEnvironment env;
    const QString path = env.programFolder() + "vk.dbc";
    QString error;
    QVERIFY(TVKDB::create(path, 2, &error));
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), "holder");
        db.setDatabaseName(path);
        QVERIFY(db.open());
        QVERIFY(QSqlQuery(db).exec(QStringLiteral("BEGIN EXCLUSIVE")));
        TestFrontEnd ui;
        QElapsedTimer clock;
        clock.start();
        QVERIFY(!OpenSuiteDataFile(&ui));
        QVERIFY2(clock.elapsed() >= 3000, qPrintable(QString::number(clock.elapsed())));
        QCOMPARE(ui.messageTexts(), QStringList{"Data file: " + path +
                                                " is in use by another program.\n"
                                                "Try again when it has finished. Quitting!"});
        QCOMPARE(ui.messages.first().type, NoIcon);
        db.close();
    }
    QSqlDatabase::removeDatabase("holder");
    QCOMPARE(TheSuiteDataFile(), nullptr);
}

void TestGlobal2::msgDlgWaitTicksRunProgram() {
    TestFrontEnd ui;
    ui.answers = {IdYes};
    QCOMPARE(MsgDlg(&ui, "q", Confirm, MbYesNoCancel), int(IdYes));
    QCOMPARE(ui.messages.last().style, MsgStyle::CentredDialog);
    QCOMPARE(MsgDlg(&ui, "odd", 9, MbOk), int(IdOk));
    QCOMPARE(ui.messages.last().style, MsgStyle::SystemBox);
    QCOMPARE(ui.messages.last().type, NoIcon);
    QCOMPARE(MsgBox(&ui, "w", Warning, MbOkCancel), int(IdCancel));
    QCOMPARE(ui.messages.last().type, Warning);

    bool fired = false;
    QTimer::singleShot(10, [&] { fired = true; });
    QElapsedTimer clock;
    clock.start();
    WaitTicks(nullptr, 60);
    QVERIFY(fired);
    QVERIFY(clock.elapsed() >= 59);

    // The quoted name must reach touch as one argument; a shell would also
    // have expanded the $HOME, which must stay literal.
    TempEnvironment env;
    const QString marker = env.programFolder() + "made by touch";
    QVERIFY(QDir::setCurrent(env.programFolder()));
    QVERIFY(RunProgram(QStringLiteral("touch \"%1\" \"$HOME\"").arg(marker), SwShowNormal) > 0);
    QTRY_VERIFY(QFile::exists(marker));
    QTRY_VERIFY(QFile::exists(env.programFolder() + "$HOME"));
    QCOMPARE(RunProgram(QStringLiteral("/nonexistent/tool arg"), SwShowNormal), qint64(0));
    QCOMPARE(RunProgram(QString(), SwShowNormal), qint64(0));
}

QTEST_GUILESS_MAIN(TestGlobal2)
#include "tst_global2.moc"
