#include "SavePages.h"

#include "BarredList.h"
#include "Global2.h"
#include "KeyringUpdate.h"
#include "MixKeyring.h"
#include "PagePaths.h"
#include "PageSet.h"
#include "SuiteDatabase.h"
#include "TextFile.h"

#include <QFileInfo>
#include <QSaveFile>

#include <cerrno>
#include <memory>

namespace {

const QString PubringAsc = QStringLiteral("pubring.asc");
const QString NymserverAsc = QStringLiteral("nymserver.asc");

bool isDownloaded(const TRemailerDoc* doc) {
    return doc && doc->Origin != PageSet::localFile();
}

// One file of the set, with the date recorded once it is in place. Files
// of one group (a page with the files made from it) go together: when one
// cannot be written or put in place, the rest of its group stays old too,
// so that type2.list never describes a keyring that is not there.
struct SetFile {
    int group = 0;
    QString path;
    PageLines lines;
    QString dateKey; // empty: no date goes with this file
    QString date;
    PageView* view = nullptr; // marked saved once the file is in place
    std::unique_ptr<QSaveFile> staged;
};

// The system's word for what went wrong: a full disk is "No space left on
// device", whatever the file layer made of it.
QString reason(const QSaveFile& file, int error) {
    const QString said = file.errorString();
    if (error != 0 && (said.isEmpty() || said == QStringLiteral("Unknown error")))
        return qt_error_string(error);
    return said;
}

QString failure(const SetFile& file, const QString& why) {
    return QStringLiteral("Cannot write %1: %2").arg(file.path, why);
}

class SaveSet {
public:
    // Later files join the group the next call to newGroup() ends.
    void newGroup() { ++m_group; }
    void add(const QString& path, const PageLines& lines, const QString& dateKey = {},
             const QString& date = {}, PageView* view = nullptr) {
        m_files.push_back({m_group, path, lines, dateKey, date, view, nullptr});
    }
    // Replaces the content of a file already in the set, or adds it.
    void replace(const QString& path, const PageLines& lines) {
        for (SetFile& file : m_files) {
            if (file.path == path) {
                file.lines = lines;
                return;
            }
        }
        newGroup();
        add(path, lines);
    }
    void stage(SaveResult& result);
    void commit(SaveResult& result);

private:
    void drop(int group);
    std::vector<SetFile> m_files;
    int m_group = 0;
    int m_failedGroup = -1;
};

// Every file goes to its temporary file first; a group that cannot be
// written whole is dropped (its temporary files go with their QSaveFile
// objects) and keeps its old files.
void SaveSet::stage(SaveResult& result) {
    for (SetFile& file : m_files) {
        if (file.group == m_failedGroup)
            continue;
        file.staged = std::make_unique<QSaveFile>(file.path);
        QSaveFile& out = *file.staged;
        errno = 0;
        const bool written =
            out.open(QIODevice::WriteOnly) && file.lines.writeTo(out) && out.flush();
        if (!written) {
            result.errors.append(failure(file, reason(out, errno)));
            drop(file.group);
        }
    }
}

void SaveSet::drop(int group) {
    m_failedGroup = group;
    for (SetFile& file : m_files) {
        if (file.group == group)
            file.staged.reset();
    }
}

void recordDates(const QList<std::pair<QString, QString>>& dates, SaveResult& result) {
    SuiteDataFile* data = TheSuiteDataFile();
    if (dates.isEmpty() || !data || !data->database || data->database->writeValues(dates))
        return;
    for (const auto& date : dates)
        result.errors.append(
            QStringLiteral("Cannot record the date of %1 in %2: %3")
                .arg(date.first, data->database->path(), data->database->errorText()));
}

// Then the files are put in place one after another; a date is recorded
// only once its file is there. The dates go into the data file together, in
// one transaction: a crash before it leaves dates older than their files,
// which costs a new download, never a missed one.
void SaveSet::commit(SaveResult& result) {
    QList<std::pair<QString, QString>> dates;
    for (SetFile& file : m_files) {
        if (!file.staged)
            continue; // its group lost a file: it keeps its old files and dates
        errno = 0;
        if (!file.staged->commit()) {
            result.errors.append(failure(file, reason(*file.staged, errno)));
            drop(file.group);
            continue;
        }
        if (file.view) {
            ++result.written;
            file.view->setModified(false);
        }
        if (!file.dateKey.isEmpty())
            dates.append({file.dateKey, file.date});
    }
    recordDates(dates, result);
}

PageLines readIfThere(const QString& path, SaveResult& result) {
    bool ok = false;
    PageLines lines = ReadPage(path, &ok);
    if (!ok && QFileInfo::exists(path))
        result.errors.append(QStringLiteral("Cannot read %1").arg(path));
    return lines;
}

// The PGP keyring as it will be: the new page, or the file already there,
// with the nymserver keys (new or already there) added.
PageLines mergedPgpRing(const TRemailerDoc* asc, const TRemailerDoc* nym, SaveResult& result) {
    const QString ringPath = GetMixmasterDir() + PubringAsc;
    const PageLines ring = asc ? asc->Lines() : readIfThere(ringPath, result);
    const PageLines keys = nym ? nym->Lines() : readIfThere(PagePath(NymserverAsc), result);
    return MergedNymserverKeys(ring, keys);
}

QStringList type2ListOf(const TRemailerDoc& doc) {
    QStringList headers;
    for (const MixKey& key : CheckMixKeyring(doc.Lines()).keys)
        headers.append(key.header);
    return Type2ListLines(headers);
}

} // namespace

SaveResult SavePages(FrontEnd* frontEnd, PageSet& pages, const QStringList& newbars, bool barNew,
                     bool skipStale) {
    SaveResult result;
    if (IsDataFileEncrypted(frontEnd)) {
        result.encrypted = true;
        return result;
    }
    SaveSet set;
    const TRemailerDoc* asc = nullptr;
    const TRemailerDoc* nym = nullptr;
    bool barredDue = false;
    for (int i = 0; i < pages.count(); ++i) {
        TRemailerDoc* doc = pages.documentAt(i);
        if (!isDownloaded(doc))
            continue;
        barredDue = barredDue || (barNew && !newbars.isEmpty());
        const QString& name = doc->DocName;
        if (!doc->Active || !doc->IsValidPage() || !IsSafePageName(name))
            continue;
        if (skipStale && doc->Viewer->isStale()) {
            result.skipped.append(name);
            continue;
        }
        set.newGroup();
        if (name == QStringLiteral("mlist.txt"))
            set.add(PagePath(QStringLiteral("mlist.org.txt")), pages.mixUnfiltered());
        else if (name == QStringLiteral("rlist.txt"))
            set.add(PagePath(QStringLiteral("rlist.org.txt")), pages.cpkUnfiltered());
        else if (dynamic_cast<TCpkPubringAsc*>(doc))
            asc = doc;
        else if (name == NymserverAsc)
            nym = doc;
        set.add(PagePath(name), doc->FileLines(), name, doc->Extra, doc->Viewer);
        // Mixmaster reads the two together: the list follows its keyring.
        if (name == QStringLiteral("pubring.mix"))
            set.add(GetMixmasterDir() + QStringLiteral("type2.list"), type2ListOf(*doc),
                    QStringLiteral("type2.list"), doc->Extra);
    }
    if (asc || nym)
        set.replace(GetMixmasterDir() + PubringAsc, mergedPgpRing(asc, nym, result));
    if (result.errors.isEmpty()) {
        set.stage(result);
        set.commit(result);
    }
    // Newly seen remailers go into barred.txt once per save; the names
    // already there are never added again.
    QString error;
    if (barredDue && !AppendNewlyBarred(newbars, &error))
        result.errors.append(error);
    return result;
}

int PagesWorthSaving(const PageSet& pages) {
    int count = 0;
    for (int i = 1; i < pages.count(); ++i) {
        TRemailerDoc* doc = pages.documentAt(i);
        if (isDownloaded(doc) && doc->Active && doc->IsValidPage())
            ++count;
    }
    return count;
}
