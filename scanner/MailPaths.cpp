#include "scanner/MailPaths.h"

#include <pwd.h>
#include <unistd.h>

#ifdef Q_OS_MACOS
#include <CoreFoundation/CoreFoundation.h>
#include <SystemConfiguration/SystemConfiguration.h>
#endif

QString DefaultMailPathFor(const QString& userName) {
    if (userName != QLatin1String("root"))
        return QStringLiteral("/Users/") + userName + QStringLiteral("/Library/Mail");
    return QStringLiteral("/private/var/") + userName + QStringLiteral("/Library/Mail");
}

namespace pellomar {

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

} // namespace pellomar
