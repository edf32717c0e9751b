// The whole road through the window: scan the sample store, tick everything,
// save, and find the package on disk.
#include "scanner/Globals.h"
#include "scanner/Records.h"
#include "scanner/ScaningThread.h"
#include "tests/GuiTestSupport.h"
#include "tests/TestSupport.h"
#include "ui/PreviewWindow.h"

#include <QAction>
#include <QDirIterator>
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

        closeevent = 1;
        GuiTestSupport::ScriptedWindow w;
        w.show();
        m_strInputfilepath = store;
        auto scanned = GuiTestSupport::AnswerNextMessageBox(QMessageBox::Ok);
        w.OnStartScanning();
        QVERIFY(!m_pOpenFile->isEnabled());
        QTRY_VERIFY_WITH_TIMEOUT(scanned->seen, 30000);
        QCOMPARE(scanned->text, QStringLiteral("File scan completed successfully."));
        QCOMPARE(scanned->title, QStringLiteral("Vortiga"));
        QTRY_VERIFY(!w.m_pScaningThread->isRunning());
        QVERIFY(w.m_pSaveFile->isEnabled());
        QVERIFY(m_pOpenFile->isEnabled());

        // Every folder record has its tree item, and the last folder is shown.
        int folders = 0;
        quint64 messages = 0;
        for (FldrAtrib* f = StartFldrAtrib; f; f = f->pNext, ++folders) {
            QVERIFY(f->pTreeItem);
            messages += f->ullMsgCount;
        }
        QVERIFY(folders > 5);
        QVERIFY(messages > 10);
        const FldrAtrib* last = LastFolderRecord();
        QCOMPARE(w.m_pLeftTreeWidget->currentItem(),
                 static_cast<QTreeWidgetItem*>(last->pTreeItem));
        QCOMPARE(quint64(w.m_pCenterTreeWidget->topLevelItemCount()), last->ullMsgCount);

        // Tick the root and save.
        QTreeWidgetItem* root = w.m_pLeftTreeWidget->topLevelItem(0);
        root->setCheckState(0, Qt::Checked);
        w.ShowindivisualMailItemsInfo(root, 0);
        w.answers = QStringList{out};
        w.OnSavingFiles();
        QVERIFY(!IsPreview);
        QTRY_VERIFY_WITH_TIMEOUT(IsPreview, 30000);
        QTRY_VERIFY(!w.m_pScaningThread->isRunning());
        QVERIFY(w.m_pSaveFile->isEnabled());
        for (FldrAtrib* f = StartFldrAtrib; f; f = f->pNext)
            QCOMPARE(f->ucTickState, quint8(3));
        QCOMPARE(root->checkState(0), Qt::Unchecked);

        const QString package = out + mainIdentity;
        QVERIFY2(QFileInfo(package + "/Archive.xml").isFile(), qPrintable(package));
        QCOMPARE(TestSupport::ReadFile(package + "/Contents/PkgInfo"), QByteArray("rge OPIM"));
        int mboxes = 0;
        for (QDirIterator it(package + "/Mail", {"*.mbox"}, QDir::Files,
                             QDirIterator::Subdirectories);
             it.hasNext(); it.next())
            ++mboxes;
        QVERIFY(mboxes > 3);
        for (QWidget* top : QApplication::topLevelWidgets())
            if (top->objectName() == "ImportMsgDlg" && top->isVisible())
                top->close();
        w.CleanListAndHash();
    }
};

QTEST_MAIN(TestRoundTrip)
#include "tst_web_roundtrip.moc"
