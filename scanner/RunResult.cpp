#include "scanner/RunResult.h"

void RunResult::Count(const QString& folder, const Losses& losses) {
    auto it = m_index.constFind(folder);
    if (it == m_index.constEnd()) {
        it = m_index.insert(folder, folders.size());
        folders.append({folder});
    }
    Folder& f = folders[*it];
    ++f.messages;
    ++done;
    if (losses.converted) {
        ++f.converted;
        ++converted;
    }
    f.droppedLines += losses.droppedLines;
    droppedLines += losses.droppedLines;
    f.cutLines += losses.cutLines;
    cutLines += losses.cutLines;
}

void RunResult::EndAt(Ending how, const QString& path, const QString& why, quint64 left) {
    ending = how;
    file = path;
    reason = why;
    notDone = left;
}
