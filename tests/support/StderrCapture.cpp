#include "support/StderrCapture.h"

#include "support/Files.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <unistd.h>

namespace ovtest {

FdCapture::FdCapture(int fd) : mFd(fd) {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "ovbase-capture-XXXXXX").string();
    int file = mkstemp(pattern.data());
    if (file < 0)
        throw std::runtime_error("mkstemp failed");
    mFile = pattern;
    std::fflush(nullptr);
    mSaved = dup(mFd);
    dup2(file, mFd);
    close(file);
}

FdCapture::~FdCapture() {
    std::fflush(nullptr);
    dup2(mSaved, mFd);
    close(mSaved);
    unlink(mFile.c_str());
}

std::string FdCapture::text() {
    std::fflush(nullptr);
    return readFile(mFile);
}

size_t FdCapture::count(const std::string& part) {
    const std::string all = text();
    size_t n = 0;
    for (size_t at = all.find(part); at != std::string::npos; at = all.find(part, at + 1))
        ++n;
    return n;
}

} // namespace ovtest
