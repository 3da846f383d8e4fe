// May the network be used: the download option against roaming and the friendly networks,
// the splitting of the friendly list, and what happens when a setting or the phone fails.
#include "EngineTest.h"

#include "support/StderrCapture.h"
#include "utility/NR_EngineUtils.h"

#include <gtest/gtest.h>

namespace {

using enginetest::countLines;

class NetworkAccessTest : public enginetest::EngineTest {};

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
    struct Case {
        int option;
        bool roaming;
        const char* plmn;
        int status;
    };
    const Case cases[] = {
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
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message()
                     << "option " << c.option << (c.roaming ? " roaming" : " home") << " in "
                     << c.plmn);
        setDownloadOption(c.option);
        ASSERT_TRUE(ovplatform::setRoaming(c.roaming));
        ASSERT_TRUE(ovplatform::setCurrentPlmn(c.plmn));
        EXPECT_EQ(Result(0, c.status), access());
        EXPECT_EQ(c.status == 0, NR_EngineUtils::isNetworkAccessAllowed());
        EXPECT_EQ(c.option == 2, NR_EngineUtils::isDownloadOptionNever());
    }
}

TEST_F(NetworkAccessTest, FriendlyCheckLeavesTheStatusAloneUnlessRoamingOutside) {
    writeSettings(kFriendlyList);
    const struct {
        bool roaming;
        const char* plmn;
        int status;
    } cases[] = {{false, "99999", 5}, {true, "001010", 5}, {true, "99999", 2}};
    for (const auto& c : cases) {
        ASSERT_TRUE(ovplatform::setRoaming(c.roaming));
        ASSERT_TRUE(ovplatform::setCurrentPlmn(c.plmn));
        ovtest::StderrCapture capture;
        EXPECT_EQ(Result(0, c.status), friendlyCheck(5)) << c.roaming << " " << c.plmn;
        const std::string log = capture.text();
        EXPECT_EQ(!c.roaming, countLines(log, 5, "checkFriendlyNetworkStatus", "Home\n\n"));
        EXPECT_EQ(c.roaming, countLines(log, 5, "checkFriendlyNetworkStatus", "Roam\n\n"));
    }

    bool friendly = true;
    EXPECT_EQ(0, NR_EngineUtils::friendlyNetworkStatus(friendly));
    EXPECT_FALSE(friendly);
}

TEST(FriendlyListTest, ItemsMatchWholeAndByteForByte) {
    struct Case {
        const char* list;
        const char* plmn;
        int found;
    };
    const Case cases[] = {
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
    for (const Case& c : cases)
        EXPECT_EQ(c.found, NR_EngineUtils::isPLMNInFriendlyList(c.plmn, c.list))
            << "'" << c.plmn << "' in '" << c.list << "'";
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

    setService("FriendlyNetPlmn", "001010");
    EXPECT_EQ(Result(1, 0), access());
    EXPECT_EQ(1, countLines(capture.text(), 3, "friendlyNetworkStatus",
                            "NR_EngineUtils::friendlyNetworkStatus: Error occurred retrieving "
                            "current PLMN. Returning failure status.\n\n"));

    ovplatform::setCallFails("UTIL_GetCurrentPlmn", false);
    ASSERT_TRUE(ovplatform::setCurrentPlmn("001010"));
    EXPECT_EQ(Result(0, 0), access());
}

} // namespace
