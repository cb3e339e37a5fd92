#pragma once

#include <QByteArray>
#include <QStringList>
#include <QTemporaryDir>

#include <optional>

// A fresh program folder and Mixmaster folder for one test, pointed to by
// VKSTATS_HOME and MIXPATH; the old values come back when it goes.
class TempEnvironment {
public:
    TempEnvironment();
    ~TempEnvironment();
    TempEnvironment(const TempEnvironment&) = delete;
    TempEnvironment& operator=(const TempEnvironment&) = delete;

    bool isValid() const { return m_program.isValid() && m_mix.isValid(); }
    // Both with a trailing slash, as the program sees them.
    QString programFolder() const { return m_program.path() + u'/'; }
    QString mixFolder() const { return m_mix.path() + u'/'; }

    // Writes a file below a folder; returns its path.
    static QString writeFile(const QString& path, const QByteArray& bytes);
    static QByteArray readFile(const QString& path);

private:
    QTemporaryDir m_program;
    QTemporaryDir m_mix;
    QList<std::pair<const char*, std::optional<QByteArray>>> m_old; // as they were
};
