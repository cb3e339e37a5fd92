// The child that tst_savekill kills: it saves one large page into the
// Mixmaster folder named by MIXPATH (the program folder by VKSTATS_HOME)
// through the program's own save path, and says on its output when it is
// about to write and what the finished file would be.
//
//   savekill_child writelines|savepages|plainwrite mlist.txt|pubring.mix LINES
//
// plainwrite is the way the program must not save: the file opened, cut to
// nothing and written in place. The test uses it to show that its kill
// really lands while the bytes are going out.
//
// Before saving it prints one line
//   saving SIZE SHA1 FLOOR
// SIZE and SHA1 describe the page file as a finished save leaves it, and
// FLOOR is the size of the largest file the same save writes into the
// Mixmaster folder before the page (type2.list before pubring.mix), so that
// the watcher can tell the page's half-written file from that one. After a
// save it prints "saved" or "failed: REASON".

#include "KeyringUpdate.h"
#include "PagePaths.h"
#include "PageSet.h"
#include "SavePages.h"
#include "SyntheticPages.h"
#include "TestFrontEnd.h"
#include "TextFile.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QFile>

#include <cstdio>

namespace {

void say(const QByteArray& line) {
    std::fputs(line.constData(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

void announce(const QStringList& finalLines, qint64 floor) {
    const QByteArray bytes = LinesToBytes(finalLines);
    say("saving " + QByteArray::number(bytes.size()) + ' ' +
        QCryptographicHash::hash(bytes, QCryptographicHash::Sha1).toHex() + ' ' +
        QByteArray::number(floor));
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() != 4) {
        say("usage: savekill_child writelines|savepages|plainwrite mlist.txt|pubring.mix LINES");
        return 2;
    }
    const QString mode = args.at(1);
    const QString page = args.at(2);
    const int lineCount = args.at(3).toInt();
    const QStringList lines = page == QStringLiteral("pubring.mix")
                                  ? SyntheticPages::pubringMix(lineCount)
                                  : SyntheticPages::mlist(lineCount);

    if (mode == QStringLiteral("plainwrite")) {
        const QByteArray bytes = LinesToBytes(lines);
        announce(lines, 0);
        QFile file(PagePath(page));
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
            file.write(bytes) != bytes.size() || !file.flush()) {
            say("failed: " + file.errorString().toLocal8Bit());
            return 1;
        }
        say("saved");
        return 0;
    }

    if (mode == QStringLiteral("writelines")) {
        announce(lines, 0);
        QString error;
        if (!WriteLines(PagePath(page), lines, &error)) {
            say("failed: " + error.toLocal8Bit());
            return 1;
        }
        say("saved");
        return 0;
    }

    // The way a downloaded page is saved: a checked document in the page
    // set, written by SavePages with everything that comes with it.
    TestFrontEnd ui;
    PageSet pages(&ui);
    auto doc = pages.makeDocument(QStringLiteral("pinger"), page, true, lines);
    if (!doc->IsValidPage()) {
        say("failed: the page does not pass its check");
        return 1;
    }
    const qint64 floor = page == QStringLiteral("pubring.mix")
                             ? LinesToBytes(Type2ListLines(doc->Lines())).size()
                             : 0;
    announce(doc->FileLines(), floor);
    pages.addPage(page, std::move(doc));
    const SaveResult result = SavePages(&ui, pages, {}, false);
    if (!result.ok()) {
        say("failed: " + result.errors.join(u' ').toLocal8Bit());
        return 1;
    }
    say("saved");
    return 0;
}
