// The process-wide entry to events and phone status. Components publish OV_Events through it
// and receive them by deriving from OV_EventHandler; it keeps the handlers per topic,
// subscribes a topic with the platform adapter while the topic has handlers, and answers the
// status getters by asking the adapter.
//
// Local handlers never receive a published event directly: they get it when the platform
// delivers it back through notify(). Dispatch runs on the delivering thread (the bus's
// delivery thread or the Qt event loop) over a copy of the handler list. On a host the bus
// delivers on a thread of its own, so the map is guarded by a plain mutex held only while it
// is read or changed: never across a handler or an adapter call, so a handler may subscribe
// and the bus may wait for a delivery without deadlock. A handler must still outlive its
// registration; that part stays with the components.
#ifndef OVBASE_EVENTSTATUSLIB_OV_EVENTANDSTATUSFACADE_H
#define OVBASE_EVENTSTATUSLIB_OV_EVENTANDSTATUSFACADE_H

#include "eventstatuslib/OV_EventInterfaces.h"

#include <list>
#include <map>
#include <mutex>
#include <string>

class OV_EventAndStatusFacade : public OV_EventPublisher,
                                public OV_EventSubscriber,
                                public OV_PhoneStatusAPIs,
                                public OV_EventAdapterCallback {
public:
    typedef std::list<OV_EventHandler*> HandlerList;
    typedef std::map<const std::string, HandlerList> SubscriptionMap;

    // Not guarded: the first call must come before other threads use the facade.
    static OV_EventAndStatusFacade* instance();
    static void destroy();

    virtual void publish(OV_Event& event) override;
    virtual void notify(OV_Event& event) override;
    virtual void subscribe(const std::string& topic, OV_EventHandler* handler) override;
    // Removes HANDLER only when it is the topic's last handler; with others left it stays
    // registered. Kept that way on purpose.
    virtual void unsubscribe(const std::string& topic, OV_EventHandler* handler) override;

    virtual int getRoamingStatus(OV_ROAMING_STATUS& status) override;
    virtual int getDataNetworkStatus(OV_DATA_NW_STATUS& status) override;
    virtual int getLowBatteryStatus(OV_BATTERY_STATUS& status) override;
    virtual int getBacklightStatus(OV_BACKLIGHT_STATUS& status) override;
    virtual int getFlipStatus(OV_FLIP_STATUS& status) override;
    virtual int getSliderStatus(OV_SLIDER_STATUS& status) override;
    virtual int getChargerStatus(OV_CHARGER_STATUS& status) override;
    virtual int getUserActivityStatus(OV_USER_ACTIVITY_STATUS& status) override;
    virtual int getMSISDN(ovTypes::String& msisdn) override;
    virtual int getIMSI(ovTypes::String& imsi) override;
    virtual int getPhoneModelId(ovTypes::String& model) override;
    virtual int getPhoneSwVersion(ovTypes::String& version) override;
    virtual int getHomePLMN(ovTypes::String& plmn) override;
    virtual int getHomeCarrierName(ovTypes::String& name) override;
    virtual int getCurrentPLMN(ovTypes::String& plmn) override;
    virtual int getCurrentCarrierName(ovTypes::String& name) override;
    virtual int getCurrentLanguageCode(ovTypes::String& code) override;
    virtual int getInstalledLanguageCodes(std::vector<ovTypes::String>& codes) override;
    virtual int getCurrentTime(long& seconds) override;
    virtual int getNitzStatus(bool& available) override;
    virtual int getSlideClosedSetting(OV_SLIDE_CLOSED_SETTING& setting) override;

    virtual ~OV_EventAndStatusFacade();

protected:
    // A facade over ADAPTER (owned), for hosts and tests that bring their own platform.
    explicit OV_EventAndStatusFacade(OV_EventStatusAdapter* adapter);
    // Makes FACADE the instance when there is none yet; destroy() deletes it as usual.
    static void installInstance(OV_EventAndStatusFacade* facade);

private:
    OV_EventAndStatusFacade();
    OV_EventAndStatusFacade(const OV_EventAndStatusFacade&) = delete;
    OV_EventAndStatusFacade& operator=(const OV_EventAndStatusFacade&) = delete;

    void handleEvent(OV_Event& event);
    void handleEventExecLoop(OV_Event& event, HandlerList* handlers);
    bool alreadySubscribed(OV_EventHandler* handler, HandlerList* handlers);
    void deleteHandler(OV_EventHandler* handler, HandlerList* handlers);

    std::mutex mMapMutex; // guards mSubscriptionMap only
    SubscriptionMap mSubscriptionMap;
    OV_EventStatusAdapter* mpAdapter;

    static OV_EventAndStatusFacade* mpInstance;
};

#endif
