// OrvelSetting: the abstract setting source. The manager forwards every get and set to the
// source that serves a group; each source is also a handler of the setting-changed topic, so
// that a change announced by one process reaches every source of every process.
#ifndef OVBASE_SETTINGS_NR_SETTING_H
#define OVBASE_SETTINGS_NR_SETTING_H

#include "eventstatuslib/OV_EventHandler.h"
#include "types/ovTypes.h"

#include <string>

class OV_Event;

class OrvelSetting : public OV_EventHandler {
public:
    // The topic every change is announced on; program-lifetime because handlers keep a
    // reference to their topic.
    static const std::string SETTING_CHANGED_TOPIC;

    // Result codes of the get and set operations.
    enum {
        SETTING_OK = 0,
        SETTING_NOT_SUPPORTED = 1, // no such group, no source, or not offered by the source
        SETTING_KEY_ABSENT = 3,
        SETTING_NOT_LOADED = 8,
    };

    OrvelSetting();
    ~OrvelSetting() override;

    OrvelSetting(const OrvelSetting&) = delete;
    OrvelSetting& operator=(const OrvelSetting&) = delete;

    void handleEvent(OV_Event& e) override;

    // A getter leaves its output untouched unless it returns 0. The base offers nothing:
    // every operation returns 1.
    virtual int getInt(const char* group, const char* key, int& value);
    // The text is allocated with new[]; the caller frees it with delete[].
    virtual int getString(const char* group, const char* key, char** value);
    virtual int getString(const char* group, const char* key, ovTypes::String& value);
    virtual int getBoolean(const char* group, const char* key, bool& value);
    virtual int setInt(const char* group, const char* key, int value);
    virtual int setString(const char* group, const char* key, const char* value);
    virtual int setString(const char* group, const char* key, const ovTypes::String& value);
    virtual int setBoolean(const char* group, const char* key, bool value);

    // Announces "group.key" = value on the setting-changed topic through the facade.
    virtual void publishSettingChangeEvent(const char* group, const char* key, const char* value);

protected:
    // For derived sources: events reach the source once its most-derived constructor has
    // called startDelivery() (changes arrive on the bus's thread, maybe during construction).
    explicit OrvelSetting(DeliverLater);

    // Publishes the one-property setting-changed event for NAME = VALUE.
    static void publishSettingEvent(const std::string& name, const std::string& value);
};

#endif
