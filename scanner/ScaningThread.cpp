#include "scanner/ScaningThread.h"
#include "scanner/Globals.h"

ScaningThread::ScaningThread(QObject* parent) : QThread(parent) {
    bStopFlag = false;
}

void ScaningThread::SetInitialSettings() {
    bStopFlag = false;
    if (!isRunning()) {
        start(QThread::LowPriority);
    } else {
        bStopFlag = true;
    }
}

void ScaningThread::run() {
    bProcessRunning = true;
    if (!bStopFlag) {
        if (IsPreview)
            EMLXFinder();
        else
            EMLXConverter();
        if (!bStopFlag)
            emit FinishScaning();
    }
    bStopFlag = false;
    bProcessRunning = false;
}

void ScaningThread::GetUserName() {
    m_strDefaultMailPath = DefaultMailPathFor(pellomar::ConsoleUserName());
}

namespace {
ExportRoutine g_exportRoutine = nullptr;
} // namespace

void InstallExportRoutine(ExportRoutine routine) {
    g_exportRoutine = routine;
}

void ScaningThread::EMLXConverter() {
    if (g_exportRoutine) {
        m_exportResult = g_exportRoutine(*this);
        return;
    }
    m_exportResult = RunResult();
    m_exportResult.EndAt(RunResult::Ending::Failed, QString(),
                         QStringLiteral("this program was built without the export"), 0);
}
