// The worker thread and the scan walk: start and stop requests, the order of
// the signals per list line, and where a scan ends.
#include "scanner/FolderTreeSink.h"
#include "scanner/Globals.h"
#include "scanner/Records.h"
#include "scanner/ScaningThread.h"
#include "tests/TestSupport.h"

#include <QSemaphore>
#include <QTemporaryDir>
#include <QtTest>

#include <unistd.h>

using namespace TestSupport;

namespace {

// Logs the thread's signals as letters, in the order the worker emits them:
// S progress shown, T and the total, C list cleared, N new item, V progress step,
// F finished. Connected directly, so the log is written on the worker.
struct SignalLog {
    SignalLog(ScaningThread& t, const HeadlessFolderSink& sink) {
        auto letter = [&](auto signal, char c) {
            QObject::connect(
                &t, signal, &ctx, [this, c] { events += c; }, Qt::DirectConnection);
        };
        letter(&ScaningThread::OnShowingScanProgBar, 'S');
        letter(&ScaningThread::ClearLeftTree, 'C');
        letter(&ScaningThread::CurrentValue, 'V');
        letter(&ScaningThread::FinishScaning, 'F');
        QObject::connect(
            &t, &ScaningThread::OnSettingsForPrgBar, &ctx,
            [this](unsigned long n) { events += QStringLiteral("T%1").arg(n); },
            Qt::DirectConnection);
        QObject::connect(
            &t, &ScaningThread::NewItem, &ctx,
            [this, &sink](const QString&, const QString& number, void* item, unsigned long long id,
                          unsigned long long count, bool, int, int state) {
                events += 'N';
                items << QStringLiteral("%1:%2:%3:%4")
                             .arg(sink.FolderName(id), number)
                             .arg(count)
                             .arg(state);
                const FldrAtrib* folder = FindFolderRecord(id);
                wrongTreeItems += !item || !folder || folder->pTreeItem != item;
                if (stopAfter && items.size() == stopAfter)
                    bStopFlag = true;
            },
            Qt::DirectConnection);
    }
    QObject ctx;
    QString events;
    QStringList items; // folder name : number text : count : label state
    int wrongTreeItems = 0;
    int stopAfter = 0;
};

QByteArray SmallMessage() {
    return Emlx("From: a@example.org\nTo: b@example.org\nSubject: s\n"
                "Date: Tue, 05 Mar 2013 14:07:09 +0000\n\nBody\n");
}

bool ListRemoved() {
    return !QFile::exists(pellomar::TempDir() + "/QuenmoorEmlx");
}

} // namespace

class TestThread : public QObject {
    Q_OBJECT

    // Runs one scan to its end and checks what every run leaves behind.
    void Scan(ScaningThread& thread) {
        thread.SetInitialSettings();
        QVERIFY(thread.wait(60000));
        QVERIFY(!bStopFlag);
        QVERIFY(!bProcessRunning);
    }

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
        QFile::remove(pellomar::TempDir() + "/QuenmoorEmlx");
    }

    // A find stand-in prints the list, so that it can hold any entry; "@S"
    // stands for the store. Lines naming an ".emlx" file get a real message
    // file unless they name "missing". The scan is stopped once stopAfter
    // messages were announced.
    void walk_data() {
        QTest::addColumn<QStringList>("lines");
        QTest::addColumn<int>("stopAfter");
        QTest::addColumn<QString>("events");
        QTest::addColumn<QStringList>("items");   // NewItem: folder:number:count:state
        QTest::addColumn<QStringList>("records"); // folder:messages, in order of creation
        QTest::addColumn<bool>("listRemoved");

        const QString rss = QStringLiteral("@S/V2/RSS/Apple Hot News.rssmbox/Messages/7.emlx");
        QTest::newRow("empty list")
            << QStringList{} << 0 << "ST0F" << QStringList{} << QStringList{} << true;
        QTest::newRow("rss and empty lines advance the progress")
            << QStringList{"", rss, "@S/A.mbox/m/1.emlx", "", "@S/A.mbox/m/2.emlx"} << 0
            << "ST5VVCNVVNVF" << QStringList{"A:1:1:0", "A:2:2:2"} << QStringList{"A:2"} << true;
        // The count is the message's place in its folder; the state is 0 for
        // a folder's first message and 2 later on. Lines are used untrimmed.
        // A message outside any folder joins the previous folder; before the
        // first folder there is no record to attach it to.
        QTest::newRow("each change of folder clears the list")
            << QStringList{"@S/9.emlx",
                           "@S/A.mbox/m/10.emlx",
                           "@S/B.mbox/m/20.partial.emlx",
                           "@S/B.mbox/m/21.emlx ",
                           "@S/A.mbox/m/x1.emlx",
                           "@S/8.emlx"}
            << 0 << "ST6VCNVCNVNVCNVNVF"
            << QStringList{"A:10:1:0", "B:20:1:0", "B:21:2:2", "A:x1:2:2", "A:8:3:2"}
            << QStringList{"A:3", "B:2"} << true;
        QTest::newRow("a file that cannot be opened ends the scan")
            << QStringList{"@S/A.mbox/m/1.emlx", "@S/B.mbox/m/missing.emlx", "@S/A.mbox/m/3.emlx"}
            << 0 << "ST3CNVCF" << QStringList{"A:1:1:0"} << QStringList{"A:1", "B:1"} << false;
        // Asked to keep going, the scan skips what it cannot open (a missing
        // file, a folder named like a message) and goes on.
        QTest::newRow("keep going: unreadable files are skipped")
            << QStringList{"@S/A.mbox/m/1.emlx", "@S/B.mbox/m/missing.emlx",
                           "@S/B.mbox/m/folder.emlx", "@S/A.mbox/m/3.emlx"}
            << 0 << "ST4CNVCVVCNVF" << QStringList{"A:1:1:0", "A:3:2:2"}
            << QStringList{"A:2", "B:0"} << true;
        QStringList six;
        for (int i = 1; i <= 6; ++i)
            six << QStringLiteral("@S/A.mbox/m/%1.emlx").arg(i);
        QTest::newRow("stop request ends before the next file")
            << six << 3 << "ST6CNVNVNV" << QStringList{"A:1:1:0", "A:2:2:2", "A:3:3:2"}
            << QStringList{"A:3"} << true;
    }
    void walk() {
        QFETCH(QStringList, lines);
        QFETCH(int, stopAfter);
        QFETCH(QString, events);
        QFETCH(QStringList, items);
        QFETCH(QStringList, records);
        QFETCH(bool, listRemoved);

        QByteArray list;
        for (QString line : lines) {
            line.replace(QLatin1String("@S"), m_store);
            list += QFile::encodeName(line) + '\0';
            if (line.contains(QLatin1String("folder.emlx")))
                QVERIFY(QDir().mkpath(line));
            else if (line.contains(QLatin1String(".emlx")) &&
                     !line.contains(QLatin1String("missing")))
                QVERIFY(WriteFile(line, SmallMessage()));
        }
        QDir().mkpath(m_store);
        const QString bin = m_dir.path() + "/bin" + QString::number(m_run);
        QVERIFY(WriteFile(bin + "/list.txt", list));
        QVERIFY(WriteFile(bin + "/find", "#!/bin/bash\ncase \"$*\" in *'*.emlxpart'*) ;; *) cat '" +
                                             bin.toUtf8() + "/list.txt' ;; esac\n"));
        QFile::setPermissions(bin + "/find", QFile::permissions(bin + "/find") | QFile::ExeOwner);
        qputenv("PATH", bin.toLocal8Bit() + ":" + m_path);

        ScaningThread thread;
        const bool keepGoing = QByteArray(QTest::currentDataTag()).startsWith("keep going");
        thread.m_options.keepGoing = keepGoing;
        SignalLog log(thread, m_sink);
        log.stopAfter = stopAfter;
        Scan(thread);
        QCOMPARE(thread.LastScan().skipped.size(), keepGoing ? 2 : 0);

        QCOMPARE(log.events, events);
        QCOMPARE(log.items, items);
        QCOMPARE(log.wrongTreeItems, 0);
        QCOMPARE(bool(IsConverted), !records.isEmpty());
        QCOMPARE(ListRemoved(), listRemoved);
        if (!listRemoved) // kept for a look, by the user alone
            QVERIFY(!(QFileInfo(pellomar::TempDir() + "/QuenmoorEmlx").permissions() & 0x77));
        // Every attached message keeps its list line, untrimmed, as its path.
        QStringList got;
        for (FldrAtrib* f = StartFldrAtrib; f; f = f->pNext) {
            int n = 0;
            for (MailItem* m = f->pFirstMail; m; m = m->pNext, ++n)
                QVERIFY(
                    list.contains(QFile::encodeName(Utf16Text(m->pPath, m->ulPathSize)) + '\0'));
            if (f != StartFldrAtrib)
                got << QStringLiteral("%1:%2").arg(m_sink.FolderName(f->ullId)).arg(n);
        }
        QCOMPARE(got, records);
    }

    void secondRequestWhileRunningOnlyStops() {
        QVERIFY(WriteFile(m_store + "/A.mbox/Messages/1.emlx", SmallMessage()));
        ScaningThread thread;
        SignalLog log(thread, m_sink);
        QSemaphore reached, gate;
        QObject::connect(
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
        QCOMPARE(log.events, QStringLiteral("ST1")); // no message, no FinishScaning
        QVERIFY(!bStopFlag);
        QVERIFY(!bProcessRunning);
        QVERIFY(ListRemoved());
    }

    // The real find over a store whose names hold quotes, blanks, a carriage
    // return, a line feed, a leading dash, a Latin-1 byte and letters whose
    // UTF-16 units hold the byte 0x0D (U+010D, U+0D05); scanned twice, as
    // the window does on a second Open.
    void realStoreScannedTwice() {
        InstallSortedFind(m_dir.path() + "/sorted");
        m_store += QStringLiteral("/it's a \"store\" $HOME");
        m_strInputfilepath = m_store;
        const QString dir = m_store + "/V2/Mailboxes/Work.mbox/Messages/";
        QVERIFY(WriteFile(dir + "12.partial.emlx", SmallMessage()));
        for (const char* part : {"12.3", "12.2", "čeština ' \""})
            QVERIFY(WriteFile(dir + QString::fromUtf8(part) + ".emlxpart", "x"));
        const QStringList odd{"-dash", QStringLiteral("Přílohy č. 5 \u0D05\r"), "Zeile\nzwei",
                              QFile::decodeName("caf\xe9")};
        for (const QString& name : odd)
            QVERIFY(WriteFile(m_store + "/V2/" + name + ".mbox/Messages/8.emlx", SmallMessage()));
        QVERIFY(
            WriteFile(m_store + "/V2/RSS/Apple Hot News.rssmbox/Messages/3.emlx", SmallMessage()));
        ScaningThread thread;
        SignalLog log(thread, m_sink);
        Scan(thread);
        QCOMPARE(listOfPathOfEmlxPart, (QStringList{dir + "12.2.emlxpart", dir + "12.3.emlxpart",
                                                    dir + "čeština ' \".emlxpart"}));
        // find's order, sorted: -dash, Mailboxes, Přílohy, RSS, Zeile, caf.
        QCOMPARE(log.events, QStringLiteral("ST6CNVCNVCNVVCNVCNVF"));
        QStringList folders;
        for (const FldrAtrib* f = StartFldrAtrib; f; f = f->pNext)
            if (f->pFirstMail)
                folders << m_sink.FolderPath(f->ullId);
        QCOMPARE(folders, (QStringList{"V2/" + odd[0], "V2/Mailboxes/Work", "V2/" + odd[1],
                                       "V2/" + odd[2], "V2/" + odd[3]}));
        QCOMPARE(QDir(pellomar::TempDir()).entryList(QDir::Files | QDir::Hidden), QStringList());

        // The second scan goes on with the identifiers after the first one's.
        const quint64 last = EndFldrAtrib->ullId;
        QCOMPARE(PID, last);
        FreeAllFolderRecords();
        Scan(thread);
        QCOMPARE(StartFldrAtrib->ullId, quint64(501));
        QCOMPARE(StartFldrAtrib->pNext->ullId, last + 1);
        QCOMPARE(log.events.count('N'), 10);
    }

    // Another user may have put a link or a file of theirs where the scan
    // keeps its lists, or taken the private folder's name. The scan still
    // works and neither reads nor writes what was planted.
    void plantedNames_data() {
        QTest::addColumn<QString>("name"); // in the private folder; empty: the folder itself
        QTest::addColumn<QString>("kind"); // link, file or open folder
        for (const char* name :
             {"QuenmoorEmlx", "QuenmoorEmlxErrors", "QuenmoorEmlxPart", "QuenmoorEmlxPartErrors"})
            QTest::newRow(name) << name << "link";
        QTest::newRow("folder is a link") << ""
                                          << "link";
        QTest::newRow("folder is a file") << ""
                                          << "file";
        QTest::newRow("folder open to others") << ""
                                               << "open folder";
    }
    void plantedNames() {
        QFETCH(QString, name);
        QFETCH(QString, kind);
        const QString victim = m_dir.path() + "/victim" + QString::number(m_run);
        QVERIFY(WriteFile(victim + "/file", "mine\n"));
        QVERIFY(WriteFile(m_store + "/A.mbox/Messages/1.emlx", SmallMessage()));
        const QString preferred =
            qEnvironmentVariable("PELLOMAR_TMPDIR") + "/pellomar-" + QString::number(geteuid());
        QString planted = pellomar::TempDir() + "/" + name;
        if (name.isEmpty()) { // the folder in use goes, so the name is taken up again
            QVERIFY(QDir(pellomar::TempDir()).removeRecursively());
            planted = preferred;
        }
        if (kind == "link")
            QVERIFY(QFile::link(name.isEmpty() ? victim : victim + "/file", planted));
        else if (kind == "file")
            QVERIFY(WriteFile(planted, "mine\n"));
        else
            QVERIFY(QDir().mkdir(planted) &&
                    QFile::setPermissions(planted, QFile::Permissions(0x7755)));

        ScaningThread thread;
        SignalLog log(thread, m_sink);
        Scan(thread);
        QCOMPARE(log.events, QStringLiteral("ST1CNVF"));
        const QString tmp = pellomar::TempDir();
        const QFileInfo used(tmp);
        QVERIFY(used.isDir() && !used.isSymLink() && !(used.permissions() & 0x77));
        QCOMPARE(tmp == preferred, !name.isEmpty());
        QCOMPARE(QDir(victim).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
                 QStringList{"file"});
        QCOMPARE(ReadFile(victim + "/file"), QByteArray("mine\n"));
        if (kind == "file")
            QCOMPARE(ReadFile(planted), QByteArray("mine\n"));
        if (kind == "open folder")
            QVERIFY(QDir(planted).isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot));
        if (name.isEmpty()) // the name is free again for the tests after this one
            QVERIFY(kind == "open folder" ? QDir(planted).removeRecursively()
                                          : QFile::remove(planted));
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
