// The facade's bookkeeping, over an adapter that only records what the facade asks of it.
#include "eventstatuslib/OV_Event.h"
#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "eventstatuslib/OV_EventHandler.h"

#include "support/StderrCapture.h"
#include "support/Wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <regex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using ovtest::waitUntil;

const std::string kTopic = "/test/facade/topic";
const std::string kOther = "/test/facade/other";

struct FakeAdapterLog {
    std::map<std::string, int> subscribes;
    std::map<std::string, int> unsubscribes;
    std::vector<std::string> published;
    bool destroyed = false;
    // Runs inside subscribe, before it is counted.
    std::function<void(const std::string&)> onSubscribe;
};

class FakeAdapter : public OV_EventStatusAdapter {
public:
    explicit FakeAdapter(FakeAdapterLog* log) : mLog(log) {}
    ~FakeAdapter() override { mLog->destroyed = true; }

    void subscribe(const std::string& topic) override {
        if (mLog->onSubscribe)
            mLog->onSubscribe(topic);
        std::lock_guard<std::mutex> lock(mMutex);
        ++mLog->subscribes[topic];
    }
    void unsubscribe(const std::string& topic) override {
        std::lock_guard<std::mutex> lock(mMutex);
        ++mLog->unsubscribes[topic];
    }
    void publish(OV_Event& event) override { mLog->published.push_back(event.mEventType); }

    int getRoamingStatus(OV_ROAMING_STATUS& s) override { return s = OV_ROAMING, 0; }
    int getDataNetworkStatus(OV_DATA_NW_STATUS&) override { return 1; }
    int getLowBatteryStatus(OV_BATTERY_STATUS&) override { return 1; }
    int getBacklightStatus(OV_BACKLIGHT_STATUS& s) override { return s = OV_BACKLIGHT_ON, 0; }
    int getFlipStatus(OV_FLIP_STATUS&) override { return 1; }
    int getSliderStatus(OV_SLIDER_STATUS&) override { return 1; }
    int getChargerStatus(OV_CHARGER_STATUS&) override { return 1; }
    int getUserActivityStatus(OV_USER_ACTIVITY_STATUS&) override { return 1; }
    // The text getters share one signature, so each answers with its own name and result.
    int getMSISDN(ovTypes::String& s) override { return s = L"MSISDN", 9; }
    int getIMSI(ovTypes::String& s) override { return s = L"IMSI", 10; }
    int getPhoneModelId(ovTypes::String& s) override { return s = L"PhoneModelId", 11; }
    int getPhoneSwVersion(ovTypes::String& s) override { return s = L"PhoneSwVersion", 12; }
    int getHomePLMN(ovTypes::String& s) override { return s = L"HomePLMN", 13; }
    int getHomeCarrierName(ovTypes::String& s) override { return s = L"HomeCarrierName", 14; }
    int getCurrentPLMN(ovTypes::String& s) override { return s = L"CurrentPLMN", 15; }
    int getCurrentCarrierName(ovTypes::String& s) override { return s = L"CurrentCarrierName", 16; }
    int getCurrentLanguageCode(ovTypes::String& s) override {
        return s = L"CurrentLanguageCode", 17;
    }
    int getInstalledLanguageCodes(std::vector<ovTypes::String>&) override { return 1; }
    int getCurrentTime(long& t) override { return t = 1234, 0; }
    int getNitzStatus(bool&) override { return 1; }
    int getSlideClosedSetting(OV_SLIDE_CLOSED_SETTING&) override { return 1; }

private:
    FakeAdapterLog* mLog;
    std::mutex mMutex; // the facade may call in from several threads
};

class TestFacade : public OV_EventAndStatusFacade {
public:
    explicit TestFacade(FakeAdapterLog* log) : OV_EventAndStatusFacade(new FakeAdapter(log)) {}
    static void install(FakeAdapterLog* log) { installInstance(new TestFacade(log)); }
};

// Notes each call as "name:value" in one shared list and raises the value for later handlers;
// THEN, when set, runs after (it may delete the handler).
class Named : public OV_EventHandler {
public:
    Named(const std::string& topic, std::vector<std::string>* calls, std::string name)
        : OV_EventHandler(topic), mCalls(calls), mName(std::move(name)) {}
    void handleEvent(OV_Event& event) override {
        mCalls->push_back(mName + ":" + std::to_string(event.mValue++));
        if (auto then = mThen) // a copy, so that the handler may go meanwhile
            then(this);
    }
    std::function<void(Named*)> mThen;

protected:
    Named(const std::string& topic, std::vector<std::string>* calls, DeliverLater later)
        : OV_EventHandler(topic, later), mCalls(calls), mName("late") {}

private:
    std::vector<std::string>* mCalls;
    std::string mName;
};

// Built in two steps like a derived handler whose events may come from another thread: the
// base registers it, deliveries start only when the test says so.
struct Late : Named {
    Late(const std::string& topic, std::vector<std::string>* calls)
        : Named(topic, calls, DeliverLater()) {}
    void ready() { startDelivery(); }
};

class FacadeTest : public ::testing::Test {
protected:
    void SetUp() override { TestFacade::install(&mAdapter); }
    void TearDown() override { OV_EventAndStatusFacade::destroy(); }

    static OV_EventAndStatusFacade* facade() { return OV_EventAndStatusFacade::instance(); }
    void deliver(const std::string& topic, int value = 0) {
        OV_Event event(topic);
        event.mValue = value;
        facade()->notify(event);
    }

    FakeAdapterLog mAdapter;
    std::vector<std::string> mCalls;
};

// Publishing goes to the adapter only, never to local handlers; those run once each, in order
// of subscription, and share the event. One built to deliver later is registered at once but
// called only once ready.
TEST_F(FacadeTest, PublishGoesToTheAdapterAndHandlersRunOnceInOrder) {
    Late late(kTopic, &mCalls);
    Named first(kTopic, &mCalls, "first");
    Named second(kTopic, &mCalls, "second");
    Named elsewhere(kOther, &mCalls, "elsewhere");
    facade()->subscribe(kTopic, &first); // again
    EXPECT_EQ(mAdapter.subscribes[kTopic], 1);
    ovtest::StderrCapture capture;
    OV_Event event(kTopic);
    facade()->publish(event);
    EXPECT_EQ(mAdapter.published, std::vector<std::string>{kTopic});
    EXPECT_TRUE(
        capture.has("publish()\tOV_EventAndStatusFacade: Published event: " + kTopic + "\n\n"));
    deliver(kTopic, 10);
    late.ready();
    deliver(kTopic, 5);
    EXPECT_EQ(mCalls,
              (std::vector<std::string>{"first:10", "second:11", "late:5", "first:6", "second:7"}));
}

// A null handler, or a handler unknown to the topic, changes nothing.
TEST_F(FacadeTest, UnsubscribeRemovesOnlyASoleHandlerAndADestroyedOneIsNeverCalled) {
    ovtest::StderrCapture capture;
    facade()->subscribe(kOther, nullptr);
    facade()->unsubscribe("", nullptr);
    EXPECT_TRUE(capture.has("OV_EventAndStatusFacade: subscribe called with NULL event handler. "
                            "Do nothing.\n\n"));
    EXPECT_TRUE(capture.has("eventType = " + kOther + "; Handler = [0]\n\n"));
    auto* gone = new Named(kTopic, &mCalls, "gone");
    facade()->subscribe(kOther, gone); // a second topic by hand, where it is alone
    Named stays(kTopic, &mCalls, "stays");
    // Deliberate: with another handler left, the caller stays registered.
    facade()->unsubscribe(kTopic, gone);
    facade()->unsubscribe(kTopic, &stays);
    deliver(kTopic, 1);
    // Destroyed, it is gone for good from both topics, though its destructor's unsubscribe has
    // the same (lack of) effect: its own topic stays with the adapter, the other one goes.
    delete gone;
    deliver(kTopic, 5);
    deliver(kOther, 7);
    EXPECT_EQ(mCalls, (std::vector<std::string>{"gone:1", "stays:2", "stays:5"}));
    EXPECT_EQ(mAdapter.unsubscribes, (std::map<std::string, int>{{kOther, 1}}));
    // The live handler left alone is now the sole one, so its next unsubscribe removes it.
    facade()->unsubscribe(kTopic, &stays);
    facade()->unsubscribe(kOther, &stays);
    deliver(kTopic, 3);
    EXPECT_EQ(mCalls.size(), 3u);
    EXPECT_EQ(mAdapter.subscribes, (std::map<std::string, int>{{kOther, 1}, {kTopic, 1}}));
    EXPECT_EQ(mAdapter.unsubscribes, (std::map<std::string, int>{{kOther, 1}, {kTopic, 1}}));
}

TEST_F(FacadeTest, LastHandlerLeavingEvenFromItsOwnCallUnsubscribesTheAdapterOnce) {
    auto* only = new Named(kTopic, &mCalls, "only");
    only->mThen = [](Named* self) { delete self; };
    deliver(kTopic);
    EXPECT_EQ(mAdapter.unsubscribes[kTopic], 1);
    ovtest::StderrCapture capture;
    deliver(kTopic);
    EXPECT_EQ(mCalls, std::vector<std::string>{"only:0"});
    EXPECT_TRUE(capture.has("handleEvent()\thandleEvent: Subscription map is empty!!!! \n\n"));
    // The next handler subscribes the topic with the adapter afresh.
    Named again(kTopic, &mCalls, "again");
    EXPECT_EQ(mAdapter.subscribes[kTopic], 2);
}

// A handler deleting itself does not break the delivery, one it deletes is not called after,
// and one added during it waits for the next event.
TEST_F(FacadeTest, HandlersMayDeleteThemselvesOrOthersOrAddOthersWhileHandling) {
    auto* self = new Named(kTopic, &mCalls, "self");
    self->mThen = [](Named* handler) { delete handler; };
    std::unique_ptr<Named> recruit, doomed;
    Named recruiter(kTopic, &mCalls, "recruiter");
    recruiter.mThen = [&](Named*) {
        doomed.reset();
        if (!recruit)
            recruit.reset(new Named(kTopic, &mCalls, "recruit"));
    };
    Named after(kTopic, &mCalls, "after");
    doomed.reset(new Named(kTopic, &mCalls, "doomed"));
    deliver(kTopic);
    deliver(kTopic, 5);
    EXPECT_EQ(mCalls, (std::vector<std::string>{"self:0", "recruiter:1", "after:2", "recruiter:5",
                                                "after:6", "recruit:7"}));
}

TEST_F(FacadeTest, GettersPassTheAdaptersAnswersAndResults) {
    OV_ROAMING_STATUS roaming = OV_HOME_NETWORK;
    EXPECT_EQ(facade()->getRoamingStatus(roaming), 0);
    EXPECT_EQ(roaming, OV_ROAMING);
    typedef int (OV_EventAndStatusFacade::*TextGetter)(ovTypes::String&);
    const std::vector<std::pair<TextGetter, std::wstring>> texts = {
        {&OV_EventAndStatusFacade::getMSISDN, L"MSISDN"},
        {&OV_EventAndStatusFacade::getIMSI, L"IMSI"},
        {&OV_EventAndStatusFacade::getPhoneModelId, L"PhoneModelId"},
        {&OV_EventAndStatusFacade::getPhoneSwVersion, L"PhoneSwVersion"},
        {&OV_EventAndStatusFacade::getHomePLMN, L"HomePLMN"},
        {&OV_EventAndStatusFacade::getHomeCarrierName, L"HomeCarrierName"},
        {&OV_EventAndStatusFacade::getCurrentPLMN, L"CurrentPLMN"},
        {&OV_EventAndStatusFacade::getCurrentCarrierName, L"CurrentCarrierName"},
        {&OV_EventAndStatusFacade::getCurrentLanguageCode, L"CurrentLanguageCode"},
    };
    for (size_t i = 0; i < texts.size(); ++i) {
        ovTypes::String text;
        EXPECT_EQ((facade()->*texts[i].first)(text), static_cast<int>(9 + i));
        EXPECT_EQ(text, ovTypes::String(texts[i].second));
    }
    long now = 0;
    EXPECT_EQ(facade()->getCurrentTime(now), 0);
    EXPECT_EQ(now, 1234);
    OV_FLIP_STATUS flip = OV_FLIP_OPEN;
    EXPECT_EQ(facade()->getFlipStatus(flip), 1);
    EXPECT_EQ(flip, OV_FLIP_OPEN);
}

TEST_F(FacadeTest, DestroyDeletesTheAdapterAndLogsEachTopic) {
    Named a(kTopic, &mCalls, "a");
    Named b(kOther, &mCalls, "b");
    ovtest::StderrCapture capture;
    OV_EventAndStatusFacade::destroy();
    EXPECT_TRUE(mAdapter.destroyed);
    for (const std::string& line :
         {"Removing event handlers for event-type: " + kTopic,
          "Removing event handlers for event-type: " + kOther,
          std::string("Deleting the instance of OV_EventAndStatusFacade."),
          std::string("Deleted event status adapter instance.")})
        EXPECT_TRUE(capture.has(line + "\n\n")) << line;
    TestFacade::install(&mAdapter); // for the handlers' destructors and TearDown
}

// The facade's own lines, in order, each at level 5 in the "{5} file:line, function()\t" shape
// (a line of the facade in another shape is left out, so a comparison with it fails).
std::vector<std::string> facadeMessages(const std::string& log) {
    static const std::regex line(
        "\\{5\\} OV_EventAndStatusFacade\\.cpp:[0-9]+, [A-Za-z_]+\\(\\)\t([^\n]*)\n\n");
    std::vector<std::string> messages;
    for (std::sregex_iterator it(log.begin(), log.end(), line), end; it != end; ++it)
        messages.push_back((*it)[1]);
    return messages;
}

std::string idOf(const OV_EventHandler* handler) {
    return std::to_string(static_cast<int>(reinterpret_cast<intptr_t>(handler)));
}

TEST_F(FacadeTest, SubscribeDispatchAndUnsubscribeTraceEachStep) {
    ovtest::StderrCapture capture;
    auto* first = new Named(kTopic, &mCalls, "first");
    Named second(kTopic, &mCalls, "second");
    facade()->subscribe(kTopic, &second);
    deliver(kTopic);
    const std::string a = idOf(first), b = idOf(&second);
    delete first;
    const std::string t = kTopic;
    std::vector<std::string> expected = {
        "[EventFacade]subscribe: entered. eventType = " + t + "; Handler = [" + a + "]",
        "subscribe: check if subscription map has an entry for this eventType.",
        "There is no entry for this event type. Create an entry and subscribe with adapter for "
        "this eventType.",
        "The subscription map has 1 handlers for this event.",
        "[EventFacade]subscribe: exiting.",
        "[EventFacade]subscribe: entered. eventType = " + t + "; Handler = [" + b + "]",
        "subscribe: check if subscription map has an entry for this eventType.",
        "add event handler to the event handler list.check for duplicates.",
        "Added handler [" + b + "] to the event handler list.",
        "Totally 2 subscribers for Event " + t,
        "The subscription map has 2 handlers for this event.",
        "[EventFacade]subscribe: exiting.",
        "[EventFacade]subscribe: entered. eventType = " + t + "; Handler = [" + b + "]",
        "subscribe: check if subscription map has an entry for this eventType.",
        "add event handler to the event handler list.check for duplicates.",
        "Found handler for the event type. Will not add duplicate.",
        "Totally 2 subscribers for Event " + t,
        "The subscription map has 2 handlers for this event.",
        "[EventFacade]subscribe: exiting.",
        "[EventFacade] handleEvent: Event type = " + t,
        "handleEvent: Found handler list. Iterate thru list and call each handler.",
        "ENTER",
        "handling for the 2 subscribers...",
        "handleEventExecLoop: Invoking Event Handler [" + a + "] .",
        "handleEventExecLoop: Done calling Event Handler [" + a + "].",
        "handleEventExecLoop: Invoking Event Handler [" + b + "] .",
        "handleEventExecLoop: Done calling Event Handler [" + b + "].",
        "LEAVE",
        "unsubscribe: Entered.",
        "deleteHandler: Iterating thru event handler list.",
        "deleteHandler: Removed handler.",
        "unsubscribe: Exiting.",
    };
    EXPECT_EQ(facadeMessages(capture.text()), expected);
}

TEST_F(FacadeTest, TopicMadeOnTwoThreadsAtOnceReachesTheAdapterOnce) {
    ovtest::StderrCapture capture;
    // The first adapter call is held until both threads have found the topic without an entry.
    mAdapter.onSubscribe = [&capture](const std::string&) {
        waitUntil([&] { return capture.count("There is no entry") >= 2; });
    };
    std::unique_ptr<Named> a, b;
    std::thread one([&] { a.reset(new Named(kTopic, &mCalls, "a")); });
    std::thread two([&] { b.reset(new Named(kTopic, &mCalls, "b")); });
    one.join();
    two.join();
    mAdapter.onSubscribe = nullptr;
    EXPECT_EQ(mAdapter.subscribes[kTopic], 1);
    deliver(kTopic);
    EXPECT_EQ(mCalls.size(), 2u);
    // Destroyed on two threads at once: the topic leaves the adapter once.
    std::thread three([&] { a.reset(); });
    std::thread four([&] { b.reset(); });
    three.join();
    four.join();
    EXPECT_EQ(mAdapter.unsubscribes[kTopic], 1);
    deliver(kTopic);
    EXPECT_EQ(mCalls.size(), 2u);
}

TEST_F(FacadeTest, DestroyingAHandlerWaitsForItsCallOnAnotherThread) {
    ovtest::StderrCapture capture;
    std::atomic<bool> entered(false), release(false), ended(false), deleted(false);
    auto* held = new Named(kTopic, &mCalls, "held");
    // Holds the call until released, touching nothing of the handler meanwhile.
    held->mThen = [&](Named*) {
        entered = true;
        while (!release)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ended = true;
    };
    Named other(kTopic, &mCalls, "other"); // shares the topic, so held stays listed
    std::thread deliverer([this] { deliver(kTopic); });
    ASSERT_TRUE(waitUntil([&] { return entered.load(); }));
    std::thread releaser([&] {
        // Once the destructor is under way, give it every chance to return before the call
        // ends; it must not.
        waitUntil([&] { return capture.has("unsubscribe: Exiting."); });
        waitUntil([&] { return deleted.load(); }, 300);
        release = true;
    });
    delete held;
    EXPECT_TRUE(ended);
    deleted = true;
    releaser.join();
    deliverer.join();
    EXPECT_EQ(mCalls, (std::vector<std::string>{"held:0", "other:1"}));
}

} // namespace
