// The per-message analysis (boundaries, text bodies, attachments, partial
// parts, header fields) on any bytes as a message file. An odd first byte
// makes it a partial message whose last quarter is also its detached part,
// and walks its removed parts.
#include "fuzz/FuzzSupport.h"
#include "scanner/DetachedParts.h"
#include "scanner/MessageAnalysis.h"
#include "scanner/MessageFile.h"
#include "scanner/Store.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const char* bytes = reinterpret_cast<const char*>(data);
    const bool partial = size > 0 && (data[0] & 1);
    const QString path = fuzz::WriteInput(
        partial ? QStringLiteral("1.partial.emlx") : QStringLiteral("1.emlx"), bytes, qint64(size));
    QStringList parts;
    if (partial)
        parts << fuzz::WriteInput(QStringLiteral("1.2.emlxpart"), bytes + size * 3 / 4,
                                  qint64(size - size * 3 / 4));
    MessageFile file;
    MailItem item;
    AnalyseMessageFile(file, path, parts, &item);
    // The walk over the parts Mail kept apart, which the analysis only runs
    // when the part files fall short.
    if (partial && file.Open(path))
        FindDetachedParts(file, path);
    return 0;
}
