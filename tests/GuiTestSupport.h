#pragma once
// Helpers for widget tests: answering the modal message boxes the window
// opens, without a person at the keyboard.

#include "ui/PreviewWindow.h"

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QTimer>

#include <functional>
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
    QString title, text, informative, detailed;
    bool seen = false;
    QWidget* parent = nullptr;
};

// Waits (up to about thirty seconds each: a sanitizer build is slow) for the
// next `count` modal message
// boxes, hands each one's texts to `seen`, and presses `button` in it.
inline void AnswerBoxes(int count, QMessageBox::StandardButton button,
                        std::function<void(const SeenBox&)> seen) {
    auto* timer = new QTimer(qApp);
    timer->setObjectName(QStringLiteral("boxWatcher"));
    auto tries = std::make_shared<int>(0);
    auto left = std::make_shared<int>(count);
    QObject::connect(timer, &QTimer::timeout, [timer, seen, tries, left, button] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!box || !box->isVisible()) {
            if (++*tries > 1500)
                timer->deleteLater();
            return;
        }
        *tries = 0;
        seen({box->windowTitle(), box->text(), box->informativeText(), box->detailedText(), true,
              box->parentWidget()});
        if (--*left == 0) {
            timer->stop();
            timer->deleteLater();
        }
        if (QAbstractButton* b = box->button(button))
            b->click();
        else
            box->reject();
    });
    timer->start(20);
}

// Ends every wait of AnswerBoxes, so that none answers a later test's box.
inline void StopAnsweringBoxes() {
    for (QTimer* t :
         qApp->findChildren<QTimer*>(QStringLiteral("boxWatcher"), Qt::FindDirectChildrenOnly))
        delete t;
}

inline std::shared_ptr<QList<SeenBox>> AnswerMessageBoxes(int count,
                                                          QMessageBox::StandardButton button) {
    auto seen = std::make_shared<QList<SeenBox>>();
    AnswerBoxes(count, button, [seen](const SeenBox& box) { seen->append(box); });
    return seen;
}

inline std::shared_ptr<SeenBox> AnswerNextMessageBox(QMessageBox::StandardButton button) {
    auto seen = std::make_shared<SeenBox>();
    AnswerBoxes(1, button, [seen](const SeenBox& box) { *seen = box; });
    return seen;
}

} // namespace GuiTestSupport
