// Turns a message's folder path ("A/B/C") into folders with identifiers,
// creating each (name, parent) pair once and telling the folder tree about
// every new folder, parents before children.
#include "scanner/FolderTreeSink.h"
#include "scanner/Globals.h"
#include "scanner/ScaningThread.h"

#include <QStringList>

bool ScaningThread::GetParentId(QString name, unsigned long long parentId,
                                unsigned long long* outId) {
    // values() lists the identifiers of one name most recent first.
    const QList<unsigned long long> ids = objMapName_FID.values(name);
    for (unsigned long long id : ids) {
        if (objMapFID_PID.value(id, 0) == parentId) {
            *outId = id;
            return true;
        }
    }
    return false;
}

void ScaningThread::treeCreator(QString path) {
    // A message without a folder path stays with the previous message's folder.
    if (path.isEmpty())
        return;
    const QStringList parts = path.split(QLatin1Char('/'), Qt::KeepEmptyParts);
    for (int i = 0; i < parts.size(); ++i) {
        const QString& part = parts.at(i);
        const unsigned long long parent = i == 0 ? llRootId : llParentIdRunning;
        if (GetParentId(part, parent, &llParentIdRunning))
            continue;
        const unsigned long long id = ++PID;
        objMapName_FID.insert(part, id);
        objMapFID_PID.insert(id, parent);
        objMapFID_Name.insert(id, part);
        llParentIdRunning = id;
        if (m_pMainWindow)
            m_pMainWindow->LeftTreeView(parent, id, part);
    }
}
