// The worker thread and the scan walk: start and stop requests, the order of
// the signals per list line, and where a scan ends.
#include "FolderTreeSink.h"
#include "Globals.h"
#include "Records.h"
#include "ScaningThread.h"
#include "TestSupport.h"

#include <QSemaphore>
#include <QTemporaryDir>
#include <QtTest>

using namespace TestSupport;

namespace {

// Logs the thread's signals as letters, in the order the worker emits them:
// S progress shown, T total set, C list cleared, N new item, V progress step,
// F finished. Connected directly, so the log is written on the worker.
struct SignalLog {
    explicit SignalLog(ScaningThread& t) {
        QObject::connect(
            &t, &ScaningThread::OnShowingScanProgBar, &ctx, [this] { events += 'S'; },
            Qt::DirectConnection);
        QObject::connect(
            &t, &ScaningThread::OnSettingsForPrgBar, &ctx,
            [this](unsigned long n, const QString& caption) {
                events += 'T';
                total = n;
                this->caption = caption;
            },
            Qt::DirectConnection);
        QObject::connect(
            &t, &ScaningThread::ClearLeftTree, &ctx, [this] { events += 'C'; },
            Qt::DirectConnection);
        QObject::connect(
            &t, &ScaningThread::NewItem, &ctx,
            [this](const QString&, const QString& number, void* item, unsigned long long id,
                   unsigned long long count, bool, int, int state) {
                events += 'N';
                items << QStringLiteral("%1:%2:%3:%4").arg(id).arg(number).arg(count).arg(state);
                treeItems << item;
                if (stopAfter && items.size() == stopAfter)
                    bStopFlag = true;
            },
            Qt::DirectConnection);
        QObject::connect(
            &t, &ScaningThread::CurrentValue, &ctx, [this] { events += 'V'; },
            Qt::DirectConnection);
        QObject::connect(
            &t, &ScaningThread::FinishScaning, &ctx, [this] { events += 'F'; },
            Qt::DirectConnection);
    }
    QObject ctx;
    QString events;
    QStringList items; // folder id : number text : count : label state
    QList<void*> treeItems;
    unsigned long total = 12345;
    QString caption;
    int stopAfter = 0;
};

QByteArray SmallMessage(const QString& subject) {
    return Emlx("From: a@example.org\nTo: b@example.org\nSubject: " + subject.toUtf8() +
                "\nDate: Tue, 05 Mar 2013 14:07:09 +0000\n\nBody\n");
}

// Puts a find stand-in first in PATH that prints a prepared list instead of
// searching, so that the list can hold any line.
void InstallListFind(const QString& dir, const QByteArray& emlxList) {
    WriteFile(dir + "/list.txt", emlxList);
    WriteFile(dir + "/find", "#!/bin/bash\n"
                             "case \"$*\" in *'*.emlxpart'*) ;; *) cat '" +
                                 dir.toUtf8() + "/list.txt' ;; esac\n");
    QFile::setPermissions(dir + "/find", QFile::permissions(dir + "/find") | QFileDevice::ExeOwner);
    qputenv("PATH", dir.toLocal8Bit() + ":" + qgetenv("PATH"));
}

quint64 AttachedMessages() {
    quint64 n = 0;
    for (FldrAtrib* f = StartFldrAtrib; f; f = f->pNext)
        for (MailItem* m = f->pFirstMail; m; m = m->pNext)
            ++n;
    return n;
}

} // namespace

class TestThread : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { m_path = qgetenv("PATH"); }
    void init() {
        qputenv("PATH", m_path);
        FreeAllFolderRecords();
        m_sink.Clear();
        pMainWindow = &m_sink;
        IsPreview = true;
        bStopFlag = false;
        llParentIdRunning = 0;
        PID = 501;
        QVERIFY(m_dir.isValid());
        m_store = m_dir.path() + QStringLiteral("/store") + QString::number(++m_run);
        m_strInputfilepath = m_store;
    }
    void cleanup() {
        FreeAllFolderRecords();
        pMainWindow = nullptr;
    }

    // Each list line is used as it stands; "@S" stands for the store. Lines
    // naming an ".emlx" file get a real message file unless they name "missing".
    void walk_data() {
        QTest::addColumn<QStringList>("lines");
        QTest::addColumn<QString>("events");
        QTest::addColumn<QStringList>("folders"); // names in order of creation
        QTest::addColumn<QStringList>("items");   // NewItem: folder:number:count:state
        QTest::addColumn<bool>("converted");
        QTest::addColumn<int>("attached");
        QTest::addColumn<bool>("listRemoved");

        const QString rss = QStringLiteral("@S/V2/RSS/Apple Hot News.rssmbox/Messages/7.emlx");
        QTest::newRow("empty list")
            << QStringList{} << "STF" << QStringList{} << QStringList{} << false << 0 << true;
        QTest::newRow("rss and empty lines advance the progress")
            << QStringList{"", rss, "@S/A.mbox/Messages/1.emlx", "", "@S/A.mbox/Messages/2.emlx"}
            << "STVVCNVVNVF" << QStringList{"A"} << QStringList{"A:1:1:0", "A:2:2:2"} << true << 2
            << true;
        QTest::newRow("only news feed messages")
            << QStringList{rss, rss} << "STVVF" << QStringList{} << QStringList{} << false << 0
            << true;
        // The count is the message's place in its folder; the state is 0 for
        // a folder's first message and 2 later on.
        QTest::newRow("each change of folder clears the list")
            << QStringList{"@S/A.mbox/Messages/10.emlx", "@S/B.mbox/Messages/20.partial.emlx",
                           "@S/B.mbox/Messages/21.emlx", "@S/A.mbox/Messages/x1.emlx"}
            << "STCNVCNVNVCNVF" << QStringList{"A", "B"}
            << QStringList{"A:10:1:0", "B:20:1:0", "B:21:2:2", "A:x1:2:2"} << true << 4 << true;
        QTest::newRow("trailing blank of a line is kept")
            << QStringList{"@S/A.mbox/Messages/5.emlx "} << "STCNVF" << QStringList{"A"}
            << QStringList{"A:5:1:0"} << true << 1 << true;
        QTest::newRow("message outside any folder before the first folder is left out")
            << QStringList{"@S/9.emlx", "@S/A.mbox/Messages/1.emlx"} << "STVCNVF"
            << QStringList{"A"} << QStringList{"A:1:1:0"} << true << 1 << true;
        QTest::newRow("message outside any folder joins the previous folder")
            << QStringList{"@S/A.mbox/Messages/1.emlx", "@S/9.emlx"} << "STCNVNVF"
            << QStringList{"A"} << QStringList{"A:1:1:0", "A:9:2:2"} << true << 2 << true;
        QTest::newRow("a file that cannot be opened ends the scan")
            << QStringList{"@S/A.mbox/Messages/1.emlx", "@S/B.mbox/Messages/missing.emlx",
                           "@S/A.mbox/Messages/3.emlx"}
            << "STCNVCF" << QStringList{"A", "B"} << QStringList{"A:1:1:0"} << true << 2 << false;
    }
    void walk() {
        QFETCH(QStringList, lines);
        QFETCH(QString, events);
        QFETCH(QStringList, folders);
        QFETCH(QStringList, items);
        QFETCH(bool, converted);
        QFETCH(int, attached);
        QFETCH(bool, listRemoved);

        QByteArray list;
        for (QString line : lines) {
            line.replace(QLatin1String("@S"), m_store);
            list += line.toUtf8() + '\n';
            if (line.contains(QLatin1String(".emlx")) && !line.contains(QLatin1String("missing")))
                QVERIFY(WriteFile(line, SmallMessage(QStringLiteral("m"))));
        }
        QDir().mkpath(m_store);
        InstallListFind(m_dir.path() + "/bin" + QString::number(m_run), list);

        ScaningThread thread;
        SignalLog log(thread);
        thread.SetInitialSettings();
        QVERIFY(thread.wait(60000));

        QCOMPARE(log.events, events);
        QCOMPARE(log.total, static_cast<unsigned long>(lines.size()));
        QCOMPARE(log.caption, QStringLiteral("Scanning Database. Please Wait..."));
        QStringList created;
        for (FldrAtrib* f = StartFldrAtrib; f; f = f->pNext)
            if (f->ullId != 501)
                created << m_sink.FolderName(f->ullId);
        QCOMPARE(created, folders);
        QStringList announced;
        for (int i = 0; i < log.items.size(); ++i) {
            const quint64 id = log.items.at(i).section(QLatin1Char(':'), 0, 0).toULongLong();
            announced << m_sink.FolderName(id) + log.items.at(i).mid(log.items.at(i).indexOf(':'));
            QVERIFY(log.treeItems.at(i));
            QCOMPARE(log.treeItems.at(i), FindFolderRecord(id)->pTreeItem);
        }
        QCOMPARE(announced, items);
        QCOMPARE(bool(IsConverted), converted);
        QCOMPARE(AttachedMessages(), quint64(attached));
        QCOMPARE(QFile::exists(TempDir() + "/VortigaEmlx"), !listRemoved);
        QVERIFY(!bStopFlag);
        QVERIFY(!bProcessRunning);
        // Every attached message keeps its list line, untrimmed, as its path.
        for (FldrAtrib* f = StartFldrAtrib; f; f = f->pNext)
            for (MailItem* m = f->pFirstMail; m; m = m->pNext)
                QVERIFY(list.contains(Utf16Text(m->pPath, m->ulPathSize).toUtf8() + '\n'));
        QFile::remove(TempDir() + "/VortigaEmlx");
    }

    void secondRequestWhileRunningOnlyStops() {
        QVERIFY(WriteFile(m_store + "/A.mbox/Messages/1.emlx", SmallMessage("one")));
        ScaningThread thread;
        SignalLog log(thread);
        QSemaphore reached, gate;
        const QMetaObject::Connection blocker = QObject::connect(
            &thread, &ScaningThread::OnShowingScanProgBar, &log.ctx,
            [&] {
                reached.release();
                gate.acquire();
            },
            Qt::DirectConnection);
        QSignalSpy started(&thread, &QThread::started);

        thread.SetInitialSettings();
        QVERIFY(reached.tryAcquire(1, 60000));
        QVERIFY(bProcessRunning);
        QVERIFY(!bStopFlag);
        thread.SetInitialSettings();
        QVERIFY(bStopFlag);
        QVERIFY(thread.isRunning());
        gate.release();
        QVERIFY(thread.wait(60000));

        QCOMPARE(started.count(), 1);
        QCOMPARE(log.events, QStringLiteral("ST")); // no message, no FinishScaning
        QVERIFY(!bStopFlag);
        QVERIFY(!bProcessRunning);
        QVERIFY(!QFile::exists(TempDir() + "/VortigaEmlx"));

        // Idle again: the next request starts a new run.
        log.events.clear();
        QObject::disconnect(blocker);
        thread.SetInitialSettings();
        QVERIFY(thread.wait(60000));
        QCOMPARE(started.count(), 2);
        QCOMPARE(log.events, QStringLiteral("STCNVF"));
    }

    void stopRequestEndsBeforeTheNextFile() {
        InstallSortedFind(m_dir.path() + "/sorted");
        for (int i = 1; i <= 6; ++i)
            QVERIFY(WriteFile(m_store + QStringLiteral("/A.mbox/Messages/%1.emlx").arg(i),
                              SmallMessage(QString::number(i))));
        ScaningThread thread;
        SignalLog log(thread);
        log.stopAfter = 3;
        thread.SetInitialSettings();
        QVERIFY(thread.wait(60000));
        QCOMPARE(log.events, QStringLiteral("STCNVNVNV"));
        QCOMPARE(log.total, 6UL);
        QCOMPARE(AttachedMessages(), quint64(3));
        QVERIFY(!bStopFlag);
        QVERIFY(!bProcessRunning);
        QVERIFY(!QFile::exists(TempDir() + "/VortigaEmlx"));
    }

    void partListAndTemporaryFiles() {
        InstallSortedFind(m_dir.path() + "/sorted");
        const QString dir = m_store + "/V2/Mailboxes/Work.mbox/Messages/";
        QVERIFY(WriteFile(dir + "12.partial.emlx", SmallMessage("p")));
        QVERIFY(WriteFile(dir + "12.3.emlxpart", "x"));
        QVERIFY(WriteFile(dir + "12.2.emlxpart", "x"));
        QVERIFY(WriteFile(dir + "čeština ' \".emlxpart", "x"));
        QVERIFY(WriteFile(m_store + "/V2/RSS/Apple Hot News.rssmbox/Messages/3.emlx",
                          SmallMessage("rss")));
        ScaningThread thread;
        SignalLog log(thread);
        thread.SetInitialSettings();
        QVERIFY(thread.wait(60000));
        QCOMPARE(listOfPathOfEmlxPart, (QStringList{dir + "12.2.emlxpart", dir + "12.3.emlxpart",
                                                    dir + "čeština ' \".emlxpart"}));
        QCOMPARE(log.events, QStringLiteral("STCNVVF")); // Mailboxes sorts before RSS
        QCOMPARE(m_sink.FolderPath(llParentIdRunning), QStringLiteral("V2/Mailboxes/Work"));
        // The UTF-8 lists stay (the message list) or go (the part list).
        QVERIFY(QFile::exists(TempDir() + "/QuenmoorEmlx"));
        QVERIFY(!QFile::exists(TempDir() + "/QuenmoorEmlxPart"));
        QVERIFY(QFile::exists(TempDir() + "/VortigaEmlxPart"));
        QVERIFY(!QFile::exists(TempDir() + "/VortigaEmlx"));
    }

    void pathsWithAnyCharacterSurvive() {
        // Folder and file names with quotes, blanks, a carriage return and
        // letters whose UTF-16 units hold the byte 0x0D (U+010D, U+0D05).
        InstallSortedFind(m_dir.path() + "/sorted");
        m_store += QStringLiteral("/it's a \"store\" $HOME");
        m_strInputfilepath = m_store;
        const QString folder = QStringLiteral("Přílohy č. 5 \u0D05\r.mbox");
        QVERIFY(WriteFile(m_store + "/" + folder + "/Messages/8.emlx", SmallMessage("x")));
        ScaningThread thread;
        SignalLog log(thread);
        thread.SetInitialSettings();
        QVERIFY(thread.wait(60000));
        QCOMPARE(log.events, QStringLiteral("STCNVF"));
        QCOMPARE(m_sink.FolderPath(llParentIdRunning), QStringLiteral("Přílohy č. 5 \u0D05\r"));
        QCOMPARE(Utf16Text(StartFldrAtrib->pNext->pFirstMail->pPath,
                           StartFldrAtrib->pNext->pFirstMail->ulPathSize),
                 m_store + "/" + folder + "/Messages/8.emlx");
    }

    void secondScanContinuesIdentifiers() {
        InstallSortedFind(m_dir.path() + "/sorted");
        QVERIFY(WriteFile(m_store + "/A.mbox/B.mbox/Messages/1.emlx", SmallMessage("1")));
        ScaningThread thread;
        thread.SetInitialSettings();
        QVERIFY(thread.wait(60000));
        const quint64 last = EndFldrAtrib->ullId;
        QCOMPARE(PID, last);
        FreeAllFolderRecords();
        thread.SetInitialSettings();
        QVERIFY(thread.wait(60000));
        QCOMPARE(StartFldrAtrib->ullId, quint64(501));
        QCOMPARE(StartFldrAtrib->pNext->ullId, last + 1);
        QCOMPARE(EndFldrAtrib->ullId, last + 2);
        QCOMPARE(m_sink.FolderPath(last + 2), QStringLiteral("A/B"));
    }

private:
    QTemporaryDir m_dir;
    QString m_store;
    QByteArray m_path;
    int m_run = 0;
    HeadlessFolderSink m_sink;
};

QTEST_GUILESS_MAIN(TestThread)
#include "tst_core_thread.moc"
