#include "export/MboxWriteQueue.h"

#include <algorithm>
#include <utility>

MboxWriteQueue::MboxWriteQueue(RunResult* result) : m_result(result) {
    m_device.open(QIODevice::WriteOnly | QIODevice::Unbuffered);
    m_writer = std::thread([this] { Write(); });
}

MboxWriteQueue::~MboxWriteQueue() {
    Finish();
}

void MboxWriteQueue::BeginMessage(const QString& messagePath, const std::shared_ptr<QFile>& mbox,
                                  const QString& mboxPath) {
    Piece piece{Piece::Begin, {}, messagePath, mboxPath, mbox};
    Push(std::move(piece));
}

void MboxWriteQueue::EndMessage(const RunResult::Losses& losses) {
    m_device.Hand();
    Piece piece{Piece::End, {}, {}, {}, nullptr};
    piece.losses = losses;
    Push(std::move(piece));
}

void MboxWriteQueue::EndIncomplete() {
    m_device.Hand();
    Push(Piece{Piece::EndIncomplete, {}, {}, {}, nullptr});
}

void MboxWriteQueue::Unwritten(const QString& messagePath, const QString& reason) {
    Push(Piece{Piece::Unwritten, {}, messagePath, {}, nullptr, reason});
}

void MboxWriteQueue::Finish() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_closed)
            return;
        m_closed = true;
    }
    m_wakeWriter.notify_one();
    m_writer.join();
    m_current = Current();
}

qint64 MboxWriteQueue::Collector::writeData(const char* data, qint64 size) {
    // Every piece is one of the same few buffers, whatever the size of the
    // writes: the memory stays what the queue holds.
    for (qint64 left = size; left > 0;) {
        if (m_piece.size() == kPieceBytes)
            Hand();
        if (m_piece.capacity() < kPieceBytes)
            m_piece = Fresh();
        const int n = int(std::min<qint64>(left, kPieceBytes - m_piece.size()));
        m_piece.append(data, n);
        data += n;
        left -= n;
    }
    return size;
}

QByteArray MboxWriteQueue::Collector::Fresh() {
    {
        const std::lock_guard<std::mutex> lock(m_queue.m_mutex);
        if (!m_queue.m_spare.empty()) {
            QByteArray spare = std::move(m_queue.m_spare.back());
            m_queue.m_spare.pop_back();
            return spare;
        }
    }
    QByteArray bytes;
    bytes.reserve(kPieceBytes); // reserved: emptying it keeps the buffer
    return bytes;
}

void MboxWriteQueue::Collector::Hand() {
    if (m_piece.isEmpty())
        return;
    Piece piece{Piece::Data, std::move(m_piece), {}, {}, nullptr};
    m_piece = QByteArray();
    m_queue.Push(std::move(piece));
}

void MboxWriteQueue::Push(Piece piece) {
    std::unique_lock<std::mutex> lock(m_mutex);
    // A full queue holds the conversion back until the writing catches up.
    m_wakeConverter.wait(lock, [this] { return m_queuedBytes < kQueueBytes; });
    const qint64 before = m_queuedBytes;
    // A piece holds its whole buffer, however little of it a short message
    // fills: the buffers are what the memory is.
    m_queuedBytes += std::max<qint64>(piece.bytes.size(), piece.bytes.capacity());
    m_queue.push_back(std::move(piece));
    // The writer is woken for a good batch, not for every piece: each
    // wake-up costs both threads more than writing a small piece.
    const bool wake = before < kWakeBytes && m_queuedBytes >= kWakeBytes;
    lock.unlock();
    if (wake)
        m_wakeWriter.notify_one();
}

void MboxWriteQueue::Write() {
    std::deque<Piece> taken;
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_wakeWriter.wait(lock, [this] { return !m_queue.empty() || m_closed; });
            if (m_queue.empty())
                return; // closed, and everything written
            const bool wasFull = m_queuedBytes >= kQueueBytes;
            std::swap(taken, m_queue);
            m_queuedBytes = 0;
            lock.unlock();
            if (wasFull)
                m_wakeConverter.notify_one();
        }
        std::vector<QByteArray> emptied;
        for (Piece& piece : taken) {
            Take(piece);
            if (piece.kind == Piece::Data && piece.bytes.capacity() == kPieceBytes) {
                piece.bytes.resize(0);
                emptied.push_back(std::move(piece.bytes));
            }
        }
        taken.clear();
        const std::lock_guard<std::mutex> lock(m_mutex);
        for (QByteArray& bytes : emptied)
            m_spare.push_back(std::move(bytes));
    }
}

void MboxWriteQueue::Take(Piece& piece) {
    Current& c = m_current;
    switch (piece.kind) {
    case Piece::Begin:
        c.mbox = std::move(piece.mbox);
        c.mboxPath = piece.mboxPath;
        c.messagePath = piece.messagePath;
        c.before = c.mbox->size();
        break;
    case Piece::Data: {
        // A short write is followed by another for the rest, which then
        // fails and sets the file's error (a short one alone does not).
        const char* data = piece.bytes.constData();
        for (qint64 left = piece.bytes.size(), n; left > 0; data += n, left -= n)
            if ((n = c.mbox->write(data, left)) <= 0)
                break;
        break;
    }
    case Piece::End:
        // A write that failed (a full disk) leaves the mbox file as it was,
        // so that it holds whole messages only.
        if (c.mbox->error() != QFileDevice::NoError) {
            m_result->unwritten.append(
                {c.messagePath,
                 QStringLiteral("cannot write to '") + c.mboxPath + "': " + c.mbox->errorString()});
            c.mbox->unsetError();
            c.mbox->resize(c.before);
        } else {
            m_result->Count(c.mboxPath, piece.losses);
        }
        break;
    case Piece::EndIncomplete:
        break;
    case Piece::Unwritten:
        m_result->unwritten.append({piece.messagePath, piece.reason});
        break;
    }
}
