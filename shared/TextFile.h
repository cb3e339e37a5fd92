#pragma once

#include "PageLines.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <functional>

// Files are read whole into line lists and written whole. Pages keep their
// bytes: text is decoded as Latin-1, which maps every byte to one character
// and back, so nothing a pinger sent is changed between the wire and the disk.

// Splits text at CR LF, LF or CR; a final line end does not add an empty line.
QStringList SplitLines(const QString& text);

// Reads a file into lines; a missing or unreadable file reads as no lines.
PageLines ReadPage(const QString& path, bool* ok = nullptr);
QStringList ReadLines(const QString& path, bool* ok = nullptr);
// Hands the file's lines, split as ReadPage splits them, to each one at a
// time until it returns false, never holding the whole file. Returns false
// when the file cannot be read.
bool ForEachLine(const QString& path, const std::function<bool(QLatin1StringView)>& each);

// Writes the lines, each ended by the platform's line end, through a save
// file: the file is replaced whole or not at all. On failure, error (when
// given) names the file and the reason.
bool WriteLines(const QString& path, const PageLines& lines, QString* error = nullptr);
bool WriteBytes(const QString& path, const QByteArray& bytes, QString* error = nullptr);
