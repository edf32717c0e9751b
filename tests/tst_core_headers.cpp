// Header fields of a message: From, To, Subject, Date, X-Priority, encoded
// words and the quoted-printable decoder.
#include "scanner/MessageAnalysis.h"
#include "scanner/MimePasses.h"
#include "scanner/Records.h"
#include "scanner/ScaningThread.h"
#include "tests/TestSupport.h"

#include <QtTest>

using TestSupport::Emlx;

namespace {
QString Field(const char* buffer, quint32 size) {
    return buffer ? Utf16Text(buffer, size) : QStringLiteral("-");
}
} // namespace

class HeadersTest : public QObject {
    Q_OBJECT

private slots:
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
        MailItem* item = NewMailItem();
        QVERIFY(AnalyseMessageFile(path, item));
        const QString got =
            QStringList{Field(item->pFrom, item->ulFromSize), Field(item->pTo, item->ulToSize),
                        Field(item->pSubject, item->ulSubjectSize),
                        item->pDate ? QString::fromLatin1(item->pDate, int(item->ulDateSize))
                                    : QStringLiteral("-"),
                        QString::number(item->iPriority)}
                .join('|');
        FreeMailItem(item);
        QCOMPARE(got, expected);
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
};

QTEST_APPLESS_MAIN(HeadersTest)
#include "tst_core_headers.moc"
