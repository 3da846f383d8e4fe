// ThreadTimer: the timer back-end that runs one timer thread. Seeds are kept in due-time
// order; after every wake-up the thread sleeps five seconds, then fires, with the list locked,
// every seed due within the next five seconds. The thread names itself "ThreadTimer".
#ifndef OVBASE_TIMER_THREADTIMER_H
#define OVBASE_TIMER_THREADTIMER_H

#include "thread/Mutex.h"
#include "thread/PtrRef.h"
#include "thread/Semaphore.h"
#include "thread/Thread.h"
#include "timer/ITimer.h"
#include "types/ovTypes.h"

#include <atomic>
#include <list>
#include <memory>
#include <sys/types.h>

class ThreadTimer : public ITimer {
public:
    struct TimerSeed {
        ovTypes::Time mTime;
        int mTimerId;
    };

    // Registers as the back-end and starts the timer thread.
    ThreadTimer();
    // Stops the loop without joining the thread.
    ~ThreadTimer() override;

    ThreadTimer(const ThreadTimer&) = delete;
    ThreadTimer& operator=(const ThreadTimer&) = delete;

    void regist(unsigned int seconds, int timerId) override;

private:
    // Everything the timer thread touches. The thread holds a reference of its own, so the
    // list, its lock and the semaphore stay alive until the thread has left them even when
    // the ThreadTimer is torn down first (at library unload the thread may be asleep or in a
    // handler).
    class Loop {
    public:
        explicit Loop(ThreadTimer* owner);
        void run();
        void handleTimeout();

        // Valid while mRunning is set: the owner clears it, under mMutex, as it is torn down.
        ThreadTimer* mpOwner;
        std::list<TimerSeed> mList;
        Mutex mMutex;
        Semaphore mSemaphore;
        std::atomic<bool> mRunning;
        std::atomic<bool> mStarted;       // the thread has entered run()
        std::shared_ptr<Loop> mThreadRef; // handed to the thread when it starts
    };

    std::shared_ptr<Loop> mpLoop;
    PtrRef<Thread> mThread;
    pid_t mPid; // the process the thread runs in
};

#endif
