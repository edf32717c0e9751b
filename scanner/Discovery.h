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
    QString key;  // the level's name on disk: folders are told apart by it
    QString name; // the name shown: the key without its mailbox ending
    FolderKind kind;
};

// The mailbox endings of folder names, and what each makes of a folder.
FolderKind KindOfFolderName(const QString& name);
// The name without its mailbox ending (".mbox", ".imapmbox", ".ewsmbox").
QString WithoutMailboxEnding(const QString& name);

// The folder of a message file, as its levels: the path of its folder below
// the store ("V2/Mailboxes/Work.mbox/Projects.mbox/<id>/Data/Messages"), up
// to its innermost mailbox ("V2/Mailboxes/Work/Projects"); the whole path
// when no level is a mailbox. Under the user's Mail folder (defaultMailPath)
// the version folder "/V<n>" is cut; elsewhere the store folder (storePath)
// is removed from the path and a leading "/Mail/" and "/V/" go. Searches are
// case-sensitive. Empty for a file directly in the store.
QVector<FolderPart> FolderPartsForMessage(const QString& line, const QString& defaultMailPath,
                                          const QString& storePath);

// A file that holds no message: an AppleDouble companion ("._" name, made
// where a Mail folder was copied to a disk or share that keeps no extended
// attributes), an empty file, or one whose first line is neither a byte
// count nor a header field. Returns why, or an empty string for a message.
QString WhyNotAMessage(const QString& path, const char* firstBytes, qint64 size);
inline bool IsAppleDoubleName(const QString& path) {
    return path.midRef(path.lastIndexOf(QLatin1Char('/')) + 1).startsWith(QLatin1String("._"));
}

// File name of a path up to its first "." ("1234" for both
// ".../1234.emlx" and ".../1234.partial.emlx").
QString MessageNumberText(const QString& line);

// The number text as an unsigned decimal number; 0 when it is not one.
quint64 MessageNumberValue(const QString& numberText);
