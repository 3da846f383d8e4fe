#include "timer/ITimer.h"

#include "timer/ThreadTimer.h"
#include "types/FnLog.h"

#include <utility>

PtrRef<TimerMgr> TimerMgr::mInstance;
ITimer* TimerMgr::mTimer = nullptr;

// The library's timer back-end, started when the library is loaded. It is defined after the
// manager's statics so that it is torn down before them: once its destructor has run, the
// timer thread no longer reaches the manager.
static ThreadTimer sThreadTimer;

ITimer::ITimer() {
    TimerMgr::mTimer = this;
}

ITimer::~ITimer() {
    TimerMgr::mTimer = nullptr;
}

int ITimer::process(int timerId) {
    return TimerMgr::manager().process(timerId);
}

TimerMgr::TimerMgr() : mNextTimerId(2) {}

// The library's own calls reach the manager without copying mInstance: its count is not
// thread-safe, and the timer thread calls in while callers add and remove timers.
TimerMgr& TimerMgr::manager() {
    if (mInstance == nullptr)
        mInstance = PtrRef<TimerMgr>(new TimerMgr());
    return *mInstance;
}

PtrRef<TimerMgr> TimerMgr::instance() {
    manager();
    return mInstance;
}

int TimerMgr::addTimer(unsigned int seconds, PtrRef<IHandler> handler) {
    return manager().inAddTimer(seconds, std::move(handler));
}

int TimerMgr::removeTimer(int timerId) {
    return manager().inRemoveTimer(timerId);
}

int TimerMgr::inAddTimer(unsigned int seconds, PtrRef<IHandler> handler) {
    if (!mTimer)
        return -1;
    int timerId;
    {
        std::lock_guard<std::mutex> hold(mLock);
        timerId = mNextTimerId;
        mHandlers[timerId] = std::move(handler);
        ++mNextTimerId;
    }
    // Outside the map's lock: the timer thread holds the list lock when it takes this one.
    mTimer->regist(seconds, timerId);
    return 0;
}

int TimerMgr::inRemoveTimer(int timerId) {
    if (!mTimer)
        return -1;
    std::lock_guard<std::mutex> hold(mLock);
    return mHandlers.erase(timerId) ? 1 : 0;
}

int TimerMgr::process(int timerId) {
    OV_LOG(4, "TimerMgr::process a time out!\n");
    PtrRef<IHandler> handler;
    {
        std::lock_guard<std::mutex> hold(mLock);
        auto found = mHandlers.find(timerId);
        if (found != mHandlers.end()) {
            // Erased before it runs, so that every timer fires once.
            handler = std::move(found->second);
            mHandlers.erase(found);
        }
    }
    if (handler == nullptr) {
        OV_LOG(3, "No file the handle:%d\n", timerId);
        return 0;
    }
    // Run without the map's lock, so that the handler may add and remove timers.
    handler->handle();
    return 1;
}
