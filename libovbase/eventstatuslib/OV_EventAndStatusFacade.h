// The process-wide entry to events and phone status. Components publish OV_Events through it
// and receive them by deriving from OV_EventHandler; it keeps the handlers per topic,
// subscribes a topic with the platform adapter while the topic has handlers, and answers the
// status getters by asking the adapter.
//
// Local handlers never receive a published event directly: they get it when the platform
// delivers it back through notify(). Dispatch runs on the delivering thread (the bus's
// delivery thread or the Qt event loop) over a copy of the handler list. On a host the bus
// delivers on a thread of its own, so the map is guarded by a mutex held only while it is read
// or changed: never across a handler or an adapter call, so a handler may subscribe and the
// bus may wait for a delivery without deadlock.
//
// One thread at a time brings the adapter in line with the map, so the adapter sees one
// subscribe per topic until its unsubscribe. A subscribe or unsubscribe that finds another
// thread at work there waits for it, except on a thread that is delivering an event (the bus
// may be waiting for that delivery to end): there it returns and the thread at work makes the
// adapter call. OV_EventHandler's destructor ends a handler's registration for good.
#ifndef OVBASE_EVENTSTATUSLIB_OV_EVENTANDSTATUSFACADE_H
#define OVBASE_EVENTSTATUSLIB_OV_EVENTANDSTATUSFACADE_H

#include "eventstatuslib/OV_EventInterfaces.h"

#include <condition_variable>
#include <list>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>

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

    // Takes HANDLER off every topic, whatever other handlers remain, and waits for a call
    // into it under way on another thread: once this returns, HANDLER is never called again.
    // OV_EventHandler's destructor calls it; a handler whose own members deliveries reach may
    // call it first in its destructor. Not from inside another thread's call into HANDLER.
    void forgetHandler(OV_EventHandler* handler);

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

    // Refuses subscriptions from then on, and waits for deliveries under way on other
    // threads. Not from inside a handler.
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

    // A dispatch under way: the copy of the handler list it walks and the handler it is
    // calling, on its thread.
    struct Dispatch {
        std::thread::id thread;
        HandlerList* handlers;
        OV_EventHandler* calling;
    };

    void handleEvent(OV_Event& event);
    void handleEventExecLoop(OV_Event& event, HandlerList* handlers);
    bool alreadySubscribed(OV_EventHandler* handler, HandlerList* handlers);
    void deleteHandler(OV_EventHandler* handler, HandlerList* handlers);

    // These are called with mMapMutex held. settleAdapter() brings the adapter in line with the
    // map, releasing LOCK around each adapter call, or waits for the thread doing so.
    void settleAdapter(std::unique_lock<std::mutex>& lock);
    // A topic whose adapter subscription differs from the map: true with TOPIC and whether
    // it is to be subscribed, false when there is none.
    bool nextAdapterChange(std::string* topic, bool* subscribe) const;
    bool dispatchingHere() const;
    // Whether a thread other than this one is calling HANDLER.
    bool callingElsewhere(const OV_EventHandler* handler) const;

    std::mutex mMapMutex;             // guards what follows, except the adapter pointer
    std::condition_variable mChanged; // a call into a handler or the adapter's work ended
    SubscriptionMap mSubscriptionMap;
    std::set<std::string> mAdapterTopics; // topics the adapter is subscribed to
    bool mAdapterBusy;                    // a thread is making adapter calls for the map
    bool mClosing;                        // the destructor has begun
    std::list<Dispatch*> mDispatches;
    OV_EventStatusAdapter* mpAdapter;

    static OV_EventAndStatusFacade* mpInstance;
};

#endif
