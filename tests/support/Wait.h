// Waiting in tests for a condition that another thread makes true, by polling. The Qt event
// loop does not run meanwhile (QtLoop.h has waits that run it).
#ifndef OVBASE_TESTS_SUPPORT_WAIT_H
#define OVBASE_TESTS_SUPPORT_WAIT_H

#include <chrono>
#include <functional>
#include <thread>

namespace ovtest {

// Checks READY every millisecond until it holds or TIMEOUTMS pass; returns READY().
inline bool waitUntil(const std::function<bool()>& ready, int timeoutMs = 10000) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!ready() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return ready();
}

} // namespace ovtest

#endif
