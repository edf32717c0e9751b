#include "scanner/EmlxLines.h"

#include <algorithm>
#include <limits>

namespace emlx {

bool HasMark(const char* data, qint64 size) {
    const char* end = data + size;
    for (const char* p = data; p < end; ++p) {
        p = static_cast<const char*>(memchr(p, '<', size_t(end - p)));
        if (!p)
            return false;
        if (MarkAt(p, end - p))
            return true;
    }
    return false;
}

void CountReader::Add(const char* data, qint64 size) {
    for (qint64 i = 0; i < size && m_state != State::Bad; ++i, ++m_seen) {
        const auto c = static_cast<unsigned char>(data[i]);
        if (m_need > 0) {
            m_seq[m_have++] = c;
            if (m_have == m_need)
                Sequence();
        } else if (c >= '0' && c <= '9') {
            const quint64 max = std::numeric_limits<quint64>::max();
            const unsigned digit = c - '0';
            if (m_state == State::After || m_value > (max - digit) / 10) {
                m_state = State::Bad;
            } else {
                m_state = State::Digits;
                m_value = m_value * 10 + digit;
            }
        } else if (c == ' ' || (c >= '\t' && c <= '\r')) {
            Space();
        } else if (c == '+' && m_state == State::Before) {
            m_state = State::Sign;
        } else if (c == 0xC2 || (c >= 0xE1 && c <= 0xE3) || (c == 0xEF && m_seen == 0)) {
            // The leading bytes of the white space outside ASCII, and of a
            // byte-order mark at the start of the text.
            m_seq[0] = c;
            m_have = 1;
            m_need = c == 0xC2 ? 2 : 3;
        } else {
            m_state = State::Bad;
        }
    }
}

void CountReader::Space() {
    if (m_state == State::Sign)
        m_state = State::Bad;
    else if (m_state == State::Digits)
        m_state = State::After;
}

void CountReader::Sequence() {
    const unsigned b0 = m_seq[0], b1 = m_seq[1], b2 = m_seq[2];
    const bool two = m_need == 2;
    m_have = m_need = 0;
    if ((b1 & 0xC0) != 0x80 || (!two && (b2 & 0xC0) != 0x80)) {
        m_state = State::Bad; // not UTF-8: the decoder puts U+FFFD there
        return;
    }
    const unsigned code = two ? ((b0 & 0x1F) << 6) | (b1 & 0x3F)
                              : ((b0 & 0x0F) << 12) | ((b1 & 0x3F) << 6) | (b2 & 0x3F);
    if (code == 0xFEFF)
        return; // a byte-order mark at the start, which the decoder drops
    // What QChar::isSpace() takes for white space beyond ASCII.
    if (code == 0x85 || code == 0xA0 || code == 0x1680 || (code >= 0x2000 && code <= 0x200A) ||
        code == 0x2028 || code == 0x2029 || code == 0x202F || code == 0x205F || code == 0x3000)
        Space();
    else
        m_state = State::Bad;
}

quint64 CountReader::Value() const {
    if (m_need > 0 || (m_state != State::Digits && m_state != State::After))
        return 0;
    return m_value;
}

quint64 ByteCount(const char* text, qint64 size) {
    CountReader reader;
    reader.Add(text, size);
    return reader.Value();
}

qint64 SatAdd(qint64 a, qint64 b) {
    const qint64 max = std::numeric_limits<qint64>::max();
    const qint64 min = std::numeric_limits<qint64>::min();
    if (b > 0 && a > max - b)
        return max;
    if (b < 0 && a < min - b)
        return min;
    return a + b;
}

qint64 SatSub(qint64 a, qint64 b) {
    if (b == std::numeric_limits<qint64>::min())
        return a >= 0 ? std::numeric_limits<qint64>::max() : a - b;
    return SatAdd(a, -b);
}

PartFileIndex::PartFileIndex(const QStringList& partFiles) {
    m_sorted.reserve(size_t(partFiles.size()));
    for (int i = 0; i < partFiles.size(); ++i)
        m_sorted.push_back({partFiles.at(i), i});
    std::sort(m_sorted.begin(), m_sorted.end(),
              [](const Entry& a, const Entry& b) { return a.path < b.path; });
}

QStringList PartFileIndex::Candidates(const QString& messagePath) const {
    QString stem = messagePath;
    stem.remove(QStringLiteral("partial.emlx"), Qt::CaseSensitive);
    auto it = std::lower_bound(m_sorted.begin(), m_sorted.end(), stem,
                               [](const Entry& e, const QString& s) { return e.path < s; });
    std::vector<const Entry*> found;
    for (; it != m_sorted.end() && it->path.startsWith(stem); ++it)
        found.push_back(&*it);
    std::sort(found.begin(), found.end(),
              [](const Entry* a, const Entry* b) { return a->order < b->order; });
    QStringList out;
    for (const Entry* e : found)
        out.append(e->path);
    return out;
}

QStringList PartFileCandidates(const QString& messagePath, const QList<QString>& partFiles) {
    QString stem = messagePath;
    stem.remove(QStringLiteral("partial.emlx"), Qt::CaseSensitive);
    QStringList out;
    for (const QString& p : partFiles)
        if (p.contains(stem, Qt::CaseSensitive))
            out.append(p);
    return out;
}

} // namespace emlx
