// Line model, boundaries, delimiters and the text bodies of messages.
#include "scanner/MessageAnalysis.h"
#include "scanner/MessageFile.h"
#include "scanner/MimePasses.h"
#include "scanner/Records.h"
#include "tests/TestSupport.h"

#include <QtTest>

#include <cctype>

using emlx::Line;
using TestSupport::Emlx;
using TestSupport::TempFile;

class MimeTest : public QObject {
    Q_OBJECT
private slots:
    void lineModel_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QStringList>("lines"); // "text@next@utf16length"
        QTest::newRow("empty file") << QByteArray() << QStringList();
        QTest::newRow("crlf dropped, lone cr kept, last line without lf")
            << QByteArray("a\r\nb\rc\nd\r") << QStringList{"a\n@3@2", "b\rc\n@7@4", "d\r@9@2"};
        QTest::newRow("text stops at nul, length in utf-16 units")
            << QByteArray("x\0y\n\xc3\xa9\xf0\x9f\x98\x80\n", 11)
            << QStringList{"x@4@1", "\u00e9\U0001F600\n@11@4"};
    }
    void lineModel() {
        QFETCH(QByteArray, bytes);
        QFETCH(QStringList, lines);
        MessageFile file;
        QVERIFY(file.Open(TempFile(bytes)));
        QStringList got;
        Line line;
        while (file.ReadLine(&line))
            got << QStringLiteral("%1@%2@%3")
                       .arg(line.Text())
                       .arg(line.next)
                       .arg(line.Utf16Length());
        QCOMPARE(got, lines);
    }

    void boundaries_data() {
        QTest::addColumn<QByteArray>("headers");
        QTest::addColumn<QStringList>("expected");
        auto row = [](const char* name, const char* headers, const QStringList& expected) {
            QTest::newRow(name) << QByteArray(headers) << expected;
        };
        row("quoted and unquoted",
            "Content-Type: multipart/mixed; boundary=\"abc\"\n"
            "Content-Type: multipart/mixed; boundary=def\n",
            {"abc", "def"});
        row("quoted with later parameter is taken raw",
            "Content-Type: multipart/mixed; boundary=\"q\"; x=1\n", {"\"q\"; x=1"});
        row("blank continuation, semicolon", "Content-Type: multipart/mixed; \n boundary=zz;\n",
            {"zz"});
        row("unknown opener ending", "Content-Type: multipart/signed;\n\tboundary=\"s\"\n", {});
        row("prefix ignores case, parameter does not",
            "CONTENT-TYPE: MULTIPART/MIXED; boundary=x\nContent-Type: multipart/mixed; "
            "BOUNDARY=y\n",
            {"x"});
        row("fourth ignored",
            "Content-Type: multipart/mixed; boundary=a\nContent-Type: multipart/mixed; boundary=b\n"
            "Content-Type: multipart/mixed; boundary=c\nContent-Type: multipart/mixed; "
            "boundary=d\n",
            {"a", "b", "c"});
    }
    void boundaries() {
        QFETCH(QByteArray, headers);
        QFETCH(QStringList, expected);
        MessageFile file;
        QVERIFY(file.Open(TempFile(Emlx(headers + "\nbody\n"))));
        QStringList got;
        for (const BoundaryLevel& level : ScanBoundaries(file))
            got << level.boundary;
        QCOMPARE(got, expected);
    }

    void delimiterAlignment() {
        // Delimiter lines after body lines of every length, so that they
        // fall on every offset of the byte blocks the walk reads.
        const QByteArray head = "Content-Type: multipart/mixed; boundary=b\n\n--b\n";
        QByteArray body;
        for (int n = 0; n < 40; ++n)
            body += QByteArray(n, n % 2 ? 'x' : 'c') + "\n--b\n";
        const QByteArray file = Emlx(head + body + "--b--\n");
        QVector<qint64> expected;
        for (int at = 0; (at = file.indexOf("\n--b", at)) >= 0; ++at)
            expected << file.indexOf('\n', at + 1) + 1;
        MessageFile f;
        QVERIFY(f.Open(TempFile(file)));
        const QVector<BoundaryLevel> levels = ScanBoundaries(f);
        QCOMPARE(levels.size(), 1);
        QCOMPARE(levels[0].positions, expected);
    }

    // Body ranges are given by markers: a body starts where its marker
    // starts and ends where its end marker (searched after it) starts.
    // Markers: plain start, plain end, html start, html end ("" for none, "$"
    // for the end of the file).
    void textBodies_data() {
        QTest::addColumn<QByteArray>("message");
        QTest::addColumn<QString>("charsets"); // plain|html|encoding, "-" for none
        QTest::addColumn<QByteArrayList>("markers");
        auto row = [](const char* name, const QByteArray& message, const char* charsets,
                      const QByteArrayList& markers) {
            QTest::newRow(name) << message << QString(charsets) << markers;
        };
        const QByteArray nested =
            "From: a@example.org\nContent-Type: multipart/mixed; boundary=\"M\"\n\n"
            "--M\nContent-Type: multipart/alternative; boundary=\"A\"\n\n"
            "--A\nContent-Type: text/plain; charset=\"utf-8\"\n"
            "Content-Transfer-Encoding: quoted-printable\n\nPLAIN\n"
            "--A\nContent-Type: text/html; charset=iso-8859-1\n"
            "Content-Transfer-Encoding: base64\n\nHTML\n--A--\n"
            "--M\nContent-Type: image/png; name=\"a.png\"\nContent-ID: <p>\n\nPNG\n--M--\n";
        row("crlf file", QByteArray(nested).replace("\n", "\r\n"), "utf-8|iso-8859-1|base64",
            {"PLAIN", "--A\r\nContent-Type: text/html", "HTML", "--A--"});
        auto one = [](const QByteArray& typeLines) {
            return "Content-Type: multipart/mixed; boundary=b\n\n--b\n" + typeLines +
                   "\nBODY\n--b--\n";
        };
        const QByteArrayList plain = {"BODY", "--b--", "", ""};
        row("quoted semicolon ending",
            one("Content-Type: text/html; charset=\"koi8-r\";\n\tdelsp=yes\n"), "-|koi8-r|",
            {"", "", "BODY", "--b--"});
        row("prefix ignores case, semicolon ending",
            one("content-type: TEXT/PLAIN; CHARSET=utf-8;\n"), "utf-8|-|", plain);
        const QByteArray text = "Content-Type: multipart/mixed; boundary=b\n\n"
                                "--b\nContent-Type: text/plain\n\nBODY\nx";
        row("close with trailing blanks", text + "\n--b--  \n", "|-|", {"BODY", "--b--", "", ""});
        row("trailer inside a line ends the level",
            text + "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n--b--\n", "|-|",
            {"BODY", "x<?xml", "", ""});
        row("trailer mark behind a nul byte is no trailer",
            text + QByteArray("\0<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n--b--\n", 46), "|-|",
            {"BODY", "--b--", "", ""});
        row("no close, no trailer: ends with the file",
            QByteArray::number(text.size() + 1) + "\n" + text + "\n", "|-|", {"BODY", "$", "", ""});
        row("delimiter with trailing blank is no delimiter",
            QByteArray(text).replace("--b\n", "--b \n") + "\n--b--\n", "-|-|-", {"", "", "", ""});
        row("last text part wins, encoding shared",
            "Content-Type: multipart/mixed; boundary=b\n\n"
            "--b\nContent-Type: text/plain; charset=a\nContent-Transfer-Encoding: 7bit\n\nONE\n"
            "--b\nContent-Type: text/html; charset=h\nContent-Transfer-Encoding: base64\n\nH\n"
            "--b\nContent-Type: text/plain; charset=c\n"
            "Content-Transfer-Encoding: quoted-printable\n\nTWO\n--b--\n",
            "c|h|quoted-printable",
            {"TWO", "--b--", "H\n", "--b\nContent-Type: text/plain; charset=c"});
        const QByteArrayList toTrailer = {"BODY", "<?xml", "", ""};
        row("unclosed level ends at the trailer",
            "Content-Type: multipart/mixed; boundary=b\n\n--b\n"
            "Content-Type: text/plain; charset=x\n\nBODY\n",
            "x|-|", toTrailer);
        row("single part without content type", "Subject: s\n\nBODY\n", "|-|", toTrailer);
        row("single part html", "Content-Type: text/html\n\nBODY\n", "-||",
            {"", "", "BODY", "<?xml"});
        row("single part image has no body", "Content-Type: image/png\n\nBODY\n", "-|-|-",
            {"", "", "", ""});
    }
    void textBodies() {
        QFETCH(QByteArray, message);
        QFETCH(QString, charsets);
        QFETCH(QByteArrayList, markers);
        // A message given with its count line is the whole file, without trailer.
        const QByteArray file = isdigit(message.at(0)) ? message : Emlx(message);
        // A delimiter line's length counts its text, where "\r\n" is one
        // character: in a CRLF file the end lands one byte into the line.
        const int shift = message.contains("\r\n") ? 1 : 0;
        QVector<qint64> expected;
        for (int i = 0; i < 4; i += 2) {
            const qint64 start = markers[i].isEmpty() ? 0 : file.indexOf(markers[i]);
            const QByteArray& end = markers[i + 1];
            expected << start
                     << (end.isEmpty() ? 0
                         : end == "$"  ? file.size()
                                       : file.indexOf(end, int(start)) + shift);
        }
        MailItem* item = NewMailItem();
        QVERIFY(AnalyseMessageFile(TempFile(file), item));
        auto text = [](const char* s) { return s ? QString::fromLatin1(s) : QStringLiteral("-"); };
        const QString got = text(item->pPlainCharset) + "|" + text(item->pHtmlCharset) + "|" +
                            text(item->pTransferEncoding);
        const QVector<qint64> ranges = {item->llPlainStart, item->llPlainEnd, item->llHtmlStart,
                                        item->llHtmlEnd};
        FreeMailItem(item);
        QCOMPARE(got, charsets);
        QCOMPARE(ranges, expected);
    }
};

QTEST_APPLESS_MAIN(MimeTest)
#include "tst_core_mime.moc"
