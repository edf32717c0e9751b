#pragma once
// What pellomar-cli says at the end of a run: the export's listing (as text
// or one JSON document) and, on stderr, every file that ended the run or was
// skipped and every detached part that could not be restored.

#include <QString>

class RunResult;
class QJsonObject;
class QTextStream;
struct VerifyResult;

// "N message" / "N messages".
QString Messages(quint64 n);

// The package, each mbox file with its messages, the counts of changed
// messages and detached parts, and "N of M messages written".
void WriteExportListing(QTextStream& out, const QString& package, const RunResult& result);
// The same as one JSON document, with the verification when there was one.
void WriteExportJson(QTextStream& out, const QString& package, const RunResult& result,
                     const VerifyResult* verification = nullptr);

// What verification found: a line for each mbox file, the counts, what the
// mode changed and the first faults.
void WriteVerifyReport(QTextStream& out, const VerifyResult& result, const QString& package);
// The same as JSON, every finding.
QJsonObject VerifyJson(const VerifyResult& result, const QString& package);

// Says on stderr which file ended the run (and how many messages were not
// `done` because of it), which files were skipped, which messages could not
// be written and which parts are missing. Returns ExitIncomplete when the
// run ended at a file, skipped one or could not write a message, ExitOk
// otherwise.
int ReportEnding(const char* command, const RunResult& result, const char* done);
