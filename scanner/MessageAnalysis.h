#pragma once
#include <QString>
#include <QStringList>

struct MailItem;
class MessageFile;

enum class Analysis {
    Message,    // the item is filled
    Unreadable, // the file cannot be opened or read
    NotAMessage // the file holds no message (scanner/Discovery.h: WhyNotAMessage)
};

// Runs the per-message passes over one message file (MIME structure, text
// bodies, attachments and partial parts, then the header fields and Mail's
// flags) and fills the item. `partFiles` are the store's .emlxpart files.
// When it is not a message, `why` says so. `file` is the reader to use (its
// buffers are used again for the next file).
Analysis AnalyseMessageFile(MessageFile& file, const QString& path, const QStringList& partFiles,
                            MailItem* item, QString* why = nullptr);
