// Base of every subscriber: registers with the facade for one topic for as long as it lives.
// It keeps a reference to the topic, so the topic string must outlive the handler (topics
// are program-lifetime constants).
//
// Registration happens in this constructor. Where events arrive on another thread (the bus's
// delivery thread on a host), handleEvent may run before a derived constructor has finished:
// make such handlers while no event of their topic can arrive, or keep their state ready
// before the base is built.
//
// The destructor ends the registration for good, also for a handler that shares its topic,
// and waits for a call into the handler under way on another thread. That wait comes after
// the derived destructors have run: a handler whose members such a call may reach calls
// OV_EventAndStatusFacade::forgetHandler(this) first in its own destructor.
#ifndef OVBASE_EVENTSTATUSLIB_OV_EVENTHANDLER_H
#define OVBASE_EVENTSTATUSLIB_OV_EVENTHANDLER_H

#include <string>

class OV_Event;

class OV_EventHandler {
public:
    explicit OV_EventHandler(const std::string& topic);
    virtual ~OV_EventHandler();

    virtual void handleEvent(OV_Event& event) = 0;

    const std::string& topic() const { return mTopic; }

private:
    OV_EventHandler(const OV_EventHandler&) = delete;
    OV_EventHandler& operator=(const OV_EventHandler&) = delete;

    const std::string& mTopic;
};

#endif
