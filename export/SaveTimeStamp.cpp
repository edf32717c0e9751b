#include "export/SaveTimeStamp.h"

#include <QLocale>

QString MakeSaveTimeStamp(const QDateTime& when) {
    return QLatin1Char('(') + QLocale::c().toString(when, QStringLiteral("d MMM yyyy,hh-mm-ss")) +
           QLatin1Char(')');
}

QString PackageName(const QString& timeStamp) {
    return QStringLiteral("/Main Identity_") + timeStamp + QStringLiteral(".rge");
}
