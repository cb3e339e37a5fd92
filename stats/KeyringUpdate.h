#pragma once

#include <QString>
#include <QStringList>

#include "PageLines.h"

#include <array>

class FrontEnd;

// The keyrings live in the Mixmaster folder, so saving the pages is the
// keyring update. This unit holds the two derivations made on saving
// (type2.list from pubring.mix, the nymserver keys added to pubring.asc),
// the command lines of the suite's key tools, the Keyrings menu rule and the
// question asked before an update from a new stats source.

// The lines of pubring.mix that go into the Mixmaster folder's type2.list:
// those whose field 1 holds "@" and whose field 3 holds "." (the key header
// lines). The save writes the file and records its date.
QStringList Type2ListLines(const QStringList& pubringLines);

// pubring.asc as the save writes it: ring followed by the keys of nym (from
// its first "-----BEGIN PGP PUBLIC" line on).
PageLines MergedNymserverKeys(const PageLines& ring, const PageLines& nym);

// The key tools, started with the program folder before their names. The
// Mixmaster folder is the copy the main window took at start; the nymserver
// path is PagePath("nymserver.asc").
inline constexpr char MixKeysTool[] = "vkmixkeys";
inline constexpr char PgpKeysTool[] = "vkpgpkeys";
QString MixmasterKeyringCommand(const QString& programFolder, const QString& mixmasterDir);
QString CypherpunkKeyringCommand(const QString& programFolder, const QString& mixmasterDir);
QString NymserverKeysCommand(const QString& programFolder, const QString& mixmasterDir,
                             const QString& nymserverPath);

// Which items of the Keyrings menu can be used: each needs its keyring file
// and the suite's key tool for it in the program folder.
struct KeyringMenuState {
    bool mixmaster = false;
    bool cypherpunk = false;
    bool nymservers = false;
    bool operator==(const KeyringMenuState&) const = default;
};
KeyringMenuState KeyringsMenuState();

// The four pages that carry keys or the lists that go with them, in the order
// the page list is refilled after the new-source question.
inline constexpr std::array<const char*, 4> KeyPageNames = {"mlist.txt", "pubring.mix", "rlist.txt",
                                                            "pubring.asc"};
using KeyPageTicks = std::array<bool, 4>;

QString ChkAddKeysCaption(const QString& lastSource, const QString& currentSource);
KeyPageTicks KeyPageTicksFor(const QStringList& pages);
QStringList KeyPagesFromTicks(const KeyPageTicks& ticks);

// Before an update from a source other than the last one, offers to fetch
// all the key pages. pages is the update's page list and is refilled from the
// answer however the question was closed. True when the update may go ahead.
bool ChkAddKeys(FrontEnd* owner, QStringList& pages, const QString& lastSource,
                const QString& currentSource);
