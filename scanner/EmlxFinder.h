#pragma once
// The scan of a mail store: every message file is found, given its folder
// and record, and announced, in the order of the listing.

#include "scanner/Store.h"

#include <QHash>
#include <QString>

#include <atomic>

class RunProgress;

struct ScanOptions {
    // Skip message files that cannot be read (and list them) instead of
    // ending the scan at the first one.
    bool keepGoing = false;
    // Only list the messages in their folders, without analysing them: all
    // an export needs, at a fraction of the cost.
    bool foldersOnly = false;
    // The user's Apple Mail folder (DefaultMailPathFor): below it the
    // version folder is cut from the folder paths.
    QString m_strDefaultMailPath;
    // Account folder name (the account's UUID) -> the name the user gave the
    // account; the scan shows those folders by it (FldrAtrib::displayName).
    QHash<QString, QString> accountNames;
};

// Scans the store folder `m_strInputfilepath`. Progress and every new
// folder and message go to `progress`, on the calling thread. `stop` is
// looked at before each message file; once it is set the scan ends there.
// The result owns everything found; nothing else is kept or written.
Store EMLXFinder(const QString& m_strInputfilepath, const ScanOptions& options,
                 RunProgress& progress, const std::atomic<bool>& stop);
