#include "ui/PreviewWindow.h"
#include "accounts/AccountNames.h"
#include "export/ExportJob.h"
#include "scanner/MailPaths.h"
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
#include <QDir>
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
#include <QStandardItemModel>
#include <QSysInfo>
#include <QTextEdit>
#include <QTimer>
#include <QToolBar>
#include <QTreeWidget>
#include <QTreeWidgetItemIterator>
#include <QUrl>

#include "ui_ProgressDialog.h"

namespace {

// How long the scan's announcements may wait before they are shown, in ms.
constexpr int kPendingScanInterval = 200;

// A header text on one line, elided to the width of its own field. The text
// is plain: an address in angle brackets is not markup.
void ShowElided(QTextEdit* field, const QString& fullText) {
    const int room = field->viewport()->width() - 2 * int(field->document()->documentMargin()) - 1;
    field->setPlainText(
        field->fontMetrics().elidedText(OneLine(fullText), Qt::ElideRight, qMax(0, room)));
    field->moveCursor(QTextCursor::Start);
    field->ensureCursorVisible();
}

} // namespace

// A folder of the tree. Its tick box shows the tick state the window's store
// keeps for the folder, and a click on it changes that state: the item keeps
// no state of its own.
class FolderTreeItem : public QTreeWidgetItem {
public:
    FolderTreeItem(PreviewWindow* window, unsigned long long id)
        : QTreeWidgetItem(UserType), m_window(window), m_id(id) {}

    QVariant data(int column, int role) const override {
        if (column == ColName && role == Qt::CheckStateRole)
            return m_window->FolderCheckState(m_id);
        return QTreeWidgetItem::data(column, role);
    }
    void setData(int column, int role, const QVariant& value) override {
        if (column == ColName && role == Qt::CheckStateRole) {
            m_window->LeftTreeWidgetItem(this, Qt::CheckState(value.toInt()));
            return;
        }
        QTreeWidgetItem::setData(column, role, value);
    }

private:
    PreviewWindow* m_window;
    unsigned long long m_id;
};

PreviewWindow::PreviewWindow(QWidget* parent)
    : QMainWindow(parent), m_resources(ResourcePaths::FromApplication()),
      m_privateDir(QDir::tempPath() + QStringLiteral("/pellomar-XXXXXX")),
      ui(new Ui::MainWindowUi) {
    Q_INIT_RESOURCE(images);
    ui->setupUi(this);
    OnInitialize();
    CreateLeftDockWindows();
    const QRect desktop = QGuiApplication::primaryScreen()->availableGeometry();
    // Room for a folder tree, a list with sender, subject and date, and a
    // preview, on screens that have it.
    resize(qMin(1280, desktop.width() * 9 / 10), qMin(800, desktop.height() * 9 / 10));
    move(desktop.x() + qMax(0, (desktop.width() - width()) / 2),
         desktop.y() + qMax(0, (desktop.height() - height()) / 2));
    ConnectSignals();
    setUnifiedTitleAndToolBarOnMac(true);
    setContextMenuPolicy(Qt::NoContextMenu);
    m_pendingScanTimer.setSingleShot(true);
    m_pendingScanTimer.setInterval(kPendingScanInterval);
    connect(&m_pendingScanTimer, &QTimer::timeout, this, &PreviewWindow::ShowPendingScanView);
}

PreviewWindow::~PreviewWindow() {
    // A running job reads what this window owns: it is stopped and waited for.
    if (m_pScaningThread) {
        m_pScaningThread->bStopFlag = true;
        m_pScaningThread->wait();
        delete m_pScaningThread;
    }
    delete ui;
}

void PreviewWindow::OnInitialize() {
    m_pTextBrowser = new TextBrowser(this);
    m_pTextBrowser->m_strPrivateDir = m_privateDir.path();
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
    // Ctrl+N as always, and the platform's Open key where that is another.
    QList<QKeySequence> open{QKeySequence(QStringLiteral("Ctrl+N"))};
    for (const QKeySequence& key : QKeySequence::keyBindings(QKeySequence::Open))
        if (!open.contains(key))
            open << key;
    m_pOpenFileMenu->setShortcuts(open);
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
    m_pHelpTopics->setShortcut(QKeySequence::HelpContents);
    m_pQuit = new QAction(QStringLiteral("&Quit"), this);
    m_pQuit->setShortcut(QKeySequence::Quit);
    m_pQuit->setMenuRole(QAction::QuitRole);
    connect(m_pQuit, &QAction::triggered, this, &QWidget::close);
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
    m_pFileMenu->addSeparator();
    m_pFileMenu->addAction(m_pQuit);
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
    SetUpMessageList(m_pCenterTreeWidget);
    m_pCenterTreeWidget->setAlternatingRowColors(true);
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
    // Room for the sender, subject and date of a message beside the preview.
    innerSplitter->setSizes({640, 400});
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
    m_pScaningThread = new ScaningThread(nullptr);
    m_pInitialProcessInfo = new QInitialProcessInfo(this);
    // The announcements of each folder and message go straight into the
    // pending view, on the scan's thread, in the order they are made: the
    // window is woken once for all that arrive before it next shows them,
    // not twice for every message.
    connect(m_pScaningThread, &ScaningThread::NewFolder, this, &PreviewWindow::LeftTreeView,
            Qt::DirectConnection);
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
    connect(m_pScaningThread, &QThread::finished, this, &PreviewWindow::OnThreadFinished);
    connect(m_pTextBrowser->ui->comBoxAttch, QOverload<int>::of(&QComboBox::activated), this,
            &PreviewWindow::OnIndexChange);
    for (QWidget* field : {static_cast<QWidget*>(m_pTextBrowser->ui->fromBrowser),
                           static_cast<QWidget*>(m_pTextBrowser->ui->toBrowser),
                           static_cast<QWidget*>(m_pTextBrowser->ui->subjBrowser)})
        field->installEventFilter(this);
}

// ---- folders and messages --------------------------------------------------

// A new folder of the scan. It may be called on the scan's thread; the
// folder joins the tree with the next showing of the scan's view, in order.
void PreviewWindow::LeftTreeView(unsigned long long parentId, unsigned long long id, QString name) {
    if (m_pendingScanView.AddFolder(parentId, id, name))
        SchedulePendingScanView();
}

QTreeWidgetItem* PreviewWindow::AddFolderItem(unsigned long long parentId, unsigned long long id,
                                              const QString& name) {
    if (m_pLeftTreeWidget->topLevelItemCount() == 0) {
        auto* root = new FolderTreeItem(this, llRootId);
        root->setFont(ColName, ItemFont());
        root->setSizeHint(ColName, QSize(22, 22));
        root->setText(ColName, QStringLiteral("Mailbox"));
        root->setText(ColId, QString::number(llRootId));
        root->setText(ColParentId, QStringLiteral("0"));
        m_pLeftTreeWidget->addTopLevelItem(root);
        root->setExpanded(true);
        m_folderItems.insert(llRootId, root);
    }
    QTreeWidgetItem* parentItem = FolderItem(parentId);
    if (!parentItem)
        return nullptr;
    auto* item = new FolderTreeItem(this, id);
    item->setFont(ColName, ItemFont());
    item->setSizeHint(ColName, QSize(22, 22));
    item->setText(ColName, name);
    item->setText(ColId, QString::number(id));
    item->setText(ColParentId, QString::number(parentId));
    item->setIcon(ColName, ListIcon(ListIconKind::Folder));
    parentItem->addChild(item);
    parentItem->setExpanded(true);
    return item;
}

// Empties the message list, with the next showing of the scan's rows: a
// scan empties it whenever it moves to the next folder. Like OnNewItem and
// SetProgressValue, it may be called on the scan's thread.
void PreviewWindow::OnClearLeftTree() {
    if (m_pendingScanView.ClearList())
        SchedulePendingScanView();
}

void PreviewWindow::OnNewItem(QString subject, QString number, unsigned long long folderId,
                              unsigned long long count, bool hasAttachments, int priority,
                              int labelState, MessageSummary summary) {
    if (m_pendingScanView.AddMessage(folderId, subject, number, count, hasAttachments, priority,
                                     labelState, summary))
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
    m_pendingScanView.Apply(
        [this](unsigned long long parentId, unsigned long long id, const QString& name) {
            return AddFolderItem(parentId, id, name);
        },
        m_folderItems, m_pLeftTreeWidget, m_pCenterTreeWidget,
        m_pProgressInfo ? m_pProgressInfo->ui->ProgressBar : nullptr);
}

void PreviewWindow::ShowindivisualMailItemsInfo(QTreeWidgetItem* item, int) {
    ShowPendingScanView();
    if (!item)
        return;
    ClearPreview();
    m_pCenterTreeWidget->clear();
    const FldrAtrib* folder = m_store.Folder(item->text(ColId).toULongLong());
    if (!folder || folder->messages.empty())
        return;
    QList<QTreeWidgetItem*> rows;
    rows.reserve(int(folder->messages.size()));
    for (size_t i = 0; i < folder->messages.size(); ++i) {
        const MailItem& m = folder->messages[i];
        // The file a scan ended at holds nothing to show.
        if (!m.readable)
            continue;
        rows.append(NewMessageRow(m.subject, QString::number(m.ullNumber), m.HasAttachments(),
                                  m.iPriority, int(i), SummaryOf(m)));
    }
    m_pCenterTreeWidget->addTopLevelItems(rows);
    SortAsChosen(m_pCenterTreeWidget);
    // The first message is selected and shown.
    QTreeWidgetItem* row = m_pCenterTreeWidget->topLevelItem(0);
    const QSignalBlocker block(m_pCenterTreeWidget);
    m_pCenterTreeWidget->setCurrentItem(row);
    OnMessageSubjectClicked(row, 0);
}

void PreviewWindow::CleanListAndHash() {
    m_store = Store();
}

void PreviewWindow::ShowStore(Store store) {
    m_pendingScanTimer.stop();
    m_pendingScanView.Clear();
    m_pLeftTreeWidget->clear();
    m_pCenterTreeWidget->clear();
    m_folderItems.clear();
    ClearPreview();
    m_store = std::move(store);
    for (const FldrAtrib& f : m_store.Folders())
        if (f.ullId != llRootId)
            if (QTreeWidgetItem* item = AddFolderItem(f.ullParentId, f.ullId, f.displayName))
                m_folderItems.insert(f.ullId, item);
    SetFileActionsEnabled(true, !m_store.IsEmpty());
}

// Takes over the store of the scan that has just ended (completely or
// stopped), once.
void PreviewWindow::AdoptScannedStore() {
    if (!m_scanJob || !IsPreview)
        return;
    m_store = std::move(m_scanJob->store);
    m_scanJob.reset();
}

void PreviewWindow::OnThreadFinished() {
    ShowPendingScanView();
    if (!m_scanJob)
        return;
    // A scan that was stopped: what it found stays and can be saved.
    AdoptScannedStore();
    if (m_pCenterTreeWidget->topLevelItemCount() == 0)
        ShowLastFolder();
}

bool PreviewWindow::RunUnderWay() const {
    return m_pScaningThread && (m_pScaningThread->bProcessRunning || m_pScaningThread->isRunning());
}

Qt::CheckState PreviewWindow::FolderCheckState(unsigned long long id) const {
    const FldrAtrib* f = m_store.Folder(id);
    if (!f || f->ucTickState == kNotTicked || f->ucTickState == kTickUnset)
        return Qt::Unchecked;
    return f->ucTickState == kTicked ? Qt::Checked : Qt::PartiallyChecked;
}

void PreviewWindow::LeftTreeWidgetItem(QTreeWidgetItem* item, Qt::CheckState state) {
    // Only the user's clicks change ticks, and only between runs: an export
    // reads the store meanwhile.
    if (item && !RunUnderWay()) {
        const TickCode code = state == Qt::Checked            ? kTicked
                              : state == Qt::PartiallyChecked ? kPartlyTicked
                                                              : kNotTicked;
        m_store.SetTick(item->text(ColId).toULongLong(), code);
    }
    SetRecoverSelectedState();
}

void PreviewWindow::SetRecoverSelectedState() {
    m_pLeftTreeWidget->viewport()->update();
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

QString PreviewWindow::AttachmentFolder() const {
    return m_privateDir.isValid() ? m_privateDir.filePath(QStringLiteral("sys_mail_att"))
                                  : QString();
}

void PreviewWindow::OnMessageSubjectClicked(QTreeWidgetItem* item, int) {
    ClearPreview();
    // The decoded attachments of the previous message go first.
    const QString attachments = AttachmentFolder();
    if (!attachments.isEmpty())
        QDir(attachments).removeRecursively();
    QTreeWidgetItem* folderItem = m_pLeftTreeWidget->currentItem();
    if (!item || !folderItem)
        return;
    const FldrAtrib* folder = m_store.Folder(folderItem->text(ColId).toULongLong());
    const int index = MessageIndexOf(item);
    if (!folder || index < 0 || size_t(index) >= folder->messages.size())
        return;
    const MailItem& mail = folder->messages[size_t(index)];
    Ui::TextBrowserDlg* f = m_pTextBrowser->ui;
    m_strFullFrom = mail.from;
    m_strFullTo = mail.to.isEmpty() ? QString() : QStringLiteral("To: ") + mail.to;
    m_strFullSubject = mail.subject;
    ReElideHeaderFields();
    if (!mail.date.isNull())
        f->dateBrowser->setPlainText(QString::fromLatin1(mail.date));

    // The HTML body when there is one, otherwise the plain one.
    if (mail.llHtmlStart && mail.llHtmlEnd) {
        m_pTextBrowser->ShowBody(DecodeBodyRange(mail.Path(), mail.llHtmlStart, mail.llHtmlEnd,
                                                 mail.transferEncoding, mail.htmlCharset),
                                 true);
    } else if (mail.llPlainStart && mail.llPlainEnd) {
        m_pTextBrowser->ShowBody(DecodeBodyRange(mail.Path(), mail.llPlainStart, mail.llPlainEnd,
                                                 mail.transferEncoding, mail.plainCharset),
                                 false);
    }

    if (!mail.HasAttachments()) {
        f->comBoxAttch->hide();
        return;
    }
    f->comBoxAttch->addItem(QStringLiteral("Attachment List"));
    f->comBoxAttch->show();
    auto* model = qobject_cast<QStandardItemModel*>(f->comBoxAttch->model());
    for (const AttachmentEntry& a : mail.attachments) {
        if (!a.missing) {
            f->comBoxAttch->addItem(ListIcon(ListIconKind::Attachment), a.name);
            continue;
        }
        // Nothing to open: shown, marked, and not to be chosen.
        f->comBoxAttch->addItem(a.name + QStringLiteral(" (not in the store)"));
        if (QStandardItem* entry = model ? model->item(f->comBoxAttch->count() - 1) : nullptr) {
            entry->setEnabled(false);
            entry->setToolTip(QStringLiteral("Apple Mail kept this attachment apart from the "
                                             "message, and its file is not in the mail folder."));
        }
    }
    m_attachmentFiles = WriteAttachments(mail, AttachmentFolder());
}

bool PreviewWindow::OpenWithApplication(const QString& file) {
    return QDesktopServices::openUrl(QUrl::fromLocalFile(file));
}

void PreviewWindow::OnIndexChange(int index) {
    if (index <= 0 || index > m_attachmentFiles.size())
        return;
    const QString name = m_pTextBrowser->ui->comBoxAttch->itemText(index);
    const QString file = AttachmentFolder() + QLatin1Char('/') + m_attachmentFiles.at(index - 1);
    if (!QFileInfo(file).isFile()) {
        QMessageBox::warning(
            this, QStringLiteral("Pellomar"),
            QStringLiteral("The attachment \"") + name +
                QStringLiteral("\" could not be written to the preview's folder:\n") +
                AttachmentFolder(),
            QMessageBox::Ok);
        return;
    }
    if (!OpenWithApplication(file)) {
        QMessageBox box(QMessageBox::Information, QStringLiteral("Pellomar"),
                        QStringLiteral("Unknown file format."), QMessageBox::Ok, this);
        box.setInformativeText(QStringLiteral("No application on this computer opens \"") + name +
                               QStringLiteral("\"."));
        box.exec();
    }
}

// ---- scan, save, progress ------------------------------------------------

void PreviewWindow::SetFileActionsEnabled(bool open, bool save) {
    m_pOpenFile->setEnabled(open);
    m_pOpenFileMenu->setEnabled(open);
    m_pSaveFile->setEnabled(save);
    m_pSaveFileMenu->setEnabled(save);
}

void PreviewWindow::OnStartScanning() {
    if (RunUnderWay())
        return; // a run is under way; its records are still in use
    m_pInitialProcessInfo->Start();
    m_pTextBrowser->ShowEmptyPage();
    // The pending view refers to the trees cleared here; what it holds of
    // an earlier run must not reach this run's progress bar either.
    m_pendingScanTimer.stop();
    m_pendingScanView.Clear();
    m_pLeftTreeWidget->clear();
    m_pCenterTreeWidget->clear();
    m_folderItems.clear();
    m_pTextBrowser->ClearFields();
    CleanListAndHash();
    SetFileActionsEnabled(false, false);
    ScanOptions options;
    options.keepGoing = m_pExportOptions->Options().keepGoing;
    options.m_strDefaultMailPath = DefaultMailPathFor(pellomar::ConsoleUserName());
    QString accountsWarning;
    options.accountNames =
        AccountDisplayNames(ReadAccountNames(m_strInputfilepath, &accountsWarning));
    if (!accountsWarning.isEmpty())
        qWarning("%s", qUtf8Printable(accountsWarning));
    m_scanJob = std::make_unique<ScanJob>(m_strInputfilepath, options);
    m_pScaningThread->SetJob(m_scanJob.get());
    IsPreview = true;
    m_pScaningThread->bProcessRunning = true;
    m_pScaningThread->SetInitialSettings();
}

void PreviewWindow::OnOpenFile() {
    emit OpenFileRequested();
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
    const bool stopped = m_pScaningThread->bStopFlag;
    if (!m_pScaningThread->bProcessRunning) {
        if (!stopped) {
            m_pSaveFile->setEnabled(true);
            m_pSaveFileMenu->setEnabled(true);
        }
        m_pOpenFile->setEnabled(true);
        m_pOpenFileMenu->setEnabled(true);
    }
    if (stopped)
        return;
    if (m_pProgressInfo)
        m_pProgressInfo->hide();
    if (!IsPreview) {
        // The ticks, the folder and the message shown stay as they were: the
        // user may save the same folders again, or add to them.
        IsPreview = true;
        const RunResult& result = m_exportRun->result;
        // A package that could not be made or written has nothing to import.
        if (result.ending == RunResult::Ending::Failed) {
            ShowSaveFailure(this, result);
            return;
        }
        const EndOfSave end =
            DescribeSave(result, m_exportRun->verified ? &m_exportRun->verification : nullptr,
                         m_exportRun->Job().Package());
        QImportWindow::Open(end.text, m_resources, this, end.details);
        return;
    }
    AdoptScannedStore();
    if (m_store.IsConverted) {
        m_pCenterTreeWidget->clear();
        ShowLastFolder();
    } else {
        SetFileActionsEnabled(true, false);
    }
    if (m_pProgressInfo)
        m_pProgressInfo->m_pMovie->stop();
    ShowEndOfScan(this, m_store.result, m_store.IsConverted);
}

void PreviewWindow::OnAbortSettings() {
    ScaningThread* t = m_pScaningThread;
    if (!t->bProcessRunning) {
        if (m_pProgressInfo)
            m_pProgressInfo->hide();
        if (t->bStopFlag) {
            m_pSaveFile->setEnabled(true);
            m_pSaveFileMenu->setEnabled(true);
        }
        m_pOpenFile->setEnabled(true);
        m_pOpenFileMenu->setEnabled(true);
    }
    if (t->bStopFlag) {
        if (m_pProgressInfo)
            m_pProgressInfo->hide();
        QMessageBox::information(nullptr, QString(),
                                 QStringLiteral("Saving process aborted. Files saved partially."));
    }
    t->bStopFlag = false;
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
    const FldrAtrib* last = m_store.EndFldrAtrib();
    QTreeWidgetItem* item = last && last->MsgCount() ? FolderItem(last->ullId) : nullptr;
    if (item) {
        m_pLeftTreeWidget->setCurrentItem(item);
        ShowindivisualMailItemsInfo(item, 0);
    }
}

// ---- help, about, support -------------------------------------------------

void PreviewWindow::OpenHelp() {
    QDesktopServices::openUrl(
        QUrl::fromLocalFile(m_resources.HelpFilePath + QStringLiteral("/PellomarHelp.html")));
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
    const QString link = ReadPlistStrings(m_resources.strPlistPath).value(key);
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
    if (m_pScaningThread->bProcessRunning) {
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
    if (!m_strFullSubject.isEmpty())
        ShowElided(f->subjBrowser, m_strFullSubject);
    if (!m_strFullFrom.isEmpty())
        ShowElided(f->fromBrowser, m_strFullFrom);
    if (!m_strFullTo.isEmpty())
        ShowElided(f->toBrowser, m_strFullTo);
}

bool PreviewWindow::eventFilter(QObject* watched, QEvent* event) {
    // A field that changes width (the window or a splitter moved) shows
    // its text elided anew.
    if (event->type() == QEvent::Resize)
        ReElideHeaderFields();
    return QMainWindow::eventFilter(watched, event);
}
