// How bus events travel between processes. The bus keeps the subscriptions and delivers on
// its own thread; a transport only carries events to every process listening to a topic and
// hands those that reach this process to the bus's sink. Loopback stays inside the process;
// D-Bus reaches every process on the same dbus-daemon.
#ifndef OVPLATFORM_HOST_EVENTTRANSPORT_H
#define OVPLATFORM_HOST_EVENTTRANSPORT_H

#include "ES_Event.h"

#include <functional>
#include <string>

namespace ovplatform {

class EventTransport {
public:
    // Takes an arriving event into the bus's delivery queue; may be called from any thread.
    // For a transport that delivers on its own thread, delivers it.
    typedef std::function<void(const ES_Event&)> Sink;

    virtual ~EventTransport() {}

    // Whether the transport receives on a thread of its own and calls the sink only there,
    // one event at a time. Its sink then delivers to the handlers at once, on that thread.
    virtual bool deliversOnItsThread() const { return false; }

    virtual void start(Sink sink) = 0;
    // After stop() the sink is not called any more, except by a call already under way.
    virtual void stop() = 0;

    // This process starts or stops listening to TOPIC. Once listen() returns ES_OK, every
    // event sent to TOPIC afterwards, from any process, reaches the sink; ES_ERR_BUS_DOWN when
    // the transport cannot carry events any more.
    virtual int listen(const std::string& topic) = 0;
    virtual void unlisten(const std::string& topic) = 0;

    // Sends EVENT to every listening process, this one included when LISTENEDHERE.
    // ES_OK, ES_ERR_NO_SUBSCRIBER when no process listens (nothing is sent), or
    // ES_ERR_BUS_DOWN.
    virtual int send(const ES_Event& event, bool listenedHere) = 0;
};

} // namespace ovplatform

#endif
