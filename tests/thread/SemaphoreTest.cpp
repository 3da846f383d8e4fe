#include "thread/Semaphore.h"

#include "support/StderrCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <sstream>
#include <string>
#include <sys/time.h>
#include <thread>
#include <vector>

namespace {

TEST(Semaphore, WaitBlocksUntilANotifyThatFollowsIt) {
    Semaphore semaphore(1);
    semaphore.notify();
    ASSERT_TRUE(semaphore.wait(0)); // the earlier notify lets this one through

    std::atomic<bool> passed(false);
    std::thread waiter([&] {
        semaphore.wait(0);
        passed = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(passed);
    semaphore.notify();
    waiter.join();
    EXPECT_TRUE(passed);
}

// Microseconds since the epoch, on the clock the deadlines are taken from.
long long wallMicros() {
    timeval now;
    gettimeofday(&now, nullptr);
    return now.tv_sec * 1000000LL + now.tv_usec;
}

// Each timed wait reports its deadline on standard output: the whole seconds of the time-out
// added to the moment of the call, the rest dropped, so that a time-out below a second has
// passed already and expires at once. The deadlines are compared on their own clock: time()
// reads a coarser clock that can still show the last second when this one has passed it.
TEST(Semaphore, TimedWaitsReportDeadlinesInWholeSecondsAndKeepTheCount) {
    Semaphore semaphore(1);
    semaphore.notifyAll(); // without counted waiters: adds no count
    ovtest::StdoutCapture capture;
    long long before = wallMicros();
    EXPECT_FALSE(semaphore.wait(999));
    EXPECT_FALSE(semaphore.wait(1));
    semaphore.notify(); // the count was restored after each time-out, so one is enough
    EXPECT_TRUE(semaphore.wait(2500));
    long long after = wallMicros();
    std::istringstream lines(capture.text());
    std::vector<int> timeouts;
    for (std::string line; std::getline(lines, line);) {
        int ms = 0;
        long sec = 0, nsec = 0;
        char more = 0;
        ASSERT_EQ(
            std::sscanf(line.c_str(), "millisecs:%dsec:%ld,nsec:%ld%c", &ms, &sec, &nsec, &more), 3)
            << line;
        EXPECT_EQ(nsec % 1000, 0) << line; // microsecond clock
        EXPECT_LT(nsec, 1000000000L) << line;
        long long called = (sec - ms / 1000) * 1000000LL + nsec / 1000;
        EXPECT_GE(called, before) << line;
        EXPECT_LE(called, after) << line;
        timeouts.push_back(ms);
    }
    EXPECT_EQ(timeouts, (std::vector<int>{999, 1, 2500}));
    EXPECT_EQ(capture.text().back(), '\n');
}

TEST(SemaphoreSlow, WaitWithoutNotifyTimesOutInWholeSeconds) {
    Semaphore semaphore(1);
    ovtest::StdoutCapture quiet;
    auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(semaphore.wait(1500));
    std::chrono::duration<double> waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited.count(), 0.95);
    EXPECT_LT(waited.count(), 2.5);
}

} // namespace
