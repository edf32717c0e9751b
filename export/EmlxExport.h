#pragma once
// The export of ticked folders into an archive package. The worker thread
// of the scanner runs it as its EMLXConverter once InstallEmlxExport has
// been called (the window and the command-line tool do so at start).

#include "scanner/RunResult.h"

#include <QString>

class ScaningThread;

void InstallEmlxExport();

// Writes every message of every fully ticked folder into the package
// saveDir + mainIdentity, reporting progress through the thread's signals.
RunResult ExportTickedFolders(ScaningThread& thread);

// Creates the package folder in `destination` with Contents/PkgInfo,
// Contents/Info.plist and Archive.xml (appended to when they exist).
void CreateRGEWraper(const QString& destination);

// The mbox file of the package that receives the message at `messagePath`;
// its folders are made, and a new file is created and given its Finder type.
QString PathExtractor(const QString& packagePath, const QString& messagePath);
