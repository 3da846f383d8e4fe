// The configuration-file sources. The main one: loading, typed reads, whole-file writes with
// their announcement, changes received from the bus, bad files, and the groups and keys it
// takes. The menu one: its language's section, the fallback, and gzip files.
#include "SettingEvents.h"

#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "settings/NR_CFGSetting.h"
#include "settings/NR_MenuCFGSetting.h"
#include "support/SettingsFiles.h"
#include "support/StderrCapture.h"
#include "support/Wait.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

namespace {

const char* const kUI = "OVCore.UI";
const char* const kStorage = "OVCore.Storage";

const char* const kSample = "[OVCore.Storage]\nMaxSize=256\n"
                            "[OVCore.UI]\nGreeting=Hello, world\nScreenSaver=false\n";

using settingstest::boolOf;
using settingstest::intOf;
using settingstest::textOf;

class CFGSettingTest : public settingstest::SettingsTest {
protected:
    CFGOrvelSetting& open(const std::string& content) {
        EXPECT_TRUE(ovtest::writeMainSettings(content));
        return openExisting();
    }
    CFGOrvelSetting& openExisting() {
        return make<CFGOrvelSetting>(ovtest::mainSettingsPath().c_str());
    }
    static std::string file() { return ovtest::readFile(ovtest::mainSettingsPath()); }
};

TEST_F(CFGSettingTest, ReadsTheGroupSectionAndLeavesOutputsAloneWhenAbsent) {
    CFGOrvelSetting& s = open(kSample);
    EXPECT_EQ("0 256", intOf(s, kStorage, "MaxSize"));
    EXPECT_EQ("0 0", boolOf(s, kUI, "ScreenSaver"));
    EXPECT_EQ(L"0 Hello, world", textOf(s, kUI, "Greeting"));
    char* narrow = nullptr;
    ASSERT_EQ(0, s.getString(kUI, "Greeting", &narrow));
    EXPECT_STREQ("Hello, world", std::unique_ptr<char[]>(narrow).get());

    // A key of another group is absent: the group is the section.
    narrow = nullptr;
    EXPECT_EQ("3 -1", intOf(s, kUI, "MaxSize"));
    EXPECT_EQ("3 1", boolOf(s, "OVCore.Nothing", "ScreenSaver"));
    EXPECT_EQ(L"3 -", textOf(s, kStorage, "Greeting"));
    EXPECT_EQ(3, s.getString(kUI, "Missing", &narrow));
    EXPECT_EQ(nullptr, narrow);
    EXPECT_EQ("1 -1", intOf(s, kUI, nullptr));
    EXPECT_EQ(1, s.getString(kUI, "Greeting", static_cast<char**>(nullptr)));
    EXPECT_EQ(1, s.setInt(nullptr, "MaxSize", 1));
    EXPECT_EQ(1, s.setString(kUI, "Greeting", "two\nForged=1"));
    EXPECT_EQ(kSample, file());
}

TEST_F(CFGSettingTest, MissingFileGives8ForEverythingUntilInitLoadsIt) {
    ovtest::StderrCapture err;
    CFGOrvelSetting& s = openExisting();
    EXPECT_TRUE(err.has("CFGOrvelSetting cfg file not exist " + ovtest::mainSettingsPath()));
    EXPECT_FALSE(s.isLoaded());

    EXPECT_EQ("8 -1", intOf(s, kUI, "A"));
    EXPECT_EQ(8, s.setInt(kUI, "A", 1));
    EXPECT_EQ(8, s.setBoolean(kUI, "A", true));
    EXPECT_EQ(8, s.setString(kUI, "A", "x"));
    EXPECT_EQ(8, s.setString(kUI, "A", ovTypes::String(L"x")));
    // Not loaded comes first, before any check of the arguments.
    EXPECT_EQ(8, s.setString(kUI, "A", "x\ny"));
    EXPECT_EQ("8 -1", intOf(s, kUI, nullptr));

    ASSERT_TRUE(drain());
    EXPECT_TRUE(announced().empty());
    EXPECT_FALSE(ovtest::fileExists(ovtest::mainSettingsPath())) << "a write must not create it";

    // A source made without a file loads the main file with init() once there is one, and
    // writes back there.
    CFGOrvelSetting& made = make<CFGOrvelSetting>();
    EXPECT_EQ(1, made.init());
    ASSERT_TRUE(ovtest::writeMainSettings("[OVCore.UI]\nA=1\n"));
    ASSERT_EQ(0, made.init());
    EXPECT_EQ("0 1", intOf(made, kUI, "A"));
    ASSERT_EQ(0, made.setInt(kUI, "A", 2));
    EXPECT_EQ("[OVCore.UI]\nA=2\n", file());
}

TEST_F(CFGSettingTest, EachWriteRewritesTheWholeFileAndIsAnnouncedOnce) {
    CFGOrvelSetting& s = open("[OVCore.UI]\nA=1\n[OVCore.Storage]\nZ=z\n");
    EXPECT_EQ(0, s.setInt(kUI, "N", -42));
    EXPECT_EQ("[OVCore.Storage]\nZ=z\n[OVCore.UI]\nA=1\nN=-42\n", file());
    EXPECT_EQ(0, s.setBoolean(kUI, "T", true));
    EXPECT_EQ(0, s.setString(kUI, "C", "plain"));
    EXPECT_EQ(0, s.setString(kStorage, "W", ovTypes::String(L"wide")));
    EXPECT_EQ("[OVCore.Storage]\nW=wide\nZ=z\n[OVCore.UI]\nA=1\nC=plain\nN=-42\nT=true\n", file());
    EXPECT_EQ("0 -42", intOf(s, kUI, "N"));

    ASSERT_TRUE(drain());
    EXPECT_EQ((std::vector<std::string>{"OVCore.UI.N=-42", "OVCore.UI.T=true", "OVCore.UI.C=plain",
                                        "OVCore.Storage.W=wide"}),
              announced());
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
    EXPECT_EQ(original, file());
    EXPECT_EQ("0 9", intOf(s, kUI, "Octal")) << "memory holds the new value";

    // The next write that can succeed carries both to the file, although the file still holds
    // an older MaxSize when that write reads it.
    ASSERT_EQ(0, s.setInt(kUI, "Other", 1));
    EXPECT_NE(std::string::npos, file().find("Octal=9\n"));
    EXPECT_NE(std::string::npos, file().find("MaxSize=9\n"));
    EXPECT_EQ("0 9", intOf(s, kStorage, "MaxSize"));
}

TEST_F(CFGSettingTest, WriteKeepsWhatOthersWroteToTheFileMeanwhile) {
    CFGOrvelSetting& s = open("[OVCore.UI]\nA=1\nB=1\n");
    // Another writer, whose announcements never reached this source, changed the file.
    ASSERT_TRUE(ovtest::writeMainSettings("[OVCore.Storage]\nS=s\n[OVCore.UI]\nA=5\nB=1\nB=2\n"));
    ASSERT_EQ(0, s.setInt(kUI, "C", 3));
    EXPECT_EQ("[OVCore.Storage]\nS=s\n[OVCore.UI]\nA=5\nB=1\nC=3\n", file());
    EXPECT_EQ("0 5", intOf(s, kUI, "A")) << "memory takes the file's values";
    EXPECT_EQ(L"0 s", textOf(s, kStorage, "S"));
}

// The file keeps its links, mode and (where the writer may) owner; nothing is left behind.
TEST_F(CFGSettingTest, WritesThroughSymbolicLinksWhichStay) {
    namespace fs = std::filesystem;
    // setup/wb_orvel_setting.cfg -> ../../../../data/hop.cfg (relative) -> data/real/x.cfg
    const std::string realDir = mRoot.file("/data/real");
    const std::string real = realDir + "/x.cfg";
    const std::string hop = mRoot.file("/data/hop.cfg");
    const std::string link = ovtest::mainSettingsPath();
    const std::string relative = "../../../../data/hop.cfg";
    const bool root = ::geteuid() == 0; // giving the file another owner needs root
    ASSERT_TRUE(ovtest::writeFile(real, "[OVCore.UI]\nA=1\n"));
    ASSERT_EQ(0, ::chmod(real.c_str(), 0604));
    ASSERT_TRUE(!root || ::chown(real.c_str(), 4242, 4343) == 0);
    fs::create_symlink(real, hop);
    fs::create_directories(fs::path(link).parent_path());
    fs::create_symlink(relative, link);

    CFGOrvelSetting& s = openExisting();
    ASSERT_TRUE(s.isLoaded());
    ASSERT_EQ(0, s.setInt(kUI, "A", 2));
    ASSERT_EQ(0, s.setInt(kUI, "B", 3));

    EXPECT_EQ(relative, fs::read_symlink(link).string());
    EXPECT_TRUE(fs::is_symlink(hop));
    EXPECT_EQ("[OVCore.UI]\nA=2\nB=3\n", ovtest::readFile(real));
    struct stat st;
    ASSERT_EQ(0, ::stat(real.c_str(), &st));
    EXPECT_EQ(0604u, st.st_mode & 07777);
    EXPECT_TRUE(!root || (st.st_uid == 4242u && st.st_gid == 4343u))
        << st.st_uid << ":" << st.st_gid;
    // The new file was made beside the target, and nothing is left behind anywhere.
    std::vector<std::string> names;
    for (const auto& dir : {realDir, fs::path(link).parent_path().string()})
        for (const auto& entry : fs::directory_iterator(dir))
            names.push_back(entry.path().filename().string());
    EXPECT_EQ((std::vector<std::string>{"x.cfg", "wb_orvel_setting.cfg"}), names);
}

// A received change goes to memory only and is not announced again; one that is malformed or
// of another topic changes nothing.
TEST_F(CFGSettingTest, ReceivedChangesGoToMemoryOnlyAndMalformedOnesAreIgnored) {
    CFGOrvelSetting& s = open("[OVCore.UI]\nFoo=1\n");
    ovtest::StderrCapture err;
    settingstest::publishChange("OVCore.UI.Foo", "7");
    settingstest::publishChange("OVCore.Storage.Deep.Key", "x");
    settingstest::publishChange("OVCore.Menu.Title", "menu text");
    settingstest::publishChange("OVCore.UI.Foo", "8\nForged=1");
    settingstest::publishChange("OVCore.UI", "2");
    ASSERT_TRUE(drain());
    OV_Event noMap(OrvelSetting::SETTING_CHANGED_TOPIC);
    OV_EventAndStatusFacade::instance()->notify(noMap);
    OV_Event emptyMap(OrvelSetting::SETTING_CHANGED_TOPIC);
    emptyMap.setProperty("x", "y");
    emptyMap.mPropMap->clear();
    s.handleEvent(emptyMap);
    OV_Event otherTopic("/kestrix/orvel/platform/other");
    otherTopic.setProperty("OVCore.UI.Foo", "3");
    s.handleEvent(otherTopic);

    EXPECT_TRUE(err.has("CFGOrvelSetting:handleEvent called."));
    EXPECT_TRUE(err.has("Property Map is NULL. Test failed."));
    EXPECT_TRUE(err.has("Property Map is EMPTY. Test failed."));
    EXPECT_EQ(L"0 7", textOf(s, kUI, "Foo"));
    // The key is everything after the second dot.
    EXPECT_EQ(L"0 x", textOf(s, kStorage, "Deep.Key"));
    // A menu change is kept here too, under its own group.
    EXPECT_EQ(L"0 menu text", textOf(s, "OVCore.Menu", "Title"));
    EXPECT_EQ("[OVCore.UI]\nFoo=1\n", file());
    EXPECT_EQ(5u, announced().size()) << "the source must not announce again";
}

// Handlers run in order of subscription: a gate, the source, the recorder. The gate holds
// every delivery until it is opened; as each change passes, the recorder notes the value of
// K that the source's memory then holds.
class CFGSettingEchoTest : public CFGSettingTest {
protected:
    void SetUp() override {
        make<settingstest::SettingRecorder>().onChange = [this] {
            ovtest::waitUntil([this] { return mOpen.load(); });
        };
        mSource = &open("");
        mNotes = &make<settingstest::SettingRecorder>();
        mNotes->onChange = [this] { mSeen.push_back(intOf(*mSource, kUI, "K")); };
    }
    std::atomic<bool> mOpen{false};
    settingstest::SettingRecorder* mNotes = nullptr;
    CFGOrvelSetting* mSource = nullptr;
    std::vector<std::string> mSeen;
};

// Own announcements of K=0 (lost) and K=1 come back after the newer write of K=2, and another
// process's K=0 is on the bus before them: none of them undoes K=2. Then, with no newer own
// write on its way, another process's change equal to a lost announcement (K=5) is applied.
TEST_F(CFGSettingEchoTest, OnlyChangesOlderThanAPendingOwnWriteAreDropped) {
    ovplatform::setCallFails("ES_EventPublisher::publish", true);
    ASSERT_EQ(0, mSource->setInt(kUI, "K", 0));
    ovplatform::setCallFails("ES_EventPublisher::publish", false);
    settingstest::publishChange("OVCore.UI.K", "0");
    ASSERT_EQ(0, mSource->setInt(kUI, "K", 1));
    ASSERT_EQ(0, mSource->setInt(kUI, "K", 2));
    mOpen = true;
    ASSERT_TRUE(ovtest::waitUntil([this] { return mNotes->texts().size() == 3; }));

    ovplatform::setCallFails("ES_EventPublisher::publish", true);
    ASSERT_EQ(0, mSource->setInt(kUI, "K", 5));
    ovplatform::setCallFails("ES_EventPublisher::publish", false);
    settingstest::publishChange("OVCore.UI.K", "6");
    settingstest::publishChange("OVCore.UI.K", "5");
    ASSERT_TRUE(mNotes->drain());
    EXPECT_EQ((std::vector<std::string>{"0 2", "0 2", "0 2", "0 6", "0 5"}), mSeen);
}

// Settings files as they are found in the field: each loads, reads and is rewritten as shown.
TEST_F(CFGSettingTest, ToleratesBadFiles) {
    // Each: what, the file, a key read and what reading it gives, a key then set to "new", and
    // the file the write leaves.
    const std::tuple<const char*, const char*, const char*, const wchar_t*, const char*,
                     const char*>
        cases[] = {
            {"CRLF line ends", "[OVCore.UI]\r\nA=5\r\nB=x\r\n", "A", L"0 5", "B",
             "[OVCore.UI]\nA=5\nB=new\n"},
            {"no sections", "A=5\nB=6\n", "A", L"3 -", "A", "A=5\nB=6\n[OVCore.UI]\nA=new\n"},
            {"duplicate keys", "[OVCore.UI]\nA=first\nA=second\n", "A", L"0 first", "A",
             "[OVCore.UI]\nA=new\n"},
            // A byte that cuts a sequence short reads as itself: every key loads, and a rewrite
            // stores such values in UTF-8.
            {"Latin-1 and invalid UTF-8",
             "[OVCore.UI]\nGreeting=caf\xe9\nNext=1\nBad=x\xff\xfe\nLast=2\n", "Greeting",
             L"0 caf\u00e9", "Last",
             "[OVCore.UI]\nBad=x\xc3\xbf\xc3\xbe\nGreeting=caf\xc3\xa9\nLast=new\nNext=1\n"},
        };
    for (const auto& [what, content, read, value, set, rewritten] : cases) {
        SCOPED_TRACE(what);
        CFGOrvelSetting& s = open(content);
        EXPECT_EQ(value, textOf(s, kUI, read));
        ASSERT_EQ(0, s.setString(kUI, set, "new"));
        EXPECT_EQ(rewritten, file());
    }
    // A directory where the file should be.
    std::filesystem::remove(ovtest::mainSettingsPath());
    std::filesystem::create_directories(ovtest::mainSettingsPath());
    EXPECT_EQ("8 -1", intOf(openExisting(), kUI, "A"));
}

// Groups and keys a setter stores must come back as themselves: from a load of the file and in
// the sources that receive the announcement. The others are refused before anything happens.
const char* const kNeighbours = "[OVCore.Service]\nZ=z\n[OVCore.UI]\nA=1\n";

// Every text of up to two characters over ALPHABET.
std::vector<std::string> shortTexts(const std::string& alphabet) {
    std::vector<std::string> texts{""};
    for (char a : alphabet) {
        texts.push_back(std::string(1, a));
        for (char b : alphabet)
            texts.push_back(std::string(1, a) + b);
    }
    return texts;
}

// Whether the attribute map's own text form gives KEY in GROUP back, beside other sections.
bool textFormCarries(const std::string& group, const std::string& key) {
    AttrMap map = settingstest::loadedMap(kNeighbours);
    map.putString(key, L"v", group);
    std::ostringstream out;
    map.store(out);
    return settingstest::loadedMap(out.str()).categories() == map.categories();
}

class SettingNamesTest : public CFGSettingTest {
protected:
    void SetUp() override {
        mWriter = &open(kNeighbours);
        mReceiver = &openExisting();
    }

    // Sets GROUP / KEY and checks the outcome against what the text form can carry: stored,
    // loaded back and received as the same key in the same group, or refused with nothing
    // written and nothing announced. Returns the setter's result.
    int checkRoundTrip(const std::string& group, const std::string& key) {
        SCOPED_TRACE("group " + ::testing::PrintToString(group) + ", key " +
                     ::testing::PrintToString(key));
        const std::string before = ovtest::readFile(ovtest::mainSettingsPath());
        const size_t changes = announced().size();
        int rc = mWriter->setString(group.c_str(), key.c_str(), "v");
        EXPECT_TRUE(drain());
        if (rc != 0) {
            EXPECT_EQ(1, rc);
            // Only the text form may be the reason.
            EXPECT_FALSE(textFormCarries(group, key)) << "refused needlessly";
            EXPECT_EQ(before, ovtest::readFile(ovtest::mainSettingsPath()));
            EXPECT_EQ(changes, announced().size());
            return rc;
        }
        const AttrMap loaded =
            settingstest::loadedMap(ovtest::readFile(ovtest::mainSettingsPath()));
        EXPECT_EQ(ovTypes::String(L"v"), loaded.getString(key, L"", nullptr, group));
        EXPECT_EQ(ovTypes::String(L"z"), loaded.getString("Z", L"", nullptr, "OVCore.Service"));
        EXPECT_EQ(ovTypes::String(L"1"), loaded.getString("A", L"", nullptr, kUI));
        // Receivers file the announcement under the name up to its second dot: only a group
        // with one dot comes back there as itself.
        if (std::count(group.begin(), group.end(), '.') == 1) {
            EXPECT_EQ(L"0 v", textOf(*mReceiver, group.c_str(), key.c_str()));
        }
        return rc;
    }

    CFGOrvelSetting* mWriter = nullptr; // kept until TearDown
    CFGOrvelSetting* mReceiver = nullptr;
};

TEST_F(SettingNamesTest, KeysComeBackAsThemselvesOrAreRefused) {
    const std::string alphabet = std::string("a .=[]#\t\r\n\x01") + "\xc3\xff";
    int accepted = 0;
    for (const std::string& key : shortTexts(alphabet)) {
        if (checkRoundTrip(kUI, key) == 0)
            ++accepted;
    }
    // Odd but harmless keys stay allowed.
    for (const char* key : {"", " lead", "a[b]", "mid#", "x.y.z", "caf\xc3\xa9", "\xff", "a\tb"})
        EXPECT_EQ(0, checkRoundTrip(kUI, key)) << ::testing::PrintToString(key);
    EXPECT_GT(accepted, 50);
}

TEST_F(SettingNamesTest, GroupsComeBackAsThemselvesOrAreRefused) {
    for (const std::string& suffix : shortTexts("a []=#\t\r\n\xc3\xa9"))
        checkRoundTrip("OVCore." + suffix, "k");
    // Groups with another number of dots are plain sections of the file.
    for (const char* group : {"OVCore", "", "OVCore.UI.Deep", "a.b.c", "..", "X.", ".y"})
        EXPECT_EQ(0, checkRoundTrip(group, "k"));
}

TEST_F(SettingNamesTest, TheReportedCorruptionsAreRefusedByEverySetter) {
    const std::string before = ovtest::readFile(ovtest::mainSettingsPath());
    for (const char* key : {"[OVCore.Service]", "a=b", "#x", "x ", "x\r", "x\ny", "="}) {
        SCOPED_TRACE(::testing::PrintToString(key));
        EXPECT_EQ(1, mWriter->setInt(kUI, key, 1));
        EXPECT_EQ(1, mWriter->setBoolean(kUI, key, true));
        EXPECT_EQ(1, mWriter->setString(kUI, key, "v"));
        EXPECT_EQ(1, mWriter->setString(kUI, key, ovTypes::String(L"v")));
    }
    ASSERT_TRUE(drain());
    EXPECT_TRUE(announced().empty());
    EXPECT_EQ(before, ovtest::readFile(ovtest::mainSettingsPath()));
}

TEST_F(SettingNamesTest, ReceivedChangesTheFileCouldNotCarryAreIgnored) {
    // Memory goes to the file with the next write: a hostile change must not reach it.
    settingstest::publishChange("OVCore.UI.[OVCore.Service]", "x");
    settingstest::publishChange("OVCore.UI.a=b", "x");
    settingstest::publishChange("OVCore.U]I.k", "x");
    settingstest::publishChange("OVCore.UI.fine", "x");
    ASSERT_TRUE(drain());
    ASSERT_EQ(0, mWriter->setInt(kUI, "A", 2));
    EXPECT_EQ("[OVCore.Service]\nZ=z\n[OVCore.UI]\nA=2\nfine=x\n",
              ovtest::readFile(ovtest::mainSettingsPath()));
}

// The menu source: the phone's language selects the section, "en-us" is the fallback, and
// every change is announced under the menu group.
const char* const kMenuFile = "[en-us]\nTitle=News\nCount=3\nShown=false\n"
                              "[fr-fr]\nTitle=Actualit\xc3\xa9s\n";

class MenuCFGSettingTest : public settingstest::SettingsTest {
protected:
    void TearDown() override {
        ovplatform::setCallFails("UTIL_Language_getSystemLanguageCode", false);
        SettingsTest::TearDown();
    }

    MenuCFGOrvelSetting& menu(const char* language) {
        EXPECT_TRUE(ovplatform::setLanguageCode(language));
        return make<MenuCFGOrvelSetting>();
    }
};

// The language selects the section, with en-us as the fallback for a key absent there and for
// a language that cannot be had. A write goes to the language's section and is announced under
// the menu group; a received change (its own announcement included) is kept under its group, in
// memory only and not announced again, so the language's value stands; the next write stores
// it too.
TEST_F(MenuCFGSettingTest, LanguageSelectsTheSectionAndReceivedChangesGoToTheirGroup) {
    ASSERT_TRUE(ovtest::writeMenuSettings(kMenuFile));
    ovtest::StderrCapture err;
    MenuCFGOrvelSetting& m = menu("fr-fr");
    EXPECT_TRUE(err.has("OS current language code fr-fr"));
    EXPECT_EQ(ovTypes::String(L"fr-fr"), m.languageCode());
    EXPECT_EQ(L"0 Actualit\u00e9s", textOf(m, "ignored", "Title"));
    // Absent in fr-fr: looked up again in en-us, for every getter.
    EXPECT_EQ("0 3", intOf(m, nullptr, "Count"));
    EXPECT_EQ("0 0", boolOf(m, "OVCore.Menu", "Shown"));
    char* narrow = nullptr;
    ASSERT_EQ(0, m.getString("OVCore.Menu", "Count", &narrow));
    EXPECT_STREQ("3", std::unique_ptr<char[]>(narrow).get());
    EXPECT_EQ(L"3 -", textOf(m, "OVCore.Menu", "Nowhere"));

    ovplatform::setCallFails("UTIL_Language_getSystemLanguageCode", true);
    MenuCFGOrvelSetting& english = menu("fr-fr");
    EXPECT_TRUE(err.has("get OS currLang fail, use default en-us"));
    EXPECT_EQ(L"0 News", textOf(english, "OVCore.Menu", "Title"));

    ASSERT_EQ(0, m.setInt("OVCore.UI", "Count", 5));
    EXPECT_TRUE(err.has("Publish OV setting change event OVCore.Menu.Count, 5"));
    const std::string written = "[en-us]\nCount=3\nShown=false\nTitle=News\n"
                                "[fr-fr]\nCount=5\nTitle=Actualit\xc3\xa9s\n";
    EXPECT_EQ(written, ovtest::readFile(ovtest::menuSettingsPath()));
    EXPECT_EQ("0 5", intOf(m, "OVCore.UI", "Count"));

    settingstest::publishChange("OVCore.Menu.Title", "Infos");
    settingstest::publishChange("OVCore.UI.Theme", "dark");
    ASSERT_TRUE(drain());
    EXPECT_TRUE(err.has("MenuCFGOrvelSetting:handleEvent called."));
    EXPECT_EQ(L"0 Actualit\u00e9s", textOf(m, "OVCore.Menu", "Title"));
    EXPECT_EQ(written, ovtest::readFile(ovtest::menuSettingsPath()));
    EXPECT_EQ((std::vector<std::string>{"OVCore.Menu.Count=5", "OVCore.Menu.Title=Infos",
                                        "OVCore.UI.Theme=dark"}),
              announced());

    ASSERT_EQ(0, m.setString("OVCore.Menu", "Title", "Titre"));
    EXPECT_EQ("[OVCore.Menu]\nCount=5\nTitle=Infos\n"
              "[OVCore.UI]\nTheme=dark\n"
              "[en-us]\nCount=3\nShown=false\nTitle=News\n"
              "[fr-fr]\nCount=5\nTitle=Titre\n",
              ovtest::readFile(ovtest::menuSettingsPath()));
}

TEST_F(MenuCFGSettingTest, KeysFollowTheLanguageSection) {
    // The menu file's section is the language; a section named like the map's default one is
    // stored first without a header, where white space at the start of the file is skipped.
    ASSERT_TRUE(ovtest::writeMenuSettings("[en-us]\nTitle=News\n"));
    MenuCFGOrvelSetting& m = menu("en-us");
    EXPECT_EQ(0, m.setString("ignored", " lead", "v"));
    EXPECT_EQ(1, m.setString("ignored", "a=b", "v"));
    EXPECT_EQ("[en-us]\n lead=v\nTitle=News\n", ovtest::readFile(ovtest::menuSettingsPath()));

    MenuCFGOrvelSetting& odd = menu(AttrMap::DEFAULT_CATEGORY);
    EXPECT_EQ(1, odd.setString("ignored", " lead", "v"));
    EXPECT_EQ(1, odd.setString("ignored", "\tlead", "v"));
    EXPECT_EQ(0, odd.setString("ignored", "lead", "v"));
}

// The gzip form, made by a standard gzip writer, of the 12 sections built in the test below.
const char kGzipMenu[] =
    "\x1f\x8b\x08\x00\x00\x00\x00\x00\x02\xff\x6d\xd0\x3b\x0a\x80\x30\x10\x45\xd1\x3e\xab\xc8"
    "\x12\x32\xf9\xa7\x70\x17\xe9\x82\x85\x42\x10\x21\xa6\x90\x08\x2e\x5f\x64\xb4\x7b\xf5\xa9"
    "\xee\x2d\x6d\xe9\x9b\x9a\x45\xde\x47\xab\x53\xae\xf7\x90\xfd\x3a\xd6\x7a\x4a\x25\xca\x6b"
    "\x84\x8c\xd8\x34\x32\xcd\x66\x90\x19\x36\x8b\xcc\xb2\x39\x64\x8e\xcd\x23\xf3\x6c\x01\x59"
    "\x60\x8b\xc8\x22\x5b\x42\x96\xbe\x76\x38\x86\xfe\x33\x78\x0d\x89\x07\x83\xf1\xf1\x66\x54"
    "\x01\x00\x00";

// Without a menu file every operation gives 8; the source still unzips one from its gzip form.
TEST_F(MenuCFGSettingTest, MissingFileGives8AndGzipFilesDecompress) {
    ovtest::StderrCapture err;
    MenuCFGOrvelSetting& m = menu("en-us");
    EXPECT_TRUE(err.has("No menu language config file exist " + ovtest::menuSettingsPath()));
    EXPECT_EQ("8 -1", intOf(m, "OVCore.Menu", "Count"));
    EXPECT_EQ(8, m.setInt("OVCore.Menu", "Count", 2));
    EXPECT_EQ(1, m.init());
    EXPECT_FALSE(ovtest::fileExists(ovtest::menuSettingsPath()));

    std::string content;
    for (int i = 0; i < 12; ++i)
        content += "[lang" + std::to_string(i) + "]\nTitle=Text number " + std::to_string(i) + "\n";
    const std::string source = mRoot.file("menu.cfg.gz");
    ASSERT_TRUE(ovtest::writeFile(source, std::string(kGzipMenu, sizeof kGzipMenu - 1)));
    EXPECT_EQ(0, m.unzipMenuCFGFile(source.c_str(), mRoot.file("menu.cfg").c_str()));
    EXPECT_EQ(content, ovtest::readFile(mRoot.file("menu.cfg")));

    EXPECT_EQ(1, m.unzipMenuCFGFile(mRoot.file("absent.gz").c_str(), mRoot.file("x").c_str()));
    EXPECT_EQ(1, m.unzipMenuCFGFile(source.c_str(), mRoot.file("no/such/dir/x").c_str()));
    EXPECT_FALSE(ovtest::fileExists(mRoot.file("x")));
}

} // namespace
