// pellomar-cli export STORE DEST [--folder PATH]...: scans the store, ticks
// every folder (or the named ones) and writes the archive package into DEST.
#include "cli/CliCommon.h"
#include "cli/Commands.h"
#include "cli/RunReport.h"
#include "export/ExportJob.h"
#include "scanner/Store.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QSet>

namespace {

const char kExportUsage[] =
    "Usage: pellomar-cli export STORE DEST [--folder PATH]... [--keep-going]\n"
    "                          [--keep-bytes] [--with-status] [--json]\n";

} // namespace

int RunExportCommand(const QStringList& args) {
    QStringList positional;
    QStringList folders;
    RunOptions options;
    bool json = false;
    const QLatin1String folderEquals("--folder=");
    for (int i = 0; i < args.size(); ++i) {
        const QString& arg = args[i];
        if (arg == QLatin1String("--keep-going")) {
            options.keepGoing = true;
        } else if (arg == QLatin1String("--keep-bytes")) {
            options.keepBytes = true;
        } else if (arg == QLatin1String("--with-status")) {
            options.withStatus = true;
        } else if (arg == QLatin1String("--json")) {
            json = true;
        } else if (arg == QLatin1String("--folder")) {
            if (i + 1 >= args.size()) {
                Err() << "pellomar-cli export: --folder needs a folder path\n" << kExportUsage;
                return ExitUsage;
            }
            folders << args[++i];
        } else if (arg.startsWith(folderEquals)) {
            folders << arg.mid(folderEquals.size());
        } else if (arg.startsWith(QLatin1Char('-')) && arg.size() > 1) {
            Err() << "pellomar-cli export: unknown option '" << arg << "'\n" << kExportUsage;
            return ExitUsage;
        } else {
            positional << arg;
        }
    }
    if (positional.size() != 2 || positional[0].isEmpty() || positional[1].isEmpty()) {
        Err() << kExportUsage;
        return ExitUsage;
    }

    const QString problem = CheckStoreFolder("export", positional[0]);
    if (!problem.isEmpty()) {
        Err() << problem;
        return ExitFailure;
    }
    const QFileInfo dest(positional[1]);
    if (!dest.isDir()) {
        Err() << "pellomar-cli export: the destination '" << positional[1]
              << "' is not an existing folder\n";
        return ExitFailure;
    }
    if (!dest.isWritable() || !dest.isExecutable()) {
        Err() << "pellomar-cli export: no write permission for the destination '" << positional[1]
              << "'\n";
        return ExitFailure;
    }

    InterruptGuard interrupt;
    // The same store path as the scan command: the folder itself, and its
    // path is cut out of every message path. The export reads each message
    // itself; the scan only has to find them.
    ScanOptions scanOptions = StoreScanOptions();
    scanOptions.keepGoing = options.keepGoing;
    scanOptions.foldersOnly = true;
    Store store;
    {
        ProgressBar bar;
        store = EMLXFinder(QFileInfo(positional[0]).canonicalFilePath(), scanOptions, bar,
                           InterruptGuard::StopFlag());
    }
    if (InterruptGuard::Interrupted()) {
        Err() << "pellomar-cli export: interrupted during the scan; nothing was written\n";
        return ExitInterrupted;
    }
    // A scan that ended at an unreadable file still exports what it found.
    const int scanEnding = ReportEnding("export", store.result, "scanned");

    // The folders to export: all, or the named ones (their own messages).
    if (folders.isEmpty()) {
        store.MarkDirToRootCheckedOrUnchecked(kTicked);
    } else {
        QStringList valid;
        for (const FldrAtrib& f : store.Folders())
            if (f.ullId != llRootId)
                valid << f.path;
        const QSet<QString> validSet(valid.begin(), valid.end());
        for (const QString& wanted : folders) {
            if (!validSet.contains(wanted)) {
                Err() << "pellomar-cli export: the store has no folder '" << wanted << "'\n"
                      << "Folders of this store (as `pellomar-cli scan` shows them):\n";
                for (const QString& v : valid)
                    Err() << "  " << v << "\n";
                return ExitUsage;
            }
        }
        const QSet<QString> wantedSet(folders.begin(), folders.end());
        for (const FldrAtrib& f : store.Folders())
            store.Folder(f.ullId)->ucTickState =
                f.ullId != llRootId && wantedSet.contains(f.path) ? kTicked : kNotTicked;
    }

    const ExportJob job = ExportJob::Ticked(store, QDir::cleanPath(dest.absoluteFilePath()),
                                            QDateTime::currentDateTime(), options);
    const QString package = job.Package();
    if (QFileInfo::exists(package)) {
        Err() << "pellomar-cli export: '" << package
              << "' already exists; not adding to it (try again in a second)\n";
        return ExitFailure;
    }

    RunResult result;
    {
        ProgressBar bar;
        result = EMLXConverter(store, job, bar, InterruptGuard::StopFlag());
    }
    if (json)
        WriteExportJson(Out(), package, result);
    else
        WriteExportListing(Out(), package, result);
    if (InterruptGuard::Interrupted()) {
        Err() << "pellomar-cli export: interrupted; the package holds the whole messages "
                 "written so far\n";
        return ExitInterrupted;
    }
    const int exportEnding = ReportEnding("export", result, "written");
    return exportEnding != ExitOk ? exportEnding : scanEnding;
}
