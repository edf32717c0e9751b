#pragma once
#include <QString>
#include <QStringList>

struct MailItem;
class MessageFile;

// Runs the per-message passes over one message file (MIME structure, text
// bodies, attachments and partial parts, then the header fields and Mail's
// flags) and fills the item. `partFiles` are the store's .emlxpart files.
// Returns false when the file cannot be opened, with the reason in `error`.
// `file` is the reader to use (its buffers are used again for the next file).
bool AnalyseMessageFile(MessageFile& file, const QString& path, const QStringList& partFiles,
                        MailItem* item, QString* error = nullptr);
