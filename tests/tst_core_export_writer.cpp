// The mbox writer: line rules, trailer detection, partial messages, and the
// chunked reading, which must give the same bytes as reading whole lines.
#include "export/MboxWriter.h"
#include "tests/TestSupport.h"

#include <QBuffer>
#include <QRandomGenerator>
#include <QtTest>

using TestSupport::Emlx;

namespace {

const QByteArray kSep = "From - &&&&&@@@####\n";
const QByteArray kXml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
const QByteArray kDoctype = "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\">";

// Lines with their "\n" (the last one may have none).
QList<QByteArray> Lines(const QByteArray& bytes) {
    QList<QByteArray> lines;
    for (int at = 0, nl; at < bytes.size(); at += lines.last().size()) {
        nl = bytes.indexOf('\n', at);
        lines << bytes.mid(at, nl < 0 ? -1 : nl + 1 - at);
    }
    return lines;
}

// A line as a text-mode reader gives it: "\r\n" read as "\n", cut at a NUL.
QByteArray Text(QByteArray b) {
    if (b.endsWith("\r\n"))
        b.replace(b.size() - 2, 2, "\n");
    return b.left(b.indexOf('\0') < 0 ? b.size() : b.indexOf('\0'));
}

// The writer's rules applied to whole lines held in memory: the oracle for
// the chunked implementation.
QByteArray Reference(const QByteArray& file, bool partial, const QList<QByteArray>& parts) {
    const QList<QByteArray> lines = Lines(file);
    auto decode = [&](int i) { return QString::fromUtf8(Text(lines[i])); };
    QByteArray out = kSep;
    if (lines.isEmpty())
        return out;
    const quint64 n = decode(0).trimmed().toULongLong();
    quint64 pos = lines[0].size();
    int partIndex = 0;
    for (int i = 1; i < lines.size();) {
        pos += lines[i].size();
        QString l = decode(i++);
        if (l.startsWith("From "))
            l.prepend('>');
        if (l.isEmpty())
            continue;
        if (l.contains(kXml) || l.contains("<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST ")) {
            if (pos > n)
                break;
            continue;
        }
        if (partial && l.startsWith("X-Apple-Content-Length: ")) {
            bool blank = false;
            while (i < lines.size() && !blank) {
                pos += lines[i].size();
                blank = decode(i++) == "\n";
            }
            if (partIndex < parts.size()) {
                out += "\n";
                for (const QByteArray& line : Lines(parts[partIndex]))
                    out += Text(line);
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

// One row of the copy table; `expected` is what follows the separator.
void Row(const QString& name, const QByteArray& file, const QByteArray& expected,
         bool partial = false, const QList<QByteArray>& parts = {}) {
    QTest::newRow(qPrintable(name)) << file << partial << parts << expected;
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
        Row("from escaped once, blank lines kept",
            Emlx("A: b\n\nFrom here\n>From there\nfrom low\nFrom:x\n From y\nFrom\n\n"),
            "A: b\n\n>From here\n>From there\nfrom low\nFrom:x\n From y\nFrom\n\n");
        Row("crlf read as lf", Emlx("A: b\r\n\r\nbody\r\nlone\rcr\r\n"),
            "A: b\n\nbody\nlone\rcr\n");
        Row("utf-8 becomes latin-1, 8-bit latin-1 is not utf-8",
            Emlx("caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80\ncaf\xE9\n"), "caf\xE9 ? ??\ncaf?\n");
        Row("text ends at a nul, a line starting with one is skipped",
            Emlx(QByteArray("ab\0cd\nnext\n\0junk\nx\n", 19)), "abnext\nx\n");
        Row("byte-order mark dropped before From", Emlx("\357\273\277From a\nb\357\273\277\n"),
            ">From a\nb?\n");
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

        // Lines far longer than the read buffer: the decisions that depend on
        // a line's start, its end or anything in between stay the same.
        const QByteArray big(3 * 1024 * 1024 + 7, 'x');
        Row("huge: escaped, crlf, no newline at the end", "10\nFrom " + big + "\r\n" + big,
            ">From " + big + "\n" + big);
        Row("huge: marker far in, past the count", "10\na\n" + big + kXml + "\nz\n", "a\n");
        Row("huge: text after a nul is dropped, a marker there too",
            "10\n" + big + QByteArray(1, '\0') + big + kXml + "\nz\n", big + "z\n");

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
            Row(QString("random %1").arg(i), file, Reference(file, false, {}).mid(kSep.size()));
            Row(QString("random %1, partial").arg(i), file,
                Reference(file, true, parts).mid(kSep.size()), true, parts);
        }
    }
    // The same bytes with every buffer size.
    void copy() {
        QFETCH(QByteArray, file);
        QFETCH(bool, partial);
        QFETCH(QList<QByteArray>, parts);
        QFETCH(QByteArray, expected);
        QTemporaryDir dir;
        QStringList paths;
        for (const QByteArray& part : parts) {
            paths << dir.filePath(QString("1.%1.emlxpart").arg(paths.size() + 2));
            QVERIFY(TestSupport::WriteFile(paths.last(), part));
        }
        QCOMPARE(Reference(file, partial, parts), kSep + expected);
        for (int chunk : {64, 65, 66, 67, 70, 81, 100, 127, 500, MboxWriter::kDefaultChunk}) {
            QBuffer in, out;
            in.setData(file);
            in.open(QIODevice::ReadOnly);
            out.open(QIODevice::WriteOnly);
            MboxWriter::WriteMessage(in, out, partial, paths, chunk);
            QCOMPARE(out.data(), kSep + expected);
        }
    }

    // List order; the folder is part of the key, and case matters.
    void partFilesFor() {
        const QStringList all = {"/a/Messages/12.3.emlxpart", "/a/Messages/112.2.emlxpart",
                                 "/a/Messages/12.2.emlxpart", "/b/Messages/12.2.emlxpart"};
        QCOMPARE(MboxWriter::PartFilesFor("/a/Messages/12.partial.emlx", all),
                 QStringList({"/a/Messages/12.3.emlxpart", "/a/Messages/12.2.emlxpart"}));
        QCOMPARE(MboxWriter::PartFilesFor("/A/Messages/12.partial.emlx", all), QStringList());
    }
};

QTEST_GUILESS_MAIN(TestExportWriter)
#include "tst_core_export_writer.moc"
