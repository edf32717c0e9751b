// The digest the verification compares, on any bytes as a message: read in
// one piece and in pieces cut where the input says, it must be the same. The
// first byte picks the cuts, whether the parts are decoded, what is worked
// out and whether a trailer begins on the last line.
#include "export/MessageDigest.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

// Reads the message in pieces of 1 to `step` bytes (their sizes taken from
// the bytes), or whole when `step` is 0.
verify::MessageDigest Digest(const char* data, size_t size, bool decode, verify::Digests digests,
                             unsigned step, bool lastLineTrailer) {
    verify::MessageDigester digester(decode, digests);
    for (size_t at = 0; at < size;) {
        const size_t n = step == 0 ? size - at : 1 + static_cast<unsigned char>(data[at]) % step;
        const size_t take = n < size - at ? n : size - at;
        digester.Add(data + at, qint64(take));
        at += take;
    }
    return digester.Finish(lastLineTrailer);
}

bool Same(const verify::MessageDigest& a, const verify::MessageDigest& b) {
    if (a.key != b.key || a.header != b.header || a.headerCopied != b.headerCopied ||
        a.empty != b.empty || a.leaves.size() != b.leaves.size())
        return false;
    for (int i = 0; i < a.leaves.size(); ++i) {
        const verify::LeafDigest& x = a.leaves[i];
        const verify::LeafDigest& y = b.leaves[i];
        if (x.section != y.section || x.raw != y.raw || x.rawKnown != y.rawKnown ||
            x.copied != y.copied || x.decoded != y.decoded || x.decodedCopied != y.decodedCopied ||
            x.eightBit != y.eightBit || x.nul != y.nul || x.marker != y.marker)
            return false;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    const bool decode = data[0] & 1;
    const bool lastLineTrailer = data[0] & 2;
    const verify::Digests digests = data[0] & 4 ? verify::Digests::Copied : verify::Digests::All;
    const unsigned step = 1 + (data[0] >> 3) % 31;
    const char* bytes = reinterpret_cast<const char*>(data) + 1;
    const verify::MessageDigest whole =
        Digest(bytes, size - 1, decode, digests, 0, lastLineTrailer);
    if (!Same(whole, Digest(bytes, size - 1, decode, digests, step, lastLineTrailer))) {
        fprintf(stderr, "the digest depends on how the message is cut into pieces\n");
        abort();
    }
    return 0;
}
