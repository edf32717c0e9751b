#pragma once
// Shared pieces of the command-line tool: running the worker thread headless,
// a progress bar on stderr, and one-line errors.

#include <QString>
#include <QTextStream>

class RunResult;
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

// When the run ended at a file it could not read, says on stderr which file,
// why, and how many messages were not `done` ("scanned", "written") because
// of it, and returns ExitIncomplete; otherwise returns ExitOk.
int ReportEnding(const char* command, const RunResult& result, const char* done);
