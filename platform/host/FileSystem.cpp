// The file-system query of the host: statfs, unless the directory (or one above it) was given
// a simulated size, which is kept in the simulated phone's state file under "statfs:<dir>".
#include "OVPlatform.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <sys/vfs.h>

namespace ovplatform {
namespace {

// An absolute, normalised form of PATH without a trailing '/', so that one directory has one
// key however it is written.
std::string normalised(const std::string& path) {
    std::error_code error;
    std::filesystem::path absolute = std::filesystem::absolute(path, error);
    std::string text = (error ? std::filesystem::path(path) : absolute).lexically_normal().string();
    while (text.size() > 1 && text.back() == '/')
        text.pop_back();
    return text;
}

std::string simulationKey(const std::string& dir) {
    return "statfs:" + dir;
}

// The simulated size of PATH or of the nearest directory above it that has one.
bool simulatedSize(const std::string& path, long& blockSize, long& totalBlocks) {
    std::string dir = normalised(path);
    for (;;) {
        std::string value = phoneValue(simulationKey(dir));
        if (std::sscanf(value.c_str(), "%ld %ld", &blockSize, &totalBlocks) == 2 && blockSize > 0 &&
            totalBlocks > 0)
            return true;
        std::string::size_type slash = dir.rfind('/');
        if (slash == std::string::npos || dir == "/")
            return false;
        dir = slash == 0 ? "/" : dir.substr(0, slash);
    }
}

} // namespace

bool fileSystemSize(const std::string& path, long& blockSize, long& totalBlocks) {
    struct statfs info;
    if (::statfs(path.c_str(), &info) != 0)
        return false; // a simulated size does not make a missing directory usable
    if (simulatedSize(path, blockSize, totalBlocks))
        return true;
    blockSize = static_cast<long>(info.f_bsize);
    totalBlocks = static_cast<long>(info.f_blocks);
    return true;
}

bool setSimulatedFileSystem(const std::string& dir, long blockSize, long totalBlocks) {
    if (totalBlocks <= 0)
        return setPhoneValue(simulationKey(normalised(dir)), "");
    if (blockSize <= 0) {
        errno = EINVAL;
        return false;
    }
    return setPhoneValue(simulationKey(normalised(dir)),
                         std::to_string(blockSize) + " " + std::to_string(totalBlocks));
}

} // namespace ovplatform
