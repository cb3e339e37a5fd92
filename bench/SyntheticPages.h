#pragma once

#include <QString>
#include <QStringList>

// Made-up pages of any length in the formats the pingers publish, for the
// benchmark, which needs pages far larger than the real ones.
// The same arguments always give the same lines. Remailer names are "r"
// followed by seven digits, counted from 0, so that a test can name the
// remailers a page holds without reading it.
namespace SyntheticPages {

// The name of remailer number index.
QString remailerName(int index);

// A Mixmaster statistics page (mlist.txt) of about lineCount lines: the
// "Last update: " line, the column heads, the rule of hyphens, one row per
// remailer, and a short list of broken chains below.
QStringList mlist(int lineCount);

// A Mixmaster keyring (pubring.mix) of about lineCount lines, 16 lines to a
// key: the key header line (name, address, key id, version "2:3.0",
// capabilities "CNm", dates), a blank line, the key block, a blank line.
QStringList pubringMix(int lineCount);

// A PGP keyring text with keyCount public key blocks, each with a "Version"
// line and base64 lines.
QStringList pgpKeys(int keyCount, const QString& comment = QString());

} // namespace SyntheticPages
