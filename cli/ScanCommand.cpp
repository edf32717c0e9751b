#include "accounts/AccountNames.h"
#include "cli/CliCommon.h"
#include "cli/Commands.h"
#include "cli/RunReport.h"
#include "cli/ScanOutput.h"
#include "scanner/EmlxFinder.h"
#include "scanner/MailPaths.h"

#include <QFileInfo>

namespace {

const char kScanUsage[] = "Usage: pellomar-cli scan STORE [--json] [--keep-going]\n";

} // namespace

QString CheckStoreFolder(const char* command, const QString& path) {
    const QString prefix = QStringLiteral("pellomar-cli ") + QLatin1String(command) + ": ";
    const QFileInfo info(path);
    if (!info.exists())
        return prefix + "'" + path + "' does not exist\n";
    if (!info.isDir())
        return prefix + "'" + path + "' is not a folder\n";
    if (!info.isReadable() || !info.isExecutable())
        return prefix + "cannot read the folder '" + path + "'\n";
    return QString();
}

ScanOptions StoreScanOptions(const QString& store, const char* command) {
    ScanOptions options;
    options.m_strDefaultMailPath = DefaultMailPathFor(pellomar::ConsoleUserName());
    QString warning;
    options.accountNames =
        AccountDisplayNames(ReadAccountNames(QFileInfo(store).canonicalFilePath(), &warning));
    if (!warning.isEmpty())
        Err() << "pellomar-cli " << command << ": " << warning << "\n";
    return options;
}

int RunScanCommand(const QStringList& args) {
    QString store;
    bool json = false, keepGoing = false;
    bool haveStore = false;
    for (const QString& arg : args) {
        if (arg == QLatin1String("--json")) {
            json = true;
        } else if (arg == QLatin1String("--keep-going")) {
            keepGoing = true;
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
    const QString problem = CheckStoreFolder("scan", store);
    if (!problem.isEmpty()) {
        Err() << problem;
        return ExitFailure;
    }

    // The folder itself, not a link to it, and without a trailing slash: its
    // path is cut out of every message path.
    ScanOptions options = StoreScanOptions(store, "scan");
    options.keepGoing = keepGoing;
    const std::atomic<bool> never{false};
    ProgressBar bar;
    const Store result = EMLXFinder(QFileInfo(store).canonicalFilePath(), options, bar, never);
    bar.Finish();
    if (json)
        WriteScanJson(Out(), result);
    else
        WriteScanTree(Out(), result);
    return ReportEnding("scan", result.result, "scanned");
}
