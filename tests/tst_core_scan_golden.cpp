// The scan command end to end: the sample store's JSON document against the
// reviewed copy in tests/data, the folder tree text, argument errors, and
// the JSON string writer.
#include "cli/ScanOutput.h"
#include "tests/TestSupport.h"

#include <QTemporaryDir>
#include <QtTest>

using namespace TestSupport;

class TestScanGolden : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY2(QFileInfo::exists(CliToolPath()), "build pellomar-cli first");
        InstallSortedFind(m_dir.path() + "/bin");
        // The store's path as the command will see it (links resolved).
        QVERIFY(CopyFolder(SampleStore(), m_dir.path() + "/Sample Store"));
        m_store = QFileInfo(m_dir.path() + "/Sample Store").canonicalFilePath();
        QVERIFY(CopyFolder(SourceDir() + "/samples/modern", m_dir.path() + "/Modern Store"));
        m_modern = QFileInfo(m_dir.path() + "/Modern Store").canonicalFilePath();
        QVERIFY(QDir().mkpath(m_dir.path() + "/empty"));
    }

    void jsonMatchesReviewedDocument_data() {
        QTest::addColumn<QString>("store");
        QTest::addColumn<QString>("golden");
        QTest::newRow("store") << m_store << "sample-scan.json";
        QTest::newRow("modern") << m_modern << "modern-scan.json";
    }
    void jsonMatchesReviewedDocument() {
        QFETCH(QString, store);
        QFETCH(QString, golden);
        const CliOutput r = RunCliTool({"scan", store, "--json"});
        QCOMPARE(r.code, 0);
        const QByteArray doc = QByteArray(r.out).replace(store.toUtf8(), "@STORE@");
        const QString expectedPath = SourceDir() + "/tests/data/" + golden;
        if (qEnvironmentVariableIntValue("PELLOMAR_UPDATE_GOLDEN") == 1) {
            QVERIFY(WriteFile(expectedPath, doc));
            qWarning("rewrote %s", qPrintable(expectedPath));
        }
        const QByteArray expected = ReadFile(expectedPath);
        QVERIFY2(!expected.isEmpty(), qPrintable(expectedPath + " is missing"));
        const QList<QByteArray> got = doc.split('\n'), want = expected.split('\n');
        for (int i = 0; i < qMin(got.size(), want.size()); ++i)
            QVERIFY2(got.at(i) == want.at(i),
                     qPrintable(QStringLiteral("line %1:\n got:  %2\n want: %3")
                                    .arg(i + 1)
                                    .arg(QString(got.at(i)), QString(want.at(i)))));
        QCOMPARE(got.size(), want.size());
    }

    // "@S" is the sample store, "@E" an empty folder. Expected stdout is
    // compared whole; stderr must hold the message (one line for code 1).
    void commands_data() {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("code");
        QTest::addColumn<QByteArray>("out");
        QTest::addColumn<QByteArray>("err");
        QTest::newRow("tree with counts, store with a trailing slash")
            << QStringList{"@S/"} << 0
            << QByteArray("Mailbox\n  V2 (0)\n    EWS-bob@exchange.example.com (0)\n"
                          "      Inbox.ewsmbox (0)\n        Messages (2)\n"
                          "    IMAP-anna@mail.example.org (0)\n      INBOX.imapmbox (0)\n"
                          "        Messages (5)\n      Sent Messages (1)\n    Mailboxes (0)\n"
                          "      Inbox (3)\n      Work (2)\n        Projects (4)\n"
                          "17 messages in 12 folders\n")
            << QByteArray();
        QTest::newRow("empty store tree")
            << QStringList{"@E"} << 0 << QByteArray("Mailbox\n0 messages in 0 folders\n")
            << QByteArray();
        QTest::newRow("empty store json, option first")
            << QStringList{"--json", "@E"} << 0 << QByteArray("{\"folders\": []}\n")
            << QByteArray();
        QTest::newRow("no store") << QStringList{} << 2 << QByteArray()
                                  << QByteArray("Usage: pellomar-cli scan");
        QTest::newRow("only the option")
            << QStringList{"--json"} << 2 << QByteArray() << QByteArray("Usage: pellomar-cli scan");
        QTest::newRow("two stores")
            << QStringList{"/a", "/b"} << 2 << QByteArray() << QByteArray("more than one store");
        QTest::newRow("unknown option") << QStringList{"/a", "--xml"} << 2 << QByteArray()
                                        << QByteArray("unknown option '--xml'");
        QTest::newRow("missing store") << QStringList{"/no/such/store"} << 1 << QByteArray()
                                       << QByteArray("'/no/such/store' does not exist");
        QTest::newRow("a file, not a folder") << QStringList{PELLOMAR_SOURCE_DIR "/CMakeLists.txt"}
                                              << 1 << QByteArray() << QByteArray("is not a folder");
    }
    void commands() {
        QFETCH(QStringList, args);
        QFETCH(int, code);
        QFETCH(QByteArray, out);
        QFETCH(QByteArray, err);
        args.replaceInStrings("@S", m_store).replaceInStrings("@E", m_dir.path() + "/empty");
        const CliOutput r = RunCliTool(QStringList{"scan"} + args);
        QCOMPARE(r.code, code);
        QCOMPARE(r.out, out);
        QVERIFY2(r.err.contains(err), r.err.constData());
        if (code == 1)
            QCOMPARE(r.err.count('\n'), 1);
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
        QTest::newRow("lone low surrogate at the end")
            << "x" + QString(QChar(0xDE00)) << "\"x\\ude00\"";
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

private:
    QTemporaryDir m_dir;
    QString m_store, m_modern;
};

QTEST_GUILESS_MAIN(TestScanGolden)
#include "tst_core_scan_golden.moc"
