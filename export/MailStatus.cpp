#include "export/MailStatus.h"

#include <QIODevice>
#include <QXmlStreamReader>

namespace MailStatus {
namespace {

constexpr quint64 kRead = 1u << 0;
constexpr quint64 kDeleted = 1u << 1;
constexpr quint64 kAnswered = 1u << 2;
constexpr quint64 kFlagged = 1u << 4;
constexpr qint64 kLongestTrailer = 64 * 1024;

bool StartsWithNoCase(const char* text, int size, const char* prefix, int len) {
    return size >= len && qstrnicmp(text, prefix, uint(len)) == 0;
}

} // namespace

std::optional<quint64> FlagsOf(const QByteArray& trailer) {
    // Only the keys of the outermost dictionary count (depth 2: plist, dict).
    // The reading starts at the plist element: the prolog before it is not
    // always well-formed (a public document type without a system id).
    const int plist = trailer.indexOf("<plist");
    QXmlStreamReader xml(plist > 0 ? trailer.mid(plist) : trailer);
    int depth = 0;
    bool flagsKey = false;
    while (!xml.atEnd()) {
        const QXmlStreamReader::TokenType token = xml.readNext();
        if (token == QXmlStreamReader::EndElement) {
            --depth;
            continue;
        }
        if (token != QXmlStreamReader::StartElement)
            continue;
        ++depth;
        if (depth != 3)
            continue;
        if (xml.name() == QLatin1String("key")) {
            flagsKey = xml.readElementText() == QLatin1String("flags");
            --depth; // readElementText() consumed the end element
            continue;
        }
        if (!flagsKey)
            continue;
        if (xml.name() != QLatin1String("integer"))
            return std::nullopt;
        const QString text = xml.readElementText().trimmed();
        bool ok = false;
        // Flags above 2^63 may be written as a negative number.
        const quint64 value = text.startsWith(QLatin1Char('-')) ? quint64(text.toLongLong(&ok))
                                                                : text.toULongLong(&ok);
        return ok ? std::optional<quint64>(value) : std::nullopt;
    }
    return std::nullopt;
}

std::optional<quint64> ReadFlags(QIODevice& file, qint64 at) {
    const qint64 back = file.pos();
    std::optional<quint64> flags;
    if (at >= 0 && file.seek(at))
        flags = FlagsOf(file.read(kLongestTrailer));
    file.seek(back);
    return flags;
}

QByteArray HeaderLines(quint64 flags) {
    QByteArray lines = flags & kRead ? "Status: RO\n" : "Status: O\n";
    QByteArray letters;
    if (flags & kAnswered)
        letters += 'A';
    if (flags & kFlagged)
        letters += 'F';
    if (flags & kDeleted)
        letters += 'D';
    if (!letters.isEmpty())
        lines += "X-Status: " + letters + "\n";
    return lines;
}

bool IsStatusHeader(const char* text, int size) {
    return StartsWithNoCase(text, size, "Status:", 7) ||
           StartsWithNoCase(text, size, "X-Status:", 9);
}

} // namespace MailStatus
