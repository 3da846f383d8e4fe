// The default-content manager on a device root: which index files a look-up reads and in what
// order, the plain-file fallback and the names it refuses, and what a change of profile or
// language does to the next look-up.
#include "DefaultContentBytes.h"

#include "OVPlatform.h"
#include "eventstatuslib/OV_Event.h"
#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "settings/NR_Setting.h"
#include "settings/NR_SettingMgr.h"
#include "storage/NR_DefaultContentMgr.h"
#include "support/EventRecorder.h"
#include "support/Files.h"
#include "support/SettingsFiles.h"
#include "support/StderrCapture.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <sstream>
#include <sys/stat.h>
#include <thread>

namespace {

using Resources = std::vector<std::pair<std::string, std::string>>;

class DefaultContentMgrTest : public ::testing::Test {
protected:
    void SetUp() override {
        NR_DefaultContentMgr::dispose();
        mRoot = ovplatform::devicePath(NR_DefaultContentMgr::DEFAULT_RESOURCE_PATH);
        ovplatform::setLanguageCode("de");
    }

    // The facade is left alone: a setting-changed event may still be on its way through it
    // on the bus's thread, and each test runs in a process of its own.
    void TearDown() override { NR_DefaultContentMgr::dispose(); }

    // Settings are read once per process: written before the first look-up.
    void settings(const std::string& text) { ASSERT_TRUE(ovtest::writeMainSettings(text)); }

    // Writes an index file at RELATIVE under the default-content directory.
    void index(const std::string& relative, const Resources& resources) {
        ASSERT_TRUE(ovtest::writeFile(mRoot + "/" + relative, dctest::index(resources)));
    }

    void plain(const std::string& name, const std::string& bytes) {
        ASSERT_TRUE(ovtest::writeFile(mRoot + "/" + name, bytes));
    }

    // Changes KEY of GROUP through the setting manager, as a settings tool would.
    static void set(int group, const char* key, const std::string& value) {
        ASSERT_EQ(0, OrvelSettingMgr::getSettingMgrInstance()->setString(
                         group, key, ovTypes::String(ovTypes::ID(value))));
    }

    // Publishes a setting-changed event for KEY, as the setting manager of another process does.
    static void publishChange(const std::string& key, const std::string& value) {
        OV_Event changed(OrvelSetting::SETTING_CHANGED_TOPIC);
        changed.setProperty(key, value);
        OV_EventAndStatusFacade::instance()->publish(changed);
    }

    // What get delivers for ID, or "<none>" when it delivers nothing (checking that nothing
    // was written then).
    static std::string fetch(const ovTypes::ID& id) {
        std::stringstream out;
        if (NR_DefaultContentMgr::get(id, out))
            return out.str();
        EXPECT_EQ("", out.str()) << id;
        return "<none>";
    }

    // What get delivers for each of IDS, separated by " | ".
    static std::string fetchAll(const std::vector<ovTypes::ID>& ids) {
        std::string text;
        for (const ovTypes::ID& id : ids)
            text += (text.empty() ? "" : " | ") + fetch(id);
        return text;
    }

    ovtest::TempDeviceRoot mDevice;
    std::string mRoot;
};

// Plain files serve what no index holds, under names that stay inside the folder; nothing
// outside, no folder, no FIFO (in place of a file or of a language's index), and no failed
// stream counts as a delivery.
TEST_F(DefaultContentMgrTest, PlainFilesServeWhatNoIndexHoldsInsideTheFolder) {
    settings("");
    plain("icon.png", "plain icon");
    plain("both.png", "plain both");
    plain("icons/news.png", "one level down");
    plain("a", "the file a");
    ASSERT_TRUE(ovtest::writeFile(mRoot + "/../secret", "outside"));
    ASSERT_TRUE(std::filesystem::create_directories(mRoot + "/folder"));
    ASSERT_TRUE(std::filesystem::create_directories(mRoot + "/de"));
    ASSERT_EQ(0, mkfifo((mRoot + "/pipe").c_str(), 0600));
    ASSERT_EQ(0, mkfifo((mRoot + "/de/dynport.dc").c_str(), 0600));
    index("dynport.dc", {{"both.png", "packed both"},
                         {"packed.png", "packed"},
                         {"packed/name", "from the index"},
                         {"", "nameless"}});

    const std::pair<ovTypes::ID, std::string> served[] = {
        {"dc:icon.png", "plain icon"},
        {"dc:both.png", "packed both"},
        {"dc:packed.png", "packed"},
        {"icon.png", "plain icon"}, // an ID without the prefix is the name
        {"dc:a", "the file a"},
        {"dc:icons/news.png", "one level down"},
        {"dc:packed/name", "from the index"}, // a slash inside an index's own name
    };
    for (const auto& s : served) {
        EXPECT_EQ(s.second, fetch(s.first)) << s.first;
        EXPECT_TRUE(NR_DefaultContentMgr::exists(s.first)) << s.first;
    }
    std::vector<ovTypes::ID> refused = {"dc:missing.png",
                                        "dc:folder",
                                        "dc:pipe",
                                        "dc:../secret",
                                        "dc:icons/../../secret",
                                        "dc:icons/..",
                                        "dc:/etc/hostname",
                                        "dc:..",
                                        "dc:.",
                                        "dc:icons",
                                        "dc:",
                                        ""};
    refused.push_back(std::string("dc:a\0b", 6));
    refused.push_back(std::string("a\0", 2));
    for (const ovTypes::ID& id : refused) {
        EXPECT_FALSE(NR_DefaultContentMgr::exists(id)) << id;
        EXPECT_EQ("<none>", fetch(id)) << id;
    }
    std::stringstream failed;
    failed.setstate(std::ios::badbit);
    EXPECT_FALSE(NR_DefaultContentMgr::get("dc:icon.png", failed));
}

TEST_F(DefaultContentMgrTest, TheCurrentProfileAndLanguageFilesComeFirst) {
    settings("[OVCore.InitSetting]\nCurrentProfile=op1\n");
    index("profiles/op1/de/dynport.dc", {{"x", "op1 de"}, {"a", "A"}});
    index("profiles/op1/dynport.dc", {{"x", "op1"}, {"b", "B"}});
    index("de/dynport.dc", {{"x", "de"}, {"c", "C"}});
    index("dynport.dc", {{"x", "all"}, {"d", "D"}});
    index("profiles/op2/dynport.dc", {{"e", "other profile"}});
    index("fr/dynport.dc", {{"f", "other language"}});

    ovtest::StderrCapture capture;
    EXPECT_EQ("op1 de | A | B | C | D | <none> | <none>",
              fetchAll({"dc:x", "dc:a", "dc:b", "dc:c", "dc:d", "dc:e", "dc:f"}));
    const std::string log = capture.text();
    EXPECT_NE(std::string::npos, log.find(", open()\tSet resource path to " + mRoot + "\n")) << log;
    EXPECT_NE(std::string::npos,
              log.find("\tSet sProfileSpecificFilePath to " + mRoot + "/profiles\n"))
        << log;

    // The profile setting is read at each look-up, so no event needs to arrive first.
    set(OrvelSettingMgr::GROUP_INIT_SETTING, "CurrentProfile", "op2");
    EXPECT_EQ("other profile | <none>", fetchAll({"dc:e", "dc:b"}));
    set(OrvelSettingMgr::GROUP_INIT_SETTING, "CurrentProfile", "");
    EXPECT_EQ("<none> | de", fetchAll({"dc:e", "dc:x"}));
}

TEST_F(DefaultContentMgrTest, DynportdcNamesTheProfileFolder) {
    ovtest::TempDir elsewhere;
    settings("[OVCore.InitSetting]\nCurrentProfile=op1\n[OVCore.Storage]\nDynportdc=operators\n");
    index("operators/op1/dynport.dc", {{"x", "relative"}});
    ASSERT_TRUE(
        ovtest::writeFile(elsewhere.file("op1/dynport.dc"), dctest::index({{"x", "absolute"}})));
    EXPECT_EQ("relative", fetch("dc:x"));

    set(OrvelSettingMgr::GROUP_STORAGE, "Dynportdc", elsewhere.path());
    NR_DefaultContentMgr::dispose();
    EXPECT_EQ("absolute", fetch("dc:x"));
}

TEST_F(DefaultContentMgrTest, TheLanguageChoosesTheListAndAReplacedIndexIsReadAgain) {
    settings("");
    index("de/dynport.dc", {{"hello", "Hallo"}});
    index("fr/dynport.dc", {{"hello", "Bonjour"}});
    index("en-us/dynport.dc", {{"hello", "Hello"}});
    index("dynport.dc", {{"logo", "before"}, {"other", "OTHER"}});

    // A language the facade cannot tell is "en-us"; one that would climb out of the folder
    // names no file.
    const std::pair<const char*, const char*> languages[] = {
        {"de", "Hallo"}, {"fr", "Bonjour"}, {"de", "Hallo"}, {nullptr, "Hello"}, {"..", "<none>"}};
    for (const auto& language : languages) {
        ovplatform::setCallFails("UTIL_Language_getSystemLanguageCode", !language.first);
        if (language.first)
            ovplatform::setLanguageCode(language.first);
        EXPECT_EQ(language.second, fetch("dc:hello")) << language.second;
    }

    // A content update replaces an index file (a new one renamed over it, its resources at
    // other offsets): the next look-up reads the new directory and serves the new bytes.
    ovplatform::setLanguageCode("de");
    EXPECT_EQ("before", fetch("dc:logo"));
    ASSERT_TRUE(
        ovtest::writeFile(mRoot + "/new.dc", dctest::index({{"a", "A"}, {"logo", "after"}})));
    ASSERT_EQ(0, std::rename((mRoot + "/new.dc").c_str(), (mRoot + "/dynport.dc").c_str()));
    EXPECT_EQ("after | <none>", fetchAll({"dc:logo", "dc:other"}));
}

// The kept lists stay until the profile changes: a more specific index file that appears
// meanwhile is read only once a change of the profile setting has arrived.
TEST_F(DefaultContentMgrTest, AProfileEventDropsTheKeptLists) {
    settings("[OVCore.InitSetting]\nCurrentProfile=op1\n");
    index("profiles/op1/dynport.dc", {{"logo", "profile"}});
    EXPECT_EQ("profile", fetch("dc:logo"));
    // Subscribed after the manager's handler, so it hears each event after the handler did.
    auto recorder = std::make_unique<ovtest::EventRecorder>(OrvelSetting::SETTING_CHANGED_TOPIC);
    index("profiles/op1/de/dynport.dc", {{"logo", "language"}});
    EXPECT_EQ("profile", fetch("dc:logo"));

    publishChange("OVCore.UI.ScreenSaverTimeout", "30");
    ASSERT_TRUE(recorder->waitFor(1));
    EXPECT_EQ("profile", fetch("dc:logo"));

    publishChange("OVCore.InitSetting.CurrentProfile", "op1");
    ASSERT_TRUE(recorder->waitFor(2));
    EXPECT_EQ("language", fetch("dc:logo"));
    recorder.reset();
}

TEST_F(DefaultContentMgrTest, LookUpsOnSeveralThreadsWhileProfileEventsArrive) {
    settings("[OVCore.InitSetting]\nCurrentProfile=op1\n");
    index("profiles/op1/dynport.dc", {{"logo", "op1 logo"}});
    plain("plain.txt", "plain");
    ASSERT_EQ("op1 logo", fetch("dc:logo"));
    auto recorder = std::make_unique<ovtest::EventRecorder>(OrvelSetting::SETTING_CHANGED_TOPIC);

    const int kEvents = 20;
    std::atomic<int> wrong{0};
    auto lookUps = [&wrong] {
        for (int i = 0; i < 200; ++i) {
            std::stringstream out;
            if (!NR_DefaultContentMgr::get("dc:logo", out) || out.str() != "op1 logo")
                ++wrong;
            if (!NR_DefaultContentMgr::exists("dc:plain.txt"))
                ++wrong;
        }
    };
    std::thread first(lookUps);
    std::thread second(lookUps);
    // Each event drops the lists on the bus's thread while the look-ups rebuild them.
    for (int i = 0; i < kEvents; ++i)
        publishChange("OVCore.InitSetting.CurrentProfile", "op1");
    first.join();
    second.join();
    EXPECT_TRUE(recorder->waitFor(kEvents));
    EXPECT_EQ(0, wrong.load());
    recorder.reset();
}

TEST_F(DefaultContentMgrTest, AShortResourceDeliversNothingAndHidesThePlainFile) {
    settings("");
    // "logo" claims ten bytes, the file holds three after its directory.
    ASSERT_TRUE(ovtest::writeFile(mRoot + "/dynport.dc",
                                  dctest::header(1) + dctest::entry("logo", 10, 24) + "abc"));
    plain("logo", "plain logo");
    EXPECT_TRUE(NR_DefaultContentMgr::exists("dc:logo"));
    EXPECT_EQ("<none>", fetch("dc:logo"));
}

TEST_F(DefaultContentMgrTest, TheResourcePathSettingIsUsedWhenItsFolderOpens) {
    ovtest::TempDir configured;
    ASSERT_TRUE(ovtest::writeFile(configured.file("icon.png"), "configured"));
    settings("[OVCore.Storage]\nDefaultContent=" + configured.path() + "\n");
    plain("icon.png", "built in");

    ovtest::StderrCapture capture;
    EXPECT_EQ("configured", fetch("dc:icon.png"));
    EXPECT_NE(std::string::npos,
              capture.text().find(", open()\tSet resource path to " + configured.path() + "\n"));

    // Kept until dispose; a folder that does not open gives the built-in one.
    set(OrvelSettingMgr::GROUP_STORAGE, "DefaultContent", configured.file("missing"));
    EXPECT_EQ("configured", fetch("dc:icon.png"));
    NR_DefaultContentMgr::dispose();
    EXPECT_EQ("built in", fetch("dc:icon.png"));
}

} // namespace
