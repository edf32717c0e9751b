// pellomar-cli verify PACKAGE STORE [--folder PATH]...: checks that every
// message of the store (or of the named folders) is in the package, whole,
// in its folder.
#include "cli/CliCommon.h"
#include "cli/Commands.h"
#include "cli/RunReport.h"
#include "export/Verify.h"
#include "scanner/Store.h"

#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

namespace {

const char kVerifyUsage[] =
    "Usage: pellomar-cli verify PACKAGE STORE [--folder PATH]... [--keep-bytes] [--json]\n";

} // namespace

QVector<quint64> ChooseFolders(Store& store, const QStringList& folders, const char* command) {
    if (folders.isEmpty()) {
        store.MarkDirToRootCheckedOrUnchecked(kTicked);
        return store.TickedFolders();
    }
    // Each folder's path of display names; parents come before children.
    QHash<quint64, QString> shown;
    QSet<QString> valid;
    for (const FldrAtrib& f : store.Folders()) {
        if (f.ullId == llRootId)
            continue;
        const QString parent = shown.value(f.ullParentId);
        shown.insert(f.ullId,
                     parent.isEmpty() ? f.displayName : parent + QLatin1Char('/') + f.displayName);
        valid << f.path << shown.value(f.ullId);
    }
    for (const QString& wanted : folders) {
        if (!valid.contains(wanted)) {
            Err() << "pellomar-cli " << command << ": the store has no folder '" << wanted << "'\n"
                  << "Folders of this store (as `pellomar-cli scan` shows them):\n";
            for (const FldrAtrib& f : store.Folders()) {
                if (f.ullId == llRootId)
                    continue;
                Err() << "  " << shown.value(f.ullId);
                if (shown.value(f.ullId) != f.path)
                    Err() << "  (" << f.path << ")";
                Err() << "\n";
            }
            return {};
        }
    }
    const QSet<QString> wantedSet(folders.begin(), folders.end());
    for (const FldrAtrib& f : store.Folders())
        store.Folder(f.ullId)->ucTickState =
            f.ullId != llRootId &&
                    (wantedSet.contains(f.path) || wantedSet.contains(shown.value(f.ullId)))
                ? kTicked
                : kNotTicked;
    return store.TickedFolders();
}

int RunVerifyCommand(const QStringList& args) {
    QStringList positional, folders;
    bool json = false, keepBytes = false;
    for (int i = 0; i < args.size(); ++i) {
        const QString& arg = args[i];
        if (arg == QLatin1String("--json")) {
            json = true;
        } else if (arg == QLatin1String("--keep-bytes")) {
            keepBytes = true;
        } else if (arg == QLatin1String("--folder") && i + 1 < args.size()) {
            folders << args[++i];
        } else if (arg.startsWith(QLatin1String("--folder="))) {
            folders << arg.mid(9);
        } else if (arg.startsWith(QLatin1Char('-')) && arg.size() > 1) {
            Err() << "pellomar-cli verify: unknown option '" << arg << "'\n" << kVerifyUsage;
            return ExitUsage;
        } else {
            positional << arg;
        }
    }
    if (positional.size() != 2 || positional[0].isEmpty() || positional[1].isEmpty()) {
        Err() << kVerifyUsage;
        return ExitUsage;
    }
    const QFileInfo package(positional[0]);
    if (!package.isDir()) {
        Err() << "pellomar-cli verify: the package '" << positional[0]
              << "' is not an existing folder\n";
        return ExitFailure;
    }
    const QString problem = CheckStoreFolder("verify", positional[1]);
    if (!problem.isEmpty()) {
        Err() << problem;
        return ExitFailure;
    }

    InterruptGuard interrupt;
    ScanOptions scanOptions = StoreScanOptions(positional[1], "verify");
    scanOptions.keepGoing = true;
    scanOptions.foldersOnly = true;
    Store store;
    {
        ProgressBar bar;
        store = EMLXFinder(QFileInfo(positional[1]).canonicalFilePath(), scanOptions, bar,
                           InterruptGuard::StopFlag());
    }
    VerifyJob job;
    job.package = QDir::cleanPath(package.absoluteFilePath());
    job.m_strInputfilepath = store.m_strInputfilepath;
    job.selection = ChooseFolders(store, folders, "verify");
    if (job.selection.isEmpty() && !folders.isEmpty())
        return ExitUsage;
    job.keepBytes = keepBytes;
    job.onlyTheirMboxes = !folders.isEmpty();
    VerifyResult result;
    {
        ProgressBar bar;
        result = Verify(store, job, bar, InterruptGuard::StopFlag());
    }
    if (json)
        Out() << QJsonDocument(VerifyJson(result, job.package)).toJson(QJsonDocument::Indented);
    else
        WriteVerifyReport(Out(), result, job.package);
    Out().flush();
    if (InterruptGuard::Interrupted())
        return ExitInterrupted;
    return result.Faultless() ? ExitOk : ExitFaults;
}
