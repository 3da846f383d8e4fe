// Channel: a news source with its own title, images and list of items. Only itemIDs is added to
// the stream form; who sets the item template is the engine's business.
//
// Threads, ownership: as NewsObject. The container pointer is a back reference set by the
// carousel that placed the channel, and cleared by it.
#ifndef OVBASE_MODEL_CHANNEL_H
#define OVBASE_MODEL_CHANNEL_H

#include "model/NewsObject.h"

#include <vector>

class Container;

class Channel : public NewsObject {
public:
    explicit Channel(const ovTypes::ID& id);

    // Base keys, then "itemids" (the list is cleared first; empty identities, which name no
    // object, are skipped).
    void loadFromAttrs(AttrMap& attrs) override;
    void storeIntoAttrs(AttrMap& attrs) const override;
    // The carousel of the channel's container; null without one.
    Carousel* carousel() const override;
    const Channel* channel() const override { return this; }
    Channel* channel() override { return this; }
    const Channel* getChannel() const override { return this; }
    // The content of the content map for NAME when the image store holds its resource; else,
    // for "image" on a channel that is not image-only, the default channel icon; else null.
    const Content* getImageContent(const ovTypes::ID& name) const override;
    bool isChannelItem() const override { return true; }
    // The base rule; then channels must be shown as entries, and a channel without title and
    // description only as an image-only one.
    bool isDisplayable() const override;
    // NR_ContentCache::save(id, *this).
    int store() const override;
    // "Channel " and the base form.
    void print(std::ostream& out) const override;

    using Streamable::store;

    Container* getContainer() const { return mpContainer; }
    // Set by the carousel.
    void setContainer(Container* container) { mpContainer = container; }

    ovTypes::String itemTemplateHref;
    // The template of the channel's items that name none of their own.
    ovTypes::ID itemTemplateID;
    // The channel's items, in feed order.
    std::vector<ovTypes::ID> itemIDs;

private:
    Container* mpContainer;
};

#endif
