// Parts that Mail kept apart from a partial message: the walk that numbers
// them by IMAP section, the lookup of their decoded files, the encoders and
// the writer that put them back.
#include "export/MboxWriter.h"
#include "export/PartEncoding.h"
#include "scanner/DetachedParts.h"
#include "scanner/MessageFile.h"
#include "tests/TestSupport.h"

#include <QBuffer>
#include <QtTest>

using namespace TestSupport;

namespace {

const QByteArray kSep = "From - &&&&&@@@####\n";

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

class TestDetached : public QObject {
    Q_OBJECT
private:
    QTemporaryDir m_dir;

private slots:
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
        QByteArray bytes, lines;
        for (int i = 0; i < 200; ++i)
            bytes += char(i * 7);
        for (int i = 0; i < 200; i += 57)
            lines += (i ? "\n" : "") + bytes.mid(i, 57).toBase64();
        QTest::newRow("base64 in lines of 76") << QByteArray("BASE64") << bytes << lines;
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
        const QString dir = m_dir.path() + "/Data/";
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
        QFile message(path);
        QVERIFY(message.open(QIODevice::ReadOnly));
        QBuffer out;
        out.open(QIODevice::WriteOnly);
        RemovedParts removed(path);
        const MboxWriter::CopyResult r =
            MboxWriter::WriteMessage(message, out, true, parts, {}, 64, &removed);
        QVERIFY(r.complete);
        QCOMPARE(out.data(), kSep + head + pdf + "\nJVBERg==\n\n\n" + txt + "X-A: 1\n\nx=3D1\n\n" +
                                 png + "\n--b--\n");
        QCOMPARE(r.partsFromEmlxpart, quint64(1));
        QCOMPARE(r.partsFromAttachments, quint64(1));
        QCOMPARE(r.missingParts, QStringList{"c.png"});
    }
};

QTEST_GUILESS_MAIN(TestDetached)
#include "tst_core_detached.moc"
