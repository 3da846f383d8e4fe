// Line-by-line UTF-8 reading and writing over narrow byte streams, converting to and from the
// wide ovTypes::String. The attribute map's stream form is read and written with these.
#ifndef OVBASE_TYPES_UTF_8UTIL_H
#define OVBASE_TYPES_UTF_8UTIL_H

#include "types/Utf8Codec.h"
#include "types/ovTypes.h"

#include <istream>
#include <memory>
#include <ostream>

class UTF_8Util {
public:
    class LineReader {
    public:
        // Skips leading white space (formatted extraction of the first character) and a
        // byte-order mark (EF and the next two bytes, unchecked).
        explicit LineReader(std::istream& in);

        // The next code point, or -1 at the end of the input. Stray continuation bytes are
        // skipped; continuation bytes (every byte of 0x80 and above) are not checked and
        // overlong forms are accepted. A byte below 0x80 is never a continuation byte: a
        // sequence it cuts short (or the end of the input cuts short) gives each of its bytes
        // as the code point of the same value, and the byte below 0x80 is read afresh. So a
        // Latin-1 "caf\xE9" line reads as "caf\u00E9" and the next line stays whole; written
        // back (by the attribute map, say) such a byte becomes its UTF-8 form, C3 A9.
        int read();

        // The next line without its line feed, carriage returns dropped. The call that meets
        // the end of the input returns what it gathered with END clear; every later call
        // returns an empty text with END set.
        ovTypes::String readLine(bool& end);
        // The same into LINE (replacing its content), reusing its storage.
        void readLine(ovTypes::String& line, bool& end);

    private:
        void markInputEnd();

        std::istream& mIn;
        bool mEndSeen;
        // Bytes of a cut sequence that read() has still to give.
        unsigned char mPending[utf8codec::kMaxUnit - 1];
        int mPendingAt = 0;
        int mPendingCount = 0;
    };

    class LineWriter {
    public:
        explicit LineWriter(std::ostream& out);

        // UTF-8 of one code point; code points of 0x110000 and above are dropped.
        void write(wchar_t codePoint);
        void write(const ovTypes::String& text);
        void writeLine();
        void flush();

    private:
        std::ostream& mOut;
    };

    static std::unique_ptr<LineReader> getReader(std::istream& in);
    static std::unique_ptr<LineWriter> getWriter(std::ostream& out);
};

#endif
