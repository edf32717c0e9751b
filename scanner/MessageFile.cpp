#include "scanner/MessageFile.h"
#include "scanner/FileAccess.h"

#include <sys/mman.h>
#include <unistd.h>

#include <QTextCodec>
#include <QTextDecoder>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Header lines are copied out of the mapping only up to this size, so a
// giant line in a broken file cannot make a giant string.
const qint64 kMaxCopiedLine = 16 * 1024 * 1024;

inline char Lower(char c) {
    return (c >= 'A' && c <= 'Z') ? char(c + ('a' - 'A')) : c;
}

// Start of the line holding offset at, not looking before from.
qint64 LineStartBefore(const char* data, qint64 from, qint64 at) {
    const char* nl = emlx::LastNewline(data + from, at - from);
    return nl ? nl - data + 1 : from;
}

// First p in [from, end) with p[0] == a and p[1] == b or c; `end` must be
// followed by at least one readable byte. Where `a` is rare the library's
// search jumps ahead; where it is common ("<" in HTML) the pairs are tested
// 32 bytes at a time instead of stopping at every `a`.
const char* FirstPair(const char* from, const char* end, char a, char b, char c) {
    const char* p = from;
    while (end - p >= 32) {
        const char* hit = static_cast<const char*>(memchr(p, a, size_t(end - p)));
        if (!hit)
            return nullptr;
        p = hit;
        for (; end - p >= 32; p += 32) {
            const emlx::Bytes16 x0 = emlx::Load16(p), x1 = emlx::Load16(p + 16);
            const quint32 firsts = emlx::Mask(x0 == a) | emlx::Mask(x1 == a) << 16;
            if (!firsts)
                break; // back to the library's search
            const emlx::Bytes16 y0 = emlx::Load16(p + 1), y1 = emlx::Load16(p + 17);
            const quint32 seconds =
                emlx::Mask((y0 == b) | (y0 == c)) | emlx::Mask((y1 == b) | (y1 == c)) << 16;
            if (const quint32 both = firsts & seconds)
                return p + __builtin_ctz(both);
        }
    }
    for (; p < end; ++p)
        if (p[0] == a && (p[1] == b || p[1] == c))
            return p;
    return nullptr;
}

} // namespace

namespace emlx {

void NeedleFinder::Reset(const char* data, qint64 size) {
    m_data = data;
    m_dataSize = size;
    m_lo = 0;
    m_hi = -1;
    m_found = -1;
}

bool NeedleFinder::At(qint64 pos) const {
    return pos <= m_dataSize - m_size && memcmp(m_data + pos, m_needle, size_t(m_size)) == 0;
}

qint64 NeedleFinder::FirstIn(qint64 from, qint64 last) {
    const qint64 lastStart = m_dataSize - m_size;
    from = qMax<qint64>(from, 0);
    last = qMin(last, lastStart);
    if (last < from)
        return -1;
    // The last search looked at the starts [m_lo, m_hi] and found m_found
    // first: any from in there with m_found not before it has that answer.
    if (from >= m_lo && from <= m_hi) {
        if (m_found >= from)
            return m_found <= last ? m_found : -1;
        if (m_found < 0 && last <= m_hi)
            return -1;
    }
    const qint64 ahead = 256 * 1024;
    const qint64 hi = qMin(lastStart, qMax(last, from + ahead));
    // Jump from first-two-bytes pair to pair; note the paired text on the way.
    const bool noteOther = m_other && m_other->m_needle[0] == m_needle[0] &&
                           !(from >= m_other->m_lo && from <= m_other->m_hi);
    qint64 found = -1, other = -1;
    const char* p = m_data + from;
    const char* const end = m_data + hi + 1;
    qint64 released = from;
    while (p < end) {
        // Look for the pairs a stretch at a time, giving back what lies behind.
        const char* stretchEnd =
            end - p > MessageFile::kReleaseStep ? p + MessageFile::kReleaseStep : end;
        const char* hit = FirstPair(p, stretchEnd, m_needle[0], m_needle[1],
                                    noteOther ? m_other->m_needle[1] : m_needle[1]);
        if (!hit) {
            p = stretchEnd;
            if (m_owner && p < end) {
                m_owner->ReleaseBehind(released, p - m_data);
                released = p - m_data;
            }
            continue;
        }
        p = hit;
        const qint64 pos = p - m_data;
        if (noteOther && other < 0 && m_other->At(pos))
            other = pos;
        if (At(pos)) {
            found = pos;
            break;
        }
        ++p;
    }
    m_lo = from;
    m_hi = hi;
    m_found = found;
    if (noteOther) {
        // The starts [from, scanned] were all looked at for the other text.
        const qint64 scanned = qMin(found >= 0 ? found : hi, m_other->m_dataSize - m_other->m_size);
        if (other >= 0 || scanned >= from) {
            m_other->m_lo = from;
            m_other->m_hi = other >= 0 ? other : scanned;
            m_other->m_found = other;
        }
    }
    return (found >= 0 && found <= last) ? found : -1;
}

void Line::Cut() const {
    if (textLen >= 0)
        return;
    const LineText text = CutAtNul(p, {rawLen, rawNl});
    textLen = text.size;
    nl = text.newline;
}

bool Line::StartsWith(const char* lit, bool ignoreCase) const {
    const qint64 n = qint64(strlen(lit));
    // Compare against the raw bytes first: a literal has no NUL, so a match
    // there lies inside the text unless it needs the final "\n".
    qint64 i = 0;
    for (; i < n; ++i) {
        if (i >= rawLen)
            break;
        const char c = p[i];
        if (ignoreCase ? Lower(c) != Lower(lit[i]) : c != lit[i])
            return false;
    }
    if (i == n)
        return true;
    // Only the final "\n" of the text may be left to match.
    return i == n - 1 && lit[i] == '\n' && HasNewline() && ContentLen() == rawLen;
}

bool Line::EndsWith(const char* lit) const {
    const qint64 n = qint64(strlen(lit));
    const qint64 len = ContentLen();
    const bool withNl = HasNewline();
    const qint64 total = len + (withNl ? 1 : 0);
    if (n > total)
        return false;
    for (qint64 k = 0; k < n; ++k) {
        const qint64 i = total - n + k;
        const char c = i < len ? p[i] : '\n';
        if (c != lit[k])
            return false;
    }
    return true;
}

bool Line::Equals(const char* lit, bool ignoreCase) const {
    const qint64 n = qint64(strlen(lit));
    const qint64 total = ContentLen() + (HasNewline() ? 1 : 0);
    return total == n && StartsWith(lit, ignoreCase);
}

bool Line::Contains(const char* lit) const {
    const size_t n = strlen(lit);
    if (n == 0)
        return true;
    if (lit[n - 1] == '\n') {
        if (memchr(lit, '\n', n - 1))
            return false;
        return EndsWith(lit);
    }
    const qint64 len = ContentLen();
    return len >= qint64(n) && memmem(p, size_t(len), lit, n) != nullptr;
}

QByteArray Line::Bytes() const {
    const qint64 len = qMin(ContentLen(), kMaxCopiedLine);
    QByteArray out;
    out.reserve(int(len) + 1);
    out.append(p, int(len));
    if (HasNewline() && len == ContentLen())
        out.append('\n');
    return out;
}

QString Line::Text() const {
    const qint64 len = qMin(ContentLen(), kMaxCopiedLine);
    QString out = QString::fromUtf8(p, int(len));
    if (HasNewline() && len == ContentLen())
        out.append(QLatin1Char('\n'));
    return out;
}

int Line::Utf16Length() const {
    const qint64 len = ContentLen();
    const qint64 extra = HasNewline() ? 1 : 0;
    bool ascii = true;
    for (qint64 i = 0; i < len; ++i) {
        if (static_cast<unsigned char>(p[i]) >= 0x80) {
            ascii = false;
            break;
        }
    }
    qint64 units = 0;
    if (ascii) {
        units = len;
    } else if (len <= kMaxCopiedLine) {
        units = QString::fromUtf8(p, int(len)).size();
    } else {
        // Decode in pieces; the decoder keeps split sequences between them.
        std::unique_ptr<QTextDecoder> dec(QTextCodec::codecForName("UTF-8")->makeDecoder());
        for (qint64 at = 0; at < len; at += kMaxCopiedLine) {
            const qint64 n = qMin(kMaxCopiedLine, len - at);
            units += dec->toUnicode(p + at, int(n)).size();
        }
    }
    return int(qMin<qint64>(units + extra, std::numeric_limits<int>::max()));
}

} // namespace emlx

using emlx::Line;

MessageFile::MessageFile()
    : m_trailer(emlx::kTrailerMark, emlx::kTrailerMarkSize),
      m_doctype(emlx::kDoctypeMark, emlx::kDoctypeMarkSize) {}

namespace {

// Reads `size` bytes from the start of `fd` into `buffer`.
bool ReadWhole(int fd, QByteArray& buffer, qint64 size) {
    buffer.resize(int(size));
    qint64 got = 0;
    while (got < size) {
        const ssize_t n = ::pread(fd, buffer.data() + got, size_t(size - got), got);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        got += n;
    }
    return true;
}

} // namespace

MessageFile::~MessageFile() {
    Release();
}

void MessageFile::Release() {
    if (m_mapped)
        m_file.unmap(reinterpret_cast<uchar*>(const_cast<char*>(m_data)));
    m_mapped = false;
    // The buffer of a file that was read is kept for the next file this
    // reader opens, unless it is larger than most messages.
    if (m_read.capacity() > kKeptBuffer)
        m_read = QByteArray();
    m_data = nullptr;
    m_file.close();
}

bool MessageFile::Open(const QString& path) {
    Release();
    m_size = 0;
    const int fd = pellomar::OpenRegularFile(path, &m_error, &m_size);
    if (fd < 0)
        return false;
    m_pos = 0;
    if (m_size <= kReadWhole) {
        // Read whole; the file is closed at once.
        const bool read = ReadWhole(fd, m_read, m_size);
        ::close(fd);
        if (!read) {
            m_error = QStringLiteral("cannot be read");
            return false;
        }
        m_data = m_size > 0 ? m_read.constData() : nullptr;
    } else {
        if (!m_file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
            m_error = QStringLiteral("cannot be opened");
            ::close(fd);
            return false;
        }
        uchar* map = m_file.map(0, m_size);
        if (!map) {
            m_error = QStringLiteral("cannot be mapped into memory");
            return false;
        }
        m_data = reinterpret_cast<const char*>(map);
        m_mapped = true;
    }
    m_trailer.Reset(m_data, m_size);
    m_doctype.Reset(m_data, m_size);
    m_trailer.Pair(&m_doctype);
    m_doctype.Pair(&m_trailer);
    m_trailer.SetOwner(this);
    m_doctype.SetOwner(this);
    m_trailerLine = -1;
    return true;
}

void MessageFile::ReleaseBehind(qint64 from, qint64 pos) const {
    // Callers pass the end of their previous call as `from`; the last
    // megabyte before it was kept then and is given back now.
    from -= 1024 * 1024;
    static const qint64 page = qint64(sysconf(_SC_PAGESIZE));
    const qint64 keep = 1024 * 1024;
    const qint64 first = (qMax<qint64>(from, 0) + page - 1) / page * page;
    const qint64 last = qMin(pos - keep, m_size) / page * page;
    if (!m_mapped || last - first < kReleaseStep / 2)
        return;
    // The mapping starts on a page boundary, so these addresses are aligned.
    madvise(const_cast<char*>(m_data) + first, size_t(last - first), MADV_DONTNEED);
}

bool MessageFile::ReadLine(Line* line) {
    if (m_pos >= m_size)
        return false;
    const char* start = m_data + m_pos;
    const qint64 left = m_size - m_pos;
    const void* nlp = nullptr;
    for (qint64 at = 0; at < left && !nlp; at += kReleaseStep) {
        nlp = memchr(start + at, '\n', size_t(qMin(kReleaseStep, left - at)));
        if (!nlp)
            ReleaseBehind(m_pos, m_pos + at + qMin(kReleaseStep, left - at));
    }
    const qint64 size = nlp ? static_cast<const char*>(nlp) - start + 1 : left;
    const emlx::LineText raw = emlx::RawTextOf(start, size);
    *line = Line();
    line->p = start;
    line->start = m_pos;
    line->next = m_pos + size;
    line->rawLen = raw.size;
    line->rawNl = raw.newline;
    m_pos = line->next;
    return true;
}

bool MessageFile::LineHas(const Line& line, emlx::NeedleFinder& finder) {
    // Starts that leave room for the whole mark inside the raw line.
    const qint64 t = finder.FirstIn(line.start, line.start + line.rawLen - finder.Size());
    return t >= 0 && t + finder.Size() <= line.start + line.ContentLen();
}

namespace {

struct FirstBytes {
    bool table[256] = {};
    explicit FirstBytes(const char* bytes) {
        for (const char* b = bytes; *b; ++b)
            table[static_cast<unsigned char>(*b)] = true;
        table[0] = true; // a line whose text is empty
    }
};

// The line at p (with at least one byte before end) starts with the label,
// ignoring ASCII case.
bool HasLabel(const char* p, const char* end, const char* label) {
    for (; *label; ++label, ++p)
        if (p == end || Lower(*p) != *label)
            return false;
    return true;
}

} // namespace

void MessageFile::SkipBodyLines(bool declarations) {
    static const FirstBytes withDeclarations("-Cc");
    static const FirstBytes delimitersOnly("-");
    const bool* table = declarations ? withDeclarations.table : delimitersOnly.table;
    SkipLines(
        [table](const char* p, const char*) { return table[static_cast<unsigned char>(*p)]; });
}

void MessageFile::SkipToHeaderLine() {
    // A field line has its colon 2, 4, 7 or 10 bytes after the line start,
    // so the walk jumps from colon to colon instead of from line to line.
    const char* d = m_data;
    const char* end = m_data + m_size;
    const qint64 pos = m_pos; // start of the current line
    qint64 stop = m_trailer.From(pos);
    const qint64 dt = m_doctype.FirstIn(pos, stop < 0 ? m_size : stop);
    if (dt >= 0)
        stop = dt;
    const qint64 limit = stop >= 0 ? stop : m_size;
    struct Label {
        int colon;
        const char* text;
    };
    static const Label labels[] = {
        {2, "to:"}, {4, "from:"}, {4, "date:"}, {7, "subject:"}, {10, "x-priority:"}};
    qint64 released = pos;
    for (qint64 at = pos; at < limit;) {
        if (at - released >= kReleaseStep) {
            ReleaseBehind(released, at);
            released = at;
        }
        // A stretch at a time, so that pages behind can be given back.
        const qint64 stretch = qMin(limit - at, kReleaseStep);
        const void* hit = memchr(d + at, ':', size_t(stretch));
        if (!hit) {
            at += stretch;
            continue;
        }
        const qint64 colon = static_cast<const char*>(hit) - d;
        for (const Label& label : labels) {
            const qint64 start = colon - label.colon;
            if (start < pos || (start > pos && d[start - 1] != '\n'))
                continue;
            if (HasLabel(d + start, end, label.text)) {
                m_pos = start;
                return;
            }
        }
        at = colon + 1;
    }
    // No field line before the mark: stop at the start of the mark's line.
    if (stop < 0) {
        m_pos = m_size;
        return;
    }
    m_pos = LineStartBefore(d, pos, stop);
}

template <typename Interesting> void MessageFile::SkipLines(Interesting interesting) {
    const char* d = m_data;
    const char* end = m_data + m_size;
    qint64 pos = m_pos;
    // No line holding the trailer mark may be passed over.
    const qint64 stop = m_trailer.From(pos);
    if (pos >= m_size || interesting(d + pos, end)) {
        m_pos = pos;
        return;
    }
    // pos is the start of a line to pass over; at is where the search for
    // line feeds goes on.
    qint64 at = pos;
    qint64 released = pos;
    while (at + 32 <= m_size) {
        // 32 bytes a step, a stretch at a time, so that pages behind can be
        // given back between stretches.
        const qint64 last = qMin(m_size - 32, released + kReleaseStep);
        for (; at <= last; at += 32) {
            quint32 mask = emlx::Mask(emlx::Load16(d + at) == '\n') |
                           (emlx::Mask(emlx::Load16(d + at + 16) == '\n') << 16);
            while (mask) {
                const qint64 next = at + __builtin_ctz(mask) + 1;
                mask &= mask - 1;
                if (stop >= 0 && stop < next) {
                    m_pos = pos;
                    return;
                }
                pos = next;
                if (next >= m_size || interesting(d + next, end)) {
                    m_pos = pos;
                    return;
                }
            }
        }
        if (at - released >= kReleaseStep) {
            ReleaseBehind(released, at);
            released = at;
        }
    }
    while (at < m_size) {
        if (at - released >= kReleaseStep) {
            ReleaseBehind(released, at);
            released = at;
        }
        const void* nl = memchr(d + at, '\n', size_t(m_size - at));
        if (!nl)
            break;
        const qint64 next = static_cast<const char*>(nl) - d + 1;
        if (stop >= 0 && stop < next)
            break;
        pos = next;
        if (next >= m_size || interesting(d + next, end))
            break;
        at = next;
    }
    m_pos = pos;
}

qint64 MessageFile::FirstLineCount() {
    const qint64 saved = m_pos;
    m_pos = 0;
    Line first;
    quint64 count = 0;
    if (ReadLine(&first))
        count = emlx::ByteCount(first.p, first.ContentLen());
    m_pos = saved;
    return qint64(qMin<quint64>(count, quint64(std::numeric_limits<qint64>::max())));
}

qint64 MessageFile::MessageTextEnd() {
    const qint64 saved = m_pos;
    m_pos = 0;
    Line first;
    qint64 end = m_size;
    if (ReadLine(&first))
        end = qMin(end, qMax<qint64>(0, emlx::SatAdd(first.next, FirstLineCount())));
    // Start of the first line whose text holds the trailer mark.
    qint64 from = 0;
    if (m_trailerLine >= 0) {
        end = qMin(end, m_trailerLine);
        from = m_size;
    }
    while (from < m_size) {
        const qint64 t = m_trailer.From(from);
        if (t < 0)
            break;
        m_pos = LineStartBefore(m_data, 0, t);
        Line line;
        ReadLine(&line);
        if (HasTrailer(line)) {
            end = qMin(end, line.start);
            break;
        }
        // The mark sits behind a NUL byte: the rest of this line is no text.
        from = line.next;
    }
    m_pos = saved;
    return end;
}
