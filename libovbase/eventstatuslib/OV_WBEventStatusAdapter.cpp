#include "eventstatuslib/OV_WBEventStatusAdapter.h"

#include "eventstatuslib/OV_Event.h"
#include "settings/NR_SettingMgr.h"
#include "types/FnLog.h"

#include "ES_EventPublisher.h"
#include "ES_EventSubscriber.h"
#include "PHONE_AsyncMsgReceiver.h"
#include "QCopChannel.h"
#include "SETUP_Utility.h"
#include "UTIL.h"

#include <QDataStream>
#include <QDateTime>
#include <QIODevice>
#include <QMetaObject>
#include <QString>
#include <QThread>
#include <cstdlib>
#include <sys/time.h>

#define OV_PLATFORM_TOPIC(name) "/kestrix/orvel/platform/" name

const std::string OV_WBEventStatusAdapter::EVENT_MASTER_CLEAR = OV_PLATFORM_TOPIC("master_clear");
const std::string OV_WBEventStatusAdapter::EVENT_MASTER_RESET = OV_PLATFORM_TOPIC("master_reset");
const std::string OV_WBEventStatusAdapter::EVENT_SMS_PUSH = OV_PLATFORM_TOPIC("sms_push");
const std::string OV_WBEventStatusAdapter::EVENT_BACKLIGHT_STATUS_CHANGED =
    OV_PLATFORM_TOPIC("backlight_status_changed");
const std::string OV_WBEventStatusAdapter::EVENT_USER_ACTIVITY_STATUS_CHANGED =
    OV_PLATFORM_TOPIC("user_activity_status_changed");
const std::string OV_WBEventStatusAdapter::EVENT_DATA_NW_STATUS_CHANGED =
    OV_PLATFORM_TOPIC("data_nw_status_changed");
const std::string OV_WBEventStatusAdapter::EVENT_ROAMING_STATUS_CHANGED =
    OV_PLATFORM_TOPIC("roaming_status_changed");
const std::string OV_WBEventStatusAdapter::EVENT_LOW_BATTERY_STATUS_CHANGED =
    OV_PLATFORM_TOPIC("low_battery_status_changed");
const std::string OV_WBEventStatusAdapter::EVENT_FLIP_STATUS_CHANGED =
    OV_PLATFORM_TOPIC("flip_status_changed");
const std::string OV_WBEventStatusAdapter::EVENT_SLIDER_STATUS_CHANGED =
    OV_PLATFORM_TOPIC("slider_status_changed");
const std::string OV_WBEventStatusAdapter::EVENT_CHARGER_STATUS_CHANGED =
    OV_PLATFORM_TOPIC("charger_status_changed");
const std::string OV_WBEventStatusAdapter::EVENT_SYSTEM_TIME_CHANGED =
    OV_PLATFORM_TOPIC("system_time_changed");
const std::string OV_WBEventStatusAdapter::EVENT_SYSTEM_SHUTDOWN =
    OV_PLATFORM_TOPIC("system_shutdown");

#undef OV_PLATFORM_TOPIC

const std::string OV_WBEventStatusAdapter::PUSH_TOPIC_ORVEL =
    "/kestrix/push/wsp/x-oma-kestrix:orvel.ua";
const std::string OV_WBEventStatusAdapter::PUSH_TOPIC_DCD = "/kestrix/push/wsp/x-oma-DCD:DCD.ua";
const std::string OV_WBEventStatusAdapter::VALUE_PROPERTY = "__OV_Event__mValue";
const std::string OV_WBEventStatusAdapter::CONTENT_TYPE_PROPERTY = "Content-Type";
const std::string OV_WBEventStatusAdapter::DEFAULT_PUSH_CONTENT_TYPE =
    "application/vnd.kestrix.orvel+xml";

const char* const OV_WBEventStatusAdapter::SCREENSAVER_STATUS = "ScreensaverStatus";
const char* const OV_WBEventStatusAdapter::SCREENSAVER_TIMEOUT = "ScreenSaverTimeout";
const char* const OV_WBEventStatusAdapter::DISPLAY_TIMEOUT = "DiaplyTimeout";
const char* const OV_WBEventStatusAdapter::DIM_TIMEOUT = "DimTimeout";
const char* const OV_WBEventStatusAdapter::DIM_INTENSITY = "DimIntensity";

namespace {

// The platform's 0/1 readings where 0 means the "good" or "open" state: 0 gives 1, 1 gives 0,
// anything else 0.
int invertReading(int v) {
    return v == 0 ? 1 : 0;
}

// Platform texts are UTF-8.
ovTypes::String fromUtf8(const char* text) {
    return ovTypes::String(QString::fromUtf8(text).toStdWString());
}

typedef int (*TextCall)(char*, int);

int readPlatformText(TextCall call, ovTypes::String& out) {
    char buf[256];
    if (call(buf, sizeof(buf)) != UTIL_SUCCESS)
        return 1;
    out = fromUtf8(buf);
    return 0;
}

bool isPushTopic(const std::string& topic) {
    return topic == OV_WBEventStatusAdapter::PUSH_TOPIC_ORVEL ||
           topic == OV_WBEventStatusAdapter::PUSH_TOPIC_DCD;
}

bool isSystemChannelTopic(const std::string& topic) {
    return topic == OV_WBEventStatusAdapter::EVENT_BACKLIGHT_STATUS_CHANGED ||
           topic == OV_WBEventStatusAdapter::EVENT_USER_ACTIVITY_STATUS_CHANGED ||
           topic == OV_WBEventStatusAdapter::EVENT_FLIP_STATUS_CHANGED ||
           topic == OV_WBEventStatusAdapter::EVENT_SLIDER_STATUS_CHANGED ||
           topic == OV_WBEventStatusAdapter::EVENT_SYSTEM_TIME_CHANGED ||
           topic == OV_WBEventStatusAdapter::EVENT_MASTER_CLEAR ||
           topic == OV_WBEventStatusAdapter::EVENT_MASTER_RESET ||
           topic == OV_WBEventStatusAdapter::EVENT_SYSTEM_SHUTDOWN;
}

bool isPhoneClientTopic(const std::string& topic) {
    return topic == OV_WBEventStatusAdapter::EVENT_DATA_NW_STATUS_CHANGED ||
           topic == OV_WBEventStatusAdapter::EVENT_ROAMING_STATUS_CHANGED ||
           topic == OV_WBEventStatusAdapter::EVENT_LOW_BATTERY_STATUS_CHANGED ||
           topic == OV_WBEventStatusAdapter::EVENT_CHARGER_STATUS_CHANGED;
}

} // namespace

OV_WBEventStatusAdapter::OV_WBEventStatusAdapter() : OV_WBEventStatusAdapter(nullptr) {}

OV_WBEventStatusAdapter::OV_WBEventStatusAdapter(OV_EventAdapterCallback* callback)
    : mpCallback(callback), mpSetupUtility(new SETUP_Utility), mpSystemChannel(nullptr),
      mSystemChannelCounter(0), mpPhoneMsgClient(nullptr), mPhoneMsgClientCounter(0),
      mSimInfoRead(false) {
    init();
}

OV_WBEventStatusAdapter::~OV_WBEventStatusAdapter() {
    OV_LOG(5, "OV_WBEventStatusAdapter destructor entered.\n\n");
    // Leave the bus first: once unsubscribed, no delivery can reach this object any more.
    for (const std::string& topic : mBusTopics)
        ES_EventSubscriber::unsubscribe(topic, this);
    mBusTopics.clear();
    delete mpSystemChannel;
    mpSystemChannel = nullptr;
    delete mpPhoneMsgClient;
    mpPhoneMsgClient = nullptr;
    delete mpSetupUtility;
    mpSetupUtility = nullptr;
    OV_LOG(5, "OV_WBEventStatusAdapter destructor exiting.\n\n");
}

void OV_WBEventStatusAdapter::init() {
    initSimInfo();
    OV_LOG(5, "OV_WBEventStatusAdapter: init() completed.\n\n");
}

void OV_WBEventStatusAdapter::initSimInfo() {
    OV_LOG(5, "Getting SIM info: IMSI and Home PLMN \n\n");
    TAPI_SIM_IMSI_INFO_T info;
    int result = TAPI_SIM_GetImsiExt(&info);
    if (result == TAPI_SUCCESS) {
        std::string plmn = std::string(info.szMcc) + info.szMnc;
        mHomePLMN = ovTypes::String(ovTypes::ID(plmn));
        mIMSI = ovTypes::String(ovTypes::ID(plmn + info.szMsin));
        mSimInfoRead = true;
        OV_LOG(5, "TAPI_SIM_GetImsiExt() returns success.\n\n");
    } else {
        OV_LOG(3, "TAPI_SIM_GetImsiExt() returns failure.\n\n");
    }
}

// ---- subscriptions ----------------------------------------------------------------------

void OV_WBEventStatusAdapter::subscribe(const std::string& topic) {
    OV_LOG(5, "Subscribing to eventType: %s\n\n", topic.c_str());
    if (isPhoneClientTopic(topic) || isSystemChannelTopic(topic)) {
        routeOnOwnThread(topic, true);
    } else if (topic == EVENT_SMS_PUSH) {
        subscribeBus(PUSH_TOPIC_ORVEL);
        subscribeBus(PUSH_TOPIC_DCD);
    } else {
        subscribeBus(topic);
    }
    OV_LOG(5, "Subscribed to eventType: %s\n\n", topic.c_str());
}

void OV_WBEventStatusAdapter::unsubscribe(const std::string& topic) {
    if (isPhoneClientTopic(topic) || isSystemChannelTopic(topic)) {
        routeOnOwnThread(topic, false);
    } else if (topic == EVENT_SMS_PUSH) {
        unsubscribeBus(PUSH_TOPIC_ORVEL);
        unsubscribeBus(PUSH_TOPIC_DCD);
    } else {
        unsubscribeBus(topic);
    }
}

void OV_WBEventStatusAdapter::routeOnOwnThread(const std::string& topic, bool on) {
    {
        std::lock_guard<std::mutex> lock(mRouteChangesMutex);
        mRouteChanges.emplace_back(topic, on);
    }
    // Changes queued earlier from other threads go first, so the order asked is kept.
    if (QThread::currentThread() == thread())
        applyRouteChanges();
    else
        QMetaObject::invokeMethod(
            this, [this] { applyRouteChanges(); }, Qt::QueuedConnection);
}

void OV_WBEventStatusAdapter::applyRouteChanges() {
    for (;;) {
        std::pair<std::string, bool> change;
        {
            std::lock_guard<std::mutex> lock(mRouteChangesMutex);
            if (mRouteChanges.empty())
                return;
            change = mRouteChanges.front();
            mRouteChanges.pop_front();
        }
        changeRoute(change.first, change.second);
    }
}

void OV_WBEventStatusAdapter::changeRoute(const std::string& topic, bool on) {
    bool phoneClient = isPhoneClientTopic(topic);
    if (on) {
        if (!mRoutedTopics.insert(topic).second)
            return; // connected already: one connection, counted once
        if (phoneClient)
            initPhoneMsgClient();
        else
            initSystemChannel();
        routeTopic(topic, true);
    } else {
        // A topic that was never routed releases nothing: the source may serve other topics.
        if (mRoutedTopics.erase(topic) == 0)
            return;
        routeTopic(topic, false);
        if (phoneClient)
            releasePhoneMsgClient();
        else
            releaseSystemChannel();
    }
}

template <typename Sender, typename Signal, typename Slot>
bool OV_WBEventStatusAdapter::link(bool on, Sender* sender, Signal signal, Slot slot) {
    if (on)
        return static_cast<bool>(connect(sender, signal, this, slot, Qt::UniqueConnection));
    return disconnect(sender, signal, this, slot);
}

bool OV_WBEventStatusAdapter::routeTopic(const std::string& topic, bool on) {
    typedef OV_WBEventStatusAdapter A;
    typedef PHONE_AsyncMsgReceiver P;
    // The phone client's signals.
    if (topic == EVENT_DATA_NW_STATUS_CHANGED)
        return link(on, mpPhoneMsgClient, &P::signalGprsService, &A::slotHandleGprsService);
    if (topic == EVENT_ROAMING_STATUS_CHANGED)
        return link(on, mpPhoneMsgClient, &P::signalRoamingState, &A::slotHandleRoamingState);
    if (topic == EVENT_LOW_BATTERY_STATUS_CHANGED)
        return link(on, mpPhoneMsgClient, &P::signalLowBatteryStatusChanged,
                    &A::slotHandleLowBatteryStatusChanged);
    if (topic == EVENT_CHARGER_STATUS_CHANGED)
        return link(on, mpPhoneMsgClient, &P::signalChargeStatus, &A::slotHandleChargerStatus);
    // Our own signals, emitted for the system channel's messages.
    if (topic == EVENT_BACKLIGHT_STATUS_CHANGED)
        return link(on, this, &A::signalBacklighStatusChanged,
                    &A::slotHandleBacklightStatusChanged);
    if (topic == EVENT_USER_ACTIVITY_STATUS_CHANGED)
        return link(on, this, &A::signalUserActivityStatusChanged,
                    &A::slotHandleUserActivityStatusChanged);
    if (topic == EVENT_FLIP_STATUS_CHANGED)
        return link(on, this, &A::signalFlipStatusChanged, &A::slotHandleFlipStatusChanged);
    if (topic == EVENT_SLIDER_STATUS_CHANGED)
        return link(on, this, &A::signalSliderStatusChanged, &A::slotHandleSliderStatusChanged);
    if (topic == EVENT_SYSTEM_TIME_CHANGED)
        return link(on, this, &A::signalSystemTimeChanged, &A::slotHandleSystemTimeChanged);
    if (topic == EVENT_MASTER_CLEAR)
        return link(on, this, &A::signalMasterClear, &A::slotHandleMasterClear);
    if (topic == EVENT_MASTER_RESET)
        return link(on, this, &A::signalMasterReset, &A::slotHandleMasterReset);
    if (topic == EVENT_SYSTEM_SHUTDOWN)
        return link(on, this, &A::signalShutdown, &A::slotHandleShutdown);
    return false;
}

void OV_WBEventStatusAdapter::initSystemChannel() {
    if (!mpSystemChannel) {
        OV_LOG(5, "Creating an instance of a QCopChannel for SYSTEM_CHANNEL.\n\n");
        mpSystemChannel = new QCopChannel(SYSTEM_CHANNEL);
        OV_LOG(5, "Created QCopChannel for SYSTEM_CHANNEL.\n\n");
        connect(mpSystemChannel, &QCopChannel::received, this,
                &OV_WBEventStatusAdapter::slotProcessSystemMsg);
        OV_LOG(5, "Connected to SYSTEM_CHANNEL to receive generic system channel messages.\n\n");
    }
    ++mSystemChannelCounter;
    OV_LOG(5, "Exiting initSystemChannel. Event counter = %d\n\n", mSystemChannelCounter);
}

void OV_WBEventStatusAdapter::releaseSystemChannel() {
    --mSystemChannelCounter;
    OV_LOG(5, "Counter decremented. Event counter = %d\n\n", mSystemChannelCounter);
    if (mSystemChannelCounter <= 0) {
        OV_LOG(5, "Deleting mpSystemChannel and setting pointer to NULL.\n\n");
        delete mpSystemChannel;
        mpSystemChannel = nullptr;
        mSystemChannelCounter = 0;
    }
}

void OV_WBEventStatusAdapter::initPhoneMsgClient() {
    if (!mpPhoneMsgClient) {
        OV_LOG(5, "Creating an instance of PHONE_AsyncMsgReceiver.\n\n");
        mpPhoneMsgClient = new PHONE_AsyncMsgReceiver;
    }
    ++mPhoneMsgClientCounter;
}

void OV_WBEventStatusAdapter::releasePhoneMsgClient() {
    --mPhoneMsgClientCounter;
    OV_LOG(5, "Counter decremented. Event counter = %d\n\n", mPhoneMsgClientCounter);
    if (mPhoneMsgClientCounter <= 0) {
        OV_LOG(5, "Deleting mpPhoneMsgClient and setting pointer to NULL.\n\n");
        delete mpPhoneMsgClient;
        mpPhoneMsgClient = nullptr;
        mPhoneMsgClientCounter = 0;
    }
}

void OV_WBEventStatusAdapter::subscribeBus(const std::string& topic) {
    int status = ES_EventSubscriber::subscribe(topic, this);
    if (status != ES_OK) {
        OV_LOG(2,
               "Failed to subscribe with WB Event Subsystem for event : %s\n\t\tError code = "
               "%d\n\n",
               topic.c_str(), status);
        return;
    }
    mBusTopics.insert(topic);
}

void OV_WBEventStatusAdapter::unsubscribeBus(const std::string& topic) {
    int status = ES_EventSubscriber::unsubscribe(topic, this);
    if (status != ES_OK)
        OV_LOG(2, "Failed to unsubscribe with WB Event Subsystem for event : %s\n\n",
               topic.c_str());
    mBusTopics.erase(topic);
}

// ---- events in and out ------------------------------------------------------------------

void OV_WBEventStatusAdapter::toPlatformEvent(const OV_Event& event, ES_Event* platformEvent) {
    platformEvent->setTopic(event.mEventType);
    platformEvent->setProperty(VALUE_PROPERTY, std::to_string(event.mValue));
    if (event.mPropMap != nullptr) {
        for (const auto& entry : *event.mPropMap)
            platformEvent->setProperty(entry.first, entry.second);
    }
}

void OV_WBEventStatusAdapter::fromPlatformEvent(const ES_Event& platformEvent, OV_Event* event) {
    for (const auto& entry : platformEvent.getProperties()) {
        if (entry.first == VALUE_PROPERTY)
            event->mValue = static_cast<int32_t>(std::strtol(entry.second.c_str(), nullptr, 10));
        else
            event->setProperty(entry.first, entry.second);
    }
}

void OV_WBEventStatusAdapter::handleEvent(const ES_Event& platformEvent) {
    OV_LOG(5, "Received ES_Event: \n\n");
    OV_LOG(5, "Translating ES_Event into OV_Event...\n\n");
    OV_Event event(platformEvent.getTopic());
    fromPlatformEvent(platformEvent, &event);
    if (isPushTopic(platformEvent.getTopic())) {
        OV_LOG(5, "It's a wap push event! rename to OV Push Event...\n\n");
        event.mEventType = EVENT_SMS_PUSH;
        std::string contentType;
        if (event.getProperty(CONTENT_TYPE_PROPERTY, &contentType)) {
            OV_LOG(5, "WapPushMsg Type:%s\n\n", contentType.c_str());
        } else {
            event.setProperty(CONTENT_TYPE_PROPERTY, DEFAULT_PUSH_CONTENT_TYPE);
            OV_LOG(5, "Not find Content-Type, set to "
                      "default:application/vnd.kestrix.orvel+xml\n\n");
        }
    }
    OV_LOG(5, "Notify the callback handler.\n\n");
    if (mpCallback)
        mpCallback->notify(event);
}

void OV_WBEventStatusAdapter::publish(OV_Event& event) {
    OV_LOG(5, "OV_WBEventStatusAdapter::publish Entered. Event type = %s\n\n",
           event.mEventType.c_str());
    ES_Event platformEvent;
    toPlatformEvent(event, &platformEvent);
    int status = ES_EventPublisher::publish(platformEvent);
    if (status == ES_ERR_NO_SUBSCRIBER)
        OV_LOG(5,
               "It seems that no one is registered to listen to this event: %s. Error status "
               "= %d\n\n",
               event.mEventType.c_str(), status);
    else if (status != ES_OK)
        OV_LOG(2, "Failed to publish with WB Event Subsystem for event : %s\n\n",
               event.mEventType.c_str());
    OV_LOG(5, "OV_WBEventStatusAdapter::publish Exiting.\n\n");
}

void OV_WBEventStatusAdapter::notifyCallback(const std::string& topic, int value) {
    OV_Event event(topic);
    event.mValue = value;
    if (mpCallback)
        mpCallback->notify(event);
}

void OV_WBEventStatusAdapter::slotProcessSystemMsg(const QCString& msg, const QByteArray& data) {
    if (msg == "master clear") {
        emit signalMasterClear();
    } else if (msg == "master reset") {
        emit signalMasterReset();
    } else if (msg == "FlipOpened") {
        emit signalFlipStatusChanged(OV_FLIP_OPEN);
    } else if (msg == "FlipClosed") {
        emit signalFlipStatusChanged(OV_FLIP_CLOSED);
    } else if (msg == "sliderOpened") {
        emit signalSliderStatusChanged(OV_SLIDER_OPEN);
    } else if (msg == "sliderClosed") {
        emit signalSliderStatusChanged(OV_SLIDER_CLOSED);
    } else if (msg == "DPL_BKLGT_RESTORED") {
        emit signalBacklighStatusChanged(OV_BACKLIGHT_ON);
        emit signalUserActivityStatusChanged(OV_USER_ACTIVE);
    } else if (msg == "DPL_BKLGT_DIMMED") {
        emit signalBacklighStatusChanged(OV_BACKLIGHT_OFF);
        emit signalUserActivityStatusChanged(OV_USER_INACTIVE);
    } else if (msg == "TimeInfoChanged") {
        // Short or garbled data leaves the stream in error and the message is dropped.
        QDataStream in(data);
        in.setVersion(QDataStream::Qt_6_0);
        qint32 flags = 0;
        QDateTime previous, current;
        in >> flags >> previous >> current;
        if (in.status() == QDataStream::Ok && previous.isValid() && current.isValid() &&
            (flags & (1 | 2 | 4)) != 0)
            emit signalSystemTimeChanged(static_cast<int>(previous.secsTo(current)));
    } else if (msg == "KillingPolicy(int)") {
        QDataStream in(data);
        in.setVersion(QDataStream::Qt_6_0);
        qint32 policy = 0;
        in >> policy;
        if (in.status() == QDataStream::Ok && policy == 1)
            emit signalShutdown();
    }
}

void OV_WBEventStatusAdapter::slotHandleRoamingState(TAPI_NETWORK_ROAM_E state) {
    OV_ROAMING_STATUS status = state != 0 ? OV_ROAMING : OV_HOME_NETWORK;
    OV_LOG(5, "OV_WBEventStatusAdapter::slotHandleRoamingState %s\n\n",
           status == OV_ROAMING ? "ROAMING" : "HOME");
    notifyCallback(EVENT_ROAMING_STATUS_CHANGED, status);
}

void OV_WBEventStatusAdapter::slotHandleGprsService(bool available) {
    OV_LOG(5, "OV_WBEventStatusAdapter::slotHandleGprsService %s\n\n",
           available ? "GPRS Available" : "GPRS Unavailable");
    notifyCallback(EVENT_DATA_NW_STATUS_CHANGED,
                   available ? OV_DATA_NW_AVAILABLE : OV_DATA_NW_UNAVAILABLE);
}

void OV_WBEventStatusAdapter::slotHandleLowBatteryStatusChanged() {
    OV_BATTERY_STATUS status;
    if (getLowBatteryStatus(status) != 0)
        return; // nothing known to report
    OV_LOG(5, "OV_WBEventStatusAdapter::slotHandleLowBatteryStatusChanged %s\n\n",
           status == OV_BATTERY_OK ? "Battery OK." : "Low Battery");
    notifyCallback(EVENT_LOW_BATTERY_STATUS_CHANGED, status);
}

void OV_WBEventStatusAdapter::slotHandleChargerStatus(TAPI_CHARGER_STATUS_E status) {
    int value = invertReading(static_cast<int>(status));
    OV_LOG(5, "OV_WBEventStatusAdapter::slotHandleChargerStatus %s\n\n",
           value == OV_CHARGER_ATTACHED ? "CHARGER ATTACHED" : "CHARGER DETACHED");
    notifyCallback(EVENT_CHARGER_STATUS_CHANGED, value);
}

void OV_WBEventStatusAdapter::slotHandleMasterClear() {
    OV_LOG(5, "OV_WBEventStatusAdapter::slotHandleMasterClear\n\n");
    notifyCallback(EVENT_MASTER_CLEAR, 0);
}

void OV_WBEventStatusAdapter::slotHandleMasterReset() {
    OV_LOG(5, "OV_WBEventStatusAdapter::slotHandleMasterReset\n\n");
    notifyCallback(EVENT_MASTER_RESET, 0);
}

void OV_WBEventStatusAdapter::slotHandleFlipStatusChanged(OV_FLIP_STATUS status) {
    OV_LOG(5, "OV_WBEventStatusAdapter::slotHandleFlipStatusChanged %s\n\n",
           status == OV_FLIP_OPEN ? "FLIP OPEN" : "FLIP CLOSED");
    notifyCallback(EVENT_FLIP_STATUS_CHANGED, status);
}

void OV_WBEventStatusAdapter::slotHandleSliderStatusChanged(OV_SLIDER_STATUS status) {
    OV_LOG(5, "OV_WBEventStatusAdapter::slotHandleSliderStatusChanged %s\n\n",
           status == OV_SLIDER_OPEN ? "SLIDER OPEN" : "SLIDER CLOSED");
    notifyCallback(EVENT_SLIDER_STATUS_CHANGED, status);
}

void OV_WBEventStatusAdapter::slotHandleShutdown() {
    OV_LOG(5, "OV_WBEventStatusAdapter::slotHandleShutdown\n\n");
    notifyCallback(EVENT_SYSTEM_SHUTDOWN, 0);
}

void OV_WBEventStatusAdapter::slotHandleBacklightStatusChanged(OV_BACKLIGHT_STATUS status) {
    OV_LOG(5, "OV_WBEventStatusAdapter::slotHandleBacklightStatusChanged %s\n\n",
           status == OV_BACKLIGHT_ON ? "BACKLIGHT ON" : "BACKLIGHT OFF");
    notifyCallback(EVENT_BACKLIGHT_STATUS_CHANGED, status);
}

void OV_WBEventStatusAdapter::slotHandleUserActivityStatusChanged(OV_USER_ACTIVITY_STATUS status) {
    OV_LOG(5, "OV_WBEventStatusAdapter::slotHandleUserActivityStatusChanged %s\n\n",
           status == OV_USER_ACTIVE ? "USER ACTIVE" : "USER INACTIVE");
    notifyCallback(EVENT_USER_ACTIVITY_STATUS_CHANGED, status);
}

void OV_WBEventStatusAdapter::slotHandleSystemTimeChanged(int seconds) {
    OV_LOG(5, "OV_WBEventStatusAdapter::slotHandleSystemTimeChanged %d\n\n", seconds);
    notifyCallback(EVENT_SYSTEM_TIME_CHANGED, seconds);
}

// ---- status -----------------------------------------------------------------------------

int OV_WBEventStatusAdapter::getRoamingStatus(OV_ROAMING_STATUS& status) {
    int v = 0;
    if (UTIL_GetRoamStatus(&v) != UTIL_SUCCESS)
        return 1;
    status = v != 0 ? OV_ROAMING : OV_HOME_NETWORK;
    return 0;
}

int OV_WBEventStatusAdapter::getDataNetworkStatus(OV_DATA_NW_STATUS& status) {
    int v = 0;
    if (UTIL_GetGprsServiceStatus(&v) != UTIL_SUCCESS)
        return 1;
    status = v != 0 ? OV_DATA_NW_AVAILABLE : OV_DATA_NW_UNAVAILABLE;
    return 0;
}

int OV_WBEventStatusAdapter::getLowBatteryStatus(OV_BATTERY_STATUS& status) {
    int v = 0;
    if (UTIL_GetLowBatteryStatus(&v) != UTIL_SUCCESS)
        return 1;
    status = static_cast<OV_BATTERY_STATUS>(invertReading(v));
    return 0;
}

OV_BACKLIGHT_STATUS OV_WBEventStatusAdapter::convertToOVBacklightStatus(int brightness) {
    return brightness != 0 ? OV_BACKLIGHT_ON : OV_BACKLIGHT_OFF;
}

int OV_WBEventStatusAdapter::getBacklightStatus(OV_BACKLIGHT_STATUS& status) {
    int brightness = 0;
    if (mpSetupUtility->getLCDBrightness(&brightness) != 0)
        return 1;
    OV_LOG(5, "LCD Brightness Value = %d\n\n", brightness);
    status = convertToOVBacklightStatus(brightness);
    return 0;
}

int OV_WBEventStatusAdapter::getFlipStatus(OV_FLIP_STATUS& status) {
    int v = 0;
    if (UTIL_GetFlipStatus(&v) != UTIL_SUCCESS)
        return 1;
    status = static_cast<OV_FLIP_STATUS>(invertReading(v));
    return 0;
}

int OV_WBEventStatusAdapter::getSliderStatus(OV_SLIDER_STATUS& status) {
    int v = 0;
    if (UTIL_GetSliderStatus(&v) != UTIL_SUCCESS)
        return 1;
    status = static_cast<OV_SLIDER_STATUS>(invertReading(v));
    return 0;
}

int OV_WBEventStatusAdapter::getChargerStatus(OV_CHARGER_STATUS& status) {
    int v = 0;
    if (UTIL_GetChargeStatus(&v) != UTIL_SUCCESS)
        return 1;
    status = v != 0 ? OV_CHARGER_ATTACHED : OV_CHARGER_DETACHED;
    return 0;
}

int OV_WBEventStatusAdapter::getUserActivityStatus(OV_USER_ACTIVITY_STATUS& status) {
    OV_BACKLIGHT_STATUS backlight;
    int result = getBacklightStatus(backlight);
    if (result != 0)
        return result;
    status = backlight == OV_BACKLIGHT_ON ? OV_USER_ACTIVE : OV_USER_INACTIVE;
    return 0;
}

namespace {

// The number stored in the settings (OVCore.System / MSISDN); non-zero when there is none.
int getMsisdnFromSetting(ovTypes::String& msisdn) {
    OV_LOG(5, "getMSISDN: trying to read the value from CFG file...\n\n");
    ovTypes::String value;
    if (OrvelSettingMgr::getSettingMgrInstance()->getString(OrvelSettingMgr::GROUP_SYSTEM, "MSISDN",
                                                            value) != 0)
        return 1;
    msisdn = value;
    OV_LOG(5, "getMSISDN: using the MSISDN value: %s of Orvel CFG file\n\n",
           ovTypes::ID(value).c_str());
    return 0;
}

} // namespace

int OV_WBEventStatusAdapter::getMSISDN(ovTypes::String& msisdn) {
    if (getMsisdnFromSetting(msisdn) == 0)
        return 0;
    return getMsisdnFromTAPI(msisdn);
}

int OV_WBEventStatusAdapter::getMsisdnFromTAPI(ovTypes::String& msisdn) {
    OV_LOG(5, "getting MSISDN from TAPI OwnNumber entry\n\n");
    TAPI_OWNNUMBER_ENTRY_T entry;
    int result = TAPI_OWNNUMBER_GetEntry(0, &entry);
    if (result != TAPI_SUCCESS) {
        OV_LOG(3,
               "TAPI_OWNNUMBER_GetEntry() returns failure. Unable to initialize MSISDN. "
               "retCode = %d\n",
               result);
        return 1;
    }
    msisdn = ovTypes::String(ovTypes::ID(entry.szNumber));
    OV_LOG(5, "MSISDN from OwnNumber = %s.\n\n", entry.szNumber);
    return 0;
}

int OV_WBEventStatusAdapter::getIMSI(ovTypes::String& imsi) {
    if (!mSimInfoRead)
        return 1;
    imsi = mIMSI;
    return 0;
}

int OV_WBEventStatusAdapter::getHomePLMN(ovTypes::String& plmn) {
    if (!mSimInfoRead)
        return 1;
    plmn = mHomePLMN;
    return 0;
}

int OV_WBEventStatusAdapter::getPhoneModelId(ovTypes::String& model) {
    return readPlatformText(UTIL_GetPhoneModelId, model);
}

int OV_WBEventStatusAdapter::getPhoneSwVersion(ovTypes::String& version) {
    return readPlatformText(UTIL_GetPhoneSwVersion, version);
}

int OV_WBEventStatusAdapter::getHomeCarrierName(ovTypes::String& name) {
    return readPlatformText(UTIL_GetHomeCarrierName, name);
}

int OV_WBEventStatusAdapter::getCurrentPLMN(ovTypes::String& plmn) {
    return readPlatformText(UTIL_GetCurrentPlmn, plmn);
}

int OV_WBEventStatusAdapter::getCurrentCarrierName(ovTypes::String& name) {
    return readPlatformText(UTIL_GetCurrentCarrierName, name);
}

int OV_WBEventStatusAdapter::getCurrentLanguageCode(ovTypes::String& code) {
    return readPlatformText(UTIL_Language_getSystemLanguageCode, code);
}

int OV_WBEventStatusAdapter::getInstalledLanguageCodes(std::vector<ovTypes::String>& codes) {
    int count = 0;
    if (UTIL_Language_getInstalledLanguageCount(&count) != UTIL_SUCCESS)
        return 1;
    std::vector<ovTypes::String> found;
    for (int i = 0; i < count; ++i) {
        char buf[64];
        if (UTIL_Language_getInstalledLanguageCode(i, buf, sizeof(buf)) != UTIL_SUCCESS)
            return 1;
        found.push_back(fromUtf8(buf));
    }
    codes.swap(found);
    return 0;
}

int OV_WBEventStatusAdapter::getCurrentTime(long& seconds) {
    struct timeval now;
    // Seconds past the range of a long fail, as gettimeofday does with a 32-bit time_t.
    if (gettimeofday(&now, nullptr) != 0 || static_cast<long>(now.tv_sec) != now.tv_sec)
        return 1;
    seconds = static_cast<long>(now.tv_sec);
    return 0;
}

int OV_WBEventStatusAdapter::getNitzStatus(bool& available) {
    int status = 0;
    if (TAPI_NETWORK_GetNitzStatus(&status) != TAPI_SUCCESS)
        return 1;
    available = status == 1;
    return 0;
}

int OV_WBEventStatusAdapter::getSlideClosedSetting(OV_SLIDE_CLOSED_SETTING&) {
    return 1; // the platform has no such setting
}
