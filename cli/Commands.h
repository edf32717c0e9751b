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
// How the commands scan the store folder `store`: the user's Mail folder
// known, account folders shown by their account's name. Why the names
// could not be read, if so, goes to stderr.
ScanOptions StoreScanOptions(const QString& store, const char* command);

class Store;
// The folders a command works on: every folder, or those named by their
// paths, of the names on disk or of the display names (as `scan` shows
// them). Empty, with the valid paths on stderr, when a path is unknown.
QVector<quint64> ChooseFolders(Store& store, const QStringList& folders, const char* command);
