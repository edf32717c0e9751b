// The per-message analysis: one mapping of the message file, then the passes
// for boundaries, text bodies, attachments and header fields. Only positions
// and short header texts end up in the record.
#include "scanner/MessageAnalysis.h"

#include "scanner/Discovery.h"
#include "scanner/MessageFile.h"
#include "scanner/MimePasses.h"
#include "scanner/Store.h"
#include "scanner/TrailerFlags.h"

#include <QFileInfo>

namespace {

// A text that was found, even when empty, is not null.
QByteArray Found(const QByteArray& text) {
    return text.isNull() ? QByteArray("", 0) : text;
}

} // namespace

Analysis AnalyseMessageFile(MessageFile& file, const QString& path, const QStringList& partFiles,
                            MailItem* item, QString* why) {
    if (!file.Open(path)) {
        if (why)
            *why = file.ErrorString();
        return Analysis::Unreadable;
    }
    const QString junk = WhyNotAMessage(path, file.Data(), file.Size());
    if (!junk.isEmpty()) {
        if (why)
            *why = junk;
        file.Close();
        return Analysis::NotAMessage;
    }

    const QVector<BoundaryLevel> levels = ScanBoundaries(file);
    const TextBodies bodies =
        levels.isEmpty() ? FindSinglePartBody(file) : FindTextBodies(file, levels);
    if (bodies.hasPlain) {
        item->plainCharset = Found(bodies.plainCharset);
        item->llPlainStart = bodies.plainStart;
        item->llPlainEnd = bodies.plainEnd;
    }
    if (bodies.hasHtml) {
        item->htmlCharset = Found(bodies.htmlCharset);
        item->llHtmlStart = bodies.htmlStart;
        item->llHtmlEnd = bodies.htmlEnd;
    }
    if (bodies.hasEncoding)
        item->transferEncoding = Found(bodies.encoding);

    const QVector<FoundAttachment> attachments = FindAttachments(file, levels, path, partFiles);
    item->attachments.reserve(attachments.size());
    item->size = file.Size();
    item->SetPath(path);
    for (const FoundAttachment& a : attachments) {
        item->attachments.append(
            {a.start, a.end, a.name,
             a.partFile.isEmpty() ? QString() : item->PartFileRelative(a.partFile), a.decoded,
             a.missing});
        if (!a.partFile.isEmpty())
            item->size += QFileInfo(a.partFile).size();
    }

    const HeaderFields h = ReadHeaderFields(file);
    item->to = h.to;
    item->from = h.from;
    item->subject = h.subject;
    // A store keeps these for every message: no room to spare in them.
    for (QString* text : {&item->to, &item->from, &item->subject})
        text->squeeze();
    for (AttachmentEntry& a : item->attachments) {
        a.name.squeeze();
        a.partFile.squeeze();
    }
    if (h.dateFound)
        item->date = Found(FormatMailDate(h.date));
    if (!h.priority.isEmpty())
        item->iPriority = PriorityValue(h.priority);

    // Mail's property list starts where the message ends by its byte count.
    file.Seek(0);
    emlx::Line first;
    if (file.ReadLine(&first)) {
        const qint64 trailer = emlx::SatAdd(first.next, file.FirstLineCount());
        if (trailer < file.Size()) {
            const char* plist = file.Data() + trailer;
            item->flags = emlx::TrailerFlags(plist, file.Size() - trailer);
            item->dateReceived = qint64(
                emlx::TrailerInteger(plist, file.Size() - trailer, "date-received").value_or(0));
        }
    }
    file.Close();
    return Analysis::Message;
}
