// What the preview reads back from a message (body text by transfer encoding
// and charset, decoded attachments with safe file names) and the mailbox
// selection dialog.
#include "app/SelectData.h"
#include "scanner/FileAccess.h"
#include "scanner/MailPaths.h"
#include "scanner/MessageAnalysis.h"
#include "scanner/MessageFile.h"
#include "scanner/Store.h"
#include "tests/TestSupport.h"
#include "ui/PreviewDecoding.h"
#include "ui_BrowseWindow.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>

namespace {
// The directory chooser is replaced by a scripted answer.
class ScriptedSelectData : public SelectData {
public:
    QString answer;

protected:
    QString AskForDirectory() override { return answer; }
};

// Writes a message, analyses it and returns its record.
MailItem Analysed(const QString& path, const QByteArray& message) {
    TestSupport::WriteFile(path, TestSupport::Emlx(message));
    MessageFile file;
    MailItem item;
    AnalyseMessageFile(file, path, {}, &item);
    item.SetPath(path);
    return item;
}

QByteArray Alternative(const QByteArray& plainHeaders, const QByteArray& plain,
                       const QByteArray& htmlHeaders, const QByteArray& html) {
    return "From: a@example.org\nSubject: t\nMIME-Version: 1.0\n"
           "Content-Type: multipart/alternative; boundary=\"b1\"\n\n"
           "--b1\n" +
           plainHeaders + "\n" + plain + "\n--b1\n" + htmlHeaders + "\n" + html + "\n--b1--\n";
}
} // namespace

class TestPreview : public QObject {
    Q_OBJECT
    QTemporaryDir dir;

private slots:
    // The transfer encoding is one field for both text parts (the last part
    // sets it), so each message gives both parts the same encoding.
    void bodyText_data() {
        QTest::addColumn<QByteArray>("message");
        QTest::addColumn<bool>("html");
        QTest::addColumn<QString>("expected");
        QTest::newRow("quoted-printable soft breaks and =3D")
            << Alternative("Content-Type: text/plain; charset=utf-8\n"
                           "Content-Transfer-Encoding: quoted-printable\n",
                           "caf=C3=A9 a=3Db long=\nline\nnext",
                           "Content-Type: text/html\nContent-Transfer-Encoding: quoted-printable\n",
                           "")
            << false << QString::fromUtf8("café a=b longline\nnext\n");
        QTest::newRow("base64 latin-1")
            << Alternative("Content-Type: text/plain; charset=iso-8859-1\n"
                           "Content-Transfer-Encoding: base64\n",
                           QByteArray("Gr\xfc\xdf"
                                      "e\n")
                               .toBase64(),
                           "Content-Type: text/html\nContent-Transfer-Encoding: base64\n", "")
            << false << QString::fromUtf8("Grüße\n");
        QTest::newRow("html chosen over plain")
            << Alternative("Content-Type: text/plain; charset=us-ascii\n", "plain text",
                           "Content-Type: text/html; charset=\"utf-8\"\n"
                           "Content-Transfer-Encoding: 8bit\n",
                           "<p>\xc3\xa9t\xc3\xa9</p>")
            << true << QString::fromUtf8("<p>été</p>\n");
        QTest::newRow("korean code page read as cp949")
            << Alternative("Content-Type: text/plain; charset=ks_c_5601-1987\n"
                           "Content-Transfer-Encoding: base64\n",
                           QByteArray("\xbe\xc8\xb3\xe7").toBase64(),
                           "Content-Type: text/html\nContent-Transfer-Encoding: base64\n", "")
            << false << QString::fromUtf8("안녕");
    }
    void bodyText() {
        QFETCH(QByteArray, message);
        QFETCH(bool, html);
        QFETCH(QString, expected);
        const MailItem m = Analysed(dir.path() + "/body.emlx", message);
        const QString text = html ? DecodeBodyRange(m.Path(), m.llHtmlStart, m.llHtmlEnd,
                                                    m.transferEncoding, m.htmlCharset)
                                  : DecodeBodyRange(m.Path(), m.llPlainStart, m.llPlainEnd,
                                                    m.transferEncoding, m.plainCharset);
        QCOMPARE(text, expected);
    }

    void noEncodingJoinsSoftBreaks() {
        const QString path = dir.path() + "/raw.txt";
        TestSupport::WriteFile(path, "ab=\ncd\nef=\n");
        const QByteArray none;
        QCOMPARE(DecodeBodyRange(path, 0, 11, none, "utf-8"), QStringLiteral("abcd\nef"));
        QCOMPARE(DecodeBodyRange(dir.path() + "/missing", 0, 11, none, none), QString());
        // Only regular files are read, without waiting on a FIFO.
        QVERIFY(::mkfifo(QFile::encodeName(dir.path() + "/fifo").constData(), 0600) == 0);
        QCOMPARE(DecodeBodyRange(dir.path() + "/fifo", 0, 11, none, none), QString());
        QCOMPARE(DecodeBodyRange(dir.path(), 0, 11, none, none), QString());
    }

    void safeNames_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("safe");
        auto row = [](const char* name, const char* in, const char* out) {
            QTest::newRow(name) << QString(in) << QString(out);
        };
        row("path", "../../etc/passwd", ".._.._etc_passwd");
        row("dot dot", "..", "_..");
        row("backslash and control", "a\\b\tc", "a_b_c");
        row("empty", "", "_");
        row("quote and dollar kept", "it's $x.txt", "it's $x.txt");
    }
    void safeNames() {
        QFETCH(QString, name);
        QFETCH(QString, safe);
        QCOMPARE(SafeFileName(name), safe);
    }

    // The position prefix makes "1"+"0A.txt" and "10"+"a.txt" one name (on
    // a file system that ignores case); a name is cut to fit the limit in
    // bytes, keeping a short extension and whole characters.
    void attachmentNames_data() {
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<QStringList>("files");
        QStringList names{"x", "0A.txt"}, files{"0x", "10A.txt"};
        for (int i = 2; i < 10; ++i) {
            names << "x";
            files << QString::number(i) + "x";
        }
        QTest::newRow("prefix collision") << (names << "a.txt") << (files << "10a (2).txt");
        QTest::newRow("long name keeps its extension")
            << QStringList{QString(300, 'n') + ".pdf"}
            << QStringList{"0" + QString(250, 'n') + ".pdf"};
        QTest::newRow("two-byte letters stay whole")
            << QStringList{QString(200, QChar(0xE9)) + ".txt"}
            << QStringList{"0" + QString(125, QChar(0xE9)) + ".txt"};
        QTest::newRow("long extension is not kept")
            << QStringList{"a." + QString(300, 'x')} << QStringList{"0a." + QString(252, 'x')};
    }
    void attachmentNames() {
        QFETCH(QStringList, names);
        QFETCH(QStringList, files);
        QCOMPARE(AttachmentFileNames(names, 255), files);
    }

    void attachmentsAreDecodedBesideEachOther() {
        const QByteArray png = QByteArray("\x89PNG\r\n\x1a\n", 8) + QByteArray(300, '\x07');
        const QByteArray b64 = png.toBase64();
        QByteArray lines;
        for (int i = 0; i < b64.size(); i += 76)
            lines += b64.mid(i, 76) + "\n";
        auto part = [&](const QByteArray& name) {
            return "--m\nContent-Type: image/png; name=\"" + name +
                   "\"\nContent-Disposition: attachment; filename=\"" + name +
                   "\"\nContent-Transfer-Encoding: base64\n\n" + lines;
        };
        const QByteArray message = "Subject: a\nContent-Type: multipart/mixed; boundary=m\n\n"
                                   "--m\nContent-Type: text/plain\n\nhi\n" +
                                   part("a.png") + part("a.png") + part("../evil.png") + "--m--\n";
        const MailItem m = Analysed(dir.path() + "/att.emlx", message);
        // Links planted at the folder or at a file name are not followed.
        const QString folder = dir.path() + "/att", victim = dir.path() + "/victim";
        QVERIFY(TestSupport::WriteFile(victim + "/mine", "mine"));
        QVERIFY(QFile::link(victim, dir.path() + "/link"));
        QCOMPARE(WriteAttachments(m, dir.path() + "/link").size(), 3);
        QVERIFY(pellomar::MakePrivateFolder(folder) &&
                QFile::link(victim + "/mine", folder + "/0a.png"));
        const QStringList names = WriteAttachments(m, folder);
        QCOMPARE(names, (QStringList{"0a.png", "1a.png", "2.._evil.png"}));
        for (const QString& n : names) {
            QCOMPARE(TestSupport::ReadFile(folder + "/" + n), png);
            QVERIFY(!(QFileInfo(folder + "/" + n).permissions() & 0x77));
        }
        QVERIFY(!QFileInfo::exists(dir.path() + "/evil.png"));
        QCOMPARE(QDir(victim).entryList(QDir::Files), QStringList{"mine"});
        QCOMPARE(TestSupport::ReadFile(victim + "/mine"), QByteArray("mine"));
    }

    // Mail's decoded copy of a removed part is listed and copied byte for byte.
    void decodedPartIsCopied() {
        const QByteArray bytes("a\r\nb\0c", 6);
        QVERIFY(TestSupport::WriteFile(dir.path() + "/Data/Attachments/9/2/x y.bin", bytes));
        const MailItem m = Analysed(dir.path() + "/Data/Messages/9.partial.emlx",
                                    "Content-Type: multipart/mixed; boundary=b\n\n--b\n\nhi\n--b\n"
                                    "Content-Type: application/pdf; name=\"x y.bin\"\n"
                                    "Content-Disposition: attachment; filename=\"x y.bin\"\n"
                                    "X-Apple-Content-Length: 6\n\n--b--\n");
        QCOMPARE(WriteAttachments(m, dir.path() + "/decoded"), QStringList{"0x y.bin"});
        QCOMPARE(TestSupport::ReadFile(dir.path() + "/decoded/0x y.bin"), bytes);
    }

    // The dialog proposes the user's store; a cancelled chooser leaves the
    // folder shown as it was.
    void selectData_data() {
        QTest::addColumn<QStringList>("answers");
        QTest::addColumn<QString>("expected");
        const QString def = DefaultMailPathFor(pellomar::ConsoleUserName());
        QTest::newRow("proposed") << QStringList{} << def;
        QTest::newRow("chosen folder") << QStringList{"/data/Mail"} << "/data/Mail";
        QTest::newRow("cancel after a choice") << QStringList{"/data/Mail", ""} << "/data/Mail";
    }
    void selectData() {
        QFETCH(QStringList, answers);
        QFETCH(QString, expected);
        ScriptedSelectData dlg;
        for (const QString& a : answers) {
            dlg.answer = a;
            dlg.OpenFileDialog();
        }
        QCOMPARE(dlg.m_strInputfilepath, expected);
        QCOMPARE(dlg.ui->SelectPSTLEdit->text(), expected);
        QVERIFY(dlg.ui->StartButton->isEnabled());
    }

    void selectDataStartHidesAndSignals() {
        ScriptedSelectData dlg;
        dlg.show();
        QSignalSpy spy(&dlg, &SelectData::StartScanning);
        QTest::mouseClick(dlg.ui->StartButton, Qt::LeftButton);
        QCOMPARE(spy.count(), 1);
        QVERIFY(!dlg.isVisible());
        dlg.show();
        QTest::mouseClick(dlg.ui->closeButton, Qt::LeftButton);
        QVERIFY(!dlg.isVisible());
        QCOMPARE(spy.count(), 1);
    }

    // The store scanned last is proposed next time, and Browse starts
    // there, while it exists; then the user's store and the home folder.
    void selectDataRemembersTheLastStore() {
        QTemporaryDir store;
        {
            ScriptedSelectData dlg;
            dlg.answer = store.path();
            dlg.OpenFileDialog();
            QTest::mouseClick(dlg.ui->StartButton, Qt::LeftButton);
        }
        ScriptedSelectData again;
        QCOMPARE(again.ui->SelectPSTLEdit->text(), store.path());
        QCOMPARE(again.BrowseStart(), store.path());
        store.remove();
        ScriptedSelectData gone;
        const QString def = DefaultMailPathFor(pellomar::ConsoleUserName());
        QCOMPARE(gone.m_strInputfilepath, def);
        QCOMPARE(gone.BrowseStart(), QFileInfo(def).isDir() ? def : QDir::homePath());
    }
};

QTEST_MAIN(TestPreview)
#include "tst_gui_preview.moc"
