#include "thread/Mutex.h"

#include <cerrno>
#include <sys/time.h>

namespace {

// Wall-clock now plus TIMEOUTMS, at microsecond resolution. Counted in microseconds so that
// a negative time-out gives a valid deadline in the past rather than negative nanoseconds,
// which the timed wait refuses at once, so that the lock would spin instead of waiting.
timespec deadlineAfter(long timeoutMs) {
    timeval now;
    gettimeofday(&now, nullptr);
    long long usec = now.tv_sec * 1000000LL + now.tv_usec + timeoutMs * 1000LL;
    timespec deadline;
    deadline.tv_sec = static_cast<time_t>(usec / 1000000);
    deadline.tv_nsec = static_cast<long>(usec % 1000000) * 1000;
    return deadline;
}

} // namespace

Mutex::Mutex(bool locked) : mCount(0), mOwner() {
    int rc = pthread_mutex_init(&mGuard, nullptr);
    pthread_cond_init(&mCondition, nullptr);
    if (locked && rc == 0)
        pthread_mutex_lock(&mGuard);
}

Mutex::~Mutex() {
    pthread_mutex_destroy(&mGuard);
    pthread_cond_destroy(&mCondition);
}

bool Mutex::lock(long timeoutMs) {
    pthread_mutex_lock(&mGuard);
    pthread_t self = pthread_self();
    while (mCount != 0 && !pthread_equal(mOwner, self)) {
        if (timeoutMs == -1) {
            pthread_cond_wait(&mCondition, &mGuard);
            continue;
        }
        // A wake-up that finds the lock still held starts the full time-out again.
        timespec deadline = deadlineAfter(timeoutMs);
        if (pthread_cond_timedwait(&mCondition, &mGuard, &deadline) == ETIMEDOUT) {
            pthread_mutex_unlock(&mGuard);
            return false;
        }
    }
    ++mCount;
    mOwner = self;
    pthread_mutex_unlock(&mGuard);
    return true;
}

void Mutex::unlock() {
    pthread_mutex_lock(&mGuard);
    int count = --mCount;
    pthread_mutex_unlock(&mGuard);
    if (count == 0)
        pthread_cond_signal(&mCondition);
}
