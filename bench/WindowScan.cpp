// Benchmark helper: times the window's scan of a store.
//   pellomar-windowscan STORE
// Opens the main window, clicks Start in the mailbox selection dialog and
// measures the time until the end-of-scan box ("File scan completed
// successfully.") shows, then answers it and waits for the window to show
// the last folder. Prints "seconds_to_box seconds_to_end rows cpu_seconds"
// (the CPU time of this process, all threads, from the click to the box) and
// exits 0
// when the window ends as a scan should: the last folder current, its
// messages listed, the progress bar at its total. Needs a display (Xvfb).
#include "app/SelectData.h"
#include "scanner/ScaningThread.h"
#include "ui/PreviewWindow.h"
#include "ui/ProgressDialogs.h"
#include "ui_ProgressDialog.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QTreeWidget>

#include <cstdio>

#include <sys/resource.h>

namespace {

const char kEndOfScan[] = "File scan completed successfully.";

double CpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](const timeval& t) { return double(t.tv_sec) + t.tv_usec / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Answers every message box as it shows and notes when the end-of-scan box
// came.
class BoxWatcher : public QObject {
public:
    QElapsedTimer clock;
    qint64 boxMs = -1;
    double cpuAtStart = 0;
    double boxCpu = 0;
    QStringList others;

protected:
    bool eventFilter(QObject* object, QEvent* event) override {
        if (event->type() == QEvent::Show) {
            if (auto* box = qobject_cast<QMessageBox*>(object)) {
                if (box->text() == QLatin1String(kEndOfScan) && boxMs < 0) {
                    boxMs = clock.elapsed();
                    boxCpu = CpuSeconds() - cpuAtStart;
                } else {
                    others << box->text();
                }
                QTimer::singleShot(0, box, [box] { box->done(QMessageBox::Ok); });
            }
        }
        return false;
    }
};

} // namespace

int main(int argc, char** argv) {
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QApplication app(argc, argv);
    if (argc != 2) {
        fprintf(stderr, "usage: pellomar-windowscan STORE\n");
        return 2;
    }
    auto* window = new PreviewWindow(nullptr);
    window->closeevent = 1;
    window->setMinimumSize(1000, 520);
    SelectData select;
    ConnectToWindow(&select, window);
    select.show();
    window->show();
    BoxWatcher watcher;
    app.installEventFilter(&watcher);
    auto* start = select.findChild<QPushButton*>(QStringLiteral("StartButton"));
    if (!start) {
        fprintf(stderr, "no Start button\n");
        return 1;
    }

    int code = 1;
    qint64 endMs = -1;
    QTimer::singleShot(1500, [&] {
        select.m_strInputfilepath = QString::fromLocal8Bit(argv[1]);
        start->setEnabled(true);
        watcher.cpuAtStart = CpuSeconds();
        watcher.clock.start();
        start->click();
    });
    // The end: the box was answered and the worker has finished.
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        if (watcher.boxMs < 0 && watcher.others.isEmpty())
            return;
        if (window->RunUnderWay())
            return;
        endMs = watcher.clock.elapsed();
        app.quit();
    });
    poll.start(1);
    app.exec();

    // BENCH_SCREENSHOT=FILE keeps a picture of the window as the scan left it.
    if (qEnvironmentVariableIsSet("BENCH_SCREENSHOT"))
        window->grab().save(qEnvironmentVariable("BENCH_SCREENSHOT"));
    const FldrAtrib* last = window->m_store.EndFldrAtrib();
    const int rows = window->m_pCenterTreeWidget->topLevelItemCount();
    QProgressBar* bar =
        window->m_pProgressInfo ? window->m_pProgressInfo->ui->ProgressBar : nullptr;
    if (watcher.boxMs < 0)
        fprintf(stderr, "no end-of-scan box; boxes: %s\n", qPrintable(watcher.others.join('|')));
    else if (!last || window->m_pLeftTreeWidget->currentItem() != window->FolderItem(last->ullId) ||
             quint64(rows) != last->MsgCount())
        fprintf(stderr, "the last folder is not shown (%d rows)\n", rows);
    else if (!bar || bar->value() != bar->maximum())
        fprintf(stderr, "the progress bar stopped at %d of %d\n", bar ? bar->value() : -1,
                bar ? bar->maximum() : -1);
    else
        code = 0;
    printf("%.3f %.3f %d %.3f\n", watcher.boxMs / 1000.0, endMs / 1000.0, rows, watcher.boxCpu);
    window->CleanListAndHash();
    delete window;
    return code;
}
