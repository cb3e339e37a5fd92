#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

// The four pages a stats source serves, in the order they are fetched.
extern const QStringList StatsPages;

// A page as a real pinger served it on day, a folder of tests/data/real.
// A missing page stops the test program: every check on it would be void.
QByteArray RealPage(const char* day, const QString& name);
// The same page as lines.
QStringList RealPageLines(const char* day, const QString& name);

// Makes a new suite data file, vk.dbc, in programFolder. Returns why it
// could not, or nothing when it is made.
QString CreateDataFile(const QString& programFolder);

// Adds the rows of the case table tests/tables/<name> (its form in
// tests/tables/README.md) to the running _data() function as one QStringList
// column "f", tagged with their line number and first field.
void AddTableRows(const QString& name);
// The same rows for a test that runs them in turn, each led by its line number.
QList<QStringList> TableRows(const QString& name);
