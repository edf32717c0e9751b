#include "export/MessageDigest.h"
#include "export/Latin1Text.h"
#include "scanner/EmlxLines.h"
#include "scanner/FileAccess.h"

#include <QFile>
#include <QSet>

#include <QString>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <unistd.h>

#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#define PELLOMAR_AVX2 1
#endif

namespace verify {

// ---- StreamHash -------------------------------------------------------------

namespace {

constexpr quint64 kP1 = 11400714785074694791ULL;
constexpr quint64 kP2 = 14029467366897019727ULL;
constexpr quint64 kP3 = 1609587929392839161ULL;
constexpr quint64 kP4 = 9650029242287828579ULL;
constexpr quint64 kP5 = 2870177450012600261ULL;

inline quint64 Rotl(quint64 x, int r) {
    return (x << r) | (x >> (64 - r));
}
inline quint64 Round(quint64 acc, quint64 input) {
    return Rotl(acc + input * kP2, 31) * kP1;
}
inline quint64 Merge(quint64 acc, quint64 lane) {
    return (acc ^ Round(0, lane)) * kP1 + kP4;
}
inline quint64 Read64(const unsigned char* p) {
    quint64 v;
    memcpy(&v, p, 8);
    return v;
}
inline quint32 Read32(const unsigned char* p) {
    quint32 v;
    memcpy(&v, p, 4);
    return v;
}

} // namespace

void StreamHash::Reset() {
    m_lanes[0] = kP1 + kP2;
    m_lanes[1] = kP2;
    m_lanes[2] = 0;
    m_lanes[3] = 0 - kP1;
    m_pendingSize = 0;
    m_total = 0;
}

void StreamHash::Add(const char* data, qint64 size) {
    if (size <= 0)
        return;
    auto p = reinterpret_cast<const unsigned char*>(data);
    m_total += quint64(size);
    if (m_pendingSize + size < 32) {
        memcpy(m_pending + m_pendingSize, p, size_t(size));
        m_pendingSize += int(size);
        return;
    }
    // The lanes stay in registers: the input may alias any memory.
    quint64 l0 = m_lanes[0], l1 = m_lanes[1], l2 = m_lanes[2], l3 = m_lanes[3];
    auto stripe = [&](const unsigned char* s) {
        l0 = Round(l0, Read64(s));
        l1 = Round(l1, Read64(s + 8));
        l2 = Round(l2, Read64(s + 16));
        l3 = Round(l3, Read64(s + 24));
    };
    if (m_pendingSize > 0) {
        const int take = 32 - m_pendingSize;
        memcpy(m_pending + m_pendingSize, p, size_t(take));
        p += take;
        size -= take;
        stripe(m_pending);
    }
    for (; size >= 32; p += 32, size -= 32)
        stripe(p);
    memcpy(m_pending, p, size_t(size));
    m_pendingSize = int(size);
    m_lanes[0] = l0;
    m_lanes[1] = l1;
    m_lanes[2] = l2;
    m_lanes[3] = l3;
}

quint64 StreamHash::Value() const {
    quint64 h;
    if (m_total >= 32) {
        h = Rotl(m_lanes[0], 1) + Rotl(m_lanes[1], 7) + Rotl(m_lanes[2], 12) + Rotl(m_lanes[3], 18);
        for (quint64 lane : m_lanes)
            h = Merge(h, lane);
    } else {
        h = m_lanes[2] + kP5;
    }
    h += m_total;
    const unsigned char* p = m_pending;
    int n = m_pendingSize;
    for (; n >= 8; p += 8, n -= 8)
        h = Rotl(h ^ Round(0, Read64(p)), 27) * kP1 + kP4;
    if (n >= 4) {
        h = Rotl(h ^ (quint64(Read32(p)) * kP1), 23) * kP2 + kP3;
        p += 4;
        n -= 4;
    }
    for (; n > 0; ++p, --n)
        h = Rotl(h ^ (*p * kP5), 11) * kP1;
    h ^= h >> 33;
    h *= kP2;
    h ^= h >> 29;
    h *= kP3;
    h ^= h >> 32;
    return h;
}

// ---- Reading the parts --------------------------------------------------------

namespace {

// A header line is kept up to this size for reading its fields.
constexpr int kHeaderCap = 64 * 1024;
// Body lines up to this size are held whole to work out the copy's change.
constexpr qint64 kLineCap = 8 * 1024 * 1024;
// Nesting deeper than this is read as one leaf.
constexpr int kMaxDepth = 32;

bool StartsWithNoCase(const char* p, qint64 n, const char* prefix) {
    const int len = int(strlen(prefix));
    return n >= len && qstrnicmp(p, prefix, uint(len)) == 0;
}

// The value of parameter `name` ("boundary", "name", "filename") of an
// unfolded header value, quotes taken off; null when it is not there.
QByteArray Parameter(const QByteArray& value, const char* name) {
    const QByteArray key = QByteArray(name) + '=';
    int at = 0;
    for (;;) {
        at = value.indexOf(';', at);
        if (at < 0)
            return QByteArray();
        int p = at + 1;
        while (p < value.size() && (value[p] == ' ' || value[p] == '\t'))
            ++p;
        at = p;
        if (!StartsWithNoCase(value.constData() + p, value.size() - p, key.constData()))
            continue;
        p += key.size();
        if (p < value.size() && value[p] == '"') {
            const int close = value.indexOf('"', p + 1);
            return value.mid(p + 1, close < 0 ? -1 : close - p - 1);
        }
        int end = p;
        while (end < value.size() && value[end] != ';' && value[end] != ' ' && value[end] != '\t' &&
               value[end] != '\r' && value[end] != '\n')
            ++end;
        return value.mid(p, end - p);
    }
}

// A line as it is compared: its text bytes and whether a line break ends
// it, with "\r\n" read as "\n" and ">From " as "From " (the mbox escaping).
struct LineView {
    const char* p;
    qint64 n;
    bool nl;
    static LineView Of(const char* p, qint64 n) {
        LineView v{p, n, false};
        if (v.n > 0 && v.p[v.n - 1] == '\n') {
            v.nl = true;
            --v.n;
            if (v.n > 0 && v.p[v.n - 1] == '\r')
                --v.n;
        }
        if (v.n >= 6 && memcmp(v.p, ">From ", 6) == 0) {
            ++v.p;
            --v.n;
        }
        return v;
    }
    bool IsBlank() const { return n == 0 && nl; }
};

// A line of the whole lines p[0, n) begins with a UTF-8 byte-order mark.
bool LineStartsWithBom(const char* p, qint64 n) {
    const char bom[] = "\xEF\xBB\xBF";
    for (qint64 at = 0; at + 3 <= n;) {
        const char* c = static_cast<const char*>(memchr(p + at, bom[0], size_t(n - at)));
        if (!c)
            return false;
        if (c + 3 <= p + n && memcmp(c, bom, 3) == 0 && (c == p || c[-1] == '\n'))
            return true;
        at = c - p + 1;
    }
    return false;
}

bool HasNul(const char* p, qint64 n) {
    return n > 0 && memchr(p, 0, size_t(n));
}

// What the default export's line copy makes of a line: the text up to a
// NUL byte (then without its line break), 8-bit text through Latin-1 as Qt
// decodes UTF-8 (a byte-order mark at the start dropped), nothing for a line
// with a trailer mark or without any text. Returns false when the line goes;
// else `out` is the copy, in the line itself or in `buffer`.
bool CopiedLine(const LineView& line, QByteArray& buffer, LineView* out) {
    qint64 n = line.n;
    bool nl = line.nl;
    if (const void* z = n > 0 ? memchr(line.p, 0, size_t(n)) : nullptr) {
        n = static_cast<const char*>(z) - line.p;
        nl = false;
    }
    if (emlx::HasMark(line.p, n) || (n == 0 && !nl))
        return false;
    const char* p = line.p;
    if (emlx::IsAscii(p, n)) {
        *out = {p, n, nl};
        return true;
    }
    if (n >= 3 && memcmp(p, "\xEF\xBB\xBF", 3) == 0)
        p += 3, n -= 3;
    buffer.resize(int(n));
    const qint64 got = emlx::Utf8ToLatin1(p, n, buffer.data());
    if (got >= 0)
        buffer.resize(int(got));
    else
        buffer = QString::fromUtf8(p, int(n)).toLatin1();
    *out = {buffer.constData(), buffer.size(), nl};
    return true;
}

// Decodes a leaf's body as it streams in, into a digest of its bytes that
// leaves out the line breaks at its end.
class BodyDecoder {
public:
    void Start(const QByteArray& encoding) {
        m_kind = encoding == "base64" ? Base64 : encoding == "quoted-printable" ? Quoted : Plain;
        m_hash.Reset();
        m_quad = 0;
        m_quadSize = 0;
        m_trail.clear();
        m_qp = QpText;
        m_qpHex = 0;
    }
    // Bytes of the body, line breaks as "\n".
    void Add(const char* data, qint64 size) {
        switch (m_kind) {
        case Plain:
            Out(data, size);
            break;
        case Base64:
            AddBase64(data, size);
            break;
        case Quoted:
            AddQuoted(data, size);
            break;
        }
    }
    quint64 Finish() {
        if (m_kind == Base64 && m_quadSize > 1) {
            // The bytes a short last group holds.
            const quint32 q = m_quad << (6 * (4 - m_quadSize));
            const char bytes[3] = {char(q >> 16), char(q >> 8), char(q)};
            Out(bytes, m_quadSize - 1);
        }
        if (m_kind == Quoted && m_qp == QpHex) {
            // "=" and one hex digit at the very end stay as they are.
            const char rest[2] = {'=', m_qpHex};
            Out(rest, 2);
        }
        return m_hash.Value();
    }

private:
    enum Kind { Plain, Base64, Quoted };
    static const signed char* Base64Values() {
        static const auto table = [] {
            std::array<signed char, 256> t;
            t.fill(-1);
            const char* alphabet =
                "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
            for (int i = 0; i < 64; ++i)
                t[static_cast<unsigned char>(alphabet[i])] = static_cast<signed char>(i);
            return t;
        }();
        return table.data();
    }
    static int Hex(char c) {
        if (c >= '0' && c <= '9')
            return c - '0';
        if (c >= 'A' && c <= 'F')
            return c - 'A' + 10;
        if (c >= 'a' && c <= 'f')
            return c - 'a' + 10;
        return -1;
    }
    // Characters outside the alphabet (line breaks, "=") are passed over.
    void AddBase64(const char* data, qint64 size) {
        const signed char* values = Base64Values();
        char out[3 * 1024];
        int o = 0;
        quint32 quad = m_quad;
        int n = m_quadSize;
        auto value = [&](qint64 i) { return values[static_cast<unsigned char>(data[i])]; };
        for (qint64 i = 0; i < size; ++i) {
            // Whole groups of four at a time, until a character outside the
            // alphabet (a line break) comes.
            if (n == 0) {
                while (i + 4 <= size && o + 3 <= int(sizeof out)) {
                    const int a = value(i), b = value(i + 1), c = value(i + 2), d = value(i + 3);
                    if ((a | b | c | d) < 0)
                        break;
                    const quint32 q =
                        quint32(a) << 18 | quint32(b) << 12 | quint32(c) << 6 | quint32(d);
                    out[o] = char(q >> 16);
                    out[o + 1] = char(q >> 8);
                    out[o + 2] = char(q);
                    o += 3;
                    i += 4;
                }
                if (o == int(sizeof out)) {
                    Out(out, o);
                    o = 0;
                }
                if (i >= size)
                    break;
            }
            const int v = value(i);
            if (v < 0)
                continue;
            quad = (quad << 6) | quint32(v);
            if (++n == 4) {
                out[o] = char(quad >> 16);
                out[o + 1] = char(quad >> 8);
                out[o + 2] = char(quad);
                o += 3;
                quad = 0;
                n = 0;
                if (o == int(sizeof out)) {
                    Out(out, o);
                    o = 0;
                }
            }
        }
        Out(out, o);
        m_quad = quad;
        m_quadSize = n;
    }
    // Quoted-printable: "=" and two hex digits is a byte, "=" at the end of
    // a line joins it to the next; any other "=" stays.
    void AddQuoted(const char* data, qint64 size) {
        char out[4096];
        int o = 0;
        auto put = [&](char c) {
            out[o++] = c;
            if (o == int(sizeof out)) {
                Out(out, o);
                o = 0;
            }
        };
        for (qint64 i = 0; i < size; ++i) {
            const char c = data[i];
            if (m_qp == QpEquals) {
                if (c == '\n') {
                    m_qp = QpText;
                    continue;
                }
                if (Hex(c) >= 0) {
                    m_qp = QpHex;
                    m_qpHex = c;
                    continue;
                }
                put('=');
                m_qp = QpText;
            } else if (m_qp == QpHex) {
                m_qp = QpText;
                if (Hex(c) >= 0) {
                    put(char(Hex(m_qpHex) * 16 + Hex(c)));
                    continue;
                }
                put('=');
                put(m_qpHex);
            }
            if (c == '=')
                m_qp = QpEquals;
            else
                put(c);
        }
        Out(out, o);
    }
    // Line breaks wait: those at the very end are left out (a long run of
    // them goes on, so that memory stays flat).
    void Out(const char* data, qint64 size) {
        qint64 keep = size;
        while (keep > 0 && (data[keep - 1] == '\n' || data[keep - 1] == '\r'))
            --keep;
        if (keep > 0 || m_trail.size() > 64 * 1024) {
            m_hash.Add(m_trail.data(), qint64(m_trail.size()));
            m_trail.clear();
            m_hash.Add(data, keep);
        }
        m_trail.append(data + keep, size_t(size - keep));
    }

    Kind m_kind = Plain;
    StreamHash m_hash;
    quint32 m_quad = 0;
    int m_quadSize = 0;
    std::string m_trail;
    enum { QpText, QpEquals, QpHex } m_qp = QpText;
    char m_qpHex = 0;
};

// One leaf's digests as its lines come in. Line breaks at the end of the
// body are not part of it: the one before the next delimiter belongs to the
// delimiter, and a part put back from a file may end in a blank line.
// The copy's digest follows the raw one without hashing anything of its own
// until a line comes that the copy changes.
class LeafSink {
public:
    // `copies`: the copy's digests are worked out; `keepRaw`: also the
    // bytes' digest after the copy's first change.
    void Start(LeafDigest leaf, bool decode, bool copies, bool keepRaw) {
        m_leaf = std::move(leaf);
        m_raw.Reset();
        m_decode = decode;
        m_copies = copies;
        m_keepRaw = keepRaw || decode;
        m_rawKnown = true;
        if (decode) {
            m_decoder.Start(m_leaf.encoding);
            m_copiedDecoder.Start(m_leaf.encoding);
        }
        m_rawNewlines = 0;
        m_same = true;
        m_copiedKnown = true;
        m_longSpecial = false;
    }
    // One whole line; `copyLoses`: the copy leaves it out (a trailer begins
    // on it).
    void Line(const LineView& line, bool copyLoses = false) {
        const bool eightBit = !emlx::IsAscii(line.p, line.n);
        const bool nul = HasNul(line.p, line.n);
        const bool marker = emlx::HasMark(line.p, line.n);
        m_leaf.eightBit = m_leaf.eightBit || eightBit;
        m_leaf.nul = m_leaf.nul || nul;
        m_leaf.marker = m_leaf.marker || marker || copyLoses;
        if (m_same && m_copies && (eightBit || nul || marker || copyLoses))
            Diverge();
        Raw(line.p, line.n, line.nl);
        if (m_same)
            return;
        LineView copied;
        if (!copyLoses && CopiedLine(line, m_buffer, &copied))
            Text(m_copied, m_copiedDecoder, m_copiedNewlines, copied.p, copied.n, copied.nl);
    }
    // Whole lines that need no look of their own: no NUL, "\r" or trailer
    // mark, none a delimiter; ending with "\n". `eightBit`: a byte of 0x80
    // or more among them.
    void Lines(const char* p, qint64 n, bool eightBit) {
        if (eightBit) {
            m_leaf.eightBit = true;
            if (m_same && m_copies)
                Diverge();
        }
        Raw(p, n - 1, true);
        if (m_same)
            return;
        if (!eightBit) {
            Copied(p, n);
            return;
        }
        // The copy through Latin-1: all the lines at once, as the line
        // breaks go through unchanged, unless a line is not valid UTF-8 or
        // starts with a byte-order mark (the copy drops it there).
        if (!LineStartsWithBom(p, n)) {
            m_buffer.resize(int(n));
            const qint64 got = emlx::Utf8ToLatin1(p, n, m_buffer.data());
            if (got >= 0) {
                Copied(m_buffer.constData(), got);
                return;
            }
        }
        for (qint64 at = 0; at < n;) {
            const char* nl = static_cast<const char*>(memchr(p + at, '\n', size_t(n - at)));
            const qint64 next = nl - p + 1;
            LineView copied;
            if (CopiedLine(LineView::Of(p + at, next - at), m_buffer, &copied))
                Text(m_copied, m_copiedDecoder, m_copiedNewlines, copied.p, copied.n, copied.nl);
            at = next;
        }
    }
    // A piece of a line too long to hold; `last` ends it.
    void LongPiece(const char* data, qint64 size, bool last) {
        const bool special =
            !emlx::IsAscii(data, size) || HasNul(data, size) || emlx::HasMark(data, size);
        m_leaf.eightBit = m_leaf.eightBit || !emlx::IsAscii(data, size);
        m_leaf.nul = m_leaf.nul || HasNul(data, size);
        m_leaf.marker = m_leaf.marker || emlx::HasMark(data, size);
        const bool nl = last && size > 0 && data[size - 1] == '\n';
        // The copy's change of a line this long is not worked out: a plain
        // line is copied as it is, anything else is unknown.
        m_longSpecial = m_longSpecial || special;
        if (m_longSpecial && m_copies) {
            if (m_same)
                Diverge();
            m_copiedKnown = false;
        }
        RawPiece(data, nl ? size - 1 : size, nl);
        if (!m_same && !m_longSpecial)
            Copied(data, size);
        if (last)
            m_longSpecial = false;
    }
    // Mail's decoded copy of the body.
    void DecodedBytes(const char* data, qint64 size) {
        m_decodedFile.Add(data, size);
        m_leaf.source = BodySource::DecodedFile;
    }
    LeafDigest Finish() {
        m_leaf.rawKnown = m_rawKnown;
        m_leaf.raw = m_rawKnown ? m_raw.Value() : 0;
        m_leaf.copied = m_same ? m_leaf.raw : m_copiedKnown ? m_copied.Value() : ~m_raw.Value();
        if (m_leaf.source == BodySource::DecodedFile) {
            m_leaf.decoded = m_leaf.decodedCopied = m_decodedFile.Finish();
        } else if (m_decode) {
            m_leaf.decoded = m_decoder.Finish();
            m_leaf.decodedCopied = m_same          ? m_leaf.decoded
                                   : m_copiedKnown ? m_copiedDecoder.Finish()
                                                   : ~m_leaf.decoded;
        }
        m_decodedFile.Start(QByteArray());
        return m_leaf;
    }
    LeafDigest& Leaf() { return m_leaf; }

private:
    // From here on the copy's lines differ: its digests start as the raw
    // ones are now.
    void Diverge() {
        m_copied = m_raw;
        m_copiedNewlines = m_rawNewlines;
        if (m_decode)
            m_copiedDecoder = m_decoder;
        m_same = false;
        m_rawKnown = m_keepRaw;
    }
    void Raw(const char* data, qint64 n, bool nl) {
        if (n == 0 && !nl)
            return;
        RawPiece(data, n, nl);
    }
    // Text bytes, then the line break when `nl`.
    void RawPiece(const char* data, qint64 n, bool nl) {
        if (m_rawKnown)
            Text(m_raw, m_decoder, m_rawNewlines, data, n, nl);
    }
    void Copied(const char* text, qint64 size) {
        Text(m_copied, m_copiedDecoder, m_copiedNewlines, text, size, false);
    }
    // Line breaks wait until text follows them, so those at the end of the
    // body are left out.
    void Text(StreamHash& hash, BodyDecoder& decoder, qint64& newlines, const char* data, qint64 n,
              bool nl) {
        qint64 text = n;
        while (text > 0 && data[text - 1] == '\n')
            --text;
        if (text > 0) {
            for (; newlines > 0; --newlines)
                Both(hash, decoder, "\n", 1);
            Both(hash, decoder, data, text);
        }
        newlines += n - text + (nl ? 1 : 0);
    }
    void Both(StreamHash& hash, BodyDecoder& decoder, const char* data, qint64 size) {
        hash.Add(data, size);
        if (m_decode)
            decoder.Add(data, size);
    }

    LeafDigest m_leaf;
    StreamHash m_raw, m_copied;
    BodyDecoder m_decoder, m_copiedDecoder, m_decodedFile;
    bool m_decode = false;
    bool m_copies = true;   // the copy's digests are worked out
    bool m_keepRaw = true;  // and the bytes' after the copy's first change
    bool m_rawKnown = true; // m_raw has every line so far
    qint64 m_rawNewlines = 0, m_copiedNewlines = 0;
    QByteArray m_buffer; // a copied line
    bool m_same = true, m_copiedKnown = true, m_longSpecial = false;
};

bool IsSpace(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}

// The header fields the reading needs of an entity.
struct EntityHeaders {
    QByteArray type; // lower case, without parameters
    QByteArray boundary;
    QByteArray encoding;
    QString name;
    bool detached = false;
    QByteArray field; // the field being read, unfolded
    void TakeField() {
        const int colon = field.indexOf(':');
        if (colon > 0) {
            const QByteArray key = field.left(colon).trimmed().toLower();
            const QByteArray value = field.mid(colon + 1).trimmed();
            if (key == "content-type") {
                const int semi = value.indexOf(';');
                type = (semi < 0 ? value : value.left(semi)).trimmed().toLower();
                boundary = Parameter(value, "boundary");
                if (name.isEmpty())
                    name = QString::fromUtf8(Parameter(value, "name"));
            } else if (key == "content-transfer-encoding") {
                encoding = value.toLower();
            } else if (key == "content-disposition") {
                const QByteArray file = Parameter(value, "filename");
                if (!file.isEmpty())
                    name = QString::fromUtf8(file);
            } else if (key == "x-apple-content-length") {
                detached = true;
            }
        }
        field.clear();
    }
    void Line(const LineView& line) {
        const char* b = line.p;
        const char* e = line.p + line.n;
        while (b < e && IsSpace(*b))
            ++b;
        while (e > b && IsSpace(e[-1]))
            --e;
        const QByteArray text(b, int(e - b));
        if (line.n > 0 && (line.p[0] == ' ' || line.p[0] == '\t')) {
            if (field.size() < kHeaderCap)
                field += ' ' + text;
            return;
        }
        TakeField();
        field = text;
    }
};

// Header lines the export may add or drop, with their continuation lines.
bool IsLeftOutField(const LineView& line) {
    return StartsWithNoCase(line.p, line.n, "Status:") ||
           StartsWithNoCase(line.p, line.n, "X-Status:") ||
           StartsWithNoCase(line.p, line.n, "X-Apple-Content-Length:");
}

#ifdef PELLOMAR_AVX2
// LinesAt's search, 32 bytes a step where the processor has AVX2 (most
// x86-64 machines of the last decade): the position of the first byte that
// stops a run, or, with *found false, where the search left off (fewer than
// 33 bytes before the end).
__attribute__((target("avx2"))) qint64 FirstStopAvx2(const char* data, qint64 size, bool* found) {
    const __m256i c13 = _mm256_set1_epi8(13), lt = _mm256_set1_epi8('<'),
                  cr = _mm256_set1_epi8('\r'), lf = _mm256_set1_epi8('\n'),
                  zero = _mm256_setzero_si256(), question = _mm256_set1_epi8('?'),
                  bang = _mm256_set1_epi8('!'), dash = _mm256_set1_epi8('-'),
                  gt = _mm256_set1_epi8('>');
    qint64 i = 0;
    for (; i + 33 <= size; i += 32) {
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(data + i));
        // Bytes below 14 (unsigned) or "<", as LinesAt's first test.
        const __m256i low = _mm256_cmpeq_epi8(_mm256_max_epu8(v, c13), c13);
        if (!_mm256_movemask_epi8(_mm256_or_si256(low, _mm256_cmpeq_epi8(v, lt))))
            continue;
        const __m256i next = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(data + i + 1));
        const __m256i marks = _mm256_and_si256(
            _mm256_cmpeq_epi8(v, lt),
            _mm256_or_si256(_mm256_cmpeq_epi8(next, question), _mm256_cmpeq_epi8(next, bang)));
        const __m256i delimiters = _mm256_and_si256(
            _mm256_cmpeq_epi8(v, lf),
            _mm256_or_si256(_mm256_cmpeq_epi8(next, dash), _mm256_cmpeq_epi8(next, gt)));
        const __m256i stops =
            _mm256_or_si256(_mm256_or_si256(_mm256_cmpeq_epi8(v, zero), _mm256_cmpeq_epi8(v, cr)),
                            _mm256_or_si256(marks, delimiters));
        if (const unsigned mask = unsigned(_mm256_movemask_epi8(stops))) {
            *found = true;
            return i + __builtin_ctz(mask);
        }
    }
    *found = false;
    return i;
}

__attribute__((target("avx2"))) bool IsAsciiAvx2(const char* data, qint64 size) {
    qint64 i = 0;
    for (; i + 32 <= size; i += 32)
        if (_mm256_movemask_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(data + i))))
            return false;
    return emlx::IsAscii(data + i, size - i);
}

// PELLOMAR_NO_AVX2 set: the 16-byte search everywhere (the tests run both).
const bool kHasAvx2 =
    __builtin_cpu_supports("avx2") && !qEnvironmentVariableIsSet("PELLOMAR_NO_AVX2");
#endif

// Length of the whole lines at the start of `data` that need no look of
// their own in a leaf's body (LeafSink::Lines): up to a line starting with
// "-" or ">" or holding a NUL, "\r" or "<?"/"<!". `*eightBit`: a byte of
// 0x80 or more among those lines.
qint64 LinesAt(const char* data, qint64 size, bool* eightBit) {
    using emlx::Bytes16;
    typedef unsigned char Unsigned16 __attribute__((vector_size(16)));
    *eightBit = false;
    if (size > 0 && (data[0] == '-' || data[0] == '>'))
        return 0;
    auto stops = [](Bytes16 v, Bytes16 next) {
        return (v == 0) | (v == '\r') | ((v == '<') & ((next == '?') | (next == '!'))) |
               ((v == '\n') & ((next == '-') | (next == '>')));
    };
    qint64 i = 0;
    bool found = false;
#ifdef PELLOMAR_AVX2
    if (kHasAvx2)
        i = FirstStopAvx2(data, size, &found);
#endif
    for (; !found && i + 17 <= size; i += 16) {
        // Most blocks hold no byte below 14 (line feeds, "\r", NUL) and no
        // "<": a cheap test lets them by.
        const Bytes16 v = emlx::Load16(data + i);
        if (!emlx::Any(Bytes16((Unsigned16(v) < 14) | (v == '<'))))
            continue;
        if (const unsigned mask = emlx::Mask(stops(v, emlx::Load16(data + i + 1)))) {
            i += __builtin_ctz(mask);
            found = true;
            break;
        }
    }
    for (; !found && i < size; ++i) {
        const auto c = static_cast<unsigned char>(data[i]);
        if (c == 0 || c == '\r')
            break;
        if (i + 1 < size && ((c == '<' && (data[i + 1] == '?' || data[i + 1] == '!')) ||
                             (c == '\n' && (data[i + 1] == '-' || data[i + 1] == '>'))))
            break;
        if (c == '<' || (c == '\n' && i + 1 == size))
            break; // what follows is not known yet
    }
    const char* last = emlx::LastNewline(data, i + (i < size && data[i] == '\n' ? 1 : 0));
    const qint64 n = last ? last + 1 - data : 0;
#ifdef PELLOMAR_AVX2
    if (kHasAvx2) {
        *eightBit = !IsAsciiAvx2(data, n);
        return n;
    }
#endif
    *eightBit = !emlx::IsAscii(data, n);
    return n;
}

// Section numbers and encodings repeat from message to message: digests
// kept for a whole store share one copy of each (per thread, no locking).
template <class Text> Text Shared(const Text& text) {
    thread_local QSet<Text> pool;
    if (pool.size() > 4096)
        pool.clear();
    auto it = pool.constFind(text);
    return it != pool.constEnd() ? *it : *pool.insert(text);
}

} // namespace

struct MessageDigester::State {
    bool decode;
    Digests digests = Digests::All;
    bool decodeBase64 = false;
    // The line being read across pieces: held whole up to a size, then
    // passed on in pieces.
    QByteArray line;
    bool longLine = false;

    enum Mode { TopHeader, PartHeader, Preamble, LeafBody, Ignore } mode = TopHeader;
    struct Level {
        QByteArray boundary;
        QString section;
        int children = 0;
    };
    QVector<Level> levels;
    QString section; // of the entity whose headers are being read
    EntityHeaders headers;
    LeafSink leaf;
    bool inLeaf = false;
    bool skipBlank = false; // the blank lines of a body that came from a file
    DetachedBodies findBody;
    QStringList unreadable;

    MessageDigest out;
    StreamHash key, header, headerCopied;
    bool droppingField = false;
    QByteArray buffer; // a copied line, the key's text

    // The delimiter a body line is: the level, and whether it closes it.
    int Delimiter(const LineView& l, bool* close) const {
        if (l.n < 2 || l.p[0] != '-' || l.p[1] != '-')
            return -1;
        qint64 n = l.n;
        while (n > 0 && (l.p[n - 1] == ' ' || l.p[n - 1] == '\t' || l.p[n - 1] == '\r'))
            --n;
        for (int i = levels.size() - 1; i >= 0; --i) {
            const QByteArray& b = levels[i].boundary;
            if (n < b.size() + 2 || memcmp(l.p + 2, b.constData(), size_t(b.size())) != 0)
                continue;
            if (n == b.size() + 2) {
                *close = false;
                return i;
            }
            if (n == b.size() + 4 && l.p[n - 2] == '-' && l.p[n - 1] == '-') {
                *close = true;
                return i;
            }
        }
        return -1;
    }

    void EndLeaf() {
        if (inLeaf)
            out.leaves.append(leaf.Finish());
        inLeaf = false;
        skipBlank = false;
    }

    void HeaderLine(const LineView& l, bool copyLoses) {
        if (mode == TopHeader) {
            if (l.n == 0 || (l.p[0] != ' ' && l.p[0] != '\t'))
                droppingField = IsLeftOutField(l);
            if (!droppingField) {
                out.headerEightBit = out.headerEightBit || !emlx::IsAscii(l.p, l.n);
                out.headerNul = out.headerNul || HasNul(l.p, l.n);
                qint64 text = l.n;
                if (const void* z = text > 0 ? memchr(l.p, 0, size_t(text)) : nullptr)
                    text = static_cast<const char*>(z) - l.p;
                const bool marker = emlx::HasMark(l.p, text);
                out.headerMarker = out.headerMarker || marker || copyLoses;
                header.Add(l.p, l.n);
                header.Add("\n", l.nl ? 1 : 0);
                LineView copied;
                if (digests != Digests::Raw && !copyLoses && CopiedLine(l, buffer, &copied)) {
                    headerCopied.Add(copied.p, copied.n);
                    headerCopied.Add("\n", copied.nl ? 1 : 0);
                }
                // The key: each run of 8-bit bytes as one "?".
                if (!marker && text > 0) {
                    const char* p = l.p;
                    if (text >= 3 && memcmp(p, "\xEF\xBB\xBF", 3) == 0)
                        p += 3, text -= 3;
                    buffer.resize(int(text) + 1);
                    char* k = buffer.data();
                    qint64 m = 0;
                    for (qint64 i = 0; i < text; ++i) {
                        const bool high = static_cast<unsigned char>(p[i]) >= 0x80;
                        if (!high)
                            k[m++] = p[i];
                        else if (i == 0 || static_cast<unsigned char>(p[i - 1]) < 0x80)
                            k[m++] = '?';
                    }
                    k[m++] = '\n';
                    key.Add(k, m);
                }
            }
        }
        headers.Line(l);
    }

    void EndHeaders() {
        headers.TakeField();
        const bool top = mode == TopHeader;
        if (headers.type.startsWith("multipart/") && !headers.boundary.isEmpty() &&
            levels.size() < kMaxDepth) {
            levels.append({headers.boundary, section, 0});
            mode = Preamble;
        } else {
            LeafDigest d;
            d.section = top ? QStringLiteral("1") : Shared(section);
            d.encoding = Shared(headers.encoding);
            d.name = headers.name;
            d.detached = headers.detached;
            leaf.Start(d, decode || (decodeBase64 && d.encoding == "base64"),
                       digests == Digests::All || digests == Digests::Copied,
                       digests != Digests::Copied);
            inLeaf = true;
            mode = LeafBody;
            if (d.detached && findBody) {
                const DetachedBody body = findBody(d.section);
                if (body.source != BodySource::Inline)
                    LoadBody(body.source, body.path);
            }
        }
        headers = EntityHeaders();
    }

    // The body of the current leaf from a file; its own lines, blank, are
    // passed over.
    void LoadBody(BodySource source, const QString& path) {
        skipBlank = true;
        leaf.Leaf().source = source;
        if (source == BodySource::NotInStore)
            return;
        QFile file;
        QString reason;
        const int fd = pellomar::OpenRegularFile(path, &reason);
        if (fd < 0 || !file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
            if (fd >= 0)
                ::close(fd);
            unreadable << path + QStringLiteral(": ") +
                              (reason.isEmpty() ? file.errorString() : reason);
            return;
        }
        QByteArray chunk, l;
        while (!(chunk = file.read(256 * 1024)).isEmpty()) {
            if (source == BodySource::DecodedFile) {
                leaf.DecodedBytes(chunk.constData(), chunk.size());
                continue;
            }
            // An .emlxpart file's lines are the body's.
            const char* data = chunk.constData();
            qint64 size = chunk.size();
            while (size > 0) {
                if (l.isEmpty()) {
                    bool eightBit = false;
                    const qint64 plain = LinesAt(data, size, &eightBit);
                    if (plain > 0) {
                        leaf.Lines(data, plain, eightBit);
                        data += plain;
                        size -= plain;
                        continue;
                    }
                }
                const char* nl = static_cast<const char*>(memchr(data, '\n', size_t(size)));
                const qint64 n = nl ? nl - data + 1 : size;
                l.append(data, int(n));
                if (nl || l.size() > kLineCap) {
                    leaf.Line(LineView::Of(l.constData(), l.size()));
                    l.clear();
                }
                data += n;
                size -= n;
            }
        }
        if (!l.isEmpty())
            leaf.Line(LineView::Of(l.constData(), l.size()));
        if (file.error() != QFileDevice::NoError)
            unreadable << path + QStringLiteral(": ") + file.errorString();
    }

    // A whole line; `copyLoses`: the copy leaves it out.
    void WholeLine(const char* p, qint64 n, bool copyLoses = false) {
        const LineView l = LineView::Of(p, n);
        if (!l.IsBlank())
            out.empty = false;
        switch (mode) {
        case TopHeader:
        case PartHeader:
            if (l.IsBlank())
                EndHeaders();
            else
                HeaderLine(l, copyLoses);
            return;
        case Preamble:
        case LeafBody:
        case Ignore: {
            bool close = false;
            const int level = Delimiter(l, &close);
            if (level >= 0) {
                EndLeaf();
                levels.resize(level + 1);
                if (close) {
                    levels.removeLast();
                    mode = Ignore;
                } else {
                    Level& lv = levels[level];
                    ++lv.children;
                    section = lv.section.isEmpty()
                                  ? QString::number(lv.children)
                                  : lv.section + '.' + QString::number(lv.children);
                    mode = PartHeader;
                }
                return;
            }
            if (mode != LeafBody)
                return;
            if (skipBlank && l.IsBlank())
                return;
            skipBlank = false;
            leaf.Line(l, copyLoses);
            return;
        }
        }
    }
};

MessageDigester::MessageDigester(bool decode, Digests digests, bool decodeBase64) : d(new State) {
    d->decode = decode;
    d->digests = digests;
    d->decodeBase64 = decodeBase64;
}

void MessageDigester::SetDecodeBase64(bool decodeBase64) {
    d->decodeBase64 = decodeBase64;
}

MessageDigester::~MessageDigester() {
    delete d;
}

void MessageDigester::Add(const char* data, qint64 size) {
    while (size > 0) {
        // Runs of lines that need no look of their own go whole.
        if (d->line.isEmpty() && !d->longLine && d->mode == State::LeafBody && !d->skipBlank) {
            bool eightBit = false;
            const qint64 plain = LinesAt(data, size, &eightBit);
            if (plain > 0) {
                d->out.empty = false;
                d->leaf.Lines(data, plain, eightBit);
                data += plain;
                size -= plain;
                continue;
            }
        }
        const char* nl = static_cast<const char*>(memchr(data, '\n', size_t(size)));
        const qint64 n = nl ? nl - data + 1 : size;
        if (d->longLine) {
            // The rest of a line too long to hold: only a leaf's body has them.
            if (d->mode == State::LeafBody && !d->skipBlank)
                d->leaf.LongPiece(data, n, nl != nullptr);
        } else if (nl && d->line.isEmpty()) {
            d->WholeLine(data, n);
        } else {
            d->line.append(data, int(n));
            if (nl) {
                d->WholeLine(d->line.constData(), d->line.size());
                d->line.clear();
            } else if (d->line.size() > kLineCap) {
                // Too long to hold: the first part goes now when it is body
                // text, and the rest follows in pieces.
                d->longLine = true;
                d->out.empty = false;
                if (d->mode == State::LeafBody) {
                    d->skipBlank = false;
                    d->leaf.LongPiece(d->line.constData(), d->line.size(), false);
                }
                d->line.clear();
            }
        }
        if (nl)
            d->longLine = false;
        data += n;
        size -= n;
    }
}

void MessageDigester::SetDetachedBodies(DetachedBodies find) {
    d->findBody = std::move(find);
}

MessageDigest MessageDigester::Finish(bool lastLineTrailer) {
    if (!d->line.isEmpty() && !d->longLine)
        d->WholeLine(d->line.constData(), d->line.size(), lastLineTrailer);
    d->line.clear();
    if (d->mode == State::TopHeader || d->mode == State::PartHeader)
        d->headers.TakeField();
    d->EndLeaf();
    MessageDigest out = d->out;
    out.key = d->key.Value();
    out.header = d->header.Value();
    out.headerCopied = d->digests != Digests::Raw ? d->headerCopied.Value() : out.header;
    out.unreadable = d->unreadable;
    const bool decode = d->decode, decodeBase64 = d->decodeBase64;
    const Digests digests = d->digests;
    DetachedBodies find = std::move(d->findBody);
    delete d;
    d = new State;
    d->decode = decode;
    d->digests = digests;
    d->decodeBase64 = decodeBase64;
    d->findBody = std::move(find);
    return out;
}

} // namespace verify
