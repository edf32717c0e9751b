#pragma once
// Shared pieces of the command-line tool: running the worker thread headless,
// a progress bar on stderr, and one-line errors.

#include <QString>
#include <QTextStream>

class ScaningThread;

// Runs one scan (preview = true) or export (preview = false) on the worker
// thread and returns when the run has ended. Progress is drawn on stderr when
// stderr is a terminal. Returns true when the run ended with FinishScaning
// (false after a stop request).
bool RunWorker(ScaningThread& thread, bool preview);

// Standard streams, UTF-8.
QTextStream& Out();
QTextStream& Err();

// Exit codes.
enum { ExitOk = 0, ExitFailure = 1, ExitUsage = 2, ExitIncomplete = 3 };
