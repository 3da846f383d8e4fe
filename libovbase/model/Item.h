// Item: one entry of a channel, shown a limited number of times. Adds three counters to the
// stream form.
//
// An item does not need its channel: one loaded, saved or counted on its own (the channel
// pointer is null) behaves wherever a rule asks the channel as if the channel had nothing to
// give - no item template, no image, no carousel, no date range to fall outside of.
//
// Threads, ownership: as NewsObject. The channel pointer is a back reference set by the
// carousel that placed the item, and cleared by it.
#ifndef OVBASE_MODEL_ITEM_H
#define OVBASE_MODEL_ITEM_H

#include "model/NewsObject.h"

class Item : public NewsObject {
public:
    static constexpr int32_t DEFAULT_DISPLAY_TIME = -1;
    static constexpr int32_t DEFAULT_DISPLAY_COUNT_LIMIT = INT32_MAX;

    explicit Item(const ovTypes::ID& id);

    // Base keys, then "currentDisplayCount", "displayCountLimit", "displayTime".
    void loadFromAttrs(AttrMap& attrs) override;
    void storeIntoAttrs(AttrMap& attrs) const override;
    // The channel's carousel; null without a channel.
    Carousel* carousel() const override;
    // The item's channel, or null.
    const Channel* getChannel() const override { return mpChannel; }
    // templateID when it is set, else the channel's itemTemplateID (empty without a channel).
    ovTypes::ID getEffectiveTemplateID() const override;
    // The item's own content when the image store holds it; then, for "image": null for an
    // image-only item, the default channel icon when the channel is image-only; else what the
    // channel gives for NAME (null without a channel).
    const Content* getImageContent(const ovTypes::ID& name) const override;
    // Adds one to currentDisplayCount; true when it now equals displayCountLimit, and then the
    // item stores itself unless it is transient, so the exhausted state survives a restart.
    // The count stops at its largest value instead of overflowing.
    bool incrementDisplayCount() override;
    bool isChannelItem() const override { return false; }
    // The base rule; then the channel must be inside its date range (an item without a channel
    // passes), and currentDisplayCount below displayCountLimit.
    bool isDisplayable() const override;
    bool isHighPriority() const override { return priority < DEFAULT_PRIORITY; }
    const Item* item() const override { return this; }
    Item* item() override { return this; }
    // NR_ContentCache::save(id, *this).
    int store() const override;
    // "Item " and the base form.
    void print(std::ostream& out) const override;

    using Streamable::store;

    // Set by the carousel.
    void setChannel(Channel* channel) { mpChannel = channel; }

    int32_t currentDisplayCount;
    int32_t displayCountLimit;
    int32_t displayTime; // DEFAULT_DISPLAY_TIME: the carousel's own timing

private:
    Channel* mpChannel;
};

#endif
