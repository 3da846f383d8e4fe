#include "EventBus.h"

#include "ES_EventPublisher.h"
#include "ES_EventSubscriber.h"
#include "LoopbackTransport.h"
#include "OVPlatform.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>

namespace ovplatform {
namespace {

std::mutex gInstanceMutex;
// Read without the lock once set: it is set once and never freed.
std::atomic<EventBus*> gInstance{nullptr};

// The bus whose handlers this thread is delivering to: for the bus's own thread, all its life;
// for a transport's thread, for the length of a delivery.
thread_local const EventBus* tDelivering = nullptr;

void shutdownAtExit() {
    shutdownEventBus();
}

} // namespace

void EventBus::create(std::unique_ptr<EventTransport> transport) {
    // Never freed: a delivery thread left behind at shutdown may still use it.
    gInstance.store(new EventBus(std::move(transport)), std::memory_order_release);
    // Registered after the process's static objects were built, so it runs before they are
    // destroyed: no delivery reaches a half-destroyed program.
    std::atexit(shutdownAtExit);
}

EventBus* EventBus::instance() {
    EventBus* bus = gInstance.load(std::memory_order_acquire);
    if (bus)
        return bus;
    std::lock_guard<std::mutex> lock(gInstanceMutex);
    if (!gInstance.load(std::memory_order_relaxed))
        create(std::unique_ptr<EventTransport>(new LoopbackTransport));
    return gInstance.load(std::memory_order_relaxed);
}

bool EventBus::install(std::unique_ptr<EventTransport> transport) {
    std::lock_guard<std::mutex> lock(gInstanceMutex);
    if (gInstance.load(std::memory_order_relaxed))
        return false;
    create(std::move(transport));
    return true;
}

bool EventBus::exists() {
    return gInstance.load(std::memory_order_acquire) != nullptr;
}

EventBus::EventBus(std::unique_ptr<EventTransport> transport)
    : mpDelivering(nullptr), mDown(false), mThreadDone(false), mpTransport(std::move(transport)) {
    if (mpTransport->deliversOnItsThread()) {
        mpTransport->start([this](const ES_Event& event) { deliverNow(event); });
        return;
    }
    mpTransport->start([this](const ES_Event& event) { enqueue(event); });
    mThread = std::thread([this] { run(); });
}

bool EventBus::isSubscribed(const std::string& topic, ES_EventHandler* handler) const {
    auto it = mSubscriptions.find(topic);
    return it != mSubscriptions.end() &&
           std::find(it->second.begin(), it->second.end(), handler) != it->second.end();
}

int EventBus::subscribe(const std::string& topic, ES_EventHandler* handler) {
    if (topic.empty())
        return ES_ERR_INVALID_TOPIC;
    if (!handler)
        return ES_ERR_INVALID_HANDLER;
    std::lock_guard<std::mutex> lock(mMutex);
    if (mDown)
        return ES_ERR_BUS_DOWN;
    auto it = mSubscriptions.find(topic);
    if (it == mSubscriptions.end()) {
        int status = mpTransport->listen(topic);
        if (status != ES_OK)
            return status;
        it = mSubscriptions.emplace(topic, std::vector<ES_EventHandler*>()).first;
    }
    std::vector<ES_EventHandler*>& handlers = it->second;
    if (std::find(handlers.begin(), handlers.end(), handler) == handlers.end())
        handlers.push_back(handler);
    return ES_OK;
}

int EventBus::unsubscribe(const std::string& topic, ES_EventHandler* handler) {
    if (topic.empty())
        return ES_ERR_INVALID_TOPIC;
    if (!handler)
        return ES_ERR_INVALID_HANDLER;
    std::unique_lock<std::mutex> lock(mMutex);
    if (mDown)
        return ES_ERR_BUS_DOWN;
    auto it = mSubscriptions.find(topic);
    if (it == mSubscriptions.end())
        return ES_ERR_NOT_SUBSCRIBED;
    auto pos = std::find(it->second.begin(), it->second.end(), handler);
    if (pos == it->second.end())
        return ES_ERR_NOT_SUBSCRIBED;
    it->second.erase(pos);
    if (it->second.empty()) {
        mSubscriptions.erase(it);
        mpTransport->unlisten(topic);
    }
    // The caller may free the handler next: let a call into it on the delivery thread end
    // first. From inside that call (a handler leaving during delivery) there is nothing to wait.
    if (tDelivering != this)
        mIdle.wait(lock, [&] { return mpDelivering != handler || mThreadDone; });
    return ES_OK;
}

int EventBus::publish(const ES_Event& event) {
    if (event.getTopic().empty())
        return ES_ERR_INVALID_TOPIC;
    bool listenedHere;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mDown)
            return ES_ERR_BUS_DOWN;
        listenedHere = mSubscriptions.count(event.getTopic()) != 0;
    }
    return mpTransport->send(event, listenedHere);
}

void EventBus::enqueue(const ES_Event& event) {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mDown)
            return;
        mQueue.push_back(event);
    }
    // Woken after the lock is let go, so the delivery thread does not wake only to wait for it.
    // The bus is never freed, so the condition outlives any publisher.
    mWake.notify_one();
}

void EventBus::run() {
    tDelivering = this;
    std::unique_lock<std::mutex> lock(mMutex);
    while (true) {
        mWake.wait(lock, [this] { return mDown || !mQueue.empty(); });
        if (mDown)
            break;
        ES_Event event = std::move(mQueue.front());
        mQueue.pop_front();
        deliver(lock, event);
    }
    mThreadDone = true;
    mIdle.notify_all();
}

void EventBus::deliverNow(const ES_Event& event) {
    const EventBus* outer = tDelivering;
    tDelivering = this;
    std::unique_lock<std::mutex> lock(mMutex);
    if (!mDown)
        deliver(lock, event);
    tDelivering = outer;
}

void EventBus::deliver(std::unique_lock<std::mutex>& lock, const ES_Event& event) {
    auto it = mSubscriptions.find(event.getTopic());
    if (it == mSubscriptions.end())
        return;
    // Handlers may subscribe and unsubscribe while called: walk a copy, and skip those that
    // left in the meantime.
    std::vector<ES_EventHandler*> handlers = it->second;
    for (ES_EventHandler* handler : handlers) {
        if (mDown)
            break;
        if (!isSubscribed(event.getTopic(), handler))
            continue;
        mpDelivering = handler;
        lock.unlock();
        handler->handleEvent(event);
        lock.lock();
        mpDelivering = nullptr;
        mIdle.notify_all();
    }
}

void EventBus::shutdown() {
    {
        std::unique_lock<std::mutex> lock(mMutex);
        if (mDown)
            return;
        mDown = true;
        mQueue.clear();
        mWake.notify_all();
    }
    mpTransport->stop();
    if (tDelivering == this) {
        // Called from a handler: the delivery ends once that handler returns.
        if (mThread.joinable())
            mThread.detach();
        return;
    }
    std::unique_lock<std::mutex> lock(mMutex);
    bool ended = mIdle.wait_for(lock, std::chrono::seconds(2), [this] {
        return mThread.joinable() ? mThreadDone : mpDelivering == nullptr;
    });
    lock.unlock();
    if (!mThread.joinable())
        return;
    if (ended)
        mThread.join();
    else
        mThread.detach();
}

void shutdownEventBus() {
    EventBus* bus = gInstance.load(std::memory_order_acquire);
    if (bus)
        bus->shutdown();
}

} // namespace ovplatform

int ES_EventSubscriber::subscribe(const std::string& topic, ES_EventHandler* handler) {
    return ovplatform::EventBus::instance()->subscribe(topic, handler);
}

int ES_EventSubscriber::unsubscribe(const std::string& topic, ES_EventHandler* handler) {
    return ovplatform::EventBus::instance()->unsubscribe(topic, handler);
}

int ES_EventPublisher::publish(const ES_Event& event) {
    // Lets a test lose a publication as a bus that is down would.
    static const std::string call = "ES_EventPublisher::publish";
    if (ovplatform::callFails(call))
        return ES_ERR_BUS_DOWN;
    return ovplatform::EventBus::instance()->publish(event);
}
