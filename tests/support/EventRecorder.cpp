#include "support/EventRecorder.h"

#include "eventstatuslib/OV_Event.h"
#include "support/QtLoop.h"

#include <QCoreApplication>
#include <chrono>

namespace ovtest {

EventRecorder::EventRecorder(const std::string& topic) : OV_EventHandler(topic, DeliverLater()) {
    startDelivery();
}

EventRecorder::~EventRecorder() {
    endRegistration();
}

void EventRecorder::handleEvent(OV_Event& event) {
    RecordedEvent copy;
    copy.topic = event.mEventType;
    copy.value = event.mValue;
    if (event.mPropMap != nullptr)
        copy.properties.insert(event.mPropMap->begin(), event.mPropMap->end());
    copy.thread = std::this_thread::get_id();
    if (mOnEvent)
        mOnEvent(event);
    // Recorded last, and signalled under the lock: a test that sees the event may free the
    // recorder at once, so nothing of it is touched after the lock is released.
    std::lock_guard<std::mutex> lock(mMutex);
    mEvents.push_back(copy);
    mArrived.notify_all();
}

bool EventRecorder::waitFor(size_t count, int timeoutMs) {
    if (QCoreApplication::instance())
        return runQtUntil([this, count] { return this->count() >= count; }, timeoutMs);
    std::unique_lock<std::mutex> lock(mMutex);
    return mArrived.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                             [this, count] { return mEvents.size() >= count; });
}

size_t EventRecorder::count() {
    std::lock_guard<std::mutex> lock(mMutex);
    return mEvents.size();
}

std::vector<RecordedEvent> EventRecorder::events() {
    std::lock_guard<std::mutex> lock(mMutex);
    return mEvents;
}

} // namespace ovtest
