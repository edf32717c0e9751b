// The mbox writer: line rules, trailer detection, partial messages, and the
// chunked reading, which must give the same bytes as reading whole lines.
#include "MboxWriter.h"
#include "TestSupport.h"

#include <QBuffer>
#include <QRandomGenerator>
#include <QtTest>

using TestSupport::Emlx;
using TestSupport::WriteFile;

namespace {

const QByteArray kSep = "From - &&&&&@@@####\n";
const char kXml[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
const char kDoctype[] = "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\">";

// The writer's rules applied to whole lines held in memory: the oracle for
// the chunked implementation.
QByteArray Reference(const QByteArray& file, bool partial, const QList<QByteArray>& parts) {
    struct Raw {
        QByteArray bytes;
        qint64 end;
    };
    QList<Raw> lines;
    for (int at = 0; at < file.size();) {
        const int nl = file.indexOf('\n', at);
        const int end = nl < 0 ? file.size() : nl + 1;
        lines.append({file.mid(at, end - at), end});
        at = end;
    }
    auto textMode = [](QByteArray b) {
        if (b.endsWith("\r\n")) {
            b.chop(2);
            b.append('\n');
        }
        return b;
    };
    auto decode = [&](const QByteArray& b) { return QString(textMode(b)); }; // stops at NUL
    QByteArray out = kSep;
    if (lines.isEmpty())
        return out;
    const quint64 n = decode(lines[0].bytes).trimmed().toULongLong();
    int partIndex = 0;
    for (int i = 1; i < lines.size();) {
        QString l = decode(lines[i].bytes);
        const qint64 end = lines[i].end;
        ++i;
        if (l.startsWith("From "))
            l.prepend('>');
        if (l.isEmpty())
            continue;
        if (l.contains(kXml) || l.contains("<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST ")) {
            if (quint64(end) > n)
                break;
            continue;
        }
        if (partial && l.startsWith("X-Apple-Content-Length: ")) {
            bool blank = false;
            while (i < lines.size())
                if (decode(lines[i++].bytes) == "\n") {
                    blank = true;
                    break;
                }
            if (partIndex < parts.size()) {
                out += "\n";
                const QByteArray& part = parts[partIndex];
                for (int at = 0; at < part.size();) {
                    const int nl = part.indexOf('\n', at);
                    const int end = nl < 0 ? part.size() : nl + 1;
                    const QByteArray t = textMode(part.mid(at, end - at));
                    out += QString::fromLatin1(
                               t.left(t.indexOf('\0') < 0 ? t.size() : t.indexOf('\0')))
                               .toLatin1();
                    at = end;
                }
                out += "\n";
            }
            ++partIndex;
            if (blank)
                out += "\n";
            continue;
        }
        out += l.toLatin1();
    }
    return out;
}

QByteArray Run(const QByteArray& file, int chunk, bool partial = false,
               const QStringList& parts = {}, MboxWriter::CopyResult* result = nullptr) {
    QBuffer in;
    in.setData(file);
    in.open(QIODevice::ReadOnly);
    QBuffer out;
    out.open(QIODevice::WriteOnly);
    const auto r = MboxWriter::WriteMessage(in, out, partial, parts, chunk);
    if (result)
        *result = r;
    return out.data();
}

const QList<int> kChunks = {64, 65, 79, 128, 1000, MboxWriter::kDefaultChunk};

} // namespace

class TestExportWriter : public QObject {
    Q_OBJECT
private slots:
    void lineRules_data() {
        QTest::addColumn<QByteArray>("message");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("from is escaped once")
            << QByteArray("A: b\n\nFrom here\n>From there\nfrom low\nFrom:x\n From y\nFrom\n")
            << QByteArray("A: b\n\n>From here\n>From there\nfrom low\nFrom:x\n From y\nFrom\n");
        QTest::newRow("blank lines kept") << QByteArray("\n\n\nx\n") << QByteArray("\n\n\nx\n");
        QTest::newRow("crlf read as lf") << QByteArray("A: b\r\n\r\nbody\r\nlone\rcr\r\n")
                                         << QByteArray("A: b\n\nbody\nlone\rcr\n");
        QTest::newRow("utf-8 becomes latin-1")
            << QByteArray("caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80\n")
            << QByteArray("caf\xE9 ? ??\n");
        QTest::newRow("8-bit latin-1 is not utf-8")
            << QByteArray("caf\xE9\n") << QByteArray("caf?\n");
        QTest::newRow("text ends at a nul, newline included")
            << QByteArray("ab\0cd\nnext\n", 11) << QByteArray("abnext\n");
        QTest::newRow("line starting with nul is skipped")
            << QByteArray("\0junk\nx\n", 8) << QByteArray("x\n");
        QTest::newRow("byte-order mark dropped before From")
            << QByteArray("\xEF\xBB\xBF"
                          "From a\nb\xEF\xBB\xBF\n")
            << QByteArray(">From a\nb?\n");
        QTest::newRow("marker inside the message is dropped")
            << QByteArray("a\n") + kXml + "\nb\n" + kDoctype + "\nc\nmore text\n"
            << QByteArray("a\nb\nc\nmore text\n");
        // Positions count the byte count line too, so a marker within that
        // many bytes of the message's end already ends the copy.
        QTest::newRow("marker near the message end ends it") << QByteArray("a\n") + kXml + "\nb\n"
                                                             << QByteArray("a\n");
        QTest::newRow("marker after other text")
            << QByteArray("a\nsee ") + kXml + " here\nb\nmore text\n"
            << QByteArray("a\nb\nmore text\n");
    }
    // A well-formed .emlx: the message, then the trailer that ends the copy.
    void lineRules() {
        QFETCH(QByteArray, message);
        QFETCH(QByteArray, expected);
        for (int chunk : kChunks)
            QCOMPARE(Run(Emlx(message), chunk), kSep + expected);
    }

    void trailer_data() {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QByteArray>("expected");
        const QByteArray trailer = QByteArray(kXml) + "\n" + kDoctype + "\n<plist>\n</plist>\n";
        QTest::newRow("no trailer: copied to the end")
            << QByteArray("4\nab\n\ncd\n") << QByteArray("ab\n\ncd\n");
        QTest::newRow("count with blanks")
            << QByteArray("  3 \r\nab\n") + trailer << QByteArray("ab\n");
        // The first marker line ends the copy only past the byte count; with
        // a count that is too large both markers are dropped and the rest of
        // the property list is copied.
        QTest::newRow("count too large")
            << QByteArray("999\nab\n") + trailer << QByteArray("ab\n<plist>\n</plist>\n");
        QTest::newRow("count not a number")
            << QByteArray("x12\nab\n") + trailer << QByteArray("ab\n");
        QTest::newRow("count zero keeps nothing after a marker")
            << QByteArray("0\nab\n") + kXml + "\nlost\n"
            << QByteArray("ab\n");
        QTest::newRow("marker ending exactly at the count is dropped")
            << QByteArray("45\nab\n") + kXml + "\ncd\n"
            << QByteArray("ab\ncd\n");
        QTest::newRow("one past the count ends the copy")
            << QByteArray("44\nab\n") + kXml + "\ncd\n"
            << QByteArray("ab\n");
        QTest::newRow("last line without newline")
            << QByteArray("10\na\nlast") << QByteArray("a\nlast");
        QTest::newRow("empty file") << QByteArray() << QByteArray();
        QTest::newRow("count line only") << QByteArray("12") << QByteArray();
    }
    void trailer() {
        QFETCH(QByteArray, file);
        QFETCH(QByteArray, expected);
        for (int chunk : kChunks)
            QCOMPARE(Run(file, chunk), kSep + expected);
    }

    // Lines far longer than the read buffer: the decisions that depend on a
    // line's start, its end or anything in between stay the same.
    void hugeLines_data() {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QByteArray>("expected");
        const QByteArray big(3 * 1024 * 1024 + 7, 'x');
        QByteArray mixed;
        for (int i = 0; i < 200000; ++i)
            mixed += "ab\xC3\xA9\xE2\x82\xAC";
        QByteArray mixedOut;
        for (int i = 0; i < 200000; ++i)
            mixedOut += "ab\xE9?";
        QTest::newRow("plain") << "10\n" + big + "\nend\n" << big + "\nend\n";
        QTest::newRow("escaped") << "10\nFrom " + big + "\n"
                                 << ">From " + big + "\n";
        QTest::newRow("no newline at all") << "10\n" + big << big;
        QTest::newRow("crlf at the end") << "10\n" + big + "\r\n" << big + "\n";
        QTest::newRow("nul far in") << "10\n" + big + QByteArray(1, '\0') + big + "\nz\n"
                                    << big + "z\n";
        QTest::newRow("multibyte all along") << "10\n" + mixed + "\n" << mixedOut + "\n";
        QTest::newRow("marker far in, before the count") << "9999999\n" + big + kXml + big + "\nz\n"
                                                         << QByteArray("z\n");
        QTest::newRow("marker far in, past the count") << "10\na\n" + big + kXml + "\nz\n"
                                                       << QByteArray("a\n");
        QTest::newRow("marker after a nul does not count")
            << "10\n" + big + QByteArray(1, '\0') + kXml + "\nz\n"
            << big + "z\n";
    }
    void hugeLines() {
        QFETCH(QByteArray, file);
        QFETCH(QByteArray, expected);
        for (int chunk : {64, 4093, MboxWriter::kDefaultChunk})
            QCOMPARE(Run(file, chunk), kSep + expected);
    }

    // Messages (and detached parts) built from awkward fragments, copied with
    // many buffer sizes, plain and partial, against the whole-line rules.
    void chunkingMatchesWholeLines_data() {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QList<QByteArray>>("parts");
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
            const QByteArray tails[] = {TestSupport::Emlx("").mid(2), "",
                                        QByteArray(kXml) + "\nx\n", ""};
            const int form = rng.bounded(4);
            QList<QByteArray> parts;
            for (int p = rng.bounded(4); p > 0; --p)
                parts << random(8);
            QTest::newRow(qPrintable(QString::number(i)))
                << heads[form] + body + tails[form] << parts;
        }
    }
    void chunkingMatchesWholeLines() {
        QFETCH(QByteArray, file);
        QFETCH(QList<QByteArray>, parts);
        QTemporaryDir dir;
        QStringList paths;
        for (const QByteArray& part : parts) {
            paths << dir.filePath(QString("1.%1.emlxpart").arg(paths.size() + 2));
            QVERIFY(WriteFile(paths.last(), part));
        }
        const QByteArray plain = Reference(file, false, {});
        const QByteArray partial = Reference(file, true, parts);
        for (int chunk : {64, 65, 66, 67, 70, 81, 100, 127, 500, MboxWriter::kDefaultChunk}) {
            QCOMPARE(Run(file, chunk), plain);
            QCOMPARE(Run(file, chunk, true, paths), partial);
        }
    }

    void partialMessage_data() {
        QTest::addColumn<QByteArray>("message");
        QTest::addColumn<QList<QByteArray>>("parts");
        QTest::addColumn<QByteArray>("expected");
        const QByteArray msg = "Content-Type: multipart/mixed; boundary=b\n\n--b\n"
                               "Content-Type: text/plain\n\nhi\n--b\n"
                               "Content-Type: image/png\nX-Apple-Content-Length: 4\n"
                               "Content-Transfer-Encoding: base64\n\n--b\n"
                               "Content-Type: image/gif\nX-Apple-Content-Length: 9\n\n--b--\n";
        const QByteArray head = "Content-Type: multipart/mixed; boundary=b\n\n--b\n"
                                "Content-Type: text/plain\n\nhi\n--b\n"
                                "Content-Type: image/png\n";
        QTest::newRow("two headers, two parts")
            << msg << QList<QByteArray>{"AAAA\nBBBB\n", "R0lG"}
            << head + "\nAAAA\nBBBB\n\n\n--b\nContent-Type: image/gif\n\nR0lG\n\n--b--\n";
        QTest::newRow("two headers, one part")
            << msg << QList<QByteArray>{"AAAA\n"}
            << head + "\nAAAA\n\n\n--b\nContent-Type: image/gif\n\n--b--\n";
        QTest::newRow("no part files")
            << msg << QList<QByteArray>{} << head + "\n--b\nContent-Type: image/gif\n\n--b--\n";
        QTest::newRow("part bytes kept, crlf read as lf, text ends at a nul")
            << msg << QList<QByteArray>{QByteArray("\xFF\xE9\r\nab\0cd\nFrom x\n", 17), "z"}
            << head + "\n\xFF\xE9\nabFrom x\n\n\n--b\nContent-Type: image/gif\n\nz\n\n--b--\n";
        QTest::newRow("header block never ends") << QByteArray("X-Apple-Content-Length: 3\nA: b\n")
                                                 << QList<QByteArray>{"P"} << QByteArray("\nP\n");
    }
    void partialMessage() {
        QFETCH(QByteArray, message);
        QFETCH(QList<QByteArray>, parts);
        QFETCH(QByteArray, expected);
        QTemporaryDir dir;
        QStringList paths;
        for (int i = 0; i < parts.size(); ++i) {
            paths << dir.filePath(QString("12.%1.emlxpart").arg(i + 2));
            QVERIFY(WriteFile(paths.last(), parts[i]));
        }
        const QByteArray file = Emlx(message);
        QCOMPARE(Reference(file, true, parts), kSep + expected);
        for (int chunk : kChunks)
            QCOMPARE(Run(file, chunk, true, paths), kSep + expected);
        // A plain message leaves the header where it is.
        QVERIFY(Run(file, 64).contains("X-Apple-Content-Length: "));
    }

    void missingPartFileStopsAfterWhatWasWritten() {
        MboxWriter::CopyResult result = MboxWriter::CopyResult::Complete;
        const QByteArray out = Run(Emlx("A: b\nX-Apple-Content-Length: 3\n\nrest\n"), 64, true,
                                   {"/nonexistent/1.2.emlxpart"}, &result);
        QCOMPARE(int(result), int(MboxWriter::CopyResult::PartFileFailed));
        QCOMPARE(out, kSep + "A: b\n\n");
    }

    void partFilesFor_data() {
        QTest::addColumn<QString>("message");
        QTest::addColumn<QStringList>("all");
        QTest::addColumn<QStringList>("expected");
        const QStringList all = {"/a/Messages/12.3.emlxpart", "/a/Messages/112.2.emlxpart",
                                 "/a/Messages/12.2.emlxpart", "/b/Messages/12.2.emlxpart"};
        QTest::newRow("list order, directory part of the key")
            << "/a/Messages/12.partial.emlx" << all
            << QStringList{"/a/Messages/12.3.emlxpart", "/a/Messages/12.2.emlxpart"};
        QTest::newRow("none") << "/c/Messages/12.partial.emlx" << all << QStringList{};
        QTest::newRow("case matters") << "/A/Messages/12.partial.emlx" << all << QStringList{};
    }
    void partFilesFor() {
        QFETCH(QString, message);
        QFETCH(QStringList, all);
        QFETCH(QStringList, expected);
        QCOMPARE(MboxWriter::PartFilesFor(message, all), expected);
    }
};

QTEST_GUILESS_MAIN(TestExportWriter)
#include "tst_core_export_writer.moc"
