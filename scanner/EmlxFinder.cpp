// The scan of a mail store: list the message files with find, then walk the
// list one message file at a time, giving each message its folder and record
// and announcing it to the window.
#include "scanner/AnalysisPipeline.h"
#include "scanner/Discovery.h"
#include "scanner/FileAccess.h"
#include "scanner/Globals.h"
#include "scanner/MessageAnalysis.h"
#include "scanner/Records.h"
#include "scanner/ScaningThread.h"

#include <QFile>
#include <QThread>

#include <deque>
#include <unistd.h>

namespace {

// find writes a NUL after each name, since a name may hold any other byte
// (a line feed too), and its messages (unreadable folders) to a file of
// their own. Both files are made anew, readable by the user alone, before
// the shell writes into them. A store path that starts with "-" is given as
// "./-..." so that find does not take it for an option. False when the
// files cannot be made.
bool ListFiles(const QString& store, const char* pattern, const QString& list,
               const QString& errors) {
    for (const QString& file : {list, errors}) {
        const int fd = pellomar::CreatePrivateFile(file);
        if (fd < 0)
            return false;
        ::close(fd);
    }
    const QString start = store.startsWith(QLatin1Char('-')) ? QStringLiteral("./") + store : store;
    pellomar::RunShellCommand(QStringLiteral("find ") + pellomar::ShellQuote(start) +
                              QStringLiteral("  -name \"") + QLatin1String(pattern) +
                              QStringLiteral("\" -print0 > ") + pellomar::ShellQuote(list) +
                              QStringLiteral(" 2> ") + pellomar::ShellQuote(errors));
    return true;
}

// Reads what ListFiles wrote: the names in find's order, then each of find's
// messages as one more entry, as the lines of a shared list would have
// carried them. Names are the file system's bytes (see FileAccess.h).
class FoundFiles {
public:
    FoundFiles(const QString& store, const QString& list, const QString& errors)
        : m_strip(store.startsWith(QLatin1Char('-'))), m_list(list), m_errors(errors) {}

    bool Open(QString* reason) {
        const int fd = pellomar::OpenRegularFile(m_list, reason);
        if (fd < 0 || !m_file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
            if (fd >= 0)
                *reason = m_file.errorString();
            return false;
        }
        QFile errors(m_errors);
        if (errors.open(QIODevice::ReadOnly)) {
            m_messages = errors.readAll().split('\n');
            if (!m_messages.isEmpty() && m_messages.constLast().isEmpty())
                m_messages.removeLast();
        }
        return true;
    }

    // The next entry; false after the last one.
    bool Next(QString* entry) {
        for (;;) {
            const int nul = m_buffer.indexOf('\0', m_searchFrom);
            if (nul >= 0) {
                *entry = Name(m_buffer.mid(m_pos, nul - m_pos));
                m_pos = m_searchFrom = nul + 1;
                return true;
            }
            const QByteArray more = m_file.read(65536);
            if (more.isEmpty())
                break;
            m_buffer.remove(0, m_pos);
            m_searchFrom = m_buffer.size();
            m_pos = 0;
            m_buffer += more;
        }
        if (m_pos < m_buffer.size()) { // a last name without its NUL
            *entry = Name(m_buffer.mid(m_pos));
            m_pos = m_searchFrom = m_buffer.size();
            return true;
        }
        if (m_message < m_messages.size()) {
            *entry = QFile::decodeName(m_messages.at(m_message++));
            return true;
        }
        return false;
    }

    void Rewind() {
        m_file.seek(0);
        m_buffer.clear();
        m_pos = m_searchFrom = m_message = 0;
    }

    // The files are gone once the list has been read.
    void Remove() {
        m_file.close();
        QFile::remove(m_list);
        QFile::remove(m_errors);
    }

private:
    QString Name(QByteArray bytes) const {
        if (m_strip && bytes.startsWith("./"))
            bytes.remove(0, 2);
        return QFile::decodeName(bytes);
    }

    const bool m_strip;
    const QString m_list, m_errors;
    QFile m_file;
    QByteArray m_buffer;
    int m_pos = 0, m_searchFrom = 0;
    QList<QByteArray> m_messages;
    int m_message = 0;
};

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

    const QString tmp = pellomar::TempDir();
    if (tmp.isEmpty()) {
        result.EndAt(RunResult::Ending::Failed, QString(),
                     QStringLiteral("no folder for temporary files"), 0);
        return;
    }
    const QString emlxList = tmp + QStringLiteral("/QuenmoorEmlx");
    const QString partList = tmp + QStringLiteral("/QuenmoorEmlxPart");
    const QString errorsSuffix = QStringLiteral("Errors");
    if (!ListFiles(m_strInputfilepath, "*.emlx", emlxList, emlxList + errorsSuffix) ||
        !ListFiles(m_strInputfilepath, "*.emlxpart", partList, partList + errorsSuffix)) {
        result.EndAt(RunResult::Ending::Failed, tmp, QStringLiteral("cannot make the file lists"),
                     0);
        return;
    }

    {
        FoundFiles parts(m_strInputfilepath, partList, partList + errorsSuffix);
        QString reason;
        if (!parts.Open(&reason)) {
            result.EndAt(RunResult::Ending::Failed, partList, reason, 0);
            return;
        }
        QString path;
        while (parts.Next(&path))
            if (!path.isEmpty())
                listOfPathOfEmlxPart.append(path);
        parts.Remove();
    }

    FoundFiles list(m_strInputfilepath, emlxList, emlxList + errorsSuffix);
    {
        QString reason;
        if (!list.Open(&reason)) {
            result.EndAt(RunResult::Ending::Failed, emlxList, reason, 0);
            return;
        }
    }
    m_ulTotalFiles = 0;
    IsConverted = false;
    for (QString entry; list.Next(&entry); ++m_ulTotalFiles)
        if (IsMessageLine(entry))
            ++result.total;
    list.Rewind();

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
    bool more = true;
    auto readAhead = [&] {
        QString text;
        while (more && int(ahead.size()) < AnalysisPipeline::kWindow) {
            more = list.Next(&text);
            if (!more)
                break;
            const bool message = IsMessageLine(text);
            if (message && !m_options.foldersOnly)
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

        bool opened = m_options.foldersOnly;
        QString error;
        MailItem* item = opened ? NewMailItem() : pipeline.Take(&opened, &error);
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

        // A message file that cannot be opened ends the scan; the list files
        // stay and the item keeps its place without being announced.
        if (!opened) {
            result.EndAt(RunResult::Ending::UnreadableFile, line, error, result.total - taken + 1);
            return;
        }
        AnnounceItem(this, folder, item, numberText);
        result.Count(folderPath);
        emit CurrentValue();
    }
    list.Remove();
}
