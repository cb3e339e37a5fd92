#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

// Files are read whole into line lists and written whole. Pages keep their
// bytes: text is decoded as Latin-1, which maps every byte to one character
// and back, so nothing a pinger sent is changed between the wire and the disk.

// Splits text at CR LF, LF or CR; a final line end does not add an empty line.
QStringList SplitLines(const QString& text);
QStringList BytesToLines(const QByteArray& bytes);
QByteArray LinesToBytes(const QStringList& lines);

// Reads a file into lines; a missing or unreadable file reads as no lines.
QStringList ReadLines(const QString& path, bool* ok = nullptr);

// Writes the lines, each ended by the platform's line end, through a save
// file: the file is replaced whole or not at all. On failure, error (when
// given) names the file and the reason.
bool WriteLines(const QString& path, const QStringList& lines, QString* error = nullptr);
bool WriteBytes(const QString& path, const QByteArray& bytes, QString* error = nullptr);
