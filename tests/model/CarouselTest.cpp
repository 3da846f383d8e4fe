// The carousel as the news objects use it: back pointers, transient marks, where an object
// stands ("item-count"), what an object that outlives its carousel still answers, and the
// news-reader UI settings that decide whether channel entries and excerpts are shown.
#include "model/Carousel.h"
#include "dptemplate/TemplateManager.h"
#include "support/SettingsFiles.h"
#include "support/StderrCapture.h"
#include "support/TempCache.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <utility>

using ovTypes::String;
using ::testing::HasSubstr;

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

// Placing sets back pointers and places; objects that outlive their carousel lose its pointers
// and can be placed again.
TEST(Carousel, PlacingSetsBackPointersAndTransientMarks) {
    Feed feed;
    auto carousel = std::make_unique<Carousel>(feed.container);
    feed.place(*carousel, 3);
    EXPECT_EQ(carousel.get(), feed.container->carousel());
    EXPECT_EQ(feed.container.get(), feed.channel->getContainer());
    EXPECT_EQ(carousel.get(), feed.channel->carousel());
    EXPECT_EQ(feed.channel.get(), feed.items[1]->getChannel());
    EXPECT_EQ(carousel.get(), feed.items[1]->carousel());
    // Only what was built from default content is transient.
    EXPECT_FALSE(feed.channel->isTransient());
    EXPECT_TRUE(feed.other->isTransient());
    EXPECT_TRUE(feed.items[0]->isTransient());
    EXPECT_FALSE(feed.items[1]->isTransient());

    ASSERT_EQ(2u, carousel->channelCount());
    EXPECT_EQ(feed.other, carousel->channelAt(1));
    ASSERT_EQ(3u, carousel->itemsAt(0).size());
    EXPECT_EQ(feed.items[2], carousel->itemsAt(0)[2]);

    // Refused: a channel twice, an item twice, an item into a channel not placed here.
    PtrRef<Channel> stranger(new Channel("c9"));
    PtrRef<Item> loose(new Item("i9"));
    EXPECT_FALSE(carousel->addChannel(feed.channel));
    EXPECT_FALSE(carousel->addChannel(PtrRef<Channel>()));
    EXPECT_FALSE(carousel->addItem(*feed.other, feed.items[0]));
    EXPECT_FALSE(carousel->addItem(*stranger, loose));
    EXPECT_EQ(nullptr, loose->getChannel());
    EXPECT_EQ(2u, carousel->channelCount());
    EXPECT_TRUE(carousel->itemsAt(1).empty());

    // "item-count" gives an item's place and total; a channel entry stands before its items.
    auto count = [&carousel](const NewsObject& object) {
        int position = 99, total = 99;
        carousel->itemCount(object, position, total);
        return std::make_pair(position, total);
    };
    EXPECT_EQ(std::make_pair(2, 3), count(*feed.items[1]));
    EXPECT_EQ(std::make_pair(0, 3), count(*feed.channel));
    EXPECT_EQ(std::make_pair(0, 0), count(*feed.other));
    EXPECT_EQ(Carousel::NOT_PLACED, count(*loose).first);
    Item claims("i8");
    claims.setChannel(feed.channel.get()); // claims a placed channel but is not among its items
    EXPECT_EQ(Carousel::ITEM_NOT_PLACED, count(claims).first);
    EXPECT_TRUE(claims.getText("item-count").empty());
    claims.setChannel(nullptr);

    EXPECT_EQ(String(L"World"), feed.items[1]->getText("ctitle"));
    EXPECT_TRUE(feed.channel->getText("ctitle").empty()); // a channel entry has no channel title

    carousel.reset();
    EXPECT_EQ(nullptr, feed.container->carousel());
    EXPECT_EQ(nullptr, feed.channel->getContainer());
    EXPECT_EQ(nullptr, feed.items[0]->getChannel());
    EXPECT_EQ(nullptr, feed.items[0]->carousel());
    EXPECT_TRUE(feed.items[0]->getText("item-count").empty());
    EXPECT_TRUE(feed.items[0]->getText("ctitle").empty());
    Carousel again(feed.container);
    EXPECT_TRUE(again.addChannel(feed.channel));
    EXPECT_TRUE(again.addItem(*feed.channel, feed.items[0]));
}

// The "Couldn't read setting" messages in TEXT, in order.
std::string readFailures(const std::string& text) {
    const std::string mark = "Couldn't read setting ";
    std::string out;
    for (size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at + 1))
        out += text.substr(at + mark.size(), text.find('\n', at) + 1 - at - mark.size());
    return out;
}

// The two switches of the news-reader UI group are read once per process, with one level-2
// line when they cannot be read (a missing file is result 8, a missing key 3). ctest runs each
// row in a process of its own, so each starts with nothing cached.
struct GroupSettings {
    const char* settings; // nullptr: no settings file
    bool showingChannels, excerptBypass;
    const char* itemCount; // of the third of seven items
    const char* readFailures;
};

class GroupSettingsTest : public ::testing::TestWithParam<GroupSettings> {
protected:
    ovtest::TempCache mCache;
};

TEST_P(GroupSettingsTest, ChannelItemsItemCountAndExcerpts) {
    const GroupSettings& row = GetParam();
    if (row.settings) {
        ASSERT_TRUE(ovtest::writeMainSettings(std::string("[OVNewsReader.UI]\n") + row.settings));
    }
    std::istringstream good("<template><layout id=\"item\"><text/></layout></template>");
    ASSERT_EQ(0, DPTemplate::TemplateManager::getInstance()->load("tpl", good));
    ovtest::StderrCapture err;
    EXPECT_EQ(row.showingChannels, NewsObject::showingChannelItems());

    Feed feed;
    Carousel carousel(feed.container);
    feed.place(carousel, 7);
    EXPECT_EQ(String(row.itemCount), feed.items[2]->getText("item-count"));
    EXPECT_EQ(String(row.showingChannels ? "1/8" : "0/7"), feed.channel->getText("item-count"));
    // A channel entry is shown only with channel items, and then only with a text.
    feed.channel->templateID = "tpl";
    EXPECT_EQ(row.showingChannels, feed.channel->isDisplayable());
    if (row.showingChannels) {
        feed.channel->title.clear();
        EXPECT_FALSE(feed.channel->isDisplayable());
        EXPECT_THAT(err.text(), HasSubstr("c1 image+text channel item with no text\n"));
        feed.channel->description = L"about";
        EXPECT_TRUE(feed.channel->isDisplayable());
    } else {
        EXPECT_THAT(err.text(), HasSubstr("c1 skipping channel items\n"));
    }

    Item item("i1");
    EXPECT_EQ(!row.excerptBypass, item.isExcerptLaunchable());
    item.setShowExcerpt(false);
    EXPECT_FALSE(item.isExcerptLaunchable());

    EXPECT_EQ(row.readFailures, readFailures(err.text()));
    if (*row.readFailures) {
        EXPECT_THAT(err.text(), HasSubstr("{2} NewsObject.cpp:"));
    }
}

const GroupSettings kRows[] = {
    {nullptr, false, false, "3/7", "ChannelItemMode: 8. Using 0\nExcerptBypass: 8. Using 0\n"},
    {"ExcerptBypass=true\nChannelItemMode=0\n", false, true, "3/7", ""},
    {"ChannelItemMode=2\nChannelBarMode=0\nExcerptBypass=false\n", true, false, "4/8", ""},
    {"ChannelItemMode=1\nChannelBarMode=0\nExcerptBypass=false\n", false, false, "3/7", ""},
    {"ChannelItemMode=1\nExcerptBypass=false\n", true, false, "4/8",
     "ChannelBarMode: 3. Using 1\n"},
};
INSTANTIATE_TEST_SUITE_P(Rows, GroupSettingsTest, ::testing::ValuesIn(kRows));

} // namespace
