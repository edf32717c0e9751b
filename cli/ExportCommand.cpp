// pellomar-cli export STORE DEST [--folder PATH]...: scans the store, ticks
// every folder (or the named ones) and writes the archive package into DEST.
#include "cli/CliCommon.h"
#include "cli/Commands.h"
#include "cli/RunReport.h"
#include "export/EmlxExport.h"
#include "export/SaveTimeStamp.h"
#include "scanner/FolderTreeSink.h"
#include "scanner/Globals.h"
#include "scanner/Records.h"
#include "scanner/ScaningThread.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QSet>

#include <csignal>

namespace {

const char kExportUsage[] =
    "Usage: pellomar-cli export STORE DEST [--folder PATH]... [--keep-going]\n"
    "                          [--keep-bytes] [--with-status] [--json]\n";
const int ExitInterrupted = 130;

static_assert(std::atomic<bool>::is_always_lock_free, "the stop flag is set from a signal handler");

volatile std::sig_atomic_t g_interrupted = 0;

extern "C" void OnInterrupt(int) {
    g_interrupted = 1;
    bStopFlag = true;
}

// Ctrl-C asks the worker to stop between messages while the command runs.
class InterruptGuard {
public:
    InterruptGuard() {
        g_interrupted = 0;
        struct sigaction action = {};
        action.sa_handler = OnInterrupt;
        // A second Ctrl-C ends the process at once.
        action.sa_flags = SA_RESETHAND;
        sigemptyset(&action.sa_mask);
        sigaction(SIGINT, &action, &m_previous);
    }
    ~InterruptGuard() { sigaction(SIGINT, &m_previous, nullptr); }

private:
    struct sigaction m_previous = {};
};

// Restores the folder sink and frees the records when the command ends.
class ScanState {
public:
    ScanState() : m_previous(pMainWindow) {
        FreeAllFolderRecords();
        pMainWindow = &sink;
    }
    ~ScanState() {
        FreeAllFolderRecords();
        listOfPathOfEmlxPart.clear();
        pMainWindow = m_previous;
        m_pMainWindow = nullptr;
    }
    HeadlessFolderSink sink;

private:
    FolderTreeSink* m_previous;
};

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

    const QFileInfo store(positional[0]);
    if (!store.exists()) {
        Err() << "pellomar-cli export: '" << positional[0] << "' does not exist\n";
        return ExitFailure;
    }
    if (!store.isDir()) {
        Err() << "pellomar-cli export: '" << positional[0] << "' is not a folder\n";
        return ExitFailure;
    }
    if (!store.isReadable() || !store.isExecutable()) {
        Err() << "pellomar-cli export: cannot read the folder '" << positional[0] << "'\n";
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
    ScanState state;
    // The same store path as the scan command: find starts from the folder
    // itself, and the path is cut out of every message path.
    m_strInputfilepath = store.canonicalFilePath();
    ScaningThread thread;
    thread.m_options = options;
    // The export reads each message itself; the scan only has to find them.
    thread.m_options.foldersOnly = true;
    // A Ctrl-C that comes while the worker is being started still counts:
    // starting a run clears the stop flag.
    QObject context;
    QObject::connect(
        &thread, &ScaningThread::OnShowingScanProgBar, &context,
        [] {
            if (g_interrupted)
                bStopFlag = true;
        },
        Qt::DirectConnection);
    RunWorker(thread, true);
    if (g_interrupted) {
        Err() << "pellomar-cli export: interrupted during the scan; nothing was written\n";
        return ExitInterrupted;
    }
    // A scan that ended at an unreadable file still exports what it found.
    const int scanEnding = ReportEnding("export", thread.LastScan(), "scanned");

    // Tick the folders to export.
    if (folders.isEmpty()) {
        for (FldrAtrib* f = StartFldrAtrib; f; f = f->pNext)
            f->ucTickState = kTicked;
    } else {
        QStringList valid;
        for (FldrAtrib* f = StartFldrAtrib; f; f = f->pNext)
            if (f->ullId != llRootId && f->pTreeItem)
                valid << state.sink.FolderPath(f->ullId);
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
        for (FldrAtrib* f = StartFldrAtrib; f; f = f->pNext) {
            const bool ticked = f->ullId != llRootId && f->pTreeItem &&
                                wantedSet.contains(state.sink.FolderPath(f->ullId));
            f->ucTickState = ticked ? kTicked : kNotTicked;
        }
    }

    saveDir = QDir::cleanPath(dest.absoluteFilePath());
    strTime = MakeSaveTimeStamp(QDateTime::currentDateTime());
    mainIdentity = PackageName(strTime);
    const QString package = saveDir + mainIdentity;
    if (QFileInfo::exists(package)) {
        Err() << "pellomar-cli export: '" << package
              << "' already exists; not adding to it (try again in a second)\n";
        return ExitFailure;
    }

    InstallEmlxExport();
    thread.m_options.foldersOnly = false;
    RunWorker(thread, false);
    if (json)
        WriteExportJson(Out(), package, thread.LastExport());
    else
        WriteExportListing(Out(), package, thread.LastExport());
    if (g_interrupted) {
        Err() << "pellomar-cli export: interrupted; the package holds the whole messages "
                 "written so far\n";
        return ExitInterrupted;
    }
    const int exportEnding = ReportEnding("export", thread.LastExport(), "written");
    return exportEnding != ExitOk ? exportEnding : scanEnding;
}
