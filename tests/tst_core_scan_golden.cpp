// The scan command end to end: the sample store's JSON document against the
// reviewed copy in tests/data, the folder tree text, argument errors, and
// the JSON string writer.
#include "Commands.h"
#include "ScanOutput.h"
#include "TestSupport.h"

#include <QDirIterator>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using namespace TestSupport;

namespace {

const char kPlaceholder[] = "@STORE@";

QString Cli() {
    return QStringLiteral(PELLOMAR_BINARY_DIR "/cli/pellomar-cli");
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

} // namespace

class TestScanGolden : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY2(QFileInfo::exists(Cli()), "build pellomar-cli first");
        InstallSortedFind(m_dir.path() + "/bin");
        // The store's path as the command will see it (links resolved).
        QVERIFY(CopyTree(SampleStore(), m_dir.path() + "/Sample Store"));
        m_store = QFileInfo(m_dir.path() + "/Sample Store").canonicalFilePath();
    }

    void jsonMatchesReviewedDocument() {
        const Run r = RunCli({"scan", m_store, "--json"});
        QCOMPARE(r.code, 0);
        QByteArray doc = r.out;
        doc.replace(m_store.toUtf8(), kPlaceholder);
        const QString expectedPath = SourceDir() + "/tests/data/sample-scan.json";
        if (qEnvironmentVariableIntValue("PELLOMAR_UPDATE_GOLDEN") == 1) {
            QVERIFY(WriteFile(expectedPath, doc));
            qWarning("rewrote %s", qPrintable(expectedPath));
        }
        const QByteArray expected = ReadFile(expectedPath);
        QVERIFY2(!expected.isEmpty(), "tests/data/sample-scan.json is missing");
        const QList<QByteArray> got = doc.split('\n');
        const QList<QByteArray> want = expected.split('\n');
        for (int i = 0; i < qMin(got.size(), want.size()); ++i)
            QVERIFY2(
                got.at(i) == want.at(i),
                qPrintable(QStringLiteral("line %1:\n got:  %2\n want: %3")
                               .arg(i + 1)
                               .arg(QString::fromUtf8(got.at(i)), QString::fromUtf8(want.at(i)))));
        QCOMPARE(got.size(), want.size());
    }

    void treeListsFoldersWithCounts() {
        const Run r = RunCli({"scan", m_store + "/"});
        QCOMPARE(r.code, 0);
        QCOMPARE(QString::fromUtf8(r.out), QStringLiteral("Mailbox\n"
                                                          "  V2 (0)\n"
                                                          "    EWS-bob@exchange.example.com (0)\n"
                                                          "      Inbox.ewsmbox (0)\n"
                                                          "        Messages (2)\n"
                                                          "    IMAP-anna@mail.example.org (0)\n"
                                                          "      INBOX.imapmbox (0)\n"
                                                          "        Messages (5)\n"
                                                          "      Sent Messages (1)\n"
                                                          "    Mailboxes (0)\n"
                                                          "      Inbox (3)\n"
                                                          "      Work (2)\n"
                                                          "        Projects (4)\n"
                                                          "17 messages in 12 folders\n"));
    }

    void emptyStore() {
        QDir().mkpath(m_dir.path() + "/empty");
        const Run tree = RunCli({"scan", m_dir.path() + "/empty"});
        QCOMPARE(tree.code, 0);
        QCOMPARE(tree.out, QByteArray("Mailbox\n0 messages in 0 folders\n"));
        const Run json = RunCli({"scan", "--json", m_dir.path() + "/empty"});
        QCOMPARE(json.code, 0);
        QCOMPARE(json.out, QByteArray("{\"folders\": []}\n"));
    }

    void badArguments_data() {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("message");
        const QString file = QStringLiteral(PELLOMAR_SOURCE_DIR "/CMakeLists.txt");
        QTest::newRow("no store") << QStringList{} << 2 << "Usage: pellomar-cli scan";
        QTest::newRow("only the option")
            << QStringList{"--json"} << 2 << "Usage: pellomar-cli scan";
        QTest::newRow("two stores") << QStringList{"/a", "/b"} << 2 << "more than one store";
        QTest::newRow("unknown option")
            << QStringList{"/a", "--xml"} << 2 << "unknown option '--xml'";
        QTest::newRow("missing store")
            << QStringList{"/no/such/store"} << 1 << "'/no/such/store' does not exist";
        QTest::newRow("a file, not a folder") << QStringList{file} << 1 << "is not a folder";
    }
    void badArguments() {
        QFETCH(QStringList, args);
        QFETCH(int, code);
        QFETCH(QString, message);
        const Run r = RunCli(QStringList{"scan"} + args);
        QCOMPARE(r.code, code);
        QVERIFY2(r.err.contains(message.toUtf8()), r.err.constData());
        QCOMPARE(r.err.count('\n'), code == 1 ? 1 : r.err.count('\n'));
        QVERIFY(r.out.isEmpty());
    }

    void jsonString_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("json");
        QTest::newRow("plain") << "abc"
                               << "\"abc\"";
        QTest::newRow("empty") << ""
                               << "\"\"";
        QTest::newRow("quote and backslash") << "a\"b\\c"
                                             << "\"a\\\"b\\\\c\"";
        QTest::newRow("line ends and tab") << "a\r\n\tb"
                                           << "\"a\\r\\n\\tb\"";
        QTest::newRow("other control characters")
            << QString::fromLatin1("\x01\x08\x0c\x1f", 4) << "\"\\u0001\\b\\f\\u001f\"";
        QTest::newRow("NUL") << QString(QChar(0)) << "\"\\u0000\"";
        QTest::newRow("slash and DEL stay") << "/a\x7f"
                                            << "\"/a\x7f\"";
        QTest::newRow("non-ASCII stays") << "Grüße 日本"
                                         << "\"Grüße 日本\"";
        QTest::newRow("surrogate pair stays")
            << QString::fromUcs4(U"\U0001F600") << "\"" + QString::fromUcs4(U"\U0001F600") + "\"";
        QTest::newRow("lone high surrogate") << QString(QChar(0xD83D)) + "x"
                                             << "\"\\ud83dx\"";
        QTest::newRow("lone low surrogate") << "x" + QString(QChar(0xDE00)) << "\"x\\ude00\"";
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
    QString m_store;
};

QTEST_GUILESS_MAIN(TestScanGolden)
#include "tst_core_scan_golden.moc"
