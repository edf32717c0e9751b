#pragma once
// Copies Apple Mail message files into mbox text.
//
// A message file is read as lines by the rules of scanner/EmlxLines.h, each
// line's text decoded as UTF-8. The copy works in bounded chunks, so a line of
// any length (a file without a single "\n") takes no more memory than one
// chunk; a line longer than a chunk is read twice (once to decide, once to
// copy) and gives the same bytes as a line held whole.

#include "scanner/RunResult.h"

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QStringList>

class QIODevice;
class RemovedParts;

namespace MboxWriter {

constexpr int kDefaultChunk = 64 * 1024;
constexpr int kMinimumChunk = 64;

// The line that starts every message in the mbox file (20 bytes).
inline QByteArray Separator() {
    return QByteArrayLiteral("From - &&&&&@@@####\n");
}

// How a copy ended: whole, or stopped at a detached part file that could
// not be read (what came before it is written); and what became of the
// parts that Mail kept apart.
struct CopyResult {
    bool complete = true;
    QString failedPart;                     // the part file
    QString reason;                         // why it could not be read
    bool converted = false;                 // the Latin-1 conversion changed a copied line
    quint64 partsFromEmlxpart = 0;          // detached parts put back from .emlxpart files
    quint64 partsFromAttachments = 0;       // ... and from Mail's decoded files
    QStringList missingParts;               // names of removed parts found in neither form
    QList<RunResult::Skipped> skippedParts; // part files left out (keep-going)
    // What the line-by-line copy loses (never when keeping every byte):
    quint32 droppedLines = 0; // lines of the message dropped at a trailer mark
    quint32 cutLines = 0;     // lines cut short at a NUL byte
};

// Writes one message to mbox: the separator, then the message with every
// line that begins with "From " escaped by a ">". `message` is read from its
// current position (its start).
//
// By default the message is copied line by line, as the lines after the
// byte count line up to the trailer: each line's text (up to a NUL byte) is
// written through Latin-1, and a line with a trailer mark inside the message
// is dropped (what is lost so is counted). With `keepBytes` the message's
// bytes are copied as they are, exactly the byte count of them, and end with
// a line feed.
//
// When `partial` is set, each "X-Apple-Content-Length: " header stands for a
// body Mail kept apart: the k-th such header takes the file `partFiles[k]`
// (.emlxpart files paired with their sections, scanner/DetachedParts.h); a
// header without one takes the part that `removed` knows, written back whole
// from Mail's decoded file: its header lines without
// "X-Apple-Content-Length: ", the blank line, the file encoded in the part's
// transfer encoding (export/PartEncoding.h) and a line feed. `chunk` is the
// read size (tests use small ones).
//
// Options: `withStatus` puts Status and X-Status lines, made from the
// trailer's flags, at the end of the header block; `keepGoing` leaves out a
// part file that cannot be read instead of ending there.
CopyResult WriteMessage(QIODevice& message, QIODevice& mbox, bool partial,
                        const QStringList& partFiles, const RunOptions& options = {},
                        int chunk = kDefaultChunk, RemovedParts* removed = nullptr);

// Open files by their names (unbuffered; the writer buffers itself). Only a
// regular file is opened for reading; `reason` says why one was not.
bool OpenForReading(QFile& file, const QString& path, QString* reason);
// Creates the file when it is missing and appends to it; `reason` says why
// it could not be opened.
bool OpenForAppend(QFile& file, const QString& path, QString* reason);

} // namespace MboxWriter
