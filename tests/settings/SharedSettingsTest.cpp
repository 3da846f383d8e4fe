// Settings shared by several sources: changes travel over the bus into the other sources'
// memory, and a writer killed at any moment never leaves a broken file behind.
#include "SettingEvents.h"

#include "OVPlatform.h"
#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "settings/NR_CFGSetting.h"
#include "support/ChildProcess.h"
#include "support/Files.h"
#include "support/SettingsFiles.h"
#include "support/TempDir.h"
#include "types/AttrMap.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <memory>
#include <random>
#include <signal.h>
#include <sstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

const char* const kUI = "OVCore.UI";
const char* const kStorage = "OVCore.Storage";
const char* const kChildRootVariable = "OVBASE_TEST_SETTINGS_CHILD_ROOT";
const char* const kChildPrefixVariable = "OVBASE_TEST_SETTINGS_CHILD_PREFIX";
const char* const kChildStartVariable = "OVBASE_TEST_SETTINGS_CHILD_START";
const int kKeys = 200;
// Keys each of two concurrent writers sets.
const int kEach = 100;

std::string keyName(int i) {
    char name[16];
    std::snprintf(name, sizeof name, "K%03d", i);
    return name;
}

TEST(SharedSettingsTest, TwoSourcesSeeEachOthersWritesWithoutEcho) {
    ovtest::TempDeviceRoot root;
    ASSERT_TRUE(ovtest::writeMainSettings("[OVCore.UI]\nK=0\n"));
    auto a = std::make_unique<CFGOrvelSetting>(ovtest::mainSettingsPath().c_str());
    auto b = std::make_unique<CFGOrvelSetting>(ovtest::mainSettingsPath().c_str());
    // Subscribed after both sources: when it has an event, so have they.
    auto recorder = std::make_unique<settingstest::SettingRecorder>();

    ASSERT_EQ(0, a->setInt(kUI, "K", 5));
    ASSERT_TRUE(recorder->waitForChanges(1));
    int number = 0;
    EXPECT_EQ(0, b->getInt(kUI, "K", number));
    EXPECT_EQ(5, number);

    ASSERT_EQ(0, b->setString(kUI, "Name", "from b"));
    ASSERT_TRUE(recorder->waitForChanges(2));
    ovTypes::String text;
    EXPECT_EQ(0, a->getString(kUI, "Name", text));
    EXPECT_EQ(ovTypes::String(L"from b"), text);

    // B rewrote the file from its memory, which already held A's change.
    EXPECT_EQ("[OVCore.UI]\nK=5\nName=from b\n", ovtest::readFile(ovtest::mainSettingsPath()));
    ASSERT_TRUE(recorder->drain());
    EXPECT_EQ(2u, recorder->changes().size()) << "received changes must not be announced again";

    recorder.reset();
    a.reset();
    b.reset();
    OV_EventAndStatusFacade::destroy();
}

// Run only as the child of the test below: writes the settings file of the device root named
// in the environment until it is killed.
TEST(CFGSettingChild, DISABLED_WritesUntilKilled) {
    const char* rootDir = std::getenv(kChildRootVariable);
    if (!rootDir)
        GTEST_SKIP() << "only run as a child process";
    ovplatform::setDeviceRoot(rootDir);
    CFGOrvelSetting source(ovtest::mainSettingsPath().c_str());
    ASSERT_TRUE(source.isLoaded());
    int counter = 0;
    source.getInt(kStorage, "Counter", counter);
    for (;;) {
        ++counter;
        // A value whose length changes, so that a torn write would show.
        source.setString(kUI, "Varying", std::string(counter % 300, 'v').c_str());
        source.setInt(kStorage, "Counter", counter);
    }
}

// Loads the file and checks that it is whole: every key with its value, and exactly the text a
// rewrite of its own content produces. Returns the counter, or -1 when the file is broken.
int checkWholeFile(const std::string& content) {
    AttrMap map(false);
    std::istringstream in(content);
    map.load(in);
    for (int i = 0; i < kKeys; ++i) {
        if (map.getString(keyName(i), ovTypes::String(), nullptr, kUI) !=
            ovTypes::String(ovTypes::ID("value " + std::to_string(i))))
            return -1;
    }
    bool found = false;
    int counter = map.getInt("Counter", -1, &found, kStorage);
    std::ostringstream out;
    map.store(out);
    if (!found || out.str() != content)
        return -1;
    return counter;
}

// Starts this test program again to run the child test TEST on ROOTDIR, its output discarded;
// PREFIX goes to the child in the environment.
pid_t spawnChild(const std::string& rootDir, const char* test, const std::string& prefix = "") {
    std::vector<std::string> words = ovtest::ownProgram(
        {"/proc/self/exe", std::string("--gtest_filter=CFGSettingChild.DISABLED_") + test,
         "--gtest_also_run_disabled_tests"});
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(&word[0]);
    argv.push_back(nullptr);
    pid_t pid = ::fork();
    if (pid != 0)
        return pid;
    ::setenv(kChildRootVariable, rootDir.c_str(), 1);
    ::setenv(kChildPrefixVariable, prefix.c_str(), 1);
    int devNull = ::open("/dev/null", O_WRONLY);
    ::dup2(devNull, 1);
    ::dup2(devNull, 2);
    ::execv(argv[0], argv.data());
    ::_exit(127);
}

pid_t spawnWriter(const std::string& rootDir) {
    return spawnChild(rootDir, "WritesUntilKilled");
}

// How many of the updates of the two concurrent writers HOLDS (key, value) lacks.
int missingUpdates(const std::function<bool(const std::string&, int)>& holds) {
    int missing = 0;
    for (const char* prefix : {"A", "B"}) {
        for (int i = 0; i < kEach; ++i) {
            if (!holds(prefix + keyName(i), i))
                ++missing;
        }
    }
    return missing;
}

// Whether the file at PATH, as it is now, holds a key with its value in the group kUI.
std::function<bool(const std::string&, int)> fileHolds(const std::string& path) {
    auto map = std::make_shared<AttrMap>(false);
    std::istringstream in(ovtest::readFile(path));
    map->load(in);
    return [map](const std::string& key, int expected) {
        bool found = false;
        return map->getInt(key, -1, &found, kUI) == expected && found;
    };
}

// Run only as a child of the test below: waits until the parent closes the start pipe (so
// that both children start together), then writes kEach keys of its own, one write each.
TEST(CFGSettingChild, DISABLED_WritesItsOwnKeys) {
    const char* rootDir = std::getenv(kChildRootVariable);
    const char* prefix = std::getenv(kChildPrefixVariable);
    const char* start = std::getenv(kChildStartVariable);
    if (!rootDir || !prefix || !start)
        GTEST_SKIP() << "only run as a child process";
    ovplatform::setDeviceRoot(rootDir);
    auto source = std::make_unique<CFGOrvelSetting>(ovtest::mainSettingsPath().c_str());
    auto recorder = std::make_unique<settingstest::SettingRecorder>();
    ASSERT_TRUE(source->isLoaded());
    char byte;
    ASSERT_EQ(0, ::read(std::atoi(start), &byte, 1));
    for (int i = 0; i < kEach; ++i)
        EXPECT_EQ(0, source->setInt(kUI, (prefix + keyName(i)).c_str(), i));
    // The source's own announcements must be delivered before it goes.
    EXPECT_TRUE(recorder->drain());
    recorder.reset();
    source.reset();
    OV_EventAndStatusFacade::destroy();
}

// Each write read the file as the other process left it: no update of either is lost.
TEST(SharedSettingsTest, TwoProcessesWritingDistinctKeysLoseNothing) {
    ovtest::TempDir root;
    ovplatform::setDeviceRoot(root.path());
    ASSERT_TRUE(ovtest::writeMainSettings("[OVCore.Storage]\nKeep=1\n"));
    const std::string path = ovtest::mainSettingsPath();
    ovplatform::setDeviceRoot("");

    // Only the read end reaches the children: they see its end when the parent closes the
    // write end.
    int start[2];
    ASSERT_EQ(0, ::pipe2(start, O_CLOEXEC));
    ASSERT_EQ(0, ::fcntl(start[0], F_SETFD, 0));
    ::setenv(kChildStartVariable, std::to_string(start[0]).c_str(), 1);
    pid_t a = spawnChild(root.path(), "WritesItsOwnKeys", "A");
    pid_t b = spawnChild(root.path(), "WritesItsOwnKeys", "B");
    ::unsetenv(kChildStartVariable);
    ::close(start[0]);
    ::close(start[1]);
    ASSERT_GT(a, 0);
    ASSERT_GT(b, 0);
    for (pid_t child : {a, b}) {
        int status = 0;
        ASSERT_EQ(child, ::waitpid(child, &status, 0));
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
    }

    EXPECT_EQ(0, missingUpdates(fileHolds(path))) << "of " << 2 * kEach << " updates";
    EXPECT_NE(std::string::npos, ovtest::readFile(path).find("[OVCore.Storage]\nKeep=1\n"));
}

// Two sources of one process, written from two threads: the file and both memories end up
// with every key.
TEST(SharedSettingsTest, TwoSourcesOnTwoThreadsLoseNothing) {
    ovtest::TempDeviceRoot root;
    ASSERT_TRUE(ovtest::writeMainSettings("[OVCore.Storage]\nKeep=1\n"));
    auto a = std::make_unique<CFGOrvelSetting>(ovtest::mainSettingsPath().c_str());
    auto b = std::make_unique<CFGOrvelSetting>(ovtest::mainSettingsPath().c_str());
    auto recorder = std::make_unique<settingstest::SettingRecorder>();
    auto writeKeys = [](CFGOrvelSetting* source, std::string prefix) {
        for (int i = 0; i < kEach; ++i)
            source->setInt(kUI, (prefix + keyName(i)).c_str(), i);
    };
    std::thread first(writeKeys, a.get(), "A");
    std::thread second(writeKeys, b.get(), "B");
    first.join();
    second.join();
    ASSERT_TRUE(recorder->drain());

    EXPECT_EQ(0, missingUpdates(fileHolds(ovtest::mainSettingsPath())));
    for (CFGOrvelSetting* source : {a.get(), b.get()}) {
        EXPECT_EQ(0, missingUpdates([&](const std::string& key, int expected) {
                      int value = -1;
                      return source->getInt(kUI, key.c_str(), value) == 0 && value == expected;
                  }));
    }

    recorder.reset();
    a.reset();
    b.reset();
    OV_EventAndStatusFacade::destroy();
}

TEST(CFGSettingSlow, WriterKilledMidWriteNeverLeavesABrokenFile) {
    ovtest::TempDir root;
    ovplatform::setDeviceRoot(root.path());
    std::string content = "[OVCore.Storage]\nCounter=0\n[OVCore.UI]\n";
    for (int i = 0; i < kKeys; ++i)
        content += keyName(i) + "=value " + std::to_string(i) + "\n";
    ASSERT_TRUE(ovtest::writeMainSettings(content));
    const std::string path = ovtest::mainSettingsPath();
    ovplatform::setDeviceRoot("");

    std::mt19937 random(12345);
    int last = 0;
    const int rounds = 15;
    for (int round = 0; round < rounds; ++round) {
        pid_t child = spawnWriter(root.path());
        ASSERT_GT(child, 0);
        // Wait until this child is writing, then kill it at a random moment.
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        int seen = last;
        while (seen <= last && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::microseconds(500));
            seen = checkWholeFile(ovtest::readFile(path));
            ASSERT_GE(seen, 0) << "broken file while the writer runs, round " << round;
        }
        ASSERT_GT(seen, last) << "the writer made no progress, round " << round;
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 5000));
        ASSERT_EQ(0, ::kill(child, SIGKILL));
        int status = 0;
        ASSERT_EQ(child, ::waitpid(child, &status, 0));
        ASSERT_TRUE(WIFSIGNALED(status)) << "the writer ended on its own, round " << round;

        int counter = checkWholeFile(ovtest::readFile(path));
        ASSERT_GE(counter, last) << "broken or older file after the kill, round " << round;
        last = counter;
    }
}

} // namespace
