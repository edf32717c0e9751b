#pragma once
// What the window says about a run beyond the end message: a file the run
// ended at, files it skipped, text the Latin-1 conversion changed and
// detached parts it could not restore.

#include <QString>

class QWidget;
class RunResult;
struct VerifyResult;

// One line with the counts, for the import instructions after a save; empty
// when nothing was lost or changed.
QString LossSummaryLine(const RunResult& result);

// Every file the run ended at or skipped with its reason, and every missing
// part, one per line.
QString LossDetails(const RunResult& result);

// After a run that ended at an unreadable file or skipped files (or, after a
// save, lost anything): a warning box that names the file, the reason and
// how many messages were not scanned or written, and tells how to skip such
// files; the details are its detailed text. Does nothing otherwise.
// `verification`, after a save: what verification of the package found;
// its faults make the box too.
void ShowLossWarning(QWidget* parent, const RunResult& result, bool save,
                     const VerifyResult* verification = nullptr);

// "Verification: N verified, N with expected changes, N faults.", and each
// fault and kind of expected change, one per line.
QString VerificationLine(const VerifyResult& verification);
QString VerificationDetails(const VerifyResult& verification);
