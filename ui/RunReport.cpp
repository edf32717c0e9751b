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
            lines << QStringLiteral("Fault: ") + f.Message() +
                         (f.part.isEmpty() ? QString() : QStringLiteral(", ") + f.part) +
                         QStringLiteral(": ") + f.detail;
    const QMap<QString, quint64> kinds = ChangedMessagesByKind(v);
    for (auto it = kinds.cbegin(); it != kinds.cend(); ++it)
        lines << Count(it.value(), "message", "messages") + QStringLiteral(" with ") +
                     DescribeChange(it.key());
    return lines.join(QLatin1Char('\n'));
}

namespace {

QString EndedAtText(const RunResult& r, const char* run, const char* done) {
    return QStringLiteral("The ") + QLatin1String(run) +
           QLatin1String(r.ending == RunResult::Ending::Failed
                             ? " stopped at:\n"
                             : " ended at a file that could not be read:\n") +
           r.file + QStringLiteral("\n(") + r.reason + QStringLiteral(")\n\n") +
           Count(r.notDone, "message was", "messages were") + QStringLiteral(" not ") +
           QLatin1String(done) + QLatin1Char('.');
}

void Show(QWidget* parent, QMessageBox::Icon icon, const QString& title, const QString& text,
          const QString& info, const QString& details) {
    QMessageBox box(icon, title, text, QMessageBox::Ok, parent);
    if (!info.isEmpty())
        box.setInformativeText(info);
    if (!details.isEmpty())
        box.setDetailedText(details);
    box.raise();
    box.exec();
}

} // namespace

void ShowSaveFailure(QWidget* parent, const RunResult& r) {
    Show(parent, QMessageBox::Warning, QStringLiteral("Pellomar"),
         EndedAtText(r, "save", "written"), QString(), LossDetails(r));
}

void ShowEndOfScan(QWidget* window, const RunResult& r, bool foundMessages) {
    const QString details = LossDetails(r);
    if (r.EndedAtFile()) {
        Show(window, QMessageBox::Warning, QStringLiteral("Pellomar"),
             EndedAtText(r, "scan", "scanned") +
                 QLatin1String(foundMessages ? "\nWhat was found before it is shown and can be "
                                               "saved."
                                             : ""),
             QLatin1String(kHowToSkip), details);
    } else if (!foundMessages) {
        Show(window, QMessageBox::Information, QString(),
             QStringLiteral("Scanned file is either an invalid file or heavily damaged."),
             QString(), details);
    } else if (!r.skipped.isEmpty()) {
        Show(window, QMessageBox::Warning, QStringLiteral("Vortiga"),
             QStringLiteral("File scan completed, but ") +
                 Count(quint64(r.skipped.size()), "file", "files") +
                 QStringLiteral(" could not be read and ") +
                 QLatin1String(r.skipped.size() == 1 ? "was" : "were") +
                 QStringLiteral(" skipped; the details list them."),
             QString(), details);
    } else {
        Show(window, QMessageBox::Information, QStringLiteral("Vortiga"),
             QStringLiteral("File scan completed successfully."),
             r.notMessages.isEmpty()
                 ? QString()
                 : Count(quint64(r.notMessages.size()), "file", "files") +
                       QStringLiteral(" named like messages held none and ") +
                       QLatin1String(r.notMessages.size() == 1 ? "was" : "were") +
                       QStringLiteral(" passed over; the details list them."),
             details);
    }
}

EndOfSave DescribeSave(const RunResult& r, const VerifyResult* v, const QString& package) {
    EndOfSave out;
    const bool faults = v && !v->Faultless();
    if (r.EndedAtFile())
        out.text = EndedAtText(r, "save", "written") +
                   QStringLiteral("\nThe package holds the messages written before it, at "
                                  "location ") +
                   package;
    else if (faults)
        out.text = QStringLiteral("\nFile saved at location ") + package +
                   QStringLiteral(", but the verification found ") +
                   Count(v->faults, "fault", "faults") +
                   QStringLiteral(": messages that are not in the package as Apple Mail holds "
                                  "them. The details name them.");
    else
        out.text = QStringLiteral("\nFile saved successfully at location ") + package;
    if (r.HasLosses())
        out.text += QLatin1Char('\n') + LossSummaryLine(r);
    if (v)
        out.text += QLatin1Char('\n') + VerificationLine(*v);
    out.details = LossDetails(r);
    if (v) {
        const QString more = VerificationDetails(*v);
        if (!more.isEmpty())
            out.details += (out.details.isEmpty() ? QString() : QStringLiteral("\n")) + more;
    }
    return out;
}
