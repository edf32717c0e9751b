#include "scanner/FileAccess.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace pellomar {
namespace {

QString KindOf(mode_t mode) {
    if (S_ISDIR(mode))
        return QStringLiteral("not a regular file (a folder)");
    if (S_ISFIFO(mode))
        return QStringLiteral("not a regular file (a FIFO)");
    if (S_ISSOCK(mode))
        return QStringLiteral("not a regular file (a socket)");
    if (S_ISCHR(mode) || S_ISBLK(mode))
        return QStringLiteral("not a regular file (a device)");
    return QStringLiteral("not a regular file");
}

} // namespace

int OpenRegularFile(const QString& path, QString* reason) {
    const QByteArray native = QFile::encodeName(path);
    if (native.isEmpty()) {
        *reason = QStringLiteral("empty path");
        return -1;
    }
    const int fd = ::open(native.constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        *reason = QString::fromLocal8Bit(strerror(errno));
        return -1;
    }
    struct stat st;
    if (::fstat(fd, &st) != 0) {
        *reason = QString::fromLocal8Bit(strerror(errno));
        ::close(fd);
        return -1;
    }
    if (!S_ISREG(st.st_mode)) {
        *reason = KindOf(st.st_mode);
        ::close(fd);
        return -1;
    }
    return fd;
}

} // namespace pellomar
