#include "settings/NR_Setting.h"

#include "eventstatuslib/OV_Event.h"
#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "types/FnLog.h"

const std::string OrvelSetting::SETTING_CHANGED_TOPIC =
    "/kestrix/orvel/platform/orvel_setting_changed";

OrvelSetting::OrvelSetting() : OV_EventHandler(SETTING_CHANGED_TOPIC) {}

OrvelSetting::OrvelSetting(DeliverLater later) : OV_EventHandler(SETTING_CHANGED_TOPIC, later) {}

OrvelSetting::~OrvelSetting() {}

void OrvelSetting::handleEvent(OV_Event& e) {
    OV_LOG(5, "OrvelSetting:handleEvent called.\n\n");
    if (e.mEventType == SETTING_CHANGED_TOPIC && !e.mPropMap) {
        OV_LOG(3, "Property Map is NULL. Test failed.\n\n");
        return;
    }
    // The base source keeps no values: the change is only looked at.
}

int OrvelSetting::getInt(const char*, const char*, int&) {
    return SETTING_NOT_SUPPORTED;
}

int OrvelSetting::getString(const char*, const char*, char**) {
    return SETTING_NOT_SUPPORTED;
}

int OrvelSetting::getString(const char*, const char*, ovTypes::String&) {
    return SETTING_NOT_SUPPORTED;
}

int OrvelSetting::getBoolean(const char*, const char*, bool&) {
    return SETTING_NOT_SUPPORTED;
}

int OrvelSetting::setInt(const char*, const char*, int) {
    return SETTING_NOT_SUPPORTED;
}

int OrvelSetting::setString(const char*, const char*, const char*) {
    return SETTING_NOT_SUPPORTED;
}

int OrvelSetting::setString(const char*, const char*, const ovTypes::String&) {
    return SETTING_NOT_SUPPORTED;
}

int OrvelSetting::setBoolean(const char*, const char*, bool) {
    return SETTING_NOT_SUPPORTED;
}

void OrvelSetting::publishSettingChangeEvent(const char* group, const char* key,
                                             const char* value) {
    std::string name = std::string(group) + "." + key;
    OV_LOG(5, "OrvelSetting publish setting change event %s, %s\n\n", name.c_str(), value);
    publishSettingEvent(name, value);
}

void OrvelSetting::publishSettingEvent(const std::string& name, const std::string& value) {
    OV_Event event(SETTING_CHANGED_TOPIC);
    event.setProperty(name, value);
    OV_EventAndStatusFacade::instance()->publish(event);
}
