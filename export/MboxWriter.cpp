#include "export/MboxWriter.h"
#include "export/Latin1Text.h"
#include "export/MailStatus.h"
#include "export/PartEncoding.h"
#include "scanner/DetachedParts.h"
#include "scanner/EmlxLines.h"
#include "scanner/FileAccess.h"

#include <QBuffer>
#include <QIODevice>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include <fcntl.h>
#include <unistd.h>

namespace MboxWriter {
namespace {

const char kPartHeader[] = "X-Apple-Content-Length: ";
constexpr int kPartHeaderLen = sizeof(kPartHeader) - 1;
const char kBom[] = "\xEF\xBB\xBF";
constexpr int kHeadLen = 32; // longer than every prefix the copy looks at

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
    using emlx::Bytes16;
    // Bytes that stop the run (high bytes are the negative ones), and "\n"
    // followed by "F". A "<" matters only where a trailer mark could start
    // ("<?" or "<!"), so HTML markup does not break the run.
    auto bad = [](Bytes16 v, Bytes16 next) {
        return (v == 0) | (v == '\r') |
               ((v == '<') & ((next == emlx::kTrailerMark[1]) | (next == emlx::kDoctypeMark[1]))) |
               (v < 0);
    };
    auto lineF = [](Bytes16 v, Bytes16 next) { return (v == '\n') & (next == 'F'); };
    auto flags = [&](qint64 at) {
        const Bytes16 v = emlx::Load16(data + at);
        const Bytes16 next = emlx::Load16(data + at + 1);
        return bad(v, next) | lineF(v, next);
    };
    // Sixteen bytes at `at`: false when a byte stops the run there (the
    // byte-wise loop then finds which); otherwise its "From " lines are
    // reported.
    auto block = [&](qint64 at) {
        const Bytes16 v = emlx::Load16(data + at);
        const Bytes16 next = emlx::Load16(data + at + 1);
        if (emlx::Any(bad(v, next)))
            return false;
        if (emlx::Any(lineF(v, next)))
            for (qint64 k = at; k < at + 16; ++k)
                if (data[k] == '\n')
                    check(k + 1);
        return true;
    };
    qint64 i = 0;
    // Most text has nothing to look at in 64 bytes: one test for all four
    // blocks.
    for (bool going = true; going && i + 65 <= size;) {
        if (!emlx::Any(flags(i) | flags(i + 16) | flags(i + 32) | flags(i + 48))) {
            i += 64;
            continue;
        }
        for (const qint64 end = i + 64; going && i < end; i += 16)
            going = block(i);
        if (!going)
            i -= 16;
    }
    for (; i + 17 <= size && block(i); i += 16) {
    }
    for (; i < size; ++i) {
        const auto c = static_cast<unsigned char>(data[i]);
        if (IsSpecial(c))
            break;
        if (c == '\n')
            check(i + 1);
    }
    return i;
}

const char* FindBytes(const char* data, qint64 size, const char* needle, int len) {
    return static_cast<const char*>(memmem(data, size_t(size), needle, size_t(len)));
}

// Buffered output. A failed write (a full disk) is left in the device's
// error state for the caller to see once the message is done.
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
                put(data, size);
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
            put(m_buffer.constData(), m_used);
        m_used = 0;
    }

private:
    // A short write is followed by another for the rest, which then fails
    // and sets the device's error (a short one alone does not).
    void put(const char* data, qint64 size) {
        for (qint64 n; size > 0; data += n, size -= n)
            if ((n = m_device.write(data, size)) <= 0)
                return;
    }

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
    // A byte of 0x80 or more went through the conversion.
    bool changed() const { return m_changed; }

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
                m_changed = true;
                data += 3;
                size -= 3;
            }
        }
        m_atStart = false;
        if (emlx::IsAscii(data, size)) {
            m_sink.append(data, size);
        } else {
            m_sink.append(QString::fromUtf8(data, int(size)).toLatin1());
            m_changed = true;
        }
    }

    Sink& m_sink;
    QByteArray m_pending;
    bool m_atStart = true;
    bool m_changed = false;
};

// The bytes from the read position on, when the device is a read-only
// buffer over memory: the readers then work on them in place instead of
// copying them into a buffer of their own.
QByteArray InMemory(QIODevice& device, qint64 end = -1) {
    auto* buffer = qobject_cast<QBuffer*>(&device);
    if (!buffer || !buffer->isOpen() || buffer->isWritable())
        return QByteArray();
    const QByteArray& data = buffer->data();
    const qint64 from = std::min<qint64>(buffer->pos(), data.size());
    const qint64 to = end >= 0 ? std::clamp<qint64>(end, from, data.size()) : data.size();
    return QByteArray::fromRawData(data.constData() + from, int(to - from));
}

// What the copy needs to know about one line.
struct Line {
    qint64 start = 0;           // file position of its first byte
    qint64 end = 0;             // file position after it
    qint64 contentEnd = 0;      // end of its text: the first NUL, or the line end
                                // without "\n" (and without a "\r" right before it)
    bool newline = false;       // the text ends with "\n" (no NUL came before it)
    qint64 bytesEnd = 0;        // end of its bytes: the line end without "\n" and a
                                // "\r" right before it
    bool lf = false;            // the line ends with "\n"
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
        m_bufferPos = device.pos();
        m_buffer = InMemory(device);
        if (!m_buffer.isNull()) {
            // The whole message is there already: nothing is ever read.
            m_end = m_capacity = m_buffer.size();
            m_eof = true;
            return;
        }
        m_buffer.resize(m_capacity);
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
            const qint64 h = nextPartHeader(m_bufferPos + m_pos);
            if (h >= 0 && h < m_bufferPos + m_end)
                avail = h + 1 - (m_bufferPos + m_pos);
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
        const char* lastNewline = emlx::LastNewline(base, plain);
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
    // taking a data pointer and a size).
    template <class Out> bool copyText(const Line& line, qint64 skip, Out&& out) {
        return copyRange(line, line.start + skip, line.contentEnd, out);
    }

    // Copies the file positions [from, to) of the line to `out`. Lines that
    // did not fit in the buffer are read again from the file.
    template <class Out> bool copyRange(const Line& line, qint64 from, qint64 to, Out&& out) {
        const qint64 size = to - from;
        if (line.data) {
            out(line.data + (from - line.start), size);
            return true;
        }
        if (!m_device.seek(from))
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
    // The file position of the first "\n" at or after `from` that a
    // detached-part header follows, or -1 when the buffer holds none. The
    // reader only moves forward, so each byte is searched once, however
    // often a run of plain lines stops before the buffer's end.
    qint64 nextPartHeader(qint64 from) {
        if (m_headerAt >= from)
            return m_headerAt;
        const qint64 start = std::max(from, m_searchedTo);
        const qint64 end = m_bufferPos + m_end;
        const char* first = m_buffer.constData() + (start - m_bufferPos);
        const char* h = end > start ? FindBytes(first, end - start,
                                                "\nX-Apple-Content-Length: ", kPartHeaderLen + 1)
                                    : nullptr;
        if (h) {
            m_headerAt = start + (h - first);
            m_searchedTo = m_headerAt + 1;
            return m_headerAt;
        }
        // A header may begin in the last bytes and end after them.
        m_searchedTo = std::max(start, end - kPartHeaderLen);
        return -1;
    }

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
        const emlx::LineText text = emlx::TextOf(data, size);
        line.contentEnd = line.start + text.size;
        line.newline = text.newline;
        line.ascii = emlx::IsAscii(data, text.size);
        line.lf = size > 0 && data[size - 1] == '\n';
        line.bytesEnd = line.end - (line.lf ? (size >= 2 && data[size - 2] == '\r' ? 2 : 1) : 0);
        setHead(line, data, text.size, false);
        line.marker = emlx::HasMark(data, text.size);
    }

    // A line longer than the buffer: read on to its end, keeping only what
    // the decisions need.
    void describeLong(Line& line) {
        line.start = m_bufferPos + m_pos;
        line.data = nullptr;
        line.marker = false;
        qint64 nul = -1; // offset of the first NUL byte in the line
        char beforeLast = 0, last = 0;
        char carry[emlx::kLongestMark * 2];
        int carryLen = 0;
        for (bool first = true;; first = false) {
            const char* seg = m_buffer.constData() + m_pos;
            const qint64 segSize = m_end - m_pos;
            const char* nl = static_cast<const char*>(memchr(seg, '\n', size_t(segSize)));
            const qint64 bodySize = nl ? nl - seg : segSize;
            if (nul < 0) {
                const char* z = static_cast<const char*>(memchr(seg, '\0', size_t(bodySize)));
                const qint64 textSize = z ? z - seg : bodySize;
                if (first)
                    setHead(line, seg, textSize, true);
                if (!line.marker)
                    line.marker = markerAcross(carry, carryLen, seg, textSize);
                if (z)
                    nul = m_bufferPos + m_pos + textSize - line.start;
            }
            const qint64 taken = nl ? bodySize + 1 : segSize;
            if (taken > 0) {
                beforeLast = taken > 1 ? seg[taken - 2] : last;
                last = seg[taken - 1];
            }
            m_pos += int(taken);
            if (nl)
                break;
            fill();
            if (m_eof && m_pos == m_end)
                break;
        }
        line.end = m_bufferPos + m_pos;
        const emlx::LineText text = emlx::TextOf(line.end - line.start, nul, beforeLast, last);
        line.contentEnd = line.start + text.size;
        line.newline = text.newline;
        line.lf = last == '\n';
        line.bytesEnd = line.end - (line.lf ? (beforeLast == '\r' ? 2 : 1) : 0);
    }

    // Searches a marker in `data`, including one that began in the bytes kept
    // from earlier pieces; keeps the last bytes for the next piece.
    static bool markerAcross(char* carry, int& carryLen, const char* data, qint64 size) {
        bool found = false;
        if (carryLen > 0) {
            const int take = int(std::min<qint64>(size, emlx::kLongestMark - 1));
            memcpy(carry + carryLen, data, size_t(take));
            found = emlx::HasMark(carry, carryLen + take);
        }
        found = found || emlx::HasMark(data, size);
        // Keep the last (longest mark - 1) bytes seen.
        const int keep = emlx::kLongestMark - 1;
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
    // nextPartHeader's findings: the header found last (-1: none yet), and
    // where the search goes on.
    qint64 m_headerAt = -1;
    qint64 m_searchedTo = 0;
};

// The byte count on the first line (a line longer than the buffer is read
// again for it); `countEnd` is set to the position after that line.
quint64 ByteCount(LineReader& reader, qint64* countEnd) {
    Line line;
    *countEnd = 0;
    if (!reader.next(line))
        return 0;
    *countEnd = line.end;
    emlx::CountReader count;
    reader.copyText(line, 0, [&](const char* d, qint64 n) { count.Add(d, n); });
    return count.Value();
}

// Writes a message line's text as Latin-1, with ">" in front when asked.
// Returns whether the text had a byte of 0x80 or more (the conversion then
// changed it).
bool WriteText(LineReader& reader, const Line& line, bool escape, Sink& sink) {
    if (escape)
        sink.append('>');
    if (line.data) {
        const qint64 size = line.contentEnd - line.start;
        if (line.ascii) {
            sink.append(line.data, size);
            if (line.newline)
                sink.append('\n');
            return false;
        }
        // Valid UTF-8 converted in place; the decoder drops a byte-order
        // mark at the start of the text.
        const int skip = line.bom ? 3 : 0;
        if (char* room = sink.reserve(size + 1)) {
            qint64 written = emlx::Utf8ToLatin1(line.data + skip, size - skip, room);
            if (written >= 0) {
                if (line.newline)
                    room[written++] = '\n';
                sink.commit(written);
                return true;
            }
        }
        // Anything else goes through Qt's decoder, whole, with its "\n".
        QByteArray text(line.data, int(size));
        if (line.newline)
            text.append('\n');
        sink.append(QString::fromUtf8(text).toLatin1());
        return true;
    }
    Latin1Transcoder transcoder(sink);
    reader.copyText(line, 0, [&](const char* d, qint64 n) { transcoder.add(d, n); });
    if (line.newline)
        transcoder.add("\n", 1);
    transcoder.finish();
    return transcoder.changed();
}

// Copies a detached part file: every line's bytes up to its first NUL, with
// "\r\n" read as "\n" and "From " lines escaped.
bool CopyPartFile(const QString& path, Sink& sink, int chunk, QString* reason) {
    QFile part;
    if (!OpenForReading(part, path, reason))
        return false;
    LineReader reader(part, chunk);
    Line line;
    while (reader.next(line)) {
        // A text part's "From " lines would end the message in the mbox.
        if (line.startsWith("From ", 5))
            sink.append('>');
        if (!reader.copyText(line, 0, [&](const char* d, qint64 n) { sink.append(d, n); }))
            break;
        if (line.newline)
            sink.append('\n');
    }
    return true;
}

CopyResult Failed(CopyResult& result, const QString& part, const QString& reason) {
    result.complete = false;
    result.failedPart = part;
    result.reason = reason;
    return result;
}

// Writes the rest of a removed part's header block, after its
// "X-Apple-Content-Length: " line, up to its blank line (read, not written).
// Returns whether a copied line was changed by the Latin-1 conversion.
bool WriteRestOfPartHeader(LineReader& reader, Sink& sink) {
    bool converted = false;
    Line line;
    while (reader.next(line) && !line.isBlank()) {
        if (line.startsWith(kPartHeader, kPartHeaderLen))
            continue;
        if (WriteText(reader, line, line.startsWith("From ", 5), sink))
            converted = true;
    }
    return converted;
}

// Reads a device in pieces for the copy that keeps every byte: lines are
// looked at by their first bytes and passed on as they are, in pieces, so a
// line of any length takes no more memory than the buffer.
class RawReader {
public:
    RawReader(QIODevice& device, int chunk, qint64 end)
        : m_device(device), m_capacity(std::max(chunk, kMinimumChunk)), m_end(end) {
        m_filePos = device.pos();
        m_buffer = InMemory(device, end);
        if (!m_buffer.isNull()) {
            // The whole range is there already: nothing is ever read.
            m_tail = m_capacity = m_buffer.size();
            m_exhausted = true;
            return;
        }
        m_buffer.resize(m_capacity);
    }
    // File position of the next byte.
    qint64 Pos() const { return m_filePos + m_head; }
    bool AtEnd() { return !Fill(1); }
    // The first bytes of the line at the read position: up to `n` of them,
    // fewer where the line or the range ends sooner.
    QByteArray Head(int n) {
        Fill(n);
        const char* p = m_buffer.constData() + m_head;
        const int have = std::min(n, m_tail - m_head);
        const char* nl = static_cast<const char*>(memchr(p, '\n', size_t(have)));
        return QByteArray(p, nl ? int(nl - p) + 1 : have);
    }
    // The length of the line at the read position when the buffer holds it
    // whole, else -1.
    qint64 WholeLineLength() {
        Fill(m_capacity);
        const char* p = m_buffer.constData() + m_head;
        const char* nl = static_cast<const char*>(memchr(p, '\n', size_t(m_tail - m_head)));
        if (nl)
            return nl - p + 1;
        return m_exhausted ? m_tail - m_head : -1;
    }
    // Passes the line at the read position, through its "\n" or the end of
    // the range, to `out` (a functor taking a pointer and a size).
    template <class Out> void Take(Out&& out) {
        while (Fill(1)) {
            const char* p = m_buffer.constData() + m_head;
            const char* nl = static_cast<const char*>(memchr(p, '\n', size_t(m_tail - m_head)));
            const int n = nl ? int(nl - p) + 1 : m_tail - m_head;
            out(p, n);
            m_head += n;
            if (nl)
                return;
        }
    }

    // Passes whole lines at the read position to `out` up to the first line
    // that starts with "From " or, when `partial`, with a detached-part
    // header (or up to the buffer's last whole line); returns how many
    // bytes went, 0 when the line at the read position is such a line or
    // the buffer holds no whole line. Each byte is searched once or twice
    // whatever the lines hold.
    template <class Out> qint64 TakePlainRun(Out&& out, bool partial) {
        if (m_tail - m_head < 4096)
            Fill(m_capacity);
        const char* p = m_buffer.constData() + m_head;
        const qint64 have = m_tail - m_head;
        auto startsLine = [&](const char* text, int len) {
            return have >= len && memcmp(p, text, size_t(len)) == 0;
        };
        if (have == 0 || startsLine("From ", 5) ||
            (partial && startsLine(kPartHeader, kPartHeaderLen)))
            return 0;
        qint64 stop = have;
        if (const char* f = FindBytes(p, stop, "\nFrom ", 6))
            stop = f + 1 - p;
        if (partial)
            if (const char* h =
                    FindBytes(p, stop, "\nX-Apple-Content-Length: ", kPartHeaderLen + 1))
                stop = h + 1 - p;
        if (stop == have) {
            // Up to the last whole line; a needle may begin on the next.
            const char* last = emlx::LastNewline(p, have);
            if (!last)
                return 0;
            stop = last + 1 - p;
        }
        out(p, stop);
        m_head += int(stop);
        return stop;
    }

private:
    // At least `want` bytes ahead, or all there are; false when none is.
    bool Fill(int want) {
        while (m_tail - m_head < want && !m_exhausted) {
            if (m_head > 0) {
                memmove(m_buffer.data(), m_buffer.constData() + m_head, size_t(m_tail - m_head));
                m_filePos += m_head;
                m_tail -= m_head;
                m_head = 0;
            }
            qint64 room = m_capacity - m_tail;
            if (m_end >= 0)
                room = std::min(room, m_end - (m_filePos + m_tail));
            const qint64 got = room > 0 ? m_device.read(m_buffer.data() + m_tail, room) : 0;
            if (got <= 0)
                m_exhausted = true;
            else
                m_tail += int(got);
        }
        return m_tail > m_head;
    }

    QIODevice& m_device;
    QByteArray m_buffer;
    int m_capacity;
    qint64 m_end; // -1: the end of the device
    qint64 m_filePos = 0;
    int m_head = 0, m_tail = 0;
    bool m_exhausted = false;
};

// Start of the first line at or after `from` that holds a trailer mark, or
// the end of the device.
qint64 FirstMarkLine(QIODevice& device, qint64 from, int chunk) {
    if (!device.seek(from))
        return from;
    RawReader reader(device, chunk, -1);
    while (!reader.AtEnd()) {
        const qint64 start = reader.Pos();
        char carry[emlx::kLongestMark * 2];
        int carryLen = 0;
        bool found = false;
        reader.Take([&](const char* d, qint64 n) {
            if (found)
                return;
            // A mark across two pieces: the last bytes of one before the next.
            const int take = int(std::min<qint64>(n, emlx::kLongestMark - 1));
            memcpy(carry + carryLen, d, size_t(take));
            found = emlx::HasMark(carry, carryLen + take) || emlx::HasMark(d, n);
            carryLen = int(std::min<qint64>(n, emlx::kLongestMark - 1));
            memcpy(carry, d + n - carryLen, size_t(carryLen));
        });
        if (found)
            return start;
    }
    return device.size();
}

bool StartsWith(const QByteArray& head, const char* text) {
    return head.startsWith(text);
}

bool IsBlankLine(const QByteArray& head) {
    return head == "\n" || head == "\r\n";
}

// Every byte of the message: exactly its byte count of them after the first
// line (when the count is missing, up to the trailer), with "From " lines
// escaped and a final line feed; detached bodies put back.
CopyResult WriteMessageBytes(QIODevice& message, QIODevice& mbox, bool partial,
                             const QStringList& partFiles, const RunOptions& options, int chunk,
                             RemovedParts* removed) {
    CopyResult result;
    Sink sink(mbox, std::max(chunk, kMinimumChunk));
    sink.append(Separator());
    const qint64 begin = message.pos();
    const qint64 size = message.size();
    emlx::CountReader counted;
    qint64 countEnd = begin;
    {
        RawReader first(message, chunk, -1);
        bool nul = false;
        first.Take([&](const char* d, qint64 n) {
            const char* z = nul ? d : static_cast<const char*>(memchr(d, 0, size_t(n)));
            if (!nul)
                counted.Add(d, z ? z - d : n);
            nul = nul || z;
        });
        countEnd = first.Pos();
    }
    const quint64 count = counted.Value();
    const qint64 end = count == 0 ? FirstMarkLine(message, countEnd, chunk)
                                  : countEnd + qint64(std::min<quint64>(count, quint64(size)));
    QByteArray status;
    if (options.withStatus && count > 0)
        if (const std::optional<quint64> flags = MailStatus::ReadFlags(message, end))
            status = MailStatus::HeaderLines(*flags);
    if (!message.seek(countEnd))
        return result;
    RawReader reader(message, chunk, std::min(end, size));

    bool inHeader = !status.isEmpty(); // the message's own header block, with status lines to put
    bool droppingStatus = false;
    char last = '\n'; // the last byte written
    auto write = [&](const char* d, qint64 n) {
        if (n > 0) {
            sink.append(d, n);
            last = d[n - 1];
        }
    };
    auto endHeader = [&] {
        if (last != '\n')
            write("\n", 1);
        write(status.constData(), status.size());
        inHeader = false;
    };
    // A detached body waiting for the end of its part's header block.
    QString pendingFile;
    const DetachedPart* pendingDecoded = nullptr;
    bool dropBlank = false; // the blank lines of a restored part's empty body
    int partIndex = 0;
    auto writeBody = [&]() -> bool {
        QFile body;
        QString why;
        const QString path = pendingDecoded ? pendingDecoded->file : pendingFile;
        bool read = OpenForReading(body, path, &why);
        if (read && pendingDecoded) {
            read = PartEncoding::Encode(body, pendingDecoded->encoding, write, chunk);
        } else if (read) {
            // The .emlxpart file as it is, its "From " lines escaped.
            RawReader in(body, chunk, -1);
            while (!in.AtEnd()) {
                if (StartsWith(in.Head(5), "From "))
                    write(">", 1);
                in.Take(write);
            }
            read = body.error() == QFileDevice::NoError;
        }
        if (!read && why.isEmpty())
            why = body.errorString();
        write("\n", 1);
        if (read)
            ++(pendingDecoded ? result.partsFromAttachments : result.partsFromEmlxpart);
        else if (options.keepGoing)
            result.skippedParts.append({path, why});
        else
            Failed(result, path, why);
        pendingFile.clear();
        pendingDecoded = nullptr;
        dropBlank = true;
        return read || options.keepGoing;
    };

    while (!reader.AtEnd()) {
        // Lines that need no look of their own (outside a header block that
        // takes status lines, no detached body waiting) go many at a time.
        if (!inHeader && !dropBlank && pendingFile.isEmpty() && !pendingDecoded &&
            reader.TakePlainRun(write, partial) > 0)
            continue;
        const QByteArray head = reader.Head(kHeadLen);
        const bool blank = IsBlankLine(head);
        if (dropBlank && blank) {
            reader.Take([](const char*, qint64) {});
            continue;
        }
        dropBlank = false;
        if (inHeader) {
            if (blank) {
                endHeader();
            } else {
                if (head[0] != ' ' && head[0] != '\t')
                    droppingStatus = MailStatus::IsStatusHeader(head.constData(), head.size());
                if (droppingStatus) {
                    reader.Take([](const char*, qint64) {});
                    continue;
                }
            }
        }
        if (partial && StartsWith(head, kPartHeader)) {
            const int k = partIndex++;
            const QString emlxpart = k < partFiles.size() ? partFiles.at(k) : QString();
            const qint64 length = reader.WholeLineLength();
            const DetachedPart* part =
                removed && length > 0 ? removed->At(reader.Pos() + length) : nullptr;
            // Only an empty body is put back; a part Mail kept whole stays.
            const bool empty = !removed || part;
            if (empty && !emlxpart.isEmpty()) {
                pendingFile = emlxpart;
            } else if (part && !part->file.isEmpty()) {
                pendingDecoded = part;
            } else {
                if (part)
                    result.missingParts
                        << (part->name.isEmpty() ? QStringLiteral("part ") + part->section
                                                 : part->name);
                reader.Take(write);
                continue;
            }
            reader.Take([](const char*, qint64) {}); // the length line goes
            continue;
        }
        if (StartsWith(head, "From "))
            write(">", 1);
        reader.Take(write);
        if (blank && (!pendingFile.isEmpty() || pendingDecoded) && !writeBody())
            return result;
    }
    if (!pendingFile.isEmpty() || pendingDecoded) {
        write("\n", 1);
        if (!writeBody())
            return result;
    }
    if (inHeader)
        endHeader();
    if (last != '\n')
        write("\n", 1);
    return result;
}

} // namespace

CopyResult WriteMessage(QIODevice& message, QIODevice& mbox, bool partial,
                        const QStringList& partFiles, const RunOptions& options, int chunk,
                        RemovedParts* removed) {
    if (options.keepBytes)
        return WriteMessageBytes(message, mbox, partial, partFiles, options, chunk, removed);
    CopyResult result;
    Sink sink(mbox, std::max(chunk, kMinimumChunk));
    sink.append(Separator());
    LineReader reader(message, chunk);
    qint64 countEnd = 0;
    const quint64 count = ByteCount(reader, &countEnd);
    // The status lines wait for the end of the header block; until then the
    // header is copied line by line so that old Status lines can be dropped.
    QByteArray status;
    if (options.withStatus && count <= quint64(std::numeric_limits<qint64>::max() - countEnd))
        if (const std::optional<quint64> flags =
                MailStatus::ReadFlags(message, countEnd + qint64(count)))
            status = MailStatus::HeaderLines(*flags);
    bool inHeader = !status.isEmpty();
    bool droppingStatus = false; // within a Status line and its continuation lines
    bool lastNewline = true;     // the last header line written ended with "\n"
    auto endHeader = [&] {
        if (!inHeader)
            return;
        if (!lastNewline)
            sink.append('\n');
        sink.append(status);
        inHeader = false;
    };
    int partIndex = 0;
    bool dropBlank = false; // the blank lines of a restored part's empty body
    Line line;
    for (;;) {
        if (!inHeader && !dropBlank && reader.copyPlainRun(sink, partial))
            continue;
        if (!reader.next(line))
            break;
        if (dropBlank && line.isBlank())
            continue;
        dropBlank = false;
        const bool escape = line.startsWith("From ", 5);
        // A line whose text is cut at a NUL byte loses the rest; one that
        // starts with it is left out whole.
        if (line.contentEnd < line.bytesEnd)
            ++result.cutLines;
        if (!escape && line.isEmpty())
            continue;
        if (line.marker) {
            // A trailer line; inside the message (before the byte count is
            // reached) it is dropped and the copy goes on. The message's last
            // line goes with the trailer when the trailer begins on it.
            if (quint64(line.end) > count) {
                if (line.start < countEnd + qint64(std::min<quint64>(count, INT64_MAX / 2)))
                    ++result.droppedLines;
                break;
            }
            ++result.droppedLines;
            continue;
        }
        if (inHeader) {
            if (line.isBlank()) {
                endHeader();
            } else {
                const bool continuation =
                    line.headLen > 0 && (line.head[0] == ' ' || line.head[0] == '\t');
                if (!continuation)
                    droppingStatus = !escape && MailStatus::IsStatusHeader(line.head, line.headLen);
                if (droppingStatus)
                    continue;
                lastNewline = line.newline;
            }
        }
        if (partial && !escape && line.startsWith(kPartHeader, kPartHeaderLen)) {
            // A removed part without an .emlxpart file comes back whole from
            // Mail's decoded file.
            const QString emlxpart = partIndex < partFiles.size() ? partFiles.at(partIndex) : "";
            const DetachedPart* part =
                removed && emlxpart.isEmpty() ? removed->At(line.end) : nullptr;
            QFile decoded;
            QString why;
            if (part && !part->file.isEmpty() && !OpenForReading(decoded, part->file, &why)) {
                if (!options.keepGoing)
                    return Failed(result, part->file, why);
                result.skippedParts.append({part->file, why});
            }
            if (decoded.isOpen()) {
                ++partIndex;
                if (WriteRestOfPartHeader(reader, sink))
                    result.converted = true;
                lastNewline = true;
                endHeader();
                sink.append('\n');
                const bool read = PartEncoding::Encode(
                    decoded, part->encoding, [&](const char* d, qint64 n) { sink.append(d, n); },
                    chunk);
                sink.append('\n');
                if (read)
                    ++result.partsFromAttachments;
                else if (options.keepGoing)
                    result.skippedParts.append({part->file, decoded.errorString()});
                else
                    return Failed(result, part->file, decoded.errorString());
                dropBlank = true;
                continue;
            }
            if (part && part->file.isEmpty())
                result.missingParts
                    << (part->name.isEmpty() ? QStringLiteral("part ") + part->section
                                             : part->name);
            // Drop the rest of this part's header block, up to its blank line.
            bool blank = false;
            while (reader.next(line)) {
                if (line.isBlank()) {
                    blank = true;
                    break;
                }
            }
            lastNewline = true;
            endHeader();
            if (!emlxpart.isEmpty()) {
                sink.append('\n');
                QString reason;
                const QString& part = emlxpart;
                if (CopyPartFile(part, sink, chunk, &reason)) {
                    ++result.partsFromEmlxpart;
                } else if (options.keepGoing) {
                    result.skippedParts.append({part, reason});
                } else {
                    return Failed(result, part, reason);
                }
                sink.append('\n');
            }
            ++partIndex;
            if (blank)
                sink.append('\n');
            continue;
        }
        if (WriteText(reader, line, escape, sink))
            result.converted = true;
    }
    endHeader();
    return result;
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

bool OpenForAppend(QFile& file, const QString& path, QString* reason) {
    const int fd = ::open(QFile::encodeName(path).constData(),
                          O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0) {
        *reason = QString::fromLocal8Bit(strerror(errno));
        return false;
    }
    if (!file.open(fd, QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered,
                   QFileDevice::AutoCloseHandle)) {
        *reason = file.errorString();
        ::close(fd);
        return false;
    }
    return true;
}

} // namespace MboxWriter
