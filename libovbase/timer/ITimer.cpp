#include "timer/ITimer.h"

#include "timer/ThreadTimer.h"
#include "types/FnLog.h"

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
    return TimerMgr::instance()->process(timerId);
}

TimerMgr::TimerMgr() : mNextTimerId(2) {}

PtrRef<TimerMgr> TimerMgr::instance() {
    if (mInstance == nullptr)
        mInstance = PtrRef<TimerMgr>(new TimerMgr());
    return mInstance;
}

int TimerMgr::addTimer(unsigned int seconds, PtrRef<IHandler> handler) {
    return instance()->inAddTimer(seconds, handler);
}

int TimerMgr::removeTimer(int timerId) {
    return instance()->inRemoveTimer(timerId);
}

int TimerMgr::inAddTimer(unsigned int seconds, PtrRef<IHandler> handler) {
    if (!mTimer)
        return -1;
    int timerId = mNextTimerId;
    mHandlers[timerId] = handler;
    ++mNextTimerId;
    mTimer->regist(seconds, timerId);
    return 0;
}

int TimerMgr::inRemoveTimer(int timerId) {
    if (!mTimer)
        return -1;
    return mHandlers.erase(timerId) ? 1 : 0;
}

int TimerMgr::process(int timerId) {
    OV_LOG(4, "TimerMgr::process a time out!\n");
    auto found = mHandlers.find(timerId);
    if (found == mHandlers.end()) {
        OV_LOG(3, "No file the handle:%d\n", timerId);
        return 0;
    }
    // Erased before it runs, so that every timer fires once even if the handler adds timers.
    PtrRef<IHandler> handler = found->second;
    mHandlers.erase(found);
    handler->handle();
    return 1;
}
