#pragma once
// Discovery: the message files and detached part files of a mail store,
// and what a message file's path says about its folder and number.

#include "scanner/Store.h"

#include <QString>
#include <QStringList>
#include <QVector>

// Marks the lines of Apple Mail's built-in news feed folder; such messages
// are skipped.
extern const QString kRssFeedMarker; // "/RSS/Apple Hot News.rssmbox/"

// An entry of the listing: a file named like a message, or a folder that
// could not be read (then `error` says why).
struct FoundEntry {
    QString path;
    QString error;
};

struct StoreListing {
    // Every entry named "*.emlx" (of any kind: a folder or a link so named is
    // listed too), then every folder below the store that could not be read.
    QVector<FoundEntry> messages;
    // Every entry named "*.emlxpart".
    QStringList parts;
    // Why the store folder itself could not be read; empty when it could.
    QString error;
};

// Walks the folders below `store` (a link given as the store is followed,
// links below it are not) and lists the entries named like message files
// and detached parts. Names are the file system's bytes (scanner/FileAccess.h),
// so any name works. Within a folder, entries come in the byte order of their
// names, each folder's contents right after the folder, so the list is the
// byte order of the full paths and the same on every file system.
StoreListing ListStoreFiles(const QString& store);

// One folder level of a message's folder path.
struct FolderPart {
    QString name;
    FolderKind kind;
};

// Folder path of a message file, e.g. "Mailboxes/Work/Projects" for
// ".../V2/Mailboxes/Work.mbox/Projects.mbox/<id>/Data/Messages/1234.emlx".
// Under the user's Mail folder (defaultMailPath) the version folder "/V<n>"
// is cut; elsewhere the store folder (storePath) is removed from the path.
// Everything from the last ".mbox" on is dropped and the other ".mbox"
// endings are removed. Searches are case-sensitive.
QString FolderPathForMessage(const QString& line, const QString& defaultMailPath,
                             const QString& storePath);
// The same path as its levels, each with its kind: a level that lost a
// ".mbox" is a mailbox, one named "*.imapmbox" or "*.ewsmbox" a mailbox of
// that kind, any other a plain folder. Empty for an empty path.
QVector<FolderPart> FolderPartsForMessage(const QString& line, const QString& defaultMailPath,
                                          const QString& storePath);

// File name of a path up to its first "." ("1234" for both
// ".../1234.emlx" and ".../1234.partial.emlx").
QString MessageNumberText(const QString& line);

// The number text as an unsigned decimal number; 0 when it is not one.
quint64 MessageNumberValue(const QString& numberText);
