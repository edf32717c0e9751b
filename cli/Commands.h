#pragma once
#include <QStringList>

// Each command takes its arguments (after the command word) and returns the
// process exit code.
int RunScanCommand(const QStringList& args);
int RunExportCommand(const QStringList& args);
