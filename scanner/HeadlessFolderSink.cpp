#include "scanner/FolderTreeSink.h"
#include "scanner/Globals.h"
#include "scanner/Records.h"

void HeadlessFolderSink::LeftTreeView(unsigned long long parentId, unsigned long long id,
                                      QString name) {
    if (!StartFldrAtrib) {
        m_nodes.clear();
        FldrAtrib* root = AppendFolderRecord(0, llRootId, nullptr, kNotTicked);
        root->pTreeItem = root;
        m_nodes.insert(llRootId, {0, QStringLiteral("Mailbox")});
    }
    FldrAtrib* rec = AppendFolderRecord(parentId, id, nullptr, kTickUnset);
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
    while (id != llRootId && m_nodes.contains(id)) {
        const Node& n = m_nodes[id];
        parts.prepend(n.name);
        id = n.parent;
    }
    return parts.join(QLatin1Char('/'));
}

void HeadlessFolderSink::Clear() {
    m_nodes.clear();
}
