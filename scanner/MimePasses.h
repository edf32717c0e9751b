#pragma once
// The per-message passes over a MessageFile. Each is a plain function that
// returns what it found; AnalyseMessageFile copies the results into the
// MailItem. Positions are file offsets; "lengths" of lines are UTF-16 units.

#include "scanner/MessageFile.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QVector>

// One multipart boundary and the delimiter lines found for it.
struct BoundaryLevel {
    QString boundary;
    QVector<qint64> positions; // position right after each delimiter line
    QVector<int> lengths;      // length of each delimiter line
    bool closed = false;       // the last entry is the closing line (or the trailer line)
};

// Boundary declarations (at most three, in file order) and, for each, its
// delimiter lines. One forward walk from the start of the file.
QVector<BoundaryLevel> ScanBoundaries(MessageFile& file);

// Text bodies of a message.
struct TextBodies {
    bool hasPlain = false, hasHtml = false, hasEncoding = false;
    QByteArray plainCharset, htmlCharset, encoding; // Latin-1
    QByteArray plainEncoding, htmlEncoding;
    qint64 plainStart = 0, plainEnd = 0, htmlStart = 0, htmlEnd = 0;
};

// Charset, transfer encoding and range of the first text/plain and the
// first text/html part in the file that are not attachments (no file name,
// no attachment disposition). `encoding` is the HTML part's when there is
// one, else the plain part's.
TextBodies FindTextBodies(MessageFile& file, const QVector<BoundaryLevel>& levels);
// For a message without any boundary: the top-level body when the message is
// text/plain, text/html or has no Content-Type at all.
TextBodies FindSinglePartBody(MessageFile& file);

// Attachment of a message.
struct FoundAttachment {
    qint64 start = 0;
    qint64 end = 0;
    QString name;
    QString partFile;     // detached part file, or empty
    bool decoded = false; // partFile is a decoded file under Attachments, not an .emlxpart
    bool missing = false; // a detached part whose body the store does not hold
};

// Attachments of all levels, innermost level first. For a partial message
// (path contains ".partial.emlx") detached parts are paired with partFiles;
// a part left out of the message without an .emlxpart file takes Mail's
// decoded file under Attachments (scanner/DetachedParts.h), and such a part
// that the rules above do not list comes last, in file order.
QVector<FoundAttachment> FindAttachments(MessageFile& file, const QVector<BoundaryLevel>& levels,
                                         const QString& messagePath,
                                         const QList<QString>& partFiles);

// The header fields shown for a message, as read (before date formatting).
struct HeaderFields {
    QString from, to, subject, date, priority;
    bool dateFound = false;
};
HeaderFields ReadHeaderFields(MessageFile& file);

class QTextCodec;
// Splits an encoded word after its "=?" into charset and encoding (each up
// to the next "?") and returns the rest.
QString SplitEncodedWord(const QString& word, QString* charset, QString* encoding);
// Codec for a charset name of a mail header; ks_c_5601-1987 is read as
// cp949. Null when the name is empty or unknown.
QTextCodec* CodecForCharset(const QString& charset);

// Decodes the encoded words of a header text starting at its first "=?".
// lowerCaseEncodings also accepts "q" ("b" is always accepted).
QString DecodeEncodedWords(const QString& text, bool lowerCaseEncodings);
// Reformats a Date value as "dd Mon yyyy hh:mm:ss AM"; empty when no known
// layout matches.
QByteArray FormatMailDate(const QString& dateValue);
// Number of the first character of an X-Priority value (0 when no digit).
int PriorityValue(const QString& priorityValue);
