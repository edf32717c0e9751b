// The mbox writer on any bytes as a message file, against the line-by-line
// oracle: the first byte chooses partial or not, bytes kept or converted,
// status lines, and the read size; a partial message's last quarter is also
// its detached part. A difference is a failure.
#include "export/MboxWriter.h"
#include "fuzz/FuzzSupport.h"
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
    options.withStatus = mode & 4; // not modelled by the oracle: checked for safety only
    const int chunk = kChunks[(mode >> 3) % 6];

    const char* bytes = reinterpret_cast<const char*>(data);
    const QByteArray file(bytes, int(size));
    const QString path = fuzz::WriteInput(QStringLiteral("1.partial.emlx"), bytes, qint64(size));
    QStringList parts;
    if (partial)
        parts << fuzz::WriteInput(QStringLiteral("1.2.emlxpart"), bytes + size * 3 / 4,
                                  qint64(size - size * 3 / 4));

    QBuffer in, out;
    in.setData(file);
    in.open(QIODevice::ReadOnly);
    out.open(QIODevice::WriteOnly);
    const MboxWriter::CopyResult result =
        MboxWriter::WriteMessage(in, out, partial, parts, options, chunk);
    if (options.withStatus)
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
