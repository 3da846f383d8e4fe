// Whether an object may be shown: its date range at the exact second, its template, its image
// (with the default channel icon and default content), its display count - and the counting
// that stores the exhausted state. Each failed rule writes its own level-5 line.
#include "OVPlatform.h"
#include "dptemplate/TemplateManager.h"
#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "model/Channel.h"
#include "model/Item.h"
#include "storage/DefaultContentBytes.h"
#include "storage/NR_ContentCache.h"
#include "storage/NR_DefaultContentMgr.h"
#include "support/Files.h"
#include "support/StderrCapture.h"
#include "support/TempCache.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <sstream>

using ovTypes::ID;
using ::testing::HasSubstr;

namespace {

// Runs STEP(now) until one run begins and ends within the same second, so the object under
// test saw exactly NOW; returns that run's result.
template <typename Step> auto atOneSecond(Step step) {
    for (;;) {
        long now = static_cast<long>(std::time(nullptr));
        auto result = step(now);
        if (static_cast<long>(std::time(nullptr)) == now)
            return result;
    }
}

// A template "tpl" and two stored images, "img-1" and "img-2", on a cache of the test's own.
class DisplayTest : public ::testing::Test {
protected:
    void SetUp() override {
        NR_DefaultContentMgr::dispose();
        std::istringstream good("<template><layout id=\"item\"><text/></layout></template>");
        ASSERT_EQ(0, DPTemplate::TemplateManager::getInstance()->load("tpl", good));
        ASSERT_NE("", mCache.put("img-1", "GIF89a"));
        ASSERT_NE("", mCache.put("img-2", "GIF89a"));
    }
    void TearDown() override {
        NR_DefaultContentMgr::dispose();
        OV_EventAndStatusFacade::destroy();
    }

    // Gives OBJECT the template "tpl" and, unless IMAGE is empty, the image content IMAGE.
    static void prepare(NewsObject& object, const ID& image = "img-1") {
        object.templateID = "tpl";
        if (!image.empty()) {
            object.contentMap.reset(new NewsObject::ContentMap);
            (*object.contentMap)["image"].contextId = image;
        }
    }

    ovtest::TempCache mCache;
};

// Expired at the second of the expiration date, active from the second of activation; then
// each rule of isDisplayable fails with its own line.
TEST_F(DisplayTest, EachRuleFailsWithItsOwnLine) {
    const struct {
        long activation, expiration;
        int result;
    } rows[] = {{0, 0, 1}, {0, 1, 0}, {1, 2, -1}};
    Item item("i1");
    ovtest::StderrCapture err;
    for (const auto& row : rows) {
        EXPECT_EQ(row.result, atOneSecond([&](long now) {
                      item.activationDate = now + row.activation;
                      item.expirationDate = now + row.expiration;
                      return item.compareEffectiveDates();
                  }));
    }
    EXPECT_THAT(err.text(), HasSubstr("{5} NewsObject.cpp:"));
    EXPECT_THAT(err.text(), HasSubstr("NewsObject::compareEffectiveDates(i1) expired\n"));
    EXPECT_THAT(err.text(), HasSubstr("NewsObject::compareEffectiveDates(i1) not activated\n"));
    // The defaults never expire and are always active.
    EXPECT_EQ(0, Item("i2").compareEffectiveDates());

    item.activationDate = NewsObject::NO_ACTIVATION_DATE;
    item.expirationDate = NewsObject::NO_EXPIRATION_DATE;
    EXPECT_FALSE(item.isDisplayable()); // nothing of its own and no channel to ask
    prepare(item);
    EXPECT_TRUE(item.isDisplayable());

    item.expirationDate = 1;
    EXPECT_FALSE(item.isDisplayable());
    EXPECT_THAT(err.text(), HasSubstr("i1 outside of date range\n"));
    item.expirationDate = NewsObject::NO_EXPIRATION_DATE;

    item.templateID = "missing";
    EXPECT_FALSE(item.isDisplayable());
    EXPECT_THAT(err.text(), HasSubstr("i1 template for ID missing not present\n"));
    item.templateID = "tpl";

    (*item.contentMap)["image"].contextId = "not-stored";
    EXPECT_FALSE(item.isDisplayable());
    EXPECT_THAT(err.text(), HasSubstr("i1 no image for display\n"));
    (*item.contentMap)["image"].contextId = "img-1";

    item.displayCountLimit = 3;
    item.currentDisplayCount = 3;
    EXPECT_FALSE(item.isDisplayable());
    EXPECT_THAT(err.text(), HasSubstr("{5} Item.cpp:"));
    EXPECT_THAT(err.text(), HasSubstr("i1 exceeded display count\n"));
    item.currentDisplayCount = 2;
    EXPECT_TRUE(item.isDisplayable());
    item.currentDisplayCount = 0;
    item.displayCountLimit = 0; // never shown
    EXPECT_FALSE(item.isDisplayable());
}

// A channel without a stored image shows the default channel icon; an item follows its
// channel for the template and the image.
TEST_F(DisplayTest, ItemsFollowTheirChannelAndChannelsTheDefaultIcon) {
    Channel channel("c1");
    EXPECT_EQ(&NewsObject::DEFAULT_CHANNEL_ICON, channel.getImageContent("image"));
    EXPECT_EQ(nullptr, channel.getImageContent("imageSmall")); // the icon stands for "image" only
    // Unset, the entry type follows the texts: image-only when there are none. isImageOnly
    // reads the field itself, and an image-only channel has no icon.
    channel.entryType.clear();
    EXPECT_EQ("csio", channel.getEntryType());
    EXPECT_FALSE(channel.isImageOnly());
    channel.description = L"d";
    EXPECT_EQ("cs", channel.getEntryType());
    channel.title = L"t";
    channel.description.clear();
    EXPECT_EQ("cs", channel.getEntryType());
    channel.entryType = "csio";
    EXPECT_TRUE(channel.isImageOnly());
    EXPECT_EQ(nullptr, channel.getImageContent("image"));
    channel.entryType = "cs";

    // A content whose resource is not stored does not count; a stored one does.
    prepare(channel, "not-stored");
    EXPECT_EQ(&NewsObject::DEFAULT_CHANNEL_ICON, channel.getImageContent("image"));
    prepare(channel, "img-2");
    EXPECT_EQ("img-2", channel.getImageContent("image")->contextId);

    // A "dc:" image is default content, never a cache file: one named so does not count.
    ASSERT_NE("", mCache.put("dc:logo", "GIF89a"));
    prepare(channel, "dc:logo");
    EXPECT_FALSE(ImageHolder::imageExists("dc:logo"));
    EXPECT_EQ(&NewsObject::DEFAULT_CHANNEL_ICON, channel.getImageContent("image"));

    // An item with no template or image of its own uses its channel's; its own come first.
    Item item("i1");
    EXPECT_TRUE(item.getEffectiveTemplateID().empty());
    item.setChannel(&channel);
    channel.itemTemplateID = "tpl";
    prepare(channel, "img-2");
    channel.templateID.clear();
    EXPECT_EQ("tpl", item.getEffectiveTemplateID());
    EXPECT_EQ("img-2", item.getImageContent("image")->contextId);
    EXPECT_TRUE(item.isDisplayable());
    item.templateID = "own";
    EXPECT_EQ("own", item.getEffectiveTemplateID());
    item.templateID.clear();
    ovtest::StderrCapture err;
    channel.expirationDate = 1;
    EXPECT_FALSE(item.isDisplayable());
    EXPECT_THAT(err.text(), HasSubstr("i1 channel outside of date range\n"));
    channel.expirationDate = NewsObject::NO_EXPIRATION_DATE;
    channel.activationDate = INT32_MAX; // not yet active
    EXPECT_FALSE(item.isDisplayable());

    prepare(item, "img-1");
    EXPECT_EQ("img-1", item.getImageContent("image")->contextId); // its own first
    prepare(item, "not-stored");
    EXPECT_EQ("img-2", item.getImageContent("image")->contextId); // then the channel's
    item.entryType = "csio";
    EXPECT_EQ(nullptr, item.getImageContent("image")); // an image-only item needs its own
    item.entryType = "cs";
    channel.entryType = "csio";
    EXPECT_EQ(&NewsObject::DEFAULT_CHANNEL_ICON, item.getImageContent("image"));
    // Other names skip the image-only rules and ask the channel.
    EXPECT_EQ(nullptr, item.getImageContent("imageSmall"));
}

// Images and templates named "dc:" come from the phone's index file: the default channel icon
// and an item shown from nothing but default content.
TEST_F(DisplayTest, DefaultContentAloneCanBeShown) {
    Channel channel("c1");
    const ID icon = NewsObject::DEFAULT_CHANNEL_ICON.contextId;
    Item item("i1");
    item.templateID = "dc:item.xml";
    item.contentMap.reset(new NewsObject::ContentMap);
    (*item.contentMap)["image"].contextId = "dc:photo.gif";
    EXPECT_FALSE(ImageHolder::imageExists(icon)) << "no default content on the device yet";
    EXPECT_FALSE(item.isDisplayable());

    ASSERT_TRUE(ovtest::writeFile(
        ovplatform::devicePath(NR_DefaultContentMgr::DEFAULT_RESOURCE_PATH) + "/dynport.dc",
        dctest::index({{"default-channel-icon.png", "\x89PNG"},
                       {"item.xml", "<template><layout id=\"item\"><text/></layout></template>"},
                       {"photo.gif", "GIF89a"}})));
    NR_DefaultContentMgr::dispose();
    EXPECT_TRUE(ImageHolder::imageExists(icon));
    EXPECT_EQ(icon, channel.getImage("image").getID());
    EXPECT_TRUE(channel.getImage("image").exists());
    EXPECT_TRUE(item.isDisplayable()); // its own image, the only one it has
}

TEST_F(DisplayTest, ContentIsFoundByKeyThenByName) {
    Item item("i1");
    item.contentMap.reset(new NewsObject::ContentMap);
    // Type, mode, name and resource of each.
    (*item.contentMap)["a-small"] = {"image/gif", "", "thumb", "img-1", L"", L""};
    (*item.contentMap)["b-other"] = {"", "", "thumb", "img-2", L"", L""};
    (*item.contentMap)["thumb"].contextId = "keyed";

    EXPECT_EQ("keyed", item.contentMap->contentNamed("thumb")->contextId);
    item.contentMap->erase("thumb");
    EXPECT_EQ("img-1", item.contentMap->contentNamed("thumb")->contextId); // first in key order
    EXPECT_EQ(nullptr, item.contentMap->contentNamed("none"));

    // getImage: names beginning with "image" go through the image rules, others through the map.
    // As "ID type", then "+" when the image exists.
    auto image = [&item](const ID& name) {
        ImageHolder holder = item.getImage(name);
        return holder.getID() + " " + holder.getType() + (holder.exists() ? "+" : "");
    };
    EXPECT_EQ("img-1 image/gif+", image("thumb"));
    EXPECT_EQ("banner ", image("banner"));
    (*item.contentMap)["imageSmall"].contextId = "img-2";
    EXPECT_EQ("img-2 +", image("imageSmall"));
    EXPECT_EQ("image ", image("image")); // no channel to fall back on

    // The excerpt page is the excerpt map's content named "primaryxhtml".
    EXPECT_EQ(nullptr, item.getExcerptXHTMLContent());
    item.excerptContentMap.reset(new NewsObject::ContentMap);
    (*item.excerptContentMap)["other"] = {"", "", "primaryxhtml", "page", L"", L""};
    ASSERT_NE(nullptr, item.getExcerptXHTMLContent());
    EXPECT_EQ("page", item.getExcerptXHTMLContent()->contextId);
}

TEST_F(DisplayTest, TheLastShowingStoresTheExhaustedState) {
    Item item("i1");
    prepare(item);
    item.displayCountLimit = 3;
    EXPECT_FALSE(item.incrementDisplayCount());
    EXPECT_FALSE(item.incrementDisplayCount());
    EXPECT_FALSE(ovtest::fileExists(mCache.cacheFile("i1.itm"))); // counting alone writes nothing
    EXPECT_TRUE(item.incrementDisplayCount());
    ASSERT_TRUE(ovtest::fileExists(mCache.cacheFile("i1.itm")));

    // After a restart the item is read back exhausted.
    Item restarted("i1");
    ASSERT_EQ(0, NR_ContentCache::getInstance()->get("i1", restarted));
    EXPECT_EQ(3, restarted.currentDisplayCount);
    EXPECT_EQ(3, restarted.displayCountLimit);
    // Past the limit it is no longer "just exhausted".
    EXPECT_FALSE(restarted.incrementDisplayCount());

    // A transient item counts the same but is never written, nor is its visit.
    Item transient("i2");
    transient.setTransient(true);
    transient.displayCountLimit = 1;
    EXPECT_TRUE(transient.incrementDisplayCount());
    transient.setVisitedState();
    EXPECT_TRUE(transient.isVisited());
    EXPECT_FALSE(ovtest::fileExists(mCache.cacheFile("i2.itm")));

    // The count stops at its largest value.
    transient.currentDisplayCount = INT32_MAX;
    EXPECT_FALSE(transient.incrementDisplayCount());
    EXPECT_EQ(INT32_MAX, transient.currentDisplayCount);

    Channel channel("c1"); // a visit is stored
    channel.setVisitedState();
    Channel back("c1");
    ASSERT_EQ(0, NR_ContentCache::getInstance()->get("c1", back));
    EXPECT_TRUE(back.isVisited());
}

} // namespace
