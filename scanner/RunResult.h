#pragma once
// How a scan or an export ended: what it counted, what it skipped or lost,
// and where and why it stopped.

#include <QHash>
#include <QList>
#include <QString>

// What the user chose for a run (File > Export Options in the window, flags
// of pellomar-cli).
struct RunOptions {
    bool keepGoing = false;  // skip files that cannot be read instead of ending there
    bool keepBytes = false;  // copy message lines as their bytes, not through Latin-1
    bool withStatus = false; // write the read, answered, flagged, deleted state
};

class RunResult {
public:
    enum class Ending {
        Complete,       // every message was dealt with
        Stopped,        // the user asked the run to stop
        UnreadableFile, // a file could not be read and the run ended there
        Failed,         // the run could not start or could not write the package
    };
    // Messages per folder: the scan counts the folders of the store (by the
    // folder path the scan shows), the export its mbox files, in the order
    // of their first message.
    // What the line-by-line copy changed or lost of one message.
    struct Losses {
        bool converted = false;   // the Latin-1 conversion changed a line
        quint64 droppedLines = 0; // lines dropped at a trailer mark
        quint64 cutLines = 0;     // lines cut short at a NUL byte
    };
    struct Folder {
        QString path;
        quint64 messages = 0;
        quint64 converted = 0; // messages the Latin-1 conversion changed
        quint64 droppedLines = 0;
        quint64 cutLines = 0;
    };
    // A file that was skipped (with the keep-going option), and why.
    struct Skipped {
        QString path;
        QString reason;
    };
    // A detached part that could not be put back into its message.
    struct MissingPart {
        QString message; // the message file
        QString name;    // the part's file name, as the message gives it
    };

    Ending ending = Ending::Complete;
    QString file;          // the file the run ended at
    QString reason;        // why that file could not be used
    quint64 total = 0;     // messages the run set out to deal with
    quint64 done = 0;      // messages scanned or written
    quint64 notDone = 0;   // messages left undone because the run ended at `file`
    QList<Folder> folders; // per folder: messages scanned or written
    QList<Skipped> skipped;
    // Files named like messages that hold none (AppleDouble companions,
    // empty files): passed over and listed, never written.
    QList<Skipped> notMessages;
    quint64 converted = 0;            // messages whose bytes the Latin-1 conversion changed
    quint64 droppedLines = 0;         // lines dropped at a trailer mark inside a message
    quint64 cutLines = 0;             // lines cut short at a NUL byte
    quint64 partsFromEmlxpart = 0;    // detached parts restored from .emlxpart files
    quint64 partsFromAttachments = 0; // ... and from Mail's Attachments folder
    QList<MissingPart> missingParts;
    // Messages that were read but could not be written: their mbox file
    // could not be made or opened, or writing failed (a full disk). The mbox
    // file is left as it was before the message.
    QList<Skipped> unwritten;

    // Something the user should hear of beyond the counts: the run ended at
    // a file, skipped files, changed text or lost parts.
    bool HasLosses() const {
        return EndedAtFile() || !skipped.isEmpty() || !unwritten.isEmpty() || converted > 0 ||
               droppedLines > 0 || cutLines > 0 || !missingParts.isEmpty();
    }

    bool EndedAtFile() const {
        return ending == Ending::UnreadableFile || ending == Ending::Failed;
    }

    // Adds one message to the folder (new folders go last), with what the
    // copy changed or lost of it.
    void Count(const QString& folder, const Losses& losses);
    void Count(const QString& folder) { Count(folder, Losses()); }
    void Skip(const QString& path, const QString& why) { skipped.append({path, why}); }
    // Ends the run at a file that could not be used.
    void EndAt(Ending how, const QString& path, const QString& why, quint64 left);

private:
    QHash<QString, int> m_index;
};
