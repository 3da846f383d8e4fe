#include "model/Channel.h"

#include "model/Container.h"
#include "storage/NR_ContentCache.h"
#include "types/FnLog.h"

#include <ostream>

using ovTypes::ID;

Channel::Channel(const ID& id) : NewsObject(id), mpContainer(nullptr) {}

void Channel::loadFromAttrs(AttrMap& attrs) {
    NewsObject::loadFromAttrs(attrs);
    std::vector<ID> read;
    attrs.getIDs("itemids", read);
    itemIDs.clear();
    for (ID& itemID : read) {
        if (!itemID.empty())
            itemIDs.push_back(std::move(itemID));
    }
}

void Channel::storeIntoAttrs(AttrMap& attrs) const {
    NewsObject::storeIntoAttrs(attrs);
    attrs.putIDs("itemids", itemIDs);
}

Carousel* Channel::carousel() const {
    return mpContainer ? mpContainer->carousel() : nullptr;
}

const NewsObject::Content* Channel::getImageContent(const ID& name) const {
    const Content* own = contentMap ? contentMap->contentNamed(name) : nullptr;
    if (own && ImageHolder::imageExists(own->contextId))
        return own;
    if (name == UI_ATTR_IMAGE && !isImageOnly())
        return &DEFAULT_CHANNEL_ICON;
    return nullptr;
}

bool Channel::isDisplayable() const {
    if (!NewsObject::isDisplayable())
        return false;
    if (!showingChannelItems()) {
        OV_LOG(5, "%s skipping channel items\n\n", id.c_str());
        return false;
    }
    if (title.empty() && description.empty() && !isImageOnly()) {
        OV_LOG(5, "%s image+text channel item with no text\n\n", id.c_str());
        return false;
    }
    return true;
}

int Channel::store() const {
    return NR_ContentCache::getInstance()->save(id, *this);
}

void Channel::print(std::ostream& out) const {
    out << "Channel ";
    NewsObject::print(out);
}
