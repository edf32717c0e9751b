// The scan of a mail store: list the message files with find, convert the
// list to UTF-16 with iconv, then walk it one message file at a time, giving
// each message its folder and record and announcing it to the window.
#include "scanner/AnalysisPipeline.h"
#include "scanner/Discovery.h"
#include "scanner/Globals.h"
#include "scanner/MessageAnalysis.h"
#include "scanner/Records.h"
#include "scanner/ScaningThread.h"

#include <QFile>
#include <QTextStream>
#include <QThread>

#include <deque>

namespace {

// A line of the message list that names a message to scan: the built-in RSS
// feed's folder is left out.
bool IsMessageLine(const QString& line) {
    return !line.isEmpty() && !line.contains(kRssFeedMarker);
}

// Announces one analysed message to the window. The folder's label state is
// 0 for its first announced message and 2 afterwards.
void AnnounceItem(ScaningThread* thread, FldrAtrib* folder, MailItem* item,
                  const QString& numberText) {
    if (!folder->pTreeItem || !folder->pLastMail)
        return;
    QString title = Utf16Text(item->pSubject, item->ulSubjectSize);
    if (title.isEmpty())
        title = QStringLiteral("Unknown");
    emit thread->NewItem(title, numberText, folder->pTreeItem, folder->ullId, folder->ullMsgCount,
                         item->pAttachTail != nullptr, item->iPriority, folder->iLabelState);
    folder->iLabelState = 2;
}

} // namespace

void ScaningThread::EMLXFinder() {
    m_scanResult = RunResult();
    RunResult& result = m_scanResult;
    objMapFID_Name.clear();
    objMapName_FID.clear();
    objMapFID_PID.clear();
    m_pMainWindow = pMainWindow;
    GetUserName();
    listOfPathOfEmlxPart.clear();

    const QString tmp = TempDir();
    const QString emlxList = tmp + QStringLiteral("/QuenmoorEmlx");
    const QString emlxList16 = tmp + QStringLiteral("/VortigaEmlx");
    const QString partList = tmp + QStringLiteral("/QuenmoorEmlxPart");
    const QString partList16 = tmp + QStringLiteral("/VortigaEmlxPart");
    const QString store = ShellQuote(m_strInputfilepath);

    // find's error messages (unreadable folders) land in the lists as well.
    RunShellCommand(QStringLiteral("find ") + store + QStringLiteral("  -name \"*.emlx\" >& ") +
                    ShellQuote(emlxList));
    RunShellCommand(QStringLiteral("iconv -f utf-8 -t utf-16 ") + ShellQuote(emlxList) +
                    QStringLiteral(">&") + ShellQuote(emlxList16));
    RunShellCommand(QStringLiteral("find ") + store + QStringLiteral("  -name \"*.emlxpart\" >& ") +
                    ShellQuote(partList));
    RunShellCommand(QStringLiteral("iconv -f utf-8 -t utf-16 ") + ShellQuote(partList) +
                    QStringLiteral(">&") + ShellQuote(partList16));

    {
        // Read as bytes, like the message list below: a text-mode read would
        // drop a carriage return inside a folder name.
        QFile parts(partList);
        if (!parts.open(QIODevice::ReadOnly)) {
            result.EndAt(RunResult::Ending::Failed, partList, parts.errorString(), 0);
            return;
        }
        QTextStream in(&parts);
        in.setCodec("UTF-8");
        while (!in.atEnd()) {
            const QString line = in.readLine();
            if (!line.isEmpty())
                listOfPathOfEmlxPart.append(line.trimmed());
        }
        parts.close();
        QFile::remove(partList);
    }

    // The UTF-16 list is read as bytes: a text-mode read would drop every
    // 0x0D byte, which is half of characters such as U+010D. The stream
    // finds the encoding from the byte-order mark and handles line ends.
    QFile list(emlxList16);
    if (!list.open(QIODevice::ReadOnly)) {
        result.EndAt(RunResult::Ending::Failed, emlxList16, list.errorString(), 0);
        return;
    }
    m_ulTotalFiles = 0;
    IsConverted = false;
    {
        QTextStream counter(&list);
        while (!counter.atEnd()) {
            if (IsMessageLine(counter.readLine()))
                ++result.total;
            ++m_ulTotalFiles;
        }
    }
    list.seek(0);

    emit OnShowingScanProgBar();
    emit OnSettingsForPrgBar(static_cast<unsigned long>(m_ulTotalFiles),
                             QStringLiteral("Scanning Database. Please Wait..."));

    // The next few message files are analysed ahead on helper threads; the
    // results are attached and announced here in list order.
    struct ListLine {
        QString text;
        bool message;
    };
    std::deque<ListLine> ahead;
    AnalysisPipeline pipeline(qBound(1, QThread::idealThreadCount(), 8));
    QTextStream in(&list);
    auto readAhead = [&] {
        while (pipeline.Queued() < AnalysisPipeline::kWindow && !in.atEnd()) {
            // The line is used as it stands: a path may end in blanks.
            const QString text = in.readLine();
            const bool message = IsMessageLine(text);
            if (message)
                pipeline.Submit(text);
            ahead.push_back({text, message});
        }
    };
    unsigned long long currentFolder = 0;
    quint64 taken = 0; // message lines taken from the list so far
    for (readAhead(); !ahead.empty(); readAhead()) {
        if (bStopFlag) {
            result.ending = RunResult::Ending::Stopped;
            break;
        }
        const ListLine entry = ahead.front();
        ahead.pop_front();
        if (!entry.message) {
            emit CurrentValue();
            continue;
        }
        const QString& line = entry.text;
        ++taken;
        IsConverted = true;
        const QString numberText = MessageNumberText(line);
        const QString folderPath =
            FolderPathForMessage(line, m_strDefaultMailPath, m_strInputfilepath);
        treeCreator(folderPath);
        if (currentFolder != llParentIdRunning)
            emit ClearLeftTree();
        currentFolder = llParentIdRunning;

        bool opened = false;
        QString error;
        MailItem* item = pipeline.Take(&opened, &error);
        FldrAtrib* folder = FindFolderRecord(llParentIdRunning);
        if (!folder) {
            // Only a message without a folder path that comes before every
            // folder of the scan has no folder to go to; it is left out.
            FreeMailItem(item);
            emit CurrentValue();
            continue;
        }
        if (!opened && m_options.keepGoing) {
            FreeMailItem(item);
            result.Skip(line, error);
            emit CurrentValue();
            continue;
        }
        AppendMailToFolder(folder, item);
        SetUtf16(&item->pPath, &item->ulPathSize, line);
        item->ullNumber = MessageNumberValue(numberText);

        // A message file that cannot be opened ends the scan; the list file
        // stays and the item keeps its place without being announced.
        if (!opened) {
            result.EndAt(RunResult::Ending::UnreadableFile, line, error, result.total - taken + 1);
            return;
        }
        AnnounceItem(this, folder, item, numberText);
        result.Count(folderPath);
        emit CurrentValue();
    }
    list.close();
    QFile::remove(emlxList16);
}
