#include "ui/MessageList.h"

#include <QFont>
#include <QIcon>
#include <QList>
#include <QProgressBar>
#include <QTreeWidget>

#include <utility>

const QFont& ItemFont() {
    static const QFont font(QStringLiteral("Lucida Grande"), 11);
    return font;
}

const QIcon& ListIcon(ListIconKind kind) {
    static const QIcon icons[] = {QIcon(QStringLiteral(":/images/img_Priority.png")),
                                  QIcon(QStringLiteral(":/images/img_Mail.png")),
                                  QIcon(QStringLiteral(":/images/img_Attachment.png")),
                                  QIcon(QStringLiteral(":/images/img_Folder.png"))};
    return icons[int(kind)];
}

QTreeWidgetItem* NewMessageRow(const QString& subject, const QString& number, bool hasAttachments,
                               int priority, int index) {
    auto* row = new QTreeWidgetItem;
    const QSize hint(22, 22);
    for (int c = ColSizeHint; c <= ColSubject; ++c) {
        row->setFont(c, ItemFont());
        row->setSizeHint(c, hint);
    }
    if (priority == 1)
        row->setIcon(ColPriority, ListIcon(ListIconKind::Priority));
    row->setIcon(ColType, ListIcon(ListIconKind::Mail));
    if (hasAttachments)
        row->setIcon(ColAttachment, ListIcon(ListIconKind::Attachment));
    row->setText(ColSubject, subject);
    row->setText(ColNumber, number);
    row->setData(ColNumber, Qt::UserRole, index);
    return row;
}

int MessageIndexOf(const QTreeWidgetItem* row) {
    bool ok = false;
    const int index = row ? row->data(ColNumber, Qt::UserRole).toInt(&ok) : -1;
    return ok ? index : -1;
}

QString CountedFolderLabel(QString label, unsigned long long count, int labelState) {
    if (labelState == 2) {
        const int cut = label.lastIndexOf(QLatin1Char('('));
        if (cut >= 0)
            label.truncate(cut);
    }
    return label + QLatin1Char('(') + QString::number(count) + QLatin1Char(')');
}

bool PendingScanView::Batch::IsEmpty() const {
    return folders.isEmpty() && rows.isEmpty() && labels.isEmpty() && !currentFolder &&
           !clearList && steps == 0;
}

bool PendingScanView::AddFolder(unsigned long long parentId, unsigned long long id,
                                const QString& name) {
    return Change([&](Batch& b) { b.folders.append(Folder{parentId, id, name}); });
}

bool PendingScanView::AddMessage(unsigned long long folderId, const QString& subject,
                                 const QString& number, unsigned long long count,
                                 bool hasAttachments, int priority, int labelState) {
    return Change([&](Batch& b) {
        b.currentFolder = folderId;
        QVector<LabelStep>& steps = b.labels[folderId];
        if (!steps.isEmpty() && labelState == 2)
            steps.last().count = count;
        else
            steps.append({count, labelState});
        b.rows.append({subject, number, hasAttachments, priority, int(count) - 1});
    });
}

bool PendingScanView::ClearList() {
    return Change([](Batch& b) {
        b.rows.clear();
        b.clearList = true;
    });
}

bool PendingScanView::AddProgressStep() {
    return Change([](Batch& b) { ++b.steps; });
}

bool PendingScanView::IsEmpty() const {
    const QMutexLocker lock(&m_lock);
    return m_batch.IsEmpty();
}

void PendingScanView::Clear() {
    const QMutexLocker lock(&m_lock);
    m_batch = Batch();
}

void PendingScanView::Apply(const FolderMaker& makeFolder,
                            QHash<unsigned long long, QTreeWidgetItem*>& items,
                            QTreeWidget* folders, QTreeWidget* list, QProgressBar* bar) {
    Batch b;
    {
        const QMutexLocker lock(&m_lock);
        std::swap(b, m_batch);
    }
    for (const Folder& f : qAsConst(b.folders))
        if (QTreeWidgetItem* item = makeFolder(f.parentId, f.id, f.name))
            items.insert(f.id, item);
    for (auto it = b.labels.cbegin(); it != b.labels.cend(); ++it) {
        QTreeWidgetItem* item = items.value(it.key());
        if (!item)
            continue;
        QString label = item->text(0);
        for (const LabelStep& step : it.value())
            label = CountedFolderLabel(label, step.count, step.labelState);
        item->setText(0, label);
    }
    if (QTreeWidgetItem* current = items.value(b.currentFolder))
        folders->setCurrentItem(current);
    if (b.clearList)
        list->clear();
    if (!b.rows.isEmpty()) {
        QList<QTreeWidgetItem*> rows;
        rows.reserve(b.rows.size());
        for (const Row& r : qAsConst(b.rows))
            rows.append(NewMessageRow(r.subject, r.number, r.hasAttachments, r.priority, r.index));
        list->addTopLevelItems(rows);
        list->scrollToItem(rows.last());
    }
    if (bar && b.steps) {
        // One step at a time the bar stops at its maximum (a value beyond
        // the range is ignored, unless the range is 0 to 0).
        int value = bar->value() + b.steps;
        if (bar->minimum() != 0 || bar->maximum() != 0)
            value = qMin(value, bar->maximum());
        bar->setValue(value);
    }
}
