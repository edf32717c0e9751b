#pragma once
// Apple Mail keeps a message's read, answered, flagged and deleted state in
// the "flags" integer of the property list that follows the message in its
// file. mbox readers take the same state from "Status:" and "X-Status:"
// header lines.

#include <QByteArray>

#include <optional>

class QIODevice;

namespace MailStatus {

// Reads the trailer that starts at `at` in `file` (at most 64 KiB of it) and
// returns its flags; the file's position is left where it was.
std::optional<quint64> ReadFlags(QIODevice& file, qint64 at);

// "Status: RO\n" for a read message, "Status: O\n" otherwise, then
// "X-Status: " with A (answered), F (flagged), D (deleted) when any applies.
QByteArray HeaderLines(quint64 flags);

// The header line (its text from the start) is a Status or X-Status line.
bool IsStatusHeader(const char* text, int size);

} // namespace MailStatus
