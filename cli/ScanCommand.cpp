#include "CliCommon.h"
#include "Commands.h"

int RunScanCommand(const QStringList&) {
    Err() << "pellomar-cli: scan is not available yet\n";
    return ExitFailure;
}
