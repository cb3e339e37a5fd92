#pragma once

#include <QString>
#include <QStringList>

// The settings file in the Windows INI dialect that the suite's programs
// share: "[section]" headers, "key=value" lines, unquoted values, booleans as
// "1" and "0". Section and key names match without regard to case. Every
// call reads the file afresh; a write keeps comments, blank lines, key order
// and line ends, and replaces the file whole through a save file.
class IniFile {
public:
    explicit IniFile(QString path) : m_path(std::move(path)) {}

    QString path() const { return m_path; }

    QString readString(const QString& section, const QString& key, const QString& def) const;
    int readInteger(const QString& section, const QString& key, int def) const;
    bool readBool(const QString& section, const QString& key, bool def) const;
    QStringList readSectionKeys(const QString& section) const;

    bool writeString(const QString& section, const QString& key, const QString& value);
    bool writeInteger(const QString& section, const QString& key, int value);
    bool writeBool(const QString& section, const QString& key, bool value);
    bool deleteKey(const QString& section, const QString& key);

    // Why the last write failed, naming the file.
    QString errorString() const { return m_error; }

    // Number parsing as the suite does it: decimal, or hexadecimal after "$"
    // or "0x"; anything else gives the default.
    static int toInteger(const QString& text, int def);

private:
    struct Parsed;
    Parsed parse() const;
    bool save(const Parsed& parsed);

    QString m_path;
    QString m_error;
};
