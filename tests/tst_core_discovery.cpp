// The pure pieces of file discovery: folder path and message number of a
// line of the message file list.
#include "scanner/Discovery.h"

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
};

QTEST_GUILESS_MAIN(TestDiscovery)
#include "tst_core_discovery.moc"
