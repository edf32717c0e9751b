// The main window: folder tree and message list, the folder calls from the
// worker thread, the tick boxes of the folder tree, the checks of the Save
// command, the private folder of the preview and the close guard. The
// window holds a web view, so this test starts Qt WebEngine.
#include "scanner/ScaningThread.h"
#include "scanner/Store.h"
#include "tests/GuiTestSupport.h"
#include "tests/TestSupport.h"
#include "ui/PreviewWindow.h"
#include "ui/ProgressDialogs.h"
#include "ui/TextBrowser.h"
#include "ui_ProgressDialog.h"
#include "ui_TextBrowserDlg.h"

#include <QAction>
#include <QComboBox>
#include <QHeaderView>
#include <QProgressBar>
#include <QTemporaryDir>
#include <QTextEdit>
#include <QThread>
#include <QTreeWidget>
#include <QWebEnginePage>
#include <QWebEngineView>
#include <QtTest>

#include <unistd.h>

namespace {
// A window whose attachments open nowhere, and which counts the tries.
class NoApplicationWindow : public GuiTestSupport::ScriptedWindow {
public:
    QStringList opened;

protected:
    bool OpenWithApplication(const QString& file) override {
        opened << file;
        return false;
    }
};
} // namespace

class TestWindow : public QObject {
    Q_OBJECT
    NoApplicationWindow* w = nullptr;

    void tree() { w->ShowStore(TestSupport::SmallTree()); }
    void click(unsigned long long id, Qt::CheckState state) {
        QTreeWidgetItem* item = w->FolderItem(id);
        item->setCheckState(0, state);
        w->ShowindivisualMailItemsInfo(item, 0);
    }
    QString states() {
        // "<check state><store tick>" per folder, in tree order.
        QString out;
        for (QTreeWidgetItemIterator it(w->m_pLeftTreeWidget); *it; ++it) {
            const unsigned long long id = (*it)->text(1).toULongLong();
            out += QString::number(int((*it)->checkState(0))) +
                   QString::number(w->m_store.Folder(id)->ucTickState) + " ";
        }
        return out.trimmed();
    }

private slots:
    void init() { w = new NoApplicationWindow; }
    void cleanup() {
        GuiTestSupport::StopAnsweringBoxes();
        w->closeevent = 1;
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
        QVERIFY(!w->FolderItem(502));
        w->ShowPendingScanView();
        QVERIFY(!insertingThreads.isEmpty());
        for (QThread* t : insertingThreads)
            QCOMPARE(t, qApp->thread());
        QStringList order;
        for (QTreeWidgetItemIterator it(w->m_pLeftTreeWidget); *it; ++it)
            order << (*it)->text(1) + ":" + (*it)->text(0);
        QCOMPARE(order, (QStringList{"501:Mailbox", "502:V2", "503:Mailboxes", "504:Work",
                                     "505:Projects", "506:INBOX"}));
        QTreeWidgetItem* projects = w->FolderItem(505);
        QCOMPARE(projects->treeWidget(), w->m_pLeftTreeWidget);
        QVERIFY(projects->parent()->isExpanded());
        QVERIFY(!projects->isExpanded());
        QCOMPARE(projects->checkState(0), Qt::Unchecked);
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
        w->OnNewItem("one", "11", 502, 1, false, 0, 0);
        w->ShowPendingScanView();
        QTreeWidgetItem* item = w->FolderItem(502);
        QCOMPARE(item->text(0), name + "(1)");
        QCOMPARE(w->m_pLeftTreeWidget->currentItem(), item);
        // Announcements shown together give the labels shown one by one.
        w->OnNewItem("two", "12", 502, 2, false, 0, 2);
        w->OnNewItem("three", "13", 502, 3, false, 0, 2);
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
        w->OnNewItem("a", "1", 502, 1, false, 0, 0);
        w->ShowPendingScanView();
        w->OnNewItem("b", "2", 502, 2, false, 0, 2);
        w->OnClearLeftTree();
        w->OnNewItem("c", "3", 503, 1, false, 0, 0);
        w->ShowPendingScanView();
        QCOMPARE(w->FolderItem(502)->text(0), QStringLiteral("Inbox(2)"));
        QCOMPARE(w->FolderItem(503)->text(0), QStringLiteral("Sent(1)"));
        QCOMPARE(w->m_pLeftTreeWidget->currentItem(), w->FolderItem(503));
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
        w->OnNewItem("Subject text", "1234", 502, 1, attachments, priority, 0);
        w->ShowPendingScanView();
        QTreeWidgetItem* row = w->m_pCenterTreeWidget->topLevelItem(0);
        QCOMPARE(row->text(ColSubject), QStringLiteral("Subject text"));
        QCOMPARE(row->text(ColNumber), QStringLiteral("1234"));
        QCOMPARE(!row->icon(1).isNull(), priorityIcon);
        QCOMPARE(!row->icon(3).isNull(), attachments);
        QVERIFY(!row->icon(2).isNull());
    }

    // The list shows the sender's name, the subject on one line, the date
    // (received, else sent), the size and Mail's marks; a click on a column
    // header sorts by it, a second click turns the order, and until the
    // user sorts the rows keep the store's order.
    void messageListColumnsAndSorting_data() {
        QTest::addColumn<QList<int>>("clicks");
        QTest::addColumn<QString>("order"); // subjects, top to bottom
        QTest::newRow("store order") << QList<int>{} << "abc";
        QTest::newRow("sender, ignoring case") << QList<int>{ColFrom} << "bca";
        QTest::newRow("date") << QList<int>{ColDate} << "bca";
        QTest::newRow("date, turned") << QList<int>{ColDate, ColDate} << "acb";
        QTest::newRow("size") << QList<int>{ColSize} << "bac";
        QTest::newRow("unread, then answered") << QList<int>{ColStatus} << "bac";
        QTest::newRow("flagged first") << QList<int>{ColFlag} << "cab";
        QTest::newRow("another column starts ascending")
            << QList<int>{ColSize, ColSize, ColSubject} << "abc";
    }
    void messageListColumnsAndSorting() {
        QFETCH(QList<int>, clicks);
        QFETCH(QString, order);
        Store store;
        FldrAtrib* inbox = store.AddFolder(501, 502, "Inbox", FolderKind::Mailbox);
        auto add = [&](const char* subject, const char* from, qint64 received, const char* date,
                       qint64 size, quint64 flags) {
            MailItem m;
            m.subject = subject;
            m.from = from;
            m.dateReceived = received;
            m.date = date;
            m.size = size;
            m.flags = flags;
            inbox->messages.push_back(m);
        };
        add("a\n", "Zoe Nova <zoe@example.org>\n", 1600000000, "", 5000, 1 | 4);
        add("b", "\"Adam\" <adam@example.org>", 650000000, "", 200, 0);
        add("c", "mia@example.org", 0, "15 Jun 2001 10:00:00 AM", 90000, 1 | 16);
        w->ShowStore(std::move(store));
        w->ShowindivisualMailItemsInfo(w->FolderItem(502), 0);
        QTreeWidget* list = w->m_pCenterTreeWidget;
        auto row = [list](const char* subject) {
            return list->findItems(subject, Qt::MatchExactly, ColSubject).value(0);
        };
        QVERIFY(row("a") && row("b") && row("c"));
        QCOMPARE(row("a")->text(ColFrom), QStringLiteral("Zoe Nova"));
        QCOMPARE(row("b")->text(ColFrom), QStringLiteral("Adam"));
        QCOMPARE(row("c")->text(ColFrom), QStringLiteral("mia@example.org"));
        QCOMPARE(row("a")->text(ColSize), QStringLiteral("5 kB"));
        QCOMPARE(row("b")->text(ColSize), QStringLiteral("200 B"));
        QCOMPARE(row("c")->text(ColDate), QStringLiteral("2001-06-15 10:00"));
        QCOMPARE(row("a")->text(ColStatus), QStringLiteral("\u21A9"));
        QCOMPARE(row("b")->text(ColStatus), QStringLiteral("\u25CF"));
        QVERIFY(row("b")->font(ColSubject).bold() && !row("a")->font(ColSubject).bold());
        QCOMPARE(row("c")->text(ColFlag), QStringLiteral("\u2691"));
        QVERIFY(row("a")->text(ColFlag).isEmpty());
        QHeaderView* header = list->header();
        for (int column : clicks)
            QTest::mouseClick(header->viewport(), Qt::LeftButton, {},
                              QPoint(header->sectionViewportPosition(column) + 5, 5));
        QString shown;
        for (int i = 0; i < list->topLevelItemCount(); ++i)
            shown += list->topLevelItem(i)->text(ColSubject);
        QCOMPARE(shown, order);
        // The folder listed again keeps the order chosen.
        w->ShowindivisualMailItemsInfo(w->FolderItem(502), 0);
        QCOMPARE(list->topLevelItem(0)->text(ColSubject), order.left(1));
    }

    // Each header field is elided to its own width, as plain text, and again
    // when the pane changes width.
    void headerFieldsElideToTheirWidth() {
        Store store;
        FldrAtrib* inbox = store.AddFolder(501, 502, "Inbox", FolderKind::Mailbox);
        MailItem m;
        m.from = "Anna Lindqvist-Okafor <anna.lindqvist-okafor@a-rather-long-domain.example.org>";
        m.to = "Tom <tom@example.org>";
        m.subject = QString(200, QLatin1Char('s'));
        inbox->messages.push_back(m);
        w->resize(1200, 700);
        w->show();
        w->ShowStore(std::move(store));
        w->m_pLeftTreeWidget->setCurrentItem(w->FolderItem(502));
        w->ShowindivisualMailItemsInfo(w->FolderItem(502), 0);
        Ui::TextBrowserDlg* f = w->m_pTextBrowser->ui;
        auto fits = [](QTextEdit* field) {
            return field->fontMetrics().horizontalAdvance(field->toPlainText()) <
                   field->viewport()->width();
        };
        QTRY_VERIFY(fits(f->fromBrowser) && fits(f->subjBrowser));
        QCOMPARE(f->toBrowser->toPlainText(), QStringLiteral("To: Tom <tom@example.org>"));
        const int wide = f->subjBrowser->toPlainText().size();
        QVERIFY(f->subjBrowser->toPlainText().endsWith(QChar(0x2026)));
        w->resize(1000, 700);
        QTRY_VERIFY(f->subjBrowser->toPlainText().size() < wide);
        QVERIFY(fits(f->subjBrowser) && fits(f->fromBrowser));
    }

    // A folder's messages are listed from the store; the message shown is
    // the one of the row, whatever its number. What the preview writes goes
    // to a folder of the window's own; an attachment that no application
    // opens says so.
    void clickingAFolderListsItsMessages() {
        QTemporaryDir dir;
        const QString file = dir.filePath("5.emlx");
        QVERIFY(TestSupport::WriteFile(
            file, TestSupport::Emlx("Subject: s\nContent-Type: multipart/mixed; boundary=b\n\n"
                                    "--b\nContent-Type: text/plain\n\nhi\n--b\n"
                                    "Content-Type: image/png; name=\"a.png\"\n"
                                    "Content-Disposition: attachment; filename=\"a.png\"\n\n"
                                    "QUJD\n--b--\n")));
        const qint64 body = TestSupport::ReadFile(file).indexOf("QUJD");
        Store store;
        FldrAtrib* inbox = store.AddFolder(501, 502, "Inbox", FolderKind::Mailbox);
        for (int i = 1; i <= 3; ++i) {
            MailItem m;
            m.ullNumber = 7; // the same number three times
            m.subject = QStringLiteral("Message %1").arg(i);
            m.SetPath(file);
            if (i == 2) {
                m.llPlainStart = TestSupport::ReadFile(file).indexOf("hi\n");
                m.llPlainEnd = m.llPlainStart + 3;
                m.attachments.append({body, body + 5, "a.png", QString(), false, false});
                m.attachments.append({body, body, "gone.pdf", QString(), false, true});
            }
            inbox->messages.push_back(m);
        }
        w->ShowStore(std::move(store));
        w->m_pLeftTreeWidget->setCurrentItem(w->FolderItem(502));
        w->ShowindivisualMailItemsInfo(w->FolderItem(502), 0);
        QCOMPARE(w->m_pCenterTreeWidget->topLevelItemCount(), 3);
        QVERIFY(!w->m_pCenterTreeWidget->topLevelItem(1)->icon(3).isNull());
        QVERIFY(w->m_pCenterTreeWidget->topLevelItem(0)->icon(3).isNull());
        // The web engine starts with the first body shown, and shows it
        // where the blank pane was.
        QVERIFY(!w->m_pTextBrowser->m_pWebView);
        w->resize(1000, 600);
        w->show();
        w->m_pCenterTreeWidget->setCurrentItem(w->m_pCenterTreeWidget->topLevelItem(1));
        QCOMPARE(w->m_strFullSubject, QStringLiteral("Message 2"));
        QVERIFY(w->m_pTextBrowser->m_pWebView);
        QTRY_VERIFY(w->m_pTextBrowser->m_pWebView->isVisible() &&
                    w->m_pTextBrowser->m_pWebView->height() > w->m_pTextBrowser->height() / 2);
        QString page;
        QTRY_VERIFY_WITH_TIMEOUT((w->m_pTextBrowser->m_pWebView->page()->toPlainText(
                                      [&page](const QString& text) { page = text; }),
                                  page.trimmed() == QLatin1String("hi")),
                                 20000);
        QComboBox* box = w->m_pTextBrowser->ui->comBoxAttch;
        QCOMPARE(box->count(), 3);
        // A part the store does not hold is there, marked, not to be chosen.
        QCOMPARE(box->itemText(2), QStringLiteral("gone.pdf (not in the store)"));
        QVERIFY(!(box->model()->flags(box->model()->index(2, 0)) & Qt::ItemIsEnabled));

        // The window's own folder, that no one else may enter, holds the
        // empty page and the decoded attachment; another window has another.
        const QString folder = QFileInfo(w->m_pTextBrowser->EmptyPagePath()).path();
        QCOMPARE(int(QFileInfo(folder).permissions() & 0x0777), 0x0700); // rwx------
        QCOMPARE(QFileInfo(w->AttachmentFolder()).path(), folder);
        const QString decoded = w->AttachmentFolder() + "/0a.png";
        QCOMPARE(TestSupport::ReadFile(decoded), QByteArray("ABC"));
        QVERIFY(!(QFileInfo(decoded).permissions() & 0x77));
        GuiTestSupport::ScriptedWindow other;
        other.closeevent = 1;
        QVERIFY(QFileInfo(other.m_pTextBrowser->EmptyPagePath()).path() != folder);

        auto seen = GuiTestSupport::AnswerNextMessageBox(QMessageBox::Ok);
        box->activated(1);
        QCOMPARE(w->opened, QStringList{decoded});
        QTRY_VERIFY(seen->seen);
        QCOMPARE(seen->text, QStringLiteral("Unknown file format."));
        QCOMPARE(seen->informative,
                 QStringLiteral("No application on this computer opens \"a.png\"."));

        // The next message takes the attachments of this one away.
        w->m_pCenterTreeWidget->setCurrentItem(w->m_pCenterTreeWidget->topLevelItem(2));
        QVERIFY(!QFileInfo::exists(decoded));
        // The root holds no messages: its list is empty.
        w->ShowindivisualMailItemsInfo(w->m_pLeftTreeWidget->topLevelItem(0), 0);
        QCOMPARE(w->m_pCenterTreeWidget->topLevelItemCount(), 0);
        // The window's folder goes with it.
        delete w;
        w = new NoApplicationWindow;
        QVERIFY(!QFileInfo::exists(folder));
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
        w->m_pScaningThread->bProcessRunning = running;
        w->closeevent = closeFlag;
        auto seen = boxText.isEmpty()
                        ? std::make_shared<GuiTestSupport::SeenBox>()
                        : GuiTestSupport::AnswerNextMessageBox(QMessageBox::StandardButton(answer));
        const bool closed = w->close();
        w->m_pScaningThread->bProcessRunning = false;
        QCOMPARE(closed, closes);
        QCOMPARE(seen->seen, !boxText.isEmpty());
        if (seen->seen) {
            QCOMPARE(seen->text, boxText);
            QCOMPARE(seen->title, QStringLiteral("Pellomar"));
        }
    }

    // A click on a tick box changes the store's ticks, below and above the
    // folder too, and every box shows the store (the rules themselves are the
    // store's, tested with it).
    void tickBoxesShowTheStore() {
        tree();
        click(503, Qt::Checked);
        // Tree order: Mailbox A A1 A1x A2 B; check state 0/1/2, store tick.
        QCOMPARE(states(), QStringLiteral("12 12 21 21 00 00"));
        click(501, Qt::Checked);
        click(501, Qt::Unchecked);
        QCOMPARE(states(), QStringLiteral("03 03 03 03 03 03"));
        // No tick changes while a run reads the store.
        w->m_pScaningThread->bProcessRunning = true;
        click(505, Qt::Checked);
        w->m_pScaningThread->bProcessRunning = false;
        QCOMPARE(states(), QStringLiteral("03 03 03 03 03 03"));
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
        QVERIFY(w->IsPreview);
        QVERIFY(!w->m_pScaningThread->isRunning());
        QFile::setPermissions(tmp.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
};

QTEST_MAIN(TestWindow)
#include "tst_web_window.moc"
