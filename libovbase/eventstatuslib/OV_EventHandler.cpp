#include "eventstatuslib/OV_EventHandler.h"

#include "eventstatuslib/OV_EventAndStatusFacade.h"

OV_EventHandler::OV_EventHandler(const std::string& topic) : mTopic(topic), mRegistered(true) {
    OV_EventAndStatusFacade::instance()->subscribe(mTopic, this);
}

OV_EventHandler::OV_EventHandler(const std::string& topic, DeliverLater)
    : mTopic(topic), mRegistered(true) {
    OV_EventAndStatusFacade* facade = OV_EventAndStatusFacade::instance();
    facade->holdDeliveries(this, true);
    facade->subscribe(mTopic, this);
}

void OV_EventHandler::startDelivery() {
    OV_EventAndStatusFacade::instance()->holdDeliveries(this, false);
}

OV_EventHandler::~OV_EventHandler() {
    endRegistration();
}

void OV_EventHandler::endRegistration() {
    if (!mRegistered)
        return;
    mRegistered = false;
    OV_EventAndStatusFacade* facade = OV_EventAndStatusFacade::instance();
    facade->unsubscribe(mTopic, this);
    // The unsubscribe leaves a handler that shares its topic registered; a destroyed one must
    // never be called again.
    facade->forgetHandler(this);
}
