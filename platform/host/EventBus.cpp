#include "EventBus.h"

#include "ES_EventPublisher.h"
#include "ES_EventSubscriber.h"
#include "LoopbackTransport.h"
#include "OVPlatform.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>

namespace ovplatform {
namespace {

std::mutex gInstanceMutex;
EventBus* gInstance = nullptr;

void shutdownAtExit() {
    shutdownEventBus();
}

} // namespace

EventBus* EventBus::instance() {
    std::lock_guard<std::mutex> lock(gInstanceMutex);
    if (!gInstance) {
        // Never freed: a delivery thread left behind at shutdown may still use it.
        gInstance = new EventBus(std::unique_ptr<EventTransport>(new LoopbackTransport));
        // Registered after the process's static objects were built, so it runs before
        // they are destroyed: no delivery reaches a half-destroyed program.
        std::atexit(shutdownAtExit);
    }
    return gInstance;
}

EventBus::EventBus(std::unique_ptr<EventTransport> transport)
    : mpDelivering(nullptr), mDown(false), mThreadDone(false), mpTransport(std::move(transport)) {
    mpTransport->start([this](const ES_Event& event) { enqueue(event); });
    mThread = std::thread([this] { run(); });
    mThreadId = mThread.get_id();
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
    std::vector<ES_EventHandler*>& handlers = mSubscriptions[topic];
    if (handlers.empty())
        mpTransport->listen(topic);
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
    if (std::this_thread::get_id() != mThreadId)
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
    std::lock_guard<std::mutex> lock(mMutex);
    if (mDown)
        return;
    mQueue.push_back(event);
    mWake.notify_one();
}

void EventBus::run() {
    std::unique_lock<std::mutex> lock(mMutex);
    while (true) {
        mWake.wait(lock, [this] { return mDown || !mQueue.empty(); });
        if (mDown)
            break;
        ES_Event event = std::move(mQueue.front());
        mQueue.pop_front();
        auto it = mSubscriptions.find(event.getTopic());
        if (it == mSubscriptions.end())
            continue;
        // Handlers may subscribe and unsubscribe while called: walk a copy, and skip those
        // that left in the meantime.
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
    mThreadDone = true;
    mIdle.notify_all();
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
    if (std::this_thread::get_id() == mThreadId) {
        // Called from a handler: the thread ends once that handler returns.
        mThread.detach();
        return;
    }
    std::unique_lock<std::mutex> lock(mMutex);
    bool ended = mIdle.wait_for(lock, std::chrono::seconds(2), [this] { return mThreadDone; });
    lock.unlock();
    if (ended)
        mThread.join();
    else
        mThread.detach();
}

void shutdownEventBus() {
    EventBus* bus;
    {
        std::lock_guard<std::mutex> lock(gInstanceMutex);
        bus = gInstance;
    }
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
    if (ovplatform::callFails("ES_EventPublisher::publish"))
        return ES_ERR_BUS_DOWN;
    return ovplatform::EventBus::instance()->publish(event);
}
