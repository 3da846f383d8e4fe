// Groups and keys a setter stores must come back as themselves: from a load of the file and in
// the sources that receive the announcement. The others are refused before anything happens.
#include "SettingEvents.h"

#include "settings/NR_CFGSetting.h"
#include "settings/NR_MenuCFGSetting.h"
#include "support/SettingsFiles.h"

#include <algorithm>
#include <sstream>

namespace {

const char* const kUI = "OVCore.UI";
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

class SettingNamesTest : public settingstest::SettingsTest {
protected:
    void SetUp() override {
        SettingsTest::SetUp();
        ASSERT_TRUE(ovtest::writeMainSettings(kNeighbours));
        mWriter = &make<CFGOrvelSetting>(ovtest::mainSettingsPath().c_str());
        mReceiver = &make<CFGOrvelSetting>(ovtest::mainSettingsPath().c_str());
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
            EXPECT_EQ(L"0 v", settingstest::textOf(*mReceiver, group.c_str(), key.c_str()));
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

TEST_F(SettingNamesTest, MenuKeysFollowTheLanguageSection) {
    // The menu file's section is the language; a section named like the map's default one is
    // stored first without a header, where white space at the start of the file is skipped.
    ASSERT_TRUE(ovtest::writeMenuSettings("[en-us]\nTitle=News\n"));
    ASSERT_TRUE(ovplatform::setLanguageCode("en-us"));
    MenuCFGOrvelSetting& menu = make<MenuCFGOrvelSetting>();
    EXPECT_EQ(0, menu.setString("ignored", " lead", "v"));
    EXPECT_EQ(1, menu.setString("ignored", "a=b", "v"));
    EXPECT_EQ("[en-us]\n lead=v\nTitle=News\n", ovtest::readFile(ovtest::menuSettingsPath()));

    ASSERT_TRUE(ovplatform::setLanguageCode(AttrMap::DEFAULT_CATEGORY));
    MenuCFGOrvelSetting& odd = make<MenuCFGOrvelSetting>();
    EXPECT_EQ(1, odd.setString("ignored", " lead", "v"));
    EXPECT_EQ(1, odd.setString("ignored", "\tlead", "v"));
    EXPECT_EQ(0, odd.setString("ignored", "lead", "v"));
}

} // namespace
