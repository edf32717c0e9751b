#include "scanner/Discovery.h"

const QString kRssFeedMarker = QStringLiteral("/RSS/Apple Hot News.rssmbox/");

namespace {

// Keeps text from its first "/" on; text without a "/" stays as it is.
QString FromFirstSlash(const QString& text) {
    const int slash = text.indexOf(QLatin1Char('/'));
    return slash < 0 ? text : text.mid(slash);
}

} // namespace

QString FolderPathForMessage(const QString& line, const QString& defaultMailPath,
                             const QString& storePath) {
    // The folder of the file; a line without any "/" names no folder.
    const int lastSlash = line.lastIndexOf(QLatin1Char('/'));
    QString path = lastSlash < 0 ? QString() : line.left(lastSlash);

    const int mailAt = defaultMailPath.isEmpty() ? -1 : path.indexOf(defaultMailPath);
    if (mailAt >= 0) {
        path = path.mid(mailAt + defaultMailPath.size());
        // "/V2", "/V3"...: the Apple Mail version folder. A mailbox directly
        // under the Mail folder whose name starts with "V" loses its level
        // the same way; that is how the folder list has always looked.
        const QLatin1String version("/V");
        if (path.startsWith(version)) {
            path.remove(0, version.size());
            if (!path.startsWith(QLatin1Char('/')))
                path = FromFirstSlash(path);
        }
    } else {
        if (!storePath.isEmpty())
            path.remove(storePath);
        // Each loses its name and keeps its last slash.
        const QLatin1String mailFolder("/Mail/"), versionFolder("/V/");
        if (path.startsWith(mailFolder))
            path.remove(0, mailFolder.size() - 1);
        if (path.startsWith(versionFolder))
            path.remove(0, versionFolder.size() - 1);
        if (!path.startsWith(QLatin1Char('/')))
            path = FromFirstSlash(path);
    }

    const QString mbox = QStringLiteral(".mbox");
    const int lastMbox = path.lastIndexOf(mbox);
    if (lastMbox >= 0)
        path.truncate(lastMbox);
    path.remove(mbox);
    return path.mid(1);
}

QString MessageNumberText(const QString& line) {
    const QString name = line.mid(line.lastIndexOf(QLatin1Char('/')) + 1);
    const int dot = name.indexOf(QLatin1Char('.'));
    return dot < 0 ? name : name.left(dot);
}

quint64 MessageNumberValue(const QString& numberText) {
    bool ok = false;
    const quint64 value = numberText.toULongLong(&ok, 10);
    return ok ? value : 0;
}
