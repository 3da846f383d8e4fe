// Line-by-line UTF-8 reading and writing over narrow byte streams, converting to and from the
// wide ovTypes::String. The attribute map's stream form is read and written with these.
#ifndef OVBASE_TYPES_UTF_8UTIL_H
#define OVBASE_TYPES_UTF_8UTIL_H

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
        // skipped; continuation bytes are not checked and overlong forms are accepted. A
        // sequence cut off by the end of the input is dropped.
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
