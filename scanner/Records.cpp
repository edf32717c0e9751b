#include "scanner/Records.h"

#include <cstdlib>
#include <cstring>

FldrAtrib* StartFldrAtrib = nullptr;
FldrAtrib* EndFldrAtrib = nullptr;

FldrAtrib* AppendFolderRecord(quint64 parentId, quint64 id, void* treeItem, quint8 tickState) {
    auto* rec = static_cast<FldrAtrib*>(calloc(1, sizeof(FldrAtrib)));
    if (!rec)
        qFatal("out of memory");
    rec->ullParentId = parentId;
    rec->ullId = id;
    rec->pTreeItem = treeItem;
    rec->ucTickState = tickState;
    if (!StartFldrAtrib)
        StartFldrAtrib = rec;
    else
        EndFldrAtrib->pNext = rec;
    EndFldrAtrib = rec;
    return rec;
}

FldrAtrib* FindFolderRecord(quint64 id) {
    for (FldrAtrib* f = StartFldrAtrib; f; f = f->pNext)
        if (f->ullId == id)
            return f;
    return nullptr;
}

FldrAtrib* FindFolderRecord(quint64 id, quint64 parentId) {
    for (FldrAtrib* f = StartFldrAtrib; f; f = f->pNext)
        if (f->ullId == id && f->ullParentId == parentId)
            return f;
    return nullptr;
}

FldrAtrib* LastFolderRecord() {
    return EndFldrAtrib;
}

MailItem* NewMailItem() {
    auto* item = static_cast<MailItem*>(calloc(1, sizeof(MailItem)));
    if (!item)
        qFatal("out of memory");
    return item;
}

void AppendMailToFolder(FldrAtrib* folder, MailItem* item) {
    if (!folder->pFirstMail)
        folder->pFirstMail = item;
    else
        folder->pLastMail->pNext = item;
    folder->pLastMail = item;
    ++folder->ullMsgCount;
}

AttachmentEntry* NewAttachment() {
    auto* e = static_cast<AttachmentEntry*>(calloc(1, sizeof(AttachmentEntry)));
    if (!e)
        qFatal("out of memory");
    return e;
}

void AppendAttachment(MailItem* item, AttachmentEntry* entry) {
    if (!item->pAttachHead)
        item->pAttachHead = entry;
    else
        item->pAttachTail->pNext = entry;
    item->pAttachTail = entry;
}

void FreeMailItem(MailItem* item) {
    for (AttachmentEntry* a = item->pAttachHead; a;) {
        AttachmentEntry* next = a->pNext;
        free(a->pName);
        free(a->pPartFile);
        free(a);
        a = next;
    }
    free(item->pPlainCharset);
    free(item->pHtmlCharset);
    free(item->pTransferEncoding);
    free(item->pFrom);
    free(item->pTo);
    free(item->pSubject);
    free(item->pDate);
    free(item->pPath);
    free(item);
}

void FreeAllFolderRecords() {
    for (FldrAtrib* f = StartFldrAtrib; f;) {
        FldrAtrib* nextFolder = f->pNext;
        for (MailItem* m = f->pFirstMail; m;) {
            MailItem* next = m->pNext;
            FreeMailItem(m);
            m = next;
        }
        free(f);
        f = nextFolder;
    }
    StartFldrAtrib = nullptr;
    EndFldrAtrib = nullptr;
}

void SetUtf16(char** buffer, quint32* size, const QString& text) {
    free(*buffer);
    const size_t bytes = size_t(text.size()) * 2;
    *buffer = static_cast<char*>(calloc(1, bytes + 1));
    if (!*buffer)
        qFatal("out of memory");
    if (bytes)
        memcpy(*buffer, text.utf16(), bytes);
    *size = quint32(bytes);
}

QString Utf16Text(const char* buffer, quint32 size) {
    if (!buffer || size < 2)
        return QString();
    QString s(int(size / 2), Qt::Uninitialized);
    memcpy(s.data(), buffer, (size / 2) * 2);
    return s;
}

void SetBytes(char** buffer, const QByteArray& bytes) {
    free(*buffer);
    *buffer = static_cast<char*>(calloc(1, size_t(bytes.size()) + 1));
    if (!*buffer)
        qFatal("out of memory");
    if (!bytes.isEmpty())
        memcpy(*buffer, bytes.constData(), size_t(bytes.size()));
}
