#include "ui/RunReport.h"
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
    if (r.converted)
        lines << Count(r.converted, "message", "messages") +
                     QStringLiteral(
                         " had 8-bit text that the Latin-1 conversion changed; File > "
                         "Export Options > Keep 8-bit Text Unchanged keeps it as it is.");
    return lines.join(QLatin1Char('\n'));
}

void ShowLossWarning(QWidget* parent, const RunResult& r, bool save) {
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
    } else {
        return;
    }
    QMessageBox box(QMessageBox::Warning, QStringLiteral("Pellomar"), text, QMessageBox::Ok,
                    parent);
    if (!info.isEmpty())
        box.setInformativeText(info);
    box.setDetailedText(LossDetails(r));
    box.exec();
}
