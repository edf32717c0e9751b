#include "scanner/TrailerFlags.h"

#include <QXmlStreamReader>

#include <cstring>

namespace emlx {
namespace {

std::optional<quint64> IntegerValue(const QString& text) {
    bool ok = false;
    const QString t = text.trimmed();
    const quint64 value =
        t.startsWith(QLatin1Char('-')) ? quint64(t.toLongLong(&ok)) : t.toULongLong(&ok);
    return ok ? std::optional<quint64>(value) : std::nullopt;
}

const char* Find(const char* from, const char* end, const char* text) {
    return static_cast<const char*>(memmem(from, size_t(end - from), text, strlen(text)));
}

// Mail writes its trailer one way: the first dictionary holds a flat list of
// keys and plain values. When "<key>NAME</key>" comes before any other
// "<dict>" than the first and is followed by an integer, that is the answer.
// When NAME is nowhere in the text and nothing could spell it in pieces (an
// entity, a comment, a CDATA section), there is no such key. Anything else
// is left to the XML reader.
std::optional<std::optional<quint64>> QuickInteger(const char* data, qint64 size,
                                                   const char* name) {
    const char* end = data + size;
    const QByteArray keyElement = "<key>" + QByteArray(name) + "</key>";
    const char* key = Find(data, end, keyElement.constData());
    if (!key) {
        if (!Find(data, end, name) && !memchr(data, '&', size_t(size)) &&
            !Find(data, end, "<!--") && !Find(data, end, "<![CDATA["))
            return std::optional<quint64>();
        return std::nullopt;
    }
    const char* dict = Find(data, key, "<dict>");
    if (!dict || Find(dict + 6, key, "<dict>") || Find(dict + 6, key, "</dict>"))
        return std::nullopt;
    const char* p = key + keyElement.size();
    while (p < end && (*p == ' ' || *p == '\t' || *p == '\n' || *p == '\r'))
        ++p;
    if (end - p < 9 || memcmp(p, "<integer>", 9) != 0)
        return std::nullopt;
    p += 9;
    const char* close = Find(p, end, "</integer>");
    if (!close || close - p > 32)
        return std::nullopt;
    return IntegerValue(QString::fromLatin1(p, int(close - p)));
}

} // namespace

std::optional<quint64> TrailerInteger(const char* data, qint64 size, const char* name) {
    size = qBound<qint64>(0, size, kLongestTrailer);
    if (const auto quick = QuickInteger(data, size, name))
        return *quick;
    // Only the keys of the outermost dictionary count (depth 2: plist, dict).
    // The reading starts at the plist element: the prolog before it is not
    // always well-formed (a public document type without a system id).
    const QByteArray trailer = QByteArray::fromRawData(data, int(size));
    const int plist = trailer.indexOf("<plist");
    QXmlStreamReader xml(plist > 0 ? trailer.mid(plist) : QByteArray(data, int(size)));
    int depth = 0;
    bool ourKey = false;
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
            ourKey = xml.readElementText() == QLatin1String(name);
            --depth; // readElementText() consumed the end element
            continue;
        }
        if (!ourKey)
            continue;
        if (xml.name() != QLatin1String("integer"))
            return std::nullopt;
        return IntegerValue(xml.readElementText());
    }
    return std::nullopt;
}

} // namespace emlx
