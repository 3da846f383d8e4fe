#include "model/Item.h"

#include "model/Channel.h"
#include "storage/NR_ContentCache.h"
#include "types/FnLog.h"

#include <ostream>

using ovTypes::ID;

Item::Item(const ID& id)
    : NewsObject(id), currentDisplayCount(0), displayCountLimit(DEFAULT_DISPLAY_COUNT_LIMIT),
      displayTime(DEFAULT_DISPLAY_TIME), mpChannel(nullptr) {}

void Item::loadFromAttrs(AttrMap& attrs) {
    NewsObject::loadFromAttrs(attrs);
    currentDisplayCount = attrs.getInt("currentDisplayCount", 0);
    displayCountLimit = attrs.getInt("displayCountLimit", DEFAULT_DISPLAY_COUNT_LIMIT);
    displayTime = attrs.getInt("displayTime", DEFAULT_DISPLAY_TIME);
}

void Item::storeIntoAttrs(AttrMap& attrs) const {
    NewsObject::storeIntoAttrs(attrs);
    attrs.putInt("currentDisplayCount", currentDisplayCount);
    attrs.putInt("displayCountLimit", displayCountLimit);
    attrs.putInt("displayTime", displayTime);
}

Carousel* Item::carousel() const {
    return mpChannel ? mpChannel->carousel() : nullptr;
}

ID Item::getEffectiveTemplateID() const {
    if (!templateID.empty())
        return templateID;
    return mpChannel ? mpChannel->itemTemplateID : ID();
}

const NewsObject::Content* Item::getImageContent(const ID& name) const {
    const Content* own = contentMap ? contentMap->contentNamed(name) : nullptr;
    if (own && ImageHolder::imageExists(own->contextId))
        return own;
    if (name == UI_ATTR_IMAGE) {
        if (isImageOnly())
            return nullptr;
        if (mpChannel && mpChannel->isImageOnly())
            return &DEFAULT_CHANNEL_ICON;
    }
    return mpChannel ? mpChannel->getImageContent(name) : nullptr;
}

bool Item::incrementDisplayCount() {
    if (currentDisplayCount < INT32_MAX)
        ++currentDisplayCount;
    bool exhausted = currentDisplayCount == displayCountLimit;
    if (exhausted && !isTransient())
        store();
    return exhausted;
}

bool Item::isDisplayable() const {
    if (!NewsObject::isDisplayable())
        return false;
    if (mpChannel && mpChannel->compareEffectiveDates() != 0) {
        OV_LOG(5, "%s channel outside of date range\n\n", id.c_str());
        return false;
    }
    if (currentDisplayCount >= displayCountLimit) {
        OV_LOG(5, "%s exceeded display count\n\n", id.c_str());
        return false;
    }
    return true;
}

int Item::store() const {
    return NR_ContentCache::getInstance()->save(id, *this);
}

void Item::print(std::ostream& out) const {
    out << "Item ";
    NewsObject::print(out);
}
