#pragma once
// Shared pieces of the command-line tool: a progress bar on stderr, the
// interrupt flag, and the standard streams.

#include "scanner/RunProgress.h"

#include <QString>
#include <QTextStream>

#include <atomic>
#include <chrono>

// Draws a run's progress on stderr, when stderr is a terminal, at most ten
// times a second.
class ProgressBar : public RunProgress {
public:
    ProgressBar();
    ~ProgressBar() override;
    void OnSettingsForPrgBar(unsigned long total, const QString& caption) override;
    void CurrentValue() override;
    // Draws the last state and ends the bar's line.
    void Finish();

private:
    void Draw();

    bool m_enabled;
    unsigned long m_total = 0;
    unsigned long m_value = 0;
    int m_lastDrawn = -1;
    QString m_caption;
    std::chrono::steady_clock::time_point m_lastTime;
};

// Ctrl-C sets the stop flag of the run under way while it lives; a second
// Ctrl-C ends the process at once.
class InterruptGuard {
public:
    InterruptGuard();
    ~InterruptGuard();
    // The flag a run looks at.
    static std::atomic<bool>& StopFlag();
    // Ctrl-C was pressed.
    static bool Interrupted();
};

// Standard streams, UTF-8.
QTextStream& Out();
QTextStream& Err();

// Exit codes.
enum {
    ExitOk = 0,
    ExitFailure = 1,
    ExitUsage = 2,
    ExitIncomplete = 3,
    ExitFaults = 4,
    ExitInterrupted = 130
};
