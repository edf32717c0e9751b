#pragma once
// Parts of a partial message that Apple Mail kept apart.
//
// Mail leaves the body of a large part out of N.partial.emlx: the part keeps
// its header lines, the last of them usually "X-Apple-Content-Length: "
// with the part's approximate encoded size, then the blank line, then an
// empty body (the next line is the next delimiter). Older stores keep the
// encoded body in an N.<k>.emlxpart file beside the message (paired by
// emlx::PartFileCandidates); today's stores keep the decoded bytes in
//
//   <folder of Messages>/../Attachments/<N>/<section>/<file name>
//
// where <section> is the part's IMAP body section ("2", "2.3"). This file
// finds those parts and their decoded files.

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

class MessageFile;

// A part whose header block holds an "X-Apple-Content-Length: " line.
struct DetachedPart {
    qint64 mark = -1;     // file position right after that line
    qint64 bodyStart = 0; // file position after the part's blank line
    QString section;      // IMAP body section: "1", "2", "2.3"
    bool removed = false; // its body is empty (blank lines only): Mail kept it apart
    QByteArray encoding;  // Content-Transfer-Encoding, lower case, or empty
    QByteArray type;      // Content-Type without parameters, lower case, or empty
    QString name;         // file name from its headers (RFC 2231 and 2047 decoded), or empty
    QString file;         // Mail's decoded copy of a removed part, or empty
};

// Every part of the message (mapped in `file`) that has an
// "X-Apple-Content-Length: " header, in file order, with the decoded file
// of each removed one looked up for the message at `messagePath`. The walk
// follows the multipart structure to any depth and stops at the trailer.
QVector<DetachedPart> FindDetachedParts(MessageFile& file, const QString& messagePath);

// Mail's decoded copy of the part `section` of the message at
// `messagePath`: the one regular file in its section folder (".DS_Store"
// and "._" files left aside; of several, the first by name), or empty.
QString AttachmentsFile(const QString& messagePath, const QString& section);

// The .emlxpart file of each "X-Apple-Content-Length: " line of a partial
// message, in the order of those lines (`marks`: the file positions right
// after them), or an empty entry where the store holds none. Mail names
// these files by the section of their part ("12.2.emlxpart",
// "12.2.3.emlxpart"), which `parts` (FindDetachedParts) gives for each line
// of a part's header block; the files are paired by it. When a candidate's
// name holds no section, the k-th line takes the k-th candidate in the
// order of `candidates` (emlx::PartFileCandidates).
QStringList PairedPartFiles(const QString& messagePath, const QStringList& candidates,
                            const QVector<qint64>& marks, const QVector<DetachedPart>& parts);

// The file's name as it is shown: Mail stores names decomposed (NFD).
QString DisplayedFileName(const QString& file);

// The positions right after each "X-Apple-Content-Length: " line of the
// message, its detached parts (FindDetachedParts) and the .emlxpart file of
// each such line (PairedPartFiles).
struct PartMarks {
    QVector<qint64> marks;
    QVector<DetachedPart> parts;
    QStringList files;
};
PartMarks FindPartMarks(MessageFile& file, const QString& messagePath,
                        const QStringList& partFiles);

// The parts Mail kept apart from one message, walked on first use, for a
// reader that meets the "X-Apple-Content-Length: " lines one after another.
class RemovedParts {
public:
    // `open`, when given, is the message file already open (it is walked
    // from its start); otherwise the file is opened on first use.
    RemovedParts(const QString& messagePath, const QStringList& partFiles,
                 MessageFile* open = nullptr)
        : m_path(messagePath), m_partFiles(partFiles), m_open(open) {}
    // The removed part whose "X-Apple-Content-Length: " line ends at file
    // position `mark`, or null.
    const DetachedPart* At(qint64 mark);
    // The .emlxpart file of each "X-Apple-Content-Length: " line, in order
    // (an empty entry where none belongs to it).
    QStringList PartFiles();

private:
    void Walk();
    QString m_path;
    QStringList m_partFiles;
    MessageFile* m_open;
    bool m_walked = false;
    PartMarks m_found;
};
