#pragma once
// The plain records a scan leaves behind: one FldrAtrib per mail folder, one
// MailItem per message, one AttachmentEntry per attachment. They hold byte
// positions into the message files, never bodies. All are zero-filled heap
// blocks (calloc) whose text buffers are owned by the record and released
// field by field.

#include <QByteArray>
#include <QString>
#include <QtGlobal>

struct AttachmentEntry {
    qint64 llStart;         // first byte of the part's body in the message file
    qint64 llEnd;           // end of the body (a position, or a length for a level's last part)
    char* pName;            // display name, UTF-16 units, 2 * length + 1 bytes
    quint32 ulNameSize;     // bytes of pName in use (2 * UTF-16 units)
    char* pPartFile;        // detached part file in UTF-16, or null
    quint32 ulPartFileSize; // bytes of pPartFile in use
    quint8 ucDecodedPart;   // 1: pPartFile is Mail's decoded copy under Attachments,
                            // 0: an .emlxpart file holding the encoded body
    AttachmentEntry* pNext;
};

struct MailItem {
    char* pPlainCharset; // NUL-terminated Latin-1 texts, or null
    char* pHtmlCharset;
    char* pTransferEncoding;
    char* pFrom; // UTF-16 buffers with their byte lengths, or null
    quint32 ulFromSize;
    char* pTo;
    quint32 ulToSize;
    char* pSubject;
    quint32 ulSubjectSize;
    char* pDate; // Latin-1 date text (may be empty but allocated), or null
    quint32 ulDateSize;
    qint32 iPriority;
    qint64 llHtmlStart;
    qint64 llHtmlEnd;
    qint64 llPlainStart;
    qint64 llPlainEnd;
    char* pPath; // full path of the message file, UTF-16
    quint32 ulPathSize;
    quint64 ullNumber; // message number (file base name)
    AttachmentEntry* pAttachHead;
    AttachmentEntry* pAttachTail;
    MailItem* pNext;
};

// Tick codes, the same in the folder record, the folder tree's hidden column
// and the tick box.
enum TickCode : quint8 { kTickUnset = 0, kTicked = 1, kPartlyTicked = 2, kNotTicked = 3 };

struct FldrAtrib {
    qint32 iLabelState; // 0 until the first message was announced, then 2
    quint8 ucTickState; // a TickCode
    quint64 ullParentId;
    quint64 ullId;
    quint64 ullMsgCount;
    void* pTreeItem; // the folder's tree item (opaque to the core)
    MailItem* pFirstMail;
    MailItem* pLastMail;
    FldrAtrib* pNext;
};

// Folder list, from StartFldrAtrib to EndFldrAtrib (both null when empty).
extern FldrAtrib* StartFldrAtrib;
extern FldrAtrib* EndFldrAtrib;

// Appends a new folder record at the tail of the folder list.
FldrAtrib* AppendFolderRecord(quint64 parentId, quint64 id, void* treeItem, quint8 tickState);
// First folder record with this identifier, or null.
FldrAtrib* FindFolderRecord(quint64 id);
// First folder record with this identifier and parent, or null.
FldrAtrib* FindFolderRecord(quint64 id, quint64 parentId);
// Last record of the folder list, or null.
FldrAtrib* LastFolderRecord();

MailItem* NewMailItem();
void AppendMailToFolder(FldrAtrib* folder, MailItem* item);
AttachmentEntry* NewAttachment();
void AppendAttachment(MailItem* item, AttachmentEntry* entry);

// Frees every folder record, message record and attachment entry with their
// buffers, and resets StartFldrAtrib and EndFldrAtrib.
void FreeAllFolderRecords();
void FreeMailItem(MailItem* item);

// Buffer helpers. A UTF-16 buffer is 2 * length + 1 bytes, zero-filled, and
// its size is 2 * length. Any previous buffer is freed first.
void SetUtf16(char** buffer, quint32* size, const QString& text);
QString Utf16Text(const char* buffer, quint32 size);
// NUL-terminated copy of bytes (length + 1 bytes); previous buffer freed.
void SetBytes(char** buffer, const QByteArray& bytes);
