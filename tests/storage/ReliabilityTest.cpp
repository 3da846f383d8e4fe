// The cache under bad conditions: damaged object files, a full file system, a directory that
// vanishes or turns unwritable, and a writer killed while saving many items.
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
#include <fcntl.h>
#include <random>
#include <sstream>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using storagetest::CacheTest;
using storagetest::streamOf;

const char* const kChildRootVariable = "OVBASE_TEST_STORAGE_CHILD_ROOT";
const char* const kChildFdVariable = "OVBASE_TEST_STORAGE_CHILD_FD";
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

TEST_F(ReliabilityTest, DamagedObjectFilesLoadWithDefaults) {
    Item whole("x");
    whole.title = L"a title long enough to be cut in the middle of its line";
    whole.priority = 5;
    whole.displayCountLimit = 7;
    std::string stream = streamOf(whole);
    // Keys are stored in order: the cut keeps the counters and stops in the priority line.
    std::string cut = stream.substr(0, stream.find("priority=") + 10);
    std::string garbage;
    std::mt19937 random(3);
    for (int i = 0; i < 5000; ++i)
        garbage += char(random() % 256);

    ASSERT_TRUE(ovtest::writeFile(path("garbage.itm"), garbage));
    ASSERT_TRUE(ovtest::writeFile(path("cut.itm"), cut));
    ASSERT_TRUE(ovtest::writeFile(path("empty.itm"), ""));
    ASSERT_TRUE(ovtest::writeFile(path("garbage.chn"), garbage));
    ASSERT_TRUE(ovtest::writeFile(path("news.cnt"), garbage));

    Item item("garbage");
    ASSERT_EQ(0, cache()->get("garbage", item));
    EXPECT_EQ(1000, item.priority);
    EXPECT_EQ(INT32_MAX, item.displayCountLimit);
    Item empty("empty");
    ASSERT_EQ(0, cache()->get("empty", empty));
    EXPECT_EQ(0, empty.currentDisplayCount);
    EXPECT_TRUE(empty.title.empty());
    Item partial("cut");
    ASSERT_EQ(0, cache()->get("cut", partial));
    EXPECT_EQ(7, partial.displayCountLimit) << "what came before the cut is kept";
    EXPECT_EQ(5, partial.priority) << "a last line without its line feed is kept";
    EXPECT_TRUE(partial.title.empty()) << "what came after the cut takes its default";
    Channel channel("garbage");
    ASSERT_EQ(0, cache()->get("garbage", channel));
    Container news("news");
    ASSERT_EQ(0, cache()->get("news", news));

    EXPECT_EQ(0, cache()->sync());
    EXPECT_EQ(3 * 2 + 1 + 1, policy()->blocksUsed()) << "every file is accounted";
    // Saving over a damaged file replaces it whole.
    ASSERT_EQ(0, cache()->save("garbage", whole));
    EXPECT_EQ(stream, ovtest::readFile(path("garbage.itm")));
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
    for (const char* name : {"x.tmp", "img.tmp", "other.tmp", "other.itm"})
        EXPECT_FALSE(exists(name)) << name;
    EXPECT_EQ(blocks, policy()->blocksUsed());
    Item back("x");
    ASSERT_EQ(0, cache()->get("x", back));
    EXPECT_EQ(ovTypes::String(L"small"), back.title);
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
    EXPECT_EQ(0, cache()->getFileName("y", name));
    EXPECT_EQ("y.itm", name);
    EXPECT_EQ(0, putResource("r", "R"));
    EXPECT_TRUE(exists("r.gif"));
}

// Run only as a child of the test below, as a user who may not write the cache directory.
TEST(StorageChild, DISABLED_UnwritableDirectory) {
    const char* root = std::getenv(kChildRootVariable);
    if (!root)
        GTEST_SKIP() << "only run as a child process";
    if (geteuid() == 0) {
        ASSERT_EQ(0, setgid(65534));
        ASSERT_EQ(0, setuid(65534));
    }
    ovplatform::setDeviceRoot(root);
    NR_ContentCache* cache = NR_ContentCache::getInstance();
    Item item("x");
    ASSERT_EQ(0, cache->get("x", item)) << "readable still";
    EXPECT_EQ(ovTypes::String(L"kept"), item.title);
    EXPECT_EQ(-1, cache->save("y", item));
    EXPECT_EQ(-1, cache->save("x", item));
    EXPECT_EQ(nullptr, cache->getOutputStream("r", 10));
    EXPECT_EQ(-1, cache->remove("x", item));
    EXPECT_EQ(-1, cache->clear());
    EXPECT_EQ(0, cache->sync());
    std::string path;
    EXPECT_EQ(0, cache->getPath("x", path));
    OV_EventAndStatusFacade::destroy();
}

// Starts this test program again running TEST, with VARIABLES added to its environment and its
// output discarded; KEEPFD stays open in it. Everything the child needs is made before the
// fork, since another thread may hold a lock at that moment.
pid_t spawnChild(const char* test,
                 const std::vector<std::pair<std::string, std::string>>& variables,
                 int keepFd = -1) {
    std::vector<std::string> environment;
    for (char** entry = environ; *entry; ++entry)
        environment.push_back(*entry);
    for (const auto& variable : variables)
        environment.push_back(variable.first + "=" + variable.second);
    std::vector<char*> envp;
    for (std::string& entry : environment)
        envp.push_back(&entry[0]);
    envp.push_back(nullptr);
    std::vector<std::string> words =
        ovtest::ownProgram({"/proc/self/exe", std::string("--gtest_filter=") + test,
                            "--gtest_also_run_disabled_tests"});
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(&word[0]);
    argv.push_back(nullptr);

    pid_t pid = ::fork();
    if (pid != 0)
        return pid;
    int devNull = ::open("/dev/null", O_WRONLY);
    ::dup2(devNull, 1);
    ::dup2(devNull, 2);
    for (int fd = 3; fd < 1024; ++fd) {
        if (fd != keepFd)
            ::close(fd);
    }
    ::execve(argv[0], argv.data(), envp.data());
    ::_exit(127);
}

TEST_F(ReliabilityTest, AnUnwritableDirectoryGivesFailures) {
    Item item("x");
    item.title = L"kept";
    ASSERT_EQ(0, cache()->save("x", item));
    // Readable and enterable by everyone, writable by nobody but its owner (root, who is not
    // held back by modes: the child drops to an unprivileged user).
    for (std::filesystem::path dir = mDir; dir.string().size() >= mRoot.path().size();
         dir = dir.parent_path())
        std::filesystem::permissions(dir, std::filesystem::perms(0755));
    std::filesystem::permissions(mDir, std::filesystem::perms(0555));
    ::chmod(ovplatform::phoneStatePath().c_str(), 0644);

    pid_t child = spawnChild("StorageChild.DISABLED_UnwritableDirectory",
                             {{kChildRootVariable, mRoot.path()}});
    ASSERT_GT(child, 0);
    int status = 0;
    ASSERT_EQ(child, ::waitpid(child, &status, 0));
    std::filesystem::permissions(mDir, std::filesystem::perms(0755));
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status)) << "the child's checks failed";
    EXPECT_TRUE(exists("x.itm"));
    EXPECT_FALSE(exists("y.itm"));
}

// Run only as a child of the test below: saves items one after another until it is killed,
// writing each ID to the pipe once its save returned.
TEST(StorageChild, DISABLED_SavesUntilKilled) {
    const char* root = std::getenv(kChildRootVariable);
    const char* fd = std::getenv(kChildFdVariable);
    const char* prefix = std::getenv(kChildPrefixVariable);
    if (!root || !fd || !prefix)
        GTEST_SKIP() << "only run as a child process";
    ovplatform::setDeviceRoot(root);
    int out = std::atoi(fd);
    NR_ContentCache* cache = NR_ContentCache::getInstance();
    for (int i = 0;; ++i) {
        std::string id = std::string(prefix) + std::to_string(i);
        if (cache->save(id, *killTestItem(id)) != 0)
            continue;
        std::string line = id + "\n";
        ASSERT_EQ(ssize_t(line.size()), ::write(out, line.data(), line.size()));
    }
}

// The IDs whose save returned, as the child reported them on FD (complete lines only).
std::vector<std::string> readReported(int fd) {
    std::string text;
    char buffer[4096];
    ssize_t n;
    while ((n = ::read(fd, buffer, sizeof buffer)) > 0)
        text.append(buffer, size_t(n));
    std::vector<std::string> ids;
    std::istringstream lines(text.substr(0, text.rfind('\n') + 1));
    for (std::string id; std::getline(lines, id);)
        ids.push_back(id);
    return ids;
}

class StorageSlow : public ReliabilityTest {};

TEST_F(StorageSlow, KilledWhileSavingLeavesNoPartialFile) {
    cache();
    std::mt19937 random(2024);
    std::set<std::string> saved;
    const int rounds = 12;
    for (int round = 0; round < rounds; ++round) {
        int pipeFds[2];
        ASSERT_EQ(0, ::pipe(pipeFds));
        std::string prefix = "r" + std::to_string(round) + "-";
        pid_t child = spawnChild("StorageChild.DISABLED_SavesUntilKilled",
                                 {{kChildRootVariable, mRoot.path()},
                                  {kChildFdVariable, std::to_string(pipeFds[1])},
                                  {kChildPrefixVariable, prefix}},
                                 pipeFds[1]);
        ASSERT_GT(child, 0);
        ::close(pipeFds[1]);
        // Wait until the child has saved something, then kill it at a random moment.
        char first = 0;
        ASSERT_EQ(1, ::read(pipeFds[0], &first, 1)) << "the child saved nothing, round " << round;
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 20000));
        ASSERT_EQ(0, ::kill(child, SIGKILL));
        int status = 0;
        ASSERT_EQ(child, ::waitpid(child, &status, 0));
        ASSERT_TRUE(WIFSIGNALED(status)) << "the child ended on its own, round " << round;
        std::vector<std::string> reported = readReported(pipeFds[0]);
        ::close(pipeFds[0]);
        if (!reported.empty())
            reported.front() = first + reported.front();
        saved.insert(reported.begin(), reported.end());

        // Every file under a final name is whole, and every save that returned is there.
        std::vector<std::string> names;
        ASSERT_EQ(0, NR_ContentCache::directory().list(names));
        int temporary = 0;
        for (const std::string& name : names) {
            if (name.size() > 4 && name.compare(name.size() - 4, 4, ".tmp") == 0) {
                ++temporary;
                continue;
            }
            std::string id = name.substr(0, name.size() - 4);
            ASSERT_EQ(streamOf(*killTestItem(id)), ovtest::readFile(path(name)))
                << "partial file " << name << ", round " << round;
        }
        EXPECT_LE(temporary, 1) << "round " << round;
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
