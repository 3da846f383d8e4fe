// ovcache run on a device root as a developer runs it: what list, show, usage and sync report
// for a cache a previous run left, what they leave on disk, and the exit statuses.
#include "ToolCheck.h"

#include "OVPlatform.h"
#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "model/Channel.h"
#include "model/Container.h"
#include "model/Item.h"
#include "storage/NR_ContentCache.h"
#include "support/Files.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

const char* const OVCACHE = OVTOOL_OVCACHE;

using tooltest::contains;
using tooltest::exits;

std::string streamOf(const Streamable& object) {
    std::ostringstream out;
    object.store(out);
    return out.str();
}

// A cache of 100 blocks of 4096 bytes: the feed "news" -> channel ch -> item x, with the item's
// and the channel's images, an image nothing references and an unfinished write.
class OvCache : public ::testing::Test {
protected:
    OvCache() : mDir(mRoot.file("/qbxlocal/download/appwrite/ovcache/")) {
        EXPECT_TRUE(ovplatform::setSimulatedFileSystem(mDir, 4096, 1000));
        Container news("news");
        news.channelIDs = {"ch"};
        Channel channel("ch");
        channel.itemIDs = {"x"};
        channel.contentMap.reset(new NewsObject::ContentMap);
        (*channel.contentMap)["image"].contextId = "chimg";
        Item item("x");
        item.title = L"Tram line approved";
        item.contentMap.reset(new NewsObject::ContentMap);
        (*item.contentMap)["image"].contextId = "img";
        EXPECT_TRUE(ovtest::writeFile(mDir + "news.cnt", streamOf(news)));
        EXPECT_TRUE(ovtest::writeFile(mDir + "ch.chn", streamOf(channel)));
        EXPECT_TRUE(ovtest::writeFile(mDir + "x.itm", streamOf(item)));
        for (const char* name : {"img.gif", "chimg.gif", "orphan.gif", "half.tmp"})
            EXPECT_TRUE(ovtest::writeFile(mDir + name, "bytes"));
    }

    ovtest::ToolResult ovcache(std::vector<std::string> args) {
        args.insert(args.begin(), mRoot.path());
        return ovtest::runTool(OVCACHE, args);
    }

    ovtest::TempDeviceRoot mRoot;
    std::string mDir;
};

// A mistyped cache directory is named, not made.
TEST(OvCacheUsage, AMissingCacheDirectoryIsNotMade) {
    ovtest::TempDir root;
    const std::string missing = root.file("missing");
    EXPECT_TRUE(exits(ovtest::runTool(OVCACHE, {"--cache-dir", missing, "list"}), 66,
                      missing + ": no such cache directory"));
    EXPECT_FALSE(ovtest::fileExists(missing));
}

// Odd bytes in names are escaped.
TEST_F(OvCache, ListShowsQueuesAndReferencesAndDeletesNothing) {
    ASSERT_TRUE(ovtest::writeFile(mDir + "odd\x1b[2J\xff.gif", "bytes"));
    ovtest::ToolResult list = ovcache({"list"});
    ASSERT_EQ(0, list.exitCode) << list.err;
    EXPECT_EQ("", list.err) << "the library's diagnostics stay off the terminal";
    EXPECT_EQ(
        "ch.chn                                         256  queue  2  referenced by news.cnt\n"
        "chimg.gif                                        5  queue  5  referenced by ch.chn\n"
        "half.tmp                                         5  not accounted\n"
        "img.gif                                          5  queue  9  referenced by x.itm\n"
        "news.cnt                                        14  queue  0  unreferenced\n"
        "odd\\x1B[2J\\xFF.gif                               5  queue  9  unreferenced\n"
        "orphan.gif                                       5  queue  9  unreferenced\n"
        "x.itm                                          328  queue  3  referenced by ch.chn\n"
        "8 files, 7 blocks of 4096 bytes, 4 referenced, limit 100\n",
        list.out);
    EXPECT_TRUE(ovtest::fileExists(mDir + "half.tmp")) << "list leaves unfinished writes alone";
}

// Show prints the stored form or names what is missing, and a file that holds no object key is
// said to be none. Used is the referenced use: the channel, the item and their two images, a
// block each; sync sweeps unfinished writes and reports the same figures.
TEST_F(OvCache, ShowUsageAndSync) {
    ovtest::ToolResult shown = ovcache({"show", "x"});
    ASSERT_EQ(0, shown.exitCode) << shown.err;
    EXPECT_EQ(0u, shown.out.find("== x.itm\n")) << shown.out;
    EXPECT_TRUE(contains(shown.out, "title=Tram line approved\n")) << shown.out;

    ASSERT_TRUE(ovtest::writeFile(mDir + "pic.itm", "GIF89a\x01\x02 not an item\n"));
    const std::string figures = "total 400 K\nused 16 K\nfree 384 K\n";
    tooltest::expectRuns(
        OVCACHE, {mRoot.path()},
        {{{"show", "nothere"}, 1, "", "nothere: no container, channel or item in " + mDir},
         {{"show", "../ovcache/x"}, 64, "", "../ovcache/x: not a content ID of the cache"},
         {{"show", "pic"},
          65,
          "",
          "ovcache: " + mDir +
              "pic.itm: does not look like a stored object: it holds none of its keys\n"},
         {{"usage"}, 0, figures, ""}});
    EXPECT_TRUE(ovtest::fileExists(mDir + "half.tmp"));
    tooltest::expectRuns(OVCACHE, {mRoot.path()}, {{{"sync"}, 0, figures, ""}});
    EXPECT_FALSE(ovtest::fileExists(mDir + "half.tmp"));
    EXPECT_EQ("4\n", ovtest::readFile(mRoot.file("/tmp/ref.txt")));
}

// A download this process has under way survives ovcache sync in another process; a leftover
// that cannot be deleted makes it fail, naming the file and the reason.
TEST_F(OvCache, SyncLeavesDownloadsInProgressAndNamesWhatItCannotDelete) {
    std::ofstream* out = NR_ContentCache::getInstance()->getOutputStream("dl", 10);
    ASSERT_NE(nullptr, out);
    EXPECT_TRUE(exits(ovcache({"sync"}), 0));
    EXPECT_TRUE(ovtest::fileExists(mDir + "dl.tmp"));
    EXPECT_FALSE(ovtest::fileExists(mDir + "half.tmp"));
    EXPECT_EQ(0, NR_ContentCache::getInstance()->closeOutputStream("dl", out, "image/gif"));

    ASSERT_TRUE(ovtest::writeFile(mDir + "stuck.tmp", "x"));
    ovtest::Immutable frozen(mDir);
    if (!frozen.ok())
        GTEST_SKIP() << "the immutable flag cannot be set here";
    EXPECT_TRUE(
        exits(ovcache({"sync"}), 1,
              mDir + "stuck.tmp: cannot delete the unfinished file: Operation not permitted"));
    frozen.release();
    OV_EventAndStatusFacade::destroy();
}

// A FIFO where the root container belongs neither hangs list nor show.
TEST_F(OvCache, AFifoUnderAnObjectNameHangsNothing) {
    ASSERT_EQ(0, ::unlink((mDir + "news.cnt").c_str()));
    ASSERT_EQ(0, ::mkfifo((mDir + "news.cnt").c_str(), 0644));
    ovtest::ToolOptions quick;
    quick.timeoutSeconds = 20;
    ovtest::ToolResult list = ovtest::runTool(OVCACHE, {mRoot.path(), "list"}, quick);
    EXPECT_EQ(0, list.exitCode) << list.err;
    EXPECT_TRUE(contains(list.out, "  328  queue  3  unreferenced\n")) << list.out;
    ovtest::ToolResult show = ovtest::runTool(OVCACHE, {mRoot.path(), "show", "news"}, quick);
    EXPECT_EQ(1, show.exitCode);
    EXPECT_FALSE(show.timedOut);
}

} // namespace
