#include "scanner/Store.h"

#include <QFileInfo>
#include <QRegularExpression>

FldrAtrib* Store::Folder(quint64 id) {
    return const_cast<FldrAtrib*>(static_cast<const Store*>(this)->Folder(id));
}

const FldrAtrib* Store::Folder(quint64 id) const {
    // Identifiers are handed out in order from the root's on.
    if (id < llRootId || id - llRootId >= m_folders.size())
        return nullptr;
    return &m_folders[size_t(id - llRootId)];
}

quint64 Store::MessageCount() const {
    quint64 n = 0;
    for (const FldrAtrib& f : m_folders)
        n += f.MsgCount();
    return n;
}

void Store::Compact() {
    for (FldrAtrib& f : m_folders)
        f.messages.shrink_to_fit();
}

FldrAtrib* Store::AddFolder(quint64 parentId, quint64 id, const QString& name, FolderKind kind) {
    if (m_folders.empty()) {
        FldrAtrib root;
        root.ullId = llRootId;
        root.name = root.displayName = QStringLiteral("Mailbox");
        root.kind = FolderKind::Root;
        root.ucTickState = kNotTicked;
        m_folders.push_back(std::move(root));
    }
    FldrAtrib* parent = Folder(parentId);
    if (!parent || id != llRootId + m_folders.size())
        return nullptr;
    FldrAtrib f;
    f.ullId = id;
    f.ullParentId = parentId;
    f.name = name;
    f.path = parent->ullId == llRootId ? name : parent->path + QLatin1Char('/') + name;
    f.kind = kind;
    f.displayName = name;
    if (kind == FolderKind::Folder) {
        // Mail's local mailboxes are in "Mailboxes" of its version folder;
        // below the user's Mail folder the version folder is not shown.
        static const QRegularExpression version(QStringLiteral("^V\\d+$"));
        const bool top = parent->ullId == llRootId ||
                         (parent->ullParentId == llRootId && parent->kind == FolderKind::Folder &&
                          version.match(parent->name).hasMatch());
        const auto account = accountNames.constFind(name);
        if (account != accountNames.constEnd() && !account->isEmpty())
            f.displayName = *account;
        else if (top && name == QLatin1String("Mailboxes"))
            f.displayName = QStringLiteral("On My Mac");
    }
    parent->children.append(id);
    m_folders.push_back(std::move(f));
    return &m_folders.back();
}

void Store::SetTick(quint64 id, TickCode code) {
    FldrAtrib* f = Folder(id);
    if (!f)
        return;
    if (f->ullId == llRootId) {
        // A partly ticked root changes nothing.
        if (code == kTicked || code == kNotTicked)
            MarkDirToRootCheckedOrUnchecked(code);
        return;
    }
    f->ucTickState = code;
    if (code != kPartlyTicked)
        MarkChildAccordingToParent(id, code);
    MarkParentAccordingToChild(id);
}

void Store::MarkDirToRootCheckedOrUnchecked(quint8 state) {
    for (FldrAtrib& f : m_folders)
        f.ucTickState = state;
}

void Store::MarkChildAccordingToParent(quint64 id, quint8 state) {
    QVector<quint64> ids{id};
    for (int i = 0; i < ids.size(); ++i) {
        const FldrAtrib* f = Folder(ids.at(i));
        for (quint64 child : f->children) {
            Folder(child)->ucTickState = state;
            ids.append(child);
        }
    }
}

void Store::MarkParentAccordingToChild(quint64 id) {
    for (const FldrAtrib* f = Folder(id); f && f->ullId != llRootId;) {
        FldrAtrib* parent = Folder(f->ullParentId);
        int ticked = 0, unticked = 0;
        for (quint64 child : parent->children) {
            const quint8 s = Folder(child)->ucTickState;
            ticked += s == kTicked;
            unticked += s == kNotTicked || s == kTickUnset;
        }
        const int n = parent->children.size();
        parent->ucTickState = ticked == n ? kTicked : unticked == n ? kNotTicked : kPartlyTicked;
        f = parent;
    }
}

QVector<quint64> Store::TickedFolders() const {
    QVector<quint64> ids;
    for (const FldrAtrib& f : m_folders)
        if (f.ucTickState == kTicked)
            ids.append(f.ullId);
    return ids;
}

void MailItem::SetPath(const QString& path, const QString& sharedDir) {
    const int slash = path.lastIndexOf(QLatin1Char('/'));
    const QStringRef folder = path.leftRef(qMax(slash, 0));
    dir = folder == sharedDir ? sharedDir : folder.toString();
    fileName = path.mid(slash + 1);
}

QString MailItem::PartFilePath(const AttachmentEntry& a) const {
    if (a.partFile.isEmpty() || a.partFile.startsWith(QLatin1Char('/')))
        return a.partFile;
    return dir.left(qMax(dir.lastIndexOf(QLatin1Char('/')), 0)) + QLatin1Char('/') + a.partFile;
}

QString MailItem::PartFileRelative(const QString& path) const {
    const QStringRef above = dir.leftRef(qMax(dir.lastIndexOf(QLatin1Char('/')), 0));
    if (!above.isEmpty() && path.size() > above.size() + 1 && path.startsWith(above) &&
        path.at(above.size()) == QLatin1Char('/'))
        return path.mid(above.size() + 1);
    return QFileInfo(path).absoluteFilePath();
}
