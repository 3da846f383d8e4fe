#include "support/Files.h"

#include <filesystem>
#include <fstream>
#include <iterator>

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

} // namespace ovtest
