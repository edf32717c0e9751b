#pragma once
// Line reader over one message file. The file is opened once and mapped;
// lines are views into the mapping, so nothing of a message is copied. The
// lines follow the rules of scanner/EmlxLines.h. Positions are real byte
// offsets in the file, taken right after a line. A line's "length" is the
// length of its text decoded from UTF-8, in UTF-16 units.

#include "scanner/EmlxLines.h"

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QtGlobal>

class MessageFile;

namespace emlx {

// Finds a fixed text in the mapping, remembering the last answer so that
// the mostly forward line walks search each stretch of the file only once.
// Searches look ahead by a bounded stretch, so a walk that stops early (the
// header fields) does not search the whole file. Two finders whose texts
// start with the same byte can be paired: a search for one also notes what
// it met of the other, so one walk over the bytes serves both.
class NeedleFinder {
public:
    // `needle`: at least two bytes (the search goes by its first two).
    NeedleFinder(const char* needle, int size) : m_needle(needle), m_size(size) {
        Q_ASSERT(size >= 2);
    }
    void Reset(const char* data, qint64 size);
    void Pair(NeedleFinder* other) { m_other = other; }
    void SetOwner(MessageFile* owner) { m_owner = owner; }
    // First occurrence starting in [from, last], or -1.
    qint64 FirstIn(qint64 from, qint64 last);
    // First occurrence starting at or after from, or -1.
    qint64 From(qint64 from) { return FirstIn(from, m_dataSize); }
    int Size() const { return m_size; }

private:
    bool At(qint64 pos) const;

    const char* m_needle;
    int m_size;
    NeedleFinder* m_other = nullptr;
    MessageFile* m_owner = nullptr;
    const char* m_data = nullptr;
    qint64 m_dataSize = 0;
    qint64 m_lo = 0, m_hi = -1; // starts searched by the last search
    qint64 m_found = -1;        // first occurrence among them, or -1
};

// A line of the mapping.
struct Line {
    const char* p = nullptr; // first byte of the line
    qint64 start = 0;        // file offset of the line
    qint64 next = 0;         // file offset right after the line
    qint64 rawLen = 0;       // bytes before the line end ("\n" or "\r\n")
    bool rawNl = false;      // the line ended with "\n"
    // Text, computed by Cut(): rawLen/rawNl shortened at the first NUL byte.
    mutable qint64 textLen = -1;
    mutable bool nl = false;

    void Cut() const;
    // Bytes of the text without its final "\n"; the text is those bytes plus
    // "\n" when HasNewline().
    qint64 ContentLen() const {
        Cut();
        return textLen;
    }
    bool HasNewline() const {
        Cut();
        return nl;
    }
    // The text is empty: end of file, or a line starting with a NUL byte.
    bool IsEmpty() const { return rawLen == 0 ? !rawNl : p[0] == '\0'; }
    // The text is exactly "\n".
    bool IsBlank() const { return rawLen == 0 && rawNl; }
    // First byte of the text, or 0.
    char First() const { return rawLen > 0 ? p[0] : (rawNl ? '\n' : '\0'); }

    bool StartsWith(const char* lit, bool ignoreCase = false) const;
    bool EndsWith(const char* lit) const;
    bool Equals(const char* lit, bool ignoreCase = false) const;
    bool Contains(const char* lit) const;

    QByteArray Bytes() const; // the text as bytes (a copy: header lines only)
    QString Text() const;     // the text decoded as UTF-8
    int Utf16Length() const;  // length of Text() without building it for ASCII
};

} // namespace emlx

class MessageFile {
public:
    MessageFile();
    ~MessageFile();
    MessageFile(const MessageFile&) = delete;
    MessageFile& operator=(const MessageFile&) = delete;

    // Opens a regular file and holds its bytes: a file of up to
    // kReadWhole bytes is read into memory, a larger one is mapped. False
    // when it is not a regular file or cannot be read or mapped. An empty
    // file opens and has no lines.
    bool Open(const QString& path);
    // Lets go of the file (a read file's buffer is kept for the next Open).
    void Close() { Release(); }
    // Why the last Open failed.
    const QString& ErrorString() const { return m_error; }

    qint64 Size() const { return m_size; }
    qint64 Pos() const { return m_pos; }
    bool AtEnd() const { return m_pos >= m_size; }
    void Seek(qint64 pos) { m_pos = qBound<qint64>(0, pos, m_size); }
    const char* Data() const { return m_data; }

    // Reads the line at the current position; false at the end of the file.
    bool ReadLine(emlx::Line* line);
    // Moves over whole lines that cannot matter to the boundary walk: lines
    // whose first byte is not "-", a NUL byte or (with declarations) "C" or
    // "c", and that do not hold the trailer mark.
    void SkipBodyLines(bool declarations);
    // Moves over whole lines that cannot matter to the header fields: lines
    // that do not start with "From:", "To:", "Subject:", "Date:" or
    // "X-Priority:" (in any case) and hold neither the trailer mark nor the
    // property-list DOCTYPE.
    void SkipToHeaderLine();

    // A long walk gives back the mapped pages it has left behind: those in
    // [from, pos) but for the last megabyte. Without this a walk over a large
    // message would keep all of it resident, since mapped pages count as the
    // process's memory. The pages come back from the file cache when a later
    // pass needs them. Does nothing for stretches under a few megabytes.
    void ReleaseBehind(qint64 from, qint64 pos) const;
    static constexpr qint64 kReleaseStep = 8 * 1024 * 1024;
    // Reading a small file costs less than mapping it (no page faults, no
    // unmapping), and its buffer is used again for the next file.
    static constexpr qint64 kReadWhole = 4 * 1024 * 1024;
    static constexpr int kKeptBuffer = 1024 * 1024;

    // The line's text contains the property-list trailer mark
    // "<?xml version="1.0" encoding="UTF-8"?>".
    bool HasTrailer(const emlx::Line& line) { return LineHas(line, m_trailer); }
    // The line's text contains "<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST ".
    bool HasDoctype(const emlx::Line& line) { return LineHas(line, m_doctype); }

    // The byte count on the first line (emlx::CountReader), at most the
    // largest qint64.
    qint64 FirstLineCount();
    // The boundary walk met the first trailer line, which starts at pos.
    void NoteTrailerLine(qint64 pos) {
        if (m_trailerLine < 0)
            m_trailerLine = pos;
    }
    // End of the message text: the first line's byte length plus its count,
    // cut at the start of the trailer line and at the end of the file.
    qint64 MessageTextEnd();

private:
    bool LineHas(const emlx::Line& line, emlx::NeedleFinder& finder);
    template <typename Interesting> void SkipLines(Interesting interesting);
    void Release();

    QFile m_file;
    QByteArray m_read; // the bytes of a file that was read, not mapped
    bool m_mapped = false;
    QString m_error;
    const char* m_data = nullptr;
    qint64 m_size = 0;
    qint64 m_pos = 0;
    qint64 m_trailerLine = -1;
    emlx::NeedleFinder m_trailer;
    emlx::NeedleFinder m_doctype;
};
