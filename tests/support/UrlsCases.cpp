#include "UrlsCases.h"

#include "FileSizeLimit.h"
#include "Global2.h"
#include "TempEnvironment.h"
#include "TestFrontEnd.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <memory>

const QByteArray MissingUrls = QByteArrayLiteral("<missing>");

bool PlaceUrls(const QString& path, const QByteArray& content) {
    if (content != MissingUrls) {
        TempEnvironment::writeFile(path, content);
        return true;
    }
    QFile::remove(path);
    return !QFileInfo::exists(path);
}

void AddSaveObstacleRows() {
    QTest::addColumn<QString>("obstacle");
    QTest::newRow("directory where the file should be") << "directory";
    QTest::newRow("parent is a file") << "parent file";
    QTest::newRow("disk refuses the bytes") << "file size limit";
}

void CheckSaveRefused(const QString& obstacle, const QString& urlsPath, const TestFrontEnd& ui,
                      const std::function<bool(const QString& path)>& save) {
    const QByteArray original = "[a]\nmlist.txt http://a/m\n\n[b]\nmlist.txt http://b/m\n";
    QString path = urlsPath;
    QString keptPath; // a file whose bytes must survive
    std::unique_ptr<FileSizeLimit> limit;
    if (obstacle == QLatin1String("directory")) {
        QVERIFY(QDir().mkdir(path));
        keptPath = TempEnvironment::writeFile(path + "/inside", original);
    } else if (obstacle == QLatin1String("parent file")) {
        keptPath = TempEnvironment::writeFile(ProgramFolder() + "blocker", original);
        path = keptPath + "/urls.txt";
    } else {
        keptPath = TempEnvironment::writeFile(path, original);
        limit = std::make_unique<FileSizeLimit>(16);
        if (!limit->ok())
            QSKIP("cannot lower the file-size limit here");
    }
    QCOMPARE(TempEnvironment::readFile(keptPath), original);

    const bool saved = save(path);
    limit.reset();

    QVERIFY(!saved);
    QCOMPARE(ui.messageTexts(), QStringList{"I was unable to save " + path +
                                            ". Possibly you don't have file permissions.     "});
    QCOMPARE(ui.messages.first().type, Error);
    QCOMPARE(ui.messages.first().buttons, int(MbOk));
    QCOMPARE(TempEnvironment::readFile(keptPath), original);
    if (obstacle == QLatin1String("directory"))
        QVERIFY(QFileInfo(path).isDir());
    // The save file's temporary copy must not be left behind.
    const QStringList left = QDir(ProgramFolder()).entryList(QDir::Files | QDir::NoDotAndDotDot);
    QCOMPARE(left, obstacle == QLatin1String("directory")
                       ? QStringList{}
                       : QStringList{QFileInfo(keptPath).fileName()});
}
