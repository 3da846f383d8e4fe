// The menu source: the phone's language selects the section, "en-us" is the fallback, and
// every change is announced under the menu group.
#include "SettingEvents.h"

#include "OVPlatform.h"
#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "settings/NR_MenuCFGSetting.h"
#include "support/Files.h"
#include "support/SettingsFiles.h"
#include "support/StderrCapture.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

const char* const kMenuFile = "[en-us]\n"
                              "Title=News\n"
                              "Count=3\n"
                              "Shown=true\n"
                              "[fr-fr]\n"
                              "Title=Actualit\xc3\xa9s\n";

class MenuCFGSettingTest : public settingstest::SettingsTest {
protected:
    void TearDown() override {
        ovplatform::setCallFails("UTIL_Language_getSystemLanguageCode", false);
        SettingsTest::TearDown();
    }

    MenuCFGOrvelSetting& menu(const char* language) {
        EXPECT_TRUE(ovplatform::setLanguageCode(language));
        auto source = std::make_unique<MenuCFGOrvelSetting>();
        MenuCFGOrvelSetting& result = *source;
        keep(std::move(source));
        return result;
    }
};

TEST_F(MenuCFGSettingTest, LanguageSelectsTheSectionWithEnglishAsFallback) {
    ASSERT_TRUE(ovtest::writeMenuSettings(kMenuFile));
    ovtest::StderrCapture err;
    MenuCFGOrvelSetting& m = menu("fr-fr");
    EXPECT_NE(std::string::npos, err.text().find("OS current language code fr-fr"));
    EXPECT_EQ(ovTypes::String(L"fr-fr"), m.languageCode());

    ovTypes::String text;
    EXPECT_EQ(0, m.getString("ignored", "Title", text));
    EXPECT_EQ(ovTypes::String(L"Actualit\u00e9s"), text);
    // Absent in fr-fr: looked up again in en-us, for every getter.
    int count = 0;
    EXPECT_EQ(0, m.getInt(nullptr, "Count", count));
    EXPECT_EQ(3, count);
    bool shown = false;
    EXPECT_EQ(0, m.getBoolean("OVCore.Menu", "Shown", shown));
    EXPECT_TRUE(shown);
    char* narrow = nullptr;
    ASSERT_EQ(0, m.getString("OVCore.Menu", "Count", &narrow));
    EXPECT_STREQ("3", narrow);
    delete[] narrow;

    text = L"keep";
    EXPECT_EQ(3, m.getString("OVCore.Menu", "Nowhere", text));
    EXPECT_EQ(ovTypes::String(L"keep"), text);
}

TEST_F(MenuCFGSettingTest, FailingLanguageQueryUsesEnglish) {
    ASSERT_TRUE(ovtest::writeMenuSettings(kMenuFile));
    ovplatform::setCallFails("UTIL_Language_getSystemLanguageCode", true);
    ovtest::StderrCapture err;
    MenuCFGOrvelSetting& m = menu("fr-fr");
    EXPECT_NE(std::string::npos, err.text().find("get OS currLang fail, use default en-us"));
    ovTypes::String text;
    EXPECT_EQ(0, m.getString("OVCore.Menu", "Title", text));
    EXPECT_EQ(ovTypes::String(L"News"), text);
}

TEST_F(MenuCFGSettingTest, MissingFileGives8) {
    ovtest::StderrCapture err;
    MenuCFGOrvelSetting& m = menu("en-us");
    EXPECT_NE(std::string::npos,
              err.text().find("No menu language config file exist " + ovtest::menuSettingsPath()));
    int count = 1;
    EXPECT_EQ(8, m.getInt("OVCore.Menu", "Count", count));
    EXPECT_EQ(8, m.setInt("OVCore.Menu", "Count", 2));
    EXPECT_EQ(1, count);
    EXPECT_EQ(1, m.init());
    EXPECT_FALSE(ovtest::fileExists(ovtest::menuSettingsPath()));
}

TEST_F(MenuCFGSettingTest, WritesGoToTheLanguageAndAreAnnouncedAsMenu) {
    ASSERT_TRUE(ovtest::writeMenuSettings(kMenuFile));
    MenuCFGOrvelSetting& m = menu("fr-fr");
    settingstest::SettingRecorder& recorder = this->recorder();
    ovtest::StderrCapture err;
    ASSERT_EQ(0, m.setInt("OVCore.UI", "Count", 5));
    EXPECT_NE(std::string::npos,
              err.text().find("Publish OV setting change event OVCore.Menu.Count, 5"));

    ASSERT_TRUE(recorder.drain());
    auto changes = recorder.changes();
    ASSERT_EQ(1u, changes.size());
    EXPECT_EQ("OVCore.Menu.Count", changes[0].name);
    EXPECT_EQ("5", changes[0].value);
    EXPECT_EQ("[en-us]\nCount=3\nShown=true\nTitle=News\n"
              "[fr-fr]\nCount=5\nTitle=Actualit\xc3\xa9s\n",
              ovtest::readFile(ovtest::menuSettingsPath()));
    int count = 0;
    EXPECT_EQ(0, m.getInt("OVCore.UI", "Count", count));
    EXPECT_EQ(5, count);
}

TEST_F(MenuCFGSettingTest, ReceivedMenuChangesApplyToTheCurrentLanguageOnly) {
    ASSERT_TRUE(ovtest::writeMenuSettings(kMenuFile));
    MenuCFGOrvelSetting& m = menu("fr-fr");
    settingstest::SettingRecorder& recorder = this->recorder();
    ovtest::StderrCapture err;
    settingstest::publishChange("OVCore.Menu.Title", "Infos");
    settingstest::publishChange("OVCore.UI.Title", "not the menu");
    ASSERT_TRUE(recorder.drain());

    EXPECT_NE(std::string::npos, err.text().find("MenuCFGOrvelSetting:handleEvent called."));
    ovTypes::String text;
    EXPECT_EQ(0, m.getString("OVCore.Menu", "Title", text));
    EXPECT_EQ(ovTypes::String(L"Infos"), text);
    EXPECT_EQ(kMenuFile, ovtest::readFile(ovtest::menuSettingsPath()));
    EXPECT_EQ(2u, recorder.changes().size());
}

// The gzip form, made by a standard gzip writer, of the 100 sections built in the test below.
const char kGzipMenu[] =
    "\x1f\x8b\x08\x00\x00\x00\x00\x00\x02\xff\x6d\xd6\x31\x6a\x5e\x31\x10\x00\xe1\xde\xa7\xf0"
    "\x11\xac\x95\x56\xab\x2d\x72\x0b\x77\x26\x45\x02\x3f\x21\xe0\xb8\x08\x0e\xe4\xf8\x21\xbc"
    "\x79\xdd\xd4\x53\xe9\x43\x5a\xed\xdb\xfb\xb7\x8f\x1f\x2f\x5f\x9f\x5e\x7f\x7e\xbe\x3f\xbe"
    "\xbc\x3e\xfe\x7e\x3e\x7f\xfc\xf9\xf5\xfd\xf1\xfb\xf9\xe5\xe9\xed\x7f\x1b\xd6\xc6\xd5\xc2"
    "\x5a\x5c\x6d\x5a\x9b\x57\x5b\xd6\xd6\xd5\xd2\x5a\x5e\x6d\x5b\xdb\x57\x2b\x6b\x75\xb5\x63"
    "\xed\x5c\xad\xad\x35\x67\x57\x98\x71\xcb\x38\x0d\x36\x43\x71\x06\x3a\x43\x79\x06\x3e\x43"
    "\x81\x06\x42\x43\x89\x06\x46\x43\x91\x06\x4a\x43\x99\x06\x4e\x43\xa1\x06\x52\x43\xa9\x06"
    "\x56\xa1\x56\x81\x55\xa8\x55\xdc\xf7\xc8\x2f\x12\x56\xa1\x56\x81\x55\xa8\x55\x60\x15\x6a"
    "\x15\x58\x85\x5a\x05\x56\xa1\x56\x81\x55\xa8\x55\x60\x15\x6a\x15\x58\x4d\xb5\x9a\x58\x4d"
    "\xb5\x9a\x58\x4d\xb5\x9a\xf7\xab\xf3\x67\x87\xd5\x54\xab\x89\xd5\x54\xab\x89\xd5\x54\xab"
    "\x89\xd5\x54\xab\x89\xd5\x54\xab\x89\xd5\x54\xab\x89\xd5\x52\xab\x85\xd5\x52\xab\x85\xd5"
    "\x52\xab\x85\xd5\x52\xab\x75\xcf\x28\x1f\x52\x58\x2d\xb5\x5a\x58\x2d\xb5\x5a\x58\x2d\xb5"
    "\x5a\x58\x2d\xb5\x5a\x58\x2d\xb5\x5a\x58\xa5\x5a\x25\x56\xa9\x56\x89\x55\xaa\x55\x62\x95"
    "\x6a\x95\x58\xa5\x5a\xe5\x3d\xd1\x7d\xa4\x63\x95\x6a\x95\x58\xa5\x5a\x25\x56\xa9\x56\x89"
    "\x55\xaa\x55\x62\xb5\xd5\x6a\x63\xb5\xd5\x6a\x63\xb5\xd5\x6a\x63\xb5\xd5\x6a\x63\xb5\xd5"
    "\x6a\x63\xb5\xd5\x6a\xdf\xff\x9f\x7f\x80\x58\x6d\xb5\xda\x58\x6d\xb5\xda\x58\x6d\xb5\xda"
    "\x58\x95\x5a\x15\x56\xa5\x56\x85\x55\xa9\x55\x61\x55\x6a\x55\x58\x95\x5a\x15\x56\xa5\x56"
    "\x85\x55\xa9\x55\xdd\xdb\x82\xaf\x0b\x58\x95\x5a\x15\x56\xa5\x56\x85\xd5\x51\xab\x83\xd5"
    "\x51\xab\x83\xd5\x51\xab\x83\xd5\x51\xab\x83\xd5\x51\xab\x83\xd5\x51\xab\x83\xd5\x51\xab"
    "\x83\xd5\x51\xab\x73\xef\x56\xbe\x5c\x61\x75\xd4\xea\x60\xd5\x6a\xd5\x58\xb5\x5a\x35\x56"
    "\xad\x56\x8d\x55\xab\x55\x63\xd5\x6a\xd5\x58\xb5\x5a\x35\x56\xad\x56\x8d\x55\xab\x55\x63"
    "\xd5\x6a\xd5\xf7\x26\xea\xab\x68\x3f\xfd\x03\x8f\x63\x31\xa3\xa4\x0b\x00\x00";

TEST(MenuCFGSettingUnzip, DecompressesGzipFiles) {
    ovtest::TempDir dir;
    std::string content;
    for (int i = 0; i < 100; ++i)
        content += "[lang" + std::to_string(i) + "]\nTitle=Text number " + std::to_string(i) + "\n";
    const std::string source = dir.file("menu.cfg.gz");
    ASSERT_TRUE(ovtest::writeFile(source, std::string(kGzipMenu, sizeof kGzipMenu - 1)));

    std::unique_ptr<MenuCFGOrvelSetting> menu;
    {
        ovtest::TempDeviceRoot root;
        menu = std::make_unique<MenuCFGOrvelSetting>();
    }
    EXPECT_EQ(0, menu->unzipMenuCFGFile(source.c_str(), dir.file("menu.cfg").c_str()));
    EXPECT_EQ(content, ovtest::readFile(dir.file("menu.cfg")));

    EXPECT_EQ(1, menu->unzipMenuCFGFile(dir.file("absent.gz").c_str(), dir.file("x").c_str()));
    EXPECT_EQ(1, menu->unzipMenuCFGFile(source.c_str(), dir.file("no/such/dir/x").c_str()));
    EXPECT_FALSE(ovtest::fileExists(dir.file("x")));
    menu.reset();
    OV_EventAndStatusFacade::destroy();
}

} // namespace
