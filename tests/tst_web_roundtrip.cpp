// The whole road through the window: scan the sample store, tick everything,
// save, and find the package on disk.
#include "export/ExportJob.h"
#include "scanner/ScaningThread.h"
#include "tests/GuiTestSupport.h"
#include "tests/TestSupport.h"
#include "ui/ExportOptions.h"
#include "ui/PreviewWindow.h"
#include "ui/ProgressDialogs.h"
#include "ui/QImportWindow.h"
#include "ui_ImportMsgDlg.h"
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
    void cleanup() { GuiTestSupport::StopAnsweringBoxes(); }
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
        QCOMPARE(scanned->parent, &w);
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

        // Tick the root, show a message and save: one window at the end, in
        // front of the main window, with the counts and the verification.
        QTreeWidgetItem* root = w.m_pLeftTreeWidget->topLevelItem(0);
        root->setCheckState(0, Qt::Checked);
        QTreeWidgetItem* shown = w.m_pCenterTreeWidget->topLevelItem(1);
        w.m_pCenterTreeWidget->setCurrentItem(shown);
        w.answers = QStringList{out};
        auto noBox = GuiTestSupport::AnswerNextMessageBox(QMessageBox::Ok);
        w.OnSavingFiles();
        QVERIFY(!w.IsPreview);
        QTRY_VERIFY_WITH_TIMEOUT(w.IsPreview, 30000);
        QTRY_VERIFY(!w.m_pScaningThread->isRunning());
        QImportWindow* end = w.findChild<QImportWindow*>();
        QVERIFY(end && end->isVisible());
        const QString text = end->ui->InfoLabels->text();
        QVERIFY2(text.contains("File saved successfully at location " +
                               w.m_exportRun->Job().Package() +
                               "\n17 of 17 messages written; 3 messages changed by the Latin-1 "
                               "conversion.\nVerification: 14 verified, 3 with expected "
                               "changes, 0 faults."),
                 qPrintable(text));
        const QString details = end->ui->DetailsText->toPlainText();
        QVERIFY(details.contains("Keep Every Byte"));
        QVERIFY(details.contains("3 messages with 8-bit text converted to Latin-1"));
        QVERIFY(!noBox->seen);
        QVERIFY(w.m_pSaveFile->isEnabled());
        // What the user chose stays: ticks, folder, message.
        QCOMPARE(root->checkState(0), Qt::Checked);
        QCOMPARE(w.m_pLeftTreeWidget->currentItem(), w.FolderItem(last->ullId));
        QCOMPARE(w.m_pCenterTreeWidget->currentItem(), shown);
        QVERIFY(QFileInfo(w.m_exportRun->Job().Package() + "/Archive.xml").isFile());
        end->close();
        w.CleanListAndHash();
    }

    // A broken link among the messages: one box, no "completed
    // successfully", naming the file and how to skip such files; the file is
    // no row of the list. With Skip Unreadable Files on, the scan goes on
    // and the box says it skipped the file.
    void unreadableFileBox() {
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
            auto boxes = GuiTestSupport::AnswerMessageBoxes(1, QMessageBox::Ok);
            w.OnStartScanning();
            QTRY_COMPARE_WITH_TIMEOUT(boxes->size(), 1, 60000);
            QTRY_VERIFY(!w.m_pScaningThread->isRunning());
            // No second box follows.
            QTest::qWait(300);
            if (auto* another = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
                another->reject();
                QFAIL(qPrintable("a second box: " + another->text()));
            }
            const GuiTestSupport::SeenBox box = boxes->at(0);
            QCOMPARE(box.parent, &w);
            QVERIFY2(box.detailed.contains(broken), qPrintable(box.detailed));
            if (skip) {
                QCOMPARE(box.text, QString("File scan completed, but 1 file could not be read "
                                           "and was skipped; the details list them."));
                continue;
            }
            QCOMPARE(box.title, QStringLiteral("Pellomar"));
            QVERIFY2(box.text.contains(broken + "\n(No such file or directory)") &&
                         box.text.contains(" messages were not scanned."),
                     qPrintable(box.text));
            QVERIFY(box.informative.contains("Skip Unreadable Files"));
            const FldrAtrib* inbox = nullptr;
            for (const FldrAtrib& f : w.m_store.Folders())
                for (const MailItem& m : f.messages)
                    if (m.Path() == broken)
                        inbox = &f;
            QVERIFY(inbox);
            w.ShowindivisualMailItemsInfo(w.FolderItem(inbox->ullId), 0);
            QCOMPARE(quint64(w.m_pCenterTreeWidget->topLevelItemCount()), inbox->MsgCount() - 1);
        }
        // The choice is remembered for the next start.
        QVERIFY(QSettings().value("ExportOptions/SkipUnreadableFiles").toBool());
        w.m_pExportOptions->m_pSkipUnreadable->setChecked(false);
        w.CleanListAndHash();
    }

    // A store beside an Accounts folder: the tree shows the accounts by the
    // names the user gave them, and the local mailboxes as On My Mac.
    void accountNamesInTheTree() {
        QTemporaryDir tmp;
        QVERIFY(TestSupport::CopyFolder(TestSupport::SourceDir() + "/samples/modern",
                                        tmp.path() + "/Mail"));
        QVERIFY(TestSupport::CopyFolder(TestSupport::SourceDir() + "/samples/Accounts",
                                        tmp.path() + "/Accounts"));
        GuiTestSupport::ScriptedWindow w;
        w.closeevent = 1;
        w.show();
        w.m_strInputfilepath = tmp.path() + "/Mail";
        auto scanned = GuiTestSupport::AnswerNextMessageBox(QMessageBox::Ok);
        w.OnStartScanning();
        QTRY_VERIFY_WITH_TIMEOUT(scanned->seen, 30000);
        QTRY_VERIFY(!w.m_pScaningThread->isRunning());
        QStringList top;
        QTreeWidgetItem* version = w.m_pLeftTreeWidget->topLevelItem(0)->child(0);
        for (int i = 0; i < version->childCount(); ++i)
            top << version->child(i)->text(0);
        QCOMPARE(top, (QStringList{"Jonas (example.net)", "Work", "On My Mac"}));
        w.CleanListAndHash();
    }
};

QTEST_MAIN(TestRoundTrip)
#include "tst_web_roundtrip.moc"
