#pragma once
#include <QDateTime>
#include <QString>

// The time stamp of a save, as it appears in the package name:
// "(5 Mar 2026,14-07-09)". Month names are the English abbreviations on every
// system, so the same moment gives the same package name everywhere.
QString MakeSaveTimeStamp(const QDateTime& when);

// The package's name, with the slash that joins it to the destination:
// "/Main Identity_(5 Mar 2026,14-07-09).rge".
QString PackageName(const QString& timeStamp);
