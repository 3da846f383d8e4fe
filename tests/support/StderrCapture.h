// Captures what the process writes to standard error (fd 2) between construction and
// text(), so tests can check the library's diagnostic lines.
#ifndef OVBASE_TESTS_SUPPORT_STDERRCAPTURE_H
#define OVBASE_TESTS_SUPPORT_STDERRCAPTURE_H

#include <string>

namespace ovtest {

class FdCapture {
public:
    explicit FdCapture(int fd);
    ~FdCapture();
    FdCapture(const FdCapture&) = delete;
    FdCapture& operator=(const FdCapture&) = delete;

    // Everything written so far; capture goes on.
    std::string text();
    // Whether, and how many times, PART occurs in text().
    bool has(const std::string& part) { return count(part) != 0; }
    size_t count(const std::string& part);

private:
    int mFd;
    int mSaved;
    std::string mFile;
};

class StderrCapture : public FdCapture {
public:
    StderrCapture() : FdCapture(2) {}
};

class StdoutCapture : public FdCapture {
public:
    StdoutCapture() : FdCapture(1) {}
};

} // namespace ovtest

#endif
