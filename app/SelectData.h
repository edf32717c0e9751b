#pragma once
// The small dialog in which the user picks the Apple Mail store to scan.

#include <QDialog>

class PreviewWindow;

namespace Ui {
class BrowseWindow;
}

class SelectData : public QDialog {
    Q_OBJECT
public:
    explicit SelectData(QWidget* parent = nullptr);
    ~SelectData() override;

    void init();
    void ConnectSignals();
    // Proposes the store scanned last, while it is there, else the console
    // user's Apple Mail folder, and enables Start.
    void DefaultDatabaseLocation();
    // Where Browse starts: the folder shown, or the home folder when that
    // does not exist.
    QString BrowseStart() const;

    Ui::BrowseWindow* ui;
    // The store folder chosen.
    QString m_strInputfilepath;

signals:
    void StartScanning();

public slots:
    void OpenFileDialog();
    void OnStartScan();
    void OnClose();
    void OnPressed();
    void OnReleased();

protected:
    // Asks for a folder; tests replace it.
    virtual QString AskForDirectory();
};

// Start in the dialog scans the chosen store in the window; the window's
// Open shows the dialog again with the default store.
void ConnectToWindow(SelectData* select, PreviewWindow* window);
