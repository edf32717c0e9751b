// Attachments: which parts are listed, their names and ranges, encoded
// names, and the pairing of partial messages with their .emlxpart files.
#include "Globals.h"
#include "MessageAnalysis.h"
#include "Records.h"
#include "ScaningThread.h"
#include "TestSupport.h"

#include <QTemporaryDir>
#include <QtTest>

using TestSupport::Emlx;

namespace {
QByteArray B64(const char* utf8) {
    return QByteArray(utf8).toBase64();
}

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

QVector<Entry> Analyse(const QString& path) {
    MailItem* item = NewMailItem();
    QVector<Entry> out;
    if (AnalyseMessageFile(path, item))
        for (AttachmentEntry* a = item->pAttachHead; a; a = a->pNext)
            out.append({Utf16Text(a->pName, a->ulNameSize),
                        a->pPartFile ? Utf16Text(a->pPartFile, a->ulPartFileSize) : QString(),
                        a->llStart, a->llEnd});
    FreeMailItem(item);
    return out;
}
} // namespace

class AttachmentsTest : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;
    int m_count = 0;

    QString Write(const QByteArray& bytes, const QString& name = QString()) {
        const QString path =
            m_dir.filePath(name.isEmpty() ? QString::number(++m_count) + ".emlx" : name);
        if (!TestSupport::WriteFile(path, bytes))
            qFatal("cannot write");
        return path;
    }

private slots:
    void names_data() {
        QTest::addColumn<QByteArray>("message");
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<bool>("framed");
        auto row = [](const char* name, const QByteArray& message, const QStringList& names,
                      bool framed = true) { QTest::newRow(name) << message << names << framed; };
        row("disposition with file name",
            WithPart("Content-Type: image/png; name=\"a.png\"\nContent-Disposition: attachment; "
                     "filename=\"a.png\"\n"),
            {"a.png"});
        row("inline image with content id, name completed",
            WithPart("Content-Type: image/gif; name=\"logo\"\nContent-ID: <part1>\n"),
            {"logo.gif"});
        row("text body marker is no content id",
            WithPart("Content-Type: image/png; name=\"a.png\"\nContent-ID: html-body\n"), {});
        row("name and file name on tab lines",
            WithPart("Content-Type: application/pdf;\n\tname=\"x.pdf\"\nContent-Disposition: "
                     "attachment;\n\tfilename=\"x.pdf\"\n"),
            {"x.pdf"});
        row("unquoted continuation name",
            WithPart("Content-Type: video/mp4;\n name=clip;\nContent-ID: <c>\n"), {"clip.mp4"});
        row("dotted name kept whatever the type",
            WithPart("Content-Type: image/png; name=\"a.jpg\"\nContent-ID: <c>\n"), {"a.jpg"});
        row("no name", WithPart("Content-Type: image/png;\nContent-ID: <c>\n"), {".png"});
        row("encoded name",
            WithPart("Content-Type: application/pdf; name=\"=?utf-8?B?" + B64("résumé.pdf") +
                     "?=\"\nContent-ID: <c>\n"),
            {QString::fromUtf8("résumé.pdf")});
        row("disposition without file name",
            WithPart("Content-Type: image/png; name=\"a.png\"\nContent-Disposition: inline\n"), {});
        row("text part never listed",
            WithPart("Content-Type: text/plain; name=\"a.txt\"\nContent-Disposition: attachment; "
                     "filename=\"a.txt\"\n"),
            {});
        row("unknown line before the type stops the part",
            WithPart("X-Foo: 1\nContent-Type: image/png; name=\"a.png\"\nContent-ID: <c>\n"), {});
        row("base64 line first is passed over",
            WithPart("Content-Transfer-Encoding: base64\nContent-Type: image/png; "
                     "name=\"a.png\"\nContent-ID: <c>\n"),
            {"a.png"});
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
        for (const Entry& e : Analyse(Write(file)))
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
        const QVector<Entry> got = Analyse(Write(file));
        QCOMPARE(got.size(), 2);
        QCOMPARE(got[0].start, qint64(file.indexOf("ONE")));
        QCOMPARE(got[0].end, qint64(file.indexOf("--b", file.indexOf("ONE"))));
        QCOMPARE(got[1].start, qint64(file.indexOf("TWO")));
        QCOMPARE(got[1].end, qint64(message.size() - file.indexOf("TWO")));
    }

    void decodeAttName_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("name");
        QTest::newRow("not encoded") << "a.pdf"
                                     << "";
        auto word = [](const char* head, const QByteArray& bytes) {
            return QString::fromLatin1(head + bytes.toBase64() + "?=");
        };
        QTest::newRow("base64 utf-8") << word("=?utf-8?B?", "ü.txt") << "ü.txt";
        QTest::newRow("base64 ignores the charset") << word("=?iso-8859-1?B?", "ü") << "ü";
        QTest::newRow("base64 stops at nul") << word("=?utf-8?B?", QByteArray("a\0b", 3)) << "a";
        QTest::newRow("q with cp949") << "=?ks_c_5601-1987?Q?=BA=B8=B0=ED=BC=AD.txt?="
                                      << "보고서.txt";
        QTest::newRow("q without charset is utf-8") << "=??Q?=C3=A9?="
                                                    << "é";
        QTest::newRow("q unknown charset is latin-1") << "=?x-nothing?Q?=E9t=E9?="
                                                      << "été";
        QTest::newRow("lower-case encoding") << "=?utf-8?q?abc?="
                                             << "";
        QTest::newRow("text after the word up to the quote") << "=?utf-8?Q?caf=C3=A9?= menu.pdf\""
                                                             << "café menu.pdf";
        QTest::newRow("second word not decoded") << "=?utf-8?Q?a?= =?utf-8?Q?b?=\""
                                                 << "a =?utf-8?Q?";
        QTest::newRow("no closing mark") << "=?utf-8?Q?abc"
                                         << "";
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
        QTest::newRow("in list order")
            << "12.partial.emlx" << QStringList{"12.2.emlxpart", "12.3.emlxpart"}
            << QStringList{"12.2.emlxpart", "12.3.emlxpart"};
        QTest::newRow("listed 3 then 2")
            << "12.partial.emlx" << QStringList{"12.3.emlxpart", "12.2.emlxpart"}
            << QStringList{"12.3.emlxpart", "12.2.emlxpart"};
        QTest::newRow("other message's parts are no candidates")
            << "12.partial.emlx" << QStringList{"112.2.emlxpart", "12.3.emlxpart"}
            << QStringList{"12.3.emlxpart", ""};
        QTest::newRow("fewer files than parts") << "12.partial.emlx" << QStringList{"12.2.emlxpart"}
                                                << QStringList{"12.2.emlxpart", ""};
        QTest::newRow("not partial")
            << "12.emlx" << QStringList{"12.2.emlxpart", "12.3.emlxpart"} << QStringList{"", ""};
    }
    void partialPairing() {
        QFETCH(QString, messageName);
        QFETCH(QStringList, listed);
        QFETCH(QStringList, paired);
        const QString dir = m_dir.filePath(QString::number(++m_count) + "/Messages/");
        auto part = [](const char* name) {
            return QByteArray("--b\nContent-Type: application/pdf; name=\"") + name +
                   "\"\nContent-Disposition: attachment; filename=\"" + name +
                   "\"\nX-Apple-Content-Length: 100\n\n";
        };
        const QByteArray message = "Content-Type: multipart/mixed; boundary=\"b\"\n\n" +
                                   part("p.pdf") + part("q.pdf") + "--b--\n";
        const QString path = Write(Emlx(message), dir.mid(m_dir.path().size() + 1) + messageName);
        listOfPathOfEmlxPart.clear();
        for (const QString& name : listed)
            listOfPathOfEmlxPart.append(dir + name);
        const QVector<Entry> got = Analyse(path);
        listOfPathOfEmlxPart.clear();
        QStringList files;
        for (const Entry& e : got)
            files << (e.partFile.isEmpty() ? QString() : e.partFile.mid(dir.size()));
        QCOMPARE(files, paired);
    }
};

QTEST_APPLESS_MAIN(AttachmentsTest)
#include "tst_core_attachments.moc"
