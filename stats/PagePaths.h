#pragma once

#include <QString>

// Where a page's file lives: the five Mixmaster and Cypherpunk pages in the
// Mixmaster folder, everything else in the program folder. A menu caption's
// first "&" is dropped first; the names compare exactly, so "MLIST.TXT"
// stays in the program folder.
QString PagePath(const QString& name);

// True for the names that PagePath places in the Mixmaster folder.
bool IsMixmasterPage(const QString& name);

// A page name taken from urls.txt or the network must not leave its folder.
bool IsSafePageName(const QString& name);
