// The configuration-file source: loading, typed reads, whole-file writes with their
// announcement, changes received from the bus, and bad files.
#include "SettingEvents.h"

#include "OVPlatform.h"
#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "settings/NR_CFGSetting.h"
#include "support/Files.h"
#include "support/SettingsFiles.h"
#include "support/StderrCapture.h"
#include "support/TempDir.h"
#include "types/AttrMap.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <csignal>
#include <filesystem>
#include <memory>
#include <mutex>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const char* const kUI = "OVCore.UI";
const char* const kStorage = "OVCore.Storage";

const char* const kSample = "[OVCore.Storage]\nMaxSize=256\n"
                            "[OVCore.UI]\nGreeting=Hello, world\nScreenSaver=true\n";

class CFGSettingTest : public settingstest::SettingsTest {
protected:
    CFGOrvelSetting& open(const std::string& content) {
        EXPECT_TRUE(ovtest::writeMainSettings(content));
        return openExisting();
    }
    CFGOrvelSetting& openExisting() {
        EXPECT_TRUE(drainAll());
        auto source = std::make_unique<CFGOrvelSetting>(ovtest::mainSettingsPath().c_str());
        CFGOrvelSetting& result = *source;
        keep(std::move(source));
        return result;
    }
};

TEST_F(CFGSettingTest, ReadsTheGroupSectionAndLeavesOutputsAloneWhenAbsent) {
    CFGOrvelSetting& s = open(kSample);
    int number = -1;
    bool flag = false;
    ovTypes::String text;
    char* narrow = nullptr;
    EXPECT_EQ(0, s.getInt(kStorage, "MaxSize", number));
    EXPECT_EQ(0, s.getBoolean(kUI, "ScreenSaver", flag));
    EXPECT_EQ(0, s.getString(kUI, "Greeting", text));
    ASSERT_EQ(0, s.getString(kUI, "Greeting", &narrow));
    EXPECT_EQ(256, number);
    EXPECT_TRUE(flag);
    EXPECT_EQ(ovTypes::String(L"Hello, world"), text);
    EXPECT_STREQ("Hello, world", narrow);
    delete[] narrow;

    // A key of another group is absent: the group is the section.
    narrow = nullptr;
    EXPECT_EQ(3, s.getInt(kUI, "MaxSize", number));
    EXPECT_EQ(3, s.getBoolean("OVCore.Nothing", "ScreenSaver", flag));
    EXPECT_EQ(3, s.getString(kStorage, "Greeting", text));
    EXPECT_EQ(3, s.getString(kUI, "Missing", &narrow));
    EXPECT_EQ(1, s.getInt(kUI, nullptr, number));
    EXPECT_EQ(1, s.getString(kUI, "Greeting", static_cast<char**>(nullptr)));
    EXPECT_EQ(1, s.setInt(nullptr, "MaxSize", 1));
    EXPECT_EQ(1, s.setString(kUI, "Greeting", "two\nForged=1"));
    EXPECT_EQ(kSample, ovtest::readFile(ovtest::mainSettingsPath()));
    EXPECT_EQ(256, number);
    EXPECT_TRUE(flag);
    EXPECT_EQ(ovTypes::String(L"Hello, world"), text);
    EXPECT_EQ(nullptr, narrow);
}

TEST_F(CFGSettingTest, MissingFileGives8ForEverythingAndPublishesNothing) {
    ovtest::StderrCapture err;
    CFGOrvelSetting& s = openExisting();
    EXPECT_NE(std::string::npos,
              err.text().find("CFGOrvelSetting cfg file not exist " + ovtest::mainSettingsPath()));
    EXPECT_FALSE(s.isLoaded());
    recorder();

    int number = 5;
    EXPECT_EQ(8, s.getInt(kUI, "A", number));
    EXPECT_EQ(5, number);
    EXPECT_EQ(8, s.setInt(kUI, "A", 1));
    EXPECT_EQ(8, s.setBoolean(kUI, "A", true));
    EXPECT_EQ(8, s.setString(kUI, "A", "x"));
    EXPECT_EQ(8, s.setString(kUI, "A", ovTypes::String(L"x")));
    // Not loaded comes first, before any check of the arguments.
    EXPECT_EQ(8, s.setString(kUI, "A", "x\ny"));
    EXPECT_EQ(8, s.getInt(kUI, nullptr, number));

    ASSERT_TRUE(recorder().drain());
    EXPECT_TRUE(recorder().changes().empty());
    EXPECT_FALSE(ovtest::fileExists(ovtest::mainSettingsPath())) << "a write must not create it";
}

TEST_F(CFGSettingTest, EachWriteRewritesTheWholeFileAndIsAnnouncedOnce) {
    CFGOrvelSetting& s = open("[OVCore.UI]\nA=1\n[OVCore.Storage]\nZ=z\n");
    recorder();
    EXPECT_EQ(0, s.setInt(kUI, "N", -42));
    EXPECT_EQ("[OVCore.Storage]\nZ=z\n[OVCore.UI]\nA=1\nN=-42\n",
              ovtest::readFile(ovtest::mainSettingsPath()));
    EXPECT_EQ(0, s.setBoolean(kUI, "T", true));
    EXPECT_EQ(0, s.setString(kUI, "C", "plain"));
    EXPECT_EQ(0, s.setString(kStorage, "W", ovTypes::String(L"wide")));
    EXPECT_EQ("[OVCore.Storage]\nW=wide\nZ=z\n[OVCore.UI]\nA=1\nC=plain\nN=-42\nT=true\n",
              ovtest::readFile(ovtest::mainSettingsPath()));

    ASSERT_TRUE(recorder().drain());
    auto changes = recorder().changes();
    ASSERT_EQ(4u, changes.size());
    const char* expected[][2] = {{"OVCore.UI.N", "-42"},
                                 {"OVCore.UI.T", "true"},
                                 {"OVCore.UI.C", "plain"},
                                 {"OVCore.Storage.W", "wide"}};
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(expected[i][0], changes[i].name);
        EXPECT_EQ(expected[i][1], changes[i].value);
        EXPECT_EQ(1u, changes[i].propertyCount);
    }
    int number = 0;
    EXPECT_EQ(0, s.getInt(kUI, "N", number));
    EXPECT_EQ(-42, number);
}

TEST_F(CFGSettingTest, WritesLeaveNoTemporaryFileAndKeepThePermissions) {
    CFGOrvelSetting& s = open("[OVCore.UI]\nA=1\n");
    ASSERT_EQ(0, ::chmod(ovtest::mainSettingsPath().c_str(), 0640));
    for (int i = 0; i < 5; ++i)
        ASSERT_EQ(0, s.setInt(kUI, "A", i));

    namespace fs = std::filesystem;
    std::vector<std::string> names;
    for (const auto& entry :
         fs::directory_iterator(fs::path(ovtest::mainSettingsPath()).parent_path()))
        names.push_back(entry.path().filename().string());
    EXPECT_EQ(std::vector<std::string>{"wb_orvel_setting.cfg"}, names);
    struct stat st;
    ASSERT_EQ(0, ::stat(ovtest::mainSettingsPath().c_str(), &st));
    EXPECT_EQ(0640u, st.st_mode & 07777);
}

TEST_F(CFGSettingTest, FailedWriteLeavesTheOldFileWhole) {
    const std::string original = std::string(kSample) + "Padding=" + std::string(200, 'p') + "\n";
    CFGOrvelSetting& s = open(original);

    // A file-size limit below the file's size makes the rewrite fail part-way, as a full
    // device would.
    struct rlimit saved;
    ASSERT_EQ(0, ::getrlimit(RLIMIT_FSIZE, &saved));
    auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit small = saved;
    small.rlim_cur = 64;
    ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &small));
    int rc = s.setInt(kUI, "Octal", 9);
    int rcExisting = s.setInt(kStorage, "MaxSize", 9);
    ::setrlimit(RLIMIT_FSIZE, &saved);
    std::signal(SIGXFSZ, oldHandler);

    EXPECT_EQ(0, rc) << "write failures are not reported to the caller";
    EXPECT_EQ(0, rcExisting);
    EXPECT_EQ(original, ovtest::readFile(ovtest::mainSettingsPath()));
    int number = 0;
    EXPECT_EQ(0, s.getInt(kUI, "Octal", number));
    EXPECT_EQ(9, number) << "memory holds the new value";

    // The next write that can succeed carries both to the file, although the file still holds
    // an older MaxSize when that write reads it.
    ASSERT_EQ(0, s.setInt(kUI, "Other", 1));
    const std::string after = ovtest::readFile(ovtest::mainSettingsPath());
    EXPECT_NE(std::string::npos, after.find("Octal=9\n"));
    EXPECT_NE(std::string::npos, after.find("MaxSize=9\n"));
    EXPECT_EQ(0, s.getInt(kStorage, "MaxSize", number));
    EXPECT_EQ(9, number);
}

TEST_F(CFGSettingTest, WriteKeepsWhatOthersWroteToTheFileMeanwhile) {
    CFGOrvelSetting& s = open("[OVCore.UI]\nA=1\nB=1\n");
    // Another writer, whose announcements never reached this source, changed the file.
    ASSERT_TRUE(ovtest::writeMainSettings("[OVCore.Storage]\nS=s\n[OVCore.UI]\nA=5\nB=1\nB=2\n"));
    ASSERT_EQ(0, s.setInt(kUI, "C", 3));
    EXPECT_EQ("[OVCore.Storage]\nS=s\n[OVCore.UI]\nA=5\nB=1\nC=3\n",
              ovtest::readFile(ovtest::mainSettingsPath()));
    int number = 0;
    EXPECT_EQ(0, s.getInt(kUI, "A", number));
    EXPECT_EQ(5, number) << "memory takes the file's values";
    ovTypes::String text;
    EXPECT_EQ(0, s.getString(kStorage, "S", text));
    EXPECT_EQ(ovTypes::String(L"s"), text);
}

TEST_F(CFGSettingTest, WritesThroughSymbolicLinksWhichStay) {
    namespace fs = std::filesystem;
    // setup/wb_orvel_setting.cfg -> ../../../../data/hop.cfg (relative) -> data/real/x.cfg
    const std::string realDir = mRoot.file("/data/real");
    const std::string real = realDir + "/x.cfg";
    const std::string hop = mRoot.file("/data/hop.cfg");
    const std::string link = ovtest::mainSettingsPath();
    const std::string relative = "../../../../data/hop.cfg";
    ASSERT_TRUE(ovtest::writeFile(real, "[OVCore.UI]\nA=1\n"));
    ASSERT_EQ(0, ::chmod(real.c_str(), 0640));
    fs::create_symlink(real, hop);
    fs::create_directories(fs::path(link).parent_path());
    fs::create_symlink(relative, link);

    CFGOrvelSetting& s = openExisting();
    ASSERT_TRUE(s.isLoaded());
    ASSERT_EQ(0, s.setInt(kUI, "A", 2));
    ASSERT_EQ(0, s.setInt(kUI, "B", 3));

    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(relative, fs::read_symlink(link).string());
    EXPECT_TRUE(fs::is_symlink(hop));
    EXPECT_EQ("[OVCore.UI]\nA=2\nB=3\n", ovtest::readFile(real));
    struct stat st;
    ASSERT_EQ(0, ::stat(real.c_str(), &st));
    EXPECT_EQ(0640u, st.st_mode & 07777);
    // The new file was made beside the target, and nothing is left behind anywhere.
    std::vector<std::string> names;
    for (const auto& dir : {realDir, fs::path(link).parent_path().string()})
        for (const auto& entry : fs::directory_iterator(dir))
            names.push_back(entry.path().filename().string());
    EXPECT_EQ((std::vector<std::string>{"x.cfg", "wb_orvel_setting.cfg"}), names);
}

TEST_F(CFGSettingTest, RewriteKeepsTheOwnerWhereTheWriterMay) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "giving the file another owner needs root";
    CFGOrvelSetting& s = open("[OVCore.UI]\nA=1\n");
    const std::string path = ovtest::mainSettingsPath();
    ASSERT_EQ(0, ::chown(path.c_str(), 4242, 4343));
    ASSERT_EQ(0, ::chmod(path.c_str(), 0604));
    ASSERT_EQ(0, s.setInt(kUI, "A", 2));
    struct stat st;
    ASSERT_EQ(0, ::stat(path.c_str(), &st));
    EXPECT_EQ(4242u, st.st_uid);
    EXPECT_EQ(4343u, st.st_gid);
    EXPECT_EQ(0604u, st.st_mode & 07777);
    EXPECT_EQ("[OVCore.UI]\nA=2\n", ovtest::readFile(path));
}

TEST_F(CFGSettingTest, ReceivedChangeGoesToMemoryOnlyAndDoesNotEcho) {
    CFGOrvelSetting& s = open("[OVCore.UI]\nFoo=1\n");
    recorder();
    const std::string before = ovtest::readFile(ovtest::mainSettingsPath());

    settingstest::publishChange("OVCore.UI.Foo", "7");
    settingstest::publishChange("OVCore.Storage.Deep.Key", "x");
    settingstest::publishChange("OVCore.Menu.Title", "menu text");
    settingstest::publishChange("OVCore.UI.Foo", "8\nForged=1");
    ASSERT_TRUE(recorder().drain());

    ovTypes::String text;
    EXPECT_EQ(0, s.getString(kUI, "Foo", text));
    EXPECT_EQ(ovTypes::String(L"7"), text);
    // The key is everything after the second dot.
    EXPECT_EQ(0, s.getString(kStorage, "Deep.Key", text));
    EXPECT_EQ(ovTypes::String(L"x"), text);
    // A menu change is kept here too, under its own group.
    EXPECT_EQ(0, s.getString("OVCore.Menu", "Title", text));
    EXPECT_EQ(ovTypes::String(L"menu text"), text);

    EXPECT_EQ(before, ovtest::readFile(ovtest::mainSettingsPath()));
    EXPECT_EQ(4u, recorder().changes().size()) << "the source must not announce again";
}

TEST_F(CFGSettingTest, MalformedChangesAreIgnoredWithTheirDiagnostics) {
    CFGOrvelSetting& s = open("[OVCore.UI]\nFoo=1\n");
    ovtest::StderrCapture err;

    OV_Event noMap(OrvelSetting::SETTING_CHANGED_TOPIC);
    OV_EventAndStatusFacade::instance()->notify(noMap);
    EXPECT_NE(std::string::npos, err.text().find("Property Map is NULL. Test failed."));

    OV_Event emptyMap(OrvelSetting::SETTING_CHANGED_TOPIC);
    emptyMap.setProperty("x", "y");
    emptyMap.mPropMap->clear();
    s.handleEvent(emptyMap);
    EXPECT_NE(std::string::npos, err.text().find("Property Map is EMPTY. Test failed."));

    OV_Event noKey(OrvelSetting::SETTING_CHANGED_TOPIC);
    noKey.setProperty("OVCore.UI", "2");
    s.handleEvent(noKey);
    OV_Event otherTopic("/kestrix/orvel/platform/other");
    otherTopic.setProperty("OVCore.UI.Foo", "3");
    s.handleEvent(otherTopic);

    EXPECT_NE(std::string::npos, err.text().find("CFGOrvelSetting:handleEvent called."));
    int number = 0;
    EXPECT_EQ(0, s.getInt(kUI, "Foo", number));
    EXPECT_EQ(1, number);
}

// Holds the delivery thread at the first setting change (markers pass) until released.
class Gate : public OV_EventHandler {
public:
    Gate() : OV_EventHandler(OrvelSetting::SETTING_CHANGED_TOPIC, DeliverLater()) {
        startDelivery();
    }
    ~Gate() override { endRegistration(); }
    void handleEvent(OV_Event& e) override {
        if (e.getProperty(settingstest::kMarker, nullptr))
            return;
        std::unique_lock<std::mutex> guard(mLock);
        mOpened.wait_for(guard, std::chrono::seconds(10), [this] { return mOpen; });
    }
    void open() {
        std::lock_guard<std::mutex> guard(mLock);
        mOpen = true;
        mOpened.notify_all();
    }

private:
    std::mutex mLock;
    std::condition_variable mOpened;
    bool mOpen = false;
};

// Handlers run in order of subscription: the gate, the source, the recorder. The gate holds
// every delivery until it is opened; as each change passes, the recorder notes the value of
// K that the source's memory then holds.
class CFGSettingEchoTest : public CFGSettingTest {
protected:
    void SetUp() override {
        CFGSettingTest::SetUp();
        auto gate = std::make_unique<Gate>();
        mGate = gate.get();
        keep(std::move(gate));
        mSource = &open("");
        recorder().onChange = [this](const settingstest::Change&) {
            int value = -1;
            mSource->getInt(kUI, "K", value);
            mSeen.push_back(value);
        };
    }
    Gate* mGate = nullptr;
    CFGOrvelSetting* mSource = nullptr;
    std::vector<int> mSeen;
};

TEST_F(CFGSettingEchoTest, LateEchoOfOwnWriteDoesNotUndoANewerOne) {
    // The echo of the first write arrives after the second write.
    ASSERT_EQ(0, mSource->setInt(kUI, "K", 1));
    ASSERT_EQ(0, mSource->setInt(kUI, "K", 2));
    mGate->open();
    ASSERT_TRUE(recorder().waitForChanges(2));
    ASSERT_TRUE(recorder().drain());
    EXPECT_EQ((std::vector<int>{2, 2}), mSeen);
}

TEST_F(CFGSettingEchoTest, ChangeSentBeforeANewerOwnWriteDoesNotUndoIt) {
    // K=1 is lost; another process's K=1 is on the bus before this source's K=2, whose write
    // therefore is the newer one.
    ovplatform::setCallFails("ES_EventPublisher::publish", true);
    ASSERT_EQ(0, mSource->setInt(kUI, "K", 1));
    ovplatform::setCallFails("ES_EventPublisher::publish", false);
    settingstest::publishChange("OVCore.UI.K", "1");
    ASSERT_EQ(0, mSource->setInt(kUI, "K", 2));
    mGate->open();
    ASSERT_TRUE(recorder().waitForChanges(2));
    ASSERT_TRUE(recorder().drain());
    EXPECT_EQ((std::vector<int>{2, 2}), mSeen);
}

TEST_F(CFGSettingTest, GenuineChangeEqualToALostAnnouncementIsApplied) {
    CFGOrvelSetting& s = open("");
    recorder();
    // The announcement of K=1 never comes back, as with a bus that is down.
    ovplatform::setCallFails("ES_EventPublisher::publish", true);
    ASSERT_EQ(0, s.setInt(kUI, "K", 1));
    ovplatform::setCallFails("ES_EventPublisher::publish", false);
    // Another process then sets 2, and 1 again.
    settingstest::publishChange("OVCore.UI.K", "2");
    settingstest::publishChange("OVCore.UI.K", "1");
    ASSERT_TRUE(recorder().drain());
    int value = 0;
    EXPECT_EQ(0, s.getInt(kUI, "K", value));
    EXPECT_EQ(1, value);
}

// Settings files as they are found in the field: none of these may crash, and each gives the
// documented results.
TEST_F(CFGSettingTest, ToleratesBadFiles) {
    {
        SCOPED_TRACE("CRLF line ends");
        CFGOrvelSetting& s = open("[OVCore.UI]\r\nA=5\r\nB=x\r\n");
        int number = 0;
        EXPECT_EQ(0, s.getInt(kUI, "A", number));
        EXPECT_EQ(5, number);
        ASSERT_EQ(0, s.setString(kUI, "B", "y"));
        EXPECT_EQ("[OVCore.UI]\nA=5\nB=y\n", ovtest::readFile(ovtest::mainSettingsPath()));
    }
    {
        SCOPED_TRACE("no sections");
        CFGOrvelSetting& s = open("A=5\nB=6\n");
        int number = 0;
        EXPECT_EQ(3, s.getInt(kUI, "A", number));
        ASSERT_EQ(0, s.setInt(kUI, "A", 1));
        EXPECT_EQ("A=5\nB=6\n[OVCore.UI]\nA=1\n", ovtest::readFile(ovtest::mainSettingsPath()));
    }
    {
        SCOPED_TRACE("duplicate keys");
        CFGOrvelSetting& s = open("[OVCore.UI]\nA=first\nA=second\n");
        ovTypes::String text;
        EXPECT_EQ(0, s.getString(kUI, "A", text));
        EXPECT_EQ(ovTypes::String(L"first"), text);
        ASSERT_EQ(0, s.setString(kUI, "A", "third"));
        EXPECT_EQ("[OVCore.UI]\nA=third\n", ovtest::readFile(ovtest::mainSettingsPath()));
    }
    {
        SCOPED_TRACE("Latin-1 and invalid UTF-8");
        // A byte that cuts a sequence short reads as itself: every key loads, and a rewrite
        // stores such values in UTF-8.
        CFGOrvelSetting& s = open("[OVCore.UI]\nGreeting=caf\xe9\nNext=1\nBad=x\xff\xfe\nLast=2\n");
        ovTypes::String text;
        EXPECT_EQ(0, s.getString(kUI, "Greeting", text));
        EXPECT_EQ(ovTypes::String(L"caf\u00e9"), text);
        EXPECT_EQ(0, s.getString(kUI, "Bad", text));
        EXPECT_EQ(ovTypes::String(L"x\u00ff\u00fe"), text);
        int number = 0;
        EXPECT_EQ(0, s.getInt(kUI, "Next", number));
        EXPECT_EQ(1, number);
        EXPECT_EQ(0, s.setInt(kUI, "Last", 3));
        EXPECT_EQ("[OVCore.UI]\nBad=x\xc3\xbf\xc3\xbe\nGreeting=caf\xc3\xa9\nLast=3\nNext=1\n",
                  ovtest::readFile(ovtest::mainSettingsPath()));
    }
    {
        SCOPED_TRACE("missing directory");
        std::filesystem::remove_all(mRoot.file("/qbxlocal"));
        CFGOrvelSetting& s = openExisting();
        EXPECT_EQ(8, s.setInt(kUI, "A", 1));
        EXPECT_FALSE(ovtest::fileExists(ovtest::mainSettingsPath()));
    }
    {
        SCOPED_TRACE("a directory where the file should be");
        std::filesystem::create_directories(ovtest::mainSettingsPath());
        CFGOrvelSetting& s = openExisting();
        int number = 0;
        EXPECT_EQ(8, s.getInt(kUI, "A", number));
    }
}

TEST_F(CFGSettingTest, InitLoadsTheMainFileAndWritesBackToIt) {
    ASSERT_TRUE(ovtest::writeMainSettings("[OVCore.UI]\nA=1\n"));
    auto s = std::make_unique<CFGOrvelSetting>();
    int number = 0;
    EXPECT_EQ(8, s->getInt(kUI, "A", number));
    ASSERT_EQ(0, s->init());
    EXPECT_EQ(0, s->getInt(kUI, "A", number));
    EXPECT_EQ(1, number);
    ASSERT_EQ(0, s->setInt(kUI, "A", 2));
    EXPECT_EQ("[OVCore.UI]\nA=2\n", ovtest::readFile(ovtest::mainSettingsPath()));

    std::filesystem::remove(ovtest::mainSettingsPath());
    auto other = std::make_unique<CFGOrvelSetting>();
    EXPECT_EQ(1, other->init());
    keep(std::move(s));
    keep(std::move(other));
}

} // namespace
