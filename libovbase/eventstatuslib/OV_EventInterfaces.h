// The interfaces of the event and status machinery, and the status values that travel in
// OV_Event::mValue and come back from the status getters.
#ifndef OVBASE_EVENTSTATUSLIB_OV_EVENTINTERFACES_H
#define OVBASE_EVENTSTATUSLIB_OV_EVENTINTERFACES_H

#include "types/ovTypes.h"

#include <string>
#include <vector>

class OV_Event;
class OV_EventHandler;

enum OV_BACKLIGHT_STATUS { OV_BACKLIGHT_OFF = 0, OV_BACKLIGHT_ON = 2 };
enum OV_USER_ACTIVITY_STATUS { OV_USER_INACTIVE = 0, OV_USER_ACTIVE = 1 };
enum OV_FLIP_STATUS { OV_FLIP_CLOSED = 0, OV_FLIP_OPEN = 1 };
enum OV_SLIDER_STATUS { OV_SLIDER_CLOSED = 0, OV_SLIDER_OPEN = 1 };
enum OV_ROAMING_STATUS { OV_HOME_NETWORK = 0, OV_ROAMING = 1 };
enum OV_DATA_NW_STATUS { OV_DATA_NW_UNAVAILABLE = 0, OV_DATA_NW_AVAILABLE = 1 };
enum OV_CHARGER_STATUS { OV_CHARGER_DETACHED = 0, OV_CHARGER_ATTACHED = 1 };
enum OV_BATTERY_STATUS { OV_BATTERY_LOW = 0, OV_BATTERY_OK = 1 };
// What the phone does to the idle screen when the slider closes; no platform reports it yet.
enum OV_SLIDE_CLOSED_SETTING { OV_SLIDE_CLOSED_KEEP = 0, OV_SLIDE_CLOSED_LOCK = 1 };

// The interfaces are never deleted through: their destructors are protected and not virtual,
// which keeps their tables to the operations below.
class OV_EventPublisher {
public:
    virtual void publish(OV_Event& event) = 0;

protected:
    ~OV_EventPublisher() {}
};

class OV_EventSubscriber {
public:
    virtual void subscribe(const std::string& topic, OV_EventHandler* handler) = 0;
    virtual void unsubscribe(const std::string& topic, OV_EventHandler* handler) = 0;

protected:
    ~OV_EventSubscriber() {}
};

// Phone status questions. Each returns 0 on success and 1 on failure; the answer goes to the
// reference only on success.
class OV_PhoneStatusAPIs {
public:
    virtual int getRoamingStatus(OV_ROAMING_STATUS& status) = 0;
    virtual int getDataNetworkStatus(OV_DATA_NW_STATUS& status) = 0;
    virtual int getLowBatteryStatus(OV_BATTERY_STATUS& status) = 0;
    virtual int getBacklightStatus(OV_BACKLIGHT_STATUS& status) = 0;
    virtual int getFlipStatus(OV_FLIP_STATUS& status) = 0;
    virtual int getSliderStatus(OV_SLIDER_STATUS& status) = 0;
    virtual int getChargerStatus(OV_CHARGER_STATUS& status) = 0;
    virtual int getUserActivityStatus(OV_USER_ACTIVITY_STATUS& status) = 0;
    virtual int getMSISDN(ovTypes::String& msisdn) = 0;
    virtual int getIMSI(ovTypes::String& imsi) = 0;
    virtual int getPhoneModelId(ovTypes::String& model) = 0;
    virtual int getPhoneSwVersion(ovTypes::String& version) = 0;
    virtual int getHomePLMN(ovTypes::String& plmn) = 0;
    virtual int getHomeCarrierName(ovTypes::String& name) = 0;
    virtual int getCurrentPLMN(ovTypes::String& plmn) = 0;
    virtual int getCurrentCarrierName(ovTypes::String& name) = 0;
    virtual int getCurrentLanguageCode(ovTypes::String& code) = 0;
    virtual int getInstalledLanguageCodes(std::vector<ovTypes::String>& codes) = 0;
    virtual int getCurrentTime(long& seconds) = 0;
    virtual int getNitzStatus(bool& available) = 0;
    virtual int getSlideClosedSetting(OV_SLIDE_CLOSED_SETTING& setting) = 0;

protected:
    ~OV_PhoneStatusAPIs() {}
};

// Where an adapter delivers the events it receives.
class OV_EventAdapterCallback {
public:
    virtual void notify(OV_Event& event) = 0;

protected:
    ~OV_EventAdapterCallback() {}
};

// The facade's view of the platform: status, topic subscriptions and publishing.
class OV_EventStatusAdapter : public OV_PhoneStatusAPIs {
public:
    virtual ~OV_EventStatusAdapter() {}
    virtual void subscribe(const std::string& topic) = 0;
    virtual void unsubscribe(const std::string& topic) = 0;
    virtual void publish(OV_Event& event) = 0;
};

#endif
