// Scan records, the headless folder tree and the small shared helpers.
#include "scanner/FolderTreeSink.h"
#include "scanner/Globals.h"
#include "scanner/Records.h"

#include <QtTest>

class TestRecords : public QObject {
    Q_OBJECT
private slots:
    void cleanup() { FreeAllFolderRecords(); }

    void recordsKeepOrderAndFreeEverything() {
        FldrAtrib* a = AppendFolderRecord(0, 501, nullptr, 3);
        FldrAtrib* b = AppendFolderRecord(501, 502, nullptr, 0);
        QCOMPARE(StartFldrAtrib, a);
        QCOMPARE(EndFldrAtrib, b);
        QCOMPARE(a->pNext, b);
        for (int i = 0; i < 3; ++i) {
            MailItem* m = NewMailItem();
            SetUtf16(&m->pSubject, &m->ulSubjectSize, QStringLiteral("S%1 ü").arg(i));
            SetUtf16(&m->pPath, &m->ulPathSize, QStringLiteral("/p/%1.emlx").arg(i));
            SetBytes(&m->pPlainCharset, "utf-8");
            SetBytes(&m->pDate, QByteArray());
            for (int k = 0; k < 2; ++k) {
                AttachmentEntry* e = NewAttachment();
                SetUtf16(&e->pName, &e->ulNameSize, QStringLiteral("a%1.png").arg(k));
                SetUtf16(&e->pPartFile, &e->ulPartFileSize, QStringLiteral("/p/1.2.emlxpart"));
                AppendAttachment(m, e);
            }
            AppendMailToFolder(b, m);
        }
        QCOMPARE(b->ullMsgCount, quint64(3));
        QCOMPARE(Utf16Text(b->pFirstMail->pSubject, b->pFirstMail->ulSubjectSize),
                 QStringLiteral("S0 ü"));
        QCOMPARE(b->pFirstMail->ulSubjectSize, quint32(8));
        QCOMPARE(Utf16Text(b->pLastMail->pSubject, b->pLastMail->ulSubjectSize),
                 QStringLiteral("S2 ü"));
        QVERIFY(b->pLastMail->pAttachTail->pNext == nullptr);
        QCOMPARE(QByteArray(b->pFirstMail->pDate), QByteArray());
        // Everything is freed (LeakSanitizer checks the blocks) and the list is empty.
        FreeAllFolderRecords();
        QVERIFY(!StartFldrAtrib);
        QVERIFY(!EndFldrAtrib);
        QVERIFY(!FindFolderRecord(502));
    }

    void findFolderRecordByIdAndParent() {
        AppendFolderRecord(0, 501, nullptr, 3);
        AppendFolderRecord(501, 502, nullptr, 0);
        FldrAtrib* c = AppendFolderRecord(502, 503, nullptr, 0);
        QCOMPARE(FindFolderRecord(503), c);
        QCOMPARE(FindFolderRecord(503, 502), c);
        QVERIFY(!FindFolderRecord(503, 501));
        QCOMPARE(LastFolderRecord(), c);
    }

    void headlessSinkBuildsRootAndSkipsUnknownParents() {
        HeadlessFolderSink sink;
        sink.LeftTreeView(501, 502, QStringLiteral("Mailboxes"));
        sink.LeftTreeView(502, 503, QStringLiteral("Re (old)"));
        sink.LeftTreeView(999, 504, QStringLiteral("Orphan"));
        QCOMPARE(StartFldrAtrib->ullId, 501ull);
        QCOMPARE(StartFldrAtrib->ucTickState, quint8(3));
        QCOMPARE(sink.FolderName(501), QStringLiteral("Mailbox"));
        QCOMPARE(sink.FolderPath(503), QStringLiteral("Mailboxes/Re (old)"));
        FldrAtrib* orphan = FindFolderRecord(504);
        QVERIFY(orphan);
        QVERIFY(!orphan->pTreeItem);
        QVERIFY(FindFolderRecord(503)->pTreeItem);
        QCOMPARE(FindFolderRecord(503)->ucTickState, quint8(0));
    }

    void defaultMailPath_data() {
        QTest::addColumn<QString>("user");
        QTest::addColumn<QString>("path");
        QTest::newRow("ordinary user") << "anna"
                                       << "/Users/anna/Library/Mail";
        QTest::newRow("root") << "root"
                              << "/private/var/root/Library/Mail";
        QTest::newRow("case matters") << "Root"
                                      << "/Users/Root/Library/Mail";
        QTest::newRow("no name") << ""
                                 << "/Users//Library/Mail";
    }
    void defaultMailPath() {
        QFETCH(QString, user);
        QFETCH(QString, path);
        QCOMPARE(DefaultMailPathFor(user), path);
    }

    void shellQuoteSurvivesBash_data() {
        QTest::addColumn<QString>("name");
        QTest::newRow("plain") << "Mail";
        QTest::newRow("blank and parens") << "Main Identity_(5 Mar 2026,14-07-09).rge";
        QTest::newRow("single quote") << "Anna's mail";
        QTest::newRow("dollar and backtick") << "$HOME `id` \\x";
        QTest::newRow("non-ascii") << "Pošta 郵便";
    }
    void shellQuoteSurvivesBash() {
        QFETCH(QString, name);
        QTemporaryDir dir(QDir::tempPath() + "/pellomar-quote-XXXXXX");
        QVERIFY(dir.isValid());
        const QString path = dir.path() + "/" + name;
        QCOMPARE(pellomar::RunShellCommand("touch " + pellomar::ShellQuote(path)), 0);
        QVERIFY(QFileInfo::exists(path));
        if (!name.contains('\''))
            QCOMPARE(pellomar::ShellQuote(path), "'" + path + "'");
    }
};

QTEST_GUILESS_MAIN(TestRecords)
#include "tst_core_records.moc"
