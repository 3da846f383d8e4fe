#include "model/Streamable.h"

#include "types/AttrMap.h"

#include <algorithm>
#include <istream>
#include <ostream>
#include <sstream>
#include <utility>

namespace {

// A line feed inside a key or value would end its line early and let the rest read back as a
// key line of its own (texts come from a server), so each one is stored as a space.
void keepOnOneLine(AttrMap& attrs) {
    AttrMap::KeyMap* keys = attrs.defaultCategory();
    if (!keys)
        return;
    AttrMap::KeyMap renamed;
    for (AttrMap::KeyMap::iterator entry = keys->begin(); entry != keys->end();) {
        for (ovTypes::String& value : entry->second)
            std::replace(value.begin(), value.end(), L'\n', L' ');
        if (entry->first.find('\n') == std::string::npos) {
            ++entry;
            continue;
        }
        ovTypes::ID key = entry->first;
        std::replace(key.begin(), key.end(), '\n', ' ');
        renamed[key] = std::move(entry->second);
        entry = keys->erase(entry);
    }
    for (auto& entry : renamed)
        (*keys)[entry.first] = std::move(entry.second);
}

} // namespace

Streamable::~Streamable() {}

bool Streamable::store(std::ostream& out) const {
    AttrMap attrs(true);
    storeIntoAttrs(attrs);
    keepOnOneLine(attrs);
    attrs.store(out);
    return !out.fail();
}

void Streamable::load(std::istream& in) {
    AttrMap attrs(true);
    attrs.load(in);
    loadFromAttrs(attrs);
}

unsigned long Streamable::getStreamLength() const {
    std::ostringstream out;
    store(out);
    return static_cast<unsigned long>(out.str().size());
}
