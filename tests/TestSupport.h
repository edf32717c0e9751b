#pragma once
// Helpers shared by the tests.

#include "scanner/Store.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QtGlobal>

namespace TestSupport {

// The line that starts each message in an mbox file of the package.
inline const QByteArray kSep = "From - &&&&&@@@####\n";

inline QString SourceDir() {
    return QStringLiteral(PELLOMAR_SOURCE_DIR);
}
inline QString SampleStore() {
    return SourceDir() + QStringLiteral("/samples/store");
}

// Writes a file (and its folders); returns false on failure.
inline bool WriteFile(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    return f.write(bytes) == bytes.size();
}

// Writes bytes to a new file (named `name` when given, folders included) in
// a folder that is removed when the test ends; returns its path.
inline QString TempFile(const QByteArray& bytes, const QString& name = QString()) {
    static QTemporaryDir dir;
    static int count = 0;
    const QString path = dir.filePath(name.isEmpty() ? QString::number(++count) + ".emlx" : name);
    if (!WriteFile(path, bytes))
        qFatal("cannot write %s", qPrintable(path));
    return path;
}

inline QByteArray ReadFile(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// Mail's property-list trailer around the body of its dictionary.
inline QByteArray Trailer(const QByteArray& dict) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">\n<dict>\n" +
           dict + "\n</dict>\n</plist>\n";
}

// An .emlx file: the byte count line, the message, and the plist trailer.
inline QByteArray Emlx(const QByteArray& message) {
    return QByteArray::number(message.size()) + "\n" + message +
           Trailer("\t<key>flags</key>\n\t<integer>8590195717</integer>");
}

// A store of folders only: Mailbox(501) > A(502) > {A1(503) > A1x(506),
// A2(504)}, B(505).
inline Store SmallTree() {
    Store store;
    store.AddFolder(501, 502, "A", FolderKind::Folder);
    store.AddFolder(502, 503, "A1", FolderKind::Folder);
    store.AddFolder(502, 504, "A2", FolderKind::Folder);
    store.AddFolder(501, 505, "B", FolderKind::Folder);
    store.AddFolder(503, 506, "A1x", FolderKind::Folder);
    return store;
}

// Copies every file below `from` to the same place below `to`; false when a
// copy fails or there was nothing to copy.
inline bool CopyFolder(const QString& from, const QString& to) {
    QDirIterator it(from, QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    int files = 0;
    for (; it.hasNext(); ++files) {
        const QString src = it.next();
        if (!WriteFile(to + src.mid(from.size()), ReadFile(src)))
            return false;
    }
    return files > 0;
}

// The built command-line tool.
inline QString CliToolPath() {
    return QStringLiteral(PELLOMAR_BINARY_DIR "/cli/pellomar-cli");
}

struct CliOutput {
    int code = -1; // -1: crashed or did not finish within two minutes
    QByteArray out, err;
};

// Runs pellomar-cli (or `program`) with the arguments and waits for it.
inline CliOutput RunCliTool(const QStringList& args, const QString& program = QString()) {
    QProcess p;
    p.start(program.isEmpty() ? CliToolPath() : program, args);
    CliOutput r;
    if (!p.waitForFinished(120000))
        return r;
    r.code = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    r.out = p.readAllStandardOutput();
    r.err = p.readAllStandardError();
    return r;
}

} // namespace TestSupport
