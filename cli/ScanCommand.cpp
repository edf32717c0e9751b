#include "cli/CliCommon.h"
#include "cli/Commands.h"
#include "cli/RunReport.h"
#include "cli/ScanOutput.h"
#include "scanner/FolderTreeSink.h"
#include "scanner/Globals.h"
#include "scanner/Records.h"
#include "scanner/ScaningThread.h"

#include <QDir>
#include <QFileInfo>

namespace {

const char kScanUsage[] = "Usage: pellomar-cli scan STORE [--json] [--keep-going]\n";

} // namespace

int RunScanCommand(const QStringList& args) {
    QString store;
    bool json = false;
    bool haveStore = false;
    RunOptions options;
    for (const QString& arg : args) {
        if (arg == QLatin1String("--json")) {
            json = true;
        } else if (arg == QLatin1String("--keep-going")) {
            options.keepGoing = true;
        } else if (arg.startsWith(QLatin1Char('-')) && arg.size() > 1) {
            Err() << "pellomar-cli scan: unknown option '" << arg << "'\n" << kScanUsage;
            return ExitUsage;
        } else if (haveStore) {
            Err() << "pellomar-cli scan: more than one store given\n" << kScanUsage;
            return ExitUsage;
        } else {
            store = arg;
            haveStore = true;
        }
    }
    if (!haveStore || store.isEmpty()) {
        Err() << kScanUsage;
        return ExitUsage;
    }

    const QFileInfo info(store);
    if (!info.exists()) {
        Err() << "pellomar-cli scan: '" << store << "' does not exist\n";
        return ExitFailure;
    }
    if (!info.isDir()) {
        Err() << "pellomar-cli scan: '" << store << "' is not a folder\n";
        return ExitFailure;
    }
    if (!info.isReadable() || !info.isExecutable()) {
        Err() << "pellomar-cli scan: cannot read the folder '" << store << "'\n";
        return ExitFailure;
    }
    // find must start from the folder itself, not from a link to it, and the
    // folder path is cut out of every message path: no trailing slash.
    m_strInputfilepath = info.canonicalFilePath();

    HeadlessFolderSink sink;
    FolderTreeSink* const previousSink = pMainWindow;
    pMainWindow = &sink;
    FreeAllFolderRecords();
    ScaningThread thread;
    thread.m_options = options;
    RunWorker(thread, true);

    if (json)
        WriteScanJson(Out(), sink);
    else
        WriteScanTree(Out(), sink);

    FreeAllFolderRecords();
    pMainWindow = previousSink;
    m_pMainWindow = nullptr;
    return ReportEnding("scan", thread.LastScan(), "scanned");
}
