#pragma once
// Encodes a decoded attachment file back into the body of its MIME part,
// in the part's own Content-Transfer-Encoding, a bounded chunk at a time:
// an attachment of any size takes the same memory.
//
// - "base64": lines of 76 characters;
// - "quoted-printable": RFC 2045 (lines of at most 76 characters with soft
//   breaks, "=", control bytes, bytes above 0x7E and blanks before a line
//   end encoded; "\n" is a line break; an "F" that starts a line is
//   encoded too, so no line of the part reads "From ");
// - anything else (7bit, 8bit, binary, none): the bytes as they are, with
//   ">" before every line that starts with "From " (as the mbox writer
//   escapes every other line of a message).
//
// The writer puts one line feed after the output (base64 output has none
// after its last line); it belongs to the delimiter that follows the part,
// so a mail reader decodes exactly the file's bytes.

#include <QByteArray>

#include <functional>

class QIODevice;

namespace PartEncoding {

using Output = std::function<void(const char* data, qint64 size)>;

// Reads `in` to its end and writes the encoded text to `out`, reading
// `chunk` bytes at a time. False when a read fails.
bool Encode(QIODevice& in, const QByteArray& encoding, const Output& out, int chunk = 64 * 1024);

} // namespace PartEncoding
