// The folder builder: folder paths into folders with identifiers, each
// (name, parent) pair created once, parents announced before children.
#include "FolderTreeSink.h"
#include "Globals.h"
#include "Records.h"
#include "ScaningThread.h"

#include <QtTest>

namespace {

// Keeps the folder records like the window and logs every announcement.
class RecordingSink : public HeadlessFolderSink {
public:
    void LeftTreeView(unsigned long long parentId, unsigned long long id, QString name) override {
        calls << QStringLiteral("%1>%2:%3").arg(parentId).arg(id).arg(name);
        HeadlessFolderSink::LeftTreeView(parentId, id, name);
    }
    QStringList calls;
};

void ResetBuilder() {
    objMapName_FID.clear();
    objMapFID_PID.clear();
    objMapFID_Name.clear();
    PID = 501;
    llParentIdRunning = 0;
    FreeAllFolderRecords();
}

} // namespace

class TestFolders : public QObject {
    Q_OBJECT
private slots:
    void init() {
        ResetBuilder();
        m_pMainWindow = &m_sink;
        m_sink.calls.clear();
        m_sink.Clear();
    }
    void cleanup() {
        FreeAllFolderRecords();
        m_pMainWindow = nullptr;
    }

    void buildsFolders_data() {
        QTest::addColumn<QStringList>("paths");
        QTest::addColumn<QStringList>("calls");
        QTest::addColumn<QList<unsigned long long>>("folderOfEach");

        using L = QList<unsigned long long>;
        QTest::newRow("one path, three levels")
            << QStringList{"A/B/C"} << QStringList{"501>502:A", "502>503:B", "503>504:C"} << L{504};
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
        QTest::newRow("empty part between two names")
            << QStringList{"A//B", "A//B"} << QStringList{"501>502:A", "502>503:", "503>504:B"}
            << L{504, 504};
        QTest::newRow("leading and trailing slash give empty names")
            << QStringList{"/A", "A/"}
            << QStringList{"501>502:", "502>503:A", "501>504:A", "504>505:"} << L{503, 505};
        QTest::newRow("names are case-sensitive")
            << QStringList{"Inbox", "inbox", "Inbox"}
            << QStringList{"501>502:Inbox", "501>503:inbox"} << L{502, 503, 502};
        QTest::newRow("deeper name is not a top-level folder")
            << QStringList{"A/B", "B", "A/B"} << QStringList{"501>502:A", "502>503:B", "501>504:B"}
            << L{503, 504, 503};
        QTest::newRow("a parent's name inside its own child")
            << QStringList{"A/A/A"} << QStringList{"501>502:A", "502>503:A", "503>504:A"} << L{504};
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
        // Each announced folder has its record, under the announced parent,
        // after the root record.
        QVERIFY(StartFldrAtrib);
        QCOMPARE(StartFldrAtrib->ullId, quint64(501));
        QCOMPARE(StartFldrAtrib->ullParentId, quint64(0));
        for (const QString& c : calls) {
            const quint64 parent = c.section(QLatin1Char('>'), 0, 0).toULongLong();
            const quint64 id =
                c.section(QLatin1Char('>'), 1).section(QLatin1Char(':'), 0, 0).toULongLong();
            QVERIFY2(FindFolderRecord(id, parent), qPrintable(c));
            QCOMPARE(objMapFID_PID.value(id), parent);
            QCOMPARE(objMapFID_Name.value(id), c.section(QLatin1Char(':'), 1));
        }
    }

    void getParentIdPrefersTheMostRecentIdentifier() {
        ScaningThread thread;
        objMapName_FID.insert(QStringLiteral("X"), 600);
        objMapFID_PID.insert(600, 501);
        objMapName_FID.insert(QStringLiteral("X"), 601);
        objMapFID_PID.insert(601, 501);
        objMapName_FID.insert(QStringLiteral("X"), 602); // no parent entry: parent 0
        unsigned long long out = 1;
        QVERIFY(thread.GetParentId(QStringLiteral("X"), 501, &out));
        QCOMPARE(out, 601ULL);
        QVERIFY(thread.GetParentId(QStringLiteral("X"), 0, &out));
        QCOMPARE(out, 602ULL);
        out = 1;
        QVERIFY(!thread.GetParentId(QStringLiteral("X"), 502, &out));
        QVERIFY(!thread.GetParentId(QStringLiteral("x"), 501, &out));
        QCOMPARE(out, 1ULL);
    }

private:
    RecordingSink m_sink;
};

QTEST_GUILESS_MAIN(TestFolders)
#include "tst_core_folders.moc"
