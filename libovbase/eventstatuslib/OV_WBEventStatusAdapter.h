// The facade's adapter to the phone platform: topic subscriptions go to the platform bus, the
// system channel "QBX/System" or the phone message client; what those report comes back as
// OV_Events through the callback's notify(); published events go out on the bus; status
// questions are answered from the platform's utility and telephony calls.
//
// Bus events arrive through handleEvent() on the bus's delivery thread; the system channel and
// the phone client signal on the Qt event loop of the adapter's thread. Both call notify()
// directly.
//
// subscribe() and unsubscribe() may be called from any thread, one call at a time (the facade
// serialises them). The system channel and the phone client are Qt objects of the adapter's
// thread, so their part of a call made on another thread is queued to that thread's event loop
// and done there, in the order asked.
#ifndef OVBASE_EVENTSTATUSLIB_OV_WBEVENTSTATUSADAPTER_H
#define OVBASE_EVENTSTATUSLIB_OV_WBEVENTSTATUSADAPTER_H

#include "eventstatuslib/OV_EventInterfaces.h"

#include "ES_EventHandler.h"
#include "QCString.h"
#include "TAPI.h"

#include <QObject>
#include <deque>
#include <mutex>
#include <set>
#include <string>
#include <utility>

class OV_Event;
class PHONE_AsyncMsgReceiver;
class QCopChannel;
class SETUP_Utility;

class OV_WBEventStatusAdapter : public QObject,
                                public OV_EventStatusAdapter,
                                public ES_EventHandler {
    Q_OBJECT
public:
    OV_WBEventStatusAdapter();
    explicit OV_WBEventStatusAdapter(OV_EventAdapterCallback* callback);
    ~OV_WBEventStatusAdapter() override;

    virtual void subscribe(const std::string& topic) override;
    virtual void unsubscribe(const std::string& topic) override;
    virtual void publish(OV_Event& event) override;

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

    virtual void handleEvent(const ES_Event& event) override;

    // The wire form of an event on the bus: the topic, "__OV_Event__mValue" in decimal, then
    // every property (a property of that same name overwrites the value).
    static void toPlatformEvent(const OV_Event& event, ES_Event* platformEvent);
    static void fromPlatformEvent(const ES_Event& platformEvent, OV_Event* event);

    // Platform topics this adapter delivers.
    static const std::string EVENT_MASTER_CLEAR;
    static const std::string EVENT_MASTER_RESET;
    static const std::string EVENT_SMS_PUSH;
    static const std::string EVENT_BACKLIGHT_STATUS_CHANGED;
    static const std::string EVENT_USER_ACTIVITY_STATUS_CHANGED;
    static const std::string EVENT_DATA_NW_STATUS_CHANGED;
    static const std::string EVENT_ROAMING_STATUS_CHANGED;
    static const std::string EVENT_LOW_BATTERY_STATUS_CHANGED;
    static const std::string EVENT_FLIP_STATUS_CHANGED;
    static const std::string EVENT_SLIDER_STATUS_CHANGED;
    static const std::string EVENT_CHARGER_STATUS_CHANGED;
    static const std::string EVENT_SYSTEM_TIME_CHANGED;
    static const std::string EVENT_SYSTEM_SHUTDOWN;
    // The bus topics of WAP pushes, both delivered as EVENT_SMS_PUSH.
    static const std::string PUSH_TOPIC_ORVEL;
    static const std::string PUSH_TOPIC_DCD;
    static const std::string VALUE_PROPERTY;        // "__OV_Event__mValue"
    static const std::string CONTENT_TYPE_PROPERTY; // "Content-Type"
    static const std::string DEFAULT_PUSH_CONTENT_TYPE;

    // Display properties of the set-up utility: whether the screen saver is on, its time-out,
    // the time-outs before the display goes off and before it dims, and the dimmed intensity.
    static const char* const SCREENSAVER_STATUS;
    static const char* const SCREENSAVER_TIMEOUT;
    static const char* const DISPLAY_TIMEOUT;
    static const char* const DIM_TIMEOUT;
    static const char* const DIM_INTENSITY;

signals:
    void signalMasterClear();
    void signalMasterReset();
    void signalFlipStatusChanged(OV_FLIP_STATUS status);
    void signalSliderStatusChanged(OV_SLIDER_STATUS status);
    void signalShutdown();
    void signalBacklighStatusChanged(OV_BACKLIGHT_STATUS status);
    void signalUserActivityStatusChanged(OV_USER_ACTIVITY_STATUS status);
    void signalSystemTimeChanged(int seconds);

public slots:
    void slotHandleRoamingState(TAPI_NETWORK_ROAM_E state);
    void slotHandleGprsService(bool available);
    void slotHandleLowBatteryStatusChanged();
    void slotHandleChargerStatus(TAPI_CHARGER_STATUS_E status);
    void slotHandleMasterClear();
    void slotHandleMasterReset();
    void slotHandleFlipStatusChanged(OV_FLIP_STATUS status);
    void slotHandleSliderStatusChanged(OV_SLIDER_STATUS status);
    void slotHandleShutdown();
    void slotHandleBacklightStatusChanged(OV_BACKLIGHT_STATUS status);
    void slotHandleUserActivityStatusChanged(OV_USER_ACTIVITY_STATUS status);
    void slotHandleSystemTimeChanged(int seconds);
    void slotProcessSystemMsg(const QCString& msg, const QByteArray& data);

private:
    void init();
    void initSimInfo();
    void initSystemChannel();
    void releaseSystemChannel();
    void initPhoneMsgClient();
    void releasePhoneMsgClient();
    // Asks for TOPIC (a system-channel or phone-client topic) to be connected (ON) or
    // disconnected on the adapter's thread: at once when called there, else queued.
    void routeOnOwnThread(const std::string& topic, bool on);
    // On the adapter's thread: carries out the changes asked so far, in order.
    void applyRouteChanges();
    // On the adapter's thread: makes or releases TOPIC's source and its connection. A topic
    // counts once towards its source however often it is subscribed.
    void changeRoute(const std::string& topic, bool on);
    // Connects (ON) or disconnects the signal that feeds TOPIC's slot; true when a connection
    // was made or removed.
    bool routeTopic(const std::string& topic, bool on);
    template <typename Sender, typename Signal, typename Slot>
    bool link(bool on, Sender* sender, Signal signal, Slot slot);
    void subscribeBus(const std::string& topic);
    void unsubscribeBus(const std::string& topic);
    void notifyCallback(const std::string& topic, int value);
    int getMsisdnFromTAPI(ovTypes::String& msisdn);
    static OV_BACKLIGHT_STATUS convertToOVBacklightStatus(int brightness);

    OV_EventAdapterCallback* mpCallback;
    SETUP_Utility* mpSetupUtility;
    QCopChannel* mpSystemChannel;
    int mSystemChannelCounter;
    PHONE_AsyncMsgReceiver* mpPhoneMsgClient;
    int mPhoneMsgClientCounter;
    ovTypes::String mIMSI;
    ovTypes::String mHomePLMN;
    bool mSimInfoRead;
    std::set<std::string> mBusTopics; // left on the bus at destruction
    std::mutex mRouteChangesMutex;
    std::deque<std::pair<std::string, bool>> mRouteChanges; // asked, not yet carried out
    std::set<std::string> mRoutedTopics; // connected system-channel and phone-client topics
};

#endif
