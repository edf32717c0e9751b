// The archive package files, the save time stamp and the folder mapping of
// message files to mbox files.
#include "Globals.h"
#include "PathMapping.h"
#include "SaveTimeStamp.h"
#include "ScaningThread.h"
#include "TestSupport.h"

#include <QtTest>

#include <sys/xattr.h>

using TestSupport::ReadFile;
using TestSupport::WriteFile;

namespace {

const QByteArray kInfoPlist = "<?xml version=\"1.1\" encoding=\"UTF-8\"?>\n"
                              "<!DOCTYPE plist PUBLIC \"-//Apple Computer//DTD PLIST 1.1//EN\" "
                              "\"http://www.apple.com/DTDs/PropertyList-1.1.dtd\">\n"
                              "<plist version=\"1.1\">\n"
                              "<dict>\n"
                              "\t<key>CFBundleDevelopmentRegion</key>\n"
                              "\t<string>English</string>\n"
                              "\t<key>CFBundleInfoDictionaryVersion</key>\n"
                              "\t<string>6.0</string>\n"
                              "\t<key>CFBundlePackageType</key>\n"
                              "\t<string>rge </string>\n"
                              "\t<key>CFBundleSignature</key>\n"
                              "\t<string>OPIM</string>\n"
                              "</dict>\n"
                              "</plist>\n";

const QByteArray kArchiveXml = "<?xml version=\"1.1\" encoding=\"UTF-8\"?>\n"
                               "<!DOCTYPE plist PUBLIC \"-//Apple Computer//DTD PLIST 1.1//EN\" "
                               "\"http://www.apple.com/DTDs/PropertyList-1.1.dtd\">\n"
                               "<plist version=\"1.1\">\n"
                               "<dict>\n"
                               "\t<key>Type</key>\n"
                               "\t<string>All</string>\n"
                               "\t<key>Version</key>\n"
                               "\t<integer>1</integer>\n"
                               "</dict>\n"
                               "</plist>\n";

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

bool UserXattrsWork(const QString& dir) {
    const QString probe = dir + "/xattr-probe";
    return WriteFile(probe, "") && SetFinderTypeAndCreator(probe, "TEST", "TEST");
}

} // namespace

class TestExportPackage : public QObject {
    Q_OBJECT
private:
    QTemporaryDir m_dir{TempDir() + "/export-package-XXXXXX"};
    ScaningThread m_thread;

private slots:
    void init() {
        QVERIFY(m_dir.isValid());
        QDir(m_dir.path()).removeRecursively();
        QDir().mkpath(m_dir.path());
    }

    void timeStamp_data() {
        QTest::addColumn<QDateTime>("when");
        QTest::addColumn<QString>("expected");
        QTest::newRow("day without zero")
            << QDateTime(QDate(2026, 3, 5), QTime(14, 7, 9)) << "(5 Mar 2026,14-07-09)";
        QTest::newRow("midnight") << QDateTime(QDate(2026, 12, 25), QTime(0, 0, 0))
                                  << "(25 Dec 2026,00-00-00)";
        QTest::newRow("24-hour clock")
            << QDateTime(QDate(2027, 5, 31), QTime(23, 59, 59)) << "(31 May 2027,23-59-59)";
    }
    void timeStamp() {
        QFETCH(QDateTime, when);
        QFETCH(QString, expected);
        QCOMPARE(MakeSaveTimeStamp(when), expected);
        // The same on a system set to another language.
        const QLocale before;
        QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
        const QString german = MakeSaveTimeStamp(when);
        QLocale::setDefault(before);
        QCOMPARE(german, expected);
    }

    void packageFiles_data() {
        QTest::addColumn<int>("runs");
        QTest::newRow("once") << 1;
        QTest::newRow("twice appends") << 2;
    }
    void packageFiles() {
        QFETCH(int, runs);
        mainIdentity = "/Main Identity_(5 Mar 2026,14-07-09).rge";
        for (int i = 0; i < runs; ++i)
            m_thread.CreateRGEWraper(m_dir.path());
        const QString p = m_dir.path() + mainIdentity;
        QCOMPARE(ReadFile(p + "/Contents/PkgInfo"), QByteArray("rge OPIM").repeated(runs));
        QCOMPARE(ReadFile(p + "/Contents/Info.plist"), kInfoPlist.repeated(runs));
        QCOMPARE(ReadFile(p + "/Archive.xml"), kArchiveXml.repeated(runs));
        QCOMPARE(kInfoPlist.count('\n'), 14);
        QCOMPARE(QDir(p).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
                 QStringList({"Archive.xml", "Contents"}));
    }

    void emptyDestinationMakesNothing() {
        mainIdentity =
            "/pellomar-test-" + QString::number(QCoreApplication::applicationPid()) + ".rge";
        m_thread.CreateRGEWraper(QString());
        QVERIFY(!QFileInfo::exists(mainIdentity));
        QVERIFY(!QFileInfo::exists(QDir::currentPath() + mainIdentity));
    }

    void mapping_data() {
        QTest::addColumn<QString>("store");   // below the temporary folder
        QTest::addColumn<QString>("package"); // below the temporary folder
        QTest::addColumn<QString>("message"); // below the temporary folder
        QTest::addColumn<QString>("expected");
        const QString s = "/Users/u/Library/Mail";
        const QString p = "/out/Main Identity_(5 Mar 2026,14-07-09).rge";
        QTest::newRow("mailbox") << s << p << s + "/V2/Mailboxes/Work.mbox/ID/Data/Messages/7.emlx"
                                 << p + "/Mail/V2/Mailboxes/Work/Work.mbox";
        QTest::newRow("nested mailbox")
            << s << p << s + "/V2/Mailboxes/Work.mbox/Projects.mbox/ID/Data/Messages/8.emlx"
            << p + "/Mail/V2/Mailboxes/Work/Projects/Projects.mbox";
        QTest::newRow("imap") << s << p << s + "/V2/acct/INBOX.imapmbox/Messages/9.emlx"
                              << p + "/Mail/V2/acct/INBOX/INBOX.mbox";
        QTest::newRow("exchange") << s << p << s + "/V2/EWS-b/Inbox.ewsmbox/Messages/9.partial.emlx"
                                  << p + "/Mail/V2/EWS-b/Inbox/Inbox.mbox";
        QTest::newRow("imap wins over a later .mbox")
            << s << p << s + "/V2/acct/INBOX.imapmbox/Sub.mbox/Messages/1.emlx"
            << p + "/Mail/V2/acct/INBOX/INBOX.mbox";
        QTest::newRow("exchange wins over imap")
            << s << p << s + "/V2/x.ewsmbox/y.imapmbox/Messages/1.emlx" << p + "/Mail/V2/x/x.mbox";
        QTest::newRow(".mbox inside a folder name")
            << s << p << s + "/V2/Mailboxes/Old.mbox.backup.mbox/Messages/1.emlx"
            << p + "/Mail/V2/Mailboxes/Old.backup/Old.mbox.backup.mbox";
        QTest::newRow("store is the mailbox")
            << s + "/V2/Mailboxes/Work.mbox" << p
            << s + "/V2/Mailboxes/Work.mbox/ID/Data/Messages/7.emlx" << p + "/Mail/Work/Work.mbox";
        QTest::newRow("store inside the mailbox")
            << s + "/V2/Mailboxes/Work.mbox/ID/Data" << p
            << s + "/V2/Mailboxes/Work.mbox/ID/Data/Messages/7.emlx"
            << p + "/Mail/ID/Data/Work/Work.mbox";
        QTest::newRow("store is the mailbox, package path loses .mbox")
            << s + "/V2/Mailboxes/Work.mbox"
            << "/out.mbox/pkg.rge" << s + "/V2/Mailboxes/Work.mbox/Messages/7.emlx"
            << "/out/pkg.rge/Mail/Work/Work.mbox";
        QTest::newRow("message outside the store lands beside the package")
            << s << p << "/elsewhere/X.mbox/Messages/1.emlx" << p + "X.mbox";
    }
    void mapping() {
        QFETCH(QString, store);
        QFETCH(QString, package);
        QFETCH(QString, message);
        QFETCH(QString, expected);
        const QString root = m_dir.path();
        m_strInputfilepath = root + store;
        const QString path = m_thread.PathExtractor(root + package, root + message);
        QCOMPARE(path, root + expected);
        QVERIFY(QFileInfo(path).isFile());
        QCOMPARE(QFileInfo(path).size(), 0);
    }

    void secondCallKeepsTheFile() {
        const QString root = m_dir.path();
        m_strInputfilepath = root + "/store";
        const QString message = root + "/store/A.mbox/Messages/1.emlx";
        const QString path = m_thread.PathExtractor(root + "/p.rge", message);
        QVERIFY(WriteFile(path, "From - &&&&&@@@####\nkept\n"));
        QCOMPARE(m_thread.PathExtractor(root + "/p.rge", root + "/store/A.mbox/Messages/2.emlx"),
                 path);
        QCOMPARE(ReadFile(path), QByteArray("From - &&&&&@@@####\nkept\n"));
    }

    void finderInfoOnlyOnCreation() {
        const QString root = m_dir.path();
        if (!UserXattrsWork(root))
            QSKIP("this file system does not keep user extended attributes");
        m_strInputfilepath = root + "/store";
        const QString path =
            m_thread.PathExtractor(root + "/p.rge", root + "/store/A.mbox/Messages/1.emlx");
        QCOMPARE(FinderInfo(path), QByteArray("MBOXOPIM") + QByteArray(24, '\0'));
        // An existing file is left as it is.
        QCOMPARE(removexattr(path.toUtf8().constData(), FinderInfoAttributeName()
#ifdef Q_OS_MACOS
                                                            ,
                             0
#endif
                             ),
                 0);
        m_thread.PathExtractor(root + "/p.rge", root + "/store/A.mbox/Messages/2.emlx");
        QCOMPARE(FinderInfo(path), QByteArray());
    }
};

QTEST_GUILESS_MAIN(TestExportPackage)
#include "tst_core_export_package.moc"
