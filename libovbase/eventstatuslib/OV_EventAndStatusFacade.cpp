#include "eventstatuslib/OV_EventAndStatusFacade.h"

#include "eventstatuslib/OV_Event.h"
#include "eventstatuslib/OV_EventHandler.h"
#include "eventstatuslib/OV_WBEventStatusAdapter.h"
#include "types/FnLog.h"

#include <algorithm>
#include <cstdint>

namespace {

// Handlers are logged by address, as an int like the rest of the diagnostics.
int handlerId(const OV_EventHandler* handler) {
    return static_cast<int>(reinterpret_cast<intptr_t>(handler));
}

} // namespace

OV_EventAndStatusFacade* OV_EventAndStatusFacade::mpInstance = nullptr;

OV_EventAndStatusFacade* OV_EventAndStatusFacade::instance() {
    if (!mpInstance) {
        OV_LOG(5, "Creating a new instance of OV_EventAndStatusFacade.\n\n");
        mpInstance = new OV_EventAndStatusFacade();
    }
    return mpInstance;
}

void OV_EventAndStatusFacade::installInstance(OV_EventAndStatusFacade* facade) {
    if (!mpInstance)
        mpInstance = facade;
}

void OV_EventAndStatusFacade::destroy() {
    if (mpInstance) {
        OV_LOG(5, "Deleting the instance of OV_EventAndStatusFacade.\n\n");
        delete mpInstance;
        mpInstance = nullptr;
    }
}

OV_EventAndStatusFacade::OV_EventAndStatusFacade()
    : mAdapterBusy(false), mClosing(false), mpAdapter(nullptr) {
    OV_LOG(5, "Entered OV_EventAndStatusFacade constructor.\n\n");
    mpAdapter = new OV_WBEventStatusAdapter(this);
}

OV_EventAndStatusFacade::OV_EventAndStatusFacade(OV_EventStatusAdapter* adapter)
    : mAdapterBusy(false), mClosing(false), mpAdapter(adapter) {
    OV_LOG(5, "Entered OV_EventAndStatusFacade constructor.\n\n");
}

OV_EventAndStatusFacade::~OV_EventAndStatusFacade() {
    OV_LOG(5, "Entered OV_EventAndStatusFacade destructor.\n\n");
    std::unique_lock<std::mutex> lock(mMapMutex);
    // From here on a handler running on another thread cannot subscribe into this facade, and
    // a thread at the adapter stops after its call.
    mClosing = true;
    mChanged.wait(lock, [this] { return !mAdapterBusy; });
    // The handlers belong to their components; only the lists go.
    for (SubscriptionMap::iterator it = mSubscriptionMap.begin(); it != mSubscriptionMap.end();
         ++it) {
        OV_LOG(5, "Removing event handlers for event-type: %s\n\n", it->first.c_str());
        it->second.clear();
    }
    mSubscriptionMap.clear();
    lock.unlock();
    // The adapter leaves the bus, waiting for a delivery into it that is under way.
    delete mpAdapter;
    mpAdapter = nullptr;
    // A dispatch that began before the adapter left can still be walking its copy.
    lock.lock();
    mChanged.wait(lock, [this] {
        for (const Dispatch* dispatch : mDispatches) {
            if (dispatch->thread != std::this_thread::get_id())
                return false;
        }
        return true;
    });
    lock.unlock();
    OV_LOG(5, "Deleted event status adapter instance.\n\n");
}

void OV_EventAndStatusFacade::publish(OV_Event& event) {
    mpAdapter->publish(event);
    OV_LOG(5, "OV_EventAndStatusFacade: Published event: %s\n\n", event.mEventType.c_str());
}

void OV_EventAndStatusFacade::notify(OV_Event& event) {
    handleEvent(event);
}

void OV_EventAndStatusFacade::subscribe(const std::string& topic, OV_EventHandler* handler) {
    OV_LOG(5, "[EventFacade]subscribe: entered. eventType = %s; Handler = [%d]\n\n", topic.c_str(),
           handlerId(handler));
    if (!handler) {
        OV_LOG(5, "OV_EventAndStatusFacade: subscribe called with NULL event handler. Do "
                  "nothing.\n\n");
        return;
    }
    OV_LOG(5, "subscribe: check if subscription map has an entry for this eventType.\n\n");
    std::unique_lock<std::mutex> lock(mMapMutex);
    if (mClosing) {
        OV_LOG(2, "subscribe: the facade is being destroyed; %s is not subscribed.\n\n",
               topic.c_str());
        return;
    }
    SubscriptionMap::iterator it = mSubscriptionMap.find(topic);
    if (it != mSubscriptionMap.end()) {
        OV_LOG(5, "add event handler to the event handler list.check for duplicates.\n\n");
        if (!alreadySubscribed(handler, &it->second)) {
            it->second.push_back(handler);
            OV_LOG(5, "Added handler [%d] to the event handler list.\n\n", handlerId(handler));
        }
        OV_LOG(5, "Totally %d subscribers for Event %s\n\n", static_cast<int>(it->second.size()),
               topic.c_str());
    } else {
        OV_LOG(5, "There is no entry for this event type. Create an entry and subscribe with "
                  "adapter for this eventType.\n\n");
        if (!mAdapterBusy) {
            // The adapter first, then the entry.
            mAdapterBusy = true;
            lock.unlock();
            mpAdapter->subscribe(topic);
            lock.lock();
            mAdapterTopics.insert(topic);
            mAdapterBusy = false;
        }
        // Another thread may have made the entry meanwhile; join it rather than replace it.
        HandlerList& handlers = mSubscriptionMap[topic];
        if (!alreadySubscribed(handler, &handlers))
            handlers.push_back(handler);
        // Whatever else changed meanwhile, this topic included when another thread was at the
        // adapter.
        settleAdapter(lock);
    }
    it = mSubscriptionMap.find(topic);
    OV_LOG(5, "The subscription map has %d handlers for this event.\n\n",
           it == mSubscriptionMap.end() ? 0 : static_cast<int>(it->second.size()));
    lock.unlock();
    OV_LOG(5, "[EventFacade]subscribe: exiting.\n\n");
}

void OV_EventAndStatusFacade::unsubscribe(const std::string& topic, OV_EventHandler* handler) {
    OV_LOG(5, "unsubscribe: Entered.\n\n");
    std::unique_lock<std::mutex> lock(mMapMutex);
    SubscriptionMap::iterator it = mSubscriptionMap.find(topic);
    if (it != mSubscriptionMap.end()) {
        // Only a sole handler is ever removed: the copy is dropped when others remain.
        HandlerList remaining = it->second;
        deleteHandler(handler, &remaining);
        if (remaining.empty()) {
            mSubscriptionMap.erase(it);
            settleAdapter(lock);
            lock.unlock();
            OV_LOG(5, "unsubscribe: No more handlers of this event type. Removing list.\n\n");
        }
    }
    if (lock.owns_lock())
        lock.unlock();
    OV_LOG(5, "unsubscribe: Exiting.\n\n");
}

void OV_EventAndStatusFacade::forgetHandler(OV_EventHandler* handler) {
    std::unique_lock<std::mutex> lock(mMapMutex);
    bool emptied = false;
    for (SubscriptionMap::iterator it = mSubscriptionMap.begin(); it != mSubscriptionMap.end();) {
        it->second.remove(handler);
        if (it->second.empty()) {
            it = mSubscriptionMap.erase(it);
            emptied = true;
        } else {
            ++it;
        }
    }
    // Dispatches under way skip it from now on...
    for (Dispatch* dispatch : mDispatches)
        std::replace(dispatch->handlers->begin(), dispatch->handlers->end(), handler,
                     static_cast<OV_EventHandler*>(nullptr));
    // ...and one that is calling it on another thread finishes that call first.
    mChanged.wait(lock, [this, handler] { return !callingElsewhere(handler); });
    if (emptied)
        settleAdapter(lock);
}

void OV_EventAndStatusFacade::settleAdapter(std::unique_lock<std::mutex>& lock) {
    if (mAdapterBusy) {
        // The thread at work checks the map again after each call, so it covers this change.
        if (!dispatchingHere())
            mChanged.wait(lock, [this] { return !mAdapterBusy; });
        return;
    }
    mAdapterBusy = true;
    std::string topic;
    bool subscribe = false;
    while (!mClosing && nextAdapterChange(&topic, &subscribe)) {
        lock.unlock();
        if (subscribe)
            mpAdapter->subscribe(topic);
        else
            mpAdapter->unsubscribe(topic);
        lock.lock();
        if (subscribe)
            mAdapterTopics.insert(topic);
        else
            mAdapterTopics.erase(topic);
    }
    mAdapterBusy = false;
    mChanged.notify_all();
}

bool OV_EventAndStatusFacade::nextAdapterChange(std::string* topic, bool* subscribe) const {
    for (SubscriptionMap::const_iterator it = mSubscriptionMap.begin();
         it != mSubscriptionMap.end(); ++it) {
        if (mAdapterTopics.count(it->first) == 0) {
            *topic = it->first;
            *subscribe = true;
            return true;
        }
    }
    for (const std::string& subscribed : mAdapterTopics) {
        if (mSubscriptionMap.count(subscribed) == 0) {
            *topic = subscribed;
            *subscribe = false;
            return true;
        }
    }
    return false;
}

bool OV_EventAndStatusFacade::dispatchingHere() const {
    for (const Dispatch* dispatch : mDispatches) {
        if (dispatch->thread == std::this_thread::get_id())
            return true;
    }
    return false;
}

bool OV_EventAndStatusFacade::callingElsewhere(const OV_EventHandler* handler) const {
    for (const Dispatch* dispatch : mDispatches) {
        if (dispatch->calling == handler && dispatch->thread != std::this_thread::get_id())
            return true;
    }
    return false;
}

bool OV_EventAndStatusFacade::alreadySubscribed(OV_EventHandler* handler, HandlerList* handlers) {
    for (HandlerList::iterator it = handlers->begin(); it != handlers->end(); ++it) {
        if (*it == handler) {
            OV_LOG(5, "Found handler for the event type. Will not add duplicate.\n\n");
            return true;
        }
    }
    return false;
}

void OV_EventAndStatusFacade::deleteHandler(OV_EventHandler* handler, HandlerList* handlers) {
    OV_LOG(5, "deleteHandler: Iterating thru event handler list.\n\n");
    for (HandlerList::iterator it = handlers->begin(); it != handlers->end(); ++it) {
        if (*it == handler) {
            handlers->erase(it);
            OV_LOG(5, "deleteHandler: Removed handler.\n\n");
            return;
        }
    }
}

void OV_EventAndStatusFacade::handleEvent(OV_Event& event) {
    OV_LOG(5, "[EventFacade] handleEvent: Event type = %s\n\n", event.mEventType.c_str());
    HandlerList handlers;
    Dispatch dispatch = {std::this_thread::get_id(), &handlers, nullptr};
    {
        std::lock_guard<std::mutex> lock(mMapMutex);
        SubscriptionMap::iterator it = mSubscriptionMap.find(event.mEventType);
        if (it == mSubscriptionMap.end()) {
            OV_LOG(5, "handleEvent: Subscription map is empty!!!! \n\n");
            return;
        }
        // Handlers may subscribe, unsubscribe or delete themselves while called: walk a copy.
        // It is registered before the lock goes, so that a handler destroyed from now on is
        // skipped in it.
        handlers = it->second;
        mDispatches.push_back(&dispatch);
    }
    OV_LOG(5, "handleEvent: Found handler list. Iterate thru list and call each handler.\n\n");
    handleEventExecLoop(event, &handlers);
    std::lock_guard<std::mutex> lock(mMapMutex);
    mDispatches.remove(&dispatch);
    mChanged.notify_all();
}

void OV_EventAndStatusFacade::handleEventExecLoop(OV_Event& event, HandlerList* handlers) {
    OV_LOG(5, "ENTER\n\n");
    OV_LOG(5, "handling for the %d subscribers...\n\n", static_cast<int>(handlers->size()));
    std::unique_lock<std::mutex> lock(mMapMutex);
    Dispatch* dispatch = nullptr;
    for (Dispatch* candidate : mDispatches) {
        if (candidate->handlers == handlers)
            dispatch = candidate;
    }
    // The entries are read under the lock: forgetHandler() clears those of destroyed handlers.
    for (HandlerList::iterator it = handlers->begin(); it != handlers->end(); ++it) {
        OV_EventHandler* handler = *it;
        if (!handler)
            continue;
        if (dispatch)
            dispatch->calling = handler;
        lock.unlock();
        OV_LOG(5, "handleEventExecLoop: Invoking Event Handler [%d] .\n\n", handlerId(handler));
        handler->handleEvent(event);
        OV_LOG(5, "handleEventExecLoop: Done calling Event Handler [%d].\n\n", handlerId(handler));
        lock.lock();
        if (dispatch)
            dispatch->calling = nullptr;
        mChanged.notify_all();
    }
    lock.unlock();
    OV_LOG(5, "LEAVE\n\n");
}

int OV_EventAndStatusFacade::getRoamingStatus(OV_ROAMING_STATUS& status) {
    return mpAdapter->getRoamingStatus(status);
}
int OV_EventAndStatusFacade::getDataNetworkStatus(OV_DATA_NW_STATUS& status) {
    return mpAdapter->getDataNetworkStatus(status);
}
int OV_EventAndStatusFacade::getLowBatteryStatus(OV_BATTERY_STATUS& status) {
    return mpAdapter->getLowBatteryStatus(status);
}
int OV_EventAndStatusFacade::getBacklightStatus(OV_BACKLIGHT_STATUS& status) {
    return mpAdapter->getBacklightStatus(status);
}
int OV_EventAndStatusFacade::getFlipStatus(OV_FLIP_STATUS& status) {
    return mpAdapter->getFlipStatus(status);
}
int OV_EventAndStatusFacade::getSliderStatus(OV_SLIDER_STATUS& status) {
    return mpAdapter->getSliderStatus(status);
}
int OV_EventAndStatusFacade::getChargerStatus(OV_CHARGER_STATUS& status) {
    return mpAdapter->getChargerStatus(status);
}
int OV_EventAndStatusFacade::getUserActivityStatus(OV_USER_ACTIVITY_STATUS& status) {
    return mpAdapter->getUserActivityStatus(status);
}
int OV_EventAndStatusFacade::getMSISDN(ovTypes::String& msisdn) {
    return mpAdapter->getMSISDN(msisdn);
}
int OV_EventAndStatusFacade::getIMSI(ovTypes::String& imsi) {
    return mpAdapter->getIMSI(imsi);
}
int OV_EventAndStatusFacade::getPhoneModelId(ovTypes::String& model) {
    return mpAdapter->getPhoneModelId(model);
}
int OV_EventAndStatusFacade::getPhoneSwVersion(ovTypes::String& version) {
    return mpAdapter->getPhoneSwVersion(version);
}
int OV_EventAndStatusFacade::getHomePLMN(ovTypes::String& plmn) {
    return mpAdapter->getHomePLMN(plmn);
}
int OV_EventAndStatusFacade::getHomeCarrierName(ovTypes::String& name) {
    return mpAdapter->getHomeCarrierName(name);
}
int OV_EventAndStatusFacade::getCurrentPLMN(ovTypes::String& plmn) {
    return mpAdapter->getCurrentPLMN(plmn);
}
int OV_EventAndStatusFacade::getCurrentCarrierName(ovTypes::String& name) {
    return mpAdapter->getCurrentCarrierName(name);
}
int OV_EventAndStatusFacade::getCurrentLanguageCode(ovTypes::String& code) {
    return mpAdapter->getCurrentLanguageCode(code);
}
int OV_EventAndStatusFacade::getInstalledLanguageCodes(std::vector<ovTypes::String>& codes) {
    return mpAdapter->getInstalledLanguageCodes(codes);
}
int OV_EventAndStatusFacade::getCurrentTime(long& seconds) {
    return mpAdapter->getCurrentTime(seconds);
}
int OV_EventAndStatusFacade::getNitzStatus(bool& available) {
    return mpAdapter->getNitzStatus(available);
}
int OV_EventAndStatusFacade::getSlideClosedSetting(OV_SLIDE_CLOSED_SETTING& setting) {
    return mpAdapter->getSlideClosedSetting(setting);
}
