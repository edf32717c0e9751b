#pragma once
// Verification of a package against the store it was made from: every
// message of the chosen folders must be in the mbox file of its folder,
// once, with its header block and the bytes of every part as the store holds
// them (the part in the message, its .emlxpart file, or Mail's decoded copy
// under Attachments). Each difference is named: a change the export's mode
// makes on purpose (the default copy's Latin-1 text, lines dropped at a
// trailer mark or cut at a NUL byte; a part the store does not hold), or a
// fault (a message missing, extra, in another folder or empty; a header
// block or a part that differs).
//
// Both the package and the store are read once each, at the same time, as
// streams: memory stays flat whatever the size of a message or attachment.
// Only a message that differs is read again, to decode its parts.

#include "scanner/RunResult.h"

#include <QMap>
#include <QString>
#include <QVector>

#include <atomic>

class RunProgress;
class Store;
struct MailItem;

struct VerifyJob {
    QString package;            // the package folder
    QString m_strInputfilepath; // the store folder it was made from
    QVector<quint64> selection; // the folders of the store that were exported
    // The package was written keeping every byte: every change is a fault.
    bool keepBytes = false;
    // Read only the mbox files of the chosen folders (the package holds
    // others, which are not checked); else every mbox file of the package
    // is read, and a message in none of the chosen folders is extra.
    bool onlyTheirMboxes = false;
};

struct VerifyFinding {
    bool fault = true;
    QString kind;    // "missing", "extra", "in another folder", "empty message", "header
                     // differs", "part differs", "part missing", "extra part", "unreadable";
                     // expected: "Latin-1", "trailer mark", "NUL byte", "not in the store"
    QString message; // the mbox file and place of an extra message (see Message())
    QString part;    // "section 2 (report.pdf)", when a part is concerned
    QString mbox;    // the mbox file where the message is or should be
    QString detail;  // what was found, in words
    // The store's message, when the finding is about one: its path is made
    // when asked for, so a store's worth of findings holds no path each. The
    // store must outlive the finding.
    const MailItem* item = nullptr;

    // The store's message file (or the mbox file, for an extra message).
    QString Message() const;
};

struct VerifyFolder {
    QString mbox; // the mbox file, as it should be in the package
    quint64 verified = 0, changed = 0, faults = 0;
};

struct VerifyResult {
    QList<VerifyFolder> folders; // in the order of the store's folders
    QList<VerifyFinding> findings;
    quint64 verified = 0; // messages as in the store
    quint64 changed = 0;  // messages with only the changes the mode makes
    quint64 faults = 0;   // messages (or package entries) with a fault
    bool stopped = false;
    bool Faultless() const { return faults == 0; }
};

// Checks the package against the store's messages (a scan of the store; the
// folders are enough). Progress steps count the store's messages; `stop` ends
// the check early (the result then says so).
VerifyResult Verify(const Store& store, const VerifyJob& job, RunProgress& progress,
                    const std::atomic<bool>& stop);

// The one-line summary: "N verified, N with expected changes, N faults".
QString VerifySummary(quint64 verified, quint64 changed, quint64 faults);
// What a kind of expected change is, in words ("8-bit text converted to
// Latin-1"), and whether keeping every byte avoids it.
QString DescribeChange(const QString& kind, bool* keepBytesAvoids = nullptr);
// The store's messages with each kind of expected change, by kind.
QMap<QString, quint64> ChangedMessagesByKind(const VerifyResult& result);
