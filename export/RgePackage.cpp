// The archive package: its folder, Contents/PkgInfo, Contents/Info.plist and
// Archive.xml.
#include "export/EmlxExport.h"
#include "scanner/Globals.h"

#include <QDir>
#include <QFile>

#include <cstdio>
#include <initializer_list>

namespace {

const char kXmlHeader[] = "<?xml version=\"1.1\" encoding=\"UTF-8\"?>";
const char kDoctype[] = "<!DOCTYPE plist PUBLIC \"-//Apple Computer//DTD PLIST 1.1//EN\" "
                        "\"http://www.apple.com/DTDs/PropertyList-1.1.dtd\">";

// Appends the pieces to the file (created when missing), each in one write.
// The files are never truncated: a second run into the same package doubles
// their content.
void AppendPieces(const QString& path, std::initializer_list<QByteArray> pieces) {
    FILE* f = fopen(QFile::encodeName(path).constData(), "a+");
    if (!f)
        return;
    for (const QByteArray& piece : pieces)
        fwrite(piece.constData(), 1, size_t(piece.size()), f);
    fclose(f);
}

} // namespace

void CreateRGEWraper(const QString& destination) {
    if (destination.isEmpty())
        return;
    QString package = destination + mainIdentity;
    QDir().mkdir(package);
    QDir().mkdir(package + QStringLiteral("/Contents"));
    package += QLatin1Char('/');

    AppendPieces(package + QStringLiteral("Contents/PkgInfo"), {QByteArrayLiteral("rge OPIM")});

    const QByteArray header = QByteArray(kXmlHeader) + "\n" + kDoctype;
    AppendPieces(package + QStringLiteral("Contents/Info.plist"),
                 {header, QByteArrayLiteral("\n<plist version=\"1.1\">\n<dict>"),
                  QByteArrayLiteral("\n\t<key>CFBundleDevelopmentRegion</key>\n"
                                    "\t<string>English</string>\n"
                                    "\t<key>CFBundleInfoDictionaryVersion</key>\n"
                                    "\t<string>6.0</string>\n"
                                    "\t<key>CFBundlePackageType</key>\n"
                                    "\t<string>rge </string>\n"
                                    "\t<key>CFBundleSignature</key>\n"
                                    "\t<string>OPIM</string>"),
                  QByteArrayLiteral("\n</dict>\n</plist>\n")});

    AppendPieces(package + QStringLiteral("Archive.xml"),
                 {header + "\n<plist version=\"1.1\">\n<dict>\n",
                  QByteArrayLiteral("\t<key>Type</key>\n"
                                    "\t<string>All</string>\n"
                                    "\t<key>Version</key>\n"
                                    "\t<integer>1</integer>\n"
                                    "</dict>\n</plist>\n")});
}
