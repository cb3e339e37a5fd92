#include "SyntheticPages.h"

#include <QCryptographicHash>
#include <QtGlobal>

#include <cstdio>

namespace SyntheticPages {

namespace {

constexpr int LinesPerMixKey = 16;
constexpr int Base64LinesPerKey = 9;

// A small fixed generator, so that pages are the same on every run and
// every machine.
class Sequence {
public:
    explicit Sequence(quint64 seed) : m_state(seed * 0x9E3779B97F4A7C15ull + 1) {}
    quint32 next() {
        m_state = m_state * 6364136223846793005ull + 1442695040888963407ull;
        return quint32(m_state >> 33);
    }

private:
    quint64 m_state;
};

QString latin1(const char* text, int length) {
    return QString::fromLatin1(text, length);
}

const char Base64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

QString base64Line(Sequence& random, int length) {
    char line[80] = {};
    length = qMin(length, int(sizeof line));
    for (int i = 0; i < length; ++i)
        line[i] = Base64[random.next() % 64];
    return latin1(line, length);
}

// A 1024-bit key packet as Mixmaster writes it: the bit length in two
// bytes, then modulus and exponent. Its id is the MD5 of the two numbers,
// which is what makes Mixmaster (and the keyring check) take it.
QByteArray keyPacket(Sequence& random) {
    QByteArray packet(258, '\0');
    packet[1] = 4;
    for (int i = 2; i < 130; ++i)
        packet[i] = char(random.next() & 0xff);
    packet[255] = 1;
    packet[257] = 1;
    return packet;
}

QString keyId(const QByteArray& packet) {
    return QString::fromLatin1(
        QCryptographicHash::hash(packet.mid(2), QCryptographicHash::Md5).toHex());
}

// History marks of a statistics row: mostly good, now and then a slow hour.
void history(Sequence& random, char* out) {
    static const char marks[] = "****++++*+-.";
    for (int i = 0; i < 12; ++i)
        out[i] = marks[random.next() % 12];
    out[12] = 0;
}

} // namespace

QString remailerName(int index) {
    char name[16] = {};
    const int length = std::snprintf(name, sizeof name, "r%07d", index);
    return latin1(name, length);
}

QStringList mlist(int lineCount) {
    const QStringList head = {
        QStringLiteral("Last update: Fri 30 Nov 2012 10:20:00 GMT"),
        QStringLiteral("mixmaster           history  latency  uptime"),
        QStringLiteral("--------------------------------------------"),
    };
    const QStringList tail = {
        QString(),
        QStringLiteral("Broken type-II remailer chains:"),
        QStringLiteral("(r0000001 r0000002)"),
        QStringLiteral("(r0000003 r0000001)"),
    };
    const int rows = qMax(1, lineCount - int(head.size() + tail.size()));
    QStringList lines;
    lines.reserve(rows + head.size() + tail.size());
    lines << head;
    Sequence random(1);
    for (int i = 0; i < rows; ++i) {
        char marks[13] = {};
        history(random, marks);
        const unsigned minutes = random.next() % 90;
        const unsigned seconds = random.next() % 60;
        const unsigned hundredths = 9000 + random.next() % 1001;
        char row[96] = {};
        const int length =
            std::snprintf(row, sizeof row, "r%07d       %s  %5u:%02u %3u.%02u%%", i, marks, minutes,
                          seconds, hundredths / 100, hundredths % 100);
        lines.append(latin1(row, length));
    }
    lines << tail;
    return lines;
}

QStringList pubringMix(int lineCount) {
    const int keys = qMax(1, lineCount / LinesPerMixKey);
    QStringList lines;
    lines.reserve(qsizetype(keys) * LinesPerMixKey);
    const QString begin = QStringLiteral("-----Begin Mix Key-----");
    const QString end = QStringLiteral("-----End Mix Key-----");
    const QString length = QStringLiteral("258");
    Sequence random(2);
    for (int i = 0; i < keys; ++i) {
        const QByteArray packet = keyPacket(random);
        const QString id = keyId(packet);
        const QByteArray base64 = packet.toBase64();
        char header[160] = {};
        const int headerLength = std::snprintf(
            header, sizeof header, "r%07d mix@r%07d.example.net %s 2:3.0 CNm 2012-01-08 2013-02-01",
            i, i, id.toLatin1().constData());
        lines.append(latin1(header, headerLength));
        lines.append(QString());
        lines.append(begin);
        lines.append(id);
        lines.append(length);
        for (int b = 0; b < Base64LinesPerKey; ++b)
            lines.append(QString::fromLatin1(base64.mid(b * 40, 40)));
        lines.append(end);
        lines.append(QString());
    }
    return lines;
}

QStringList pgpKeys(int keyCount, const QString& comment) {
    QStringList lines;
    Sequence random(3);
    for (int k = 0; k < keyCount; ++k) {
        lines << QStringLiteral("-----BEGIN PGP PUBLIC KEY BLOCK-----")
              << QStringLiteral("Version: GnuPG v1.4.10 (GNU/Linux)");
        if (!comment.isEmpty())
            lines << QStringLiteral("Comment: ") + comment;
        lines << QString();
        for (int b = 0; b < 12; ++b)
            lines << base64Line(random, 64);
        lines << u'=' + base64Line(random, 4)
              << QStringLiteral("-----END PGP PUBLIC KEY BLOCK-----");
    }
    return lines;
}

} // namespace SyntheticPages
