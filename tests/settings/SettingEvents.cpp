#include "SettingEvents.h"

#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "support/Wait.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <sstream>

namespace settingstest {

namespace {

const char* const kMarker = "marker";

// Whether PROPERTIES (a setting-changed event's) are a change, not empty nor a marker.
template <typename Map> bool isChange(const Map& properties) {
    return !properties.empty() && properties.begin()->first != kMarker;
}

} // namespace

SettingRecorder::SettingRecorder() : EventRecorder(OrvelSetting::SETTING_CHANGED_TOPIC) {
    mOnEvent = [this](OV_Event& e) {
        if (onChange && e.mPropMap && isChange(*e.mPropMap))
            onChange();
    };
}

bool SettingRecorder::drain() {
    // Markers of other recorders pass by too; only this recorder's own count.
    const std::map<std::string, std::string> marker{
        {kMarker,
         std::to_string(reinterpret_cast<uintptr_t>(this)) + "/" + std::to_string(++mMarkersSent)}};
    publishChange(kMarker, marker.begin()->second);
    return ovtest::waitUntil([&] {
        const std::vector<ovtest::RecordedEvent> all = events();
        return std::any_of(all.begin(), all.end(), [&](const ovtest::RecordedEvent& event) {
            return event.properties == marker;
        });
    });
}

std::vector<std::string> SettingRecorder::texts() {
    std::vector<std::string> texts;
    for (const ovtest::RecordedEvent& event : events()) {
        const auto& properties = event.properties;
        if (!isChange(properties))
            continue;
        texts.push_back(
            properties.begin()->first + "=" + properties.begin()->second +
            (properties.size() == 1 ? "" : " +" + std::to_string(properties.size() - 1)));
    }
    return texts;
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
    mFirst.reset();
    OV_EventAndStatusFacade::destroy();
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

AttrMap loadedMap(const std::string& text) {
    AttrMap map(false);
    std::istringstream in(text);
    map.load(in);
    return map;
}

} // namespace settingstest
