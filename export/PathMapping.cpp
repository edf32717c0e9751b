// Where a message goes inside the package: the mailbox folder of the message
// file becomes a folder of its plain name holding "<name>.mbox".
#include "export/PathMapping.h"
#include "export/ExportJob.h"
#include "scanner/Discovery.h"
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

QString PackageLayout::MailboxFolderOf(const QString& messagePath) {
    const QString folder = messagePath.left(qMax(0, messagePath.lastIndexOf(QLatin1Char('/'))));
    // The innermost level with a mailbox ending; the message's own folder
    // when there is none.
    for (int end = folder.size(); end > 0;) {
        const int start = folder.lastIndexOf(QLatin1Char('/'), end - 1) + 1;
        if (KindOfFolderName(folder.mid(start, end - start)) != FolderKind::Folder)
            return folder.left(end);
        end = start - 1;
    }
    return folder;
}

namespace {

// Never a name that leads out of the package ("", ".", "..").
QString PackageLevel(QString level) {
    if (level.isEmpty() || level == QLatin1String(".") || level == QLatin1String(".."))
        level.prepend(QLatin1Char('_'));
    return level;
}

// A folder level of the store as the package names it: without its mailbox
// ending, bytes that are not UTF-8 given as they are shown (the package is
// read by a program that expects UTF-8 names).
QString PlainLevel(const QString& level) {
    return PackageLevel(pellomar::DisplayName(WithoutMailboxEnding(level)));
}

// An account's name as a folder name: one level, at most 200 bytes.
QString AccountLevel(QString name) {
    name.replace(QLatin1Char('/'), QLatin1Char('-')).replace(QChar(0), QLatin1Char('-'));
    while (name.toUtf8().size() > 200)
        name.chop(name.size() > 1 && name.at(name.size() - 1).isLowSurrogate() ? 2 : 1);
    return PackageLevel(name);
}

} // namespace

bool PackageLayout::IsAccountFolder(const QString& name) const {
    return KindOfFolderName(name) == FolderKind::Folder && !m_accountNames.value(name).isEmpty();
}

QString PackageLayout::AccountFolderName(const QString& parent, const QString& key) {
    const QString folder = parent + QLatin1Char('/') + key;
    const auto known = m_accountFolder.constFind(folder);
    if (known != m_accountFolder.constEnd())
        return *known;
    // Every account folder beside this one is named at once, in the order of
    // their folder names, after the names the other folders there take.
    QSet<QString> taken;
    QStringList accounts{key};
    for (const QString& name :
         QDir(parent).entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System)) {
        if (!IsAccountFolder(name))
            taken.insert(PlainLevel(name).toCaseFolded());
        else if (name != key)
            accounts << name;
    }
    accounts.sort();
    for (const QString& account : qAsConst(accounts)) {
        const QString base = AccountLevel(m_accountNames.value(account));
        QString name = base;
        for (int n = 2; taken.contains(name.toCaseFolded()); ++n)
            name = base + QStringLiteral(" (%1)").arg(n);
        taken.insert(name.toCaseFolded());
        m_accountFolder.insert(parent + QLatin1Char('/') + account, name);
    }
    return m_accountFolder.value(folder);
}

QString PackageLayout::MboxFor(const QString& messagePath) {
    const QString mailbox = MailboxFolderOf(messagePath);
    const auto known = m_mboxOfMailbox.constFind(mailbox);
    if (known != m_mboxOfMailbox.constEnd())
        return *known;
    // The levels below the package: the store's own levels below the mailbox
    // when the store lies inside it (or is it), else the mailbox's below the
    // store.
    QStringList levels;
    if (m_store == mailbox || m_store.startsWith(mailbox + QLatin1Char('/'))) {
        levels = m_store.mid(mailbox.size()).split(QLatin1Char('/'), Qt::SkipEmptyParts);
        levels << mailbox.mid(mailbox.lastIndexOf(QLatin1Char('/')) + 1);
        for (QString& level : levels)
            level = PlainLevel(level);
    } else if (mailbox.startsWith(m_store + QLatin1Char('/'))) {
        levels = mailbox.mid(m_store.size() + 1).split(QLatin1Char('/'));
        // Account folders below the store take their account's name.
        QString parent = m_store;
        for (QString& level : levels) {
            const QString onDisk = level;
            level =
                IsAccountFolder(onDisk) ? AccountFolderName(parent, onDisk) : PlainLevel(onDisk);
            parent += QLatin1Char('/') + onDisk;
        }
    } else {
        levels << PlainLevel(mailbox.mid(mailbox.lastIndexOf(QLatin1Char('/')) + 1));
    }
    const QString name = levels.last();
    QString folder = QStringLiteral("/Mail/") + levels.join(QLatin1Char('/'));
    QString file = name;
    for (int n = 2; m_taken.contains(folder.toCaseFolded()); ++n) {
        file = name + QStringLiteral(" (%1)").arg(n);
        folder = QStringLiteral("/Mail/") +
                 levels.mid(0, levels.size() - 1).join(QLatin1Char('/')) +
                 (levels.size() > 1 ? QStringLiteral("/") : QString()) + file;
    }
    m_taken.insert(folder.toCaseFolded());
    const QString mbox = m_package + folder + QLatin1Char('/') + file + QStringLiteral(".mbox");
    m_mboxOfMailbox.insert(mailbox, mbox);
    return mbox;
}

QString PackageLayout::PathExtractor(const QString& messagePath, QString* reason) {
    const QString mbox = MboxFor(messagePath);
    if (m_made.contains(mbox))
        return mbox;
    if (!MakeFolders(mbox.left(mbox.lastIndexOf(QLatin1Char('/'))), reason))
        return QString();
    // A new mbox file is created empty and typed; an existing one keeps its
    // content and its Finder information.
    const int fd = ::open(QFile::encodeName(mbox).constData(),
                          O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd >= 0) {
        ::close(fd);
        SetFinderTypeAndCreator(mbox, "MBOX", "OPIM");
    } else if (errno != EEXIST) {
        *reason = QStringLiteral("cannot make '") + mbox + QStringLiteral("': ") +
                  QString::fromLocal8Bit(strerror(errno));
        return QString();
    }
    m_made.insert(mbox);
    return mbox;
}
