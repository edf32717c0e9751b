// Runs a fuzz target once over each file given on the command line (or every
// file of each folder given), so that inputs that once failed stay tests in
// builds without libFuzzer.
#include <QByteArray>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    int ran = 0;
    auto runFile = [&ran](const QString& path) {
        QFile f(path);
        if (!f.open(QIODevice::ReadOnly)) {
            fprintf(stderr, "cannot read %s\n", qPrintable(path));
            return false;
        }
        const QByteArray bytes = f.readAll();
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.constData()),
                               size_t(bytes.size()));
        ++ran;
        return true;
    };
    for (int i = 1; i < argc; ++i) {
        const QString arg = QString::fromLocal8Bit(argv[i]);
        if (QFileInfo(arg).isDir()) {
            QDirIterator it(arg, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
            while (it.hasNext())
                if (!runFile(it.next()))
                    return 1;
        } else if (!runFile(arg)) {
            return 1;
        }
    }
    printf("%d inputs ran\n", ran);
    return 0;
}
