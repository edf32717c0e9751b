#include "export/MessageDigest.h"
#include "scanner/EmlxLines.h"
#include "scanner/FileAccess.h"

#include <QFile>

#include <QString>

#include <algorithm>
#include <cstring>
#include <unistd.h>

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
    auto stripe = [this](const unsigned char* s) {
        for (int i = 0; i < 4; ++i)
            m_lanes[i] = Round(m_lanes[i], Read64(s + 8 * i));
    };
    if (m_pendingSize > 0) {
        const int take = int(std::min<qint64>(size, 32 - m_pendingSize));
        memcpy(m_pending + m_pendingSize, p, size_t(take));
        m_pendingSize += take;
        p += take;
        size -= take;
        if (m_pendingSize < 32)
            return;
        stripe(m_pending);
        m_pendingSize = 0;
    }
    for (; size >= 32; p += 32, size -= 32)
        stripe(p);
    memcpy(m_pending, p, size_t(size));
    m_pendingSize = int(size);
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

bool StartsWithNoCase(const QByteArray& line, const char* prefix) {
    const int n = int(strlen(prefix));
    return line.size() >= n && qstrnicmp(line.constData(), prefix, uint(n)) == 0;
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
        if (!StartsWithNoCase(value.mid(p, key.size()), key.constData()))
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

// The bytes after the line's first NUL and a trailing line break are gone;
// `newline` tells whether the text ends with one.
QByteArray TextUpToNul(const QByteArray& line, bool* newline) {
    const int nul = line.indexOf('\0');
    *newline = nul < 0 && line.endsWith('\n');
    return nul < 0 ? line : line.left(nul);
}

bool IsEightBit(const QByteArray& bytes) {
    return !emlx::IsAscii(bytes.constData(), bytes.size());
}

// What the default export's line copy makes of a line (its "\r" before the
// "\n" and its mbox escaping already taken off): the text up to a NUL byte
// (then without its line break), 8-bit text through Latin-1 as Qt decodes
// UTF-8 (a byte-order mark at the start dropped), nothing for a line with a
// trailer mark or without any text.
QByteArray CopiedLine(const QByteArray& line) {
    bool newline = false;
    QByteArray text = TextUpToNul(line, &newline);
    if (emlx::HasMark(text.constData(), text.size()))
        return QByteArray();
    if (newline)
        text.chop(1);
    if (text.isEmpty() && !newline)
        return QByteArray();
    if (IsEightBit(text)) {
        if (text.startsWith("\xEF\xBB\xBF"))
            text.remove(0, 3);
        text = QString::fromUtf8(text).toLatin1();
    }
    if (newline)
        text += '\n';
    return text;
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
        m_qpPending.clear();
    }
    // Bytes of the body, line breaks as "\n".
    void Add(const char* data, qint64 size) {
        switch (m_kind) {
        case Plain:
            Out(data, size);
            break;
        case Base64:
            for (qint64 i = 0; i < size; ++i) {
                const int v = Value64(data[i]);
                if (v < 0)
                    continue;
                m_quad = (m_quad << 6) | quint32(v);
                if (++m_quadSize == 4) {
                    const char bytes[3] = {char(m_quad >> 16), char(m_quad >> 8), char(m_quad)};
                    Out(bytes, 3);
                    m_quad = 0;
                    m_quadSize = 0;
                }
            }
            break;
        case Quoted:
            m_qpPending.append(data, int(size));
            DecodeQuoted(false);
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
        if (m_kind == Quoted)
            DecodeQuoted(true);
        return m_hash.Value();
    }

private:
    enum Kind { Plain, Base64, Quoted };
    static int Value64(char c) {
        if (c >= 'A' && c <= 'Z')
            return c - 'A';
        if (c >= 'a' && c <= 'z')
            return c - 'a' + 26;
        if (c >= '0' && c <= '9')
            return c - '0' + 52;
        return c == '+' ? 62 : c == '/' ? 63 : -1;
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
    // Quoted-printable: "=" and two hex digits is a byte, "=" at the end of
    // a line joins it to the next. Whole lines are decoded; the rest waits.
    void DecodeQuoted(bool end) {
        int from = 0;
        for (;;) {
            const int nl = m_qpPending.indexOf('\n', from);
            if (nl < 0 && !end)
                break;
            const int stop = nl < 0 ? m_qpPending.size() : nl;
            const char* p = m_qpPending.constData();
            QByteArray out;
            bool soft = false;
            for (int i = from; i < stop; ++i) {
                if (p[i] != '=') {
                    out += p[i];
                } else if (i == stop - 1) {
                    soft = true;
                } else if (i + 2 < stop && Hex(p[i + 1]) >= 0 && Hex(p[i + 2]) >= 0) {
                    out += char(Hex(p[i + 1]) * 16 + Hex(p[i + 2]));
                    i += 2;
                } else {
                    out += '=';
                }
            }
            if (nl >= 0 && !soft)
                out += '\n';
            Out(out.constData(), out.size());
            if (nl < 0) {
                m_qpPending.clear();
                return;
            }
            from = nl + 1;
        }
        m_qpPending.remove(0, from);
    }
    // Line breaks wait: those at the very end are left out.
    void Out(const char* data, qint64 size) {
        qint64 keep = size;
        while (keep > 0 && (data[keep - 1] == '\n' || data[keep - 1] == '\r'))
            --keep;
        if (keep > 0) {
            m_hash.Add(m_trail.constData(), m_trail.size());
            m_trail.clear();
            m_hash.Add(data, keep);
        }
        m_trail.append(data + keep, int(size - keep));
    }

    Kind m_kind = Plain;
    StreamHash m_hash;
    quint32 m_quad = 0;
    int m_quadSize = 0;
    QByteArray m_trail;
    QByteArray m_qpPending;
};

// One leaf's digests as its lines come in.
class LeafSink {
public:
    void Start(LeafDigest leaf, bool decode) {
        m_leaf = std::move(leaf);
        m_raw.Reset();
        m_copied.Reset();
        m_decode = decode;
        if (decode) {
            m_decoder.Start(m_leaf.encoding);
            m_copiedDecoder.Start(m_leaf.encoding);
        }
        m_rawNewline = m_copiedNewline = false;
        m_copiedKnown = true;
    }
    // One whole line (its "\r\n" read as "\n" and ">From " as "From ").
    // `copyLoses`: the copy leaves the line out (a trailer begins on it).
    void Line(const QByteArray& line, bool copyLoses = false) {
        Flags(line);
        Raw(line.constData(), line.size(), !line.endsWith('\n'));
        if (!copyLoses)
            Copied(CopiedLine(line));
    }
    // A piece of a line too long to hold; `last` ends it.
    void LongPiece(const char* data, qint64 size, bool last) {
        const QByteArray piece = QByteArray::fromRawData(data, int(size));
        Flags(piece);
        Raw(data, size, !last || size == 0 || data[size - 1] != '\n');
        // The copy's change of a line this long is not worked out: a plain
        // line is copied as it is, anything else is unknown.
        m_longSpecial =
            m_longSpecial || IsEightBit(piece) || piece.contains('\0') || emlx::HasMark(data, size);
        if (m_longSpecial)
            m_copiedKnown = false;
        else
            Copied(piece);
        if (last)
            m_longSpecial = false;
    }
    // Mail's decoded copy of the body.
    void DecodedBytes(const char* data, qint64 size) {
        m_decodedFile.Add(data, size);
        m_leaf.source = BodySource::DecodedFile;
    }
    LeafDigest Finish() {
        m_leaf.raw = m_raw.Value();
        m_leaf.copied = m_copiedKnown ? m_copied.Value() : ~m_leaf.raw;
        if (m_leaf.source == BodySource::DecodedFile) {
            m_leaf.decoded = m_leaf.decodedCopied = m_decodedFile.Finish();
        } else if (m_decode) {
            m_leaf.decoded = m_decoder.Finish();
            m_leaf.decodedCopied = m_copiedKnown ? m_copiedDecoder.Finish() : ~m_leaf.decoded;
        }
        m_decodedFile.Start(QByteArray());
        return m_leaf;
    }
    LeafDigest& Leaf() { return m_leaf; }

private:
    void Flags(const QByteArray& bytes) {
        m_leaf.eightBit = m_leaf.eightBit || IsEightBit(bytes);
        m_leaf.nul = m_leaf.nul || bytes.contains('\0');
        m_leaf.marker = m_leaf.marker || emlx::HasMark(bytes.constData(), bytes.size());
    }
    // The line break before a delimiter belongs to the delimiter: each "\n"
    // waits for the next line.
    void Raw(const char* data, qint64 size, bool noNewline) {
        if (size == 0)
            return;
        if (m_rawNewline)
            Both(m_raw, m_decoder, "\n", 1);
        const qint64 n = noNewline ? size : size - 1;
        Both(m_raw, m_decoder, data, n);
        m_rawNewline = !noNewline;
    }
    void Copied(const QByteArray& text) {
        if (text.isEmpty())
            return;
        if (m_copiedNewline)
            Both(m_copied, m_copiedDecoder, "\n", 1);
        const bool newline = text.endsWith('\n');
        Both(m_copied, m_copiedDecoder, text.constData(), text.size() - (newline ? 1 : 0));
        m_copiedNewline = newline;
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
    bool m_rawNewline = false, m_copiedNewline = false, m_copiedKnown = true;
    bool m_longSpecial = false;
};

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
            const QByteArray name = field.left(colon).trimmed().toLower();
            const QByteArray value = field.mid(colon + 1).trimmed();
            if (name == "content-type") {
                const int semi = value.indexOf(';');
                type = (semi < 0 ? value : value.left(semi)).trimmed().toLower();
                boundary = Parameter(value, "boundary");
                if (this->name.isEmpty())
                    this->name = QString::fromUtf8(Parameter(value, "name"));
            } else if (name == "content-transfer-encoding") {
                encoding = value.toLower();
            } else if (name == "content-disposition") {
                const QByteArray file = Parameter(value, "filename");
                if (!file.isEmpty())
                    this->name = QString::fromUtf8(file);
            } else if (name == "x-apple-content-length") {
                detached = true;
            }
        }
        field.clear();
    }
    void Line(const QByteArray& line) {
        if (!line.isEmpty() && (line[0] == ' ' || line[0] == '\t')) {
            if (field.size() < kHeaderCap)
                field += line.trimmed().prepend(' ');
            return;
        }
        TakeField();
        field = line.trimmed();
    }
};

// Header lines the export may add or drop, with their continuation lines.
bool IsLeftOutField(const QByteArray& line) {
    return StartsWithNoCase(line, "Status:") || StartsWithNoCase(line, "X-Status:") ||
           StartsWithNoCase(line, "X-Apple-Content-Length:");
}

} // namespace

struct MessageDigester::State {
    bool decode;
    // The line being read: held whole up to a size, then passed on in pieces.
    QByteArray line;
    bool longLine = false;
    bool lineStarted = false;

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

    // The delimiter a body line is: the level, and whether it closes it.
    int Delimiter(const QByteArray& l, bool* close) const {
        if (!l.startsWith("--"))
            return -1;
        QByteArray t = l;
        while (t.endsWith('\n') || t.endsWith('\r') || t.endsWith(' ') || t.endsWith('\t'))
            t.chop(1);
        for (int i = levels.size() - 1; i >= 0; --i) {
            const QByteArray& b = levels[i].boundary;
            if (t.size() == b.size() + 2 && t.endsWith(b)) {
                *close = false;
                return i;
            }
            if (t.size() == b.size() + 4 && t.endsWith("--") && t.mid(2, b.size()) == b) {
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

    void HeaderLine(const QByteArray& l) {
        if (mode == TopHeader) {
            if (l[0] != ' ' && l[0] != '\t')
                droppingField = IsLeftOutField(l);
            if (!droppingField) {
                bool newline = false;
                QByteArray text = TextUpToNul(l, &newline);
                out.headerEightBit = out.headerEightBit || IsEightBit(l);
                out.headerNul = out.headerNul || l.contains('\0');
                const bool marker = emlx::HasMark(text.constData(), text.size());
                out.headerMarker = out.headerMarker || marker;
                header.Add(l.constData(), l.size());
                const QByteArray copied = CopiedLine(l);
                headerCopied.Add(copied.constData(), copied.size());
                // The key: each run of 8-bit bytes as one "?".
                if (!marker && !text.isEmpty()) {
                    if (text.startsWith("\xEF\xBB\xBF"))
                        text.remove(0, 3);
                    QByteArray k;
                    k.reserve(text.size());
                    for (int i = 0; i < text.size(); ++i) {
                        if (static_cast<unsigned char>(text[i]) < 0x80)
                            k += text[i];
                        else if (k.isEmpty() || k.back() != '?' ||
                                 static_cast<unsigned char>(text[i - 1]) < 0x80)
                            k += '?';
                    }
                    if (!newline && !k.endsWith('\n'))
                        k += '\n';
                    key.Add(k.constData(), k.size());
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
            d.section = top ? QStringLiteral("1") : section;
            d.encoding = headers.encoding;
            d.name = headers.name;
            d.detached = headers.detached;
            leaf.Start(d, decode);
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
                const char* nl = static_cast<const char*>(memchr(data, '\n', size_t(size)));
                const qint64 n = nl ? nl - data + 1 : size;
                l.append(data, int(n));
                if (nl || l.size() > kLineCap) {
                    leaf.Line(Normalized(l));
                    l.clear();
                }
                data += n;
                size -= n;
            }
        }
        if (!l.isEmpty())
            leaf.Line(Normalized(l));
        if (file.error() != QFileDevice::NoError)
            unreadable << path + QStringLiteral(": ") + file.errorString();
    }

    // ">From " is the mbox escaping of "From "; "\r\n" is "\n".
    static QByteArray Normalized(QByteArray l) {
        if (l.endsWith("\r\n")) {
            l.chop(2);
            l += '\n';
        }
        if (l.startsWith(">From "))
            l.remove(0, 1);
        return l;
    }

    // A whole line; `copyLoses`: the copy leaves it out.
    void WholeLine(const QByteArray& raw, bool copyLoses = false) {
        const QByteArray l = Normalized(raw);
        out.empty = false;
        switch (mode) {
        case TopHeader:
        case PartHeader:
            if (l == "\n")
                EndHeaders();
            else
                HeaderLine(l);
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
            if (skipBlank && l == "\n")
                return;
            skipBlank = false;
            leaf.Line(l, copyLoses);
            return;
        }
        }
    }
};

MessageDigester::MessageDigester(bool decode) : d(new State) {
    d->decode = decode;
}

MessageDigester::~MessageDigester() {
    delete d;
}

void MessageDigester::Add(const char* data, qint64 size) {
    while (size > 0) {
        const char* nl = static_cast<const char*>(memchr(data, '\n', size_t(size)));
        const qint64 n = nl ? nl - data + 1 : size;
        if (d->longLine) {
            // The rest of a line too long to hold: only a leaf's body has them.
            if (d->mode == State::LeafBody && !d->skipBlank)
                d->leaf.LongPiece(data, n, nl != nullptr);
        } else {
            d->line.append(data, int(n));
            if (!nl && d->line.size() > kLineCap) {
                // Too long to hold: the first part goes as a line of its own
                // when it is body text, and the rest follows in pieces.
                d->longLine = true;
                d->out.empty = false;
                if (d->mode == State::LeafBody) {
                    d->skipBlank = false;
                    d->leaf.LongPiece(d->line.constData(), d->line.size(), false);
                }
                d->line.clear();
            }
        }
        if (nl) {
            if (!d->longLine)
                d->WholeLine(d->line);
            d->line.clear();
            d->longLine = false;
        }
        data += n;
        size -= n;
    }
}

void MessageDigester::SetDetachedBodies(DetachedBodies find) {
    d->findBody = std::move(find);
}

MessageDigest MessageDigester::Finish(bool lastLineTrailer) {
    if (!d->line.isEmpty() && !d->longLine)
        d->WholeLine(d->line, lastLineTrailer);
    d->line.clear();
    if (d->mode == State::TopHeader || d->mode == State::PartHeader)
        d->headers.TakeField();
    d->EndLeaf();
    MessageDigest out = d->out;
    out.key = d->key.Value();
    out.header = d->header.Value();
    out.headerCopied = d->headerCopied.Value();
    out.unreadable = d->unreadable;
    const bool decode = d->decode;
    DetachedBodies find = std::move(d->findBody);
    delete d;
    d = new State;
    d->decode = decode;
    d->findBody = std::move(find);
    return out;
}

} // namespace verify
