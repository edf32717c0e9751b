// Pellomar: converts Apple Mail mailboxes into an Outlook 2011 for Mac archive.
#include "app/SelectData.h"
#include "scanner/Globals.h"
#include "ui/PreviewWindow.h"

#include <QApplication>
#include <QDir>

int main(int argc, char** argv) {
    // Qt WebEngine needs shared OpenGL contexts before the application exists.
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    auto* app = new QApplication(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Pellomar"));
    // Where QSettings keeps the export options.
    QApplication::setOrganizationName(QStringLiteral("Pellomar"));
    QApplication::setApplicationVersion(QStringLiteral(PELLOMAR_VERSION));
    QApplication::setWindowIcon(QIcon(QStringLiteral(":/images/img_About.png")));

    // The bundle's Resources folder lies one folder up from the executable.
    QDir plistDir(QCoreApplication::applicationDirPath());
    plistDir.cdUp();
    plistDir.cd(QStringLiteral("Resources"));
    strPlistPath = plistDir.absolutePath() + QStringLiteral("/PellomarLink.plist");
    QDir helpDir(QCoreApplication::applicationDirPath());
    helpDir.cdUp();
    helpDir.cd(QStringLiteral("Resources"));
    HelpFilePath = helpDir.absolutePath();

    auto* window = new PreviewWindow(nullptr);
    window->setMinimumSize(1000, 520);
    window->setWindowTitle(QStringLiteral("Pellomar"));
    window->show();
    // The selection dialog was shown first; keep it in front of the window.
    if (window->m_pSelectData->isVisible()) {
        window->m_pSelectData->raise();
        window->m_pSelectData->activateWindow();
    }
    const int code = app->exec();
    delete app;
    return code;
}
