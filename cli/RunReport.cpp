#include "cli/RunReport.h"
#include "cli/CliCommon.h"
#include "scanner/RunResult.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

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
        out << ")\n";
    }
    if (result.converted)
        out << Count(result.converted, "message was", "messages were")
            << " changed by the Latin-1 conversion (--keep-bytes keeps the text as it is)\n";
    if (PartsRestored(result))
        out << Count(PartsRestored(result), "detached part", "detached parts") << " restored ("
            << result.partsFromEmlxpart << " from .emlxpart files, " << result.partsFromAttachments
            << " from Attachments folders)\n";
    if (!result.missingParts.isEmpty())
        out << Count(quint64(result.missingParts.size()), "detached part", "detached parts")
            << " missing\n";
    if (!result.skipped.isEmpty())
        out << Count(quint64(result.skipped.size()), "file", "files") << " skipped\n";
    if (!result.unwritten.isEmpty())
        out << Count(quint64(result.unwritten.size()), "message", "messages")
            << " could not be written\n";
    out << result.done << " of " << result.total << " messages written\n";
    out.flush();
}

void WriteExportJson(QTextStream& out, const QString& package, const RunResult& result) {
    QJsonArray skipped, unwritten, missing, mboxes;
    for (const RunResult::Skipped& s : result.skipped)
        skipped.append(QJsonObject{{"path", s.path}, {"reason", s.reason}});
    for (const RunResult::Skipped& s : result.unwritten)
        unwritten.append(QJsonObject{{"path", s.path}, {"reason", s.reason}});
    for (const RunResult::MissingPart& m : result.missingParts)
        missing.append(QJsonObject{{"message", m.message}, {"name", m.name}});
    for (const RunResult::Folder& f : result.folders)
        mboxes.append(QJsonObject{{"path", f.path},
                                  {"messages", double(f.messages)},
                                  {"converted", double(f.converted)}});
    QJsonObject doc{{"package", package},
                    {"total", double(result.total)},
                    {"written", double(result.done)},
                    {"converted", double(result.converted)},
                    {"skipped", skipped},
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
