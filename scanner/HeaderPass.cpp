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

// The value of a From/To line written as one encoded word. rest is the
// text after the leading "=?"; raw is the value as it stands, kept when the
// encoding is unknown.
QString DecodeSingleWord(const QString& word, const QString& raw) {
    QString charset, encoding;
    QString rest = SplitEncodedWord(word, &charset, &encoding);
    if (rest.endsWith(QLatin1String("?=\n")))
        rest.chop(3);
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
// continuation lines (" =?" or "\t=?") are decoded and joined.
QString ReadAddressField(MessageFile& file, const Line& line, const char* name, bool subject) {
    const QString t = line.Text();
    const QString label = QLatin1String(name) + QLatin1String(": ");
    QString value;
    const bool lower = subject;
    if (subject && t.startsWith(QLatin1String("Subject: =?"), Qt::CaseInsensitive)) {
        value = DecodeEncodedWords(t.mid(9), lower);
    } else if (subject && t.startsWith(QLatin1String("Subject:  =?"), Qt::CaseInsensitive)) {
        value = DecodeEncodedWords(t.mid(10), lower);
    } else if (!subject && t.startsWith(label + QLatin1String("=?"), Qt::CaseInsensitive)) {
        QString raw = t;
        raw.remove(label);
        value = DecodeSingleWord(t.mid(label.size() + 2), raw);
    } else {
        value = t;
        value.remove(label);
    }
    ReadContinuations(file, [&](const Line& next) {
        if (next.StartsWith(" =?") || next.StartsWith("\t=?"))
            value += DecodeEncodedWords(next.Text().mid(1), lower);
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

bool IsLetter(char c, char lower) {
    return c == lower || c == char(lower - ('a' - 'A'));
}

} // namespace

QString DecodeEncodedWords(const QString& text, bool lowerCaseEncodings) {
    QString s = text;
    if (s.endsWith(QLatin1Char('\n')))
        s.chop(1);
    QString out;
    int i = 0;
    bool afterWord = false;
    while (i < s.size()) {
        const int w = s.indexOf(QLatin1String("=?"), i);
        if (w < 0) {
            out += s.mid(i);
            break;
        }
        // Blanks between two encoded words are dropped; other text is kept.
        const QString gap = s.mid(i, w - i);
        if (!(afterWord && gap.trimmed().isEmpty()))
            out += gap;
        const int q1 = s.indexOf(QLatin1Char('?'), w + 2);
        const int q2 = q1 < 0 ? -1 : s.indexOf(QLatin1Char('?'), q1 + 1);
        if (q2 < 0) {
            out += s.mid(w);
            break;
        }
        const int close = s.indexOf(QLatin1String("?="), q2 + 1);
        const int end = close < 0 ? s.size() : close + 2;
        const QString body = s.mid(q2 + 1, (close < 0 ? s.size() : close) - q2 - 1);
        const QString decoded = DecodeWordText(s.mid(w + 2, q1 - w - 2), s.mid(q1 + 1, q2 - q1 - 1),
                                               body, lowerCaseEncodings);
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
    for (;;) {
        // Lines that cannot start a field are passed over in one loop.
        file.SkipToHeaderLine();
        if (!file.ReadLine(&line))
            break;
        if (file.HasTrailer(line) || file.HasDoctype(line))
            break;
        const char c = line.First();
        if (IsLetter(c, 'f') && line.StartsWith("From:", true)) {
            h.from = ReadAddressField(file, line, "From", false);
        } else if (IsLetter(c, 't') && line.StartsWith("To:", true)) {
            h.to = ReadAddressField(file, line, "To", false);
        } else if (IsLetter(c, 's') && line.StartsWith("Subject:", true)) {
            h.subject = ReadAddressField(file, line, "Subject", true);
        } else if (IsLetter(c, 'd') && line.StartsWith("Date:", true)) {
            h.date = ReadJoinedField(file, line, "Date: ");
            h.dateFound = true;
        } else if (IsLetter(c, 'x') && line.StartsWith("X-Priority:", true)) {
            h.priority = ReadJoinedField(file, line, "X-Priority: ");
        }
        if (!h.from.isEmpty() && !h.to.isEmpty() && !h.subject.isEmpty() && !h.date.isEmpty())
            break;
    }
    return h;
}

QByteArray FormatMailDate(const QString& dateValue) {
    QString d = dateValue;
    static const char* const removed[] = {" (UTC)", " CDT", " EDT", " EST",
                                          " CST",   " DST", ",",    "\n"};
    for (const char* r : removed)
        d.remove(QLatin1String(r));
    const QByteArray text = d.toLatin1();

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
