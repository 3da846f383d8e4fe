#include "support/Files.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace ovtest {

bool writeFile(const std::string& path, const std::string& content) {
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    return bool(out.flush());
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool fileExists(const std::string& path) {
    return std::filesystem::exists(path);
}

namespace {

bool setImmutableFlag(const std::string& path, bool on) {
    int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return false;
    int flags = 0;
    bool ok = ::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
    flags = on ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
    ok = ok && ::ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
    ::close(fd);
    return ok;
}

} // namespace

Immutable::Immutable(const std::string& path) : mPath(path) {
    mSet = setImmutableFlag(path, true);
}

void Immutable::release() {
    if (mSet)
        setImmutableFlag(mPath, false);
    mSet = false;
}

} // namespace ovtest
