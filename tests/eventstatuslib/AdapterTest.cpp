// The platform adapter against the host platform: routing of subscriptions, system-channel
// messages, the wire form, push renaming and the status getters over the simulated phone.
#include "eventstatuslib/OV_Event.h"
#include "eventstatuslib/OV_WBEventStatusAdapter.h"

#include "support/QtLoop.h"
#include "support/StderrCapture.h"
#include "support/TempDir.h"

#include "ES_EventPublisher.h"
#include "OVPlatform.h"
#include "QCopChannel.h"

#include <QDataStream>
#include <QDateTime>
#include <QIODevice>
#include <gtest/gtest.h>

#include <mutex>
#include <regex>

namespace {

typedef OV_WBEventStatusAdapter Adapter;

// Keeps what the adapter notifies (from whichever thread) as "topic=value", the platform
// topics' shared beginning left out, with each property as " name:value".
class RecordingCallback : public OV_EventAdapterCallback {
public:
    void notify(OV_Event& event) override {
        const std::string platform = "/kestrix/orvel/platform/";
        std::string text = event.mEventType;
        if (text.compare(0, platform.size(), platform) == 0)
            text.erase(0, platform.size());
        text += "=" + std::to_string(event.mValue);
        if (event.mPropMap) {
            for (const auto& property : *event.mPropMap)
                text += " " + property.first + ":" + property.second;
        }
        std::lock_guard<std::mutex> lock(mMutex);
        mEvents.push_back(text);
    }
    std::vector<std::string> events() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mEvents;
    }
    size_t count() { return events().size(); }
    bool waitFor(size_t n) {
        return ovtest::runQtUntil([&] { return count() >= n; });
    }

private:
    std::mutex mMutex;
    std::vector<std::string> mEvents;
};

class AdapterTest : public ::testing::Test {
protected:
    void SetUp() override { ovtest::ensureQtApp(); }

    static QByteArray encode(const std::function<void(QDataStream&)>& write) {
        QByteArray data;
        QDataStream out(&data, QIODevice::WriteOnly);
        out.setVersion(QDataStream::Qt_6_0);
        write(out);
        return data;
    }

    ovtest::TempDeviceRoot mRoot;
    RecordingCallback mCallback;
};

// The adapter's lines about its two sources, in order, without their heads.
std::vector<std::string> sourceLines(const std::string& log) {
    static const std::regex line("\t([^\t\n]*(counter|instance|Deleting mp)[^\n]*)\n\n");
    std::vector<std::string> lines;
    for (std::sregex_iterator it(log.begin(), log.end(), line), end; it != end; ++it)
        lines.push_back((*it)[1]);
    return lines;
}

// The system channel and the phone client each serve several topics: a topic counts once
// however often it is subscribed, one never subscribed releases nothing, and each source goes
// with its last topic. What a source hears becomes a status event, with its line.
TEST_F(AdapterTest, SourcesAreSharedByTopicsAndGoWithTheLast) {
    ovtest::StderrCapture capture;
    {
        Adapter adapter(&mCallback);
        for (const std::string& topic :
             {Adapter::EVENT_FLIP_STATUS_CHANGED, Adapter::EVENT_FLIP_STATUS_CHANGED,
              Adapter::EVENT_BACKLIGHT_STATUS_CHANGED, Adapter::EVENT_ROAMING_STATUS_CHANGED,
              Adapter::EVENT_ROAMING_STATUS_CHANGED, Adapter::EVENT_CHARGER_STATUS_CHANGED,
              Adapter::EVENT_LOW_BATTERY_STATUS_CHANGED})
            adapter.subscribe(topic);
        for (const std::string& topic :
             {Adapter::EVENT_SLIDER_STATUS_CHANGED, Adapter::EVENT_DATA_NW_STATUS_CHANGED,
              Adapter::EVENT_FLIP_STATUS_CHANGED, Adapter::EVENT_CHARGER_STATUS_CHANGED})
            adapter.unsubscribe(topic);
        EXPECT_TRUE(QCopChannel::isRegistered(SYSTEM_CHANNEL));
        // The flip and charger connections are gone, the others stay.
        QCopChannel::send(SYSTEM_CHANNEL, "FlipOpened");
        ovplatform::setRoaming(true);
        QCopChannel::send(SYSTEM_CHANNEL, "DPL_BKLGT_RESTORED");
        ovplatform::setChargerAttached(true);
        ovplatform::setLowBattery(true);
        ASSERT_TRUE(mCallback.waitFor(3));
        ovtest::runQtFor(50);
        EXPECT_EQ(mCallback.events(), (std::vector<std::string>{"roaming_status_changed=1",
                                                                "backlight_status_changed=2",
                                                                "low_battery_status_changed=0"}));
        adapter.unsubscribe(Adapter::EVENT_BACKLIGHT_STATUS_CHANGED);
        EXPECT_FALSE(QCopChannel::isRegistered(SYSTEM_CHANNEL));
        adapter.unsubscribe(Adapter::EVENT_BACKLIGHT_STATUS_CHANGED); // once too often
        adapter.unsubscribe(Adapter::EVENT_ROAMING_STATUS_CHANGED);
        adapter.unsubscribe(Adapter::EVENT_LOW_BATTERY_STATUS_CHANGED);
        // Nothing is listening any more.
        ovplatform::setRoaming(false);
        QCopChannel::send(SYSTEM_CHANNEL, "DPL_BKLGT_RESTORED");
        ovtest::runQtFor(50);
        EXPECT_EQ(mCallback.count(), 3u);
    }
    EXPECT_TRUE(capture.has("slotHandleRoamingState()\tOV_WBEventStatusAdapter::"
                            "slotHandleRoamingState ROAMING\n\n"));
    EXPECT_TRUE(
        capture.has("OV_WBEventStatusAdapter::slotHandleLowBatteryStatusChanged Low Battery\n\n"));
    EXPECT_EQ(sourceLines(capture.text()),
              (std::vector<std::string>{
                  "Creating an instance of a QCopChannel for SYSTEM_CHANNEL.",
                  "Exiting initSystemChannel. Event counter = 1",
                  "Exiting initSystemChannel. Event counter = 2",
                  "Creating an instance of PHONE_AsyncMsgReceiver.",
                  "Counter decremented. Event counter = 1",
                  "Counter decremented. Event counter = 2",
                  "Counter decremented. Event counter = 0",
                  "Deleting mpSystemChannel and setting pointer to NULL.",
                  "Counter decremented. Event counter = 1",
                  "Counter decremented. Event counter = 0",
                  "Deleting mpPhoneMsgClient and setting pointer to NULL.",
              }));
}

// The signatures other code connects to by name.
TEST_F(AdapterTest, SignalAndSlotSignaturesAreExact) {
    const QMetaObject* meta = &Adapter::staticMetaObject;
    for (const char* signal :
         {"signalMasterClear()", "signalMasterReset()", "signalFlipStatusChanged(OV_FLIP_STATUS)",
          "signalSliderStatusChanged(OV_SLIDER_STATUS)", "signalShutdown()",
          "signalBacklighStatusChanged(OV_BACKLIGHT_STATUS)",
          "signalUserActivityStatusChanged(OV_USER_ACTIVITY_STATUS)",
          "signalSystemTimeChanged(int)"})
        EXPECT_GE(meta->indexOfSignal(QMetaObject::normalizedSignature(signal)), 0) << signal;
    for (const char* slot :
         {"slotHandleRoamingState(TAPI_NETWORK_ROAM_E)", "slotHandleGprsService(bool)",
          "slotHandleLowBatteryStatusChanged()", "slotHandleChargerStatus(TAPI_CHARGER_STATUS_E)",
          "slotHandleMasterClear()", "slotHandleMasterReset()",
          "slotHandleFlipStatusChanged(OV_FLIP_STATUS)",
          "slotHandleSliderStatusChanged(OV_SLIDER_STATUS)", "slotHandleShutdown()",
          "slotHandleBacklightStatusChanged(OV_BACKLIGHT_STATUS)",
          "slotHandleUserActivityStatusChanged(OV_USER_ACTIVITY_STATUS)",
          "slotHandleSystemTimeChanged(int)",
          "slotProcessSystemMsg(const QCString&,const QByteArray&)"})
        EXPECT_GE(meta->indexOfSlot(QMetaObject::normalizedSignature(slot)), 0) << slot;
}

TEST_F(AdapterTest, SystemMessagesWithDataAndGarbage) {
    Adapter adapter(&mCallback);
    adapter.subscribe(Adapter::EVENT_SYSTEM_TIME_CHANGED);
    adapter.subscribe(Adapter::EVENT_SYSTEM_SHUTDOWN);
    adapter.subscribe(Adapter::EVENT_MASTER_CLEAR);
    adapter.subscribe(Adapter::EVENT_BACKLIGHT_STATUS_CHANGED);
    adapter.subscribe(Adapter::EVENT_USER_ACTIVITY_STATUS_CHANGED);
    // A dimmed backlight gives two events, a restored one the opposite two.
    QCopChannel::send(SYSTEM_CHANNEL, "DPL_BKLGT_DIMMED");
    QCopChannel::send(SYSTEM_CHANNEL, "DPL_BKLGT_RESTORED");
    QDateTime before = QDateTime::fromSecsSinceEpoch(1000000, Qt::UTC);
    QDateTime after = QDateTime::fromSecsSinceEpoch(1000090, Qt::UTC);
    // Ignored: no flag of interest, short data, garbage, a policy other than 1, unknown name.
    QCopChannel::send(SYSTEM_CHANNEL, "TimeInfoChanged",
                      encode([&](QDataStream& s) { s << qint32(8) << before << after; }));
    QCopChannel::send(SYSTEM_CHANNEL, "TimeInfoChanged",
                      encode([&](QDataStream& s) { s << qint32(2); }));
    QCopChannel::send(SYSTEM_CHANNEL, "TimeInfoChanged", QByteArray("\x01", 1));
    QCopChannel::send(SYSTEM_CHANNEL, "KillingPolicy(int)",
                      encode([](QDataStream& s) { s << qint32(2); }));
    QCopChannel::send(SYSTEM_CHANNEL, "KillingPolicy(int)", QByteArray());
    QCopChannel::send(SYSTEM_CHANNEL, "no such message", QByteArray(1000, '\xff'));
    // Taken: a change of the time zone alone is a time change too.
    QCopChannel::send(SYSTEM_CHANNEL, "TimeInfoChanged",
                      encode([&](QDataStream& s) { s << qint32(4) << after << before; }));
    QCopChannel::send(SYSTEM_CHANNEL, "KillingPolicy(int)",
                      encode([](QDataStream& s) { s << qint32(1); }));
    ovplatform::sendMasterClear();
    ASSERT_TRUE(mCallback.waitFor(7));
    ovtest::runQtFor(50);
    EXPECT_EQ(mCallback.events(),
              (std::vector<std::string>{
                  "backlight_status_changed=0", "user_activity_status_changed=0",
                  "backlight_status_changed=2", "user_activity_status_changed=1",
                  "system_time_changed=-90", "system_shutdown=0", "master_clear=0"}));
}

TEST_F(AdapterTest, WireFormCarriesTheValueAndProperties) {
    OV_Event event("/t/wire");
    event.mValue = -42;
    event.setProperty("key49", "overwritten");
    for (int i = 0; i < 2000; ++i)
        event.setProperty("key" + std::to_string(i), std::string(i % 50, 'x'));
    ES_Event wire;
    Adapter::toPlatformEvent(event, &wire);
    EXPECT_EQ(wire.getTopic(), "/t/wire");
    EXPECT_EQ(wire.getProperties().size(), 2001u);
    EXPECT_EQ(wire.getProperties().at("__OV_Event__mValue"), "-42");

    OV_Event back(wire.getTopic());
    Adapter::fromPlatformEvent(wire, &back);
    EXPECT_EQ(back.mValue, -42);
    ASSERT_TRUE(back.mPropMap != nullptr);
    EXPECT_EQ(back.mPropMap->size(), 2000u);
    EXPECT_EQ(back.mPropMap->at("key49"), std::string(49, 'x'));

    // A property named like the value overwrites it on the wire; no properties: no map.
    OV_Event clash("/t/wire");
    clash.mValue = 1;
    clash.setProperty("__OV_Event__mValue", "7");
    ES_Event clashWire;
    Adapter::toPlatformEvent(clash, &clashWire);
    OV_Event clashBack("/t/wire");
    Adapter::fromPlatformEvent(clashWire, &clashBack);
    EXPECT_EQ(clashBack.mValue, 7);
    EXPECT_TRUE(clashBack.mPropMap == nullptr);
}

// Subscribing the push topic listens on both bus topics of a push.
TEST_F(AdapterTest, PushEventsFromTheBusAreRenamedWithADefaultContentType) {
    ovtest::StderrCapture capture;
    Adapter adapter(&mCallback);
    adapter.subscribe(Adapter::EVENT_SMS_PUSH);
    adapter.subscribe("/t/not-a-push");
    ES_Event plain(Adapter::PUSH_TOPIC_ORVEL);
    ES_Event typed(Adapter::PUSH_TOPIC_DCD);
    typed.setProperty("Content-Type", "text/plain");
    ES_Event other("/t/not-a-push");
    other.setProperty("__OV_Event__mValue", "12");
    for (const ES_Event* event : {&plain, &typed, &other})
        ASSERT_EQ(ES_EventPublisher::publish(*event), ES_OK);
    ASSERT_TRUE(mCallback.waitFor(3));
    EXPECT_EQ(mCallback.events(),
              (std::vector<std::string>{"sms_push=0 Content-Type:application/vnd.kestrix.orvel+xml",
                                        "sms_push=0 Content-Type:text/plain", "/t/not-a-push=12"}));
    EXPECT_TRUE(
        capture.has("Not find Content-Type, set to default:application/vnd.kestrix.orvel+xml\n\n"));
    EXPECT_TRUE(capture.has("WapPushMsg Type:text/plain\n\n"));
}

TEST_F(AdapterTest, PublishAndBusSubscriptionOutcomesAndTheirLines) {
    Adapter adapter(&mCallback);
    ovtest::StderrCapture capture;
    OV_Event lonely("/t/nobody"), empty("");
    adapter.publish(lonely);
    adapter.publish(empty);
    adapter.subscribe("");
    adapter.unsubscribe("/t/never-subscribed");
    EXPECT_TRUE(capture.has("It seems that no one is registered to listen to this event: "
                            "/t/nobody. Error status = 1\n\n"));
    // The failures, each once and at level 2.
    EXPECT_EQ(capture.count("{2} OV_WBEventStatusAdapter.cpp:"), 3u);
    EXPECT_TRUE(capture.has("Failed to publish with WB Event Subsystem for event : \n\n"));
    EXPECT_TRUE(capture.has("Failed to subscribe with WB Event Subsystem for event : \n\t\tError "
                            "code = 2\n\n"));
    EXPECT_TRUE(capture.has("Failed to unsubscribe with WB Event Subsystem for event : "
                            "/t/never-subscribed\n\n"));
}

// What GETTER answers, expecting it to succeed.
template <typename T> T answer(Adapter& adapter, int (Adapter::*getter)(T&)) {
    T value{};
    EXPECT_EQ((adapter.*getter)(value), 0);
    return value;
}

TEST_F(AdapterTest, StatusGettersFollowThePhone) {
    Adapter adapter(&mCallback);
    ovplatform::setPhoneValue("roaming", "3"); // raw readings outside 0/1 count as set
    ovplatform::setGprsAvailable(false);
    ovplatform::setPhoneValue("low_battery", "7");
    ovplatform::setFlipOpen(true);
    ovplatform::setSliderOpen(false);
    ovplatform::setChargerAttached(true);
    ovplatform::setLcdBrightness(0);
    ovplatform::setNitzAvailable(true);
    EXPECT_EQ(answer(adapter, &Adapter::getRoamingStatus), OV_ROAMING);
    EXPECT_EQ(answer(adapter, &Adapter::getDataNetworkStatus), OV_DATA_NW_UNAVAILABLE);
    EXPECT_EQ(answer(adapter, &Adapter::getLowBatteryStatus), OV_BATTERY_LOW);
    EXPECT_EQ(answer(adapter, &Adapter::getFlipStatus), OV_FLIP_OPEN);
    EXPECT_EQ(answer(adapter, &Adapter::getSliderStatus), OV_SLIDER_CLOSED);
    EXPECT_EQ(answer(adapter, &Adapter::getChargerStatus), OV_CHARGER_ATTACHED);
    EXPECT_EQ(answer(adapter, &Adapter::getBacklightStatus), OV_BACKLIGHT_OFF);
    EXPECT_EQ(answer(adapter, &Adapter::getUserActivityStatus), OV_USER_INACTIVE);
    EXPECT_TRUE(answer(adapter, &Adapter::getNitzStatus));

    // Other brightness levels, and a NITZ reading other than 1.
    ovplatform::setLcdBrightness(1);
    ovplatform::setPhoneValue("nitz", "2");
    EXPECT_EQ(answer(adapter, &Adapter::getBacklightStatus), OV_BACKLIGHT_ON);
    EXPECT_EQ(answer(adapter, &Adapter::getUserActivityStatus), OV_USER_ACTIVE);
    EXPECT_FALSE(answer(adapter, &Adapter::getNitzStatus));
    EXPECT_GT(answer(adapter, &Adapter::getCurrentTime), 1600000000L);

    // Failing platform calls give 1 and leave the answer alone.
    ovplatform::setCallFails("SETUP_Utility::getDisplayValue", true);
    OV_USER_ACTIVITY_STATUS activity = OV_USER_ACTIVE;
    EXPECT_EQ(adapter.getUserActivityStatus(activity), 1);
    EXPECT_EQ(activity, OV_USER_ACTIVE);
    ovplatform::setCallFails("SETUP_Utility::getDisplayValue", false);
    ovplatform::setCallFails("TAPI_NETWORK_GetNitzStatus", true);
    bool nitz = false;
    EXPECT_EQ(adapter.getNitzStatus(nitz), 1);
    ovplatform::setCallFails("TAPI_NETWORK_GetNitzStatus", false);
    OV_SLIDE_CLOSED_SETTING slide = OV_SLIDE_CLOSED_KEEP;
    EXPECT_EQ(adapter.getSlideClosedSetting(slide), 1);
}

TEST_F(AdapterTest, SimAndTextGettersAndWhatTheyGiveWithoutASim) {
    ovplatform::setImsi("310410123456789", 3);
    ovplatform::setLanguageCode("fr\xc3\xa7");
    ovplatform::setInstalledLanguages({"en", "de", "ko"});
    ovplatform::setCurrentPlmn("26201");
    Adapter adapter(&mCallback); // reads the SIM when made
    EXPECT_EQ(answer(adapter, &Adapter::getIMSI), ovTypes::String(L"310410123456789"));
    EXPECT_EQ(answer(adapter, &Adapter::getHomePLMN), ovTypes::String(L"310410"));
    EXPECT_EQ(answer(adapter, &Adapter::getCurrentLanguageCode), ovTypes::String(L"fr\u00e7"));
    EXPECT_EQ(answer(adapter, &Adapter::getCurrentPLMN), ovTypes::String(L"26201"));
    EXPECT_EQ(answer(adapter, &Adapter::getInstalledLanguageCodes),
              (std::vector<ovTypes::String>{L"en", L"de", L"ko"}));

    // No SIM, and no own number entry: 1, the answer left alone.
    ovplatform::setImsi("");
    ovtest::StderrCapture capture;
    Adapter noSim(&mCallback);
    EXPECT_TRUE(capture.has("TAPI_SIM_GetImsiExt() returns failure.\n\n"));
    ovTypes::String text = L"kept";
    EXPECT_EQ(noSim.getIMSI(text), 1);
    EXPECT_EQ(noSim.getHomePLMN(text), 1);
    EXPECT_EQ(noSim.getMSISDN(text), 1);
    EXPECT_EQ(text, ovTypes::String(L"kept"));
    EXPECT_TRUE(capture.has("{3} OV_WBEventStatusAdapter.cpp:"));
    EXPECT_TRUE(capture.has("TAPI_OWNNUMBER_GetEntry() returns failure. Unable to initialize "
                            "MSISDN. retCode = 3\n"));
    ovplatform::setOwnNumber("+447700900123");
    EXPECT_EQ(answer(noSim, &Adapter::getMSISDN), ovTypes::String(L"+447700900123"));
    EXPECT_TRUE(capture.has("MSISDN from OwnNumber = +447700900123.\n\n"));
}

} // namespace
