// The UTF-8 coding shared by MString and UTF_8Util: the encoder drops code points of 0x110000
// and above; the decoder is lenient (continuation bytes are not checked, overlong and
// surrogate forms pass) because settings and templates come from many hands. It never takes a
// byte below 0x80 for a continuation byte, so text in another encoding (Latin-1) never
// swallows the line feed or the character after it.
#ifndef OVBASE_TYPES_UTF8CODEC_H
#define OVBASE_TYPES_UTF8CODEC_H

#include <cstddef>
#include <cstdint>

namespace utf8codec {

// Writes the UTF-8 form of CP to OUT (room for 4 bytes); returns the byte count, 0 when the
// code point lies beyond Unicode (negative wide characters included).
inline int encode(uint32_t cp, char* out) {
    if (cp < 0x80) {
        out[0] = static_cast<char>(cp);
        return 1;
    }
    if (cp < 0x800) {
        out[0] = static_cast<char>(0xC0 | (cp >> 6));
        out[1] = static_cast<char>(0x80 | (cp & 0x3F));
        return 2;
    }
    if (cp < 0x10000) {
        out[0] = static_cast<char>(0xE0 | (cp >> 12));
        out[1] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out[2] = static_cast<char>(0x80 | (cp & 0x3F));
        return 3;
    }
    if (cp < 0x110000) {
        out[0] = static_cast<char>(0xF0 | (cp >> 18));
        out[1] = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out[2] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out[3] = static_cast<char>(0x80 | (cp & 0x3F));
        return 4;
    }
    return 0;
}

inline bool isContinuation(unsigned char b) {
    return (b & 0xC0) == 0x80;
}

// Continuation bytes that follow a lead byte: the leading one bits after the first.
inline int continuationCount(unsigned char lead) {
    // The complement has a zero bit below the lead byte, so it is never zero.
    return __builtin_clz(~(static_cast<uint32_t>(lead) << 24)) - 1;
}

// The payload bits of a lead byte with COUNT continuation bytes.
inline uint32_t leadBits(unsigned char lead, int count) {
    return count >= 6 ? 0 : lead & (0x7Fu >> (count + 1));
}

// Keeps decoded garbage (up to seven continuation bytes) non-negative, so -1 always means
// the end of the text.
inline int finish(uint32_t cp) {
    return static_cast<int>(cp & 0x7FFFFFFF);
}

// The longest unit decodeUnit gives: a lead byte and seven continuation bytes.
const int kMaxUnit = 8;

// Decodes the unit of text at P (P < END) into OUT (room for kMaxUnit code points), setting
// *COUNT to the code points it gives, and returns the bytes it takes:
//  - a stray continuation byte (10xxxxxx): skipped, no code point;
//  - a byte below 0x80: itself;
//  - a lead byte followed by as many bytes of 0x80 and above as it announces: one code point;
//  - a lead byte whose sequence a byte below 0x80 or the end of the text cuts short: each of
//    its bytes as the code point of the same value (0xE9 reads as U+00E9); the byte below 0x80
//    is not part of it.
// When END may not be the end of the text (MORE is true) and the sequence reaches END, 0 is
// returned: the rest decides.
inline size_t decodeUnit(const unsigned char* p, const unsigned char* end, bool more, uint32_t* out,
                         int* count) {
    const unsigned char lead = *p;
    if (lead < 0x80 || isContinuation(lead)) {
        out[0] = lead;
        *count = lead < 0x80 ? 1 : 0;
        return 1;
    }
    const int n = continuationCount(lead);
    int k = 1;
    while (k <= n && p + k < end && p[k] >= 0x80)
        ++k;
    if (k > n) {
        uint32_t cp = leadBits(lead, n);
        for (int i = 1; i <= n; ++i)
            cp = (cp << 6) | (p[i] & 0x3Fu);
        out[0] = static_cast<uint32_t>(finish(cp));
        *count = 1;
        return static_cast<size_t>(n + 1);
    }
    if (p + k == end && more) {
        *count = 0;
        return 0;
    }
    for (int i = 0; i < k; ++i)
        out[i] = p[i];
    *count = k;
    return static_cast<size_t>(k);
}

} // namespace utf8codec

#endif
