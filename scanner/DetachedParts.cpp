// Finds the parts Apple Mail kept apart from a partial message: a walk over
// the MIME structure that numbers each part by its IMAP body section, and
// the lookup of a section's decoded file under Attachments.
#include "scanner/DetachedParts.h"
#include "scanner/EmlxLines.h"
#include "scanner/MessageFile.h"
#include "scanner/MimePasses.h"

#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QMap>
#include <QRegularExpression>
#include <QTextCodec>

#include <cstring>

using emlx::Line;

namespace {

const char kLengthHeader[] = "X-Apple-Content-Length: ";
// Deeper nesting is read as one leaf part; no real message comes close.
constexpr int kMaxDepth = 32;
// A header field is kept up to this size (its lines are still read).
constexpr int kMaxField = 64 * 1024;

QByteArray Trimmed(const char* p, qint64 n) {
    while (n > 0 && (*p == ' ' || *p == '\t'))
        ++p, --n;
    while (n > 0 && (p[n - 1] == ' ' || p[n - 1] == '\t' || p[n - 1] == '\r' || p[n - 1] == '\n'))
        --n;
    return QByteArray(p, int(n));
}

// The parameters of a header value ("type; a=1; b=\"x y\""), names in lower
// case, quotes and their backslashes removed, in order.
QVector<QPair<QByteArray, QByteArray>> Parameters(const QByteArray& value) {
    QVector<QPair<QByteArray, QByteArray>> out;
    const char* p = value.constData();
    const int n = value.size();
    int i = 0;
    auto skipTo = [&](char c) {
        bool quoted = false;
        for (; i < n && (quoted || p[i] != c); ++i) {
            if (p[i] == '"')
                quoted = !quoted;
            else if (quoted && p[i] == '\\')
                ++i;
        }
    };
    skipTo(';'); // the value itself
    while (i < n) {
        ++i; // the ";"
        const int nameAt = i;
        while (i < n && p[i] != '=' && p[i] != ';')
            ++i;
        const QByteArray name = Trimmed(p + nameAt, i - nameAt).toLower();
        if (i >= n || p[i] == ';')
            continue;
        ++i; // the "="
        while (i < n && (p[i] == ' ' || p[i] == '\t'))
            ++i;
        QByteArray v;
        if (i < n && p[i] == '"') {
            for (++i; i < n && p[i] != '"'; ++i) {
                if (p[i] == '\\' && i + 1 < n)
                    ++i;
                v += p[i];
            }
            if (i < n)
                ++i; // the closing quote
            skipTo(';');
        } else {
            const int valueAt = i;
            skipTo(';');
            v = Trimmed(p + valueAt, i - valueAt);
        }
        if (!name.isEmpty())
            out.append({name, v});
    }
    return out;
}

QString DecodeCharset(const QByteArray& charset, const QByteArray& bytes) {
    QTextCodec* codec = CodecForCharset(QString::fromLatin1(charset));
    return codec ? codec->toUnicode(bytes) : QString::fromUtf8(bytes);
}

// A file name parameter: RFC 2231 pieces ("name*0*=utf-8''a%20b",
// "name*1*=...") joined and percent-decoded, or the plain "name=" value;
// encoded words (RFC 2047) decoded in either.
QString FileNameParameter(const QVector<QPair<QByteArray, QByteArray>>& params,
                          const QByteArray& key) {
    QByteArray plain;
    QMap<int, QPair<QByteArray, bool>> pieces; // index -> value, extended
    for (const auto& kv : params) {
        if (kv.first == key) {
            plain = kv.second;
        } else if (kv.first.startsWith(key + '*')) {
            QByteArray rest = kv.first.mid(key.size() + 1);
            const bool extended = rest.isEmpty() || rest.endsWith('*');
            if (rest.endsWith('*'))
                rest.chop(1);
            bool ok = rest.isEmpty();
            const int index = ok ? 0 : rest.toInt(&ok);
            if (ok && index >= 0 && index < 1000)
                pieces.insert(index, {kv.second, extended});
        }
    }
    QString name;
    if (!pieces.isEmpty() && pieces.firstKey() == 0) {
        QByteArray charset, bytes;
        int expected = 0;
        for (auto it = pieces.cbegin(); it != pieces.cend() && it.key() == expected;
             ++it, ++expected) {
            QByteArray v = it.value().first;
            if (it.value().second) {
                if (expected == 0) { // charset'language'text
                    const int q1 = v.indexOf('\''), q2 = q1 < 0 ? -1 : v.indexOf('\'', q1 + 1);
                    if (q2 >= 0) {
                        charset = v.left(q1);
                        v = v.mid(q2 + 1);
                    }
                }
                v = QByteArray::fromPercentEncoding(v);
            }
            bytes += v;
        }
        name = DecodeCharset(charset, bytes);
    } else {
        name = QString::fromUtf8(plain);
    }
    const int word = name.indexOf(QLatin1String("=?"));
    return word < 0 ? name : name.left(word) + DecodeEncodedWords(name.mid(word), true);
}

// A part's header block as far as the walk needs it.
struct PartHeaders {
    QByteArray type, boundary, encoding;
    QString typeName, dispositionName;
    qint64 mark = -1;
};

void TakeField(const QByteArray& field, PartHeaders* h) {
    const int colon = field.indexOf(':');
    if (colon <= 0)
        return;
    const QByteArray name = Trimmed(field.constData(), colon).toLower();
    const QByteArray value = Trimmed(field.constData() + colon + 1, field.size() - colon - 1);
    if (name == "content-type") {
        const int semi = value.indexOf(';');
        h->type = Trimmed(value.constData(), semi < 0 ? value.size() : semi).toLower();
        const auto params = Parameters(value);
        for (const auto& kv : params)
            if (kv.first == "boundary")
                h->boundary = kv.second;
        h->typeName = FileNameParameter(params, "name");
    } else if (name == "content-transfer-encoding") {
        h->encoding = value.toLower();
    } else if (name == "content-disposition") {
        h->dispositionName = FileNameParameter(Parameters(value), "filename");
    }
}

class Walker {
public:
    Walker(MessageFile& file, const QString& path) : m_file(file), m_path(path) {}

    QVector<DetachedPart> Run() {
        m_file.Seek(0);
        Line line;
        if (m_file.ReadLine(&line)) // the byte count
            Entity(QString(), 0);
        return m_parts;
    }

private:
    // What ended a stretch of lines: a delimiter of the boundary at `level`
    // of the stack (its closing one when `close`), or the end (level -1).
    struct Stop {
        int level = -1;
        bool close = false;
    };

    bool Next(Line* line) { return m_file.ReadLine(line) && !m_file.HasTrailer(*line); }

    // The delimiter that `line` is, innermost boundary first: "--" and the
    // boundary, then "--" for the closing one, then blanks only.
    Stop Delimiter(const Line& line) const {
        if (line.First() != '-' || line.ContentLen() < 2 || line.p[1] != '-')
            return {};
        const qint64 len = line.ContentLen();
        for (int i = m_bounds.size() - 1; i >= 0; --i) {
            const QByteArray& b = m_bounds.at(i);
            if (len < 2 + b.size() || memcmp(line.p + 2, b.constData(), size_t(b.size())) != 0)
                continue;
            qint64 at = 2 + b.size();
            const bool close = len - at >= 2 && line.p[at] == '-' && line.p[at + 1] == '-';
            if (close)
                at += 2;
            while (at < len && (line.p[at] == ' ' || line.p[at] == '\t'))
                ++at;
            if (at == len)
                return {i, close};
        }
        return {};
    }

    // Passes over lines up to the next delimiter. `blankOnly` (when given)
    // says whether every line passed over was blank.
    Stop SkipToDelimiter(bool* blankOnly = nullptr) {
        Line line;
        bool blank = true;
        for (;;) {
            if (!blank || !blankOnly)
                m_file.SkipBodyLines(false);
            if (!Next(&line))
                break;
            const Stop s = Delimiter(line);
            if (s.level >= 0) {
                if (blankOnly)
                    *blankOnly = blank;
                return s;
            }
            blank = blank && line.IsBlank();
        }
        if (blankOnly)
            *blankOnly = blank;
        return {};
    }

    // One entity from its header block on; `section` is empty for the message.
    Stop Entity(const QString& section, int depth) {
        PartHeaders h;
        QByteArray field;
        Line line;
        for (;;) {
            if (!Next(&line))
                return {};
            const Stop s = Delimiter(line);
            if (s.level >= 0)
                return s; // a header block cut short: no body
            if (line.IsBlank())
                break;
            const char c = line.First();
            QByteArray bytes = line.Bytes();
            if (bytes.endsWith('\n'))
                bytes.chop(1);
            if ((c == ' ' || c == '\t') && !field.isEmpty()) {
                if (field.size() < kMaxField)
                    field += bytes;
            } else {
                TakeField(field, &h);
                field = bytes;
            }
            // The writer acts on the first such line of a block.
            if (c == 'X' && h.mark < 0 && line.StartsWith(kLengthHeader))
                h.mark = line.next;
        }
        TakeField(field, &h);
        const qint64 bodyStart = line.next;

        if (h.type.startsWith("multipart/") && !h.boundary.isEmpty() && depth < kMaxDepth) {
            m_bounds.append(h.boundary);
            const int level = m_bounds.size() - 1;
            Stop s = SkipToDelimiter(); // the preamble
            for (int n = 1; s.level == level && !s.close; ++n)
                s = Entity(section.isEmpty() ? QString::number(n)
                                             : section + QLatin1Char('.') + QString::number(n),
                           depth + 1);
            m_bounds.removeLast();
            return s.level == level ? SkipToDelimiter() : s; // the epilogue
        }

        bool blankOnly = true;
        const Stop s = SkipToDelimiter(&blankOnly);
        if (h.mark >= 0) {
            DetachedPart part;
            part.mark = h.mark;
            part.bodyStart = bodyStart;
            part.section = section.isEmpty() ? QStringLiteral("1") : section;
            part.removed = blankOnly;
            part.encoding = h.encoding;
            part.type = h.type;
            part.name = h.dispositionName.isEmpty() ? h.typeName : h.dispositionName;
            if (part.removed)
                part.file = AttachmentsFile(m_path, part.section);
            m_parts.append(part);
        }
        return s;
    }

    MessageFile& m_file;
    QString m_path;
    QVector<QByteArray> m_bounds;
    QVector<DetachedPart> m_parts;
};

} // namespace

QVector<DetachedPart> FindDetachedParts(MessageFile& file, const QString& messagePath) {
    return Walker(file, messagePath).Run();
}

QString AttachmentsFile(const QString& messagePath, const QString& section) {
    const QFileInfo message(messagePath);
    QString number = message.fileName();
    number.truncate(number.indexOf(QLatin1Char('.')));
    bool digits = !number.isEmpty();
    for (QChar c : number)
        digits = digits && c >= QLatin1Char('0') && c <= QLatin1Char('9');
    if (!digits)
        return QString();
    const QDir dir(QDir::cleanPath(message.path() + QStringLiteral("/../Attachments/") + number +
                                   QLatin1Char('/') + section));
    const QStringList files = dir.entryList(QDir::Files | QDir::Hidden, QDir::Name);
    for (const QString& f : files)
        if (f != QLatin1String(".DS_Store") && !f.startsWith(QLatin1String("._")))
            return dir.filePath(f);
    return QString();
}

QStringList PairedPartFiles(const QString& messagePath, const QStringList& candidates,
                            const QVector<qint64>& marks, const QVector<DetachedPart>& parts) {
    QStringList paired;
    // "<folder>/<N>." as the candidates hold it, then the section.
    QString stem = messagePath;
    stem.remove(QStringLiteral("partial.emlx"), Qt::CaseSensitive);
    const QLatin1String ending(".emlxpart");
    QHash<QString, QString> bySection;
    for (const QString& c : candidates) {
        const int at = c.lastIndexOf(stem);
        const QString section =
            at < 0 || !c.endsWith(ending)
                ? QString()
                : c.mid(at + stem.size(), c.size() - at - stem.size() - ending.size());
        static const QRegularExpression sectionName(QStringLiteral("^[0-9]+(\\.[0-9]+)*$"));
        if (!sectionName.match(section).hasMatch()) {
            // A name without a section: the files go in listing order.
            for (int k = 0; k < marks.size(); ++k)
                paired << (k < candidates.size() ? candidates.at(k) : QString());
            return paired;
        }
        if (!bySection.contains(section))
            bySection.insert(section, c);
    }
    for (qint64 mark : marks) {
        QString file;
        for (const DetachedPart& p : parts)
            if (p.mark == mark)
                file = bySection.value(p.section);
        paired << file;
    }
    return paired;
}

QString DisplayedFileName(const QString& file) {
    return QFileInfo(file).fileName().normalized(QString::NormalizationForm_C);
}

PartMarks FindPartMarks(MessageFile& file, const QString& messagePath,
                        const QStringList& partFiles) {
    PartMarks found;
    file.Seek(0);
    Line line;
    while (file.ReadLine(&line))
        if (line.First() == 'X' && line.StartsWith(kLengthHeader))
            found.marks.append(line.next);
    if (!found.marks.isEmpty())
        found.parts = FindDetachedParts(file, messagePath);
    found.files = PairedPartFiles(messagePath, emlx::PartFileCandidates(messagePath, partFiles),
                                  found.marks, found.parts);
    return found;
}

void RemovedParts::Walk() {
    if (m_walked)
        return;
    m_walked = true;
    MessageFile own;
    if (m_open)
        m_found = FindPartMarks(*m_open, m_path, m_partFiles);
    else if (own.Open(m_path))
        m_found = FindPartMarks(own, m_path, m_partFiles);
    else // the files in listing order, as without sections
        m_found.files = emlx::PartFileCandidates(m_path, m_partFiles);
}

const DetachedPart* RemovedParts::At(qint64 mark) {
    Walk();
    for (const DetachedPart& p : m_found.parts)
        if (p.mark == mark && p.removed)
            return &p;
    return nullptr;
}

QStringList RemovedParts::PartFiles() {
    Walk();
    return m_found.files;
}
