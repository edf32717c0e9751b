#pragma once
// The two dialogs shown while the worker runs: the short wait before the
// scan starts, and the progress dialog with its Stop button.

#include <QDialog>
#include <QPointer>

class QMovie;
class QImportWindow;
class PreviewWindow;

namespace Ui {
class ProgressDialog;
class InitialDlg;
} // namespace Ui

class QProgressInfo : public QDialog {
    Q_OBJECT
public:
    // A progress dialog over `window`, whose run it can stop.
    explicit QProgressInfo(PreviewWindow* window);
    ~QProgressInfo() override;

    Ui::ProgressDialog* ui;
    QMovie* m_pMovie = nullptr;
    QPointer<QImportWindow> m_pImportWindow;
    PreviewWindow* m_pWindow;

signals:
    void OnAbort();
    void DisableToSave();
    void EnableToOpenFind();

public slots:
    void OnStop();

protected:
    // Asks whether to abort; tests replace it.
    virtual bool ConfirmAbort();
    void reject() override {} // Escape does not hide a running job's progress
};

class QInitialProcessInfo : public QDialog {
    Q_OBJECT
public:
    explicit QInitialProcessInfo(QWidget* parent = nullptr);
    ~QInitialProcessInfo() override;

    void Start();
    void Stop();

    Ui::InitialDlg* ui;
    QMovie* m_pMovie = nullptr;
};
