// The two switches of the news-reader UI group: read once per process, with a level-2 line
// when they cannot be read. ctest runs each test in a process of its own, so each starts
// with nothing cached.
#include "ModelTest.h"

#include "dptemplate/TemplateManager.h"
#include "model/Channel.h"
#include "model/Item.h"
#include "support/SettingsFiles.h"
#include "support/StderrCapture.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

size_t count(const std::string& text, const std::string& part) {
    size_t found = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++found;
    return found;
}

class GroupSettings : public modeltest::CacheTest {
protected:
    // A channel that passes the base display rule.
    void prepare(Channel& channel) {
        std::istringstream good("<template><layout id=\"item\"><text/></layout></template>");
        ASSERT_EQ(0, DPTemplate::TemplateManager::getInstance()->load("tpl", good));
        channel.templateID = "tpl";
        channel.title = L"World";
    }
};

TEST_F(GroupSettings, ExcerptBypassHidesEveryExcerpt) {
    ASSERT_TRUE(ovtest::writeMainSettings("[OVNewsReader.UI]\nExcerptBypass=true\n"));
    ovtest::StderrCapture err;
    Item item("i1");
    EXPECT_TRUE(item.isShowExcerpt());
    EXPECT_FALSE(item.isExcerptLaunchable());
    EXPECT_EQ(std::string::npos, err.text().find("Couldn't read setting"));
}

TEST_F(GroupSettings, AnUnreadableExcerptBypassIsFalseAndReportedOnce) {
    ovtest::StderrCapture err; // no settings file: the source is not loaded (8)
    Item item("i1");
    EXPECT_TRUE(item.isExcerptLaunchable());
    item.setShowExcerpt(false);
    EXPECT_FALSE(item.isExcerptLaunchable());
    EXPECT_EQ(1u, count(err.text(), "Couldn't read setting ExcerptBypass: 8. Using 0\n"));
    EXPECT_NE(std::string::npos, err.text().find("{2} NewsObject.cpp:"));
}

TEST_F(GroupSettings, ChannelItemModeTwoShowsChannels) {
    ASSERT_TRUE(ovtest::writeMainSettings("[OVNewsReader.UI]\nChannelItemMode=2\n"
                                          "ChannelBarMode=0\n"));
    EXPECT_TRUE(NewsObject::showingChannelItems());
    Channel channel("c1");
    prepare(channel);
    EXPECT_TRUE(channel.isDisplayable());

    // Without text a channel is shown only as an image-only one, which needs its own image.
    ovtest::StderrCapture err;
    channel.title.clear();
    EXPECT_FALSE(channel.isDisplayable());
    EXPECT_NE(std::string::npos, err.text().find("c1 image+text channel item with no text\n"));
    channel.description = L"about";
    EXPECT_TRUE(channel.isDisplayable());
}

TEST_F(GroupSettings, ChannelItemModeOneFollowsTheBarMode) {
    ASSERT_TRUE(ovtest::writeMainSettings("[OVNewsReader.UI]\nChannelItemMode=1\n"
                                          "ChannelBarMode=0\n"));
    ovtest::StderrCapture err;
    EXPECT_FALSE(NewsObject::showingChannelItems());
    Channel channel("c1");
    prepare(channel);
    EXPECT_FALSE(channel.isDisplayable());
    EXPECT_NE(std::string::npos, err.text().find("c1 skipping channel items\n"));
    EXPECT_EQ(std::string::npos, err.text().find("Couldn't read setting"));
}

TEST_F(GroupSettings, AMissingBarModeCountsAsOne) {
    ASSERT_TRUE(ovtest::writeMainSettings("[OVNewsReader.UI]\nChannelItemMode=1\n"));
    ovtest::StderrCapture err;
    EXPECT_TRUE(NewsObject::showingChannelItems());
    EXPECT_TRUE(NewsObject::showingChannelItems());
    EXPECT_EQ(1u, count(err.text(), "Couldn't read setting ChannelBarMode: 3. Using 1\n"));
    EXPECT_EQ(0u, count(err.text(), "ChannelItemMode:"));
}

TEST_F(GroupSettings, UnreadableChannelItemModeHidesChannels) {
    ovtest::StderrCapture err;
    EXPECT_FALSE(NewsObject::showingChannelItems());
    EXPECT_FALSE(NewsObject::showingChannelItems());
    EXPECT_EQ(1u, count(err.text(), "Couldn't read setting ChannelItemMode: 8. Using 0\n"));
    EXPECT_EQ(0u, count(err.text(), "ChannelBarMode"));
}

TEST(ImageOnlyChannel, EntryTypeFollowsTheTextsWhenUnset) {
    Channel channel("c1");
    channel.entryType.clear();
    EXPECT_EQ("csio", channel.getEntryType());
    EXPECT_FALSE(channel.isImageOnly()); // isImageOnly reads the field itself
    channel.description = L"d";
    EXPECT_EQ("cs", channel.getEntryType());
    channel.entryType = "csio";
    EXPECT_EQ("csio", channel.getEntryType());
    EXPECT_TRUE(channel.isImageOnly());
}

} // namespace
