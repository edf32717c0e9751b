// The command-line tool end to end: the scan's JSON document and the package
// made from each sample store against the reviewed copies in tests/data,
// folder selection, argument errors, broken links, odd names and Ctrl-C;
// and the JSON string writer.
#include "cli/ScanOutput.h"
#include "tests/TestSupport.h"

#include <QDirIterator>
#include <QMap>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <functional>
#include <unistd.h>

using namespace TestSupport;

namespace {

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

// With PELLOMAR_UPDATE_GOLDEN=1 the reviewed copy is rewritten from `made`.
void UpdateGolden(const QString& reviewed, const std::function<bool()>& write) {
    if (qEnvironmentVariableIntValue("PELLOMAR_UPDATE_GOLDEN") == 1 && write())
        qWarning("rewrote %s", qPrintable(reviewed));
}

// The bodies of a message's leaf parts by IMAP section, decoded: the
// mail reader's view of what the package holds.
void Sections(const QByteArray& entity, const QString& section, QMap<QString, QByteArray>& out) {
    const int split = entity.indexOf("\n\n");
    const QString head =
        QString::fromLatin1(entity.left(split)).replace(QRegularExpression("\n[ \t]"), " ");
    const QByteArray body = split < 0 ? QByteArray() : entity.mid(split + 2);
    const auto boundary = QRegularExpression("boundary=\"?([^\";\\s]+)").match(head);
    if (boundary.hasMatch()) {
        const QByteArray delimiter = "\n--" + boundary.captured(1).toLatin1(), rest = "\n" + body;
        int at = rest.indexOf(delimiter);
        for (int n = 1; at >= 0 && rest.mid(at + delimiter.size(), 2) != "--"; ++n) {
            const int start = rest.indexOf('\n', at + 1) + 1;
            at = rest.indexOf(delimiter, start);
            Sections(rest.mid(start, at < 0 ? -1 : at - start),
                     (section.isEmpty() ? "" : section + ".") + QString::number(n), out);
        }
        return;
    }
    const QString encoding = QRegularExpression("Content-Transfer-Encoding: *(\\S+)",
                                                QRegularExpression::CaseInsensitiveOption)
                                 .match(head)
                                 .captured(1)
                                 .toLower();
    out[section] = encoding == "base64" ? QByteArray::fromBase64(body)
                   : encoding == "quoted-printable"
                       ? QByteArray::fromPercentEncoding(QByteArray(body).replace("=\n", ""), '=')
                       : body;
}
QString MessageId(const QByteArray& message) {
    return QRegularExpression("^Message-Id: (\\S+)$", QRegularExpression::MultilineOption |
                                                          QRegularExpression::CaseInsensitiveOption)
        .match(QString::fromLatin1(message))
        .captured(1);
}

} // namespace

class TestCli : public QObject {
    Q_OBJECT
private:
    QTemporaryDir m_dir;
    QString m_store, m_modern; // as the commands see them (links resolved)
    QString m_broken;          // a message file of the sample store, a broken link
    int m_outputs = 0;

    QString newDest() {
        const QString dest = m_dir.path() + "/out" + QString::number(++m_outputs);
        QDir().mkpath(dest);
        return dest;
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY2(QFileInfo::exists(CliToolPath()), "build pellomar-cli first");
        QVERIFY(CopyFolder(SampleStore(), m_dir.path() + "/Sample Store"));
        m_store = QFileInfo(m_dir.path() + "/Sample Store").canonicalFilePath();
        QVERIFY(CopyFolder(SourceDir() + "/samples/modern", m_dir.path() + "/Modern Store"));
        m_modern = QFileInfo(m_dir.path() + "/Modern Store").canonicalFilePath();
        // The account database beside both stores names the modern one's
        // account folders.
        QVERIFY(CopyFolder(SourceDir() + "/samples/Accounts", m_dir.path() + "/Accounts"));
        QVERIFY(QDir().mkpath(m_dir.path() + "/empty"));
        QVERIFY(CopyFolder(SampleStore(), m_dir.path() + "/broken"));
        m_broken = m_dir.path() + "/broken/V2/Mailboxes/Inbox.mbox/Messages/12.emlx";
        QVERIFY(QFile::remove(m_broken) && QFile::link(m_dir.path() + "/gone.emlx", m_broken));
    }

    // Both sample stores against their reviewed scan document, package and
    // export reports (the listing with its verification, and --json): the
    // counts of each mbox file, what was changed or restored, the parts
    // that are missing (said on stderr too).
    void matchesReviewedFiles_data() {
        QTest::addColumn<QString>("store");
        QTest::addColumn<QString>("golden"); // NAME-scan.json, NAME-package, NAME-export.txt/json
        QTest::addColumn<QString>("said");
        QTest::newRow("store") << m_store << "sample"
                               << "";
        QTest::newRow("modern") << m_modern << "modern"
                                << "the detached part 'whiteboard.png' of '" + m_modern +
                                       "/V10/C41D8E07-92B5-4F3A-8E6C-0A7B2D9F1E53/INBOX.mbox/"
                                       "80CC59D8-1426-4979-9C7E-DD552D66655C/Data/1/Messages/"
                                       "1507.partial.emlx' is missing";
    }
    void matchesReviewedFiles() {
        QFETCH(QString, store);
        QFETCH(QString, golden);
        QFETCH(QString, said);
        const QString data = SourceDir() + "/tests/data/" + golden;
        auto reviewed = [&](const QString& file, const QByteArray& made) {
            UpdateGolden(data + file, [&] { return WriteFile(data + file, made); });
            QCOMPARE(made, ReadFile(data + file));
        };

        const CliOutput scan = RunCliTool({"scan", store, "--json"});
        QCOMPARE(scan.code, 0);
        reviewed("-scan.json", QByteArray(scan.out).replace(store.toUtf8(), "@STORE@"));

        for (const char* json : {"", "--json"}) {
            const QString dest = newDest();
            const CliOutput r = RunCliTool(
                QStringList{"export", store, dest, json}.filter(QRegularExpression(".")));
            QCOMPARE(r.code, 0);
            QVERIFY2(r.err.contains(said.toUtf8()), r.err.constData());
            const QString package = PackageIn(dest);
            QVERIFY(QRegularExpression(
                        R"(/Main Identity_\(\d{1,2} [A-Z][a-z]{2} \d{4},\d\d-\d\d-\d\d\)\.rge$)")
                        .match(package)
                        .hasMatch());
            reviewed(*json ? "-export.json" : "-export.txt",
                     QByteArray(r.out)
                         .replace(package.toUtf8(), "@PACKAGE@")
                         .replace(store.toUtf8(), "@STORE@"));
            if (*json)
                continue;
            const QStringList files = FilesBelow(package);
            UpdateGolden(data + "-package", [&] {
                return QDir(data + "-package").removeRecursively() &&
                       CopyFolder(package, data + "-package");
            });
            QCOMPARE(files, FilesBelow(data + "-package"));
            for (const QString& f : files)
                QVERIFY2(ReadFile(package + "/" + f) == ReadFile(data + "-package/" + f),
                         qPrintable(f));
        }
    }

    // Two scans of different stores at the same time, in two processes:
    // each prints its own store's document, as it does alone.
    void twoProcessesAtOnce() {
        const QByteArray alone[] = {RunCliTool({"scan", m_store, "--json"}).out,
                                    RunCliTool({"scan", m_modern, "--json"}).out};
        QVERIFY(alone[0].contains("\"Mailboxes\"") && alone[1].contains("\"V10\""));
        for (int round = 0; round < 3; ++round) {
            QProcess a, b;
            a.start(CliToolPath(), {"scan", m_store, "--json"});
            b.start(CliToolPath(), {"scan", m_modern, "--json"});
            QVERIFY(a.waitForFinished(60000) && b.waitForFinished(60000));
            QCOMPARE(a.readAllStandardOutput(), alone[0]);
            QCOMPARE(b.readAllStandardOutput(), alone[1]);
        }
    }

    // A folder the user may not read ends the scan after every file that
    // could be read, and is named with the reason. Root reads every folder:
    // as root the command runs as nobody.
    void unreadableFolderEndsTheScan() {
        const QString store = m_dir.path() + "/locked";
        QVERIFY(CopyFolder(SampleStore(), store));
        const QString work = store + "/V2/Mailboxes/Work.mbox";
        QVERIFY(QFile::setPermissions(work, QFileDevice::WriteOwner));
        QStringList args{"scan", store};
        const bool root = geteuid() == 0;
        if (root) {
            QFile::setPermissions(m_dir.path(), QFile::permissions(store));
            args = QStringList{"--reuid=65534", "--regid=65534", "--clear-groups", CliToolPath()} +
                   args;
        }
        const CliOutput r = RunCliTool(args, root ? "setpriv" : QString());
        QFile::setPermissions(work, QFile::permissions(store));
        QCOMPARE(r.code, 3);
        QVERIFY2(r.err.contains("ended at '" + work.toUtf8() + "': Permission denied"),
                 r.err.constData());
        QVERIFY(r.out.endsWith("\n11 messages in 8 folders\n"));
    }

    // In the arguments @STORE@ is the sample store, @BROKEN@ the same with a
    // message file that is a broken link, @EMPTY@ an empty folder, @DEST@ an
    // empty folder, @READONLY@ one without write permission and @TAKEN@ one
    // where the package's name is taken. `out` is the scan's whole stdout, or
    // the mbox files the export made. stderr holds each of `said` (@MESSAGE@
    // the broken link), one line in all for code 1. Codes 1 and 2 write
    // nothing; a broken link ends the run there with code 3.
    // Every part restored from an Attachments folder decodes to that file's
    // bytes, as a mail reader would decode it from the package.
    void partsDecodeToTheirAttachmentsFiles() {
        QMap<QString, QMap<QString, QByteArray>> package; // Message-Id -> section -> body
        const QString golden = SourceDir() + "/tests/data/modern-package";
        for (const QString& mbox : FilesBelow(golden).filter(QRegularExpression("\\.mbox$")))
            for (const QString& m : QString::fromLatin1(ReadFile(golden + "/" + mbox))
                                        .replace("\n>From ", "\nFrom ")
                                        .split(QString::fromLatin1(kSep), Qt::SkipEmptyParts))
                Sections(m.toLatin1(), QString(), package[MessageId(m.toLatin1())]);
        const QString store = SourceDir() + "/samples/modern";
        const QRegularExpression file("^(.*)/Attachments/(\\d+)/([\\d.]+)/[^/]+$");
        int compared = 0;
        for (const QString& f : FilesBelow(store).filter(file)) {
            const auto m = file.match(f);
            const QString messages = store + "/" + m.captured(1) + "/Messages/" + m.captured(2);
            const QString id =
                MessageId(ReadFile(messages + ".partial.emlx") + ReadFile(messages + ".emlx"));
            if (f.endsWith("/.DS_Store"))
                continue;
            QVERIFY2(package.value(id).value(m.captured(3), "none") == ReadFile(store + "/" + f),
                     qPrintable(f));
            ++compared;
        }
        QCOMPARE(compared, 12);
    }

    void commands_data() {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("code");
        QTest::addColumn<QStringList>("said");
        QTest::addColumn<QStringList>("out");
        auto row = [](const char* name, const QStringList& args, int code, const QString& said,
                      const QStringList& out = {}) {
            QTest::newRow(name) << args << code << said.split('|') << out;
        };
        const QString ended =
            "ended at '@MESSAGE@': No such file or directory|8 messages were not ";
        row("scan: broken link", {"scan", "@BROKEN@"}, 3, ended + "scanned");
        row("export: broken link", {"export", "@BROKEN@", "@DEST@"}, 3, ended + "written");
        // Going on past it still says that a file was left out.
        row("export: broken link, keep going", {"export", "@BROKEN@", "@DEST@", "--keep-going"}, 3,
            "skipped '@MESSAGE@': No such file or directory");
        const QString file = SourceDir() + "/CMakeLists.txt";
        row("scan: tree with counts, store with a trailing slash", {"scan", "@STORE@/"}, 0, "",
            {"Mailbox\n  V2 (0)\n    EWS-bob@exchange.example.com (0)\n      Inbox (2)\n"
             "    IMAP-anna@mail.example.org (0)\n      INBOX (5)\n      Sent Messages (1)\n"
             "    On My Mac (0)\n      Inbox (3)\n      Work (2)\n        Projects (4)\n"
             "17 messages in 10 folders\n"});
        row("scan: empty store tree", {"scan", "@EMPTY@"}, 0, "",
            {"Mailbox\n0 messages in 0 folders\n"});
        row("scan: empty store json, option first", {"scan", "--json", "@EMPTY@"}, 0, "",
            {"{\"folders\": []}\n"});
        row("scan: no store", {"scan", "--json"}, 2, "Usage: pellomar-cli scan");
        row("scan: two stores", {"scan", "/a", "/b"}, 2, "more than one store");
        row("scan: unknown option", {"scan", "/a", "--xml"}, 2, "unknown option '--xml'");
        row("scan: missing store", {"scan", "/no/such/store"}, 1,
            "'/no/such/store' does not exist");
        row("scan: a file, not a folder", {"scan", file}, 1, "is not a folder");
        row("two folders, not their subfolders",
            {"export", "@STORE@", "@DEST@", "--folder", "V2/Mailboxes/Work", "--folder",
             "V2/Mailboxes/Inbox"},
            0, "", {"Mail/V2/Mailboxes/Inbox/Inbox.mbox", "Mail/V2/Mailboxes/Work/Work.mbox"});
        row("a folder given with =", {"export", "@STORE@", "@DEST@", "--folder=V2/Mailboxes/Work"},
            0, "", {"Mail/V2/Mailboxes/Work/Work.mbox"});
        row("a folder by its display names",
            {"export", "@STORE@", "@DEST@", "--folder", "V2/On My Mac/Work/Projects"}, 0, "",
            {"Mail/V2/Mailboxes/Work/Projects/Projects.mbox"});
        row("a folder without messages",
            {"export", "@STORE@", "@DEST@", "--folder", "V2/Mailboxes"}, 0, "");
        row("no destination", {"export", "@STORE@"}, 2, "Usage: pellomar-cli export");
        row("unknown option", {"export", "@STORE@", "@DEST@", "--all"}, 2,
            "unknown option '--all'");
        row("folder without a path", {"export", "@STORE@", "@DEST@", "--folder"}, 2,
            "--folder needs");
        row("unknown folder lists the valid ones",
            {"export", "@STORE@", "@DEST@", "--folder", "V2/Nope"}, 2,
            "no folder 'V2/Nope'\nFolders of this store (as `pellomar-cli scan` shows them):\n  "
            "V2\n");
        row("missing store", {"export", "/no/such/store", "@DEST@"}, 1,
            "'/no/such/store' does not exist");
        row("store is a file", {"export", file, "@DEST@"}, 1, "is not a folder");
        row("destination is a file", {"export", "@STORE@", file}, 1, "is not an existing folder");
        row("read-only destination", {"export", "@STORE@", "@READONLY@"}, 1, "no write permission");
        // The name has one-second resolution: an existing package of the same
        // name is not appended to.
        row("package exists", {"export", "@STORE@", "@TAKEN@"}, 1, "already exists");
    }
    void commands() {
        QFETCH(QStringList, args);
        QFETCH(int, code);
        QFETCH(QStringList, said);
        QFETCH(QStringList, out);
        const QString dest = newDest();
        int made = 0; // packages of the names to come
        if (args.contains("@READONLY@")) {
            if (geteuid() == 0)
                QSKIP("root may write anywhere");
            QVERIFY(QFile::setPermissions(dest, QFile::ReadOwner | QFile::ExeOwner));
        }
        const QDateTime now = QDateTime::currentDateTime();
        for (; made < 20 && args.contains("@TAKEN@"); ++made)
            QVERIFY(QDir(dest).mkdir(
                "Main Identity_(" +
                QLocale::c().toString(now.addSecs(made), "d MMM yyyy,hh-mm-ss") + ").rge"));
        args.replaceInStrings("@BROKEN@", m_dir.path() + "/broken")
            .replaceInStrings("@STORE@", m_store)
            .replaceInStrings("@EMPTY@", m_dir.path() + "/empty");
        args.replaceInStrings(QRegularExpression("@(DEST|READONLY|TAKEN)@"), dest);
        const CliOutput r = RunCliTool(args);
        QFile::setPermissions(dest, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QCOMPARE(r.code, code);
        for (const QString& text : said.replaceInStrings("@MESSAGE@", m_broken))
            QVERIFY2(r.err.contains(text.toUtf8()), r.err.constData());
        if (code == 1)
            QCOMPARE(r.err.count('\n'), 1);
        if (code == 0 && args.first() == "scan")
            QCOMPARE(r.out, out.join("").toUtf8());
        if (code == 0 && args.first() == "export") {
            QVERIFY(!PackageIn(dest).isEmpty());
            QCOMPARE(FilesBelow(PackageIn(dest)).filter(QRegularExpression("^Mail/")), out);
        }
        if (code == 0 || code == 3)
            return;
        QVERIFY(r.out.isEmpty());
        QCOMPARE(QDir(dest).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size(), made);
        QCOMPARE(FilesBelow(dest), QStringList());
    }

    // Names the file system allows: folders "...mbox" (".." once the suffix
    // goes), a line feed, a leading dash and a Latin-1 byte, in a store whose
    // own name holds a Latin-1 byte. Every message is written, inside DEST.
    void oddNamesStayInsideDest() {
        const QString store = m_dir.path() + "/" + QFile::decodeName("st\xf6re");
        const QString latin1 = QFile::decodeName("caf\xe9"), shown = QString::fromUtf8("caf\xe9");
        for (const QString& folder :
             {QString("...mbox/...mbox/...mbox/x/evil"), QString("a\nb"), QString("-dash"), latin1})
            QVERIFY(WriteFile(store + "/" + folder + ".mbox/Messages/1.emlx",
                              Emlx("Subject: s\n\nbody\n")));
        const QString dest = newDest();
        const CliOutput r = RunCliTool({"export", store, dest});
        QCOMPARE(r.code, 0);
        QCOMPARE(QDir(dest).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size(), 1);
        QCOMPARE(FilesBelow(PackageIn(dest)).filter(QRegularExpression("^Mail/")),
                 (QStringList{"Mail/-dash/-dash.mbox", "Mail/_../_../_../x/evil/evil.mbox",
                              "Mail/a\nb/a\nb.mbox", "Mail/" + shown + "/" + shown + ".mbox"}));
        QVERIFY(!QFileInfo::exists(m_dir.path() + "/x"));
    }

    // Ctrl-C during the export: whole messages only, exit 130, and the
    // listing of what was written.
    void interruptLeavesWholeMessages() {
        const QString store = m_dir.path() + "/big";
        const QByteArray filler = QByteArray(2000, 'x') + "\n";
        for (int i = 0; i < 3000; ++i)
            QVERIFY(WriteFile(QString("%1/A.mbox/Messages/%2.emlx").arg(store).arg(i),
                              Emlx("Subject: n" + QByteArray::number(i) + "\n\n" +
                                   filler.repeated(4) + "END\n")));
        const QString dest = newDest();
        QProcess p;
        p.start(CliToolPath(), {"export", store, dest});
        QVERIFY(p.waitForStarted());
        // Wait until the export has begun writing.
        QElapsedTimer t;
        t.start();
        QString mbox;
        while (t.elapsed() < 60000 && p.state() == QProcess::Running && mbox.isEmpty()) {
            const QString candidate = PackageIn(dest) + "/Mail/A/A.mbox";
            if (!PackageIn(dest).isEmpty() && QFileInfo(candidate).size() > 0)
                mbox = candidate;
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
        QVERIFY(messages > 0 && messages < 3000);
        QCOMPARE(out.count("END\n"), messages);
        QVERIFY(out.endsWith("END\n"));
        const QByteArray listing = p.readAllStandardOutput();
        QVERIFY2(
            listing.contains("  Mail/A/A.mbox (" + QByteArray::number(messages) + " messages)"),
            listing.constData());
        QVERIFY(p.readAllStandardError().contains("interrupted"));
    }

    // A destination that fills up (a file size limit stands in for a full
    // disk): the message that did not fit is named, exit 3, and every mbox
    // file holds whole messages only, each as a run without the limit writes it.
    void fullDestinationKeepsWholeMessages() {
        const QString free = newDest(), full = newDest();
        QCOMPARE(RunCliTool({"export", m_store, free}).code, 0);
        const CliOutput r = RunCliTool({"-c", "trap '' XFSZ; ulimit -f 4; exec \"$0\" \"$@\"",
                                        CliToolPath(), "export", m_store, full},
                                       "/bin/bash");
        QCOMPARE(r.code, 3);
        QVERIFY2(r.err.contains("not written '") && r.err.contains("File too large"),
                 r.err.constData());
        QVERIFY(r.out.contains("1 message could not be written\n16 of 17 messages written\n"));
        auto messages = [](const QByteArray& mbox) {
            QList<QByteArray> found;
            for (int at = mbox.indexOf(kSep), next; at >= 0; at = next) {
                next = mbox.indexOf(kSep, at + kSep.size());
                found << mbox.mid(at, next < 0 ? -1 : next - at);
            }
            return found;
        };
        int written = 0;
        for (const QString& mbox : FilesBelow(PackageIn(free)).filter(".mbox")) {
            const QByteArray kept = ReadFile(PackageIn(full) + "/" + mbox);
            QVERIFY(kept.isEmpty() || kept.startsWith(kSep));
            const QList<QByteArray> whole = messages(ReadFile(PackageIn(free) + "/" + mbox));
            for (const QByteArray& message : messages(kept)) {
                QVERIFY2(whole.contains(message), qPrintable(mbox));
                ++written;
            }
        }
        QCOMPARE(written, 16);

        // Not even the package's first file fits: the run stops there, says
        // so and writes no message.
        const QString none = newDest();
        const CliOutput stopped = RunCliTool({"-c", "trap '' XFSZ; ulimit -f 0; exec \"$0\" \"$@\"",
                                              CliToolPath(), "export", m_store, none},
                                             "/bin/bash");
        QCOMPARE(stopped.code, 3);
        QVERIFY2(stopped.err.contains("/Contents/PkgInfo': File too large") &&
                     stopped.err.contains("17 messages were not written"),
                 stopped.err.constData());
        QVERIFY(stopped.out.contains("0 of 17 messages written"));
        QCOMPARE(FilesBelow(PackageIn(none)), QStringList{"Contents/PkgInfo"});
    }

    void jsonString_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("json");
        QTest::newRow("quote and backslash") << "a\"b\\c"
                                             << "\"a\\\"b\\\\c\"";
        QTest::newRow("named and numbered control characters")
            << QString::fromLatin1("\r\n\t\x01\x08\x0c\x1f\0", 8)
            << "\"\\r\\n\\t\\u0001\\b\\f\\u001f\\u0000\"";
        QTest::newRow("slash, DEL, non-ASCII and a surrogate pair stay")
            << QString::fromUtf8("/\x7fGrüße 日本\U0001F600")
            << QString::fromUtf8("\"/\x7fGrüße 日本\U0001F600\"");
        QTest::newRow("lone high surrogate") << QString(QChar(0xD83D)) + "x"
                                             << "\"\\ud83dx\"";
        QTest::newRow("swapped pair")
            << QString(QChar(0xDE00)) + QString(QChar(0xD83D)) << "\"\\ude00\\ud83d\"";
    }
    void jsonString() {
        QFETCH(QString, text);
        QFETCH(QString, json);
        QString out;
        AppendJsonString(out, text);
        QCOMPARE(out, json);
    }
};

QTEST_GUILESS_MAIN(TestCli)
#include "tst_core_cli.moc"
