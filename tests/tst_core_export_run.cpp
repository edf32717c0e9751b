// The export run over folder records built by hand: which folders are
// written, progress, stop requests and the files that end the run.
#include "ExportSummary.h"
#include "Globals.h"
#include "Records.h"
#include "ScaningThread.h"
#include "TestSupport.h"

#include <QSignalSpy>
#include <QtTest>

using TestSupport::Emlx;
using TestSupport::ReadFile;
using TestSupport::WriteFile;

namespace {

const QByteArray kSep = "From - &&&&&@@@####\n";

struct Msg {
    const char* folder; // folder key below
    const char* path;   // below the store
};

// Folder keys and their mailboxes (identifiers from 502 on, parent 501).
const QList<QPair<QString, quint64>> kFolders = {
    {"Work", 502}, {"Projects", 503}, {"Part", 504}, {"RSS", 505}};

const QList<Msg> kMessages = {
    {"Work", "/V2/Mailboxes/Work.mbox/ID/Data/Messages/1.emlx"},
    {"Work", "/V2/Mailboxes/Work.mbox/ID/Data/Messages/2.emlx"},
    {"Projects", "/V2/Mailboxes/Work.mbox/Projects.mbox/Messages/3.emlx"},
    {"Part", "/V2/Mailboxes/Part.mbox/Messages/4.partial.emlx"},
    {"RSS", "/V2/RSS/Apple Hot News.rssmbox/Messages/5.emlx"},
};

const char kWorkMbox[] = "/Mail/V2/Mailboxes/Work/Work.mbox";
const char kProjectsMbox[] = "/Mail/V2/Mailboxes/Work/Projects/Projects.mbox";
const char kPartMbox[] = "/Mail/V2/Mailboxes/Part/Part.mbox";

} // namespace

class TestExportRun : public QObject {
    Q_OBJECT
private:
    QTemporaryDir m_dir{TempDir() + "/export-run-XXXXXX"};
    QString m_store;
    QString m_package;

    QByteArray body(int n) const {
        return "Subject: m" + QByteArray::number(n) + "\n\nFrom me " + QByteArray::number(n) + "\n";
    }

    // Builds the store files and the records; `ticks` gives each folder's tick state.
    void build(const QMap<QString, int>& ticks) {
        FreeAllFolderRecords();
        AppendFolderRecord(0, 501, nullptr, 2);
        QMap<QString, FldrAtrib*> byName;
        for (const auto& f : kFolders)
            byName[f.first] =
                AppendFolderRecord(501, f.second, nullptr, quint8(ticks.value(f.first, 1)));
        for (int i = 0; i < kMessages.size(); ++i) {
            const QString path = m_store + kMessages[i].path;
            QByteArray message = body(i + 1);
            if (path.endsWith(".partial.emlx"))
                message = "Content-Type: image/png\nX-Apple-Content-Length: 4\n\n--b--\n";
            QVERIFY(WriteFile(path, Emlx(message)));
            MailItem* item = NewMailItem();
            SetUtf16(&item->pPath, &item->ulPathSize, path);
            AppendMailToFolder(byName[kMessages[i].folder], item);
        }
        listOfPathOfEmlxPart = {m_store + "/V2/Mailboxes/Part.mbox/Messages/4.2.emlxpart"};
        QVERIFY(WriteFile(listOfPathOfEmlxPart.first(), "iVBO\n"));
    }

private slots:
    void init() {
        QVERIFY(m_dir.isValid());
        QDir(m_dir.path()).removeRecursively();
        m_store = m_dir.path() + "/Mail";
        m_strInputfilepath = m_store;
        saveDir = m_dir.path() + "/out";
        QDir().mkpath(saveDir);
        strTime = "(5 Mar 2026,14-07-09)";
        mainIdentity = "/Main Identity_" + strTime + ".rge";
        m_package = saveDir + mainIdentity;
        bStopFlag = false;
    }
    void cleanup() {
        FreeAllFolderRecords();
        listOfPathOfEmlxPart.clear();
        bStopFlag = false;
    }

    void selection_data() {
        QTest::addColumn<QStringList>("unticked"); // tick state 3
        QTest::addColumn<QStringList>("partly");   // tick state 2
        QTest::addColumn<int>("total");
        QTest::addColumn<QStringList>("mboxes"); // written, with their message counts
        QTest::newRow("everything")
            << QStringList() << QStringList() << 5
            << QStringList{QString(kWorkMbox) + " 2", QString(kProjectsMbox) + " 1",
                           QString(kPartMbox) + " 1"};
        QTest::newRow("partly ticked folder writes none of its own")
            << QStringList() << QStringList{"Work"} << 3
            << QStringList{QString(kProjectsMbox) + " 1", QString(kPartMbox) + " 1"};
        QTest::newRow("unticked folders") << QStringList{"Work", "Part", "RSS"} << QStringList()
                                          << 1 << QStringList{QString(kProjectsMbox) + " 1"};
        // RSS items count toward the total but are not written.
        QTest::newRow("only the news folder")
            << QStringList{"Work", "Part", "Projects"} << QStringList() << 1 << QStringList();
    }
    void selection() {
        QFETCH(QStringList, unticked);
        QFETCH(QStringList, partly);
        QFETCH(int, total);
        QFETCH(QStringList, mboxes);
        QMap<QString, int> ticks;
        for (const QString& f : unticked)
            ticks[f] = 3;
        for (const QString& f : partly)
            ticks[f] = 2;
        build(ticks);
        ScaningThread thread;
        QSignalSpy shown(&thread, &ScaningThread::OnShowingScanProgBar);
        QSignalSpy settings(&thread, &ScaningThread::OnSettingsForPrgBar);
        QSignalSpy progress(&thread, &ScaningThread::CurrentValue);
        thread.EMLXConverter();
        QCOMPARE(shown.count(), 1);
        QCOMPARE(settings.count(), 1);
        QCOMPARE(settings.first().at(0).value<unsigned long>(), (unsigned long)total);
        QCOMPARE(settings.first().at(1).toString(), QString("Saving .rge file. Please Wait..."));
        QCOMPARE(progress.count(), total);
        QCOMPARE(ReadFile(m_package + "/Contents/PkgInfo"), QByteArray("rge OPIM"));

        QStringList written;
        for (const WrittenMbox& w : LastExportSummary()) {
            written << w.path.mid(m_package.size()) + " " + QString::number(w.messages);
            QCOMPARE(ReadFile(w.path).count(kSep), int(w.messages));
        }
        QCOMPARE(written, mboxes);
        // Nothing else was made below Mail.
        QStringList files;
        QDirIterator it(m_package + "/Mail", QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString file = it.next();
            files << file.mid(m_package.size()) + " " + QString::number(ReadFile(file).count(kSep));
        }
        files.sort();
        written.sort();
        QCOMPARE(files, written);
    }

    void mboxContent() {
        build({});
        ScaningThread thread;
        thread.EMLXConverter();
        QCOMPARE(ReadFile(m_package + kWorkMbox),
                 kSep + "Subject: m1\n\n>From me 1\n" + kSep + "Subject: m2\n\n>From me 2\n");
        QCOMPARE(ReadFile(m_package + kPartMbox),
                 kSep + "Content-Type: image/png\n\niVBO\n\n\n--b--\n");
    }

    // A stop request during a message lets it finish; the next is not started.
    void stopBetweenMessages_data() {
        QTest::addColumn<int>("stopAfter");
        QTest::addColumn<int>("workMessages");
        QTest::newRow("before the first") << 0 << 0;
        QTest::newRow("after the first") << 1 << 1;
        QTest::newRow("after the second") << 2 << 2;
    }
    void stopBetweenMessages() {
        QFETCH(int, stopAfter);
        QFETCH(int, workMessages);
        build({});
        ScaningThread thread;
        int seen = 0;
        if (stopAfter == 0)
            bStopFlag = true;
        connect(
            &thread, &ScaningThread::CurrentValue, this,
            [&] {
                if (++seen == stopAfter)
                    bStopFlag = true;
            },
            Qt::DirectConnection);
        thread.EMLXConverter();
        QCOMPARE(seen, stopAfter);
        QCOMPARE(ReadFile(m_package + kWorkMbox).count(kSep), workMessages);
        QVERIFY(!QFileInfo::exists(m_package + kProjectsMbox));
        // The package itself is there whatever happened.
        QCOMPARE(ReadFile(m_package + "/Contents/PkgInfo"), QByteArray("rge OPIM"));
    }

    // Files that cannot be read or written.
    void failures_data() {
        QTest::addColumn<QString>("damage");
        QTest::addColumn<int>("progress");
        QTest::addColumn<int>("workMessages");
        QTest::addColumn<int>("projectsMessages");
        QTest::addColumn<int>("partMessages");
        // The run ends at a message file it cannot open.
        QTest::newRow("missing message file") << "message" << 1 << 1 << 0 << 0;
        // A mbox that cannot be opened loses its messages only.
        QTest::newRow("mbox is a folder") << "mbox" << 5 << -1 << 1 << 1;
        // The run ends at a detached part it cannot open; the message stays
        // as far as it was written.
        QTest::newRow("missing part file") << "part" << 3 << 2 << 1 << 1;
    }
    void failures() {
        QFETCH(QString, damage);
        QFETCH(int, progress);
        QFETCH(int, workMessages);
        QFETCH(int, projectsMessages);
        QFETCH(int, partMessages);
        build({});
        if (damage == "message")
            QVERIFY(QFile::remove(m_store + kMessages[1].path));
        if (damage == "mbox")
            QVERIFY(QDir().mkpath(m_package + kWorkMbox));
        if (damage == "part")
            listOfPathOfEmlxPart = {m_store + "/V2/Mailboxes/Part.mbox/Messages/4.9.emlxpart"};
        ScaningThread thread;
        QSignalSpy spy(&thread, &ScaningThread::CurrentValue);
        thread.EMLXConverter();
        QCOMPARE(spy.count(), progress);
        if (workMessages >= 0)
            QCOMPARE(ReadFile(m_package + kWorkMbox).count(kSep), workMessages);
        QCOMPARE(ReadFile(m_package + kProjectsMbox).count(kSep), projectsMessages);
        QCOMPARE(ReadFile(m_package + kPartMbox).count(kSep), partMessages);
        if (damage == "part")
            QCOMPARE(ReadFile(m_package + kPartMbox), kSep + "Content-Type: image/png\n\n");
    }
};

QTEST_GUILESS_MAIN(TestExportRun)
#include "tst_core_export_run.moc"
