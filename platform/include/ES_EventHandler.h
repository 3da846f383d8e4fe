// Receiver of bus events. handleEvent runs on the bus's delivery thread, never inside publish.
#ifndef OVPLATFORM_ES_EVENTHANDLER_H
#define OVPLATFORM_ES_EVENTHANDLER_H

#include "ES_Event.h"

class ES_EventHandler {
public:
    virtual ~ES_EventHandler() {}
    virtual void handleEvent(const ES_Event& event) = 0;
};

#endif
