#include "export/MboxWriter.h"
#include "scanner/FileAccess.h"

#include <QIODevice>

#include <algorithm>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace MboxWriter {
namespace {

// Two lines of the property list that follows the message in an .emlx file.
const char kXmlMarker[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
const char kDoctypeMarker[] = "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST ";
constexpr int kXmlMarkerLen = sizeof(kXmlMarker) - 1;
constexpr int kDoctypeMarkerLen = sizeof(kDoctypeMarker) - 1;
constexpr int kLongestMarker = std::max(kXmlMarkerLen, kDoctypeMarkerLen);

const char kPartHeader[] = "X-Apple-Content-Length: ";
constexpr int kPartHeaderLen = sizeof(kPartHeader) - 1;
const char kBom[] = "\xEF\xBB\xBF";
constexpr int kHeadLen = 32; // longer than every prefix the copy looks at

bool HasMarkerAt(const char* p, qint64 left) {
    return (left >= kXmlMarkerLen && memcmp(p, kXmlMarker, kXmlMarkerLen) == 0) ||
           (left >= kDoctypeMarkerLen && memcmp(p, kDoctypeMarker, kDoctypeMarkerLen) == 0);
}

bool ContainsMarker(const char* data, qint64 size) {
    const char* end = data + size;
    for (const char* p = data; p < end;) {
        p = static_cast<const char*>(memchr(p, '<', size_t(end - p)));
        if (!p)
            return false;
        if (HasMarkerAt(p, end - p))
            return true;
        ++p;
    }
    return false;
}

constexpr quint64 kOnes = 0x0101010101010101ULL;
constexpr quint64 kHighs = 0x8080808080808080ULL;

inline quint64 Load8(const char* p) {
    quint64 v;
    memcpy(&v, p, 8);
    return v;
}
// Non-zero exactly when one of the eight bytes of `v` is zero.
inline quint64 ZeroBytes(quint64 v) {
    return (v - kOnes) & ~v & kHighs;
}

bool IsAscii(const char* data, qint64 size) {
    quint64 any = 0;
    qint64 i = 0;
    for (; i + 8 <= size; i += 8)
        any |= Load8(data + i);
    for (; i < size; ++i)
        any |= static_cast<unsigned char>(data[i]);
    return (any & kHighs) == 0;
}

// One pass over a line: where its first NUL is (or `size`), whether the
// bytes before it are all ASCII and whether they hold a "<".
struct Scan {
    qint64 nul;
    bool ascii;
    bool angle;
};
Scan ScanLine(const char* data, qint64 size) {
    quint64 high = 0;
    quint64 angle = 0;
    qint64 i = 0;
    for (; i + 8 <= size; i += 8) {
        const quint64 v = Load8(data + i);
        if (ZeroBytes(v))
            break; // the byte loop finds the NUL
        high |= v;
        angle |= ZeroBytes(v ^ (kOnes * '<'));
    }
    bool sawAngle = angle != 0;
    for (; i < size; ++i) {
        const auto c = static_cast<unsigned char>(data[i]);
        if (c == 0)
            break;
        high |= c;
        sawAngle = sawAngle || c == '<';
    }
    return {i, (high & kHighs) == 0, sawAngle};
}

inline bool IsSpecial(unsigned char c) {
    return c == 0 || c == '\r' || c == '<' || c >= 0x80;
}

// Length of the run at the start of `data` free of the bytes that call for
// a decision of their own: NUL, "\r", "<" and every byte of 0x80 and above.
// `fromLine(p)` is called, in order, for each p in the run (p > 0) where a
// line starting with "From " begins (the five bytes lie within `size`).
template <class F> qint64 PlainRun(const char* data, qint64 size, F&& fromLine) {
    auto check = [&](qint64 p) { // data[p - 1] is "\n"
        if (p + 5 <= size && memcmp(data + p, "From ", 5) == 0)
            fromLine(p);
    };
    qint64 i = 0;
#if defined(__GNUC__) || defined(__clang__)
    // Sixteen bytes at a time with the compiler's portable vector types.
    typedef signed char V16 __attribute__((vector_size(16)));
    auto load = [data](qint64 at) {
        V16 v;
        memcpy(&v, data + at, 16);
        return v;
    };
    // Bytes that stop the run (high bytes are the negative ones), and "\n"
    // followed by "F". A "<" matters only where a marker could start ("<?"
    // or "<!"), so HTML markup does not break the run.
    auto bad = [](V16 v, V16 next) {
        return (v == 0) | (v == '\r') | ((v == '<') & ((next == '?') | (next == '!'))) | (v < 0);
    };
    auto lineF = [](V16 v, V16 next) { return (v == '\n') & (next == 'F'); };
    auto any = [](V16 v) {
        quint64 halves[2];
        memcpy(halves, &v, 16);
        return (halves[0] | halves[1]) != 0;
    };
    for (; i + 17 <= size; i += 16) {
        const V16 v = load(i);
        const V16 next = load(i + 1);
        const V16 stop = bad(v, next);
        if (!any(stop | lineF(v, next)))
            continue;
        if (any(stop))
            break;
        for (qint64 k = i; k < i + 16; ++k)
            if (data[k] == '\n')
                check(k + 1);
    }
#endif
    for (; i < size; ++i) {
        const auto c = static_cast<unsigned char>(data[i]);
        if (IsSpecial(c))
            break;
        if (c == '\n')
            check(i + 1);
    }
    return i;
}

const char* LastNewline(const char* data, qint64 size) {
#if defined(__GLIBC__)
    return static_cast<const char*>(memrchr(data, '\n', size_t(size)));
#else
    while (size > 0 && data[size - 1] != '\n')
        --size;
    return size > 0 ? data + size - 1 : nullptr;
#endif
}

const char* FindBytes(const char* data, qint64 size, const char* needle, int len) {
    return static_cast<const char*>(memmem(data, size_t(size), needle, size_t(len)));
}

// Valid UTF-8 written as Latin-1: one byte per character, "?" for each
// UTF-16 unit that Latin-1 lacks. Returns the bytes written, or -1 when the
// text is not valid UTF-8 (the caller then lets Qt's decoder handle it).
qint64 Utf8ToLatin1(const char* in, qint64 size, char* out) {
    const auto* p = reinterpret_cast<const unsigned char*>(in);
    const auto* end = p + size;
    char* o = out;
    auto cont = [](unsigned char c) { return (c & 0xC0) == 0x80; };
    while (p < end) {
        while (end - p >= 8) { // runs of ASCII, eight bytes at a time
            const quint64 v = Load8(reinterpret_cast<const char*>(p));
            if (v & kHighs)
                break;
            memcpy(o, &v, 8);
            o += 8;
            p += 8;
        }
        if (p == end)
            break;
        const unsigned char c = *p;
        if (c < 0x80) {
            *o++ = char(c);
            ++p;
        } else if (c >= 0xC2 && c <= 0xDF) {
            if (end - p < 2 || !cont(p[1]))
                return -1;
            const unsigned code = ((c & 0x1Fu) << 6) | (p[1] & 0x3Fu);
            *o++ = code <= 0xFF ? char(code) : '?';
            p += 2;
        } else if (c >= 0xE0 && c <= 0xEF) {
            if (end - p < 3 || !cont(p[1]) || !cont(p[2]))
                return -1;
            if ((c == 0xE0 && p[1] < 0xA0) || (c == 0xED && p[1] > 0x9F))
                return -1; // overlong, or a surrogate
            *o++ = '?';
            p += 3;
        } else if (c >= 0xF0 && c <= 0xF4) {
            if (end - p < 4 || !cont(p[1]) || !cont(p[2]) || !cont(p[3]))
                return -1;
            if ((c == 0xF0 && p[1] < 0x90) || (c == 0xF4 && p[1] > 0x8F))
                return -1; // overlong, or beyond U+10FFFF
            *o++ = '?';    // a surrogate pair: two units
            *o++ = '?';
            p += 4;
        } else {
            return -1;
        }
    }
    return o - out;
}

// Buffered output; write errors are not looked at (nothing could be done
// about them half-way through a message).
class Sink {
public:
    Sink(QIODevice& device, int chunk) : m_device(device), m_limit(chunk) {
        m_buffer.resize(chunk);
    }
    ~Sink() { flush(); }
    void append(const char* data, qint64 size) {
        if (m_used + size > m_limit) {
            flush();
            if (size > m_limit) {
                m_device.write(data, size);
                return;
            }
        }
        memcpy(m_buffer.data() + m_used, data, size_t(size));
        m_used += int(size);
    }
    void append(const QByteArray& bytes) { append(bytes.constData(), bytes.size()); }
    void append(char c) { append(&c, 1); }
    // Room for `size` bytes written in place; commit() then takes them.
    char* reserve(qint64 size) {
        if (size > m_limit)
            return nullptr;
        if (m_used + size > m_limit)
            flush();
        return m_buffer.data() + m_used;
    }
    void commit(qint64 size) { m_used += int(size); }
    void flush() {
        if (m_used > 0)
            m_device.write(m_buffer.constData(), m_used);
        m_used = 0;
    }

private:
    QIODevice& m_device;
    QByteArray m_buffer;
    int m_limit;
    int m_used = 0;
};

// Writes UTF-8 text as Latin-1 ("?" for what Latin-1 cannot hold), exactly as
// decoding the whole text at once and encoding it again would, although the
// text arrives in pieces.
class Latin1Transcoder {
public:
    explicit Latin1Transcoder(Sink& sink) : m_sink(sink) {}
    void add(const char* data, qint64 size) {
        m_pending.append(data, int(size));
        // Keep back a multi-byte sequence that the next piece may complete.
        const int hold = IncompleteTail(m_pending);
        if (hold < m_pending.size())
            decode(m_pending.constData(), m_pending.size() - hold);
        m_pending.remove(0, m_pending.size() - hold);
    }
    void finish() {
        decode(m_pending.constData(), m_pending.size());
        m_pending.clear();
    }

private:
    // Bytes at the end that start a sequence still missing continuation bytes.
    static int IncompleteTail(const QByteArray& bytes) {
        const int n = bytes.size();
        for (int back = 1; back <= 3 && back <= n; ++back) {
            const auto c = static_cast<unsigned char>(bytes[n - back]);
            if ((c & 0xC0) == 0x80)
                continue; // a continuation byte: look further back
            const int need = c >= 0xF0 && c < 0xF8   ? 4
                             : c >= 0xE0 && c < 0xF0 ? 3
                             : c >= 0xC0 && c < 0xE0 ? 2
                                                     : 1;
            return need > back ? back : 0;
        }
        return 0;
    }
    void decode(const char* data, qint64 size) {
        if (size <= 0)
            return;
        if (!m_atStart) {
            // The decoder drops a byte-order mark only at the start of the
            // text; one further on stands for U+FEFF, which Latin-1 lacks.
            while (size >= 3 && memcmp(data, kBom, 3) == 0) {
                m_sink.append('?');
                data += 3;
                size -= 3;
            }
        }
        m_atStart = false;
        if (IsAscii(data, size))
            m_sink.append(data, size);
        else
            m_sink.append(QString::fromUtf8(data, int(size)).toLatin1());
    }

    Sink& m_sink;
    QByteArray m_pending;
    bool m_atStart = true;
};

// What the copy needs to know about one line.
struct Line {
    qint64 start = 0;           // file position of its first byte
    qint64 end = 0;             // file position after it
    qint64 contentEnd = 0;      // end of its text: the first NUL, or the line end
                                // without "\n" (and without a "\r" right before it)
    bool newline = false;       // the text ends with "\n" (no NUL came before it)
    bool bom = false;           // the text starts with a UTF-8 byte-order mark
    bool marker = false;        // the text contains a trailer marker
    bool ascii = false;         // the text is ASCII (known for buffered lines only)
    const char* data = nullptr; // the whole line, when it fits in the buffer
    const char* head = nullptr; // the text's first bytes after a byte-order mark
    int headLen = 0;
    char headCopy[kHeadLen]; // holds them for a line longer than the buffer

    qint64 textSize() const { return contentEnd - start - (bom ? 3 : 0); }
    // The decoded text holds no character at all.
    bool isEmpty() const { return textSize() == 0 && !newline; }
    // The decoded text is exactly "\n".
    bool isBlank() const { return textSize() == 0 && newline; }
    bool startsWith(const char* prefix, int len) const {
        return headLen >= len && memcmp(head, prefix, size_t(len)) == 0;
    }
};

class LineReader {
public:
    LineReader(QIODevice& device, int chunk)
        : m_device(device), m_capacity(std::max(chunk, kMinimumChunk)) {
        m_buffer.resize(m_capacity);
        m_bufferPos = device.pos();
    }

    // Reads the next line; false at the end of the file.
    bool next(Line& line) {
        for (;;) {
            const char* base = m_buffer.constData();
            const char* nl =
                static_cast<const char*>(memchr(base + m_pos, '\n', size_t(m_end - m_pos)));
            if (nl || (m_eof && m_pos < m_end)) {
                const qint64 size = nl ? nl + 1 - (base + m_pos) : m_end - m_pos;
                describeBuffered(line, base + m_pos, size);
                m_pos += int(size);
                return true;
            }
            if (m_eof)
                return false;
            if (m_pos == 0 && m_end == m_capacity) {
                describeLong(line);
                return true;
            }
            fill();
        }
    }

    // Copies the whole lines at the read position that hold none of the
    // bytes that need a closer look (see PlainPrefix): their text is their
    // bytes, no trailer marker can be among them, and only "From " at a
    // line start changes. In `partial` mode the run stops before a
    // detached-part header. Returns false when there is no such line.
    template <class Out> bool copyPlainRun(Out& sink, bool partial) {
        if (!m_eof && m_end - m_pos < 4096)
            fill();
        const char* base = m_buffer.constData() + m_pos;
        qint64 avail = m_end - m_pos;
        if (partial) {
            if (avail >= kPartHeaderLen && memcmp(base, kPartHeader, kPartHeaderLen) == 0)
                return false;
            if (const char* h =
                    FindBytes(base, avail, "\nX-Apple-Content-Length: ", kPartHeaderLen + 1))
                avail = h + 1 - base;
        }
        // Bytes before `written` are out; a "From " line that starts at
        // `pending` gets its ">" once the line is known to be whole.
        qint64 written = 0;
        qint64 pending = avail >= 5 && memcmp(base, "From ", 5) == 0 ? 0 : -1;
        const qint64 plain = PlainRun(base, avail, [&](qint64 p) {
            if (pending >= 0)
                sink.append('>');
            sink.append(base + written, p - written);
            written = pending = p;
        });
        const char* lastNewline = LastNewline(base, plain);
        if (!lastNewline)
            return false; // nothing was written: every "From " line is after a newline
        const qint64 size = lastNewline + 1 - base;
        if (size > written) {
            if (pending >= 0)
                sink.append('>');
            sink.append(base + written, size - written);
        }
        m_pos += int(size);
        return true;
    }

    // Copies the line's text [start + skip, contentEnd) to `out` (a functor
    // taking a data pointer and a size). Lines that did not fit in the buffer
    // are read again from the file.
    template <class Out> bool copyText(const Line& line, qint64 skip, Out&& out) {
        const qint64 size = line.contentEnd - line.start - skip;
        if (line.data) {
            out(line.data + skip, size);
            return true;
        }
        if (!m_device.seek(line.start + skip))
            return false;
        qint64 left = size;
        while (left > 0) {
            const qint64 got = m_device.read(m_buffer.data(), std::min<qint64>(left, m_capacity));
            if (got <= 0)
                break;
            out(m_buffer.constData(), got);
            left -= got;
        }
        // Go on after the line.
        m_pos = m_end = 0;
        m_eof = false;
        m_bufferPos = line.end;
        return m_device.seek(line.end);
    }

private:
    void fill() {
        if (m_pos > 0) {
            memmove(m_buffer.data(), m_buffer.constData() + m_pos, size_t(m_end - m_pos));
            m_bufferPos += m_pos;
            m_end -= m_pos;
            m_pos = 0;
        }
        const qint64 got = m_device.read(m_buffer.data() + m_end, m_capacity - m_end);
        if (got <= 0)
            m_eof = true;
        else
            m_end += int(got);
    }

    // Points the line's head at its text; `copy` keeps the bytes in the line.
    static void setHead(Line& line, const char* text, qint64 textSize, bool copy) {
        line.bom = textSize >= 3 && memcmp(text, kBom, 3) == 0;
        if (line.bom) {
            text += 3;
            textSize -= 3;
        }
        line.headLen = int(std::min<qint64>(textSize, kHeadLen));
        if (copy) {
            memcpy(line.headCopy, text, size_t(line.headLen));
            text = line.headCopy;
        }
        line.head = text;
    }

    void describeBuffered(Line& line, const char* data, qint64 size) {
        line.start = m_bufferPos + m_pos;
        line.end = line.start + size;
        line.data = data;
        const Scan scan = ScanLine(data, size);
        qint64 textSize;
        if (scan.nul < size) {
            textSize = scan.nul;
            line.newline = false;
        } else if (data[size - 1] == '\n') {
            textSize = size - 1;
            if (textSize > 0 && data[textSize - 1] == '\r')
                --textSize;
            line.newline = true;
        } else {
            textSize = size;
            line.newline = false;
        }
        line.contentEnd = line.start + textSize;
        line.ascii = scan.ascii;
        setHead(line, data, textSize, false);
        line.marker = scan.angle && ContainsMarker(data, textSize);
    }

    // A line longer than the buffer: read on to its end, keeping only what
    // the decisions need.
    void describeLong(Line& line) {
        line.start = m_bufferPos;
        line.data = nullptr;
        line.marker = false;
        qint64 nulAt = -1;
        bool crBeforeNewline = false;
        bool sawNewline = false;
        char prevLast = 0;
        char carry[kLongestMarker * 2];
        int carryLen = 0;
        bool first = true;
        for (;;) {
            const char* seg = m_buffer.constData() + m_pos;
            const qint64 segSize = m_end - m_pos;
            const char* nl = static_cast<const char*>(memchr(seg, '\n', size_t(segSize)));
            const qint64 bodySize = nl ? nl - seg : segSize;
            if (nulAt < 0) {
                const char* nul = static_cast<const char*>(memchr(seg, '\0', size_t(bodySize)));
                const qint64 textSize = nul ? nul - seg : bodySize;
                if (first)
                    setHead(line, seg, textSize, true);
                if (!line.marker)
                    line.marker = markerAcross(carry, carryLen, seg, textSize);
                if (nul)
                    nulAt = m_bufferPos + m_pos + textSize;
            }
            first = false;
            if (nl) {
                crBeforeNewline = bodySize > 0 ? seg[bodySize - 1] == '\r' : prevLast == '\r';
                line.end = m_bufferPos + m_pos + bodySize + 1;
                m_pos += int(bodySize + 1);
                sawNewline = true;
                break;
            }
            if (segSize > 0)
                prevLast = seg[segSize - 1];
            m_pos = m_end;
            fill();
            if (m_eof && m_pos == m_end) {
                line.end = m_bufferPos + m_end;
                break;
            }
        }
        if (nulAt >= 0) {
            line.contentEnd = nulAt;
            line.newline = false;
        } else if (sawNewline) {
            line.contentEnd = line.end - 1 - (crBeforeNewline ? 1 : 0);
            line.newline = true;
        } else {
            line.contentEnd = line.end;
            line.newline = false;
        }
    }

    // Searches a marker in `data`, including one that began in the bytes kept
    // from earlier pieces; keeps the last bytes for the next piece.
    static bool markerAcross(char* carry, int& carryLen, const char* data, qint64 size) {
        bool found = false;
        if (carryLen > 0) {
            const int take = int(std::min<qint64>(size, kLongestMarker - 1));
            memcpy(carry + carryLen, data, size_t(take));
            found = ContainsMarker(carry, carryLen + take);
        }
        found = found || ContainsMarker(data, size);
        // Keep the last (longest marker - 1) bytes seen.
        const int keep = kLongestMarker - 1;
        if (size >= keep) {
            memcpy(carry, data + size - keep, size_t(keep));
            carryLen = keep;
        } else {
            const int total = carryLen + int(size);
            const int drop = std::max(0, total - keep);
            memmove(carry, carry + drop, size_t(carryLen - drop));
            memcpy(carry + carryLen - drop, data, size_t(size));
            carryLen = total - drop;
        }
        return found;
    }

    QIODevice& m_device;
    QByteArray m_buffer;
    int m_capacity;
    int m_pos = 0;
    int m_end = 0;
    qint64 m_bufferPos = 0; // file position of m_buffer[0]
    bool m_eof = false;
};

// The byte count on the first line: the decoded text, trimmed, as an
// unsigned decimal number; anything else gives 0.
quint64 ByteCount(LineReader& reader) {
    Line line;
    if (!reader.next(line))
        return 0;
    if (!line.data)
        return 0; // longer than a chunk: no number
    return QString::fromUtf8(line.data, int(line.contentEnd - line.start)).trimmed().toULongLong();
}

// Writes a message line's text as Latin-1, with ">" in front when asked.
void WriteText(LineReader& reader, const Line& line, bool escape, Sink& sink) {
    if (escape)
        sink.append('>');
    if (line.data) {
        const qint64 size = line.contentEnd - line.start;
        if (line.ascii) {
            sink.append(line.data, size);
            if (line.newline)
                sink.append('\n');
            return;
        }
        // Valid UTF-8 converted in place; the decoder drops a byte-order
        // mark at the start of the text.
        const int skip = line.bom ? 3 : 0;
        if (char* room = sink.reserve(size + 1)) {
            qint64 written = Utf8ToLatin1(line.data + skip, size - skip, room);
            if (written >= 0) {
                if (line.newline)
                    room[written++] = '\n';
                sink.commit(written);
                return;
            }
        }
        // Anything else goes through Qt's decoder, whole, with its "\n".
        QByteArray text(line.data, int(size));
        if (line.newline)
            text.append('\n');
        sink.append(QString::fromUtf8(text).toLatin1());
        return;
    }
    Latin1Transcoder transcoder(sink);
    reader.copyText(line, 0, [&](const char* d, qint64 n) { transcoder.add(d, n); });
    if (line.newline)
        transcoder.add("\n", 1);
    transcoder.finish();
}

// Copies a detached part file: every line's bytes up to its first NUL, with
// "\r\n" read as "\n".
bool CopyPartFile(const QString& path, Sink& sink, int chunk, QString* reason) {
    QFile part;
    if (!OpenForReading(part, path, reason))
        return false;
    LineReader reader(part, chunk);
    Line line;
    while (reader.next(line)) {
        if (!reader.copyText(line, 0, [&](const char* d, qint64 n) { sink.append(d, n); }))
            break;
        if (line.newline)
            sink.append('\n');
    }
    return true;
}

} // namespace

CopyResult WriteMessage(QIODevice& message, QIODevice& mbox, bool partial,
                        const QStringList& partFiles, int chunk) {
    Sink sink(mbox, std::max(chunk, kMinimumChunk));
    sink.append(Separator());
    LineReader reader(message, chunk);
    const quint64 count = ByteCount(reader);
    int partIndex = 0;
    Line line;
    for (;;) {
        if (reader.copyPlainRun(sink, partial))
            continue;
        if (!reader.next(line))
            break;
        const bool escape = line.startsWith("From ", 5);
        if (!escape && line.isEmpty())
            continue;
        if (line.marker) {
            // A trailer line; inside the message (before the byte count is
            // reached) it is dropped and the copy goes on.
            if (quint64(line.end) > count)
                break;
            continue;
        }
        if (partial && !escape && line.startsWith(kPartHeader, kPartHeaderLen)) {
            // Drop the rest of this part's header block, up to its blank line.
            bool blank = false;
            while (reader.next(line)) {
                if (line.isBlank()) {
                    blank = true;
                    break;
                }
            }
            if (partIndex < partFiles.size()) {
                sink.append('\n');
                QString reason;
                if (!CopyPartFile(partFiles.at(partIndex), sink, chunk, &reason))
                    return {false, partFiles.at(partIndex), reason};
                sink.append('\n');
            }
            ++partIndex;
            if (blank)
                sink.append('\n');
            continue;
        }
        WriteText(reader, line, escape, sink);
    }
    return {};
}

QStringList PartFilesFor(const QString& messagePath, const QStringList& allParts) {
    QString key = messagePath;
    key.remove(QStringLiteral("partial.emlx"), Qt::CaseSensitive);
    QStringList parts;
    for (const QString& p : allParts)
        if (p.contains(key, Qt::CaseSensitive))
            parts.append(p);
    return parts;
}

bool OpenForReading(QFile& file, const QString& path, QString* reason) {
    const int fd = pellomar::OpenRegularFile(path, reason);
    if (fd < 0)
        return false;
    if (!file.open(fd, QIODevice::ReadOnly | QIODevice::Unbuffered, QFileDevice::AutoCloseHandle)) {
        *reason = file.errorString();
        ::close(fd);
        return false;
    }
    return true;
}

bool OpenForAppend(QFile& file, const QString& path) {
    const int fd =
        ::open(path.toUtf8().constData(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0)
        return false;
    if (!file.open(fd, QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered,
                   QFileDevice::AutoCloseHandle)) {
        ::close(fd);
        return false;
    }
    return true;
}

} // namespace MboxWriter
