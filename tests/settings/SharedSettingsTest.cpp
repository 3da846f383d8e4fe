// Settings shared by several sources: changes travel over the bus into the other sources'
// memory, and a writer killed at any moment never leaves a broken file behind.
#include "SettingEvents.h"

#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "settings/NR_CFGSetting.h"
#include "support/ChildProcess.h"
#include "support/SettingsFiles.h"
#include "support/Wait.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <random>
#include <signal.h>
#include <sstream>
#include <sys/file.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

const char* const kUI = "OVCore.UI";
const char* const kStorage = "OVCore.Storage";
const char* const kChildRootVariable = "OVBASE_TEST_SETTINGS_CHILD_ROOT";
const char* const kChildPrefixVariable = "OVBASE_TEST_SETTINGS_CHILD_PREFIX";
const int kKeys = 200;
// Keys each concurrent writer sets.
const int kEach = 100;

std::string keyName(int i) {
    char name[16];
    std::snprintf(name, sizeof name, "K%03d", i);
    return name;
}

// Starts this test program again to run the child test below on the device root ROOTDIR.
bool startChild(ovtest::ChildProcess& child, const std::string& rootDir,
                const std::string& prefix) {
    return child.start(
        {"/proc/self/exe", "--gtest_filter=CFGSettingChild.DISABLED_Writes",
         "--gtest_also_run_disabled_tests"},
        {kChildRootVariable + ("=" + rootDir), kChildPrefixVariable + ("=" + prefix)});
}

// Run only as a child of the tests below, on the device root named in the environment. With a
// prefix: waits until the parent closes its standard input (so that the writers start
// together), then writes kEach keys of its own, one write each. Without: writes the settings
// file until it is killed.
TEST(CFGSettingChild, DISABLED_Writes) {
    const char* rootDir = std::getenv(kChildRootVariable);
    const char* prefix = std::getenv(kChildPrefixVariable);
    if (!rootDir || !prefix)
        GTEST_SKIP() << "only run as a child process";
    ovplatform::setDeviceRoot(rootDir);
    auto source = std::make_unique<CFGOrvelSetting>(ovtest::mainSettingsPath().c_str());
    ASSERT_TRUE(source->isLoaded());
    if (!*prefix) {
        int counter = 0;
        source->getInt(kStorage, "Counter", counter);
        for (;;) {
            ++counter;
            // A value whose length changes, so that a torn write would show.
            source->setString(kUI, "Varying", std::string(counter % 300, 'v').c_str());
            source->setInt(kStorage, "Counter", counter);
        }
    }
    auto recorder = std::make_unique<settingstest::SettingRecorder>();
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

// Loads the file and checks that it is whole: every key with its value, and exactly the text a
// rewrite of its own content produces. Returns the counter, or -1 when the file is broken.
int checkWholeFile(const std::string& content) {
    const AttrMap map = settingstest::loadedMap(content);
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

// How many of the updates of the writers named in PREFIXES lack from what VALUEOF gives for a
// key of the group kUI.
int missingUpdates(const std::string& prefixes,
                   const std::function<int(const std::string&)>& valueOf) {
    int missing = 0;
    for (char prefix : prefixes) {
        for (int i = 0; i < kEach; ++i) {
            if (valueOf(prefix + keyName(i)) != i)
                ++missing;
        }
    }
    return missing;
}

class SharedSettingsTest : public settingstest::SettingsTest {};

// Another process, and two sources of this one on two threads, write distinct keys at once:
// each write read the file as the others left it, so no update is lost, and each source of
// this process took the other's changes from the bus.
TEST_F(SharedSettingsTest, ConcurrentWritersLoseNothing) {
    ASSERT_TRUE(ovtest::writeMainSettings("[OVCore.Storage]\nKeep=1\n"));
    ovtest::ChildProcess child;
    ASSERT_TRUE(startChild(child, mRoot.path(), "C"));
    CFGOrvelSetting* a = &make<CFGOrvelSetting>(ovtest::mainSettingsPath().c_str());
    CFGOrvelSetting* b = &make<CFGOrvelSetting>(ovtest::mainSettingsPath().c_str());
    auto writeKeys = [](CFGOrvelSetting* source, std::string prefix) {
        for (int i = 0; i < kEach; ++i)
            source->setInt(kUI, (prefix + keyName(i)).c_str(), i);
    };
    child.closeInput();
    std::thread first(writeKeys, a, "A");
    std::thread second(writeKeys, b, "B");
    first.join();
    second.join();
    int status = child.wait(60000);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
    ASSERT_TRUE(drain());

    const std::string content = ovtest::readFile(ovtest::mainSettingsPath());
    EXPECT_NE(std::string::npos, content.find("[OVCore.Storage]\nKeep=1\n"));
    const AttrMap file = settingstest::loadedMap(content);
    EXPECT_EQ(0, missingUpdates("ABC", [&](const std::string& key) {
                  return file.getInt(key, -1, nullptr, kUI);
              }));
    for (CFGOrvelSetting* source : {a, b}) {
        EXPECT_EQ(0, missingUpdates("AB", [&](const std::string& key) {
                      int value = -1;
                      source->getInt(kUI, key.c_str(), value);
                      return value;
                  }));
    }
}

// Writers of other processes take turns with this one on the directory lock: a write waits,
// however long, while another open description of the directory holds it.
TEST_F(SharedSettingsTest, AWriteWaitsWhileAnotherHoldsTheDirectoryLock) {
    const std::string path = ovtest::mainSettingsPath();
    ASSERT_TRUE(ovtest::writeMainSettings("[OVCore.UI]\nFoo=1\n"));
    CFGOrvelSetting& source = make<CFGOrvelSetting>(path.c_str());
    int dir = ::open(path.substr(0, path.rfind('/')).c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_EQ(0, dir < 0 ? -1 : ::flock(dir, LOCK_EX));
    std::atomic<int> result{99};
    std::thread writer([&] { result = source.setString(kUI, "Foo", "2"); });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(99, result.load()) << "written while the lock was held";
    ::close(dir);
    writer.join();
    EXPECT_EQ(0, result.load());
    EXPECT_NE(std::string::npos, ovtest::readFile(path).find("Foo=2"));
}

TEST(CFGSettingSlow, WriterKilledMidWriteNeverLeavesABrokenFile) {
    ovtest::TempDeviceRoot root;
    std::string content = "[OVCore.Storage]\nCounter=0\n[OVCore.UI]\n";
    for (int i = 0; i < kKeys; ++i)
        content += keyName(i) + "=value " + std::to_string(i) + "\n";
    ASSERT_TRUE(ovtest::writeMainSettings(content));
    const std::string path = ovtest::mainSettingsPath();

    std::mt19937 random(12345);
    int last = 0;
    for (int round = 0; round < 15; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        ovtest::ChildProcess child;
        ASSERT_TRUE(startChild(child, root.path(), ""));
        // Wait until this child is writing, then kill it at a random moment.
        int seen = last;
        EXPECT_TRUE(ovtest::waitUntil(
            [&] {
                seen = checkWholeFile(ovtest::readFile(path));
                return seen != last;
            },
            20000))
            << "the writer made no progress";
        ASSERT_GT(seen, last) << "broken file while the writer runs";
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 5000));
        ASSERT_TRUE(child.kill(SIGKILL));
        ASSERT_TRUE(WIFSIGNALED(child.wait())) << "the writer ended on its own";

        int counter = checkWholeFile(ovtest::readFile(path));
        ASSERT_GE(counter, last) << "broken or older file after the kill";
        last = counter;
    }
}

} // namespace
