// The export run: package, then every message of every fully ticked folder
// appended to its folder's mbox file.
#include "ExportSummary.h"
#include "Globals.h"
#include "MboxWriter.h"
#include "Records.h"
#include "ScaningThread.h"

#include <QHash>

namespace {

QList<WrittenMbox> g_summary;
QHash<QString, int> g_summaryIndex;

void CountMessage(const QString& mboxPath) {
    auto it = g_summaryIndex.constFind(mboxPath);
    if (it == g_summaryIndex.constEnd()) {
        it = g_summaryIndex.insert(mboxPath, g_summary.size());
        g_summary.append({mboxPath, 0});
    }
    ++g_summary[*it].messages;
}

} // namespace

QList<WrittenMbox> LastExportSummary() {
    return g_summary;
}

void ScaningThread::EMLXConverter() {
    GetUserName();
    g_summary.clear();
    g_summaryIndex.clear();

    m_ulTotalFiles = 0;
    for (FldrAtrib* f = StartFldrAtrib; f; f = f->pNext)
        if (f->ucTickState == 1)
            m_ulTotalFiles += f->ullMsgCount;

    CreateRGEWraper(saveDir);
    emit OnShowingScanProgBar();
    emit OnSettingsForPrgBar(static_cast<unsigned long>(m_ulTotalFiles),
                             QStringLiteral("Saving .rge file. Please Wait..."));

    const QString package = saveDir + mainIdentity;
    const QStringList parts = listOfPathOfEmlxPart;
    if (bStopFlag)
        return;
    for (FldrAtrib* folder = StartFldrAtrib; folder; folder = folder->pNext) {
        // Partly ticked folders are left out; their fully ticked subfolders
        // come up on their own.
        if (folder->ucTickState != 1)
            continue;
        for (MailItem* item = folder->pFirstMail; item; item = item->pNext) {
            if (bStopFlag)
                return;
            const QString path = Utf16Text(item->pPath, item->ulPathSize);
            if (!path.isEmpty() &&
                !path.contains(QLatin1String("/RSS/Apple Hot News.rssmbox/"), Qt::CaseSensitive)) {
                const QString mboxPath = PathExtractor(package, path);
                QFile message;
                // A message file that cannot be read ends the export.
                if (!MboxWriter::OpenForReading(message, path))
                    return;
                QFile mbox;
                // An mbox file that cannot be opened loses this message only.
                if (MboxWriter::OpenForAppend(mbox, mboxPath)) {
                    const bool partial =
                        path.contains(QLatin1String(".partial.emlx"), Qt::CaseSensitive);
                    const auto result = MboxWriter::WriteMessage(
                        message, mbox, partial,
                        partial ? MboxWriter::PartFilesFor(path, parts) : QStringList());
                    mbox.close();
                    CountMessage(mboxPath);
                    // A detached part that cannot be read ends the export;
                    // what was written so far is kept.
                    if (result != MboxWriter::CopyResult::Complete)
                        return;
                }
            }
            emit CurrentValue();
        }
    }
}
