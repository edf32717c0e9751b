// The mbox writer: line rules, trailer detection, partial messages, and the
// chunked reading, which must give the same bytes as the scanner's reader of
// whole lines.
#include "export/MboxWriter.h"
#include "scanner/MessageFile.h"
#include "tests/TestSupport.h"
#include "tests/WriterOracle.h"

#include <QBuffer>
#include <QRandomGenerator>
#include <QtTest>

#include <algorithm>
#include <limits>

using TestSupport::Emlx;

namespace {

using WriterOracle::kDoctype;
using WriterOracle::kSep;
using WriterOracle::kXml;
using WriterOracle::Reference;

// One row of the copy table; `expected` is what follows the separator, and
// `bytes` the same with the bytes kept (when they differ).
void Row(const QString& name, const QByteArray& file, const QByteArray& expected,
         bool partial = false, const QList<QByteArray>& parts = {},
         const QByteArray& bytes = QByteArray()) {
    QTest::newRow(qPrintable(name))
        << file << partial << parts << expected << (bytes.isNull() ? expected : bytes);
}

// An .emlx file whose trailer's dictionary holds `entries`.
QByteArray WithTrailer(const QByteArray& message, const QByteArray& entries) {
    return QByteArray::number(message.size()) + "\n" + message + kXml + "\n" + kDoctype +
           "\n<plist version=\"1.0\">\n<dict>\n" + entries + "</dict>\n</plist>\n";
}

} // namespace

class TestExportWriter : public QObject {
    Q_OBJECT
private slots:
    void copy_data() {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<bool>("partial");
        QTest::addColumn<QList<QByteArray>>("parts");
        QTest::addColumn<QByteArray>("expected");
        QTest::addColumn<QByteArray>("bytes");
        Row("from escaped once, blank lines kept",
            Emlx("A: b\n\nFrom here\n>From there\nfrom low\nFrom:x\n From y\nFrom\n\n"),
            "A: b\n\n>From here\n>From there\nfrom low\nFrom:x\n From y\nFrom\n\n");
        Row("crlf read as lf", Emlx("A: b\r\n\r\nbody\r\nlone\rcr\r\n"),
            "A: b\n\nbody\nlone\rcr\n");
        Row("utf-8 becomes latin-1, 8-bit latin-1 is not utf-8",
            Emlx("caf\xC3\xA9 \xD0\x96 \xE2\x82\xAC \xF0\x9F\x98\x80\ncaf\xE9\n"),
            "caf\xE9 ? ? ??\ncaf?\n", false, {},
            "caf\xC3\xA9 \xD0\x96 \xE2\x82\xAC \xF0\x9F\x98\x80\ncaf\xE9\n");
        Row("text ends at a nul, a line starting with one is skipped",
            Emlx(QByteArray("ab\0cd\nnext\n\0junk\nx\n", 19)), "abnext\nx\n", false, {},
            QByteArray("ab\0cd\nnext\n\0junk\nx\n", 19));
        Row("byte-order mark dropped before From", Emlx("\357\273\277From a\nb\357\273\277\n"),
            ">From a\nb?\n", false, {}, ">\357\273\277From a\nb\357\273\277\n");
        Row("markers inside the message are dropped",
            Emlx("a\nsee " + kXml + " here\nb\n" + kDoctype + "\nc\nmore text\n"),
            "a\nb\nc\nmore text\n");
        // Positions count the byte count line too, so a marker within that
        // many bytes of the message's end already ends the copy.
        Row("marker near the message end ends it", Emlx("a\n" + kXml + "\nb\n"), "a\n");
        Row("no trailer: copied to the end", "4\nab\n\ncd\n", "ab\n\ncd\n");
        const QByteArray trailer = kXml + "\n" + kDoctype + "\n<plist>\n</plist>\n";
        // A count with blanks around it is read; one that is too large lets
        // both markers be dropped and the rest of the property list copied.
        Row("count with blanks, too large", " 999 \r\nab\n" + trailer, "ab\n<plist>\n</plist>\n");
        Row("count not a number is zero", "x999\nab\n" + trailer, "ab\n");
        Row("marker ending exactly at the count is dropped", "45\nab\n" + kXml + "\ncd\n",
            "ab\ncd\n");
        Row("one past the count ends the copy", "44\nab\n" + kXml + "\ncd\n", "ab\n");
        Row("empty file", "", "");
        // The count line is read whole, however long: a mark before the count
        // is reached is dropped and the copy goes on.
        const QByteArray marked = "ab\n" + kXml + "\ncd\n";
        Row("count longer than a chunk",
            QByteArray(70000, '0') + "9999999" + QByteArray(70000, ' ') + "\n" + marked,
            "ab\ncd\n");
        Row("count after a byte-order mark, white space outside ASCII, a plus",
            "\xEF\xBB\xBF\xC2\xA0\t+99999\xE3\x80\x80\n" + marked, "ab\ncd\n");
        Row("count with a minus", "-99999\n" + marked, "ab\n");
        Row("count beyond 64 bits", "18446744073709551616\n" + marked, "ab\n");

        // Lines far longer than the read buffer: the decisions that depend on
        // a line's start, its end or anything in between stay the same.
        const QByteArray big(3 * 1024 * 1024 + 7, 'x');
        Row("huge: escaped, crlf, no newline at the end", "10\nFrom " + big + "\r\n" + big,
            ">From " + big + "\n" + big);
        Row("huge: marker far in, past the count", "10\na\n" + big + kXml + "\nz\n", "a\n");
        Row("huge: text after a nul is dropped, a marker there too",
            "10\n" + big + QByteArray(1, '\0') + big + kXml + "\nz\n", big + "z\n", false, {},
            big + QByteArray(1, '\0') + big + kXml + "\nz\n");

        // Each detached body replaces its part's X-Apple-Content-Length header.
        const QByteArray head = "Content-Type: multipart/mixed; boundary=b\n\n--b\n"
                                "Content-Type: text/plain\n\nhi\n--b\n"
                                "Content-Type: image/png\n";
        const QByteArray text = head +
                                "X-Apple-Content-Length: 4\n"
                                "Content-Transfer-Encoding: base64\n\n--b\n"
                                "Content-Type: image/gif\nX-Apple-Content-Length: 9\r\n\n--b--\n";
        const QByteArray msg = Emlx(text);
        Row("partial: two headers, two parts", msg,
            head + "\nAAAA\nBBBB\n\n\n--b\nContent-Type: image/gif\n\nR0lG\n\n--b--\n", true,
            {"AAAA\nBBBB\n", "R0lG"});
        Row("partial: two headers, one part", msg,
            head + "\nAAAA\n\n\n--b\nContent-Type: image/gif\n\n--b--\n", true, {"AAAA\n"});
        Row("partial: part bytes kept, crlf read as lf, text ends at a nul", msg,
            head + "\n\xFF\xE9\nabFrom x\n\n\n--b\nContent-Type: image/gif\n\nz\n\n--b--\n", true,
            {QByteArray("\xFF\xE9\r\nab\0cd\nFrom x\n", 17), "z"});
        Row("partial: header block never ends", Emlx("X-Apple-Content-Length: 3\nA: b\n"), "\nP\n",
            true, {"P"});
        Row("plain copy keeps the header", msg, QByteArray(text).replace("\r\n", "\n"));

        // Messages (and detached parts) built from awkward fragments, against
        // the whole-line rules.
        QList<QByteArray> fragments =
            QByteArray("From |from |From|\n|\r\n|\r|\xC3\xA9|\xE2\x82\xAC|\xF0\x9F\x98\x80|"
                       "\xE2\x82|\xC3|\x80|\xEF\xBB\xBF|\xEF\xBB|<?xml|<|text |\t|\xED\xA0\x80|"
                       "X-Apple-Content-Length: 5\n|A: b\n|\n\n")
                .split('|');
        fragments << QByteArray(1, '\0') << kXml << kDoctype;
        QRandomGenerator rng(20261121);
        auto random = [&](int count) {
            QByteArray bytes;
            for (int k = rng.bounded(count); k > 0; --k)
                bytes += rng.bounded(6) == 0
                             ? QByteArray(rng.bounded(1, 300), char('a' + rng.bounded(3)))
                             : fragments[rng.bounded(fragments.size())];
            return bytes;
        };
        for (int i = 0; i < 400; ++i) {
            const QByteArray body = random(40);
            const QByteArray heads[] = {QByteArray::number(body.size()) + "\n", "5\n",
                                        QByteArray::number(rng.bounded(2000)) + "\n", ""};
            const QByteArray tails[] = {Emlx("").mid(2), "", kXml + "\nx\n", ""};
            const int form = rng.bounded(4);
            const QByteArray file = heads[form] + body + tails[form];
            QList<QByteArray> parts;
            for (int p = rng.bounded(4); p > 0; --p)
                parts << random(8);
            Row(QString("random %1").arg(i), file, QByteArray());
            Row(QString("random %1, partial").arg(i), file, QByteArray(), true, parts);
        }
    }
    // The same bytes with every buffer size; rows without `expected` take the
    // oracle's. The scanner reads the same byte count.
    void copy() {
        QFETCH(QByteArray, file);
        QFETCH(bool, partial);
        QFETCH(QList<QByteArray>, parts);
        QFETCH(QByteArray, expected);
        QFETCH(QByteArray, bytes);
        QTemporaryDir dir;
        QStringList paths;
        for (const QByteArray& part : parts) {
            paths << dir.filePath(QString("1.%1.emlxpart").arg(paths.size() + 2));
            QVERIFY(TestSupport::WriteFile(paths.last(), part));
        }
        const QString path = dir.filePath("1.emlx");
        QVERIFY(TestSupport::WriteFile(path, file));
        for (bool keepBytes : {false, true}) {
            quint64 count;
            bool converted;
            const QByteArray reference =
                Reference(path, partial, paths, keepBytes, &count, &converted);
            if (!expected.isNull())
                QCOMPARE(reference, kSep + (keepBytes ? bytes : expected));
            MessageFile scanned;
            QVERIFY(scanned.Open(path));
            QCOMPARE(quint64(scanned.FirstLineCount()),
                     qMin<quint64>(count, std::numeric_limits<qint64>::max()));
            RunOptions options;
            options.keepBytes = keepBytes;
            for (int chunk : {64, 65, 66, 67, 70, 81, 100, 127, 500, MboxWriter::kDefaultChunk}) {
                QBuffer in, out;
                in.setData(file);
                in.open(QIODevice::ReadOnly);
                out.open(QIODevice::WriteOnly);
                const MboxWriter::CopyResult result =
                    MboxWriter::WriteMessage(in, out, partial, paths, options, chunk);
                QCOMPARE(out.data(), reference);
                QCOMPARE(result.converted, converted);
            }
        }
    }

    // Status lines from the trailer's flags close the header block, in place
    // of those the message had.
    void status_data() {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<bool>("partial");
        QTest::addColumn<QByteArray>("expected");
        auto flags = [](const char* n) {
            return QByteArray("\t<key>flags</key>\n\t<integer>") + n + "</integer>\n";
        };
        const QByteArray mail = "From: a\nstatus: O\nX-Status: D\n  more\nTo: b\n\nStatus: body\n";
        const QByteArray kept = "From: a\nTo: b\n";
        QTest::newRow("read, answered, flagged")
            << WithTrailer(mail, flags("21")) << false
            << kept + "Status: RO\nX-Status: AF\n\nStatus: body\n";
        QTest::newRow("unread, deleted; other keys first")
            << WithTrailer(mail, "\t<key>date-sent</key>\n\t<integer>5</integer>\n" + flags("2"))
            << false << kept + "Status: O\nX-Status: D\n\nStatus: body\n";
        QTest::newRow("above 2^63 written negative")
            << WithTrailer("A: b\n\nx\n", flags("-9223372036854775807")) << false
            << QByteArray("A: b\nStatus: RO\n\nx\n");
        QTest::newRow("header block never ends") << WithTrailer("A: b\r\nC: d\n", flags("1"))
                                                 << false << QByteArray("A: b\nC: d\nStatus: RO\n");
        QTest::newRow("no flags: nested ones do not count")
            << WithTrailer(mail, "\t<key>x</key>\n\t<dict>\n" + flags("1") + "\t</dict>\n") << false
            << mail;
        QTest::newRow("no trailer")
            << QByteArray("8\nA: b\n\nx\n") << false << QByteArray("A: b\n\nx\n");
        QTest::newRow("count too large") << QByteArray("99999999999999999999\nA: b\n\nx\n") << false
                                         << QByteArray("A: b\n\nx\n");
        QTest::newRow("whole body detached")
            << WithTrailer("A: b\nX-Apple-Content-Length: 3\nC: d\n\n", flags("16")) << true
            << QByteArray("A: b\nStatus: O\nX-Status: F\n\nP\n\n");
    }
    void status() {
        QFETCH(QByteArray, file);
        QFETCH(bool, partial);
        QFETCH(QByteArray, expected);
        QTemporaryDir dir;
        const QString part = dir.filePath("1.2.emlxpart");
        QVERIFY(TestSupport::WriteFile(part, "P"));
        RunOptions options;
        options.withStatus = true;
        for (bool keepBytes : {false, true}) {
            options.keepBytes = keepBytes;
            for (int chunk : {64, MboxWriter::kDefaultChunk}) {
                QBuffer in, out;
                in.setData(file);
                in.open(QIODevice::ReadOnly);
                out.open(QIODevice::WriteOnly);
                MboxWriter::WriteMessage(in, out, partial, {part}, options, chunk);
                QCOMPARE(out.data(), kSep + expected);
            }
        }
    }
};

QTEST_GUILESS_MAIN(TestExportWriter)
#include "tst_core_export_writer.moc"
