// Templates named "dc:" are read from default content when they are first asked for.
#include "OVPlatform.h"
#include "dptemplate/TemplateManager.h"
#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "storage/DefaultContentBytes.h"
#include "storage/NR_DefaultContentMgr.h"
#include "support/Files.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

namespace {

using DPTemplate::Template;
using DPTemplate::TemplateManager;

const char kGood[] = "<template><layout id=\"item\"><text/></layout></template>";
const char kBad[] = "<template><layout><row><row/></row></layout></template>";

class DefaultContentTemplateTest : public ::testing::Test {
protected:
    void SetUp() override {
        NR_DefaultContentMgr::dispose();
        mFolder = ovplatform::devicePath(NR_DefaultContentMgr::DEFAULT_RESOURCE_PATH);
    }
    void TearDown() override {
        NR_DefaultContentMgr::dispose();
        OV_EventAndStatusFacade::destroy();
    }

    ovtest::TempDeviceRoot mRoot;
    std::string mFolder;
    TemplateManager mManager;
};

TEST_F(DefaultContentTemplateTest, ADefaultTemplateIsReadFromTheIndexAndKept) {
    ASSERT_TRUE(ovtest::writeFile(mFolder + "/dynport.dc",
                                  dctest::index({{"default-template.xml", kGood}})));
    PtrRef<Template> first = mManager.get("dc:default-template.xml");
    ASSERT_TRUE(first != nullptr);
    EXPECT_EQ("item", first->getLayout(0)->getId());
    EXPECT_EQ(1u, mManager.size());
    // Kept: gone from the device, it is still the same template.
    ASSERT_TRUE(ovtest::writeFile(mFolder + "/dynport.dc", dctest::index({})));
    NR_DefaultContentMgr::dispose();
    EXPECT_TRUE(mManager.get("dc:default-template.xml") == first);
    EXPECT_TRUE(mManager.get("dc:other.xml") == nullptr);
}

TEST_F(DefaultContentTemplateTest, AnUnusableDefaultTemplateGivesNoneUntilItsBytesChange) {
    // A plain file of the default-content folder: its bytes are read at every look-up.
    const std::string file = mFolder + "/plain.xml";
    ASSERT_TRUE(ovtest::writeFile(file, kBad));
    EXPECT_TRUE(mManager.get("dc:plain.xml") == nullptr);
    EXPECT_TRUE(mManager.get("dc:plain.xml") == nullptr);
    EXPECT_EQ(0u, mManager.size());
    ASSERT_TRUE(ovtest::writeFile(file, kGood));
    EXPECT_TRUE(mManager.get("dc:plain.xml") != nullptr);
}

} // namespace
