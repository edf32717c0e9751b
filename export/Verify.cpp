#include "export/Verify.h"
#include "export/MboxWriter.h"
#include "export/MessageDigest.h"
#include "export/PathMapping.h"
#include "scanner/DetachedParts.h"
#include "scanner/Discovery.h"
#include "scanner/EmlxLines.h"
#include "scanner/FileAccess.h"
#include "scanner/RunProgress.h"
#include "scanner/Store.h"

#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSet>

#include <algorithm>
#include <cstring>
#include <deque>
#include <functional>
#include <thread>
#include <unistd.h>

using verify::BodySource;
using verify::LeafDigest;
using verify::MessageDigest;
using verify::MessageDigester;

namespace {

constexpr qint64 kChunk = 256 * 1024;

bool OpenForReading(QFile& file, const QString& path, QString* reason) {
    return MboxWriter::OpenForReading(file, path, reason);
}

// ---- The package side -------------------------------------------------------

// The first "\n" + separator line in data[0, size), or null. The search
// goes from "@" to "@": the separator holds one where mail text seldom has
// any, so the library's fast byte search does most of the work.
const char* FindSeparator(const char* data, qint64 size, const QByteArray& nlSep) {
    const qint64 anchor = nlSep.indexOf('@');
    if (anchor < 0)
        return static_cast<const char*>(
            memmem(data, size_t(size), nlSep.constData(), size_t(nlSep.size())));
    const char* end = data + size;
    for (const char* p = data + anchor; p < end;) {
        const char* at = static_cast<const char*>(memchr(p, '@', size_t(end - p)));
        if (!at)
            return nullptr;
        const char* start = at - anchor;
        if (end - start >= nlSep.size() &&
            memcmp(start, nlSep.constData(), size_t(nlSep.size())) == 0)
            return start;
        p = at + 1;
    }
    return nullptr;
}

// Reads an mbox file message by message: each one from after its separator
// line up to the next (or the end), to `each`. Before each message,
// `decodeBase64()` says whether its base64 parts are decoded on this first
// reading: a part put back from Mail's decoded copy is then compared with
// that copy without reading the message again.
template <class Each, class DecodeBase64>
bool ReadMbox(const QString& path, bool decode, DecodeBase64&& decodeBase64,
              const std::atomic<bool>& stop, Each&& each, qint64 from = 0, qint64 to = -1) {
    QFile file;
    QString reason;
    if (!OpenForReading(file, path, &reason) || !file.seek(from))
        return false;
    const QByteArray sep = MboxWriter::Separator();
    const QByteArray nlSep = '\n' + sep;
    MessageDigester digester(decode, verify::Digests::Raw, decodeBase64());
    QByteArray buf;
    buf.reserve(int(kChunk) + nlSep.size());
    qint64 base = from;       // file position of buf[0]
    qint64 cursor = 0;        // bytes of buf handed on
    qint64 begin = from;      // the message under way starts here (file position)
    bool started = false;     // the start of the file has been looked at
    bool haveMessage = false; // a message is under way
    bool eof = false;
    auto finish = [&](qint64 end) {
        MessageDigest m = digester.Finish();
        m.file = path;
        m.begin = begin;
        m.end = end;
        each(std::move(m));
        digester.SetDecodeBase64(decodeBase64());
    };
    while (!stop) {
        if (!eof) {
            // Read straight into the buffer's end (it keeps its allocation:
            // only the few bytes a separator may begin with move to its
            // front).
            const qint64 room = to < 0 ? kChunk : std::min(kChunk, to - (base + buf.size()));
            const int had = buf.size();
            qint64 got = 0;
            if (room > 0) {
                buf.resize(had + int(room));
                got = std::max<qint64>(file.read(buf.data() + had, room), 0);
            }
            buf.resize(had + int(got));
            eof = got == 0;
        }
        if (!started) {
            // The first message follows a separator at the start; bytes
            // before the first separator are a message too.
            if (buf.size() < sep.size() && !eof)
                continue;
            started = true;
            if (buf.startsWith(sep)) {
                cursor = sep.size();
                haveMessage = true;
            } else {
                haveMessage = !buf.isEmpty();
            }
            begin = base + cursor;
        }
        for (;;) {
            const qint64 from = std::max<qint64>(cursor - 1, 0);
            const char* found = FindSeparator(buf.constData() + from, buf.size() - from, nlSep);
            if (!found)
                break;
            const qint64 at = found - buf.constData();
            digester.Add(buf.constData() + cursor, at + 1 - cursor);
            finish(base + at + 1);
            cursor = at + 1 + sep.size();
            begin = base + cursor;
            haveMessage = true;
        }
        if (eof) {
            digester.Add(buf.constData() + cursor, buf.size() - cursor);
            if (haveMessage)
                finish(base + buf.size());
            break;
        }
        // Keep what a separator across the next read may begin with.
        const qint64 keep = std::max<qint64>(cursor, buf.size() - nlSep.size());
        digester.Add(buf.constData() + cursor, keep - cursor);
        buf.remove(0, int(keep));
        base += keep;
        cursor = 0;
    }
    return true;
}

// ---- The store side ---------------------------------------------------------

// Where the body of a detached part of the message at `path` is: Mail's
// .emlxpart file named by the part's section, else its decoded copy under
// Attachments, else nowhere.
MessageDigester::DetachedBody DetachedBodyOf(const QString& path, const QString& section) {
    const int dot = path.indexOf(QLatin1Char('.'), path.lastIndexOf(QLatin1Char('/')) + 1);
    const QString part = path.left(dot + 1) + section + QStringLiteral(".emlxpart");
    if (dot > 0 && QFileInfo(part).isFile())
        return {BodySource::PartFile, part};
    const QString decoded = AttachmentsFile(path, section);
    if (!decoded.isEmpty())
        return {BodySource::DecodedFile, decoded};
    return {BodySource::NotInStore, QString()};
}

// The message of a store file: its bytes after the byte count line, as many
// as the count says (without a count: up to the trailer). `notAMessage`,
// when given, receives why the file holds no message; such a file is not
// read further.
bool DigestSource(const QString& path, bool decode, verify::Digests digests, MessageDigest* out,
                  QString* reason, QString* notAMessage = nullptr) {
    QFile file;
    if (!OpenForReading(file, path, reason))
        return false;
    const qint64 size = file.size();
    // The first piece holds the whole of most messages. The thread's
    // buffers serve one message after another.
    thread_local QByteArray headBuffer, pieceBuffer;
    QByteArray& head = headBuffer;
    head.resize(int(std::min(size, kChunk)));
    head.resize(int(std::max<qint64>(file.read(head.data(), head.size()), 0)));
    if (notAMessage) {
        *notAMessage = WhyNotAMessage(path, head.constData(), std::min(head.size(), 512));
        if (!notAMessage->isEmpty())
            return true;
    }
    // The first line: the byte count. One longer than a piece holds none.
    qint64 countEnd = size;
    quint64 count = 0;
    if (const void* nl = memchr(head.constData(), '\n', size_t(head.size()))) {
        countEnd = static_cast<const char*>(nl) - head.constData() + 1;
        const void* nul = memchr(head.constData(), 0, size_t(countEnd));
        count = emlx::ByteCount(head.constData(),
                                nul ? static_cast<const char*>(nul) - head.constData() : countEnd);
    } else {
        qint64 at = head.size();
        for (QByteArray piece; !(piece = file.read(kChunk)).isEmpty(); at += piece.size()) {
            if (const void* n = memchr(piece.constData(), '\n', size_t(piece.size()))) {
                countEnd = at + (static_cast<const char*>(n) - piece.constData()) + 1;
                break;
            }
        }
        head.clear();
    }
    qint64 end = size;
    bool lastLineTrailer = false;
    if (count > 0) {
        end = countEnd + qint64(std::min<quint64>(count, quint64(size)));
        end = std::min(end, size);
        // Mail's trailer begins right after the message. When the message
        // does not end its last line, that line goes on into the trailer,
        // and the copy loses it when a trailer mark is on it.
        if (end < size) {
            const qint64 from = std::max(countEnd, end - emlx::kLongestMark);
            const qint64 to = std::min(size, end + emlx::kLongestMark);
            QByteArray around;
            if (to <= head.size())
                around = head.mid(int(from), int(to - from));
            else if (file.seek(from))
                around = file.read(to - from);
            const int at = int(end - from); // the first byte after the message
            if (at > 0 && at <= around.size() && around.at(at - 1) != '\n') {
                const int start = around.lastIndexOf('\n', at - 1) + 1;
                const int stop = around.indexOf('\n', at);
                lastLineTrailer = emlx::HasMark(around.constData() + start,
                                                (stop < 0 ? around.size() : stop) - start);
            }
        }
    } else {
        // No count: the message ends at the first line with a trailer mark.
        if (!file.seek(countEnd)) {
            *reason = file.errorString();
            return false;
        }
        qint64 lineStart = countEnd;
        QByteArray line;
        for (QByteArray piece; !(piece = file.read(kChunk)).isEmpty();) {
            bool found = false;
            for (int i = 0; i < piece.size() && !found;) {
                const int n = piece.indexOf('\n', i);
                line += piece.mid(i, n < 0 ? -1 : n + 1 - i);
                if (emlx::HasMark(line.constData(), line.size())) {
                    end = lineStart;
                    found = true;
                } else if (n >= 0) {
                    lineStart += line.size();
                    line.clear();
                } else if (line.size() > 4096) {
                    line = line.right(emlx::kLongestMark);
                }
                i = n < 0 ? piece.size() : n + 1;
            }
            if (found)
                break;
        }
    }
    MessageDigester digester(decode, digests);
    digester.SetDetachedBodies(
        [&path](const QString& section) { return DetachedBodyOf(path, section); });
    qint64 at = countEnd;
    if (at < head.size()) {
        const qint64 n = std::min<qint64>(end, head.size()) - at;
        digester.Add(head.constData() + at, n);
        at += n;
    }
    if (at < end && !file.seek(at)) {
        *reason = file.errorString();
        return false;
    }
    while (at < end) {
        QByteArray& piece = pieceBuffer;
        piece.resize(int(std::min(kChunk, end - at)));
        const qint64 got = file.read(piece.data(), piece.size());
        if (got <= 0)
            break;
        digester.Add(piece.constData(), got);
        at += got;
    }
    *out = digester.Finish(lastLineTrailer);
    out->leaves.squeeze(); // kept until the package's message is compared
    out->begin = countEnd;
    out->end = end;
    return true;
}

// ---- Comparing --------------------------------------------------------------

struct Source {
    const MailItem* item; // its path is made when it is needed
    QString mbox;         // where it should be
    int folder;           // index into the result's folders
    MessageDigest digest;
    bool read = false;
    bool matched = false;
    QString reason;         // why it could not be read
    QString notAMessage;    // why it holds no message
    Source* next = nullptr; // the next one with the same key, in a SourceQueues
};

// The store's messages by key, each key's in the store's order: a list
// through the messages themselves, so a store's worth of keys takes no
// container per key.
class SourceQueues {
public:
    void Append(Source* s) {
        s->next = nullptr;
        Queue& q = m_queues[s->digest.key];
        (q.head ? q.tail->next : q.head) = s;
        q.tail = s;
    }
    // The first one waiting with `key`, taken out; null when there is none.
    Source* Take(quint64 key) {
        auto it = m_queues.find(key);
        if (it == m_queues.end() || !it->head)
            return nullptr;
        Source* s = it->head;
        it->head = s->next;
        return s;
    }

private:
    struct Queue {
        Source* head = nullptr;
        Source* tail = nullptr;
    };
    QHash<quint64, Queue> m_queues;
};

QString PartName(const LeafDigest& leaf) {
    return QStringLiteral("section ") + leaf.section +
           (leaf.name.isEmpty() ? QString() : QStringLiteral(" (") + leaf.name + QLatin1Char(')'));
}

// The changes the default copy makes, by what the lines hold.
QStringList CopyChanges(bool eightBit, bool nul, bool marker) {
    QStringList kinds;
    if (eightBit)
        kinds << QStringLiteral("Latin-1");
    if (marker)
        kinds << QStringLiteral("trailer mark");
    if (nul)
        kinds << QStringLiteral("NUL byte");
    return kinds;
}

class Comparison {
public:
    Comparison(const VerifyJob& job, QList<VerifyFinding>& findings)
        : m_job(job), m_findings(findings) {}

    // Compares a message found where it belongs; returns 0 verified, 1
    // changed as expected, 2 fault.
    int Compare(Source& s, const MessageDigest& p) {
        if (p.empty) {
            Fault(s, p.file, QStringLiteral("empty message"), QString(),
                  QStringLiteral("the package holds an empty message in its place"));
            return 2;
        }
        if (NeedsSecondLook(s.digest, p)) {
            MessageDigest source, package;
            QString reason;
            bool read = DigestSource(s.item->Path(), true, verify::Digests::All, &source, &reason);
            ReadMbox(
                p.file, true, [] { return true; }, m_never,
                [&](MessageDigest m) { package = std::move(m); }, p.begin, p.end);
            if (read)
                return Classify(s, source, package);
        }
        return Classify(s, s.digest, p);
    }

    void Fault(const Source& s, const QString& mbox, const QString& kind, const QString& part,
               const QString& detail) {
        m_findings.append({true, kind, QString(), part, mbox, detail, s.item});
    }

private:
    // The parts' bytes are decoded only where their lines differ in a way
    // the copy does not explain. A part put back from Mail's decoded copy
    // is encoded anew: in base64 its decoded bytes are known from the first
    // reading; in another encoding it takes a second look.
    static bool NeedsSecondLook(const MessageDigest& s, const MessageDigest& p) {
        if (s.leaves.size() != p.leaves.size())
            return true;
        for (int i = 0; i < s.leaves.size(); ++i) {
            const LeafDigest& a = s.leaves[i];
            const LeafDigest& b = p.leaves[i];
            if (a.section != b.section)
                return true;
            if (a.source == BodySource::DecodedFile
                    ? a.decoded != b.decoded
                    : (!a.rawKnown || a.raw != b.raw) && a.copied != b.raw)
                return true;
        }
        return false;
    }

    int Classify(Source& s, const MessageDigest& src, const MessageDigest& pkg) {
        int worst = 0;
        QStringList changes;
        auto expected = [&](const QStringList& kinds, const QString& part) {
            if (m_job.keepBytes) {
                Fault(s, pkg.file, QStringLiteral("part differs"), part,
                      QStringLiteral("changed (") + kinds.join(QStringLiteral(", ")) +
                          QStringLiteral(") although every byte was to be kept"));
                worst = 2;
                return;
            }
            for (const QString& k : kinds) {
                m_findings.append({false, k, QString(), part, pkg.file, DescribeChange(k), s.item});
                worst = std::max(worst, 1);
            }
        };
        if (src.header != pkg.header) {
            if (src.headerCopied == pkg.header)
                expected(CopyChanges(src.headerEightBit, src.headerNul, src.headerMarker),
                         QString());
            else {
                Fault(s, pkg.file, QStringLiteral("header differs"), QString(),
                      QStringLiteral("the header block is not the one in the store"));
                worst = 2;
            }
        }
        QHash<QString, const LeafDigest*> packageLeaves;
        for (const LeafDigest& l : pkg.leaves)
            packageLeaves.insert(l.section, &l);
        for (const LeafDigest& l : src.leaves) {
            const LeafDigest* p = packageLeaves.take(l.section);
            const QString part = SharedPartName(l);
            if (l.source == BodySource::NotInStore) {
                m_findings.append({false, QStringLiteral("not in the store"), QString(), part,
                                   pkg.file,
                                   QStringLiteral("Mail kept this part apart and the "
                                                  "store holds it in neither form"),
                                   s.item});
                worst = std::max(worst, 1);
                continue;
            }
            if (!p) {
                Fault(s, pkg.file, QStringLiteral("part missing"), part,
                      QStringLiteral("the package's message has no such part"));
                worst = 2;
                continue;
            }
            const bool decodedKnown = l.decoded != 0 || p->decoded != 0;
            if (l.rawKnown && l.raw == p->raw && l.source != BodySource::DecodedFile)
                continue;
            if (decodedKnown && l.decoded == p->decoded)
                continue;
            if (l.copied == p->raw || (decodedKnown && l.decodedCopied == p->decoded)) {
                expected(CopyChanges(l.eightBit, l.nul, l.marker), part);
                continue;
            }
            Fault(s, pkg.file, QStringLiteral("part differs"), part,
                  QStringLiteral("its bytes are not those the store holds"));
            worst = 2;
        }
        for (const LeafDigest* p : packageLeaves) {
            Fault(s, pkg.file, QStringLiteral("extra part"), PartName(*p),
                  QStringLiteral("the package's message has a part the store's has not"));
            worst = 2;
        }
        return worst;
    }

    // A part without a file name is named by its section alone: one string
    // for each section, however many messages' findings name it.
    QString SharedPartName(const LeafDigest& leaf) {
        if (!leaf.name.isEmpty())
            return PartName(leaf);
        auto it = m_partNames.constFind(leaf.section);
        if (it == m_partNames.constEnd())
            it = m_partNames.insert(leaf.section, PartName(leaf));
        return *it;
    }

    const VerifyJob& m_job;
    QList<VerifyFinding>& m_findings;
    const std::atomic<bool> m_never{false};
    QHash<QString, QString> m_partNames; // section -> its name
};

} // namespace

QString VerifyFinding::Message() const {
    return item ? item->Path() : message;
}

QString DescribeChange(const QString& kind, bool* keepBytesAvoids) {
    if (keepBytesAvoids)
        *keepBytesAvoids = kind != QLatin1String("not in the store");
    if (kind == QLatin1String("Latin-1"))
        return QStringLiteral("8-bit text converted to Latin-1");
    if (kind == QLatin1String("trailer mark"))
        return QStringLiteral("a line with a trailer mark dropped");
    if (kind == QLatin1String("NUL byte"))
        return QStringLiteral("a line cut at a NUL byte");
    if (kind == QLatin1String("not in the store"))
        return QStringLiteral("a part Mail kept apart that the store does not hold");
    return kind;
}

QMap<QString, quint64> ChangedMessagesByKind(const VerifyResult& result) {
    // Messages of the store by their records (no path made for each),
    // others by their names.
    QMap<QString, QSet<const MailItem*>> items;
    QMap<QString, QSet<QString>> named;
    for (const VerifyFinding& f : result.findings) {
        if (f.fault)
            continue;
        if (f.item)
            items[f.kind].insert(f.item);
        else
            named[f.kind].insert(f.message);
    }
    QMap<QString, quint64> counts;
    for (auto it = items.cbegin(); it != items.cend(); ++it)
        counts[it.key()] += quint64(it.value().size());
    for (auto it = named.cbegin(); it != named.cend(); ++it)
        counts[it.key()] += quint64(it.value().size());
    return counts;
}

QString VerifySummary(quint64 verified, quint64 changed, quint64 faults) {
    return QStringLiteral("%1 verified, %2 with expected changes, %3 %4")
        .arg(verified)
        .arg(changed)
        .arg(faults)
        .arg(QLatin1String(faults == 1 ? "fault" : "faults"));
}

VerifyResult Verify(const Store& store, const VerifyJob& job, RunProgress& progress,
                    const std::atomic<bool>& stop) {
    VerifyResult result;
    // Where each message of the chosen folders should be, in the store's
    // order; the folders of the result are the mbox files.
    PackageLayout layout(job.package, job.m_strInputfilepath, store.accountNames);
    const QSet<quint64> chosen(job.selection.cbegin(), job.selection.cend());
    std::deque<Source> sources;
    QHash<QString, int> folderOf; // mbox -> index in result.folders
    for (const FldrAtrib& f : store.Folders()) {
        if (!chosen.contains(f.ullId))
            continue;
        for (const MailItem& m : f.messages) {
            const QString path = m.Path();
            if (path.isEmpty() || path.contains(kRssFeedMarker) || IsAppleDoubleName(path))
                continue;
            const QString mbox = layout.MboxFor(path);
            auto it = folderOf.constFind(mbox);
            if (it == folderOf.constEnd()) {
                it = folderOf.insert(mbox, result.folders.size());
                result.folders.append({mbox});
            }
            // The folder's mbox path, one string for all its messages.
            sources.push_back({&m, it.key(), *it, {}, false, false, {}, {}});
        }
    }
    progress.OnShowingScanProgBar();
    progress.OnSettingsForPrgBar(static_cast<unsigned long>(2 * sources.size()),
                                 QStringLiteral("Verifying the package. Please Wait..."));

    QStringList mboxes;
    if (job.onlyTheirMboxes) {
        for (const VerifyFolder& f : result.folders)
            mboxes << f.mbox;
    } else {
        QDirIterator it(job.package + QStringLiteral("/Mail"), {QStringLiteral("*.mbox")},
                        QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        while (it.hasNext())
            mboxes << it.next();
        mboxes.sort();
    }

    // Every store file and every mbox file is read once, both cores busy:
    // first the store's files, then the mbox files, each compared message
    // by message as it is read (the package's digests are not kept). This
    // thread reports progress: a step for each store file read and one for
    // each message of the package.
    std::atomic<unsigned long> steps{0};
    unsigned long reported = 0;
    auto report = [&] {
        for (const unsigned long done = std::min<unsigned long>(steps, 2 * sources.size());
             reported < done; ++reported)
            progress.CurrentValue();
    };
    // Runs each(i) for i in [0, n) on every core; this thread reports.
    auto inParallel = [&](int n, const std::function<void(int)>& each) {
        std::atomic<int> next{0};
        auto work = [&](bool reporting) {
            for (int i; !stop && (i = next++) < n;) {
                each(i);
                if (reporting)
                    report();
            }
        };
        std::vector<std::thread> helpers;
        const unsigned cores = std::max(2u, std::thread::hardware_concurrency());
        for (unsigned c = 1; c < cores; ++c)
            helpers.emplace_back([&] { work(false); });
        work(true);
        for (std::thread& t : helpers)
            t.join();
        report();
    };
    inParallel(int(sources.size()), [&](int i) {
        Source& s = sources[size_t(i)];
        // The first reading works out what the package should hold: the
        // bytes, or the copy's change of them.
        s.read = DigestSource(s.item->Path(), false,
                              job.keepBytes ? verify::Digests::KeptBytes : verify::Digests::Copied,
                              &s.digest, &s.reason, &s.notAMessage);
        ++steps;
    });

    auto count = [&](int folder, int outcome) {
        if (folder < 0)
            return;
        VerifyFolder& f = result.folders[folder];
        quint64& n = outcome == 0 ? f.verified : outcome == 1 ? f.changed : f.faults;
        ++n;
        ++(outcome == 0 ? result.verified : outcome == 1 ? result.changed : result.faults);
    };
    for (Source& s : sources) {
        // A file that holds no message is not in the package either.
        if (s.read && !s.notAMessage.isEmpty()) {
            s.matched = true;
            s.folder = -1;
        } else if (!s.read && !stop) {
            result.findings.append(
                {true, QStringLiteral("unreadable"), QString(), QString(), s.mbox,
                 QStringLiteral("cannot be read in the store: ") + s.reason, s.item});
            count(s.folder, 2);
        }
    }
    if (stop) {
        result.stopped = true;
        return result;
    }

    // Each message of an mbox file takes the first message of the store
    // that should be there and has its key. Each mbox file has its own
    // queues and its own findings, put together in the mbox files' order.
    QHash<QString, int> mboxIndex;
    for (int m = 0; m < mboxes.size(); ++m)
        mboxIndex.insert(mboxes.at(m), m);
    std::vector<SourceQueues> waiting(size_t(mboxes.size())); // key -> sources
    // Each mbox file's messages in the store's order: the package's next
    // message is most likely the first of them not yet found.
    std::vector<std::vector<Source*>> expected(size_t(mboxes.size()));
    for (Source& s : sources) {
        const auto m = mboxIndex.constFind(s.mbox);
        if (s.read && !s.matched && m != mboxIndex.constEnd()) {
            waiting[size_t(*m)].Append(&s);
            expected[size_t(*m)].push_back(&s);
        }
    }
    struct Stray {
        quint64 key;
        bool empty;
        qint64 begin;
        QString mbox;
    };
    struct MboxOutcome {
        QList<VerifyFinding> findings;
        std::vector<std::pair<int, int>> counts; // folder, outcome
        std::vector<Stray> strays;
    };
    std::vector<MboxOutcome> outcomes(size_t(mboxes.size()));
    // The largest files first, so that no core is left with a large one
    // at the end while the other has nothing to do.
    std::vector<std::pair<qint64, int>> bySize;
    for (int m = 0; m < mboxes.size(); ++m)
        bySize.emplace_back(-QFileInfo(mboxes.at(m)).size(), m);
    std::sort(bySize.begin(), bySize.end());
    inParallel(mboxes.size(), [&](int k) {
        const int m = bySize[size_t(k)].second;
        const QString& mbox = mboxes.at(m);
        MboxOutcome& outcome = outcomes[size_t(m)];
        auto& here = waiting[size_t(m)];
        Comparison compare(job, outcome.findings);
        // Base64 parts are decoded as they are read where the message
        // expected next has parts put back from Mail's decoded copies (the
        // others have no use for it; where the guess is wrong, the
        // comparison takes a second look).
        const std::vector<Source*>& order = expected[size_t(m)];
        size_t next = 0;
        auto decodeBase64 = [&] {
            while (next < order.size() && order[next]->matched)
                ++next;
            if (next == order.size())
                return false;
            const QVector<LeafDigest>& leaves = order[next]->digest.leaves;
            return std::any_of(leaves.begin(), leaves.end(), [](const LeafDigest& l) {
                return l.source == BodySource::DecodedFile;
            });
        };
        ReadMbox(mbox, false, decodeBase64, stop, [&](MessageDigest p) {
            ++steps;
            Source* s = here.Take(p.key);
            if (!s) {
                outcome.strays.push_back({p.key, p.empty, p.begin, mbox});
                return;
            }
            s->matched = true;
            outcome.counts.emplace_back(s->folder, compare.Compare(*s, p));
            // Its digests are done with: their memory serves the findings.
            s->digest = MessageDigest();
        });
    });
    if (stop) {
        result.stopped = true;
        return result;
    }
    Comparison compare(job, result.findings);
    std::vector<Stray> strays;
    for (MboxOutcome& o : outcomes) {
        result.findings.append(o.findings);
        o.findings.clear(); // not held twice
        for (const auto& c : o.counts)
            count(c.first, c.second);
        strays.insert(strays.end(), o.strays.begin(), o.strays.end());
    }
    outcomes.clear();
    // A message found in another mbox file than its own; else an extra one.
    SourceQueues anywhere;
    for (Source& s : sources)
        if (s.read && !s.matched)
            anywhere.Append(&s);
    for (const Stray& stray : strays) {
        if (Source* s = anywhere.Take(stray.key)) {
            s->matched = true;
            compare.Fault(*s, stray.mbox, QStringLiteral("in another folder"), QString(),
                          QStringLiteral("found in ") + stray.mbox +
                              QStringLiteral(" instead of ") + s->mbox);
            count(s->folder, 2);
            continue;
        }
        result.findings.append(
            {true, stray.empty ? QStringLiteral("empty message") : QStringLiteral("extra"),
             stray.mbox + QStringLiteral(" at byte ") + QString::number(stray.begin), QString(),
             stray.mbox,
             QStringLiteral("a message the chosen folders of the store do not "
                            "hold")});
        ++result.faults;
    }
    for (Source& s : sources) {
        if (!s.read || s.matched)
            continue;
        compare.Fault(s, s.mbox, QStringLiteral("missing"), QString(),
                      QStringLiteral("not in ") + s.mbox);
        count(s.folder, 2);
    }
    return result;
}
