#include "export/PartEncoding.h"

#include <QIODevice>

#include <algorithm>
#include <cstring>

namespace PartEncoding {
namespace {

// Fills `buffer` from `in` up to `size` bytes; fewer only at the end.
qint64 ReadFull(QIODevice& in, char* buffer, qint64 size) {
    qint64 got = 0;
    while (got < size) {
        const qint64 n = in.read(buffer + got, size - got);
        if (n < 0)
            return -1;
        if (n == 0)
            break;
        got += n;
    }
    return got;
}

// Two base64 characters for each 12-bit value.
struct Base64Pairs {
    char pair[4096][2];
    Base64Pairs() {
        static const char alphabet[] =
            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        for (int v = 0; v < 4096; ++v) {
            pair[v][0] = alphabet[v >> 6];
            pair[v][1] = alphabet[v & 63];
        }
    }
};

// Encodes `size` bytes (a multiple of three, or the input's end) into `out`;
// returns the end of the text.
char* EncodeBase64(const unsigned char* in, qint64 size, char* out) {
    static const Base64Pairs table;
    qint64 i = 0;
    for (; i + 3 <= size; i += 3, out += 4) {
        const unsigned v = unsigned(in[i]) << 16 | unsigned(in[i + 1]) << 8 | in[i + 2];
        memcpy(out, table.pair[v >> 12], 2);
        memcpy(out + 2, table.pair[v & 0xFFF], 2);
    }
    if (i < size) {
        const unsigned v = unsigned(in[i]) << 16 | (i + 1 < size ? unsigned(in[i + 1]) << 8 : 0u);
        memcpy(out, table.pair[v >> 12], 2);
        out[2] = i + 1 < size ? table.pair[v & 0xFFF][0] : '=';
        out[3] = '=';
        out += 4;
    }
    return out;
}

bool Base64(QIODevice& in, const Output& out, int chunk) {
    // Whole lines of 57 bytes (76 characters) per read, each line but the
    // first after a line feed.
    const qint64 lines = std::max(1, chunk / 57);
    const qint64 size = lines * 57;
    QByteArray buffer(int(size), '\0');
    QByteArray text(int(lines * 77), '\0');
    bool first = true;
    for (;;) {
        const qint64 got = ReadFull(in, buffer.data(), size);
        if (got < 0)
            return false;
        const auto* data = reinterpret_cast<const unsigned char*>(buffer.constData());
        char* const start = text.data();
        char* end = start;
        for (qint64 i = 0; i < got; i += 57) {
            if (!first)
                *end++ = '\n';
            first = false;
            end = EncodeBase64(data + i, std::min<qint64>(57, got - i), end);
        }
        if (end > start)
            out(start, end - start);
        if (got < size)
            return true;
    }
}

class QuotedPrintable {
public:
    explicit QuotedPrintable(const Output& out) : m_out(out) {}

    void Add(const char* data, qint64 size) {
        for (qint64 i = 0; i < size; ++i) {
            const auto c = static_cast<unsigned char>(data[i]);
            if (c == '\n') {
                FlushBlank(true);
                m_text += '\n';
                m_column = 0;
            } else {
                FlushBlank(false);
                if (c == ' ' || c == '\t')
                    m_blank = int(c);
                else
                    Put(c, c < 33 || c > 126 || c == '=');
            }
        }
        Flush();
    }
    void Finish() {
        FlushBlank(true); // the part ends with a line end
        Flush();
    }

private:
    // A blank is written once the next byte shows whether a line ends after
    // it; before a line end it is encoded.
    void FlushBlank(bool lineEnds) {
        if (m_blank >= 0)
            Put(static_cast<unsigned char>(m_blank), lineEnds);
        m_blank = -1;
    }
    void Put(unsigned char c, bool encode) {
        if (m_column + (encode ? 3 : 1) > 75) { // room for the soft break's "="
            m_text += "=\n";
            m_column = 0;
        }
        if (c == 'F' && m_column == 0)
            encode = true;
        if (encode) {
            static const char hex[] = "0123456789ABCDEF";
            const char e[3] = {'=', hex[c >> 4], hex[c & 15]};
            m_text.append(e, 3);
            m_column += 3;
        } else {
            m_text += char(c);
            ++m_column;
        }
    }
    void Flush() {
        if (!m_text.isEmpty())
            m_out(m_text.constData(), m_text.size());
        m_text.clear();
    }

    const Output& m_out;
    QByteArray m_text;
    int m_column = 0;
    int m_blank = -1; // a blank not yet written
};

// The bytes as they are, with ">" before each line starting with "From ".
class FromEscape {
public:
    explicit FromEscape(const Output& out) : m_out(out) {}

    void Add(const char* data, qint64 size) {
        QByteArray joined;
        if (!m_held.isEmpty()) {
            joined = m_held + QByteArray::fromRawData(data, int(size));
            data = joined.constData();
            size = joined.size();
            m_held.clear();
        }
        qint64 i = 0;
        while (i < size) {
            if (m_lineStart) {
                const qint64 left = std::min<qint64>(size - i, 5);
                if (memcmp(data + i, "From ", size_t(left)) == 0) {
                    if (left < 5) { // the next read tells
                        m_held = QByteArray(data + i, int(left));
                        return;
                    }
                    m_out(">", 1);
                }
            }
            const auto* nl = static_cast<const char*>(memchr(data + i, '\n', size_t(size - i)));
            const qint64 end = nl ? nl - data + 1 : size;
            m_out(data + i, end - i);
            i = end;
            m_lineStart = nl != nullptr;
        }
    }
    void Finish() {
        if (!m_held.isEmpty())
            m_out(m_held.constData(), m_held.size());
        m_held.clear();
    }

private:
    const Output& m_out;
    QByteArray m_held; // the start of a line that may read "From "
    bool m_lineStart = true;
};

template <class Encoder> bool Stream(QIODevice& in, Encoder& encoder, int chunk) {
    QByteArray buffer(std::max(chunk, 16), '\0');
    for (;;) {
        const qint64 got = in.read(buffer.data(), buffer.size());
        if (got < 0)
            return false;
        if (got == 0)
            break;
        encoder.Add(buffer.constData(), got);
    }
    encoder.Finish();
    return true;
}

} // namespace

bool Encode(QIODevice& in, const QByteArray& encoding, const Output& out, int chunk) {
    const QByteArray e = encoding.trimmed().toLower();
    if (e == "base64")
        return Base64(in, out, chunk);
    if (e == "quoted-printable") {
        QuotedPrintable qp(out);
        return Stream(in, qp, chunk);
    }
    FromEscape plain(out);
    return Stream(in, plain, chunk);
}

} // namespace PartEncoding
