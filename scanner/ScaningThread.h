#pragma once
// The one worker thread. A run either scans the chosen mail store
// (EMLXFinder, when IsPreview is set) or writes the ticked folders into an
// archive package (EMLXConverter). It reports to the window through queued
// signals; new folders go to the FolderTreeSink in m_pMainWindow. Each run
// leaves a RunResult saying how it ended.

#include "scanner/RunResult.h"

#include <QByteArray>
#include <QString>
#include <QThread>

class ScaningThread;

// The export lives in the library above this one and installs its routine
// here; EMLXConverter runs it.
using ExportRoutine = RunResult (*)(ScaningThread& thread);
void InstallExportRoutine(ExportRoutine routine);

class ScaningThread : public QThread {
    Q_OBJECT
public:
    explicit ScaningThread(QObject* parent = nullptr);

    // Starts a run when idle; asks a running one to stop.
    void SetInitialSettings();

    // Sets m_strDefaultMailPath from the console user's name.
    void GetUserName();

    // The scan: discovery, folder builder, per-message passes, NewItem.
    void EMLXFinder();
    // Builds the folders of one message's folder path ("A/B/C"), leaving the
    // deepest folder's identifier in llParentIdRunning.
    void treeCreator(QString path);
    bool GetParentId(QString name, unsigned long long parentId, unsigned long long* outId);

    // The export of the ticked folders, through the installed routine.
    void EMLXConverter();

    // Quoted-printable bytes of a text ("=" followed by two hex digits).
    static QByteArray QDecode(const QString& text);
    // Decodes one RFC 2047 encoded attachment name.
    static QString DecodeAttName(const QString& text);

    // How the last scan and the last export ended; read them once the run
    // is over (after FinishScaning, or when the thread has finished).
    const RunResult& LastScan() const { return m_scanResult; }
    const RunResult& LastExport() const { return m_exportResult; }

    // Set before a run starts.
    RunOptions m_options;

    unsigned long long m_ulTotalFiles = 0;
    QString m_strDefaultMailPath;

signals:
    void NewItem(QString, QString, void*, unsigned long long, unsigned long long, bool, int, int);
    void ClearLeftTree();
    void FinishScaning();
    void CurrentValue();
    void OnShowingScanProgBar();
    void OnSettingsForPrgBar(unsigned long, QString);

protected:
    void run() override;

private:
    RunResult m_scanResult;
    RunResult m_exportResult;
};
