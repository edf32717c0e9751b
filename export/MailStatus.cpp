#include "export/MailStatus.h"
#include "scanner/TrailerFlags.h"

#include <QIODevice>

namespace MailStatus {
namespace {

using emlx::kAnswered;
using emlx::kDeleted;
using emlx::kFlagged;
using emlx::kRead;

bool StartsWithNoCase(const char* text, int size, const char* prefix, int len) {
    return size >= len && qstrnicmp(text, prefix, uint(len)) == 0;
}

} // namespace

std::optional<quint64> ReadFlags(QIODevice& file, qint64 at) {
    const qint64 back = file.pos();
    std::optional<quint64> flags;
    if (at >= 0 && file.seek(at))
        flags = emlx::TrailerFlags(file.read(emlx::kLongestTrailer));
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
