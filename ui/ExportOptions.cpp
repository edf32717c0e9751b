#include "ui/ExportOptions.h"

#include <QAction>
#include <QMenu>
#include <QSettings>

namespace {

QAction* AddOption(QMenu* menu, const QString& text, const QString& key) {
    QAction* action = menu->addAction(text);
    action->setCheckable(true);
    action->setChecked(QSettings().value(key, false).toBool());
    QObject::connect(action, &QAction::toggled, [key](bool on) { QSettings().setValue(key, on); });
    return action;
}

} // namespace

ExportOptions::ExportOptions(QMenu* fileMenu, QObject* parent) : QObject(parent) {
    QMenu* menu = fileMenu->addMenu(QStringLiteral("Export Options"));
    m_pSkipUnreadable = AddOption(menu, QStringLiteral("Skip Unreadable Files"),
                                  QStringLiteral("ExportOptions/SkipUnreadableFiles"));
    m_pKeepBytes = AddOption(menu, QStringLiteral("Keep Every Byte"),
                             QStringLiteral("ExportOptions/KeepBytes"));
    m_pWithStatus = AddOption(menu, QStringLiteral("Carry Read and Flag State"),
                              QStringLiteral("ExportOptions/WithStatus"));
}

RunOptions ExportOptions::Options() const {
    RunOptions o;
    o.keepGoing = m_pSkipUnreadable->isChecked();
    o.keepBytes = m_pKeepBytes->isChecked();
    o.withStatus = m_pWithStatus->isChecked();
    return o;
}
