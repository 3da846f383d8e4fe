// The two waits other threads block on: the recursive mutex and the counting semaphore.
#include "thread/Mutex.h"
#include "thread/Semaphore.h"

#include "support/StderrCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <regex>
#include <string>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

namespace {

// Whether another thread gets the lock within TIMEOUTMS (released again at once).
bool otherThreadLocks(Mutex& mutex, long timeoutMs) {
    bool got = false;
    std::thread other([&] {
        got = mutex.lock(timeoutMs);
        if (got)
            mutex.unlock();
    });
    other.join();
    return got;
}

TEST(Mutex, OwnerMayRelockAndOthersWaitForEveryUnlock) {
    Mutex mutex(false);
    ASSERT_TRUE(mutex.lock(-1));
    ASSERT_TRUE(mutex.lock(0));
    EXPECT_FALSE(otherThreadLocks(mutex, 0));
    mutex.unlock();
    EXPECT_FALSE(otherThreadLocks(mutex, 0));
    // A lock without limit waits until the owner releases.
    std::atomic<bool> acquired(false);
    std::thread waiter([&] {
        acquired = mutex.lock(-1);
        mutex.unlock();
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(acquired);
    mutex.unlock();
    waiter.join();
    EXPECT_TRUE(acquired);
}

// Only -1 waits without limit: any other negative time-out sets a deadline in the past and
// gives up at once, a positive one after its time.
TEST(MutexSlow, TimedLockAgainstAnotherOwnerGivesUpAfterTheTimeOut) {
    Mutex mutex(false);
    ASSERT_TRUE(mutex.lock(-1));
    std::chrono::duration<double> waited{};
    std::thread other([&] {
        EXPECT_FALSE(mutex.lock(-999));
        EXPECT_FALSE(mutex.lock(-5000));
        auto start = std::chrono::steady_clock::now();
        EXPECT_FALSE(mutex.lock(1500));
        waited = std::chrono::steady_clock::now() - start;
    });
    other.join();
    EXPECT_GE(waited.count(), 1.45);
    EXPECT_LT(waited.count(), 3.0);
    mutex.unlock();
}

// Mutex(true) holds the internal guard, so even a lock with a zero time-out never returns.
// Checked in a child process that an alarm ends.
TEST(MutexSlow, ConstructedLockedBlocksEveryLock) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            Mutex trap(true);
            alarm(1);
            trap.lock(0);
            _exit(0);
        },
        testing::KilledBySignal(SIGALRM), "");
}

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
    // One line per wait; the deadline's nanoseconds are whole microseconds below a second.
    const std::string deadline = "sec:(\\d+),nsec:(0|[1-9]\\d{0,5}000)\n";
    const std::string text = capture.text();
    std::smatch match;
    ASSERT_TRUE(std::regex_match(text, match,
                                 std::regex("millisecs:999" + deadline + "millisecs:1" + deadline +
                                            "millisecs:2500" + deadline)))
        << text;
    const int wholeSeconds[] = {0, 0, 2};
    for (int i = 0; i < 3; ++i) {
        long long called = (std::stoll(match[1 + 2 * i]) - wholeSeconds[i]) * 1000000LL +
                           std::stoll(match[2 + 2 * i]) / 1000;
        EXPECT_GE(called, before) << text;
        EXPECT_LE(called, after) << text;
    }
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
