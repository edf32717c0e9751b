#pragma once
// Where a user's Apple Mail store is.

#include <QString>

// The Apple Mail folder of a user: /Users/<name>/Library/Mail, or
// /private/var/root/Library/Mail for root.
QString DefaultMailPathFor(const QString& userName);

namespace pellomar {
// Login name of the user at the console (on macOS) or of the process owner.
QString ConsoleUserName();
} // namespace pellomar
