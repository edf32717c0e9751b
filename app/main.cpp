// Pellomar: converts Apple Mail mailboxes into an Outlook 2011 for Mac archive.
#include "app/SelectData.h"
#include "ui/PreviewWindow.h"

#include <QApplication>

#ifdef __GLIBC__
#include <malloc.h>
#endif

int main(int argc, char** argv) {
#ifdef __GLIBC__
    // The scan's helper threads make what the store keeps; with an arena of
    // its own for each thread, the freed working memory between those
    // strings is held by every arena (30 % more at 100,000 messages). Two
    // arenas cost no time on this work.
    mallopt(M_ARENA_MAX, 2);
#endif
    // Qt WebEngine needs shared OpenGL contexts before the application exists.
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    auto* app = new QApplication(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Pellomar"));
    // Where QSettings keeps the export options.
    QApplication::setOrganizationName(QStringLiteral("Pellomar"));
    QApplication::setApplicationVersion(QStringLiteral(PELLOMAR_VERSION));
    QApplication::setWindowIcon(QIcon(QStringLiteral(":/images/img_About.png")));

    auto* window = new PreviewWindow(nullptr);
    window->setMinimumSize(1000, 520);
    window->setWindowTitle(QStringLiteral("Pellomar"));
    // The dialog belongs to the window: it is shown over it, and the window
    // waits while it is open.
    SelectData select(window);
    select.setWindowModality(Qt::WindowModal);
    ConnectToWindow(&select, window);
    select.show();
    window->show();
    // The selection dialog was shown first; keep it in front of the window.
    select.raise();
    select.activateWindow();
    const int code = app->exec();
    delete window;
    delete app;
    return code;
}
