#include "thread/Semaphore.h"

#include "support/StderrCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
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

TEST(Semaphore, TimedWaitReportsItsDeadlineOnStandardOutput) {
    Semaphore semaphore(1);
    semaphore.notify();
    ovtest::StdoutCapture capture;
    long before = static_cast<long>(time(nullptr));
    ASSERT_TRUE(semaphore.wait(2500));
    long after = static_cast<long>(time(nullptr));
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

// Time-outs below a second drop to zero seconds, so they expire at once.
TEST(Semaphore, SubSecondTimeOutExpiresAtOnceAndKeepsTheCount) {
    Semaphore semaphore(1);
    ovtest::StdoutCapture quiet;
    auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(semaphore.wait(999));
    EXPECT_FALSE(semaphore.wait(1));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
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
