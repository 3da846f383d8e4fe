// Content IDs come from a server, and stored objects narrow wide text to bytes: an ID that
// would name a file outside the cache directory is refused by every operation, whether a
// caller hands it in or a stored object carries it, and nothing outside is read, written or
// deleted.
#include "CacheFixture.h"

#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "model/Channel.h"
#include "model/Container.h"
#include "model/Item.h"
#include "support/StderrCapture.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using namespace storagetest;

size_t countOf(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

class SecurityTest : public CacheTest {
protected:
    SecurityTest() : mOutside(mRoot.file("/qbxlocal/download/appwrite/")) {
        // Files beside the cache directory that a "../" ID would reach.
        Item victim("victim");
        victim.title = L"outside";
        EXPECT_TRUE(ovtest::writeFile(mOutside + "evil.itm", streamOf(victim)));
        Channel channel("evil");
        channel.itemIDs = {"victim"};
        EXPECT_TRUE(ovtest::writeFile(mOutside + "evil.chn", streamOf(channel)));
        EXPECT_TRUE(ovtest::writeFile(mOutside + "evil.gif", "GIF"));
        mBefore = snapshot();
    }
    void TearDown() override {
        EXPECT_EQ(mBefore, snapshot()) << "something outside the cache directory changed";
        OV_EventAndStatusFacade::destroy();
    }

    // Every file of the device root outside the cache directory, with its bytes, but for the
    // file the cache keeps its referenced total in.
    std::map<std::string, std::string> snapshot() const {
        std::map<std::string, std::string> files;
        const std::string refFile = mRoot.file("/tmp/ref.txt");
        for (const auto& entry : std::filesystem::recursive_directory_iterator(mRoot.path())) {
            std::string name = entry.path().string();
            if (entry.is_regular_file() && name.compare(0, mDir.size(), mDir) != 0 &&
                name != refFile)
                files[name] = ovtest::readFile(name);
        }
        return files;
    }

    std::string mOutside;
    std::map<std::string, std::string> mBefore;
};

TEST_F(SecurityTest, EveryOperationRefusesAnUnsafeID) {
    cache();
    const std::string bad[] = {
        "", ".", "..", "../evil", "a/b", "/tmp/x", std::string("evil\0x", 6)};
    for (const std::string& id : bad) {
        SCOPED_TRACE("ID \"" + id + "\"");
        ovtest::StderrCapture capture;
        Item item("x");
        Channel channel("x");
        Container container("x");
        std::string name = "unchanged", where = "unchanged";
        EXPECT_EQ(-1, cache()->save(id, item));
        EXPECT_EQ(-1, cache()->get(id, item));
        EXPECT_EQ(-1, cache()->remove(id, item));
        EXPECT_EQ(-1, cache()->remove(id, channel));
        EXPECT_EQ(-1, cache()->remove(id, container));
        EXPECT_EQ(-1, cache()->removeChannelExcerptRefs(id, channel));
        EXPECT_EQ(-1, cache()->getFileName(id, name));
        EXPECT_EQ("unchanged", name);
        EXPECT_EQ(-1, cache()->getPath(id, where));
        EXPECT_EQ("", where);
        EXPECT_EQ(-1, cache()->getSize(id));
        EXPECT_EQ(nullptr, cache()->getInputStream(id));
        EXPECT_EQ(nullptr, cache()->getOutputStream(id, 10));
        std::ofstream* stray = new std::ofstream();
        EXPECT_EQ(-1, cache()->closeOutputStream(id, stray, "image/gif"));
        EXPECT_EQ(12u, countOf(capture.text(), "{3} NR_ContentCache.cpp:"));
        EXPECT_EQ(12u, countOf(capture.text(), "refused content ID"));
    }
    EXPECT_TRUE(std::filesystem::is_empty(mDir));
    EXPECT_EQ(0, policy()->blocksUsed());
}

TEST_F(SecurityTest, StoredObjectsCarryingUnsafeIDsReachNothingOutside) {
    // A code point whose low byte is '/' turns into a slash when narrowed.
    const ovTypes::ID narrowed(ovTypes::String(L"..\u012fevil"));
    ASSERT_EQ("../evil", narrowed);

    Item item("item");
    item.templateID = "../evil";
    item.contentMap.reset(new NewsObject::ContentMap);
    (*item.contentMap)["image"].contextId = narrowed;
    (*item.contentMap)["other"].contextId = "fine";
    Channel channel("ch");
    channel.itemIDs = {"item", "../evil", "a/b", ""};
    channel.contentMap.reset(new NewsObject::ContentMap);
    (*channel.contentMap)["image"].contextId = "..";
    Container news("news");
    news.channelIDs = {"ch", "../evil"};

    ovtest::StderrCapture capture;
    ASSERT_EQ(0, cache()->save("item", item));
    ASSERT_EQ(0, cache()->save("ch", channel));
    ASSERT_EQ(0, cache()->save("news", news));
    EXPECT_EQ(6u, countOf(capture.text(), "refused content ID"));
    // Only the safe references were registered.
    EXPECT_EQ(std::set<std::string>({"fine"}), policy()->childrenOf("item.itm"));
    EXPECT_EQ(std::set<std::string>({"item.itm"}), policy()->childrenOf("ch.chn"));
    EXPECT_EQ(std::set<std::string>({"ch.chn"}), policy()->childrenOf("news.cnt"));
    EXPECT_EQ(9, cache()->getType("../evil"));

    // Rebuilding from the files refuses the same IDs and reads nothing outside: the channel
    // beside the directory would have referenced its item.
    EXPECT_EQ(0, cache()->sync());
    EXPECT_TRUE(policy()->parentsOf("victim.itm").empty());
    EXPECT_EQ(std::set<std::string>({"fine"}), policy()->childrenOf("item.itm"));

    // Evicting and clearing everything deletes only the cache's own files.
    bool evictedReferenced = false;
    while (policy()->removeNext(0, evictedReferenced) == 0) {
    }
    EXPECT_EQ(0, cache()->clear());
}

} // namespace
