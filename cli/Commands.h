#pragma once
#include "scanner/EmlxFinder.h"

#include <QString>
#include <QStringList>

// Each command takes its arguments (after the command word) and returns the
// process exit code.
int RunScanCommand(const QStringList& args);
int RunExportCommand(const QStringList& args);

// Empty when `path` is a folder the user can read; otherwise the one-line
// error for `command`.
QString CheckStoreFolder(const char* command, const QString& path);
// How the commands scan: the user's Mail folder known.
ScanOptions StoreScanOptions();
