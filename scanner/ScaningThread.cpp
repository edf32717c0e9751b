#include "ScaningThread.h"
#include "Globals.h"

ScaningThread::ScaningThread(QObject* parent) : QThread(parent) { bStopFlag = false; }

void ScaningThread::SetInitialSettings() {
    bStopFlag = false;
    if (!isRunning()) {
        start(QThread::LowPriority);
    } else {
        bStopFlag = true;
        m_waitCondition.wakeOne();
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

void ScaningThread::GetUserName() { m_strDefaultMailPath = DefaultMailPathFor(ConsoleUserName()); }
