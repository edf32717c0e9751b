// Account names: read from the system's account database or Mail's own
// account list, shown for the account folders of a scan and used for them in
// the package; the local mailboxes shown as "On My Mac".
#include "accounts/AccountNames.h"
#include "export/ExportJob.h"
#include "scanner/EmlxFinder.h"
#include "scanner/RunProgress.h"
#include "scanner/Store.h"
#include "tests/TestSupport.h"

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QtTest>

#include <future>

using namespace TestSupport;

namespace {

// Writes Accounts4.sqlite with a ZACCOUNT row for each "pk,identifier,
// description,username,parent" (an empty field is NULL).
bool WriteAccounts(const QString& path, const QStringList& rows) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    bool ok = true;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "write");
        db.setDatabaseName(path);
        QSqlQuery q(db);
        ok = db.open() && q.exec("CREATE TABLE ZACCOUNT (Z_PK INTEGER PRIMARY KEY, ZIDENTIFIER "
                                 "VARCHAR, ZACCOUNTDESCRIPTION VARCHAR, ZUSERNAME VARCHAR, "
                                 "ZPARENTACCOUNT INTEGER)");
        for (const QString& row : rows) {
            q.prepare("INSERT INTO ZACCOUNT VALUES (?, ?, ?, ?, ?)");
            for (const QString& field : row.split(','))
                q.addBindValue(field.isEmpty() ? QVariant() : QVariant(field));
            ok = ok && q.exec();
        }
    }
    QSqlDatabase::removeDatabase("write");
    return ok;
}

QByteArray Plist(const QByteArray& accounts) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>"
           "<key>MailAccounts</key><array>" +
           accounts + "</array></dict></plist>\n";
}

} // namespace

class TestAccounts : public QObject {
    Q_OBJECT
private slots:
    // In a Library folder: Accounts/Accounts4.sqlite (`accounts`; "junk": a
    // file that is no database), Mail/V10/MailData/Accounts.plist (`plist`)
    // and a folder Mail/V10/<name> for each of `folders`; the names read for
    // the store `store`, and the start of the warning.
    void names_data() {
        QTest::addColumn<QString>("store");
        QTest::addColumn<QStringList>("accounts");
        QTest::addColumn<QByteArray>("plist");
        QTest::addColumn<QStringList>("folders");
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<QString>("warning");
        const QStringList ab{"A", "B"};
        QTest::newRow("own description, store is the Mail folder")
            << "Mail" << QStringList{"1,A,Anna (iCloud),anna@example.org,"} << QByteArray() << ab
            << QStringList{"A=Anna (iCloud)"} << "";
        QTest::newRow("the parent's description, store is a version folder")
            << "Mail/V10" << QStringList{"1,P,Work,,", "2,A,,w@example.com,1"} << QByteArray() << ab
            << QStringList{"A=Work"} << "";
        QTest::newRow("only a user name, store holds the Accounts folder")
            << "" << QStringList{"1,A,,anna@example.org,"} << QByteArray() << ab
            << QStringList{"A=anna@example.org"} << "";
        QTest::newRow("no name at all keeps the folder's own")
            << "Mail" << QStringList{"1,A,, ,"} << QByteArray() << ab << QStringList() << "";
        QTest::newRow("the same name: the address added, then the identifier")
            << "Mail"
            << QStringList{"1,A,Work,a@example.org,", "2,B,Work,b@example.org,",
                           "3,C,home,h@example.org,", "4,D,Home,h@example.org,"}
            << QByteArray() << QStringList{"A", "B", "C", "D"}
            << QStringList{"A=Work (a@example.org)", "B=Work (b@example.org)",
                           "C=home (h@example.org) (C)", "D=Home (h@example.org) (D)"}
            << "";
        // Calendar, contacts ... of one parent share its name; only the
        // accounts with a folder count.
        QTest::newRow("accounts without a folder are left out")
            << "Mail" << QStringList{"1,P,iCloud,a@example.org,", "2,A,,,1", "3,C,,,1"}
            << QByteArray() << ab << QStringList{"A=iCloud"} << "";
        const QByteArray plist =
            Plist("<dict><key>AccountName</key><string>Old IMAP</string><key>uniqueId</key>"
                  "<string>A</string></dict>"
                  "<dict><key>Username</key><string>b@example.org</string><key>AccountPath</key>"
                  "<string>~/Library/Mail/V10/B</string><key>Flag</key><true/></dict>"
                  "<dict><key>AccountName</key><string>On My Mac</string><key>AccountPath</key>"
                  "<string>~/Library/Mail/V10/Mailboxes</string></dict>");
        QTest::newRow("Mail's own list")
            << "Mail" << QStringList() << plist << QStringList{"A", "B", "Mailboxes"}
            << QStringList{"A=Old IMAP", "B=b@example.org"} << "";
        QTest::newRow("a database that cannot be read: Mail's own list")
            << "Mail" << QStringList{"junk"} << plist << ab
            << QStringList{"A=Old IMAP", "B=b@example.org"}
            << "cannot read the account names in '@LIBRARY@/Accounts/Accounts4.sqlite': ";
        QTest::newRow("a binary list is passed over")
            << "Mail" << QStringList() << QByteArray("bplist00\xd1\x01\x02") << ab << QStringList()
            << "cannot read the account names in '@LIBRARY@/Mail/V10/MailData/Accounts.plist': "
               "a binary property list";
        QTest::newRow("neither: nothing, no warning")
            << "Mail" << QStringList() << QByteArray() << ab << QStringList() << "";
    }
    void names() {
        QFETCH(QString, store);
        QFETCH(QStringList, accounts);
        QFETCH(QByteArray, plist);
        QFETCH(QStringList, folders);
        QFETCH(QStringList, names);
        QFETCH(QString, warning);
        QTemporaryDir dir;
        const QString library = dir.path() + "/Library";
        const QString database = library + "/Accounts/Accounts4.sqlite";
        if (accounts == QStringList{"junk"})
            QVERIFY(WriteFile(database, "not a database"));
        else if (!accounts.isEmpty())
            QVERIFY(WriteAccounts(database, accounts));
        if (!plist.isEmpty())
            QVERIFY(WriteFile(library + "/Mail/V10/MailData/Accounts.plist", plist));
        for (const QString& f : folders)
            QVERIFY(QDir().mkpath(library + "/Mail/V10/" + f));
        QString said = "-";
        QStringList got;
        const auto read = ReadAccountNames(library + "/" + store, &said);
        for (auto it = read.cbegin(); it != read.cend(); ++it)
            got << it.key() + "=" + it->name;
        got.sort();
        QCOMPARE(got, names);
        QVERIFY2(warning.isEmpty() ? said.isEmpty()
                                   : said.startsWith(warning.replace("@LIBRARY@", library)),
                 qPrintable(said));
    }

    // Two threads read the sample's names at once, each through its own
    // connection.
    void twoThreadsAtOnce() {
        auto read = [] {
            QString warning;
            return AccountDisplayNames(ReadAccountNames(SourceDir() + "/samples/modern", &warning));
        };
        const QHash<QString, QString> sample{
            {"3B9F2E61-7C4A-4D85-A0E2-5F1B8C6D9A47", "Jonas (example.net)"},
            {"C41D8E07-92B5-4F3A-8E6C-0A7B2D9F1E53", "Work"}};
        for (int round = 0; round < 5; ++round) {
            auto a = std::async(std::launch::async, read), b = std::async(std::launch::async, read);
            QCOMPARE(a.get(), sample);
            QCOMPARE(b.get(), sample);
        }
    }

    // A scan of a store with a message in each of `mailboxes` (Mail's
    // account names `accounts`, "folder=name"): what the tree shows for each
    // folder ("path=display name"), and the mbox files of the export, which
    // its verification finds in place. Lists are joined by "|".
    void scanAndPackage_data() {
        QTest::addColumn<QString>("mailboxes");
        QTest::addColumn<QString>("accounts");
        QTest::addColumn<QString>("tree");
        QTest::addColumn<QString>("mboxes");
        QTest::newRow("accounts by name; On My Mac in the tree only")
            << "V10/U1/INBOX.mbox|V10/U2/INBOX.mbox|V10/Mailboxes/A.mbox"
            << "U1=Anna (iCloud)|U2=Work/Home"
            << "V10=V10|V10/Mailboxes=On My Mac|V10/Mailboxes/A=A|V10/U1=Anna (iCloud)|"
               "V10/U1/INBOX=INBOX|V10/U2=Work/Home|V10/U2/INBOX=INBOX"
            << "V10/Anna (iCloud)/INBOX/INBOX.mbox|V10/Mailboxes/A/A.mbox|"
               "V10/Work-Home/INBOX/INBOX.mbox";
        QTest::newRow("a name taken beside the account gets a number")
            << "V10/U1/INBOX.mbox|V10/U2/INBOX.mbox|V10/Mailboxes/INBOX.mbox"
            << "U1=Mailboxes|U2=mailboxes"
            << "V10=V10|V10/Mailboxes=On My Mac|V10/Mailboxes/INBOX=INBOX|V10/U1=Mailboxes|"
               "V10/U1/INBOX=INBOX|V10/U2=mailboxes|V10/U2/INBOX=INBOX"
            << "V10/Mailboxes (2)/INBOX/INBOX.mbox|V10/Mailboxes/INBOX/INBOX.mbox|"
               "V10/mailboxes (3)/INBOX/INBOX.mbox";
        QTest::newRow("Mailboxes elsewhere or as a mailbox keeps its name")
            << "Mailboxes/A.mbox|Mailboxes.mbox|V10/U9/Mailboxes/B.mbox|X/Mailboxes/C.mbox"
            << "U1=Anna"
            << "Mailboxes=Mailboxes|Mailboxes=On My Mac|Mailboxes/A=A|V10=V10|V10/U9=U9|"
               "V10/U9/Mailboxes=Mailboxes|V10/U9/Mailboxes/B=B|X=X|X/Mailboxes=Mailboxes|"
               "X/Mailboxes/C=C"
            << "Mailboxes/A/A.mbox|Mailboxes/Mailboxes.mbox|V10/U9/Mailboxes/B/B.mbox|"
               "X/Mailboxes/C/C.mbox";
    }
    void scanAndPackage() {
        QFETCH(QString, mailboxes);
        QFETCH(QString, accounts);
        QFETCH(QString, tree);
        QFETCH(QString, mboxes);
        QTemporaryDir dir;
        const QString store = dir.path() + "/store";
        const QStringList boxes = mailboxes.split('|');
        for (int i = 0; i < boxes.size(); ++i)
            QVERIFY(WriteFile(store + "/" + boxes[i] + "/ID/Data/Messages/" +
                                  QString::number(i + 1) + ".emlx",
                              Emlx("Subject: " + QByteArray::number(i) + "\n\nBody\n")));
        ScanOptions options;
        for (const QString& a : accounts.split('|'))
            options.accountNames.insert(a.section('=', 0, 0), a.section('=', 1));
        RunProgress quiet;
        const std::atomic<bool> stop{false};
        Store scanned = EMLXFinder(store, options, quiet, stop);
        QStringList shown;
        for (const FldrAtrib& f : scanned.Folders())
            if (f.ullId != llRootId)
                shown << f.path + "=" + f.displayName;
        QCOMPARE(shown.join('|'), tree);

        scanned.MarkDirToRootCheckedOrUnchecked(kTicked);
        ExportRun run(scanned, ExportJob::Ticked(scanned, dir.path(), QDateTime::currentDateTime(),
                                                 RunOptions()));
        run.Run(quiet, stop);
        QCOMPARE(run.result.done, quint64(boxes.size()));
        QVERIFY(run.verified && run.verification.Faultless());
        QStringList made;
        const QString mail = run.Job().Package() + "/Mail/";
        for (QDirIterator it(mail, {"*.mbox"}, QDir::Files, QDirIterator::Subdirectories);
             it.hasNext();)
            made << it.next().mid(mail.size());
        made.sort();
        QCOMPARE(made.join('|'), mboxes);
    }
};

QTEST_GUILESS_MAIN(TestAccounts)
#include "tst_core_accounts.moc"
