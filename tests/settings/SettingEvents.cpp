#include "SettingEvents.h"

#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "settings/NR_Setting.h"

namespace settingstest {

const char* const kMarker = "marker";

namespace {
const auto kTimeout = std::chrono::seconds(10);
}

SettingRecorder::SettingRecorder() : OV_EventHandler(OrvelSetting::SETTING_CHANGED_TOPIC) {}

void SettingRecorder::handleEvent(OV_Event& e) {
    if (!e.mPropMap || e.mPropMap->empty())
        return;
    Change change{e.mPropMap->begin()->first, e.mPropMap->begin()->second, e.mPropMap->size()};
    // Everything under the lock, so that a waiter that returns may free the recorder at once.
    std::lock_guard<std::mutex> guard(mLock);
    if (change.name == kMarker) {
        ++mMarkersSeen;
    } else {
        mChanges.push_back(change);
        if (onChange)
            onChange(change);
    }
    mChanged.notify_all();
}

bool SettingRecorder::waitUntil(const std::function<bool()>& ready) {
    std::unique_lock<std::mutex> guard(mLock);
    return mChanged.wait_for(guard, kTimeout, ready);
}

bool SettingRecorder::drain() {
    int target;
    {
        std::lock_guard<std::mutex> guard(mLock);
        target = ++mMarkersSent;
    }
    publishChange(kMarker, "");
    return waitUntil([&] { return mMarkersSeen >= target; });
}

bool SettingRecorder::waitForChanges(size_t count) {
    return waitUntil([&] { return mChanges.size() >= count; });
}

std::vector<Change> SettingRecorder::changes() {
    std::lock_guard<std::mutex> guard(mLock);
    return mChanges;
}

bool SettingsTest::drainAll() {
    // Subscribed last, so it is the last to be called for the marker.
    auto last = std::make_unique<SettingRecorder>();
    bool drained = last->drain();
    mKept.push_back(std::move(last));
    return drained;
}

void SettingsTest::TearDown() {
    EXPECT_TRUE(drainAll());
    freeHandlers();
    mKept.clear();
    mRecorder.reset();
    OV_EventAndStatusFacade::destroy();
}

SettingRecorder& SettingsTest::recorder() {
    if (!mRecorder)
        mRecorder = std::make_unique<SettingRecorder>();
    return *mRecorder;
}

void publishChange(const std::string& name, const std::string& value) {
    OV_Event event(OrvelSetting::SETTING_CHANGED_TOPIC);
    event.setProperty(name, value);
    OV_EventAndStatusFacade::instance()->publish(event);
}

} // namespace settingstest
