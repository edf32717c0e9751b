#pragma once
// Writes an export's converted messages to their mbox files on a thread of
// its own, so that converting messages overlaps writing them.
//
// The messages arrive through lanes: each converting thread fills one. Each
// message is announced with its lane (Expect), in the export's order, before
// its lane gets it; the writing thread takes the messages from the lanes in
// that order, so it writes them in the export's order however the
// conversions overlap and whichever thread converts which message. Every
// message announced ends with exactly one of EndMessage, EndIncomplete or
// Report in its lane.
//
// The writing thread finds (and makes) each message's mbox file as it comes
// to the message, so mbox files are made in the order of their messages and
// only for messages that are written. With each message it does what the
// export did in place before: a failed write (a full disk) cuts the file
// back to its size before the message and names the message; a whole
// message is counted; what the conversion found is added to the result in
// the message's place. At most kQueueBytes of buffers wait in each lane, and
// as much is being written, so the memory does not grow with the size of a
// message or of the store.

#include "scanner/RunResult.h"

#include <QByteArray>
#include <QFile>
#include <QIODevice>
#include <QString>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

class MboxWriteQueue {
public:
    static constexpr qint64 kQueueBytes = 4 * 1024 * 1024;
    static constexpr int kPieceBytes = 256 * 1024;
    // Queued bytes (all lanes) that wake the writing thread.
    static constexpr qint64 kWakeBytes = kQueueBytes / 2;

    // The mbox file of a message, made when it is missing; empty when it
    // cannot be made, with the reason.
    using MboxOf = std::function<QString(const QString& messagePath, QString* reason)>;
    // What the conversion of a message found, added to the result on the
    // writing thread in the message's place. False: the run ends with this
    // message, and nothing handed over after it is written.
    using Report = std::function<bool(RunResult& result)>;

    // Called on the writing thread for each message dealt with (written,
    // passed over or listed), in order; not for one that ends the run.
    using Settled = std::function<void()>;

    // The writing thread counts the written messages into `result` (its
    // folders, done and converted), lists the unwritten ones there and adds
    // the reports; the caller leaves `result` alone until Finish. Before
    // each message it looks at `stop`: once set, that message and all after
    // it are dropped (Stopped()), so the mbox files hold whole messages.
    MboxWriteQueue(RunResult* result, MboxOf mboxOf, int lanes = 1, Settled settled = {},
                   const std::atomic<bool>* stop = nullptr);
    // Waits for the writing to end (see Finish).
    ~MboxWriteQueue();
    MboxWriteQueue(const MboxWriteQueue&) = delete;
    MboxWriteQueue& operator=(const MboxWriteQueue&) = delete;

    class Lane;
    int Lanes() const { return int(m_lanes.size()); }
    // Lane `i` is used by one thread at a time.
    Lane& At(int i) { return *m_lanes[size_t(i)]; }
    // The next message of the export comes in lane `i`.
    void Expect(int i);
    // A report ended the run: what is handed over from now on is dropped.
    bool Ended() const { return m_ended; }
    // The run ended at a stop request.
    bool Stopped() const { return m_stopped; }
    // Waits until everything handed over is written.
    void Finish();

private:
    struct Piece {
        enum Kind { Begin, Data, End, EndIncomplete, ReportOnly } kind;
        QByteArray bytes;
        QString messagePath; // Begin
        RunResult::Losses losses = {};
        Report report = {};
    };

public:
    class Lane {
    public:
        // A message begins: its bytes, written to Device() until EndMessage
        // or EndIncomplete, go to the end of its mbox file. `sizeHint`, the
        // bytes it is likely to take, sizes its first buffer: a small
        // message does not hold a whole piece's buffer while it waits.
        void BeginMessage(const QString& messagePath, qint64 sizeHint = kPieceBytes);
        QIODevice& Device() { return m_device; }
        // The message is whole, with what the copy lost of it. It is counted
        // once it is written; `report` follows it.
        void EndMessage(const RunResult::Losses& losses, const Report& report = {});
        // The message stops short: what was converted of it is written and
        // stays; it is not counted.
        void EndIncomplete(const Report& report = {});
        // A message with nothing to write, only what became of it.
        void ReportOnly(const Report& report);

    private:
        friend class MboxWriteQueue;
        // Collects the bytes of the message under way into pieces.
        class Collector : public QIODevice {
        public:
            explicit Collector(Lane& lane) : m_lane(lane) {}
            bool isSequential() const override { return true; }
            void Hand();
            qint64 m_hint = kPieceBytes; // the next buffer's size

        protected:
            qint64 readData(char*, qint64) override { return -1; }
            qint64 writeData(const char* data, qint64 size) override;

        private:
            Lane& m_lane;
            QByteArray m_piece;
        };

        explicit Lane(MboxWriteQueue& queue);
        void Push(Piece piece);

        MboxWriteQueue& m_queue;
        Collector m_device{*this};
        // Under the queue's mutex:
        std::deque<Piece> m_pieces;
        qint64 m_queuedBytes = 0; // the buffers' sizes
        int m_ends = 0;           // messages whose end is among the pieces
        std::condition_variable m_wakeConverter;
    };

private:
    // The writing thread: the lanes' pieces, message by message in order.
    void Write();
    // The writer has something to do (under m_mutex).
    bool WriterHasWork() const;
    // Writes the piece; false when it ends the run.
    bool Take(Piece& piece);
    // A buffer for the next piece: an emptied one of kPieceBytes (each is
    // allocated once, not once for every 256 KB written), or a new one of
    // `size` when that is less.
    QByteArray Fresh(qint64 size);

    RunResult* m_result;
    MboxOf m_mboxOf;
    Settled m_settled;
    const std::atomic<bool>* m_stop;
    std::vector<std::unique_ptr<Lane>> m_lanes;
    std::mutex m_mutex;
    std::condition_variable m_wakeWriter;
    // Under m_mutex:
    std::vector<QByteArray> m_spare;
    qint64 m_queuedBytes = 0;   // all lanes
    int m_blocked = 0;          // converting threads waiting for room
    std::deque<size_t> m_order; // the lanes of the messages to come, in order
    bool m_closed = false;      // nothing more comes
    std::atomic<bool> m_ended{false};
    std::atomic<bool> m_stopped{false};
    std::thread m_writer;

    // The writing thread's own state.
    struct Current {
        std::shared_ptr<QFile> mbox; // the open mbox file
        QString mboxPath;
        QString messagePath;
        QString unwritable; // why the message's mbox file cannot be written
        qint64 before = 0;
        qint64 size = 0;        // the mbox file's size, kept as it is written
        bool inMessage = false; // between a message's first piece and its end
    } m_current;
};
