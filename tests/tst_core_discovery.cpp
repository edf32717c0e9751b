// The pure pieces of file discovery: folder path and message number of a
// line of the message file list.
#include "Discovery.h"

#include <QtTest>

namespace {
const QString kMail = QStringLiteral("/Users/anna/Library/Mail");
const QString kStore = QStringLiteral("/data/Backup Store");
} // namespace

class TestDiscovery : public QObject {
    Q_OBJECT
private slots:
    void folderPath_data() {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QString>("store");
        QTest::addColumn<QString>("expected");

        // Under the user's Mail folder: the version folder goes.
        QTest::newRow("mail: nested mailboxes with uuid/Data level")
            << kMail + "/V2/Mailboxes/Work.mbox/Projects.mbox/6F3A/Data/3/Messages/1234.emlx"
            << kMail << "Mailboxes/Work/Projects";
        QTest::newRow("mail: partial message")
            << kMail + "/V2/Mailboxes/Work.mbox/Messages/77.partial.emlx" << kMail
            << "Mailboxes/Work";
        QTest::newRow("mail: V10 version folder")
            << kMail + "/V10/Mailboxes/Inbox.mbox/Messages/1.emlx" << kMail << "Mailboxes/Inbox";
        QTest::newRow("mail: imap account keeps its folders without .mbox")
            << kMail + "/V2/IMAP-anna@mail.example.org/INBOX.imapmbox/Messages/5.emlx" << kMail
            << "IMAP-anna@mail.example.org/INBOX.imapmbox/Messages";
        QTest::newRow("mail: mailbox starting with V loses its level")
            << kMail + "/Vacation.mbox/Sub.mbox/Messages/3.emlx" << kMail << "Sub";
        QTest::newRow("mail: lone V mailbox keeps Messages")
            << kMail + "/Vacation.mbox/Messages/3.emlx" << kMail << "Messages";
        QTest::newRow("mail: no version folder")
            << kMail + "/Mailboxes/Old.mbox/Messages/3.emlx" << kMail << "Mailboxes/Old";
        QTest::newRow("mail: /V with no further slash stays")
            << kMail + "/V2/9.emlx" << kMail << "";
        QTest::newRow("mail: store elsewhere, still under the Mail folder")
            << kMail + "/V2/Mailboxes/A.mbox/Messages/9.emlx" << QStringLiteral("/elsewhere")
            << "Mailboxes/A";
        QTest::newRow("mail: Mail folder found in the middle of the path")
            << "/Volumes/Old Disk" + kMail + "/V3/Mailboxes/A.mbox/Messages/9.emlx"
            << QStringLiteral("/Volumes/Old Disk") << "Mailboxes/A";

        // Elsewhere: the store folder is removed, the version folder kept.
        QTest::newRow("store: version folder kept")
            << kStore + "/V2/Mailboxes/Work.mbox/Projects.mbox/Messages/1.emlx" << kStore
            << "V2/Mailboxes/Work/Projects";
        QTest::newRow("store: Library picked, /Mail/ dropped")
            << "/Users/x/Library/Mail/V2/Mailboxes/A.mbox/Messages/1.emlx"
            << QStringLiteral("/Users/x/Library") << "V2/Mailboxes/A";
        QTest::newRow("store: /V/ folder dropped to its slash")
            << kStore + "/V/Mailboxes/A.mbox/Messages/1.emlx" << kStore << "Mailboxes/A";
        QTest::newRow("store: trailing slash in the store path skips a level")
            << kStore + "/V2/Mailboxes/A.mbox/Messages/1.emlx" << kStore + "/"
            << "Mailboxes/A";
        QTest::newRow("store: no .mbox anywhere")
            << kStore + "/V2/EWS-bob@example.com/Inbox.ewsmbox/Messages/4.emlx" << kStore
            << "V2/EWS-bob@example.com/Inbox.ewsmbox/Messages";
        QTest::newRow("store: .mbox inside a name is removed as well")
            << kStore + "/Archive.mboxes/Old.mbox/Messages/4.emlx" << kStore << "Archivees/Old";
        QTest::newRow("store: message directly in the store has no folder")
            << kStore + "/4.emlx" << kStore << "";
        QTest::newRow("store: every occurrence of the store text goes")
            << "/s/a/s/B.mbox/Messages/4.emlx" << QStringLiteral("/s") << "a/B";
        QTest::newRow("store: name with quote, blank and accents")
            << kStore + "/V2/Mailboxes/Čoko lá'da.mbox/Messages/4.emlx" << kStore
            << "V2/Mailboxes/Čoko lá'da";
        QTest::newRow("store: the match is case-sensitive")
            << "/DATA/Backup Store/V2/A.mbox/Messages/4.emlx" << kStore << "DATA/Backup Store/V2/A";
        QTest::newRow("find error line") << "find: '/x/y': Permission denied" << kStore << "x";
        QTest::newRow("line without slash") << "garbage" << kStore << "";
        QTest::newRow("empty line") << "" << kStore << "";
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
        QTest::newRow("plain") << "/a/Messages/1234.emlx"
                               << "1234" << quint64(1234);
        QTest::newRow("partial") << "/a/Messages/1234.partial.emlx"
                                 << "1234" << quint64(1234);
        QTest::newRow("dot in a folder name") << "/a.mbox/Messages/7.emlx"
                                              << "7" << quint64(7);
        QTest::newRow("not a number") << "/a/Messages/abc.emlx"
                                      << "abc" << quint64(0);
        QTest::newRow("negative") << "/a/Messages/-3.emlx"
                                  << "-3" << quint64(0);
        QTest::newRow("largest 64-bit")
            << "/a/18446744073709551615.emlx"
            << "18446744073709551615" << quint64(18446744073709551615ULL);
        QTest::newRow("too large") << "/a/18446744073709551616.emlx"
                                   << "18446744073709551616" << quint64(0);
        QTest::newRow("hidden file") << "/a/.emlx"
                                     << "" << quint64(0);
        QTest::newRow("no slash") << "12.emlx"
                                  << "12" << quint64(12);
    }
    void messageNumber() {
        QFETCH(QString, line);
        QFETCH(QString, text);
        QFETCH(quint64, value);
        QCOMPARE(MessageNumberText(line), text);
        QCOMPARE(MessageNumberValue(MessageNumberText(line)), value);
    }
};

QTEST_GUILESS_MAIN(TestDiscovery)
#include "tst_core_discovery.moc"
