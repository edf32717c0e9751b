// Benchmark helper: times the window's scan of a store, and optionally the
// save of the whole store from there to a verified package.
//   pellomar-windowscan STORE [SAVE_DIR]
// Opens the main window, clicks Start in the mailbox selection dialog and
// measures the time until the end-of-scan box ("File scan completed
// successfully.") shows, then answers it and waits for the window to show
// the last folder. With SAVE_DIR it then ticks every folder, saves into
// SAVE_DIR (with the verification the window makes after writing) and waits
// for the window that tells where the package is. Prints
// "seconds_to_box seconds_to_end rows cpu_seconds seconds_to_package
// verification_line" (CPU time of this process, all threads, from the click
// to the box; the time to the package from the click on Start, -1 without
// SAVE_DIR) and exits 0 when the window ends as a scan should: the last
// folder current, its messages listed, the progress bar at its total (and
// with SAVE_DIR, a package with no faults). Needs a display (Xvfb).
#include "app/SelectData.h"
#include "scanner/ScaningThread.h"
#include "ui/PreviewWindow.h"
#include "ui/ProgressDialogs.h"
#include "ui/QImportWindow.h"
#include "ui_ImportMsgDlg.h"
#include "ui_ProgressDialog.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QTreeWidget>

#include <cstdio>

#ifdef __GLIBC__
#include <malloc.h>
#endif

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
    qint64 packageMs = -1;
    QString packageText;

protected:
    bool eventFilter(QObject* object, QEvent* event) override {
        if (event->type() == QEvent::Show) {
            if (auto* done = qobject_cast<QImportWindow*>(object)) {
                // Its text follows right after it shows.
                if (packageMs < 0) {
                    packageMs = clock.elapsed();
                    QTimer::singleShot(0, done, [this, done] {
                        packageText = done->ui->InfoLabels->text();
                        done->close();
                    });
                }
                return false;
            }
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

// The window, saving into the folder given instead of asking for one.
class BenchWindow : public PreviewWindow {
public:
    QString saveTo;
    QString AskForSaveDirectory() override { return saveTo; }
};

} // namespace

int main(int argc, char** argv) {
#ifdef __GLIBC__
    // As the application does.
    mallopt(M_ARENA_MAX, 2);
#endif
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QApplication app(argc, argv);
    if (argc != 2 && argc != 3) {
        fprintf(stderr, "usage: pellomar-windowscan STORE [SAVE_DIR]\n");
        return 2;
    }
    auto* window = new BenchWindow;
    const bool save = argc == 3;
    if (save)
        window->saveTo = QString::fromLocal8Bit(argv[2]);
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
    bool saving = false;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        if (watcher.boxMs < 0 && watcher.others.isEmpty())
            return;
        if (window->RunUnderWay())
            return;
        if (endMs < 0)
            endMs = watcher.clock.elapsed();
        if (save && !saving && watcher.boxMs >= 0) {
            // Every folder ticked, as a click on the root's box does.
            window->FolderItem(llRootId)->setCheckState(0, Qt::Checked);
            saving = true;
            window->OnSavingFiles();
            return;
        }
        if (saving && watcher.packageText.isEmpty() && watcher.others.isEmpty())
            return;
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
    else if (save && (watcher.packageMs < 0 || !watcher.packageText.contains(" 0 faults")))
        fprintf(stderr, "no verified package: %s\n",
                qPrintable(watcher.packageText + watcher.others.join('|')));
    else
        code = 0;
    // The verification's line of the package window.
    QString verification;
    for (const QString& line : watcher.packageText.split('\n'))
        if (line.startsWith(QLatin1String("Verification")))
            verification = line;
    printf("%.3f %.3f %d %.3f %.3f %s\n", watcher.boxMs / 1000.0, endMs / 1000.0, rows,
           watcher.boxCpu, watcher.packageMs / 1000.0, qPrintable(verification));
    window->CleanListAndHash();
    delete window;
    return code;
}
