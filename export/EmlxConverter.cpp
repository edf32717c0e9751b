// The export run: package, then every message of every fully ticked folder
// appended to its folder's mbox file.
#include "export/EmlxExport.h"
#include "export/MboxWriteQueue.h"
#include "export/MboxWriter.h"
#include "scanner/DetachedParts.h"
#include "scanner/Discovery.h"
#include "scanner/EmlxLines.h"
#include "scanner/Globals.h"
#include "scanner/Records.h"
#include "scanner/ScaningThread.h"

#include <QHash>

#include <memory>

namespace {

// Messages of the fully ticked folders from `item` (of `folder`) on.
quint64 MessagesFrom(FldrAtrib* folder, MailItem* item) {
    quint64 left = 0;
    for (; item; item = item->pNext)
        ++left;
    for (folder = folder->pNext; folder; folder = folder->pNext)
        if (folder->ucTickState == kTicked)
            left += folder->ullMsgCount;
    return left;
}

} // namespace

void InstallEmlxExport() {
    InstallExportRoutine(&ExportTickedFolders);
}

RunResult ExportTickedFolders(ScaningThread& thread) {
    RunResult result;
    thread.GetUserName();

    thread.m_ulTotalFiles = 0;
    for (FldrAtrib* f = StartFldrAtrib; f; f = f->pNext)
        if (f->ucTickState == kTicked)
            thread.m_ulTotalFiles += f->ullMsgCount;
    result.total = thread.m_ulTotalFiles;

    CreateRGEWraper(saveDir);
    emit thread.OnShowingScanProgBar();
    emit thread.OnSettingsForPrgBar(static_cast<unsigned long>(thread.m_ulTotalFiles),
                                    QStringLiteral("Saving .rge file. Please Wait..."));

    const QString package = saveDir + mainIdentity;
    const QStringList parts = listOfPathOfEmlxPart;
    if (bStopFlag) {
        result.ending = RunResult::Ending::Stopped;
        return result;
    }
    // The mbox file of each message folder, found (and made) once. The mbox
    // file stays open from one message to the next of the same file; every
    // message is on disk when the next begins to be written, as it would be
    // if the file were opened for each message. The writing itself is done
    // by the queue's thread; this one reads and converts.
    QHash<QString, QString> mboxOfFolder;
    std::shared_ptr<QFile> mbox;
    QString openMbox;
    MboxWriteQueue out(&result);
    auto finished = [&]() -> RunResult {
        out.Finish();
        return result;
    };
    for (FldrAtrib* folder = StartFldrAtrib; folder; folder = folder->pNext) {
        // Partly ticked folders are left out; their fully ticked subfolders
        // come up on their own.
        if (folder->ucTickState != kTicked)
            continue;
        for (MailItem* item = folder->pFirstMail; item; item = item->pNext) {
            if (bStopFlag) {
                result.ending = RunResult::Ending::Stopped;
                return finished();
            }
            const QString path = Utf16Text(item->pPath, item->ulPathSize);
            if (!path.isEmpty() && !path.contains(kRssFeedMarker)) {
                const QString dir = path.left(path.lastIndexOf(QLatin1Char('/')) + 1);
                auto known = mboxOfFolder.constFind(dir);
                if (known == mboxOfFolder.constEnd())
                    known = mboxOfFolder.insert(dir, PathExtractor(package, path));
                const QString& mboxPath = *known;
                QFile message;
                QString reason;
                // A message file that cannot be read is skipped when the user
                // asked for it, and otherwise ends the export.
                if (!MboxWriter::OpenForReading(message, path, &reason) &&
                    thread.m_options.keepGoing) {
                    result.Skip(path, reason);
                    emit thread.CurrentValue();
                    continue;
                }
                if (!message.isOpen()) {
                    result.EndAt(RunResult::Ending::UnreadableFile, path, reason,
                                 MessagesFrom(folder, item));
                    return finished();
                }
                if (openMbox != mboxPath) {
                    mbox.reset();
                    openMbox.clear();
                    auto file = std::make_shared<QFile>();
                    if (MboxWriter::OpenForAppend(*file, mboxPath, &reason)) {
                        mbox = std::move(file);
                        openMbox = mboxPath;
                    }
                }
                // An mbox file that cannot be opened loses this message only,
                // and the run says which.
                if (!mbox) {
                    out.Unwritten(path,
                                  QStringLiteral("cannot open '") + mboxPath + "': " + reason);
                } else {
                    const bool partial =
                        path.contains(QLatin1String(".partial.emlx"), Qt::CaseSensitive);
                    RemovedParts removed(path);
                    out.BeginMessage(path, mbox, mboxPath);
                    const MboxWriter::CopyResult copy = MboxWriter::WriteMessage(
                        message, out.Device(), partial,
                        partial ? emlx::PartFileCandidates(path, parts) : QStringList(),
                        thread.m_options, MboxWriter::kDefaultChunk, partial ? &removed : nullptr);
                    for (const RunResult::Skipped& part : copy.skippedParts)
                        result.Skip(part.path, part.reason);
                    result.partsFromEmlxpart += copy.partsFromEmlxpart;
                    result.partsFromAttachments += copy.partsFromAttachments;
                    for (const QString& name : copy.missingParts)
                        result.missingParts.append({path, name});
                    // A detached part that cannot be read ends the export;
                    // what was written so far is kept.
                    if (!copy.complete) {
                        out.EndIncomplete();
                        result.EndAt(RunResult::Ending::UnreadableFile, copy.failedPart,
                                     copy.reason, MessagesFrom(folder, item));
                        return finished();
                    }
                    out.EndMessage(copy.converted);
                }
            }
            emit thread.CurrentValue();
        }
    }
    return finished();
}
