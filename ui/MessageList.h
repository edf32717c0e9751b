#pragma once
// Rows of the message list, and the scan's announcements waiting to be shown.
//
// A scan announces every message with a signal. Showing each at once
// (a new row in the list, the folder made current, its label rewritten, the
// list scrolled, the progress bar repainted) costs the window far more than
// the scan spends on the message. The announcements are therefore collected
// in a PendingScanView and shown together, a few times a second; the result
// after every application is the same as if each had been shown on arrival.
//
// New folders wait there too. Each one that goes into the folder tree makes
// the window repaint, and a window holding a web view is redrawn whole
// through OpenGL at every repaint, which with a software renderer costs more
// than a hundred messages. A folder's item is made when the folder joins the
// tree, on the window's thread.

#include "scanner/RunProgress.h"

#include <QHash>
#include <QMutex>
#include <QString>
#include <QVector>

#include <functional>

class QFont;
class QIcon;
class QProgressBar;
class QTreeWidget;
class QTreeWidgetItem;

// Message list columns. They are shown in the order: priority, mail,
// read or answered, flagged, attachment, sender, subject, date, size.
enum MessageListColumn {
    ColSizeHint = 0,
    ColPriority = 1,
    ColType = 2,
    ColAttachment = 3,
    ColSubject = 4,
    ColNumber = 5,
    ColFrom = 6,
    ColDate = 7,
    ColSize = 8,
    ColStatus = 9, // unread or answered
    ColFlag = 10,
    MessageColumns = 11
};

// Sets up the message list's columns (headers, widths, order) and sorting:
// a click on a column header sorts by that column, a second click turns the
// order; until then the rows stay in the order they were added.
void SetUpMessageList(QTreeWidget* list);
// Sorts the rows again as the user last chose, if they chose.
void SortAsChosen(QTreeWidget* list);

// The sender as a list shows it: the name of "Name <address>", else the
// address.
QString SenderName(const QString& from);
// A message size as the list shows it: "986 B", "12 kB", "3 MB".
QString SizeText(qint64 bytes);
// A text on one line: line breaks removed.
QString OneLine(QString text);

// The font of the items of both lists ("Lucida Grande" 11 point), made once.
const QFont& ItemFont();

// The images of the lists, each loaded from the resources once.
enum class ListIconKind { Priority, Mail, Attachment, Folder };
const QIcon& ListIcon(ListIconKind kind);

// A message list row, not yet in a list: font and size hint on every
// column, the icons and marks, sender, subject, date, size and the message
// number. The row keeps the message's place in its folder (from 0) as the
// number column's user data.
QTreeWidgetItem* NewMessageRow(const QString& subject, const QString& number, bool hasAttachments,
                               int priority, int index, const MessageSummary& summary);
// The place in its folder of the message a row shows, or -1.
int MessageIndexOf(const QTreeWidgetItem* row);

// A folder label with the count of its messages: "Inbox" and 1 give
// "Inbox(1)". With labelState 2 the label already ends in a count, which is
// cut at the last "(" first, so "Inbox(1)" and 2 give "Inbox(2)".
QString CountedFolderLabel(QString label, unsigned long long count, int labelState);

// The scan thread adds announcements directly (the window's slots are
// connected directly, so no event is queued per message); the folders and
// the application belong to the window's thread. Each Add says whether the
// view was empty before it: the caller then asks the window's thread for the
// next application, so one request covers everything added until then.
class PendingScanView {
public:
    PendingScanView() = default;
    PendingScanView(const PendingScanView&) = delete;
    PendingScanView& operator=(const PendingScanView&) = delete;

    // A new folder `id` below `parentId`: it goes into the tree after the
    // folders waiting before it, and its parent is expanded.
    bool AddFolder(unsigned long long parentId, unsigned long long id, const QString& name);
    // One announced message: its row, its folder made current and labelled
    // with `count`.
    bool AddMessage(unsigned long long folderId, const QString& subject, const QString& number,
                    unsigned long long count, bool hasAttachments, int priority, int labelState,
                    const MessageSummary& summary);
    // The message list is to be emptied; rows waiting for it go too.
    bool ClearList();
    // One step of the progress bar.
    bool AddProgressStep();
    bool IsEmpty() const;
    // Forgets everything waiting.
    void Clear();

    // Where Apply puts the folders: makes the item of folder `id` below the
    // item of `parentId` (or null when there is none) and returns it.
    using FolderMaker = std::function<QTreeWidgetItem*(unsigned long long parentId,
                                                       unsigned long long id, const QString& name)>;
    // Shows everything waiting: the new folders, the labels, the current
    // folder, the list emptied if asked, the rows (the list scrolled to the
    // last one) and the progress steps. `items` are the folders' items,
    // which the new ones join. `bar` may be null; its steps are then dropped.
    void Apply(const FolderMaker& makeFolder, QHash<unsigned long long, QTreeWidgetItem*>& items,
               QTreeWidget* folders, QTreeWidget* list, QProgressBar* bar);

private:
    struct Row {
        QString subject;
        QString number;
        bool hasAttachments;
        int priority;
        int index;
        MessageSummary summary;
    };
    struct Folder {
        unsigned long long parentId;
        unsigned long long id;
        QString name;
    };
    // A label change: the count, and whether the label already ends in one.
    struct LabelStep {
        unsigned long long count;
        int labelState;
    };
    struct Batch {
        QVector<Folder> folders;
        QVector<Row> rows;
        // The label changes of each folder announced since the last Apply,
        // in order; a change that cuts the count before it replaces the one
        // before, as it would on the label.
        QHash<unsigned long long, QVector<LabelStep>> labels;
        unsigned long long currentFolder = 0;
        bool clearList = false;
        int steps = 0;
        bool IsEmpty() const;
    };
    // Changes the batch under the lock; true when it was empty before.
    template <class F> bool Change(F&& change) {
        const QMutexLocker lock(&m_lock);
        const bool wasEmpty = m_batch.IsEmpty();
        change(m_batch);
        return wasEmpty;
    }

    mutable QMutex m_lock;
    Batch m_batch;
};
