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
    return buffer ? Utf16Text(buffer, size) : QStringLiteral("<null>");
}
} // namespace

class HeadersTest : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;
    int m_count = 0;

private slots:
    void fields_data() {
        QTest::addColumn<QByteArray>("headers");
        QTest::addColumn<QString>("from");
        QTest::addColumn<QString>("to");
        QTest::addColumn<QString>("subject");
        QTest::addColumn<QString>("date");
        QTest::addColumn<int>("priority");
        const QByteArray to = "To: b@example.org\n";
        const QByteArray date = "Date: Tue, 05 Mar 2013 14:07:09 +0530\n";
        QTest::newRow("plain fields keep their line feed")
            << "From: Ann <a@example.org>\n" + to + "X-Priority: 3 (Normal)\nSubject: Hi\n" + date
            << "Ann <a@example.org>\n"
            << "b@example.org\n"
            << "Hi\n"
            << "05 Mar 2013 02:07:09 PM" << 3;
        QTest::newRow("no subject, no date") << QByteArray("From: a\n") + to << "a\n"
                                             << "b@example.org\n"
                                             << "<null>"
                                             << "<null>" << 0;
        QTest::newRow("priority without digit")
            << QByteArray("X-Priority: (none)\nFrom: a\n") << "a\n"
            << "<null>"
            << "<null>"
            << "<null>" << 0;
        QTest::newRow("priority after the four fields is not read")
            << "From: a\n" + to + "Subject: s\n" + date + "X-Priority: 1\n"
            << "a\n"
            << "b@example.org\n"
            << "s\n"
            << "05 Mar 2013 02:07:09 PM" << 0;
        QTest::newRow("q word keeps underscore") << QByteArray("From: =?utf-8?Q?J=C3=B6rg_M?=\n")
                                                 << QString::fromUtf8("Jörg_M") << "<null>"
                                                 << "<null>"
                                                 << "<null>" << 0;
        QTest::newRow("b word with codec")
            << "To: =?iso-8859-1?B?" + QByteArray("Zo\xeb").toBase64() + "?=\n"
            << "<null>" << QString::fromUtf8("Zoë") << "<null>"
            << "<null>" << 0;
        QTest::newRow("b word, unknown charset read as utf-8")
            << "To: =?x-nothing?B?" + B64("Zoë") + "?=\n"
            << "<null>" << QString::fromUtf8("Zoë") << "<null>"
            << "<null>" << 0;
        QTest::newRow("unknown encoding keeps the text")
            << QByteArray("From: =?utf-8?X?abc?=\n") << "=?utf-8?X?abc?=\n"
            << "<null>"
            << "<null>"
            << "<null>" << 0;
        QTest::newRow("ks_c_5601-1987 read as cp949")
            << QByteArray("Subject: =?ks_c_5601-1987?Q?=BA=B8=B0=ED=BC=AD?=\n") << "<null>"
            << "<null>" << QString::fromUtf8("보고서") << "<null>" << 0;
        QTest::newRow("subject words joined, text after a word kept")
            << "Subject:  =?utf-8?Q?Caf=C3=A9?= =?utf-8?b?" + B64("ä") + "?= =?UTF-8?q?x?= done\n"
            << "<null>"
            << "<null>" << QString::fromUtf8("Caféäx done") << "<null>" << 0;
        QTest::newRow("folded subject with encoded continuation, then From")
            << QByteArray("Subject: =?utf-8?Q?a?=\n =?utf-8?Q?b?=\n\tplain\nFrom: f\n") << "f\n"
            << "<null>"
            << "ab\tplain\n"
            << "<null>" << 0;
        QTest::newRow("folded to") << QByteArray("To: a@x,\n b@y\nFrom: f\n") << "f\n"
                                   << "a@x,\n b@y\n"
                                   << "<null>"
                                   << "<null>" << 0;
        QTest::newRow("folded date")
            << QByteArray("Date: Tue, 05 Mar 2013\n 14:07:09 +0000\n") << "<null>"
            << "<null>"
            << "<null>"
            << "05 Mar 2013 02:07:09 PM" << 0;
        QTest::newRow("seek back by characters lands inside a line")
            << QByteArray("Date: 5 Mar 13 01:02:03\nSubject: \xc3\xb1\n") << "<null>"
            << "<null>"
            << "<null>"
            << "05 Mar 2013 01:02:03 AM" << 0;
        QTest::newRow("date with zone name and full weekday")
            << QByteArray("Date: Tuesday, 05 March 2013 14:07:09 EST\n") << "<null>"
            << "<null>"
            << "<null>"
            << "05 Mar 2013 02:07:09 PM" << 0;
        QTest::newRow("long date beyond a small buffer")
            << "Date: Tue, 05 Mar 2013 14:07:09 +0000 (" + QByteArray(300, 'c') + ")\n"
            << "<null>"
            << "<null>"
            << "<null>"
            << "05 Mar 2013 02:07:09 PM" << 0;
        QTest::newRow("unparsable date is empty") << QByteArray("Date: yesterday\n") << "<null>"
                                                  << "<null>"
                                                  << "<null>"
                                                  << "" << 0;
        QTest::newRow("body line overwrites while fields are missing")
            << QByteArray("From: a\nSubject: s\n\nFrom: body\n") << "body\n"
            << "<null>"
            << "s\n"
            << "<null>" << 0;
        QTest::newRow("field labels only at line starts")
            << QByteArray("From: a\n\nab: c\nxTo: no\nbody To: no\n" + QByteArray(70, 'y') +
                          "\nTO: yes\n")
            << "a\n"
            << "TO: yes\n"
            << "<null>"
            << "<null>" << 0;
        QTest::newRow("property-list doctype ends the fields")
            << QByteArray("From: a\n\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\">\n"
                          "To: late\n")
            << "a\n"
            << "<null>"
            << "<null>"
            << "<null>" << 0;
        QTest::newRow("upper-case label is not removed") << QByteArray("SUBJECT: Hi\n") << "<null>"
                                                         << "<null>"
                                                         << "SUBJECT: Hi\n"
                                                         << "<null>" << 0;
    }
    void fields() {
        QFETCH(QByteArray, headers);
        QFETCH(QString, from);
        QFETCH(QString, to);
        QFETCH(QString, subject);
        QFETCH(QString, date);
        QFETCH(int, priority);
        const QString path = m_dir.filePath(QString::number(++m_count) + ".emlx");
        // A header after the trailer is never read.
        QVERIFY(TestSupport::WriteFile(path, Emlx(headers + "\nbody\n") + "Subject: late\n"));
        MailItem* item = NewMailItem();
        QVERIFY(AnalyseMessageFile(path, item));
        const QString gotFrom = Field(item->pFrom, item->ulFromSize);
        const QString gotTo = Field(item->pTo, item->ulToSize);
        const QString gotSubject = Field(item->pSubject, item->ulSubjectSize);
        const QString gotDate = item->pDate
                                    ? QString::fromLatin1(item->pDate, int(item->ulDateSize))
                                    : QStringLiteral("<null>");
        const int gotPriority = item->iPriority;
        FreeMailItem(item);
        QCOMPARE(gotFrom, from);
        QCOMPARE(gotTo, to);
        QCOMPARE(gotSubject, subject);
        QCOMPARE(gotDate, date);
        QCOMPARE(gotPriority, priority);
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
