// Test helpers for setting-changed events: a recorder that waits for deliveries from the bus,
// and a marker event that proves earlier publications have been delivered.
#ifndef OVBASE_TESTS_SETTINGS_SETTINGEVENTS_H
#define OVBASE_TESTS_SETTINGS_SETTINGEVENTS_H

#include "eventstatuslib/OV_Event.h"
#include "settings/NR_Setting.h"
#include "support/EventRecorder.h"
#include "support/TempDir.h"
#include "types/AttrMap.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace settingstest {

// Records the setting-changed events it receives (takes deliveries only once built, leaves
// the facade before its members go).
class SettingRecorder : public ovtest::EventRecorder {
public:
    SettingRecorder();

    // Publishes a marker of this recorder's own and waits until it has come back; false on
    // time-out. Every change published before the marker has then been delivered. Markers
    // have no second dot in their name, so setting sources ignore them.
    bool drain();
    // The changes (markers excluded) as "name=value" of their first property, with " +N" for
    // N more properties.
    std::vector<std::string> texts();

    // Runs on the delivery thread for each change (not for markers), before it is recorded.
    std::function<void()> onChange;

private:
    int mMarkersSent = 0;
};

// A test on a temporary device root with a recorder of setting changes. The facade keeps a
// handler that was not its topic's only one even after it unsubscribes, so handlers must live
// until no delivery can reach them: the fixture drains the bus, frees the handlers it owns,
// then replaces the facade.
class SettingsTest : public ::testing::Test {
protected:
    void TearDown() override;
    // Frees what a test made besides the handlers it keeps; runs once the bus is drained.
    virtual void freeHandlers() {}
    // Returns once every handler has handled what was published so far (deliveries run one
    // at a time, in order); false on time-out.
    bool drain() { return mFirst->drain(); }
    // The changes published since the test began, as SettingRecorder::texts().
    std::vector<std::string> announced() { return mFirst->texts(); }
    // Makes a handler (a source) once no delivery is under way; it lives until TearDown.
    template <typename Handler, typename... Args> Handler& make(Args&&... args) {
        EXPECT_TRUE(drainAll());
        auto* handler = new Handler(std::forward<Args>(args)...);
        mKept.emplace_back(handler);
        return *handler;
    }
    // Returns once every handler has finished with everything published so far, so that no
    // delivery runs while a handler is being built or freed. False on time-out.
    bool drainAll();

    ovtest::TempDeviceRoot mRoot;

private:
    // Subscribed first, while nothing can be in flight yet.
    std::unique_ptr<SettingRecorder> mFirst = std::make_unique<SettingRecorder>();
    std::vector<std::unique_ptr<OV_EventHandler>> mKept;
};

// Publishes a setting-changed event NAME = VALUE through the facade, as another process would.
void publishChange(const std::string& name, const std::string& value);

// A getter's result code and the value it leaves, in one text ("0 256"; "3 -1" where the key
// is absent: the value starts as -1, true or "-"), so that one check covers both.
std::string intOf(OrvelSetting& s, const char* group, const char* key);
std::string boolOf(OrvelSetting& s, const char* group, const char* key);
std::wstring textOf(OrvelSetting& s, const char* group, const char* key);

// TEXT loaded as a settings file (an attribute map not in list mode).
AttrMap loadedMap(const std::string& text);

} // namespace settingstest

#endif
