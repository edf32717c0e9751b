// The scan: the worker thread's start and stop requests, the order of the
// signals per list line and where a scan ends; the folder path and message
// number of a list line; the folder builder (each (name, parent) pair
// created once, parents announced before children); the scan records with
// the headless folder tree, and the small shared helpers.
#include "scanner/Discovery.h"
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

const QString kMail = QStringLiteral("/Users/anna/Library/Mail");
const QString kStore = QStringLiteral("/data/Backup Store");

// Logs every announcement: "parent>id:name".
class RecordingSink : public FolderTreeSink {
public:
    void LeftTreeView(unsigned long long parentId, unsigned long long id, QString name) override {
        calls << QStringLiteral("%1>%2:%3").arg(parentId).arg(id).arg(name);
    }
    QStringList calls;
};

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
        // The folder builder tests call treeCreator outside a scan: they reset
        // what a scan resets and hand the builder the recording sink.
        objMapName_FID.clear();
        objMapFID_PID.clear();
        objMapFID_Name.clear();
        m_pMainWindow = &m_rec;
        m_rec.calls.clear();
        QVERIFY(m_dir.isValid());
        m_store = m_dir.path() + QStringLiteral("/store") + QString::number(++m_run);
        m_strInputfilepath = m_store;
    }
    void cleanup() {
        FreeAllFolderRecords();
        pMainWindow = nullptr;
        m_pMainWindow = nullptr;
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
        QTest::newRow("folder is a link") << QString() << "link";
        QTest::newRow("folder is a file") << QString() << "file";
        QTest::newRow("folder open to others") << QString() << "open folder";
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

    void folderPath_data() {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QString>("store");
        QTest::addColumn<QString>("expected");
        auto row = [](const char* name, const QString& line, const QString& store,
                      const char* expected) { QTest::newRow(name) << line << store << expected; };
        const QString msg = QStringLiteral("/Messages/1.emlx");

        // Under the user's Mail folder: the version folder goes.
        row("mail: nested mailboxes with uuid/Data level",
            kMail + "/V2/Mailboxes/Work.mbox/Projects.mbox/6F3A/Data/3" + msg, kMail,
            "Mailboxes/Work/Projects");
        row("mail: mailbox starting with V loses its level",
            kMail + "/Vacation.mbox/Sub.mbox" + msg, kMail, "Sub");
        row("mail: lone V mailbox keeps Messages", kMail + "/Vacation.mbox" + msg, kMail,
            "Messages");
        row("mail: no version folder", kMail + "/Mailboxes/Old.mbox" + msg, kMail, "Mailboxes/Old");
        row("mail: /V with no further slash stays", kMail + "/V2/9.emlx", kMail, "");
        row("mail: found in the middle, wins over the store",
            "/Volumes/Old Disk" + kMail + "/V3/Mailboxes/A.mbox" + msg,
            QStringLiteral("/Volumes/Old Disk"), "Mailboxes/A");

        // Elsewhere: the store folder is removed, the version folder kept.
        row("store: Library picked, /Mail/ dropped", "/Users/x/Library/Mail/V2/A.mbox" + msg,
            QStringLiteral("/Users/x/Library"), "V2/A");
        row("store: /V/ folder dropped to its slash", kStore + "/V/Mailboxes/A.mbox" + msg, kStore,
            "Mailboxes/A");
        row("store: trailing slash in the store path skips a level",
            kStore + "/V2/Mailboxes/A.mbox" + msg, kStore + "/", "Mailboxes/A");
        row("store: .mbox inside a name is removed as well",
            kStore + "/Archive.mboxes/Old.mbox" + msg, kStore, "Archivees/Old");
        row("store: every occurrence of the store text goes", "/s/a/s/B.mbox" + msg,
            QStringLiteral("/s"), "a/B");
        row("store: the match is case-sensitive", "/DATA/Backup Store/V2/A.mbox" + msg, kStore,
            "DATA/Backup Store/V2/A");
        row("find error line", "find: '/x/y': Permission denied", kStore, "x");
        row("line without slash", "garbage", kStore, "");
    }
    void folderPath() {
        QFETCH(QString, line);
        QFETCH(QString, store);
        QFETCH(QString, expected);
        QCOMPARE(FolderPathForMessage(line, kMail, store), expected);
    }

    void messageNumber_data() {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QString>("text");
        QTest::addColumn<quint64>("value");
        auto row = [](const char* line, const char* text, quint64 value) {
            QTest::newRow(line) << line << text << value;
        };
        row("/a/Messages/1234.partial.emlx", "1234", 1234);
        row("/a.mbox/Messages/7.emlx", "7", 7);
        row("12.emlx", "12", 12);
        row("/a/Messages/abc.emlx", "abc", 0);
        row("/a/Messages/-3.emlx", "-3", 0);
        row("/a/18446744073709551615.emlx", "18446744073709551615", 18446744073709551615ULL);
        row("/a/18446744073709551616.emlx", "18446744073709551616", 0);
    }
    void messageNumber() {
        QFETCH(QString, line);
        QFETCH(QString, text);
        QFETCH(quint64, value);
        QCOMPARE(MessageNumberText(line), text);
        QCOMPARE(MessageNumberValue(text), value);
    }

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
        QCOMPARE(m_rec.calls, calls);
        QCOMPARE(folders, folderOfEach);
    }

    void recordsKeepOrderAndFreeEverything() {
        FldrAtrib* a = AppendFolderRecord(0, 501, nullptr, 3);
        FldrAtrib* b = AppendFolderRecord(501, 502, nullptr, 0);
        FldrAtrib* c = AppendFolderRecord(502, 503, nullptr, 0);
        QCOMPARE(StartFldrAtrib, a);
        QCOMPARE(EndFldrAtrib, c);
        QCOMPARE(a->pNext, b);
        QCOMPARE(FindFolderRecord(503, 502), c);
        QVERIFY(!FindFolderRecord(503, 501));
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

    // Root's home is elsewhere; the name is compared exactly.
    void defaultMailPath() {
        QCOMPARE(DefaultMailPathFor("anna"), QStringLiteral("/Users/anna/Library/Mail"));
        QCOMPARE(DefaultMailPathFor("root"), QStringLiteral("/private/var/root/Library/Mail"));
        QCOMPARE(DefaultMailPathFor("Root"), QStringLiteral("/Users/Root/Library/Mail"));
    }

    // Names with what a shell would expand or end a quote on.
    void shellQuoteSurvivesBash_data() {
        QTest::addColumn<QString>("name");
        QTest::newRow("single quote") << "Anna's mail";
        QTest::newRow("dollar, backtick, backslash, blank") << "$HOME `id` \\x (1)";
    }
    void shellQuoteSurvivesBash() {
        QFETCH(QString, name);
        QTemporaryDir dir(QDir::tempPath() + "/pellomar-quote-XXXXXX");
        QVERIFY(dir.isValid());
        const QString path = dir.path() + "/" + name;
        QCOMPARE(pellomar::RunShellCommand("touch " + pellomar::ShellQuote(path)), 0);
        QVERIFY(QFileInfo::exists(path));
    }

private:
    RecordingSink m_rec;
    QTemporaryDir m_dir;
    QString m_store;
    QByteArray m_path;
    int m_run = 0;
    HeadlessFolderSink m_sink;
};

QTEST_GUILESS_MAIN(TestThread)
#include "tst_core_thread.moc"
