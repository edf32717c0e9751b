#pragma once
// The worker thread. Each run does the job it was given, a scan or an
// export, and reports through queued signals: the thread is the job's
// RunProgress and turns each call into the signal of the same name.

#include "scanner/EmlxFinder.h"
#include "scanner/RunProgress.h"

#include <QByteArray>
#include <QString>
#include <QThread>

#include <atomic>

// Work for the thread.
class ThreadJob {
public:
    virtual ~ThreadJob() = default;
    // Does the work, reporting to `progress`; `stop` is set when the user
    // asks the run to stop.
    virtual void Run(RunProgress& progress, const std::atomic<bool>& stop) = 0;
};

// A scan as a job; `store` holds its result once the run is over.
class ScanJob : public ThreadJob {
public:
    ScanJob(const QString& storePath, const ScanOptions& options)
        : m_strInputfilepath(storePath), m_options(options) {}
    void Run(RunProgress& progress, const std::atomic<bool>& stop) override {
        store = EMLXFinder(m_strInputfilepath, m_options, progress, stop);
    }
    const QString m_strInputfilepath;
    const ScanOptions m_options;
    Store store;
};

class ScaningThread : public QThread {
    Q_OBJECT
public:
    explicit ScaningThread(QObject* parent = nullptr);

    // The job of the next run. The caller keeps it until the run has ended
    // and reads its result then (after FinishScaning, or once the thread
    // has finished).
    void SetJob(ThreadJob* job) { m_job = job; }
    ThreadJob* Job() const { return m_job; }

    // Starts a run when idle; asks a running one to stop.
    void SetInitialSettings();

    // A stop request; cleared when a run starts and when it ends.
    std::atomic<bool> bStopFlag{false};
    // A run is under way (set by the run itself, and by the window around
    // the start request).
    std::atomic<bool> bProcessRunning{false};
    // The progress total of the current run.
    std::atomic<unsigned long long> m_ulTotalFiles{0};

    // Quoted-printable bytes of a text ("=" followed by two hex digits).
    static QByteArray QDecode(const QString& text);
    // Decodes one RFC 2047 encoded attachment name.
    static QString DecodeAttName(const QString& text);

signals:
    // What the job reports (RunProgress), emitted on the worker thread.
    void NewItem(QString, QString, unsigned long long, unsigned long long, bool, int, int,
                 MessageSummary);
    void NewFolder(unsigned long long, unsigned long long, QString);
    void ClearLeftTree();
    void CurrentValue();
    void OnShowingScanProgBar();
    void OnSettingsForPrgBar(unsigned long, QString);
    // The run's job returned without a stop request.
    void FinishScaning();

protected:
    void run() override;

private:
    ThreadJob* m_job = nullptr;
};
