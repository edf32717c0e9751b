#include "cli/CliCommon.h"

#include <csignal>
#include <cstdio>
#include <unistd.h>

namespace {

static_assert(std::atomic<bool>::is_always_lock_free, "the stop flag is set from a signal handler");

// Set from the signal handler: what it may touch must live at namespace level.
std::atomic<bool> g_stop{false};
volatile std::sig_atomic_t g_interrupted = 0;
struct sigaction g_previous = {};

extern "C" void OnInterrupt(int) {
    g_interrupted = 1;
    g_stop = true;
}

} // namespace

ProgressBar::ProgressBar() : m_enabled(isatty(fileno(stderr))) {}

ProgressBar::~ProgressBar() {
    Finish();
}

void ProgressBar::OnSettingsForPrgBar(unsigned long total, const QString& caption) {
    m_total = total;
    m_value = 0;
    m_caption = caption;
    m_lastDrawn = -1;
    Draw();
}

void ProgressBar::CurrentValue() {
    ++m_value;
    if (!m_enabled)
        return;
    const auto now = std::chrono::steady_clock::now();
    if (now - m_lastTime < std::chrono::milliseconds(100))
        return;
    m_lastTime = now;
    Draw();
}

void ProgressBar::Finish() {
    if (m_lastDrawn >= 0) {
        Draw();
        fputs("\n", stderr);
    }
    m_lastDrawn = -1;
}

void ProgressBar::Draw() {
    if (!m_enabled)
        return;
    const int width = 30;
    const int percent = m_total ? int(100.0 * double(m_value) / double(m_total)) : 100;
    if (percent == m_lastDrawn)
        return;
    m_lastDrawn = percent;
    const int filled = width * qMin(percent, 100) / 100;
    fprintf(stderr, "\r%s [%s%s] %3d%% (%lu/%lu)", m_caption.toLocal8Bit().constData(),
            QByteArray(filled, '#').constData(), QByteArray(width - filled, '.').constData(),
            percent, m_value, m_total);
    fflush(stderr);
}

InterruptGuard::InterruptGuard() {
    g_interrupted = 0;
    g_stop = false;
    struct sigaction action = {};
    action.sa_handler = OnInterrupt;
    // A second Ctrl-C ends the process at once.
    action.sa_flags = SA_RESETHAND;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, &g_previous);
}

InterruptGuard::~InterruptGuard() {
    sigaction(SIGINT, &g_previous, nullptr);
}

std::atomic<bool>& InterruptGuard::StopFlag() {
    return g_stop;
}

bool InterruptGuard::Interrupted() {
    return g_interrupted != 0;
}

QTextStream& Out() {
    static QTextStream s(stdout);
    s.setCodec("UTF-8");
    return s;
}

QTextStream& Err() {
    static QTextStream s(stderr);
    s.setCodec("UTF-8");
    return s;
}
