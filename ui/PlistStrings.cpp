#include "ui/PlistStrings.h"

#include <QFile>
#include <QXmlStreamReader>

QMap<QString, QString> ReadPlistStrings(const QString& path) {
    QMap<QString, QString> values;
    QFile file(path);
    if (path.isEmpty() || !file.open(QIODevice::ReadOnly))
        return values;
    QXmlStreamReader xml(&file);
    QString key;
    while (xml.readNextStartElement() || !xml.atEnd()) {
        if (xml.isStartElement()) {
            if (xml.name() == QLatin1String("key")) {
                key = xml.readElementText();
            } else if (xml.name() == QLatin1String("string")) {
                const QString value = xml.readElementText();
                if (!key.isEmpty())
                    values.insert(key, value);
                key.clear();
            }
        } else {
            xml.readNext();
        }
        if (xml.hasError())
            break;
    }
    return values;
}
