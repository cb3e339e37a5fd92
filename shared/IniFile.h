#pragma once

#include <QString>
#include <QStringList>

#include <memory>

// The settings file in the Windows INI dialect that the suite's programs
// share: "[section]" headers, "key=value" lines, unquoted values, booleans as
// "1" and "0". Section and key names match without regard to case. Every
// call reads the file afresh; a write keeps comments, blank lines, key order
// and line ends, and replaces the file whole through a save file.
class IniFile {
    struct Parsed;

public:
    explicit IniFile(QString path);
    ~IniFile();

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

    // One operation on the file (loading a window's settings, saving them)
    // reads it once and writes it at most once: while an Operation lives,
    // reads come from the copy read when it began and writes change only
    // that copy; commit() writes the file, whole, if anything changed. An
    // Operation begun while another holds the file joins it.
    class Operation {
    public:
        explicit Operation(const IniFile& ini); // reads only
        explicit Operation(IniFile& ini);
        ~Operation(); // an uncommitted change is dropped
        Operation(const Operation&) = delete;
        Operation& operator=(const Operation&) = delete;
        // Writes the changes of the operation in one save; true when there
        // were none.
        bool commit();

    private:
        const IniFile& m_ini;
        IniFile* m_writable = nullptr;
        bool m_owner;
    };

private:
    Parsed parse() const;
    bool save(const Parsed& parsed);
    // The held copy when an operation is open, else a fresh reading.
    Parsed current() const;
    bool store(Parsed parsed);

    QString m_path;
    QString m_error;
    mutable std::unique_ptr<Parsed> m_held;
    mutable bool m_changed = false;
};
