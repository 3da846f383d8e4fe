// A stream buffer that hands out its text and then fails hard, as a device that goes away
// in the middle of a read.
#ifndef OVBASE_TESTS_DPTEMPLATE_FAILINGBUFFER_H
#define OVBASE_TESTS_DPTEMPLATE_FAILINGBUFFER_H

#include <stdexcept>
#include <streambuf>
#include <string>

class FailingBuffer : public std::streambuf {
public:
    explicit FailingBuffer(const std::string& text) : mText(text) {
        setg(&mText[0], &mText[0], &mText[0] + mText.size());
    }

protected:
    int_type underflow() override { throw std::runtime_error("device gone"); }

private:
    std::string mText;
};

#endif
