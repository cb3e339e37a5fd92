#include "TempEnvironment.h"

#include <QFile>
#include <QFileInfo>

TempEnvironment::TempEnvironment() {
    for (const auto& [name, dir] : {std::pair("VKSTATS_HOME", &m_program), {"MIXPATH", &m_mix}}) {
        m_old.append(
            {name, qEnvironmentVariableIsSet(name) ? std::optional(qgetenv(name)) : std::nullopt});
        qputenv(name, dir->path().toLocal8Bit());
    }
}

TempEnvironment::~TempEnvironment() {
    for (const auto& [name, old] : std::as_const(m_old))
        old ? qputenv(name, *old) : qunsetenv(name);
}

QString TempEnvironment::writeFile(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        qFatal("cannot write test file %s", qPrintable(path));
    return path;
}

QByteArray TempEnvironment::readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
