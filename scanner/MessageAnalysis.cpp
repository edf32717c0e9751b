// The per-message analysis: one mapping of the message file, then the passes
// for boundaries, text bodies, attachments and header fields. Only positions
// and short header texts end up in the record.
#include "scanner/MessageAnalysis.h"

#include "scanner/Globals.h"
#include "scanner/MessageFile.h"
#include "scanner/MimePasses.h"
#include "scanner/Records.h"

bool AnalyseMessageFile(const QString& path, MailItem* item, QString* error) {
    MessageFile file;
    if (!file.Open(path)) {
        if (error)
            *error = file.ErrorString();
        return false;
    }

    const QVector<BoundaryLevel> levels = ScanBoundaries(file);
    const TextBodies bodies =
        levels.isEmpty() ? FindSinglePartBody(file) : FindTextBodies(file, levels);
    if (bodies.hasPlain) {
        SetBytes(&item->pPlainCharset, bodies.plainCharset);
        item->llPlainStart = bodies.plainStart;
        item->llPlainEnd = bodies.plainEnd;
    }
    if (bodies.hasHtml) {
        SetBytes(&item->pHtmlCharset, bodies.htmlCharset);
        item->llHtmlStart = bodies.htmlStart;
        item->llHtmlEnd = bodies.htmlEnd;
    }
    if (bodies.hasEncoding)
        SetBytes(&item->pTransferEncoding, bodies.encoding);

    const QVector<FoundAttachment> attachments =
        FindAttachments(file, levels, path, listOfPathOfEmlxPart);
    for (const FoundAttachment& a : attachments) {
        AttachmentEntry* entry = NewAttachment();
        entry->llStart = a.start;
        entry->llEnd = a.end;
        SetUtf16(&entry->pName, &entry->ulNameSize, a.name);
        if (!a.partFile.isEmpty())
            SetUtf16(&entry->pPartFile, &entry->ulPartFileSize, a.partFile);
        entry->ucDecodedPart = a.decoded ? 1 : 0;
        AppendAttachment(item, entry);
    }

    const HeaderFields h = ReadHeaderFields(file);
    if (!h.to.isEmpty())
        SetUtf16(&item->pTo, &item->ulToSize, h.to);
    if (!h.from.isEmpty())
        SetUtf16(&item->pFrom, &item->ulFromSize, h.from);
    if (!h.subject.isEmpty())
        SetUtf16(&item->pSubject, &item->ulSubjectSize, h.subject);
    if (h.dateFound) {
        const QByteArray date = FormatMailDate(h.date);
        SetBytes(&item->pDate, date);
        item->ulDateSize = quint32(date.size());
    }
    if (!h.priority.isEmpty())
        item->iPriority = PriorityValue(h.priority);
    return true;
}
