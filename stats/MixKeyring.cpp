#include "MixKeyring.h"

#include <QCryptographicHash>
#include <QRegularExpression>

namespace {

const QString BeginMarker = QStringLiteral("-----Begin Mix Key-----");
const QString EndMarker = QStringLiteral("-----End Mix Key-----");

const QString NotMixmaster = QStringLiteral("not a Mixmaster keyring");

QString cutShort(const QString& name) {
    return QStringLiteral("key block of %1 is missing or cut short").arg(name);
}

QString idMismatch(const QString& name) {
    return QStringLiteral("key id of %1 does not match its key").arg(name);
}

bool isKeyId(const QString& text) {
    static const QRegularExpression hex(QStringLiteral("^[0-9a-fA-F]{32}$"));
    return hex.match(text).hasMatch();
}

bool isBase64Line(const QString& text) {
    static const QRegularExpression base64(QStringLiteral("^[A-Za-z0-9+/]+=*$"));
    return base64.match(text).hasMatch();
}

// Key dates are written "YYYY-MM-DD".
bool parseDate(const QString& text, QDate& date) {
    date = QDate::fromString(text, QStringLiteral("yyyy-MM-dd"));
    return date.isValid();
}

// A Mixmaster header has four to seven fields, an address, a 32-digit key
// id and a version of protocol 2 (written "2.x" by old remailers, "2:x" by
// new ones; other protocols such as YAMN's "4:" are not Mixmaster's).
bool parseHeader(const QString& line, MixKey& key) {
    // Compiled once: a keyring has a header line for every remailer.
    static const QRegularExpression blanks(QStringLiteral("\\s+"));
    const QStringList fields = line.split(blanks, Qt::SkipEmptyParts);
    if (fields.size() < 4 || fields.size() > 7)
        return false;
    if (!fields[1].contains(u'@') || !isKeyId(fields[2]) || !fields[3].startsWith(u'2'))
        return false;
    if (fields.size() >= 6 && !parseDate(fields[5], key.created))
        return false;
    if (fields.size() == 7 && !parseDate(fields[6], key.expires))
        return false;
    key.header = line;
    key.name = fields[0];
    key.keyId = fields[2].toLower();
    return true;
}

bool isPassedOver(const QString& line) {
    return line.trimmed().isEmpty() || line.startsWith(u'#');
}

// Reads the block that starts at lines[at] (the begin marker) and checks
// its packet against key; at ends past the end marker.
QString checkBlock(const QStringList& lines, qsizetype& at, const MixKey& key) {
    ++at;
    if (at + 1 >= lines.size())
        return cutShort(key.name);
    const QString id = lines[at].trimmed();
    const QString length = lines[at + 1].trimmed();
    bool number = false;
    length.toInt(&number);
    if (!isKeyId(id) || !number)
        return NotMixmaster;
    QByteArray base64;
    for (at += 2; at < lines.size() && lines[at] != EndMarker; ++at) {
        const QString text = lines[at].trimmed();
        if (!isBase64Line(text))
            return text == BeginMarker ? cutShort(key.name) : NotMixmaster;
        base64 += text.toLatin1();
    }
    if (at >= lines.size())
        return cutShort(key.name);
    ++at;
    const auto decoded =
        QByteArray::fromBase64Encoding(base64, QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded || decoded.decoded.size() < 2)
        return cutShort(key.name);
    const QByteArray& packet = decoded.decoded;
    const int bits = quint8(packet[0]) + 256 * quint8(packet[1]);
    if (packet.size() != 2 * ((bits + 7) / 8) + 2)
        return cutShort(key.name);
    const QByteArray digest =
        QCryptographicHash::hash(packet.mid(2), QCryptographicHash::Md5).toHex();
    if (id.toLower() != key.keyId || QString::fromLatin1(digest) != key.keyId)
        return idMismatch(key.name);
    return {};
}

} // namespace

MixKeyringCheck CheckMixKeyring(const QStringList& lines) {
    MixKeyringCheck result;
    qsizetype at = 0;
    while (at < lines.size()) {
        if (isPassedOver(lines[at])) {
            ++at;
            continue;
        }
        MixKey key;
        if (!parseHeader(lines[at], key)) {
            result.problem = NotMixmaster;
            break;
        }
        for (++at; at < lines.size() && lines[at].trimmed().isEmpty(); ++at) {
        }
        if (at >= lines.size() || lines[at] != BeginMarker) {
            result.problem = cutShort(key.name);
            break;
        }
        result.problem = checkBlock(lines, at, key);
        if (!result.ok())
            break;
        result.keys.append(key);
    }
    if (result.ok() && result.keys.isEmpty())
        result.problem = NotMixmaster;
    if (!result.ok())
        result.keys.clear();
    return result;
}

bool IsKeyExpired(const MixKey& key, const QDate& today) {
    return key.expires.isValid() && key.expires <= today;
}
