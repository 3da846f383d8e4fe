#include "model/Carousel.h"

Carousel::Carousel(const PtrRef<Container>& container) : mContainer(container) {
    mContainer->setCarousel(this);
}

Carousel::~Carousel() {
    for (Placed& placed : mChannels) {
        for (PtrRef<Item>& item : placed.items)
            item->setChannel(nullptr);
        placed.channel->setContainer(nullptr);
    }
    mContainer->setCarousel(nullptr);
}

const Carousel::Placed* Carousel::find(const Channel* channel) const {
    for (const Placed& placed : mChannels) {
        if (placed.channel.get() == channel)
            return &placed;
    }
    return nullptr;
}

bool Carousel::addChannel(const PtrRef<Channel>& channel, bool fromDefaultContent) {
    if (!channel || find(channel.get()))
        return false;
    channel->setContainer(mContainer.get());
    if (fromDefaultContent)
        channel->setTransient(true);
    mChannels.push_back(Placed{channel, {}});
    return true;
}

bool Carousel::addItem(const Channel& channel, const PtrRef<Item>& item, bool fromDefaultContent) {
    Placed* placed = const_cast<Placed*>(find(&channel));
    if (!placed || !item || item->getChannel())
        return false;
    item->setChannel(placed->channel.get());
    if (fromDefaultContent)
        item->setTransient(true);
    placed->items.push_back(item);
    return true;
}

void Carousel::itemCount(const NewsObject& object, int& position, int& total) const {
    position = NOT_PLACED;
    total = 0;
    const Placed* placed = find(object.getChannel());
    if (!placed)
        return;
    if (object.isChannelItem()) {
        position = 0;
        total = static_cast<int>(placed->items.size());
        return;
    }
    position = ITEM_NOT_PLACED;
    for (size_t i = 0; i < placed->items.size(); ++i) {
        if (placed->items[i].get() == &object) {
            position = static_cast<int>(i) + 1;
            total = static_cast<int>(placed->items.size());
            return;
        }
    }
}
