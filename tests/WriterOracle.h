#pragma once
// The mbox writer's rules applied, line by line, to the lines of the
// scanner's reader of whole lines: the oracle the chunked writer is checked
// against, by its tests and its fuzz target.
#include "scanner/MessageFile.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <algorithm>

namespace WriterOracle {

const QByteArray kSep = "From - &&&&&@@@####\n";
const QByteArray kXml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
const QByteArray kDoctype = "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\">";

// The writer's rules applied to the lines of the scanner's reader: the oracle
// for the chunked implementation. `count` is Qt's reading of the first line;
// `converted` tells whether a copied line had a byte of 0x80 or more.
inline QByteArray Reference(const QString& path, bool partial, const QStringList& parts,
                            bool keepBytes, quint64* count, bool* converted) {
    QByteArray out = kSep;
    *converted = false;
    MessageFile file;
    emlx::Line line;
    *count = 0;
    if (!file.Open(path) || !file.ReadLine(&line))
        return out;
    const quint64 n = *count = line.Text().trimmed().toULongLong();
    if (keepBytes && !partial) {
        // Every byte: the count of them after the first line, or without a
        // count up to the first line with a trailer mark; "From " lines
        // escaped and a final line feed.
        const qint64 from = line.next;
        qint64 end =
            n > 0 ? qMin<qint64>(file.Size(), from + qint64(qMin<quint64>(n, quint64(file.Size()))))
                  : file.Size();
        if (n == 0)
            while (file.ReadLine(&line))
                if (emlx::HasMark(file.Data() + line.start, line.next - line.start)) {
                    end = line.start;
                    break;
                }
        const QByteArray message = QByteArray(file.Data() + from, int(end - from));
        for (const QByteArray& l : message.split('\n'))
            out += (l.startsWith("From ") ? ">" : "") + l + "\n";
        out.chop(1); // the split's last piece has no line feed of its own
        if (!out.endsWith('\n'))
            out += '\n';
        return out;
    }
    int partIndex = 0;
    while (file.ReadLine(&line)) {
        QString l = line.Text();
        const bool escape = l.startsWith("From ");
        if (escape)
            l.prepend('>');
        if (l.isEmpty() && !keepBytes)
            continue;
        if (l.contains(kXml) || l.contains("<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST ")) {
            if (quint64(line.next) > n)
                break;
            continue;
        }
        if (partial && l.startsWith("X-Apple-Content-Length: ")) {
            bool blank = false;
            while (!blank && file.ReadLine(&line))
                blank = line.Text() == "\n";
            if (partIndex < parts.size()) {
                out += "\n";
                MessageFile part;
                emlx::Line partLine;
                if (part.Open(parts[partIndex]))
                    while (part.ReadLine(&partLine))
                        out += (partLine.Text().startsWith("From ") ? ">" : "") + partLine.Bytes();
                out += "\n";
            }
            ++partIndex;
            if (blank)
                out += "\n";
            continue;
        }
        if (keepBytes) {
            out += (escape ? ">" : "") + QByteArray(line.p, int(line.rawLen)) +
                   (line.rawNl ? "\n" : "");
            continue;
        }
        const QByteArray text = line.Bytes();
        *converted =
            *converted || std::any_of(text.begin(), text.end(), [](char c) { return c & 0x80; });
        out += l.toLatin1();
    }
    return out;
}

} // namespace WriterOracle
