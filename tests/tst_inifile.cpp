#include "IniFile.h"
#include "TempEnvironment.h"
#include "TestData.h"

#include <QDir>
#include <QFileInfo>
#include <QTest>

#include <memory>

class TestIniFile : public QObject {
    Q_OBJECT
private slots:
    void init() {
        m_env.reset(); // the old one restores the environment it found
        m_env = std::make_unique<TempEnvironment>();
    }
    void cases_data() { AddTableRows(QStringLiteral("inifile.txt")); }
    void cases();
    void readsAfreshAndFailsCleanly();
    void oneReadAndOneWritePerOperation();

private:
    std::unique_ptr<TempEnvironment> m_env;
    QString path() const { return m_env->programFolder() + "vkstats.ini"; }
};

void TestIniFile::cases() {
    QFETCH(QStringList, f);
    if (f[0] != "trip" && f[1] != u'-')
        TempEnvironment::writeFile(path(), f[1].toLatin1());
    IniFile ini(path());
    if (f[0] == "read") {
        QCOMPARE(ini.readString(f[2], f[3], "DEF"), f[4]);
    } else if (f[0] == "write") {
        QVERIFY(ini.writeString(f[2], f[3], f[4]));
        QCOMPARE(TempEnvironment::readFile(path()), f[5].toUtf8());
    } else if (f[0] == "trip") {
        QVERIFY(ini.writeString("stats", "key", f[1]));
        QVERIFY(ini.writeString("stats", "other", "x"));
        QCOMPARE(IniFile(path()).readString("stats", "key", "DEF"), f[1]);
        QCOMPARE(TempEnvironment::readFile(path()),
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

void TestIniFile::readsAfreshAndFailsCleanly() {
    IniFile ini(path());
    QVERIFY(ini.writeInteger("stats", "timeoutseconds", 45));
    QCOMPARE(ini.readInteger("stats", "timeoutseconds", 30), 45);
    TempEnvironment::writeFile(path(), "[a]\nx=1\n;c\ny=2\n[stats]\ntimeoutseconds=12\n");
    QCOMPARE(ini.readInteger("stats", "timeoutseconds", 30), 12);
    QCOMPARE(ini.readSectionKeys("A"), (QStringList{"x", "y"}));
    QCOMPARE(ini.readSectionKeys("none"), QStringList());
    QVERIFY(ini.deleteKey("stats", "timeoutseconds"));
    QCOMPARE(ini.readInteger("stats", "timeoutseconds", 30), 30);

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

QTEST_APPLESS_MAIN(TestIniFile)
#include "tst_inifile.moc"
