#pragma once
// Process-wide state shared by the start-up code, the main window, the
// command-line tool and the worker thread. The flags are single-byte atomics:
// the two threads set and poll them without any further locking.

#include <QList>
#include <QMap>
#include <QString>
#include <atomic>

class FolderTreeSink;

extern QString strPlistPath;       // <Resources>/PellomarLink.plist
extern QString HelpFilePath;       // <Resources>
extern QString TranslatorPath;     // stays empty
extern QString m_strInputfilepath; // chosen mail store folder
extern QString saveDir;            // chosen output folder
extern QString strTime;            // "(d MMM yyyy,hh-mm-ss)" of the save
extern QString mainIdentity;       // "/Main Identity_" + strTime + ".rge"
extern QString strDefaultBrowser;  // stays empty: links open through the platform

extern std::atomic<bool> bStopFlag;       // stop request
extern std::atomic<bool> bProcessRunning; // a scan or export is under way
extern std::atomic<bool> IsPreview;       // true: the worker scans; false: it exports
extern std::atomic<bool> IsConverted;     // the scan accepted at least one message file

// Paths of every .emlxpart file of the store, in the order find listed them.
extern QList<QString> listOfPathOfEmlxPart;

// Folder identifiers and the maps of the folder builder.
extern const unsigned long long llRootId; // 501
extern unsigned long long PID;            // last identifier handed out; never reset
extern unsigned long long llParentIdRunning;
extern QMultiMap<QString, unsigned long long> objMapName_FID;
extern QMap<unsigned long long, unsigned long long> objMapFID_PID;
extern QMap<unsigned long long, QString> objMapFID_Name;

// The window (or headless stand-in) that receives new folders; set by its
// owner. The scan copies it into m_pMainWindow when it starts.
extern FolderTreeSink* pMainWindow;
extern FolderTreeSink* m_pMainWindow;

// The Apple Mail folder of a user: /Users/<name>/Library/Mail, or
// /private/var/root/Library/Mail for root.
QString DefaultMailPathFor(const QString& userName);

namespace pellomar {

// This user's folder for temporary files, "/var/tmp/pellomar-<uid>" (the
// environment variable PELLOMAR_TMPDIR replaces "/var/tmp", so tests can run
// side by side). Made with mode 0700 when missing and checked on every call:
// when the name is anything else than a real folder of this user that only
// the user may enter (a link, a file, another user's folder), a new folder
// with a random name is made beside it instead. Empty when no folder can be
// made at all.
QString TempDir();

// Login name of the user at the console (on macOS) or of the process owner.
QString ConsoleUserName();

// Puts a path between single quotes so that any character survives a shell.
QString ShellQuote(const QString& path);
// Runs a command line with bash and waits for it; the exit code is returned.
int RunShellCommand(const QString& command);

} // namespace pellomar
