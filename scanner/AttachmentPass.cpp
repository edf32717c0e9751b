// Attachments of a message: the parts of every boundary level whose headers
// name an image, application or video body, with their body ranges, and the
// detached .emlxpart files of a partial message.
#include "scanner/DetachedParts.h"
#include "scanner/MimePasses.h"
#include "scanner/ScaningThread.h"

#include <QSet>

using emlx::Line;

namespace {

// Texts that a line is tested for and that are then cut off; their lengths
// come from the texts themselves. The blank and tab spellings of a
// continuation line are of one length.
const QLatin1String kQuotedName("; name=\""), kEncodedName("; name=\"=?");
const QLatin1String kBlankQuotedName(" name=\""), kTabQuotedName("\tname=\"");
const QLatin1String kBlankName(" name="), kTabName("\tname=");
const QLatin1String kOpenParameters(";\n");

struct PartHeader {
    bool typeSeen = false;
    bool nameFound = false;
    bool dispositionSeen = false;
    bool filenameSeen = false;
    bool otherContentId = false;
    QString subtype;
    QString name;
    qint64 detachedMark = -1; // position after "X-Apple-Content-Length: "
    qint64 bodyStart = 0;
};

// Text from index from up to and including the line's last double quote;
// without a closing quote, the rest of the line without its line feed.
QString ThroughClosingQuote(const QString& t, int from) {
    const int close = t.lastIndexOf(QLatin1Char('"'));
    if (close >= from)
        return t.mid(from, close - from + 1);
    QString v = t.mid(from);
    if (v.endsWith(QLatin1Char('\n')))
        v.chop(1);
    return v;
}

// Text from index from up to, not including, the line's last double quote.
QString UpToClosingQuote(const QString& t, int from) {
    QString v = ThroughClosingQuote(t, from);
    if (v.endsWith(QLatin1Char('"')))
        v.chop(1);
    return v;
}

void ReadTypeLine(const QString& t, int prefixLength, PartHeader* h) {
    const int quotedName = t.indexOf(kQuotedName);
    const int openParams = t.indexOf(kOpenParameters);
    if (quotedName >= 0) {
        h->subtype = t.mid(prefixLength, quotedName - prefixLength);
    } else if (openParams >= 0) {
        h->subtype = t.mid(prefixLength, openParams - prefixLength);
    } else {
        h->subtype = t.mid(prefixLength);
        if (h->subtype.endsWith(QLatin1Char('\n')))
            h->subtype.chop(1);
    }
    const int encoded = t.indexOf(kEncodedName);
    if (encoded >= 0) {
        // The encoded word starts with its "=?".
        h->name =
            ScaningThread::DecodeAttName(ThroughClosingQuote(t, encoded + kQuotedName.size()));
        h->nameFound = true;
    } else if (quotedName >= 0) {
        h->name = UpToClosingQuote(t, quotedName + kQuotedName.size());
        h->nameFound = true;
    }
    h->typeSeen = true;
}

// One header line of a part; false when the header scan stops here.
bool ReadPartHeaderLine(const Line& line, bool partial, PartHeader* h) {
    const char c = line.First();
    if (c == ' ' || c == '\t') {
        if (line.StartsWith(" filename=") || line.StartsWith("\tfilename=")) {
            h->filenameSeen = true;
            return true;
        }
        if (line.StartsWith("\tname=\"=?") || line.StartsWith(" name=\"=?")) {
            h->name = ScaningThread::DecodeAttName(
                ThroughClosingQuote(line.Text(), kBlankQuotedName.size()));
            h->nameFound = true;
            return true;
        }
        if (line.StartsWith(kTabQuotedName.data()) || line.StartsWith(kBlankQuotedName.data())) {
            h->name = UpToClosingQuote(line.Text(), kBlankQuotedName.size());
            h->nameFound = true;
            return true;
        }
        if (line.StartsWith(kTabName.data()) || line.StartsWith(kBlankName.data())) {
            QString v = line.Text().mid(kBlankName.size());
            if (v.endsWith(kOpenParameters))
                v.chop(kOpenParameters.size());
            else if (v.endsWith(QLatin1Char('\n')))
                v.chop(1);
            h->name = v;
            h->nameFound = true;
            return true;
        }
    } else if (c == 'C' || c == 'c') {
        static const char* const types[] = {"Content-Type: image/", "Content-Type: application/",
                                            "Content-Type: video/"};
        for (const char* type : types) {
            if (line.StartsWith(type, true)) {
                ReadTypeLine(line.Text(), int(strlen(type)), h);
                return true;
            }
        }
        if (line.StartsWith("Content-Disposition: ", true)) {
            h->dispositionSeen = true;
            if (line.Contains("; filename=\""))
                h->filenameSeen = true;
            return true;
        }
        if (line.StartsWith("Content-ID: ", true)) {
            if (!line.Equals("Content-ID: html-body\n", true) &&
                !line.Equals("Content-ID: text-body\n", true))
                h->otherContentId = true;
            return true;
        }
    } else if (partial && (c == 'X' || c == 'x') &&
               line.StartsWith("X-Apple-Content-Length: ", true)) {
        h->detachedMark = line.next;
        return true;
    }
    return h->typeSeen || (h->dispositionSeen && h->otherContentId);
}

// Header block of the part starting at pos. False when the scan stops
// before the blank line or meets the end of the file.
bool ReadPartHeader(MessageFile& file, qint64 pos, bool partial, PartHeader* h) {
    file.Seek(pos);
    Line line;
    while (file.ReadLine(&line)) {
        if (line.StartsWith("Content-Transfer-Encoding: BASE64\n", true)) {
            if (!file.ReadLine(&line))
                return false;
        }
        if (line.IsBlank()) {
            h->bodyStart = line.next;
            return true;
        }
        if (!ReadPartHeaderLine(line, partial, h))
            return false;
    }
    return false;
}

} // namespace

QVector<FoundAttachment> FindAttachments(MessageFile& file, const QVector<BoundaryLevel>& levels,
                                         const QString& messagePath,
                                         const QList<QString>& partFiles) {
    QVector<FoundAttachment> out;
    const bool partial = messagePath.contains(QStringLiteral(".partial.emlx"));
    // The .emlxpart file of each detached part; parts without one may have
    // Mail's decoded copy under Attachments.
    PartMarks found;
    if (partial)
        found = FindPartMarks(file, messagePath, partFiles);
    const QVector<qint64>& marks = found.marks;
    const QVector<DetachedPart>& detached = found.parts;
    const QStringList& paired = found.files;
    auto pairedFile = [&](qint64 mark) {
        const int index = marks.indexOf(mark);
        return index >= 0 ? paired.at(index) : QString();
    };
    QSet<qint64> listed; // marks of the removed parts listed with their decoded file

    bool haveCount = false;
    qint64 count = 0;
    for (int li = levels.size() - 1; li >= 0; --li) {
        const BoundaryLevel& level = levels[li];
        const int n = level.positions.size();
        for (int k = 0; k < n; ++k) {
            PartHeader h;
            if (!ReadPartHeader(file, level.positions[k], partial, &h))
                continue;
            if (!h.typeSeen ||
                !((h.filenameSeen && h.nameFound && h.dispositionSeen) || h.otherContentId))
                continue;
            FoundAttachment a;
            a.start = h.bodyStart;
            if (k + 1 < n) {
                a.end = level.positions[k + 1] - level.lengths[k + 1];
            } else {
                // The last recorded part ends at the message's byte count
                // minus the body start: a length, kept in this form.
                if (!haveCount) {
                    count = file.FirstLineCount();
                    haveCount = true;
                }
                a.end = emlx::SatSub(count, h.bodyStart);
            }
            a.name = h.name;
            if (!a.name.contains(QLatin1Char('.')))
                a.name += QLatin1Char('.') + h.subtype;
            if (partial && h.detachedMark >= 0)
                a.partFile = pairedFile(h.detachedMark);
            for (const DetachedPart& d : detached) {
                if (a.partFile.isEmpty() && d.mark == h.detachedMark && !d.file.isEmpty()) {
                    a.partFile = d.file;
                    a.decoded = true;
                    listed.insert(d.mark);
                }
            }
            // Mail kept the body apart and the store holds it in neither form.
            a.missing = partial && h.detachedMark >= 0 && a.partFile.isEmpty();
            out.append(a);
        }
    }
    // Removed parts that the rules above leave out (text parts, parts
    // without a name, nesting deeper than three boundaries) are listed too
    // when Mail has their file: the export restores them.
    for (const DetachedPart& d : detached) {
        if (d.file.isEmpty() || listed.contains(d.mark) || !pairedFile(d.mark).isEmpty())
            continue;
        FoundAttachment a;
        a.start = a.end = d.bodyStart;
        a.name = d.name.isEmpty() ? DisplayedFileName(d.file) : d.name;
        a.partFile = d.file;
        a.decoded = true;
        out.append(a);
    }
    return out;
}
