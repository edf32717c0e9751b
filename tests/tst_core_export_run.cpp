// The export run over a store built by hand: which folders are written,
// progress, stop requests and the files that end the run; and the package
// files, the save time stamp and the mapping of message files to mbox files.
#include "export/ExportJob.h"
#include "export/PathMapping.h"
#include "export/SaveTimeStamp.h"
#include "scanner/RunProgress.h"
#include "scanner/Store.h"
#include "tests/TestSupport.h"

#include <QtTest>

#include <sys/xattr.h>

using namespace TestSupport;

namespace {

// The messages below the store, each with its folder: Work, Projects (inside
// Work), Part and RSS; the partial message has one detached part.
const QList<QPair<int, QString>> kMessages = {
    {0, "/V2/Mailboxes/Work.mbox/ID/Data/Messages/1.emlx"},
    {0, "/V2/Mailboxes/Work.mbox/ID/Data/Messages/2.emlx"},
    {1, "/V2/Mailboxes/Work.mbox/Projects.mbox/Messages/3.emlx"},
    {2, "/V2/Mailboxes/Part.mbox/Messages/4.partial.emlx"},
    {3, "/V2/RSS/Apple Hot News.rssmbox/Messages/5.emlx"},
};
// Mail names a detached part's file by the part's section: the whole body of
// a message that is no multipart is section 1.
const QString kPartFile = "/V2/Mailboxes/Part.mbox/Messages/4.1.emlxpart";

const QString kWorkMbox = "/Mail/V2/Mailboxes/Work/Work.mbox";
const QString kProjectsMbox = "/Mail/V2/Mailboxes/Work/Projects/Projects.mbox";
const QString kPartMbox = "/Mail/V2/Mailboxes/Part/Part.mbox";

// Message n as the store holds it, and as its mbox gets it.
QByteArray Message(int n) {
    return "Subject: m" + QByteArray::number(n) + "\n\nFrom me " + QByteArray::number(n) + "\n";
}
QByteArray Written(int from, int count) {
    QByteArray bytes;
    for (int n = from; n < from + count; ++n)
        bytes += kSep + Message(n).replace("\nFrom", "\n>From");
    return bytes;
}

const QString kStore = "/Users/u/Library/Mail";
const QString kPackage = "/out/Main Identity_(5 Mar 2026,14-07-09).rge";

// The Finder information attribute of a file, empty when it has none.
QByteArray FinderInfo(const QString& path) {
    char buf[64];
    const ssize_t n = getxattr(path.toUtf8().constData(), FinderInfoAttributeName(), buf, sizeof buf
#ifdef Q_OS_MACOS
                               ,
                               0, 0
#endif
    );
    return n < 0 ? QByteArray() : QByteArray(buf, int(n));
}

} // namespace

// Counts what an export reports, and asks it to stop after `stopAfter`
// messages.
class Progress : public RunProgress {
public:
    void OnShowingScanProgBar() override { ++shown; }
    void OnSettingsForPrgBar(unsigned long t, const QString& caption) override {
        total = t;
        text = caption;
    }
    void CurrentValue() override {
        if (++seen == stopAfter)
            stop = true;
    }
    int shown = 0, seen = 0, stopAfter = -1;
    unsigned long total = 0;
    QString text;
    std::atomic<bool> stop{false};
};

class TestExportRun : public QObject {
    Q_OBJECT
private:
    QTemporaryDir m_dir;
    QString m_store;
    ExportJob m_job;
    QString m_package;

    // Builds the store files and records, with the folders' tick states.
    Store build(const QString& ticks) {
        Store store;
        store.m_strInputfilepath = m_store;
        for (int i = 0; i < ticks.size(); ++i) {
            store.AddFolder(501, 502 + i, QString::number(i), FolderKind::Mailbox)->ucTickState =
                quint8(ticks[i].digitValue());
        }
        store.StartFldrAtrib()->ucTickState = kPartlyTicked;
        for (int i = 0; i < kMessages.size(); ++i) {
            const QString path = m_store + kMessages[i].second;
            if (!WriteFile(path, Emlx(path.endsWith(".partial.emlx")
                                          ? "Content-Type: image/png\n"
                                            "X-Apple-Content-Length: 4\n\n--b--\n"
                                          : Message(i + 1))))
                qFatal("cannot write %s", qPrintable(path));
            MailItem item;
            item.SetPath(path);
            store.Folder(502 + kMessages[i].first)->messages.push_back(item);
        }
        store.listOfPathOfEmlxPart = QStringList{m_store + kPartFile};
        WriteFile(m_store + kPartFile, "iVBO\n");
        return store;
    }

private slots:
    void init() {
        QVERIFY(m_dir.isValid());
        QDir(m_dir.path()).removeRecursively();
        m_store = m_dir.path() + "/Mail";
        m_job = ExportJob();
        m_job.m_strInputfilepath = m_store;
        m_job.saveDir = m_dir.path() + "/out";
        QDir().mkpath(m_job.saveDir);
        m_job.strTime = "(5 Mar 2026,14-07-09)";
        m_job.mainIdentity = "/Main Identity_" + m_job.strTime + ".rge";
        m_package = m_job.Package();
    }

    void run_data() {
        // Tick states of Work, Projects, Part and RSS: 1 all, 2 partly, 3 none.
        QTest::addColumn<QString>("ticks");
        QTest::addColumn<int>("total");
        QTest::addColumn<QString>("damage");
        QTest::addColumn<int>("progress");
        QTest::addColumn<int>("work"); // messages in each mbox; -1: not checked
        QTest::addColumn<int>("projects");
        QTest::addColumn<QByteArray>("partMbox");
        const QByteArray none, cut = kSep + "Content-Type: image/png\n\n";
        const QByteArray part = cut + "iVBO\n\n\n--b--\n";
        QTest::newRow("everything") << "1111" << 5 << "" << 5 << 2 << 1 << part;
        QTest::newRow("partly ticked folder writes none of its own")
            << "2111" << 3 << "" << 3 << 0 << 1 << part;
        QTest::newRow("unticked folders") << "3133" << 1 << "" << 1 << 0 << 1 << none;
        // RSS items count toward the total but are not written.
        QTest::newRow("only the news folder") << "3331" << 1 << "" << 1 << 0 << 0 << none;
        // A stop request during a message lets it finish; the next is not started.
        QTest::newRow("stop before the first") << "1111" << 5 << "stop0" << 0 << 0 << 0 << none;
        QTest::newRow("stop after the first") << "1111" << 5 << "stop1" << 1 << 1 << 0 << none;
        // The run ends at a message file it cannot open.
        QTest::newRow("missing message file") << "1111" << 5 << "message" << 1 << 1 << 0 << none;
        // A mbox that cannot be opened loses its messages only.
        QTest::newRow("mbox is a folder") << "1111" << 5 << "mbox" << 5 << -1 << 1 << part;
        // The run ends at a detached part it cannot open; the message stays
        // as far as it was written.
        QTest::newRow("missing part file") << "1111" << 5 << "part" << 3 << 2 << 1 << cut;
        // Asked to keep going, the run leaves out what it cannot read and
        // lists it.
        QTest::newRow("keep going: missing message file")
            << "1111" << 5 << "message+keep" << 5 << 1 << 1 << part;
        QTest::newRow("keep going: folder named like a message")
            << "1111" << 5 << "folder+keep" << 5 << 1 << 1 << part;
        QTest::newRow("keep going: missing part file")
            << "1111" << 5 << "part+keep" << 5 << 2 << 1 << cut + "\n\n--b--\n";
        // A package file that cannot be written ends the run before any
        // message.
        QTest::newRow("package file cannot be written")
            << "1111" << 5 << "package" << 0 << 0 << 0 << none;
    }
    void run() {
        QFETCH(QString, ticks);
        QFETCH(int, total);
        QFETCH(QString, damage);
        QFETCH(int, progress);
        QFETCH(int, work);
        QFETCH(int, projects);
        QFETCH(QByteArray, partMbox);
        Store store = build(ticks);
        m_job.selection = store.TickedFolders();
        m_job.options.keepGoing = damage.endsWith("+keep");
        damage.remove("+keep");
        if (damage == "message" || damage == "folder")
            QVERIFY(QFile::remove(m_store + kMessages[1].second));
        if (damage == "folder")
            QVERIFY(QDir().mkpath(m_store + kMessages[1].second));
        if (damage == "mbox")
            QVERIFY(QDir().mkpath(m_package + kWorkMbox));
        if (damage == "package")
            QVERIFY(QDir().mkpath(m_package + "/Contents/Info.plist"));
        if (damage == "part") // listed, but gone
            QVERIFY(QFile::remove(m_store + kPartFile));
        Progress log;
        log.stopAfter = damage.startsWith("stop") ? damage.mid(4).toInt() : -1;
        log.stop = log.stopAfter == 0;
        const RunResult result = EMLXConverter(store, m_job, log, log.stop);
        const bool package = damage == "package";
        QCOMPARE(log.shown, package ? 0 : 1);
        QCOMPARE(log.total, package ? 0ul : (unsigned long)total);
        QCOMPARE(log.text, package ? QString() : QString("Saving .rge file. Please Wait..."));
        QCOMPARE(log.seen, progress);
        // The package itself is there whatever happened.
        QCOMPARE(ReadFile(m_package + "/Contents/PkgInfo"), QByteArray("rge OPIM"));
        if (work >= 0)
            QCOMPARE(ReadFile(m_package + kWorkMbox), Written(1, work));
        QCOMPARE(ReadFile(m_package + kProjectsMbox), Written(3, projects));
        QCOMPARE(ReadFile(m_package + kPartMbox), partMbox);

        // The result says where the run ended and what was left undone; a
        // message cut short at its part file is not counted as written.
        const bool keepGoing = m_job.options.keepGoing;
        const QString endedAt = damage == "message" || damage == "folder" ? kMessages[1].second
                                : damage == "part"                        ? kPartFile
                                                                          : QString();
        QCOMPARE(result.EndedAtFile(), (!endedAt.isEmpty() && !keepGoing) || package);
        if (keepGoing) {
            QCOMPARE(result.skipped.size(), 1);
            QCOMPARE(result.skipped[0].path, m_store + endedAt);
            QVERIFY(!result.skipped[0].reason.isEmpty());
            QCOMPARE(result.done, quint64(damage == "part" ? 4 : 3));
        } else if (!endedAt.isEmpty()) {
            QCOMPARE(result.ending == RunResult::Ending::Stopped, log.stopAfter >= 0);
            QCOMPARE(result.file, m_store + endedAt);
            QCOMPARE(result.reason, QString("No such file or directory"));
            QCOMPARE(result.notDone, quint64(total - progress));
        } else if (package) {
            QCOMPARE(result.ending, RunResult::Ending::Failed);
            QCOMPARE(result.file, m_package + "/Contents/Info.plist");
            QVERIFY(!result.reason.isEmpty());
            QCOMPARE(result.notDone, quint64(total));
        }

        // The summary names every file made below Mail, with its messages.
        QStringList written, files;
        for (const RunResult::Folder& w : result.folders)
            written << w.path.mid(m_package.size()) + " " + QString::number(w.messages);
        QDirIterator it(m_package + "/Mail", QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString file = it.next();
            const int whole = ReadFile(file).count(kSep) -
                              (file.endsWith(kPartMbox) && damage == "part" && !keepGoing);
            if (whole > 0)
                files << file.mid(m_package.size()) + " " + QString::number(whole);
        }
        files.sort();
        written.sort();
        QCOMPARE(files, written);
    }

    // Day without a leading zero, hours of the 24-hour clock with one, and
    // the same on a system set to another language.
    void timeStamp() {
        const QDateTime a(QDate(2026, 3, 5), QTime(4, 7, 9));
        const QDateTime b(QDate(2027, 12, 31), QTime(23, 59, 59));
        const QString stamps = MakeSaveTimeStamp(a) + MakeSaveTimeStamp(b);
        const QLocale before;
        QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
        const QString german = MakeSaveTimeStamp(a) + MakeSaveTimeStamp(b);
        QLocale::setDefault(before);
        QCOMPARE(stamps, QString("(5 Mar 2026,04-07-09)(31 Dec 2027,23-59-59)"));
        QCOMPARE(german, stamps);
    }

    // An empty destination makes nothing. Otherwise the files hold the
    // reviewed bytes; they are appended to, never truncated, so a second run
    // into the same package doubles them. A folder or file that cannot be
    // made is named with the reason.
    void packageFiles() {
        const QString name = "/pellomar-test.rge";
        QString file, reason;
        QVERIFY(!CreateRGEWraper(QString(), name, &file, &reason));
        QVERIFY(!QFileInfo::exists(name) && !QFileInfo::exists(QDir::currentPath() + name));
        const QString p = m_dir.path() + name + "/";
        const QString reviewed = SourceDir() + "/tests/data/sample-package/";
        for (int runs = 1; runs <= 2; ++runs) {
            QVERIFY(CreateRGEWraper(m_dir.path(), name, &file, &reason));
            for (const QString f : {"Contents/PkgInfo", "Contents/Info.plist", "Archive.xml"})
                QCOMPARE(ReadFile(p + f), ReadFile(reviewed + f).repeated(runs));
        }
        QCOMPARE(QDir(p).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
                 QStringList({"Archive.xml", "Contents"}));
        QVERIFY(WriteFile(m_dir.path() + "/taken.rge", "a file"));
        QVERIFY(!CreateRGEWraper(m_dir.path(), "/taken.rge", &file, &reason));
        QCOMPARE(file, m_dir.path() + "/taken.rge");
        QVERIFY(reason.contains("taken.rge"));
    }

    // Messages mapped one after the other, each to its mbox file.
    void mapping_data() {
        QTest::addColumn<QString>("store"); // all paths below the temporary folder
        QTest::addColumn<QString>("package");
        QTest::addColumn<QStringList>("messages");
        QTest::addColumn<QStringList>("expected");
        const QString s = kStore, p = kPackage;
        auto row = [](const char* name, const QStringList& messages, const QStringList& expected,
                      const QString& store = kStore, const QString& package = kPackage) {
            QTest::newRow(name) << store << package << messages << expected;
        };
        // The innermost mailbox holds the message; every level loses its ending.
        row("nested mailbox", {s + "/V2/Mailboxes/Work.mbox/Projects.mbox/ID/Data/Messages/8.emlx"},
            {p + "/Mail/V2/Mailboxes/Work/Projects/Projects.mbox"});
        row("mailboxes of every kind inside each other",
            {s + "/V2/acct/INBOX.imapmbox/Sub.mbox/Messages/1.emlx",
             s + "/V2/x.ewsmbox/y.imapmbox/Messages/1.partial.emlx",
             s + "/V2/acct/INBOX.imapmbox/Messages/2.emlx"},
            {p + "/Mail/V2/acct/INBOX/Sub/Sub.mbox", p + "/Mail/V2/x/y/y.mbox",
             p + "/Mail/V2/acct/INBOX/INBOX.mbox"});
        row(".mbox inside a folder name stays",
            {s + "/V2/Mailboxes/Old.mbox.backup.mbox/Messages/1.emlx"},
            {p + "/Mail/V2/Mailboxes/Old.mbox.backup/Old.mbox.backup.mbox"});
        row("no mailbox ending: the message's folder", {s + "/V2/Plain/Messages/1.emlx"},
            {p + "/Mail/V2/Plain/Messages/Messages.mbox"});
        // Mailboxes that would share a file, also where only the case
        // differs (macOS does not tell those apart), get a file each.
        row("names alike once the endings go",
            {s + "/V2/A.mbox/Messages/1.emlx", s + "/V2/A.imapmbox/Messages/2.emlx",
             s + "/V2/a.mbox/Messages/3.emlx", s + "/V2/A.mbox/Messages/4.emlx"},
            {p + "/Mail/V2/A/A.mbox", p + "/Mail/V2/A (2)/A (2).mbox",
             p + "/Mail/V2/a (3)/a (3).mbox", p + "/Mail/V2/A/A.mbox"});
        row("store inside the mailbox", {s + "/V2/Mailboxes/Work.mbox/ID/Data/Messages/7.emlx"},
            {p + "/Mail/ID/Data/Work/Work.mbox"}, s + "/V2/Mailboxes/Work.mbox/ID/Data");
        // The package path itself is left as the user chose it.
        row("store is the mailbox", {s + "/V2/Mailboxes/Work.mbox/ID/Data/Messages/7.emlx"},
            {"/out.mbox/pkg.rge/Mail/Work/Work.mbox"}, s + "/V2/Mailboxes/Work.mbox",
            "/out.mbox/pkg.rge");
        // Folder names that would lead out of the package or vanish (the
        // command-line test exports "...mbox" and Latin-1 names end to end).
        row("dot and empty names", {s + "/..mbox/.mbox/Messages/1.emlx"},
            {p + "/Mail/_./_/_.mbox"});
        row("message outside the store", {"/elsewhere/X.mbox/Messages/1.emlx"},
            {p + "/Mail/X/X.mbox"});
    }
    void mapping() {
        QFETCH(QString, store);
        QFETCH(QString, package);
        QFETCH(QStringList, messages);
        QFETCH(QStringList, expected);
        const QString root = m_dir.path();
        PackageLayout layout(root + package, root + store);
        QStringList got;
        for (const QString& m : messages) {
            QString reason;
            const QString path = layout.PathExtractor(root + m, &reason);
            QVERIFY2(QFileInfo(path).isFile() && QFileInfo(path).size() == 0, qPrintable(reason));
            got << path.mid(root.size());
        }
        QCOMPARE(got, expected);
    }

    // The mbox file is made with its Finder information; a later message of
    // the same mailbox finds it and leaves content and Finder information alone.
    void secondCallKeepsTheFile() {
        const QString root = m_dir.path();
        QString reason;
        auto map = [&](const QString& n) {
            return PackageLayout(root + "/p.rge", root + "/store")
                .PathExtractor(root + "/store/A.mbox/Messages/" + n, &reason);
        };
        const QString path = map("1.emlx");
        const bool xattrs = WriteFile(root + "/probe", "") &&
                            SetFinderTypeAndCreator(root + "/probe", "TEST", "TEST");
        if (xattrs) {
            QCOMPARE(FinderInfo(path), QByteArray("MBOXOPIM") + QByteArray(24, '\0'));
            QVERIFY(SetFinderTypeAndCreator(path, "TEST", "TEST"));
        }
        QVERIFY(WriteFile(path, "From - &&&&&@@@####\nkept\n"));
        QCOMPARE(map("2.emlx"), path);
        QCOMPARE(ReadFile(path), QByteArray("From - &&&&&@@@####\nkept\n"));
        if (!xattrs)
            QSKIP("this file system does not keep user extended attributes");
        QCOMPARE(FinderInfo(path), QByteArray("TESTTEST") + QByteArray(24, '\0'));
    }
};

QTEST_GUILESS_MAIN(TestExportRun)
#include "tst_core_export_run.moc"
