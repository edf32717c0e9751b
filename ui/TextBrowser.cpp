#include "ui/TextBrowser.h"
#include "scanner/FileAccess.h"
#include "ui_TextBrowserDlg.h"

#include <QFile>
#include <QHBoxLayout>
#include <QPalette>
#include <QUrl>
#include <QVBoxLayout>
#include <QWebEnginePage>
#include <QWebEngineProfile>
#include <QWebEngineSettings>
#include <QWebEngineUrlRequestInterceptor>
#include <QWebEngineView>

#include <unistd.h>

namespace {

// Mail is untrusted: the body may only show what is inside it or on this
// machine. Every request for a remote address is refused.
class LocalOnlyInterceptor : public QWebEngineUrlRequestInterceptor {
public:
    using QWebEngineUrlRequestInterceptor::QWebEngineUrlRequestInterceptor;
    void interceptRequest(QWebEngineUrlRequestInfo& info) override {
        static const QStringList local = {QStringLiteral("file"), QStringLiteral("data"),
                                          QStringLiteral("qrc"),  QStringLiteral("about"),
                                          QStringLiteral("blob"), QStringLiteral("cid")};
        if (!local.contains(info.requestUrl().scheme().toLower()))
            info.block(true);
    }
};

void MakeOneLine(QTextEdit* edit) {
    edit->setReadOnly(true);
    edit->setLineWrapMode(QTextEdit::NoWrap);
    edit->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    edit->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    edit->setFrameShape(QFrame::NoFrame);
    edit->setFixedHeight(edit->fontMetrics().height() + 8);
    edit->document()->setDocumentMargin(2);
}

} // namespace

TextBrowser::TextBrowser(QWidget* parent) : QWidget(parent), ui(new Ui::TextBrowserDlg) {
    ui->setupUi(this);
}

TextBrowser::~TextBrowser() {
    // The page must go before the profile it uses.
    delete m_pWebView;
    delete ui;
}

QWebEngineView* TextBrowser::WebView() {
    if (m_pWebView)
        return m_pWebView;
    // The web engine starts with the first body shown (the first message
    // of the folder a scan shows), not with the window.
    auto* profile = new QWebEngineProfile(this); // off the record: nothing is stored
    profile->setUrlRequestInterceptor(new LocalOnlyInterceptor(profile));
    m_pWebView = new QWebEngineView(this);
    m_pWebView->setPage(new QWebEnginePage(profile, m_pWebView));
    QWebEngineSettings* s = m_pWebView->settings();
    s->setAttribute(QWebEngineSettings::JavascriptEnabled, false);
    s->setAttribute(QWebEngineSettings::PluginsEnabled, false);
    s->setAttribute(QWebEngineSettings::LocalContentCanAccessRemoteUrls, false);
    s->setAttribute(QWebEngineSettings::AutoLoadIconsForPage, false);
    m_pWebView->setContextMenuPolicy(Qt::NoContextMenu);
    delete m_pBodyLayout->replaceWidget(m_pBlankBody, m_pWebView);
    delete m_pBlankBody;
    m_pBlankBody = nullptr;
    return m_pWebView;
}

void TextBrowser::SetWindowLayout() {
    // Until a body is shown the pane below the fields is blank, as an empty
    // page shows it.
    m_pBlankBody = new QWidget(this);
    m_pBlankBody->setAutoFillBackground(true);
    QPalette blank = m_pBlankBody->palette();
    blank.setColor(QPalette::Window, Qt::white);
    m_pBlankBody->setPalette(blank);

    for (QTextEdit* e : {ui->dateBrowser, ui->fromBrowser, ui->toBrowser, ui->subjBrowser})
        MakeOneLine(e);
    ui->dateBrowser->setPlaceholderText(tr("Date"));
    ui->fromBrowser->setPlaceholderText(tr("From"));
    ui->toBrowser->setPlaceholderText(tr("To"));
    ui->subjBrowser->setPlaceholderText(tr("Subject"));
    ui->comBoxAttch->setMinimumWidth(180);
    ui->comBoxAttch->hide();

    // The header fields take the pane's whole width; the attachment list
    // goes below them, so that showing it narrows no field.
    auto* fields = new QVBoxLayout;
    fields->setSpacing(5);
    fields->setContentsMargins(5, 5, 5, 5);
    fields->addWidget(ui->dateBrowser);
    fields->addWidget(ui->fromBrowser);
    fields->addWidget(ui->toBrowser);
    fields->addWidget(ui->subjBrowser);
    auto* attachments = new QHBoxLayout;
    attachments->setContentsMargins(0, 0, 0, 0);
    attachments->addWidget(ui->comBoxAttch);
    attachments->addStretch(1);
    fields->addLayout(attachments);
    auto* top = new QHBoxLayout;
    top->setSpacing(0);
    top->setContentsMargins(0, 0, 0, 0);
    top->addLayout(fields, 1);
    auto* body = new QHBoxLayout;
    body->setSpacing(100);
    body->setContentsMargins(0, 0, 0, 0);
    body->addWidget(m_pBlankBody, 1);
    m_pBodyLayout = body;
    auto* all = new QVBoxLayout(this);
    all->setSpacing(0);
    all->setContentsMargins(0, 0, 0, 0);
    all->addLayout(top);
    all->addLayout(body, 1);

    ShowEmptyPage();
}

QString TextBrowser::EmptyPagePath() const {
    return m_strPrivateDir.isEmpty() ? QString()
                                     : m_strPrivateDir + QStringLiteral("/Tressaly.html");
}

void TextBrowser::ShowEmptyPage() {
    const QString path = EmptyPagePath();
    if (path.isEmpty())
        return;
    const int fd = pellomar::CreatePrivateFile(path);
    if (fd >= 0)
        ::close(fd);
    const QUrl url = QUrl::fromUserInput(path.trimmed());
    if (url.isValid() && m_pWebView)
        m_pWebView->load(url);
}

void TextBrowser::ClearFields() {
    ui->comBoxAttch->clear();
    ui->dateBrowser->clear();
    ui->fromBrowser->clear();
    ui->toBrowser->clear();
    ui->subjBrowser->clear();
    ui->comBoxAttch->hide();
}

void TextBrowser::ShowBody(const QString& text, bool html) {
    if (!m_pBodyLayout)
        return; // no layout yet
    WebView();
    const QByteArray bytes = text.toUtf8();
    // Pages above about 2 MB cannot be handed over directly; they are shown
    // from a file beside the empty page.
    if (bytes.size() < 1500000) {
        m_pWebView->setContent(bytes, html ? QStringLiteral("text/html;charset=UTF-8")
                                           : QStringLiteral("text/plain;charset=UTF-8"));
        return;
    }
    const QString tmp = m_strPrivateDir;
    if (tmp.isEmpty())
        return;
    const QString path =
        tmp + (html ? QStringLiteral("/Tressaly-body.html") : QStringLiteral("/Tressaly-body.txt"));
    const int fd = pellomar::CreatePrivateFile(path);
    QFile page;
    if (fd < 0 || !page.open(fd, QIODevice::WriteOnly, QFileDevice::AutoCloseHandle)) {
        if (fd >= 0)
            ::close(fd);
        return;
    }
    page.write(bytes);
    page.close();
    m_pWebView->load(QUrl::fromLocalFile(path));
}
