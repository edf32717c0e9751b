#pragma once
// The application's main window: folder tree, message list and preview side
// by side, menus, tool bar, and the slots that drive a scan or a save.

#include "scanner/FolderTreeSink.h"
#include "ui/MessageList.h"

#include <QMainWindow>
#include <QPointer>
#include <QTimer>

class QAction;
class QMenu;
class QToolBar;
class QTreeWidget;
class QTreeWidgetItem;
class ExportOptions;
class ScaningThread;
class SelectData;
class TextBrowser;
class QProgressInfo;
class QInitialProcessInfo;

namespace Ui {
class MainWindowUi;
}

// Columns of the folder tree: the name (with the tick box), the folder's
// identifier and its parent's, and the tick code ("1", "2" or "3").
enum FolderTreeColumn {
    ColName = 0,
    ColId = 1,
    ColParentId = 2,
    ColTickCode = 7,
    FolderColumns = 8
};

class PreviewWindow : public QMainWindow, public FolderTreeSink {
    Q_OBJECT
public:
    explicit PreviewWindow(QWidget* parent = nullptr);
    ~PreviewWindow() override;

    // Adds one folder to the tree and its record to the folder list. The scan
    // calls it from the worker thread; the work is done on the GUI thread
    // with a blocking call, so folders arrive in the order of the calls.
    void LeftTreeView(unsigned long long parentId, unsigned long long id, QString name) override;

    // Frees every folder, message and attachment record of the last scan.
    void CleanListAndHash();

    // Tick boxes: after the user changed the tick of `item`, keep the tree,
    // the codes in column 7 and the folder records' tick states in step.
    void LeftTreeWidgetItem(QTreeWidgetItem* item);
    void MarkDirToRootCheckedOrUnchecked(unsigned char state, unsigned long long id);
    void MarkChildAccordingToParent(QTreeWidgetItem* item, unsigned char state);
    void MarkParentAccordingToChild(QTreeWidgetItem* item);
    void SetRecoverSelectedState();
    // The tree item of a folder, or null.
    QTreeWidgetItem* FolderItem(unsigned long long id) const;
    // Shows at once what the scan announced and the window has not shown yet
    // (rows, folder labels, current folder, progress); a timer does it a few
    // times a second while a scan runs.
    void ShowPendingScanView();

    QTreeWidget* m_pLeftTreeWidget = nullptr;
    QTreeWidget* m_pCenterTreeWidget = nullptr;
    TextBrowser* m_pTextBrowser = nullptr;
    ScaningThread* m_pScaningThread = nullptr;
    SelectData* m_pSelectData = nullptr;
    QPointer<QProgressInfo> m_pProgressInfo;
    QInitialProcessInfo* m_pInitialProcessInfo = nullptr;

    QAction* m_pOpenFileMenu = nullptr; // "Open File"
    QAction* m_pSaveFileMenu = nullptr; // "Save File"
    QAction* m_pSaveFile = nullptr;     // "Save" (tool bar)
    QAction* m_pHelpFile = nullptr;     // "Help" (tool bar)
    QAction* m_pHelpTopics = nullptr;
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

    // Unelided header texts of the message shown, re-elided on resize.
    QString m_strFullFrom;
    QString m_strFullTo;
    QString m_strFullSubject;
    // Files of the shown message's decoded attachments, in list order.
    QStringList m_attachmentFiles;

public slots:
    void OnStartScanning();
    void OnOpenFile();
    void OnSavingFiles();
    void OnClearLeftTree();
    void OnNewItem(QString subject, QString number, void* folderItem, unsigned long long folderId,
                   unsigned long long count, bool hasAttachments, int priority, int labelState);
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
    void closeEvent(QCloseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void OnInitialize();
    void CreateMenu();
    void CreateMenuBar();
    void CreateToolBar();
    void CreateLeftDockWindows();
    void ConnectSignals();
    void AddFolderItem(unsigned long long parentId, unsigned long long id, const QString& name);
    void SchedulePendingScanView();
    void ClearPreview();
    void ReElideHeaderFields();
    void SetFileActionsEnabled(bool open, bool save);
    void OpenSupportLink(const QString& key);
    void ShowLastFolder();

    PendingScanView m_pendingScanView;
    QTimer m_pendingScanTimer;

    Ui::MainWindowUi* ui;
};

// The main window, set by its constructor.
extern PreviewWindow* pPreviewWindow;
// The "Open" tool-bar action, so that other dialogs can switch it.
extern QAction* m_pOpenFile;
// When non-zero the window closes without asking (set where the program
// closes its own window on purpose).
extern int closeevent;
