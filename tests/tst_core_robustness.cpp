// Broken and hostile message files: the analysis must neither crash nor
// hang, and it reports "cannot be opened" only for what is no regular file.
#include "scanner/MessageAnalysis.h"
#include "scanner/Records.h"
#include "tests/TestSupport.h"

#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>

using TestSupport::Emlx;
using TestSupport::TempFile;

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

    // Analyses a file written as a partial message; true when it could be read.
    static bool Run(const QString& path) {
        MailItem* item = NewMailItem();
        const bool ok = AnalyseMessageFile(path, item);
        // Every recorded name must be readable.
        for (AttachmentEntry* a = item->pAttachHead; a; a = a->pNext)
            Utf16Text(a->pName, a->ulNameSize);
        FreeMailItem(item);
        QFile::remove(path);
        return ok;
    }
    static bool Run(const QByteArray& bytes) { return Run(TempFile(bytes, "x.partial.emlx")); }

private slots:
    void notRegularFiles() {
        QTemporaryDir dir;
        MailItem* item = NewMailItem();
        QVERIFY(!AnalyseMessageFile(dir.filePath("missing.emlx"), item));
        QVERIFY(!AnalyseMessageFile(dir.path(), item));
        const QString fifo = dir.filePath("fifo.emlx");
        QCOMPARE(mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
        QVERIFY(!AnalyseMessageFile(fifo, item)); // must not block
        QVERIFY(item->pFrom == nullptr && item->pAttachHead == nullptr);
        FreeMailItem(item);
    }

    // The file is the head, then the fill repeated to 50 MB when given: one
    // line walked as a whole, never copied whole.
    void damagedFiles_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QByteArray>("fill");
        auto row = [](const char* name, const QByteArray& bytes, const QByteArray& fill = {}) {
            QTest::newRow(name) << bytes << fill;
        };
        row("nul bytes", QByteArray(4096, '\0'));
        row("nul inside header lines",
            QByteArray(Emlx(RichMessage())).replace("Content-", QByteArray("\0ontent-", 8)));
        row("crlf", QByteArray(Emlx(RichMessage())).replace("\n", "\r\n"));
        row("huge negative count", "-9223372036854775808\n" + RichMessage());
        row("huge count", "99999999999999999999\n" + RichMessage());
        row("long date", Emlx("Date: " + QByteArray(100000, '1') + "\n\n"));
        QByteArray noise(1 << 20, '\0');
        QRandomGenerator gen(20130305);
        for (char& c : noise)
            c = char(gen.bounded(256));
        row("random bytes", noise);
        for (int i = 0; i < noise.size(); i += 37)
            noise[i] = (i / 37) % 3 ? '\n' : '-';
        row("random lines", noise);
        row("huge line inside a part header",
            "100\nContent-Type: multipart/mixed; boundary=b\nSubject: x\n\n--b\n"
            "Content-Type: image/png; name=\"",
            "x");
        // Given back after a folded header: its length is counted in
        // characters of non-ASCII text.
        row("huge line after a folded date", "10\nDate: x\n y\n", "\xc3\xa9\xff");
        row("huge line as a header value", "10\nFrom: ", "ab");
    }
    void damagedFiles() {
        QFETCH(QByteArray, bytes);
        QFETCH(QByteArray, fill);
        const QString path = TempFile(bytes, "x.partial.emlx");
        QFile f(path);
        QVERIFY(f.open(QIODevice::Append));
        QByteArray chunk;
        while (!fill.isEmpty() && chunk.size() < (1 << 20))
            chunk += fill;
        for (qint64 written = 0; !fill.isEmpty() && written < 50 << 20; written += chunk.size())
            QCOMPARE(f.write(chunk), qint64(chunk.size()));
        f.close();
        QVERIFY(Run(path));
    }

    void everyTruncation() {
        // The message cut after every byte: headers, delimiters and names
        // all end in the middle somewhere.
        const QByteArray full = Emlx(RichMessage());
        for (int n = 0; n <= full.size(); ++n)
            QVERIFY(Run(full.left(n)));
    }
};

QTEST_APPLESS_MAIN(RobustnessTest)
#include "tst_core_robustness.moc"
