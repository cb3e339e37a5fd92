#include "IniFile.h"
#include "TempEnvironment.h"

#include <QDir>
#include <QFileInfo>
#include <QTest>

#include <memory>

class TestIniFile : public QObject {
    Q_OBJECT
private slots:
    void init();
    void reads_data();
    void reads();
    void writesKeepLayout_data();
    void writesKeepLayout();
    void roundTripValues_data();
    void roundTripValues();
    void numbersAndBooleans_data();
    void numbersAndBooleans();
    void readsAfreshEachTime();
    void oneReadAndOneWritePerOperation();
    void failedWriteKeepsOldFile();
    void sectionKeys();

private:
    std::unique_ptr<TempEnvironment> m_env;
    QString path() const { return m_env->programFolder() + "vkstats.ini"; }
};

void TestIniFile::init() {
    m_env.reset(); // the old one restores the environment it found
    m_env = std::make_unique<TempEnvironment>();
}

void TestIniFile::reads_data() {
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QString>("section");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("expected");
    const QByteArray ini = "; suite settings\r\n[stats]\r\nshowtoolbar=0\r\n"
                           "windowfont = Courier New,9,,0 \r\n[Main]\r\nDataFile=C:\\vk\\vk.dbc\r\n"
                           "quoted=\"a, b\"\r\nempty=\r\n";
    QTest::newRow("plain") << ini << "stats"
                           << "showtoolbar"
                           << "0";
    QTest::newRow("blanks around") << ini << "stats"
                                   << "windowfont"
                                   << "Courier New,9,,0";
    QTest::newRow("case of names") << ini << "main"
                                   << "datafile"
                                   << "C:\\vk\\vk.dbc";
    QTest::newRow("quotes dropped") << ini << "main"
                                    << "quoted"
                                    << "a, b";
    QTest::newRow("empty value") << ini << "main"
                                 << "empty"
                                 << "";
    QTest::newRow("missing key") << ini << "stats"
                                 << "nothing"
                                 << "DEF";
    QTest::newRow("key of other section") << ini << "stats"
                                          << "datafile"
                                          << "DEF";
    QTest::newRow("missing section") << ini << "pingersite"
                                     << "home"
                                     << "DEF";
    QTest::newRow("no file") << QByteArray() << "stats"
                             << "showtoolbar"
                             << "DEF";
    QTest::newRow("comment is no key") << QByteArray("[s]\n;k=1\n") << "s"
                                       << ";k"
                                       << "DEF";
    QTest::newRow("binary garbage") << QByteArray("\x00\xff[s\x01]\n=\n\xfe=k", 13) << "s"
                                    << "k"
                                    << "DEF";
    QTest::newRow("first of duplicates") << QByteArray("[s]\nk=1\nk=2\n[s]\nk=3\n") << "s"
                                         << "k"
                                         << "1";
}

void TestIniFile::reads() {
    QFETCH(QByteArray, file);
    QFETCH(QString, section);
    QFETCH(QString, key);
    QFETCH(QString, expected);
    if (!file.isNull())
        TempEnvironment::writeFile(path(), file);
    QCOMPARE(IniFile(path()).readString(section, key, "DEF"), expected);
}

void TestIniFile::writesKeepLayout_data() {
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QString>("section");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QByteArray>("after");
    QTest::newRow("new file") << QByteArray() << "stats"
                              << "pages"
                              << "mlist.txt" << QByteArray("[stats]\npages=mlist.txt\n");
    QTest::newRow("replace in place, comments kept")
        << QByteArray("; mine\n[stats]\nb=1\n; note\na=2\n") << "Stats"
        << "A"
        << "3" << QByteArray("; mine\n[stats]\nb=1\n; note\nA=3\n");
    QTest::newRow("new key after last entry")
        << QByteArray("[stats]\nz=1\n\n[main]\nx=2\n") << "stats"
        << "a"
        << "0" << QByteArray("[stats]\nz=1\na=0\n\n[main]\nx=2\n");
    QTest::newRow("new section at end")
        << QByteArray("[stats]\nz=1\n") << "pingersite"
        << "home"
        << "http://x/" << QByteArray("[stats]\nz=1\n\n[pingersite]\nhome=http://x/\n");
    QTest::newRow("CR LF kept") << QByteArray("[stats]\r\nz=1\r\n") << "stats"
                                << "z"
                                << "2" << QByteArray("[stats]\r\nz=2\r\n");
    QTest::newRow("no final line end kept") << QByteArray("[stats]\nz=1") << "stats"
                                            << "z"
                                            << "2" << QByteArray("[stats]\nz=2");
}

void TestIniFile::writesKeepLayout() {
    QFETCH(QByteArray, before);
    QFETCH(QString, section);
    QFETCH(QString, key);
    QFETCH(QString, value);
    QFETCH(QByteArray, after);
    if (!before.isNull())
        TempEnvironment::writeFile(path(), before);
    IniFile ini(path());
    QVERIFY(ini.writeString(section, key, value));
    QCOMPARE(TempEnvironment::readFile(path()), after);
}

void TestIniFile::roundTripValues_data() {
    QTest::addColumn<QString>("value");
    QTest::newRow("commas") << "Courier New,10,,16711680";
    QTest::newRow("backslashes") << "C:\\Program Files\\Mix\\";
    QTest::newRow("comma text") << "mlist.txt,pubring.mix,urls.txt";
    QTest::newRow("geometry") << "2,0,-8,-8,1296,1010";
    QTest::newRow("proxy name with blanks") << "my proxy / tor";
    QTest::newRow("non-ASCII") << QStringLiteral("Bitstream Charter \u00e9\u00e8");
    QTest::newRow("equals sign") << "a=b";
}

void TestIniFile::roundTripValues() {
    QFETCH(QString, value);
    IniFile ini(path());
    QVERIFY(ini.writeString("stats", "key", value));
    QVERIFY(ini.writeString("stats", "other", "x"));
    QCOMPARE(IniFile(path()).readString("stats", "key", "DEF"), value);
    QCOMPARE(TempEnvironment::readFile(path()),
             QByteArray("[stats]\nkey=") + value.toUtf8() + "\nother=x\n");
}

void TestIniFile::numbersAndBooleans_data() {
    QTest::addColumn<QString>("stored");
    QTest::addColumn<int>("number");
    QTest::addColumn<bool>("flag");
    QTest::newRow("zero") << "0" << 0 << false;
    QTest::newRow("one") << "1" << 1 << true;
    QTest::newRow("other number is true") << "2" << 2 << true;
    QTest::newRow("negative colour") << "-2147483643" << -2147483643 << true;
    QTest::newRow("hex dollar") << "$FF" << 255 << true;
    QTest::newRow("hex 0x") << "0x10" << 16 << true;
    QTest::newRow("garbage") << "yes" << -7 << true;
    QTest::newRow("true word is garbage") << "true" << -7 << true;
    QTest::newRow("empty") << "" << -7 << true;
    QTest::newRow("number then text") << "30s" << -7 << true;
}

void TestIniFile::numbersAndBooleans() {
    QFETCH(QString, stored);
    QFETCH(int, number);
    QFETCH(bool, flag);
    IniFile ini(path());
    QVERIFY(ini.writeString("stats", "k", stored));
    QCOMPARE(ini.readInteger("stats", "k", -7), number);
    // A bool that cannot be read gives its default; both defaults show it.
    QCOMPARE(ini.readBool("stats", "k", true), flag);
    if (number == -7)
        QCOMPARE(ini.readBool("stats", "k", false), false);
    QVERIFY(ini.writeBool("stats", "b", false));
    QVERIFY(ini.writeBool("stats", "c", true));
    QCOMPARE(ini.readString("stats", "b", {}), QStringLiteral("0"));
    QCOMPARE(ini.readString("stats", "c", {}), QStringLiteral("1"));
}

void TestIniFile::readsAfreshEachTime() {
    IniFile ini(path());
    QVERIFY(ini.writeInteger("stats", "timeoutseconds", 45));
    QCOMPARE(ini.readInteger("stats", "timeoutseconds", 30), 45);
    TempEnvironment::writeFile(path(), "[stats]\ntimeoutseconds=12\n");
    QCOMPARE(ini.readInteger("stats", "timeoutseconds", 30), 12);
    QVERIFY(ini.deleteKey("stats", "timeoutseconds"));
    QCOMPARE(ini.readInteger("stats", "timeoutseconds", 30), 30);
}

void TestIniFile::oneReadAndOneWritePerOperation() {
    const QByteArray before = "[stats]\r\na=1\r\n";
    TempEnvironment::writeFile(path(), before);
    IniFile ini(path());
    {
        IniFile::Operation saving(ini);
        QVERIFY(ini.writeString("stats", "b", "2"));
        QVERIFY(ini.writeString("other", "c", "3"));
        QVERIFY(ini.deleteKey("stats", "a"));
        // Reads see the operation's own changes; the disk sees nothing yet.
        QCOMPARE(ini.readString("stats", "b", {}), QStringLiteral("2"));
        QCOMPARE(ini.readString("stats", "a", "gone"), QStringLiteral("gone"));
        QCOMPARE(TempEnvironment::readFile(path()), before);
        // Nor is the file read again while the operation lasts.
        TempEnvironment::writeFile(path(), "[stats]\r\nb=changed\r\n");
        QCOMPARE(ini.readString("stats", "b", {}), QStringLiteral("2"));
        QVERIFY(saving.commit());
    }
    QCOMPARE(TempEnvironment::readFile(path()),
             QByteArray("[stats]\r\nb=2\r\n\r\n[other]\r\nc=3\r\n"));
    // After it, every read is fresh again, and a dropped operation writes nothing.
    TempEnvironment::writeFile(path(), before);
    QCOMPARE(ini.readString("stats", "a", {}), QStringLiteral("1"));
    {
        IniFile::Operation dropped(ini);
        QVERIFY(ini.writeString("stats", "a", "9"));
    }
    QCOMPARE(TempEnvironment::readFile(path()), before);
}

void TestIniFile::failedWriteKeepsOldFile() {
    IniFile missingFolder(m_env->programFolder() + "no/such/folder/vkstats.ini");
    QVERIFY(!missingFolder.writeString("stats", "k", "v"));
    QVERIFY(missingFolder.errorString().contains("no/such/folder/vkstats.ini"));

    // A folder standing where the file should be: the write fails, the
    // folder stays as it was.
    const QString blocked = m_env->programFolder() + "blocked.ini";
    QVERIFY(QDir().mkdir(blocked));
    QVERIFY(!IniFile(blocked).writeString("stats", "k", "v"));
    QVERIFY(QFileInfo(blocked).isDir());
}

void TestIniFile::sectionKeys() {
    TempEnvironment::writeFile(path(), "[a]\nx=1\n;c\ny=2\n[b]\nz=3\n");
    QCOMPARE(IniFile(path()).readSectionKeys("A"), (QStringList{"x", "y"}));
    QCOMPARE(IniFile(path()).readSectionKeys("none"), QStringList());
}

QTEST_APPLESS_MAIN(TestIniFile)
#include "tst_inifile.moc"
