#include "model/Container.h"

#include "storage/NR_ContentCache.h"
#include "types/AttrMap.h"

using ovTypes::ID;

Container::Container(const ID& id) : id(id), mpCarousel(nullptr) {}

Container::~Container() {}

void Container::loadFromAttrs(AttrMap& attrs) {
    std::vector<ID> read;
    attrs.getIDs("channelIDs", read);
    channelIDs.clear();
    for (ID& channelID : read) {
        if (!channelID.empty())
            channelIDs.push_back(std::move(channelID));
    }
}

void Container::storeIntoAttrs(AttrMap& attrs) const {
    attrs.putIDs("channelIDs", channelIDs);
}

int Container::store() const {
    return NR_ContentCache::getInstance()->save(id, *this);
}
