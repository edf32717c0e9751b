#pragma once
// What the preview reads back from a message file: the text of a body range
// and the decoded attachments. QtCore only, so it is tested without a window.

#include <QByteArray>
#include <QString>
#include <QStringList>

struct MailItem;

// The text of the body range [start, end) of a message file, decoded by its
// transfer encoding (null: none) and charset. Empty when the file cannot be
// read.
QString DecodeBodyRange(const QString& path, qint64 start, qint64 end, const QByteArray& encoding,
                        const QByteArray& charset);

// A file name made from a name found in mail: no folder separators, no
// control characters, never "." or "..".
QString SafeFileName(const QString& name);

// File names for attachments of these names, in list order: the position
// followed by the safe name ("0photo.jpeg"), at most `limit` bytes on disk
// (shortened before a short extension), never two alike even where case is
// ignored ("1"+"0a.txt" and "10"+"a.txt": the later becomes "10a (2).txt").
QStringList AttachmentFileNames(const QStringList& names, int limit);

// Decodes every attachment of the message into `folder` (made private when
// missing), each into a new file (mode 0600) named by AttachmentFileNames.
// Returns the file names, in list order.
QStringList WriteAttachments(const MailItem& item, const QString& folder);
