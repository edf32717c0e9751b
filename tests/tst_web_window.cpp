// The main window: folder tree and message list, the folder calls from the
// worker thread, the tick boxes of the folder tree, the checks of the Save
// command, and the close guard. The window holds a web view, so this test
// starts Qt WebEngine.
#include "scanner/Globals.h"
#include "scanner/Records.h"
#include "scanner/ScaningThread.h"
#include "tests/GuiTestSupport.h"
#include "tests/TestSupport.h"
#include "ui/PreviewWindow.h"
#include "ui/ProgressDialogs.h"
#include "ui_ProgressDialog.h"

#include <QAction>
#include <QProgressBar>
#include <QTemporaryDir>
#include <QThread>
#include <QTreeWidget>
#include <QtTest>

#include <unistd.h>

class TestWindow : public QObject {
    Q_OBJECT
    GuiTestSupport::ScriptedWindow* w = nullptr;

    // Mailbox(501) > A(502) > {A1(503) > A1x(506), A2(504)}, B(505)
    void tree() {
        w->LeftTreeView(501, 502, "A");
        w->LeftTreeView(502, 503, "A1");
        w->LeftTreeView(502, 504, "A2");
        w->LeftTreeView(501, 505, "B");
        w->LeftTreeView(503, 506, "A1x");
    }
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
        closeevent = 0;
        bProcessRunning = false;
        w = new GuiTestSupport::ScriptedWindow;
    }
    void cleanup() {
        w->CleanListAndHash();
        closeevent = 1;
        delete w;
        w = nullptr;
    }

    void folderCallsFromWorkerRunOnGuiThreadInOrder() {
        QList<QThread*> insertingThreads;
        connect(
            w->m_pLeftTreeWidget->model(), &QAbstractItemModel::rowsInserted, this,
            [&insertingThreads] { insertingThreads << QThread::currentThread(); },
            Qt::DirectConnection);
        QThread* worker = QThread::create([this] {
            // Parents before children, as the folder builder calls it.
            w->LeftTreeView(501, 502, "V2");
            w->LeftTreeView(502, 503, "Mailboxes");
            w->LeftTreeView(503, 504, "Work");
            w->LeftTreeView(504, 505, "Projects");
            w->LeftTreeView(502, 506, "INBOX");
        });
        worker->start();
        QTRY_VERIFY_WITH_TIMEOUT(worker->isFinished(), 10000);
        delete worker;
        // The folders join the tree with the next showing of the scan's view.
        w->ShowPendingScanView();
        QVERIFY(!insertingThreads.isEmpty());
        for (QThread* t : insertingThreads)
            QCOMPARE(t, qApp->thread());
        QList<unsigned long long> order;
        for (FldrAtrib* f = StartFldrAtrib; f; f = f->pNext)
            order << f->ullId;
        QCOMPARE(order, (QList<unsigned long long>{501, 502, 503, 504, 505, 506}));
        QTreeWidgetItem* projects = w->FolderItem(505);
        QVERIFY(projects);
        QCOMPARE(projects->parent()->text(0), QStringLiteral("Work"));
        QCOMPARE(projects->treeWidget(), w->m_pLeftTreeWidget);
        QVERIFY(projects->parent()->isExpanded());
        QVERIFY(!projects->isExpanded());
        QCOMPARE(FindFolderRecord(505)->pTreeItem, static_cast<void*>(projects));
        QCOMPARE(w->m_pLeftTreeWidget->topLevelItem(0)->text(0), QStringLiteral("Mailbox"));
        QCOMPARE(StartFldrAtrib->ucTickState, quint8(3));
        QCOMPARE(projects->text(7), QStringLiteral("3"));
        QCOMPARE(projects->checkState(0), Qt::Unchecked);
    }

    void unknownParentGetsNoItem() {
        w->LeftTreeView(501, 502, "A");
        w->LeftTreeView(999, 503, "Lost");
        QVERIFY(!w->FolderItem(503));
        FldrAtrib* lost = FindFolderRecord(503);
        QVERIFY(lost);
        QVERIFY(!lost->pTreeItem);
        // Its messages still arrive, without a folder item.
        w->OnNewItem("s", "1", nullptr, 503, 1, false, 0, 0);
        w->ShowPendingScanView();
        QCOMPARE(w->m_pCenterTreeWidget->topLevelItemCount(), 1);
    }

    // The count replaces the one after the last parenthesis, also at the
    // label's start.
    void folderLabelCountsMessages_data() {
        QTest::addColumn<QString>("name");
        QTest::newRow("parenthesis in name") << "Re (old)";
        QTest::newRow("empty name") << "";
    }
    void folderLabelCountsMessages() {
        QFETCH(QString, name);
        w->LeftTreeView(501, 502, name);
        QTreeWidgetItem* item = w->FolderItem(502);
        w->OnNewItem("one", "11", item, 502, 1, false, 0, 0);
        w->ShowPendingScanView();
        QCOMPARE(item->text(0), name + "(1)");
        QCOMPARE(w->m_pLeftTreeWidget->currentItem(), item);
        // Announcements shown together give the labels shown one by one.
        w->OnNewItem("two", "12", item, 502, 2, false, 0, 2);
        w->OnNewItem("three", "13", item, 502, 3, false, 0, 2);
        QTRY_COMPARE(item->text(0), name + "(3)");
    }

    // The scan thread's first steps can be waiting before the window has
    // set up the run's progress bar: they go to that bar, not to the last
    // run's, and its reset does not drop them.
    void earlyProgressStepsReachTheNewBar() {
        w->SetProgressValue();
        w->SetProgressValue();
        w->ShowScanningProgBar();
        w->SetInitialSettings(5, QStringLiteral("Scanning Database. Please Wait..."));
        w->ShowPendingScanView();
        QCOMPARE(w->m_pProgressInfo->ui->ProgressBar->value(), 2);
        w->m_pProgressInfo->close();
    }

    // The list is emptied when the scan moves to another folder: the rows
    // shown and those waiting go, the folders' labels stay.
    void listEmptiedBetweenAnnouncements() {
        w->LeftTreeView(501, 502, "Inbox");
        w->LeftTreeView(501, 503, "Sent");
        QTreeWidgetItem* inbox = w->FolderItem(502);
        QTreeWidgetItem* sent = w->FolderItem(503);
        w->OnNewItem("a", "1", inbox, 502, 1, false, 0, 0);
        w->ShowPendingScanView();
        w->OnNewItem("b", "2", inbox, 502, 2, false, 0, 2);
        w->OnClearLeftTree();
        w->OnNewItem("c", "3", sent, 503, 1, false, 0, 0);
        w->ShowPendingScanView();
        QCOMPARE(inbox->text(0), QStringLiteral("Inbox(2)"));
        QCOMPARE(sent->text(0), QStringLiteral("Sent(1)"));
        QCOMPARE(w->m_pLeftTreeWidget->currentItem(), sent);
        QCOMPARE(w->m_pCenterTreeWidget->topLevelItemCount(), 1);
        QCOMPARE(w->m_pCenterTreeWidget->topLevelItem(0)->text(5), QStringLiteral("3"));
    }

    void messageRowsShowTheirIcons_data() {
        QTest::addColumn<int>("priority");
        QTest::addColumn<bool>("attachments");
        QTest::addColumn<bool>("priorityIcon");
        QTest::newRow("high priority") << 1 << false << true;
        QTest::newRow("priority 2 shows nothing") << 2 << true << false;
        QTest::newRow("no priority") << 0 << true << false;
    }
    void messageRowsShowTheirIcons() {
        QFETCH(int, priority);
        QFETCH(bool, attachments);
        QFETCH(bool, priorityIcon);
        w->LeftTreeView(501, 502, "Inbox");
        w->OnNewItem("Subject text", "1234", w->FolderItem(502), 502, 1, attachments, priority, 0);
        w->ShowPendingScanView();
        QTreeWidgetItem* row = w->m_pCenterTreeWidget->topLevelItem(0);
        QCOMPARE(row->text(4), QStringLiteral("Subject text"));
        QCOMPARE(row->text(5), QStringLiteral("1234"));
        QCOMPARE(!row->icon(1).isNull(), priorityIcon);
        QCOMPARE(!row->icon(3).isNull(), attachments);
        QVERIFY(!row->icon(2).isNull());
    }

    void clickingAFolderListsItsMessages() {
        w->LeftTreeView(501, 502, "Inbox");
        FldrAtrib* inbox = FindFolderRecord(502);
        for (int i = 1; i <= 3; ++i) {
            MailItem* m = NewMailItem();
            m->ullNumber = quint64(100 + i);
            SetUtf16(&m->pSubject, &m->ulSubjectSize, QStringLiteral("Message %1").arg(i));
            if (i == 2)
                AppendAttachment(m, NewAttachment());
            AppendMailToFolder(inbox, m);
        }
        // A link planted at the empty page's name is replaced, not followed.
        const QString page = pellomar::TempDir() + "/Tressaly.html";
        const QString victim = qEnvironmentVariable("PELLOMAR_TMPDIR") + "/victim";
        QFile::remove(page);
        QVERIFY(TestSupport::WriteFile(victim, "mine") && QFile::link(victim, page));
        w->ShowindivisualMailItemsInfo(w->FolderItem(502), 0);
        QCOMPARE(TestSupport::ReadFile(victim), QByteArray("mine"));
        QVERIFY(QFileInfo(page).isFile() && !QFileInfo(page).isSymLink());
        QCOMPARE(w->m_pCenterTreeWidget->topLevelItemCount(), 3);
        QCOMPARE(w->m_pCenterTreeWidget->topLevelItem(1)->text(5), QStringLiteral("102"));
        QVERIFY(!w->m_pCenterTreeWidget->topLevelItem(1)->icon(3).isNull());
        QVERIFY(w->m_pCenterTreeWidget->topLevelItem(0)->icon(3).isNull());
        // The root holds no messages: its list is empty.
        w->ShowindivisualMailItemsInfo(w->m_pLeftTreeWidget->topLevelItem(0), 0);
        QCOMPARE(w->m_pCenterTreeWidget->topLevelItemCount(), 0);
    }

    void closeGuard_data() {
        QTest::addColumn<bool>("running");
        QTest::addColumn<int>("closeFlag");
        QTest::addColumn<int>("answer");
        QTest::addColumn<QString>("boxText");
        QTest::addColumn<bool>("closes");
        const QString running = "Application Running !!\nPlease halt the current process to exit.";
        const QString ask = "Do you want to close Pellomar?";
        const int ok = QMessageBox::Ok, no = QMessageBox::No, yes = QMessageBox::Yes;
        QTest::newRow("running: refused with a warning") << true << 0 << ok << running << false;
        QTest::newRow("running beats the close flag") << true << 1 << ok << running << false;
        QTest::newRow("asked, answered No") << false << 0 << no << ask << false;
        QTest::newRow("asked, answered Yes") << false << 0 << yes << ask << true;
        QTest::newRow("closing on purpose does not ask") << false << 1 << 0 << "" << true;
    }
    void closeGuard() {
        QFETCH(bool, running);
        QFETCH(int, closeFlag);
        QFETCH(int, answer);
        QFETCH(QString, boxText);
        QFETCH(bool, closes);
        w->show();
        bProcessRunning = running;
        closeevent = closeFlag;
        auto seen = boxText.isEmpty()
                        ? std::make_shared<GuiTestSupport::SeenBox>()
                        : GuiTestSupport::AnswerNextMessageBox(QMessageBox::StandardButton(answer));
        const bool closed = w->close();
        bProcessRunning = false;
        QCOMPARE(closed, closes);
        QCOMPARE(seen->seen, !boxText.isEmpty());
        if (seen->seen) {
            QCOMPARE(seen->text, boxText);
            QCOMPARE(seen->title, QStringLiteral("Pellomar"));
        }
    }

    // Clicks as "id+" (ticked), "id-" (unticked) or "id~" (partly ticked).
    void propagation_data() {
        QTest::addColumn<QString>("clicks");
        // Tree order: Mailbox A A1 A1x A2 B; check state 0/1/2, record tick 0..3.
        QTest::addColumn<QString>("expected");
        auto row = [](const char* name, const char* clicks, const char* expected) {
            QTest::newRow(name) << QString(clicks) << QString(expected);
        };
        row("root ticks everything", "501+", "21 21 21 21 21 21");
        row("root unticks everything", "501+ 501-", "03 03 03 03 03 03");
        row("folder ticks its subtree, parents partly", "503+", "12 12 21 21 00 00");
        row("all children ticked tick the parent", "503+ 504+", "12 21 21 21 21 00");
        row("whole tree ticked by its top folders", "502+ 505+", "21 21 21 21 21 21");
        row("unticking a leaf makes ancestors partly ticked", "501+ 506-", "12 12 03 03 21 21");
        row("partly ticked by hand leaves the subtree alone", "503+ 502~", "12 12 21 21 00 00");
    }
    void propagation() {
        QFETCH(QString, clicks);
        QFETCH(QString, expected);
        tree();
        for (const QString& c : clicks.split(' ')) {
            const QChar s = c.back();
            click(c.chopped(1).toULongLong(), s == '+'   ? Qt::Checked
                                              : s == '-' ? Qt::Unchecked
                                                         : Qt::PartiallyChecked);
        }
        QCOMPARE(states(), expected);
    }

    void saveChecks_data() {
        QTest::addColumn<quint64>("tick"); // the folder ticked first, 0 for none
        QTest::addColumn<QString>("dir");  // "ro" = a read-only folder, "tmp" = a writable one
        QTest::addColumn<QString>("boxText");
        QTest::addColumn<int>("chooserCalls");
        auto row = [](const char* name, quint64 tick, const char* dir, const char* box, int calls) {
            QTest::newRow(name) << tick << QString(dir) << QString(box) << calls;
        };
        row("nothing ticked", 0, "tmp", "Select a folder to save.", 0);
        row("chooser cancelled", 501, "", "", 1);
        row("one folder ticked (the root partly) goes on", 503, "", "", 1);
        row("not a folder", 501, "/nonexistent/pellomar", "", 1);
        row("read-only destination", 501, "ro",
            "No write permission for selected destination. Choose another location to save "
            "converted file.",
            1);
    }
    void saveChecks() {
        QFETCH(quint64, tick);
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
        tree();
        if (tick)
            click(tick, Qt::Checked);
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

QTEST_MAIN(TestWindow)
#include "tst_web_window.moc"
