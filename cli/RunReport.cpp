#include "cli/RunReport.h"
#include "cli/CliCommon.h"
#include "export/Verify.h"
#include "scanner/RunResult.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>

namespace {

QString Count(quint64 n, const char* one, const char* many) {
    return QString::number(n) + QLatin1Char(' ') + QLatin1String(n == 1 ? one : many);
}

quint64 PartsRestored(const RunResult& r) {
    return r.partsFromEmlxpart + r.partsFromAttachments;
}

} // namespace

QString Messages(quint64 n) {
    return Count(n, "message", "messages");
}

void WriteExportListing(QTextStream& out, const QString& package, const RunResult& result) {
    out << package << "\n";
    const QDir dir(package);
    for (const RunResult::Folder& w : result.folders) {
        out << "  " << dir.relativeFilePath(w.path) << " (" << Messages(w.messages);
        if (w.converted)
            out << ", " << w.converted << " changed by the Latin-1 conversion";
        if (w.droppedLines)
            out << ", " << Count(w.droppedLines, "line", "lines") << " dropped at a trailer mark";
        if (w.cutLines)
            out << ", " << Count(w.cutLines, "line", "lines") << " cut at a NUL byte";
        out << ")\n";
    }
    if (result.converted)
        out << Count(result.converted, "message was", "messages were")
            << " changed by the Latin-1 conversion (--keep-bytes keeps every byte)\n";
    if (result.droppedLines || result.cutLines)
        out << Count(result.droppedLines, "line was", "lines were")
            << " dropped at a trailer mark inside a message and "
            << Count(result.cutLines, "line was", "lines were")
            << " cut at a NUL byte (--keep-bytes keeps every byte)\n";
    if (PartsRestored(result))
        out << Count(PartsRestored(result), "detached part", "detached parts") << " restored ("
            << result.partsFromEmlxpart << " from .emlxpart files, " << result.partsFromAttachments
            << " from Attachments folders)\n";
    if (!result.missingParts.isEmpty())
        out << Count(quint64(result.missingParts.size()), "detached part", "detached parts")
            << " missing\n";
    if (!result.skipped.isEmpty())
        out << Count(quint64(result.skipped.size()), "file", "files") << " skipped\n";
    if (!result.notMessages.isEmpty())
        out << Count(quint64(result.notMessages.size()), "file", "files")
            << " passed over: named like messages, holding none\n";
    if (!result.unwritten.isEmpty())
        out << Count(quint64(result.unwritten.size()), "message", "messages")
            << " could not be written\n";
    out << result.done << " of " << result.total << " messages written\n";
    out.flush();
}

void WriteExportJson(QTextStream& out, const QString& package, const RunResult& result,
                     const VerifyResult* verification) {
    QJsonArray skipped, notMessages, unwritten, missing, mboxes;
    for (const RunResult::Skipped& s : result.skipped)
        skipped.append(QJsonObject{{"path", s.path}, {"reason", s.reason}});
    for (const RunResult::Skipped& s : result.notMessages)
        notMessages.append(QJsonObject{{"path", s.path}, {"reason", s.reason}});
    for (const RunResult::Skipped& s : result.unwritten)
        unwritten.append(QJsonObject{{"path", s.path}, {"reason", s.reason}});
    for (const RunResult::MissingPart& m : result.missingParts)
        missing.append(QJsonObject{{"message", m.message}, {"name", m.name}});
    for (const RunResult::Folder& f : result.folders)
        mboxes.append(QJsonObject{{"path", f.path},
                                  {"messages", double(f.messages)},
                                  {"converted", double(f.converted)},
                                  {"droppedLines", double(f.droppedLines)},
                                  {"cutLines", double(f.cutLines)}});
    QJsonObject doc{{"package", package},
                    {"total", double(result.total)},
                    {"written", double(result.done)},
                    {"converted", double(result.converted)},
                    {"droppedLines", double(result.droppedLines)},
                    {"cutLines", double(result.cutLines)},
                    {"skipped", skipped},
                    {"notMessages", notMessages},
                    {"unwritten", unwritten},
                    {"partsRestored", double(PartsRestored(result))},
                    {"partsFromEmlxpart", double(result.partsFromEmlxpart)},
                    {"partsFromAttachments", double(result.partsFromAttachments)},
                    {"partsMissing", double(result.missingParts.size())},
                    {"missingParts", missing},
                    {"stopped", result.ending == RunResult::Ending::Stopped},
                    {"mboxes", mboxes}};
    if (result.EndedAtFile())
        doc.insert("endedAt", QJsonObject{{"path", result.file},
                                          {"reason", result.reason},
                                          {"notWritten", double(result.notDone)}});
    if (verification)
        doc.insert("verification", VerifyJson(*verification, package));
    out << QJsonDocument(doc).toJson(QJsonDocument::Indented);
    out.flush();
}

int ReportEnding(const char* command, const RunResult& result, const char* done) {
    const QString prefix = QStringLiteral("pellomar-cli ") + QLatin1String(command) + ": ";
    for (const RunResult::MissingPart& m : result.missingParts)
        Err() << prefix << "the detached part '" << m.name << "' of '" << m.message
              << "' is missing; the message was written without it\n";
    for (const RunResult::Skipped& s : result.skipped)
        Err() << prefix << "skipped '" << s.path << "': " << s.reason << "\n";
    for (const RunResult::Skipped& s : result.notMessages)
        Err() << prefix << "passed over '" << s.path << "': " << s.reason << "\n";
    for (const RunResult::Skipped& s : result.unwritten)
        Err() << prefix << "not written '" << s.path << "': " << s.reason << "\n";
    if (result.ending == RunResult::Ending::Failed) {
        Err() << prefix << "stopped at '" << result.file << "': " << result.reason << "\n"
              << prefix << Count(result.notDone, "message was", "messages were") << " not " << done
              << "\n";
    } else if (result.EndedAtFile()) {
        Err() << prefix << "ended at '" << result.file << "': " << result.reason << "\n"
              << prefix << Count(result.notDone, "message was", "messages were") << " not " << done
              << " because of it; --keep-going skips such files\n";
    }
    Err().flush();
    return result.EndedAtFile() || !result.skipped.isEmpty() || !result.unwritten.isEmpty()
               ? ExitIncomplete
               : ExitOk;
}

void WriteVerifyReport(QTextStream& out, const VerifyResult& result, const QString& package) {
    const QDir dir(package);
    out << "Verification of " << package << "\n";
    for (const VerifyFolder& f : result.folders)
        out << "  " << dir.relativeFilePath(f.mbox) << ": "
            << VerifySummary(f.verified, f.changed, f.faults) << "\n";
    out << VerifySummary(result.verified, result.changed, result.faults)
        << (result.stopped ? " (stopped before the end)" : "") << "\n";
    const QMap<QString, quint64> kinds = ChangedMessagesByKind(result);
    for (auto it = kinds.cbegin(); it != kinds.cend(); ++it) {
        bool avoidable = false;
        const QString words = DescribeChange(it.key(), &avoidable);
        out << "Expected change: " << Messages(it.value()) << " with " << words
            << (avoidable ? " (--keep-bytes keeps every byte)" : "") << "\n";
    }
    const int shown = 20;
    int n = 0;
    for (const VerifyFinding& f : result.findings) {
        if (!f.fault)
            continue;
        if (n++ == shown) {
            out << "  ... (--json lists every fault)\n";
            break;
        }
        out << "Fault: " << f.Message();
        if (!f.part.isEmpty())
            out << ": " << f.part;
        out << ": " << f.kind << ": " << f.detail << "\n";
    }
    out.flush();
}

QJsonObject VerifyJson(const VerifyResult& result, const QString& package) {
    QJsonArray folders, findings;
    for (const VerifyFolder& f : result.folders)
        folders.append(QJsonObject{{"mbox", f.mbox},
                                   {"verified", double(f.verified)},
                                   {"changed", double(f.changed)},
                                   {"faults", double(f.faults)}});
    for (const VerifyFinding& f : result.findings)
        findings.append(QJsonObject{{"fault", f.fault},
                                    {"kind", f.kind},
                                    {"message", f.Message()},
                                    {"part", f.part},
                                    {"mbox", f.mbox},
                                    {"detail", f.detail}});
    return QJsonObject{{"package", package},
                       {"verified", double(result.verified)},
                       {"changed", double(result.changed)},
                       {"faults", double(result.faults)},
                       {"stopped", result.stopped},
                       {"folders", folders},
                       {"findings", findings}};
}
