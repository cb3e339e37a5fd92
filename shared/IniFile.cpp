#include "IniFile.h"

#include <QFile>
#include <QSaveFile>

struct IniFile::Parsed {
    QStringList lines;
    bool crlf = false;
    bool finalNewline = true;
};

namespace {

// The section name of a header line, or a null string for any other line.
// Views, not copies: a huge value line costs one scan, not a copy per look.
QString sectionOf(const QString& line) {
    const QStringView text = QStringView(line).trimmed();
    if (!text.startsWith(u'['))
        return {};
    const qsizetype close = text.indexOf(u']');
    return (close < 0 ? text.mid(1) : text.mid(1, close - 1)).trimmed().toString();
}

bool isComment(QStringView text) {
    return text.startsWith(u';') || text.startsWith(u'#');
}

// The key of a "key=value" line, or a null string.
QString keyOf(const QString& line) {
    const QStringView text = QStringView(line).trimmed();
    if (text.isEmpty() || isComment(text) || text.startsWith(u'['))
        return {};
    const qsizetype eq = text.indexOf(u'=');
    return eq <= 0 ? QString() : text.left(eq).trimmed().toString();
}

QString valueOf(const QString& line) {
    QString value = line.mid(line.indexOf(u'=') + 1).trimmed();
    // Like the Windows reader, one pair of enclosing quotes is dropped.
    if (value.size() >= 2 && (value.front() == u'"' || value.front() == u'\'') &&
        value.back() == value.front())
        value = value.mid(1, value.size() - 2);
    return value;
}

bool sameName(const QString& a, const QString& b) {
    return a.compare(b, Qt::CaseInsensitive) == 0;
}

// Index range of a section's body: [first, end). first is -1 when missing.
struct Range {
    qsizetype header = -1;
    qsizetype first = -1;
    qsizetype end = -1;
};

Range findSection(const QStringList& lines, const QString& section) {
    Range range;
    for (qsizetype i = 0; i < lines.size(); ++i) {
        const QString name = sectionOf(lines.at(i));
        if (name.isNull())
            continue;
        if (range.header >= 0) {
            range.end = i;
            return range;
        }
        if (sameName(name, section)) {
            range.header = i;
            range.first = i + 1;
        }
    }
    if (range.header >= 0)
        range.end = lines.size();
    return range;
}

qsizetype findKey(const QStringList& lines, const Range& range, const QString& key) {
    for (qsizetype i = range.first; i >= 0 && i < range.end; ++i) {
        if (sameName(keyOf(lines.at(i)), key))
            return i;
    }
    return -1;
}

} // namespace

IniFile::IniFile(QString path) : m_path(std::move(path)) {}

IniFile::~IniFile() = default;

IniFile::Operation::Operation(const IniFile& ini) : m_ini(ini), m_owner(!ini.m_held) {
    if (m_owner) {
        m_ini.m_held = std::make_unique<Parsed>(m_ini.parse());
        m_ini.m_changed = false;
    }
}

IniFile::Operation::Operation(IniFile& ini) : Operation(std::as_const(ini)) {
    m_writable = &ini;
}

IniFile::Operation::~Operation() {
    if (m_owner) {
        m_ini.m_held.reset();
        m_ini.m_changed = false;
    }
}

bool IniFile::Operation::commit() {
    if (!m_owner || !m_writable || !m_ini.m_changed)
        return true;
    m_ini.m_changed = false;
    return m_writable->save(*m_ini.m_held);
}

IniFile::Parsed IniFile::current() const {
    return m_held ? *m_held : parse();
}

bool IniFile::store(Parsed parsed) {
    if (!m_held)
        return save(parsed);
    *m_held = std::move(parsed);
    m_changed = true;
    return true;
}

IniFile::Parsed IniFile::parse() const {
    Parsed parsed;
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly))
        return parsed;
    const QString text = QString::fromUtf8(file.readAll());
    parsed.crlf = text.contains(QStringLiteral("\r\n"));
    parsed.finalNewline = text.isEmpty() || text.endsWith(u'\n') || text.endsWith(u'\r');
    QString normalised = text;
    normalised.replace(QStringLiteral("\r\n"), QStringLiteral("\n")).replace(u'\r', u'\n');
    parsed.lines = normalised.split(u'\n');
    if (normalised.endsWith(u'\n') || normalised.isEmpty())
        parsed.lines.removeLast();
    return parsed;
}

bool IniFile::save(const Parsed& parsed) {
    const QString eol = parsed.crlf ? QStringLiteral("\r\n") : QStringLiteral("\n");
    QString text = parsed.lines.join(eol);
    if (!parsed.lines.isEmpty() && parsed.finalNewline)
        text += eol;
    const QByteArray bytes = text.toUtf8();
    QSaveFile file(m_path);
    if (file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush() &&
        file.commit()) {
        m_error.clear();
        return true;
    }
    m_error = QStringLiteral("Cannot write %1: %2").arg(m_path, file.errorString());
    return false;
}

QString IniFile::readString(const QString& section, const QString& key, const QString& def) const {
    const Parsed parsed = current();
    const qsizetype at = findKey(parsed.lines, findSection(parsed.lines, section), key);
    return at < 0 ? def : valueOf(parsed.lines.at(at));
}

int IniFile::toInteger(const QString& text, int def) {
    const QString value = text.trimmed();
    bool ok = false;
    int number = 0;
    if (value.startsWith(u'$'))
        number = int(value.mid(1).toUInt(&ok, 16));
    else if (value.startsWith(QStringLiteral("0x"), Qt::CaseInsensitive))
        number = int(value.mid(2).toUInt(&ok, 16));
    else
        number = value.toInt(&ok, 10);
    return ok ? number : def;
}

int IniFile::readInteger(const QString& section, const QString& key, int def) const {
    return toInteger(readString(section, key, QString()), def);
}

bool IniFile::readBool(const QString& section, const QString& key, bool def) const {
    return readInteger(section, key, def ? 1 : 0) != 0;
}

QStringList IniFile::readSectionKeys(const QString& section) const {
    const Parsed parsed = current();
    const Range range = findSection(parsed.lines, section);
    QStringList keys;
    for (qsizetype i = range.first; i >= 0 && i < range.end; ++i) {
        const QString key = keyOf(parsed.lines.at(i));
        if (!key.isEmpty())
            keys.append(key);
    }
    return keys;
}

bool IniFile::writeString(const QString& section, const QString& key, const QString& value) {
    Parsed parsed = current();
    QStringList& lines = parsed.lines;
    const QString entry = key + u'=' + value;
    const Range range = findSection(lines, section);
    if (range.header < 0) {
        if (!lines.isEmpty() && !lines.constLast().trimmed().isEmpty())
            lines.append(QString());
        lines << u'[' + section + u']' << entry;
        return store(std::move(parsed));
    }
    const qsizetype at = findKey(lines, range, key);
    if (at >= 0) {
        lines[at] = entry;
        return store(std::move(parsed));
    }
    // A new key goes after the section's last non-blank line.
    qsizetype insertAt = range.end;
    while (insertAt > range.first && lines.at(insertAt - 1).trimmed().isEmpty())
        --insertAt;
    lines.insert(insertAt, entry);
    return store(std::move(parsed));
}

bool IniFile::writeInteger(const QString& section, const QString& key, int value) {
    return writeString(section, key, QString::number(value));
}

bool IniFile::writeBool(const QString& section, const QString& key, bool value) {
    return writeString(section, key, value ? QStringLiteral("1") : QStringLiteral("0"));
}

bool IniFile::deleteKey(const QString& section, const QString& key) {
    Parsed parsed = current();
    const qsizetype at = findKey(parsed.lines, findSection(parsed.lines, section), key);
    if (at < 0)
        return true;
    parsed.lines.removeAt(at);
    return store(std::move(parsed));
}
