#include "ui/QImportWindow.h"
#include "ui/PlistStrings.h"
#include "ui_ImportMsgDlg.h"

QImportWindow::QImportWindow(QWidget* parent) : QDialog(parent), ui(new Ui::ImportMsgDlg) {
    ui->setupUi(this);
    setAttribute(Qt::WA_DeleteOnClose);
}

QImportWindow::~QImportWindow() {
    delete ui;
}

QImportWindow* QImportWindow::Open(const QString& text, const ResourcePaths& resources,
                                   QWidget* parent, const QString& details) {
    auto* dlg = new QImportWindow(parent);
    dlg->m_resources = resources;
    connect(dlg->ui->OKButton, &QPushButton::clicked, dlg, &QImportWindow::HideDlg);
    dlg->HTImport();
    dlg->ui->DetailsText->setPlainText(details);
    dlg->ui->DetailsText->setVisible(!details.isEmpty());
    if (!details.isEmpty())
        dlg->resize(dlg->width(), dlg->height() + 160);
    dlg->show();
    dlg->raise();
    dlg->activateWindow();
    dlg->ui->InfoLabels->setText(text);
    return dlg;
}

void QImportWindow::HTImport() {
    const QMap<QString, QString> values = ReadPlistStrings(m_resources.strPlistPath);
    const QString link = QStringLiteral("file://") + m_resources.HelpFilePath +
                         values.value(QStringLiteral("HowToImportLink"));
    ui->ImportLabel->setText(QStringLiteral("<a href=\"") + link + QStringLiteral("\">") +
                             values.value(QStringLiteral("HowToImport")).toHtmlEscaped() +
                             QStringLiteral("</a>"));
    // The help page opens in the user's browser (QDesktopServices).
    ui->ImportLabel->setOpenExternalLinks(true);
    QFont font(QStringLiteral("Lucida Grande"));
    ui->ImportLabel->setFont(font);
    ui->InfoLabels->setFont(font);
}

void QImportWindow::HideDlg() {
    close();
}
