#include "MixKeyring.h"

#include <QCryptographicHash>
#include <QRegularExpression>

#include <algorithm>

namespace {

const QLatin1StringView BeginMarker("-----Begin Mix Key-----");
const QLatin1StringView EndMarker("-----End Mix Key-----");

const QString NotMixmaster = QStringLiteral("not a Mixmaster keyring");

QString cutShort(const QString& name) {
    return QStringLiteral("key block of %1 is missing or cut short").arg(name);
}

QString idMismatch(const QString& name) {
    return QStringLiteral("key id of %1 does not match its key").arg(name);
}

bool isKeyId(const QString& text) {
    return text.size() == 32 && std::all_of(text.cbegin(), text.cend(), [](QChar c) {
               return c.isDigit() ? c.unicode() <= u'9'
                                  : (c.toLower() >= u'a' && c.toLower() <= u'f');
           });
}

// Base64 characters, then only "=" padding; checked by hand, since a key
// block has many lines and a pattern match costs many times this.
bool isBase64Line(QLatin1StringView text) {
    const auto digit = [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
               c == '+' || c == '/';
    };
    const char* end = text.data() + text.size();
    const char* p = std::find_if_not(text.data(), end, digit);
    if (p == text.data())
        return false;
    return std::all_of(p, end, [](char c) { return c == '='; });
}

// Key dates are written "YYYY-MM-DD". That form is read directly (every
// key has two dates, and the general parser costs more than the rest of the
// key); anything else goes to the general parser.
bool parseDate(const QString& text, QDate& date) {
    const auto digits = [&text](qsizetype from, qsizetype n) {
        int value = 0;
        for (qsizetype i = from; i < from + n; ++i) {
            const char16_t c = text.at(i).unicode();
            if (c < u'0' || c > u'9')
                return -1;
            value = value * 10 + (c - u'0');
        }
        return value;
    };
    if (text.size() == 10 && text.at(4) == u'-' && text.at(7) == u'-') {
        const int year = digits(0, 4), month = digits(5, 2), day = digits(8, 2);
        if (year >= 0 && month >= 0 && day >= 0) {
            date = QDate(year, month, day);
            return date.isValid();
        }
    }
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

// Reads the block that starts at line at (the begin marker) and checks
// its packet against key; at ends past the end marker.
QString checkBlock(const PageLines& lines, qsizetype& at, const MixKey& key) {
    ++at;
    if (at + 1 >= lines.size())
        return cutShort(key.name);
    const QString id = lines.at(at).trimmed();
    const QString length = lines.at(at + 1).trimmed();
    bool number = false;
    length.toInt(&number);
    if (!isKeyId(id) || !number)
        return NotMixmaster;
    QByteArray base64;
    for (at += 2; at < lines.size() && lines.view(at) != EndMarker; ++at) {
        const QLatin1StringView text = PageLines::trimmed(lines.view(at));
        if (!isBase64Line(text))
            return text == BeginMarker ? cutShort(key.name) : NotMixmaster;
        base64.append(text.data(), text.size());
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

MixKeyringCheck CheckMixKeyring(const PageLines& lines) {
    MixKeyringCheck result;
    qsizetype at = 0;
    while (at < lines.size()) {
        if (isPassedOver(lines.at(at))) {
            ++at;
            continue;
        }
        MixKey key;
        if (!parseHeader(lines.at(at), key)) {
            result.problem = NotMixmaster;
            break;
        }
        for (++at; at < lines.size() && lines.at(at).trimmed().isEmpty(); ++at) {
        }
        if (at >= lines.size() || lines.at(at) != BeginMarker) {
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
