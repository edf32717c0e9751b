// Attachments: which parts are listed, their names and ranges, encoded
// names, and the pairing of partial messages with their .emlxpart files.
#include "scanner/MessageAnalysis.h"
#include "scanner/MessageFile.h"
#include "scanner/ScaningThread.h"
#include "scanner/Store.h"
#include "tests/TestSupport.h"

#include <QtTest>

using TestSupport::Emlx;
using TestSupport::TempFile;

namespace {
// A mixed message whose second part has the given header lines.
QByteArray WithPart(const QByteArray& partHeaders) {
    return "From: a@example.org\nContent-Type: multipart/mixed; boundary=\"b\"\n\n"
           "--b\nContent-Type: text/plain\n\ntext\n--b\n" +
           partHeaders + "\nQUJD\n--b--\n";
}

struct Entry {
    QString name, partFile;
    qint64 start, end;
};

QVector<Entry> Analyse(const QString& path, const QStringList& partFiles = {}) {
    MessageFile file;
    MailItem item;
    QVector<Entry> out;
    if (AnalyseMessageFile(file, path, partFiles, &item) == Analysis::Message)
        for (const AttachmentEntry& a : item.attachments)
            out.append({a.name, item.PartFilePath(a), a.llStart, a.llEnd});
    return out;
}
} // namespace

class AttachmentsTest : public QObject {
    Q_OBJECT
    int m_count = 0;

private slots:
    void names_data() {
        QTest::addColumn<QByteArray>("message");
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<bool>("framed");
        auto row = [](const char* name, const QByteArray& message, const QStringList& names,
                      bool framed = true) { QTest::newRow(name) << message << names << framed; };
        const QByteArray png = "Content-Type: image/png; name=\"a.png\"\n";
        const QByteArray att = "Content-Disposition: attachment; filename=\"a.png\"\n";
        const QByteArray cid = "Content-ID: <c>\n";
        row("text body marker is no content id", WithPart(png + "Content-ID: html-body\n"), {});
        row("unquoted continuation name", WithPart("Content-Type: video/mp4;\n name=clip;\n" + cid),
            {"clip.mp4"});
        row("dotted name kept whatever the type",
            WithPart("Content-Type: image/png; name=\"a.jpg\"\n" + cid), {"a.jpg"});
        row("no name", WithPart("Content-Type: image/png;\n" + cid), {".png"});
        row("disposition without file name", WithPart(png + "Content-Disposition: inline\n"), {});
        row("text part never listed", WithPart("Content-Type: text/plain; name=\"a.png\"\n" + att),
            {});
        row("unknown line before the type stops the part", WithPart("X-Foo: 1\n" + png + cid), {});
        row("innermost level first",
            QByteArray("Content-Type: multipart/mixed; boundary=\"o\"\n\n--o\nContent-Type: "
                       "application/pdf; name=\"outer.pdf\"\nContent-Disposition: attachment; "
                       "filename=\"outer.pdf\"\n\nX\n--o\nContent-Type: multipart/related; "
                       "boundary=\"i\"\n\n--i\nContent-Type: image/png; "
                       "name=\"inner.png\"\nContent-ID: <i>\n\nY\n--i--\n--o--\n"),
            {"inner.png", "outer.pdf"});
        row("header cut by the end of the file",
            QByteArray("Content-Type: multipart/mixed; boundary=\"b\"\n\n--b\nContent-Type: "
                       "image/png; name=\"a.png\"\nContent-ID: <c>\n"),
            {}, false);
    }
    void names() {
        QFETCH(QByteArray, message);
        QFETCH(QStringList, names);
        QFETCH(bool, framed);
        // Unframed: no trailer, the file ends where the message ends.
        const QByteArray file = framed ? Emlx(message) : "10\n" + message;
        QStringList got;
        for (const Entry& e : Analyse(TempFile(file)))
            got << e.name;
        QCOMPARE(got, names);
    }

    void ranges() {
        // Two attachments in a level that is never closed and has no
        // trailer: the first ends at the next delimiter line, the last at
        // the byte count of the first line minus its body start.
        const QByteArray message = "Content-Type: multipart/mixed; boundary=\"b\"\n\n"
                                   "--b\nContent-Type: image/png\nContent-ID: <1>\n\nONE\n"
                                   "--b\nContent-Type: image/png\nContent-ID: <2>\n\nTWO\n";
        const QByteArray file = QByteArray::number(message.size()) + "\n" + message;
        const QVector<Entry> got = Analyse(TempFile(file));
        QCOMPARE(got.size(), 2);
        QCOMPARE(got[0].start, qint64(file.indexOf("ONE")));
        QCOMPARE(got[0].end, qint64(file.indexOf("--b", file.indexOf("ONE"))));
        QCOMPARE(got[1].start, qint64(file.indexOf("TWO")));
        QCOMPARE(got[1].end, qint64(message.size() - file.indexOf("TWO")));
    }

    void decodeAttName_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("name");
        auto row = [](const char* name, const QString& text, const char* decoded) {
            QTest::newRow(name) << text << QString::fromUtf8(decoded);
        };
        auto b64 = [](const char* head, const QByteArray& bytes) {
            return QString::fromLatin1(head + bytes.toBase64() + "?=");
        };
        row("not encoded", "a.pdf", "");
        row("base64 is utf-8 whatever the charset", b64("=?iso-8859-1?B?", "ü.txt"), "ü.txt");
        row("base64 stops at nul", b64("=?utf-8?B?", QByteArray("a\0b", 3)), "a");
        row("q without charset is utf-8", "=??Q?=C3=A9?=", "é");
        row("q unknown charset is latin-1", "=?x-nothing?Q?=E9t=E9?=", "été");
        row("lower-case encoding", "=?utf-8?q?abc?=", "");
        row("text after the word up to the quote", "=?utf-8?Q?caf=C3=A9?= menu.pdf\"",
            "café menu.pdf");
        row("second word not decoded", "=?utf-8?Q?a?= =?utf-8?Q?b?=\"", "a =?utf-8?Q?");
        row("no closing mark", "=?utf-8?Q?abc", "");
    }
    void decodeAttName() {
        QFETCH(QString, text);
        QFETCH(QString, name);
        QCOMPARE(ScaningThread::DecodeAttName(text), name);
    }

    void partialPairing_data() {
        QTest::addColumn<QString>("messageName");
        QTest::addColumn<QStringList>("listed"); // part files in discovery order
        QTest::addColumn<QStringList>("paired"); // per attachment, "" for none
        auto row = [](const char* name, const char* message, const QStringList& listed,
                      const QStringList& paired) {
            QTest::newRow(name) << message << listed << paired;
        };
        // Paired by the section in the name (the text part is section 1),
        // whatever order the files are listed in.
        const QStringList inOrder{"12.2.emlxpart", "12.3.emlxpart"};
        row("listed 2 then 3", "12.partial.emlx", inOrder, inOrder);
        row("listed 3 then 2", "12.partial.emlx", {"12.3.emlxpart", "12.2.emlxpart"}, inOrder);
        row("a neighbour's parts are no candidates", "12.partial.emlx",
            {"112.2.emlxpart", "123.2.emlxpart", "12.3.emlxpart"}, {"", "12.3.emlxpart"});
        row("fewer files than parts", "12.partial.emlx", {"12.2.emlxpart"}, {"12.2.emlxpart", ""});
        // Names without a section are taken in listing order.
        row("no section in the names", "12.partial.emlx", {"12.b.emlxpart", "12.a.emlxpart"},
            {"12.b.emlxpart", "12.a.emlxpart"});
        row("not partial", "12.emlx", inOrder, {"", ""});
    }
    void partialPairing() {
        QFETCH(QString, messageName);
        QFETCH(QStringList, listed);
        QFETCH(QStringList, paired);
        const QByteArray part = "--b\nContent-Type: application/pdf; name=\"p.pdf\"\n"
                                "Content-Disposition: attachment; filename=\"p.pdf\"\n"
                                "X-Apple-Content-Length: 100\n\n";
        const QByteArray message = "Content-Type: multipart/mixed; boundary=\"b\"\n\n"
                                   "--b\nContent-Type: text/plain\n\nhi\n" +
                                   part + part + "--b--\n";
        const QString path =
            TempFile(Emlx(message), QStringLiteral("p%1/Messages/").arg(++m_count) + messageName);
        const QString dir = path.left(path.lastIndexOf('/') + 1);
        QStringList partFiles;
        for (const QString& name : listed)
            partFiles.append(dir + name);
        const QVector<Entry> got = Analyse(path, partFiles);
        QStringList files;
        for (const Entry& e : got)
            files << (e.partFile.isEmpty() ? QString() : e.partFile.mid(dir.size()));
        QCOMPARE(files, paired);
    }
};

QTEST_APPLESS_MAIN(AttachmentsTest)
#include "tst_core_attachments.moc"
