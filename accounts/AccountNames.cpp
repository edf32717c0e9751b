#include "accounts/AccountNames.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>
#include <QXmlStreamReader>

#include <algorithm>
#include <atomic>

namespace {

// An account as read, before names are kept apart. `account` tells the
// accounts apart: one account may name a folder under two keys.
struct Found {
    QString name, address;
    int account = 0;
};

// The names of the folders where Mail keeps account folders: the store
// itself, its version folders "V*", and those of a "Mail" folder in it.
QSet<QString> FolderNamesOf(const QString& store) {
    const auto dirs = QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden;
    QStringList parents{store};
    for (const QString& base : {store, store + QStringLiteral("/Mail")})
        for (const QString& v : QDir(base).entryList({QStringLiteral("V*")}, dirs))
            parents << base + QLatin1Char('/') + v;
    QSet<QString> names;
    for (const QString& parent : qAsConst(parents))
        for (const QString& name : QDir(parent).entryList(dirs))
            names.insert(name);
    return names;
}

QString FirstOf(std::initializer_list<QString> texts) {
    for (const QString& t : texts)
        if (!t.trimmed().isEmpty())
            return t.trimmed();
    return QString();
}

QString FindDatabase(const QString& store) {
    for (const char* where : {"/../Accounts", "/../../Accounts", "/Accounts"}) {
        const QString path =
            QDir::cleanPath(store + QLatin1String(where) + QStringLiteral("/Accounts4.sqlite"));
        if (QFileInfo(path).isFile())
            return path;
    }
    return QString();
}

// ZACCOUNT of the system's account database: every account with its parent's
// description beside its own. False with the reason when it cannot be read.
bool ReadDatabase(const QString& path, QHash<QString, Found>* out, QString* why) {
    const QString driver = QStringLiteral("QSQLITE");
    if (!QSqlDatabase::isDriverAvailable(driver)) {
        *why = QStringLiteral("Qt's SQLite driver (QSQLITE) is not installed");
        return false;
    }
    // Opened through a URI: read-only and immutable, so that SQLite takes no
    // lock and writes no journal beside a database Mail may be using.
    const QString uri =
        QStringLiteral("file:") +
        QString::fromLatin1(
            QFile::encodeName(QFileInfo(path).absoluteFilePath()).toPercentEncoding("/")) +
        QStringLiteral("?mode=ro&immutable=1");
    // A connection of its own for each call, made and used on this thread.
    static std::atomic<quint64> calls{0};
    const QString connection = QStringLiteral("pellomar-accounts-%1").arg(++calls);
    bool ok = false;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(driver, connection);
        db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY;QSQLITE_OPEN_URI"));
        db.setDatabaseName(uri);
        if (!db.open()) {
            *why = db.lastError().text();
        } else {
            QSqlQuery q(db);
            q.setForwardOnly(true);
            ok = q.exec(QStringLiteral(
                "SELECT a.ZIDENTIFIER, a.ZACCOUNTDESCRIPTION, a.ZUSERNAME, p.ZACCOUNTDESCRIPTION, "
                "p.ZUSERNAME FROM ZACCOUNT a LEFT JOIN ZACCOUNT p ON p.Z_PK = a.ZPARENTACCOUNT"));
            if (!ok)
                *why = q.lastError().text();
            for (int row = 0; ok && q.next(); ++row) {
                const QString id = q.value(0).toString();
                Found f;
                f.name =
                    FirstOf({q.value(1).toString(), q.value(3).toString(), q.value(2).toString()});
                f.address = FirstOf({q.value(2).toString(), q.value(4).toString()});
                f.account = row;
                if (!id.isEmpty() && !f.name.isEmpty())
                    out->insert(id, f);
            }
        }
    }
    QSqlDatabase::removeDatabase(connection);
    return ok;
}

// Mail's own account list, in the newest version folder that has one.
QString FindPlist(const QString& store) {
    QStringList versions =
        QDir(store).entryList({QStringLiteral("V*")}, QDir::Dirs | QDir::NoDotAndDotDot);
    std::sort(versions.begin(), versions.end(), [](const QString& a, const QString& b) {
        return a.midRef(1).toInt() > b.midRef(1).toInt();
    });
    QStringList candidates;
    for (const QString& v : qAsConst(versions))
        candidates << store + QLatin1Char('/') + v + QStringLiteral("/MailData/Accounts.plist");
    candidates << store + QStringLiteral("/MailData/Accounts.plist");
    for (const QString& path : qAsConst(candidates))
        if (QFileInfo(path).isFile())
            return path;
    return QString();
}

// One value of an XML property list, the reader at its start element. Dicts
// and arrays become maps and lists, every other value its text.
QVariant ReadPlistValue(QXmlStreamReader& xml, int depth) {
    const QString tag = xml.name().toString();
    if (depth > 64) {
        xml.skipCurrentElement();
        return QVariant();
    }
    if (tag == QLatin1String("dict")) {
        QVariantMap map;
        QString key;
        while (xml.readNextStartElement()) {
            if (xml.name() == QLatin1String("key"))
                key = xml.readElementText();
            else
                map.insert(key, ReadPlistValue(xml, depth + 1));
        }
        return map;
    }
    if (tag == QLatin1String("array")) {
        QVariantList list;
        while (xml.readNextStartElement())
            list.append(ReadPlistValue(xml, depth + 1));
        return list;
    }
    if (tag == QLatin1String("true") || tag == QLatin1String("false")) {
        xml.skipCurrentElement();
        return tag == QLatin1String("true");
    }
    return xml.readElementText(QXmlStreamReader::SkipChildElements);
}

// MailAccounts of Accounts.plist: each entry under its uniqueId and under the
// folder name its AccountPath ends in. The local mailboxes' entry ("On My
// Mac", AccountPath .../Mailboxes) is passed over: that folder keeps its name
// in the package.
bool ReadPlist(const QString& path, QHash<QString, Found>* out, QString* why) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *why = file.errorString();
        return false;
    }
    const QByteArray bytes = file.readAll();
    if (bytes.startsWith("bplist")) {
        *why = QStringLiteral("a binary property list; only XML property lists are read");
        return false;
    }
    QXmlStreamReader xml(bytes);
    QVariant root;
    if (xml.readNextStartElement() && xml.name() == QLatin1String("plist") &&
        xml.readNextStartElement())
        root = ReadPlistValue(xml, 0);
    if (xml.hasError()) {
        *why = QStringLiteral("line %1: %2").arg(xml.lineNumber()).arg(xml.errorString());
        return false;
    }
    const QVariantList accounts = root.toMap().value(QStringLiteral("MailAccounts")).toList();
    for (int i = 0; i < accounts.size(); ++i) {
        const QVariantMap a = accounts.at(i).toMap();
        Found f;
        f.address = a.value(QStringLiteral("Username")).toString().trimmed();
        f.name = FirstOf({a.value(QStringLiteral("AccountName")).toString(), f.address});
        f.account = i;
        QString folder = a.value(QStringLiteral("AccountPath")).toString();
        while (folder.endsWith(QLatin1Char('/')))
            folder.chop(1);
        folder = folder.mid(folder.lastIndexOf(QLatin1Char('/')) + 1);
        if (f.name.isEmpty() || folder == QLatin1String("Mailboxes"))
            continue;
        for (const QString& key : {a.value(QStringLiteral("uniqueId")).toString(), folder})
            if (!key.isEmpty())
                out->insert(key, f);
    }
    return true;
}

// Gives every account whose name (letter case aside) another account has too
// what `extra` makes of it, in brackets.
template <typename Extra> void KeepApart(QHash<QString, Found>& found, Extra extra) {
    QHash<QString, QSet<int>> accountsNamed;
    for (const Found& f : qAsConst(found))
        accountsNamed[f.name.toCaseFolded()].insert(f.account);
    for (auto it = found.begin(); it != found.end(); ++it) {
        const QString more = extra(it.key(), it.value());
        if (accountsNamed.value(it->name.toCaseFolded()).size() > 1 && !more.isEmpty())
            it->name += QStringLiteral(" (") + more + QLatin1Char(')');
    }
}

} // namespace

QHash<QString, AccountName> ReadAccountNames(const QString& storePath, QString* warning) {
    const QString store = QDir::cleanPath(storePath);
    QStringList problems;
    QHash<QString, Found> found;
    // Only the accounts of this store: one account of the system may share
    // its parent's name with several others (mail, calendar, contacts ...),
    // of which one has a mail folder.
    const QSet<QString> folders = FolderNamesOf(store);
    auto read = [&](const QString& path, auto reader) {
        QHash<QString, Found> all;
        QString why;
        if (!reader(path, &all, &why))
            problems << QStringLiteral("cannot read the account names in '") + path +
                            QStringLiteral("': ") + why;
        for (auto it = all.cbegin(); it != all.cend(); ++it)
            if (folders.contains(it.key()))
                found.insert(it.key(), it.value());
    };
    const QString database = FindDatabase(store);
    if (!database.isEmpty())
        read(database, ReadDatabase);
    // Mail's own list, where the system's database is missing, unreadable or
    // names none of the store's folders.
    const QString plist = found.isEmpty() ? FindPlist(store) : QString();
    if (!plist.isEmpty())
        read(plist, ReadPlist);

    KeepApart(found, [](const QString&, const Found& f) { return f.address; });
    KeepApart(found, [](const QString& key, const Found&) { return key; });
    QHash<QString, AccountName> names;
    for (auto it = found.cbegin(); it != found.cend(); ++it)
        names.insert(it.key(), {it->name, it->address});
    if (warning)
        *warning = problems.join(QStringLiteral("; "));
    return names;
}

QHash<QString, QString> AccountDisplayNames(const QHash<QString, AccountName>& accounts) {
    QHash<QString, QString> names;
    for (auto it = accounts.cbegin(); it != accounts.cend(); ++it)
        names.insert(it.key(), it->name);
    return names;
}
