#include "scanner/FileAccess.h"

#include <QFile>
#include <QTextCodec>

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

// Length of the well-formed UTF-8 sequence at the start of `s` (n > 0
// bytes), or 0 when the first byte starts none.
int Utf8SequenceLength(const uchar* s, int n) {
    const uchar b = s[0];
    if (b < 0x80)
        return 1;
    int len = 0;
    uchar lo = 0x80, hi = 0xBF; // range of the second byte
    if (b >= 0xC2 && b <= 0xDF) {
        len = 2;
    } else if (b >= 0xE0 && b <= 0xEF) {
        len = 3;
        if (b == 0xE0)
            lo = 0xA0;
        else if (b == 0xED)
            hi = 0x9F; // no surrogates
    } else if (b >= 0xF0 && b <= 0xF4) {
        len = 4;
        if (b == 0xF0)
            lo = 0x90;
        else if (b == 0xF4)
            hi = 0x8F;
    } else {
        return 0;
    }
    if (n < len || s[1] < lo || s[1] > hi)
        return 0;
    for (int i = 2; i < len; ++i)
        if (s[i] < 0x80 || s[i] > 0xBF)
            return 0;
    return len;
}

// UTF-8 for file names and other text that comes from the system: a byte
// that is not part of well-formed UTF-8 becomes the lone surrogate
// U+DC80..U+DCFF and turns back into the same byte, so a name read from
// disk opens the same file again. Well-formed UTF-8 decodes exactly as Qt's
// UTF-8 codec does. Conversions that keep a state (text streams and
// decoders, which read text rather than names) are Qt's UTF-8 unchanged.
class FileNameCodec : public QTextCodec {
public:
    FileNameCodec() : m_utf8(QTextCodec::codecForName("UTF-8")) {}
    QByteArray name() const override { return "X-Pellomar-UTF-8-Bytes"; }
    int mibEnum() const override { return -3300; }

protected:
    QString convertToUnicode(const char* in, int length, ConverterState* state) const override {
        if (state)
            return m_utf8->toUnicode(in, length, state);
        const auto* s = reinterpret_cast<const uchar*>(in);
        QString out;
        int run = 0; // start of the current well-formed stretch
        for (int i = 0; i < length;) {
            const int len = Utf8SequenceLength(s + i, length - i);
            if (len > 0) {
                i += len;
                continue;
            }
            out += QString::fromUtf8(in + run, i - run);
            out += QChar(ushort(0xDC00 + s[i]));
            run = ++i;
        }
        out += QString::fromUtf8(in + run, length - run);
        return out;
    }
    QByteArray convertFromUnicode(const QChar* in, int length,
                                  ConverterState* state) const override {
        if (state)
            return m_utf8->fromUnicode(in, length, state);
        QByteArray out;
        int run = 0;
        for (int i = 0; i < length; ++i) {
            const ushort u = in[i].unicode();
            const bool paired = i > 0 && in[i - 1].isHighSurrogate();
            if (u < 0xDC80 || u > 0xDCFF || paired)
                continue;
            out += QString(in + run, i - run).toUtf8();
            out += char(u - 0xDC00);
            run = i + 1;
        }
        out += QString(in + run, length - run).toUtf8();
        return out;
    }

private:
    QTextCodec* m_utf8;
};

// Installed before main runs, so that the command line is decoded by it too.
void UseFileNameCodec() {
    QTextCodec::setCodecForLocale(new FileNameCodec);
}
Q_CONSTRUCTOR_FUNCTION(UseFileNameCodec)

} // namespace

int OpenRegularFile(const QString& path, QString* reason, qint64* size) {
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
    if (size)
        *size = st.st_size;
    return fd;
}

int CreatePrivateFile(const QString& path) {
    const QByteArray native = QFile::encodeName(path);
    if (native.isEmpty())
        return -1;
    ::unlink(native.constData());
    return ::open(native.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
}

bool MakePrivateFolder(const QString& path) {
    const QByteArray native = QFile::encodeName(path);
    if (native.isEmpty())
        return false;
    if (::mkdir(native.constData(), 0700) == 0)
        ::chmod(native.constData(), 0700); // the umask may have taken more
    struct stat st;
    return ::lstat(native.constData(), &st) == 0 && S_ISDIR(st.st_mode) &&
           st.st_uid == ::geteuid() && (st.st_mode & 07777) == 0700;
}

QString DisplayName(const QString& path) {
    return QString::fromUtf8(QTextCodec::codecForLocale()->fromUnicode(path));
}

} // namespace pellomar
