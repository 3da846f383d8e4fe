#include "eventstatuslib/OV_EventHandler.h"

#include "eventstatuslib/OV_EventAndStatusFacade.h"

OV_EventHandler::OV_EventHandler(const std::string& topic) : mTopic(topic) {
    OV_EventAndStatusFacade::instance()->subscribe(mTopic, this);
}

OV_EventHandler::~OV_EventHandler() {
    OV_EventAndStatusFacade::instance()->unsubscribe(mTopic, this);
}
