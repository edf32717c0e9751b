#pragma once
// What a scan leaves behind: the folders of a mail store in the order the
// scan met them, each with its messages, and the messages' records. A record
// holds the header fields shown for a message and byte positions into its
// file, never its bodies. A Store is a plain value: it owns everything in it
// and goes as a whole; two stores share nothing.

#include "scanner/RunProgress.h"
#include "scanner/RunResult.h"

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QStringList>
#include <QVector>

#include <optional>
#include <vector>

// One attachment of a message.
struct AttachmentEntry {
    qint64 llStart = 0; // first byte of the part's body in the message file
    qint64 llEnd = 0;   // end of the body (a position, or a length for a level's last part)
    QString name;       // display name
    // The detached part's file, or empty: relative to the folder above the
    // message's folder ("Messages/12.2.emlxpart", "Attachments/12/2/a.pdf"),
    // or a full path (starting with "/") when it lies elsewhere. The whole
    // path is PartFilePath().
    QString partFile;
    // partFile is Mail's decoded copy under Attachments, not an .emlxpart
    // file holding the encoded body.
    bool decoded = false;
    // Mail kept the body apart and the store holds it in neither form.
    bool missing = false;
};

// One message. A text that no pass found is null (QByteArray::isNull) or
// empty (the QStrings), as the scan output tells apart.
struct MailItem {
    QString from;    // header values after decoding, without the field name
    QString to;      // (empty when the header was not found)
    QString subject; //
    QByteArray date; // "05 Mar 2013 02:07:09 PM"; null: no Date header, empty: not understood
    QByteArray plainCharset;     // charset of the plain body (Latin-1 text); null: no plain body
    QByteArray htmlCharset;      // charset of the HTML body; null: no HTML body
    QByteArray transferEncoding; // of the text body stored last; null: none found
    qint64 llHtmlStart = 0, llHtmlEnd = 0;
    qint64 llPlainStart = 0, llPlainEnd = 0;
    // The message file: its folder (one string, shared by the messages
    // of a folder) and its name. The whole path is Path().
    QString dir;
    QString fileName;
    quint64 ullNumber = 0; // message number (the file name up to its first ".")
    qint32 iPriority = 0;  // first digit of X-Priority, 0 when none
    // False for the file a scan ended at because it could not be read: its
    // record keeps its place (an export ends there too) but holds nothing.
    bool readable = true;
    // The "flags" integer of Mail's property list after the message (read,
    // answered, flagged, deleted ...), when the file has one.
    std::optional<quint64> flags;
    // When Mail received it (seconds since 1970, from the property list; 0
    // when it has none), and its size: the file's bytes and those of the
    // parts Mail keeps apart.
    qint64 dateReceived = 0;
    qint64 size = 0;
    QVector<AttachmentEntry> attachments;

    bool HasAttachments() const { return !attachments.isEmpty(); }
    // Made to its exact size: the verification keeps one for each message.
    QString Path() const {
        QString path;
        if (fileName.isEmpty())
            return path;
        path.reserve(dir.size() + 1 + fileName.size());
        path += dir;
        path += QLatin1Char('/');
        path += fileName;
        return path;
    }
    // Sets dir and fileName; `sharedDir`, when it is the same folder, is
    // taken instead of a new copy.
    void SetPath(const QString& path, const QString& sharedDir = QString());
    // The part's file, whole.
    QString PartFilePath(const AttachmentEntry& a) const;
    // What to keep as AttachmentEntry::partFile for the file at `path`.
    QString PartFileRelative(const QString& path) const;
};

// What a message list shows of it besides the subject.
inline MessageSummary SummaryOf(const MailItem& m) {
    return {m.from, m.date, m.dateReceived, m.size, m.flags};
}

// Tick codes of a folder: what the user chose to export.
enum TickCode : quint8 { kTickUnset = 0, kTicked = 1, kPartlyTicked = 2, kNotTicked = 3 };

// What a folder of the tree stands for.
enum class FolderKind : quint8 {
    Root,        // "Mailbox", above everything
    Folder,      // a plain folder level (V2, Mailboxes, an account, Messages)
    Mailbox,     // a mailbox folder whose ".mbox" ending was taken off its name
    ImapMailbox, // a folder named "<name>.imapmbox"
    EwsMailbox,  // a folder named "<name>.ewsmbox"
};

struct FldrAtrib {
    quint64 ullId = 0;       // 501 for the root, then 502, 503 ... in order of creation
    quint64 ullParentId = 0; // 0 for the root
    QString name;            // the level's name on disk, without its mailbox ending
    QString path;            // names from below the root joined by "/"; the root's is empty
    // The name the tree shows: an account folder's account name, "On My Mac"
    // for the local mailboxes' folder, else `name`.
    QString displayName;
    FolderKind kind = FolderKind::Folder;
    quint8 ucTickState = kTickUnset; // a TickCode
    // 0 until the first message of the folder was announced, then 2.
    qint32 iLabelState = 0;
    QVector<quint64> children; // in order of creation
    // In the order the scan attached them; without spare room once the
    // scan is over (Store::Compact).
    std::vector<MailItem> messages;

    quint64 MsgCount() const { return messages.size(); }
};

// The folder identifier of the root of every store.
constexpr quint64 llRootId = 501;

class Store {
public:
    // The folder that was scanned.
    QString m_strInputfilepath;
    // Every .emlxpart file of the store, in the order discovery listed them.
    QStringList listOfPathOfEmlxPart;
    // At least one message file was accepted.
    bool IsConverted = false;
    // How the scan ended.
    RunResult result;
    // Account folder name -> account name (ScanOptions::accountNames): folders
    // made after it is set show these names, and the export names the
    // account folders of the package by them.
    QHash<QString, QString> accountNames;

    // Folders in order of creation: the root first (once there is any
    // folder), parents before their children.
    const std::vector<FldrAtrib>& Folders() const { return m_folders; }
    bool IsEmpty() const { return m_folders.empty(); }
    // The folder with this identifier, or null; constant time.
    FldrAtrib* Folder(quint64 id);
    const FldrAtrib* Folder(quint64 id) const;
    // The root and the last folder made, or null when there is none.
    FldrAtrib* StartFldrAtrib() { return m_folders.empty() ? nullptr : &m_folders.front(); }
    const FldrAtrib* StartFldrAtrib() const {
        return m_folders.empty() ? nullptr : &m_folders.front();
    }
    const FldrAtrib* EndFldrAtrib() const {
        return m_folders.empty() ? nullptr : &m_folders.back();
    }
    quint64 MessageCount() const;
    // Gives back the room the folders' message lists grew into.
    void Compact();

    // Adds the folder `id` (the next free identifier) below `parentId`. The
    // root "Mailbox" (501, not ticked) is made first when the store is
    // empty. Returns the new folder, or null when the identifier is not the
    // next one or the parent is unknown. Its display name is an account's
    // name when `name` is a key of accountNames, "On My Mac" for a plain
    // folder "Mailboxes" directly below the root or below a top version
    // folder "V<n>", else `name`.
    FldrAtrib* AddFolder(quint64 parentId, quint64 id, const QString& name, FolderKind kind);

    // Ticks: the user changed the tick of folder `id` to `code`. The root
    // ticks or unticks everything; another folder gives its code to every
    // folder below it (unless partly ticked) and its ancestors become
    // ticked, not ticked or partly ticked by their children.
    void SetTick(quint64 id, TickCode code);
    // Every folder gets `state` (kTicked or kNotTicked).
    void MarkDirToRootCheckedOrUnchecked(quint8 state);
    // Every folder below `id`, at any depth, gets `state`.
    void MarkChildAccordingToParent(quint64 id, quint8 state);
    // The parent of `id` becomes ticked when all its children are, not
    // ticked when none is (nor partly), partly ticked otherwise; and so on
    // up to the root.
    void MarkParentAccordingToChild(quint64 id);
    // The folders whose own messages an export writes: the fully ticked ones.
    QVector<quint64> TickedFolders() const;

private:
    std::vector<FldrAtrib> m_folders;
};
