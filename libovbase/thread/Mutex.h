// Mutex: a recursive lock with an optional time-out, built from a POSIX mutex that guards
// the hold count and owner, and a condition that waiters sleep on.
#ifndef OVBASE_THREAD_MUTEX_H
#define OVBASE_THREAD_MUTEX_H

#include <pthread.h>

class Mutex {
public:
    // LOCKED true takes the internal guard itself, so every later lock() and unlock()
    // blocks on it for good. Kept as it is; every user passes false.
    explicit Mutex(bool locked = false);
    virtual ~Mutex();

    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    // Waits while another thread holds the lock: TIMEOUTMS -1 without limit, otherwise up to
    // that many milliseconds after each wake-up. False on time-out. Recursive for the owner.
    bool lock(long timeoutMs = -1);
    // One release of the hold; does not check the owner.
    void unlock();

private:
    pthread_mutex_t mGuard;
    pthread_cond_t mCondition;
    int mCount;
    pthread_t mOwner;
};

#endif
