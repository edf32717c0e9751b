#pragma once
// Runs the per-message analysis of the next few message files on helper
// threads while the scan attaches and announces the current one, so that a
// scan uses every core. The taking thread analyses queued files itself
// while the one it needs is not ready, instead of sleeping. Results are
// handed over strictly in the order the files were queued; a record is only
// ever touched by one thread at a time.

#include "scanner/EmlxLines.h"
#include "scanner/MessageAnalysis.h"
#include "scanner/Store.h"

#include <QString>
#include <QStringList>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

class MessageFile;

class AnalysisPipeline {
public:
    // How many files may be queued ahead of the one being taken.
    static constexpr int kWindow = 64;
    // How many ready files the taker waits for once it has to wait.
    static constexpr size_t kBatch = 16;

    // `helpers`: threads besides the taker's (none: the taker analyses
    // every file itself). `partFiles`: the store's .emlxpart files.
    AnalysisPipeline(int helpers, const QStringList& partFiles);
    // Stops the helpers; records not taken go with it.
    ~AnalysisPipeline();
    AnalysisPipeline(const AnalysisPipeline&) = delete;
    AnalysisPipeline& operator=(const AnalysisPipeline&) = delete;

    void Submit(const QString& path);
    // Waits for the oldest queued file and hands over its record, how the
    // analysis went and (when it is no message) why.
    MailItem Take(Analysis* outcome, QString* why);
    int Queued() const { return int(m_queue.size()); }

private:
    struct Job {
        QString path;
        MailItem item;
        Analysis outcome = Analysis::Unreadable;
        QString why;
        bool done = false;
    };
    void Work();
    void Run(Job& job, MessageFile& file) const;

    const emlx::PartFileIndex m_partFiles;
    std::deque<std::shared_ptr<Job>> m_queue; // submitted, not yet taken (taker's thread only)
    std::deque<std::shared_ptr<Job>> m_todo;  // not yet started (under m_mutex)
    std::mutex m_mutex;
    std::condition_variable m_work;
    std::condition_variable m_done;
    std::shared_ptr<Job> m_wakeFor; // the taker sleeps until this job is done (under m_mutex)
    bool m_quit = false;
    std::vector<std::thread> m_threads;
    std::unique_ptr<MessageFile> m_takerFile; // the taker's reader, for the files it analyses
};
