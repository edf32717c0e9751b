#pragma once
// Turns the folder path of each message into folders of a store: each
// (name, parent) pair is made once, with the next identifier, parents before
// children, and announced as it is made.

#include "scanner/Discovery.h"

#include <QHash>
#include <QMultiHash>
#include <QString>

class RunProgress;
class Store;

class FolderBuilder {
public:
    FolderBuilder(Store& store, RunProgress& progress) : m_store(store), m_progress(progress) {}

    // Builds the missing folders of one message's folder path and leaves the
    // deepest one's identifier in llParentIdRunning. An empty path leaves
    // llParentIdRunning as it was: the message joins the previous folder.
    void treeCreator(const QVector<FolderPart>& parts);
    // The folder whose level is named `name` on disk below `parentId`, when
    // it has been made.
    bool GetParentId(const QString& name, unsigned long long parentId, unsigned long long* outId);

    // The last identifier handed out (the root's before the first folder).
    unsigned long long PID = llRootId;
    // The folder of the last path built; 0 before the first one.
    unsigned long long llParentIdRunning = 0;
    // Folder name on disk -> identifiers of the folders of that name.
    QMultiHash<QString, unsigned long long> objMapName_FID;
    // Folder identifier -> its parent's.
    QHash<unsigned long long, unsigned long long> objMapFID_PID;
    // Folder identifier -> its name.
    QHash<unsigned long long, QString> objMapFID_Name;

private:
    Store& m_store;
    RunProgress& m_progress;
};
