#include "ui/ProgressDialogs.h"
#include "export/ExportJob.h"
#include "scanner/ScaningThread.h"
#include "ui/PreviewWindow.h"
#include "ui/QImportWindow.h"
#include "ui_InitialDlg.h"
#include "ui_ProgressDialog.h"

#include <QFileInfo>
#include <QMessageBox>
#include <QMovie>

QProgressInfo::QProgressInfo(PreviewWindow* window)
    : QDialog(window), ui(new Ui::ProgressDialog), m_pWindow(window) {
    ui->setupUi(this);
    // Sheet is a window type, not a hint: or-ed onto Dialog it would make a Drawer.
    setWindowFlags((windowFlags() & ~Qt::WindowType_Mask) | Qt::Sheet);
    setWindowModality(Qt::WindowModal);
    ui->StopButton->setStyleSheet(QStringLiteral(
        "QPushButton:enabled {border-image: url(:/images/img_Stop.png);hiegth: 32px;width: "
        "32px}QPushButton:pressed { border-image: url(:/images/img_StopPressed.png);hiegth: "
        "32px;width: 32px}"));
    m_pMovie = new QMovie(QStringLiteral(":/images/img_Save.gif"), QByteArray(), this);
    connect(ui->StopButton, &QPushButton::clicked, this, &QProgressInfo::OnStop);
}

QProgressInfo::~QProgressInfo() {
    delete ui;
}

bool QProgressInfo::ConfirmAbort() {
    QMessageBox box(QMessageBox::Warning, QString(),
                    QStringLiteral("Process can't be resumed from the current stage."),
                    QMessageBox::Yes | QMessageBox::No, this);
    box.setInformativeText(QStringLiteral("Do you want to abort the current process?"));
    box.setDefaultButton(QMessageBox::No);
    return box.exec() == QMessageBox::Yes;
}

void QProgressInfo::OnStop() {
    if (!ConfirmAbort())
        return;
    ScaningThread* thread = m_pWindow->m_pScaningThread;
    thread->bStopFlag = true;
    thread->bProcessRunning = false;
    hide();
    if (!m_pWindow->IsPreview) {
        emit EnableToOpenFind();
        m_pWindow->IsPreview = true;
        // The package that holds the messages written so far.
        m_pImportWindow = QImportWindow::Open(
            QStringLiteral("\nProcess aborted. File saved partially at location ") +
                m_pWindow->m_exportRun->Job().Package(),
            m_pWindow->m_resources, m_pWindow);
    } else {
        m_pWindow->ShowPendingScanView();
        if (m_pWindow->FolderItem(llRootId))
            emit DisableToSave();
        QMessageBox::information(m_pWindow, QStringLiteral("Vortiga"),
                                 QStringLiteral("Process aborted."));
        m_pMovie->stop();
        emit EnableToOpenFind();
    }
}

QInitialProcessInfo::QInitialProcessInfo(QWidget* parent)
    : QDialog(parent), ui(new Ui::InitialDlg) {
    ui->setupUi(this);
    m_pMovie = new QMovie(QStringLiteral(":/images/img_Scan.gif"), QByteArray(), this);
    ui->AnimationLabel->setMovie(m_pMovie);
}

QInitialProcessInfo::~QInitialProcessInfo() {
    delete ui;
}

void QInitialProcessInfo::Start() {
    show();
    m_pMovie->start();
}

void QInitialProcessInfo::Stop() {
    m_pMovie->stop();
    hide();
}
