#include "SavePages.h"

#include "BarredList.h"
#include "Global2.h"
#include "KeyringUpdate.h"
#include "PagePaths.h"
#include "PageSet.h"
#include "SuiteDatabase.h"
#include "TextFile.h"

namespace {

bool isDownloaded(const TRemailerDoc* doc) {
    return doc && doc->Origin != PageSet::localFile();
}

void write(const QString& path, const QStringList& lines, SaveResult& result) {
    QString error;
    if (!WriteLines(path, lines, &error))
        result.errors.append(error);
}

void recordDates(const QList<std::pair<QString, QString>>& dates) {
    if (SuiteDataFile* file = TheSuiteDataFile(); file && file->database && !dates.isEmpty())
        file->database->writeValues(dates);
}

void note(const KeyringResult& keyring, SaveResult& result) {
    if (keyring.failed())
        result.errors.append(keyring.error);
}

} // namespace

SaveResult SavePages(FrontEnd* frontEnd, PageSet& pages, const QStringList& newbars, bool barNew) {
    SaveResult result;
    if (IsDataFileEncrypted(frontEnd)) {
        result.encrypted = true;
        return result;
    }
    bool pgpChanged = false;
    bool nymChanged = false;
    bool barredAdded = false;
    QList<std::pair<QString, QString>> dates;
    for (int i = 0; i < pages.count(); ++i) {
        TRemailerDoc* doc = pages.documentAt(i);
        if (!isDownloaded(doc))
            continue;
        const QString& name = doc->DocName;
        if (doc->Active && doc->IsValidPage() && IsSafePageName(name)) {
            dates.append({name, doc->Extra});
            if (name == QStringLiteral("pubring.mix"))
                note(MakeType2List(frontEnd, doc->Lines(), doc->Extra), result);
            else if (name == QStringLiteral("mlist.txt"))
                write(PagePath(QStringLiteral("mlist.org.txt")), pages.mixUnfiltered(), result);
            else if (name == QStringLiteral("rlist.txt"))
                write(PagePath(QStringLiteral("rlist.org.txt")), pages.cpkUnfiltered(), result);
            else if (dynamic_cast<TCpkPubringAsc*>(doc))
                pgpChanged = true;
            else if (name == QStringLiteral("nymserver.asc"))
                nymChanged = true;
            const int before = int(result.errors.size());
            write(PagePath(name), doc->FileLines(), result);
            if (result.errors.size() == before) {
                ++result.written;
                doc->Viewer->setModified(false);
            }
        }
        // Newly seen remailers go into barred.txt once per save; the names
        // already there are never added again.
        if (barNew && !newbars.isEmpty() && !barredAdded) {
            QString error;
            if (!AppendNewlyBarred(newbars, &error))
                result.errors.append(error);
            barredAdded = true;
        }
    }
    if (pgpChanged || nymChanged)
        note(MergeNymserverKeys(), result);
    recordDates(dates);
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
