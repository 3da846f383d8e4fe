#include "SettingEvents.h"

#include "eventstatuslib/OV_EventAndStatusFacade.h"

#include <cstdint>

namespace settingstest {

const char* const kMarker = "marker";

namespace {
const auto kTimeout = std::chrono::seconds(10);
}

SettingRecorder::SettingRecorder()
    : OV_EventHandler(OrvelSetting::SETTING_CHANGED_TOPIC, DeliverLater()) {
    startDelivery();
}

SettingRecorder::~SettingRecorder() {
    endRegistration();
}

void SettingRecorder::handleEvent(OV_Event& e) {
    if (!e.mPropMap || e.mPropMap->empty())
        return;
    Change change{e.mPropMap->begin()->first, e.mPropMap->begin()->second, e.mPropMap->size()};
    // Everything under the lock, so that a waiter that returns may free the recorder at once.
    std::lock_guard<std::mutex> guard(mLock);
    if (change.name == kMarker) {
        // Markers of other recorders pass by too; only this recorder's own count.
        if (change.value == markerText(mMarkersSent))
            mMarkerBack = true;
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

std::string SettingRecorder::markerText(int number) const {
    return std::to_string(reinterpret_cast<uintptr_t>(this)) + "/" + std::to_string(number);
}

bool SettingRecorder::drain() {
    std::string marker;
    {
        std::lock_guard<std::mutex> guard(mLock);
        marker = markerText(++mMarkersSent);
        mMarkerBack = false;
    }
    publishChange(kMarker, marker);
    return waitUntil([&] { return mMarkerBack; });
}

bool SettingRecorder::waitForChanges(size_t count) {
    return waitUntil([&] { return mChanges.size() >= count; });
}

std::vector<Change> SettingRecorder::changes() {
    std::lock_guard<std::mutex> guard(mLock);
    return mChanges;
}

std::vector<std::string> SettingRecorder::texts() {
    std::vector<std::string> texts;
    for (const Change& change : changes())
        texts.push_back(
            change.name + "=" + change.value +
            (change.propertyCount == 1 ? "" : " +" + std::to_string(change.propertyCount - 1)));
    return texts;
}

void SettingsTest::SetUp() {
    mFirst = std::make_unique<SettingRecorder>();
}

bool SettingsTest::drainAll() {
    // A handler must not be built while a delivery may reach it, so first wait on the
    // recorder subscribed before everything else: once it has the marker, every earlier event
    // has been handled by everyone, and the marker's own dispatch walks a list that no longer
    // changes. Then a recorder subscribed last sees the marker only after every other handler.
    bool drained = mFirst->drain();
    auto last = std::make_unique<SettingRecorder>();
    drained = last->drain() && drained;
    mKept.push_back(std::move(last));
    return drained;
}

void SettingsTest::TearDown() {
    EXPECT_TRUE(drainAll());
    freeHandlers();
    mKept.clear();
    mRecorder.reset();
    mFirst.reset();
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

std::string intOf(OrvelSetting& s, const char* group, const char* key) {
    int value = -1;
    int rc = s.getInt(group, key, value);
    return std::to_string(rc) + " " + std::to_string(value);
}

std::string boolOf(OrvelSetting& s, const char* group, const char* key) {
    bool value = true;
    int rc = s.getBoolean(group, key, value);
    return std::to_string(rc) + " " + std::to_string(value);
}

std::wstring textOf(OrvelSetting& s, const char* group, const char* key) {
    ovTypes::String value(L"-");
    int rc = s.getString(group, key, value);
    return std::to_wstring(rc) + L" " + value;
}

} // namespace settingstest
