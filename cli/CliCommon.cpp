#include "cli/CliCommon.h"
#include "scanner/Globals.h"
#include "scanner/ScaningThread.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <atomic>

#include <cstdio>
#include <unistd.h>

namespace {

class ProgressBar {
public:
    ProgressBar() : m_enabled(isatty(fileno(stderr))) {}
    void start(unsigned long total, const QString& caption) {
        m_total = total;
        m_value = 0;
        m_caption = caption;
        m_lastDrawn = -1;
        draw();
    }
    void show(unsigned long value) {
        m_value = value;
        draw();
    }
    void finish() {
        if (m_enabled && m_lastDrawn >= 0)
            fputs("\n", stderr);
        m_lastDrawn = -1;
    }

private:
    void draw() {
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

    bool m_enabled;
    unsigned long m_total = 0;
    unsigned long m_value = 0;
    int m_lastDrawn = -1;
    QString m_caption;
};

} // namespace

bool RunWorker(ScaningThread& thread, bool preview) {
    ProgressBar bar;
    bool finished = false;
    QEventLoop loop;
    QObject context;
    // The worker counts its steps itself, and the bar is drawn ten times a
    // second: a queued signal per message would wake this thread for each.
    std::atomic<unsigned long> steps{0};
    QObject::connect(
        &thread, &ScaningThread::OnSettingsForPrgBar, &context, [&steps] { steps = 0; },
        Qt::DirectConnection);
    QObject::connect(
        &thread, &ScaningThread::CurrentValue, &context, [&steps] { ++steps; },
        Qt::DirectConnection);
    QObject::connect(&thread, &ScaningThread::OnSettingsForPrgBar, &context,
                     [&bar](unsigned long total, const QString& text) { bar.start(total, text); });
    QTimer redraw;
    QObject::connect(&redraw, &QTimer::timeout, &context, [&] { bar.show(steps); });
    redraw.start(100);
    QObject::connect(&thread, &ScaningThread::FinishScaning, &context,
                     [&finished] { finished = true; });
    QObject::connect(&thread, &QThread::finished, &loop, &QEventLoop::quit, Qt::QueuedConnection);
    IsPreview = preview;
    bProcessRunning = true;
    thread.SetInitialSettings();
    loop.exec();
    thread.wait();
    // Deliver signals still queued from the worker before reporting.
    QCoreApplication::sendPostedEvents(&context);
    bar.show(steps);
    bar.finish();
    IsPreview = true;
    return finished;
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
