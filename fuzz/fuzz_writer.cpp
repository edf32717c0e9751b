// The mbox writer on any bytes as a message file, against the line-by-line
// oracle: the first byte chooses partial or not, bytes kept or converted,
// status lines, Mail's decoded part files, and the read size; a partial
// message's last quarter is also its detached part (as an .emlxpart file, or
// as the decoded file of sections 1 and 2 under Attachments). A difference
// from the oracle is a failure; the oracle knows neither status lines,
// decoded files nor detached parts when every byte is kept, so those runs
// are checked for safety only.
#include "export/MboxWriter.h"
#include "fuzz/FuzzSupport.h"
#include "scanner/DetachedParts.h"
#include "tests/WriterOracle.h"

#include <QBuffer>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const int kChunks[] = {64, 65, 100, 500, 4096, MboxWriter::kDefaultChunk};
    const uint8_t mode = size > 0 ? data[0] : 0;
    const bool partial = mode & 1;
    RunOptions options;
    options.keepBytes = mode & 2;
    options.withStatus = mode & 4;
    const int chunk = kChunks[(mode >> 3) % 6];
    const bool decoded = partial && (mode & 64);

    const char* bytes = reinterpret_cast<const char*>(data);
    const QByteArray file(bytes, int(size));
    QDir(fuzz::Folder()).mkpath(QStringLiteral("Messages"));
    const QString path =
        fuzz::WriteInput(QStringLiteral("Messages/1.partial.emlx"), bytes, qint64(size));
    QStringList parts;
    if (decoded) {
        for (const char* section : {"1", "2"}) {
            QDir(fuzz::Folder()).mkpath(QStringLiteral("Attachments/1/") + QLatin1String(section));
            fuzz::WriteInput(QStringLiteral("Attachments/1/%1/a b.bin").arg(section),
                             bytes + size * 3 / 4, qint64(size - size * 3 / 4));
        }
    } else if (partial)
        parts << fuzz::WriteInput(QStringLiteral("1.2.emlxpart"), bytes + size * 3 / 4,
                                  qint64(size - size * 3 / 4));

    QBuffer in, out;
    in.setData(file);
    in.open(QIODevice::ReadOnly);
    out.open(QIODevice::WriteOnly);
    RemovedParts removed(path, parts);
    const MboxWriter::CopyResult result = MboxWriter::WriteMessage(
        in, out, partial, parts, options, chunk, decoded ? &removed : nullptr);
    if (options.withStatus || decoded || (options.keepBytes && partial))
        return 0;
    quint64 count;
    bool converted;
    const QByteArray expected =
        WriterOracle::Reference(path, partial, parts, options.keepBytes, &count, &converted);
    if (out.data() != expected || result.converted != converted) {
        fprintf(stderr, "writer and oracle differ (mode %d, chunk %d)\n", mode, chunk);
        abort();
    }
    return 0;
}
