#pragma once
// The one worker thread. A run either scans the chosen mail store
// (EMLXFinder, when IsPreview is set) or writes the ticked folders into an
// archive package (EMLXConverter). It reports to the window through queued
// signals; new folders go to the FolderTreeSink in m_pMainWindow.

#include <QByteArray>
#include <QString>
#include <QThread>
#include <QWaitCondition>

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

    // The export: package, folder mapping, mbox writer.
    void EMLXConverter();
    void CreateRGEWraper(QString destination);
    QString PathExtractor(QString packagePath, QString messagePath);

    // Quoted-printable bytes of a text ("=" followed by two hex digits).
    static QByteArray QDecode(const QString& text);
    // Decodes one RFC 2047 encoded attachment name.
    static QString DecodeAttName(const QString& text);

    unsigned long long m_ulTotalFiles = 0;
    QString m_strDefaultMailPath;
    QString m_strSecond;
    QWaitCondition m_waitCondition;

signals:
    void NewItem(QString, QString, void*, unsigned long long, unsigned long long, bool, int, int);
    void ClearLeftTree();
    void FinishScaning();
    void CurrentValue();
    void OnShowingScanProgBar();
    void OnSettingsForPrgBar(unsigned long, QString);

protected:
    void run() override;
};
