// The Save command: checks that something is ticked, asks where to save,
// settles the package name and starts the worker on the export.
#include "export/ExportJob.h"
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

void PreviewWindow::StartExport(const QString& destination, const QDateTime& when) {
    // The export's progress steps go to its own bar.
    ShowPendingScanView();
    m_exportRun = std::make_unique<ExportRun>(
        m_store, ExportJob::Ticked(m_store, destination, when, m_pExportOptions->Options()));
    m_pScaningThread->SetJob(m_exportRun.get());
    IsPreview = false;
    m_pScaningThread->SetInitialSettings();
}

void PreviewWindow::OnSavingFiles() {
    const FldrAtrib* root = m_store.StartFldrAtrib();
    if (!root || (root->ucTickState != kTicked && root->ucTickState != kPartlyTicked)) {
        QMessageBox::information(nullptr, QStringLiteral("Pellomar"),
                                 QStringLiteral("Select a folder to save."), QMessageBox::Ok);
        return;
    }
    if (RunUnderWay())
        return;
    const QDateTime when = QDateTime::currentDateTime();
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
    const QString target = ExportJob::Ticked(m_store, saveDir, when, {}).Package();
    if (!QFileInfo::exists(target)) {
        SetFileActionsEnabled(false, false);
        StartExport(saveDir, when);
        return;
    }
    const auto answer = QMessageBox::warning(
        this, QStringLiteral("Pellomar"),
        QStringLiteral("MBOX file already exists at this location, Do you want to replace it?"),
        QMessageBox::Yes | QMessageBox::No);
    if (answer == QMessageBox::Yes) {
        // What cannot be removed would mix with the new package: nothing
        // starts then.
        if (!QDir(target).removeRecursively()) {
            QMessageBox::warning(this, QStringLiteral("Pellomar"),
                                 QStringLiteral("The existing package could not be removed:\n") +
                                     target,
                                 QMessageBox::Ok);
            return;
        }
        StartExport(saveDir, when);
    } else {
        // The user has to choose Save again after picking another folder.
        saveDir = AskForSaveDirectory();
    }
}
