#include "KeyringUpdate.h"

#include "FrontEnd.h"
#include "Global2.h"
#include "PagePaths.h"
#include "SuiteDatabase.h"
#include "TextFile.h"

#include <QFileInfo>

namespace {

const QString Type2ListName = QStringLiteral("type2.list");

// Reads a file that may be missing. A file that is there but cannot be read
// is an error: treating it as empty would overwrite a keyring with less.
bool readOptional(const QString& path, QStringList& lines, QString& error) {
    bool ok = false;
    lines = ReadLines(path, &ok);
    if (!ok && QFileInfo::exists(path)) {
        error = QStringLiteral("Cannot read %1").arg(path);
        return false;
    }
    return true;
}

} // namespace

QStringList Type2ListLines(const QStringList& pubringLines) {
    QStringList kept;
    for (const QString& line : pubringLines) {
        // A key header line reads "name address keyid version capabilities
        // ...": an address with "@" and a version with "." mark it.
        if (GetField(1, line, u' ').contains(u'@') && GetField(3, line, u' ').contains(u'.'))
            kept.append(line);
    }
    return kept;
}

KeyringResult MakeType2List(FrontEnd* frontEnd, const QStringList& pubringLines,
                            const QString& updateTime) {
    if (IsDataFileEncrypted(frontEnd))
        return {KeyringResult::Encrypted, {}};
    const QStringList kept = Type2ListLines(pubringLines);

    KeyringResult result;
    SuiteDataFile* data = TheSuiteDataFile();
    if (data && !data->failed && data->database &&
        !data->database->writeValue(Type2ListName, updateTime)) {
        // The list itself matters more than its date: still write it, then
        // say what went wrong.
        result = {KeyringResult::Failed,
                  QStringLiteral("Cannot record the date of %1 in %2: %3")
                      .arg(Type2ListName, data->database->path(), data->database->errorText())};
    }

    QString error;
    if (!WriteLines(GetMixmasterDir() + Type2ListName, kept, &error))
        return {KeyringResult::Failed, error};
    return result;
}

KeyringResult MergeNymserverKeys() {
    const QString ringPath = GetMixmasterDir() + QStringLiteral("pubring.asc");
    QStringList ring;
    QStringList nym;
    QString error;
    if (!readOptional(ringPath, ring, error) ||
        !readOptional(PagePath(QStringLiteral("nymserver.asc")), nym, error))
        return {KeyringResult::Failed, error};

    if (!WriteLines(ringPath, MergedNymserverKeys(ring, nym), &error))
        return {KeyringResult::Failed, error};
    return {};
}

QStringList MergedNymserverKeys(const QStringList& ring, const QStringList& nym) {
    // The nymserver page may carry text above its keys; only the keys go in.
    qsizetype first = 0;
    while (first < nym.size() && !nym.at(first).contains(QStringLiteral("-----BEGIN PGP PUBLIC")))
        ++first;
    return ring + nym.mid(first);
}

QString MixmasterKeyringCommand(const QString& programFolder, const QString& mixmasterDir) {
    return programFolder + QLatin1String(MixKeysTool) + u' ' + u'"' + mixmasterDir +
           QStringLiteral("pubring.mix") + u'"';
}

QString CypherpunkKeyringCommand(const QString& programFolder, const QString& mixmasterDir) {
    return programFolder + QLatin1String(PgpKeysTool) + u' ' + u'"' + mixmasterDir +
           QStringLiteral("pubring.asc") + u'"' + u' ' + u'"' + mixmasterDir +
           QStringLiteral("rlist.txt") + u'"';
}

// The second argument is run together with the first on purpose: the key
// tool has always been handed this line, and it is kept as it is.
QString NymserverKeysCommand(const QString& programFolder, const QString& mixmasterDir,
                             const QString& nymserverPath) {
    return programFolder + QLatin1String(PgpKeysTool) + u' ' + u'"' + nymserverPath + u'"' +
           mixmasterDir + nymserverPath + u'"';
}

KeyringMenuState KeyringsMenuState() {
    const auto present = [](const char* name) {
        return QFileInfo(PagePath(QLatin1String(name))).isFile();
    };
    const auto tool = [](const char* name) {
        return QFileInfo::exists(ProgramFolder() + QLatin1String(name));
    };
    const bool pgpTool = tool(PgpKeysTool);
    return {present("pubring.mix") && tool(MixKeysTool), present("pubring.asc") && pgpTool,
            present("nymserver.asc") && pgpTool};
}

QString ChkAddKeysCaption(const QString& lastSource, const QString& currentSource) {
    return QStringLiteral(" New stats source detected {") + lastSource + QStringLiteral("->") +
           currentSource + u'}';
}

KeyPageTicks KeyPageTicksFor(const QStringList& pages) {
    KeyPageTicks ticks{};
    for (const QString& page : pages) {
        for (std::size_t i = 0; i < KeyPageNames.size(); ++i) {
            if (page == QLatin1String(KeyPageNames[i]))
                ticks[i] = true;
        }
    }
    return ticks;
}

QStringList KeyPagesFromTicks(const KeyPageTicks& ticks) {
    QStringList pages;
    for (std::size_t i = 0; i < KeyPageNames.size(); ++i) {
        if (ticks[i])
            pages.append(QLatin1String(KeyPageNames[i]));
    }
    return pages;
}

bool ChkAddKeys(FrontEnd* owner, QStringList& pages, const QString& lastSource,
                const QString& currentSource) {
    // Only the count is looked at: four pages pass whichever they are.
    if (pages.size() == 4)
        return true;
    if (lastSource == currentSource)
        return true;
    VK_ASSERT(owner != nullptr, StatsWins4Unit);
    KeyPageTicks ticks = KeyPageTicksFor(pages);
    const bool ok = owner->askAddKeys(ChkAddKeysCaption(lastSource, currentSource), ticks);
    // The answer replaces the list on Cancel too, dropping any page that is
    // not one of the four.
    pages = KeyPagesFromTicks(ticks);
    return ok;
}
