#pragma once
// Apple Mail keeps a message's read, answered, flagged and deleted state in
// the "flags" integer of the property list that follows the message in its
// file (the trailer).

#include <QByteArray>

#include <optional>

namespace emlx {

// The longest trailer that is looked at.
constexpr qint64 kLongestTrailer = 64 * 1024;

// The "flags" integer of the top-level dictionary of a trailer, when there
// is one. Flags above 2^63 may be written as a negative number.
std::optional<quint64> TrailerFlags(const char* data, qint64 size);
inline std::optional<quint64> TrailerFlags(const QByteArray& trailer) {
    return TrailerFlags(trailer.constData(), trailer.size());
}

} // namespace emlx
