// A stream buffer without end, as /dev/zero or a chatty pipe: it lets a test see how much a
// parser reads after its document has failed.
#ifndef OVBASE_TESTS_DPTEMPLATE_ENDLESSBUFFER_H
#define OVBASE_TESTS_DPTEMPLATE_ENDLESSBUFFER_H

#include <cstddef>
#include <streambuf>
#include <string>

// Hands out PREFIX and then FILLER over and over, as /dev/zero or a chatty pipe would, and
// counts what it handed out. It gives up after 64 MB so that a parser that keeps reading
// fails the test instead of hanging it.
class EndlessBuffer : public std::streambuf {
public:
    EndlessBuffer(const std::string& prefix, const std::string& filler)
        : mBlock(prefix), mFiller(filler) {}

    std::size_t mHandedOut = 0;

protected:
    int_type underflow() override {
        if (mHandedOut >= 64u << 20)
            return traits_type::eof();
        if (mHandedOut > 0 || mBlock.empty()) {
            mBlock.clear();
            while (mBlock.size() < 4096)
                mBlock += mFiller;
        }
        mHandedOut += mBlock.size();
        setg(&mBlock[0], &mBlock[0], &mBlock[0] + mBlock.size());
        return traits_type::to_int_type(mBlock[0]);
    }

private:
    std::string mBlock;
    std::string mFiller;
};

#endif
