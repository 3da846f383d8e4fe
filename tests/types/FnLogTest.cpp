#include "types/FnLog.h"

#include "support/StderrCapture.h"

#include <gtest/gtest.h>

namespace {

TEST(FnLog, NestedCallsIndentAndNumberTheirLines) {
    // Numbers are process-wide; ctest runs each test in a fresh process, where they start at 1.
    unsigned int first = FnLog::sNextCallNumber;
    ovtest::StderrCapture capture;
    {
        FnLog outer(5, "a.cpp", 10, "outer");
        { FnLog inner(5, "a.cpp", 11, "inner"); }
    }
    std::string one = std::to_string(first), two = std::to_string(first + 1);
    EXPECT_EQ(capture.text(), "{5} a.cpp:10, outer()\tIN : " + one + "\n" +
                                  "{5} a.cpp:11, inner()\t  IN : " + two + "\n" +
                                  "{5} a.cpp:11, inner()\t  OUT: " + two + "\n" +
                                  "{5} a.cpp:10, outer()\tOUT: " + one + "\n");
    EXPECT_EQ(FnLog::sDepth, 0);
}

TEST(FnLog, LineShapesCarryTheSourceBaseName) {
    EXPECT_STREQ(ovBaseName("timer/ThreadTimer.cpp"), "ThreadTimer.cpp");
    EXPECT_STREQ(ovBaseName("plain.cpp"), "plain.cpp");
    ovtest::StderrCapture capture;
    int line = __LINE__ + 1;
    OV_LOG(3, "magic error(%c,%c)\n", 'a', 'b');
    OV_LOG_NOFUNC(2, "no function\n\n");
    std::string expected = "{3} FnLogTest.cpp:" + std::to_string(line) +
                           ", TestBody()\tmagic error(a,b)\n" +
                           "{2} FnLogTest.cpp:" + std::to_string(line + 1) + "\tno function\n\n";
    EXPECT_EQ(capture.text(), expected);
}

} // namespace
