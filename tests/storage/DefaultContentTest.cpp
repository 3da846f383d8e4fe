// Default content: the index file as read and written (the layout byte by byte, the reader's
// quirks, hostile files that must deliver nothing without costing more memory than the file),
// the manager on a device root (which index files a look-up reads and in what order, the
// plain-file fallback and the names it refuses, what a change of profile or language does to
// the next look-up), and the cache that keeps its index lists per language.
// The fixture header of this folder brings the device root, files, captures and recorders.
#include "CacheFixture.h"
#include "DefaultContentBytes.h"

#include "settings/NR_Setting.h"
#include "settings/NR_SettingMgr.h"
#include "storage/LRUCache.h"
#include "storage/NR_DefaultContentMgr.h"
#include "support/SettingsFiles.h"
#include "thread/PtrRef.h"

#include <atomic>
#include <climits>
#include <fstream>
#include <iterator>
#include <regex>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace dctest;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define OVBASE_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define OVBASE_SANITIZED 1
#endif
#endif

// While it lives, the address space is limited to what the process uses now and a margin, so
// that an allocation of a hostile length fails instead of passing unseen. Not under the
// sanitizers, which reserve address space of their own.
class AddressSpaceLimit {
public:
    AddressSpaceLimit() {
#ifndef OVBASE_SANITIZED
        size_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        mSet = pages > 0 && getrlimit(RLIMIT_AS, &mSaved) == 0;
        rlimit lowered = mSaved;
        lowered.rlim_cur = pages * static_cast<size_t>(sysconf(_SC_PAGESIZE)) + (256u << 20);
        mSet = mSet && setrlimit(RLIMIT_AS, &lowered) == 0;
        EXPECT_TRUE(mSet) << "the address space could not be limited";
#endif
    }
    ~AddressSpaceLimit() {
        if (mSet)
            setrlimit(RLIMIT_AS, &mSaved);
    }

private:
    rlimit mSaved{};
    bool mSet = false;
};

// Every entry of the index read from FILE as "name=bytes" in name order, "<none>" for the
// bytes of an entry that delivers nothing; then each level-3 line the reader wrote, in
// brackets (lines of other threads, such as the timer thread, are left out).
std::string contentsOf(const std::string& file) {
    const std::regex line("\\{3\\} NR_DefaultContentMgr\\.cpp:[0-9]+\\t(.*)\\n");
    ovtest::StderrCapture capture;
    DefaultContentIndex index(file);
    const std::string log = capture.text();
    std::string text;
    for (const auto& entry : index.getItems()) {
        std::string delivered = "<none>";
        DefaultContentIndex::readResource(index.getPath(), entry.second, &delivered);
        text += (text.empty() ? "" : " ") + entry.first + "=" + delivered;
    }
    for (std::sregex_iterator it(log.begin(), log.end(), line), end; it != end; ++it)
        text += (text.empty() ? "[" : " [") + (*it)[1].str() + "]";
    return text;
}

TEST(DefaultContentIndexTest, DirectoriesAndTheBytesTheyDeliver) {
    ovtest::TempDir dir;
    const std::string one = entry("a", 1, 0);
    // 155 directory bytes and 4 resource bytes: 159 in all. An entry may end exactly at the end
    // of the file, and an empty one may start there.
    const std::string outside =
        header(8) + entry("whole", 4, 155) + entry("short", 5, 155) + entry("past", 1, 159) +
        entry("end", 0, 159) + entry("negative length", 0xFFFFFFFF, 155) +
        entry("negative offset", 1, 0x80000000) + entry("near 2^31", 0x7FFFFFFF, 0) +
        entry("sum wraps", 0x7FFFFFF0, 0x7FFFFFF0) + "data";
    const struct {
        const char* rule;
        std::string file;
        std::string contents;
    } cases[] = {
        {"three bytes at offset 24",
         std::string("dc\0\0\0\0\0\0\0\x01", 10) + be16(4) + "logo" + be32(3) + be32(24) +
             std::string("\x07\x00\x09", 3),
         std::string("logo=\x07\x00\x09", 8)},
        // Offsets still count from the start of the file, blank line included.
        {"white space before the magic", "\n \t\n" + header(1) + entry("a", 2, 25) + "hi", "a=hi"},
        {"count 1", header(1) + one, "a=d"},
        {"count 0", header(0) + one, ""},
        {"negative count", header(0x8001) + one, ""},
        {"count -1", header(0xFFFF) + one, ""},
        {"names end at their first zero byte",
         header(2) + entry(std::string("ab\0c", 4), 1, 0) + entry(std::string("\0x", 2), 1, 1),
         "=c ab=d"},
        {"of two entries with one name the later counts",
         header(3) + entry("x", 3, 47) + entry("y", 1, 47) +
             entry(std::string("x\0old", 5), 2, 50) + "abcde",
         "x=de y=a"},
        // The resource byte after the first entry is read as the start of a second one, which
        // ends with the file.
        {"a count far above the entries", header(32767) + entry("a", 1, 21) + "Z", "a=Z"},
        {"an entry cut short", header(2) + entry("a", 0, 0) + be16(5) + "bc", "a="},
        {"bytes outside the file", outside,
         "end= near 2^31=<none> negative length=<none> negative offset=<none> past=<none> "
         "short=<none> sum wraps=<none> whole=data"},
        {"a wrong magic", "dC" + be16(0) + be32(0) + be16(1) + entry("a", 0, 0),
         "[magic error(d,C)]"},
        {"an empty file", "", "[magic error(?,?)]"},
    };
    // Hostile lengths cost no more memory than the file.
    AddressSpaceLimit limit;
    for (const auto& c : cases) {
        ASSERT_TRUE(ovtest::writeFile(dir.file("dynport.dc"), c.file));
        EXPECT_EQ(c.contents, contentsOf(dir.file("dynport.dc"))) << c.rule;
    }
    EXPECT_EQ("[Couldn't open  def content]", contentsOf(dir.file("missing.dc")));
}

TEST(DefaultContentNumbersTest, BigEndianWithSignAndZerosPastTheEnd) {
    std::istringstream in(std::string("\x01\x02\xFF\xFE\x80\x00\x00\x00\x12\x34\x56\x78\xAB", 13));
    EXPECT_EQ(0x0102, readShort(in));
    EXPECT_EQ(-2, readShort(in));
    EXPECT_EQ(INT_MIN, readInt(in));
    EXPECT_EQ(0x12345678, readInt(in));
    EXPECT_TRUE(in.good());
    EXPECT_EQ(static_cast<int>(0xAB000000), readInt(in)) << "missing bytes read as 0";
    EXPECT_TRUE(in.fail());
}

DefaultContentResources manyResources(int count) {
    DefaultContentResources resources;
    for (int i = 0; i < count; ++i)
        resources.emplace_back("r" + std::to_string(i), "");
    return resources;
}

// The layout the reader reads, in the order given (in the directory and in the bytes), or
// nothing at all for resources the reader could not tell apart.
TEST(DefaultContentWriterTest, WritesTheLayoutTheReaderReadsOrNothing) {
    const std::pair<DefaultContentResources, bool> cases[] = {
        {{{"zeta.png", std::string("\x89PNG\0\x01", 6)}, {"alpha", ""}, {"a b", "text"}}, true},
        {{{"", "x"}}, false},
        {{{std::string("a\0b", 3), "x"}}, false},
        {{{"same", "1"}, {"other", "2"}, {"same", "3"}}, false},
        {{{std::string(65536, 'n'), "x"}}, false},
        {{{std::string(65535, 'n'), "x"}}, true},
        {manyResources(32768), false},
        {manyResources(32767), true},
    };
    for (const auto& c : cases) {
        std::ostringstream out;
        EXPECT_EQ(c.second, writeDefaultContentIndex(out, c.first)) << &c - cases;
        EXPECT_EQ(c.second ? dctest::index({c.first.begin(), c.first.end()}) : "", out.str())
            << &c - cases;
    }
}

// ---- The manager

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

    // An ID without the prefix is the name; an index's own name may hold a slash.
    const std::vector<ovTypes::ID> served = {"dc:icon.png",   "dc:both.png", "dc:packed.png",
                                             "icon.png",      "dc:a",        "dc:icons/news.png",
                                             "dc:packed/name"};
    EXPECT_EQ("plain icon | packed both | packed | plain icon | the file a | one level down | "
              "from the index",
              fetchAll(served));
    for (const ovTypes::ID& id : served)
        EXPECT_TRUE(NR_DefaultContentMgr::exists(id)) << id;
    // One ID per word, and three that no word holds.
    std::istringstream words("dc:missing.png dc:folder dc:pipe dc:../secret dc:icons/../../secret "
                             "dc:icons/.. dc:/etc/hostname dc:.. dc:. dc:icons dc:");
    std::vector<ovTypes::ID> refused(std::istream_iterator<std::string>(words), {});
    refused.insert(refused.end(), {"", std::string("dc:a\0b", 6), std::string("a\0", 2)});
    ASSERT_EQ(14u, refused.size());
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
    EXPECT_TRUE(storagetest::inOrder(
        capture.text(), {", open()\tSet resource path to " + mRoot + "\n",
                         "\tSet sProfileSpecificFilePath to " + mRoot + "/profiles\n"}));

    // The profile setting is read at each look-up, so no event needs to arrive first.
    set(OrvelSettingMgr::GROUP_INIT_SETTING, "CurrentProfile", "op2");
    EXPECT_EQ("other profile | <none>", fetchAll({"dc:e", "dc:b"}));
    set(OrvelSettingMgr::GROUP_INIT_SETTING, "CurrentProfile", "");
    EXPECT_EQ("<none> | de", fetchAll({"dc:e", "dc:x"}));
}

TEST_F(DefaultContentMgrTest, TheLanguageChoosesTheListAndAReplacedIndexIsReadAgain) {
    settings("");
    index("de/dynport.dc", {{"hello", "Hallo"}});
    index("fr/dynport.dc", {{"hello", "Bonjour"}});
    index("en-us/dynport.dc", {{"hello", "Hello"}});
    index("dynport.dc", {{"logo", "before"}, {"other", "OTHER"}});
    plain("logo", "plain logo");
    auto replaceIndex = [this](const std::string& bytes) {
        ASSERT_TRUE(ovtest::writeFile(mRoot + "/new.dc", bytes));
        ASSERT_EQ(0, std::rename((mRoot + "/new.dc").c_str(), (mRoot + "/dynport.dc").c_str()));
    };

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
    replaceIndex(dctest::index({{"a", "A"}, {"logo", "after"}}));
    EXPECT_EQ("after | <none>", fetchAll({"dc:logo", "dc:other"}));
    // A resource that claims more bytes than the file holds (ten, where three follow the
    // directory) delivers nothing and hides the plain file of its name.
    replaceIndex(header(1) + entry("logo", 10, 24) + "abc");
    EXPECT_TRUE(NR_DefaultContentMgr::exists("dc:logo"));
    EXPECT_EQ("<none>", fetch("dc:logo"));
}

// The kept lists stay until the profile changes: a more specific index file that appears
// meanwhile is read only once a change of the profile setting has arrived. Look-ups on several
// threads while such changes arrive (each drops the lists on the bus's thread while the look-ups
// rebuild them) all find what they should.
TEST_F(DefaultContentMgrTest, AProfileEventDropsTheKeptLists) {
    settings("[OVCore.InitSetting]\nCurrentProfile=op1\n");
    index("profiles/op1/dynport.dc", {{"logo", "profile"}});
    plain("plain.txt", "plain");
    EXPECT_EQ("profile", fetch("dc:logo"));
    // Subscribed after the manager's handler, so it hears each event after the handler did.
    ovtest::EventRecorder recorder(OrvelSetting::SETTING_CHANGED_TOPIC);
    index("profiles/op1/de/dynport.dc", {{"logo", "language"}});
    EXPECT_EQ("profile", fetch("dc:logo"));

    publishChange("OVCore.UI.ScreenSaverTimeout", "30");
    ASSERT_TRUE(recorder.waitFor(1));
    EXPECT_EQ("profile", fetch("dc:logo"));

    publishChange("OVCore.InitSetting.CurrentProfile", "op1");
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_EQ("language", fetch("dc:logo"));

    std::atomic<int> wrong{0};
    auto lookUps = [&wrong] {
        for (int i = 0; i < 200; ++i) {
            if (fetch("dc:logo") != "language" || !NR_DefaultContentMgr::exists("dc:plain.txt"))
                ++wrong;
        }
    };
    std::thread first(lookUps);
    std::thread second(lookUps);
    for (int i = 0; i < 20; ++i)
        publishChange("OVCore.InitSetting.CurrentProfile", "op1");
    first.join();
    second.join();
    EXPECT_TRUE(recorder.waitFor(22));
    EXPECT_EQ(0, wrong.load());
}

// DefaultContent names the resource folder when that folder opens (kept until dispose, the
// built-in one otherwise); Dynportdc names the profile folder, under the resource folder unless
// absolute.
TEST_F(DefaultContentMgrTest, SettingsNameTheResourceAndProfileFolders) {
    ovtest::TempDir configured, elsewhere;
    settings("[OVCore.InitSetting]\nCurrentProfile=op1\n[OVCore.Storage]\nDefaultContent=" +
             configured.path() + "\nDynportdc=operators\n");
    ASSERT_TRUE(ovtest::writeFile(configured.file("icon.png"), "configured"));
    ASSERT_TRUE(ovtest::writeFile(configured.file("operators/op1/dynport.dc"),
                                  dctest::index({{"x", "relative"}})));
    ASSERT_TRUE(
        ovtest::writeFile(elsewhere.file("op1/dynport.dc"), dctest::index({{"x", "absolute"}})));
    plain("icon.png", "built in");

    ovtest::StderrCapture capture;
    EXPECT_EQ("configured | relative", fetchAll({"dc:icon.png", "dc:x"}));
    EXPECT_NE(std::string::npos,
              capture.text().find(", open()\tSet resource path to " + configured.path() + "\n"));

    set(OrvelSettingMgr::GROUP_STORAGE, "Dynportdc", elsewhere.path());
    set(OrvelSettingMgr::GROUP_STORAGE, "DefaultContent", configured.file("missing"));
    EXPECT_EQ("configured", fetch("dc:icon.png"));
    NR_DefaultContentMgr::dispose();
    EXPECT_EQ("built in | absolute", fetchAll({"dc:icon.png", "dc:x"}));
}

// ---- The cache of index lists

// The value of each of KEYS in CACHE ("-" for none), in turn, each get counting as a use.
std::string lookUp(LRUCache<std::string, int>& cache, const std::vector<std::string>& keys) {
    std::string text;
    for (const std::string& key : keys) {
        int value = 0;
        text += cache.get(key, &value) ? std::to_string(value) : "-";
    }
    return text + " of " + std::to_string(cache.size());
}

TEST(LRUCacheTest, DropsTheEntryUsedLeastRecently) {
    LRUCache<std::string, int> cache(2);
    cache.put("de", 1);
    cache.put("fr", 2);
    EXPECT_EQ("1 of 2", lookUp(cache, {"de"})); // "fr" is now the least recently used
    cache.put("en", 3);
    EXPECT_EQ("-13 of 2", lookUp(cache, {"fr", "de", "en"}));
    // Replacing a value refreshes the entry without growing the cache.
    cache.put("de", 4); // "en" is now the least recently used
    cache.put("it", 5);
    EXPECT_EQ("-45 of 2", lookUp(cache, {"en", "de", "it"}));
    cache.erase("de");
    EXPECT_EQ("-5 of 1", lookUp(cache, {"de", "it"}));
    cache.clear();
    EXPECT_EQ("- of 0", lookUp(cache, {"it"}));
}

TEST(LRUCacheTest, AnEvictedSharedValueLivesWhileACopyIsHeld) {
    LRUCache<std::string, PtrRef<std::string>> cache(0); // taken as 1
    EXPECT_EQ(1u, cache.capacity());
    cache.put("de", PtrRef<std::string>(new std::string("lists")));
    PtrRef<std::string> held;
    ASSERT_TRUE(cache.get("de", &held));
    EXPECT_EQ(2, held.refCount());
    cache.put("fr", PtrRef<std::string>(new std::string("other")));
    EXPECT_EQ(1, held.refCount());
    EXPECT_EQ("lists", *held);
}

} // namespace
