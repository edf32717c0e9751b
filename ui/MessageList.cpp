#include "ui/MessageList.h"

#include "scanner/TrailerFlags.h"

#include <QDateTime>
#include <QFont>
#include <QFontMetrics>
#include <QHeaderView>
#include <QIcon>
#include <QList>
#include <QLocale>
#include <QProgressBar>
#include <QTreeWidget>

#include <iterator>

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

namespace {

// Where a row keeps what it is sorted by in a column, when that is not its
// text.
constexpr int SortRole = Qt::UserRole + 1;

// A row that sorts by each column's sort value (or its text, ignoring
// case), and then by its place in the folder.
class MessageRow : public QTreeWidgetItem {
public:
    bool operator<(const QTreeWidgetItem& other) const override {
        const int column = treeWidget() ? treeWidget()->sortColumn() : ColSubject;
        const QVariant a = data(column, SortRole), b = other.data(column, SortRole);
        if (a.isValid() && b.isValid() && a != b)
            return a.toLongLong() < b.toLongLong();
        if (!a.isValid()) {
            const int byText =
                text(column).toLower().localeAwareCompare(other.text(column).toLower());
            if (byText != 0)
                return byText < 0;
        }
        return MessageIndexOf(this) < MessageIndexOf(&other);
    }
};

// The time a message was received, else the one in its Date header.
QDateTime MessageTime(const MessageSummary& s) {
    if (s.dateReceived > 0)
        return QDateTime::fromSecsSinceEpoch(s.dateReceived);
    return QLocale::c().toDateTime(QString::fromLatin1(s.date),
                                   QStringLiteral("dd MMM yyyy hh:mm:ss AP"));
}

// The column and order the user sorted the list by, kept on the list.
const char kSortColumn[] = "pellomarSortColumn";
const char kSortOrder[] = "pellomarSortOrder";

} // namespace

QString SizeText(qint64 bytes) {
    if (bytes <= 0)
        return QString();
    if (bytes < 1000)
        return QString::number(bytes) + QStringLiteral(" B");
    return QLocale().formattedDataSize(bytes, 0, QLocale::DataSizeTraditionalFormat);
}

QString SenderName(const QString& from) {
    const QString line = OneLine(from).trimmed();
    const int open = line.lastIndexOf(QLatin1Char('<'));
    if (open <= 0)
        return line;
    QString name = line.left(open).trimmed();
    if (name.size() >= 2 && name.startsWith(QLatin1Char('"')) && name.endsWith(QLatin1Char('"')))
        name = name.mid(1, name.size() - 2).trimmed();
    return name.isEmpty() ? line : name;
}

QString OneLine(QString text) {
    text.remove(QLatin1Char('\r'));
    text.remove(QLatin1Char('\n'));
    return text;
}

QTreeWidgetItem* NewMessageRow(const QString& subject, const QString& number, bool hasAttachments,
                               int priority, int index, const MessageSummary& summary) {
    auto* row = new MessageRow;
    const QSize hint(22, 22);
    const quint64 flags = summary.flags.value_or(emlx::kRead);
    const bool unread = !(flags & emlx::kRead);
    QFont font = ItemFont();
    font.setBold(unread);
    for (int c = ColSizeHint; c < MessageColumns; ++c) {
        row->setFont(c, font);
        row->setSizeHint(c, hint);
    }
    if (priority == 1)
        row->setIcon(ColPriority, ListIcon(ListIconKind::Priority));
    row->setData(ColPriority, SortRole, priority == 1 ? 0 : 1);
    row->setIcon(ColType, ListIcon(ListIconKind::Mail));
    row->setData(ColType, SortRole, 0);
    if (hasAttachments)
        row->setIcon(ColAttachment, ListIcon(ListIconKind::Attachment));
    row->setData(ColAttachment, SortRole, hasAttachments ? 0 : 1);
    // Unread before answered before the rest, as the marks show.
    const bool answered = flags & emlx::kAnswered;
    row->setText(ColStatus, unread     ? QStringLiteral("\u25CF")
                            : answered ? QStringLiteral("\u21A9")
                                       : QString());
    row->setToolTip(ColStatus, unread     ? QStringLiteral("Unread")
                               : answered ? QStringLiteral("Answered")
                                          : QString());
    row->setForeground(ColStatus, QColor(40, 110, 220));
    row->setData(ColStatus, SortRole, unread ? 0 : answered ? 1 : 2);
    const bool flagged = flags & emlx::kFlagged;
    row->setText(ColFlag, flagged ? QStringLiteral("\u2691") : QString());
    row->setToolTip(ColFlag, flagged ? QStringLiteral("Flagged") : QString());
    row->setForeground(ColFlag, QColor(230, 120, 20));
    row->setData(ColFlag, SortRole, flagged ? 0 : 1);
    row->setText(ColFrom, SenderName(summary.from));
    row->setToolTip(ColFrom, OneLine(summary.from).trimmed());
    const QString oneLine = OneLine(subject);
    row->setText(ColSubject, oneLine);
    row->setToolTip(ColSubject, oneLine);
    const QDateTime when = MessageTime(summary);
    // Year first: short, and the same order whatever the locale.
    row->setText(ColDate, when.isValid()
                              ? when.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm"))
                              : QString());
    row->setData(ColDate, SortRole, when.isValid() ? when.toSecsSinceEpoch() : 0);
    row->setText(ColSize, SizeText(summary.size));
    row->setTextAlignment(ColSize, Qt::AlignRight | Qt::AlignVCenter);
    row->setData(ColSize, SortRole, summary.size);
    row->setText(ColNumber, number);
    row->setData(ColNumber, Qt::UserRole, index);
    return row;
}

void SetUpMessageList(QTreeWidget* list) {
    list->setColumnCount(MessageColumns);
    QTreeWidgetItem* header = list->headerItem();
    header->setSizeHint(ColSizeHint, QSize(20, 20));
    header->setIcon(ColPriority, ListIcon(ListIconKind::Priority));
    header->setToolTip(ColPriority, QStringLiteral("Priority"));
    header->setIcon(ColType, QIcon(QStringLiteral(":/images/img_FileType.png")));
    header->setToolTip(ColType, QStringLiteral("Message"));
    header->setIcon(ColAttachment, ListIcon(ListIconKind::Attachment));
    header->setToolTip(ColAttachment, QStringLiteral("Attachment"));
    for (int c = ColSizeHint; c < MessageColumns; ++c)
        header->setText(c, QString());
    header->setText(ColSubject, QStringLiteral("Subject"));
    header->setText(ColFrom, QStringLiteral("From"));
    header->setText(ColDate, QStringLiteral("Date Received"));
    header->setText(ColSize, QStringLiteral("Size"));
    header->setText(ColStatus, QStringLiteral("\u25CF"));
    header->setToolTip(ColStatus, QStringLiteral("Unread or answered"));
    header->setText(ColFlag, QStringLiteral("\u2691"));
    header->setToolTip(ColFlag, QStringLiteral("Flagged"));
    QHeaderView* h = list->header();
    // Shown left to right: priority, mail, read state, flag, attachment,
    // sender, subject, date, size.
    const int order[] = {ColPriority, ColType,    ColStatus, ColFlag, ColAttachment,
                         ColFrom,     ColSubject, ColDate,   ColSize};
    for (int visual = 0; visual < int(std::size(order)); ++visual)
        h->moveSection(h->visualIndex(order[visual]), visual + 1);
    h->setMinimumSectionSize(22);
    for (int c : {ColPriority, ColType, ColAttachment, ColStatus, ColFlag}) {
        h->setSectionResizeMode(c, QHeaderView::Fixed);
        h->resizeSection(c, 24);
    }
    h->setStretchLastSection(false);
    h->resizeSection(ColFrom, 120);
    h->setSectionResizeMode(ColSubject, QHeaderView::Stretch);
    // Room for a date and a size in bold (an unread row's font).
    QFont bold = ItemFont();
    bold.setBold(true);
    const QFontMetrics metrics(bold);
    h->resizeSection(ColDate, metrics.horizontalAdvance(QStringLiteral("0000-00-00 00:00")) + 16);
    h->resizeSection(ColSize, metrics.horizontalAdvance(QStringLiteral("000 kB")) + 16);
    list->setColumnHidden(ColSizeHint, true);
    list->setColumnHidden(ColNumber, true);
    // The list sorts only when asked (turning sorting off makes the header
    // unclickable, so that comes first).
    list->setSortingEnabled(false);
    h->setSectionsMovable(false);
    h->setSectionsClickable(true);
    h->setSortIndicatorShown(false);
    QObject::connect(h, &QHeaderView::sectionClicked, list, [list](int column) {
        const QVariant last = list->property(kSortColumn);
        const bool again = last.isValid() && last.toInt() == column;
        const Qt::SortOrder order =
            again && list->property(kSortOrder).toInt() == Qt::AscendingOrder ? Qt::DescendingOrder
                                                                              : Qt::AscendingOrder;
        list->setProperty(kSortColumn, column);
        list->setProperty(kSortOrder, int(order));
        SortAsChosen(list);
    });
}

void SortAsChosen(QTreeWidget* list) {
    const QVariant chosen = list->property(kSortColumn);
    if (!chosen.isValid())
        return;
    const int column = chosen.toInt();
    const auto order = Qt::SortOrder(list->property(kSortOrder).toInt());
    list->header()->setSortIndicatorShown(true);
    list->header()->setSortIndicator(column, order);
    list->sortItems(column, order);
    if (QTreeWidgetItem* current = list->currentItem())
        list->scrollToItem(current);
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
                                 bool hasAttachments, int priority, int labelState,
                                 const MessageSummary& summary) {
    return Change([&](Batch& b) {
        b.currentFolder = folderId;
        QVector<LabelStep>& steps = b.labels[folderId];
        if (!steps.isEmpty() && labelState == 2)
            steps.last().count = count;
        else
            steps.append({count, labelState});
        b.rows.append({subject, number, hasAttachments, priority, int(count) - 1, summary});
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
            rows.append(NewMessageRow(r.subject, r.number, r.hasAttachments, r.priority, r.index,
                                      r.summary));
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
