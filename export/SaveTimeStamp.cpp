#include "SaveTimeStamp.h"

#include <QLocale>

QString MakeSaveTimeStamp(const QDateTime& when) {
    return QLatin1Char('(') + QLocale::c().toString(when, QStringLiteral("d MMM yyyy,hh-mm-ss")) +
           QLatin1Char(')');
}
