// Where a message goes inside the package: the mailbox folder of the message
// file becomes a folder of the plain name holding "<name>.mbox".
#include "export/PathMapping.h"
#include "export/ExportJob.h"
#include "scanner/FileAccess.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

const char* FinderInfoAttributeName() {
#ifdef Q_OS_MACOS
    return "com.apple.FinderInfo";
#else
    // Linux keeps attributes of other systems in the user name space.
    return "user.com.apple.FinderInfo";
#endif
}

bool SetFinderTypeAndCreator(const QString& path, const char* type, const char* creator) {
    char info[32] = {};
    memcpy(info, type, 4);
    memcpy(info + 4, creator, 4);
    const QByteArray name = QFile::encodeName(path);
#ifdef Q_OS_MACOS
    return setxattr(name.constData(), FinderInfoAttributeName(), info, sizeof info, 0, 0) == 0;
#else
    return setxattr(name.constData(), FinderInfoAttributeName(), info, sizeof info, 0) == 0;
#endif
}

namespace {

// The folders below the package as the file system will take them: a
// folder name that is empty, "." or ".." (a mailbox "...mbox" loses its
// suffix to ".."; "//" appears around empty names) gets a "_" in front, so
// every folder stays inside the package. Bytes that are not UTF-8 are given
// as they are shown, since the package is read by a program that expects
// UTF-8 names.
QString HarmlessFolders(const QString& path) {
    QStringList names = pellomar::DisplayName(path).split(QLatin1Char('/'));
    for (int i = 1; i + 1 < names.size(); ++i) {
        QString& n = names[i];
        if (n.isEmpty() || n == QLatin1String(".") || n == QLatin1String(".."))
            n.prepend(QLatin1Char('_'));
    }
    return names.join(QLatin1Char('/'));
}

} // namespace

bool MakeFolders(const QString& path, QString* reason) {
    const QByteArray native = QFile::encodeName(path);
    // Each level from the first below "/" on; existing folders are passed.
    for (int at = native.indexOf('/', 1);; at = native.indexOf('/', at + 1)) {
        const QByteArray level = at < 0 ? native : native.left(at);
        if (!level.isEmpty() && !level.endsWith('/') && ::mkdir(level.constData(), 0777) != 0) {
            const int error = errno;
            struct stat st;
            if (error != EEXIST) {
                *reason = QStringLiteral("cannot make the folder '") + QFile::decodeName(level) +
                          QStringLiteral("': ") + QString::fromLocal8Bit(strerror(error));
                return false;
            }
            if (::stat(level.constData(), &st) != 0 || !S_ISDIR(st.st_mode)) {
                *reason = QStringLiteral("cannot make the folder '") + QFile::decodeName(level) +
                          QStringLiteral("': something else has its name");
                return false;
            }
        }
        if (at < 0)
            return true;
    }
}

QString PathExtractor(const QString& packagePath, const QString& messagePath,
                      const QString& storePath, QString* reason) {
    // The mailbox directory that holds the message; with several kinds in
    // one path the later test wins, wherever the kinds lie.
    QString base;
    for (const char* kind : {".mbox/", ".imapmbox/", ".ewsmbox/"}) {
        const int at = messagePath.lastIndexOf(QLatin1String(kind));
        if (at >= 0)
            base = messagePath.left(at);
    }
    const QString name = base.mid(base.lastIndexOf(QLatin1Char('/')) + 1);
    QString folder = base + QLatin1Char('/');
    // Ends in ".mbox", so it is never "." or "..".
    const QString fileName = pellomar::DisplayName(name + QStringLiteral(".mbox"));
    const QString mbox = QStringLiteral(".mbox");

    // The folders below the package; the package path itself is left as the
    // user chose it.
    QString below;
    if (storePath.startsWith(base)) {
        // The chosen store is the mailbox itself or lies inside it.
        QString rest = storePath;
        rest.remove(base, Qt::CaseSensitive);
        rest.remove(mbox, Qt::CaseSensitive);
        below = QStringLiteral("/Mail") + rest + QLatin1Char('/') + name + mbox;
        below.remove(mbox, Qt::CaseSensitive);
        below += QLatin1Char('/');
    } else if (folder.startsWith(storePath)) {
        // The mailbox lies below the store: its parents lose their suffix.
        folder.remove(storePath, Qt::CaseSensitive);
        folder.remove(mbox, Qt::CaseSensitive);
        below = QStringLiteral("/Mail") + folder;
    }
    QString result = packagePath + HarmlessFolders(below);
    if (!MakeFolders(result, reason))
        return QString();
    result += fileName;

    // A new mbox file is created empty and typed; an existing one keeps its
    // content and its Finder information.
    const int fd = ::open(QFile::encodeName(result).constData(),
                          O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd >= 0) {
        ::close(fd);
        SetFinderTypeAndCreator(result, "MBOX", "OPIM");
    } else if (errno != EEXIST) {
        *reason = QStringLiteral("cannot make '") + result + QStringLiteral("': ") +
                  QString::fromLocal8Bit(strerror(errno));
        return QString();
    }
    return result;
}
