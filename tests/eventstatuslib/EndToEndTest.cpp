// Events through the whole road: facade, adapter, the loopback bus with its delivery thread,
// the simulated phone and the Qt event loop.
#include "eventstatuslib/OV_Event.h"
#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "eventstatuslib/OV_WBEventStatusAdapter.h"

#include "support/EventRecorder.h"
#include "support/QtLoop.h"
#include "support/StderrCapture.h"
#include "support/TempDir.h"
#include "support/Wait.h"

#include "ES_EventPublisher.h"
#include "OVPlatform.h"
#include "QCopChannel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

namespace {

const std::string kTopic = "/test/e2e/topic";

void publish(const std::string& topic, int value) {
    OV_Event event(topic);
    event.mValue = value;
    OV_EventAndStatusFacade::instance()->publish(event);
}

class EndToEndTest : public ::testing::Test {
protected:
    void TearDown() override { OV_EventAndStatusFacade::destroy(); }
    ovtest::TempDeviceRoot mRoot;
};

TEST_F(EndToEndTest, PublishedEventsComeBackInOrderOnTheBusThread) {
    ovtest::EventRecorder recorder(kTopic);
    for (int i = 0; i < 200; ++i)
        publish(kTopic, i);
    ASSERT_TRUE(recorder.waitFor(200));
    std::vector<ovtest::RecordedEvent> events = recorder.events();
    for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(events[i].value, i);
        EXPECT_NE(events[i].thread, std::this_thread::get_id()); // never inside publish
    }
}

// Holds the delivery thread until opened. Made with COUNT events published to its topic, it
// returns once the first is held, the others queued behind it.
class GateRecorder : public ovtest::EventRecorder {
public:
    GateRecorder(const std::string& topic, int count) : EventRecorder(topic) {
        mOnEvent = [this](OV_Event&) {
            mEntered = true;
            while (!mOpen)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
        };
        for (int i = 0; i < count; ++i)
            publish(topic, i);
        ovtest::waitUntil([this] { return mEntered.load(); });
    }
    // Opens the gate from another thread once a probe published to TOPIC gives RESULT.
    std::thread openWhenProbeGives(const std::string& topic, int result) {
        return std::thread([this, topic, result] {
            ES_Event probe(topic);
            while (ES_EventPublisher::publish(probe) != result)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            mOpen = true;
        });
    }
    std::atomic<bool> mEntered{false};
    std::atomic<bool> mOpen{false};
};

TEST_F(EndToEndTest, EventsQueuedWhenTheFacadeGoesAreDropped) {
    auto* gate = new GateRecorder(kTopic, 3);
    ASSERT_TRUE(gate->mEntered);
    // destroy() waits on the bus for the call in progress, so release it from elsewhere, once
    // the adapter has left the bus (so that events 1 and 2 cannot reach anyone). The probes
    // sent meanwhile queue behind the gate and are dropped the same way.
    std::thread opener = gate->openWhenProbeGives(kTopic, ES_ERR_NO_SUBSCRIBER);
    OV_EventAndStatusFacade::destroy();
    opener.join();
    // Events 1 and 2 find no subscriber on the bus any more; later ones are refused.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(gate->count(), 1u);
    ES_Event late(kTopic);
    EXPECT_EQ(ES_EventPublisher::publish(late), ES_ERR_NO_SUBSCRIBER);
    delete gate; // subscribes its topic nowhere: a fresh facade has no entry for it
}

// Runs in a child process, since the bus stays down for the rest of the process. The exit
// code tells which check failed (0: all passed).
int shutdownDiscardsPendingDeliveries() {
    GateRecorder gate(kTopic, 5);
    // Released only once the bus is down, so that none of the other four can slip through. Nobody
    // listens to the probe: nothing is queued.
    std::thread opener = gate.openWhenProbeGives("/test/e2e/probe", ES_ERR_BUS_DOWN);
    ovplatform::shutdownEventBus(); // waits for the delivery under way, drops the other four
    opener.join();
    if (gate.count() != 1)
        return 1;
    ES_Event late(kTopic);
    if (ES_EventPublisher::publish(late) != ES_ERR_BUS_DOWN)
        return 2;
    publish(kTopic, 9); // logged as a failure, nothing else
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return gate.count() == 1 ? 0 : 3;
}

TEST_F(EndToEndTest, ShutdownDiscardsPendingDeliveries) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::exit(shutdownDiscardsPendingDeliveries()), ::testing::ExitedWithCode(0), "");
}

// A handler subscribing while the facade is being destroyed (on the bus's thread, while the
// destructor takes the adapter off the bus) must not put the dying adapter back on the bus.
TEST_F(EndToEndTest, HandlerSubscribingIntoADyingFacadeLeavesNothingOnTheBus) {
    // Sorted before the gate's topic, so that it would be missed by the adapter's walk of its
    // topics if it were added during that walk.
    const std::string gateTopic = "/test/e2e/zz-gate";
    const std::string lateTopic = "/test/e2e/aa-late";
    ovtest::StderrCapture capture;
    std::atomic<bool> entered(false);
    std::unique_ptr<ovtest::EventRecorder> late;
    auto* gate = new ovtest::EventRecorder(gateTopic);
    gate->mOnEvent = [&](OV_Event&) {
        entered = true;
        ovtest::waitUntil(
            [&] { return capture.has("OV_WBEventStatusAdapter destructor entered."); });
        late.reset(new ovtest::EventRecorder(lateTopic));
    };
    publish(gateTopic, 1);
    ASSERT_TRUE(ovtest::waitUntil([&] { return entered.load(); }));
    OV_EventAndStatusFacade::destroy();
    ASSERT_TRUE(late != nullptr);
    ES_Event probe(lateTopic);
    EXPECT_EQ(ES_EventPublisher::publish(probe), ES_ERR_NO_SUBSCRIBER);
    late.reset();
    delete gate;
}

// A flip handler made and destroyed by a handler on the bus's thread: the system channel, a Qt
// object of the Qt thread, is made and deleted there, and the flips reach the handler there.
// The handler of a bus topic destroyed there too takes the adapter off that topic from inside
// the adapter's own delivery.
TEST_F(EndToEndTest, FlipHandlerMadeOnTheBusThreadHearsFlipsOnTheQtThread) {
    ovtest::ensureQtApp();
    const std::string otherTopic = "/test/e2e/other";
    std::unique_ptr<ovtest::EventRecorder> flips;
    auto other = std::make_unique<ovtest::EventRecorder>(otherTopic);
    std::atomic<int> handled(0);
    ovtest::EventRecorder trigger(kTopic);
    trigger.mOnEvent = [&](OV_Event& event) {
        if (event.mValue == 1) {
            flips.reset(
                new ovtest::EventRecorder(OV_WBEventStatusAdapter::EVENT_FLIP_STATUS_CHANGED));
        } else {
            flips.reset();
            other.reset();
        }
        ++handled;
    };
    publish(kTopic, 1);
    // Waited for without running the Qt event loop: what is queued for it stays queued.
    ASSERT_TRUE(ovtest::waitUntil([&] { return handled == 1; }));
    EXPECT_FALSE(QCopChannel::isRegistered(SYSTEM_CHANNEL)); // the Qt thread has not run since
    ASSERT_TRUE(ovtest::runQtUntil([] { return QCopChannel::isRegistered(SYSTEM_CHANNEL); }));
    ASSERT_TRUE(ovplatform::setFlipOpen(true));
    ASSERT_TRUE(flips->waitFor(1));
    ASSERT_TRUE(ovplatform::setFlipOpen(false));
    ASSERT_TRUE(flips->waitFor(2));
    EXPECT_EQ(flips->events()[0].value, OV_FLIP_OPEN);
    EXPECT_EQ(flips->events()[1].value, OV_FLIP_CLOSED);
    EXPECT_EQ(flips->events()[0].thread, std::this_thread::get_id()); // the Qt loop's thread

    publish(kTopic, 2);
    ASSERT_TRUE(ovtest::waitUntil([&] { return handled == 2; }));
    ES_Event probe(otherTopic);
    EXPECT_EQ(ES_EventPublisher::publish(probe), ES_ERR_NO_SUBSCRIBER);
    EXPECT_TRUE(QCopChannel::isRegistered(SYSTEM_CHANNEL));
    EXPECT_TRUE(ovtest::runQtUntil([] { return !QCopChannel::isRegistered(SYSTEM_CHANNEL); }));
}

// Waits out the bus's shut-down time-out, hence the slow label.
class EndToEndSlow : public EndToEndTest {};

// A process leaving with deliveries queued behind a handler that never returns: the exit
// gives up on the stuck delivery after a while and the queued ones are dropped.
TEST_F(EndToEndSlow, ExitWithAStuckDeliveryNeitherCrashesNorHangs) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            new GateRecorder(kTopic, 100); // never released, never freed
            std::exit(7);
        },
        ::testing::ExitedWithCode(7), "");
}

// A slow handler that is itself destroyed at exit, with many deliveries still queued.
TEST_F(EndToEndTest, ExitWithASlowStaticHandlerNeitherCrashesNorHangs) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            static ovtest::EventRecorder slow(kTopic);
            slow.mOnEvent = [](OV_Event&) {
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            };
            for (int i = 0; i < 100; ++i)
                publish(kTopic, i);
            slow.waitFor(1);
            std::exit(7);
        },
        ::testing::ExitedWithCode(7), "");
}

} // namespace
