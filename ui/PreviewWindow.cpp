#include "ui/PreviewWindow.h"
#include "app/SelectData.h"
#include "export/EmlxExport.h"
#include "export/SaveTimeStamp.h"
#include "scanner/FileAccess.h"
#include "scanner/Globals.h"
#include "scanner/Records.h"
#include "scanner/ScaningThread.h"
#include "ui/ExportOptions.h"
#include "ui/MessageList.h"
#include "ui/PlistStrings.h"
#include "ui/PreviewDecoding.h"
#include "ui/ProgressDialogs.h"
#include "ui/QImportWindow.h"
#include "ui/RunReport.h"
#include "ui/TextBrowser.h"
#include "ui_MainWindowUi.h"
#include "ui_TextBrowserDlg.h"

#include <QAction>
#include <QCloseEvent>
#include <QComboBox>
#include <QDesktopServices>
#include <QFileInfo>
#include <QGuiApplication>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QMovie>
#include <QProgressBar>
#include <QScreen>
#include <QSplitter>
#include <QSysInfo>
#include <QTextEdit>
#include <QTimer>
#include <QToolBar>
#include <QTreeWidget>
#include <QTreeWidgetItemIterator>
#include <QUrl>

#include <unistd.h>

#include "ui_ProgressDialog.h"

PreviewWindow* pPreviewWindow = nullptr;
QAction* m_pOpenFile = nullptr;
int closeevent = 0;

namespace {

// How long the scan's announcements may wait before they are shown, in ms.
constexpr int kPendingScanInterval = 200;

void ShowElided(QTextEdit* field, const QString& fullText, const QFontMetrics& metrics, int width) {
    QString text = fullText;
    text.remove(QLatin1Char('\n'));
    field->clear();
    field->append(metrics.elidedText(text, Qt::ElideRight, width));
    field->moveCursor(QTextCursor::Start);
    field->ensureCursorVisible();
}

} // namespace

PreviewWindow::PreviewWindow(QWidget* parent) : QMainWindow(parent), ui(new Ui::MainWindowUi) {
    Q_INIT_RESOURCE(images);
    ui->setupUi(this);
    pPreviewWindow = this;
    pMainWindow = this;
    bProcessRunning = false;
    OnInitialize();
    CreateLeftDockWindows();
    const QRect desktop = QGuiApplication::primaryScreen()->availableGeometry();
    move(desktop.x() + (desktop.width() - width()) / 2 - 100,
         desktop.y() + (desktop.height() - height()) / 2 - 50);
    ConnectSignals();
    setUnifiedTitleAndToolBarOnMac(true);
    setContextMenuPolicy(Qt::NoContextMenu);
    m_pendingScanTimer.setSingleShot(true);
    m_pendingScanTimer.setInterval(kPendingScanInterval);
    connect(&m_pendingScanTimer, &QTimer::timeout, this, &PreviewWindow::ShowPendingScanView);
}

PreviewWindow::~PreviewWindow() {
    if (pMainWindow == this)
        pMainWindow = nullptr;
    if (pPreviewWindow == this)
        pPreviewWindow = nullptr;
    // An idle worker goes with the window. A running one may be inside a call
    // to this window, so it is only asked to stop.
    if (m_pScaningThread && m_pScaningThread->isRunning())
        bStopFlag = true;
    else
        delete m_pScaningThread;
    delete m_pSelectData;
    delete ui;
}

void PreviewWindow::OnInitialize() {
    m_pTextBrowser = new TextBrowser(this);
    m_pTextBrowser->SetWindowLayout();
    m_pTextBrowser->hide();
    CreateMenu();
    CreateMenuBar();
    CreateToolBar();
}

void PreviewWindow::CreateMenu() {
    auto makeAction = [this](const QString& text, void (PreviewWindow::*slot)(),
                             const QString& tip = QString()) {
        auto* a = new QAction(text, this);
        if (!tip.isEmpty())
            a->setToolTip(tip);
        connect(a, &QAction::triggered, this, slot);
        return a;
    };
    m_pOpenFileMenu = makeAction(QStringLiteral("Open File"), &PreviewWindow::OnOpenFile,
                                 QStringLiteral("Open File"));
    m_pOpenFileMenu->setShortcut(QKeySequence(QStringLiteral("Ctrl+N")));
    m_pSaveFileMenu = makeAction(QStringLiteral("Save File"), &PreviewWindow::OnSavingFiles,
                                 QStringLiteral("Save File"));
    m_pSaveFileMenu->setShortcut(QKeySequence(QStringLiteral("Ctrl+S")));
    m_pSaveFileMenu->setEnabled(false);
    m_pOpenFile =
        makeAction(QStringLiteral("Open"), &PreviewWindow::OnOpenFile, QStringLiteral("Open"));
    m_pOpenFile->setIcon(QIcon(QStringLiteral(":/images/img_openFile.png")));
    m_pSaveFile =
        makeAction(QStringLiteral("Save"), &PreviewWindow::OnSavingFiles, QStringLiteral("Save"));
    m_pSaveFile->setIcon(QIcon(QStringLiteral(":/images/img_SaveFile.png")));
    m_pSaveFile->setEnabled(false);
    m_pHelpFile =
        makeAction(QStringLiteral("Help"), &PreviewWindow::OpenHelp, QStringLiteral("Help"));
    m_pHelpFile->setIcon(QIcon(QStringLiteral(":/images/img_HelpFile.png")));
    m_pHelpTopics = makeAction(QStringLiteral("&Help Topics..."), &PreviewWindow::OpenHelp);
    m_pAbout = makeAction(QStringLiteral("&About Pellomar"), &PreviewWindow::OpenAboutProduct);
    m_pAbout->setMenuRole(QAction::AboutRole);
    m_pEmailSupport =
        makeAction(QStringLiteral("Email to Vortiga Support"), &PreviewWindow::OnEmailSupport);
    m_pSupportSection =
        makeAction(QStringLiteral("View Support Section"), &PreviewWindow::OnSupportSection);
    m_pSubmitEnquiry =
        makeAction(QStringLiteral("Submit Enquiry"), &PreviewWindow::OnSubmitEnquiry);
    m_pKnowledgebase =
        makeAction(QStringLiteral("View Knowledgebase Articles"), &PreviewWindow::OnKnowledgebase);
}

void PreviewWindow::CreateMenuBar() {
    auto* menuBar = new QMenuBar(nullptr);
    m_pAppMenu = menuBar->addMenu(QStringLiteral("Pellomar"));
    m_pAppMenu->addAction(m_pAbout);
    m_pFileMenu = menuBar->addMenu(QStringLiteral("&File"));
    m_pFileMenu->addAction(m_pOpenFileMenu);
    m_pFileMenu->addAction(m_pSaveFileMenu);
    m_pExportOptions = new ExportOptions(m_pFileMenu, this);
    m_pHelpMenu = menuBar->addMenu(QStringLiteral("&Help"));
    m_pHelpMenu->addAction(m_pHelpTopics);
    m_pHelpMenu->addSeparator();
    m_pHelpMenu->addAction(m_pEmailSupport);
    m_pHelpMenu->addAction(m_pSupportSection);
    m_pHelpMenu->addAction(m_pSubmitEnquiry);
    m_pHelpMenu->addAction(m_pKnowledgebase);
    setMenuBar(menuBar);
}

void PreviewWindow::CreateToolBar() {
    m_pToolBar = addToolBar(QStringLiteral("Open & Save File"));
    m_pToolBar->setOrientation(Qt::Horizontal);
    m_pToolBar->setIconSize(QSize(30, 28));
    m_pToolBar->setMovable(false);
    m_pToolBar->setFloatable(false);
    m_pToolBar->setToolButtonStyle(Qt::ToolButtonIconOnly);
    m_pToolBar->setStyleSheet(QStringLiteral("QToolBar{spacing:0px;}"));
    auto* margin = new QLabel(m_pToolBar);
    margin->setFixedSize(5, 40);
    m_pToolBar->addWidget(margin);
    m_pToolBar->addSeparator();
    m_pToolBar->addAction(m_pOpenFile);
    m_pToolBar->addAction(m_pSaveFile);
    auto* spacer = new QWidget(m_pToolBar);
    spacer->setFixedHeight(0);
    spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    m_pToolBar->addWidget(spacer);
    m_pToolBar->addAction(m_pHelpFile);
}

void PreviewWindow::CreateLeftDockWindows() {
    const QFont font(QStringLiteral("Lucida Grande"), 12);
    m_pLeftTreeWidget = new QTreeWidget(this);
    m_pLeftTreeWidget->setFont(font);
    QPalette palette = m_pLeftTreeWidget->palette();
    palette.setColor(QPalette::Base, QColor(223, 226, 235));
    m_pLeftTreeWidget->setPalette(palette);
    m_pLeftTreeWidget->setStyleSheet(QStringLiteral(
        "QTreeView {    selection-background-color: rgb(154,154,200);    alternate-color: "
        "rgb(223,226,235);    alternate-background-color: rgb(223,226,235);    "
        "show-decoration-selected: 1;}"));
    m_pLeftTreeWidget->setFrameShape(QFrame::StyledPanel);
    m_pLeftTreeWidget->setFrameShadow(QFrame::Plain);
    m_pLeftTreeWidget->setBackgroundRole(QPalette::Window);
    m_pLeftTreeWidget->setAutoFillBackground(true);

    m_pCenterTreeWidget = new QTreeWidget(this);
    m_pCenterTreeWidget->setFont(font);

    m_pLeftTreeWidget->setHeaderLabel(QString());
    m_pLeftTreeWidget->setColumnCount(FolderColumns);
    m_pLeftTreeWidget->header()->resizeSection(ColName, 400);
    for (int c = 1; c < FolderColumns; ++c)
        m_pLeftTreeWidget->setColumnHidden(c, true);
    m_pLeftTreeWidget->setHeaderHidden(true);

    m_pCenterTreeWidget->setHeaderLabel(QString());
    m_pCenterTreeWidget->setColumnCount(6);
    QTreeWidgetItem* header = m_pCenterTreeWidget->headerItem();
    header->setSizeHint(ColSizeHint, QSize(20, 20));
    header->setIcon(ColPriority, QIcon(QStringLiteral(":/images/img_Priority.png")));
    header->setToolTip(ColPriority, QStringLiteral("Priority"));
    header->setIcon(ColType, QIcon(QStringLiteral(":/images/img_FileType.png")));
    header->setToolTip(ColType, QStringLiteral("Message"));
    header->setIcon(ColAttachment, QIcon(QStringLiteral(":/images/img_Attachment.png")));
    header->setToolTip(ColAttachment, QStringLiteral("Attachment"));
    for (int c = ColSizeHint; c <= ColNumber; ++c)
        header->setText(c, QString());
    header->setText(ColSubject, QStringLiteral("Subject"));
    for (int c : {ColPriority, ColType, ColAttachment}) {
        m_pCenterTreeWidget->header()->setSectionResizeMode(c, QHeaderView::Fixed);
        m_pCenterTreeWidget->header()->resizeSection(c, 24);
    }
    m_pCenterTreeWidget->setColumnHidden(ColSizeHint, true);
    m_pCenterTreeWidget->setColumnHidden(ColNumber, true);
    m_pCenterTreeWidget->setAlternatingRowColors(true);
    m_pCenterTreeWidget->header()->setSectionsMovable(false);
    m_pCenterTreeWidget->setSortingEnabled(false);
    m_pCenterTreeWidget->setRootIsDecorated(false);
    // Every row has the same font and size hint; the list need not measure
    // each one.
    m_pCenterTreeWidget->setUniformRowHeights(true);

    m_pLeftTreeWidget->setMinimumWidth(240);
    m_pCenterTreeWidget->setMinimumWidth(270);

    auto* innerSplitter = new QSplitter(Qt::Horizontal);
    innerSplitter->addWidget(m_pCenterTreeWidget);
    innerSplitter->addWidget(m_pTextBrowser);
    innerSplitter->setStretchFactor(1, 1);
    innerSplitter->setChildrenCollapsible(false);
    m_pTextBrowser->show();
    auto* outerSplitter = new QSplitter(Qt::Horizontal);
    outerSplitter->addWidget(m_pLeftTreeWidget);
    outerSplitter->addWidget(innerSplitter);
    outerSplitter->setStretchFactor(1, 1);
    outerSplitter->setChildrenCollapsible(false);
    const QString splitterStyle = QStringLiteral(
        "QSplitter::handle:vertical   {height: 1px; image: "
        "url(:images/img_Vsplitter.png);}QSplitter::handle:horizontal {width:  1px; image: "
        "url(:images/img_Hsplitter.png);}QSplitter::handle {border: solid #ABABAB; background: "
        "#ABABAB;}");
    innerSplitter->setStyleSheet(splitterStyle);
    outerSplitter->setStyleSheet(splitterStyle);
    setCentralWidget(outerSplitter);
    setWindowTitle(tr("Mail Client"));
}

void PreviewWindow::ConnectSignals() {
    m_pSelectData = new SelectData(nullptr);
    connect(m_pSelectData, &SelectData::StartScanning, this, &PreviewWindow::OnStartScanning);
    m_pSelectData->show();

    InstallEmlxExport();
    m_pScaningThread = new ScaningThread(nullptr);
    m_pInitialProcessInfo = new QInitialProcessInfo(this);
    // The announcements of each message go straight into the pending view,
    // on the scan's thread: the window is woken once for all that arrive
    // before it next shows them, not twice for every message.
    connect(m_pScaningThread, &ScaningThread::ClearLeftTree, this, &PreviewWindow::OnClearLeftTree,
            Qt::DirectConnection);
    connect(m_pScaningThread, &ScaningThread::NewItem, this, &PreviewWindow::OnNewItem,
            Qt::DirectConnection);
    connect(m_pLeftTreeWidget, &QTreeWidget::itemClicked, this,
            &PreviewWindow::ShowindivisualMailItemsInfo);
    connect(m_pCenterTreeWidget, &QTreeWidget::itemSelectionChanged, this,
            &PreviewWindow::OnMessageSubjectChanged);
    connect(m_pScaningThread, &ScaningThread::OnShowingScanProgBar, this,
            &PreviewWindow::ShowScanningProgBar);
    connect(m_pScaningThread, &ScaningThread::OnSettingsForPrgBar, this,
            &PreviewWindow::SetInitialSettings);
    connect(m_pScaningThread, &ScaningThread::CurrentValue, this, &PreviewWindow::SetProgressValue,
            Qt::DirectConnection);
    connect(m_pScaningThread, &ScaningThread::FinishScaning, this, &PreviewWindow::OnFinishScaning);
    connect(m_pTextBrowser->ui->comBoxAttch, QOverload<int>::of(&QComboBox::activated), this,
            &PreviewWindow::OnIndexChange);
}

// ---- folders and messages --------------------------------------------------

void PreviewWindow::LeftTreeView(unsigned long long parentId, unsigned long long id, QString name) {
    if (QThread::currentThread() != thread()) {
        QMetaObject::invokeMethod(
            this, [this, parentId, id, name] { AddFolderItem(parentId, id, name); },
            Qt::BlockingQueuedConnection);
        return;
    }
    AddFolderItem(parentId, id, name);
}

void PreviewWindow::AddFolderItem(unsigned long long parentId, unsigned long long id,
                                  const QString& name) {
    if (m_pLeftTreeWidget->topLevelItemCount() == 0) {
        auto* root = new QTreeWidgetItem(m_pLeftTreeWidget);
        root->setFont(ColName, ItemFont());
        root->setSizeHint(ColName, QSize(22, 22));
        root->setText(ColName, QStringLiteral("Mailbox"));
        root->setText(ColId, QString::number(llRootId));
        root->setText(ColParentId, QStringLiteral("0"));
        root->setCheckState(ColName, Qt::Unchecked);
        root->setText(ColTickCode, QString::number(kNotTicked));
        root->setExpanded(true);
        AppendFolderRecord(0, llRootId, root, kNotTicked);
    }
    if (m_pLeftTreeWidget->topLevelItemCount() == 0)
        return;
    QTreeWidgetItem* parentItem = FolderItem(parentId);
    QTreeWidgetItem* item = nullptr;
    if (parentItem) {
        item = new QTreeWidgetItem;
        item->setFont(ColName, ItemFont());
        item->setSizeHint(ColName, QSize(22, 22));
        item->setText(ColName, name);
        item->setText(ColId, QString::number(id));
        item->setText(ColParentId, QString::number(parentId));
        item->setCheckState(ColName, Qt::Unchecked);
        item->setText(ColTickCode, QString::number(kNotTicked));
        item->setIcon(ColName, ListIcon(ListIconKind::Folder));
        // A folder whose parent is still waiting goes in with it.
        if (parentItem->treeWidget()) {
            if (m_pendingScanView.AddFolder(parentItem, item))
                SchedulePendingScanView();
        } else {
            parentItem->addChild(item);
        }
    }
    AppendFolderRecord(parentId, id, item, kTickUnset);
}

// Empties the message list, with the next showing of the scan's rows: a
// scan empties it whenever it moves to the next folder. Like OnNewItem and
// SetProgressValue, it may be called on the scan's thread.
void PreviewWindow::OnClearLeftTree() {
    if (m_pendingScanView.ClearList())
        SchedulePendingScanView();
}

void PreviewWindow::OnNewItem(QString subject, QString number, void* folderItem, unsigned long long,
                              unsigned long long count, bool hasAttachments, int priority,
                              int labelState) {
    if (m_pendingScanView.AddMessage(static_cast<QTreeWidgetItem*>(folderItem), subject, number,
                                     count, hasAttachments, priority, labelState))
        SchedulePendingScanView();
}

void PreviewWindow::SchedulePendingScanView() {
    if (QThread::currentThread() != thread()) {
        QMetaObject::invokeMethod(this, &PreviewWindow::SchedulePendingScanView,
                                  Qt::QueuedConnection);
        return;
    }
    if (!m_pendingScanTimer.isActive())
        m_pendingScanTimer.start();
}

void PreviewWindow::ShowPendingScanView() {
    m_pendingScanTimer.stop();
    if (m_pendingScanView.IsEmpty())
        return;
    m_pendingScanView.Apply(m_pLeftTreeWidget, m_pCenterTreeWidget,
                            m_pProgressInfo ? m_pProgressInfo->ui->ProgressBar : nullptr);
}

void PreviewWindow::ShowindivisualMailItemsInfo(QTreeWidgetItem* item, int) {
    ShowPendingScanView();
    if (!item)
        return;
    // A click on the tick box has already changed the check state; the code
    // in column 7 still holds the old one.
    const unsigned code = item->text(ColTickCode).toUInt();
    const Qt::CheckState state = item->checkState(ColName);
    if ((state == Qt::Checked && code != kTicked) || (state == Qt::Unchecked && code != kTickUnset))
        LeftTreeWidgetItem(item);
    ClearPreview();
    m_pCenterTreeWidget->clear();
    const FldrAtrib* folder =
        FindFolderRecord(item->text(ColId).toULongLong(), item->text(ColParentId).toULongLong());
    if (!folder || !folder->pFirstMail)
        return;
    QList<QTreeWidgetItem*> rows;
    for (const MailItem* m = folder->pFirstMail; m; m = m->pNext)
        rows.append(NewMessageRow(Utf16Text(m->pSubject, m->ulSubjectSize),
                                  QString::number(m->ullNumber), m->pAttachTail != nullptr,
                                  m->iPriority));
    m_pCenterTreeWidget->addTopLevelItems(rows);
    // The first message is selected and shown.
    QTreeWidgetItem* row = m_pCenterTreeWidget->topLevelItem(0);
    const QSignalBlocker block(m_pCenterTreeWidget);
    m_pCenterTreeWidget->setCurrentItem(row);
    OnMessageSubjectClicked(row, 0);
}

void PreviewWindow::CleanListAndHash() {
    FreeAllFolderRecords();
}

// ---- preview -------------------------------------------------------------

void PreviewWindow::ClearPreview() {
    m_pTextBrowser->ClearFields();
    m_pTextBrowser->ShowEmptyPage();
    m_strFullFrom.clear();
    m_strFullTo.clear();
    m_strFullSubject.clear();
    m_attachmentFiles.clear();
}

void PreviewWindow::OnMessageSubjectChanged() {
    for (int i = 0; i < m_pCenterTreeWidget->topLevelItemCount(); ++i) {
        QTreeWidgetItem* row = m_pCenterTreeWidget->topLevelItem(i);
        if (row->isSelected()) {
            OnMessageSubjectClicked(row, 0);
            return;
        }
    }
}

void PreviewWindow::OnMessageSubjectClicked(QTreeWidgetItem* item, int) {
    ClearPreview();
    // The decoded attachments of the previous message go first.
    const QString attachments = AttachmentFolder();
    if (!attachments.isEmpty() && QFileInfo(attachments).isDir())
        pellomar::RunShellCommand(QStringLiteral("rm -R ") + pellomar::ShellQuote(attachments));
    QTreeWidgetItem* folderItem = m_pLeftTreeWidget->currentItem();
    if (!item || !folderItem)
        return;
    const FldrAtrib* folder = FindFolderRecord(folderItem->text(ColId).toULongLong(),
                                               folderItem->text(ColParentId).toULongLong());
    if (!folder)
        return;
    const quint64 number = item->text(ColNumber).toULongLong();
    const MailItem* mail = folder->pFirstMail;
    while (mail && mail->ullNumber != number)
        mail = mail->pNext;
    if (!mail)
        return;
    Ui::TextBrowserDlg* f = m_pTextBrowser->ui;
    const QFontMetrics metrics(f->subjBrowser->font());
    const int width = f->subjBrowser->width();
    if (mail->pFrom) {
        m_strFullFrom = Utf16Text(mail->pFrom, mail->ulFromSize);
        ShowElided(f->fromBrowser, m_strFullFrom, metrics, width);
    }
    if (mail->pTo) {
        m_strFullTo = QStringLiteral("To: ") + Utf16Text(mail->pTo, mail->ulToSize);
        ShowElided(f->toBrowser, m_strFullTo, metrics, width);
    }
    if (mail->pSubject) {
        m_strFullSubject = Utf16Text(mail->pSubject, mail->ulSubjectSize);
        ShowElided(f->subjBrowser, m_strFullSubject, metrics, width);
    }
    if (mail->pDate)
        f->dateBrowser->setText(QString::fromLatin1(mail->pDate, int(mail->ulDateSize)));

    // The HTML body when there is one, otherwise the plain one.
    const QString path = Utf16Text(mail->pPath, mail->ulPathSize);
    if (mail->llHtmlStart && mail->llHtmlEnd) {
        m_pTextBrowser->ShowBody(DecodeBodyRange(path, mail->llHtmlStart, mail->llHtmlEnd,
                                                 mail->pTransferEncoding, mail->pHtmlCharset),
                                 true);
    } else if (mail->llPlainStart && mail->llPlainEnd) {
        m_pTextBrowser->ShowBody(DecodeBodyRange(path, mail->llPlainStart, mail->llPlainEnd,
                                                 mail->pTransferEncoding, mail->pPlainCharset),
                                 false);
    }

    if (!mail->pAttachTail) {
        f->comBoxAttch->hide();
        return;
    }
    f->comBoxAttch->addItem(QStringLiteral("Attachment List"));
    f->comBoxAttch->show();
    for (const AttachmentEntry* a = mail->pAttachHead; a; a = a->pNext)
        f->comBoxAttch->addItem(ListIcon(ListIconKind::Attachment),
                                Utf16Text(a->pName, a->ulNameSize));
    m_attachmentFiles = WriteAttachments(mail, AttachmentFolder());
    // Showing the attachment list narrows the header fields: elide again
    // once the layout has settled.
    QTimer::singleShot(0, this, &PreviewWindow::ReElideHeaderFields);
}

void PreviewWindow::OnIndexChange(int index) {
    if (index <= 0 || index > m_attachmentFiles.size())
        return;
    const QString folder = AttachmentFolder();
    if (folder.isEmpty())
        return;
    // The output file is made anew (mode 0600) before the shell writes to it.
    const QString output = folder + QStringLiteral("/sys_mail_att");
    const int out = pellomar::CreatePrivateFile(output);
    if (out < 0)
        return;
    ::close(out);
    pellomar::RunShellCommand(
        QStringLiteral("xdg-open ") +
        pellomar::ShellQuote(folder + QLatin1Char('/') + m_attachmentFiles.at(index - 1)) +
        QStringLiteral(">& ") + pellomar::ShellQuote(output));
    QString reason;
    const int fd = pellomar::OpenRegularFile(output, &reason);
    QFile result;
    if (fd < 0 ||
        !result.open(fd, QIODevice::ReadOnly | QIODevice::Text, QFileDevice::AutoCloseHandle)) {
        if (fd >= 0)
            ::close(fd);
        return;
    }
    const QByteArray first = result.readLine();
    // The first text is what macOS "open" prints, the second xdg-open's.
    if (first.contains("No application knows how to open") ||
        first.contains("no method available for opening"))
        QMessageBox::information(this, QStringLiteral("Pellomar"),
                                 QStringLiteral("Unknown file format."), QMessageBox::Ok);
}

// ---- scan, save, progress ------------------------------------------------

void PreviewWindow::SetFileActionsEnabled(bool open, bool save) {
    m_pOpenFile->setEnabled(open);
    m_pOpenFileMenu->setEnabled(open);
    m_pSaveFile->setEnabled(save);
    m_pSaveFileMenu->setEnabled(save);
}

void PreviewWindow::OnStartScanning() {
    if (bProcessRunning || m_pScaningThread->isRunning())
        return; // a run is under way; its records are still in use
    m_pInitialProcessInfo->Start();
    m_pTextBrowser->ShowEmptyPage();
    // The pending view points into the trees cleared here; what it holds of
    // an earlier run must not reach this run's progress bar either.
    m_pendingScanTimer.stop();
    m_pendingScanView.Clear();
    m_pLeftTreeWidget->clear();
    m_pCenterTreeWidget->clear();
    m_pTextBrowser->ClearFields();
    CleanListAndHash();
    SetFileActionsEnabled(false, false);
    IsPreview = true;
    bProcessRunning = true;
    m_pScaningThread->m_options = m_pExportOptions->Options();
    m_pScaningThread->SetInitialSettings();
}

void PreviewWindow::OnOpenFile() {
    m_pSelectData->DefaultDatabaseLocation();
    m_pSelectData->show();
    m_pSelectData->raise();
}

// The progress steps waiting in the pending view were made after this run
// announced its bar, so they are left for the new bar.
void PreviewWindow::ShowScanningProgBar() {
    m_pInitialProcessInfo->Stop();
    // Each run gets a new dialog; the last run's (hidden by now) goes.
    if (m_pProgressInfo)
        m_pProgressInfo->deleteLater();
    m_pProgressInfo = new QProgressInfo(this);
    m_pProgressInfo->setAttribute(Qt::WA_DeleteOnClose);
    connect(m_pProgressInfo, &QProgressInfo::OnAbort, this, &PreviewWindow::OnAbortSettings);
    connect(m_pProgressInfo, &QProgressInfo::DisableToSave, this, &PreviewWindow::OnDisableToSave);
    connect(m_pProgressInfo, &QProgressInfo::EnableToOpenFind, this,
            &PreviewWindow::OnEnableToOpenFind);
    m_pProgressInfo->show();
    m_pProgressInfo->ui->AnimationLabel->hide();
    m_pProgressInfo->ui->StatusLabel->show();
    m_pProgressInfo->ui->StopButton->show();
    m_pProgressInfo->ui->ProgressBar->reset();
    m_pProgressInfo->ui->ProgressBar->show();
}

void PreviewWindow::SetInitialSettings(unsigned long total, QString text) {
    if (!m_pProgressInfo)
        return;
    Ui::ProgressDialog* p = m_pProgressInfo->ui;
    p->AnimationLabel->setMovie(m_pProgressInfo->m_pMovie);
    p->AnimationLabel->show();
    m_pProgressInfo->m_pMovie->start();
    p->StatusLabel->setText(text);
    p->ProgressBar->reset();
    // The bar counts in int; very large totals are scaled by the bar itself.
    p->ProgressBar->setRange(0, int(qMin<unsigned long>(total, INT_MAX)));
    p->ProgressBar->setValue(0);
}

void PreviewWindow::SetProgressValue() {
    if (m_pendingScanView.AddProgressStep())
        SchedulePendingScanView();
}

void PreviewWindow::OnFinishScaning() {
    ShowPendingScanView();
    m_pInitialProcessInfo->Stop();
    if (!bProcessRunning) {
        if (!bStopFlag) {
            m_pSaveFile->setEnabled(true);
            m_pSaveFileMenu->setEnabled(true);
        }
        m_pOpenFile->setEnabled(true);
        m_pOpenFileMenu->setEnabled(true);
    }
    if (bStopFlag)
        return;
    if (m_pProgressInfo)
        m_pProgressInfo->hide();
    if (!IsPreview) {
        for (FldrAtrib* f = StartFldrAtrib; f; f = f->pNext)
            f->ucTickState = kNotTicked;
        for (QTreeWidgetItemIterator it(m_pLeftTreeWidget); *it; ++it)
            (*it)->setCheckState(ColName, Qt::Unchecked);
        IsPreview = true;
        const RunResult& result = m_pScaningThread->LastExport();
        QString text = QStringLiteral("\nFile saved successfully at location ") + saveDir +
                       PackageName(strTime);
        if (result.HasLosses())
            text += QLatin1Char('\n') + LossSummaryLine(result);
        QImportWindow::Open(text);
        ShowLossWarning(this, result, true);
        return;
    }
    if (IsConverted) {
        QMessageBox::information(nullptr, QStringLiteral("Vortiga"),
                                 QStringLiteral("File scan completed successfully."));
        m_pCenterTreeWidget->clear();
        ShowLastFolder();
    } else {
        QMessageBox::information(
            nullptr, QString(),
            QStringLiteral("Scanned file is either an invalid file or heavily damaged."));
        SetFileActionsEnabled(true, false);
    }
    ShowLossWarning(this, m_pScaningThread->LastScan(), false);
    if (m_pProgressInfo)
        m_pProgressInfo->m_pMovie->stop();
}

void PreviewWindow::OnAbortSettings() {
    if (!bProcessRunning) {
        if (m_pProgressInfo)
            m_pProgressInfo->hide();
        if (bStopFlag) {
            m_pSaveFile->setEnabled(true);
            m_pSaveFileMenu->setEnabled(true);
        }
        m_pOpenFile->setEnabled(true);
        m_pOpenFileMenu->setEnabled(true);
    }
    if (bStopFlag) {
        if (m_pProgressInfo)
            m_pProgressInfo->hide();
        QMessageBox::information(nullptr, QString(),
                                 QStringLiteral("Saving process aborted. Files saved partially."));
    }
    bStopFlag = false;
}

void PreviewWindow::OnDisableToSave() {
    m_pSaveFile->setEnabled(true);
    m_pSaveFileMenu->setEnabled(true);
}

void PreviewWindow::OnEnableToOpenFind() {
    ShowPendingScanView();
    if (!IsPreview) {
        SetFileActionsEnabled(true, true);
        return;
    }
    m_pOpenFile->setEnabled(true);
    m_pOpenFileMenu->setEnabled(true);
    ShowLastFolder();
}

// Selects the last folder of the scan and lists its messages, if it has any.
void PreviewWindow::ShowLastFolder() {
    const FldrAtrib* last = LastFolderRecord();
    if (last && last->ullMsgCount && last->pTreeItem) {
        auto* item = static_cast<QTreeWidgetItem*>(last->pTreeItem);
        m_pLeftTreeWidget->setCurrentItem(item);
        ShowindivisualMailItemsInfo(item, 0);
    }
}

// ---- help, about, support -------------------------------------------------

void PreviewWindow::OpenHelp() {
    QDesktopServices::openUrl(
        QUrl::fromLocalFile(HelpFilePath + QStringLiteral("/PellomarHelp.html")));
}

void PreviewWindow::OpenAboutProduct() {
    QMessageBox::about(
        this, QStringLiteral("About Pellomar"),
        QStringLiteral("<h3>Pellomar %1</h3>"
                       "<p>Converts Apple Mail mailboxes into an archive that Outlook 2011 for "
                       "Mac imports.</p>"
                       "<p>Qt %2 (built with %3)<br>%4 (%5)</p>")
            .arg(QStringLiteral(PELLOMAR_VERSION), QString::fromLatin1(qVersion()),
                 QStringLiteral(QT_VERSION_STR), QSysInfo::prettyProductName(),
                 QSysInfo::currentCpuArchitecture()));
}

void PreviewWindow::OpenSupportLink(const QString& key) {
    const QString link = ReadPlistStrings(strPlistPath).value(key);
    if (!link.isEmpty())
        QDesktopServices::openUrl(QUrl(link));
}

void PreviewWindow::OnEmailSupport() {
    OpenSupportLink(QStringLiteral("SupportEmail"));
}
void PreviewWindow::OnSupportSection() {
    OpenSupportLink(QStringLiteral("SupportSection"));
}
void PreviewWindow::OnSubmitEnquiry() {
    OpenSupportLink(QStringLiteral("SubmitEnquiry"));
}
void PreviewWindow::OnKnowledgebase() {
    OpenSupportLink(QStringLiteral("KnowledgebaseArticles"));
}

// ---- window events --------------------------------------------------------

void PreviewWindow::closeEvent(QCloseEvent* event) {
    if (bProcessRunning) {
        QMessageBox::warning(
            this, QStringLiteral("Pellomar"),
            QStringLiteral("Application Running !!\nPlease halt the current process to exit."),
            QMessageBox::Ok);
        event->ignore();
        return;
    }
    if (closeevent) {
        event->accept();
        return;
    }
    const auto answer = QMessageBox::warning(this, QStringLiteral("Pellomar"),
                                             QStringLiteral("Do you want to close Pellomar?"),
                                             QMessageBox::Yes | QMessageBox::No);
    if (answer == QMessageBox::Yes)
        event->accept();
    else
        event->ignore();
}

void PreviewWindow::resizeEvent(QResizeEvent* event) {
    QMainWindow::resizeEvent(event);
    ReElideHeaderFields();
}

void PreviewWindow::ReElideHeaderFields() {
    Ui::TextBrowserDlg* f = m_pTextBrowser->ui;
    const QFontMetrics metrics(font());
    if (!m_strFullSubject.isEmpty())
        ShowElided(f->subjBrowser, m_strFullSubject, metrics, f->subjBrowser->width() - 1);
    if (!m_strFullFrom.isEmpty())
        ShowElided(f->fromBrowser, m_strFullFrom, metrics, f->fromBrowser->width() - 1);
    if (!m_strFullTo.isEmpty())
        ShowElided(f->toBrowser, m_strFullTo, metrics, f->toBrowser->width() - 1);
}
