#include "app/SelectData.h"
#include "scanner/MailPaths.h"
#include "ui/PreviewWindow.h"
#include "ui_BrowseWindow.h"

#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QSettings>

namespace {

// Where the store scanned last is remembered.
const QString kLastStoreKey = QStringLiteral("SelectData/LastStore");

} // namespace

SelectData::SelectData(QWidget* parent) : QDialog(parent), ui(new Ui::BrowseWindow) {
    ui->setupUi(this);
    init();
    ConnectSignals();
}

SelectData::~SelectData() {
    delete ui;
}

void SelectData::init() {
    ui->label_3->setGeometry(73, 165, 16, 16);
    // The misspelt height property is ignored by the style engine, so the
    // image keeps the button's own size.
    ui->StartButton->setStyleSheet(QStringLiteral(
        "QPushButton:enabled {border-image: url(:/images/img_Start.png);hiegth: 50px;width: "
        "50px}QPushButton:pressed { border-image: url(:/images/img_Start.png);hiegth: "
        "50px;width: 50px}"));
    ui->StartButton->setEnabled(false);
    DefaultDatabaseLocation();
}

void SelectData::ConnectSignals() {
    connect(ui->StartButton, &QPushButton::clicked, this, &SelectData::OnStartScan);
    connect(ui->SelectPSTButton, &QPushButton::clicked, this, &SelectData::OpenFileDialog);
    connect(ui->closeButton, &QPushButton::clicked, this, &SelectData::OnClose);
    connect(ui->StartButton, &QPushButton::pressed, this, &SelectData::OnPressed);
    connect(ui->StartButton, &QPushButton::released, this, &SelectData::OnReleased);
}

void SelectData::DefaultDatabaseLocation() {
    // The store scanned last, while it is there; else the user's Mail folder.
    const QString last = QSettings().value(kLastStoreKey).toString();
    m_strInputfilepath = !last.isEmpty() && QFileInfo(last).isDir()
                             ? last
                             : DefaultMailPathFor(pellomar::ConsoleUserName());
    ui->SelectPSTLEdit->setText(m_strInputfilepath);
    ui->StartButton->setEnabled(true);
}

QString SelectData::BrowseStart() const {
    const QString shown = ui->SelectPSTLEdit->text();
    return QFileInfo(shown).isDir() ? shown : QDir::homePath();
}

QString SelectData::AskForDirectory() {
    return QFileDialog::getExistingDirectory(this, tr("Open Directory"), BrowseStart(),
                                             QFileDialog::ShowDirsOnly);
}

void SelectData::OpenFileDialog() {
    // Cancelling the chooser leaves the folder shown as it was.
    const QString chosen = AskForDirectory();
    if (chosen.isEmpty())
        return;
    m_strInputfilepath = chosen;
    ui->StartButton->setEnabled(true);
    ui->SelectPSTLEdit->setText(m_strInputfilepath);
}

void SelectData::OnStartScan() {
    QSettings().setValue(kLastStoreKey, m_strInputfilepath);
    hide();
    emit StartScanning();
}

void SelectData::OnClose() {
    hide();
}

void SelectData::OnPressed() {
    ui->StartButton->setIcon(QIcon(QStringLiteral(":/images/img_Start.png")));
}

void SelectData::OnReleased() {
    ui->StartButton->setIcon(QIcon(QStringLiteral(":/images/img_Start.png")));
}

void ConnectToWindow(SelectData* select, PreviewWindow* window) {
    QObject::connect(select, &SelectData::StartScanning, window, [window, select] {
        window->m_strInputfilepath = select->m_strInputfilepath;
        window->OnStartScanning();
    });
    QObject::connect(window, &PreviewWindow::OpenFileRequested, select, [select] {
        select->DefaultDatabaseLocation();
        select->show();
        select->raise();
    });
}
