// The folder builder: folder paths into folders with identifiers, each
// (name, parent) pair created once, parents announced before children.
#include "scanner/FolderTreeSink.h"
#include "scanner/Globals.h"
#include "scanner/ScaningThread.h"

#include <QtTest>

namespace {
// Logs every announcement: "parent>id:name".
class RecordingSink : public FolderTreeSink {
public:
    void LeftTreeView(unsigned long long parentId, unsigned long long id, QString name) override {
        calls << QStringLiteral("%1>%2:%3").arg(parentId).arg(id).arg(name);
    }
    QStringList calls;
};
} // namespace

class TestFolders : public QObject {
    Q_OBJECT
private slots:
    void init() {
        objMapName_FID.clear();
        objMapFID_PID.clear();
        objMapFID_Name.clear();
        PID = 501;
        llParentIdRunning = 0;
        m_pMainWindow = &m_sink;
        m_sink.calls.clear();
    }
    void cleanup() { m_pMainWindow = nullptr; }

    void buildsFolders_data() {
        QTest::addColumn<QStringList>("paths");
        QTest::addColumn<QStringList>("calls");
        QTest::addColumn<QList<unsigned long long>>("folderOfEach");
        using L = QList<unsigned long long>;
        QTest::newRow("same name under two parents, found again")
            << QStringList{"A/Inbox", "B/Inbox", "A/Inbox", "B/Inbox"}
            << QStringList{"501>502:A", "502>503:Inbox", "501>504:B", "504>505:Inbox"}
            << L{503, 505, 503, 505};
        QTest::newRow("shared prefix is built once")
            << QStringList{"Mailboxes/Work", "Mailboxes/Work/Projects", "Mailboxes/Home"}
            << QStringList{"501>502:Mailboxes", "502>503:Work", "503>504:Projects", "502>505:Home"}
            << L{503, 504, 505};
        QTest::newRow("empty path keeps the previous folder")
            << QStringList{"A", "", "B", ""} << QStringList{"501>502:A", "501>503:B"}
            << L{502, 502, 503, 503};
        QTest::newRow("empty parts give folders with empty names")
            << QStringList{"A//B", "/A", "A//B"}
            << QStringList{"501>502:A", "502>503:", "503>504:B", "501>505:", "505>506:A"}
            << L{504, 506, 504};
        QTest::newRow("names are case-sensitive")
            << QStringList{"Inbox", "inbox", "Inbox"}
            << QStringList{"501>502:Inbox", "501>503:inbox"} << L{502, 503, 502};
    }
    void buildsFolders() {
        QFETCH(QStringList, paths);
        QFETCH(QStringList, calls);
        QFETCH(QList<unsigned long long>, folderOfEach);
        ScaningThread thread;
        QList<unsigned long long> folders;
        for (const QString& p : paths) {
            thread.treeCreator(p);
            folders << llParentIdRunning;
        }
        QCOMPARE(m_sink.calls, calls);
        QCOMPARE(folders, folderOfEach);
    }

private:
    RecordingSink m_sink;
};

QTEST_GUILESS_MAIN(TestFolders)
#include "tst_core_folders.moc"
