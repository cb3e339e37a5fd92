#pragma once

#include <QDate>
#include <QList>
#include <QString>
#include <QStringList>

#include "PageLines.h"

// The checks a pubring.mix page must pass before it may become Mixmaster's
// keyring. Each key is a header line ("name address keyid version
// [capabilities [created [expires]]]") followed by a block: the begin
// marker, the key id, a length line, the key packet in base64, the end
// marker. Mixmaster itself looks a key up by the id in its block and uses it
// only when the MD5 of the decoded packet (the modulus and exponent after
// the two bytes of bit length) equals that id, so a key failing that check
// is one Mixmaster cannot encrypt to.

struct MixKey {
    QString header; // the header line as it stands on the page
    QString name;
    QString keyId;
    QDate created; // null when the header names none
    QDate expires;
};

struct MixKeyringCheck {
    QList<MixKey> keys; // every key, when the whole page passed
    QString problem;    // why the page was refused; empty when it passed
    bool ok() const { return problem.isEmpty(); }
};

// Checks every key of the page. The first key that fails refuses the whole
// page: a keyring is replaced whole or not at all. Blank lines and lines
// starting with "#" between keys are passed over, as Mixmaster does.
MixKeyringCheck CheckMixKeyring(const PageLines& lines);

// Mixmaster drops a key on the day its expiry date is reached.
bool IsKeyExpired(const MixKey& key, const QDate& today);
