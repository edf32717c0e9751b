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

// After a save that could not make or write the package: a warning box in
// front of `parent` that names the file, the reason and how many messages
// were not written; the details are its detailed text.
void ShowSaveFailure(QWidget* parent, const RunResult& result);

// The one box at the end of a scan, in front of `window`: "File scan
// completed successfully." only when it did; where it ended and what was
// left out otherwise, with the details (files skipped or passed over).
void ShowEndOfScan(QWidget* window, const RunResult& result, bool foundMessages);

// What the window at the end of a save says (where the package is, how the
// save ended, the counts and the verification's result) and its details.
struct EndOfSave {
    QString text;
    QString details;
};
EndOfSave DescribeSave(const RunResult& result, const VerifyResult* verification,
                       const QString& package);

// "Verification: N verified, N with expected changes, N faults.", and each
// fault and kind of expected change, one per line.
QString VerificationLine(const VerifyResult& verification);
QString VerificationDetails(const VerifyResult& verification);
