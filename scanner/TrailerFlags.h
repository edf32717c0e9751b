#pragma once
// Apple Mail keeps a message's read, answered, flagged and deleted state in
// the "flags" integer of the property list that follows the message in its
// file (the trailer).

#include <QByteArray>

#include <optional>

namespace emlx {

// The longest trailer that is looked at.
constexpr qint64 kLongestTrailer = 64 * 1024;

// Bits of the flags.
constexpr quint64 kRead = 1u << 0;
constexpr quint64 kDeleted = 1u << 1;
constexpr quint64 kAnswered = 1u << 2;
constexpr quint64 kFlagged = 1u << 4;

// The integer under `key` in the top-level dictionary of a trailer, when
// there is one. Values above 2^63 may be written as a negative number.
std::optional<quint64> TrailerInteger(const char* data, qint64 size, const char* key);
// Its "flags"; "date-received" is the time Mail received the message, in
// seconds since 1970.
inline std::optional<quint64> TrailerFlags(const char* data, qint64 size) {
    return TrailerInteger(data, size, "flags");
}
inline std::optional<quint64> TrailerFlags(const QByteArray& trailer) {
    return TrailerFlags(trailer.constData(), trailer.size());
}

} // namespace emlx
