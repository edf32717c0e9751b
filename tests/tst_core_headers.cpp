// Header fields of a message: From, To, Subject, Date, X-Priority, encoded
// words and the quoted-printable decoder.
#include "MessageAnalysis.h"
#include "MimePasses.h"
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
QString Field(const char* buffer, quint32 size) {
    return buffer ? Utf16Text(buffer, size) : QStringLiteral("-");
}
} // namespace

class HeadersTest : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;
    int m_count = 0;

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
        row("plain fields keep their line feed",
            "From: Ann <a@example.org>\n" + to + "X-Priority: 3 (Normal)\nSubject: Hi\n" + date,
            "Ann <a@example.org>\n|b@example.org\n|Hi\n|05 Mar 2013 02:07:09 PM|3");
        row("no subject, no date", "From: a\n" + to, "a\n|b@example.org\n|-|-|0");
        row("priority without digit", "X-Priority: (none)\nFrom: a\n", "a\n|-|-|-|0");
        row("priority after the four fields is not read",
            "From: a\n" + to + "Subject: s\n" + date + "X-Priority: 1\n",
            "a\n|b@example.org\n|s\n|05 Mar 2013 02:07:09 PM|0");
        row("q word keeps underscore", "From: =?utf-8?Q?J=C3=B6rg_M?=\n", "Jörg_M|-|-|-|0");
        row("q word followed by an address is decoded whole", "From: =?utf-8?Q?J=C3=B6rg?= <j@x>\n",
            QString::fromUtf8("Jörg?\0j@x>\n|-|-|-|0", 20));
        row("b word with codec", "To: =?iso-8859-1?B?" + QByteArray("Zo\xeb").toBase64() + "?=\n",
            "-|Zoë|-|-|0");
        row("b word, unknown charset read as utf-8", "To: =?x-nothing?B?" + B64("Zoë") + "?=\n",
            "-|Zoë|-|-|0");
        row("unknown encoding keeps the text", "From: =?utf-8?X?abc?=\n",
            "=?utf-8?X?abc?=\n|-|-|-|0");
        row("ks_c_5601-1987 read as cp949", "Subject: =?ks_c_5601-1987?Q?=BA=B8=B0=ED=BC=AD?=\n",
            "-|-|보고서|-|0");
        row("subject words joined, text after a word kept",
            "Subject:  =?utf-8?Q?Caf=C3=A9?= =?utf-8?b?" + B64("ä") + "?= =?UTF-8?q?x?= done\n",
            "-|-|Caféäx done|-|0");
        row("folded subject with encoded continuation, then From",
            "Subject: =?utf-8?Q?a?=\n =?utf-8?Q?b?=\n\tplain\nFrom: f\n", "f\n|-|ab\tplain\n|-|0");
        row("folded to", "To: a@x,\n b@y\nFrom: f\n", "f\n|a@x,\n b@y\n|-|-|0");
        row("folded date", "Date: Tue, 05 Mar 2013\n 14:07:09 +0000\n",
            "-|-|-|05 Mar 2013 02:07:09 PM|0");
        row("seek back by characters lands inside a line",
            "Date: 5 Mar 13 01:02:03\nSubject: \xc3\xb1\n", "-|-|-|05 Mar 2013 01:02:03 AM|0");
        row("date with zone name and full weekday", "Date: Tuesday, 05 March 2013 14:07:09 EST\n",
            "-|-|-|05 Mar 2013 02:07:09 PM|0");
        row("long date beyond a small buffer",
            "Date: Tue, 05 Mar 2013 14:07:09 +0000 (" + QByteArray(300, 'c') + ")\n",
            "-|-|-|05 Mar 2013 02:07:09 PM|0");
        row("unparsable date is empty", "Date: yesterday\n", "-|-|-||0");
        row("body line overwrites while fields are missing", "From: a\nSubject: s\n\nFrom: body\n",
            "body\n|-|s\n|-|0");
        row("field labels only at line starts",
            "From: a\n\nab: c\nxTo: no\nbody To: no\n" + QByteArray(70, 'y') + "\nTO: yes\n",
            "a\n|TO: yes\n|-|-|0");
        row("property-list doctype ends the fields",
            "From: a\n\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\">\nTo: late\n",
            "a\n|-|-|-|0");
        row("upper-case label is not removed", "SUBJECT: Hi\n", "-|-|SUBJECT: Hi\n|-|0");
    }
    void fields() {
        QFETCH(QByteArray, headers);
        QFETCH(QString, expected);
        const QString path = m_dir.filePath(QString::number(++m_count) + ".emlx");
        // A header after the trailer is never read.
        QVERIFY(TestSupport::WriteFile(path, Emlx(headers + "\nbody\n") + "Subject: late\n"));
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
        QTest::newRow("upper hex") << "a=3Db" << QByteArray("a=b");
        QTest::newRow("lower hex") << "=c3=a9" << QByteArray("\xc3\xa9");
        QTest::newRow("underscore kept") << "a_b" << QByteArray("a_b");
        QTest::newRow("one digit before the end") << "=4" << QByteArray("@");
        QTest::newRow("equals at the end") << "x=" << QByteArray("x\0", 2);
        QTest::newRow("non-hex digits count 0") << "=G1=ZZ" << QByteArray("\x01\0", 2);
        QTest::newRow("latin-1 character") << QString::fromUtf8("é") << QByteArray("\xe9");
        QTest::newRow("character above 255") << QString::fromUtf8("€") << QByteArray("\0", 1);
    }
    void qDecode() {
        QFETCH(QString, text);
        QFETCH(QByteArray, bytes);
        QCOMPARE(ScaningThread::QDecode(text), bytes);
    }
};

QTEST_APPLESS_MAIN(HeadersTest)
#include "tst_core_headers.moc"
