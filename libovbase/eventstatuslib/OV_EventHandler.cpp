#include "eventstatuslib/OV_EventHandler.h"

#include "eventstatuslib/OV_EventAndStatusFacade.h"

OV_EventHandler::OV_EventHandler(const std::string& topic) : mTopic(topic) {
    OV_EventAndStatusFacade::instance()->subscribe(mTopic, this);
}

OV_EventHandler::~OV_EventHandler() {
    OV_EventAndStatusFacade* facade = OV_EventAndStatusFacade::instance();
    facade->unsubscribe(mTopic, this);
    // The unsubscribe leaves a handler that shares its topic registered; a destroyed one must
    // never be called again.
    facade->forgetHandler(this);
}
