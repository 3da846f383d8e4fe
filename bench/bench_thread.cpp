// The thread toolkit's costs beside the standard library's: an uncontended lock and unlock of
// the recursive Mutex (and a nested one), a notify/wait pair on the Semaphore, and copying a
// PtrRef against copying a std::shared_ptr.
#include "thread/Mutex.h"
#include "thread/PtrRef.h"
#include "thread/Semaphore.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <mutex>

namespace {

void BM_MutexLockUnlock(benchmark::State& state) {
    Mutex mutex(false);
    for (auto _ : state) {
        mutex.lock(-1);
        mutex.unlock();
    }
}
BENCHMARK(BM_MutexLockUnlock);

void BM_MutexNestedLock(benchmark::State& state) {
    Mutex mutex(false);
    mutex.lock(-1);
    for (auto _ : state) {
        mutex.lock(-1);
        mutex.unlock();
    }
    mutex.unlock();
}
BENCHMARK(BM_MutexNestedLock);

void BM_StdRecursiveMutexLockUnlock(benchmark::State& state) {
    std::recursive_mutex mutex;
    for (auto _ : state) {
        mutex.lock();
        mutex.unlock();
    }
}
BENCHMARK(BM_StdRecursiveMutexLockUnlock);

void BM_SemaphoreNotifyWait(benchmark::State& state) {
    Semaphore semaphore(1);
    for (auto _ : state) {
        semaphore.notify();
        semaphore.wait(0);
    }
}
BENCHMARK(BM_SemaphoreNotifyWait);

struct Payload {
    virtual ~Payload() {}
    int mValue = 0;
};

void BM_PtrRefCopy(benchmark::State& state) {
    PtrRef<Payload> handle(new Payload());
    for (auto _ : state) {
        PtrRef<Payload> copy(handle);
        benchmark::DoNotOptimize(copy.get());
    }
}
BENCHMARK(BM_PtrRefCopy);

void BM_SharedPtrCopy(benchmark::State& state) {
    std::shared_ptr<Payload> handle = std::make_shared<Payload>();
    for (auto _ : state) {
        std::shared_ptr<Payload> copy(handle);
        benchmark::DoNotOptimize(copy.get());
    }
}
BENCHMARK(BM_SharedPtrCopy);

} // namespace
