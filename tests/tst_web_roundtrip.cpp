// The whole road through the window: scan the sample store, tick everything,
// save, and find the package on disk.
#include "export/ExportJob.h"
#include "scanner/ScaningThread.h"
#include "tests/GuiTestSupport.h"
#include "tests/TestSupport.h"
#include "ui/ExportOptions.h"
#include "ui/PreviewWindow.h"
#include "ui/ProgressDialogs.h"
#include "ui_ProgressDialog.h"

#include <QAction>
#include <QProgressBar>
#include <QSettings>
#include <QTemporaryDir>
#include <QTreeWidget>
#include <QtTest>

class TestRoundTrip : public QObject {
    Q_OBJECT
private slots:
    void scanTickAndSave() {
        QTemporaryDir tmp;
        const QString store = tmp.path() + "/Mail";
        const QString out = tmp.path() + "/out";
        QVERIFY(TestSupport::CopyFolder(TestSupport::SampleStore(), store));
        QVERIFY(QDir().mkpath(out));

        GuiTestSupport::ScriptedWindow w;
        w.closeevent = 1;
        w.show();
        w.m_strInputfilepath = store;
        auto scanned = GuiTestSupport::AnswerNextMessageBox(QMessageBox::Ok);
        w.OnStartScanning();
        QVERIFY(!w.m_pOpenFile->isEnabled());
        QTRY_VERIFY_WITH_TIMEOUT(scanned->seen, 30000);
        QCOMPARE(scanned->text, QStringLiteral("File scan completed successfully."));
        QCOMPARE(scanned->title, QStringLiteral("Vortiga"));
        QTRY_VERIFY(!w.m_pScaningThread->isRunning());
        QVERIFY(w.m_pSaveFile->isEnabled());
        QVERIFY(w.m_pOpenFile->isEnabled());

        // The last folder is shown.
        const FldrAtrib* last = w.m_store.EndFldrAtrib();
        QCOMPARE(w.m_pLeftTreeWidget->currentItem(), w.FolderItem(last->ullId));
        QCOMPARE(quint64(w.m_pCenterTreeWidget->topLevelItemCount()), last->MsgCount());
        // Every step of the scan reached the bar, none was taken by the bar
        // of an earlier run or lost to its reset.
        QProgressBar* bar = w.m_pProgressInfo->ui->ProgressBar;
        QCOMPARE(bar->value(), bar->maximum());

        // Tick the root and save.
        QTreeWidgetItem* root = w.m_pLeftTreeWidget->topLevelItem(0);
        root->setCheckState(0, Qt::Checked);
        // Three sample messages have 8-bit text: the save says so after the
        // import instructions.
        w.answers = QStringList{out};
        auto warned = GuiTestSupport::AnswerNextMessageBox(QMessageBox::Ok);
        w.OnSavingFiles();
        QVERIFY(!w.IsPreview);
        QTRY_VERIFY_WITH_TIMEOUT(w.IsPreview, 30000);
        QTRY_VERIFY_WITH_TIMEOUT(warned->seen, 30000);
        QCOMPARE(warned->text, QString("17 of 17 messages written; 3 messages changed by the "
                                       "Latin-1 conversion."));
        QVERIFY(warned->detailed.contains("Keep Every Byte"));
        QVERIFY(warned->detailed.contains("3 messages with 8-bit text converted to Latin-1"));
        QTRY_VERIFY(!w.m_pScaningThread->isRunning());
        QVERIFY(w.m_pSaveFile->isEnabled());
        for (const FldrAtrib& f : w.m_store.Folders())
            QCOMPARE(f.ucTickState, quint8(3));
        QCOMPARE(root->checkState(0), Qt::Unchecked);

        // The package's bytes are the command-line test's business.
        QVERIFY(QFileInfo(w.m_exportRun->Job().Package() + "/Archive.xml").isFile());
        for (QWidget* top : QApplication::topLevelWidgets())
            if (top->objectName() == "ImportMsgDlg" && top->isVisible())
                top->close();
        w.CleanListAndHash();
    }

    // A broken link among the messages: the scan ends there and, after the
    // usual end message, a warning names the file and how to skip such files.
    // With Skip Unreadable Files on, the scan goes on and lists the file.
    void unreadableFileBoxes() {
        QTemporaryDir tmp;
        const QString store = tmp.path() + "/Mail";
        QVERIFY(TestSupport::CopyFolder(TestSupport::SampleStore(), store));
        const QString broken = store + "/V2/Mailboxes/Inbox.mbox/Messages/12.emlx";
        QVERIFY(QFile::remove(broken) && QFile::link(tmp.path() + "/gone", broken));

        GuiTestSupport::ScriptedWindow w;
        w.closeevent = 1;
        w.show();
        w.m_strInputfilepath = store;
        for (const bool skip : {false, true}) {
            w.m_pExportOptions->m_pSkipUnreadable->setChecked(skip);
            auto boxes = GuiTestSupport::AnswerMessageBoxes(2, QMessageBox::Ok);
            w.OnStartScanning();
            QTRY_COMPARE_WITH_TIMEOUT(boxes->size(), 2, 30000);
            QCOMPARE(boxes->at(0).text, QStringLiteral("File scan completed successfully."));
            const GuiTestSupport::SeenBox& warning = boxes->at(1);
            QCOMPARE(warning.title, QStringLiteral("Pellomar"));
            QVERIFY2(warning.detailed.contains(broken), qPrintable(warning.detailed));
            if (skip) {
                QCOMPARE(warning.text, QString("1 file could not be read and was skipped; the "
                                               "details list them."));
            } else {
                QVERIFY2(warning.text.contains(broken + "\n(No such file or directory)") &&
                             warning.text.endsWith(" messages were not scanned."),
                         qPrintable(warning.text));
                QVERIFY(warning.informative.contains("Skip Unreadable Files"));
            }
            QTRY_VERIFY(!w.m_pScaningThread->isRunning());
        }
        // The choice is remembered for the next start.
        QVERIFY(QSettings().value("ExportOptions/SkipUnreadableFiles").toBool());
        w.m_pExportOptions->m_pSkipUnreadable->setChecked(false);
        w.CleanListAndHash();
    }
};

QTEST_MAIN(TestRoundTrip)
#include "tst_web_roundtrip.moc"
