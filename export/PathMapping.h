#pragma once
#include <QString>

// Name of the extended attribute that holds a file's Finder information
// (32 bytes: type, creator, flags, icon position, reserved).
const char* FinderInfoAttributeName();

// Gives the file the Finder type and creator (four characters each), all
// other Finder information zero. Returns false where the file system refuses
// extended attributes; callers carry on without it.
bool SetFinderTypeAndCreator(const QString& path, const char* type, const char* creator);

// Makes the folder and every missing folder above it. False when one
// cannot be made, with the reason naming it.
bool MakeFolders(const QString& path, QString* reason);
