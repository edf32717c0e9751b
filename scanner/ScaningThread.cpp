#include "scanner/ScaningThread.h"

namespace {

// Turns the job's progress calls into the thread's signals.
class SignalRelay : public RunProgress {
public:
    explicit SignalRelay(ScaningThread& thread) : m_thread(thread) {}
    void OnShowingScanProgBar() override { emit m_thread.OnShowingScanProgBar(); }
    void OnSettingsForPrgBar(unsigned long total, const QString& caption) override {
        m_thread.m_ulTotalFiles = total;
        emit m_thread.OnSettingsForPrgBar(total, caption);
    }
    void CurrentValue() override { emit m_thread.CurrentValue(); }
    void LeftTreeView(unsigned long long parentId, unsigned long long id,
                      const QString& name) override {
        emit m_thread.NewFolder(parentId, id, name);
    }
    void ClearLeftTree() override { emit m_thread.ClearLeftTree(); }
    void NewItem(const QString& subject, const QString& number, unsigned long long folderId,
                 unsigned long long count, bool hasAttachments, int priority, int labelState,
                 const MessageSummary& summary) override {
        emit m_thread.NewItem(subject, number, folderId, count, hasAttachments, priority,
                              labelState, summary);
    }

private:
    ScaningThread& m_thread;
};

} // namespace

ScaningThread::ScaningThread(QObject* parent) : QThread(parent) {}

void ScaningThread::SetInitialSettings() {
    bStopFlag = false;
    if (!isRunning())
        start(QThread::LowPriority);
    else
        bStopFlag = true;
}

void ScaningThread::run() {
    bProcessRunning = true;
    if (!bStopFlag && m_job) {
        SignalRelay relay(*this);
        m_job->Run(relay, bStopFlag);
        if (!bStopFlag)
            emit FinishScaning();
    }
    bStopFlag = false;
    bProcessRunning = false;
}
