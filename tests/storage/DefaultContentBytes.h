// Index files for the default-content tests, spelled out byte by byte so that the tests do
// not lean on the library's own writer to check its reader.
#ifndef OVBASE_TESTS_STORAGE_DEFAULTCONTENTBYTES_H
#define OVBASE_TESTS_STORAGE_DEFAULTCONTENTBYTES_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace dctest {

inline std::string be16(int value) {
    return {static_cast<char>((value >> 8) & 0xFF), static_cast<char>(value & 0xFF)};
}

inline std::string be32(uint32_t value) {
    return {static_cast<char>(value >> 24), static_cast<char>((value >> 16) & 0xFF),
            static_cast<char>((value >> 8) & 0xFF), static_cast<char>(value & 0xFF)};
}

// "dc", the two ignored fields and the count.
inline std::string header(int count) {
    return std::string("dc") + be16(0) + be32(0) + be16(count);
}

// One directory entry with a name field of exactly NAME's bytes.
inline std::string entry(const std::string& name, uint32_t length, uint32_t offset) {
    return be16(static_cast<int>(name.size())) + name + be32(length) + be32(offset);
}

// A whole index of RESOURCES (name, bytes): the directory, then the bytes in order.
inline std::string index(const std::vector<std::pair<std::string, std::string>>& resources) {
    size_t offset = 10;
    for (const auto& r : resources)
        offset += 10 + r.first.size();
    std::string directory = header(static_cast<int>(resources.size()));
    std::string data;
    for (const auto& r : resources) {
        directory += entry(r.first, static_cast<uint32_t>(r.second.size()),
                           static_cast<uint32_t>(offset + data.size()));
        data += r.second;
    }
    return directory + data;
}

} // namespace dctest

#endif
