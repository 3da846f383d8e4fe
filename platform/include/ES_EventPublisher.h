// Publishing on the platform bus. The event is copied and delivered later on the bus's
// delivery thread to the handlers subscribed to its topic when it is delivered: in this
// process, and over D-Bus (ovplatform::useBusAddress) in every process on the same daemon.
// Events still queued when the bus shuts down (ovplatform::shutdownEventBus, or process exit)
// are dropped.
#ifndef OVPLATFORM_ES_EVENTPUBLISHER_H
#define OVPLATFORM_ES_EVENTPUBLISHER_H

#include "ES_Event.h"

class ES_EventPublisher {
public:
    // ES_OK when queued for delivery, ES_ERR_NO_SUBSCRIBER when no handler of any process
    // listens to the topic (nothing is queued), ES_ERR_INVALID_TOPIC or ES_ERR_BUS_DOWN.
    static int publish(const ES_Event& event);
};

#endif
