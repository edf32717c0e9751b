// Where a message goes inside the package: the mailbox folder of the message
// file becomes a folder of the plain name holding "<name>.mbox".
#include "export/PathMapping.h"
#include "export/EmlxExport.h"
#include "scanner/FileAccess.h"
#include "scanner/Globals.h"

#include <QDir>
#include <QFile>

#include <cstring>
#include <fcntl.h>
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

QString PathExtractor(const QString& packagePath, const QString& messagePath) {
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
    if (m_strInputfilepath.startsWith(base)) {
        // The chosen store is the mailbox itself or lies inside it.
        QString rest = m_strInputfilepath;
        rest.remove(base, Qt::CaseSensitive);
        rest.remove(mbox, Qt::CaseSensitive);
        below = QStringLiteral("/Mail") + rest + QLatin1Char('/') + name + mbox;
        below.remove(mbox, Qt::CaseSensitive);
        below += QLatin1Char('/');
    } else if (folder.startsWith(m_strInputfilepath)) {
        // The mailbox lies below the store: its parents lose their suffix.
        folder.remove(m_strInputfilepath, Qt::CaseSensitive);
        folder.remove(mbox, Qt::CaseSensitive);
        below = QStringLiteral("/Mail") + folder;
    }
    QString result = packagePath + HarmlessFolders(below);
    QDir().mkpath(result);
    result += fileName;

    // A new mbox file is created empty and typed; an existing one keeps its
    // content and its Finder information.
    const int fd = ::open(QFile::encodeName(result).constData(),
                          O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd >= 0) {
        ::close(fd);
        SetFinderTypeAndCreator(result, "MBOX", "OPIM");
    }
    return result;
}
