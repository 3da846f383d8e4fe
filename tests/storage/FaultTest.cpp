// The cache against what a phone's storage does to it: a directory that refuses changes for a
// while or vanishes, a full file system, a file that cannot be deleted, a size that cannot be
// measured yet, another process's files stamped within the same clock tick (as on a file system
// that stamps whole seconds), a sync while a download is under way, and junk or damaged bytes
// under the names of stored objects; and IDs that would name files outside the cache directory.
#include "CacheFixture.h"

#include <csignal>
#include <fcntl.h>
#include <random>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace storagetest;

// What every operation that takes a content ID does with ID: the results in turn (-1 for a stream
// not given), then what getFileName and getPath left in their outputs ("unchanged" before).
std::string everyOperation(NR_ContentCache* cache, const std::string& id) {
    Item item("x");
    Channel channel("x");
    Container container("x");
    std::string name = "unchanged", where = "unchanged";
    std::ostringstream out;
    out << cache->save(id, item) << " " << cache->get(id, item) << " " << cache->remove(id, item)
        << " " << cache->remove(id, channel) << " " << cache->remove(id, container) << " "
        << cache->removeChannelExcerptRefs(id, channel) << " " << cache->getFileName(id, name)
        << " " << cache->getPath(id, where) << " " << cache->getSize(id) << " "
        << (cache->getInputStream(id) ? 0 : -1) << " " << (cache->getOutputStream(id, 10) ? 0 : -1)
        << " " << cache->closeOutputStream(id, new std::ofstream(), "image/gif");
    return out.str() + ", " + name + ", '" + where + "'";
}

class FaultTest : public CacheTest {
protected:
    // Steps FROM to TO of a feed as an engine saves it: an item, then its 2-block image, and
    // every tenth step the channel listing the last ten items. The number of steps that failed.
    int feed(int from, int to) {
        int failed = 0;
        for (int i = from; i < to; ++i) {
            const std::string n = std::to_string(i);
            Item item("it" + n);
            setContent(item.contentMap, "image", "im" + n);
            bool ok = cache()->save(item.id, item) == 0;
            ok = putResource("im" + n, std::string(5000, 'i')) == 0 && ok;
            if (i % 10 == 9) {
                Channel channel("ch");
                for (int j = i - 9; j <= i; ++j)
                    channel.itemIDs.push_back("it" + std::to_string(j));
                ok = cache()->save("ch", channel) == 0 && ok;
            }
            failed += ok ? 0 : 1;
        }
        return failed;
    }
};

// Saves during a phase in which nothing can be deleted or written fail and leave no trace (what
// is stored can still be read; removing fails): once the directory takes changes again,
// the engine's retries end where an undisturbed cache ends.
TEST_F(FaultTest, AnUnwritablePhaseLeavesTheCacheAsIfUndisturbed) {
    ASSERT_EQ(0, feed(0, 60));
    const std::string undisturbed = listing();
    const long blocks = policy()->blocksUsed();
    ASSERT_LE(blocks, policy()->maxCacheBlocks());
    ASSERT_EQ(0, cache()->clear());

    ASSERT_EQ(0, feed(0, 40));
    {
        ovtest::Immutable frozen(mDir);
        if (!frozen.ok())
            GTEST_SKIP() << "the immutable flag cannot be set here";
        ovtest::StderrCapture capture;
        EXPECT_EQ(5, feed(40, 45)) << "every save must fail";
        EXPECT_TRUE(inOrder(capture.text(), {"could not be deleted"}));
        Item item("it39");
        EXPECT_EQ(0, cache()->get("it39", item)) << "readable still";
        EXPECT_EQ(-1, cache()->remove("it39", item));
        EXPECT_EQ(nullptr, cache()->getOutputStream("r", 10));
    }
    ASSERT_EQ(0, feed(40, 60));
    EXPECT_EQ(undisturbed, listing());
    EXPECT_EQ(blocks, policy()->blocksUsed());
}

// A file that cannot be deleted keeps its place and its blocks; the next candidate goes.
TEST_F(FaultTest, EvictionPassesOverAFileThatCannotBeDeleted) {
    NR_ContentCachePolicy* p = policy();
    account("stuck.gif", 9);
    account("next.gif", 9);
    ASSERT_EQ("stuck.gif", p->queue(9).top()->name);
    {
        ovtest::Immutable frozen(path("stuck.gif"));
        if (!frozen.ok())
            GTEST_SKIP() << "the immutable flag cannot be set here";
        p->beginRoomMaking();
        ASSERT_EQ("unreferenced next.gif", evict());
        EXPECT_EQ("none", evict());
        EXPECT_TRUE(p->roomMakingStuck());
    }
    EXPECT_EQ(1, p->blocksUsed());
    p->beginRoomMaking();
    ASSERT_EQ("unreferenced stuck.gif", evict());
    EXPECT_EQ(0, p->blocksUsed());
}

// The cache directory cannot be made at first ("/qbxlocal" is a plain file): saves fail with a
// level-3 line instead of evicting to fit a limit of nothing, and once the directory is there
// the next save measures it.
TEST(FaultUnmeasured, ALimitNeverMeasuredEvictsNothing) {
    ovtest::TempDeviceRoot root;
    const std::string dir = cacheDirUnderRoot();
    ASSERT_TRUE(ovtest::writeFile(root.path() + "/qbxlocal", "junk"));
    ovtest::StderrCapture capture;
    NR_ContentCache* cache = NR_ContentCache::getInstance();
    EXPECT_EQ(-1, cache->save("a", Item("a")));
    EXPECT_TRUE(inOrder(capture.text(), {"{3} NR_ContentCache.cpp", "save(): the size of " + dir}));

    std::filesystem::remove(root.path() + "/qbxlocal");
    std::filesystem::create_directories(dir);
    ASSERT_TRUE(ovplatform::setSimulatedFileSystem(dir, 4096, 1000));
    for (const char* id : {"a", "b", "c"})
        ASSERT_EQ(0, cache->save(id, Item(id)));
    EXPECT_EQ(100, NR_ContentCachePolicy::getInstance()->maxCacheBlocks());
    for (const char* id : {"a", "b", "c"})
        EXPECT_TRUE(ovtest::fileExists(dir + "/" + id + ".itm")) << id;
    OV_EventAndStatusFacade::destroy();
}

// Another process renames a finished file in within the tick of the cache's own last change:
// a file system that stamps whole seconds leaves the directory's modification time as the
// cache knows it. Set back by hand here, as such a file system would leave it.
TEST_F(FaultTest, AnotherProcesssFileStampedInTheSameTickIsFound) {
    ASSERT_EQ(0, cache()->save("own", Item("own")));
    ASSERT_EQ("own.itm", fileOf("own"));
    struct stat before;
    ASSERT_EQ(0, ::stat(mDir.c_str(), &before));
    ASSERT_TRUE(ovtest::writeFile(path("theirs.tmp"), "GIF89a"));
    ASSERT_EQ(0, std::rename(path("theirs.tmp").c_str(), path("theirs.gif").c_str()));
    const timespec times[2] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(0, ::utimensat(AT_FDCWD, mDir.c_str(), times, 0));
    EXPECT_EQ("theirs.gif", fileOf("theirs"));
}

// A download under way survives sync; what a killed writer left is swept; a leftover that
// cannot be deleted makes sync fail and is named.
TEST_F(FaultTest, SyncKeepsDownloadsInProgressAndNamesWhatItCannotDelete) {
    std::ofstream* out = cache()->getOutputStream("dl", 10);
    ASSERT_NE(nullptr, out);
    ASSERT_TRUE(ovtest::writeFile(path("stale.tmp"), "left by a killed writer"));
    EXPECT_EQ(0, cache()->sync());
    EXPECT_EQ("dl.tmp", listing());
    *out << "GIF89a";
    EXPECT_EQ(0, cache()->closeOutputStream("dl", out, "image/gif"));
    EXPECT_EQ("GIF89a", ovtest::readFile(path("dl.gif")));

    ASSERT_TRUE(ovtest::writeFile(path("stuck.tmp"), "x"));
    ovtest::Immutable frozen(mDir);
    if (!frozen.ok())
        GTEST_SKIP() << "the immutable flag cannot be set here";
    NR_ContentCache::Undeleted undeleted;
    EXPECT_EQ(-1, cache()->sync(true, &undeleted));
    EXPECT_EQ(NR_ContentCache::Undeleted({{"stuck.tmp", EPERM}}), undeleted);
    // A clear that deletes nothing leaves what is on disk counted.
    const long used = policy()->blocksUsed();
    ASSERT_GT(used, 0);
    EXPECT_EQ(-1, cache()->clear());
    EXPECT_EQ(used, policy()->blocksUsed());
}

// A FIFO, a link to a device and a huge file without a line feed under object names, a FIFO
// under a resource's name: each is refused at once, with a level-3 line for the objects.
TEST_F(FaultTest, JunkUnderObjectNamesIsRefusedWithoutHanging) {
    ASSERT_EQ(0, ::mkfifo(path("news.cnt").c_str(), 0644));
    ASSERT_EQ(0, ::symlink("/dev/zero", path("zero.itm").c_str()));
    ASSERT_TRUE(ovtest::writeFile(path("huge.chn"), ""));
    std::filesystem::resize_file(path("huge.chn"), 300ul << 20);
    ASSERT_EQ(0, ::mkfifo(path("pipe.gif").c_str(), 0644));

    ovtest::StderrCapture capture;
    EXPECT_EQ("<none>", readBack<Container>("news"));
    EXPECT_EQ("<none>", readBack<Item>("zero"));
    EXPECT_EQ("<none>", readBack<Channel>("huge"));
    EXPECT_EQ(nullptr, cache()->getInputStream("pipe"));
    EXPECT_EQ(0, cache()->sync());
    const std::string refused = " is not a stored object: ";
    EXPECT_TRUE(inOrder(capture.text(), {path("news.cnt") + refused + "Invalid argument",
                                         path("zero.itm") + refused + "Invalid argument",
                                         path("huge.chn") + refused + "File too large"}));
}

// Damaged object files load as far as their bytes go (the stream form's rules), count in the
// accounting a sync rebuilds, and are replaced whole by the next save.
TEST_F(FaultTest, DamagedObjectFilesLoadWithDefaults) {
    std::string garbage;
    std::mt19937 random(3);
    for (int i = 0; i < 5000; ++i)
        garbage += char(random() % 256);
    for (const char* name : {"garbage.itm", "garbage.chn", "news.cnt"})
        ASSERT_TRUE(ovtest::writeFile(path(name), garbage));
    ASSERT_TRUE(ovtest::writeFile(path("empty.itm"), ""));

    EXPECT_NE("<none>", readBack<Item>("garbage"));
    EXPECT_EQ(streamOf(Item("empty")), readBack<Item>("empty"));
    EXPECT_NE("<none>", readBack<Channel>("garbage"));
    EXPECT_NE("<none>", readBack<Container>("news"));

    EXPECT_EQ(0, cache()->sync());
    EXPECT_EQ(3 * 2 + 1, policy()->blocksUsed()) << "every file is accounted";
    const Item whole("x");
    ASSERT_EQ(0, cache()->save("garbage", whole));
    EXPECT_EQ(streamOf(whole), ovtest::readFile(path("garbage.itm")));
}

// A file-size limit makes writes fail as a full file system does (EFBIG in place of ENOSPC).
TEST_F(FaultTest, AFullFileSystemFailsTheSaveAndKeepsEarlierFiles) {
    const Item small("x");
    ASSERT_EQ(0, cache()->save("x", small));
    ASSERT_EQ(0, putResource("img", "GIF"));
    long blocks = policy()->blocksUsed();

    Item big("x");
    big.title = ovTypes::String(std::wstring(64 * 1024, L'b'));
    struct rlimit saved;
    ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &saved));
    struct rlimit limited = saved;
    limited.rlim_cur = 16 * 1024;
    auto previous = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &limited));
    // Replacing an object, storing a resource, writing a new object.
    const std::string results = std::to_string(cache()->save("x", big)) + " " +
                                std::to_string(putResource("img", std::string(64 * 1024, 'g'))) +
                                " " + std::to_string(cache()->save("other", big));
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &saved));
    std::signal(SIGXFSZ, previous);

    EXPECT_EQ("-1 -1 -1", results);
    EXPECT_EQ(streamOf(small), ovtest::readFile(path("x.itm")));
    EXPECT_EQ("GIF", ovtest::readFile(path("img.gif")));
    EXPECT_EQ("img.gif x.itm", listing());
    EXPECT_EQ(blocks, policy()->blocksUsed());
}

TEST_F(FaultTest, AVanishedDirectoryGivesFailuresThenRecovers) {
    Item item("x");
    ASSERT_EQ(0, cache()->save("x", item));
    std::filesystem::remove_all(mDir);

    // Dropping an excerpt's references (the sixth) needs no file.
    EXPECT_EQ("-1 -1 -1 -1 -1 0 -1 -1 -1 -1 -1 -1, unchanged, ''", everyOperation(cache(), "x"));
    EXPECT_EQ(-1, cache()->clear());
    EXPECT_EQ(-1, cache()->sync());
    cache()->sendStorageStatus();

    // Made again (as another process would), it is used again.
    std::filesystem::create_directories(mDir);
    EXPECT_EQ(0, cache()->save("y", item));
    EXPECT_EQ(0, putResource("r", "R"));
    EXPECT_EQ("r.gif y.itm", listing());
}

// ---- Hostile IDs. Content IDs come from a server, and stored objects narrow wide text to
// bytes: an ID that would name a file outside the cache directory is refused by every
// operation, whether a caller hands it in or a stored object carries it, and nothing outside is
// read, written or deleted.

class SecurityTest : public CacheTest {
protected:
    SecurityTest() : mOutside(mRoot.file("/qbxlocal/download/appwrite/")) {
        // Files beside the cache directory that a "../" ID would reach.
        EXPECT_TRUE(ovtest::writeFile(mOutside + "evil.itm", streamOf(Item("victim"))));
        Channel channel("evil");
        channel.itemIDs = {"victim"};
        EXPECT_TRUE(ovtest::writeFile(mOutside + "evil.chn", streamOf(channel)));
        EXPECT_TRUE(ovtest::writeFile(mOutside + "evil.gif", "GIF"));
        mBefore = snapshot();
    }
    void TearDown() override {
        EXPECT_EQ(mBefore, snapshot()) << "something outside the cache directory changed";
        CacheTest::TearDown();
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
        EXPECT_EQ("-1 -1 -1 -1 -1 -1 -1 -1 -1 -1 -1 -1, unchanged, ''",
                  everyOperation(cache(), id));
        EXPECT_EQ(12u, capture.count("{3} NR_ContentCache.cpp:"));
        EXPECT_EQ(12u, capture.count("refused content ID"));
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
    setContent(item.contentMap, "image", narrowed);
    setContent(item.contentMap, "other", "fine");
    Channel channel("ch");
    channel.itemIDs = {"item", "../evil", "a/b", ""};
    setContent(channel.contentMap, "image", "..");
    Container news("news");
    news.channelIDs = {"ch", "../evil"};

    ovtest::StderrCapture capture;
    ASSERT_EQ(0, cache()->save("item", item));
    ASSERT_EQ(0, cache()->save("ch", channel));
    ASSERT_EQ(0, cache()->save("news", news));
    EXPECT_EQ(6u, capture.count("refused content ID"));
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
    while (evict() != "none") {
    }
    EXPECT_EQ(0, cache()->clear());
}

} // namespace
