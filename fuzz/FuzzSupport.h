#pragma once
// Shared by the fuzz targets: inputs written as files the program opens by
// path, in a folder of this process in memory (/dev/shm) when there is one.

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QString>

#include <unistd.h>

namespace fuzz {

inline QString Folder() {
    static const QString dir = [] {
        const QString base = QDir(QStringLiteral("/dev/shm")).exists() ? QStringLiteral("/dev/shm")
                                                                       : QDir::tempPath();
        const QString d = base + QStringLiteral("/pellomar-fuzz-") + QString::number(getpid());
        QDir().mkpath(d);
        return d;
    }();
    // The folder goes when the process ends.
    static const struct Cleanup {
        ~Cleanup() { QDir(dir).removeRecursively(); }
    } cleanup;
    return dir;
}

// Writes the bytes to Folder()/name and returns the path.
inline QString WriteInput(const QString& name, const char* data, qint64 size) {
    const QString path = Folder() + QLatin1Char('/') + name;
    QFile f(path);
    if (f.open(QIODevice::WriteOnly | QIODevice::Truncate))
        f.write(data, size);
    return path;
}

} // namespace fuzz
