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
const int kKeys = 200;
// Keys each of two concurrent writers sets.
const int kEach = 100;

std::string keyName(int i) {
    char name[16];
    std::snprintf(name, sizeof name, "K%03d", i);
    return name;
}

// Starts this test program again to run the child test TEST on the device root ROOTDIR, with
// PREFIX in its environment.
bool startChild(ovtest::ChildProcess& child, const std::string& rootDir, const char* test,
                const std::string& prefix = "") {
    return child.start(
        {"/proc/self/exe", std::string("--gtest_filter=CFGSettingChild.DISABLED_") + test,
         "--gtest_also_run_disabled_tests"},
        {kChildRootVariable + ("=" + rootDir), kChildPrefixVariable + ("=" + prefix)});
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

// Run only as a child of the test below: waits until the parent closes its standard input (so
// that both children start together), then writes kEach keys of its own, one write each.
TEST(CFGSettingChild, DISABLED_WritesItsOwnKeys) {
    const char* rootDir = std::getenv(kChildRootVariable);
    const char* prefix = std::getenv(kChildPrefixVariable);
    if (!rootDir || !prefix)
        GTEST_SKIP() << "only run as a child process";
    ovplatform::setDeviceRoot(rootDir);
    auto source = std::make_unique<CFGOrvelSetting>(ovtest::mainSettingsPath().c_str());
    auto recorder = std::make_unique<settingstest::SettingRecorder>();
    ASSERT_TRUE(source->isLoaded());
    char byte;
    ASSERT_EQ(0, ::read(0, &byte, 1));
    for (int i = 0; i < kEach; ++i)
        EXPECT_EQ(0, source->setInt(kUI, (prefix + keyName(i)).c_str(), i));
    // The source's own announcements must be delivered before it goes.
    EXPECT_TRUE(recorder->drain());
    recorder.reset();
    source.reset();
    OV_EventAndStatusFacade::destroy();
}

class SharedSettingsTest : public settingstest::SettingsTest {};

// Each write read the file as the other process left it: no update of either is lost.
TEST_F(SharedSettingsTest, TwoProcessesWritingDistinctKeysLoseNothing) {
    ASSERT_TRUE(ovtest::writeMainSettings("[OVCore.Storage]\nKeep=1\n"));
    ovtest::ChildProcess a, b;
    ASSERT_TRUE(startChild(a, mRoot.path(), "WritesItsOwnKeys", "A"));
    ASSERT_TRUE(startChild(b, mRoot.path(), "WritesItsOwnKeys", "B"));
    a.closeInput();
    b.closeInput();
    for (ovtest::ChildProcess* child : {&a, &b}) {
        int status = child->wait(60000);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
    }
    const std::string path = ovtest::mainSettingsPath();
    EXPECT_EQ(0, missingUpdates(fileHolds(path))) << "of " << 2 * kEach << " updates";
    EXPECT_NE(std::string::npos, ovtest::readFile(path).find("[OVCore.Storage]\nKeep=1\n"));
}

// Two sources of one process, written from two threads: the file and both memories end up
// with every key, each source having taken the other's changes from the bus.
TEST_F(SharedSettingsTest, TwoSourcesOnTwoThreadsLoseNothing) {
    ASSERT_TRUE(ovtest::writeMainSettings("[OVCore.Storage]\nKeep=1\n"));
    auto* a = new CFGOrvelSetting(ovtest::mainSettingsPath().c_str());
    auto* b = new CFGOrvelSetting(ovtest::mainSettingsPath().c_str());
    keep(std::unique_ptr<OV_EventHandler>(a));
    keep(std::unique_ptr<OV_EventHandler>(b));
    auto writeKeys = [](CFGOrvelSetting* source, std::string prefix) {
        for (int i = 0; i < kEach; ++i)
            source->setInt(kUI, (prefix + keyName(i)).c_str(), i);
    };
    std::thread first(writeKeys, a, "A");
    std::thread second(writeKeys, b, "B");
    first.join();
    second.join();
    ASSERT_TRUE(recorder().drain());

    EXPECT_EQ(0, missingUpdates(fileHolds(ovtest::mainSettingsPath())));
    for (CFGOrvelSetting* source : {a, b}) {
        EXPECT_EQ(0, missingUpdates([&](const std::string& key, int expected) {
                      int value = -1;
                      return source->getInt(kUI, key.c_str(), value) == 0 && value == expected;
                  }));
    }
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
    for (int round = 0; round < 15; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        ovtest::ChildProcess child;
        ASSERT_TRUE(startChild(child, root.path(), "WritesUntilKilled"));
        // Wait until this child is writing, then kill it at a random moment.
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        int seen = last;
        while (seen <= last && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::microseconds(500));
            seen = checkWholeFile(ovtest::readFile(path));
            ASSERT_GE(seen, 0) << "broken file while the writer runs";
        }
        ASSERT_GT(seen, last) << "the writer made no progress";
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 5000));
        ASSERT_TRUE(child.kill(SIGKILL));
        ASSERT_TRUE(WIFSIGNALED(child.wait())) << "the writer ended on its own";

        int counter = checkWholeFile(ovtest::readFile(path));
        ASSERT_GE(counter, last) << "broken or older file after the kill";
        last = counter;
    }
}

} // namespace
