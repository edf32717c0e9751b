#pragma once
// Opening the files of a mail store for reading. Only regular files are
// read: a folder, a FIFO or a device named like a message is refused, and
// the open never waits (a FIFO without a writer would block for good).

#include <QString>

namespace pellomar {

// Returns a descriptor open for reading, or -1 with `reason` saying why
// ("No such file or directory", "not a regular file (a folder)", ...).
int OpenRegularFile(const QString& path, QString* reason);

} // namespace pellomar
