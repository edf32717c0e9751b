#pragma once
// The names the user gave to Mail's accounts. Today's Apple Mail names each
// account folder of the store by the account's UUID; the name the user knows
// is kept in the system's account database (~/Library/Accounts/
// Accounts4.sqlite) or, by older versions of Mail, in its own account list
// (MailData/Accounts.plist).

#include <QHash>
#include <QString>

struct AccountName {
    QString name;    // what the account folder is shown as
    QString address; // the account's user name (often its address); may be empty
};

// The accounts whose folder is in the store at `storePath` (a folder named by
// the account's identifier directly in the store, in a version folder "V*"
// of it, or in "Mail/V*"), keyed by that folder's name. The names are read
// from Accounts4.sqlite in an "Accounts" folder beside the Mail folder
// (<store>/../Accounts, <store>/../../Accounts or <store>/Accounts), opened
// read-only and immutable so that a running Mail is not disturbed; when
// there is none, from Mail's Accounts.plist (<store>/V*/MailData or
// <store>/MailData) when it is an XML property list.
//
// An account is named by its own description, else its parent account's,
// else its user name; one without any of these is left out (its folder
// keeps its UUID). Two accounts of the same name (letter case aside) get
// their address added, "Work (anna@example.org)", and where that is still
// the same, their identifier too.
//
// A store without either file gives an empty map and no warning. When a file
// was found but could not be read, `warning` (if given) says which and why,
// and the names come from what could be read. Safe to call on any thread,
// also on several at once: each call opens a database connection of its own.
QHash<QString, AccountName> ReadAccountNames(const QString& storePath, QString* warning);

// Folder name -> shown name, as a scan takes them.
QHash<QString, QString> AccountDisplayNames(const QHash<QString, AccountName>& accounts);
