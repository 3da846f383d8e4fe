// Attribute map loading of arbitrary bytes in both list modes (chosen by the first byte),
// followed by a store and reload of whatever was read.
#include "types/AttrMap.h"

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    const bool listMode = data[0] & 1;
    std::istringstream in(std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
    AttrMap map(listMode);
    map.load(in);

    for (const auto& category : map.categories()) {
        for (const auto& entry : category.second) {
            if (entry.second.empty())
                __builtin_trap(); // loading always stores at least one string
            bool found = false;
            map.getInt(entry.first, 0, &found, category.first);
            map.getLong(entry.first, 0, &found, category.first);
            map.getTimestamp(entry.first, 0, &found, category.first);
            map.getBool(entry.first, false, &found, category.first);
        }
    }

    std::ostringstream out;
    map.store(out);
    std::istringstream again(out.str());
    AttrMap reloaded(listMode);
    reloaded.load(again);
    return 0;
}
