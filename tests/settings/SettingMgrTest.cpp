// The setting manager: the group table and its shared source, forwarding with the group's
// name, and the name helpers.
#include "SettingEvents.h"

#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "settings/NR_CFGSetting.h"
#include "settings/NR_MenuCFGSetting.h"
#include "settings/NR_SettingMgr.h"
#include "support/SettingsFiles.h"
#include "support/StderrCapture.h"

#include <cerrno>

namespace {

class SettingMgrTest : public settingstest::SettingsTest {
protected:
    void freeHandlers() override { mMgr.reset(); }

    OrvelSettingMgr& mgr() {
        if (!mMgr)
            mMgr = std::make_unique<OrvelSettingMgr>();
        return *mMgr;
    }

    std::unique_ptr<OrvelSettingMgr> mMgr;
};

// Ten groups share one source and the menu has its own; group 11 does not exist: 1, with the
// output and the file left alone.
TEST_F(SettingMgrTest, GroupsShareSourcesForwardWithTheGroupNameAndEndAtTen) {
    const std::string content =
        "[OVCore.Service]\nDownloadOption=2\n"
        "[OVCore.UI]\nDownloadOption=9\nName=ui\n[OVNewsReader.UI]\nOn=true\n";
    ASSERT_TRUE(ovtest::writeMainSettings(content));
    OrvelSetting* http = mgr().getSetting(OrvelSettingMgr::GROUP_HTTP_TRANSPORT);
    OrvelSetting* menu = mgr().getSetting(OrvelSettingMgr::GROUP_MENU);
    EXPECT_NE(nullptr, dynamic_cast<CFGOrvelSetting*>(http));
    EXPECT_NE(nullptr, dynamic_cast<MenuCFGOrvelSetting*>(menu));
    EXPECT_NE(http, menu);
    for (int group = 0; group < OrvelSettingMgr::GROUP_COUNT; ++group)
        EXPECT_EQ(group == OrvelSettingMgr::GROUP_MENU ? menu : http, mgr().getSetting(group))
            << group;
    EXPECT_EQ(nullptr, mgr().getSetting(11));
    // TearDown deletes the manager: the shared source must be freed once (checked under ASan).

    int option = -1;
    EXPECT_EQ(0, mgr().getInt(OrvelSettingMgr::GROUP_SERVICE, "DownloadOption", option));
    EXPECT_EQ(2, option);
    EXPECT_EQ(0, mgr().getInt(OrvelSettingMgr::GROUP_UI, "DownloadOption", &option));
    EXPECT_EQ(9, option);
    bool on = false;
    EXPECT_EQ(0, mgr().getBoolean(OrvelSettingMgr::GROUP_NEWSREADER_UI, "On", on));
    EXPECT_TRUE(on);
    ovTypes::String name(L"keep");
    EXPECT_EQ(1, mgr().getInt(11, "DownloadOption", option));
    EXPECT_EQ(1, mgr().getBoolean(11, "On", on));
    EXPECT_EQ(1, mgr().getString(11, "Name", name));
    EXPECT_EQ(1, mgr().setInt(11, "A", 5));
    EXPECT_EQ(1, mgr().setBoolean(11, "A", false));
    EXPECT_EQ(1, mgr().setString(11, "A", name));
    EXPECT_EQ(1, mgr().getInt(OrvelSettingMgr::GROUP_UI, "A", static_cast<int*>(nullptr)));
    EXPECT_EQ(9, option);
    EXPECT_TRUE(on);
    EXPECT_EQ(ovTypes::String(L"keep"), name);
    EXPECT_EQ(content, ovtest::readFile(ovtest::mainSettingsPath()));
    EXPECT_EQ(0, mgr().getString(OrvelSettingMgr::GROUP_UI, "Name", &name));
    EXPECT_EQ(ovTypes::String(L"ui"), name);
    EXPECT_EQ(3, mgr().getString(OrvelSettingMgr::GROUP_STORAGE, "Name", name));

    // A write is announced once, under the group's name and the key.
    ASSERT_EQ(0, mgr().setInt(OrvelSettingMgr::GROUP_STORAGE, "Max", 500));
    ASSERT_EQ(
        0, mgr().setString(OrvelSettingMgr::GROUP_SYSTEM, "MSISDN", ovTypes::String(L"+15550100")));
    ASSERT_TRUE(drain());
    EXPECT_EQ(
        (std::vector<std::string>{"OVCore.Storage.Max=500", "OVCore.System.MSISDN=+15550100"}),
        announced());
}

TEST_F(SettingMgrTest, CategoryOfDottedNames) {
    const std::pair<const wchar_t*, int> cases[] = {
        {L"OVCore.UI.Foo", 9},
        {L"OVCore.UI.Foo.Bar", 9},
        {L"OVCore.ConnectionProfiles.Profile1", 0},
        {L"OVNewsReader.UI.Theme", 10},
        {L"OVCore.Menu", 12}, // no second dot: the category is "OVCore"
        {L"OVCore.Menu.Title", 5},
        {L"Other.X.Y", 12},
        {L"OVCore.UIX.Foo", 12},
        {L"OVCore", 12},
        {L"OVCore.U\u0149.Foo", 12}, // U+0149 is not "I", though its low byte is
        {L"", 12},
    };
    for (const auto& [name, group] : cases)
        EXPECT_EQ(group, mgr().getCategory(ovTypes::String(name))) << ovTypes::ID(name);
}

TEST_F(SettingMgrTest, SettingItemOfDeviceManagementPaths) {
    const std::pair<const char*, const char*> cases[] = {
        {"./DevDetail/Ext", "./DevDetail/Ext"},
        {"./DevDetail/Ext/Conf/Orvel/UI", "/UI"},
        {"./DevDetail/Ext/Conf", "/Conf"},
        {"/a/b", "/a/b"},
        {"/a/b/", "/"},
        {"", ""},
    };
    for (const auto& [path, expected] : cases) {
        // A literal: a write into the path would crash.
        std::unique_ptr<char[]> item(mgr().convertDMPathToOrvelSettingItemID(path));
        EXPECT_STREQ(expected, item.get()) << path;
        EXPECT_NE(path, item.get()) << "the result is a copy";
    }
    EXPECT_EQ(nullptr, mgr().convertDMPathToOrvelSettingItemID(nullptr));
}

TEST_F(SettingMgrTest, ProcessNameIsTheProgramPath) {
    ovtest::StderrCapture err;
    std::unique_ptr<const char[]> name(mgr().getProcessName());
    ASSERT_NE(nullptr, name);
    EXPECT_STREQ(program_invocation_name, name.get());
    EXPECT_TRUE(err.has(std::string("Process full path is ") + name.get()));
    EXPECT_TRUE(err.has("getpid() returns "));
    EXPECT_FALSE(mgr().isPhoneProcess());
}

// The singleton is made once, on the device root. The phone number comes from the settings
// first and from the SIM only when there is none.
TEST_F(SettingMgrTest, SingletonsStoredMsisdnWinsOverTheOwnNumberEntry) {
    ASSERT_TRUE(ovtest::writeMainSettings("[OVCore.System]\nOther=1\n"));
    ASSERT_TRUE(ovplatform::setOwnNumber("+15550001"));
    ovTypes::String msisdn;
    ASSERT_EQ(0, OV_EventAndStatusFacade::instance()->getMSISDN(msisdn));
    EXPECT_EQ(ovTypes::String(L"+15550001"), msisdn) << "no stored number: the SIM's";

    OrvelSettingMgr* instance = OrvelSettingMgr::getSettingMgrInstance();
    ASSERT_NE(nullptr, instance);
    EXPECT_EQ(instance, OrvelSettingMgr::getSettingMgrInstance());
    ASSERT_EQ(0, instance->setString(OrvelSettingMgr::GROUP_SYSTEM, "MSISDN",
                                     ovTypes::String(L"+15550002")));
    ASSERT_EQ(0, OV_EventAndStatusFacade::instance()->getMSISDN(msisdn));
    EXPECT_EQ(ovTypes::String(L"+15550002"), msisdn);
}

} // namespace
