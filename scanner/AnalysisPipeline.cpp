#include "scanner/AnalysisPipeline.h"
#include "scanner/MessageAnalysis.h"
#include "scanner/MessageFile.h"

#include <algorithm>

AnalysisPipeline::AnalysisPipeline(int helpers, const QStringList& partFiles)
    : m_partFiles(partFiles), m_takerFile(new MessageFile) {
    for (int i = 0; i < helpers; ++i)
        m_threads.emplace_back([this] { Work(); });
}

AnalysisPipeline::~AnalysisPipeline() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_quit = true;
        m_todo.clear();
    }
    m_work.notify_all();
    for (std::thread& t : m_threads)
        t.join();
}

void AnalysisPipeline::Submit(const QString& path) {
    auto job = std::make_shared<Job>();
    job->path = path;
    m_queue.push_back(job);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_todo.push_back(job);
    }
    m_work.notify_one();
}

MailItem AnalysisPipeline::Take(Analysis* outcome, QString* why) {
    if (m_queue.empty()) {
        *outcome = Analysis::Unreadable;
        return MailItem();
    }
    std::shared_ptr<Job> job = m_queue.front();
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!job->done) {
        if (!m_todo.empty()) {
            // Analyse the next file not yet started rather than wait.
            std::shared_ptr<Job> next = std::move(m_todo.front());
            m_todo.pop_front();
            lock.unlock();
            Run(*next, *m_takerFile);
            lock.lock();
            next->done = true;
            continue;
        }
        // Everything is started: sleep until a few more files are ready
        // too, so that this thread is woken once per batch, not per file.
        m_wakeFor = m_queue[std::min<size_t>(kBatch, m_queue.size()) - 1];
        m_done.wait(lock, [&job, this] { return job->done && m_wakeFor->done; });
        m_wakeFor.reset();
    }
    m_queue.pop_front();
    *outcome = job->outcome;
    *why = job->why;
    return std::move(job->item);
}

void AnalysisPipeline::Run(Job& job, MessageFile& file) const {
    // Only a partial message has part files; those of its folder and
    // number are all it needs to see.
    const QStringList parts = job.path.contains(QLatin1String(".partial.emlx"))
                                  ? m_partFiles.Candidates(job.path)
                                  : QStringList();
    job.outcome = AnalyseMessageFile(file, job.path, parts, &job.item, &job.why);
}

void AnalysisPipeline::Work() {
    // One reader per helper: its buffer serves every file the helper reads.
    MessageFile file;
    for (;;) {
        std::shared_ptr<Job> job;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_work.wait(lock, [this] { return m_quit || !m_todo.empty(); });
            if (m_quit)
                return;
            job = m_todo.front();
            m_todo.pop_front();
        }
        Run(*job, file);
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            job->done = true;
            if (!m_wakeFor || !m_wakeFor->done)
                continue;
        }
        m_done.notify_one();
    }
}
