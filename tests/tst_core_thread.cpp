// The scan: what it announces for each file of a store and where it ends;
// the listing of a store with any names (unreadable folders: see the
// command-line test); two scans at once; the worker
// thread's start and stop requests; the folder path and message number of a
// message file; the folder builder; the store's folders and tick states.
#include "scanner/Discovery.h"
#include "scanner/EmlxFinder.h"
#include "scanner/FolderBuilder.h"
#include "scanner/MailPaths.h"
#include "scanner/RunProgress.h"
#include "scanner/ScaningThread.h"
#include "scanner/Store.h"
#include "tests/TestSupport.h"

#include <QSemaphore>
#include <QTemporaryDir>
#include <QtTest>

#include <thread>
#include <unistd.h>

using namespace TestSupport;

namespace {

const QString kMail = QStringLiteral("/Users/anna/Library/Mail");
const QString kStore = QStringLiteral("/data/Backup Store");

// Logs what a run reports as letters: S progress shown, T and the total,
// C list cleared, N new item, V progress step; new folders as
// "parent>id:name"; each new item as "folder:number:count:state".
class Recorder : public RunProgress {
public:
    void OnShowingScanProgBar() override { events += 'S'; }
    void OnSettingsForPrgBar(unsigned long total, const QString&) override {
        events += QStringLiteral("T%1").arg(total);
    }
    void CurrentValue() override { events += 'V'; }
    void LeftTreeView(unsigned long long parentId, unsigned long long id,
                      const QString& name) override {
        folders << QStringLiteral("%1>%2:%3").arg(parentId).arg(id).arg(name);
        names.insert(id, name);
    }
    void ClearLeftTree() override { events += 'C'; }
    void NewItem(const QString&, const QString& number, unsigned long long folderId,
                 unsigned long long count, bool, int, int labelState,
                 const MessageSummary&) override {
        events += 'N';
        items << QStringLiteral("%1:%2:%3:%4")
                     .arg(names.value(folderId), number)
                     .arg(count)
                     .arg(labelState);
        if (stop && items.size() == stopAfter)
            *stop = true;
    }
    QString events;
    QStringList folders, items;
    QHash<unsigned long long, QString> names;
    std::atomic<bool>* stop = nullptr;
    int stopAfter = 0;
};

QByteArray SmallMessage(const QByteArray& subject = "s") {
    return Emlx("From: a@example.org\nTo: b@example.org\nSubject: " + subject +
                "\nDate: Tue, 05 Mar 2013 14:07:09 +0000\n\nBody\n");
}

// "folder:messages" for each folder but the root, in order.
QStringList FolderCounts(const Store& store) {
    QStringList out;
    for (const FldrAtrib& f : store.Folders())
        if (f.ullId != llRootId)
            out << QStringLiteral("%1:%2").arg(f.path).arg(f.MsgCount());
    return out;
}

} // namespace

class TestThread : public QObject {
    Q_OBJECT

private slots:
    void init() {
        QVERIFY(m_dir.isValid());
        m_store = m_dir.path() + QStringLiteral("/store") + QString::number(++m_run);
        QVERIFY(QDir().mkpath(m_store));
    }

    // The files of a store, by their paths below it: "link:" makes a link
    // to nowhere, "dir:" a folder named like a message, anything else a
    // message file. The scan is stopped once stopAfter messages were
    // announced.
    void walk_data() {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<int>("stopAfter");
        QTest::addColumn<QString>("events");
        QTest::addColumn<QStringList>("items");   // NewItem: folder:number:count:state
        QTest::addColumn<QStringList>("folders"); // folder path:messages, in order of creation

        QTest::newRow("empty store")
            << QStringList{} << 0 << "ST0" << QStringList{} << QStringList{};
        // The news feed's messages only advance the progress.
        QTest::newRow("news feed is passed over")
            << QStringList{"A.mbox/m/1.emlx", "A.mbox/m/2.emlx",
                           "V2/RSS/Apple Hot News.rssmbox/Messages/7.emlx"}
            << 0 << "ST3CNVNVV" << QStringList{"A:1:1:0", "A:2:2:2"} << QStringList{"A:2"};
        // The count is the message's place in its folder; the state is 0 for
        // a folder's first message and 2 later on. A message outside any
        // folder joins the previous folder; before the first folder there is
        // none to attach it to.
        QTest::newRow("each change of folder clears the list")
            << QStringList{"9.emlx", "A.mbox/Sub.mbox/m/20.partial.emlx", "A.mbox/m/10.emlx",
                           "A.mbox/n/x1.emlx", "b.emlx"}
            << 0 << "ST5VCNVCNVNVNV" << QStringList{"Sub:20:1:0", "A:10:1:0", "A:x1:2:2", "A:b:3:2"}
            << QStringList{"A:3", "A/Sub:1"};
        QTest::newRow("a file that cannot be opened ends the scan")
            << QStringList{"A.mbox/m/1.emlx", "B.mbox/m/link:2.emlx", "C.mbox/m/3.emlx"} << 0
            << "ST3CNVC" << QStringList{"A:1:1:0"} << QStringList{"A:1", "B:1"};
        // Asked to keep going, the scan skips what it cannot open (a missing
        // file, a folder named like a message) and goes on.
        QTest::newRow("keep going: unreadable files are skipped")
            << QStringList{"A.mbox/m/1.emlx", "B.mbox/m/dir:2.emlx", "B.mbox/m/link:3.emlx",
                           "C.mbox/m/4.emlx"}
            << 0 << "ST4CNVCVVCNV" << QStringList{"A:1:1:0", "C:4:1:0"}
            << QStringList{"A:1", "B:0", "C:1"};
        QStringList six;
        for (int i = 1; i <= 6; ++i)
            six << QStringLiteral("A.mbox/m/%1.emlx").arg(i);
        QTest::newRow("stop request ends before the next file")
            << six << 3 << "ST6CNVNVNV" << QStringList{"A:1:1:0", "A:2:2:2", "A:3:3:2"}
            << QStringList{"A:3"};
    }
    void walk() {
        QFETCH(QStringList, files);
        QFETCH(int, stopAfter);
        QFETCH(QString, events);
        QFETCH(QStringList, items);
        QFETCH(QStringList, folders);
        for (QString file : files) {
            const bool link = file.contains("link:"), dir = file.contains("dir:");
            file = m_store + "/" + file.remove("link:").remove("dir:");
            if (link)
                QVERIFY(QDir().mkpath(QFileInfo(file).path()) &&
                        QFile::link(m_store + "/nowhere", file));
            else if (dir)
                QVERIFY(QDir().mkpath(file));
            else
                QVERIFY(WriteFile(file, SmallMessage()));
        }
        ScanOptions options;
        options.keepGoing = QByteArray(QTest::currentDataTag()).startsWith("keep going");
        std::atomic<bool> stop{false};
        Recorder log;
        log.stop = &stop;
        log.stopAfter = stopAfter;
        const Store store = EMLXFinder(m_store, options, log, stop);

        QCOMPARE(log.events, events);
        QCOMPARE(log.items, items);
        QCOMPARE(FolderCounts(store), folders);
        QCOMPARE(store.IsConverted, !folders.isEmpty());
        QCOMPARE(store.result.skipped.size(), options.keepGoing ? 2 : 0);
        QCOMPARE(store.result.ending == RunResult::Ending::Stopped, stopAfter > 0);
        if (store.result.EndedAtFile()) {
            QCOMPARE(store.result.file, m_store + "/B.mbox/m/2.emlx");
            QCOMPARE(store.result.reason, QString("No such file or directory"));
            QCOMPARE(store.result.notDone, quint64(2));
        }
    }

    // Names with quotes, blanks, a carriage return, a line feed, a leading
    // dash, a Latin-1 byte and letters whose UTF-16 units hold the byte 0x0D;
    // links below the store are listed by name but not followed; the result
    // is the byte order of the paths, and a second scan gives the same store.
    void anyNameAndScannedTwice() {
        m_store += QStringLiteral("/it's a \"store\" $HOME");
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
        // A link to a folder of messages is not followed.
        QVERIFY(WriteFile(m_dir.path() + "/outside/Other.mbox/Messages/1.emlx", SmallMessage()));
        QVERIFY(QFile::link(m_dir.path() + "/outside", m_store + "/V2/linked"));

        const StoreListing listing = ListStoreFiles(m_store);
        QCOMPARE(listing.parts, (QStringList{dir + "12.2.emlxpart", dir + "12.3.emlxpart",
                                             dir + "čeština ' \".emlxpart"}));
        QStringList messages;
        for (const FoundEntry& e : listing.messages)
            messages << e.path.mid(m_store.size() + 4);
        QCOMPARE(messages,
                 (QStringList{
                     "-dash.mbox/Messages/8.emlx", "Mailboxes/Work.mbox/Messages/12.partial.emlx",
                     odd[1] + ".mbox/Messages/8.emlx", "RSS/Apple Hot News.rssmbox/Messages/3.emlx",
                     odd[2] + ".mbox/Messages/8.emlx", odd[3] + ".mbox/Messages/8.emlx"}));

        const std::atomic<bool> stop{false};
        Recorder first, second;
        const Store a = EMLXFinder(m_store, ScanOptions(), first, stop);
        const Store b = EMLXFinder(m_store, ScanOptions(), second, stop);
        QCOMPARE(first.events, QStringLiteral("ST6CNVCNVCNVVCNVCNV"));
        QCOMPARE(FolderCounts(a), (QStringList{"V2:0", "V2/" + odd[0] + ":1", "V2/Mailboxes:0",
                                               "V2/Mailboxes/Work:1", "V2/" + odd[1] + ":1",
                                               "V2/" + odd[2] + ":1", "V2/" + odd[3] + ":1"}));
        // Each scan starts its identifiers at the root's.
        QCOMPARE(second.folders, first.folders);
        QCOMPARE(first.folders.first(), QStringLiteral("501>502:V2"));
        QCOMPARE(FolderCounts(b), FolderCounts(a));
        // Qt's folder walk passes over names that are not UTF-8: this one
        // goes by hand, so the temporary folder can go.
        const QByteArray latin1 = QFile::encodeName(m_store + "/V2/" + odd[3] + ".mbox");
        QVERIFY(::unlink(latin1 + "/Messages/8.emlx") == 0 && ::rmdir(latin1 + "/Messages") == 0 &&
                ::rmdir(latin1) == 0);
    }

    // Two scans of different stores at the same time, on two worker
    // threads: each finds its own store only.
    void twoScansAtOnce() {
        const QString other = m_store + "-other";
        for (int i = 1; i <= 40; ++i) {
            QVERIFY(WriteFile(m_store + QStringLiteral("/Mine.mbox/Messages/%1.emlx").arg(i),
                              SmallMessage("mine")));
            QVERIFY(
                WriteFile(other + QStringLiteral("/Yours.mbox/Sub.mbox/Messages/%1.emlx").arg(i),
                          SmallMessage("yours")));
        }
        ScanJob mine(m_store, ScanOptions()), yours(other, ScanOptions());
        ScaningThread a, b;
        a.SetJob(&mine);
        b.SetJob(&yours);
        a.SetInitialSettings();
        b.SetInitialSettings();
        QVERIFY(a.wait(60000) && b.wait(60000));
        QCOMPARE(FolderCounts(mine.store), QStringList{"Mine:40"});
        QCOMPARE(FolderCounts(yours.store), (QStringList{"Yours:0", "Yours/Sub:40"}));
        for (const FldrAtrib& f : mine.store.Folders())
            for (const MailItem& m : f.messages)
                QVERIFY(m.subject == "mine\n" && m.Path().startsWith(m_store + "/"));
        QCOMPARE(mine.store.Folder(502)->name, QStringLiteral("Mine"));
        QCOMPARE(yours.store.Folder(502)->name, QStringLiteral("Yours"));
    }

    // A second request while a run is under way only asks it to stop; the
    // run then ends without FinishScaning.
    void secondRequestWhileRunningOnlyStops() {
        QVERIFY(WriteFile(m_store + "/A.mbox/Messages/1.emlx", SmallMessage()));
        ScanJob job(m_store, ScanOptions());
        ScaningThread thread;
        thread.SetJob(&job);
        QSemaphore reached, gate;
        QObject ctx;
        QObject::connect(
            &thread, &ScaningThread::OnShowingScanProgBar, &ctx,
            [&] {
                reached.release();
                gate.acquire();
            },
            Qt::DirectConnection);
        QSignalSpy started(&thread, &QThread::started);
        QSignalSpy finished(&thread, &ScaningThread::FinishScaning);

        thread.SetInitialSettings();
        QVERIFY(reached.tryAcquire(1, 60000));
        QVERIFY(thread.bProcessRunning);
        QVERIFY(!thread.bStopFlag);
        thread.SetInitialSettings();
        QVERIFY(thread.bStopFlag);
        QVERIFY(thread.isRunning());
        gate.release();
        QVERIFY(thread.wait(60000));
        QCOMPARE(started.count(), 1);
        QCOMPARE(finished.count(), 0);
        QCOMPARE(job.store.result.ending, RunResult::Ending::Stopped);
        QCOMPARE(job.store.MessageCount(), quint64(0));
        QVERIFY(!thread.bStopFlag);
        QVERIFY(!thread.bProcessRunning);

        // The next run goes to its end.
        gate.release();
        thread.SetInitialSettings();
        QVERIFY(thread.wait(60000));
        QCOMPARE(finished.count(), 1);
        QCOMPARE(job.store.MessageCount(), quint64(1));
    }

    void folderPath_data() {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QString>("store");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<QString>("kinds"); // F folder, M mailbox, I imap, E exchange
        auto row = [](const char* name, const QString& line, const QString& store,
                      const char* expected, const char* kinds) {
            QTest::newRow(name) << line << store << expected << kinds;
        };
        const QString msg = QStringLiteral("/Messages/1.emlx");

        // Under the user's Mail folder: the version folder goes.
        row("mail: nested mailboxes with uuid/Data level",
            kMail + "/V2/Mailboxes/Work.mbox/Projects.mbox/6F3A/Data/3" + msg, kMail,
            "Mailboxes/Work/Projects", "FMM");
        row("mail: mailbox starting with V loses its level",
            kMail + "/Vacation.mbox/Sub.mbox" + msg, kMail, "Sub", "M");
        row("mail: lone V mailbox keeps Messages", kMail + "/Vacation.mbox" + msg, kMail,
            "Messages", "F");
        row("mail: no version folder", kMail + "/Mailboxes/Old.mbox" + msg, kMail, "Mailboxes/Old",
            "FM");
        row("mail: /V with no further slash stays", kMail + "/V2/9.emlx", kMail, "", "");
        row("mail: found in the middle, wins over the store",
            "/Volumes/Old Disk" + kMail + "/V3/Mailboxes/A.mbox" + msg,
            QStringLiteral("/Volumes/Old Disk"), "Mailboxes/A", "FM");

        // Elsewhere: the store folder is removed, the version folder kept.
        row("store: Library picked, /Mail/ dropped", "/Users/x/Library/Mail/V2/A.mbox" + msg,
            QStringLiteral("/Users/x/Library"), "V2/A", "FM");
        row("store: /V/ folder dropped to its slash", kStore + "/V/Mailboxes/A.mbox" + msg, kStore,
            "Mailboxes/A", "FM");
        row("store: trailing slash in the store path skips a level",
            kStore + "/V2/Mailboxes/A.mbox" + msg, kStore + "/", "Mailboxes/A", "FM");
        row("store: .mbox inside a name stays", kStore + "/Archive.mboxes/Old.mbox" + msg, kStore,
            "Archive.mboxes/Old", "FM");
        row("store: every occurrence of the store text goes", "/s/a/s/B.mbox" + msg,
            QStringLiteral("/s"), "a/B", "FM");
        row("store: the match is case-sensitive", "/DATA/Backup Store/V2/A.mbox" + msg, kStore,
            "DATA/Backup Store/V2/A", "FFFM");
        row("store: account mailbox", kStore + "/V2/acct/INBOX.imapmbox" + msg, kStore,
            "V2/acct/INBOX", "FFI");
        row("store: exchange mailboxes", kStore + "/V2/x/In.ewsmbox/Sub.ewsmbox/Messages/2.emlx",
            kStore, "V2/x/In/Sub", "FFEE");
        row("store: no mailbox ending", kStore + "/V2/Plain/Messages/3.emlx", kStore,
            "V2/Plain/Messages", "FFF");
        row("line without slash", "garbage", kStore, "", "");
    }
    void folderPath() {
        QFETCH(QString, line);
        QFETCH(QString, store);
        QFETCH(QString, expected);
        QFETCH(QString, kinds);
        QStringList names;
        QString gotKinds;
        for (const FolderPart& p : FolderPartsForMessage(line, kMail, store)) {
            names << p.name;
            gotKinds += "?FMIE"[int(p.kind)];
        }
        QCOMPARE(names.join('/'), expected);
        QCOMPARE(gotKinds, kinds);
    }

    void messageNumber_data() {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QString>("text");
        QTest::addColumn<quint64>("value");
        auto row = [](const char* line, const char* text, quint64 value) {
            QTest::newRow(line) << line << text << value;
        };
        row("/a/Messages/1234.partial.emlx", "1234", 1234);
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
            << QStringList{"501>502:On My Mac", "502>503:Work", "503>504:Projects", "502>505:Home"}
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
        Store store;
        Recorder log;
        FolderBuilder builder(store, log);
        QList<unsigned long long> folders;
        for (const QString& p : paths) {
            QVector<FolderPart> parts;
            if (!p.isEmpty())
                for (const QString& name : p.split('/'))
                    parts.append({name, name, FolderKind::Folder});
            builder.treeCreator(parts);
            folders << builder.llParentIdRunning;
        }
        QCOMPARE(log.folders, calls);
        QCOMPARE(folders, folderOfEach);
        // The store has every folder, found by its identifier, with its path.
        QCOMPARE(int(store.Folders().size()), calls.size() + 1);
        for (const FldrAtrib& f : store.Folders()) {
            QCOMPARE(store.Folder(f.ullId), &f);
            if (f.ullId != llRootId)
                QCOMPARE(f.path, store.Folder(f.ullParentId)->ullId == llRootId
                                     ? f.name
                                     : store.Folder(f.ullParentId)->path + "/" + f.name);
        }
        QVERIFY(!store.Folder(0) && !store.Folder(500) && !store.Folder(502 + calls.size()));
    }

    // Clicks on SmallTree() as "id+" (ticked), "id-" (unticked) or "id~"
    // (partly ticked).
    void ticks_data() {
        QTest::addColumn<QString>("clicks");
        QTest::addColumn<QString>("expected"); // tick codes of 501 to 506
        auto row = [](const char* name, const char* clicks, const char* expected) {
            QTest::newRow(name) << QString(clicks) << QString(expected);
        };
        row("root ticks everything", "501+", "111111");
        row("root unticks everything", "501+ 501-", "333333");
        row("partly ticked root changes nothing", "503+ 501~", "221001");
        row("folder ticks its subtree, parents partly", "503+", "221001");
        row("all children ticked tick the parent", "503+ 504+", "211101");
        row("whole tree ticked by its top folders", "502+ 505+", "111111");
        row("unticking a leaf makes ancestors partly ticked", "501+ 506-", "223113");
        row("partly ticked by hand leaves the subtree alone", "503+ 502~", "221001");
    }
    void ticks() {
        QFETCH(QString, clicks);
        QFETCH(QString, expected);
        Store store = SmallTree();
        QVERIFY(!store.AddFolder(999, 507, "lost", FolderKind::Folder));
        QVERIFY(!store.AddFolder(501, 600, "gap", FolderKind::Folder));
        for (const QString& c : clicks.split(' ')) {
            const QChar s = c.back();
            store.SetTick(c.chopped(1).toULongLong(), s == '+'   ? kTicked
                                                      : s == '-' ? kNotTicked
                                                                 : kPartlyTicked);
        }
        QString got;
        for (const FldrAtrib& f : store.Folders())
            got += QString::number(f.ucTickState);
        QCOMPARE(got, expected);
        QCOMPARE(store.TickedFolders().size(), expected.count('1'));
    }

    // Root's home is elsewhere; the name is compared exactly.
    void defaultMailPath() {
        QCOMPARE(DefaultMailPathFor("anna"), QStringLiteral("/Users/anna/Library/Mail"));
        QCOMPARE(DefaultMailPathFor("root"), QStringLiteral("/private/var/root/Library/Mail"));
        QCOMPARE(DefaultMailPathFor("Root"), QStringLiteral("/Users/Root/Library/Mail"));
    }

private:
    QTemporaryDir m_dir;
    QString m_store;
    int m_run = 0;
};

QTEST_GUILESS_MAIN(TestThread)
#include "tst_core_thread.moc"
