#pragma once
// The default export's text conversion: message text read as UTF-8 and
// written as Latin-1, as Outlook 2011 expects.

#include "scanner/EmlxLines.h"

#include <QtGlobal>

#include <cstring>

namespace emlx {

// Valid UTF-8 written as Latin-1: one byte per character, "?" for each
// UTF-16 unit that Latin-1 lacks, into `out`, which has room for `size`
// bytes. Returns the bytes written, or -1 when the text is not valid UTF-8
// (the caller then lets Qt's decoder handle it).
inline qint64 Utf8ToLatin1(const char* in, qint64 size, char* out) {
    const auto* p = reinterpret_cast<const unsigned char*>(in);
    const auto* end = p + size;
    char* o = out;
    auto cont = [](unsigned char c) { return (c & 0xC0) == 0x80; };
    while (p < end) {
        // Runs of ASCII, sixteen bytes at a time. The output never runs ahead
        // of the input, so all sixteen may be stored: those after the run are
        // overwritten next.
        while (end - p >= 16) {
            const unsigned high = emlx::Mask(emlx::Load16(reinterpret_cast<const char*>(p)) < 0);
            const int ascii = high ? __builtin_ctz(high) : 16;
            memcpy(o, p, 16);
            o += ascii;
            p += ascii;
            if (high)
                break;
        }
        if (p == end)
            break;
        const unsigned char c = *p;
        if (c < 0x80) {
            *o++ = char(c);
            ++p;
        } else if (c >= 0xC2 && c <= 0xDF) {
            if (end - p < 2 || !cont(p[1]))
                return -1;
            const unsigned code = ((c & 0x1Fu) << 6) | (p[1] & 0x3Fu);
            *o++ = code <= 0xFF ? char(code) : '?';
            p += 2;
        } else if (c >= 0xE0 && c <= 0xEF) {
            if (end - p < 3 || !cont(p[1]) || !cont(p[2]))
                return -1;
            if ((c == 0xE0 && p[1] < 0xA0) || (c == 0xED && p[1] > 0x9F))
                return -1; // overlong, or a surrogate
            *o++ = '?';
            p += 3;
        } else if (c >= 0xF0 && c <= 0xF4) {
            if (end - p < 4 || !cont(p[1]) || !cont(p[2]) || !cont(p[3]))
                return -1;
            if ((c == 0xF0 && p[1] < 0x90) || (c == 0xF4 && p[1] > 0x8F))
                return -1; // overlong, or beyond U+10FFFF
            *o++ = '?';    // a surrogate pair: two units
            *o++ = '?';
            p += 4;
        } else {
            return -1;
        }
    }
    return o - out;
}

} // namespace emlx
