#include "thread/Semaphore.h"

#include <cerrno>
#include <cstdio>
#include <sys/time.h>

Semaphore::Semaphore(int count) : mWaiters(0), mCount(count) {
    pthread_mutex_init(&mMutex, nullptr);
    pthread_cond_init(&mCondition, nullptr);
}

Semaphore::~Semaphore() {
    pthread_mutex_destroy(&mMutex);
    pthread_cond_destroy(&mCondition);
}

bool Semaphore::wait(int timeoutMs) {
    if (timeoutMs >= 1)
        return timedWait(timeoutMs);
    pthread_mutex_lock(&mMutex);
    --mCount;
    while (mCount < 1) {
        ++mWaiters;
        pthread_cond_wait(&mCondition, &mMutex);
    }
    pthread_mutex_unlock(&mMutex);
    return true;
}

bool Semaphore::timedWait(int timeoutMs) {
    pthread_mutex_lock(&mMutex);
    timeval now;
    gettimeofday(&now, nullptr);
    timespec deadline;
    deadline.tv_sec = now.tv_sec + timeoutMs / 1000;
    deadline.tv_nsec = now.tv_usec * 1000;
    // One formatted write, so that a line from another thread cannot land inside it.
    std::printf("millisecs:%dsec:%ld,nsec:%ld\n", timeoutMs, static_cast<long>(deadline.tv_sec),
                static_cast<long>(deadline.tv_nsec));
    std::fflush(stdout);
    --mCount;
    while (mCount < 1) {
        if (pthread_cond_timedwait(&mCondition, &mMutex, &deadline) == ETIMEDOUT) {
            ++mCount;
            pthread_mutex_unlock(&mMutex);
            return false;
        }
    }
    pthread_mutex_unlock(&mMutex);
    return true;
}

void Semaphore::notify() {
    pthread_mutex_lock(&mMutex);
    --mWaiters;
    ++mCount;
    pthread_mutex_unlock(&mMutex);
    pthread_cond_signal(&mCondition);
}

void Semaphore::notifyAll() {
    for (;;) {
        pthread_mutex_lock(&mMutex);
        bool waiting = mWaiters > 0;
        pthread_mutex_unlock(&mMutex);
        if (!waiting)
            return;
        notify();
        pthread_mutex_lock(&mMutex);
        ++mWaiters;
        pthread_mutex_unlock(&mMutex);
    }
}
