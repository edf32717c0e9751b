#include "CliCommon.h"
#include "Commands.h"

int RunExportCommand(const QStringList&) {
    Err() << "pellomar-cli: export is not available yet\n";
    return ExitFailure;
}
