// A stream buffer that hands out its text a few bytes at a time, as a pipe or a socket
// would: each refill makes CHUNK more bytes ready and never more, so multi-byte sequences,
// line feeds and tags straddle the ends of the get area. A chunk of 1 trickles byte by byte.
// Header-only so that the fuzz targets can use it too.
#ifndef OVBASE_TESTS_SUPPORT_CHUNKEDBUFFER_H
#define OVBASE_TESTS_SUPPORT_CHUNKEDBUFFER_H

#include <algorithm>
#include <streambuf>
#include <string>

namespace ovtest {

class ChunkedBuffer : public std::streambuf {
public:
    ChunkedBuffer(const std::string& text, std::string::size_type chunk)
        : mText(text), mChunk(std::max<std::string::size_type>(chunk, 1)), mNext(0) {}

protected:
    int_type underflow() override {
        if (mNext >= mText.size())
            return traits_type::eof();
        char* begin = &mText[mNext];
        mNext = std::min(mText.size(), mNext + mChunk);
        setg(begin, begin, &mText[0] + mNext);
        return traits_type::to_int_type(*begin);
    }

private:
    std::string mText;
    std::string::size_type mChunk;
    std::string::size_type mNext;
};

} // namespace ovtest

#endif
