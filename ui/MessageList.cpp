#include "ui/MessageList.h"

#include <QFont>
#include <QIcon>
#include <QList>
#include <QProgressBar>
#include <QTreeWidget>

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
                               int priority) {
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
    return row;
}

QString CountedFolderLabel(QString label, unsigned long long count, int labelState) {
    if (labelState == 2) {
        const int cut = label.lastIndexOf(QLatin1Char('('));
        if (cut >= 0)
            label.truncate(cut);
    }
    return label + QLatin1Char('(') + QString::number(count) + QLatin1Char(')');
}

void PendingScanView::AddMessage(QTreeWidgetItem* folder, const QString& subject,
                                 const QString& number, unsigned long long count,
                                 bool hasAttachments, int priority, int labelState) {
    if (folder) {
        m_currentFolder = folder;
        auto label = m_labels.find(folder);
        if (label == m_labels.end())
            m_labels.insert(folder, CountedFolderLabel(folder->text(0), count, labelState));
        else
            *label = CountedFolderLabel(*label, count, labelState);
    }
    m_rows.append({subject, number, hasAttachments, priority});
}

bool PendingScanView::IsEmpty() const {
    return m_rows.isEmpty() && m_labels.isEmpty() && !m_currentFolder && !m_clearList &&
           m_steps == 0;
}

void PendingScanView::Clear() {
    m_rows.clear();
    m_labels.clear();
    m_currentFolder = nullptr;
    m_clearList = false;
    m_steps = 0;
}

void PendingScanView::Apply(QTreeWidget* folders, QTreeWidget* list, QProgressBar* bar) {
    for (auto it = m_labels.cbegin(); it != m_labels.cend(); ++it)
        it.key()->setText(0, it.value());
    if (m_currentFolder)
        folders->setCurrentItem(m_currentFolder);
    if (m_clearList)
        list->clear();
    if (!m_rows.isEmpty()) {
        QList<QTreeWidgetItem*> rows;
        rows.reserve(m_rows.size());
        for (const Row& r : qAsConst(m_rows))
            rows.append(NewMessageRow(r.subject, r.number, r.hasAttachments, r.priority));
        list->addTopLevelItems(rows);
        list->scrollToItem(rows.last());
    }
    if (bar && m_steps) {
        // One step at a time the bar stops at its maximum (a value beyond
        // the range is ignored, unless the range is 0 to 0).
        int value = bar->value() + m_steps;
        if (bar->minimum() != 0 || bar->maximum() != 0)
            value = qMin(value, bar->maximum());
        bar->setValue(value);
    }
    Clear();
}
