// The decoders behind the preview and the attachment list: quoted-printable
// and base64 bodies in any charset, encoded words of headers and attachment
// names, and the safe file names made from those names. The first byte of
// the input picks the decoder, the rest is its text.
#include "fuzz/FuzzSupport.h"
#include "scanner/MimePasses.h"
#include "scanner/ScaningThread.h"
#include "ui/PreviewDecoding.h"

#include <QTextCodec>

#include <cstdint>

namespace {

const char* const kCharsets[] = {"utf-8",       "iso-8859-1",     "windows-1252", "koi8-r",
                                 "iso-2022-jp", "ks_c_5601-1987", "bogus",        nullptr};
const char* const kEncodings[] = {"quoted-printable", "base64", "8bit", "", nullptr};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1)
        return 0;
    const uint8_t pick = data[0];
    const QByteArray bytes(reinterpret_cast<const char*>(data + 1), int(size - 1));
    const QString text = QString::fromUtf8(bytes);
    switch (pick % 6) {
    case 0: {
        // A body range of a file, decoded as the preview does.
        const QString path =
            fuzz::WriteInput(QStringLiteral("body"), bytes.constData(), bytes.size());
        const qint64 len = bytes.size();
        const qint64 start = (pick >> 3) % 3 == 0 ? 0 : len / int((pick >> 3) % 3 + 1);
        DecodeBodyRange(path, start, len, kEncodings[(pick >> 3) % 4], kCharsets[(pick >> 5) % 7]);
        DecodeBodyRange(path, len, start, kEncodings[pick % 4], "utf-8");
        break;
    }
    case 1:
        ScaningThread::QDecode(text);
        break;
    case 2:
        ScaningThread::DecodeAttName(text);
        break;
    case 3:
        DecodeEncodedWords(text, (pick & 0x80) != 0);
        break;
    case 4:
        SafeFileName(text);
        break;
    case 5:
        if (QTextCodec* codec = CodecForCharset(text.left(40)))
            codec->toUnicode(bytes);
        break;
    }
    return 0;
}
