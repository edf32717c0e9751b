#pragma once
// What the preview reads back from a message file: the text of a body range
// and the decoded attachments. QtCore only, so it is tested without a window.

#include <QString>
#include <QStringList>

struct MailItem;

// The text of the body range [start, end) of a message file, decoded by its
// transfer encoding (null: none) and charset. Empty when the file cannot be
// read.
QString DecodeBodyRange(const QString& path, qint64 start, qint64 end, const char* encoding,
                        const char* charset);

// A file name made from a name found in mail: no folder separators, no
// control characters, never "." or "..".
QString SafeFileName(const QString& name);

// Folder that holds the decoded attachments of the message shown.
QString AttachmentFolder();

// Decodes every attachment of the message into `folder`, each named by its
// position in the list followed by its safe name ("0photo.jpeg"), appending
// to what is there. Returns the file names written, in list order.
QStringList WriteAttachments(const MailItem* item, const QString& folder);
