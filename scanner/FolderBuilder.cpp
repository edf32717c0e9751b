#include "scanner/FolderBuilder.h"
#include "scanner/RunProgress.h"
#include "scanner/Store.h"

bool FolderBuilder::GetParentId(const QString& name, unsigned long long parentId,
                                unsigned long long* outId) {
    // A (name, parent) pair is made once, so at most one identifier fits.
    for (auto it = objMapName_FID.constFind(name); it != objMapName_FID.cend() && it.key() == name;
         ++it) {
        if (objMapFID_PID.value(it.value(), 0) == parentId) {
            *outId = it.value();
            return true;
        }
    }
    return false;
}

void FolderBuilder::treeCreator(const QVector<FolderPart>& parts) {
    for (int i = 0; i < parts.size(); ++i) {
        const FolderPart& part = parts.at(i);
        const unsigned long long parent = i == 0 ? llRootId : llParentIdRunning;
        if (GetParentId(part.key, parent, &llParentIdRunning))
            continue;
        const unsigned long long id = ++PID;
        objMapName_FID.insert(part.key, id);
        objMapFID_PID.insert(id, parent);
        objMapFID_Name.insert(id, part.name);
        llParentIdRunning = id;
        const FldrAtrib* made = m_store.AddFolder(parent, id, part.name, part.kind);
        m_progress.LeftTreeView(parent, id, made ? made->displayName : part.name);
    }
}
