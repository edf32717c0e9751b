#include "cli/ScanOutput.h"

#include "scanner/FolderTreeSink.h"
#include "scanner/Records.h"

#include <QMap>
#include <QVector>

void AppendJsonString(QString& out, const QString& text) {
    static const char hex[] = "0123456789abcdef";
    auto escapeUnit = [&out](ushort u) {
        out += QLatin1String("\\u");
        for (int shift = 12; shift >= 0; shift -= 4)
            out += QLatin1Char(hex[(u >> shift) & 0xf]);
    };
    out += QLatin1Char('"');
    const int n = text.size();
    for (int i = 0; i < n; ++i) {
        const QChar c = text.at(i);
        const ushort u = c.unicode();
        switch (u) {
        case '"':
            out += QLatin1String("\\\"");
            break;
        case '\\':
            out += QLatin1String("\\\\");
            break;
        case '\n':
            out += QLatin1String("\\n");
            break;
        case '\r':
            out += QLatin1String("\\r");
            break;
        case '\t':
            out += QLatin1String("\\t");
            break;
        case '\b':
            out += QLatin1String("\\b");
            break;
        case '\f':
            out += QLatin1String("\\f");
            break;
        default:
            if (u < 0x20) {
                escapeUnit(u);
            } else if (c.isHighSurrogate() && i + 1 < n && text.at(i + 1).isLowSurrogate()) {
                out += c;
                out += text.at(++i);
            } else if (c.isSurrogate()) {
                escapeUnit(u);
            } else {
                out += c;
            }
        }
    }
    out += QLatin1Char('"');
}

namespace {

void AppendUtf16Field(QString& out, const char* key, const char* buffer, quint32 size) {
    out += QLatin1String(key);
    if (buffer)
        AppendJsonString(out, Utf16Text(buffer, size));
    else
        out += QLatin1String("null");
}

void AppendLatin1Field(QString& out, const char* key, const char* text) {
    out += QLatin1String(key);
    if (text)
        AppendJsonString(out, QString::fromLatin1(text));
    else
        out += QLatin1String("null");
}

void AppendNumber(QString& out, const char* key, qint64 value) {
    out += QLatin1String(key);
    out += QString::number(value);
}

void AppendMessage(QString& out, const MailItem* m) {
    out += QLatin1String("{\"number\": ");
    out += QString::number(m->ullNumber);
    AppendUtf16Field(out, ", \"path\": ", m->pPath, m->ulPathSize);
    AppendUtf16Field(out, ", \"from\": ", m->pFrom, m->ulFromSize);
    AppendUtf16Field(out, ", \"to\": ", m->pTo, m->ulToSize);
    AppendUtf16Field(out, ", \"subject\": ", m->pSubject, m->ulSubjectSize);
    out += QLatin1String(", \"date\": ");
    if (m->pDate)
        AppendJsonString(out, QString::fromLatin1(m->pDate, int(m->ulDateSize)));
    else
        out += QLatin1String("null");
    AppendNumber(out, ", \"priority\": ", m->iPriority);
    AppendNumber(out, ", \"htmlStart\": ", m->llHtmlStart);
    AppendNumber(out, ", \"htmlEnd\": ", m->llHtmlEnd);
    AppendLatin1Field(out, ", \"htmlCharset\": ", m->pHtmlCharset);
    AppendNumber(out, ", \"plainStart\": ", m->llPlainStart);
    AppendNumber(out, ", \"plainEnd\": ", m->llPlainEnd);
    AppendLatin1Field(out, ", \"plainCharset\": ", m->pPlainCharset);
    AppendLatin1Field(out, ", \"encoding\": ", m->pTransferEncoding);
    out += QLatin1String(", \"attachments\": [");
    for (const AttachmentEntry* a = m->pAttachHead; a; a = a->pNext) {
        if (a != m->pAttachHead)
            out += QLatin1String(", ");
        AppendUtf16Field(out, "{\"name\": ", a->pName, a->ulNameSize);
        AppendNumber(out, ", \"start\": ", a->llStart);
        AppendNumber(out, ", \"end\": ", a->llEnd);
        AppendUtf16Field(out, ", \"part\": ", a->pPartFile, a->ulPartFileSize);
        // Mail's decoded copy under Attachments, not an encoded .emlxpart.
        if (a->ucDecodedPart)
            out += QLatin1String(", \"decoded\": true");
        out += QLatin1Char('}');
    }
    out += QLatin1String("]}");
}

} // namespace

void WriteScanJson(QTextStream& out, const HeadlessFolderSink& sink) {
    out << "{\"folders\": [";
    QString chunk;
    for (const FldrAtrib* f = StartFldrAtrib; f; f = f->pNext) {
        chunk.clear();
        if (f != StartFldrAtrib)
            chunk += QLatin1Char(',');
        chunk += QLatin1String("\n  {\"id\": ");
        chunk += QString::number(f->ullId);
        chunk += QLatin1String(", \"parent\": ");
        chunk += QString::number(f->ullParentId);
        chunk += QLatin1String(", \"name\": ");
        AppendJsonString(chunk, sink.FolderName(f->ullId));
        chunk += QLatin1String(", \"messages\": [");
        out << chunk;
        // One message at a time, so that large stores never build the whole
        // document in memory.
        for (const MailItem* m = f->pFirstMail; m; m = m->pNext) {
            chunk = m == f->pFirstMail ? QStringLiteral("\n    ") : QStringLiteral(",\n    ");
            AppendMessage(chunk, m);
            out << chunk;
        }
        out << (f->pFirstMail ? "\n  ]}" : "]}");
    }
    out << (StartFldrAtrib ? "\n]}\n" : "]}\n");
    out.flush();
}

void WriteScanTree(QTextStream& out, const HeadlessFolderSink& sink) {
    // Children in the order of the folder list; a parent always comes first.
    QMap<quint64, QVector<const FldrAtrib*>> children;
    quint64 folders = 0;
    quint64 messages = 0;
    for (const FldrAtrib* f = StartFldrAtrib; f; f = f->pNext) {
        if (f == StartFldrAtrib)
            continue;
        children[f->ullParentId].append(f);
        ++folders;
        messages += f->ullMsgCount;
    }
    out << "Mailbox\n";
    struct Level {
        const QVector<const FldrAtrib*>* list;
        int next;
    };
    QVector<Level> stack;
    if (StartFldrAtrib && children.contains(StartFldrAtrib->ullId))
        stack.append({&children[StartFldrAtrib->ullId], 0});
    while (!stack.isEmpty()) {
        Level& level = stack.last();
        if (level.next >= level.list->size()) {
            stack.removeLast();
            continue;
        }
        const FldrAtrib* f = level.list->at(level.next++);
        out << QString(2 * stack.size(), QLatin1Char(' ')) << sink.FolderName(f->ullId) << " ("
            << f->ullMsgCount << ")\n";
        auto it = children.constFind(f->ullId);
        if (it != children.constEnd())
            stack.append({&it.value(), 0});
    }
    out << messages << (messages == 1 ? " message in " : " messages in ") << folders
        << (folders == 1 ? " folder\n" : " folders\n");
    out.flush();
}
