#include "cli/ScanOutput.h"

#include "scanner/Store.h"

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
    const QChar* units = text.constData();
    for (int i = 0; i < n; ++i) {
        // Runs that need no escape go in whole.
        int run = i;
        while (run < n && units[run].unicode() >= 0x20 && units[run] != QLatin1Char('"') &&
               units[run] != QLatin1Char('\\') && !units[run].isSurrogate())
            ++run;
        if (run > i) {
            out.append(units + i, run - i);
            i = run - 1;
            continue;
        }
        const QChar c = units[i];
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

// A text, or null when it was not found.
void AppendText(QString& out, const char* key, const QString& text) {
    out += QLatin1String(key);
    if (!text.isEmpty())
        AppendJsonString(out, text);
    else
        out += QLatin1String("null");
}

void AppendLatin1(QString& out, const char* key, const QByteArray& text) {
    out += QLatin1String(key);
    if (!text.isNull())
        AppendJsonString(out, QString::fromLatin1(text));
    else
        out += QLatin1String("null");
}

void AppendNumber(QString& out, const char* key, qint64 value) {
    out += QLatin1String(key);
    out += QString::number(value);
}

void AppendMessage(QString& out, const MailItem& m) {
    out += QLatin1String("{\"number\": ");
    out += QString::number(m.ullNumber);
    AppendText(out, ", \"path\": ", m.Path());
    AppendText(out, ", \"from\": ", m.from);
    AppendText(out, ", \"to\": ", m.to);
    AppendText(out, ", \"subject\": ", m.subject);
    AppendLatin1(out, ", \"date\": ", m.date);
    AppendNumber(out, ", \"priority\": ", m.iPriority);
    AppendNumber(out, ", \"htmlStart\": ", m.llHtmlStart);
    AppendNumber(out, ", \"htmlEnd\": ", m.llHtmlEnd);
    AppendLatin1(out, ", \"htmlCharset\": ", m.htmlCharset);
    AppendNumber(out, ", \"plainStart\": ", m.llPlainStart);
    AppendNumber(out, ", \"plainEnd\": ", m.llPlainEnd);
    AppendLatin1(out, ", \"plainCharset\": ", m.plainCharset);
    AppendLatin1(out, ", \"encoding\": ", m.transferEncoding);
    out += QLatin1String(", \"attachments\": [");
    for (int i = 0; i < m.attachments.size(); ++i) {
        const AttachmentEntry& a = m.attachments.at(i);
        if (i > 0)
            out += QLatin1String(", ");
        AppendText(out, "{\"name\": ", a.name);
        AppendNumber(out, ", \"start\": ", a.llStart);
        AppendNumber(out, ", \"end\": ", a.llEnd);
        AppendText(out, ", \"part\": ", m.PartFilePath(a));
        // Mail's decoded copy under Attachments, not an encoded .emlxpart.
        if (a.decoded)
            out += QLatin1String(", \"decoded\": true");
        out += QLatin1Char('}');
    }
    out += QLatin1String("]}");
}

} // namespace

void WriteScanJson(QTextStream& out, const Store& store) {
    out << "{\"folders\": [";
    QString chunk;
    bool first = true;
    for (const FldrAtrib& f : store.Folders()) {
        chunk.clear();
        if (!first)
            chunk += QLatin1Char(',');
        first = false;
        chunk += QLatin1String("\n  {\"id\": ");
        chunk += QString::number(f.ullId);
        chunk += QLatin1String(", \"parent\": ");
        chunk += QString::number(f.ullParentId);
        chunk += QLatin1String(", \"name\": ");
        AppendJsonString(chunk, f.name);
        chunk += QLatin1String(", \"displayName\": ");
        AppendJsonString(chunk, f.displayName);
        chunk += QLatin1String(", \"messages\": [");
        out << chunk;
        // One message at a time, so that large stores never build the whole
        // document in memory.
        for (size_t i = 0; i < f.messages.size(); ++i) {
            chunk = i == 0 ? QStringLiteral("\n    ") : QStringLiteral(",\n    ");
            AppendMessage(chunk, f.messages[i]);
            out << chunk;
        }
        out << (f.messages.empty() ? "]}" : "\n  ]}");
    }
    out << (store.IsEmpty() ? "]}\n" : "\n]}\n");
    out.flush();
}

void WriteScanTree(QTextStream& out, const Store& store) {
    quint64 folders = store.Folders().empty() ? 0 : store.Folders().size() - 1;
    out << "Mailbox\n";
    // Depth first, children in the order they were made.
    struct Level {
        const QVector<quint64>* children;
        int next;
    };
    QVector<Level> stack;
    if (const FldrAtrib* root = store.StartFldrAtrib())
        stack.append({&root->children, 0});
    while (!stack.isEmpty()) {
        Level& level = stack.last();
        if (level.next >= level.children->size()) {
            stack.removeLast();
            continue;
        }
        const FldrAtrib* f = store.Folder(level.children->at(level.next++));
        out << QString(2 * stack.size(), QLatin1Char(' ')) << f->displayName << " ("
            << f->MsgCount() << ")\n";
        if (!f->children.isEmpty())
            stack.append({&f->children, 0});
    }
    const quint64 messages = store.MessageCount();
    out << messages << (messages == 1 ? " message in " : " messages in ") << folders
        << (folders == 1 ? " folder\n" : " folders\n");
    out.flush();
}
