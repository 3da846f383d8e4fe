// Helpers of the template-engine tests: what the engine printed, and a stream buffer that
// never ends or fails, as a chatty pipe or a device that goes away would.
#ifndef OVBASE_TESTS_DPTEMPLATE_ENGINETEST_H
#define OVBASE_TESTS_DPTEMPLATE_ENGINETEST_H

#include <algorithm>
#include <cstddef>
#include <regex>
#include <stdexcept>
#include <streambuf>
#include <string>

// The template engine prints nothing, but the rest of the library logs from its own threads
// while a test captures standard error (the timer thread announces itself when the library is
// loaded). engineOutput() drops those diagnostic lines and the line breaks, so what is left of a
// capture is what the engine or libxml2 printed.
inline std::string engineOutput(const std::string& captured) {
    // "{level} file:line[, function()]\tmessage", the message running to the line's end or to
    // the next diagnostic written into the same line.
    static const std::regex diagnostic("\\{[0-9]+\\} [^\\t\\n]*\\t[^{\\n]*");
    std::string rest = std::regex_replace(captured, diagnostic, "");
    rest.erase(std::remove(rest.begin(), rest.end(), '\n'), rest.end());
    return rest;
}

// Hands out PREFIX and then FILLER over and over, as /dev/zero or a chatty pipe would, and
// counts what it handed out, so a test sees how much a parser reads after its document has
// failed. It gives up after 64 MB so that a parser that keeps reading fails the test instead
// of hanging it. With an empty FILLER it fails hard after PREFIX instead, as a device that goes
// away in the middle of a read.
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
            if (mFiller.empty())
                throw std::runtime_error("device gone");
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
