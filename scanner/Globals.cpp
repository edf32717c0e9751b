#include "scanner/Globals.h"
#include "scanner/FileAccess.h"

#include <QFile>
#include <QMutex>
#include <QProcess>

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

#ifdef Q_OS_MACOS
#include <CoreFoundation/CoreFoundation.h>
#include <SystemConfiguration/SystemConfiguration.h>
#endif

QString strPlistPath;
QString HelpFilePath;
QString TranslatorPath;
QString m_strInputfilepath;
QString saveDir;
QString strTime;
QString mainIdentity;
QString strDefaultBrowser;

std::atomic<bool> bStopFlag{false};
std::atomic<bool> bProcessRunning{false};
std::atomic<bool> IsPreview{true};
std::atomic<bool> IsConverted{false};

QList<QString> listOfPathOfEmlxPart;

const unsigned long long llRootId = 501;
unsigned long long PID = llRootId;
unsigned long long llParentIdRunning = 0;
QMultiMap<QString, unsigned long long> objMapName_FID;
QMap<unsigned long long, unsigned long long> objMapFID_PID;
QMap<unsigned long long, QString> objMapFID_Name;

FolderTreeSink* pMainWindow = nullptr;
FolderTreeSink* m_pMainWindow = nullptr;

QString DefaultMailPathFor(const QString& userName) {
    if (userName != QLatin1String("root"))
        return QStringLiteral("/Users/") + userName + QStringLiteral("/Library/Mail");
    return QStringLiteral("/private/var/") + userName + QStringLiteral("/Library/Mail");
}

namespace pellomar {

QString TempDir() {
    static QMutex mutex;
    static QString current;
    const QMutexLocker lock(&mutex);
    if (!current.isEmpty() && MakePrivateFolder(current))
        return current;
    QString base = qEnvironmentVariable("PELLOMAR_TMPDIR");
    if (base.isEmpty())
        base = QStringLiteral("/var/tmp");
    current = base + QStringLiteral("/pellomar-") + QString::number(::geteuid());
    if (MakePrivateFolder(current))
        return current;
    // Someone else holds the name: a folder of our own with a random name.
    QByteArray pattern = QFile::encodeName(current) + "-XXXXXX";
    current = ::mkdtemp(pattern.data()) ? QFile::decodeName(pattern) : QString();
    return current;
}

QString ConsoleUserName() {
#ifdef Q_OS_MACOS
    QString name;
    uid_t uid = 0;
    gid_t gid = 0;
    if (CFStringRef user = SCDynamicStoreCopyConsoleUser(nullptr, &uid, &gid)) {
        if (const char* c = CFStringGetCStringPtr(user, CFStringGetSystemEncoding()))
            name = QString::fromLocal8Bit(c);
        CFRelease(user);
    }
    return name;
#else
    if (const passwd* pw = getpwuid(getuid()))
        return QString::fromLocal8Bit(pw->pw_name);
    return qEnvironmentVariable("USER");
#endif
}

QString ShellQuote(const QString& path) {
    QString quoted = path;
    quoted.replace(QLatin1Char('\''), QLatin1String("'\\''"));
    return QLatin1Char('\'') + quoted + QLatin1Char('\'');
}

int RunShellCommand(const QString& command) {
    return QProcess::execute(QStringLiteral("/bin/bash"), {QStringLiteral("-c"), command});
}

} // namespace pellomar
