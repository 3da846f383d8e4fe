// One-shot timers. TimerMgr keeps the handlers by timer number; an ITimer back-end keeps
// the due times and calls process() when a timer falls due. The library's back-end is the
// process-wide ThreadTimer.
#ifndef OVBASE_TIMER_ITIMER_H
#define OVBASE_TIMER_ITIMER_H

#include "thread/Handler.h"
#include "thread/PtrRef.h"

#include <map>
#include <mutex>

class ITimer {
public:
    // A new back-end replaces the registered one; destroying it leaves none.
    ITimer();
    virtual ~ITimer();

    virtual void regist(unsigned int seconds, int timerId) = 0;

    // For back-ends: fires timer TIMERID through the manager.
    int process(int timerId);
};

// Creation of the manager is not locked, so its first use must happen on one thread. The map
// of handlers has a lock of its own, held only around the map: handlers run without it.
class TimerMgr {
public:
    static PtrRef<TimerMgr> instance();

    // HANDLER runs once on the timer thread about SECONDS from now (0: never). 0, or -1
    // without a back-end.
    static int addTimer(unsigned int seconds, PtrRef<IHandler> handler);
    // 1 when a pending handler was removed, 0 when none, -1 without a back-end.
    static int removeTimer(int timerId);

    int inAddTimer(unsigned int seconds, PtrRef<IHandler> handler);
    int inRemoveTimer(int timerId);
    // Runs and forgets the handler of TIMERID: 1, or 0 when it has none.
    int process(int timerId);

private:
    friend class ITimer;

    TimerMgr();
    static TimerMgr& manager();

    std::mutex mLock; // guards the map and the next number
    std::map<int, PtrRef<IHandler>> mHandlers;
    int mNextTimerId;

    static PtrRef<TimerMgr> mInstance;
    static ITimer* mTimer;
};

#endif
