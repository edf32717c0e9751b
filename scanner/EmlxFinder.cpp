// The scan of a mail store: list the message files, then walk the list one
// message file at a time, giving each message its folder and record and
// announcing it.
#include "scanner/EmlxFinder.h"
#include "scanner/AnalysisPipeline.h"
#include "scanner/Discovery.h"
#include "scanner/FolderBuilder.h"
#include "scanner/RunProgress.h"

#include <QSet>
#include <QThread>

#include <deque>

namespace {

// An entry of the listing that names a message to scan: the built-in RSS
// feed's folder is left out.
bool IsMessageEntry(const FoundEntry& entry) {
    return !entry.path.isEmpty() && !entry.path.contains(kRssFeedMarker);
}

// A file that is analysed: a message entry that names no folder and no
// AppleDouble file.
bool IsAnalysed(const FoundEntry& entry) {
    return IsMessageEntry(entry) && entry.error.isEmpty() && !IsAppleDoubleName(entry.path);
}

// Few distinct charsets and transfer encodings occur in a store: each
// message's copy shares the bytes of the first one seen, so a large store
// does not hold the same short texts many thousand times.
class TextPool {
public:
    void Share(QByteArray& text) {
        if (text.isNull())
            return;
        auto it = m_texts.constFind(text);
        if (it == m_texts.constEnd())
            it = m_texts.insert(text);
        text = *it;
    }

private:
    QSet<QByteArray> m_texts;
};

// Announces one attached message. The folder's label state is 0 for its
// first announced message and 2 afterwards.
void AnnounceItem(RunProgress& progress, FldrAtrib& folder, const QString& numberText) {
    const MailItem& item = folder.messages.back();
    const QString title = item.subject.isEmpty() ? QStringLiteral("Unknown") : item.subject;
    progress.NewItem(title, numberText, folder.ullId, folder.MsgCount(), item.HasAttachments(),
                     item.iPriority, folder.iLabelState, SummaryOf(item));
    folder.iLabelState = 2;
}

Store Finished(Store& store) {
    store.Compact();
    return std::move(store);
}

} // namespace

Store EMLXFinder(const QString& m_strInputfilepath, const ScanOptions& options,
                 RunProgress& progress, const std::atomic<bool>& stop) {
    Store store;
    store.m_strInputfilepath = m_strInputfilepath;
    store.accountNames = options.accountNames;
    RunResult& result = store.result;
    StoreListing listing = ListStoreFiles(m_strInputfilepath);
    if (!listing.error.isEmpty()) {
        result.EndAt(RunResult::Ending::Failed, m_strInputfilepath, listing.error, 0);
        return Finished(store);
    }
    store.listOfPathOfEmlxPart = std::move(listing.parts);
    QVector<FoundEntry>& list = listing.messages;

    for (const FoundEntry& entry : list)
        if (IsMessageEntry(entry) && !IsAppleDoubleName(entry.path))
            ++result.total;
    progress.OnShowingScanProgBar();
    progress.OnSettingsForPrgBar(static_cast<unsigned long>(list.size()),
                                 QStringLiteral("Scanning Database. Please Wait..."));

    FolderBuilder builder(store, progress);
    // The next few message files are analysed ahead on helper threads; the
    // results are attached and announced here in list order.
    AnalysisPipeline pipeline(qBound(1, QThread::idealThreadCount(), 8) - 1,
                              store.listOfPathOfEmlxPart);
    int ahead = 0; // entries submitted to the pipeline (or passed over)
    auto readAhead = [&](int from) {
        for (; ahead < list.size() && ahead - from < AnalysisPipeline::kWindow; ++ahead) {
            const FoundEntry& e = list.at(ahead);
            if (IsAnalysed(e) && !options.foldersOnly)
                pipeline.Submit(e.path);
        }
    };
    TextPool pool;
    unsigned long long currentFolder = 0;
    QString lastFolderOf; // the folder (path up to the file name) of the last message
    QString lastDir;      // the last message's folder, shared by the next ones of it
    quint64 taken = 0;    // message entries taken from the list so far
    for (int i = 0; i < list.size(); ++i) {
        // The listing's paths go as the store takes their messages (with
        // their folders shared): the two are not held whole at once.
        if (i > 0)
            list[i - 1] = FoundEntry();
        readAhead(i);
        if (stop) {
            result.ending = RunResult::Ending::Stopped;
            break;
        }
        const FoundEntry& entry = list.at(i);
        if (!IsMessageEntry(entry)) {
            progress.CurrentValue();
            continue;
        }
        const QString& line = entry.path;
        // A folder that could not be read: like a message file that cannot
        // be opened, it ends the scan unless the user asked to go on.
        if (!entry.error.isEmpty()) {
            ++taken;
            if (!options.keepGoing) {
                result.EndAt(RunResult::Ending::UnreadableFile, line, entry.error,
                             result.total - taken + 1);
                return Finished(store);
            }
            result.Skip(line, entry.error);
            progress.CurrentValue();
            continue;
        }
        if (IsAppleDoubleName(line)) {
            result.notMessages.append({line, WhyNotAMessage(line, nullptr, 0)});
            progress.CurrentValue();
            continue;
        }
        ++taken;
        const QString numberText = MessageNumberText(line);
        // Messages of one folder come one after the other: the folder path
        // is worked out again only when the file's folder changes.
        const QString folderOf = line.left(line.lastIndexOf(QLatin1Char('/')) + 1);
        if (folderOf != lastFolderOf || builder.llParentIdRunning == 0) {
            builder.treeCreator(
                FolderPartsForMessage(line, options.m_strDefaultMailPath, m_strInputfilepath));
            lastFolderOf = folderOf;
            // Room for the messages of this file's folder, which follow it
            // in the listing: the list does not grow into spare room.
            if (FldrAtrib* folder = store.Folder(builder.llParentIdRunning)) {
                int n = 1;
                while (i + n < list.size() && list.at(i + n).path.startsWith(folderOf) &&
                       list.at(i + n).path.indexOf(QLatin1Char('/'), folderOf.size()) < 0)
                    ++n;
                folder->messages.reserve(folder->messages.size() + size_t(n));
            }
        }
        if (currentFolder != builder.llParentIdRunning)
            progress.ClearLeftTree();
        currentFolder = builder.llParentIdRunning;

        Analysis outcome = Analysis::Message;
        QString why;
        MailItem item = options.foldersOnly ? MailItem() : pipeline.Take(&outcome, &why);
        if (outcome == Analysis::NotAMessage) {
            result.notMessages.append({line, why});
            --result.total;
            --taken;
            progress.CurrentValue();
            continue;
        }
        store.IsConverted = true;
        FldrAtrib* folder = store.Folder(builder.llParentIdRunning);
        if (!folder) {
            // Only a message without a folder path that comes before every
            // folder of the scan has no folder to go to; it is left out.
            progress.CurrentValue();
            continue;
        }
        const bool opened = outcome == Analysis::Message;
        if (!opened && options.keepGoing) {
            result.Skip(line, why);
            progress.CurrentValue();
            continue;
        }
        item.SetPath(line, lastDir);
        lastDir = item.dir;
        item.ullNumber = MessageNumberValue(numberText);
        item.readable = opened;
        for (QByteArray* text : {&item.plainCharset, &item.htmlCharset, &item.transferEncoding})
            pool.Share(*text);
        folder->messages.push_back(std::move(item));

        // A message file that cannot be opened ends the scan; the record
        // keeps its place without being announced.
        if (!opened) {
            result.EndAt(RunResult::Ending::UnreadableFile, line, why, result.total - taken + 1);
            return Finished(store);
        }
        AnnounceItem(progress, *folder, numberText);
        result.Count(folder->path);
        progress.CurrentValue();
    }
    return Finished(store);
}
