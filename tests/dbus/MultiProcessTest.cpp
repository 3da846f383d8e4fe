// Several processes on one private dbus-daemon: this test process (connected for its whole
// run) and peers, which are this program started again to play one part each. A peer reports
// on its standard output in lines that begin with "peer: ".
#include "eventstatuslib/OV_Event.h"
#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "eventstatuslib/OV_WBEventStatusAdapter.h"

#include "support/ChildProcess.h"
#include "support/DBusDaemon.h"
#include "support/EventRecorder.h"
#include "support/QtLoop.h"
#include "support/StderrCapture.h"
#include "support/TempDir.h"
#include "support/Wait.h"

#include "ES_EventPublisher.h"
#include "ES_EventSubscriber.h"
#include "OVPlatform.h"
#include "PHONE_AsyncMsgReceiver.h"
#include "QCopChannel.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <sys/wait.h>
#include <thread>

namespace {

typedef OV_WBEventStatusAdapter Adapter;

const char* const kRoleVariable = "OVTEST_DBUS_PEER";
const char* const kAddressVariable = "OVTEST_DBUS_ADDRESS";
const char* const kRootVariable = "OVTEST_DBUS_ROOT";

void publish(const std::string& topic, int value) {
    OV_Event event(topic);
    event.mValue = value;
    OV_EventAndStatusFacade::instance()->publish(event);
}

// ---- the peer side ------------------------------------------------------------------------

void report(const std::string& line) {
    std::printf("peer: %s\n", line.c_str());
    std::fflush(stdout);
}

std::string waitForInput() {
    std::string line;
    std::getline(std::cin, line);
    return line;
}

// Takes nothing: only whether the bus accepts it matters.
class NullBusHandler : public ES_EventHandler {
public:
    void handleEvent(const ES_Event&) override {}
};

void runPeer(const std::string& role) {
    std::istringstream words(role);
    const std::vector<std::string> args{std::istream_iterator<std::string>(words), {}};
    ovtest::ensureQtApp();
    ovplatform::setDeviceRoot(std::getenv(kRootVariable) ? std::getenv(kRootVariable) : "");
    std::string reason;
    if (args[0] == "late") {
        // The bus used (on loopback) before D-Bus is chosen: the choice must be refused.
        ES_Event event("/test/dbus/late");
        ES_EventPublisher::publish(event);
        report("late " + std::to_string(ovplatform::useBusAddress(std::getenv(kAddressVariable))));
        return;
    }
    ASSERT_TRUE(ovplatform::useBusAddress(std::getenv(kAddressVariable), &reason)) << reason;

    if (args[0] == "flip") {
        report("sent " + std::to_string(ovplatform::setFlipOpen(args[1] == "open")));
    } else if (args[0] == "roaming") {
        report("sent " + std::to_string(ovplatform::setRoaming(args[1] == "on")));
    } else if (args[0] == "listen") {
        // Prints every event; at event number DIEAT (1 for the first) it kills its process
        // from inside the delivery, as a crash would.
        const int dieAt = args.size() > 2 ? std::stoi(args[2]) : 0;
        std::atomic<int> count{0};
        ovtest::EventRecorder handler(args[1]);
        handler.mOnEvent = [&count, dieAt](OV_Event& event) {
            int number = ++count; // before the report, which the test may answer at once
            report("event " + std::to_string(event.mValue));
            if (number == dieAt)
                ::kill(::getpid(), SIGKILL);
        };
        report("ready");
        waitForInput(); // until the test closes our input
        report("count " + std::to_string(count.load()));
    } else if (args[0] == "bus-loss") {
        ovtest::EventRecorder events(args[1]);
        ovtest::EventRecorder flips(Adapter::EVENT_FLIP_STATUS_CHANGED);
        report("ready");
        waitForInput(); // the daemon is gone by now
        ES_Event probe(args[1]);
        int status = ES_OK;
        ovtest::waitUntil([&] { return (status = ES_EventPublisher::publish(probe)) != ES_OK; },
                          5000);
        NullBusHandler raw;
        // Outlives its handler; the facade's subscribe fails quietly.
        ovtest::EventRecorder other("/test/dbus/other");
        std::string results = "publish " + std::to_string(status) + " subscribe " +
                              std::to_string(ES_EventSubscriber::subscribe("/test/dbus/raw", &raw));
        results += " channel " + std::to_string(QCopChannel::send(SYSTEM_CHANNEL, "FlipOpened"));
        results += " flip " + std::to_string(ovplatform::setFlipOpen(true));
        results += " connected " + std::to_string(ovplatform::busConnected());
        publish(args[1], 1); // through the facade: logs the failure, nothing more
        report(results + " received " + std::to_string(events.count() + flips.count()));
    }
}

// Run only as a peer of the tests below, which say in the environment what to do.
TEST(DBusPeer, DISABLED_Run) {
    const char* role = std::getenv(kRoleVariable);
    if (!role)
        GTEST_SKIP() << "only run as a peer process";
    runPeer(role);
}

// ---- the test side ------------------------------------------------------------------------

class MultiProcessTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string reason;
        mDaemon = ovtest::DBusDaemon::forThisProcess(&reason);
        ASSERT_NE(mDaemon, nullptr) << reason;
    }
    void TearDown() override { OV_EventAndStatusFacade::destroy(); }

    // Starts a peer playing ROLE on ROOT (this test's device root unless given) and on this
    // test's daemon (unless ADDRESS is given).
    void startPeer(ovtest::ChildProcess& peer, const std::string& role,
                   const std::string& root = "", const std::string& address = "") {
        std::string reason;
        ASSERT_TRUE(peer.start(
            {"/proc/self/exe", "--gtest_filter=DBusPeer.DISABLED_Run",
             "--gtest_also_run_disabled_tests"},
            {std::string(kRoleVariable) + "=" + role,
             std::string(kAddressVariable) + "=" + (address.empty() ? mDaemon->address() : address),
             std::string(kRootVariable) + "=" + (root.empty() ? mRoot.path() : root)},
            ovtest::ChildProcess::DISCARD, &reason))
            << reason;
    }

    // The peer's next report, without "peer: ".
    static std::string reply(ovtest::ChildProcess& peer) {
        std::string line;
        return peer.waitForLine("peer: ", &line) ? line.substr(6) : "<no reply>";
    }

    // Waits for the peer to end on its own; true when it exited with status 0.
    static bool endsWell(ovtest::ChildProcess& peer) {
        int status = peer.wait();
        return status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }

    ovtest::DBusDaemon* mDaemon = nullptr;
    ovtest::TempDeviceRoot mRoot;
};

// Keeps the platform events of some topics as the bus delivers them, below the library's
// adapter, in the order they arrive.
class BusRecorder : public ES_EventHandler {
public:
    typedef std::pair<std::string, ES_Event::PropertyMap> Event;

    explicit BusRecorder(const std::set<std::string>& topics) : mTopics(topics) {
        for (const std::string& topic : topics)
            EXPECT_EQ(ES_EventSubscriber::subscribe(topic, this), ES_OK);
    }
    ~BusRecorder() override {
        for (const std::string& topic : mTopics)
            ES_EventSubscriber::unsubscribe(topic, this);
    }
    void handleEvent(const ES_Event& event) override {
        std::lock_guard<std::mutex> lock(mMutex);
        mEvents.emplace_back(event.getTopic(), event.getProperties());
    }
    std::vector<Event> waitFor(size_t count) {
        ovtest::waitUntil([&] {
            std::lock_guard<std::mutex> lock(mMutex);
            return mEvents.size() >= count;
        });
        std::lock_guard<std::mutex> lock(mMutex);
        return mEvents;
    }

private:
    std::set<std::string> mTopics;
    std::mutex mMutex;
    std::vector<Event> mEvents;
};

TEST_F(MultiProcessTest, NamesAndValuesCrossTheWireExactly) {
    // Bytes that D-Bus strings, match rules or the name form could mangle, and value properties
    // that the integer argument could not give back.
    const std::string value = "__OV_Event__mValue";
    const std::string odd =
        std::string("/test/it's \"odd\" 100%\\ \xe9\xff/") + std::string(1, '\0') + "end";
    std::vector<BusRecorder::Event> sent = {
        {odd,
         {{value, "-7"},
          {"text", std::string("a\0b\n\xff", 5)},
          {"", "empty name"},
          {"empty", ""},
          {"utf8", "caf\xc3\xa9 \xf0\x9d\x84\x9e"},
          {std::string("k\xff'%41\0", 8), "%"},
          {"surrogate", "\xed\xa0\x80"},
          {"noncharacter", "\xef\xbf\xbe"},
          {"overlong", "\xc0\xaf"},
          {"overlong3", "\xe0\x80\xaf"},
          {"beyond", "\xf4\x90\x80\x80"},
          {"cut", "\xe2\x82"}}},
        {"/test/it%27s", {{value, "1"}}},
    };
    for (const char* text : {"-2147483648", "007", "abc", "-0", "2147483648", " 5", ""})
        sent.push_back({"/test/dbus/values", {{value, text}, {"p", "q"}}});
    ES_Event::PropertyMap many = {{value, "12345"}};
    for (int i = 0; i < 4000; ++i)
        many["k" + std::to_string(i) + char(i)] =
            std::string(i % 300, char(i % 7 ? 'a' + i % 26 : i));
    sent.push_back({"/test/dbus/large", many});

    std::set<std::string> topics;
    for (const auto& event : sent)
        topics.insert(event.first);
    BusRecorder recorder(topics);
    for (const auto& event : sent) {
        ES_Event published(event.first);
        for (const auto& property : event.second)
            published.setProperty(property.first, property.second);
        EXPECT_EQ(ES_EventPublisher::publish(published), ES_OK);
    }
    std::vector<BusRecorder::Event> got = recorder.waitFor(sent.size());
    ASSERT_EQ(got.size(), sent.size());
    for (size_t i = 0; i < sent.size(); ++i)
        EXPECT_TRUE(got[i] == sent[i]) << "event " << i << " to " << sent[i].first;

    // A system-channel message: names on the wire, data as bytes.
    const QCString channel("test/it's \xff");
    QCopChannel here(channel);
    std::vector<std::pair<QCString, QByteArray>> messages;
    QObject::connect(
        &here, &QCopChannel::received,
        [&](const QCString& msg, const QByteArray& data) { messages.emplace_back(msg, data); });
    const QCString message("odd 'message' 100% \xe9");
    const QByteArray data("\0\xff\x01", 3);
    EXPECT_TRUE(QCopChannel::send(channel, message, data));
    EXPECT_TRUE(QCopChannel::send(channel, "", QByteArray()));
    ASSERT_TRUE(ovtest::runQtUntil([&] { return messages.size() == 2; }));
    EXPECT_EQ(messages[0], std::make_pair(message, data));
    EXPECT_EQ(messages[1], std::make_pair(QCString(""), QByteArray()));
}

TEST_F(MultiProcessTest, ChoosingTheBusAgainOrTooLateIsRefused) {
    std::string reason;
    EXPECT_FALSE(ovplatform::useBusAddress(mDaemon->address(), &reason));
    EXPECT_NE(reason.find("already connected"), std::string::npos) << reason;
    EXPECT_EQ(ovplatform::busName(), mDaemon->address());

    ovtest::ChildProcess late;
    startPeer(late, "late");
    EXPECT_EQ(reply(late), "late 0");
    EXPECT_TRUE(endsWell(late));
}

// A phone signal and a system-channel message sent by another process arrive on the Qt event
// loop, which this thread runs while waiting. The flip state itself is shared through the
// device root.
TEST_F(MultiProcessTest, PhoneChangesInOneProcessReachHandlersInAnother) {
    ovtest::EventRecorder flips(Adapter::EVENT_FLIP_STATUS_CHANGED);
    ovtest::EventRecorder roaming(Adapter::EVENT_ROAMING_STATUS_CHANGED);
    for (const char* role : {"flip open", "roaming on"}) {
        ovtest::ChildProcess peer;
        startPeer(peer, role);
        EXPECT_EQ(reply(peer), "sent 1") << role;
        EXPECT_TRUE(endsWell(peer)) << role;
    }
    ASSERT_TRUE(flips.waitFor(1) && roaming.waitFor(1));
    EXPECT_EQ(flips.events()[0].value, OV_FLIP_OPEN);
    EXPECT_EQ(roaming.events()[0].value, OV_ROAMING);
    EXPECT_EQ(flips.events()[0].thread, std::this_thread::get_id());
    EXPECT_EQ(roaming.events()[0].thread, std::this_thread::get_id());
    OV_FLIP_STATUS status = OV_FLIP_CLOSED;
    EXPECT_EQ(OV_EventAndStatusFacade::instance()->getFlipStatus(status), 0);
    EXPECT_EQ(status, OV_FLIP_OPEN);
    ovtest::runQtFor(50);
    EXPECT_EQ(flips.count() + roaming.count(), 2u);
}

// Listeners in other processes are found as soon as they listen and forgotten once gone, which
// is learnt from the daemon's notice and may take a moment; one dying mid-delivery stops no
// other.
TEST_F(MultiProcessTest, ListenersInOtherProcessesComeAndGoAndOneDyingStopsNoOther) {
    const std::string topic = "/test/dbus/stream";
    ES_Event probe(topic);
    EXPECT_EQ(ES_EventPublisher::publish(probe), ES_ERR_NO_SUBSCRIBER);
    ovtest::ChildProcess dying, surviving;
    startPeer(dying, "listen " + topic + " 1");
    startPeer(surviving, "listen " + topic);
    ASSERT_EQ(reply(dying), "ready");
    ASSERT_EQ(reply(surviving), "ready");
    // Nobody listens here yet: event 0 goes out for the peers alone.
    probe.setProperty("__OV_Event__mValue", "0");
    EXPECT_EQ(ES_EventPublisher::publish(probe), ES_OK);

    auto here = std::make_unique<ovtest::EventRecorder>(topic);
    const int count = 100;
    for (int i = 1; i < count / 2; ++i)
        publish(topic, i);
    int status = dying.wait();
    ASSERT_NE(status, -1) << "the dying peer did not die";
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    for (int i = count / 2; i < count; ++i)
        publish(topic, i);

    ASSERT_TRUE(here->waitFor(count - 1));
    for (int i = 0; i < count; ++i)
        ASSERT_EQ(reply(surviving), "event " + std::to_string(i));
    surviving.closeInput();
    EXPECT_EQ(reply(surviving), "count " + std::to_string(count));
    EXPECT_TRUE(endsWell(surviving));
    EXPECT_EQ(here->events().back().value, count - 1);
    here.reset();
    EXPECT_TRUE(ovtest::waitUntil(
        [&] { return ES_EventPublisher::publish(probe) == ES_ERR_NO_SUBSCRIBER; }, 5000));
}

TEST_F(MultiProcessTest, TheDaemonGoingAwayGivesFailuresNotAHang) {
    // A daemon of its own: the one this process uses must stay.
    ovtest::DBusDaemon doomed;
    std::string reason;
    ASSERT_TRUE(doomed.start(&reason)) << reason;
    ovtest::ChildProcess peer;
    startPeer(peer, "bus-loss /test/dbus/doomed", "", doomed.address());
    ASSERT_EQ(reply(peer), "ready");
    ASSERT_TRUE(doomed.kill());
    ASSERT_TRUE(peer.writeLine("go"));
    const std::string down = std::to_string(ES_ERR_BUS_DOWN);
    EXPECT_EQ(reply(peer), "publish " + down + " subscribe " + down +
                               " channel 0 flip 0 connected 0 received 0");
    EXPECT_TRUE(endsWell(peer)) << "the peer must end on its own, promptly";
}

TEST_F(MultiProcessTest, MalformedSignalsFromOtherClientsAreDroppedAndReported) {
    const std::string topic = "/test/dbus/garbage";
    ovtest::EventRecorder events(topic);
    QCopChannel channel("test/garbage");
    PHONE_AsyncMsgReceiver phone;
    int heard = 0; // channel messages and phone signals that got through
    QObject::connect(&channel, &QCopChannel::received, [&heard] { ++heard; });
    QObject::connect(&phone, &PHONE_AsyncMsgReceiver::signalRoamingState, [&heard] { ++heard; });
    ovtest::StderrCapture err;

    // A client of its own, speaking the wire form badly.
    QDBusConnection rogue =
        QDBusConnection::connectToBus(QString::fromStdString(mDaemon->address()), "rogue");
    ASSERT_TRUE(rogue.isConnected());
    const QString qtopic = QString::fromStdString(topic);
    const struct {
        const char* member;
        QList<QVariant> arguments;
        std::string why;
    } cases[] = {
        {"Event", {qtopic}, "its arguments are (s), not (sia{sv})"},
        {"Event",
         {qtopic, QString("7"), QVariantMap()},
         "its arguments are (ssa{sv}), not (sia{sv})"},
        {"Event",
         {qtopic, 7, QVariantMap{{"n", 5}}},
         "property \"n\" holds a value of type i, not s or ay"},
        {"Event",
         {qtopic, 7, QVariantMap{{"s", QStringList{"x"}}}},
         "property \"s\" holds a value of type as, not s or ay"},
        {"Channel",
         {QString("test/garbage"), QString("FlipOpened")},
         "its arguments are (ss), not (ssay)"},
        {"Phone", {QString("RoamingState"), QString("1")}, "its arguments are (ss), not (si)"},
        {"Phone", {QString("Teleport"), 1}, "the phone has no signal named \"Teleport\""},
    };
    for (const auto& bad : cases) {
        QDBusMessage signal =
            QDBusMessage::createSignal("/org/ovbase/Platform", "org.ovbase.Platform", bad.member);
        signal.setArguments(bad.arguments);
        EXPECT_TRUE(rogue.send(signal));
    }
    // Answered only once the daemon has routed them all; our own event comes after them.
    QDBusMessage ping = QDBusMessage::createMethodCall(
        "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId");
    EXPECT_EQ(rogue.call(ping).type(), QDBusMessage::ReplyMessage);
    const std::string sender = rogue.baseService().toStdString();
    QDBusConnection::disconnectFromBus("rogue");

    publish(topic, 3);
    ASSERT_TRUE(events.waitFor(1));
    // Each on a level 3 line of its own. Channel and phone signals are taken on another
    // thread than events: their lines may come later.
    auto reported = [&](const char* member, const std::string& why) {
        std::string text = "\n" + err.text();
        size_t at = text.find("Dropped a malformed org.ovbase.Platform." + std::string(member) +
                              " signal from " + sender + ": " + why + "\n");
        return at != std::string::npos && text.compare(text.rfind('\n', at) + 1, 4, "{3} ") == 0;
    };
    for (const auto& bad : cases)
        EXPECT_TRUE(ovtest::waitUntil([&] { return reported(bad.member, bad.why); }))
            << bad.member << ": " << bad.why << "\n"
            << err.text();
    ovtest::runQtFor(50);
    EXPECT_EQ(heard, 0);
    EXPECT_EQ(events.count(), 1u);
    EXPECT_EQ(events.events()[0].value, 3) << "a malformed event got through";
}

} // namespace
