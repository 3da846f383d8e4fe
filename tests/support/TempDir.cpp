#include "support/TempDir.h"

#include "OVPlatform.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace ovtest {

TempDir::TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "ovbase-test-XXXXXX").string();
    if (!mkdtemp(pattern.data()))
        throw std::runtime_error("mkdtemp failed");
    mPath = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(mPath, ignored);
}

std::string TempDir::file(const std::string& relative) const {
    if (!relative.empty() && relative.front() == '/')
        return mPath + relative;
    return mPath + "/" + relative;
}

TempDeviceRoot::TempDeviceRoot() {
    ovplatform::setDeviceRoot(path());
}

TempDeviceRoot::~TempDeviceRoot() {
    ovplatform::setDeviceRoot("");
}

} // namespace ovtest
