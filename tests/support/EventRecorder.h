// A handler that keeps a copy of every event it receives, with the receiving thread, and lets
// a test wait for deliveries that arrive asynchronously (on the bus's thread, or on the Qt
// event loop, which the wait keeps running).
#ifndef OVBASE_TESTS_SUPPORT_EVENTRECORDER_H
#define OVBASE_TESTS_SUPPORT_EVENTRECORDER_H

#include "eventstatuslib/OV_EventHandler.h"

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace ovtest {

struct RecordedEvent {
    std::string topic;
    int value;
    std::map<std::string, std::string> properties;
    std::thread::id thread;
};

class EventRecorder : public OV_EventHandler {
public:
    // Takes deliveries only once built, and leaves the facade before its members go (waiting
    // for a delivery into it under way on another thread).
    explicit EventRecorder(const std::string& topic);
    ~EventRecorder() override;

    void handleEvent(OV_Event& event) override;

    // Waits until at least COUNT events have been recorded; false on time-out. The time-out is
    // generous: it only costs time when a delivery is really missing.
    bool waitFor(size_t count, int timeoutMs = 10000);
    size_t count();
    std::vector<RecordedEvent> events();

    // Runs for each event on the delivering thread, before the event is recorded.
    std::function<void(OV_Event&)> mOnEvent;

private:
    std::mutex mMutex;
    std::condition_variable mArrived;
    std::vector<RecordedEvent> mEvents;
};

} // namespace ovtest

#endif
