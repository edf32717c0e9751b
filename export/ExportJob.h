#pragma once
// The export of ticked folders into an archive package that Outlook 2011
// for Mac imports: the package folder with Contents/PkgInfo,
// Contents/Info.plist and Archive.xml, and one mbox file per mailbox below
// its Mail folder.

#include "export/Verify.h"
#include "scanner/RunResult.h"
#include "scanner/ScaningThread.h"

#include <QDateTime>
#include <QString>
#include <QVector>

#include <atomic>

class RunProgress;
class Store;

// Everything an export needs besides the store's records.
struct ExportJob {
    QString m_strInputfilepath; // the store folder that was scanned
    QString saveDir;            // the destination folder (no trailing slash)
    QString strTime;            // the save's time stamp, "(5 Mar 2026,14-07-09)"
    QString mainIdentity;       // "/Main Identity_" + strTime + ".rge"
    QVector<quint64> selection; // the folders whose messages are written
    RunOptions options;

    // The package folder: saveDir + mainIdentity.
    QString Package() const { return saveDir + mainIdentity; }
    // A job for a save into `destination` at `when`, of the fully ticked
    // folders of `store`.
    static ExportJob Ticked(const Store& store, const QString& destination, const QDateTime& when,
                            const RunOptions& options);
};

// Writes every message of the selected folders of `store`, in the store's
// order, to the mbox file of its mailbox in the package; makes the package
// first. The messages are converted on as many threads as the machine has
// cores (at most four) and written in order by one more. Progress goes to
// `progress` (its steps from the writing thread, one message at a time);
// `stop` is looked at between messages, so a stop leaves whole messages
// only.
RunResult EMLXConverter(const Store& store, const ExportJob& job, RunProgress& progress,
                        const std::atomic<bool>& stop);

// Makes the package `destination` + `mainIdentity` with Contents/PkgInfo,
// Contents/Info.plist and Archive.xml (appended to when they exist). False
// when a folder cannot be made or a file cannot be written whole; `file`
// and `reason` then say which and why.
bool CreateRGEWraper(const QString& destination, const QString& mainIdentity, QString* file,
                     QString* reason);

// An export as a job of the worker thread, with the verification of the
// package; `result` and `verification` hold what they found once the run is
// over. The store must stay as it is until then.
class ExportRun : public ThreadJob {
public:
    ExportRun(const Store& store, const ExportJob& job) : m_store(store), m_job(job) {}
    // The export, then the verification of the package.
    void Run(RunProgress& progress, const std::atomic<bool>& stop) override;
    const ExportJob& Job() const { return m_job; }
    RunResult result;
    bool verified = false;
    VerifyResult verification;

private:
    const Store& m_store;
    const ExportJob m_job;
};
