#include "OVPlatform.h"

#include <mutex>

namespace ovplatform {
namespace {

std::mutex& rootMutex() {
    static std::mutex m;
    return m;
}

std::string& rootValue() {
    static std::string root = OVBASE_DEVICE_ROOT;
    return root;
}

bool isProcPath(const std::string& path) {
    return path == "/proc" || path.compare(0, 6, "/proc/") == 0;
}

} // namespace

void setDeviceRoot(const std::string& dir) {
    std::lock_guard<std::mutex> lock(rootMutex());
    std::string root = dir;
    while (root.size() > 1 && root.back() == '/')
        root.pop_back(); // built-in paths bring their own leading '/'
    rootValue() = root;
}

std::string deviceRoot() {
    std::lock_guard<std::mutex> lock(rootMutex());
    return rootValue();
}

std::string devicePath(const std::string& path) {
    if (isProcPath(path))
        return path;
    std::lock_guard<std::mutex> lock(rootMutex());
    return rootValue() + path;
}

} // namespace ovplatform
