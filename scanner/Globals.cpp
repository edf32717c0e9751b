#include "scanner/Globals.h"

#include <QProcess>

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

QString TempDir() {
    const QString dir = qEnvironmentVariable("PELLOMAR_TMPDIR");
    return dir.isEmpty() ? QStringLiteral("/var/tmp") : dir;
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

QString DefaultMailPathFor(const QString& userName) {
    if (userName != QLatin1String("root"))
        return QStringLiteral("/Users/") + userName + QStringLiteral("/Library/Mail");
    return QStringLiteral("/private/var/") + userName + QStringLiteral("/Library/Mail");
}

QString ShellQuote(const QString& path) {
    QString quoted = path;
    quoted.replace(QLatin1Char('\''), QLatin1String("'\\''"));
    return QLatin1Char('\'') + quoted + QLatin1Char('\'');
}

int RunShellCommand(const QString& command) {
    return QProcess::execute(QStringLiteral("/bin/bash"), {QStringLiteral("-c"), command});
}
