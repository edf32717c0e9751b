#pragma once
// Printing what a scan found: an indented folder tree with message counts,
// or a JSON document with every message record.

#include <QString>
#include <QTextStream>

class Store;

// Appends text as a JSON string literal (with its quotes). Unpaired
// surrogates are written as \u escapes so that nothing is lost.
void AppendJsonString(QString& out, const QString& text);

// {"folders": [ {"id": 501, "parent": 0, "name": "Mailbox", "displayName": "Mailbox",
// "messages": [...]}, ... ]} Folders in the store's order, messages in their
// folder's order; "name" is the folder's name on disk (without its mailbox
// ending), "displayName" what the tree shows.
void WriteScanJson(QTextStream& out, const Store& store);

// "Mailbox", then each folder's display name indented by two blanks per
// level with its message count, then the total line.
void WriteScanTree(QTextStream& out, const Store& store);
