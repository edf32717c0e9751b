// Tick boxes of the folder tree and the checks of the Save command.
#include "scanner/Globals.h"
#include "scanner/Records.h"
#include "scanner/ScaningThread.h"
#include "tests/GuiTestSupport.h"
#include "ui/PreviewWindow.h"

#include <QAction>
#include <QTemporaryDir>
#include <QTreeWidget>
#include <QtTest>

#include <unistd.h>

class TestTicks : public QObject {
    Q_OBJECT
    GuiTestSupport::ScriptedWindow* w = nullptr;

    // Mailbox(501) > A(502) > {A1(503) > A1x(506), A2(504)}, B(505)
    void click(unsigned long long id, Qt::CheckState state) {
        QTreeWidgetItem* item = w->FolderItem(id);
        item->setCheckState(0, state);
        w->ShowindivisualMailItemsInfo(item, 0);
    }
    QString states() {
        // "<check state><record tick>" per folder, in tree order.
        QString out;
        for (QTreeWidgetItemIterator it(w->m_pLeftTreeWidget); *it; ++it) {
            const unsigned long long id = (*it)->text(1).toULongLong();
            out += QString::number(int((*it)->checkState(0))) +
                   QString::number(FindFolderRecord(id)->ucTickState) + " ";
        }
        return out.trimmed();
    }

private slots:
    void init() {
        closeevent = 1;
        w = new GuiTestSupport::ScriptedWindow;
        w->LeftTreeView(501, 502, "A");
        w->LeftTreeView(502, 503, "A1");
        w->LeftTreeView(502, 504, "A2");
        w->LeftTreeView(501, 505, "B");
        w->LeftTreeView(503, 506, "A1x");
    }
    void cleanup() {
        w->CleanListAndHash();
        delete w;
    }

    void propagation_data() {
        QTest::addColumn<QList<unsigned long long>>("ids");
        QTest::addColumn<QList<int>>("clicks");
        // Tree order: Mailbox A A1 A1x A2 B; check state 0/1/2, record tick 0..3.
        QTest::addColumn<QString>("expected");
        QTest::newRow("root ticks everything")
            << QList<unsigned long long>{501} << QList<int>{Qt::Checked} << "21 21 21 21 21 21";
        QTest::newRow("root unticks everything")
            << QList<unsigned long long>{501, 501} << QList<int>{Qt::Checked, Qt::Unchecked}
            << "03 03 03 03 03 03";
        QTest::newRow("folder ticks its subtree, parents partly")
            << QList<unsigned long long>{503} << QList<int>{Qt::Checked} << "12 12 21 21 00 00";
        QTest::newRow("all children ticked tick the parent")
            << QList<unsigned long long>{503, 504} << QList<int>{Qt::Checked, Qt::Checked}
            << "12 21 21 21 21 00";
        QTest::newRow("whole tree ticked by its top folders")
            << QList<unsigned long long>{502, 505} << QList<int>{Qt::Checked, Qt::Checked}
            << "21 21 21 21 21 21";
        QTest::newRow("unticking a leaf makes ancestors partly ticked")
            << QList<unsigned long long>{501, 506} << QList<int>{Qt::Checked, Qt::Unchecked}
            << "12 12 03 03 21 21";
        QTest::newRow("partly ticked by hand leaves the subtree alone")
            << QList<unsigned long long>{503, 502} << QList<int>{Qt::Checked, Qt::PartiallyChecked}
            << "12 12 21 21 00 00";
    }
    void propagation() {
        QFETCH(QList<unsigned long long>, ids);
        QFETCH(QList<int>, clicks);
        QFETCH(QString, expected);
        for (int i = 0; i < ids.size(); ++i)
            click(ids[i], Qt::CheckState(clicks[i]));
        QCOMPARE(states(), expected);
    }

    void saveChecks_data() {
        QTest::addColumn<bool>("tickRoot");
        QTest::addColumn<QString>("dir"); // "ro" = a read-only folder, "tmp" = a writable one
        QTest::addColumn<QString>("boxText");
        QTest::addColumn<int>("chooserCalls");
        QTest::newRow("nothing ticked") << false << "tmp"
                                        << "Select a folder to save." << 0;
        QTest::newRow("chooser cancelled") << true << ""
                                           << "" << 1;
        QTest::newRow("not a folder") << true << "/nonexistent/pellomar"
                                      << "" << 1;
        QTest::newRow("read-only destination")
            << true << "ro"
            << "No write permission for selected destination. Choose another location to save "
               "converted file."
            << 1;
    }
    void saveChecks() {
        QFETCH(bool, tickRoot);
        QFETCH(QString, dir);
        QFETCH(QString, boxText);
        QFETCH(int, chooserCalls);
        if (dir == "ro" && geteuid() == 0)
            QSKIP("root can write into read-only folders");
        QTemporaryDir tmp;
        if (dir == "ro")
            QFile::setPermissions(tmp.path(), QFile::ReadOwner | QFile::ExeOwner);
        if (dir == "tmp" || dir == "ro")
            dir = tmp.path();
        if (tickRoot)
            click(501, Qt::Checked);
        w->answers = QStringList{dir};
        auto seen = boxText.isEmpty() ? std::make_shared<GuiTestSupport::SeenBox>()
                                      : GuiTestSupport::AnswerNextMessageBox(QMessageBox::Ok);
        w->OnSavingFiles();
        QTRY_COMPARE(seen->seen, !boxText.isEmpty());
        QCOMPARE(seen->text, boxText);
        QCOMPARE(w->asked, chooserCalls);
        QVERIFY(IsPreview);
        QVERIFY(!w->m_pScaningThread->isRunning());
        QFile::setPermissions(tmp.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
};

QTEST_MAIN(TestTicks)
#include "tst_web_ticks.moc"
