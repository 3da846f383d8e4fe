// The manager against a recording back-end. Constructing the fake makes it the back-end in
// place of the library's ThreadTimer; destroying it leaves the process with none, which is
// what the last case checks. These run after the ThreadTimer cases when the whole binary runs
// in one process.
#include "timer/ITimer.h"

#include "support/StderrCapture.h"

#include <gtest/gtest.h>

#include <regex>
#include <utility>
#include <vector>

namespace {

class FakeTimer : public ITimer {
public:
    void regist(unsigned int seconds, int timerId) override {
        mCalls.push_back(std::make_pair(seconds, timerId));
    }
    std::vector<std::pair<unsigned int, int>> mCalls;
};

struct CountingHandler : IHandler {
    explicit CountingHandler(int* runs) : mpRuns(runs) {}
    void handle() override { ++*mpRuns; }
    int* mpRuns;
};

// Numbering is process-wide, so it is checked in a fresh process.
TEST(TimerMgr, FirstTimerOfTheProcessIsNumberTwo) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            FakeTimer fake;
            int runs = 0;
            TimerMgr::addTimer(5, new CountingHandler(&runs));
            std::exit(fake.mCalls.size() == 1 && fake.mCalls[0].second == 2 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(TimerMgr, ProcessRunsAHandlerOnceAndARemovedOneNever) {
    FakeTimer fake;
    int runs = 0;
    ASSERT_EQ(TimerMgr::addTimer(3, new CountingHandler(&runs)), 0);
    ASSERT_EQ(TimerMgr::addTimer(3, new CountingHandler(&runs)), 0);
    int id = fake.mCalls[0].second, removed = fake.mCalls[1].second;
    EXPECT_EQ(TimerMgr::removeTimer(removed), 1);
    EXPECT_EQ(TimerMgr::removeTimer(removed), 0);
    EXPECT_EQ(TimerMgr::removeTimer(removed + 100), 0);

    ovtest::StderrCapture capture;
    EXPECT_EQ(fake.process(removed), 0);
    EXPECT_EQ(runs, 0);
    EXPECT_EQ(fake.process(id), 1);
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(fake.process(id), 0);
    EXPECT_EQ(runs, 1);

    const std::string timeOut =
        "\\{4\\} ITimer\\.cpp:\\d+, process\\(\\)\tTimerMgr::process a time out!\n";
    const std::string missing = "\\{3\\} ITimer\\.cpp:\\d+, process\\(\\)\tNo file the handle:";
    std::regex lines(timeOut + missing + std::to_string(removed) + "\n" + timeOut + timeOut +
                     missing + std::to_string(id) + "\n");
    std::string text = capture.text();
    EXPECT_TRUE(std::regex_match(text, lines)) << text;
}

TEST(TimerMgr, NumbersFollowEachOtherAndNeedABackEnd) {
    int runs = 0;
    int first;
    {
        FakeTimer fake;
        ASSERT_EQ(TimerMgr::addTimer(3, new CountingHandler(&runs)), 0);
        ASSERT_EQ(TimerMgr::addTimer(70, new CountingHandler(&runs)), 0);
        ASSERT_EQ(fake.mCalls.size(), 2u);
        first = fake.mCalls[0].second;
        EXPECT_EQ(fake.mCalls[0].first, 3u);
        EXPECT_EQ(fake.mCalls[1], std::make_pair(70u, first + 1));
    }
    EXPECT_EQ(TimerMgr::addTimer(3, new CountingHandler(&runs)), -1);
    EXPECT_EQ(TimerMgr::removeTimer(first), -1);

    // The refused timer took no number.
    FakeTimer next;
    ASSERT_EQ(TimerMgr::addTimer(3, new CountingHandler(&runs)), 0);
    EXPECT_EQ(next.mCalls[0].second, first + 2);
    EXPECT_EQ(runs, 0);
}

} // namespace
