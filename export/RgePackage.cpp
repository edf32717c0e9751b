// The archive package: its folder, Contents/PkgInfo, Contents/Info.plist and
// Archive.xml.
#include "export/ExportJob.h"
#include "export/PathMapping.h"

#include <QDir>
#include <QFile>
#include <QList>

namespace {

const char kXmlHeader[] = "<?xml version=\"1.1\" encoding=\"UTF-8\"?>";
const char kDoctype[] = "<!DOCTYPE plist PUBLIC \"-//Apple Computer//DTD PLIST 1.1//EN\" "
                        "\"http://www.apple.com/DTDs/PropertyList-1.1.dtd\">";

// Appends the pieces to the file (created when missing). The files are
// never truncated: a second run into the same package doubles their
// content. False when the file cannot be opened or a piece is not written
// whole (a full disk), with the reason.
bool AppendPieces(const QString& path, const QList<QByteArray>& pieces, QString* reason) {
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered)) {
        *reason = f.errorString();
        return false;
    }
    for (const QByteArray& piece : pieces) {
        // A short write is followed by one for the rest, which then fails
        // and says why.
        for (qint64 done = 0; done < piece.size();) {
            const qint64 n = f.write(piece.constData() + done, piece.size() - done);
            if (n <= 0) {
                *reason = f.errorString();
                return false;
            }
            done += n;
        }
    }
    return true;
}

} // namespace

bool CreateRGEWraper(const QString& destination, const QString& mainIdentity, QString* file,
                     QString* reason) {
    if (destination.isEmpty()) {
        *file = destination;
        *reason = QStringLiteral("no destination folder");
        return false;
    }
    QString package = destination + mainIdentity;
    // The destination exists; a package of the same name may exist too.
    if (!MakeFolders(package + QStringLiteral("/Contents"), reason)) {
        *file = package;
        return false;
    }
    package += QLatin1Char('/');

    const QByteArray header = QByteArray(kXmlHeader) + "\n" + kDoctype;
    const struct {
        QString name;
        QList<QByteArray> pieces;
    } files[] = {
        {QStringLiteral("Contents/PkgInfo"), {QByteArrayLiteral("rge OPIM")}},
        {QStringLiteral("Contents/Info.plist"),
         {header, QByteArrayLiteral("\n<plist version=\"1.1\">\n<dict>"),
          QByteArrayLiteral("\n\t<key>CFBundleDevelopmentRegion</key>\n"
                            "\t<string>English</string>\n"
                            "\t<key>CFBundleInfoDictionaryVersion</key>\n"
                            "\t<string>6.0</string>\n"
                            "\t<key>CFBundlePackageType</key>\n"
                            "\t<string>rge </string>\n"
                            "\t<key>CFBundleSignature</key>\n"
                            "\t<string>OPIM</string>"),
          QByteArrayLiteral("\n</dict>\n</plist>\n")}},
        {QStringLiteral("Archive.xml"),
         {header + "\n<plist version=\"1.1\">\n<dict>\n",
          QByteArrayLiteral("\t<key>Type</key>\n"
                            "\t<string>All</string>\n"
                            "\t<key>Version</key>\n"
                            "\t<integer>1</integer>\n"
                            "</dict>\n</plist>\n")}},
    };
    for (const auto& f : files) {
        if (!AppendPieces(package + f.name, f.pieces, reason)) {
            *file = package + f.name;
            return false;
        }
    }
    return true;
}
