// Subscriptions with the platform bus. A handler is held at most once per topic. Once
// unsubscribe returns, the handler is not called again for that topic: a delivery to it that
// is under way on the delivery thread is waited for (unless unsubscribe is called from that
// very delivery, as a handler removing itself does).
#ifndef OVPLATFORM_ES_EVENTSUBSCRIBER_H
#define OVPLATFORM_ES_EVENTSUBSCRIBER_H

#include "ES_EventHandler.h"

#include <string>

class ES_EventSubscriber {
public:
    // ES_OK, ES_ERR_INVALID_TOPIC, ES_ERR_INVALID_HANDLER or ES_ERR_BUS_DOWN.
    static int subscribe(const std::string& topic, ES_EventHandler* handler);
    // ES_OK, ES_ERR_NOT_SUBSCRIBED, ES_ERR_INVALID_TOPIC, ES_ERR_INVALID_HANDLER or
    // ES_ERR_BUS_DOWN.
    static int unsubscribe(const std::string& topic, ES_EventHandler* handler);
};

#endif
