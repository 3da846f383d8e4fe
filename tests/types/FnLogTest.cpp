#include "types/FnLog.h"

#include "support/StderrCapture.h"

#include <gtest/gtest.h>

namespace {

// Nested calls indent and number their lines. The prefix is put together by hand and the
// message formatted apart: a line must be what one fprintf of the whole would write, whatever
// the message holds or however long it is.
TEST(FnLog, LinesAreNumberedIndentedAndWhatOnePrintfOfTheWholeWrites) {
    EXPECT_STREQ(ovBaseName("timer/ThreadTimer.cpp"), "ThreadTimer.cpp");
    EXPECT_STREQ(ovBaseName("plain.cpp"), "plain.cpp");
    // Numbers are process-wide; ctest runs each test in a fresh process, where they start at 1.
    unsigned int first = FnLog::sNextCallNumber;
    const std::string longText(3000, 'x');
    ovtest::StderrCapture capture;
    {
        FnLog outer(5, "a.cpp", 10, "outer");
        { FnLog inner(5, "a.cpp", 11, "inner"); }
    }
    EXPECT_EQ(FnLog::sDepth, 0);
    int line = __LINE__ + 1;
    OV_LOG(5, "plain\n\n");
    OV_LOG(-12, "100%% sure\n");
    OV_LOG(2, "%s=%d, char %c, empty '%s'\n", "key", -7, 'q', "");
    OV_LOG(4, "%s|%c|\n", longText.c_str(), '\0');
    OV_LOG_NOFUNC(3, "%05.1f %x\n", 2.25, 255u);
    std::string one = std::to_string(first), two = std::to_string(first + 1);
    std::string at = "FnLogTest.cpp:";
    std::string expected =
        "{5} a.cpp:10, outer()\tIN : " + one + "\n" + "{5} a.cpp:11, inner()\t  IN : " + two +
        "\n" + "{5} a.cpp:11, inner()\t  OUT: " + two + "\n" +
        "{5} a.cpp:10, outer()\tOUT: " + one + "\n" + "{5} " + at + std::to_string(line) +
        ", TestBody()\tplain\n\n" + "{-12} " + at + std::to_string(line + 1) +
        ", TestBody()\t100% sure\n" + "{2} " + at + std::to_string(line + 2) +
        ", TestBody()\tkey=-7, char q, empty ''\n" + "{4} " + at + std::to_string(line + 3) +
        ", TestBody()\t" + longText + "|" + std::string(1, '\0') + "|\n" + "{3} " + at +
        std::to_string(line + 4) + "\t002.2 ff\n";
    EXPECT_EQ(capture.text(), expected);
}

} // namespace
