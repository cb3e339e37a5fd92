#include "KeyringUpdate.h"

#include "FrontEnd.h"
#include "Global2.h"
#include "PagePaths.h"

#include <QFileInfo>

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

PageLines MergedNymserverKeys(const PageLines& ring, const PageLines& nym) {
    // The nymserver page may carry text above its keys; only the keys go in.
    qsizetype first = 0;
    while (first < nym.size() && !nym.view(first).contains(QLatin1String("-----BEGIN PGP PUBLIC")))
        ++first;
    PageLines merged = ring;
    for (qsizetype i = first; i < nym.size(); ++i)
        merged.append(nym.at(i));
    return merged;
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
