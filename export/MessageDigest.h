#pragma once
// A message reduced to what verification compares: its header block and the
// bytes of each leaf part, as 64-bit digests, read as lines in one pass. The
// same reading serves a message of an mbox file and one of the store, so the
// two differ only where the export changed the message.
//
// Lines are read with "\r\n" as "\n" and ">From " as "From " (the mbox
// escaping, on both sides alike). Beside each digest of what is there, a
// second one holds what the line-by-line copy of the default export makes of
// the same lines (text up to a NUL byte, lines with a trailer mark left out,
// 8-bit text through Latin-1): when the package holds that, the difference
// is the copy's known change, not a fault.

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

#include <functional>

namespace verify {

// A 64-bit digest of bytes that arrive in pieces (four lanes of multiply
// and rotate over 32-byte stripes, then a mix of the lanes and the length):
// fast enough to read a whole store at memory speed.
class StreamHash {
public:
    StreamHash() { Reset(); }
    void Reset();
    void Add(const char* data, qint64 size);
    quint64 Value() const;

private:
    quint64 m_lanes[4];
    unsigned char m_pending[32];
    int m_pendingSize = 0;
    quint64 m_total = 0;
};

// How a leaf part's body reaches the digests.
enum class BodySource {
    Inline,      // in the message
    PartFile,    // Mail's .emlxpart file (the encoded body)
    DecodedFile, // Mail's decoded copy under Attachments
    NotInStore,  // Mail kept it apart and the store holds it in neither form
};

struct LeafDigest {
    QString section;      // IMAP body section: "1", "2", "2.1" ...
    QByteArray encoding;  // Content-Transfer-Encoding, lower case
    QString name;         // file name from its headers, for reports
    quint64 raw = 0;      // its lines, without the line breaks at its end
    bool rawKnown = true; // false: `raw` was not worked out (Digests::Copied)
    quint64 copied = 0;   // the same after the default copy's line changes
    quint64 decoded = 0;  // its bytes decoded, trailing line breaks left out (second look)
    quint64 decodedCopied = 0;
    bool eightBit = false; // a line with a byte of 0x80 or more
    bool nul = false;      // a line with a NUL byte
    bool marker = false;   // a line with a trailer mark
    bool detached = false; // its headers hold "X-Apple-Content-Length: "
    BodySource source = BodySource::Inline;
};

struct MessageDigest {
    // Finds the message again whatever was done to its bytes: its header
    // block with each run of 8-bit bytes as one "?", lines cut at NUL bytes
    // and lines with a trailer mark left out.
    quint64 key = 0;
    // The header block, without Status, X-Status and
    // "X-Apple-Content-Length: " lines (the export may add or drop them).
    quint64 header = 0;
    quint64 headerCopied = 0;
    bool headerEightBit = false, headerNul = false, headerMarker = false;
    QVector<LeafDigest> leaves;
    bool empty = true;      // nothing but line breaks
    QStringList unreadable; // files of detached bodies that could not be read, and why
    // Where a package's message is: its mbox file and byte range.
    QString file;
    qint64 begin = 0, end = 0;
};

// What a reading works out beside the digests of what is there.
enum class Digests {
    // Nothing more: a package's messages are what was written.
    Raw,
    // What the default copy makes of the lines too, header and parts.
    All,
    // The copy's header only: a store read for a package that kept every
    // byte, where any change of a part is a fault.
    KeptBytes,
    // The copy's header, and each part's bytes up to the first line the
    // copy changes, then only the copy's (the bytes' digest is then not
    // known: the package was made by the copy, and a part that matches
    // neither way takes a second look with All).
    Copied,
};

// Reads one message as lines, in order; Finish gives the digest.
class MessageDigester {
public:
    // `decode`: also digest every leaf's decoded bytes (slower; for a second
    // look at a message that differs). `digests`: see above; without the
    // copy's, they equal the raw ones. `decodeBase64`: digest the decoded
    // bytes of base64 leaves (a package's parts that were put back from
    // Mail's decoded copies are compared with those copies so, without a
    // second reading).
    explicit MessageDigester(bool decode, Digests digests = Digests::All,
                             bool decodeBase64 = false);
    ~MessageDigester();
    MessageDigester(const MessageDigester&) = delete;
    MessageDigester& operator=(const MessageDigester&) = delete;

    // Changes `decodeBase64` for the next message (before its first Add).
    void SetDecodeBase64(bool decodeBase64);
    // The next piece of the message: lines, or parts of lines, in order.
    void Add(const char* data, qint64 size);
    // Where the body of a part that Mail kept apart is (its headers hold
    // "X-Apple-Content-Length: "), by the part's section: an .emlxpart file
    // (PartFile, read as the part's encoded lines), Mail's decoded copy
    // (DecodedFile) or nowhere (NotInStore). The part's own (empty) body
    // lines are then passed over. Without it, such bodies are read as they
    // are in the message.
    struct DetachedBody {
        BodySource source = BodySource::Inline;
        QString path;
    };
    using DetachedBodies = std::function<DetachedBody(const QString& section)>;
    void SetDetachedBodies(DetachedBodies find);

    // The message ends. `lastLineTrailer`: the byte after the message
    // begins a trailer mark on the same line, so the copy loses that line.
    MessageDigest Finish(bool lastLineTrailer = false);

private:
    struct State;
    State* d;
};

} // namespace verify
