// Events between two processes on a private dbus-daemon. The round trip of an event published
// through the facade, echoed by a handler of the other process and received back here, against
// the same ping-pong of bare Qt D-Bus signals between the same two processes (the transport's
// overhead: the "vs_bare" counter) and against the loopback transport inside one process.
// Then events per second from one process to the other, bare and through the transport.
//
// The other processes are this program started again: OVBENCH_DBUS_PEER tells one to echo
// (over D-Bus, both bare and through the library) or to measure the loopback round trip.
#include "eventstatuslib/OV_Event.h"
#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "eventstatuslib/OV_EventHandler.h"

#include "support/ChildProcess.h"
#include "support/DBusDaemon.h"

#include "ES_EventPublisher.h"
#include "ES_EventSubscriber.h"
#include "OVPlatform.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QStringList>
#include <QThread>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

typedef std::chrono::steady_clock Clock;

const char* const kPeerVariable = "OVBENCH_DBUS_PEER";
const char* const kAddressVariable = "OVBENCH_DBUS_ADDRESS";

const std::string kPing = "/bench/dbus/ping";
const std::string kPong = "/bench/dbus/pong";
const std::string kFlood = "/bench/dbus/flood";
const std::string kFloodDone = "/bench/dbus/flood_done";
const std::string kLoop = "/bench/dbus/loop";
const std::string kRawPing = "/bench/dbus/rawping";
const std::string kRawPong = "/bench/dbus/rawpong";
const std::string kRawFlood = "/bench/dbus/rawflood";
const std::string kRawFloodDone = "/bench/dbus/rawflood_done";
const int kFloodBatch = 1000;
const int kEndOfFlood = -1;

// The bare signals: a key and bytes on a connection of their own, with a match on the key as
// the transport makes. They stay this simple, so that the ratio to them counts all that the
// library adds, the typed arguments of its signals included.
const char* const kBarePath = "/org/ovbase/Bench";
const char* const kBareInterface = "org.ovbase.Bench";

// What a bare round trip carries besides the key, about what an event's value and one
// 64-byte property come to.
QByteArray payload() {
    return QByteArray(100, 'p');
}

// Counts arrivals and keeps the time of the last one.
class Arrivals {
public:
    void arrive(long count = 1) {
        Clock::time_point now = Clock::now();
        std::lock_guard<std::mutex> lock(mMutex);
        mCount += count;
        mLast = now;
        mArrived.notify_all();
    }
    // Waits until COUNT arrivals in all; the time of the last. Ten seconds at most.
    Clock::time_point waitFor(long count) {
        std::unique_lock<std::mutex> lock(mMutex);
        if (!mArrived.wait_for(lock, std::chrono::seconds(10), [&] { return mCount >= count; }))
            std::abort(); // a lost event: no figure would mean anything
        return mLast;
    }
    long count() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mCount;
    }

private:
    std::mutex mMutex;
    std::condition_variable mArrived;
    long mCount = 0;
    Clock::time_point mLast;
};

// A handler that counts what it gets and keeps the last value.
class CountingHandler : public OV_EventHandler {
public:
    explicit CountingHandler(const std::string& topic) : OV_EventHandler(topic) {}
    void handleEvent(OV_Event& event) override {
        mLastValue = event.mValue;
        mArrivals.arrive();
    }
    Arrivals mArrivals;
    std::atomic<int> mLastValue{0};
};

// The bare side of either process, on a thread with its own event loop as Qt's D-Bus needs.
class BareEnd : public QObject {
    Q_OBJECT
public:
    BareEnd(const std::string& address, bool echo)
        : mConnection(QDBusConnection::connectToBus(QString::fromStdString(address), "bare")),
          mEcho(echo) {
        mThread.start();
        moveToThread(&mThread);
        listen(echo ? "Ping" : "Pong", SLOT(onRoundTrip(QString, QByteArray, QByteArray)));
        listen(echo ? "Flood" : "FloodDone", SLOT(onFlood(QString, QByteArray, QByteArray)));
        // Answered once the daemon has the match rules.
        mConnection.call(QDBusMessage::createMethodCall(
            "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId"));
    }

    void send(const char* member, const QString& key, const QByteArray& first) {
        QDBusMessage signal = QDBusMessage::createSignal(kBarePath, kBareInterface, member);
        signal << key << first << QByteArray();
        mConnection.send(signal);
    }

    Arrivals mArrivals;

public slots:
    void onRoundTrip(const QString& key, const QByteArray& first, const QByteArray&) {
        if (mEcho)
            send("Pong", key, first);
        else
            mArrivals.arrive();
    }
    void onFlood(const QString& key, const QByteArray& first, const QByteArray&) {
        if (!mEcho) {
            mArrivals.arrive(first.toLong());
        } else if (first != "end") {
            ++mFlooded;
        } else {
            send("FloodDone", key, QByteArray::number(mFlooded));
            mFlooded = 0;
        }
    }

private:
    void listen(const char* member, const char* slot) {
        mConnection.connect(QString(), kBarePath, kBareInterface, member,
                            QStringList("/bench/bare"), QString(), this, slot);
    }

    QDBusConnection mConnection;
    bool mEcho;
    QThread mThread;
    long mFlooded = 0;
};

// ---- the peers ------------------------------------------------------------------------

// Echoes pings as pongs; answers a flood's end with the number of events it had.
class EchoHandler : public OV_EventHandler {
public:
    explicit EchoHandler(const std::string& topic) : OV_EventHandler(topic) {}
    void handleEvent(OV_Event& event) override {
        if (event.mEventType == kPing) {
            OV_Event pong(kPong);
            pong.mValue = event.mValue;
            pong.mPropMap = event.mPropMap;
            OV_EventAndStatusFacade::instance()->publish(pong);
        } else if (event.mValue != kEndOfFlood) {
            ++mFlooded;
        } else {
            OV_Event done(kFloodDone);
            done.mValue = mFlooded;
            mFlooded = 0;
            OV_EventAndStatusFacade::instance()->publish(done);
        }
    }

private:
    long mFlooded = 0;
};

// Echoes pings and counts floods at the platform bus's level, without the library's facade
// and adapter.
class RawEcho : public ES_EventHandler {
public:
    void handleEvent(const ES_Event& event) override {
        if (event.getTopic() == kRawPing) {
            ES_Event pong(kRawPong);
            for (const auto& entry : event.getProperties())
                pong.setProperty(entry.first, entry.second);
            ES_EventPublisher::publish(pong);
        } else if (!event.getProperty("end", nullptr)) {
            ++mFlooded;
        } else {
            ES_Event done(kRawFloodDone);
            done.setProperty("count", std::to_string(mFlooded));
            mFlooded = 0;
            ES_EventPublisher::publish(done);
        }
    }

private:
    long mFlooded = 0;
};

// Counts arrivals at the platform bus's level; keeps the last "count" property.
class RawCount : public ES_EventHandler {
public:
    void handleEvent(const ES_Event& event) override {
        std::string count;
        if (event.getProperty("count", &count))
            mLastCount = std::atol(count.c_str());
        mArrivals.arrive();
    }
    Arrivals mArrivals;
    std::atomic<long> mLastCount{0};
};

int runEchoPeer(const std::string& address) {
    if (!ovplatform::useBusAddress(address))
        return 1;
    EchoHandler ping(kPing), flood(kFlood);
    RawEcho raw;
    ES_EventSubscriber::subscribe(kRawPing, &raw);
    ES_EventSubscriber::subscribe(kRawFlood, &raw);
    new BareEnd(address, true); // its thread runs until the process ends
    std::cout << "ready" << std::endl;
    std::string line;
    std::getline(std::cin, line); // until the benchmark closes our input
    return 0;
}

// Measures loopback round trips on request: a line with a count in, the nanoseconds out.
int runLoopbackPeer() {
    CountingHandler handler(kLoop);
    std::cout << "ready" << std::endl;
    long expected = 0;
    for (long count; std::cin >> count;) {
        long nanos = 0;
        for (long i = 0; i < count; ++i) {
            OV_Event event(kLoop);
            event.setProperty("payload", payload().toStdString());
            Clock::time_point start = Clock::now();
            OV_EventAndStatusFacade::instance()->publish(event);
            nanos +=
                std::chrono::nanoseconds(handler.mArrivals.waitFor(++expected) - start).count();
        }
        std::cout << nanos << std::endl;
    }
    return 0;
}

// Chooses the peer's part before main() when this program runs as a peer.
struct PeerStart {
    PeerStart() {
        const char* mode = std::getenv(kPeerVariable);
        if (!mode)
            return;
        static int argc = 1;
        static char name[] = "bench_dbus-peer";
        static char* argv[] = {name, nullptr};
        new QCoreApplication(argc, argv);
        const char* address = std::getenv(kAddressVariable);
        std::exit(std::string(mode) == "echo" ? runEchoPeer(address ? address : "")
                                              : runLoopbackPeer());
    }
};

// ---- the measuring side ---------------------------------------------------------------

void startPeer(ovtest::ChildProcess& peer, const std::string& mode, const std::string& address) {
    if (!peer.start({"/proc/self/exe"}, {std::string(kPeerVariable) + "=" + mode,
                                         std::string(kAddressVariable) + "=" + address}) ||
        !peer.waitForLine("ready", nullptr, 20000)) {
        std::cerr << "bench_dbus: the " << mode << " peer did not start\n";
        std::abort();
    }
}

// This process on a private daemon, with an echoing peer there.
struct Session {
    Session() {
        std::string reason;
        daemon = ovtest::DBusDaemon::forThisProcess(&reason);
        if (!daemon) {
            std::cerr << "bench_dbus: " << reason << "\n";
            std::abort();
        }
        startPeer(peer, "echo", daemon->address());
        pong.reset(new CountingHandler(kPong));
        floodDone.reset(new CountingHandler(kFloodDone));
        bare.reset(new BareEnd(daemon->address(), false));
        ES_EventSubscriber::subscribe(kRawPong, &rawPong);
        ES_EventSubscriber::subscribe(kRawFloodDone, &rawFloodDone);
    }

    ovtest::DBusDaemon* daemon;
    ovtest::ChildProcess peer;
    std::unique_ptr<CountingHandler> pong;
    std::unique_ptr<CountingHandler> floodDone;
    std::unique_ptr<BareEnd> bare;
    RawCount rawPong;
    RawCount rawFloodDone;
};

Session& session() {
    static Session* s = new Session; // lives until exit, as the connection does
    return *s;
}

// One round trip: SEND, then the wait for the answer in ARRIVALS; microseconds from the send
// to the answer's arrival.
template <typename Send> double roundTrip(Send send, Arrivals& arrivals) {
    long expected = arrivals.count() + 1;
    Clock::time_point start = Clock::now();
    send();
    return std::chrono::duration<double, std::micro>(arrivals.waitFor(expected) - start).count();
}

void sendBare() {
    session().bare->send("Ping", "/bench/bare", payload());
}

void sendRaw() {
    ES_Event ping(kRawPing);
    ping.setProperty("payload", std::string(64, 'p'));
    ES_EventPublisher::publish(ping);
}

void publishPing() {
    OV_Event ping(kPing);
    ping.mValue = 1;
    ping.setProperty("payload", std::string(64, 'p'));
    OV_EventAndStatusFacade::instance()->publish(ping);
}

double median(std::vector<double>& micros) {
    std::sort(micros.begin(), micros.end());
    return micros.empty() ? 0 : micros[micros.size() / 2];
}

void reportLatencies(benchmark::State& state, std::vector<double>& micros) {
    state.counters["median_us"] = median(micros);
    if (!micros.empty())
        state.counters["p99_us"] = micros[std::min(micros.size() - 1, micros.size() * 99 / 100)];
}

void BM_BareDBusRoundTrip(benchmark::State& state) {
    std::vector<double> micros;
    for (auto _ : state) {
        micros.push_back(roundTrip(sendBare, session().bare->mArrivals));
        state.SetIterationTime(micros.back() / 1e6);
    }
    reportLatencies(state, micros);
}
BENCHMARK(BM_BareDBusRoundTrip)->UseManualTime()->MinTime(2.0);

void BM_TransportRoundTrip(benchmark::State& state) {
    std::vector<double> micros;
    for (auto _ : state) {
        micros.push_back(roundTrip(publishPing, session().pong->mArrivals));
        state.SetIterationTime(micros.back() / 1e6);
    }
    reportLatencies(state, micros);
}
BENCHMARK(BM_TransportRoundTrip)->UseManualTime()->MinTime(2.0);

// The three in turn, so that all see the same load on the machine: on a busy host the fair
// ratio. Which goes first changes every time, as the first after a pause pays for waking up.
// The time is the facade's; "bus_us" is the round trip at the platform bus's level (the
// transport without the library's facade and adapter), "bare_us" that of bare signals.
void BM_RoundTripsInTurn(benchmark::State& state) {
    std::vector<double> times[3];
    int first = 0;
    for (auto _ : state) {
        for (int i = 0; i < 3; ++i) {
            int which = (first + i) % 3;
            if (which == 0)
                times[0].push_back(roundTrip(sendBare, session().bare->mArrivals));
            else if (which == 1)
                times[1].push_back(roundTrip(sendRaw, session().rawPong.mArrivals));
            else
                times[2].push_back(roundTrip(publishPing, session().pong->mArrivals));
        }
        first = (first + 1) % 3;
        state.SetIterationTime(times[2].back() / 1e6);
    }
    double bare = median(times[0]);
    state.counters["bare_us"] = bare;
    state.counters["bus_us"] = median(times[1]);
    state.counters["median_us"] = median(times[2]);
    if (bare > 0) {
        state.counters["bus_vs_bare"] = state.counters["bus_us"] / bare;
        state.counters["vs_bare"] = state.counters["median_us"] / bare;
    }
}
BENCHMARK(BM_RoundTripsInTurn)->UseManualTime()->MinTime(4.0);

// Measured inside a process of its own that stays on the loopback transport.
void BM_LoopbackRoundTrip(benchmark::State& state) {
    static ovtest::ChildProcess* peer = nullptr;
    if (!peer) {
        peer = new ovtest::ChildProcess;
        startPeer(*peer, "loopback", "");
    }
    std::vector<double> micros;
    for (auto _ : state) {
        std::string nanos;
        if (!peer->writeLine("1") || !peer->readLine(&nanos)) {
            state.SkipWithError("the loopback peer stopped");
            break;
        }
        micros.push_back(std::stod(nanos) / 1e3);
        state.SetIterationTime(micros.back() / 1e6);
    }
    reportLatencies(state, micros);
}
BENCHMARK(BM_LoopbackRoundTrip)->UseManualTime()->MinTime(2.0);

void BM_BareDBusSignalsPerSecond(benchmark::State& state) {
    BareEnd& bare = *session().bare;
    long expected = bare.mArrivals.count();
    for (auto _ : state) {
        for (int i = 0; i < kFloodBatch; ++i)
            bare.send("Flood", "/bench/bare", payload());
        bare.send("Flood", "/bench/bare", "end");
        expected += kFloodBatch;
        bare.mArrivals.waitFor(expected);
    }
    state.SetItemsProcessed(state.iterations() * kFloodBatch);
}
BENCHMARK(BM_BareDBusSignalsPerSecond)->UseRealTime()->Unit(benchmark::kMillisecond);

// At the platform bus's level: the transport without the library's facade and adapter.
void BM_BusEventsPerSecond(benchmark::State& state) {
    RawCount& done = session().rawFloodDone;
    for (auto _ : state) {
        long expected = done.mArrivals.count() + 1;
        for (int i = 0; i <= kFloodBatch; ++i) {
            ES_Event event(kRawFlood);
            event.setProperty("payload", std::string(64, 'p'));
            if (i == kFloodBatch)
                event.setProperty("end", "");
            ES_EventPublisher::publish(event);
        }
        done.mArrivals.waitFor(expected);
        if (done.mLastCount != kFloodBatch) {
            state.SkipWithError("the peer did not get every event");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * kFloodBatch);
}
BENCHMARK(BM_BusEventsPerSecond)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_TransportEventsPerSecond(benchmark::State& state) {
    CountingHandler& done = *session().floodDone;
    OV_EventAndStatusFacade* facade = OV_EventAndStatusFacade::instance();
    long expected = done.mArrivals.count();
    for (auto _ : state) {
        for (int i = 0; i <= kFloodBatch; ++i) {
            OV_Event event(kFlood);
            event.mValue = i < kFloodBatch ? i : kEndOfFlood;
            event.setProperty("payload", std::string(64, 'p'));
            facade->publish(event);
        }
        done.mArrivals.waitFor(++expected);
        if (done.mLastValue != kFloodBatch) {
            state.SkipWithError("the peer did not get every event");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * kFloodBatch);
}
BENCHMARK(BM_TransportEventsPerSecond)->UseRealTime()->Unit(benchmark::kMillisecond);

// Last in the file: it may need every other static object here.
PeerStart gPeerStart;

} // namespace

#include "bench_dbus.moc"
