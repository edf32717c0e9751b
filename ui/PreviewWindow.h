#pragma once
// The application's main window: folder tree, message list and preview side
// by side, menus, tool bar, and the slots that drive a scan or a save.

#include "scanner/Store.h"
#include "ui/MessageList.h"
#include "ui/ResourcePaths.h"

#include <QDateTime>
#include <QHash>
#include <QMainWindow>
#include <QPointer>
#include <QTemporaryDir>
#include <QTimer>

#include <memory>

class QAction;
class QMenu;
class QToolBar;
class QTreeWidget;
class QTreeWidgetItem;
class ExportOptions;
class ExportRun;
class ScanJob;
class ScaningThread;
class TextBrowser;
class QProgressInfo;
class QInitialProcessInfo;

namespace Ui {
class MainWindowUi;
}

// Columns of the folder tree: the name (with the tick box), the folder's
// identifier and its parent's.
enum FolderTreeColumn { ColName = 0, ColId = 1, ColParentId = 2, FolderColumns = 8 };

class PreviewWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit PreviewWindow(QWidget* parent = nullptr);
    ~PreviewWindow() override;

    // Shows a store that was scanned elsewhere, as if this window had
    // scanned it: its folders in the tree, ready to tick and save.
    void ShowStore(Store store);

    // Forgets the folders and messages of the last scan.
    void CleanListAndHash();

    // The user set the tick box of a folder to `state`: the store's tick
    // states follow (the folders below and above it too) and the tree shows
    // them.
    void LeftTreeWidgetItem(QTreeWidgetItem* item, Qt::CheckState state);
    // Redraws the tick boxes from the store.
    void SetRecoverSelectedState();
    // The tick box of folder `id` as the store has it.
    Qt::CheckState FolderCheckState(unsigned long long id) const;
    // The tree item of a folder, or null.
    QTreeWidgetItem* FolderItem(unsigned long long id) const { return m_folderItems.value(id); }
    // Shows at once what the scan announced and the window has not shown yet
    // (folders, rows, folder labels, current folder, progress); a timer does
    // it a few times a second while a scan runs.
    void ShowPendingScanView();
    // A run is under way: its records are in use.
    bool RunUnderWay() const;
    // The folder that holds the decoded attachments of the message shown.
    QString AttachmentFolder() const;

    QTreeWidget* m_pLeftTreeWidget = nullptr;
    QTreeWidget* m_pCenterTreeWidget = nullptr;
    TextBrowser* m_pTextBrowser = nullptr;
    ScaningThread* m_pScaningThread = nullptr;
    QPointer<QProgressInfo> m_pProgressInfo;
    QInitialProcessInfo* m_pInitialProcessInfo = nullptr;

    QAction* m_pOpenFileMenu = nullptr; // "Open File"
    QAction* m_pSaveFileMenu = nullptr; // "Save File"
    QAction* m_pOpenFile = nullptr;     // "Open" (tool bar)
    QAction* m_pSaveFile = nullptr;     // "Save" (tool bar)
    QAction* m_pHelpFile = nullptr;     // "Help" (tool bar)
    QAction* m_pHelpTopics = nullptr;
    QAction* m_pQuit = nullptr; // "Quit", which closes the window as its close box does
    QAction* m_pAbout = nullptr;
    QAction* m_pEmailSupport = nullptr;
    QAction* m_pSupportSection = nullptr;
    QAction* m_pSubmitEnquiry = nullptr;
    QAction* m_pKnowledgebase = nullptr;
    QMenu* m_pAppMenu = nullptr;
    QMenu* m_pFileMenu = nullptr;
    ExportOptions* m_pExportOptions = nullptr;
    QMenu* m_pHelpMenu = nullptr;
    QToolBar* m_pToolBar = nullptr;

    // The store folder the next scan reads (the selection dialog sets it).
    QString m_strInputfilepath;
    // The folders and messages of the last scan, with their tick states.
    Store m_store;
    // The work under way or last done is a scan (false: a save).
    bool IsPreview = true;
    // The folder last chosen for a save.
    QString saveDir;
    // When non-zero the window closes without asking (set where the program
    // closes its own window on purpose).
    int closeevent = 0;
    // The help page and the support links.
    ResourcePaths m_resources;

    // Unelided header texts of the message shown, re-elided on resize.
    QString m_strFullFrom;
    QString m_strFullTo;
    QString m_strFullSubject;
    // Files of the shown message's decoded attachments, in list order.
    QStringList m_attachmentFiles;

    // The last scan and save, kept until the next one of their kind.
    std::unique_ptr<ScanJob> m_scanJob;
    std::unique_ptr<ExportRun> m_exportRun;

signals:
    // The user asked to open a store (the selection dialog is shown).
    void OpenFileRequested();

public slots:
    void OnStartScanning();
    void OnOpenFile();
    void OnSavingFiles();
    void LeftTreeView(unsigned long long parentId, unsigned long long id, QString name);
    void OnClearLeftTree();
    void OnNewItem(QString subject, QString number, unsigned long long folderId,
                   unsigned long long count, bool hasAttachments, int priority, int labelState,
                   MessageSummary summary = MessageSummary());
    void ShowindivisualMailItemsInfo(QTreeWidgetItem* item, int column);
    void OnMessageSubjectChanged();
    void OnMessageSubjectClicked(QTreeWidgetItem* item, int column);
    void OnIndexChange(int index);

    void ShowScanningProgBar();
    void SetInitialSettings(unsigned long total, QString text);
    void SetProgressValue();
    void OnFinishScaning();
    void OnAbortSettings();
    void OnDisableToSave();
    void OnEnableToOpenFind();

    void OpenHelp();
    void OpenAboutProduct();
    void OnEmailSupport();
    void OnSupportSection();
    void OnSubmitEnquiry();
    void OnKnowledgebase();

protected:
    // Asks where to save; tests replace it.
    virtual QString AskForSaveDirectory();
    // Opens a decoded attachment with its application; tests replace it.
    virtual bool OpenWithApplication(const QString& file);
    void closeEvent(QCloseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void OnInitialize();
    void CreateMenu();
    void CreateMenuBar();
    void CreateToolBar();
    void CreateLeftDockWindows();
    void ConnectSignals();
    QTreeWidgetItem* AddFolderItem(unsigned long long parentId, unsigned long long id,
                                   const QString& name);
    void StartExport(const QString& destination, const QDateTime& when);
    void AdoptScannedStore();
    void OnThreadFinished();
    void SchedulePendingScanView();
    void ClearPreview();
    void ReElideHeaderFields();
    void SetFileActionsEnabled(bool open, bool save);
    void OpenSupportLink(const QString& key);
    void ShowLastFolder();

    PendingScanView m_pendingScanView;
    QTimer m_pendingScanTimer;
    QHash<unsigned long long, QTreeWidgetItem*> m_folderItems;
    // This window's own folder for what the preview writes: the empty page,
    // large bodies and the decoded attachments (mode 0700).
    QTemporaryDir m_privateDir;

    Ui::MainWindowUi* ui;
};
