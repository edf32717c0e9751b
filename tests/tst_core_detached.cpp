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
const QByteArray kText = "Content-Type: text/plain\n";
const QByteArray kPdf = "Content-Transfer-Encoding: base64\nContent-Type: application/pdf;\n"
                        "\tname=\"a b.pdf\"\n";

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
        QTest::newRow("mixed[plain, pdf]") << Mixed("b", Part("b", kText, "hi\n") + Part("b", kPdf))
                                           << QStringList{"2 removed base64 a b.pdf"};
        QTest::newRow("mixed[alternative[plain, html], pdf, png]")
            << Mixed("o",
                     "--o\nContent-Type: multipart/alternative; boundary=i\n\n" +
                         Part("i", kText, "p\n") + Part("i", "Content-Type: text/html\n", "h\n") +
                         "--i--\n\n" + Part("o", kPdf) +
                         Part("o", "Content-Type: image/png\nContent-Transfer-Encoding: BASE64\n"))
            << QStringList{"2 removed base64 a b.pdf", "3 removed base64 "};
        // The inner boundary starts with the outer one; blank lines before a
        // delimiter still make an empty body; a part with its body is kept.
        QTest::newRow("mixed[plain, mixed[html, txt, png]]")
            << Mixed("b", Part("b", kText, "p\n") +
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
        // Pieces split inside a UTF-8 sequence; upper-case values; the
        // disposition's file name wins over the type's name.
        QTest::newRow("RFC 2231 pieces and an RFC 2047 word")
            << Mixed("b", Part("b", "Content-Disposition: ATTACHMENT;\n\tfilename*0*=utf-8''K%C3;"
                                    "\n\tfilename*1*=%BCche.pdf\nContent-Type: application/pdf; "
                                    "name=x.pdf\n") +
                              Part("b", "Content-Type: image/png;\n name=\"=?utf-8?B?"
                                        "R3J1bmRyaXNzLnBuZw==?=\"\n"))
            << QStringList{QString::fromUtf8("1 removed  Küche.pdf"), "2 removed  Grundriss.png"};
        QTest::newRow("single part")
            << QByteArray("Content-Type: application/pdf\nX-Apple-Content-Length: 5\n\n")
            << QStringList{"1 removed  "};
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
        for (const DetachedPart& p : FindDetachedParts(file, path)) {
            got << QStringList{p.section, p.removed ? "removed" : "kept", p.encoding, p.name}.join(
                ' ');
            QVERIFY(p.file.isEmpty());
            // The mark is the end of the part's length line.
            const QByteArray before(file.Data(), int(p.mark));
            QVERIFY(before.mid(before.lastIndexOf('\n', before.size() - 2) + 1)
                        .startsWith("X-Apple-Content-Length: "));
        }
        QCOMPARE(got, parts);
    }

    // Files below a message's folder; the decoded file found for a section.
    void lookup_data() {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("section");
        QTest::addColumn<QString>("found");
        const QString m103 = "Data/Messages/103.partial.emlx";
        QTest::newRow("one file beside Finder files")
            << QStringList{"Data/Attachments/103/2/.DS_Store", "Data/Attachments/103/2/._x.pdf",
                           "Data/Attachments/103/2/x.pdf"}
            << m103 << "2"
            << "Data/Attachments/103/2/x.pdf";
        QTest::newRow("deep Data folders, dotted section")
            << QStringList{"Data/4/1/Attachments/14672/2.3/a b.png"}
            << "Data/4/1/Messages/14672.partial.emlx"
            << "2.3"
            << "Data/4/1/Attachments/14672/2.3/a b.png";
        QTest::newRow("another section")
            << QStringList{"Data/Attachments/103/2/x.pdf"} << m103 << "3"
            << "";
        QTest::newRow("only a folder in the section")
            << QStringList{"Data/Attachments/103/2/sub/x.pdf"} << m103 << "2"
            << "";
        QTest::newRow("message without a number")
            << QStringList{"Data/Attachments/x/2/x.pdf"} << "Data/Messages/x.partial.emlx"
            << "2"
            << "";
    }
    void lookup() {
        QFETCH(QStringList, files);
        QFETCH(QString, message);
        QFETCH(QString, section);
        QFETCH(QString, found);
        const QString root = m_dir.path() + "/" + QTest::currentDataTag() + "/";
        for (const QString& f : files + QStringList{message})
            QVERIFY(WriteFile(root + f, "x"));
        QCOMPARE(AttachmentsFile(root + message, section), found.isEmpty() ? found : root + found);
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
        QTest::newRow("base64 in lines of 76") << QByteArray("base64") << bytes << lines;
        QTest::newRow("base64, one whole line")
            << QByteArray("BASE64") << bytes.left(57) << bytes.left(57).toBase64();
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

    // Removed parts take the .emlxpart files first, in order, then their
    // decoded files; what has neither is counted missing.
    void writeBack_data() {
        QTest::addColumn<int>("emlxparts");
        QTest::addColumn<QByteArray>("pdf"); // how the first part is written
        const QByteArray restored = "Content-Type: application/pdf; name=a.pdf\n"
                                    "Content-Transfer-Encoding: base64\n"
                                    "Content-Disposition: attachment\n\nJVBERg==\n";
        const QByteArray fromEmlxpart = "Content-Type: application/pdf; name=a.pdf\n"
                                        "Content-Transfer-Encoding: base64\n\nJVBERg==\n\n\n";
        QTest::newRow("decoded files") << 0 << restored;
        QTest::newRow("an .emlxpart file takes the first part") << 1 << fromEmlxpart;
    }
    void writeBack() {
        QFETCH(int, emlxparts);
        QFETCH(QByteArray, pdf);
        const QString dir = m_dir.path() + "/" + QTest::currentDataTag() + "/Data/";
        const QString path = dir + "Messages/7.partial.emlx";
        const QByteArray head = "Content-Type: multipart/mixed; boundary=b\n\n--b\n"
                                "Content-Type: text/plain\n\nhi\n--b\n";
        const QByteArray txt = "--b\nContent-Type: text/plain; name=n.txt\n"
                               "Content-Transfer-Encoding: quoted-printable\n";
        const QByteArray png = "--b\nContent-Type: image/png; name=c.png\n"
                               "Content-Transfer-Encoding: base64\n";
        QVERIFY(WriteFile(path, Emlx(head +
                                     "Content-Type: application/pdf; name=a.pdf\nContent-"
                                     "Transfer-Encoding: base64\nX-Apple-Content-Length: 9\n"
                                     "Content-Disposition: attachment\n\n" +
                                     txt + "X-Apple-Content-Length: 9\n\n\n" + png +
                                     "X-Apple-Content-Length: 9\n\n--b--\n")));
        QVERIFY(WriteFile(dir + "Attachments/7/2/a.pdf", "%PDF"));
        QVERIFY(WriteFile(dir + "Attachments/7/3/n.txt", "x=1\n"));
        QStringList parts;
        if (emlxparts) {
            parts << dir + "Messages/7.2.emlxpart";
            QVERIFY(WriteFile(parts.last(), "JVBERg==\n"));
        }
        QFile message(path);
        QVERIFY(message.open(QIODevice::ReadOnly));
        QBuffer out;
        out.open(QIODevice::WriteOnly);
        RemovedParts removed(path);
        const MboxWriter::CopyResult r =
            MboxWriter::WriteMessage(message, out, true, parts, {}, 64, &removed);
        QVERIFY(r.complete);
        QCOMPARE(out.data(), kSep + head + pdf + txt + "\nx=3D1\n\n" + png + "\n--b--\n");
        QCOMPARE(r.partsFromEmlxpart, quint64(emlxparts));
        QCOMPARE(r.partsFromAttachments, quint64(2 - emlxparts));
        QCOMPARE(r.missingParts, QStringList{"c.png"});
    }
};

QTEST_GUILESS_MAIN(TestDetached)
#include "tst_core_detached.moc"
