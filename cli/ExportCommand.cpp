// pellomar-cli export STORE DEST [--folder PATH]...: scans the store, ticks
// every folder (or the named ones) and writes the archive package into DEST.
#include "cli/CliCommon.h"
#include "cli/Commands.h"
#include "cli/RunReport.h"
#include "export/ExportJob.h"
#include "export/Verify.h"
#include "scanner/Store.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QSet>

namespace {

const char kExportUsage[] =
    "Usage: pellomar-cli export STORE DEST [--folder PATH]... [--keep-going]\n"
    "                          [--keep-bytes] [--with-status] [--no-verify] [--json]\n";

} // namespace

int RunExportCommand(const QStringList& args) {
    QStringList positional;
    QStringList folders;
    RunOptions options;
    bool json = false;
    bool verifyAfter = true;
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
        } else if (arg == QLatin1String("--no-verify")) {
            verifyAfter = false;
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
    ScanOptions scanOptions = StoreScanOptions(positional[0], "export");
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
    // (Files that hold no message are named with the export's report.)
    RunResult scanned = store.result;
    scanned.notMessages.clear();
    const int scanEnding = ReportEnding("export", scanned, "scanned");

    // The folders to export: all, or the named ones (their own messages).
    if (ChooseFolders(store, folders, "export").isEmpty() && !folders.isEmpty())
        return ExitUsage;

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
    // The package against the store: every message whole, in its folder.
    VerifyResult verification;
    const bool verified =
        verifyAfter && !InterruptGuard::Interrupted() && result.ending != RunResult::Ending::Failed;
    if (verified) {
        VerifyJob check;
        check.package = package;
        check.m_strInputfilepath = job.m_strInputfilepath;
        check.selection = job.selection;
        check.keepBytes = job.options.keepBytes;
        ProgressBar bar;
        verification = Verify(store, check, bar, InterruptGuard::StopFlag());
    }
    if (json) {
        WriteExportJson(Out(), package, result, verified ? &verification : nullptr);
    } else {
        WriteExportListing(Out(), package, result);
        if (verified)
            WriteVerifyReport(Out(), verification, package);
    }
    if (InterruptGuard::Interrupted()) {
        Err() << "pellomar-cli export: interrupted; the package holds the whole messages "
                 "written so far\n";
        return ExitInterrupted;
    }
    const int exportEnding = ReportEnding("export", result, "written");
    if (exportEnding != ExitOk)
        return exportEnding;
    if (verified && !verification.Faultless()) {
        Err() << "pellomar-cli export: the verification found " << verification.faults
              << (verification.faults == 1 ? " fault" : " faults") << " in the package\n";
        return ExitFaults;
    }
    return scanEnding;
}
