#pragma once
// Where the program's own files are: the help page and the property list
// with the support links, in the bundle's Resources folder.

#include <QCoreApplication>
#include <QDir>
#include <QString>

struct ResourcePaths {
    QString strPlistPath; // <Resources>/PellomarLink.plist
    QString HelpFilePath; // <Resources>

    // The Resources folder one folder up from the executable's.
    static ResourcePaths FromApplication() {
        QDir dir(QCoreApplication::applicationDirPath());
        dir.cdUp();
        dir.cd(QStringLiteral("Resources"));
        ResourcePaths paths;
        paths.HelpFilePath = dir.absolutePath();
        paths.strPlistPath = paths.HelpFilePath + QStringLiteral("/PellomarLink.plist");
        return paths;
    }
};
