#include "model/Container.h"

#include "storage/NR_ContentCache.h"
#include "types/AttrMap.h"

using ovTypes::ID;

Container::Container(const ID& id) : id(id), mpCarousel(nullptr) {}

Container::~Container() {}

void Container::loadFromAttrs(AttrMap& attrs) {
    loadIDs(attrs, "channelIDs", channelIDs);
}

void Container::storeIntoAttrs(AttrMap& attrs) const {
    attrs.putIDs("channelIDs", channelIDs);
}

int Container::store() const {
    return NR_ContentCache::getInstance()->save(id, *this);
}
