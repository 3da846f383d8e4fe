// Container: a feed root listing its channels in feed order. Only channelIDs is streamed.
//
// Threads: the engine's. The carousel pointer is a back reference set and cleared by the
// carousel that holds the container.
#ifndef OVBASE_MODEL_CONTAINER_H
#define OVBASE_MODEL_CONTAINER_H

#include "model/Streamable.h"
#include "types/ovTypes.h"

#include <vector>

class Carousel;

class Container : public Streamable {
public:
    explicit Container(const ovTypes::ID& id);
    ~Container() override;

    // "channelIDs" (the list is cleared first; empty identities are skipped).
    void loadFromAttrs(AttrMap& attrs) override;
    void storeIntoAttrs(AttrMap& attrs) const override;

    // NR_ContentCache::save(id, *this); 0 on success.
    int store() const;
    using Streamable::store;

    Carousel* carousel() const { return mpCarousel; }
    // Set by the carousel.
    void setCarousel(Carousel* carousel) { mpCarousel = carousel; }

    ovTypes::ID id;

private:
    Carousel* mpCarousel;

public:
    // The container's channels, in feed order.
    std::vector<ovTypes::ID> channelIDs;
};

#endif
