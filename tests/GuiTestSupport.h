#pragma once
// Helpers for widget tests: answering the modal message boxes the window
// opens, without a person at the keyboard.

#include "ui/PreviewWindow.h"

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QTimer>

#include <memory>

namespace GuiTestSupport {

// Qt WebEngine needs shared OpenGL contexts before the application exists.
struct WebEngineSetup {
    WebEngineSetup() { QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts); }
};
static WebEngineSetup webEngineSetup;

// The main window with the save folder chooser replaced by scripted answers.
class ScriptedWindow : public PreviewWindow {
public:
    QStringList answers;
    int asked = 0;

protected:
    QString AskForSaveDirectory() override {
        ++asked;
        return answers.isEmpty() ? QString() : answers.takeFirst();
    }
};

struct SeenBox {
    QString title;
    QString text;
    bool seen = false;
};

// Waits (up to about five seconds) for the next modal message box, records
// its title and text, and presses `button` in it.
inline std::shared_ptr<SeenBox> AnswerNextMessageBox(QMessageBox::StandardButton button) {
    auto seen = std::make_shared<SeenBox>();
    auto* timer = new QTimer(qApp);
    auto tries = std::make_shared<int>(0);
    QObject::connect(timer, &QTimer::timeout, [timer, seen, tries, button] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!box) {
            if (++*tries > 250)
                timer->deleteLater();
            return;
        }
        seen->title = box->windowTitle();
        seen->text = box->text();
        seen->seen = true;
        timer->stop();
        timer->deleteLater();
        if (QAbstractButton* b = box->button(button))
            b->click();
        else
            box->reject();
    });
    timer->start(20);
    return seen;
}

} // namespace GuiTestSupport
