// The timers. First the library's timer thread on real time: each case waits out at least one
// five-second sleep of the thread, and timer numbers are read from the registration
// diagnostics, not assumed. Then the manager against a fake back-end.
#include "timer/ThreadTimer.h"
#include "timer/ITimer.h"

#include "support/StderrCapture.h"
#include "support/Wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <pthread.h>
#include <regex>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

struct Firing {
    std::string tag;
    Clock::time_point at;
    pthread_t thread;
};

// What the timer thread ran, for the test thread to wait on.
struct Firings {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Firing> list;

    void add(const char* tag) {
        std::lock_guard<std::mutex> hold(mutex);
        list.push_back(Firing{tag, Clock::now(), pthread_self()});
        changed.notify_all();
    }
    // A copy of the list once it has COUNT entries, or as it is after TIMEOUT.
    std::vector<Firing> waitFor(size_t count, std::chrono::seconds timeout) {
        std::unique_lock<std::mutex> hold(mutex);
        changed.wait_for(hold, timeout, [&] { return list.size() >= count; });
        return list;
    }
};

// Handlers are freed without a destructor, so they hold only plain pointers.
struct RecordingHandler : IHandler {
    RecordingHandler(Firings* firings, const char* tag) : mpFirings(firings), mpTag(tag) {}
    void handle() override { mpFirings->add(mpTag); }
    Firings* mpFirings;
    const char* mpTag;
};

double secondsBetween(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration<double>(to - from).count();
}

// The timer number of the latest registration with DELAY in the diagnostics, or -1.
int registeredNumber(const std::string& text, unsigned int delay) {
    std::regex line("ThreadTimer::regist:" + std::to_string(delay) + ", (\\d+)\\.\n\n");
    int number = -1;
    for (std::sregex_iterator it(text.begin(), text.end(), line), end; it != end; ++it)
        number = std::stoi((*it)[1].str());
    return number;
}

// A removed timer still wakes the thread but finds no handler; a zero delay is never set.
TEST(ThreadTimerSlow, EqualDelaysFireInRegistrationOrderInOnePassAfterTheSleep) {
    Firings firings;
    ovtest::StderrCapture capture;
    Clock::time_point start = Clock::now();
    ASSERT_EQ(TimerMgr::addTimer(3, new RecordingHandler(&firings, "first")), 0);
    ASSERT_EQ(TimerMgr::addTimer(3, new RecordingHandler(&firings, "second")), 0);
    ASSERT_EQ(TimerMgr::addTimer(2, new RecordingHandler(&firings, "removed")), 0);
    ASSERT_EQ(TimerMgr::addTimer(0, new RecordingHandler(&firings, "never")), 0);
    int removed = registeredNumber(capture.text(), 2);
    ASSERT_GT(removed, 0);
    ASSERT_EQ(TimerMgr::removeTimer(removed), 1);

    std::vector<Firing> fired = firings.waitFor(2, std::chrono::seconds(15));
    ASSERT_EQ(fired.size(), 2u);
    EXPECT_EQ(fired[0].tag, "first");
    EXPECT_EQ(fired[1].tag, "second");
    // Woken by the registration, the thread sleeps five seconds before it fires.
    double after = secondsBetween(start, fired[0].at);
    EXPECT_GE(after, 4.9);
    EXPECT_LT(after, 9.0);
    EXPECT_FALSE(pthread_equal(fired[0].thread, pthread_self()));
    EXPECT_TRUE(pthread_equal(fired[0].thread, fired[1].thread));

    // One pass: no wait of the thread between the two firings.
    std::string text = capture.text();
    int firstId = registeredNumber(text, 3);
    ASSERT_GT(firstId, 0);
    size_t one = text.find("ThreadTimer got a new time out:" + std::to_string(firstId - 1) + "!");
    size_t two = text.find("ThreadTimer got a new time out:" + std::to_string(firstId) + "!");
    ASSERT_NE(one, std::string::npos) << text;
    ASSERT_NE(two, std::string::npos) << text;
    EXPECT_EQ(text.find("Waiting", one), text.find("Waiting", two)) << text;
    EXPECT_EQ(registeredNumber(text, 0), -1);
    EXPECT_TRUE(capture.has("No file the handle:" + std::to_string(removed) + "\n")) << text;

    // The zero-delay timer stays stored but is never due.
    EXPECT_EQ(firings.waitFor(3, std::chrono::seconds(1)).size(), 2u);
}

// Runs on the timer thread with the list locked, and registers follow-ups from there: "soon"
// after SOON seconds and, unless LATE is 0, "late" after LATE; *RESULT is 0 when both were set.
struct ChainingHandler : IHandler {
    ChainingHandler(Firings* firings, const char* tag, unsigned soon, unsigned late,
                    std::atomic<int>* result)
        : mpFirings(firings), mpTag(tag), mSoon(soon), mLate(late), mpResult(result) {}
    void handle() override {
        mpFirings->add(mpTag);
        int rc = TimerMgr::addTimer(mSoon, new RecordingHandler(mpFirings, "soon"));
        if (mLate)
            rc |= TimerMgr::addTimer(mLate, new RecordingHandler(mpFirings, "late"));
        *mpResult = rc;
    }
    Firings* mpFirings;
    const char* mpTag;
    unsigned mSoon, mLate;
    std::atomic<int>* mpResult;
};

// Follow-ups due within the five-second window of the current pass fire in it; later ones
// after the next sleep.
TEST(ThreadTimerSlow, HandlerMayAddTimersThatThenFire) {
    Firings firings;
    std::atomic<int> result(-2);
    std::vector<Firing> fired;
    {
        ovtest::StderrCapture quiet;
        ovtest::StdoutCapture quietOut;
        ASSERT_EQ(TimerMgr::addTimer(1, new ChainingHandler(&firings, "outer", 1, 7, &result)), 0);
        fired = firings.waitFor(3, std::chrono::seconds(25));
    }
    ASSERT_EQ(fired.size(), 3u);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(fired[0].tag, "outer");
    EXPECT_EQ(fired[1].tag, "soon");
    EXPECT_EQ(fired[2].tag, "late");
    // Due within five seconds: fired in the same pass.
    EXPECT_LT(secondsBetween(fired[0].at, fired[1].at), 1.0);
    // Not yet due: the registration's wake-up is followed by the sleep, then it counts as due.
    double late = secondsBetween(fired[0].at, fired[2].at);
    EXPECT_GE(late, 4.9);
    EXPECT_LT(late, 9.0);
}

// After each firing the head of the list is removed, whichever seed it is. Fired early (due
// within the five-second window), a handler registers a two-second follow-up that sorts before
// its own seed: the follow-up goes in its place, and the early seed fires again and finds no
// handler.
TEST(ThreadTimerSlow, FiringRemovesTheHeadEvenWhenTheHandlerAddedIt) {
    Firings firings;
    std::atomic<int> result(-2);
    ovtest::StderrCapture capture;
    ovtest::StdoutCapture quietOut;
    ASSERT_EQ(TimerMgr::addTimer(1, new RecordingHandler(&firings, "first")), 0);
    ASSERT_EQ(TimerMgr::addTimer(9, new ChainingHandler(&firings, "early", 2, 0, &result)), 0);
    ASSERT_EQ(firings.waitFor(2, std::chrono::seconds(15)).size(), 2u);

    // Until the early seed came round again, found no handler, and the list was left empty.
    std::string early, text;
    ASSERT_TRUE(ovtest::waitUntil([&] {
        text = capture.text();
        early = std::to_string(registeredNumber(text, 9));
        size_t missing = text.find("No file the handle:" + early + "\n");
        return missing != std::string::npos &&
               text.find("Waiting -1 seconds!", missing) != std::string::npos;
    })) << text;
    std::string fired = "ThreadTimer got a new time out:" + early + "!";
    size_t once = text.find(fired);
    ASSERT_NE(once, std::string::npos) << text;
    EXPECT_NE(text.find(fired, once + 1), std::string::npos) << text;

    // The follow-up's seed is gone though its handler is still stored.
    int followUp = registeredNumber(text, 2);
    ASSERT_GT(followUp, 0) << text;
    EXPECT_EQ(text.find("ThreadTimer got a new time out:" + std::to_string(followUp) + "!"),
              std::string::npos);
    EXPECT_EQ(TimerMgr::removeTimer(followUp), 1);
    EXPECT_EQ(firings.waitFor(3, std::chrono::seconds(0)).size(), 2u);
}

// Exit with timers pending, with the thread waiting for a due time and while it sleeps
// after a wake-up: the process must end normally and at once. Checked in a child process.
TEST(ThreadTimerSlow, ExitWithPendingTimersEndsCleanly) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            static Firings firings;
            TimerMgr::addTimer(100, new RecordingHandler(&firings, "late"));
            TimerMgr::addTimer(1, new RecordingHandler(&firings, "soon"));
            std::this_thread::sleep_for(std::chrono::milliseconds(500));
            std::exit(firings.list.empty() ? 7 : 1);
        },
        testing::ExitedWithCode(7), "");
}

// A handler that signals the test and then takes a while.
struct SlowHandler : IHandler {
    explicit SlowHandler(std::atomic<bool>* started) : mpStarted(started) {}
    void handle() override {
        *mpStarted = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    }
    std::atomic<bool>* mpStarted;
};

bool gForkedChild = false;

} // namespace

// The leak checker of a sanitizer build asks this at exit. A forked child cannot see the stack
// of the parent's timer thread, so the handle held there would look leaked.
extern "C" int __lsan_is_turned_off() {
    return gForkedChild ? 1 : 0;
}

namespace {

// A child forked while a handler runs has the list locked by a timer thread it does not have;
// its exit must not wait for that lock (the child is ended by an alarm if it does). The
// parent then exits while the handler still runs: the teardown waits for it and ends.
TEST(ThreadTimerSlow, ForkedChildExitsWhileTheParentsHandlerRuns) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            static std::atomic<bool> started(false);
            TimerMgr::addTimer(1, new SlowHandler(&started));
            while (!started)
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            pid_t child = fork();
            if (child == 0) {
                gForkedChild = true;
                alarm(3);
                std::exit(0);
            }
            int status = 0;
            waitpid(child, &status, 0);
            std::exit(WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 7 : 1);
        },
        testing::ExitedWithCode(7), "");
}

// A ThreadTimer of its own, torn down at once: the thread may not have started yet.
TEST(ThreadTimer, BackEndTornDownRightAfterStartIsSafe) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            for (int round = 0; round < 50; ++round) {
                ThreadTimer* timer = new ThreadTimer();
                timer->regist(round % 3, round);
                delete timer;
            }
            int refused = TimerMgr::addTimer(1, nullptr);
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            std::exit(refused == -1 ? 7 : 1);
        },
        testing::ExitedWithCode(7), "");
}

// The manager against a recording back-end. Constructing the fake makes it the back-end in
// place of the library's ThreadTimer; destroying it leaves the process with none. These run
// after the ThreadTimer cases above when the whole binary runs in one process.

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
