#pragma once
#include "scanner/EmlxFinder.h"

#include <QString>
#include <QStringList>
#include <QVector>

// Each command takes its arguments (after the command word) and returns the
// process exit code.
int RunScanCommand(const QStringList& args);
int RunExportCommand(const QStringList& args);
int RunVerifyCommand(const QStringList& args);

// Empty when `path` is a folder the user can read; otherwise the one-line
// error for `command`.
QString CheckStoreFolder(const char* command, const QString& path);
// How the commands scan: the user's Mail folder known.
ScanOptions StoreScanOptions();

class Store;
// The folders a command works on: every folder, or those named by their
// paths (as `scan` shows them). Empty, with the valid names on stderr, when
// a name is unknown.
QVector<quint64> ChooseFolders(Store& store, const QStringList& folders, const char* command);
