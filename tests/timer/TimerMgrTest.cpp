// The manager against a recording back-end. Constructing the fake makes it the back-end in
// place of the library's ThreadTimer; destroying it leaves the process with none. These run
// after the ThreadTimer cases when the whole binary runs in one process.
#include "timer/ITimer.h"

#include "support/StderrCapture.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <utility>
#include <vector>

namespace {

// A registration: the delay and the timer's number.
using Call = std::pair<unsigned int, int>;

class FakeTimer : public ITimer {
public:
    void regist(unsigned int seconds, int timerId) override {
        mCalls.push_back(std::make_pair(seconds, timerId));
    }
    std::vector<Call> mCalls;
};

struct CountingHandler : IHandler {
    explicit CountingHandler(int* runs) : mpRuns(runs) {}
    void handle() override { ++*mpRuns; }
    int* mpRuns;
};

// Numbering is process-wide, so it is checked in a fresh process, which reports the numbers
// and results: the first timer is number 2 and the next follow; without a back-end a timer is
// refused and takes no number, and removing one gives -1.
TEST(TimerMgr, NumbersStartAtTwoFollowEachOtherAndNeedABackEnd) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            int runs = 0;
            std::vector<Call> calls;
            {
                FakeTimer fake;
                TimerMgr::addTimer(3, new CountingHandler(&runs));
                TimerMgr::addTimer(70, new CountingHandler(&runs));
                calls = fake.mCalls;
            }
            int refused = TimerMgr::addTimer(3, new CountingHandler(&runs));
            int removed = TimerMgr::removeTimer(2);
            FakeTimer next;
            TimerMgr::addTimer(3, new CountingHandler(&runs));
            calls.insert(calls.end(), next.mCalls.begin(), next.mCalls.end());
            std::fprintf(stderr, "numbers:");
            for (const Call& call : calls)
                std::fprintf(stderr, " %us:%d", call.first, call.second);
            std::fprintf(stderr, ", without: %d %d, runs %d\n", refused, removed, runs);
            std::exit(0);
        },
        testing::ExitedWithCode(0), "numbers: 3s:2 70s:3 3s:4, without: -1 -1, runs 0\n");
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

} // namespace
