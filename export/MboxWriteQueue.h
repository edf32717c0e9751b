#pragma once
// Writes an export's converted messages to their mbox files on a thread of
// its own, so that converting the next message overlaps writing this one.
//
// The converting side opens (makes) each mbox file itself, so it knows at
// once when one cannot be opened, and hands the open file over with each
// message. The writing side takes the messages strictly in order and does
// with each what the export did in place before: a failed write (a full
// disk) cuts the file back to its size before the message and names the
// message; a whole message is counted. At most kQueueBytes of buffers wait
// between the two, and as much is being written, so the memory does not grow
// with the size of a message or of the store.

#include "scanner/RunResult.h"

#include <QByteArray>
#include <QFile>
#include <QIODevice>
#include <QString>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

class MboxWriteQueue {
public:
    static constexpr qint64 kQueueBytes = 8 * 1024 * 1024;
    static constexpr int kPieceBytes = 256 * 1024;
    // Queued bytes that wake the writing thread (Finish wakes it for less).
    static constexpr qint64 kWakeBytes = kQueueBytes / 4;

    // The writing thread counts the written messages into `result` (its
    // folders, done and converted) and lists the unwritten ones there; the
    // caller leaves those alone until Finish.
    explicit MboxWriteQueue(RunResult* result);
    // Waits for the writing to end (see Finish).
    ~MboxWriteQueue();
    MboxWriteQueue(const MboxWriteQueue&) = delete;
    MboxWriteQueue& operator=(const MboxWriteQueue&) = delete;

    // A message begins: its bytes, written to Device() until EndMessage or
    // EndIncomplete, go to the end of `mbox` (open for appending).
    void BeginMessage(const QString& messagePath, const std::shared_ptr<QFile>& mbox,
                      const QString& mboxPath);
    QIODevice& Device() { return m_device; }
    // The message is whole, with what the copy lost of it. It is counted
    // once it is written.
    void EndMessage(const RunResult::Losses& losses = {});
    // The message stops short (a part file could not be read): what was
    // converted of it is written and stays; it is not counted.
    void EndIncomplete();
    // A message that cannot be written at all, listed in its place.
    void Unwritten(const QString& messagePath, const QString& reason);

    // Waits until everything handed over is written.
    void Finish();

private:
    struct Piece {
        enum Kind { Begin, Data, End, EndIncomplete, Unwritten } kind;
        QByteArray bytes;
        QString messagePath;
        QString mboxPath; // Begin
        std::shared_ptr<QFile> mbox;
        QString reason = {}; // Unwritten
        RunResult::Losses losses = {};
    };
    // Collects the bytes of the message under way into pieces.
    class Collector : public QIODevice {
    public:
        explicit Collector(MboxWriteQueue& queue) : m_queue(queue) {}
        bool isSequential() const override { return true; }
        void Hand();
        // A buffer of kPieceBytes for the next piece.
        QByteArray Fresh();

    protected:
        qint64 readData(char*, qint64) override { return -1; }
        qint64 writeData(const char* data, qint64 size) override;

    private:
        MboxWriteQueue& m_queue;
        QByteArray m_piece;
    };

    void Push(Piece piece);
    void Write();
    void Take(Piece& piece);

    Collector m_device{*this};
    std::mutex m_mutex;
    std::condition_variable m_wakeWriter;
    std::condition_variable m_wakeConverter;
    std::deque<Piece> m_queue; // under m_mutex
    // Emptied piece buffers, for the next pieces: each is allocated once,
    // not once for every 256 KB written. Under m_mutex.
    std::vector<QByteArray> m_spare;
    qint64 m_queuedBytes = 0; // under m_mutex: the buffers' sizes
    bool m_closed = false;    // under m_mutex: nothing more comes
    std::thread m_writer;

    // The writing thread's own state.
    struct Current {
        std::shared_ptr<QFile> mbox;
        QString mboxPath;
        QString messagePath;
        qint64 before = 0;
    } m_current;
    RunResult* m_result;
};
