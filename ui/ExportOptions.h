#pragma once
// File > Export Options: three choices that avoid a loss the default run
// accepts. They are off on first start and remembered between starts.

#include "scanner/RunResult.h"

#include <QObject>

class QAction;
class QMenu;

class ExportOptions : public QObject {
    Q_OBJECT
public:
    // Adds the submenu "Export Options" to `fileMenu`.
    ExportOptions(QMenu* fileMenu, QObject* parent);

    RunOptions Options() const;

    QAction* m_pSkipUnreadable;
    QAction* m_pKeepBytes;
    QAction* m_pWithStatus;
};
