// Reading a message file: the line model, boundaries, delimiters, text
// bodies, the header fields (From, To, Subject, Date, X-Priority, encoded
// words, the quoted-printable decoder), and broken or hostile files, where
// the analysis must neither crash nor hang and reports "cannot be opened"
// only for what is no regular file.
#include "scanner/MessageAnalysis.h"
#include "scanner/MessageFile.h"
#include "scanner/MimePasses.h"
#include "scanner/ScaningThread.h"
#include "scanner/Store.h"
#include "scanner/TrailerFlags.h"
#include "tests/TestSupport.h"

#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

#include <cctype>
#include <sys/stat.h>

using emlx::Line;
using TestSupport::Emlx;
using TestSupport::TempFile;

namespace {
QString Field(const QString& text) {
    return text.isEmpty() ? QStringLiteral("-") : text;
}

bool Analyse(const QString& path, MailItem* item) {
    MessageFile file;
    return AnalyseMessageFile(file, path, {}, item) == Analysis::Message;
}

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

class MimeTest : public QObject {
    Q_OBJECT

    // Analyses a file written as a partial message; true when it could be read.
    // True when the file could be read (as a message or as no message).
    static bool Run(const QString& path) {
        MailItem item;
        MessageFile file;
        const bool ok = AnalyseMessageFile(file, path, {}, &item) != Analysis::Unreadable;
        QFile::remove(path);
        return ok;
    }
    static bool Run(const QByteArray& bytes) { return Run(TempFile(bytes, "x.partial.emlx")); }

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
        auto row = [](const char* name, const QByteArray& headers, const QStringList& expected) {
            QTest::newRow(name) << headers << expected;
        };
        const QByteArray mixed = "Content-Type: multipart/mixed; ";
        row("quoted and unquoted", mixed + "boundary=\"abc\"\n" + mixed + "boundary=def\n",
            {"abc", "def"});
        row("quoted with later parameter is taken raw", mixed + "boundary=\"q\"; x=1\n",
            {"\"q\"; x=1"});
        row("blank continuation, semicolon", mixed + "\n boundary=zz;\n", {"zz"});
        row("unknown opener ending", "Content-Type: multipart/signed;\n\tboundary=\"s\"\n", {});
        row("prefix ignores case, parameter does not",
            "CONTENT-TYPE: MULTIPART/MIXED; boundary=x\n" + mixed + "BOUNDARY=y\n", {"x"});
        row("fourth ignored",
            mixed + "boundary=a\n" + mixed + "boundary=b\n" + mixed + "boundary=c\n" + mixed +
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
        row("first text part of each kind, the html one's encoding",
            "Content-Type: multipart/mixed; boundary=b\n\n"
            "--b\nContent-Type: text/plain; charset=a\nContent-Transfer-Encoding: 7bit\n\nONE\n"
            "--b\nContent-Type: text/html; charset=h\nContent-Transfer-Encoding: base64\n\nH\n"
            "--b\nContent-Type: text/plain; charset=c\n"
            "Content-Transfer-Encoding: quoted-printable\n\nTWO\n--b--\n",
            "a|h|base64",
            {"ONE", "--b\nContent-Type: text/html", "H\n",
             "--b\nContent-Type: text/plain; charset=c"});
        // Text parts with a file name or an attachment disposition are
        // attachments, never the body.
        const QByteArray named =
            "Content-Type: multipart/mixed; boundary=b\n\n"
            "--b\nContent-Type: image/jpeg\n\nJPG\n"
            "--b\nContent-Type: text/plain;\n\tname=\"open points.txt\"\n"
            "X-Apple-Content-Length: 120\n\n\n"
            "--b\nContent-Type: text/plain; charset=u\n"
            "Content-Disposition: attachment\n\nNOTES\n"
            "--b\nContent-Type: text/plain; charset=v\n"
            "Content-Disposition: inline; filename*0*=utf-8''a.txt\n\nA\n--b--\n";
        row("named text parts are attachments", named, "-|-|-", {"", "", "", ""});
        row("the body after a named text part",
            QByteArray(named).replace("--b--\n", "--b\nContent-Type: text/plain; charset=w; "
                                                 "format=flowed\n\nBODY\n--b--\n"),
            "w|-|", plain);
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
        MailItem item;
        QVERIFY(Analyse(TempFile(file), &item));
        auto text = [](const QByteArray& s) {
            return s.isNull() ? QStringLiteral("-") : QString::fromLatin1(s);
        };
        const QString got = text(item.plainCharset) + "|" + text(item.htmlCharset) + "|" +
                            text(item.transferEncoding);
        const QVector<qint64> ranges = {item.llPlainStart, item.llPlainEnd, item.llHtmlStart,
                                        item.llHtmlEnd};
        QCOMPARE(got, charsets);
        QCOMPARE(ranges, expected);
    }

    // Expected: from|to|subject|date|priority, "-" for a field left null.
    void fields_data() {
        QTest::addColumn<QByteArray>("headers");
        QTest::addColumn<QString>("expected");
        const QByteArray to = "To: b@example.org\n";
        const QByteArray date = "Date: Tue, 05 Mar 2013 14:07:09 +0530\n";
        auto row = [](const char* name, const QByteArray& headers, const QString& expected) {
            QTest::newRow(name) << headers << expected;
        };
        row("plain fields keep their line feed, b word with unknown charset read as utf-8",
            "From: Ann <a@example.org>\n" + to + "X-Priority: 3 (Normal)\nSubject: =?x-nothing?B?" +
                QByteArray("Zoë").toBase64() + "?=\n" + date,
            "Ann <a@example.org>\n|b@example.org\n|Zoë|05 Mar 2013 02:07:09 PM|3");
        row("unknown encoding keeps the text, priority without digit",
            "From: =?utf-8?X?abc?=\nX-Priority: (none)\n", "=?utf-8?X?abc?=\n|-|-|-|0");
        row("subject words joined, text after a word kept",
            "Subject:  =?utf-8?Q?Caf=C3=A9?= =?utf-8?b?" + QByteArray("ä").toBase64() +
                "?= =?UTF-8?q?x?= done\n",
            "-|-|Caféäx done|-|0");
        row("folded subject with encoded continuation, folded to",
            "Subject: =?utf-8?Q?a?=\n =?utf-8?Q?b?=\n\tplain\nTo: a@x,\n b@y\nFrom: f\n",
            "f\n|a@x,\n b@y\n|ab\tplain\n|-|0");
        row("single subject word: lower-case q is not decoded", "Subject: =?utf-8?q?a_b?=\n",
            "-|-|=?utf-8?q?a_b?=\n|-|0");
        row("single subject word: ?= inside is text, the line feed stays",
            "Subject: =?utf-8?Q?a?=3Dz\n", "-|-|a?=z\n|-|0");
        row("byte-order mark before a label", "\xEF\xBB\xBFSubject: x\n", "-|-|x\n|-|0");
        row("seek back by characters lands inside a line",
            "Date: 5 Mar 13 01:02:03\nSubject: \xc3\xb1\n", "-|-|-|05 Mar 2013 01:02:03 AM|0");
        row("date with zone name and full weekday", "Date: Tuesday, 05 March 2013 14:07:09 EST\n",
            "-|-|-|05 Mar 2013 02:07:09 PM|0");
        row("long date beyond a small buffer",
            "Date: Tue, 05 Mar 2013 14:07:09 +0000 (" + QByteArray(300, 'c') + ")\n",
            "-|-|-|05 Mar 2013 02:07:09 PM|0");
        row("unparsable date is empty, upper-case label is not removed",
            "Date: yesterday\nSUBJECT: Hi\n", "-|-|SUBJECT: Hi\n||0");
        row("body line overwrites while fields are missing", "From: a\nSubject: s\n\nFrom: body\n",
            "body\n|-|s\n|-|0");
        row("field labels only at line starts",
            "From: a\n\nab: c\nxTo: no\nbody To: no\n" + QByteArray(70, 'y') + "\nTO: yes\n",
            "a\n|TO: yes\n|-|-|0");
        row("property-list doctype ends the fields",
            "From: a\n\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\">\nTo: late\n",
            "a\n|-|-|-|0");
    }
    void fields() {
        QFETCH(QByteArray, headers);
        QFETCH(QString, expected);
        // A header after the trailer is never read.
        const QString path = TestSupport::TempFile(Emlx(headers + "\nbody\n") + "Subject: late\n");
        MailItem item;
        QVERIFY(Analyse(path, &item));
        const QString got =
            QStringList{Field(item.from), Field(item.to), Field(item.subject),
                        item.date.isNull() ? QStringLiteral("-") : QString::fromLatin1(item.date),
                        QString::number(item.iPriority)}
                .join('|');
        QCOMPARE(item.flags, std::optional<quint64>(8590195717ULL)); // Mail's read, seen ...
        QCOMPARE(got, expected);
    }

    // A key is read from the outer dictionary only, however the trailer
    // spells it; "-" is no such integer.
    void trailerIntegers_data() {
        QTest::addColumn<QByteArray>("dict");
        QTest::addColumn<QString>("expected");
        auto row = [](const char* name, const QByteArray& dict, const char* expected) {
            QTest::newRow(name) << dict << QString::fromLatin1(expected);
        };
        row("plain",
            "<key>flags</key><integer>1</integer><key>date-received</key>\n"
            "\t<integer>1362492429</integer>",
            "1362492429");
        row("absent", "<key>flags</key><integer>1</integer>", "-");
        row("not an integer", "<key>date-received</key><string>7</string>", "-");
        row("only in an inner dictionary",
            "<key>x</key><dict><key>date-received</key><integer>5</integer></dict>", "-");
        row("after an inner dictionary",
            "<key>x</key><dict><key>y</key><integer>5</integer></dict>"
            "<key>date-received</key><integer>6</integer>",
            "6");
        row("spelt with an entity", "<key>date&#45;received</key><integer>7</integer>", "7");
        row("split by a comment", "<key>date<!-- -->-received</key><integer>8</integer>", "8");
        row("in a CDATA section", "<key><![CDATA[date-received]]></key><integer>9</integer>", "9");
        row("name as a value only", "<key>s</key><string>date-received</string>", "-");
        row("negative", "<key>date-received</key><integer>-1</integer>", "18446744073709551615");
    }
    void trailerIntegers() {
        QFETCH(QByteArray, dict);
        QFETCH(QString, expected);
        const QByteArray trailer = TestSupport::Trailer(dict);
        const auto got = emlx::TrailerInteger(trailer.constData(), trailer.size(), "date-received");
        QCOMPARE(got ? QString::number(*got) : QStringLiteral("-"), expected);
    }

    void mailDates_data() {
        QTest::addColumn<QString>("date");
        QTest::addColumn<QByteArray>("expected");
        auto row = [](const char* date, const char* expected) {
            QTest::newRow(date) << QString::fromUtf8(date) << QByteArray(expected);
        };
        row("Tue, 05 Mar 2013 14:07:09 +0000", "05 Mar 2013 02:07:09 PM");
        row("5 mar 2013 00:00:00 -0700", "05 Mar 2013 12:00:00 AM");
        row("Sat, 31 Dec 1999 12:00:00 EST", "31 Dec 1999 12:00:00 PM");
        row("Tue, 5 Mar 2013 23:59:61 (UTC)", "05 Mar 2013 11:59:61 PM");
        row("Tuesday, 05 March 2013 14:07:09", "05 Mar 2013 02:07:09 PM");
        row("Mon, 05 Mar 13 14:07:09", "05 Mar 13 02:07:09 PM");
        row("05 Mar 0999 14:07:09", "05 Mar 999 02:07:09 PM");
        row("Tue, 05 Mar 2013 24:00:00", "");
        row("Xyz, 05 Mar 2013 14:07:09", "");
    }
    void mailDates() {
        QFETCH(QString, date);
        QFETCH(QByteArray, expected);
        QCOMPARE(FormatMailDate(date), expected);
    }

    void dateInOtherLocale() {
        // Month and day names are English whatever the process locale is.
        const char* old = setlocale(LC_ALL, nullptr);
        const QByteArray saved = old ? QByteArray(old) : QByteArray("C");
        if (!setlocale(LC_ALL, "de_DE.UTF-8") && !setlocale(LC_ALL, "fr_FR.UTF-8"))
            QSKIP("no other locale installed");
        const QByteArray got = FormatMailDate(QStringLiteral("Tue, 05 Mar 2013 14:07:09 +0000"));
        setlocale(LC_ALL, saved.constData());
        QCOMPARE(got, QByteArray("05 Mar 2013 02:07:09 PM"));
    }

    void qDecode_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QByteArray>("bytes");
        auto row = [](const char* name, const char* text, const QByteArray& bytes) {
            QTest::newRow(name) << QString::fromUtf8(text) << bytes;
        };
        row("upper and lower hex", "a=3Db=c3=a9", "a=b\xc3\xa9");
        row("underscore kept", "a_b", "a_b");
        row("one digit before the end", "=4", "@");
        row("equals at the end", "x=", QByteArray("x\0", 2));
        row("non-hex digits count 0", "=G1=ZZ", QByteArray("\x01\0", 2));
        row("latin-1 character, character above 255", "é€", QByteArray("\xe9\0", 2));
    }
    void qDecode() {
        QFETCH(QString, text);
        QFETCH(QByteArray, bytes);
        QCOMPARE(ScaningThread::QDecode(text), bytes);
    }

    void notRegularFiles() {
        QTemporaryDir dir;
        MailItem item;
        QVERIFY(!Analyse(dir.filePath("missing.emlx"), &item));
        QVERIFY(!Analyse(dir.path(), &item));
        const QString fifo = dir.filePath("fifo.emlx");
        QCOMPARE(mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
        QVERIFY(!Analyse(fifo, &item)); // must not block
        QVERIFY(item.from.isEmpty() && !item.HasAttachments());
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

QTEST_APPLESS_MAIN(MimeTest)
#include "tst_core_mime.moc"
