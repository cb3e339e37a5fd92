#pragma once

#include <QByteArray>
#include <QString>

#include <functional>

class TestFrontEnd;

// Stands for "no urls.txt at all" in a table of urls.txt contents.
extern const QByteArray MissingUrls;

// Puts a table's content at path, or makes sure no file is there for
// MissingUrls; false when the file could not be removed.
bool PlaceUrls(const QString& path, const QByteArray& content);

// The ways a save of urls.txt is refused, a row each in the column
// "obstacle": a folder where the file should be, a file where its folder
// should be, and a disk that refuses the bytes. One table for every
// function that saves the list.
void AddSaveObstacleRows();

// Puts a row's obstacle in the way of a save of urls.txt at urlsPath, with
// a list of two sources, "a" and "b", where its bytes must survive; has save
// write to the path it is handed, and checks that the save was refused:
// one error to ui naming the path, the bytes untouched and no temporary
// copy left. The row is skipped where the file-size limit stays as it is.
void CheckSaveRefused(const QString& obstacle, const QString& urlsPath, const TestFrontEnd& ui,
                      const std::function<bool(const QString& path)>& save);
