// The carousel as the news objects use it: back pointers, transient marks, where an object
// stands ("item-count"), and what an object that outlives its carousel still answers.
#include "ModelTest.h"

#include "model/Carousel.h"
#include "support/SettingsFiles.h"
#include "support/StderrCapture.h"

#include <gtest/gtest.h>

using ovTypes::String;

namespace {

struct Feed {
    PtrRef<Container> container{new Container("news")};
    PtrRef<Channel> channel{new Channel("c1")};
    PtrRef<Channel> other{new Channel("c2")};
    std::vector<PtrRef<Item>> items;

    // Places the two channels and SIZE items in the first.
    void place(Carousel& carousel, int size) {
        channel->title = L"World";
        ASSERT_TRUE(carousel.addChannel(channel));
        ASSERT_TRUE(carousel.addChannel(other, true));
        for (int i = 0; i < size; ++i) {
            items.push_back(PtrRef<Item>(new Item("i" + std::to_string(i + 1))));
            ASSERT_TRUE(carousel.addItem(*channel, items.back(), i == 0));
        }
    }
};

TEST(Carousel, PlacingSetsBackPointersAndTransientMarks) {
    Feed feed;
    Carousel carousel(feed.container);
    feed.place(carousel, 3);
    EXPECT_EQ(&carousel, feed.container->carousel());
    EXPECT_EQ(feed.container.get(), feed.channel->getContainer());
    EXPECT_EQ(&carousel, feed.channel->carousel());
    EXPECT_EQ(feed.channel.get(), feed.items[1]->getChannel());
    EXPECT_EQ(&carousel, feed.items[1]->carousel());
    // Only what was built from default content is transient.
    EXPECT_FALSE(feed.channel->isTransient());
    EXPECT_TRUE(feed.other->isTransient());
    EXPECT_TRUE(feed.items[0]->isTransient());
    EXPECT_FALSE(feed.items[1]->isTransient());

    ASSERT_EQ(2u, carousel.channelCount());
    EXPECT_EQ(feed.other, carousel.channelAt(1));
    ASSERT_EQ(3u, carousel.itemsAt(0).size());
    EXPECT_EQ(feed.items[2], carousel.itemsAt(0)[2]);

    // Refused: a channel twice, an item twice, an item into a channel not placed here.
    PtrRef<Channel> stranger(new Channel("c9"));
    PtrRef<Item> loose(new Item("i9"));
    EXPECT_FALSE(carousel.addChannel(feed.channel));
    EXPECT_FALSE(carousel.addChannel(PtrRef<Channel>()));
    EXPECT_FALSE(carousel.addItem(*feed.other, feed.items[0]));
    EXPECT_FALSE(carousel.addItem(*stranger, loose));
    EXPECT_EQ(nullptr, loose->getChannel());
    EXPECT_EQ(2u, carousel.channelCount());
    EXPECT_TRUE(carousel.itemsAt(1).empty());

    EXPECT_EQ(String(L"World"), feed.items[1]->getText("ctitle"));
    EXPECT_TRUE(feed.channel->getText("ctitle").empty()); // a channel entry has no channel title
}

TEST(Carousel, ItemCountGivesPlaceAndTotalOrNotPlaced) {
    Feed feed;
    Carousel carousel(feed.container);
    feed.place(carousel, 7);
    int position = 99, total = 99;
    carousel.itemCount(*feed.items[2], position, total);
    EXPECT_EQ(3, position);
    EXPECT_EQ(7, total);
    carousel.itemCount(*feed.channel, position, total);
    EXPECT_EQ(0, position);
    EXPECT_EQ(7, total);
    carousel.itemCount(*feed.other, position, total);
    EXPECT_EQ(0, position);
    EXPECT_EQ(0, total);

    Item loose("i9");
    carousel.itemCount(loose, position, total);
    EXPECT_EQ(Carousel::NOT_PLACED, position);
    loose.setChannel(feed.channel.get()); // claims a placed channel but is not among its items
    carousel.itemCount(loose, position, total);
    EXPECT_EQ(Carousel::ITEM_NOT_PLACED, position);
    EXPECT_TRUE(loose.getText("item-count").empty());
    loose.setChannel(nullptr);
}

TEST(Carousel, ObjectsOutlivingTheCarouselLoseItsPointers) {
    Feed feed;
    {
        Carousel carousel(feed.container);
        feed.place(carousel, 2);
    }
    EXPECT_EQ(nullptr, feed.container->carousel());
    EXPECT_EQ(nullptr, feed.channel->getContainer());
    EXPECT_EQ(nullptr, feed.items[0]->getChannel());
    EXPECT_EQ(nullptr, feed.items[0]->carousel());
    EXPECT_TRUE(feed.items[0]->getText("item-count").empty());
    EXPECT_TRUE(feed.items[0]->getText("ctitle").empty());
    // Placed again in a new carousel.
    Carousel again(feed.container);
    EXPECT_TRUE(again.addChannel(feed.channel));
    EXPECT_TRUE(again.addItem(*feed.channel, feed.items[0]));
}

// "item-count" reads the channel-item mode once per process; each mode has its own test.
class ItemCountText : public modeltest::CacheTest {};

TEST_F(ItemCountText, WithoutChannelEntries) {
    ASSERT_TRUE(ovtest::writeMainSettings("[OVNewsReader.UI]\nChannelItemMode=0\n"));
    Feed feed;
    Carousel carousel(feed.container);
    feed.place(carousel, 7);
    EXPECT_EQ(String(L"3/7"), feed.items[2]->getText("item-count"));
    EXPECT_EQ(String(L"1/7"), feed.items[0]->getText("item-count"));
    EXPECT_FALSE(NewsObject::showingChannelItems());
}

TEST_F(ItemCountText, WithChannelEntriesEverythingMovesUpOne) {
    ASSERT_TRUE(ovtest::writeMainSettings("[OVNewsReader.UI]\nChannelItemMode=2\n"));
    Feed feed;
    Carousel carousel(feed.container);
    feed.place(carousel, 7);
    EXPECT_EQ(String(L"4/8"), feed.items[2]->getText("item-count"));
    EXPECT_EQ(String(L"1/8"), feed.channel->getText("item-count")); // the channel's own entry
    EXPECT_TRUE(NewsObject::showingChannelItems());
}

} // namespace
