#include "thread/Mutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
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

} // namespace
