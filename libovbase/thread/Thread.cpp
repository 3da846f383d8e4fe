#include "thread/Thread.h"

#include <csignal>
#include <ctime>

namespace {

// The thread is handed the handler itself rather than its PThread, so it never reads the
// PThread, which its owner may release while the thread runs.
void* runHandler(void* handler) {
    if (handler)
        static_cast<IHandler*>(handler)->handle();
    return nullptr;
}

} // namespace

Thread::~Thread() {}

void Thread::sleep(int ms) {
    timespec delay;
    delay.tv_sec = ms / 1000;
    delay.tv_nsec = (ms % 1000) * 1000000L;
    nanosleep(&delay, nullptr);
}

PtrRef<Thread> Thread::createThread() {
    return PtrRef<Thread>(new PThread());
}

PThread::PThread() : mThreadId(), mSuspended(false), mSuspendLock(false), mCreated(1) {}

PThread::~PThread() {}

bool PThread::create(PtrRef<IHandler> handler, bool detach) {
    mHandler = handler;
    bool started = pthread_create(&mThreadId, nullptr, runHandler, mHandler.get()) == 0;
    if (started && detach)
        pthread_detach(mThreadId);
    mCreated.notify();
    return started;
}

// The calls below need a started thread: glibc dereferences the identifier.
void PThread::destroy() {
    if (mThreadId)
        pthread_cancel(mThreadId);
}

void PThread::suspend() {
    mSuspendLock.lock(-1);
    if (!mSuspended && mThreadId) {
        pthread_kill(mThreadId, SIGSTOP);
        mSuspended = true;
    }
    mSuspendLock.unlock();
}

void PThread::resume() {
    mSuspendLock.lock(-1);
    if (mSuspended) {
        pthread_kill(mThreadId, SIGCONT);
        mSuspended = false;
    }
    mSuspendLock.unlock();
}

void PThread::join() {
    if (mThreadId)
        pthread_join(mThreadId, nullptr);
}
