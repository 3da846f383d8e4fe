// The UTF-8 coding shared by MString and UTF_8Util: the encoder drops code points of 0x110000
// and above; the decoder is lenient (continuation bytes are not checked, overlong and
// surrogate forms pass) because settings and templates come from many hands.
#ifndef OVBASE_TYPES_UTF8CODEC_H
#define OVBASE_TYPES_UTF8CODEC_H

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

} // namespace utf8codec

#endif
