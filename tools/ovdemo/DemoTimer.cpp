// Demo step for timers: a 3-second timer handed to the timer manager, fired on the library's
// timer thread after its five-second sleep.
#include "Demo.h"
#include "thread/Handler.h"
#include "timer/ITimer.h"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <pthread.h>

namespace {

struct Firing {
    std::mutex mutex;
    std::condition_variable fired;
    bool done = false;
    bool onOtherThread = false;
};

// Freed without a destructor by its PtrRef, so it holds only a pointer.
struct DemoHandler : IHandler {
    DemoHandler(Firing* firing, pthread_t caller) : mpFiring(firing), mCaller(caller) {}
    void handle() override {
        std::lock_guard<std::mutex> hold(mpFiring->mutex);
        mpFiring->done = true;
        mpFiring->onOtherThread = !pthread_equal(pthread_self(), mCaller);
        mpFiring->fired.notify_all();
    }
    Firing* mpFiring;
    pthread_t mCaller;
};

} // namespace

bool demoTimer() {
    std::printf("\n== timers ==\n");
    static Firing firing; // outlives the handler even if the timer were late
    auto start = std::chrono::steady_clock::now();
    int added = TimerMgr::addTimer(3, new DemoHandler(&firing, pthread_self()));
    std::printf("addTimer(3 s) returned %d; waiting for it to fire\n", added);
    if (added != 0)
        return false;

    std::unique_lock<std::mutex> hold(firing.mutex);
    firing.fired.wait_for(hold, std::chrono::seconds(15), [] { return firing.done; });
    if (!firing.done) {
        std::printf("the timer did not fire within 15 s\n");
        return false;
    }
    double after = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("fired after %.1f s on %s (the timer thread sleeps 5 s after every wake-up, then "
                "fires what is due within 5 s)\n",
                after, firing.onOtherThread ? "the timer thread" : "the calling thread");
    return firing.onOtherThread;
}
