// The export run: package, then every message of every selected folder
// appended to its folder's mbox file.
#include "export/ExportJob.h"
#include "export/MboxWriteQueue.h"
#include "export/MboxWriter.h"
#include "export/PathMapping.h"
#include "export/SaveTimeStamp.h"
#include "scanner/DetachedParts.h"
#include "scanner/Discovery.h"
#include "scanner/EmlxLines.h"
#include "scanner/RunProgress.h"
#include "scanner/Store.h"

#include <QHash>
#include <QSet>

#include <memory>

ExportJob ExportJob::Ticked(const Store& store, const QString& destination, const QDateTime& when,
                            const RunOptions& options) {
    ExportJob job;
    job.m_strInputfilepath = store.m_strInputfilepath;
    job.saveDir = destination;
    job.strTime = MakeSaveTimeStamp(when);
    job.mainIdentity = PackageName(job.strTime);
    job.selection = store.TickedFolders();
    job.options = options;
    return job;
}

void ExportRun::Run(RunProgress& progress, const std::atomic<bool>& stop) {
    result = EMLXConverter(m_store, m_job, progress, stop);
    verified = !stop && result.ending != RunResult::Ending::Failed;
    if (!verified)
        return;
    VerifyJob check;
    check.package = m_job.Package();
    check.m_strInputfilepath = m_job.m_strInputfilepath;
    check.selection = m_job.selection;
    check.keepBytes = m_job.options.keepBytes;
    verification = Verify(m_store, check, progress, stop);
}

RunResult EMLXConverter(const Store& store, const ExportJob& job, RunProgress& progress,
                        const std::atomic<bool>& stop) {
    RunResult result;
    const QSet<quint64> selected(job.selection.cbegin(), job.selection.cend());
    // The folders to write, in the store's order, and the messages left from
    // any message of theirs on.
    QVector<const FldrAtrib*> folders;
    for (const FldrAtrib& f : store.Folders())
        if (selected.contains(f.ullId)) {
            folders.append(&f);
            result.total += f.MsgCount();
        }
    // Files of these folders that the scan found to hold no message are
    // named in the export's report too.
    if (!store.result.notMessages.isEmpty()) {
        QSet<QString> mailboxes;
        for (const FldrAtrib* f : qAsConst(folders))
            for (const MailItem& m : f->messages)
                mailboxes.insert(PackageLayout::MailboxFolderOf(m.Path()));
        for (const RunResult::Skipped& s : store.result.notMessages)
            if (mailboxes.contains(PackageLayout::MailboxFolderOf(s.path)))
                result.notMessages.append(s);
    }
    auto messagesFrom = [&folders](int folder, size_t message) {
        quint64 left = folders.at(folder)->MsgCount() - message;
        for (int i = folder + 1; i < folders.size(); ++i)
            left += folders.at(i)->MsgCount();
        return left;
    };

    {
        QString file, reason;
        if (!CreateRGEWraper(job.saveDir, job.mainIdentity, &file, &reason)) {
            result.EndAt(RunResult::Ending::Failed, file, reason, result.total);
            return result;
        }
    }
    progress.OnShowingScanProgBar();
    progress.OnSettingsForPrgBar(static_cast<unsigned long>(result.total),
                                 QStringLiteral("Saving .rge file. Please Wait..."));

    const QString package = job.Package();
    if (stop) {
        result.ending = RunResult::Ending::Stopped;
        return result;
    }
    // Each mailbox gets its mbox file, found (and made) with its first
    // message; the reason when it cannot be made. The mbox file stays open
    // from one message to the next of the same file; every message is on
    // disk when the next begins to be written, as it would be if the file
    // were opened for each message. The writing itself is done by the
    // queue's thread; this one reads and converts.
    PackageLayout layout(package, job.m_strInputfilepath, store.accountNames);
    const emlx::PartFileIndex partFiles(store.listOfPathOfEmlxPart);
    QHash<QString, QString> cannotMake; // mbox file -> why it cannot be made
    std::shared_ptr<QFile> mbox;
    QString openMbox;
    MboxWriteQueue out(&result);
    auto finished = [&]() -> RunResult {
        out.Finish();
        return result;
    };
    for (int fi = 0; fi < folders.size(); ++fi) {
        const std::vector<MailItem>& messages = folders.at(fi)->messages;
        for (size_t mi = 0; mi < messages.size(); ++mi) {
            if (stop) {
                result.ending = RunResult::Ending::Stopped;
                return finished();
            }
            const QString path = messages[mi].Path();
            if (path.isEmpty() || path.contains(kRssFeedMarker)) {
                progress.CurrentValue();
                continue;
            }
            QFile message;
            QString reason;
            // A message file that cannot be read is skipped when the user
            // asked for it, and otherwise ends the export.
            if (!MboxWriter::OpenForReading(message, path, &reason)) {
                if (!job.options.keepGoing) {
                    result.EndAt(RunResult::Ending::UnreadableFile, path, reason,
                                 messagesFrom(fi, mi));
                    return finished();
                }
                result.Skip(path, reason);
                progress.CurrentValue();
                continue;
            }
            // A file that holds no message is passed over, never written.
            const QByteArray first = message.read(512);
            const QString junk = WhyNotAMessage(path, first.constData(), first.size());
            if (!junk.isEmpty() || !message.seek(0)) {
                result.notMessages.append({path, junk});
                progress.CurrentValue();
                continue;
            }
            QString mboxPath = layout.PathExtractor(path, &reason);
            if (mboxPath.isEmpty()) {
                cannotMake.insert(layout.MboxFor(path), reason);
            } else if (openMbox != mboxPath) {
                mbox.reset();
                openMbox.clear();
                auto file = std::make_shared<QFile>();
                if (MboxWriter::OpenForAppend(*file, mboxPath, &reason)) {
                    mbox = std::move(file);
                    openMbox = mboxPath;
                }
            }
            // An mbox file that cannot be made or opened loses this message
            // only, and the run says which.
            if (mboxPath.isEmpty()) {
                out.Unwritten(path, cannotMake.value(layout.MboxFor(path)));
            } else if (!mbox || openMbox != mboxPath) {
                out.Unwritten(path, QStringLiteral("cannot open '") + mboxPath + "': " + reason);
            } else {
                const bool partial =
                    path.contains(QLatin1String(".partial.emlx"), Qt::CaseSensitive);
                RemovedParts removed(path, partial ? partFiles.Candidates(path) : QStringList());
                out.BeginMessage(path, mbox, mboxPath);
                const MboxWriter::CopyResult copy = MboxWriter::WriteMessage(
                    message, out.Device(), partial, partial ? removed.PartFiles() : QStringList(),
                    job.options, MboxWriter::kDefaultChunk, partial ? &removed : nullptr);
                for (const RunResult::Skipped& part : copy.skippedParts)
                    result.Skip(part.path, part.reason);
                result.partsFromEmlxpart += copy.partsFromEmlxpart;
                result.partsFromAttachments += copy.partsFromAttachments;
                for (const QString& name : copy.missingParts)
                    result.missingParts.append({path, name});
                // A detached part that cannot be read ends the export; what
                // was written so far is kept.
                if (!copy.complete) {
                    out.EndIncomplete();
                    result.EndAt(RunResult::Ending::UnreadableFile, copy.failedPart, copy.reason,
                                 messagesFrom(fi, mi));
                    return finished();
                }
                out.EndMessage({copy.converted, copy.droppedLines, copy.cutLines});
            }
            progress.CurrentValue();
        }
    }
    return finished();
}
