#pragma once
#include <QString>

struct MailItem;

// Runs the per-message passes over one message file (MIME structure, text
// bodies, attachments and partial parts, then the header fields) and fills
// the item. Returns false when the file cannot be opened (the scan ends
// then), with the reason in `error`.
bool AnalyseMessageFile(const QString& path, MailItem* item, QString* error = nullptr);
