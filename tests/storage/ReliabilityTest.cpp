// The cache under bad conditions: damaged object files, a full file system, a directory that
// vanishes, and a writer killed while saving many items.
#include "CacheFixture.h"

#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "model/Channel.h"
#include "model/Container.h"
#include "model/Item.h"
#include "support/ChildProcess.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <random>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using storagetest::CacheTest;
using storagetest::streamOf;

const char* const kChildRootVariable = "OVBASE_TEST_STORAGE_CHILD_ROOT";
const char* const kChildPrefixVariable = "OVBASE_TEST_STORAGE_CHILD_PREFIX";

// The item the kill test saves under ID: its title's length varies with the ID, so a torn
// write would show.
std::unique_ptr<Item> killTestItem(const std::string& id) {
    std::unique_ptr<Item> item(new Item(id));
    size_t seed = std::hash<std::string>()(id);
    item->title = ovTypes::String(ovTypes::ID(id + ":" + std::string(seed % 3000, 't')));
    item->currentDisplayCount = int32_t(seed % 1000);
    return item;
}

class ReliabilityTest : public CacheTest {
protected:
    void TearDown() override { OV_EventAndStatusFacade::destroy(); }
};

// Damaged object files load as far as their bytes go (the stream form's rules), count in the
// accounting a sync rebuilds, and are replaced whole by the next save.
TEST_F(ReliabilityTest, DamagedObjectFilesLoadWithDefaults) {
    std::string garbage;
    std::mt19937 random(3);
    for (int i = 0; i < 5000; ++i)
        garbage += char(random() % 256);
    for (const char* name : {"garbage.itm", "garbage.chn", "news.cnt"})
        ASSERT_TRUE(ovtest::writeFile(path(name), garbage));
    ASSERT_TRUE(ovtest::writeFile(path("empty.itm"), ""));

    Item item("garbage"), empty("empty");
    Channel channel("garbage");
    Container news("news");
    ASSERT_EQ(0, cache()->get("garbage", item));
    EXPECT_EQ(1000, item.priority);
    EXPECT_EQ(INT32_MAX, item.displayCountLimit);
    ASSERT_EQ(0, cache()->get("empty", empty));
    EXPECT_EQ(streamOf(Item("empty")), streamOf(empty));
    ASSERT_EQ(0, cache()->get("garbage", channel));
    ASSERT_EQ(0, cache()->get("news", news));

    EXPECT_EQ(0, cache()->sync());
    EXPECT_EQ(3 * 2 + 1, policy()->blocksUsed()) << "every file is accounted";
    Item whole("x");
    whole.title = L"a title";
    ASSERT_EQ(0, cache()->save("garbage", whole));
    EXPECT_EQ(streamOf(whole), ovtest::readFile(path("garbage.itm")));
}

// A file-size limit makes writes fail as a full file system does (EFBIG in place of ENOSPC).
TEST_F(ReliabilityTest, AFullFileSystemFailsTheSaveAndKeepsEarlierFiles) {
    Item small("x");
    small.title = L"small";
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
    int savedBig = cache()->save("x", big);
    int storedBig = putResource("img", std::string(64 * 1024, 'g'));
    int savedOther = cache()->save("other", big);
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &saved));
    std::signal(SIGXFSZ, previous);

    EXPECT_NE(0, savedBig);
    EXPECT_EQ(-1, storedBig);
    EXPECT_NE(0, savedOther);
    EXPECT_EQ(streamOf(small), ovtest::readFile(path("x.itm")));
    EXPECT_EQ("GIF", ovtest::readFile(path("img.gif")));
    EXPECT_EQ("img.gif x.itm", listing());
    EXPECT_EQ(blocks, policy()->blocksUsed());
}

TEST_F(ReliabilityTest, AVanishedDirectoryGivesFailuresThenRecovers) {
    Item item("x");
    ASSERT_EQ(0, cache()->save("x", item));
    std::filesystem::remove_all(mDir);

    std::string name, where;
    EXPECT_EQ(-1, cache()->save("y", item));
    EXPECT_EQ(-1, cache()->get("x", item));
    EXPECT_EQ(-1, cache()->getFileName("x", name));
    EXPECT_EQ(-1, cache()->getPath("x", where));
    EXPECT_EQ(-1, cache()->getSize("x"));
    EXPECT_EQ(nullptr, cache()->getInputStream("x"));
    EXPECT_EQ(nullptr, cache()->getOutputStream("r", 10));
    EXPECT_EQ(-1, cache()->remove("x", item));
    EXPECT_EQ(-1, cache()->clear());
    EXPECT_EQ(-1, cache()->sync());
    cache()->sendStorageStatus();

    // Made again (as another process would), it is used again.
    std::filesystem::create_directories(mDir);
    EXPECT_EQ(0, cache()->save("y", item));
    EXPECT_EQ(0, putResource("r", "R"));
    EXPECT_EQ("r.gif y.itm", listing());
}

// Starts this test program again, running only TEST, with VARIABLES added to its environment.
bool startChild(ovtest::ChildProcess& child, const std::string& test,
                const std::vector<std::string>& variables) {
    return child.start(
        {"/proc/self/exe", "--gtest_filter=" + test, "--gtest_also_run_disabled_tests"}, variables);
}

// Run only as a child of the test below: saves items one after another until it is killed,
// writing "saved ID" once each save returned.
TEST(StorageChild, DISABLED_SavesUntilKilled) {
    const char* root = std::getenv(kChildRootVariable);
    const char* prefix = std::getenv(kChildPrefixVariable);
    if (!root || !prefix)
        GTEST_SKIP() << "only run as a child process";
    ovplatform::setDeviceRoot(root);
    NR_ContentCache* cache = NR_ContentCache::getInstance();
    for (int i = 0;; ++i) {
        std::string id = std::string(prefix) + std::to_string(i);
        if (cache->save(id, *killTestItem(id)) != 0)
            continue;
        std::string line = "saved " + id + "\n";
        ASSERT_EQ(ssize_t(line.size()), ::write(1, line.data(), line.size()));
    }
}

class StorageSlow : public ReliabilityTest {};

TEST_F(StorageSlow, KilledWhileSavingLeavesNoPartialFile) {
    cache();
    std::mt19937 random(2024);
    std::set<std::string> saved;
    const int rounds = 12;
    for (int round = 0; round < rounds; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        ovtest::ChildProcess child;
        ASSERT_TRUE(
            startChild(child, "StorageChild.DISABLED_SavesUntilKilled",
                       {std::string(kChildRootVariable) + "=" + mRoot.path(),
                        std::string(kChildPrefixVariable) + "=r" + std::to_string(round) + "-"}));
        // Once the child has saved something, kill it at a random moment.
        std::string line;
        ASSERT_TRUE(child.waitForLine("saved ", &line)) << "the child saved nothing";
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 20000));
        ASSERT_TRUE(child.kill(SIGKILL));
        ASSERT_TRUE(WIFSIGNALED(child.wait())) << "the child ended on its own";
        do {
            if (line.compare(0, 6, "saved ") == 0)
                saved.insert(line.substr(6));
        } while (child.readLine(&line));

        // Every file under a final name is whole, and every save that returned is there.
        std::vector<std::string> names;
        ASSERT_EQ(0, NR_ContentCache::directory().list(names));
        int temporary = 0;
        for (const std::string& name : names) {
            std::string id = name.substr(0, name.size() - 4);
            if (name.substr(id.size()) == ".tmp")
                ++temporary;
            else
                ASSERT_EQ(streamOf(*killTestItem(id)), ovtest::readFile(path(name))) << name;
        }
        EXPECT_LE(temporary, 1);
        for (const std::string& id : saved) {
            Item item(id);
            ASSERT_EQ(0, cache()->get(id, item)) << id;
            ASSERT_EQ(killTestItem(id)->title, item.title) << id;
        }
        // What the killed writer left half done is swept.
        ASSERT_EQ(0, cache()->sync());
        ASSERT_EQ(0, NR_ContentCache::directory().list(names));
        for (const std::string& name : names)
            ASSERT_NE(".tmp", name.substr(name.size() - 4)) << name;
    }
    EXPECT_GT(saved.size(), size_t(rounds));
}

} // namespace
