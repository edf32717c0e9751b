#include "MessageFile.h"

#include <QTextCodec>
#include <QTextDecoder>

#include <cstring>
#include <limits>
#include <memory>
#include <sys/stat.h>

namespace {

const char kTrailer[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
const char kDoctype[] = "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST ";

// Header lines are copied out of the mapping only up to this size, so a
// giant line in a broken file cannot make a giant string.
const qint64 kMaxCopiedLine = 16 * 1024 * 1024;

inline char Lower(char c) {
    return (c >= 'A' && c <= 'Z') ? char(c + ('a' - 'A')) : c;
}

} // namespace

qint64 SatAdd(qint64 a, qint64 b) {
    const qint64 max = std::numeric_limits<qint64>::max();
    const qint64 min = std::numeric_limits<qint64>::min();
    if (b > 0 && a > max - b)
        return max;
    if (b < 0 && a < min - b)
        return min;
    return a + b;
}

qint64 SatSub(qint64 a, qint64 b) {
    if (b == std::numeric_limits<qint64>::min())
        return a >= 0 ? std::numeric_limits<qint64>::max() : a - b;
    return SatAdd(a, -b);
}

void NeedleFinder::Reset(const char* data, qint64 size) {
    m_data = data;
    m_dataSize = size;
    m_searchedFrom = -1;
    m_found = -1;
}

qint64 NeedleFinder::From(qint64 from) {
    if (from < 0)
        from = 0;
    // The last search covered [m_searchedFrom, end) and found m_found first:
    // any start between the two has the same answer.
    if (m_searchedFrom >= 0 && from >= m_searchedFrom && (m_found < 0 || from <= m_found))
        return m_found;
    m_searchedFrom = from;
    m_found = -1;
    if (from < m_dataSize) {
        const void* hit =
            memmem(m_data + from, size_t(m_dataSize - from), m_needle, size_t(m_size));
        if (hit)
            m_found = static_cast<const char*>(hit) - m_data;
    }
    return m_found;
}

void Line::Cut() const {
    if (textLen >= 0)
        return;
    const void* nul = rawLen > 0 ? memchr(p, 0, size_t(rawLen)) : nullptr;
    if (nul) {
        textLen = static_cast<const char*>(nul) - p;
        nl = false;
    } else {
        textLen = rawLen;
        nl = rawNl;
    }
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

MessageFile::MessageFile()
    : m_trailer(kTrailer, int(sizeof(kTrailer) - 1)),
      m_doctype(kDoctype, int(sizeof(kDoctype) - 1)) {}

MessageFile::~MessageFile() {
    if (m_data && m_size > 0)
        m_file.unmap(reinterpret_cast<uchar*>(const_cast<char*>(m_data)));
}

bool MessageFile::Open(const QString& path) {
    struct stat st;
    const QByteArray native = QFile::encodeName(path);
    // Only regular files: opening a FIFO would block, a folder has no lines.
    if (native.isEmpty() || ::stat(native.constData(), &st) != 0 || !S_ISREG(st.st_mode))
        return false;
    m_file.setFileName(path);
    if (!m_file.open(QIODevice::ReadOnly))
        return false;
    m_size = m_file.size();
    m_pos = 0;
    if (m_size > 0) {
        uchar* map = m_file.map(0, m_size);
        if (!map)
            return false;
        m_data = reinterpret_cast<const char*>(map);
    }
    m_trailer.Reset(m_data, m_size);
    m_doctype.Reset(m_data, m_size);
    return true;
}

bool MessageFile::ReadLine(Line* line) {
    if (m_pos >= m_size)
        return false;
    const char* start = m_data + m_pos;
    const qint64 left = m_size - m_pos;
    const void* nlp = memchr(start, '\n', size_t(left));
    *line = Line();
    line->p = start;
    line->start = m_pos;
    if (nlp) {
        const qint64 at = static_cast<const char*>(nlp) - start;
        line->rawNl = true;
        line->rawLen = (at > 0 && start[at - 1] == '\r') ? at - 1 : at;
        line->next = m_pos + at + 1;
    } else {
        line->rawNl = false;
        line->rawLen = left;
        line->next = m_size;
    }
    m_pos = line->next;
    return true;
}

bool MessageFile::LineHas(const Line& line, NeedleFinder& finder) {
    const qint64 t = finder.From(line.start);
    if (t < 0 || t + finder.Size() > line.start + line.rawLen)
        return false;
    return t + finder.Size() <= line.start + line.ContentLen();
}

qint64 MessageFile::FirstLineCount() {
    const qint64 saved = m_pos;
    m_pos = 0;
    Line first;
    qint64 count = 0;
    // A count is a short line; anything long is not a number anyway.
    if (ReadLine(&first) && first.ContentLen() <= 4096) {
        bool ok = false;
        count = first.Text().trimmed().toLongLong(&ok);
        if (!ok)
            count = 0;
    }
    m_pos = saved;
    return count;
}

qint64 MessageFile::MessageTextEnd() {
    const qint64 saved = m_pos;
    m_pos = 0;
    Line first;
    qint64 end = m_size;
    if (ReadLine(&first))
        end = qMin(end, qMax<qint64>(0, SatAdd(first.next, FirstLineCount())));
    // Start of the first line whose text holds the trailer mark.
    qint64 from = 0;
    while (from < m_size) {
        const qint64 t = m_trailer.From(from);
        if (t < 0)
            break;
        const void* prevNl = t > 0 ? memrchr(m_data, '\n', size_t(t)) : nullptr;
        const qint64 lineStart = prevNl ? static_cast<const char*>(prevNl) - m_data + 1 : 0;
        if (!memchr(m_data + lineStart, '\0', size_t(t - lineStart))) {
            end = qMin(end, lineStart);
            break;
        }
        // The mark sits behind a NUL byte: the rest of this line is no text.
        const void* nextNl = memchr(m_data + t, '\n', size_t(m_size - t));
        if (!nextNl)
            break;
        from = static_cast<const char*>(nextNl) - m_data + 1;
    }
    m_pos = saved;
    return end;
}
