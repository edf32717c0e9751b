#include "ui/PreviewDecoding.h"
#include "scanner/Globals.h"
#include "scanner/MimePasses.h"
#include "scanner/Records.h"
#include "scanner/ScaningThread.h"

#include <QDir>
#include <QFile>
#include <QTextCodec>

#include <cstdio>

namespace {

QTextCodec* BodyCodec(const char* charset) {
    QTextCodec* codec = CodecForCharset(QString::fromLatin1(charset ? charset : ""));
    return codec ? codec : QTextCodec::codecForName("UTF-8");
}

// Lines of [start, end): a line ending in "=" loses it and runs on into the
// next one (a soft line break); other lines keep their line feeds.
QByteArray JoinedLines(QFile& file, qint64 start, qint64 end) {
    QByteArray joined;
    if (!file.seek(start))
        return joined;
    const QByteArray softBreak = QByteArrayLiteral("=\n");
    while (!file.atEnd() && file.pos() < end) {
        QByteArray line = file.readLine();
        if (line.isEmpty())
            break;
        if (line.endsWith(softBreak))
            line.chop(softBreak.size());
        else if (line.endsWith('=') && file.atEnd())
            line.chop(1);
        joined += line;
    }
    return joined;
}

// Appends decoded base64 to a file as it is read, so an attachment of any
// size needs only a small buffer.
class Base64Sink {
public:
    explicit Base64Sink(FILE* out) : m_out(out) {}
    void add(const QByteArray& text) {
        for (char c : text) {
            if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                c == '+' || c == '/' || c == '=')
                m_pending += c;
        }
        if (m_pending.size() >= 65536) {
            const int whole = m_pending.size() - m_pending.size() % 4;
            write(m_pending.left(whole));
            m_pending.remove(0, whole);
        }
    }
    void finish() {
        write(m_pending);
        m_pending.clear();
    }

private:
    void write(const QByteArray& chunk) {
        const QByteArray bytes = QByteArray::fromBase64(chunk);
        if (!bytes.isEmpty())
            fwrite(bytes.constData(), 1, size_t(bytes.size()), m_out);
    }
    FILE* m_out;
    QByteArray m_pending;
};

} // namespace

QString DecodeBodyRange(const QString& path, qint64 start, qint64 end, const char* encoding,
                        const char* charset) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text) || end <= start)
        return QString();
    QTextCodec* codec = BodyCodec(charset);
    if (!encoding)
        return codec->toUnicode(JoinedLines(file, start, end));
    const QByteArray name = QByteArray(encoding).trimmed().toLower();
    if (name == "quoted-printable")
        return codec->toUnicode(
            ScaningThread::QDecode(QString::fromLatin1(JoinedLines(file, start, end))));
    if (name == "base64") {
        if (!file.seek(start))
            return QString();
        return codec->toUnicode(QByteArray::fromBase64(file.read(end - start)));
    }
    // 7bit, 8bit, binary or anything else: UTF-8 text as it stands.
    const QString text = QString::fromUtf8(JoinedLines(file, start, end));
    return codec->toUnicode(text.toUtf8());
}

QString SafeFileName(const QString& name) {
    QString safe;
    safe.reserve(name.size());
    for (QChar c : name)
        safe += (c == QLatin1Char('/') || c == QLatin1Char('\\') || c.unicode() < 0x20 ||
                 c.unicode() == 0x7f)
                    ? QLatin1Char('_')
                    : c;
    if (safe.isEmpty() || safe == QLatin1String(".") || safe == QLatin1String(".."))
        safe = QLatin1Char('_') + safe;
    return safe;
}

QString AttachmentFolder() {
    return TempDir() + QStringLiteral("/sys_mail_att");
}

QStringList WriteAttachments(const MailItem* item, const QString& folder) {
    QStringList names;
    QDir().mkpath(folder);
    int position = 0;
    for (const AttachmentEntry* a = item->pAttachHead; a; a = a->pNext, ++position) {
        const QString fileName =
            QString::number(position) + SafeFileName(Utf16Text(a->pName, a->ulNameSize));
        names << fileName;
        FILE* out =
            fopen(QFile::encodeName(folder + QLatin1Char('/') + fileName).constData(), "a+");
        if (!out)
            continue;
        Base64Sink sink(out);
        if (a->pPartFile) {
            // A detached part: its whole file is the body.
            QFile part(Utf16Text(a->pPartFile, a->ulPartFileSize));
            if (part.open(QIODevice::ReadOnly | QIODevice::Text))
                while (!part.atEnd())
                    sink.add(part.readLine(65536));
        } else {
            QFile message(Utf16Text(item->pPath, item->ulPathSize));
            if (message.open(QIODevice::ReadOnly | QIODevice::Text) && message.seek(a->llStart)) {
                // The first line is always read; the end of a level's last part
                // is a length, not a position, and may lie before the start.
                QByteArray chunk;
                do {
                    chunk = message.readLine(65536);
                    sink.add(chunk);
                } while (!chunk.isEmpty() && !chunk.endsWith('\n'));
                while (!message.atEnd() && message.pos() < a->llEnd)
                    sink.add(message.readLine(65536));
            }
        }
        sink.finish();
        fclose(out);
    }
    return names;
}
