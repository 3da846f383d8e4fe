// Carousel: the objects of one container that the ticker may show, in feed order - the
// container's channels and each channel's items, in the order they are placed. Placing an
// object points it back at its holder (item to channel, channel to container, container to
// carousel) and marks objects built from default content transient, so they are never written
// back to the cache. itemCount tells the templates where an object stands.
//
// This is the smallest form the news objects need; choosing and rotating the entries to show
// is not done here.
//
// Threads: the engine's. Ownership: the carousel shares its objects through PtrRef and clears
// the back pointers it set when it is destroyed, so an object that outlives it never points to
// a freed holder.
#ifndef OVBASE_MODEL_CAROUSEL_H
#define OVBASE_MODEL_CAROUSEL_H

#include "model/Channel.h"
#include "model/Container.h"
#include "model/Item.h"
#include "thread/PtrRef.h"

#include <vector>

class Carousel {
public:
    // itemCount positions of an object that is not placed.
    static constexpr int NOT_PLACED = -1;      // its channel is not held here
    static constexpr int ITEM_NOT_PLACED = -2; // its channel is held, the item is not

    // Holds CONTAINER (not null) and points it to this carousel.
    explicit Carousel(const PtrRef<Container>& container);
    virtual ~Carousel();

    Carousel(const Carousel&) = delete;
    Carousel& operator=(const Carousel&) = delete;

    // Places CHANNEL after the channels placed so far and points it to the container; marks it
    // transient when FROMDEFAULTCONTENT. False (nothing changes) for a null channel or one
    // already placed.
    bool addChannel(const PtrRef<Channel>& channel, bool fromDefaultContent = false);
    // Places ITEM after the items of CHANNEL placed so far and points it to CHANNEL; marks it
    // transient when FROMDEFAULTCONTENT. False (nothing changes) for a null item, an item that
    // already has a channel, or a channel that is not placed here.
    bool addItem(const Channel& channel, const PtrRef<Item>& item, bool fromDefaultContent = false);

    // Where OBJECT stands: for an item, its 1-based place among its channel's items and their
    // number; for a channel, 0 and the number of its items (the channel's own entry comes
    // before them). POSITION is NOT_PLACED or ITEM_NOT_PLACED (TOTAL 0) for an object not
    // placed here.
    void itemCount(const NewsObject& object, int& position, int& total) const;

    const PtrRef<Container>& getContainer() const { return mContainer; }
    size_t channelCount() const { return mChannels.size(); }
    const PtrRef<Channel>& channelAt(size_t index) const { return mChannels[index].channel; }
    // The items placed in the channel at INDEX, in feed order.
    const std::vector<PtrRef<Item>>& itemsAt(size_t index) const { return mChannels[index].items; }

private:
    struct Placed {
        PtrRef<Channel> channel;
        std::vector<PtrRef<Item>> items;
    };

    // The placed channel CHANNEL, or null.
    const Placed* find(const Channel* channel) const;

    PtrRef<Container> mContainer;
    std::vector<Placed> mChannels;
};

#endif
