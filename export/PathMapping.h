#pragma once
#include <QHash>
#include <QSet>
#include <QString>

// Name of the extended attribute that holds a file's Finder information
// (32 bytes: type, creator, flags, icon position, reserved).
const char* FinderInfoAttributeName();

// Gives the file the Finder type and creator (four characters each), all
// other Finder information zero. Returns false where the file system refuses
// extended attributes; callers carry on without it.
bool SetFinderTypeAndCreator(const QString& path, const char* type, const char* creator);

// Makes the folder and every missing folder above it. False when one
// cannot be made, with the reason naming it.
bool MakeFolders(const QString& path, QString* reason);

// Where the messages of a store go in a package. Each mailbox folder of the
// store (the innermost folder named "*.mbox", "*.imapmbox" or "*.ewsmbox"
// that holds a message file; the file's own folder when none is) gets one
// mbox file of its own:
//
//   <package>/Mail/<its path below the store>/<name>.mbox
//
// where every folder name of the path loses its mailbox ending and <name> is
// the mailbox's name so shortened ("V2/Mailboxes/Work.mbox/Projects.mbox"
// gives "Mail/V2/Mailboxes/Work/Projects/Projects.mbox"). A name that would
// lead out of the package ("", ".", "..") gets a "_" in front. Two mailboxes
// that would share a file (the same names once the endings go, or names
// that differ in case only, which macOS does not tell apart) do not: the
// later one's name gets " (2)", " (3)" ...
//
// A folder level below the store that is an account folder (a key of
// `accountNames`, Mail's UUID of the account) is named by the account's
// name instead ("V10/<UUID>/INBOX.mbox" gives "Mail/V10/Work/INBOX/
// INBOX.mbox"), with "/" made "-". Where that name is taken beside it, by
// another account or by the package name of another folder of the store,
// the account's name gets " (2)", " (3)" ... (accounts in the order of their
// folder names), whatever the order of the calls.
class PackageLayout {
public:
    PackageLayout(const QString& packagePath, const QString& storePath,
                  const QHash<QString, QString>& accountNames = {})
        : m_package(packagePath), m_store(storePath), m_accountNames(accountNames) {}

    // The mbox file of the message at `messagePath`; the same for every
    // message of one mailbox, whatever the order of the calls.
    QString MboxFor(const QString& messagePath);
    // The same, with the file made when it is missing (new files get the
    // Finder type "MBOX" and creator "OPIM"); empty when its folders or the
    // file cannot be made, `reason` then says why.
    QString PathExtractor(const QString& messagePath, QString* reason);

    // The mailbox folder that holds the message file.
    static QString MailboxFolderOf(const QString& messagePath);

private:
    bool IsAccountFolder(const QString& name) const;
    // The package name of the account folder `key` in the store folder
    // `parent`.
    QString AccountFolderName(const QString& parent, const QString& key);

    QString m_package, m_store;
    QHash<QString, QString> m_accountNames;  // account folder -> account name
    QHash<QString, QString> m_accountFolder; // account folder's path -> package name
    QHash<QString, QString> m_mboxOfMailbox; // mailbox folder -> mbox file
    QSet<QString> m_taken;                   // folders below the package, case folded
    QSet<QString> m_made;                    // mbox files made or found
};
