// Export and verification of a store that holds what the line copy changes,
// folders whose names carry mailbox suffixes at several levels and files that
// hold no message; then faults planted in a package, which verify must name.

#include "TestSupport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

using namespace TestSupport;

namespace {

QByteArray Plain(const QByteArray& id, const QByteArray& body) {
    return "From: a@example.org\nSubject: " + id + "\nMessage-Id: <" + id +
           "@example.org>\nContent-Type: text/plain; charset=utf-8\n"
           "Content-Transfer-Encoding: 8bit\n\n" +
           body;
}

// Two attachments, "AAAA" and "BBBB".
QByteArray WithAttachments(const QByteArray& id) {
    auto attachment = [](const char* name, const char* base64) {
        return QByteArray("--B\nContent-Type: application/octet-stream; name=") + name +
               "\nContent-Transfer-Encoding: base64\n\n" + base64 + "\n";
    };
    return "From: a@example.org\nSubject: " + id + "\nMessage-Id: <" + id +
           "@example.org>\nContent-Type: multipart/mixed;\n\tboundary=\"B\"\n\n"
           "--B\nContent-Type: text/plain; charset=utf-8\nContent-Transfer-Encoding: 8bit\n\n"
           "Gr\xC3\xBC\xC3\x9F"
           "e\n\xEF\xBB\xBF"
           "a line after a byte-order mark\n-\nnot UTF-8: \xC3(\n\xC3\xA9t\xC3\xA9\n" +
           attachment("a.bin", "QUFBQQ==") + attachment("b.bin", "QkJCQg==") + "--B--\n";
}

QJsonObject Json(const QByteArray& out) {
    return QJsonDocument::fromJson(out).object();
}

// The findings of a verification as "kind file-name" texts, sorted.
QStringList Findings(const QJsonObject& verification) {
    QStringList found;
    for (const QJsonValue& f : verification["findings"].toArray())
        found << f["kind"].toString() + " " + f["message"].toString().section('/', -1);
    found.sort();
    return found;
}

} // namespace

class VerifyTest : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;
    QString m_store;
    QJsonObject m_reports[2]; // of the export of m_store, without and with --keep-bytes

    static QString Package(const QJsonObject& report) { return report["package"].toString(); }

    QString Export(bool keepBytes, QJsonObject* report) {
        const QString dest = m_dir.filePath(keepBytes ? "bytes" : "default");
        QDir().mkpath(dest);
        QStringList args{"export", m_store, dest, "--json"};
        if (keepBytes)
            args << "--keep-bytes";
        const CliOutput r = RunCliTool(args);
        if (r.code != 0)
            qWarning("export: %d %s", r.code, r.err.constData());
        *report = Json(r.out);
        return report->value("package").toString();
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        m_store = m_dir.filePath("store");
        const QString mail = m_store + "/V2/Mailboxes/";
        const QString ews = m_store + "/V2/EWS-bob@example.com/";
        // The trailer begins on the message's last line; in 12.emlx the
        // byte count reaches into it.
        const QByteArray countIntoTrailer =
            Emlx(Plain("12", "the last line\n")).replace("the last line\n", "the last line");
        const struct {
            QString path;
            QByteArray bytes;
        } files[] = {
            {mail + "Inbox.mbox/Messages/1.emlx", Emlx(WithAttachments("1"))},
            {mail + "Inbox.mbox/Messages/2.emlx",
             Emlx(Plain("2", "before\n<?xml version=\"1.0\" encoding=\"UTF-8\"?>\nafter\n"))},
            {mail + "Inbox.mbox/Messages/3.emlx", Emlx(Plain("3", "the last line"))},
            {mail + "Inbox.mbox/Messages/12.emlx", countIntoTrailer},
            {mail + "Inbox.mbox/Messages/4.emlx", Emlx(Plain("4", QByteArray("cut\0here\n", 9)))},
            {mail + "Inbox.mbox/Messages/._3.emlx", QByteArray("\0\x05\x16\x07\0\x02\0\0", 8)},
            {mail + "Inbox.mbox/Messages/9.emlx", QByteArray()},
            {mail + "Lists.imapmbox/Messages/5.emlx", Emlx(Plain("5", "lists\n"))},
            {mail + "Lists.imapmbox/Archive.mbox/Messages/6.emlx", Emlx(Plain("6", "archive\n"))},
            {ews + "Inbox.ewsmbox/Messages/7.emlx", Emlx(Plain("7", "inbox\n"))},
            {ews + "Inbox.ewsmbox/Reports.ewsmbox/Messages/8.emlx", Emlx(Plain("8", "reports\n"))},
            {mail + "Old.mbox.backup.mbox/Messages/10.emlx", Emlx(Plain("10", "old\n"))},
            {mail + "Work.mbox/Messages/11.partial.emlx",
             Emlx(QByteArray(WithAttachments("11"))
                      .replace("QUFBQQ==\n", "")
                      .replace("name=a.bin\n", "name=a.bin\nX-Apple-Content-Length: 8\n"))},
            {mail + "Work.mbox/Messages/11.2.emlxpart", "Q0NDQw==\n"},
            // b.bin kept decoded under Attachments, as today's Mail does.
            {mail + "Work.mbox/Messages/13.partial.emlx",
             Emlx(QByteArray(WithAttachments("13"))
                      .replace("QkJCQg==\n", "")
                      .replace("name=b.bin\n", "name=b.bin\nX-Apple-Content-Length: 8\n"))},
            {mail + "Work.mbox/Attachments/13/3/b.bin", "DDDD"},
        };
        for (const auto& f : files)
            QVERIFY(WriteFile(f.path, f.bytes));
        for (bool keepBytes : {false, true})
            QVERIFY(QFileInfo(Export(keepBytes, &m_reports[keepBytes])).isDir());
    }

    // Each mailbox gets its own mbox file; the default copy's changes are
    // counted, named and expected; "Keep Every Byte" changes nothing.
    void exportAndVerify_data() {
        QTest::addColumn<bool>("keepBytes");
        QTest::addColumn<QStringList>("findings");
        QTest::addColumn<QList<int>>("counts"); // dropped lines, cut lines, converted
        QTest::newRow("default") << false << QStringList{"Latin-1 1.emlx",
                                                         "Latin-1 11.partial.emlx",
                                                         "Latin-1 13.partial.emlx",
                                                         "NUL byte 4.emlx",
                                                         "trailer mark 12.emlx",
                                                         "trailer mark 2.emlx",
                                                         "trailer mark 3.emlx"}
                                 << QList<int>{3, 1, 3};
        QTest::newRow("keep every byte") << true << QStringList() << QList<int>{0, 0, 0};
    }
    void exportAndVerify() {
        QFETCH(bool, keepBytes);
        QFETCH(QStringList, findings);
        QFETCH(QList<int>, counts);
        const QJsonObject& report = m_reports[keepBytes];
        const QString package = Package(report);
        QStringList mboxes;
        for (const QJsonValue& m : report["mboxes"].toArray())
            mboxes << m["path"].toString().mid(package.size() + 6) + " " +
                          QString::number(m["messages"].toInt());
        mboxes.sort();
        QCOMPARE(mboxes, QStringList({"V2/EWS-bob@example.com/Inbox/Inbox.mbox 1",
                                      "V2/EWS-bob@example.com/Inbox/Reports/Reports.mbox 1",
                                      "V2/Mailboxes/Inbox/Inbox.mbox 5",
                                      "V2/Mailboxes/Lists/Archive/Archive.mbox 1",
                                      "V2/Mailboxes/Lists/Lists.mbox 1",
                                      "V2/Mailboxes/Old.mbox.backup/Old.mbox.backup.mbox 1",
                                      "V2/Mailboxes/Work/Work.mbox 2"}));
        QCOMPARE((QList<int>{report["droppedLines"].toInt(), report["cutLines"].toInt(),
                             report["converted"].toInt()}),
                 counts);
        QStringList junk;
        for (const QJsonValue& n : report["notMessages"].toArray())
            junk << n["path"].toString().section('/', -1);
        junk.sort();
        QCOMPARE(junk, QStringList({"._3.emlx", "9.emlx"}));

        const QJsonObject v = report["verification"].toObject();
        QCOMPARE(v["faults"].toInt(), 0);
        QCOMPARE(Findings(v), findings);
        QCOMPARE(v["verified"].toInt() + v["changed"].toInt(), 12);
        // The same check on its own agrees.
        QStringList args{"verify", package, m_store, "--json"};
        if (keepBytes)
            args << "--keep-bytes";
        const CliOutput r = RunCliTool(args);
        QCOMPARE(r.code, 0);
        QCOMPARE(Findings(Json(r.out)), findings);
        if (keepBytes) {
            // A package that kept every byte also passes the default check:
            // its parts are the store's bytes, not the copy's.
            const CliOutput d = RunCliTool({"verify", package, m_store, "--json"});
            QCOMPARE(d.code, 0);
            QCOMPARE(Json(d.out)["verified"].toInt(), 12);
        }
    }

    // Faults planted in a copy of the package.
    void plantedFaults_data() {
        QTest::addColumn<QString>("mbox");
        QTest::addColumn<QByteArray>("from");
        QTest::addColumn<QByteArray>("to");
        QTest::addColumn<QStringList>("faults");
        QTest::newRow("a changed byte in a part")
            << "Work/Work.mbox" << QByteArray("Q0NDQw==") << QByteArray("Q0NDRA==")
            << QStringList{"part differs 11.partial.emlx"};
        QTest::newRow("a changed byte in a part put back from Attachments")
            << "Work/Work.mbox" << QByteArray("RERERA==") << QByteArray("RERERQ==")
            << QStringList{"part differs 13.partial.emlx"};
        QTest::newRow("two parts swapped")
            << "Inbox/Inbox.mbox" << QByteArray("QUFBQQ==@QkJCQg==")
            << QByteArray("QkJCQg==@QUFBQQ==")
            << QStringList{"part differs 1.emlx", "part differs 1.emlx"};
        QTest::newRow("a message removed") << "Lists/Lists.mbox" << QByteArray("lists\n")
                                           << QByteArray("@") << QStringList{"missing 5.emlx"};
        QTest::newRow("a message in another folder's file")
            << "Lists/Archive/Archive.mbox" << QByteArray("archive\n") << QByteArray(">")
            << QStringList{"in another folder 6.emlx"};
        QTest::newRow("an empty message")
            << "Old.mbox.backup/Old.mbox.backup.mbox" << QByteArray("@") << QByteArray()
            << QStringList{"empty message Old.mbox.backup.mbox at byte 20", "missing 10.emlx"};
    }
    void plantedFaults() {
        QFETCH(QString, mbox);
        QFETCH(QByteArray, from);
        QFETCH(QByteArray, to);
        QFETCH(QStringList, faults);
        const QString package = m_dir.filePath(QTest::currentDataTag());
        QVERIFY(CopyFolder(Package(m_reports[false]), package));
        const QString file = package + "/Mail/V2/Mailboxes/" + mbox;
        QByteArray bytes = ReadFile(file);
        if (from.contains('@') && to.contains('@')) {
            // Swap the two texts around "@".
            const QList<QByteArray> a = from.split('@'), b = to.split('@');
            bytes.replace(a[0], "\x01").replace(a[1], b[1]).replace("\x01", b[0]);
        } else if (to == "@" || to == ">") {
            // Take the whole message that holds `from` out; ">" moves it to
            // the parent folder's file.
            const int at = bytes.indexOf(from);
            QVERIFY(at >= 0);
            const int begin = bytes.lastIndexOf(kSep, at);
            const int end = bytes.indexOf(kSep, at);
            const QByteArray message = bytes.mid(begin, (end < 0 ? bytes.size() : end) - begin);
            bytes.remove(begin, message.size());
            const QString parent = package + "/Mail/V2/Mailboxes/Lists/Lists.mbox";
            if (to == ">")
                QVERIFY(WriteFile(parent, ReadFile(parent) + message));
        } else if (from == "@") {
            bytes = kSep + "\n";
        } else {
            QVERIFY(bytes.contains(from));
            bytes.replace(from, to);
        }
        QVERIFY(WriteFile(file, bytes));

        const CliOutput r = RunCliTool({"verify", package, m_store, "--json"});
        QCOMPARE(r.code, 4);
        QStringList found;
        for (const QJsonValue& f : Json(r.out)["findings"].toArray())
            if (f["fault"].toBool())
                found << f["kind"].toString() + " " + f["message"].toString().section('/', -1);
        found.sort();
        QCOMPARE(found, faults);
    }
};

QTEST_GUILESS_MAIN(VerifyTest)
#include "tst_core_verify.moc"
