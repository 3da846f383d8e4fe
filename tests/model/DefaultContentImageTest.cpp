// Images and templates named "dc:" come from default content: the default channel icon and an
// item shown from nothing but the phone's index file.
#include "ModelTest.h"

#include "OVPlatform.h"
#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "model/Channel.h"
#include "model/ImageHolder.h"
#include "model/Item.h"
#include "storage/DefaultContentBytes.h"
#include "storage/NR_DefaultContentMgr.h"
#include "support/Files.h"

#include <gtest/gtest.h>

namespace {

class DefaultContentImageTest : public modeltest::CacheTest {
protected:
    void SetUp() override {
        CacheTest::SetUp();
        NR_DefaultContentMgr::dispose();
        mFolder = ovplatform::devicePath(NR_DefaultContentMgr::DEFAULT_RESOURCE_PATH);
    }
    void TearDown() override {
        NR_DefaultContentMgr::dispose();
        OV_EventAndStatusFacade::destroy();
    }

    std::string mFolder;
};

TEST_F(DefaultContentImageTest, TheDefaultChannelIconIsFoundInTheIndexFile) {
    Channel channel("c1");
    const ovTypes::ID icon = NewsObject::DEFAULT_CHANNEL_ICON.contextId;
    EXPECT_FALSE(ImageHolder::imageExists(icon)) << "no default content on the device yet";

    ASSERT_TRUE(ovtest::writeFile(mFolder + "/dynport.dc",
                                  dctest::index({{"default-channel-icon.png", "\x89PNG"}})));
    NR_DefaultContentMgr::dispose();
    EXPECT_TRUE(ImageHolder::imageExists(icon));
    ImageHolder holder = channel.getImage("image");
    EXPECT_EQ(icon, holder.getID());
    EXPECT_TRUE(holder.exists());
}

TEST_F(DefaultContentImageTest, AnItemOfDefaultContentAloneCanBeShown) {
    Item item("i1");
    item.templateID = "dc:item.xml";
    item.contentMap.reset(new NewsObject::ContentMap);
    (*item.contentMap)["image"].contextId = "dc:photo.gif";
    EXPECT_FALSE(item.isDisplayable());

    ASSERT_TRUE(ovtest::writeFile(
        mFolder + "/dynport.dc",
        dctest::index({{"item.xml", "<template><layout id=\"item\"><text/></layout></template>"},
                       {"photo.gif", "GIF89a"}})));
    NR_DefaultContentMgr::dispose();
    ASSERT_NE(nullptr, item.getImageContent("image"));
    EXPECT_EQ("dc:photo.gif", item.getImageContent("image")->contextId);
    EXPECT_TRUE(item.isDisplayable());
}

} // namespace
