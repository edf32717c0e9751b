#pragma once
// Pure helpers of the scan's file discovery: what a line of the message file
// list says about the message's folder and number.

#include <QString>

// Marks the lines of Apple Mail's built-in news feed folder; such messages
// are skipped.
extern const QString kRssFeedMarker; // "/RSS/Apple Hot News.rssmbox/"

// Folder path of a message file, e.g. "Mailboxes/Work/Projects" for
// ".../V2/Mailboxes/Work.mbox/Projects.mbox/<id>/Data/Messages/1234.emlx".
// Under the user's Mail folder (defaultMailPath) the version folder "/V<n>"
// is cut; elsewhere the store folder (storePath) is removed from the path.
// Everything from the last ".mbox" on is dropped and the other ".mbox"
// endings are removed. Searches are case-sensitive.
QString FolderPathForMessage(const QString& line, const QString& defaultMailPath,
                             const QString& storePath);

// File name of a list line up to its first "." ("1234" for both
// ".../1234.emlx" and ".../1234.partial.emlx").
QString MessageNumberText(const QString& line);

// The number text as an unsigned decimal number; 0 when it is not one.
quint64 MessageNumberValue(const QString& numberText);
