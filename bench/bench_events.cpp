// Events through the loopback bus, the figures of "event round trip":
// - BM_PublishToHandlerRoundTrip: from the start of OV_EventAndStatusFacade::publish on this
//   thread to the entry of the subscribed handler's handleEvent on the bus's delivery thread,
//   one event at a time; median_us and p99_us over every event of the run (the Time column is
//   their mean).
// - BM_EventsPerSecond: events published back to back and delivered to 1 and to 10 handlers,
//   items_per_second, and delivery_cpu_us, the delivery thread's CPU time per event.
// An event's publication and delivery write 13 of the library's diagnostic lines, some 1.3 kB.
// They go to /dev/null, which BenchMain opens as standard error: stdio then buffers them and
// writes them in blocks of 4 kB.
#include "eventstatuslib/OV_Event.h"
#include "eventstatuslib/OV_EventAndStatusFacade.h"
#include "eventstatuslib/OV_EventHandler.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <thread>
#include <vector>

namespace {

typedef std::chrono::steady_clock Clock;

// This thread's CPU time in microseconds.
double threadMicros() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

// Events of a batch of BM_EventsPerSecond carry their index as value.
const int BATCH = 1000;

// The delivery thread's CPU time over the batches: from the first handler's call for event 0 to
// the last handler's call for the last event. Written on the delivery thread before the count
// that tells the batch is complete, read after it.
double gBatchStartMicros = 0;
double gBatchMicros = 0;

class CountingHandler : public OV_EventHandler {
public:
    enum { FIRST = 1, LAST = 2 };

    explicit CountingHandler(const std::string& topic) : OV_EventHandler(topic) {}
    void handleEvent(OV_Event& event) override {
        mReceivedAt.store(Clock::now().time_since_epoch().count(), std::memory_order_relaxed);
        if ((mBatchRole & FIRST) && event.mValue == 0)
            gBatchStartMicros = threadMicros();
        if ((mBatchRole & LAST) && event.mValue == BATCH - 1)
            gBatchMicros += threadMicros() - gBatchStartMicros;
        mCount.fetch_add(1, std::memory_order_release);
    }
    std::atomic<long> mCount{0};
    std::atomic<Clock::rep> mReceivedAt{0};
    int mBatchRole = 0; // FIRST and LAST in a batch, set before it is published
};

// Handlers live for the whole run: the facade keeps a handler registered while others share
// its topic, so they are made once per topic and never destroyed.
std::vector<CountingHandler*>& handlersFor(const std::string& topic, int count) {
    static std::vector<std::vector<CountingHandler*>*> all;
    for (auto* set : all)
        if (set->front()->topic() == topic)
            return *set;
    auto* set = new std::vector<CountingHandler*>;
    for (int i = 0; i < count; ++i)
        set->push_back(new CountingHandler(topic));
    all.push_back(set);
    return *set;
}

void waitUntil(const CountingHandler* handler, long count) {
    while (handler->mCount.load(std::memory_order_acquire) < count)
        std::this_thread::yield();
}

const std::string kLatencyTopic = "/bench/events/latency";

void BM_PublishToHandlerRoundTrip(benchmark::State& state) {
    CountingHandler* handler = handlersFor(kLatencyTopic, 1).front();
    OV_EventAndStatusFacade* facade = OV_EventAndStatusFacade::instance();
    std::vector<double> micros;
    long expected = handler->mCount.load();
    for (auto _ : state) {
        OV_Event event(kLatencyTopic);
        event.mValue = 1;
        Clock::time_point start = Clock::now();
        facade->publish(event);
        waitUntil(handler, ++expected);
        Clock::time_point received{Clock::duration(handler->mReceivedAt.load())};
        double seconds = std::chrono::duration<double>(received - start).count();
        state.SetIterationTime(seconds);
        micros.push_back(seconds * 1e6);
    }
    std::sort(micros.begin(), micros.end());
    if (!micros.empty()) {
        state.counters["median_us"] = micros[micros.size() / 2];
        state.counters["p99_us"] = micros[std::min(micros.size() - 1, micros.size() * 99 / 100)];
    }
}
BENCHMARK(BM_PublishToHandlerRoundTrip)->UseManualTime()->MinTime(2.0);

const std::string kThroughputTopic1 = "/bench/events/throughput/1";
const std::string kThroughputTopic10 = "/bench/events/throughput/10";

// Publishes a batch of events and waits until every handler has had all of them; an event
// counts once however many handlers it reaches. Wall-clock time, as the work is on the bus.
// delivery_cpu_us: the delivery thread's CPU time per event, waits for the next event included.
void BM_EventsPerSecond(benchmark::State& state) {
    int handlerCount = static_cast<int>(state.range(0));
    const std::string& topic = handlerCount == 1 ? kThroughputTopic1 : kThroughputTopic10;
    std::vector<CountingHandler*>& handlers = handlersFor(topic, handlerCount);
    OV_EventAndStatusFacade* facade = OV_EventAndStatusFacade::instance();
    const int batch = BATCH;
    long expected = handlers.back()->mCount.load();
    handlers.front()->mBatchRole |= CountingHandler::FIRST;
    handlers.back()->mBatchRole |= CountingHandler::LAST;
    gBatchMicros = 0;
    for (auto _ : state) {
        for (int i = 0; i < batch; ++i) {
            OV_Event event(topic);
            event.mValue = i;
            event.setProperty("index", std::to_string(i));
            facade->publish(event);
        }
        expected += batch;
        waitUntil(handlers.back(), expected); // the last handler is called last
    }
    state.SetItemsProcessed(state.iterations() * batch);
    state.counters["handlers"] = handlerCount;
    if (state.iterations() > 0)
        state.counters["delivery_cpu_us"] =
            gBatchMicros / static_cast<double>(state.iterations() * batch);
}
BENCHMARK(BM_EventsPerSecond)->Arg(1)->Arg(10)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace
