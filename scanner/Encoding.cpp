// Quoted-printable bytes and RFC 2047 attachment names.
#include "scanner/MimePasses.h"
#include "scanner/ScaningThread.h"

#include <QTextCodec>

namespace {

const QLatin1String kWordStart("=?"), kWordEnd("?=");

// Value of one hexadecimal digit, upper-cased first. Characters other than
// "0"-"9" and "A"-"F" count as 0.
int HexDigit(QChar c) {
    const ushort u = c.toUpper().unicode();
    if (u >= '0' && u <= '9')
        return u - '0';
    if (u >= 'A' && u <= 'F')
        return u - 'A' + 10;
    return 0;
}

// Decodes the text of one encoded name word.
QString DecodeNameWord(const QString& charset, const QString& encoding, const QString& text) {
    if (encoding == QLatin1String("Q")) {
        const QByteArray bytes = ScaningThread::QDecode(text);
        if (charset.isEmpty())
            return QString::fromUtf8(bytes);
        QTextCodec* codec = CodecForCharset(charset);
        // A charset without a codec: one character per byte.
        return codec ? codec->toUnicode(bytes) : QString::fromLatin1(bytes);
    }
    if (encoding == QLatin1String("B")) {
        // Read as UTF-8 up to the first NUL byte, whatever the charset says.
        return QString::fromUtf8(QByteArray::fromBase64(text.toLatin1()));
    }
    return QString();
}

} // namespace

QString SplitEncodedWord(const QString& word, QString* charset, QString* encoding) {
    QString rest = word;
    int q = rest.indexOf(QLatin1Char('?'));
    *charset = q < 0 ? rest : rest.left(q);
    rest = q < 0 ? QString() : rest.mid(q + 1);
    q = rest.indexOf(QLatin1Char('?'));
    *encoding = q < 0 ? rest : rest.left(q);
    return q < 0 ? QString() : rest.mid(q + 1);
}

QTextCodec* CodecForCharset(const QString& charset) {
    if (charset.isEmpty())
        return nullptr;
    if (charset == QLatin1String("ks_c_5601-1987")) {
        // Korean mail names its code page ks_c_5601-1987; it is read as cp949,
        // which some Qt builds only know as windows-949.
        if (QTextCodec* codec = QTextCodec::codecForName("cp949"))
            return codec;
        return QTextCodec::codecForName("windows-949");
    }
    return QTextCodec::codecForName(charset.toLatin1());
}

QByteArray ScaningThread::QDecode(const QString& text) {
    QByteArray out;
    out.reserve(text.size());
    const int n = text.size();
    for (int i = 0; i < n; ++i) {
        const QChar c = text.at(i);
        if (c == QLatin1Char('=')) {
            // Digits past the end of the text count as 0.
            const int high = i + 1 < n ? HexDigit(text.at(i + 1)) : 0;
            const int low = i + 2 < n ? HexDigit(text.at(i + 2)) : 0;
            out.append(char(high * 16 + low));
            i += 2;
        } else {
            out.append(c.unicode() > 0xFF ? '\0' : char(c.unicode()));
        }
    }
    return out;
}

QString ScaningThread::DecodeAttName(const QString& text) {
    if (!text.startsWith(kWordStart))
        return QString();
    QString charset, encoding;
    QString rest = SplitEncodedWord(text.mid(kWordStart.size()), &charset, &encoding);
    if (rest.endsWith(kWordEnd)) {
        rest.chop(kWordEnd.size());
        return DecodeNameWord(charset, encoding, rest);
    }
    // Text after a single encoded word, up to the closing quote, is kept;
    // further words are not decoded.
    const QStringList pieces = rest.split(kWordEnd);
    if (pieces.size() < 2)
        return QString();
    QString tail = pieces.at(1);
    tail.chop(1);
    return DecodeNameWord(charset, encoding, pieces.at(0)) + tail;
}
