// The export command end to end: the package made from the sample store
// against the reviewed copy in tests/data/sample-package, folder selection,
// argument errors, and Ctrl-C.
#include "Globals.h"
#include "TestSupport.h"

#include <QDirIterator>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <unistd.h>

using namespace TestSupport;

namespace {

QString Cli() {
    return QStringLiteral(PELLOMAR_BINARY_DIR "/cli/pellomar-cli");
}

struct Run {
    int code = -1;
    QByteArray out;
    QByteArray err;
};

Run RunCli(const QStringList& args) {
    QProcess p;
    p.start(Cli(), args);
    Run r;
    if (!p.waitForFinished(120000))
        return r;
    r.code = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    r.out = p.readAllStandardOutput();
    r.err = p.readAllStandardError();
    return r;
}

bool CopyTree(const QString& from, const QString& to) {
    QDirIterator it(from, QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    int files = 0;
    while (it.hasNext()) {
        const QString src = it.next();
        if (!WriteFile(to + src.mid(from.size()), ReadFile(src)))
            return false;
        ++files;
    }
    return files > 0;
}

// Files below a folder, relative, sorted.
QStringList FilesBelow(const QString& dir) {
    QStringList files;
    QDirIterator it(dir, QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        files << it.next().mid(dir.size() + 1);
    files.sort();
    return files;
}

// The one package made in `dest`.
QString PackageIn(const QString& dest) {
    const QStringList found = QDir(dest).entryList({"Main Identity_(*).rge"}, QDir::Dirs);
    return found.size() == 1 ? dest + "/" + found.first() : QString();
}

const QByteArray kSep = "From - &&&&&@@@####\n";

} // namespace

class TestExportCli : public QObject {
    Q_OBJECT
private:
    QTemporaryDir m_dir{TempDir() + "/export-cli-XXXXXX"};
    QString m_store;
    int m_outputs = 0;

    QString newDest() {
        const QString dest = m_dir.path() + "/out" + QString::number(++m_outputs);
        QDir().mkpath(dest);
        return dest;
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY2(QFileInfo::exists(Cli()), "build pellomar-cli first");
        InstallSortedFind(m_dir.path() + "/bin");
        QVERIFY(CopyTree(SampleStore(), m_dir.path() + "/Sample Store"));
        m_store = m_dir.path() + "/Sample Store";
    }

    void samplePackageMatchesReviewedFiles() {
        const QString dest = newDest();
        const Run r = RunCli({"export", m_store, dest});
        QCOMPARE(r.code, 0);
        const QString package = PackageIn(dest);
        QVERIFY(!package.isEmpty());
        QVERIFY(QRegularExpression(
                    R"(/Main Identity_\(\d{1,2} [A-Z][a-z]{2} \d{4},\d\d-\d\d-\d\d\)\.rge$)")
                    .match(package)
                    .hasMatch());

        const QString expectedDir = SourceDir() + "/tests/data/sample-package";
        const QStringList files = FilesBelow(package);
        if (qEnvironmentVariableIntValue("PELLOMAR_UPDATE_GOLDEN") == 1) {
            QDir(expectedDir).removeRecursively();
            for (const QString& f : files)
                QVERIFY(WriteFile(expectedDir + "/" + f, ReadFile(package + "/" + f)));
            qWarning("rewrote %s", qPrintable(expectedDir));
        }
        QCOMPARE(files, FilesBelow(expectedDir));
        for (const QString& f : files)
            QVERIFY2(ReadFile(package + "/" + f) == ReadFile(expectedDir + "/" + f), qPrintable(f));

        // The listing: the package, then each mbox file with its count.
        QStringList listing = QString::fromUtf8(r.out).split('\n', Qt::SkipEmptyParts);
        QCOMPARE(listing.takeFirst(), package);
        QStringList mboxes;
        for (const QString& f : files)
            if (f.startsWith("Mail/")) {
                const int n = ReadFile(package + "/" + f).count(kSep);
                mboxes << QString("  %1 (%2 message%3)").arg(f).arg(n).arg(n == 1 ? "" : "s");
            }
        listing.sort();
        QCOMPARE(listing, mboxes);
    }

    void chosenFolders_data() {
        QTest::addColumn<QStringList>("folders");
        QTest::addColumn<QStringList>("mboxes");
        QTest::newRow("one folder, not its subfolder")
            << QStringList{"V2/Mailboxes/Work"} << QStringList{"Mail/V2/Mailboxes/Work/Work.mbox"};
        QTest::newRow("two folders")
            << QStringList{"V2/Mailboxes/Work/Projects", "V2/Mailboxes/Inbox"}
            << QStringList{"Mail/V2/Mailboxes/Inbox/Inbox.mbox",
                           "Mail/V2/Mailboxes/Work/Projects/Projects.mbox"};
        QTest::newRow("a folder without messages") << QStringList{"V2/Mailboxes"} << QStringList{};
    }
    void chosenFolders() {
        QFETCH(QStringList, folders);
        QFETCH(QStringList, mboxes);
        const QString dest = newDest();
        QStringList args{"export", m_store, dest};
        for (const QString& f : folders)
            args << "--folder" << f;
        const Run r = RunCli(args);
        QCOMPARE(r.code, 0);
        QStringList written;
        for (const QString& f : FilesBelow(PackageIn(dest)))
            if (f.startsWith("Mail/"))
                written << f;
        QCOMPARE(written, mboxes);
    }

    void badArguments_data() {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("message");
        const QString file = QStringLiteral(PELLOMAR_SOURCE_DIR "/CMakeLists.txt");
        QTest::newRow("nothing") << QStringList{} << 2 << "Usage: pellomar-cli export";
        QTest::newRow("no destination") << QStringList{"@STORE@"} << 2 << "Usage:";
        QTest::newRow("unknown option")
            << QStringList{"@STORE@", "@DEST@", "--all"} << 2 << "unknown option '--all'";
        QTest::newRow("folder without a path")
            << QStringList{"@STORE@", "@DEST@", "--folder"} << 2 << "--folder needs";
        QTest::newRow("unknown folder lists the valid ones")
            << QStringList{"@STORE@", "@DEST@", "--folder", "V2/Nope"} << 2
            << "no folder 'V2/Nope'\nFolders of this store (as `pellomar-cli scan` shows "
               "them):\n  V2\n";
        QTest::newRow("missing store")
            << QStringList{"/no/such/store", "@DEST@"} << 1 << "'/no/such/store' does not exist";
        QTest::newRow("store is a file") << QStringList{file, "@DEST@"} << 1 << "is not a folder";
        QTest::newRow("missing destination")
            << QStringList{"@STORE@", "/no/such/dest"} << 1 << "is not an existing folder";
        QTest::newRow("destination is a file")
            << QStringList{"@STORE@", file} << 1 << "is not an existing folder";
    }
    void badArguments() {
        QFETCH(QStringList, args);
        QFETCH(int, code);
        QFETCH(QString, message);
        const QString dest = newDest();
        args.replaceInStrings("@STORE@", m_store);
        args.replaceInStrings("@DEST@", dest);
        const Run r = RunCli(QStringList{"export"} + args);
        QCOMPARE(r.code, code);
        QVERIFY2(r.err.contains(message.toUtf8()), r.err.constData());
        if (code == 1)
            QCOMPARE(r.err.count('\n'), 1);
        QVERIFY(r.out.isEmpty());
        QCOMPARE(QDir(dest).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());
    }

    void readOnlyDestination() {
        if (geteuid() == 0)
            QSKIP("root may write anywhere");
        const QString dest = newDest();
        QVERIFY(QFile::setPermissions(dest, QFile::ReadOwner | QFile::ExeOwner));
        const Run r = RunCli({"export", m_store, dest});
        QFile::setPermissions(dest, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QCOMPARE(r.code, 1);
        QVERIFY(r.err.contains("no write permission"));
    }

    // The package name has one-second resolution: an existing package of the
    // same name is not appended to.
    void existingPackageIsRefused() {
        const QString dest = newDest();
        const QDateTime now = QDateTime::currentDateTime();
        for (int s = 0; s < 20; ++s)
            QDir().mkpath(dest + "/Main Identity_(" +
                          QLocale::c().toString(now.addSecs(s), "d MMM yyyy,hh-mm-ss") + ").rge");
        const Run r = RunCli({"export", m_store, dest});
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.contains("already exists"), r.err.constData());
        QCOMPARE(FilesBelow(dest), QStringList());
    }

    // Ctrl-C during the export: whole messages only, exit 130, and the
    // listing of what was written.
    void interruptLeavesWholeMessages() {
        const QString store = m_dir.path() + "/big";
        const QByteArray filler = QByteArray(2000, 'x') + "\n";
        for (int i = 0; i < 3000; ++i) {
            const QByteArray message =
                "Subject: n" + QByteArray::number(i) + "\n\n" + filler.repeated(4) + "END\n";
            QVERIFY(
                WriteFile(QString("%1/A.mbox/Messages/%2.emlx").arg(store).arg(i), Emlx(message)));
        }
        const QString dest = newDest();
        QProcess p;
        p.start(Cli(), {"export", store, dest});
        QVERIFY(p.waitForStarted());
        // Wait until the export has begun writing.
        QElapsedTimer t;
        t.start();
        QString mbox;
        while (t.elapsed() < 60000 && p.state() == QProcess::Running) {
            const QString package = PackageIn(dest);
            if (!package.isEmpty() && QFileInfo(package + "/Mail/A/A.mbox").size() > 0) {
                mbox = package + "/Mail/A/A.mbox";
                break;
            }
            QThread::msleep(2);
        }
        if (mbox.isEmpty() || p.state() != QProcess::Running)
            QSKIP("the export ended before it could be interrupted");
        ::kill(pid_t(p.processId()), SIGINT);
        QVERIFY(p.waitForFinished(60000));
        QCOMPARE(p.exitStatus(), QProcess::NormalExit);
        QCOMPARE(p.exitCode(), 130);
        const QByteArray out = ReadFile(mbox);
        const int messages = out.count(kSep);
        QVERIFY(messages > 0);
        QVERIFY(messages < 3000);
        QCOMPARE(out.count("END\n"), messages);
        QVERIFY(out.endsWith("END\n"));
        const QByteArray listing = p.readAllStandardOutput();
        QVERIFY2(
            listing.contains("  Mail/A/A.mbox (" + QByteArray::number(messages) + " messages)"),
            listing.constData());
        QVERIFY(p.readAllStandardError().contains("interrupted"));
    }
};

QTEST_GUILESS_MAIN(TestExportCli)
#include "tst_core_export_cli.moc"
