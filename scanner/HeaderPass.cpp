// The header fields a message is listed with: From, To, Subject, Date and
// X-Priority, with their encoded words decoded and the date reformatted.
#include "scanner/MimePasses.h"
#include "scanner/ScaningThread.h"

#include <QTextCodec>

#include <clocale>
#include <cstring>
#include <ctime>
#include <locale.h>
#ifdef __APPLE__
#include <xlocale.h>
#endif
#include <vector>

using emlx::Line;

namespace {

const QLatin1String kEncodedWordStart("=?"), kEncodedWordEnd("?=");
const QLatin1String kEncodedWordLineEnd("?=\n");
// Qt's UTF-8 decoder drops a byte-order mark at the start of a line.
const QLatin1String kByteOrderMark("\xEF\xBB\xBF");

// Decodes the text of one encoded word. A null string when the encoding is
// not one this program knows.
QString DecodeWordText(const QString& charset, const QString& encoding, const QString& text,
                       bool lowerCaseEncodings) {
    QByteArray bytes;
    if (encoding == QLatin1String("Q") || (lowerCaseEncodings && encoding == QLatin1String("q")))
        bytes = ScaningThread::QDecode(text);
    else if (encoding == QLatin1String("B") || encoding == QLatin1String("b"))
        bytes = QByteArray::fromBase64(text.toLatin1());
    else
        return QString();
    // An empty or unknown charset reads the bytes as UTF-8.
    QTextCodec* codec = CodecForCharset(charset);
    QString out = codec ? codec->toUnicode(bytes) : QString::fromUtf8(bytes);
    if (out.isNull())
        out = QLatin1String("");
    return out;
}

// The value of a field written as one encoded word. word is the text after
// the leading "=?"; raw is the value as it stands, kept when the encoding is
// unknown. A lower-case "q" is not accepted here.
QString DecodeSingleWord(const QString& word, const QString& raw) {
    QString charset, encoding;
    QString rest = SplitEncodedWord(word, &charset, &encoding);
    if (rest.endsWith(kEncodedWordLineEnd))
        rest.chop(kEncodedWordLineEnd.size());
    const QString decoded = DecodeWordText(charset, encoding, rest, false);
    return decoded.isNull() ? raw : decoded;
}

// Reads the continuation lines of a folded header (lines starting with a
// blank or a tab) and gives the first other line back to the file by
// seeking back by its length in UTF-16 units.
template <typename OnContinuation>
void ReadContinuations(MessageFile& file, OnContinuation onLine) {
    Line next;
    while (file.ReadLine(&next)) {
        const char c = next.First();
        if (c == ' ' || c == '\t') {
            onLine(next);
            continue;
        }
        file.Seek(next.next - next.Utf16Length());
        return;
    }
}

// From, To or Subject with its continuation lines; encoded words on
// continuation lines (" =?" or "\t=?") are decoded and joined. label is
// "From: " and so on.
QString ReadAddressField(MessageFile& file, const Line& line, const QString& label, bool subject) {
    const QString t = line.Text();
    QString value = t;
    value.remove(label);
    // A subject may have two blanks before its encoded word.
    const QString wideLabel = label + QLatin1Char(' ');
    int wordAt = -1;
    if (t.startsWith(label + kEncodedWordStart, Qt::CaseInsensitive))
        wordAt = label.size();
    else if (subject && t.startsWith(wideLabel + kEncodedWordStart, Qt::CaseInsensitive))
        wordAt = wideLabel.size();
    if (wordAt >= 0) {
        const QString word = t.mid(wordAt);
        // Only a subject of several words ("?= =?" holds both separators)
        // is split into words, and only there is a lower-case "q" accepted.
        if (subject && (word.contains(QLatin1String(" =?")) || word.contains(QLatin1String("?= "))))
            value = DecodeEncodedWords(word, true);
        else
            value = DecodeSingleWord(word.mid(kEncodedWordStart.size()), value);
    }
    ReadContinuations(file, [&](const Line& next) {
        if (next.StartsWith(" =?") || next.StartsWith("\t=?"))
            value += DecodeEncodedWords(next.Text().mid(1), subject);
        else
            value += next.Text();
    });
    return value;
}

// Date or X-Priority with its continuation lines joined as they stand.
QString ReadJoinedField(MessageFile& file, const Line& line, const char* label) {
    QString value = line.Text();
    ReadContinuations(file, [&](const Line& next) { value += next.Text(); });
    value.remove(QLatin1String(label));
    return value;
}

// Walks the file to the lines that may hold a field. The file's own skip
// knows field lines by their first bytes only, but a line that begins with a
// byte-order mark is read without it, so it may hold a field as well. Where
// the skip landed is kept, so that after such a line the walk goes on to
// the same place without searching again; no stretch is searched twice.
class FieldLineWalk {
public:
    explicit FieldLineWalk(MessageFile& file) : m_file(file) {}

    // Moves to the next line to look at.
    void Next() {
        const qint64 from = m_file.Pos();
        // A line given back from its middle is looked at as it stands.
        if (from > 0 && m_file.Data()[from - 1] != '\n')
            return;
        // Going from marked line to marked line gives pages back as well.
        if (from - m_released >= MessageFile::kReleaseStep) {
            m_file.ReleaseBehind(m_released, from);
            m_released = from;
        }
        if (from < m_skipFrom || from > m_skipTo) {
            m_file.SkipToHeaderLine();
            m_skipFrom = from;
            m_skipTo = m_file.Pos();
        }
        const qint64 mark = FindMarkLine(from, m_skipTo);
        m_file.Seek(mark >= 0 ? mark : m_skipTo);
    }

private:
    bool IsMark(qint64 at) const {
        return m_file.Size() - at >= kByteOrderMark.size() &&
               memcmp(m_file.Data() + at, kByteOrderMark.data(), size_t(kByteOrderMark.size())) ==
                   0;
    }

    // First line start in [from, to) that begins with the mark, or -1.
    qint64 FindMarkLine(qint64 from, qint64 to) {
        if (from < to && IsMark(from))
            return from;
        const char* d = m_file.Data();
        for (qint64 at = qMax(from + 1, m_searched); at < to;) {
            if (at - m_released >= MessageFile::kReleaseStep) {
                m_file.ReleaseBehind(m_released, at);
                m_released = at;
            }
            const qint64 stretch = qMin(to - at, MessageFile::kReleaseStep);
            const void* hit = memchr(d + at, kByteOrderMark.data()[0], size_t(stretch));
            if (!hit) {
                at += stretch;
                continue;
            }
            at = static_cast<const char*>(hit) - d;
            if (d[at - 1] == '\n' && IsMark(at))
                return at;
            ++at;
        }
        m_searched = qMax(m_searched, to);
        return -1;
    }

    MessageFile& m_file;
    qint64 m_skipFrom = 0, m_skipTo = -1; // where the skip went last
    qint64 m_searched = 0;                // no marked line starts before it
    qint64 m_released = 0;                // pages before it were given back
};

} // namespace

QString DecodeEncodedWords(const QString& text, bool lowerCaseEncodings) {
    QString s = text;
    if (s.endsWith(QLatin1Char('\n')))
        s.chop(1);
    QString out;
    int i = 0;
    bool afterWord = false;
    while (i < s.size()) {
        const int w = s.indexOf(kEncodedWordStart, i);
        if (w < 0) {
            out += s.mid(i);
            break;
        }
        // Blanks between two encoded words are dropped; other text is kept.
        const QString gap = s.mid(i, w - i);
        if (!(afterWord && gap.trimmed().isEmpty()))
            out += gap;
        const int charsetAt = w + kEncodedWordStart.size();
        const int q1 = s.indexOf(QLatin1Char('?'), charsetAt);
        const int q2 = q1 < 0 ? -1 : s.indexOf(QLatin1Char('?'), q1 + 1);
        if (q2 < 0) {
            out += s.mid(w);
            break;
        }
        const int close = s.indexOf(kEncodedWordEnd, q2 + 1);
        const int end = close < 0 ? s.size() : close + kEncodedWordEnd.size();
        const QString body = s.mid(q2 + 1, (close < 0 ? s.size() : close) - q2 - 1);
        const QString decoded = DecodeWordText(
            s.mid(charsetAt, q1 - charsetAt), s.mid(q1 + 1, q2 - q1 - 1), body, lowerCaseEncodings);
        out += decoded.isNull() ? s.mid(w, end - w) : decoded;
        i = end;
        afterWord = true;
    }
    return out;
}

HeaderFields ReadHeaderFields(MessageFile& file) {
    HeaderFields h;
    file.Seek(0);
    Line line;
    FieldLineWalk walk(file);
    for (;;) {
        // Lines that cannot start a field are passed over in one loop.
        walk.Next();
        if (!file.ReadLine(&line))
            break;
        if (file.HasTrailer(line) || file.HasDoctype(line))
            break;
        // Labels are recognised ignoring case; a line that begins with a
        // byte-order mark is read without it.
        const bool marked = line.StartsWith(kByteOrderMark.data());
        const QString markedText = marked ? line.Text() : QString();
        auto starts = [&](const char* label) {
            return marked ? markedText.startsWith(QLatin1String(label), Qt::CaseInsensitive)
                          : line.StartsWith(label, true);
        };
        if (starts("From:")) {
            h.from = ReadAddressField(file, line, QStringLiteral("From: "), false);
        } else if (starts("To:")) {
            h.to = ReadAddressField(file, line, QStringLiteral("To: "), false);
        } else if (starts("Subject:")) {
            h.subject = ReadAddressField(file, line, QStringLiteral("Subject: "), true);
        } else if (starts("Date:")) {
            h.date = ReadJoinedField(file, line, "Date: ");
            h.dateFound = true;
        } else if (starts("X-Priority:")) {
            h.priority = ReadJoinedField(file, line, "X-Priority: ");
        }
        if (!h.from.isEmpty() && !h.to.isEmpty() && !h.subject.isEmpty() && !h.date.isEmpty())
            break;
    }
    return h;
}

namespace {

// Index of a three-letter English name at p (any case) in `names`, or -1.
int NameIndex(const char* p, const char (*names)[4], int count) {
    for (int i = 0; i < count; ++i)
        if (qstrnicmp(p, names[i], 3) == 0)
            return i;
    return -1;
}

// Reads `digits` digits at p into *value; false when one is not a digit.
bool Digits(const char* p, int digits, int* value) {
    *value = 0;
    for (int i = 0; i < digits; ++i) {
        if (p[i] < '0' || p[i] > '9')
            return false;
        *value = *value * 10 + (p[i] - '0');
    }
    return true;
}

// The usual spellings, "Tue 05 Mar 2013 14:07:09 ..." and "5 Mar 2013
// 14:07:09 ...", read without strptime, which gives the same day and time
// for them: what follows the seconds does not change those. False for
// anything else.
bool QuickMailDate(const QByteArray& text, QByteArray* out) {
    static const char days[7][4] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static const char months[12][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const char* p = text.constData(); // ends with a NUL byte
    if (p[0] && p[1] && p[2] && p[3] == ' ' && NameIndex(p, days, 7) >= 0)
        p += 4;
    int day = 0, month = -1, year = 0, hour = 0, minute = 0, second = 0;
    const int dayDigits = p[0] && p[1] == ' ' ? 1 : 2;
    if (!Digits(p, dayDigits, &day) || p[dayDigits] != ' ' || day < 1 || day > 31)
        return false;
    p += dayDigits + 1;
    if (!p[0] || !p[1] || !p[2] || p[3] != ' ' || (month = NameIndex(p, months, 12)) < 0)
        return false;
    p += 4;
    if (!Digits(p, 4, &year) || year < 1000 || p[4] != ' ')
        return false;
    p += 5;
    if (!Digits(p, 2, &hour) || p[2] != ':' || !Digits(p + 3, 2, &minute) || p[5] != ':' ||
        !Digits(p + 6, 2, &second) || hour > 23 || minute > 59 || second > 61)
        return false;
    char buffer[32];
    const int n =
        snprintf(buffer, sizeof buffer, "%02d %s %d %02d:%02d:%02d %s", day, months[month], year,
                 hour % 12 == 0 ? 12 : hour % 12, minute, second, hour < 12 ? "AM" : "PM");
    *out = QByteArray(buffer, n);
    return true;
}

} // namespace

QByteArray FormatMailDate(const QString& dateValue) {
    // The marks below are ASCII: taking them out of the Latin-1 bytes is
    // taking them out of the text.
    QByteArray text = dateValue.toLatin1();
    static const char* const removed[] = {" (UTC)", " CDT", " EDT", " EST",
                                          " CST",   " DST", ",",    "\n"};
    for (const char* r : removed)
        if (text.contains(r))
            text.replace(r, "");
    QByteArray quick;
    if (QuickMailDate(text, &quick))
        return quick;

    // English month and day names whatever the user's locale.
    static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", locale_t(nullptr));
    if (!cLocale)
        return QByteArray();
    const locale_t previous = uselocale(cLocale);
    static const char* const formats[] = {"%A %d %b %Y %H:%M:%S %z", "%d %b %y %H:%M:%S",
                                          "%d %b %Y %H:%M:%S", "%B %d %Y %H:%M %p",
                                          "%A %d %b %Y %H:%M:%S"};
    QByteArray out;
    for (const char* format : formats) {
        struct tm tm;
        memset(&tm, 0, sizeof tm);
        if (!strptime(text.constData(), format, &tm))
            continue;
        std::vector<char> buffer(64);
        for (;;) {
            const size_t n = strftime(buffer.data(), buffer.size(), "%d %b %Y %I:%M:%S %p", &tm);
            if (n > 0) {
                out = QByteArray(buffer.data(), int(n));
                break;
            }
            if (buffer.size() >= 4096)
                break;
            buffer.resize(buffer.size() * 2);
        }
        break;
    }
    uselocale(previous);
    return out;
}

int PriorityValue(const QString& priorityValue) {
    if (priorityValue.isEmpty())
        return 0;
    const QChar c = priorityValue.at(0);
    return (c >= QLatin1Char('0') && c <= QLatin1Char('9')) ? c.unicode() - '0' : 0;
}
