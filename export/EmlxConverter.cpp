// The export run: package, then every message of every selected folder
// appended to its folder's mbox file.
#include "export/ExportJob.h"
#include "export/MboxWriteQueue.h"
#include "export/MboxWriter.h"
#include "export/PathMapping.h"
#include "export/SaveTimeStamp.h"
#include "scanner/DetachedParts.h"
#include "scanner/Discovery.h"
#include "scanner/EmlxLines.h"
#include "scanner/MessageFile.h"
#include "scanner/RunProgress.h"
#include "scanner/Store.h"

#include <QBuffer>
#include <QSet>
#include <QThread>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

ExportJob ExportJob::Ticked(const Store& store, const QString& destination, const QDateTime& when,
                            const RunOptions& options) {
    ExportJob job;
    job.m_strInputfilepath = store.m_strInputfilepath;
    job.saveDir = destination;
    job.strTime = MakeSaveTimeStamp(when);
    job.mainIdentity = PackageName(job.strTime);
    job.selection = store.TickedFolders();
    job.options = options;
    return job;
}

void ExportRun::Run(RunProgress& progress, const std::atomic<bool>& stop) {
    result = EMLXConverter(m_store, m_job, progress, stop);
    verified = !stop && result.ending != RunResult::Ending::Failed;
    if (!verified)
        return;
    VerifyJob check;
    check.package = m_job.Package();
    check.m_strInputfilepath = m_job.m_strInputfilepath;
    check.selection = m_job.selection;
    check.keepBytes = m_job.options.keepBytes;
    verification = Verify(m_store, check, progress, stop);
}

namespace {

// A message to convert (none: one that is only counted), and the messages
// from it on (what a run that ends at it leaves undone).
struct Task {
    QString path;
    quint64 left = 0;
};

// Reads one message and converts it into `lane`; what became of it follows
// it there, to be added to the result in its place.
void ConvertMessage(const Task& task, MboxWriteQueue::Lane& lane, const ExportJob& job,
                    const emlx::PartFileIndex& partFiles, MessageFile& file) {
    const QString& path = task.path;
    const quint64 left = task.left;
    if (path.isEmpty()) {
        lane.ReportOnly([](RunResult&) { return true; });
        return;
    }
    // A file of up to a few megabytes is read whole with one call and
    // converted from memory; a larger one is read as it is converted (the
    // memory does not grow with the size of a message).
    QString reason;
    bool opened = file.Open(path);
    if (!opened)
        reason = file.ErrorString();
    QBuffer inMemory;
    QFile onDisk;
    QIODevice* message = &inMemory;
    if (opened && file.Size() <= MessageFile::kReadWhole) {
        inMemory.setData(QByteArray::fromRawData(file.Data(), int(file.Size())));
        inMemory.open(QIODevice::ReadOnly);
    } else if (opened) {
        message = &onDisk;
        opened = MboxWriter::OpenForReading(onDisk, path, &reason);
    }
    // A message file that cannot be read is skipped when the user asked for
    // it, and otherwise ends the export.
    if (!opened) {
        if (job.options.keepGoing) {
            lane.ReportOnly([=](RunResult& r) {
                r.Skip(path, reason);
                return true;
            });
        } else {
            lane.ReportOnly([=](RunResult& r) {
                r.EndAt(RunResult::Ending::UnreadableFile, path, reason, left);
                return false;
            });
        }
        return;
    }
    // A file that holds no message is passed over, never written.
    const QString junk = WhyNotAMessage(path, file.Data(), std::min<qint64>(file.Size(), 512));
    if (!junk.isEmpty()) {
        lane.ReportOnly([=](RunResult& r) {
            r.notMessages.append({path, junk});
            return true;
        });
        return;
    }
    const bool partial = path.contains(QLatin1String(".partial.emlx"), Qt::CaseSensitive);
    RemovedParts removed(path, partial ? partFiles.Candidates(path) : QStringList(), &file);
    // The mbox text is about the file's size (more when parts are put back).
    lane.BeginMessage(path, file.Size() + 1024);
    const MboxWriter::CopyResult copy = MboxWriter::WriteMessage(
        *message, lane.Device(), partial, partial ? removed.PartFiles() : QStringList(),
        job.options, MboxWriter::kDefaultChunk, partial ? &removed : nullptr);
    auto report = [path, copy, left](RunResult& r) {
        for (const RunResult::Skipped& part : copy.skippedParts)
            r.Skip(part.path, part.reason);
        r.partsFromEmlxpart += copy.partsFromEmlxpart;
        r.partsFromAttachments += copy.partsFromAttachments;
        for (const QString& name : copy.missingParts)
            r.missingParts.append({path, name});
        // A detached part that cannot be read ends the export; what was
        // written so far is kept.
        if (copy.complete)
            return true;
        r.EndAt(RunResult::Ending::UnreadableFile, copy.failedPart, copy.reason, left);
        return false;
    };
    if (copy.complete)
        lane.EndMessage({copy.converted, copy.droppedLines, copy.cutLines}, report);
    else
        lane.EndIncomplete(report);
}

// Threads that convert messages, one for each lane of the write queue. Each
// message goes to the thread with the fewest waiting, so that one busy with
// a large message does not hold the others; the queue is told whose lane it
// comes in.
class Converters {
public:
    Converters(MboxWriteQueue& out, const ExportJob& job, const emlx::PartFileIndex& partFiles)
        : m_out(out), m_workers(size_t(out.Lanes())) {
        for (int i = 0; i < out.Lanes(); ++i) {
            Worker& w = m_workers[size_t(i)];
            MboxWriteQueue::Lane& lane = out.At(i);
            w.thread = std::thread([&w, &lane, &out, &job, &partFiles] {
                Task task;
                MessageFile file; // its buffer serves every message of the thread
                while (w.Next(task))
                    // After the message that ended the run, nothing is
                    // written: what is left is passed over.
                    if (!out.Ended())
                        ConvertMessage(task, lane, job, partFiles, file);
                file.Close();
            });
        }
    }
    ~Converters() { Finish(); }
    Converters(const Converters&) = delete;
    Converters& operator=(const Converters&) = delete;

    void Hand(Task task) {
        size_t least = 0;
        for (size_t i = 1; i < m_workers.size(); ++i)
            if (m_workers[i].waiting < m_workers[least].waiting)
                least = i;
        m_out.Expect(int(least));
        m_workers[least].Add(std::move(task));
    }
    // Waits until every message handed over is converted.
    void Finish() {
        for (Worker& w : m_workers)
            w.Close();
        for (Worker& w : m_workers)
            if (w.thread.joinable())
                w.thread.join();
    }

private:
    static constexpr size_t kWaiting = 16;
    struct Worker {
        std::mutex mutex;
        std::condition_variable changed;
        std::deque<Task> tasks;
        bool full = false;              // the one handing over waits for room
        std::atomic<size_t> waiting{0}; // tasks.size(), read without the lock
        bool closed = false;
        std::thread thread;

        // Only the thread may wait for an empty list, only the one handing
        // over for a full one: the thread is woken when the list is no
        // longer empty, the one handing over when it is half empty, not for
        // every message.
        void Add(Task task) {
            std::unique_lock<std::mutex> lock(mutex);
            if (tasks.size() >= kWaiting) {
                full = true;
                changed.wait(lock, [this] { return !full; });
            }
            const bool wasEmpty = tasks.empty();
            tasks.push_back(std::move(task));
            waiting = tasks.size();
            lock.unlock();
            if (wasEmpty)
                changed.notify_all();
        }
        bool Next(Task& task) {
            std::unique_lock<std::mutex> lock(mutex);
            changed.wait(lock, [this] { return !tasks.empty() || closed; });
            if (tasks.empty())
                return false;
            task = std::move(tasks.front());
            tasks.pop_front();
            waiting = tasks.size();
            const bool room = full && tasks.size() <= kWaiting / 2;
            if (room)
                full = false;
            lock.unlock();
            if (room)
                changed.notify_all();
            return true;
        }
        void Close() {
            {
                const std::lock_guard<std::mutex> lock(mutex);
                closed = true;
            }
            changed.notify_all();
        }
    };
    MboxWriteQueue& m_out;
    std::vector<Worker> m_workers;
};

} // namespace

RunResult EMLXConverter(const Store& store, const ExportJob& job, RunProgress& progress,
                        const std::atomic<bool>& stop) {
    RunResult result;
    const QSet<quint64> selected(job.selection.cbegin(), job.selection.cend());
    // The folders to write, in the store's order, and the messages left from
    // any message of theirs on.
    QVector<const FldrAtrib*> folders;
    for (const FldrAtrib& f : store.Folders())
        if (selected.contains(f.ullId)) {
            folders.append(&f);
            result.total += f.MsgCount();
        }
    // Files of these folders that the scan found to hold no message are
    // named in the export's report too.
    if (!store.result.notMessages.isEmpty()) {
        QSet<QString> mailboxes;
        for (const FldrAtrib* f : qAsConst(folders))
            for (const MailItem& m : f->messages)
                mailboxes.insert(PackageLayout::MailboxFolderOf(m.Path()));
        for (const RunResult::Skipped& s : store.result.notMessages)
            if (mailboxes.contains(PackageLayout::MailboxFolderOf(s.path)))
                result.notMessages.append(s);
    }

    {
        QString file, reason;
        if (!CreateRGEWraper(job.saveDir, job.mainIdentity, &file, &reason)) {
            result.EndAt(RunResult::Ending::Failed, file, reason, result.total);
            return result;
        }
    }
    progress.OnShowingScanProgBar();
    progress.OnSettingsForPrgBar(static_cast<unsigned long>(result.total),
                                 QStringLiteral("Saving .rge file. Please Wait..."));

    const QString package = job.Package();
    if (stop) {
        result.ending = RunResult::Ending::Stopped;
        return result;
    }
    // Each message is converted on one of the converting threads and
    // written by the queue's thread, which finds (and makes) its mailbox's
    // mbox file when it comes to the message. This thread hands the
    // messages over in the store's order.
    PackageLayout layout(package, job.m_strInputfilepath, store.accountNames);
    const emlx::PartFileIndex partFiles(store.listOfPathOfEmlxPart);
    const int threads = std::max(1, std::min(4, QThread::idealThreadCount()));
    // The progress goes on as messages are written (one at a time, in
    // order, from the writing thread); a stop leaves whole messages.
    MboxWriteQueue out(
        &result,
        [&layout](const QString& path, QString* reason) {
            return layout.PathExtractor(path, reason);
        },
        threads, [&progress] { progress.CurrentValue(); }, &stop);
    Converters converters(out, job, partFiles);
    quint64 left = result.total; // the messages from this one on
    for (int fi = 0; fi < folders.size() && !out.Ended() && !stop; ++fi) {
        const std::vector<MailItem>& messages = folders.at(fi)->messages;
        for (size_t mi = 0; mi < messages.size() && !out.Ended() && !stop; ++mi, --left) {
            // Items of the RSS feed go along to be counted in their place.
            QString path = messages[mi].Path();
            if (path.contains(kRssFeedMarker))
                path.clear();
            converters.Hand({std::move(path), left});
        }
    }
    const bool handedAll = left == 0;
    converters.Finish();
    out.Finish();
#ifdef __GLIBC__
    // The threads' buffers are free now; their memory goes back to the
    // system rather than staying with the threads' arenas while the
    // verification, on other threads, needs its own.
    malloc_trim(0);
#endif
    if (out.Stopped() || (!handedAll && !out.Ended()))
        result.ending = RunResult::Ending::Stopped;
    return result;
}
