#pragma once
// Opening and creating files safely. Only regular files are read: a folder,
// a FIFO or a device named like a message is refused, and the open never
// waits (a FIFO without a writer would block for good). Files this program
// writes for itself are made anew, never through a link, readable by the
// user alone.
//
// File names are bytes. Every program that links the scanner decodes them
// with a codec that keeps bytes which are not UTF-8 (see FileAccess.cpp), so
// QFile::decodeName and QFile::encodeName give back the bytes on disk and a
// folder named in Latin-1 can be read like any other.

#include <QString>

namespace pellomar {

// Returns a descriptor open for reading, or -1 with `reason` saying why
// ("No such file or directory", "not a regular file (a folder)", ...).
int OpenRegularFile(const QString& path, QString* reason, qint64* size = nullptr);

// Removes whatever has the name and creates an empty file there for writing,
// mode 0600, refusing to follow a link. Returns the descriptor or -1.
int CreatePrivateFile(const QString& path);

// Makes the folder (mode 0700) if it is missing; true when `path` is then a
// real folder of this user that nobody else may enter.
bool MakePrivateFolder(const QString& path);

// A path as a person should see it: bytes that are not UTF-8 are shown as
// the replacement character, as Qt's UTF-8 decoding shows them.
QString DisplayName(const QString& path);

} // namespace pellomar
