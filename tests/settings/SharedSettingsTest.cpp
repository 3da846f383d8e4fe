// Settings shared by several sources: changes travel over the bus into the other sources'
// memory, and a writer killed at any moment never leaves a broken file behind.
#include "SettingEvents.h"

#include "OVPlatform.h"
#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "settings/NR_CFGSetting.h"
#include "support/Files.h"
#include "support/SettingsFiles.h"
#include "support/TempDir.h"
#include "types/AttrMap.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <random>
#include <signal.h>
#include <sstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

const char* const kUI = "OVCore.UI";
const char* const kStorage = "OVCore.Storage";
const char* const kChildRootVariable = "OVBASE_TEST_SETTINGS_CHILD_ROOT";
const int kKeys = 200;

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

// Starts this test program again as the writer of ROOTDIR, its output discarded.
pid_t spawnWriter(const std::string& rootDir) {
    pid_t pid = ::fork();
    if (pid != 0)
        return pid;
    ::setenv(kChildRootVariable, rootDir.c_str(), 1);
    int devNull = ::open("/dev/null", O_WRONLY);
    ::dup2(devNull, 1);
    ::dup2(devNull, 2);
    ::execl("/proc/self/exe", "/proc/self/exe",
            "--gtest_filter=CFGSettingChild.DISABLED_WritesUntilKilled",
            "--gtest_also_run_disabled_tests", static_cast<char*>(nullptr));
    ::_exit(127);
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
