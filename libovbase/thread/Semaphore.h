// Semaphore: a count with waits that may time out. Built for the initial count 1, with
// which each wait blocks until a notify that comes after the preceding wait (unless notify
// was called more often than wait).
#ifndef OVBASE_THREAD_SEMAPHORE_H
#define OVBASE_THREAD_SEMAPHORE_H

#include <pthread.h>

class Semaphore {
public:
    explicit Semaphore(int count);
    ~Semaphore();

    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    // TIMEOUTMS below 1 waits without limit and returns true; otherwise timedWait().
    bool wait(int timeoutMs = 0);
    // Waits up to TIMEOUTMS / 1000 whole seconds (the remainder is dropped); false on
    // time-out, with the count as before. Writes a "millisecs:" line to standard output.
    bool timedWait(int timeoutMs);
    void notify();
    // Loops while the number of counted waiters is positive, which it never stops being
    // once a waiter has been counted; nothing in the library calls it.
    void notifyAll();

private:
    int mWaiters;
    int mCount;
    pthread_mutex_t mMutex;
    pthread_cond_t mCondition;
};

#endif
