#pragma once
// The preview pane: date, sender, recipients and subject fields, the
// attachment list, and a web view for the body.

#include <QWidget>

class QHBoxLayout;
class QWebEngineView;

namespace Ui {
class TextBrowserDlg;
}

class TextBrowser : public QWidget {
    Q_OBJECT
public:
    explicit TextBrowser(QWidget* parent = nullptr);
    ~TextBrowser() override;

    void SetWindowLayout();
    // Deletes and recreates the empty page, and shows it.
    void ShowEmptyPage();
    // Shows a message body: HTML as it is, plain text as text.
    void ShowBody(const QString& text, bool html);
    // Clears the four header fields and the attachment list, and hides it.
    void ClearFields();

    // Path of the empty page loaded before each preview.
    QString EmptyPagePath() const;

    // The web view, made on first use.
    QWebEngineView* WebView();

    Ui::TextBrowserDlg* ui;
    QWebEngineView* m_pWebView = nullptr; // null until a body is shown
    // The window's private folder, where the pages shown are written.
    QString m_strPrivateDir;

private:
    QWidget* m_pBlankBody = nullptr; // stands where the web view goes
    QHBoxLayout* m_pBodyLayout = nullptr;
};
