// Attribute map loading of arbitrary bytes in both list modes (chosen by the first byte),
// followed by a store and reload of whatever was read. What load() keeps packed must read as
// its map form does.
#include "types/AttrMap.h"

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    const bool listMode = data[0] & 1;
    std::istringstream in(std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
    AttrMap map(listMode);
    map.load(in);
    const AttrMap packed = map;

    for (const auto& category : map.categories()) {
        for (const auto& entry : category.second) {
            if (entry.second.empty())
                __builtin_trap(); // loading always stores at least one string
            std::vector<ovTypes::ID> fromPacked, fromMap;
            packed.getIDs(entry.first, fromPacked, nullptr, category.first);
            map.getIDs(entry.first, fromMap, nullptr, category.first);
            if (fromPacked != fromMap ||
                packed.getString(entry.first, L"", nullptr, category.first) != entry.second[0])
                __builtin_trap();
            bool found = false;
            map.getInt(entry.first, 0, &found, category.first);
            map.getLong(entry.first, 0, &found, category.first);
            map.getTimestamp(entry.first, 0, &found, category.first);
            map.getBool(entry.first, false, &found, category.first);
        }
    }

    std::ostringstream out;
    map.store(out);
    std::ostringstream outPacked;
    packed.store(outPacked);
    if (outPacked.str() != out.str())
        __builtin_trap();
    std::istringstream again(out.str());
    AttrMap reloaded(listMode);
    reloaded.load(again);
    return 0;
}
