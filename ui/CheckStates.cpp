// Tick boxes of the folder tree. Each folder's tick state is kept three
// times: the item's check state, the code in its hidden column 7 ("1" ticked,
// "2" partly ticked, "3" not ticked) and the folder record's tick state,
// which the export reads.
#include "scanner/Records.h"
#include "ui/PreviewWindow.h"

#include <QTreeWidget>
#include <QTreeWidgetItemIterator>

namespace {
TickCode CodeOf(Qt::CheckState state) {
    switch (state) {
    case Qt::Checked:
        return kTicked;
    case Qt::PartiallyChecked:
        return kPartlyTicked;
    default:
        return kNotTicked;
    }
}

void SetRecordTick(unsigned long long id, unsigned char state) {
    if (FldrAtrib* f = FindFolderRecord(id))
        f->ucTickState = state;
}
} // namespace

QTreeWidgetItem* PreviewWindow::FolderItem(unsigned long long id) const {
    const FldrAtrib* f = FindFolderRecord(id);
    return f ? static_cast<QTreeWidgetItem*>(f->pTreeItem) : nullptr;
}

void PreviewWindow::LeftTreeWidgetItem(QTreeWidgetItem* item) {
    if (!item)
        return;
    QTreeWidgetItem* root = m_pLeftTreeWidget->topLevelItem(0);
    const unsigned long long id = item->text(ColId).toULongLong();
    if (root && root->text(ColParentId) == item->text(ColParentId)) {
        // The root "Mailbox" ticks or unticks everything; partly changes nothing.
        if (item->checkState(ColName) == Qt::Checked)
            MarkDirToRootCheckedOrUnchecked(kTicked, id);
        if (item->checkState(ColName) == Qt::Unchecked)
            MarkDirToRootCheckedOrUnchecked(kNotTicked, id);
    } else {
        const TickCode code = CodeOf(item->checkState(ColName));
        SetRecordTick(id, code);
        if (code != kPartlyTicked)
            MarkChildAccordingToParent(item, code);
        MarkParentAccordingToChild(item);
    }
    SetRecoverSelectedState();
}

void PreviewWindow::MarkDirToRootCheckedOrUnchecked(unsigned char state, unsigned long long) {
    for (FldrAtrib* f = StartFldrAtrib; f; f = f->pNext)
        f->ucTickState = state;
    for (QTreeWidgetItemIterator it(m_pLeftTreeWidget); *it; ++it)
        (*it)->setCheckState(ColName, state == kTicked ? Qt::Checked : Qt::Unchecked);
}

void PreviewWindow::MarkChildAccordingToParent(QTreeWidgetItem* item, unsigned char state) {
    QList<unsigned long long> ids{item->text(ColId).toULongLong()};
    for (int i = 0; i < ids.size(); ++i) {
        const unsigned long long parent = ids.at(i);
        for (FldrAtrib* f = StartFldrAtrib; f; f = f->pNext) {
            if (f->ullParentId != parent)
                continue;
            if (QTreeWidgetItem* child = FolderItem(f->ullId))
                child->setCheckState(ColName, state == kTicked ? Qt::Checked : Qt::Unchecked);
            f->ucTickState = state;
            ids.append(f->ullId);
        }
    }
}

void PreviewWindow::MarkParentAccordingToChild(QTreeWidgetItem* item) {
    for (; item && item->parent(); item = item->parent()) {
        QTreeWidgetItem* parent = item->parent();
        int checked = 0;
        int unchecked = 0;
        for (int i = 0; i < parent->childCount(); ++i) {
            const Qt::CheckState s = parent->child(i)->checkState(ColName);
            checked += s == Qt::Checked;
            unchecked += s == Qt::Unchecked;
        }
        Qt::CheckState state = Qt::PartiallyChecked;
        if (checked == parent->childCount())
            state = Qt::Checked;
        else if (unchecked == parent->childCount())
            state = Qt::Unchecked;
        const TickCode code = CodeOf(state);
        parent->setCheckState(ColName, state);
        parent->setText(ColTickCode, QString::number(code));
        SetRecordTick(parent->text(ColId).toULongLong(), code);
    }
}

void PreviewWindow::SetRecoverSelectedState() {
    for (QTreeWidgetItemIterator it(m_pCenterTreeWidget); *it; ++it)
        (*it)->setText(ColTickCode, QString::number(CodeOf((*it)->checkState(ColName))));
}
