// pellomar-cli: the converter without a window.
#include "cli/CliCommon.h"
#include "cli/Commands.h"

#include <QCoreApplication>

static const char* const kUsage =
    "Usage: pellomar-cli <command> [options]\n"
    "\n"
    "Commands:\n"
    "  scan STORE [--json]             scan an Apple Mail store and print its folders\n"
    "  export STORE DEST [--folder PATH]...\n"
    "                                  convert the store (or the named folders) into an\n"
    "                                  Outlook 2011 archive package (.rge) inside DEST\n"
    "\n"
    "Options:\n"
    "  -h, --help                      show this help\n"
    "  --version                       show the version\n";

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("pellomar-cli"));
    QCoreApplication::setApplicationVersion(QStringLiteral(PELLOMAR_VERSION));
    QStringList args = QCoreApplication::arguments().mid(1);
    if (args.isEmpty()) {
        Err() << kUsage;
        return ExitUsage;
    }
    const QString command = args.takeFirst();
    if (command == QLatin1String("-h") || command == QLatin1String("--help")) {
        Out() << kUsage;
        return ExitOk;
    }
    if (command == QLatin1String("--version")) {
        Out() << "pellomar-cli " << PELLOMAR_VERSION << "\n";
        return ExitOk;
    }
    if (command == QLatin1String("scan"))
        return RunScanCommand(args);
    if (command == QLatin1String("export"))
        return RunExportCommand(args);
    Err() << "pellomar-cli: unknown command '" << command << "'\n\n" << kUsage;
    return ExitUsage;
}
