#pragma once
#include <QMap>
#include <QString>
#include <QStringList>

// Receives each new folder of a scan, parents before children. The main
// window implements it on the GUI thread; the command-line tool and the tests
// use HeadlessFolderSink. Whoever implements it must append a FldrAtrib
// record for the folder (and the root record "Mailbox", 501, first).
class FolderTreeSink {
public:
    virtual ~FolderTreeSink() = default;
    virtual void LeftTreeView(unsigned long long parentId, unsigned long long id, QString name) = 0;
};

// A folder tree without widgets: it keeps the folder records and names. The
// records' tree item is a non-null token, so the scan announces messages just
// as it does for the window.
class HeadlessFolderSink : public FolderTreeSink {
public:
    void LeftTreeView(unsigned long long parentId, unsigned long long id, QString name) override;
    QString FolderName(unsigned long long id) const;
    // Folder path as the scan shows it, e.g. "V2/Mailboxes/Work" (root: "").
    QString FolderPath(unsigned long long id) const;
    void Clear();

private:
    struct Node {
        unsigned long long parent;
        QString name;
    };
    QMap<unsigned long long, Node> m_nodes;
};
