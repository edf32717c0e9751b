#include "ui/RunReport.h"
#include "export/Verify.h"
#include "scanner/RunResult.h"

#include <QMessageBox>
#include <QStringList>

namespace {

QString Count(quint64 n, const char* one, const char* many) {
    return QString::number(n) + QLatin1Char(' ') + QLatin1String(n == 1 ? one : many);
}

const char kHowToSkip[] = "To skip such files and go on with the rest, choose File > Export "
                          "Options > Skip Unreadable Files and run it again.";

} // namespace

QString LossSummaryLine(const RunResult& r) {
    if (!r.HasLosses())
        return QString();
    QStringList parts{QString::number(r.done) + QStringLiteral(" of ") +
                      Count(r.total, "message", "messages") + QStringLiteral(" written")};
    if (!r.skipped.isEmpty())
        parts << Count(quint64(r.skipped.size()), "file", "files") + QStringLiteral(" skipped");
    if (!r.unwritten.isEmpty())
        parts << Count(quint64(r.unwritten.size()), "message", "messages") +
                     QStringLiteral(" could not be written");
    if (r.ending == RunResult::Ending::Failed)
        parts << QStringLiteral("stopped: ") + r.reason;
    else if (r.EndedAtFile())
        parts << QStringLiteral("ended at an unreadable file");
    if (r.converted)
        parts << Count(r.converted, "message", "messages") +
                     QStringLiteral(" changed by the Latin-1 conversion");
    if (r.droppedLines)
        parts << Count(r.droppedLines, "line", "lines") +
                     QStringLiteral(" dropped at a trailer mark");
    if (r.cutLines)
        parts << Count(r.cutLines, "line", "lines") + QStringLiteral(" cut at a NUL byte");
    if (!r.missingParts.isEmpty())
        parts << Count(quint64(r.missingParts.size()), "attachment", "attachments") +
                     QStringLiteral(" missing");
    return parts.join(QStringLiteral("; ")) + QLatin1Char('.');
}

QString LossDetails(const RunResult& r) {
    QStringList lines;
    if (r.EndedAtFile())
        lines << QLatin1String(r.ending == RunResult::Ending::Failed ? "Stopped at: "
                                                                     : "Ended at: ") +
                     r.file + QStringLiteral(" (") + r.reason + QLatin1Char(')');
    for (const RunResult::Skipped& s : r.skipped)
        lines << QStringLiteral("Skipped: ") + s.path + QStringLiteral(" (") + s.reason +
                     QLatin1Char(')');
    for (const RunResult::Skipped& s : r.unwritten)
        lines << QStringLiteral("Not written: ") + s.path + QStringLiteral(" (") + s.reason +
                     QLatin1Char(')');
    for (const RunResult::MissingPart& m : r.missingParts)
        lines << QStringLiteral("Missing attachment \"") + m.name + QStringLiteral("\" of ") +
                     m.message;
    for (const RunResult::Skipped& s : r.notMessages)
        lines << QStringLiteral("Passed over: ") + s.path + QStringLiteral(" (") + s.reason +
                     QLatin1Char(')');
    if (r.converted)
        lines << Count(r.converted, "message", "messages") +
                     QStringLiteral(" had 8-bit text that the Latin-1 conversion changed.");
    if (r.droppedLines || r.cutLines)
        lines << Count(r.droppedLines, "line", "lines") +
                     QStringLiteral(" inside messages held a trailer mark and were dropped; ") +
                     Count(r.cutLines, "line", "lines") +
                     QStringLiteral(" were cut short at a NUL byte.");
    if (r.converted || r.droppedLines || r.cutLines)
        lines << QStringLiteral("File > Export Options > Keep Every Byte keeps every message as "
                                "it is stored.");
    return lines.join(QLatin1Char('\n'));
}

QString VerificationLine(const VerifyResult& v) {
    return QStringLiteral("Verification: ") + VerifySummary(v.verified, v.changed, v.faults) +
           QLatin1Char('.');
}

QString VerificationDetails(const VerifyResult& v) {
    QStringList lines;
    for (const VerifyFinding& f : v.findings)
        if (f.fault)
            lines << QStringLiteral("Fault: ") + f.message +
                         (f.part.isEmpty() ? QString() : QStringLiteral(", ") + f.part) +
                         QStringLiteral(": ") + f.detail;
    const QMap<QString, quint64> kinds = ChangedMessagesByKind(v);
    for (auto it = kinds.cbegin(); it != kinds.cend(); ++it)
        lines << Count(it.value(), "message", "messages") + QStringLiteral(" with ") +
                     DescribeChange(it.key());
    return lines.join(QLatin1Char('\n'));
}

void ShowLossWarning(QWidget* parent, const RunResult& r, bool save, const VerifyResult* v) {
    const char* done = save ? "written" : "scanned";
    QString text, info;
    if (r.ending == RunResult::Ending::Failed) {
        text = QStringLiteral("The ") + QLatin1String(save ? "save" : "scan") +
               QStringLiteral(" stopped at:\n") + r.file + QStringLiteral("\n(") + r.reason +
               QStringLiteral(")\n\n") + Count(r.notDone, "message was", "messages were") +
               QStringLiteral(" not ") + QLatin1String(done) + QLatin1Char('.');
    } else if (r.EndedAtFile()) {
        text = QStringLiteral("The ") + QLatin1String(save ? "save" : "scan") +
               QStringLiteral(" ended at a file that could not be read:\n") + r.file +
               QStringLiteral("\n(") + r.reason + QStringLiteral(")\n\n") +
               Count(r.notDone, "message was", "messages were") + QStringLiteral(" not ") +
               QLatin1String(done) + QLatin1Char('.');
        info = QLatin1String(kHowToSkip);
    } else if (!r.skipped.isEmpty()) {
        text = Count(quint64(r.skipped.size()), "file", "files") +
               QStringLiteral(" could not be read and ") +
               QLatin1String(r.skipped.size() == 1 ? "was" : "were") +
               QStringLiteral(" skipped; the details list them.");
    } else if (save && r.HasLosses()) {
        text = LossSummaryLine(r);
    } else if (!v || v->Faultless()) {
        return;
    }
    if (v && !v->Faultless())
        text += (text.isEmpty() ? QString() : QStringLiteral("\n\n")) +
                QStringLiteral("The verification of the package found ") +
                Count(v->faults, "fault", "faults") +
                QStringLiteral(": messages that are not in the package as the store holds "
                               "them. The details name them.");
    QMessageBox box(QMessageBox::Warning, QStringLiteral("Pellomar"), text, QMessageBox::Ok,
                    parent);
    if (!info.isEmpty())
        box.setInformativeText(info);
    QString details = LossDetails(r);
    if (v)
        details += (details.isEmpty() ? QString() : QStringLiteral("\n")) + VerificationDetails(*v);
    box.setDetailedText(details);
    box.exec();
}
