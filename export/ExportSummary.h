#pragma once
#include <QList>
#include <QString>

// What the last export wrote: each mbox file that received messages, in the
// order of its first message, with the number of messages appended to it.
struct WrittenMbox {
    QString path;
    quint64 messages = 0;
};

// Read it after the export thread has ended.
QList<WrittenMbox> LastExportSummary();
