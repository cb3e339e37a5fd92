#include "TempEnvironment.h"

#include <QFile>
#include <QFileInfo>

TempEnvironment::TempEnvironment()
    : m_oldHome(qgetenv("VKSTATS_HOME")), m_oldMix(qgetenv("MIXPATH")),
      m_hadHome(qEnvironmentVariableIsSet("VKSTATS_HOME")),
      m_hadMix(qEnvironmentVariableIsSet("MIXPATH")) {
    qputenv("VKSTATS_HOME", m_program.path().toLocal8Bit());
    qputenv("MIXPATH", m_mix.path().toLocal8Bit());
}

TempEnvironment::~TempEnvironment() {
    if (m_hadHome)
        qputenv("VKSTATS_HOME", m_oldHome);
    else
        qunsetenv("VKSTATS_HOME");
    if (m_hadMix)
        qputenv("MIXPATH", m_oldMix);
    else
        qunsetenv("MIXPATH");
}

QString TempEnvironment::programFolder() const {
    return m_program.path() + u'/';
}

QString TempEnvironment::mixFolder() const {
    return m_mix.path() + u'/';
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
