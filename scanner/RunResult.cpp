#include "scanner/RunResult.h"

void RunResult::Count(const QString& folder) {
    auto it = m_index.constFind(folder);
    if (it == m_index.constEnd()) {
        it = m_index.insert(folder, folders.size());
        folders.append({folder, 0});
    }
    ++folders[*it].messages;
}

void RunResult::EndAt(Ending how, const QString& path, const QString& why, quint64 left) {
    ending = how;
    file = path;
    reason = why;
    notDone = left;
}
