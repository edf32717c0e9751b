// Broken and hostile message files: the analysis must neither crash nor
// hang, and it reports "cannot be opened" only for what is no regular file.
#include "MessageAnalysis.h"
#include "Records.h"
#include "TestSupport.h"

#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>

using TestSupport::Emlx;

namespace {
// A message using every construct the passes look at.
QByteArray RichMessage() {
    return "From: =?utf-8?Q?J=C3=B6rg?=\nTo: a@example.org,\n b@example.org\n"
           "Subject: =?utf-8?B?w6k=?= =?utf-8?Q?x?=\nDate: Tue, 05 Mar 2013 14:07:09 +0000\n"
           "X-Priority: 1\nContent-Type: multipart/mixed; boundary=\"M\"\n\n"
           "--M\nContent-Type: multipart/alternative;\n\tboundary=\"A\"\n\n"
           "--A\nContent-Type: text/plain;\n\tcharset=utf-8\n\nplain\n"
           "--A\nContent-Type: text/html; charset=\"utf-8\"\n\n<p>html</p>\n--A--\n"
           "--M\nContent-Type: image/png;\n\tname=\"=?utf-8?B?w6kucG5n?=\"\n"
           "Content-Disposition: attachment; filename=\"x.png\"\n"
           "X-Apple-Content-Length: 10\nContent-Transfer-Encoding: base64\n\nQUJD\n--M--\n";
}
} // namespace

class RobustnessTest : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;
    int m_count = 0;

    // Analyses bytes written as a partial message; true when it could be read.
    bool Run(const QByteArray& bytes) {
        const QString path = m_dir.filePath(QString::number(++m_count) + ".partial.emlx");
        if (!TestSupport::WriteFile(path, bytes))
            qFatal("cannot write");
        MailItem* item = NewMailItem();
        const bool ok = AnalyseMessageFile(path, item);
        // Every recorded name must be readable.
        for (AttachmentEntry* a = item->pAttachHead; a; a = a->pNext)
            Utf16Text(a->pName, a->ulNameSize);
        FreeMailItem(item);
        QFile::remove(path);
        return ok;
    }

private slots:
    void notRegularFiles() {
        MailItem* item = NewMailItem();
        QVERIFY(!AnalyseMessageFile(m_dir.filePath("missing.emlx"), item));
        QVERIFY(!AnalyseMessageFile(m_dir.path(), item));
        const QString fifo = m_dir.filePath("fifo.emlx");
        QCOMPARE(mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
        QVERIFY(!AnalyseMessageFile(fifo, item)); // must not block
        QVERIFY(item->pFrom == nullptr && item->pAttachHead == nullptr);
        FreeMailItem(item);
    }

    void damagedFiles_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("count line only") << QByteArray("123\n");
        QTest::newRow("nul bytes") << QByteArray(4096, '\0');
        QTest::newRow("nul inside header lines")
            << QByteArray(Emlx(RichMessage())).replace("Content-", QByteArray("\0ontent-", 8));
        QTest::newRow("crlf") << QByteArray(Emlx(RichMessage())).replace("\n", "\r\n");
        QTest::newRow("huge negative count") << "-9223372036854775808\n" + RichMessage();
        QTest::newRow("huge count") << "99999999999999999999\n" + RichMessage();
        QTest::newRow("long date") << Emlx("Date: " + QByteArray(100000, '1') + "\n\n");
        QByteArray noise(1 << 20, '\0');
        QRandomGenerator gen(20130305);
        for (char& c : noise)
            c = char(gen.bounded(256));
        QTest::newRow("random bytes") << noise;
        QByteArray lines = noise;
        for (int i = 0; i < lines.size(); i += 37)
            lines[i] = (i / 37) % 3 ? '\n' : '-';
        QTest::newRow("random lines") << lines;
    }
    void damagedFiles() {
        QFETCH(QByteArray, bytes);
        QVERIFY(Run(bytes));
    }

    void everyTruncation() {
        // The message cut after every byte: headers, delimiters and names
        // all end in the middle somewhere.
        const QByteArray full = Emlx(RichMessage());
        for (int n = 0; n <= full.size(); ++n)
            QVERIFY(Run(full.left(n)));
    }

    void hugeLine_data() {
        QTest::addColumn<QByteArray>("head");
        QTest::addColumn<QByteArray>("fill");
        QTest::newRow("inside a part header")
            << QByteArray("100\nContent-Type: multipart/mixed; boundary=b\nSubject: x\n\n--b\n"
                          "Content-Type: image/png; name=\"")
            << QByteArray("x");
        // Given back after a folded header: its length is counted in
        // characters of non-ASCII text.
        QTest::newRow("after a folded date")
            << QByteArray("10\nDate: x\n y\n") << QByteArray("\xc3\xa9\xff");
        QTest::newRow("as a header value") << QByteArray("10\nFrom: ") << QByteArray("ab");
    }
    void hugeLine() {
        // 50 MB without a line feed: walked as one line, never copied whole.
        QFETCH(QByteArray, head);
        QFETCH(QByteArray, fill);
        const QString path = m_dir.filePath("huge.emlx");
        QFile f(path);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(head);
        QByteArray chunk;
        while (chunk.size() < (1 << 20))
            chunk += fill;
        for (qint64 written = 0; written < 50 * 1024 * 1024; written += chunk.size())
            f.write(chunk);
        f.close();
        MailItem* item = NewMailItem();
        QVERIFY(AnalyseMessageFile(path, item));
        QVERIFY(item->pAttachHead == nullptr);
        FreeMailItem(item);
        QFile::remove(path);
    }
};

QTEST_APPLESS_MAIN(RobustnessTest)
#include "tst_core_robustness.moc"
