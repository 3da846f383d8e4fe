// The menu source: the phone's language selects the section, "en-us" is the fallback, and
// every change is announced under the menu group.
#include "SettingEvents.h"

#include "settings/NR_MenuCFGSetting.h"
#include "support/SettingsFiles.h"
#include "support/StderrCapture.h"

namespace {

using settingstest::boolOf;
using settingstest::intOf;
using settingstest::textOf;

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
