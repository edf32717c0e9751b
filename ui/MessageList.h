#pragma once
// Rows of the message list, and the scan's announcements waiting to be shown.
//
// A scan announces every message with a queued signal. Showing each at once
// (a new row in the list, the folder made current, its label rewritten, the
// list scrolled, the progress bar repainted) costs the window far more than
// the scan spends on the message. The announcements are therefore collected
// in a PendingScanView and shown together, a few times a second; the result
// after every application is the same as if each had been shown on arrival.

#include <QHash>
#include <QString>
#include <QVector>

class QFont;
class QIcon;
class QProgressBar;
class QTreeWidget;
class QTreeWidgetItem;

// Message list columns.
enum MessageListColumn {
    ColSizeHint = 0,
    ColPriority = 1,
    ColType = 2,
    ColAttachment = 3,
    ColSubject = 4,
    ColNumber = 5
};

// The font of the items of both lists ("Lucida Grande" 11 point), made once.
const QFont& ItemFont();

// The images of the lists, each loaded from the resources once.
enum class ListIconKind { Priority, Mail, Attachment, Folder };
const QIcon& ListIcon(ListIconKind kind);

// A message list row, not yet in a list: font and size hint on columns 0
// to 4, the icons, the subject and the message number.
QTreeWidgetItem* NewMessageRow(const QString& subject, const QString& number, bool hasAttachments,
                               int priority);

// A folder label with the count of its messages: "Inbox" and 1 give
// "Inbox(1)". With labelState 2 the label already ends in a count, which is
// cut at the last "(" first, so "Inbox(1)" and 2 give "Inbox(2)".
QString CountedFolderLabel(QString label, unsigned long long count, int labelState);

class PendingScanView {
public:
    // One announced message: its row, its folder (may be null) made current
    // and labelled with `count`.
    void AddMessage(QTreeWidgetItem* folder, const QString& subject, const QString& number,
                    unsigned long long count, bool hasAttachments, int priority, int labelState);
    // The message list is to be emptied; rows waiting for it go too.
    void ClearList() {
        m_rows.clear();
        m_clearList = true;
    }
    // One step of the progress bar.
    void AddProgressStep() { ++m_steps; }
    bool IsEmpty() const;
    // Forgets everything waiting (the widgets it refers to are going).
    void Clear();
    // Shows everything waiting: the labels, the current folder, the list
    // emptied if asked, the rows (the list scrolled to the last one) and the
    // progress steps. `bar` may
    // be null; its steps are then dropped.
    void Apply(QTreeWidget* folders, QTreeWidget* list, QProgressBar* bar);

private:
    struct Row {
        QString subject;
        QString number;
        bool hasAttachments;
        int priority;
    };
    QVector<Row> m_rows;
    // The newest label of each folder announced since the last Apply.
    QHash<QTreeWidgetItem*, QString> m_labels;
    QTreeWidgetItem* m_currentFolder = nullptr;
    bool m_clearList = false;
    int m_steps = 0;
};
