#include "timer/ThreadTimer.h"

#include "types/FnLog.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <pthread.h>
#include <unistd.h>

ThreadTimer::ThreadTimer() : mpLoop(std::make_shared<Loop>(this)), mPid(getpid()) {
    OV_LOG(4, "ThreadTimer started!\n");
    mpLoop->mThreadRef = mpLoop;
    mThread = Thread::createThread();
    if (!mThread->create(new Handler<Loop>(mpLoop.get(), &Loop::run), false)) {
        mpLoop->mThreadRef.reset(); // no thread will take it
        mpLoop->mStarted = true;
    }
}

ThreadTimer::~ThreadTimer() {
    OV_LOG(4, "Someone Call ThreadTimer Destructor!\n");
    // A forked child has no timer thread: the list's lock may be held by a thread that is not
    // there, and none will start, so it neither waits for the lock nor for the start.
    bool threadHere = getpid() == mPid;
    // Taking the list's lock waits out a handler that is running; once the flag is clear
    // under it, the thread fires nothing more and so never reaches the manager again.
    if (threadHere)
        mpLoop->mMutex.lock(-1);
    mpLoop->mRunning = false;
    mpLoop->mSemaphore.notify();
    if (threadHere)
        mpLoop->mMutex.unlock();
    // Releasing the thread handle frees the handler the thread starts from; a thread that
    // has not reached run() yet still needs it.
    while (threadHere && !mpLoop->mStarted)
        Thread::sleep(1);
    mpLoop.reset();
    mThread = PtrRef<Thread>();
}

void ThreadTimer::regist(unsigned int seconds, int timerId) {
    if (seconds == 0)
        return;
    OV_LOG(4, "ThreadTimer::regist:%d, %d.\n\n", seconds, timerId);
    Loop& loop = *mpLoop;
    loop.mMutex.lock(-1);
    TimerSeed seed;
    // Due times are 32-bit seconds; a delay past their range waits until the range ends.
    long long due = static_cast<long long>(ovTypes::Time::getCurrentTime().getCount()) + seconds;
    seed.mTime = ovTypes::Time(static_cast<long>(std::min<long long>(due, INT32_MAX)));
    seed.mTimerId = timerId;
    auto place = loop.mList.begin();
    while (place != loop.mList.end() && !(place->mTime > seed.mTime))
        ++place;
    loop.mList.insert(place, seed);
    loop.mSemaphore.notify();
    loop.mMutex.unlock();
}

ThreadTimer::Loop::Loop(ThreadTimer* owner)
    : mpOwner(owner), mMutex(false), mSemaphore(1), mRunning(true), mStarted(false) {}

namespace {

// Nobody joins the timer thread (the teardown does not, and releases the thread handle), so
// it detaches itself as it leaves and its resources are reclaimed.
struct DetachOnExit {
    ~DetachOnExit() { pthread_detach(pthread_self()); }
};

} // namespace

void ThreadTimer::Loop::run() {
    DetachOnExit detach;
    std::shared_ptr<Loop> keepAlive;
    keepAlive.swap(mThreadRef);
    mStarted = true; // from here on the thread no longer needs its handler
    // Named, so that it can be told apart in ps, a debugger or /proc.
    pthread_setname_np(pthread_self(), "ThreadTimer");
    OV_LOG(4, "ThreadTimer runing!\n");
    if (!mRunning)
        return;
    for (;;) {
        mMutex.lock(-1);
        long wait = -1;
        if (!mList.empty())
            wait = mList.front().mTime.getCount() - ovTypes::Time::getCurrentTime().getCount();
        mMutex.unlock();
        OV_LOG(4, "Waiting %d seconds!\n\n", static_cast<int>(wait));
        // Waits too long for an int of milliseconds are cut short; the loop waits again.
        long long waitMs = std::min<long long>(wait * 1000LL, INT_MAX);
        if (mSemaphore.wait(static_cast<int>(waitMs)))
            OV_LOG(3, "mTimeout handle a notify event!\n");
        else
            OV_LOG(3, "mTimeout handle a time out event!\n");
        if (!mRunning) {
            OV_LOG(4, "Thread timer about!\n\n");
            return;
        }
        Thread::sleep(5000);
        mMutex.lock(-1);
        // Torn down during the sleep: the manager may be gone, so nothing more fires.
        if (mRunning)
            handleTimeout();
        mMutex.unlock();
        if (!mRunning)
            return;
    }
}

void ThreadTimer::Loop::handleTimeout() {
    while (!mList.empty()) {
        TimerSeed seed = mList.front();
        ovTypes::Time now = ovTypes::Time::getCurrentTime();
        OV_LOG(4, "The top one is:%s. Current time is:%s\n", seed.mTime.toString().c_str(),
               now.toString().c_str());
        if (seed.mTime.getCount() - 5 > now.getCount()) {
            OV_LOG(3, "No time out timer!\n");
            return;
        }
        OV_LOG(4, "ThreadTimer got a new time out:%d!\n\n", seed.mTimerId);
        mpOwner->process(seed.mTimerId);
        // The head, whatever it now is: a seed the handler registered that sorts before the
        // one just fired is dropped in its place, and the fired one comes round again and finds
        // no handler.
        mList.pop_front();
    }
}
