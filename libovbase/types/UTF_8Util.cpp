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

// Stores C at LENGTH in LINE, growing it when LENGTH is its end.
void put(ovTypes::String& line, size_t& length, wchar_t c) {
    if (length < line.size())
        line[length] = c;
    else
        line.push_back(c);
    ++length;
}

const uint64_t kOnes = 0x0101010101010101u;
const uint64_t kHighBits = 0x8080808080808080u;

// The eight bytes at P with the first in the low bits.
uint64_t load64(const unsigned char* p) {
    uint64_t w;
    std::memcpy(&w, p, sizeof w);
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    w = __builtin_bswap64(w);
#endif
    return w;
}

// Of the eight bytes at P, flags (high bit set) the bytes of 0x80 and above and the carriage
// returns: zero when all eight are plain ASCII. The first flag in memory order is exact (a
// borrow only runs towards later bytes); a byte after a carriage return may be flagged too.
uint64_t stopBytes(const unsigned char* p) {
    const uint64_t w = load64(p);
    return (w | ((w ^ (kOnes * '\r')) - kOnes)) & kHighBits;
}

// How many bytes precede the first flagged one (STOP not zero).
int plainBefore(uint64_t stop) {
    return __builtin_ctzll(stop) / 8;
}

// Widens eight bytes to eight code points; the pointers never overlap, which lets the
// compiler use vector moves.
void widen8(wchar_t* __restrict out, const unsigned char* __restrict in) {
    for (int i = 0; i < 8; ++i)
        out[i] = static_cast<wchar_t>(in[i]);
}

// Decodes four two-byte units from the eight bytes at IN to OUT, when that is what they are
// and none is an overlong form of a plain ASCII character (those need the checks for line
// ends). Returns false, having written nothing, otherwise.
bool decodeFourPairs(const unsigned char* in, wchar_t* out) {
    const uint64_t w = load64(in);
    if ((w & 0xC0E0C0E0C0E0C0E0u) != 0x80C080C080C080C0u)
        return false;
    // A lead byte gives 0x80 or above when one of its bits 1-4 is set.
    const uint64_t kTop = 0x8000800080008000u;
    if ((((w & 0x001E001E001E001Eu) + 0x7FFF7FFF7FFF7FFFu) & kTop) != kTop)
        return false;
    const uint64_t cp = (w & 0x001F001F001F001Fu) << 6 | (w >> 8 & 0x003F003F003F003Fu);
    for (int i = 0; i < 4; ++i)
        out[i] = static_cast<wchar_t>(cp >> (16 * i) & 0xFFFF);
    return true;
}

// The same for two three-byte units in the six bytes at IN (eight readable).
bool decodeTwoTriples(const unsigned char* in, wchar_t* out) {
    const uint64_t w = load64(in);
    if ((w & 0xC0C0F0C0C0F0u) != 0x8080E08080E0u)
        return false;
    const uint32_t first = (w & 0x0F) << 12 | (w >> 2 & 0xFC0) | (w >> 16 & 0x3F);
    const uint32_t second = (w >> 12 & 0xF000) | (w >> 26 & 0xFC0) | (w >> 40 & 0x3F);
    if (first < 0x80 || second < 0x80)
        return false;
    out[0] = static_cast<wchar_t>(first);
    out[1] = static_cast<wchar_t>(second);
    return true;
}

// Decodes the whole units of [P, FEED) to OUT, carriage returns dropped, as read() would
// give them. FEED is a line feed byte or TO, the end of the buffered bytes; a unit that
// reaches TO is left at P for read(). Returns true when an overlong line feed ends the line,
// with P just after it. OUT has room for a code point per byte.
bool decodeLine(const unsigned char*& p, const unsigned char* feed, const unsigned char* to,
                wchar_t*& out) {
    const unsigned char* in = p;
    wchar_t* o = out;
    bool overlongFeed = false;
    while (in < feed) {
        // Plain ASCII eight bytes at a time. All eight are widened even when fewer are plain:
        // OUT has room for them, and what lies beyond is overwritten or cut. A whole plain word
        // moves on by a constant, so the next load need not wait for this one's count.
        while (feed - in >= 8) {
            uint64_t stop = stopBytes(in);
            widen8(o, in);
            if (stop != 0) {
                int plain = plainBefore(stop);
                in += plain;
                o += plain;
                break;
            }
            in += 8;
            o += 8;
        }
        if (in == feed)
            break;
        uint32_t cp = *in;
        if (cp < 0x80) {
            if (cp != '\r')
                *o++ = static_cast<wchar_t>(cp);
            ++in;
            continue;
        }
        // A run of multi-byte units: two- and three-byte sequences inline, anything else
        // through the shared decoder.
        do {
            if (feed - in >= 8) {
                if (decodeFourPairs(in, o)) {
                    in += 8;
                    o += 4;
                    continue;
                }
                if (decodeTwoTriples(in, o)) {
                    in += 6;
                    o += 2;
                    continue;
                }
            }
            if ((cp & 0xE0) == 0xC0 && feed - in > 1 && in[1] >= 0x80) {
                cp = ((cp & 0x1F) << 6) | (in[1] & 0x3Fu);
                in += 2;
            } else if ((cp & 0xF0) == 0xE0 && feed - in > 2 && in[1] >= 0x80 && in[2] >= 0x80) {
                cp = ((cp & 0x0F) << 12) | ((in[1] & 0x3Fu) << 6) | (in[2] & 0x3Fu);
                in += 3;
            } else {
                uint32_t unit[utf8codec::kMaxUnit];
                int count = 0;
                size_t used = utf8codec::decodeUnit(in, to, true, unit, &count);
                if (used == 0) {
                    p = in;
                    out = o;
                    return false;
                }
                in += used;
                if (count != 1) {
                    // A stray continuation byte (nothing) or a cut sequence (bytes of 0x80
                    // and above, none a line end).
                    for (int i = 0; i < count; ++i)
                        *o++ = static_cast<wchar_t>(unit[i]);
                    continue;
                }
                cp = unit[0];
            }
            if (cp < 0x80) {
                // Overlong forms of the line feed and carriage return count as those.
                if (cp == '\n') {
                    overlongFeed = true;
                    break;
                }
                if (cp == '\r')
                    continue;
            }
            *o++ = static_cast<wchar_t>(cp);
        } while (in < feed && (cp = *in) >= 0x80);
        if (overlongFeed)
            break;
    }
    p = in;
    out = o;
    return overlongFeed;
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
    end = mEndSeen;
    if (mEndSeen) {
        line.clear();
        return;
    }
    // LINE's old content is overwritten in place and cut to LENGTH on return, so a reused
    // string is zero-filled (by resize) only where this line is longer than the last.
    size_t length = 0;
    std::streambuf* buf = mIn.rdbuf();
    for (;;) {
        // Bytes of a cut sequence read() left: all of 0x80 and above, never a line end.
        while (mPendingAt < mPendingCount)
            put(line, length, mPending[mPendingAt++]);
        // Whole units are decoded straight from the get area, up to the first line feed byte
        // (no unit reaches past a byte below 0x80); a unit the area's end may cut, and every
        // refill, go through read().
        const unsigned char* from =
            buf && mIn.good() ? reinterpret_cast<const unsigned char*>((buf->*kGptr)()) : nullptr;
        const unsigned char* to =
            from ? reinterpret_cast<const unsigned char*>((buf->*kEgptr)()) : nullptr;
        if (from != to) {
            const void* found = std::memchr(from, '\n', static_cast<size_t>(to - from));
            const unsigned char* feed = found ? static_cast<const unsigned char*>(found) : to;
            // A unit gives no more code points than it has bytes.
            if (line.size() < length + static_cast<size_t>(feed - from))
                line.resize(length + static_cast<size_t>(feed - from));
            const unsigned char* p = from;
            wchar_t* out = &line[length];
            bool overlongFeed = decodeLine(p, feed, to, out);
            length = static_cast<size_t>(out - line.data());
            if (overlongFeed || (p == feed && feed < to)) {
                advance(buf, static_cast<size_t>(p - from) + (overlongFeed ? 0 : 1));
                line.resize(length);
                return;
            }
            advance(buf, static_cast<size_t>(p - from));
        }
        int cp = read();
        if (cp == -1)
            mEndSeen = true;
        if (cp == -1 || cp == '\n') {
            line.resize(length);
            return;
        }
        if (cp != '\r')
            put(line, length, static_cast<wchar_t>(cp));
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
