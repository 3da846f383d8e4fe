// Thread: a thread that runs an IHandler; PThread is its POSIX implementation.
#ifndef OVBASE_THREAD_THREAD_H
#define OVBASE_THREAD_THREAD_H

#include "thread/Handler.h"
#include "thread/Mutex.h"
#include "thread/PtrRef.h"
#include "thread/Semaphore.h"

#include <pthread.h>

class Thread {
public:
    virtual ~Thread();
    // Starts a thread that calls HANDLER's handle(); false when it could not be started.
    virtual bool create(PtrRef<IHandler> handler, bool detach) = 0;
    // Cancels the thread.
    virtual void destroy() = 0;
    virtual void suspend() = 0;
    virtual void resume() = 0;
    virtual void join() = 0;

    // Sleeps MS milliseconds.
    static void sleep(int ms);
    // A new PThread.
    static PtrRef<Thread> createThread();

protected:
    PtrRef<IHandler> mHandler;
};

class PThread : public Thread {
public:
    PThread();
    // Does not join, cancel or stop the thread.
    ~PThread() override;

    bool create(PtrRef<IHandler> handler, bool detach) override;
    void destroy() override;
    // SIGSTOP and SIGCONT are process-wide signals: suspending stops every thread of the
    // process, the caller's included.
    void suspend() override;
    void resume() override;
    void join() override;

private:
    pthread_t mThreadId;
    bool mSuspended;
    Mutex mSuspendLock;
    Semaphore mCreated;
};

#endif
