#pragma once
// How an Apple Mail message file (.emlx) reads as lines. The scanner's
// mapped reader (scanner/MessageFile.h) and the mbox writer's chunked reader
// both follow these rules:
//
// - A line is the bytes up to and including "\n"; the last line of a file
//   may lack the "\n".
// - A "\r" right before that "\n" is no part of the text.
// - The text stops at the line's first NUL byte (and then has no "\n").
// - The first line holds the byte count of the message that follows it.
// - The message ends at the property-list trailer, whose first lines hold
//   the two marks below.

#include <QList>
#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <cstring>
#include <vector>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace emlx {

// The XML declaration that starts the trailer, and the property list's
// DOCTYPE line that follows it.
inline constexpr char kTrailerMark[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
inline constexpr char kDoctypeMark[] = "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST ";
inline constexpr int kTrailerMarkSize = int(sizeof(kTrailerMark)) - 1;
inline constexpr int kDoctypeMarkSize = int(sizeof(kDoctypeMark)) - 1;
inline constexpr int kLongestMark =
    kTrailerMarkSize > kDoctypeMarkSize ? kTrailerMarkSize : kDoctypeMarkSize;

// One of the two marks starts at p, which has `left` bytes after it.
inline bool MarkAt(const char* p, qint64 left) {
    return (left >= kTrailerMarkSize && memcmp(p, kTrailerMark, kTrailerMarkSize) == 0) ||
           (left >= kDoctypeMarkSize && memcmp(p, kDoctypeMark, kDoctypeMarkSize) == 0);
}
// The bytes hold one of the two marks.
bool HasMark(const char* data, qint64 size);

// Where a line's text ends.
struct LineText {
    qint64 size = 0;      // bytes of the text without its final "\n"
    bool newline = false; // the text ends with "\n"
};
// The text of a line of `size` bytes (through its "\n", or to the end of the
// file), from the offset of its first NUL byte (-1 for none) and its last
// two bytes. For readers that see a line in pieces.
inline LineText TextOf(qint64 size, qint64 nul, char beforeLast, char last) {
    if (nul >= 0)
        return {nul, false};
    if (size > 0 && last == '\n')
        return {size - 1 - (size > 1 && beforeLast == '\r' ? 1 : 0), true};
    return {size, false};
}
// The text of the line held whole at `line`, before the cut at a NUL byte.
inline LineText RawTextOf(const char* line, qint64 size) {
    return TextOf(size, -1, size > 1 ? line[size - 2] : '\0', size > 0 ? line[size - 1] : '\0');
}
// That text cut at its first NUL byte.
inline LineText CutAtNul(const char* line, LineText raw) {
    const void* nul = raw.size > 0 ? memchr(line, 0, size_t(raw.size)) : nullptr;
    return nul ? LineText{static_cast<const char*>(nul) - line, false} : raw;
}
// The text of the line held whole at `line`.
inline LineText TextOf(const char* line, qint64 size) {
    return CutAtNul(line, RawTextOf(line, size));
}

// The last "\n" among the bytes, or null.
inline const char* LastNewline(const char* data, qint64 size) {
#ifdef __GLIBC__
    return size > 0 ? static_cast<const char*>(memrchr(data, '\n', size_t(size))) : nullptr;
#else
    while (size > 0 && data[size - 1] != '\n')
        --size;
    return size > 0 ? data + size - 1 : nullptr;
#endif
}

// Reads the byte count from the first line's text, which may come in pieces
// and be of any length: the text decoded as UTF-8 and trimmed of white space
// is an unsigned decimal number, with at most one "+" before it; anything
// else, or a number beyond 64 bits, counts 0. This is what
// QString::fromUtf8(text).trimmed().toULongLong() gives, without holding the
// text.
class CountReader {
public:
    void Add(const char* data, qint64 size);
    quint64 Value() const;

private:
    enum class State { Before, Sign, Digits, After, Bad };
    void Space();
    void Sequence(); // a complete multi-byte sequence in m_seq

    State m_state = State::Before;
    quint64 m_value = 0;
    qint64 m_seen = 0; // bytes read so far
    unsigned char m_seq[3] = {};
    int m_have = 0, m_need = 0;
};
// The count of the text held whole.
quint64 ByteCount(const char* text, qint64 size);

// Saturating arithmetic for positions taken from file contents.
qint64 SatAdd(qint64 a, qint64 b);
qint64 SatSub(qint64 a, qint64 b);

// The detached .emlxpart files that may belong to the partial message at
// messagePath: every entry of partFiles that contains the message path
// without "partial.emlx" (so "/a/12.partial.emlx" takes "/a/12.2.emlxpart"
// but not "/a/112.2.emlxpart"), in list order.
QStringList PartFileCandidates(const QString& messagePath, const QList<QString>& partFiles);

// The same look-up for many messages of one store without going through
// every .emlxpart file for each: the files sorted once, and those whose
// path starts with the message's stem found by binary search (a file of the
// store whose path holds the stem anywhere but at its start would be in
// another folder than the message's, which the store's layout rules out).
// Candidates() gives a short list that PartFileCandidates narrows no
// further, in the order of `partFiles`.
class PartFileIndex {
public:
    explicit PartFileIndex(const QStringList& partFiles);
    QStringList Candidates(const QString& messagePath) const;

private:
    struct Entry {
        QString path;
        int order;
    };
    std::vector<Entry> m_sorted;
};

// Sixteen bytes at a time, for the hot loops of both readers, with the
// vector types of GCC and Clang. Comparisons give 0 or -1 in each byte.
typedef signed char Bytes16 __attribute__((vector_size(16)));
inline Bytes16 Load16(const char* p) {
    Bytes16 v;
    memcpy(&v, p, 16);
    return v;
}
// Some byte is not 0.
inline bool Any(Bytes16 v) {
#ifdef __SSE2__
    return _mm_movemask_epi8((__m128i)v) != 0;
#else
    quint64 halves[2];
    memcpy(halves, &v, 16);
    return (halves[0] | halves[1]) != 0;
#endif
}
// Bit i set for each byte i of a comparison that is -1.
inline unsigned Mask(Bytes16 v) {
#ifdef __SSE2__
    return unsigned(_mm_movemask_epi8((__m128i)v));
#else
    quint64 halves[2];
    memcpy(halves, &v, 16);
    const quint64 highs = 0x8080808080808080ULL, gather = 0x0002040810204081ULL;
    return unsigned(((halves[0] & highs) * gather) >> 56) |
           unsigned(((halves[1] & highs) * gather) >> 56) << 8;
#endif
}
// Every byte is below 0x80.
inline bool IsAscii(const char* data, qint64 size) {
    qint64 i = 0;
    for (; i + 16 <= size; i += 16)
        if (Any(Load16(data + i) < 0))
            return false;
    for (; i < size; ++i)
        if (static_cast<unsigned char>(data[i]) >= 0x80)
            return false;
    return true;
}

} // namespace emlx
