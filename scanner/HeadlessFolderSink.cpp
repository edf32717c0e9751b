#include "scanner/FolderTreeSink.h"
#include "scanner/Records.h"

void HeadlessFolderSink::LeftTreeView(unsigned long long parentId, unsigned long long id,
                                      QString name) {
    if (!StartFldrAtrib) {
        m_nodes.clear();
        FldrAtrib* root = AppendFolderRecord(0, 501, nullptr, 3);
        root->pTreeItem = root;
        m_nodes.insert(501, {0, QStringLiteral("Mailbox")});
    }
    FldrAtrib* rec = AppendFolderRecord(parentId, id, nullptr, 0);
    // Like the window: a folder whose parent is unknown gets no tree item.
    if (m_nodes.contains(parentId)) {
        rec->pTreeItem = rec;
        m_nodes.insert(id, {parentId, name});
    }
}

QString HeadlessFolderSink::FolderName(unsigned long long id) const {
    return m_nodes.value(id).name;
}

QString HeadlessFolderSink::FolderPath(unsigned long long id) const {
    QStringList parts;
    while (id != 501 && m_nodes.contains(id)) {
        const Node& n = m_nodes[id];
        parts.prepend(n.name);
        id = n.parent;
    }
    return parts.join(QLatin1Char('/'));
}

void HeadlessFolderSink::Clear() {
    m_nodes.clear();
}
