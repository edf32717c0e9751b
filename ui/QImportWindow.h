#pragma once
// Tells where the archive package was written, with a link to the help page
// that explains how to import it into Outlook 2011 for Mac.

#include "ui/ResourcePaths.h"

#include <QDialog>

namespace Ui {
class ImportMsgDlg;
}

class QImportWindow : public QDialog {
    Q_OBJECT
public:
    explicit QImportWindow(QWidget* parent = nullptr);
    ~QImportWindow() override;

    // Creates the dialog over `parent` (in front of it), shows it and puts
    // the text into "InfoLabels" and `details`, when there are any, below
    // it; the help link comes from `resources`.
    static QImportWindow* Open(const QString& text, const ResourcePaths& resources, QWidget* parent,
                               const QString& details = QString());

    void HTImport();
    void HideDlg();

    Ui::ImportMsgDlg* ui;
    ResourcePaths m_resources;
};
