#include "thread/Mutex.h"

#include <cerrno>
#include <sys/time.h>

namespace {

// Wall-clock now plus TIMEOUTMS, at microsecond resolution.
timespec deadlineAfter(long timeoutMs) {
    timeval now;
    gettimeofday(&now, nullptr);
    long sec = now.tv_sec + timeoutMs / 1000;
    long usec = now.tv_usec + (timeoutMs % 1000) * 1000;
    if (usec > 999999) {
        sec += usec / 1000000;
        usec %= 1000000;
    }
    timespec deadline;
    deadline.tv_sec = sec;
    deadline.tv_nsec = usec * 1000;
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
