// The Save command: checks that something is ticked, asks where to save,
// settles the package name and starts the worker in export mode.
#include "export/SaveTimeStamp.h"
#include "scanner/Globals.h"
#include "scanner/Records.h"
#include "scanner/ScaningThread.h"
#include "ui/ExportOptions.h"
#include "ui/PreviewWindow.h"

#include <QAction>
#include <QDateTime>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>

QString PreviewWindow::AskForSaveDirectory() {
    return QFileDialog::getExistingDirectory(
        this, QStringLiteral("Open Directory"), QDir::homePath(),
        QFileDialog::ShowDirsOnly | QFileDialog::DontResolveSymlinks);
}

void PreviewWindow::OnSavingFiles() {
    if (!StartFldrAtrib ||
        (StartFldrAtrib->ucTickState != kTicked && StartFldrAtrib->ucTickState != kPartlyTicked)) {
        QMessageBox::information(nullptr, QStringLiteral("Pellomar"),
                                 QStringLiteral("Select a folder to save."), QMessageBox::Ok);
        return;
    }
    if (bProcessRunning || m_pScaningThread->isRunning())
        return;
    strTime = MakeSaveTimeStamp(QDateTime::currentDateTime());
    saveDir = AskForSaveDirectory();
    if (saveDir.isEmpty())
        return;
    const QFileInfo dest(saveDir + QStringLiteral("/"));
    if (!dest.isDir())
        return;
    if (!dest.isWritable()) {
        QMessageBox::information(this, QStringLiteral("Pellomar"),
                                 QStringLiteral("No write permission for selected destination. "
                                                "Choose another location to save converted file."),
                                 QMessageBox::Ok);
        return;
    }
    mainIdentity = PackageName(strTime);
    const QString target = saveDir + mainIdentity;
    if (!QFileInfo::exists(target)) {
        SetFileActionsEnabled(false, false);
        ShowPendingScanView(); // the export's progress steps go to its own bar
        IsPreview = false;
        m_pScaningThread->m_options = m_pExportOptions->Options();
        m_pScaningThread->SetInitialSettings();
        return;
    }
    const auto answer = QMessageBox::warning(
        this, QStringLiteral("Pellomar"),
        QStringLiteral("MBOX file already exists at this location, Do you want to replace it?"),
        QMessageBox::Yes | QMessageBox::No);
    if (answer == QMessageBox::Yes) {
        pellomar::RunShellCommand(QStringLiteral("rm -r ") + pellomar::ShellQuote(target));
        ShowPendingScanView();
        IsPreview = false;
        m_pScaningThread->m_options = m_pExportOptions->Options();
        m_pScaningThread->SetInitialSettings();
    } else {
        // The user has to choose Save again after picking another folder.
        saveDir = AskForSaveDirectory();
    }
}
