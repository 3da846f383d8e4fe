#include "dptemplate/TemplateManager.h"

#include "OVPlatform.h"
#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "storage/DefaultContentBytes.h"
#include "storage/NR_DefaultContentMgr.h"
#include "support/Files.h"
#include "support/StderrCapture.h"
#include "support/TempCache.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/stat.h>

using DPTemplate::Template;
using DPTemplate::TemplateManager;

namespace {

const char kGood[] = "<template><layout id=\"item\"><text/></layout></template>";
// As long as kGood, but refused by the parser (a row inside a row).
const char kBad[] = "<template><layout><row><row/></row></layout></template>";
static_assert(sizeof kGood == sizeof kBad, "the two templates must have one length");

TEST(TemplateManager, KeepsWhatTheParserAccepts) {
    TemplateManager* manager = TemplateManager::getInstance();
    manager->clear();

    std::istringstream good(kGood);
    EXPECT_EQ(0, manager->load("dc:item", good));
    PtrRef<Template> kept = manager->get("dc:item");
    ASSERT_TRUE(kept != nullptr);
    EXPECT_EQ(1u, kept->getLayoutCount());

    // Refused documents leave the template kept before in place.
    std::istringstream misplaced(kBad);
    EXPECT_EQ(2, manager->load("dc:item", misplaced));
    EXPECT_TRUE(manager->get("dc:item") == kept);
    // What parses without an error but holds no layout is no template: an empty file, text, a
    // document cut off before its layout, one with a style sheet only.
    for (const char* bare : {"", "hello world", "<template><stylesheet id=\"s\"/>",
                             "<template><stylesheet id=\"s\"/></template>"}) {
        SCOPED_TRACE(bare);
        ovtest::StderrCapture capture;
        std::istringstream in(bare);
        EXPECT_EQ(TemplateManager::NO_LAYOUT, manager->load("dc:bare", in));
        EXPECT_TRUE(manager->find("dc:bare") == nullptr);
        EXPECT_NE(std::string::npos,
                  capture.text().find("\tTemplateManager: dc:bare holds no layout: not a template"))
            << capture.text();
        EXPECT_EQ(0u, capture.text().find("{3} ")) << capture.text();
    }

    // A handle given out outlives the manager's own reference.
    manager->remove("dc:item");
    EXPECT_TRUE(manager->get("dc:item") == nullptr);
    EXPECT_EQ("item", kept->getLayout(0)->getId());
    EXPECT_EQ(0u, manager->size());
}

// A template manager of its own over a content cache and default content on a temporary
// device root.
class TemplateFromStore : public ::testing::Test {
protected:
    void SetUp() override {
        NR_DefaultContentMgr::dispose();
        mFolder = ovplatform::devicePath(NR_DefaultContentMgr::DEFAULT_RESOURCE_PATH);
    }
    void TearDown() override {
        NR_DefaultContentMgr::dispose();
        OV_EventAndStatusFacade::destroy();
    }

    ovtest::TempCache mCache;
    std::string mFolder;
    TemplateManager mManager;
};

TEST_F(TemplateFromStore, AStoredTemplateIsParsedOnceAndARefusedOneAgainWhenItsFileChanges) {
    std::string path = mCache.put("tpl", kBad, "text/plain");
    ASSERT_FALSE(path.empty());
    EXPECT_TRUE(mManager.get("tpl") == nullptr);

    // The same file, rewritten in place with an acceptable template of the same size and given its
    // old modification time back: it is not parsed again, so it stays refused.
    struct stat before;
    ASSERT_EQ(0, stat(path.c_str(), &before));
    {
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        file << kGood;
    }
    struct timespec times[2] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(0, utimensat(AT_FDCWD, path.c_str(), times, 0));
    EXPECT_TRUE(mManager.get("tpl") == nullptr);

    // Touched, it is another file as far as the manager can tell: parsed and kept, the same
    // object again even once the resource is gone.
    times[1].tv_nsec = (times[1].tv_nsec + 1) % 1000000000;
    ASSERT_EQ(0, utimensat(AT_FDCWD, path.c_str(), times, 0));
    PtrRef<Template> first = mManager.get("tpl");
    ASSERT_TRUE(first != nullptr);
    ASSERT_EQ(0, std::remove(path.c_str()));
    EXPECT_TRUE(mManager.get("tpl") == first);
    EXPECT_TRUE(mManager.find("tpl") == first);
    EXPECT_TRUE(mManager.get("absent") == nullptr);
    EXPECT_TRUE(mManager.get("") == nullptr);
    EXPECT_EQ(1u, mManager.size());
}

// Templates named "dc:" come from default content, never from the cache.
TEST_F(TemplateFromStore, ADefaultTemplateIsReadFromTheIndexAndKept) {
    ASSERT_NE("", mCache.put("dc:default-template.xml", kGood, "text/plain"));
    EXPECT_TRUE(mManager.get("dc:default-template.xml") == nullptr);

    // An unusable plain file of the default-content folder gives none until its bytes change.
    const std::string file = mFolder + "/plain.xml";
    ASSERT_TRUE(ovtest::writeFile(file, kBad));
    EXPECT_TRUE(mManager.get("dc:plain.xml") == nullptr);
    EXPECT_TRUE(mManager.get("dc:plain.xml") == nullptr);
    EXPECT_EQ(0u, mManager.size());
    ASSERT_TRUE(ovtest::writeFile(file, kGood));
    EXPECT_TRUE(mManager.get("dc:plain.xml") != nullptr);

    ASSERT_TRUE(ovtest::writeFile(mFolder + "/dynport.dc",
                                  dctest::index({{"default-template.xml", kGood}})));
    NR_DefaultContentMgr::dispose();
    PtrRef<Template> first = mManager.get("dc:default-template.xml");
    ASSERT_TRUE(first != nullptr);
    EXPECT_EQ("item", first->getLayout(0)->getId());
    EXPECT_EQ(2u, mManager.size());
    // Kept: gone from the device, it is still the same template.
    ASSERT_TRUE(ovtest::writeFile(mFolder + "/dynport.dc", dctest::index({})));
    NR_DefaultContentMgr::dispose();
    EXPECT_TRUE(mManager.get("dc:default-template.xml") == first);
    EXPECT_TRUE(mManager.get("dc:other.xml") == nullptr);
}

} // namespace
