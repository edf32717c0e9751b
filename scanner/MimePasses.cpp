// Boundaries, delimiter lines and text bodies of a message.
#include "scanner/MimePasses.h"

using emlx::Line;

namespace {

// Texts that a line is tested for and that are then cut off; their lengths
// come from the texts themselves.
const QLatin1String kBlankBoundary(" boundary="), kTabBoundary("\tboundary=");
const QLatin1String kBoundaryParameter("; boundary="), kQuotedBoundary("; boundary=\"");
const QLatin1String kTransferEncoding("Content-Transfer-Encoding: ");
const QLatin1String kPlainCharset("Content-Type: text/plain; charset=");
const QLatin1String kHtmlCharset("Content-Type: text/html; charset=");
const QLatin1String kBlankCharset(" charset="), kTabCharset("\tcharset=");

// Lines that may be read in one walk over the file for one boundary level.
struct LevelScan {
    QByteArray open;  // "--" + boundary + "\n" (UTF-8)
    QByteArray close; // "--" + boundary + "--"
    QString openText, closeText;
    bool ascii = true;
    bool ended = false;
};

QString BoundaryFromParameterLine(const QString& t) {
    // t starts with " boundary=" or "\tboundary=", both of one length.
    const int valueAt = kBlankBoundary.size();
    if (t.midRef(valueAt).startsWith(QLatin1Char('"'))) {
        // After the opening quote up to the last one.
        if (t.endsWith(QLatin1String("\";\n")) || t.endsWith(QLatin1String("\"\n"))) {
            const int close = t.lastIndexOf(QLatin1Char('"'));
            return close > valueAt ? t.mid(valueAt + 1, close - valueAt - 1) : QString();
        }
    }
    if (t.endsWith(QLatin1String(";\n")))
        return t.mid(valueAt, t.indexOf(QLatin1Char(';'), valueAt) - valueAt);
    QString v = t.mid(valueAt);
    if (v.endsWith(QLatin1Char('\n')))
        v.chop(1);
    return v;
}

QString BoundaryFromTypeLine(const QString& t) {
    // t starts with "Content-Type: multipart/" and contains "; boundary=".
    const int quoted = t.indexOf(kQuotedBoundary);
    if (quoted >= 0 && t.endsWith(QLatin1String("\"\n"))) {
        const int from = quoted + kQuotedBoundary.size();
        const int close = t.lastIndexOf(QLatin1Char('"'));
        return close >= from ? t.mid(from, close - from) : QString();
    }
    QString v = t.mid(t.indexOf(kBoundaryParameter) + kBoundaryParameter.size());
    if (v.endsWith(QLatin1Char('\n')))
        v.chop(1);
    return v;
}

bool EndsWithMultipartOpener(const Line& line) {
    static const char* const endings[] = {"/mixed;\n",  "/alternative;\n",  "/related;\n",
                                          "/mixed; \n", "/alternative; \n", "/related; \n"};
    for (const char* e : endings)
        if (line.EndsWith(e))
            return true;
    return false;
}

bool IsCloseDelimiter(const Line& line, const LevelScan& s) {
    if (line.First() != '-')
        return false;
    if (s.ascii) {
        const QByteArray& c = s.close;
        return line.ContentLen() >= c.size() &&
               memcmp(line.p, c.constData(), size_t(c.size())) == 0;
    }
    return line.Text().startsWith(s.closeText);
}

bool IsOpenDelimiter(const Line& line, const LevelScan& s) {
    if (line.First() != '-')
        return false;
    if (s.ascii)
        return line.HasNewline() && line.ContentLen() == s.open.size() - 1 &&
               memcmp(line.p, s.open.constData(), size_t(s.open.size() - 1)) == 0;
    return line.Text() == s.openText;
}

// Charset value of a Content-Type line or of its "charset=" continuation;
// from is the index right after "charset=".
QByteArray CharsetFrom(const QString& t, int from) {
    QString v;
    if (t.endsWith(QLatin1String("\";\n")) || t.endsWith(QLatin1String("\"\n"))) {
        const int open = t.indexOf(QLatin1Char('"'), from);
        const int close = t.lastIndexOf(QLatin1Char('"'));
        v = (open >= 0 && close > open) ? t.mid(open + 1, close - open - 1) : QString();
    } else if (t.endsWith(QLatin1String(";\n")) || t.endsWith(QLatin1String("; format=flowed\n"))) {
        const int semi = t.indexOf(QLatin1Char(';'), from);
        v = t.mid(from, semi - from);
    } else {
        v = t.mid(from);
        if (v.endsWith(QLatin1Char('\n')))
            v.chop(1);
    }
    v.remove(QLatin1Char('"'));
    return v.toLatin1();
}

enum class TextKind { None, Plain, Html };

struct TextPart {
    TextKind kind = TextKind::None;
    QByteArray charset;
    QByteArray encoding;
    qint64 bodyStart = 0;
    bool sawContentType = false;
    // A file name or an attachment disposition: the part is an attachment,
    // never the body, whatever its type.
    bool attachment = false;
};

// A header line of a part that makes it an attachment: "Content-Disposition:
// attachment", or a name or filename parameter ("name=", "filename*0*=" ...)
// on any of the part's header lines.
bool MarksAttachment(const Line& line) {
    if (line.StartsWith("Content-Disposition:", true) &&
        line.Text().midRef(20).trimmed().startsWith(QLatin1String("attachment"),
                                                    Qt::CaseInsensitive))
        return true;
    // Most header lines have no "name" at all: the bytes tell without
    // decoding the line (its ASCII letters are the text's).
    const qint64 n = line.ContentLen();
    bool maybe = false;
    for (qint64 i = 0; i + 4 <= n && !maybe; ++i)
        maybe = (line.p[i] | 0x20) == 'n' && (line.p[i + 1] | 0x20) == 'a' &&
                (line.p[i + 2] | 0x20) == 'm' && (line.p[i + 3] | 0x20) == 'e';
    if (!maybe)
        return false;
    const QString t = line.Text();
    for (int at = t.indexOf(QLatin1String("name"), 0, Qt::CaseInsensitive); at >= 0;
         at = t.indexOf(QLatin1String("name"), at + 4, Qt::CaseInsensitive)) {
        int from = at;
        if (from >= 4 &&
            t.midRef(from - 4, 4).compare(QLatin1String("file"), Qt::CaseInsensitive) == 0)
            from -= 4;
        if (from > 0 && t.at(from - 1) != QLatin1Char(';') && !t.at(from - 1).isSpace())
            continue;
        int i = at + 4;
        while (i < t.size() && (t.at(i) == QLatin1Char('*') || t.at(i).isDigit()))
            ++i;
        if (i < t.size() && t.at(i) == QLatin1Char('='))
            return true;
    }
    return false;
}

// Reads the header block of a part starting at pos up to its blank line.
// False when the block ends without a blank line (end of file, an empty
// line or, with stopAtTrailer, the trailer line).
bool ReadTextPartHeader(MessageFile& file, qint64 pos, bool innermost, bool stopAtTrailer,
                        TextPart* part) {
    file.Seek(pos);
    Line line;
    bool charsetPending = false;
    while (file.ReadLine(&line)) {
        if (line.IsEmpty() || (stopAtTrailer && file.HasTrailer(line)))
            return false;
        if (line.IsBlank()) {
            part->bodyStart = line.next;
            return true;
        }
        part->attachment = part->attachment || MarksAttachment(line);
        if (line.StartsWith(kTransferEncoding.data(), true)) {
            QString v = line.Text().mid(kTransferEncoding.size());
            if (v.endsWith(QLatin1Char('\n')))
                v.chop(1);
            part->encoding = v.toLatin1();
            continue;
        }
        if (innermost && line.StartsWith("Content-Disposition: ", true)) {
            // Only the Content-Type tests are made on the line reached.
            if (!file.ReadLine(&line))
                return false;
            if (line.StartsWith("MIME-Version: 1.0", true) && !file.ReadLine(&line))
                return false;
            if (line.IsEmpty())
                return false;
            if (line.IsBlank()) {
                part->bodyStart = line.next;
                return true;
            }
            part->attachment = part->attachment || MarksAttachment(line);
        }
        if (line.StartsWith("Content-Type:", true))
            part->sawContentType = true;
        const char c = line.First();
        if (c == 'C' || c == 'c') {
            TextKind kind = TextKind::None;
            int charsetAt = 0;
            if (line.StartsWith("Content-Type: text/plain", true)) {
                kind = TextKind::Plain;
                if (line.StartsWith(kPlainCharset.data(), true))
                    charsetAt = kPlainCharset.size();
            } else if (line.StartsWith("Content-Type: text/html", true)) {
                kind = TextKind::Html;
                if (line.StartsWith(kHtmlCharset.data(), true))
                    charsetAt = kHtmlCharset.size();
            }
            if (kind != TextKind::None) {
                part->kind = kind;
                part->charset = charsetAt ? CharsetFrom(line.Text(), charsetAt) : QByteArray();
                charsetPending = charsetAt == 0;
            }
        } else if (charsetPending &&
                   (line.StartsWith(kTabCharset.data()) || line.StartsWith(kBlankCharset.data()))) {
            // Both spellings are of one length.
            part->charset = CharsetFrom(line.Text(), kBlankCharset.size());
            charsetPending = false;
        }
    }
    return false;
}

// Keeps the part when it comes before the one of its kind kept so far: the
// body is the first text part in the file that is not an attachment. The
// encoding kept is the one of the body the preview shows: the HTML part's
// when there is one.
void StoreTextPart(const TextPart& part, qint64 end, TextBodies* out) {
    if (part.attachment)
        return;
    if (part.kind == TextKind::Plain) {
        if (out->hasPlain && out->plainStart <= part.bodyStart)
            return;
        out->hasPlain = true;
        out->plainCharset = part.charset;
        out->plainStart = part.bodyStart;
        out->plainEnd = end;
        out->plainEncoding = part.encoding;
    } else {
        if (out->hasHtml && out->htmlStart <= part.bodyStart)
            return;
        out->hasHtml = true;
        out->htmlCharset = part.charset;
        out->htmlStart = part.bodyStart;
        out->htmlEnd = end;
        out->htmlEncoding = part.encoding;
    }
    out->hasEncoding = true;
    out->encoding = out->hasHtml ? out->htmlEncoding : out->plainEncoding;
}

} // namespace

QVector<BoundaryLevel> ScanBoundaries(MessageFile& file) {
    QVector<BoundaryLevel> levels;
    QVector<LevelScan> scans;
    enum class Await { Nothing, TypeOrBoundary, Boundary };
    Await await = Await::Nothing;
    bool declarations = true; // still looking for boundary declarations
    int running = 0;          // levels whose delimiter walk has not ended

    file.Seek(0);
    Line line;
    for (;;) {
        // Body lines that none of the tests below can match are passed over
        // in one tight loop.
        if (await == Await::Nothing)
            file.SkipBodyLines(declarations);
        if (!file.ReadLine(&line))
            break;
        const bool empty = line.IsEmpty();
        const bool trailer = !empty && file.HasTrailer(line);
        if (trailer)
            file.NoteTrailerLine(line.start);

        // Delimiter walks of the levels declared on earlier lines.
        for (int i = 0; i < scans.size(); ++i) {
            LevelScan& s = scans[i];
            if (s.ended)
                continue;
            BoundaryLevel& level = levels[i];
            if (empty) {
                s.ended = true;
            } else if (IsCloseDelimiter(line, s) || trailer) {
                level.positions.append(line.next);
                level.lengths.append(line.Utf16Length());
                level.closed = true;
                s.ended = true;
            } else if (IsOpenDelimiter(line, s)) {
                level.positions.append(line.next);
                level.lengths.append(line.Utf16Length());
            }
            if (s.ended)
                --running;
        }

        // Boundary declarations.
        if (declarations) {
            QString boundary;
            bool found = false;
            if (await != Await::Nothing) {
                // Parameter lines of a "Content-Type: multipart/...;" line.
                if (await == Await::TypeOrBoundary && line.StartsWith("\ttype=\"text/")) {
                    await = Await::Boundary;
                    continue;
                }
                await = Await::Nothing;
                if (line.StartsWith(kBlankBoundary.data()) ||
                    line.StartsWith(kTabBoundary.data())) {
                    boundary = BoundaryFromParameterLine(line.Text());
                    found = true;
                }
            } else if (empty || trailer || levels.size() >= 3) {
                declarations = false;
            } else if ((line.First() == 'C' || line.First() == 'c') &&
                       line.StartsWith("Content-Type: multipart/", true)) {
                if (line.Contains(kBoundaryParameter.data())) {
                    boundary = BoundaryFromTypeLine(line.Text());
                    found = true;
                } else if (EndsWithMultipartOpener(line)) {
                    await = Await::TypeOrBoundary;
                }
            }
            if (found) {
                BoundaryLevel level;
                level.boundary = boundary;
                levels.append(level);
                LevelScan s;
                s.openText = QStringLiteral("--") + boundary + QLatin1Char('\n');
                s.closeText = QStringLiteral("--") + boundary + QStringLiteral("--");
                s.open = s.openText.toUtf8();
                s.close = s.closeText.toUtf8();
                for (QChar ch : boundary)
                    if (ch.unicode() >= 0x80)
                        s.ascii = false;
                scans.append(s);
                ++running;
            }
        }
        if (!declarations && running == 0)
            break;
    }
    return levels;
}

TextBodies FindTextBodies(MessageFile& file, const QVector<BoundaryLevel>& levels) {
    TextBodies out;
    qint64 textEnd = -1;
    for (int li = 0; li < levels.size(); ++li) {
        const BoundaryLevel& level = levels[li];
        const int n = level.positions.size();
        const int parts = level.closed ? n - 1 : n;
        for (int k = 0; k < parts; ++k) {
            TextPart part;
            if (!ReadTextPartHeader(file, level.positions[k], li == 2, false, &part) ||
                part.kind == TextKind::None)
                continue;
            qint64 end;
            if (k + 1 < n) {
                end = level.positions[k + 1] - level.lengths[k + 1];
            } else {
                if (textEnd < 0)
                    textEnd = file.MessageTextEnd();
                end = textEnd;
            }
            StoreTextPart(part, end, &out);
        }
    }
    return out;
}

TextBodies FindSinglePartBody(MessageFile& file) {
    TextBodies out;
    file.Seek(0);
    Line first;
    if (!file.ReadLine(&first))
        return out;
    TextPart part;
    if (!ReadTextPartHeader(file, first.next, false, true, &part))
        return out;
    if (part.kind == TextKind::None) {
        if (part.sawContentType)
            return out;
        part.kind = TextKind::Plain;
    }
    // A message of one part shows it, even when it is named like a file:
    // there is nothing else to show.
    part.attachment = false;
    StoreTextPart(part, qMax(part.bodyStart, file.MessageTextEnd()), &out);
    return out;
}
