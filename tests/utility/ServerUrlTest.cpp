// Server URLs: the protocol version of the last used server, the placeholder values, their
// expansion with the inserted text scanned again, and values that would expand without end.
#include "EngineTest.h"

#include "support/StderrCapture.h"
#include "utility/NR_EngineUtils.h"

#include <gtest/gtest.h>

namespace {

using enginetest::countLines;

class ServerUrlTest : public enginetest::EngineTest {
protected:
    // A phone whose four values are known: model, software version, "dpp20", MSISDN.
    void SetUp() override {
        writeSettings("LastUsedServer=dpp20\n", "MSISDN=+15550001\n");
        ASSERT_TRUE(ovplatform::setPhoneModelId("KX-200"));
        ASSERT_TRUE(ovplatform::setPhoneSwVersion("4.2.1"));
    }

    static void setMsisdn(const std::string& msisdn) {
        ASSERT_EQ(
            0, OrvelSettingMgr::getSettingMgrInstance()->setString(
                   OrvelSettingMgr::GROUP_SYSTEM, "MSISDN", ovTypes::String(ovTypes::ID(msisdn))));
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
    setService("LastUsedServer", "dpp1x");
    EXPECT_EQ(0, NR_EngineUtils::getProtocolVersionString(version));
    EXPECT_EQ("ovpv10", version);
    EXPECT_EQ("v=ovpv10", expand("v=@DPP_VERSION@"));
    for (const char* other : {"DPP20", "dpp2", "", "dpp20 ", "dpp30"}) {
        setService("LastUsedServer", other);
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
        const char* model; // each null: the phone's own value
        const char* sw;
        const char* msisdn;
        const char* url;
        const char* expanded;
        const char* looping; // the placeholder left as it is once, or ""
    };
    const Case cases[] = {
        {nullptr, nullptr, nullptr,
         "http://ov.example.net/feed?m=@DEVICE_MODEL@&sw=@DP_CLIENT_SW_VERSION@&pv=@DPP_VERSION@"
         "&n=@MSISDN@&x=1",
         "http://ov.example.net/feed?m=KX-200&sw=4.2.1&pv=ovpv20&n=+15550001&x=1", ""},
        {nullptr, nullptr, nullptr, "@DEVICE_MODEL@@DEVICE_MODEL@", "KX-200KX-200", ""},
        {nullptr, nullptr, nullptr, "no placeholder", "no placeholder", ""},
        {nullptr, nullptr, nullptr, "", "", ""},
        // At signs that start no placeholder stay.
        {nullptr, nullptr, nullptr, "a@b.c@@MSISDN@@", "a@b.c@+15550001@", ""},
        {nullptr, nullptr, nullptr, "@msisdn@ @MSISDN @DEVICE_MODEL",
         "@msisdn@ @MSISDN @DEVICE_MODEL", ""},
        {nullptr, nullptr, nullptr, "@@@", "@@@", ""},
        {nullptr, nullptr, nullptr, "@DEVICE@DEVICE_MODEL@", "@DEVICEKX-200", ""},
        // A value holding a placeholder.
        {"KX-@DPP_VERSION@", nullptr, nullptr, "m=@DEVICE_MODEL@&n=@MSISDN@",
         "m=KX-ovpv20&n=+15550001", ""},
        // A value that completes a placeholder with the text after it, as often as it is met.
        {"@DEVICE_", nullptr, nullptr, "@DEVICE_MODEL@MODEL@MODEL@", "@DEVICE_", ""},
        // Several placeholders in one value, and a chain of two.
        {"@DP_CLIENT_SW_VERSION@/@DP_CLIENT_SW_VERSION@", "@MSISDN@.@MSISDN@", "1",
         "@DEVICE_MODEL@ @DEVICE_MODEL@", "1.1/1.1 1.1/1.1", ""},
        // "@DEVICE_" followed by the value "MODEL@" spells a placeholder, but scanning goes on
        // from where the replaced one began.
        {nullptr, nullptr, "MODEL@", "@DEVICE_@MSISDN@", "@DEVICE_MODEL@", ""},
        // A value holding its own placeholder is expanded once, growing at either end or not.
        {"@DEVICE_MODEL@", nullptr, nullptr, "m=@DEVICE_MODEL@&v=@DPP_VERSION@",
         "m=@DEVICE_MODEL@&v=ovpv20", "@DEVICE_MODEL@"},
        {"x@DEVICE_MODEL@", nullptr, nullptr, "m=@DEVICE_MODEL@.", "m=x@DEVICE_MODEL@.",
         "@DEVICE_MODEL@"},
        {"@DEVICE_MODEL@x", nullptr, nullptr, "m=@DEVICE_MODEL@.", "m=@DEVICE_MODEL@x.",
         "@DEVICE_MODEL@"},
        // Cycles through other placeholders end too: model -> MSISDN -> model.
        {"@MSISDN@", nullptr, "<@DEVICE_MODEL@>", "@DEVICE_MODEL@", "<@DEVICE_MODEL@>",
         "@DEVICE_MODEL@"},
        {"@MSISDN@", nullptr, "<@DEVICE_MODEL@>", "@MSISDN@", "<@MSISDN@>", "@MSISDN@"},
        // The model placeholder comes back only by completing itself with what is left of its
        // own value: model -> "@MSISDN@MODEL@" -> "@DEVICE_" + "MODEL@" -> model, for ever.
        {"@MSISDN@MODEL@", nullptr, "@DEVICE_", "[@DEVICE_MODEL@]", "[@DEVICE_MODEL@]",
         "@DEVICE_MODEL@"},
        // Repeats side by side are no cycle.
        {"@MSISDN@@MSISDN@", nullptr, "7", "@DEVICE_MODEL@-@DEVICE_MODEL@", "77-77", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.url);
        ASSERT_TRUE(ovplatform::setPhoneModelId(c.model ? c.model : "KX-200"));
        ASSERT_TRUE(ovplatform::setPhoneSwVersion(c.sw ? c.sw : "4.2.1"));
        setMsisdn(c.msisdn ? c.msisdn : "+15550001");
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
    for (int i = 0; i < 3000; ++i) { // 108 kB
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
