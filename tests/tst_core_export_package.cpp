// The archive package files, the save time stamp and the folder mapping of
// message files to mbox files.
#include "export/EmlxExport.h"
#include "export/PathMapping.h"
#include "export/SaveTimeStamp.h"
#include "scanner/Globals.h"
#include "tests/TestSupport.h"

#include <QtTest>

#include <sys/xattr.h>

using namespace TestSupport;

namespace {

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

void MappingRow(const char* name, const QString& message, const QString& expected,
                const QString& store = kStore, const QString& package = kPackage) {
    QTest::newRow(name) << store << package << message << expected;
}

} // namespace

class TestExportPackage : public QObject {
    Q_OBJECT
private:
    QTemporaryDir m_dir{pellomar::TempDir() + "/export-package-XXXXXX"};

private slots:
    void init() {
        QVERIFY(m_dir.isValid());
        QDir(m_dir.path()).removeRecursively();
        QDir().mkpath(m_dir.path());
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
    // into the same package doubles them.
    void packageFiles() {
        mainIdentity =
            "/pellomar-test-" + QString::number(QCoreApplication::applicationPid()) + ".rge";
        CreateRGEWraper(QString());
        QVERIFY(!QFileInfo::exists(mainIdentity));
        QVERIFY(!QFileInfo::exists(QDir::currentPath() + mainIdentity));
        const QString p = m_dir.path() + mainIdentity + "/";
        const QString reviewed = SourceDir() + "/tests/data/sample-package/";
        for (int runs = 1; runs <= 2; ++runs) {
            CreateRGEWraper(m_dir.path());
            for (const QString f : {"Contents/PkgInfo", "Contents/Info.plist", "Archive.xml"})
                QCOMPARE(ReadFile(p + f), ReadFile(reviewed + f).repeated(runs));
        }
        QCOMPARE(QDir(p).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
                 QStringList({"Archive.xml", "Contents"}));
    }

    void mapping_data() {
        QTest::addColumn<QString>("store"); // all paths below the temporary folder
        QTest::addColumn<QString>("package");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("expected");
        const QString s = kStore, p = kPackage;
        // The innermost mailbox holds the message; its parents lose their suffix.
        MappingRow("nested mailbox",
                   s + "/V2/Mailboxes/Work.mbox/Projects.mbox/ID/Data/Messages/8.emlx",
                   p + "/Mail/V2/Mailboxes/Work/Projects/Projects.mbox");
        MappingRow("imap wins over a later .mbox",
                   s + "/V2/acct/INBOX.imapmbox/Sub.mbox/Messages/1.emlx",
                   p + "/Mail/V2/acct/INBOX/INBOX.mbox");
        MappingRow("exchange wins over imap",
                   s + "/V2/x.ewsmbox/y.imapmbox/Messages/1.partial.emlx", p + "/Mail/V2/x/x.mbox");
        MappingRow(".mbox inside a folder name",
                   s + "/V2/Mailboxes/Old.mbox.backup.mbox/Messages/1.emlx",
                   p + "/Mail/V2/Mailboxes/Old.backup/Old.mbox.backup.mbox");
        MappingRow("store inside the mailbox",
                   s + "/V2/Mailboxes/Work.mbox/ID/Data/Messages/7.emlx",
                   p + "/Mail/ID/Data/Work/Work.mbox", s + "/V2/Mailboxes/Work.mbox/ID/Data");
        // The removal of ".mbox" leaves the package path alone.
        MappingRow("store is the mailbox", s + "/V2/Mailboxes/Work.mbox/ID/Data/Messages/7.emlx",
                   "/out.mbox/pkg.rge/Mail/Work/Work.mbox", s + "/V2/Mailboxes/Work.mbox",
                   "/out.mbox/pkg.rge");
        // Folder names that would lead out of the package or vanish.
        MappingRow("...mbox folders", s + "/...mbox/...mbox/...mbox/x/evil.mbox/Messages/1.emlx",
                   p + "/Mail/_../_../_../x/evil/evil.mbox");
        MappingRow("dot and empty names", s + "/..mbox/.mbox/Messages/1.emlx",
                   p + "/Mail/_./_/.mbox");
        const QString latin1 = QFile::decodeName("caf\xe9"), shown = QString::fromUtf8("caf\xe9");
        MappingRow("bytes that are not UTF-8 as shown", s + "/" + latin1 + ".mbox/Messages/1.emlx",
                   p + "/Mail/" + shown + "/" + shown + ".mbox");
        MappingRow("message outside the store lands beside the package",
                   "/elsewhere/X.mbox/Messages/1.emlx", p + "X.mbox");
    }
    void mapping() {
        QFETCH(QString, store);
        QFETCH(QString, package);
        QFETCH(QString, message);
        QFETCH(QString, expected);
        const QString root = m_dir.path();
        m_strInputfilepath = root + store;
        const QString path = PathExtractor(root + package, root + message);
        QCOMPARE(path, root + expected);
        QVERIFY(QFileInfo(path).isFile());
        QCOMPARE(QFileInfo(path).size(), 0);
    }

    // The mbox file is made with its Finder information; a later message of
    // the same mailbox finds it and leaves content and Finder information alone.
    void secondCallKeepsTheFile() {
        const QString root = m_dir.path();
        m_strInputfilepath = root + "/store";
        auto map = [&](const QString& n) {
            return PathExtractor(root + "/p.rge", root + "/store/A.mbox/Messages/" + n);
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

QTEST_GUILESS_MAIN(TestExportPackage)
#include "tst_core_export_package.moc"
