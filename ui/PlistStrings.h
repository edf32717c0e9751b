#pragma once
#include <QMap>
#include <QString>

// The string values of a flat XML property list (<key>k</key><string>v</string>).
QMap<QString, QString> ReadPlistStrings(const QString& path);
