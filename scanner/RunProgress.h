#pragma once
// How a scan or an export tells whoever started it what it is doing: the
// window, the command-line tool or a test. The calls come one at a time, in
// the order of events, from the thread that runs the scan or export (an
// export's steps from the thread that writes its messages); the window
// hands them over to its own thread itself, in that order. Every call has a
// default that does nothing.

#include <QByteArray>
#include <QMetaType>
#include <QString>

#include <optional>

// What a message list shows of a message besides its subject.
struct MessageSummary {
    QString from;
    QByteArray date;         // the Date header, as the record has it
    qint64 dateReceived = 0; // seconds since 1970; 0 when unknown
    qint64 size = 0;
    std::optional<quint64> flags; // Mail's read, answered, flagged ... state
};
Q_DECLARE_METATYPE(MessageSummary)

class RunProgress {
public:
    virtual ~RunProgress() = default;

    // The run has counted its work: a progress display can be shown ...
    virtual void OnShowingScanProgBar() {}
    // ... with this total and caption.
    virtual void OnSettingsForPrgBar(unsigned long total, const QString& caption) {
        Q_UNUSED(total);
        Q_UNUSED(caption);
    }
    // One step of that total is done.
    virtual void CurrentValue() {}

    // The scan made a new folder below `parentId` (parents come before
    // their children; the root 501 is implied by the first folder). `name`
    // is its display name.
    virtual void LeftTreeView(unsigned long long parentId, unsigned long long id,
                              const QString& name) {
        Q_UNUSED(parentId);
        Q_UNUSED(id);
        Q_UNUSED(name);
    }
    // The scan moved on to a message of another folder than the last one.
    virtual void ClearLeftTree() {}
    // The scan attached a message to folder `folderId`: `count` is its place
    // in the folder (from 1), `labelState` 0 for the folder's first message
    // announced and 2 afterwards. `subject` is "Unknown" when it has none.
    virtual void NewItem(const QString& subject, const QString& number, unsigned long long folderId,
                         unsigned long long count, bool hasAttachments, int priority,
                         int labelState, const MessageSummary& summary) {
        Q_UNUSED(subject);
        Q_UNUSED(number);
        Q_UNUSED(folderId);
        Q_UNUSED(count);
        Q_UNUSED(hasAttachments);
        Q_UNUSED(priority);
        Q_UNUSED(labelState);
        Q_UNUSED(summary);
    }
};
