// The process's side of the platform bus: subscriptions by topic, a queue of events to
// deliver and the delivery thread that calls the handlers, one event after the other in
// order of arrival and, per event, the handlers in order of subscription. A transport that
// receives on a thread of its own (D-Bus) delivers there directly instead: that thread is then
// the bus's delivery thread, and the bus runs no thread and no queue of its own.
//
// Shutdown (explicit, or at process exit through atexit): events still queued are discarded
// without being delivered; a delivery under way is waited for up to about two seconds, after
// which the thread is detached and left to finish alone (the bus object is never freed, so
// it finds its state intact). Later calls return ES_ERR_BUS_DOWN.
#ifndef OVPLATFORM_HOST_EVENTBUS_H
#define OVPLATFORM_HOST_EVENTBUS_H

#include "ES_EventHandler.h"
#include "EventTransport.h"

#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace ovplatform {

class EventBus {
public:
    // The process's bus, created with the loopback transport on first use.
    static EventBus* instance();
    // Creates the process's bus with TRANSPORT instead; false when the bus already exists.
    static bool install(std::unique_ptr<EventTransport> transport);
    // Whether the process's bus has been created.
    static bool exists();

    int subscribe(const std::string& topic, ES_EventHandler* handler);
    int unsubscribe(const std::string& topic, ES_EventHandler* handler);
    int publish(const ES_Event& event);
    void shutdown();

private:
    explicit EventBus(std::unique_ptr<EventTransport> transport);
    // Makes the process's bus; called with the instance lock held.
    static void create(std::unique_ptr<EventTransport> transport);
    EventBus(const EventBus&) = delete;
    EventBus& operator=(const EventBus&) = delete;

    void enqueue(const ES_Event& event);
    void run();
    // Delivers EVENT on the calling thread (a transport's own), in place of the queue.
    void deliverNow(const ES_Event& event);
    // Calls EVENT's handlers; LOCK holds mMutex, released around each call.
    void deliver(std::unique_lock<std::mutex>& lock, const ES_Event& event);
    bool isSubscribed(const std::string& topic, ES_EventHandler* handler) const;

    std::mutex mMutex;
    std::condition_variable mWake; // work queued or stop asked
    std::condition_variable mIdle; // a handler call ended, or the thread ended
    std::map<std::string, std::vector<ES_EventHandler*>> mSubscriptions;
    std::deque<ES_Event> mQueue;
    ES_EventHandler* mpDelivering;
    bool mDown;
    bool mThreadDone;
    std::unique_ptr<EventTransport> mpTransport;
    std::thread mThread; // not joinable when the transport delivers on its own thread
};

} // namespace ovplatform

#endif
