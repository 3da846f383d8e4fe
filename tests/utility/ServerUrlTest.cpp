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
    for (const char* other : {"DPP20", "dpp2", "", "dpp20 "}) {
        setService("LastUsedServer", other);
        version = "keep";
        EXPECT_EQ(0, NR_EngineUtils::getProtocolVersionString(version)) << other;
        EXPECT_EQ("keep", version) << other;
    }
}

TEST_F(ServerUrlTest, IndexOutsideTheTableFails) {
    for (int index : {-1, 4}) {
        std::string value = "null";
        EXPECT_EQ(1, NR_EngineUtils::getReplacementPattern(index, value));
        EXPECT_EQ("null", value);
    }
    ovtest::StderrCapture capture;
    std::string value = "null";
    EXPECT_EQ(0, NR_EngineUtils::getReplacementPattern(0, value));
    EXPECT_EQ(1, countLines(capture.text(), 5, "getReplacementPattern",
                            "NR_EngineUtils::getReplacementPattern - successfully got a "
                            "replacement (KX-200) for pattern (@DEVICE_MODEL@).\n\n"));
}

TEST_F(ServerUrlTest, EveryPlaceholderOfATypicalUrl) {
    EXPECT_EQ("http://ov.example.net/feed?m=KX-200&sw=4.2.1&pv=ovpv20&n=+15550001&x=1",
              expand("http://ov.example.net/feed?m=@DEVICE_MODEL@&sw=@DP_CLIENT_SW_VERSION@"
                     "&pv=@DPP_VERSION@&n=@MSISDN@&x=1"));
    EXPECT_EQ("KX-200KX-200", expand("@DEVICE_MODEL@@DEVICE_MODEL@"));
    EXPECT_EQ("no placeholder", expand("no placeholder"));
    EXPECT_EQ("", expand(""));
}

TEST_F(ServerUrlTest, AtSignsThatStartNoPlaceholderStay) {
    EXPECT_EQ("a@b.c@+15550001@", expand("a@b.c@@MSISDN@@"));
    EXPECT_EQ("@msisdn@ @MSISDN @DEVICE_MODEL", expand("@msisdn@ @MSISDN @DEVICE_MODEL"));
    EXPECT_EQ("@@@", expand("@@@"));
    EXPECT_EQ("@DEVICEKX-200", expand("@DEVICE@DEVICE_MODEL@"));
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

TEST_F(ServerUrlTest, OtherLastUsedServerLeavesNullForTheVersion) {
    setService("LastUsedServer", "dpp1x");
    EXPECT_EQ("v=ovpv10", expand("v=@DPP_VERSION@"));
    setService("LastUsedServer", "dpp30");
    EXPECT_EQ("v=null", expand("v=@DPP_VERSION@"));
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

TEST_F(ServerUrlTest, InsertedTextIsScannedAgain) {
    // A value holding a placeholder.
    ASSERT_TRUE(ovplatform::setPhoneModelId("KX-@DPP_VERSION@"));
    EXPECT_EQ("m=KX-ovpv20&n=+15550001", expand("m=@DEVICE_MODEL@&n=@MSISDN@"));
    // A value that completes a placeholder with the text after it, as often as it is met.
    ASSERT_TRUE(ovplatform::setPhoneModelId("@DEVICE_"));
    EXPECT_EQ("@DEVICE_", expand("@DEVICE_MODEL@MODEL@MODEL@"));
    // Several placeholders in one value, and a chain of two.
    setMsisdn("1");
    ASSERT_TRUE(ovplatform::setPhoneSwVersion("@MSISDN@.@MSISDN@"));
    ASSERT_TRUE(ovplatform::setPhoneModelId("@DP_CLIENT_SW_VERSION@/@DP_CLIENT_SW_VERSION@"));
    EXPECT_EQ("1.1/1.1 1.1/1.1", expand("@DEVICE_MODEL@ @DEVICE_MODEL@"));
}

TEST_F(ServerUrlTest, TextBeforeAReplacementIsNotScannedAgain) {
    // "@DEVICE_" followed by the value "MODEL@" spells a placeholder, but scanning goes on
    // from where the replaced one began.
    setMsisdn("MODEL@");
    EXPECT_EQ("@DEVICE_MODEL@", expand("@DEVICE_@MSISDN@"));
}

TEST_F(ServerUrlTest, ValueHoldingItsOwnPlaceholderIsExpandedOnce) {
    ovtest::StderrCapture capture;
    ASSERT_TRUE(ovplatform::setPhoneModelId("@DEVICE_MODEL@"));
    EXPECT_EQ("m=@DEVICE_MODEL@&v=ovpv20", expand("m=@DEVICE_MODEL@&v=@DPP_VERSION@"));
    EXPECT_EQ(1, loopLines(capture.text(), "@DEVICE_MODEL@"));
    // Growing at either end.
    ASSERT_TRUE(ovplatform::setPhoneModelId("x@DEVICE_MODEL@"));
    EXPECT_EQ("m=x@DEVICE_MODEL@.", expand("m=@DEVICE_MODEL@."));
    ASSERT_TRUE(ovplatform::setPhoneModelId("@DEVICE_MODEL@x"));
    EXPECT_EQ("m=@DEVICE_MODEL@x.", expand("m=@DEVICE_MODEL@."));
    EXPECT_EQ(3, loopLines(capture.text(), "@DEVICE_MODEL@"));
}

TEST_F(ServerUrlTest, CyclesThroughOtherPlaceholdersEndToo) {
    ovtest::StderrCapture capture;
    // Model -> MSISDN -> model.
    ASSERT_TRUE(ovplatform::setPhoneModelId("@MSISDN@"));
    setMsisdn("<@DEVICE_MODEL@>");
    EXPECT_EQ("<@DEVICE_MODEL@>", expand("@DEVICE_MODEL@"));
    EXPECT_EQ("<@MSISDN@>", expand("@MSISDN@"));
    EXPECT_EQ(1, loopLines(capture.text(), "@MSISDN@"));
    // The model placeholder comes back only by completing itself with what is left of its own
    // value: model -> "@MSISDN@MODEL@" -> "@DEVICE_" + "MODEL@" -> model again, for ever.
    ASSERT_TRUE(ovplatform::setPhoneModelId("@MSISDN@MODEL@"));
    setMsisdn("@DEVICE_");
    EXPECT_EQ("[@DEVICE_MODEL@]", expand("[@DEVICE_MODEL@]"));
    EXPECT_EQ(2, loopLines(capture.text(), "@DEVICE_MODEL@"));
}

TEST_F(ServerUrlTest, RepeatsSideBySideAreNoCycle) {
    ovtest::StderrCapture capture;
    ASSERT_TRUE(ovplatform::setPhoneModelId("@MSISDN@@MSISDN@"));
    setMsisdn("7");
    EXPECT_EQ("77-77", expand("@DEVICE_MODEL@-@DEVICE_MODEL@"));
    EXPECT_EQ(0, countLines(capture.text(), 3, "replacePatternsInURL", ""));
}

TEST_F(ServerUrlTest, LongUrlsWithManyAtSigns) {
    ovtest::StderrCapture quiet;
    const std::string piece = "@@x@DPP_VERSION@y@MSISDN@@DEVICE_MODE";
    const std::string done = "@@xovpv20y+15550001@DEVICE_MODE";
    std::string url, expected;
    while (url.size() < 100 * 1024) {
        url += piece;
        expected += done;
    }
    EXPECT_EQ(expected, expand(url));

    // Each model placeholder of a 100 kB URL holds itself again.
    ASSERT_TRUE(ovplatform::setPhoneModelId("@DEVICE_MODEL@"));
    std::string selfish;
    int count = 0;
    for (; selfish.size() < 100 * 1024; ++count)
        selfish += "@DEVICE_MODEL@";
    ovtest::StderrCapture capture;
    EXPECT_EQ(selfish, expand(selfish));
    EXPECT_EQ(count, loopLines(capture.text(), "@DEVICE_MODEL@"));
}

TEST(NewsReaderUtilTest, ToQStringKeepsTheLengthAndTheLow16Bits) {
    ovTypes::String text(L"A\u00e9\u4e2d");
    text += static_cast<wchar_t>(0x1F600);
    text += L'\0';
    text += L'z';
    QString q = NewsReaderUtil::toQString(text);
    ASSERT_EQ(6, q.size());
    EXPECT_EQ(u'A', q[0].unicode());
    EXPECT_EQ(0x00E9, q[1].unicode());
    EXPECT_EQ(0x4E2D, q[2].unicode());
    EXPECT_EQ(0xF600, q[3].unicode());
    EXPECT_EQ(0, q[4].unicode());
    EXPECT_EQ(u'z', q[5].unicode());
    EXPECT_TRUE(NewsReaderUtil::toQString(ovTypes::String()).isEmpty());
}

} // namespace
