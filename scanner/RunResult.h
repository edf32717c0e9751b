#pragma once
// How a scan or an export ended. The worker thread keeps the result of its
// last run of each kind; the window and the command-line tool read it after
// the run.

#include <QHash>
#include <QList>
#include <QString>

class RunResult {
public:
    enum class Ending {
        Complete,       // every message was dealt with
        Stopped,        // the user asked the run to stop
        UnreadableFile, // a file could not be read and the run ended there
        Failed,         // the run could not start (its list or routine was missing)
    };
    // Messages per folder: the scan counts the folders of the store (by the
    // folder path the scan shows), the export its mbox files, in the order
    // of their first message.
    struct Folder {
        QString path;
        quint64 messages = 0;
    };

    Ending ending = Ending::Complete;
    QString file;          // the file the run ended at
    QString reason;        // why that file could not be used
    quint64 total = 0;     // messages the run set out to deal with
    quint64 notDone = 0;   // messages left undone because the run ended at `file`
    QList<Folder> folders; // per folder: messages scanned or written

    bool EndedAtFile() const {
        return ending == Ending::UnreadableFile || ending == Ending::Failed;
    }

    // Adds one message to the folder (new folders go last).
    void Count(const QString& folder);
    // Ends the run at a file that could not be used.
    void EndAt(Ending how, const QString& path, const QString& why, quint64 left);

private:
    QHash<QString, int> m_index;
};
