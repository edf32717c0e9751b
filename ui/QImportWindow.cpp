#include "ui/QImportWindow.h"
#include "scanner/Globals.h"
#include "ui/PlistStrings.h"
#include "ui_ImportMsgDlg.h"

QImportWindow::QImportWindow(QWidget* parent) : QDialog(parent), ui(new Ui::ImportMsgDlg) {
    ui->setupUi(this);
    setAttribute(Qt::WA_DeleteOnClose);
}

QImportWindow::~QImportWindow() {
    delete ui;
}

QImportWindow* QImportWindow::Open(const QString& text) {
    auto* dlg = new QImportWindow;
    connect(dlg->ui->OKButton, &QPushButton::clicked, dlg, &QImportWindow::HideDlg);
    dlg->HTImport();
    dlg->show();
    dlg->ui->InfoLabels->setText(text);
    return dlg;
}

void QImportWindow::HTImport() {
    const QMap<QString, QString> values = ReadPlistStrings(strPlistPath);
    const QString link =
        QStringLiteral("file://") + HelpFilePath + values.value(QStringLiteral("HowToImportLink"));
    ui->ImportLabel->setText(QStringLiteral("<a href=\"") + link + QStringLiteral("\">") +
                             values.value(QStringLiteral("HowToImport")).toHtmlEscaped() +
                             QStringLiteral("</a>"));
    if (!strDefaultBrowser.isEmpty()) {
        connect(ui->ImportLabel, &QLabel::linkActivated, this, &QImportWindow::BrowserForImport);
    } else {
        ui->ImportLabel->setOpenExternalLinks(true);
    }
    QFont font(QStringLiteral("Lucida Grande"));
    ui->ImportLabel->setFont(font);
    ui->InfoLabels->setFont(font);
}

void QImportWindow::BrowserForImport(QString link) {
    pellomar::RunShellCommand(QStringLiteral("open -a ") + pellomar::ShellQuote(strDefaultBrowser) +
                              QStringLiteral(" ") + pellomar::ShellQuote(link));
}

void QImportWindow::HideDlg() {
    close();
}
