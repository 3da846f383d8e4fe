#include "types/UTF_8Util.h"

#include "types/Utf8Codec.h"

#include <cstring>

namespace {

// Line reading scans the stream's get area directly instead of taking one byte per virtual
// call. The protected accessors are reached through member pointers formed inside a derived
// class, which the language allows; the stream buffer itself is never cast.
struct GetArea : std::streambuf {
    using Pointer = char* (std::streambuf::*)() const;
    using Bump = void (std::streambuf::*)(int);
    static constexpr Pointer kGptr = &GetArea::gptr;
    static constexpr Pointer kEgptr = &GetArea::egptr;
    static constexpr Bump kGbump = &GetArea::gbump;
};

constexpr GetArea::Pointer kGptr = GetArea::kGptr;
constexpr GetArea::Pointer kEgptr = GetArea::kEgptr;
constexpr GetArea::Bump kGbump = GetArea::kGbump;

// Advances the get area by N bytes, in steps gbump's int can hold.
void advance(std::streambuf* buf, size_t n) {
    while (n > 0) {
        int step = n > 0x40000000 ? 0x40000000 : static_cast<int>(n);
        (buf->*kGbump)(step);
        n -= static_cast<size_t>(step);
    }
}

} // namespace

UTF_8Util::LineReader::LineReader(std::istream& in) : mIn(in), mEndSeen(false) {
    char first;
    if (!(mIn >> first))
        return;
    if (static_cast<unsigned char>(first) == 0xEF) {
        mIn.get();
        mIn.get();
    } else {
        mIn.putback(first);
    }
}

void UTF_8Util::LineReader::markInputEnd() {
    // What istream::get() leaves behind at the end of the input.
    mIn.setstate(std::ios::eofbit | std::ios::failbit);
}

int UTF_8Util::LineReader::read() {
    if (mPendingAt < mPendingCount)
        return mPending[mPendingAt++];
    std::streambuf* buf = mIn.rdbuf();
    if (!buf || !mIn.good())
        return -1;
    int b;
    do {
        b = buf->sbumpc();
        if (b == std::char_traits<char>::eof()) {
            markInputEnd();
            return -1;
        }
    } while (utf8codec::isContinuation(static_cast<unsigned char>(b)));
    if (b < 0x80)
        return b;
    unsigned char lead = static_cast<unsigned char>(b);
    int count = utf8codec::continuationCount(lead);
    uint32_t cp = utf8codec::leadBits(lead, count);
    int taken = 0;
    while (taken < count) {
        // Looked at before it is taken: a byte below 0x80 ends the sequence and is read afresh.
        int c = buf->sgetc();
        if (c == std::char_traits<char>::eof() || c < 0x80)
            break;
        buf->sbumpc();
        mPending[taken++] = static_cast<unsigned char>(c);
        cp = (cp << 6) | (static_cast<unsigned int>(c) & 0x3F);
    }
    if (taken == count)
        return utf8codec::finish(cp);
    // Cut short: every byte stands for itself, the lead now and the others on later calls.
    mPendingAt = 0;
    mPendingCount = taken;
    return lead;
}

ovTypes::String UTF_8Util::LineReader::readLine(bool& end) {
    ovTypes::String line;
    readLine(line, end);
    return line;
}

void UTF_8Util::LineReader::readLine(ovTypes::String& line, bool& end) {
    line.clear();
    end = mEndSeen;
    if (mEndSeen)
        return;
    std::streambuf* buf = mIn.rdbuf();
    for (;;) {
        // Bytes of a cut sequence read() left: all of 0x80 and above, never a line end.
        while (mPendingAt < mPendingCount)
            line.push_back(static_cast<wchar_t>(mPending[mPendingAt++]));
        // Whole units are decoded straight from the get area, up to the first line feed byte
        // (no unit reaches past a byte below 0x80); a unit the area's end may cut, and every
        // refill, go through read().
        const unsigned char* from =
            buf && mIn.good() ? reinterpret_cast<const unsigned char*>((buf->*kGptr)()) : nullptr;
        const unsigned char* to =
            from ? reinterpret_cast<const unsigned char*>((buf->*kEgptr)()) : nullptr;
        if (from != to) {
            const unsigned char* p = from;
            const void* found = std::memchr(p, '\n', static_cast<size_t>(to - p));
            const unsigned char* feed = found ? static_cast<const unsigned char*>(found) : to;
            // A unit gives no more code points than it has bytes: decode in place, then trim.
            size_t old = line.size();
            line.resize(old + static_cast<size_t>(feed - p));
            wchar_t* out = &line[old];
            bool overlongFeed = false;
            while (p < feed) {
                uint32_t cp = *p;
                if (cp < 0x80) {
                    // A run of plain ASCII in one tight loop.
                    do {
                        if (cp != '\r')
                            *out++ = static_cast<wchar_t>(cp);
                        if (++p == feed)
                            break;
                        cp = *p;
                    } while (cp < 0x80);
                    continue;
                }
                uint32_t unit[utf8codec::kMaxUnit];
                int count = 0;
                size_t used = utf8codec::decodeUnit(p, to, true, unit, &count);
                if (used == 0)
                    break;
                p += used;
                // Overlong forms of the line feed and carriage return count as those.
                if (count == 1 && unit[0] == '\n') {
                    overlongFeed = true;
                    break;
                }
                for (int i = 0; i < count; ++i) {
                    if (unit[i] != '\r')
                        *out++ = static_cast<wchar_t>(unit[i]);
                }
            }
            line.resize(static_cast<size_t>(out - line.data()));
            if (overlongFeed) {
                advance(buf, static_cast<size_t>(p - from));
                return;
            }
            if (p == feed && feed < to) {
                advance(buf, static_cast<size_t>(p + 1 - from));
                return;
            }
            advance(buf, static_cast<size_t>(p - from));
        }
        int cp = read();
        if (cp == -1) {
            mEndSeen = true;
            return;
        }
        if (cp == '\n')
            return;
        if (cp != '\r')
            line.push_back(static_cast<wchar_t>(cp));
    }
}

UTF_8Util::LineWriter::LineWriter(std::ostream& out) : mOut(out) {}

void UTF_8Util::LineWriter::write(wchar_t codePoint) {
    char bytes[4];
    int n = utf8codec::encode(static_cast<uint32_t>(codePoint), bytes);
    if (n > 0)
        mOut.write(bytes, n);
}

void UTF_8Util::LineWriter::write(const ovTypes::String& text) {
    // Encoded in blocks so the stream gets few calls; all of it is in the stream on return.
    char block[1024 + 4];
    size_t used = 0;
    for (wchar_t c : text) {
        used += static_cast<size_t>(utf8codec::encode(static_cast<uint32_t>(c), block + used));
        if (used >= 1024) {
            mOut.write(block, static_cast<std::streamsize>(used));
            used = 0;
        }
    }
    if (used > 0)
        mOut.write(block, static_cast<std::streamsize>(used));
}

void UTF_8Util::LineWriter::writeLine() {
    mOut.put('\n');
}

void UTF_8Util::LineWriter::flush() {
    mOut.flush();
}

std::unique_ptr<UTF_8Util::LineReader> UTF_8Util::getReader(std::istream& in) {
    return std::unique_ptr<LineReader>(new LineReader(in));
}

std::unique_ptr<UTF_8Util::LineWriter> UTF_8Util::getWriter(std::ostream& out) {
    return std::unique_ptr<LineWriter>(new LineWriter(out));
}
