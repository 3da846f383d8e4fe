// The engine utilities on a temporary device root: may the network be used (the download option
// against roaming and the friendly networks), and server URLs (the protocol version of the last
// used server, the placeholder values and their expansion). The settings file is written before
// the setting manager first loads it (once per process, so once per test), later changes go
// through the manager, and the phone's answers come from the simulated phone.
#include "OVPlatform.h"
#include "settings/NR_SettingMgr.h"
#include "support/SettingsFiles.h"
#include "support/StderrCapture.h"
#include "support/TempDir.h"
#include "utility/NR_EngineUtils.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <tuple>

namespace {

class EngineTest : public ::testing::Test {
protected:
    void TearDown() override {
        for (const char* call : {"UTIL_GetRoamStatus", "UTIL_GetCurrentPlmn",
                                 "UTIL_GetPhoneModelId", "UTIL_GetPhoneSwVersion"})
            ovplatform::setCallFails(call, false);
    }

    // The settings file with these lines in the service group and, when given, in the system
    // group. Must come before the first setting is read.
    static void writeSettings(const std::string& service, const std::string& system = "") {
        std::string text = "[OVCore.Service]\n" + service;
        if (!system.empty())
            text += "[OVCore.System]\n" + system;
        ASSERT_TRUE(ovtest::writeMainSettings(text));
    }

    static void set(const char* key, const std::string& value,
                    int group = OrvelSettingMgr::GROUP_SERVICE) {
        ASSERT_EQ(0, OrvelSettingMgr::getSettingMgrInstance()->setString(
                         group, key, ovTypes::String(ovTypes::ID(value))));
    }
    static void setDownloadOption(int option) { set("DownloadOption", std::to_string(option)); }

    ovtest::TempDeviceRoot mRoot;
};

// How often LOG holds the diagnostic "{LEVEL} NR_EngineUtils.cpp:<line>, FUNCTION()\tMESSAGE".
int countLines(const std::string& log, int level, const std::string& function,
               const std::string& message) {
    const std::string plain = std::regex_replace(log, std::regex("NR_EngineUtils\\.cpp:[0-9]+, "),
                                                 "NR_EngineUtils.cpp:#, ");
    const std::string line =
        "{" + std::to_string(level) + "} NR_EngineUtils.cpp:#, " + function + "()\t" + message;
    int count = 0;
    for (size_t pos = plain.find(line); pos != std::string::npos; pos = plain.find(line, pos + 1))
        ++count;
    return count;
}

class NetworkAccessTest : public EngineTest {};

typedef std::pair<int, int> Result; // the result code, and the status given

// getNetworkAccessStatus from a status of 7.
Result access() {
    int status = 7;
    int result = NR_EngineUtils::getNetworkAccessStatus(status);
    return {result, status};
}

Result friendlyCheck(int status) {
    int result = NR_EngineUtils::checkFriendlyNetworkStatus(status);
    return {result, status};
}

// Read whole, commas and all: a value cut at its first comma would leave no friendly network.
const char* const kFriendlyList = "FriendlyNetPlmn=,001010,,001020,\n";

TEST_F(NetworkAccessTest, OptionsAtHomeAndRoamingInAndOutOfTheFriendlyNetworks) {
    writeSettings(std::string("DownloadOption=0\n") + kFriendlyList);
    const std::tuple<int, bool, const char*, int> cases[] = {
        // Always: nothing restricts.
        {0, false, "001020", 0},
        {0, true, "001020", 0},
        {0, true, "00102", 0},
        // Home and friendly networks only.
        {1, false, "00102", 0},
        {1, true, "001010", 0},
        {1, true, "001020", 0},
        {1, true, "00102", 2},
        {1, true, "0010200", 2},
        // Never.
        {2, false, "001020", 1},
        {2, true, "00102", 1},
        // Anything else counts as always.
        {7, true, "00102", 0},
        {-1, true, "00102", 0},
    };
    for (const auto& [option, roaming, plmn, status] : cases) {
        SCOPED_TRACE(::testing::Message()
                     << "option " << option << (roaming ? " roaming" : " home") << " in " << plmn);
        setDownloadOption(option);
        ASSERT_TRUE(ovplatform::setRoaming(roaming));
        ASSERT_TRUE(ovplatform::setCurrentPlmn(plmn));
        EXPECT_EQ(Result(0, status), access());
        EXPECT_EQ(status == 0, NR_EngineUtils::isNetworkAccessAllowed());
        EXPECT_EQ(option == 2, NR_EngineUtils::isDownloadOptionNever());
    }
}

TEST_F(NetworkAccessTest, FriendlyCheckLeavesTheStatusAloneUnlessRoamingOutside) {
    writeSettings(kFriendlyList);
    const std::tuple<bool, const char*, int> cases[] = {
        {false, "99999", 5}, {true, "001010", 5}, {true, "99999", 2}};
    for (const auto& [roaming, plmn, status] : cases) {
        ASSERT_TRUE(ovplatform::setRoaming(roaming));
        ASSERT_TRUE(ovplatform::setCurrentPlmn(plmn));
        ovtest::StderrCapture capture;
        EXPECT_EQ(Result(0, status), friendlyCheck(5)) << roaming << " " << plmn;
        const std::string log = capture.text();
        EXPECT_EQ(!roaming, countLines(log, 5, "checkFriendlyNetworkStatus", "Home\n\n"));
        EXPECT_EQ(roaming, countLines(log, 5, "checkFriendlyNetworkStatus", "Roam\n\n"));
    }

    bool friendly = true;
    EXPECT_EQ(0, NR_EngineUtils::friendlyNetworkStatus(friendly));
    EXPECT_FALSE(friendly);
}

TEST(FriendlyListTest, ItemsMatchWholeAndByteForByte) {
    const std::tuple<const char*, const char*, int> cases[] = {
        {",001010,,001020,", "001020", 1},
        {",001010,,001020,", "001010", 1},
        {",001010,,001020,", "00102", 0},   // a prefix of an item
        {",001010,,001020,", "0010201", 0}, // an item is a prefix
        {"001020", "001020", 1},
        {"001010, 001020", "001020", 0}, // no trimming
        {"001020 ,001010", "001020", 0},
        {"001010, 001020", " 001020", 1},
        {"", "", 0},
        {",,", "", 0}, // empty items are skipped, even for an empty PLMN
        {"a,b", "a,b", 0},
        {"abc", "ABC", 0},
    };
    for (const auto& [list, plmn, found] : cases)
        EXPECT_EQ(found, NR_EngineUtils::isPLMNInFriendlyList(plmn, list))
            << "'" << plmn << "' in '" << list << "'";
}

TEST_F(NetworkAccessTest, MissingDownloadOptionFailsWithItsDiagnostic) {
    writeSettings(kFriendlyList);
    ovtest::StderrCapture capture;
    EXPECT_EQ(Result(1, 0), access());
    int option = 42;
    EXPECT_EQ(1, NR_EngineUtils::getDownloadOptionSetting(option));
    EXPECT_EQ(42, option);
    EXPECT_FALSE(NR_EngineUtils::isDownloadOptionNever());
    EXPECT_FALSE(NR_EngineUtils::isNetworkAccessAllowed());
    EXPECT_EQ(2, countLines(capture.text(), 3, "getNetworkAccessStatus",
                            "NR_EngineUtils::getNetworkAccessStatus - Error occurred retrieving "
                            "download option setting. Returning failure status.\n\n"));
}

TEST_F(NetworkAccessTest, RoamingStateFailureOnlyMattersForHomeAndFriendly) {
    writeSettings(std::string("DownloadOption=0\n") + kFriendlyList);
    ovplatform::setCallFails("UTIL_GetRoamStatus", true);
    EXPECT_EQ(Result(0, 0), access());
    setDownloadOption(2);
    EXPECT_EQ(Result(0, 1), access());

    setDownloadOption(1);
    ovtest::StderrCapture capture;
    EXPECT_EQ(Result(1, 0), access());
    EXPECT_FALSE(NR_EngineUtils::isNetworkAccessAllowed());
    EXPECT_EQ(Result(1, 0), friendlyCheck(0));
    EXPECT_EQ(3, countLines(capture.text(), 5, "checkFriendlyNetworkStatus",
                            "NR_EngineUtils::checkFriendlyNetworkStatus - Failed to get current "
                            "roaming status.\n\n"));
}

TEST_F(NetworkAccessTest, FriendlyListAndCurrentNetworkAreNeededOnlyWhenRoaming) {
    writeSettings("DownloadOption=1\n");
    ovplatform::setCallFails("UTIL_GetCurrentPlmn", true);
    EXPECT_EQ(Result(0, 0), access()) << "at home";

    ASSERT_TRUE(ovplatform::setRoaming(true));
    ovtest::StderrCapture capture;
    EXPECT_EQ(Result(1, 0), access());
    std::string log = capture.text();
    EXPECT_EQ(1, countLines(log, 3, "friendlyNetworkStatus",
                            "NR_EngineUtils::friendlyNetworkStatus: Error occurred retrieving "
                            "friendly PLMN list setting. Returning failure status.\n\n"));
    EXPECT_EQ(1, countLines(log, 5, "checkFriendlyNetworkStatus", "Roam\n\n"));

    set("FriendlyNetPlmn", "001010");
    EXPECT_EQ(Result(1, 0), access());
    EXPECT_EQ(1, countLines(capture.text(), 3, "friendlyNetworkStatus",
                            "NR_EngineUtils::friendlyNetworkStatus: Error occurred retrieving "
                            "current PLMN. Returning failure status.\n\n"));

    ovplatform::setCallFails("UTIL_GetCurrentPlmn", false);
    ASSERT_TRUE(ovplatform::setCurrentPlmn("001010"));
    EXPECT_EQ(Result(0, 0), access());
}

// ---- Server URLs

class ServerUrlTest : public EngineTest {
protected:
    // A phone whose four values are known: model, software version, "dpp20", MSISDN.
    void SetUp() override {
        writeSettings("LastUsedServer=dpp20\n", "MSISDN=+15550001\n");
        ASSERT_TRUE(ovplatform::setPhoneModelId("KX-200"));
        ASSERT_TRUE(ovplatform::setPhoneSwVersion("4.2.1"));
    }

    static std::string expand(std::string url) {
        EXPECT_EQ(0, NR_EngineUtils::replacePatternsInURL(url));
        return url;
    }

    static int loopLines(const std::string& log, const char* pattern) {
        return countLines(log, 3, "replacePatternsInURL",
                          std::string("NR_EngineUtils::replacePatternsInURL - pattern (") +
                              pattern +
                              ") comes back in its own replacement. Leaving it as it is to stop "
                              "an endless expansion.\n\n");
    }
};

TEST_F(ServerUrlTest, ProtocolVersionFollowsTheLastUsedServer) {
    std::string version = "keep";
    EXPECT_EQ(0, NR_EngineUtils::getProtocolVersionString(version));
    EXPECT_EQ("ovpv20", version);
    set("LastUsedServer", "dpp1x");
    EXPECT_EQ(0, NR_EngineUtils::getProtocolVersionString(version));
    EXPECT_EQ("ovpv10", version);
    EXPECT_EQ("v=ovpv10", expand("v=@DPP_VERSION@"));
    for (const char* other : {"DPP20", "dpp2", "", "dpp20 ", "dpp30"}) {
        set("LastUsedServer", other);
        version = "keep";
        EXPECT_EQ(0, NR_EngineUtils::getProtocolVersionString(version)) << other;
        EXPECT_EQ("keep", version) << other;
        EXPECT_EQ("v=null", expand("v=@DPP_VERSION@")) << other;
    }
}

TEST_F(ServerUrlTest, IndexOutsideTheTableFails) {
    std::string value = "null";
    EXPECT_EQ(1, NR_EngineUtils::getReplacementPattern(-1, value));
    EXPECT_EQ(1, NR_EngineUtils::getReplacementPattern(4, value));
    EXPECT_EQ("null", value);
    ovtest::StderrCapture capture;
    EXPECT_EQ(0, NR_EngineUtils::getReplacementPattern(0, value));
    EXPECT_EQ("KX-200", value);
    EXPECT_EQ(1, countLines(capture.text(), 5, "getReplacementPattern",
                            "NR_EngineUtils::getReplacementPattern - successfully got a "
                            "replacement (KX-200) for pattern (@DEVICE_MODEL@).\n\n"));
}

// Each row on the phone of SetUp with the values it names changed: the URL expanded, and the
// placeholder left as it is to stop an endless expansion.
TEST_F(ServerUrlTest, PlaceholdersExpandWithTheInsertedTextScannedAgain) {
    struct Case {
        const char* url;
        const char* expanded;
        const char* looping;         // the placeholder left as it is once, or ""
        const char* model = nullptr; // each null: the phone's own value
        const char* sw = nullptr;
        const char* msisdn = nullptr;
    };
    const Case cases[] = {
        {"http://ov.example.net/feed?m=@DEVICE_MODEL@&sw=@DP_CLIENT_SW_VERSION@&pv=@DPP_VERSION@"
         "&n=@MSISDN@&x=1",
         "http://ov.example.net/feed?m=KX-200&sw=4.2.1&pv=ovpv20&n=+15550001&x=1", ""},
        {"@DEVICE_MODEL@@DEVICE_MODEL@", "KX-200KX-200", ""},
        {"no placeholder", "no placeholder", ""},
        {"", "", ""},
        // At signs that start no placeholder stay.
        {"a@b.c@@MSISDN@@", "a@b.c@+15550001@", ""},
        {"@msisdn@ @MSISDN @DEVICE_MODEL", "@msisdn@ @MSISDN @DEVICE_MODEL", ""},
        {"@@@", "@@@", ""},
        {"@DEVICE@DEVICE_MODEL@", "@DEVICEKX-200", ""},
        // A value holding a placeholder.
        {"m=@DEVICE_MODEL@&n=@MSISDN@", "m=KX-ovpv20&n=+15550001", "", "KX-@DPP_VERSION@"},
        // A value that completes a placeholder with the text after it, as often as it is met.
        {"@DEVICE_MODEL@MODEL@MODEL@", "@DEVICE_", "", "@DEVICE_"},
        // Several placeholders in one value, and a chain of two.
        {"@DEVICE_MODEL@ @DEVICE_MODEL@", "1.1/1.1 1.1/1.1", "",
         "@DP_CLIENT_SW_VERSION@/@DP_CLIENT_SW_VERSION@", "@MSISDN@.@MSISDN@", "1"},
        // "@DEVICE_" followed by the value "MODEL@" spells a placeholder, but scanning goes on
        // from where the replaced one began.
        {"@DEVICE_@MSISDN@", "@DEVICE_MODEL@", "", nullptr, nullptr, "MODEL@"},
        // A value holding its own placeholder is expanded once, growing at either end or not.
        {"m=@DEVICE_MODEL@&v=@DPP_VERSION@", "m=@DEVICE_MODEL@&v=ovpv20", "@DEVICE_MODEL@",
         "@DEVICE_MODEL@"},
        {"m=@DEVICE_MODEL@.", "m=x@DEVICE_MODEL@.", "@DEVICE_MODEL@", "x@DEVICE_MODEL@"},
        {"m=@DEVICE_MODEL@.", "m=@DEVICE_MODEL@x.", "@DEVICE_MODEL@", "@DEVICE_MODEL@x"},
        // Cycles through other placeholders end too: model -> MSISDN -> model.
        {"@DEVICE_MODEL@", "<@DEVICE_MODEL@>", "@DEVICE_MODEL@", "@MSISDN@", nullptr,
         "<@DEVICE_MODEL@>"},
        {"@MSISDN@", "<@MSISDN@>", "@MSISDN@", "@MSISDN@", nullptr, "<@DEVICE_MODEL@>"},
        // The model placeholder comes back only by completing itself with what is left of its
        // own value: model -> "@MSISDN@MODEL@" -> "@DEVICE_" + "MODEL@" -> model, for ever.
        {"[@DEVICE_MODEL@]", "[@DEVICE_MODEL@]", "@DEVICE_MODEL@", "@MSISDN@MODEL@", nullptr,
         "@DEVICE_"},
        // Repeats side by side are no cycle.
        {"@DEVICE_MODEL@-@DEVICE_MODEL@", "77-77", "", "@MSISDN@@MSISDN@", nullptr, "7"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.url);
        ASSERT_TRUE(ovplatform::setPhoneModelId(c.model ? c.model : "KX-200"));
        ASSERT_TRUE(ovplatform::setPhoneSwVersion(c.sw ? c.sw : "4.2.1"));
        set("MSISDN", c.msisdn ? c.msisdn : "+15550001", OrvelSettingMgr::GROUP_SYSTEM);
        ovtest::StderrCapture capture;
        EXPECT_EQ(c.expanded, expand(c.url));
        const int loops = *c.looping ? 1 : 0;
        EXPECT_EQ(loops, countLines(capture.text(), 3, "replacePatternsInURL", ""));
        EXPECT_EQ(loops, loops ? loopLines(capture.text(), c.looping) : 0);
    }
}

TEST_F(ServerUrlTest, FailedValuesBecomeNull) {
    EXPECT_EQ("/p?m=KX-200&v=ovpv20", expand("/p?m=@DEVICE_MODEL@&v=@DPP_VERSION@"));
    ovplatform::setCallFails("UTIL_GetPhoneModelId", true);
    ovplatform::setCallFails("UTIL_GetPhoneSwVersion", true);
    ovtest::StderrCapture capture;
    EXPECT_EQ("/p?m=null&v=ovpv20", expand("/p?m=@DEVICE_MODEL@&v=@DPP_VERSION@"));
    EXPECT_EQ("sw=null", expand("sw=@DP_CLIENT_SW_VERSION@"));
    EXPECT_EQ(1, countLines(capture.text(), 3, "getReplacementPattern",
                            "NR_EngineUtils::getReplacementPattern - failed to get a replacement "
                            "for pattern (@DEVICE_MODEL@). Replacing with (null).\n\n"));
}

TEST(ServerUrlNoSettingsTest, MissingSettingsAndOwnNumberGiveNull) {
    ovtest::TempDeviceRoot root; // no settings file, and the SIM has no own number
    ovtest::StderrCapture capture;
    std::string url = "v=@DPP_VERSION@&n=@MSISDN@";
    EXPECT_EQ(0, NR_EngineUtils::replacePatternsInURL(url));
    EXPECT_EQ("v=null&n=null", url);
    std::string log = capture.text();
    EXPECT_EQ(1, countLines(log, 5, "getProtocolVersionString",
                            "NR_EngineUtils::getProtocolVersionString - Failed to get last used "
                            "server.\n\n"));
    EXPECT_EQ(1, countLines(log, 3, "getReplacementPattern",
                            "NR_EngineUtils::getReplacementPattern - failed to get a replacement "
                            "for pattern (@MSISDN@). Replacing with (null).\n\n"));
}

TEST_F(ServerUrlTest, LongUrlsWithManyAtSigns) {
    ovtest::StderrCapture quiet;
    std::string url, expected;
    for (int i = 0; i < 3000; ++i) { // 111 kB
        url += "@@x@DPP_VERSION@y@MSISDN@@DEVICE_MODE";
        expected += "@@xovpv20y+15550001@DEVICE_MODE";
    }
    EXPECT_EQ(expected, expand(url));

    // Each model placeholder of a 100 kB URL holds itself again.
    ASSERT_TRUE(ovplatform::setPhoneModelId("@DEVICE_MODEL@"));
    std::string selfish;
    for (int i = 0; i < 7500; ++i)
        selfish += "@DEVICE_MODEL@";
    ovtest::StderrCapture capture;
    EXPECT_EQ(selfish, expand(selfish));
    EXPECT_EQ(7500, loopLines(capture.text(), "@DEVICE_MODEL@"));
}

TEST(NewsReaderUtilTest, ToQStringKeepsTheLengthAndTheLow16Bits) {
    ovTypes::String text(L"A\u00e9\u4e2d");
    text += static_cast<wchar_t>(0x1F600);
    text += std::wstring(L"\0z", 2);
    EXPECT_EQ(QString::fromUtf16(u"A\u00e9\u4e2d\uf600\0z", 6), NewsReaderUtil::toQString(text));
    EXPECT_TRUE(NewsReaderUtil::toQString(ovTypes::String()).isEmpty());
}

} // namespace
