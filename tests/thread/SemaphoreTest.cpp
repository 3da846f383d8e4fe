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

// The seconds are compared on the deadline's own clock: time() reads a coarser clock that can
// still show the last second just after the deadline's clock has passed into the next.
TEST(Semaphore, TimedWaitReportsItsDeadlineOnStandardOutput) {
    Semaphore semaphore(1);
    semaphore.notify();
    ovtest::StdoutCapture capture;
    long before = static_cast<long>(wallMicros() / 1000000);
    ASSERT_TRUE(semaphore.wait(2500));
    long after = static_cast<long>(wallMicros() / 1000000);
    std::string line = capture.text();

    const std::string head = "millisecs:2500sec:";
    ASSERT_EQ(line.compare(0, head.size(), head), 0) << line;
    size_t comma = line.find(",nsec:");
    ASSERT_NE(comma, std::string::npos) << line;
    ASSERT_EQ(line.back(), '\n');
    long sec = std::stol(line.substr(head.size(), comma - head.size()));
    long nsec = std::stol(line.substr(comma + 6));
    // Whole seconds only: 2500 ms gives a deadline two seconds ahead.
    EXPECT_GE(sec, before + 2);
    EXPECT_LE(sec, after + 2);
    EXPECT_EQ(nsec % 1000, 0); // microsecond clock
    EXPECT_LT(nsec, 1000000000L);
}

// Time-outs below a second drop to zero seconds: the deadline each wait reports is the moment
// of the call itself, so it has passed already and the wait expires at once.
TEST(Semaphore, SubSecondTimeOutExpiresAtOnceAndKeepsTheCount) {
    Semaphore semaphore(1);
    ovtest::StdoutCapture capture;
    long long before = wallMicros();
    EXPECT_FALSE(semaphore.wait(999));
    EXPECT_FALSE(semaphore.wait(1));
    long long after = wallMicros();
    std::istringstream lines(capture.text());
    std::string line;
    int seen = 0;
    while (std::getline(lines, line)) {
        long sec = 0, nsec = 0;
        int ms = 0;
        ASSERT_EQ(std::sscanf(line.c_str(), "millisecs:%dsec:%ld,nsec:%ld", &ms, &sec, &nsec), 3)
            << line;
        long long deadline = sec * 1000000LL + nsec / 1000;
        EXPECT_GE(deadline, before) << line;
        EXPECT_LE(deadline, after) << line;
        // Nothing of the 999 ms is left in the deadline (the reading before the call is at most
        // a lock away from the one the deadline was taken from).
        EXPECT_LT(deadline - before, 999000) << line;
        ++seen;
    }
    EXPECT_EQ(seen, 2);
    // The count was restored after each time-out, so one notify is enough again.
    semaphore.notify();
    EXPECT_TRUE(semaphore.wait(999));
}

TEST(Semaphore, NotifyAllWithoutCountedWaitersDoesNothing) {
    Semaphore semaphore(1);
    semaphore.notifyAll();
    ovtest::StdoutCapture quiet;
    EXPECT_FALSE(semaphore.wait(500)); // no count was added
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
