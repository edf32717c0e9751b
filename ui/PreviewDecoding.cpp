#include "ui/PreviewDecoding.h"
#include "scanner/FileAccess.h"
#include "scanner/MimePasses.h"
#include "scanner/ScaningThread.h"
#include "scanner/Store.h"

#include <QFile>
#include <QSet>
#include <QTextCodec>

#include <cstdio>
#include <unistd.h>

namespace {

// Opens a message or part file for reading in text mode (or as bytes). Only
// a regular file is read, and the open never waits (a FIFO would block for
// good).
bool OpenStoreFile(QFile& file, const QString& path, bool text = true) {
    QString reason;
    const int fd = pellomar::OpenRegularFile(path, &reason);
    if (fd < 0)
        return false;
    if (file.open(fd, text ? QIODevice::ReadOnly | QIODevice::Text : QIODevice::ReadOnly,
                  QFileDevice::AutoCloseHandle))
        return true;
    ::close(fd);
    return false;
}

// prefix + stem + tail, with the stem cut short so that the name takes at
// most `limit` bytes on disk.
QString FitName(const QString& prefix, const QString& stem, const QString& tail, int limit) {
    auto bytes = [&](int n) { return QFile::encodeName(prefix + stem.left(n) + tail).size(); };
    if (bytes(stem.size()) <= limit)
        return prefix + stem + tail;
    int lo = 0, hi = stem.size(); // bytes(lo) fits (or nothing does), bytes(hi) does not
    while (hi - lo > 1) {
        const int mid = (lo + hi) / 2;
        (bytes(mid) <= limit ? lo : hi) = mid;
    }
    if (lo > 0 && stem.at(lo - 1).isHighSurrogate())
        --lo;
    return prefix + stem.left(lo) + tail;
}

QTextCodec* BodyCodec(const QByteArray& charset) {
    QTextCodec* codec = CodecForCharset(QString::fromLatin1(charset));
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

QString DecodeBodyRange(const QString& path, qint64 start, qint64 end, const QByteArray& encoding,
                        const QByteArray& charset) {
    QFile file;
    if (end <= start || !OpenStoreFile(file, path))
        return QString();
    QTextCodec* codec = BodyCodec(charset);
    if (encoding.isNull())
        return codec->toUnicode(JoinedLines(file, start, end));
    const QByteArray name = encoding.trimmed().toLower();
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

QStringList AttachmentFileNames(const QStringList& names, int limit) {
    QStringList files;
    QSet<QString> taken; // folded: some file systems ignore case
    for (int i = 0; i < names.size(); ++i) {
        const QString safe = SafeFileName(names.at(i));
        // A short extension is kept when the name has to be shortened.
        const int dot = safe.lastIndexOf(QLatin1Char('.'));
        const bool hasExtension = dot > 0 && safe.size() - dot <= 16;
        const QString stem = hasExtension ? safe.left(dot) : safe;
        const QString extension = hasExtension ? safe.mid(dot) : QString();
        // "1" + "0a.txt" and "10" + "a.txt" would be one file: the later
        // one gets a number of its own.
        QString file;
        for (int copy = 1;; ++copy) {
            const QString mark = copy == 1 ? QString() : QStringLiteral(" (%1)").arg(copy);
            file = FitName(QString::number(i), stem, mark + extension, limit);
            if (!taken.contains(file.toCaseFolded()))
                break;
        }
        taken.insert(file.toCaseFolded());
        files << file;
    }
    return files;
}

QStringList WriteAttachments(const MailItem& item, const QString& folder) {
    QStringList shown;
    for (const AttachmentEntry& a : item.attachments)
        shown << a.name;
    const bool made = !folder.isEmpty() && pellomar::MakePrivateFolder(folder);
    const long nameMax = made ? pathconf(QFile::encodeName(folder).constData(), _PC_NAME_MAX) : -1;
    const QStringList names = AttachmentFileNames(shown, nameMax > 0 ? int(nameMax) : 255);
    for (int position = 0; made && position < item.attachments.size(); ++position) {
        const AttachmentEntry& a = item.attachments.at(position);
        const int fd = pellomar::CreatePrivateFile(folder + QLatin1Char('/') + names.at(position));
        FILE* out = fd < 0 ? nullptr : fdopen(fd, "w");
        if (!out) {
            if (fd >= 0)
                ::close(fd);
            continue;
        }
        Base64Sink sink(out);
        const QString partFile = item.PartFilePath(a);
        if (!partFile.isEmpty() && a.decoded) {
            // Mail's decoded copy: copied as it is.
            QFile part;
            if (OpenStoreFile(part, partFile, false)) {
                QByteArray chunk;
                while (!(chunk = part.read(65536)).isEmpty())
                    fwrite(chunk.constData(), 1, size_t(chunk.size()), out);
            }
        } else if (!partFile.isEmpty()) {
            // A detached part: its whole file is the body.
            QFile part;
            if (OpenStoreFile(part, partFile))
                while (!part.atEnd())
                    sink.add(part.readLine(65536));
        } else {
            QFile message;
            if (OpenStoreFile(message, item.Path()) && message.seek(a.llStart)) {
                // The first line is always read; the end of a level's last part
                // is a length, not a position, and may lie before the start.
                QByteArray chunk;
                do {
                    chunk = message.readLine(65536);
                    sink.add(chunk);
                } while (!chunk.isEmpty() && !chunk.endsWith('\n'));
                while (!message.atEnd() && message.pos() < a.llEnd)
                    sink.add(message.readLine(65536));
            }
        }
        sink.finish();
        fclose(out);
    }
    return names;
}
