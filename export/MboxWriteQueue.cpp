#include "export/MboxWriteQueue.h"
#include "export/MboxWriter.h"

#include <algorithm>
#include <utility>

MboxWriteQueue::MboxWriteQueue(RunResult* result, MboxOf mboxOf, int lanes, Settled settled,
                               const std::atomic<bool>* stop)
    : m_result(result), m_mboxOf(std::move(mboxOf)), m_settled(std::move(settled)), m_stop(stop) {
    for (int i = 0; i < std::max(1, lanes); ++i)
        m_lanes.push_back(std::unique_ptr<Lane>(new Lane(*this)));
    m_writer = std::thread([this] { Write(); });
}

MboxWriteQueue::~MboxWriteQueue() {
    Finish();
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

MboxWriteQueue::Lane::Lane(MboxWriteQueue& queue) : m_queue(queue) {
    m_device.open(QIODevice::WriteOnly | QIODevice::Unbuffered);
}

void MboxWriteQueue::Expect(int i) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_order.push_back(size_t(std::clamp(i, 0, Lanes() - 1)));
}

void MboxWriteQueue::Lane::BeginMessage(const QString& messagePath, qint64 sizeHint) {
    m_device.m_hint = std::max<qint64>(sizeHint, 1);
    Push(Piece{Piece::Begin, {}, messagePath});
}

void MboxWriteQueue::Lane::EndMessage(const RunResult::Losses& losses, const Report& report) {
    m_device.Hand();
    Push(Piece{Piece::End, {}, {}, losses, report});
}

void MboxWriteQueue::Lane::EndIncomplete(const Report& report) {
    m_device.Hand();
    Push(Piece{Piece::EndIncomplete, {}, {}, {}, report});
}

void MboxWriteQueue::Lane::ReportOnly(const Report& report) {
    Push(Piece{Piece::ReportOnly, {}, {}, {}, report});
}

qint64 MboxWriteQueue::Lane::Collector::writeData(const char* data, qint64 size) {
    // Every piece is one of the same few buffers, whatever the size of the
    // writes: the memory stays what the queue holds.
    for (qint64 left = size; left > 0;) {
        if (!m_piece.isEmpty() && m_piece.size() == m_piece.capacity())
            Hand();
        if (m_piece.capacity() == 0) {
            m_piece = m_lane.m_queue.Fresh(m_hint);
            m_hint = kPieceBytes; // what follows a message's first buffer
        }
        const int n = int(std::min<qint64>(left, m_piece.capacity() - m_piece.size()));
        m_piece.append(data, n);
        data += n;
        left -= n;
    }
    return size;
}

void MboxWriteQueue::Lane::Collector::Hand() {
    if (m_piece.isEmpty())
        return;
    Piece piece{Piece::Data, std::move(m_piece), {}};
    m_piece = QByteArray();
    m_lane.Push(std::move(piece));
}

QByteArray MboxWriteQueue::Fresh(qint64 size) {
    if (size < kPieceBytes) {
        QByteArray bytes;
        bytes.reserve(int(size));
        return bytes;
    }
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_spare.empty()) {
            QByteArray spare = std::move(m_spare.back());
            m_spare.pop_back();
            return spare;
        }
    }
    QByteArray bytes;
    bytes.reserve(kPieceBytes); // reserved: emptying it keeps the buffer
    return bytes;
}

void MboxWriteQueue::Lane::Push(Piece piece) {
    MboxWriteQueue& q = m_queue;
    std::unique_lock<std::mutex> lock(q.m_mutex);
    if (q.m_ended)
        return; // nothing more is written
    if (m_queuedBytes >= kQueueBytes) {
        // A full lane holds its conversion back until the writing catches
        // up; the writer, maybe waiting for a batch, is told.
        ++q.m_blocked;
        q.m_wakeWriter.notify_one();
        m_wakeConverter.wait(lock, [&] { return m_queuedBytes < kQueueBytes || q.m_ended; });
        --q.m_blocked;
        if (q.m_ended)
            return;
    }
    // A piece holds its whole buffer, however little of it a short message
    // fills: the buffers are what the memory is.
    const qint64 size = std::max<qint64>(piece.bytes.size(), piece.bytes.capacity());
    m_queuedBytes += size;
    q.m_queuedBytes += size;
    if (piece.kind != Piece::Begin && piece.kind != Piece::Data)
        ++m_ends;
    m_pieces.push_back(std::move(piece));
    // The writer is woken for a good batch, not for every piece: each
    // wake-up costs both threads more than writing a small piece.
    const bool wake = q.WriterHasWork();
    lock.unlock();
    if (wake)
        q.m_wakeWriter.notify_one();
}

bool MboxWriteQueue::WriterHasWork() const {
    if (m_closed)
        return true;
    if (m_ended)
        return std::any_of(m_lanes.begin(), m_lanes.end(),
                           [](const auto& l) { return !l->m_pieces.empty(); });
    // Enough to do: the lane of the next message holds a whole message or
    // half a lane's worth of one, and a batch is waiting or a lane is full.
    if (m_order.empty())
        return false;
    const Lane& lane = *m_lanes[m_order.front()];
    return (lane.m_ends > 0 || lane.m_queuedBytes >= kQueueBytes / 2) &&
           (m_queuedBytes >= kWakeBytes || m_blocked > 0);
}

void MboxWriteQueue::Write() {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_wakeWriter.wait(lock, [this] { return WriterHasWork(); });
        if (m_ended) {
            // Nothing after the message that ended the run is written.
            for (auto& lane : m_lanes) {
                lane->m_pieces.clear();
                lane->m_queuedBytes = 0;
                lane->m_ends = 0;
                lane->m_wakeConverter.notify_all();
            }
            m_queuedBytes = 0;
            m_order.clear();
            if (m_closed)
                return;
            continue;
        }
        // The pieces of the next message's lane, one at a time, until it
        // has none: then wait for the next batch.
        for (;;) {
            if (m_order.empty() || m_lanes[m_order.front()]->m_pieces.empty()) {
                if (!m_closed)
                    break;
                // Everything is handed over. A lane left with pieces while
                // the next message's lane is empty holds a message without
                // its end or never announced: written rather than lost.
                const auto more = std::find_if(m_lanes.begin(), m_lanes.end(),
                                               [](const auto& l) { return !l->m_pieces.empty(); });
                if (more == m_lanes.end())
                    return;
                if (!m_order.empty())
                    m_order.pop_front();
                m_order.push_front(size_t(more - m_lanes.begin()));
                continue;
            }
            Lane& lane = *m_lanes[m_order.front()];
            Piece piece = std::move(lane.m_pieces.front());
            lane.m_pieces.pop_front();
            const qint64 size = std::max<qint64>(piece.bytes.size(), piece.bytes.capacity());
            const bool wasFull = lane.m_queuedBytes >= kQueueBytes;
            lane.m_queuedBytes -= size;
            m_queuedBytes -= size;
            if (wasFull && lane.m_queuedBytes < kQueueBytes)
                lane.m_wakeConverter.notify_one();
            const bool ends = piece.kind != Piece::Begin && piece.kind != Piece::Data;
            if (ends) {
                --lane.m_ends;
                m_order.pop_front();
            }
            lock.unlock();
            // A stop request is looked at before each message.
            const bool stopping = !m_current.inMessage && m_stop && *m_stop;
            m_current.inMessage = !ends;
            const bool goesOn = !stopping && Take(piece);
            if (goesOn && ends && m_settled)
                m_settled();
            lock.lock();
            if (!goesOn) {
                m_stopped = stopping;
                m_ended = true;
            }
            if (piece.kind == Piece::Data && piece.bytes.capacity() == kPieceBytes) {
                piece.bytes.resize(0);
                m_spare.push_back(std::move(piece.bytes));
            }
            if (m_ended)
                break;
        }
    }
}

bool MboxWriteQueue::Take(Piece& piece) {
    Current& c = m_current;
    switch (piece.kind) {
    case Piece::Begin: {
        c.messagePath = piece.messagePath;
        c.unwritable.clear();
        QString reason;
        const QString mboxPath = m_mboxOf(c.messagePath, &reason);
        if (mboxPath.isEmpty()) {
            c.unwritable = reason;
            break;
        }
        // The mbox file stays open from one message to the next of the same
        // file; every message is on disk when the next begins, as it would
        // be if the file were opened for each message.
        if (!c.mbox || c.mboxPath != mboxPath) {
            c.mbox.reset();
            c.mboxPath.clear();
            auto file = std::make_shared<QFile>();
            if (!MboxWriter::OpenForAppend(*file, mboxPath, &reason)) {
                c.unwritable = QStringLiteral("cannot open '") + mboxPath + "': " + reason;
                break;
            }
            c.size = file->size();
            c.mbox = std::move(file);
            c.mboxPath = mboxPath;
        }
        c.before = c.size;
        break;
    }
    case Piece::Data: {
        if (!c.unwritable.isEmpty())
            break;
        // A short write is followed by another for the rest, which then
        // fails and sets the file's error (a short one alone does not).
        const char* data = piece.bytes.constData();
        for (qint64 left = piece.bytes.size(), n; left > 0; data += n, left -= n) {
            if ((n = c.mbox->write(data, left)) <= 0)
                break;
            c.size += n;
        }
        break;
    }
    case Piece::End:
        if (!c.unwritable.isEmpty()) {
            m_result->unwritten.append({c.messagePath, c.unwritable});
        } else if (c.mbox->error() != QFileDevice::NoError) {
            // A write that failed (a full disk) leaves the mbox file as it
            // was, so that it holds whole messages only.
            m_result->unwritten.append(
                {c.messagePath,
                 QStringLiteral("cannot write to '") + c.mboxPath + "': " + c.mbox->errorString()});
            c.mbox->unsetError();
            c.mbox->resize(c.before);
            c.size = c.before;
        } else {
            m_result->Count(c.mboxPath, piece.losses);
        }
        break;
    case Piece::EndIncomplete:
        if (!c.unwritable.isEmpty())
            m_result->unwritten.append({c.messagePath, c.unwritable});
        break;
    case Piece::ReportOnly:
        break;
    }
    return !piece.report || piece.report(*m_result);
}
