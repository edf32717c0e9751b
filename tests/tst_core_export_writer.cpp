// The mbox writer: line rules, trailer detection, partial messages, and the
// chunked reading, which must give the same bytes as the scanner's reader of
// whole lines. And the parts Mail kept apart from a partial message: the
// walk that numbers them by IMAP section, the lookup of their decoded files,
// the encoders and the writer that puts them back.
#include "export/MboxWriteQueue.h"
#include "export/MboxWriter.h"
#include "export/PartEncoding.h"
#include "scanner/DetachedParts.h"
#include "scanner/MessageFile.h"
#include "tests/TestSupport.h"
#include "tests/WriterOracle.h"

#include <QBuffer>
#include <QRandomGenerator>
#include <QtTest>

#include <algorithm>
#include <limits>
#include <memory>
#include <thread>

using namespace TestSupport;

namespace {

using WriterOracle::kDoctype;
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

// Bytes that can only be read through calls, as from a file: the writer
// works on a QBuffer's bytes in place, and on these through its own buffer.
class Streamed : public QIODevice {
public:
    explicit Streamed(const QByteArray& bytes) : m_bytes(bytes) { open(ReadOnly); }
    qint64 size() const override { return m_bytes.size(); }

protected:
    qint64 readData(char* data, qint64 max) override {
        const qint64 n = qBound<qint64>(0, m_bytes.size() - pos(), max);
        memcpy(data, m_bytes.constData() + pos(), size_t(n));
        return n;
    }
    qint64 writeData(const char*, qint64) override { return -1; }

private:
    QByteArray m_bytes;
};

// What the writer makes of `file`: from memory at the default chunk size,
// otherwise read `chunk` bytes at a time.
QByteArray Write(const QByteArray& file, bool partial, const QStringList& parts,
                 const RunOptions& options, int chunk, MboxWriter::CopyResult* result = nullptr,
                 RemovedParts* removed = nullptr) {
    QBuffer inMemory, out;
    inMemory.setData(file);
    inMemory.open(QIODevice::ReadOnly);
    Streamed streamed(file);
    QIODevice& in = chunk == MboxWriter::kDefaultChunk ? static_cast<QIODevice&>(inMemory)
                                                       : static_cast<QIODevice&>(streamed);
    out.open(QIODevice::WriteOnly);
    const MboxWriter::CopyResult r =
        MboxWriter::WriteMessage(in, out, partial, parts, options, chunk, removed);
    if (result)
        *result = r;
    return out.data();
}

// A part of boundary `b` with the given headers; removed parts end their
// headers with the length line and have an empty body.
QByteArray Part(const QByteArray& b, const QByteArray& headers, const QByteArray& body = "") {
    return "--" + b + "\n" + headers + (body.isEmpty() ? "X-Apple-Content-Length: 9\n\n" : "\n") +
           body;
}
QByteArray Mixed(const QByteArray& b, const QByteArray& parts) {
    return "Content-Type: multipart/mixed;\n\tboundary=\"" + b + "\"\n\n" + parts + "--" + b +
           "--\n";
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
        Row("utf-8 becomes latin-1, 8-bit latin-1 is not utf-8",
            Emlx("caf\xC3\xA9 \xD0\x96 \xE2\x82\xAC \xF0\x9F\x98\x80\ncaf\xE9\n"),
            "caf\xE9 ? ? ??\ncaf?\n", false, {},
            "caf\xC3\xA9 \xD0\x96 \xE2\x82\xAC \xF0\x9F\x98\x80\ncaf\xE9\n");
        Row("text ends at a nul, a line starting with one is skipped",
            Emlx(QByteArray("ab\0cd\nnext\n\0junk\nx\n", 19)), "abnext\nx\n", false, {},
            QByteArray("ab\0cd\nnext\n\0junk\nx\n", 19));
        Row("byte-order mark dropped before From", Emlx("\357\273\277From a\nb\357\273\277\n"),
            ">From a\nb?\n", false, {}, "\357\273\277From a\nb\357\273\277\n");
        Row("markers inside the message are dropped",
            Emlx("a\nsee " + kXml + " here\nb\n" + kDoctype + "\nc\nmore text\n"),
            "a\nb\nc\nmore text\n", false, {},
            "a\nsee " + kXml + " here\nb\n" + kDoctype + "\nc\nmore text\n");
        // Positions count the byte count line too, so a marker within that
        // many bytes of the message's end already ends the copy.
        Row("marker near the message end ends it", Emlx("a\n" + kXml + "\nb\n"), "a\n", false, {},
            "a\n" + kXml + "\nb\n");
        const QByteArray trailer = kXml + "\n" + kDoctype + "\n<plist>\n</plist>\n";
        // A count with blanks around it is read; one that is too large lets
        // both markers be dropped and the rest of the property list copied.
        Row("count with blanks, too large", " 999 \r\nab\n" + trailer, "ab\n<plist>\n</plist>\n",
            false, {}, "ab\n" + trailer);
        Row("count not a number is zero", "x999\nab\n" + trailer, "ab\n");
        // Keeping every byte, the count alone says where the message ends.
        const QByteArray marked = "ab\n" + kXml + "\ncd\n";
        Row("marker ending exactly at the count is dropped", "45\n" + marked, "ab\ncd\n", false, {},
            marked);
        Row("one past the count ends the copy", "44\n" + marked, "ab\n", false, {}, marked);
        // The count line is read whole, however long: a mark before the count
        // is reached is dropped and the copy goes on.
        Row("count longer than a chunk",
            QByteArray(70000, '0') + "9999999" + QByteArray(70000, ' ') + "\n" + marked, "ab\ncd\n",
            false, {}, marked);
        Row("count after a byte-order mark, white space outside ASCII, a plus",
            "\xEF\xBB\xBF\xC2\xA0\t+99999\xE3\x80\x80\n" + marked, "ab\ncd\n", false, {}, marked);
        Row("count with a minus", "-99999\n" + marked, "ab\n");
        Row("count beyond 64 bits", "18446744073709551616\n" + marked, "ab\n");

        // Lines far longer than the read buffer: the decisions that depend on
        // a line's start, its end or anything in between stay the same.
        const QByteArray big(3 * 1024 * 1024 + 7, 'x');
        Row("huge: escaped, crlf, no newline at the end", "10\nFrom " + big + "\r\n" + big,
            ">From " + big + "\n" + big, false, {}, ">From xxxxx\n");
        Row("huge: marker far in, past the count", "10\na\n" + big + kXml + "\nz\n", "a\n", false,
            {}, "a\nxxxxxxxx\n");
        Row("huge: text after a nul is dropped, a marker there too",
            "10\n" + big + QByteArray(1, '\0') + big + kXml + "\nz\n", big + "z\n", false, {},
            big.left(10) + "\n");

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
        Row("partial: part bytes kept, crlf read as lf, text ends at a nul, From escaped", msg,
            head + "\n\xFF\xE9\nab>From x\n\n\n--b\nContent-Type: image/gif\n\nz\n\n--b--\n", true,
            {QByteArray("\xFF\xE9\r\nab\0cd\nFrom x\n", 17), "z"});
        Row("partial: header block never ends", Emlx("X-Apple-Content-Length: 3\nA: b\n"), "\nP\n",
            true, {"P"});
        Row("plain copy keeps the header", msg, QByteArray(text).replace("\r\n", "\n"), false, {},
            text);

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
            QVERIFY(WriteFile(paths.last(), part));
        }
        const QString path = dir.filePath("1.emlx");
        QVERIFY(WriteFile(path, file));
        for (bool keepBytes : {false, true}) {
            // The oracle keeps the bytes of whole messages only; detached
            // parts kept so are the write-back test's.
            if (keepBytes && partial)
                continue;
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
                MboxWriter::CopyResult result;
                QCOMPARE(Write(file, partial, paths, options, chunk, &result), reference);
                QCOMPARE(result.converted, converted);
            }
        }
    }

    // Status lines from the trailer's flags close the header block, in place
    // of those the message had.
    // `bytes`: what keeping every byte gives, when it differs.
    void status_data() {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<bool>("partial");
        QTest::addColumn<QByteArray>("expected");
        QTest::addColumn<QByteArray>("bytes");
        auto flags = [](const char* n) {
            return QByteArray("\t<key>flags</key>\n\t<integer>") + n + "</integer>\n";
        };
        const QByteArray mail = "From: a\nstatus: O\nX-Status: D\n  more\nTo: b\n\nStatus: body\n";
        const QByteArray kept = "From: a\nTo: b\n";
        QTest::newRow("read, answered, flagged")
            << WithTrailer(mail, flags("21")) << false
            << kept + "Status: RO\nX-Status: AF\n\nStatus: body\n"
            << QByteArray();
        QTest::newRow("unread, deleted; other keys first")
            << WithTrailer(mail, "\t<key>date-sent</key>\n\t<integer>5</integer>\n" + flags("2"))
            << false << kept + "Status: O\nX-Status: D\n\nStatus: body\n"
            << QByteArray();
        QTest::newRow("above 2^63 written negative")
            << WithTrailer("A: b\n\nx\n", flags("-9223372036854775807")) << false
            << QByteArray("A: b\nStatus: RO\n\nx\n") << QByteArray();
        QTest::newRow("header block never ends")
            << WithTrailer("A: b\r\nC: d\n", flags("1")) << false
            << QByteArray("A: b\nC: d\nStatus: RO\n") << QByteArray("A: b\r\nC: d\nStatus: RO\n");
        QTest::newRow("no flags: nested ones do not count")
            << WithTrailer(mail, "\t<key>x</key>\n\t<dict>\n" + flags("1") + "\t</dict>\n") << false
            << mail << QByteArray();
        QTest::newRow("no trailer")
            << QByteArray("8\nA: b\n\nx\n") << false << QByteArray("A: b\n\nx\n") << QByteArray();
        QTest::newRow("count too large") << QByteArray("99999999999999999999\nA: b\n\nx\n") << false
                                         << QByteArray("A: b\n\nx\n") << QByteArray();
        QTest::newRow("whole body detached")
            << WithTrailer("A: b\nX-Apple-Content-Length: 3\nC: d\n\n", flags("16")) << true
            << QByteArray("A: b\nStatus: O\nX-Status: F\n\nP\n\n")
            << QByteArray("A: b\nC: d\nStatus: O\nX-Status: F\n\nP\n");
    }
    void status() {
        QFETCH(QByteArray, file);
        QFETCH(bool, partial);
        QFETCH(QByteArray, expected);
        QFETCH(QByteArray, bytes);
        QTemporaryDir dir;
        const QString part = dir.filePath("1.2.emlxpart");
        QVERIFY(WriteFile(part, "P"));
        RunOptions options;
        options.withStatus = true;
        for (bool keepBytes : {false, true}) {
            options.keepBytes = keepBytes;
            for (int chunk : {64, MboxWriter::kDefaultChunk})
                QCOMPARE(Write(file, partial, {part}, options, chunk),
                         kSep + (keepBytes && !bytes.isNull() ? bytes : expected));
        }
    }

    // Each part with a length line: "section removed|kept encoding name".
    void walk_data() {
        QTest::addColumn<QByteArray>("message");
        QTest::addColumn<QStringList>("parts");
        // The inner boundary starts with the outer one; blank lines before a
        // delimiter still make an empty body; a part with its body is kept.
        QTest::newRow("mixed[plain, mixed[html, txt, png]]")
            << Mixed("b", Part("b", "", "p\n") +
                              "--b\nContent-Type: multipart/mixed; boundary=\"b-2\"\n\npreamble\n" +
                              Part("b-2", "Content-Type: text/html\n", "h\n") +
                              Part("b-2", "Content-Disposition: attachment;\n filename*=utf-8''"
                                          "Fr%C3%BChjahr%20.txt\nContent-Transfer-Encoding: "
                                          "quoted-printable\n") +
                              "\n\n" +
                              Part("b-2", "Content-Type: image/png\nX-Apple-Content-Length: 3\n",
                                   "iVBO\n") +
                              "--b-2-- \nepilogue\n")
            << QStringList{QString::fromUtf8("2.2 removed quoted-printable Frühjahr .txt"),
                           "2.3 kept  "};
        QTest::newRow("cut short, unclosed, trailer inside")
            << QByteArray("Content-Type: multipart/mixed; boundary=b\n\n--b\nX-Apple-Content-"
                          "Length: 1\n\n--b\nContent-Type: multipart/mixed; boundary=c\n\n--c\n"
                          "X-Apple-Content-Length: 2\n\n<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
                          "\n--c\nX-Apple-Content-Length: 3\n\n")
            << QStringList{"1 removed  ", "2.1 removed  "};
        QTest::newRow("no structure at all")
            << QByteArray("--\n--\nX-Apple-Content-Length: 1") << QStringList{};
    }
    void walk() {
        QFETCH(QByteArray, message);
        QFETCH(QStringList, parts);
        const QString path = TempFile(Emlx(message), "Messages/1.partial.emlx");
        MessageFile file;
        QVERIFY(file.Open(path));
        QStringList got;
        for (const DetachedPart& p : FindDetachedParts(file, path))
            got << QStringList{p.section, p.removed ? "removed" : "kept", p.encoding, p.name}.join(
                ' ');
        QCOMPARE(got, parts);
    }

    void encode_data() {
        QTest::addColumn<QByteArray>("encoding");
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<QByteArray>("encoded");
        QByteArray bytes;
        for (int i = 0; i < 201; ++i)
            bytes += char(i * 7);
        // Lengths that end in a whole group, and one and two bytes over.
        for (int size : {201, 200, 199}) {
            QByteArray lines;
            for (int i = 0; i < size; i += 57)
                lines += (i ? "\n" : "") + bytes.left(size).mid(i, 57).toBase64();
            QTest::newRow(qPrintable(QString("base64 in lines of 76, %1 bytes").arg(size)))
                << QByteArray("BASE64") << bytes.left(size) << lines;
        }
        QTest::newRow("base64 of nothing") << QByteArray("base64") << QByteArray() << QByteArray();
        QTest::newRow("qp: =, blanks, From, cr, 8-bit")
            << QByteArray("quoted-printable") << QByteArray("a=b\tc \nFrom x\r\n\xC3\xBC end ")
            << QByteArray("a=3Db\tc=20\n=46rom x=0D\n=C3=BC end=20");
        QTest::newRow("qp: soft breaks never split a code")
            << QByteArray("quoted-printable") << QByteArray(74, 'a') + "=" + QByteArray(80, 'b')
            << QByteArray(74, 'a') + "=\n=3D" + QByteArray(72, 'b') + "=\n" + QByteArray(8, 'b');
        QTest::newRow("7bit: From lines escaped, bytes kept")
            << QByteArray("7bit") << QByteArray("From a\nxFrom b\r\nFrom c\n\0\xFF\nFro", 29)
            << QByteArray(">From a\nxFrom b\r\n>From c\n\0\xFF\nFro", 31);
    }
    void encode() {
        QFETCH(QByteArray, encoding);
        QFETCH(QByteArray, data);
        QFETCH(QByteArray, encoded);
        // Reads of every size give the same text.
        for (int chunk : {16, 17, 57, 64 * 1024}) {
            QBuffer in(&data);
            in.open(QIODevice::ReadOnly);
            QByteArray out;
            QVERIFY(PartEncoding::Encode(
                in, encoding, [&](const char* d, qint64 n) { out.append(d, int(n)); }, chunk));
            QCOMPARE(out, encoded);
        }
    }

    // Removed parts take the .emlxpart files first, in order, then Mail's
    // decoded files (Finder files beside them left aside); what has
    // neither is counted missing. A header line after the length line is
    // kept, blank lines before the delimiter are not.
    void writeBack() {
        QTemporaryDir tmp;
        const QString dir = tmp.path() + "/Data/";
        const QString path = dir + "Messages/7.partial.emlx";
        const QByteArray head = "Content-Type: multipart/mixed; boundary=b\n\n--b\n\nhi\n";
        const QByteArray pdf = "--b\nContent-Type: application/pdf\nContent-Transfer-Encoding: "
                               "base64\n";
        const QByteArray txt = "--b\nContent-Transfer-Encoding: quoted-printable\n";
        const QByteArray png = "--b\nContent-Type: image/png; name=c.png\n";
        const QByteArray length = "X-Apple-Content-Length: 9\n";
        QVERIFY(WriteFile(path, Emlx(head + pdf + length + "\n" + txt + length + "X-A: 1\n\n\n" +
                                     png + length + "\n--b--\n")));
        for (const char* f : {"2/a.pdf", "3/.DS_Store", "3/._n.txt", "3/n.txt"})
            QVERIFY(WriteFile(dir + "Attachments/7/" + f,
                              QByteArray(f).endsWith("/n.txt") ? "x=1\n" : "%PDF"));
        const QStringList parts{dir + "Messages/7.2.emlxpart"};
        QVERIFY(WriteFile(parts.first(), "JVBERg==\n"));
        // Keeping every byte, the length line alone goes, and the missing
        // part stays as the store has it.
        const QByteArray written[] = {kSep + head + pdf + "\nJVBERg==\n\n\n" + txt +
                                          "X-A: 1\n\nx=3D1\n\n" + png + "\n--b--\n",
                                      kSep + head + pdf + "\nJVBERg==\n\n" + txt +
                                          "X-A: 1\n\nx=3D1\n\n" + png + length + "\n--b--\n"};
        for (int keepBytes = 0; keepBytes < 2; ++keepBytes) {
            RemovedParts removed(path, parts);
            MboxWriter::CopyResult r;
            RunOptions options;
            options.keepBytes = keepBytes;
            QCOMPARE(Write(ReadFile(path), true, parts, options, 64, &r, &removed),
                     written[keepBytes]);
            QVERIFY(r.complete);
            QCOMPARE(r.partsFromEmlxpart, quint64(1));
            QCOMPARE(r.partsFromAttachments, quint64(1));
            QCOMPARE(r.missingParts, QStringList{"c.png"});
        }
    }

    // The write queue takes messages from two converting threads, each
    // filling its lane with the messages it was given (unevenly), in
    // pieces, and waits when too much is queued:
    // whatever the sizes of the messages and of the writes, each mbox file
    // gets its messages whole and in the order they were handed over, a
    // message cut short keeps what it had, only whole ones are counted, a
    // message whose mbox file cannot be made is listed, and nothing after a
    // report that ends the run is written.
    void queueKeepsMessagesInOrder() {
        QTemporaryDir tmp;
        const QString paths[] = {tmp.path() + "/a.mbox", tmp.path() + "/b.mbox"};
        const qint64 piece = MboxWriteQueue::kPieceBytes;
        QList<qint64> sizes{0, 1, piece, piece + 1, 2 * MboxWriteQueue::kQueueBytes + 7};
        for (int i = 0; i < 300; ++i)
            sizes << 1000 + i;
        const int lost = 7, last = sizes.size() - 2; // `last` ends the run
        auto fileOf = [](int i) { return i % 3 == 0 ? 1 : 0; };
        QByteArray expected[2];
        for (int i = 0; i < last; ++i)
            if (i != lost)
                expected[fileOf(i)] += QByteArray(int(sizes[i]), char('a' + i % 26));
        RunResult result;
        {
            MboxWriteQueue queue(
                &result,
                [&](const QString& message, QString* why) {
                    *why = "no room";
                    const int i = message.toInt();
                    return i == lost ? QString() : paths[fileOf(i)];
                },
                2);
            // Messages go to the lanes unevenly, as to threads that are
            // free at different times.
            auto laneOf = [](int i) { return i % 5 < 3 ? 0 : 1; };
            for (int i = 0; i < sizes.size(); ++i)
                queue.Expect(laneOf(i));
            auto convert = [&](int lane) {
                MboxWriteQueue::Lane& out = queue.At(lane);
                for (int i = 0; i < sizes.size(); ++i) {
                    if (laneOf(i) != lane)
                        continue;
                    if (i == last) {
                        out.ReportOnly([](RunResult& r) {
                            r.EndAt(RunResult::Ending::UnreadableFile, "x", "gone", 2);
                            return false;
                        });
                        continue;
                    }
                    const QByteArray message(static_cast<int>(sizes[i]),
                                             static_cast<char>('a' + i % 26));
                    out.BeginMessage(QString::number(i));
                    // Writes of one byte, of a few pieces and of what is left.
                    for (qint64 at = 0, n; at < message.size(); at += n) {
                        n = std::min<qint64>(message.size() - at, at % 2 ? 1 : 3 * piece + 5);
                        out.Device().write(message.constData() + at, n);
                    }
                    if (i == 3)
                        out.EndIncomplete();
                    else
                        out.EndMessage({i == 1, 0, 0});
                }
            };
            std::thread other(convert, 1);
            convert(0);
            other.join();
            queue.Finish();
        }
        for (int f = 0; f < 2; ++f)
            QVERIFY2(ReadFile(paths[f]) == expected[f], qPrintable(paths[f]));
        QCOMPARE(result.done, quint64(last - 2)); // neither 3 nor `lost`
        QCOMPARE(result.converted, quint64(1));
        QCOMPARE(result.folders.size(), 2);
        QCOMPARE(result.folders[0].path, paths[1]); // message 0 went to b
        QCOMPARE(result.unwritten.size(), 1);
        QCOMPARE(result.unwritten[0].path, QString::number(lost));
        QCOMPARE(result.unwritten[0].reason, QString("no room"));
        QCOMPARE(result.file, QString("x"));
    }
};

QTEST_GUILESS_MAIN(TestExportWriter)
#include "tst_core_export_writer.moc"
