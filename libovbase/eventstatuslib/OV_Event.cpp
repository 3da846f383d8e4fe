#include "eventstatuslib/OV_Event.h"

OV_Event::OV_Event(const std::string& eventType) : mEventType(eventType), mValue(0) {}

OV_Event::~OV_Event() {}

void OV_Event::setProperty(const std::string& key, const std::string& value) {
    if (mPropMap == nullptr)
        mPropMap = PtrRef<PropMap>(new PropMap);
    (*mPropMap)[key] = value;
}

bool OV_Event::getProperty(const std::string& key, std::string* value) const {
    if (mPropMap == nullptr)
        return false;
    PropMap::const_iterator it = mPropMap->find(key);
    if (it == mPropMap->end())
        return false;
    if (value)
        *value = it->second;
    return true;
}
