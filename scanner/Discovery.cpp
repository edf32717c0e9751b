#include "scanner/Discovery.h"

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

const QString kRssFeedMarker = QStringLiteral("/RSS/Apple Hot News.rssmbox/");

namespace {

bool EndsWith(const QByteArray& name, const char* suffix) {
    const int n = int(strlen(suffix));
    return name.size() >= n && memcmp(name.constData() + name.size() - n, suffix, size_t(n)) == 0;
}

QString ErrnoText(int error) {
    return QString::fromLocal8Bit(strerror(error));
}

// The entries of one folder, sorted so that walking them depth first gives
// the byte order of full paths: a folder sorts as its name followed by "/".
struct Entry {
    QByteArray key; // the name, with "/" after a folder's
    bool dir;
};

// Reads the folder at `path`; false with errno's text in `error` when it
// cannot be opened or read.
bool ReadFolder(const QByteArray& path, std::vector<Entry>* entries, QString* error) {
    DIR* dir = ::opendir(path.constData());
    if (!dir) {
        *error = ErrnoText(errno);
        return false;
    }
    entries->clear();
    for (;;) {
        errno = 0;
        const dirent* e = ::readdir(dir);
        if (!e) {
            if (errno != 0) {
                *error = ErrnoText(errno);
                ::closedir(dir);
                return false;
            }
            break;
        }
        const char* name = e->d_name;
        if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0')))
            continue;
        bool isDir = e->d_type == DT_DIR;
        if (e->d_type == DT_UNKNOWN) {
            // Links are not followed, as find does not follow them.
            struct stat st;
            isDir =
                ::fstatat(::dirfd(dir), name, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode);
        }
        QByteArray key(name);
        if (isDir)
            key += '/';
        entries->push_back({std::move(key), isDir});
    }
    ::closedir(dir);
    std::sort(entries->begin(), entries->end(),
              [](const Entry& a, const Entry& b) { return a.key < b.key; });
    return true;
}

// Keeps text from its first "/" on; text without a "/" stays as it is.
QString FromFirstSlash(const QString& text) {
    const int slash = text.indexOf(QLatin1Char('/'));
    return slash < 0 ? text : text.mid(slash);
}

// The folder path before the mailbox endings are dealt with.
QString FolderPathBeforeMailboxes(const QString& line, const QString& defaultMailPath,
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
    return path;
}

} // namespace

StoreListing ListStoreFiles(const QString& store) {
    StoreListing out;
    QVector<FoundEntry> unreadable;
    QByteArray root = QFile::encodeName(store);
    struct Level {
        QByteArray path; // with its final "/"
        std::vector<Entry> entries;
        size_t next = 0;
    };
    std::vector<Level> stack(1);
    QString error;
    if (root.isEmpty() || !ReadFolder(root, &stack[0].entries, &error)) {
        out.error = root.isEmpty() ? QStringLiteral("no folder given") : error;
        return out;
    }
    if (!root.endsWith('/'))
        root += '/';
    stack[0].path = root;
    while (!stack.empty()) {
        Level& level = stack.back();
        if (level.next == level.entries.size()) {
            stack.pop_back();
            continue;
        }
        const Entry& e = level.entries[level.next++];
        QByteArray path = level.path + e.key;
        if (e.dir)
            path.chop(1);
        if (EndsWith(path, ".emlx"))
            out.messages.append({QFile::decodeName(path), QString()});
        else if (EndsWith(path, ".emlxpart"))
            out.parts.append(QFile::decodeName(path));
        if (!e.dir)
            continue;
        Level inner;
        if (ReadFolder(path, &inner.entries, &error)) {
            inner.path = path + '/';
            stack.push_back(std::move(inner)); // `level` is not used after this
        } else {
            unreadable.append({QFile::decodeName(path), error});
        }
    }
    // Folders that could not be read come after every file, as find's
    // messages came after its list.
    out.messages += unreadable;
    return out;
}

FolderKind KindOfFolderName(const QString& name) {
    if (name.endsWith(QLatin1String(".mbox")))
        return FolderKind::Mailbox;
    if (name.endsWith(QLatin1String(".imapmbox")))
        return FolderKind::ImapMailbox;
    if (name.endsWith(QLatin1String(".ewsmbox")))
        return FolderKind::EwsMailbox;
    return FolderKind::Folder;
}

QString WithoutMailboxEnding(const QString& name) {
    switch (KindOfFolderName(name)) {
    case FolderKind::Mailbox:
        return name.chopped(5);
    case FolderKind::ImapMailbox:
        return name.chopped(9);
    case FolderKind::EwsMailbox:
        return name.chopped(8);
    default:
        return name;
    }
}

QVector<FolderPart> FolderPartsForMessage(const QString& line, const QString& defaultMailPath,
                                          const QString& storePath) {
    const QString path = FolderPathBeforeMailboxes(line, defaultMailPath, storePath);
    // The path's first character goes: its leading "/", or (without one)
    // the first character of the first level.
    if (path.size() <= 1)
        return {};
    QStringList levels = path.mid(1).split(QLatin1Char('/'));
    int innermost = levels.size() - 1;
    while (innermost >= 0 && KindOfFolderName(levels.at(innermost)) == FolderKind::Folder)
        --innermost;
    if (innermost >= 0)
        levels.erase(levels.begin() + innermost + 1, levels.end());
    QVector<FolderPart> parts;
    parts.reserve(levels.size());
    for (const QString& level : qAsConst(levels))
        parts.append({level, WithoutMailboxEnding(level), KindOfFolderName(level)});
    return parts;
}

QString WhyNotAMessage(const QString& path, const char* firstBytes, qint64 size) {
    if (IsAppleDoubleName(path))
        return QStringLiteral("an AppleDouble file (\"._\" name), not a message");
    if (size <= 0)
        return QStringLiteral("an empty file, not a message");
    // The first line: Mail's byte count, or (a plain message) a header field.
    const char* end = static_cast<const char*>(memchr(firstBytes, '\n', size_t(size)));
    qint64 n = end ? end - firstBytes : size;
    while (n > 0 &&
           (firstBytes[n - 1] == '\r' || firstBytes[n - 1] == ' ' || firstBytes[n - 1] == '\t'))
        --n;
    const char* p = firstBytes;
    if (n >= 3 && memcmp(p, "\xEF\xBB\xBF", 3) == 0) // a byte-order mark
        p += 3, n -= 3;
    while (n > 0 && (*p == ' ' || *p == '\t'))
        ++p, --n;
    bool digits = n > 0;
    for (qint64 i = 0; i < n && digits; ++i)
        digits = p[i] >= '0' && p[i] <= '9';
    if (digits)
        return QString();
    // A field name: printable characters other than ":", then ":".
    qint64 i = 0;
    while (i < n && p[i] > ' ' && p[i] < 127 && p[i] != ':')
        ++i;
    if (i > 0 && i < n && p[i] == ':')
        return QString();
    return QStringLiteral("neither a byte count nor a header on its first line, not a message");
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
